// The imaging setter: the rows of the imaging settings (each checked against
// the description), read and applied by the settings engine.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "frame/setting_reads.h"
#include "imaging/abilities.h"
#include "imaging/imaging_request.h"
#include "state/checkers.h"
#include "state/setting_rules.h"

#include <stdio.h>
#include <string.h>

#define VALUE_TEXT_SIZE 64

struct ImagingSetting {
    const ImagingAbilities* abilities;
    double number[MAX_SETTING_ROWS];  // a range value as given, for the checks between values
};

static int rowIndex(const SettingRow* row);

// A number as the settings file writes numbers: no exponent, no trailing zeros.
static int formatFileNumber(double v, char* out, size_t n)
{
    int len = snprintf(out, n, "%.6f", v);
    if (len <= 0 || (size_t)len >= n)
        return 0;
    char* end = out + len - 1;
    while (*end == '0')
        *end-- = 0;
    if (*end == '.')
        *end = 0;
    if (strcmp(out, "-0") == 0)
        strcpy(out, "0");
    return 1;
}

// Checks a value against the row's ability (its min) in the description and
// writes it as the file and the camera get it.
static int acceptValue(char* text, const SettingRow* row, void* ctx, int exposureUnit)
{
    ImagingSetting* s = (ImagingSetting*)ctx;
    const AbilityValue& bounds = s->abilities->of[row->min];
    if (!bounds.present)
        return 1;
    if (!bounds.isRange)
        return !wordListed(bounds.words, text);
    double* number = &s->number[rowIndex(row)];
    if (!parseDecimal(text, bounds.min, bounds.max, number))
        return 1;
    double stored = exposureUnit ? exposureTimeForFile(*number) : *number;
    return !formatFileNumber(stored, text, VALUE_TEXT_SIZE);
}

// The checkers (SettingCheck); those that upper-case do so in place, so the
// file keeps the enumeration's own spelling.
static int checkNumber(char* text, const SettingRow* row, const char*, void* ctx)
{
    return !text[0] || CheckFloat(text) || acceptValue(text, row, ctx, 0);
}
static int checkExposureTime(char* text, const SettingRow* row, const char*, void* ctx)
{
    return !text[0] || CheckFloat(text) || acceptValue(text, row, ctx, 1);
}
static int checkOnOff(char* text, const SettingRow* row, const char*, void* ctx)
{
    return Check_ON_OFF(text) || acceptValue(text, row, ctx, 0);
}
static int checkOnOffAuto(char* text, const SettingRow* row, const char*, void* ctx)
{
    return Check_ON_OFF_AUTO(text) || acceptValue(text, row, ctx, 0);
}
static int checkAutoManual(char* text, const SettingRow* row, const char*, void* ctx)
{
    return Check_AUTO_MANUAL(text) || acceptValue(text, row, ctx, 0);
}
// Case matters in the enumeration (LowNoise): only the ability's list decides.
static int checkExactWord(char* text, const SettingRow* row, const char*, void* ctx)
{
    return acceptValue(text, row, ctx, 0);
}

