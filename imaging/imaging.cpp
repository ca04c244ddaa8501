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
#include "state/mode.h"

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

// The ONVIF mode's report: the same rows in the schema's order whatever the
// file's, a group only with its mode (and where the camera has it), the
// priority under the schema's name and the window as one rectangle.
static const int ROW_COUNT = (int)(sizeof ROWS / sizeof ROWS[0]);
static const int WINDOW_FIRST = 7;  // Exposure.Window.bottom, then top, right, left

static int groupPresent(const char* mode, const ReportRow& lastRow)
{
    return mode && strcmp(mode, "NONE") != 0 && (lastRow.guardWord <= 0 || shmWord(lastRow.guardWord) >= 0);
}

static void printSchemaOrdered(char values[][64], const int* have)
{
    int focusOpen = 0;
    for (int i = 0; i < ROW_COUNT; ++i) {
        const char* key = ROWS[i].key;
        const char* dot = strchr(key, '.');
        char name[48];
        snprintf(name, sizeof name, "%.*s", (int)strcspn(dot ? dot + 1 : key, "="), dot ? dot + 1 : key);
        if (dot) {
            // A group: its rows run from its mode to the next key outside it.
            int last = i;
            while (last + 1 < ROW_COUNT && strncmp(ROWS[last + 1].key, key, (size_t)(dot - key + 1)) == 0)
                ++last;
            char group[32];
            snprintf(group, sizeof group, "%.*s", (int)(dot - key), key);
            if (!groupPresent(have[i] ? values[i] : 0, ROWS[last])) {
                i = last;
                continue;
            }
            appendResponse("<tt:%s>", group);
            for (int k = i; k <= last; ++k) {
                const char* sub = strchr(ROWS[k].key, '.') + 1;
                if (k == WINDOW_FIRST) {
                    if (have[k] && have[k + 1] && have[k + 2] && have[k + 3])
                        appendResponse("<tt:Window bottom=\"%.6f\" top=\"%.6f\" right=\"%.6f\" left=\"%.6f\"/>",
                                       fileNumber(values[k]), fileNumber(values[k + 1]), fileNumber(values[k + 2]),
                                       fileNumber(values[k + 3]));
                    k += 3;
                    continue;
                }
                int unset = !have[k];
                if (unset && ROWS[k].kind != EXPOSURE_TIME && ROWS[k].kind != GAIN && ROWS[k].kind != IRIS)
                    continue;
                char tag[48], open[64], close[64];
                snprintf(tag, sizeof tag, "%.*s", (int)strcspn(sub, "="), sub);
                snprintf(open, sizeof open, "<tt:%s>", tag);
                snprintf(close, sizeof close, "</tt:%s>", tag);
                RowKind kind = ROWS[k].kind == CLOSING || ROWS[k].kind == FOCUS_OPEN ? TEXT : ROWS[k].kind;
                ReportRow row = {ROWS[k].key, open, close, kind, 0, 0};
                printRow(row, unset ? "NONE" : values[k], &focusOpen);
            }
            appendResponse("</tt:%s>", group);
            i = last;
            continue;
        }
        if (!have[i])
            continue;
        char open[64], close[64];
        snprintf(open, sizeof open, "<tt:%s>", name);
        snprintf(close, sizeof close, "</tt:%s>", name);
        ReportRow row = {key, open, close, TEXT, 0, 0};
        printRow(row, values[i], &focusOpen);
    }
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
    const int schemaOrder = onvifMode();
    char values[ROW_COUNT][64];
    int have[ROW_COUNT] = {0};
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
            if (sscanf(at + strlen(row.key), "%255s", value) != 1)
                break;
            int k = (int)(&row - ROWS);
            if (!schemaOrder)
                printRow(row, value, &focusOpen);
            else if (!have[k] && strlen(value) < sizeof values[k] && strcmp(value, "NONE") != 0)
                have[k] = (snprintf(values[k], sizeof values[k], "%s", value), 1);
            break;
        }
    }
    fclose(f);
    if (schemaOrder)
        printSchemaOrdered(values, have);
    appendResponse("</timg:ImagingSettings></timg:GetImagingSettingsResponse>");
}
