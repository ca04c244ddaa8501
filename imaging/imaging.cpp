// The imaging settings report of a video source: its settings file, with the
// live gain, iris and exposure of the device state where the file leaves them open.
#include "frame/frame.h"
#include "frame/request_values.h"
#include "state/shm_words.h"
#include "frame/handlers.h"
#include "imaging/abilities.h"
#include "imaging/imaging_request.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// The image process publishes the shutter time it runs at, in units of
// 100 microseconds.
float sync_exposure_time()
{
    return (float)shmWord(SHUTTER_WORD) / 10000.0f;
}

// A number of the file as the report prints it; text that is no number reads 0.
static float fileNumber(const char* value)
{
    char* end;
    float v = strtof(value, &end);
    return end == value || *end ? 0.0f : v;
}

enum RowKind { TEXT, FLOAT6, FLOAT3, EXPOSURE_TIME, GAIN, IRIS, FOCUS_OPEN, CLOSING };

struct ReportRow {
    const char* key;
    const char* open;       // printed before the value
    const char* close;      // printed after it
    RowKind kind;
    const char* unsetClose; // what "NONE" prints on a group's last key
    int guardWord;          // ... only when this word is not negative (0: no guard)
};

static const ReportRow ROWS[] = {
    {"BacklightCompensation.Mode=", "<tt:BacklightCompensation><tt:Mode>", "</tt:Mode>", TEXT, 0, 0},
    {"BacklightCompensation.Level=", "<tt:Level>", "</tt:Level></tt:BacklightCompensation>", CLOSING,
     "</tt:BacklightCompensation>", BACKLIGHT_WORD},
    {"Brightness=", "<tt:Brightness>", "</tt:Brightness>", TEXT, 0, 0},
    {"ColorSaturation=", "<tt:ColorSaturation>", "</tt:ColorSaturation>", TEXT, 0, 0},
    {"Contrast=", "<tt:Contrast>", "</tt:Contrast>", TEXT, 0, 0},
    {"Exposure.Mode=", "<tt:Exposure><tt:Mode>", "</tt:Mode>", TEXT, 0, 0},
    {"Exposure.Priority=", "<tt:ExposurePriority>", "</tt:ExposurePriority>", TEXT, 0, 0},
    {"Exposure.Window.bottom=", "<tt:Window><tt:bottom>", "</tt:bottom>", TEXT, 0, 0},
    {"Exposure.Window.top=", "<tt:top>", "</tt:top>", TEXT, 0, 0},
    {"Exposure.Window.right=", "<tt:right>", "</tt:right>", TEXT, 0, 0},
    // The window closes with its last side, so the report stays well-formed.
    {"Exposure.Window.left=", "<tt:left>", "</tt:left></tt:Window>", TEXT, 0, 0},
    {"Exposure.MinExposureTime=", "<tt:MinExposureTime>", "</tt:MinExposureTime>", FLOAT6, 0, 0},
    {"Exposure.MaxExposureTime=", "<tt:MaxExposureTime>", "</tt:MaxExposureTime>", FLOAT6, 0, 0},
    {"Exposure.MinGain=", "<tt:MinGain>", "</tt:MinGain>", FLOAT3, 0, 0},
    {"Exposure.MaxGain=", "<tt:MaxGain>", "</tt:MaxGain>", FLOAT3, 0, 0},
    {"Exposure.MinIris=", "<tt:MinIris>", "</tt:MinIris>", FLOAT3, 0, 0},
    {"Exposure.MaxIris=", "<tt:MaxIris>", "</tt:MaxIris>", FLOAT3, 0, 0},
    {"Exposure.ExposureTime=", "<tt:ExposureTime>", "</tt:ExposureTime>", EXPOSURE_TIME, 0, 0},
    {"Exposure.Gain=", "<tt:Gain>", "</tt:Gain>", GAIN, 0, 0},
    {"Exposure.Iris=", "<tt:Iris>", "</tt:Iris></tt:Exposure>", IRIS, 0, 0},
    {"Focus.AutoFocusMode=", "<tt:Focus><tt:AutoFocusMode>", "</tt:AutoFocusMode>", FOCUS_OPEN, 0, 0},
    {"Focus.DefaultSpeed=", "<tt:DefaultSpeed>", "</tt:DefaultSpeed>", TEXT, 0, 0},
    {"Focus.NearLimit=", "<tt:NearLimit>", "</tt:NearLimit>", TEXT, 0, 0},
    {"Focus.FarLimit=", "<tt:FarLimit>", "</tt:FarLimit></tt:Focus>", CLOSING, "</tt:Focus>", -1},
    {"IrCutFilter=", "<tt:IrCutFilter>", "</tt:IrCutFilter>", TEXT, 0, 0},
    {"Sharpness=", "<tt:Sharpness>", "</tt:Sharpness>", TEXT, 0, 0},
    {"WideDynamicRange.Mode=", "<tt:WideDynamicRange><tt:Mode>", "</tt:Mode>", TEXT, 0, 0},
    {"WideDynamicRange.Level=", "<tt:Level>", "</tt:Level></tt:WideDynamicRange>", CLOSING,
     "</tt:WideDynamicRange>", WDR_WORD},
    {"WhiteBalance.Mode=", "<tt:WhiteBalance><tt:Mode>", "</tt:Mode>", TEXT, 0, 0},
    {"WhiteBalance.CrGain=", "<tt:CrGain>", "</tt:CrGain>", TEXT, 0, 0},
    {"WhiteBalance.CbGain=", "<tt:CbGain>", "</tt:CbGain></tt:WhiteBalance>", CLOSING, "</tt:WhiteBalance>",
     WHITE_BALANCE_WORD},
};