// One row per setting: "Group/Element", "Group/Element/@attribute" or a
// top-level "Element"; min names the ability of the description that bounds it.
static const SettingRow IMAGING_ROWS[] = {
    // path, key, check, ability, max, option, parameter, form, flags, refusal
    {"BacklightCompensation/Mode", "BacklightCompensation.Mode", checkOnOff, AB_BLC_MODE, 0, 0, "Image.BacklightCompensation", FORM_AS_GIVEN, 0, 0},
    {"BacklightCompensation/Level", "BacklightCompensation.Level", checkNumber, AB_BLC_LEVEL, 0, 0, "Image.BacklightCompensationLevel", FORM_AS_GIVEN, 0, 0},
    {"Brightness", "Brightness", checkNumber, AB_BRIGHTNESS, 0, 0, "Image.Brightness", FORM_AS_GIVEN, 0, 0},
    {"ColorSaturation", "ColorSaturation", checkNumber, AB_COLOR_SATURATION, 0, 0, "Image.Saturation", FORM_AS_GIVEN, 0, 0},
    {"Contrast", "Contrast", checkNumber, AB_CONTRAST, 0, 0, "Image.Contrast", FORM_AS_GIVEN, 0, 0},
    {"Exposure/Mode", "Exposure.Mode", checkAutoManual, AB_EXPOSURE_MODE, 0, 0, "Image.ExposureMode", FORM_AS_GIVEN, 0, 0},
    {"Exposure/Priority", "Exposure.Priority", checkExactWord, AB_EXPOSURE_PRIORITY, 0, 0, "Image.ExposurePriority", FORM_AS_GIVEN, 0, 0},
    {"Exposure/Window/@bottom", "Exposure.Window.bottom", checkNumber, AB_EXPOSURE_WINDOW, 0, 0, "Image.ExposureWindowBottom", FORM_AS_GIVEN, 0, 0},
    {"Exposure/Window/@top", "Exposure.Window.top", checkNumber, AB_EXPOSURE_WINDOW, 0, 0, "Image.ExposureWindowTop", FORM_AS_GIVEN, 0, 0},
    {"Exposure/Window/@right", "Exposure.Window.right", checkNumber, AB_EXPOSURE_WINDOW, 0, 0, "Image.ExposureWindowRight", FORM_AS_GIVEN, 0, 0},
    {"Exposure/Window/@left", "Exposure.Window.left", checkNumber, AB_EXPOSURE_WINDOW, 0, 0, "Image.ExposureWindowLeft", FORM_AS_GIVEN, 0, 0},
    {"Exposure/MinExposureTime", "Exposure.MinExposureTime", checkNumber, AB_MIN_EXPOSURE_TIME, 0, 0, "Image.MinExposureTime", FORM_AS_GIVEN, 0, 0},
    {"Exposure/MaxExposureTime", "Exposure.MaxExposureTime", checkNumber, AB_MAX_EXPOSURE_TIME, 0, 0, "Image.MaxExposureTime", FORM_AS_GIVEN, 0, 0},
    {"Exposure/MinGain", "Exposure.MinGain", checkNumber, AB_MIN_GAIN, 0, 0, "Image.MinGain", FORM_AS_GIVEN, 0, 0},
    {"Exposure/MaxGain", "Exposure.MaxGain", checkNumber, AB_MAX_GAIN, 0, 0, "Image.MaxGain", FORM_AS_GIVEN, 0, 0},
    {"Exposure/MinIris", "Exposure.MinIris", checkNumber, AB_MIN_IRIS, 0, 0, "Image.MinIris", FORM_AS_GIVEN, 0, 0},
    {"Exposure/MaxIris", "Exposure.MaxIris", checkNumber, AB_MAX_IRIS, 0, 0, "Image.MaxIris", FORM_AS_GIVEN, 0, 0},
    {"Exposure/ExposureTime", "Exposure.ExposureTime", checkExposureTime, AB_EXPOSURE_TIME, 0, 0, "Image.ExposureTime", FORM_AS_GIVEN, 0, 0},
    {"Exposure/Gain", "Exposure.Gain", checkNumber, AB_GAIN, 0, 0, "Image.Gain", FORM_AS_GIVEN, 0, 0},
    {"Exposure/Iris", "Exposure.Iris", checkNumber, AB_IRIS, 0, 0, "Image.Iris", FORM_AS_GIVEN, 0, 0},
    {"Focus/AutoFocusMode", "Focus.AutoFocusMode", checkAutoManual, AB_FOCUS_MODE, 0, 0, "Image.FocusMode", FORM_AS_GIVEN, 0, 0},
    {"Focus/DefaultSpeed", "Focus.DefaultSpeed", checkNumber, AB_FOCUS_DEFAULT_SPEED, 0, 0, "Image.FocusSpeed", FORM_AS_GIVEN, 0, 0},
    {"Focus/NearLimit", "Focus.NearLimit", checkNumber, AB_FOCUS_NEAR_LIMIT, 0, 0, "Image.FocusNearLimit", FORM_AS_GIVEN, 0, 0},
    {"Focus/FarLimit", "Focus.FarLimit", checkNumber, AB_FOCUS_FAR_LIMIT, 0, 0, "Image.FocusFarLimit", FORM_AS_GIVEN, 0, 0},
    {"IrCutFilter", "IrCutFilter", checkOnOffAuto, AB_IR_CUT_FILTER, 0, 0, "Image.IrCutFilter", FORM_AS_GIVEN, 0, 0},
    {"Sharpness", "Sharpness", checkNumber, AB_SHARPNESS, 0, 0, "Image.Sharpness", FORM_AS_GIVEN, 0, 0},
    {"WideDynamicRange/Mode", "WideDynamicRange.Mode", checkOnOff, AB_WDR_MODE, 0, 0, "Image.WideDynamicRange", FORM_AS_GIVEN, 0, 0},
    {"WideDynamicRange/Level", "WideDynamicRange.Level", checkNumber, AB_WDR_LEVEL, 0, 0, "Image.WideDynamicRangeLevel", FORM_AS_GIVEN, 0, 0},
    {"WhiteBalance/Mode", "WhiteBalance.Mode", checkAutoManual, AB_WHITE_BALANCE_MODE, 0, 0, "Image.WhiteBalance", FORM_AS_GIVEN, 0, 0},
    {"WhiteBalance/CrGain", "WhiteBalance.CrGain", checkNumber, AB_CR_GAIN, 0, 0, "Image.WhiteBalanceCrGain", FORM_AS_GIVEN, 0, 0},
    {"WhiteBalance/CbGain", "WhiteBalance.CbGain", checkNumber, AB_CB_GAIN, 0, 0, "Image.WhiteBalanceCbGain", FORM_AS_GIVEN, 0, 0},
};

#define ROW_COUNT ((int)(sizeof IMAGING_ROWS / sizeof IMAGING_ROWS[0]))

static int rowIndex(const SettingRow* row)
{
    return (int)(row - IMAGING_ROWS);
}

// Where one group of the settings ends: the next top-level setting, or an
// Extension (always the last child of a group).
static const char* const SETTING_BOUNDARIES[] = {
    "BacklightCompensation", "Brightness", "ColorSaturation", "Contrast", "Exposure", "Focus", "IrCutFilter",
    "Sharpness", "WideDynamicRange", "WhiteBalance", "Extension", 0,
};

// Lower bounds that may not pass their upper bound when both are set.
static const char* const ORDERED_PAIRS[][2] = {
    {"Exposure.MinExposureTime", "Exposure.MaxExposureTime"},
    {"Exposure.MinGain", "Exposure.MaxGain"},
    {"Exposure.MinIris", "Exposure.MaxIris"},
};

static SettingRead readImagingRow(const SettingRow* row, char* text, size_t n, void*)
{
    char group[32], element[32];
    const char* slash = strchr(row->path, '/');
    if (!slash)
        return settingReadOf(requestText(row->path, text, n));
    snprintf(group, sizeof group, "%.*s", (int)(slash - row->path), row->path);
    snprintf(element, sizeof element, "%.*s", (int)strcspn(slash + 1, "/"), slash + 1);
    const char* attribute = strstr(row->path, "/@");
    if (!attribute)
        return settingReadOf(requestTextInGroup(group, element, SETTING_BOUNDARIES, text, n));
    if (requestRowInGroup(group, element, SETTING_BOUNDARIES) < 0)
        return SettingRead::Absent;
    return settingReadOf(requestAttribute(attribute + 2, 0, text, n));
}

static void refuseImagingRow(const SettingRow* row, void*)
{
    char detail[160];
    snprintf(detail, sizeof detail, "%s is not within the imaging options of the video source.", row->path);
    refuseSettings(detail);
}

static int agreeImagingValues(SettingValues* v, void* ctx)
{
    const ImagingSetting* s = (const ImagingSetting*)ctx;
    for (const auto& pair : ORDERED_PAIRS) {
        int low = -1, high = -1;
        for (int i = 0; i < ROW_COUNT; ++i) {
            if (strcmp(IMAGING_ROWS[i].key, pair[0]) == 0)
                low = i;
            if (strcmp(IMAGING_ROWS[i].key, pair[1]) == 0)
                high = i;
        }
        if (v->given[low] && v->given[high] && s->number[low] > s->number[high]) {
            char detail[160];
            snprintf(detail, sizeof detail, "%s is above %s.", IMAGING_ROWS[low].path, IMAGING_ROWS[high].path);
            refuseSettings(detail);
            return 0;
        }
    }
    return 1;
}

void SetImagingSettings()
{
    char token[65], path[128];
    ImagingAbilities a;
    if (refuseWithoutImaging() || !readVideoSourceToken(token, sizeof token) ||
        !videoSourceSettingsPath(token, path, sizeof path))
        return;
    if (!loadImagingAbilities(&a, "SetImagingSettings")) {
        G_httpAck = 500;
        return;
    }
    if (requestRowFrom("timg:ImagingSettings", 0) < 0)
        return refuseSettings("ImagingSettings is missing.");
    int persist;
    if (requestBool("timg:ForcePersistence", &persist) == Read::Refused)
        return refuseSettings("ForcePersistence is not a boolean.");
    static ImagingSetting setting;
    memset(&setting, 0, sizeof setting);
    setting.abilities = &a;
    // Everything is settled before the first write: a query that does not
    // fit is the generic fault with nothing changed.
    SettingTable table = {IMAGING_ROWS, ROW_COUNT, path, 0, SETTINGS_PASS_UNCHANGED, VALUE_TEXT_SIZE, 1024,
                          readImagingRow, 0, agreeImagingValues, refuseImagingRow, &setting};
    static SettingValues values;
    switch (applySettings(&table, &values)) {
    case SETTINGS_DONE:
        setResponse("<timg:SetImagingSettingsResponse></timg:SetImagingSettingsResponse>");
        break;
    case SETTINGS_REFUSED:
        break;
    case SETTINGS_STORE_FAILED:
        answerStoreFailure(path);
        break;
    default:
        G_httpAck = 500;
        break;
    }
}