static void printExposureTime(const char* value)
{
    appendResponse("%.6f", (float)exposureTimeFromFile(fileNumber(value)));
}

static void printRow(const ReportRow& row, const char* value, int* focusOpen)
{
    int unset = strcmp(value, "NONE") == 0;
    switch (row.kind) {
    case CLOSING:
        if (!unset) {
            appendBetween(row.open, value, row.close);
        } else if (row.guardWord < 0 ? *focusOpen : shmWord(row.guardWord) >= 0) {
            appendMarkup(row.unsetClose);
        }
        return;
    case EXPOSURE_TIME:
        appendMarkup(row.open);
        if (unset)
            appendResponse("%.6f", sync_exposure_time());
        else
            printExposureTime(value);
        appendMarkup(row.close);
        return;
    case GAIN:
        appendMarkup(row.open);
        if (unset)
            appendResponse("%d.000", shmWord(GAIN_WORD));
        else
            appendResponse("%.3f", fileNumber(value));
        appendMarkup(row.close);
        return;
    case IRIS:
        if (unset && shmWord(IRIS_PRESENT_WORD) < 0)
            return;
        appendMarkup(row.open);
        if (!unset)
            appendResponse("%.3f", fileNumber(value));
        else
            appendResponse("%d.000", shmWord(IRIS_WORD));
        appendMarkup(row.close);
        return;
    default:
        break;
    }
    if (unset)
        return;
    if (row.kind == FOCUS_OPEN)
        *focusOpen = 1;
    appendMarkup(row.open);
    if (row.kind == FLOAT6)
        appendResponse("%.6f", fileNumber(value));
    else if (row.kind == FLOAT3)
        appendResponse("%.3f", fileNumber(value));
    else
        appendResponse("%s", value);
    appendMarkup(row.close);
}

void GetImagingSettings()
{
    char token[65], path[128];
    if (refuseWithoutImaging() || !readVideoSourceToken(token, sizeof token) ||
        !videoSourceSettingsPath(token, path, sizeof path))
        return;
    FILE* f = fopenRoot(path, "r");
    if (!f) {
        G_httpAck = 500;  // gone since it was found: no answer to give
        return;
    }
    setResponse("<timg:GetImagingSettingsResponse><timg:ImagingSettings>");
    char line[256], value[256];
    int focusOpen = 0, continuation = 0;
    while (fgets(line, sizeof line, f)) {
        size_t len = strlen(line);
        int partOfLonger = continuation;
        continuation = len > 0 && line[len - 1] != '\n';
        if (partOfLonger)
            continue;  // the rest of an over-long line is no setting of its own
        for (const ReportRow& row : ROWS) {
            const char* at = strstr(line, row.key);
            if (!at)
                continue;
            if (sscanf(at + strlen(row.key), "%255s", value) == 1)
                printRow(row, value, &focusOpen);
            break;
        }
    }
    fclose(f);
    appendResponse("</timg:ImagingSettings></timg:GetImagingSettingsResponse>");
}
