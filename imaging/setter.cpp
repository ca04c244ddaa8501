// The imaging setter: every setting of the request checked against the
// description, then one rewrite of the source's settings file and one call.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "imaging/abilities.h"
#include "imaging/imaging_request.h"
#include "state/checkers.h"
#include "state/command.h"
#include "state/config.h"

#include <stdio.h>
#include <string.h>

// The project's checkers (0 accepts); those that upper-case do so in place,
// so the file keeps the enumeration's own spelling.
typedef int (*ValueChecker)(char* text);

static int checkNumber(char* text) { return !text[0] || CheckFloat(text); }
// Case matters in the enumeration (LowNoise): only the ability's list decides.
static int checkExactWord(char*) { return 0; }

enum Unit { AS_GIVEN, EXPOSURE_TIME_UNIT };

// One rule per setting: where it lies in the request, how it is checked,
// which line of the settings file keeps it and which camera parameter carries it.
struct ImagingRule {
    const char* group;      // element group in the request, 0 at the top
    const char* element;
    const char* attribute;  // read from the element's attribute, 0 for its text
    ValueChecker check;
    Ability bounds;         // the range or list of the description
    const char* key;        // line of the settings file
    Unit unit;
    const char* parameter;  // the camera's settings program's name
};

static const ImagingRule RULES[] = {
    {"BacklightCompensation", "Mode", 0, Check_ON_OFF, AB_BLC_MODE, "BacklightCompensation.Mode=", AS_GIVEN,
     "Image.BacklightCompensation"},
    {"BacklightCompensation", "Level", 0, checkNumber, AB_BLC_LEVEL, "BacklightCompensation.Level=", AS_GIVEN,
     "Image.BacklightCompensationLevel"},
    {0, "Brightness", 0, checkNumber, AB_BRIGHTNESS, "Brightness=", AS_GIVEN, "Image.Brightness"},
    {0, "ColorSaturation", 0, checkNumber, AB_COLOR_SATURATION, "ColorSaturation=", AS_GIVEN, "Image.Saturation"},
    {0, "Contrast", 0, checkNumber, AB_CONTRAST, "Contrast=", AS_GIVEN, "Image.Contrast"},
    {"Exposure", "Mode", 0, Check_AUTO_MANUAL, AB_EXPOSURE_MODE, "Exposure.Mode=", AS_GIVEN, "Image.ExposureMode"},
    {"Exposure", "Priority", 0, checkExactWord, AB_EXPOSURE_PRIORITY, "Exposure.Priority=", AS_GIVEN,
     "Image.ExposurePriority"},
    {"Exposure", "Window", "bottom", checkNumber, AB_EXPOSURE_WINDOW, "Exposure.Window.bottom=", AS_GIVEN,
     "Image.ExposureWindowBottom"},
    {"Exposure", "Window", "top", checkNumber, AB_EXPOSURE_WINDOW, "Exposure.Window.top=", AS_GIVEN,
     "Image.ExposureWindowTop"},
    {"Exposure", "Window", "right", checkNumber, AB_EXPOSURE_WINDOW, "Exposure.Window.right=", AS_GIVEN,
     "Image.ExposureWindowRight"},
    {"Exposure", "Window", "left", checkNumber, AB_EXPOSURE_WINDOW, "Exposure.Window.left=", AS_GIVEN,
     "Image.ExposureWindowLeft"},
    {"Exposure", "MinExposureTime", 0, checkNumber, AB_MIN_EXPOSURE_TIME, "Exposure.MinExposureTime=", AS_GIVEN,
     "Image.MinExposureTime"},
    {"Exposure", "MaxExposureTime", 0, checkNumber, AB_MAX_EXPOSURE_TIME, "Exposure.MaxExposureTime=", AS_GIVEN,
     "Image.MaxExposureTime"},
    {"Exposure", "MinGain", 0, checkNumber, AB_MIN_GAIN, "Exposure.MinGain=", AS_GIVEN, "Image.MinGain"},
    {"Exposure", "MaxGain", 0, checkNumber, AB_MAX_GAIN, "Exposure.MaxGain=", AS_GIVEN, "Image.MaxGain"},
    {"Exposure", "MinIris", 0, checkNumber, AB_MIN_IRIS, "Exposure.MinIris=", AS_GIVEN, "Image.MinIris"},
    {"Exposure", "MaxIris", 0, checkNumber, AB_MAX_IRIS, "Exposure.MaxIris=", AS_GIVEN, "Image.MaxIris"},
    {"Exposure", "ExposureTime", 0, checkNumber, AB_EXPOSURE_TIME, "Exposure.ExposureTime=", EXPOSURE_TIME_UNIT,
     "Image.ExposureTime"},
    {"Exposure", "Gain", 0, checkNumber, AB_GAIN, "Exposure.Gain=", AS_GIVEN, "Image.Gain"},
    {"Exposure", "Iris", 0, checkNumber, AB_IRIS, "Exposure.Iris=", AS_GIVEN, "Image.Iris"},
    {"Focus", "AutoFocusMode", 0, Check_AUTO_MANUAL, AB_FOCUS_MODE, "Focus.AutoFocusMode=", AS_GIVEN,
     "Image.FocusMode"},
    {"Focus", "DefaultSpeed", 0, checkNumber, AB_FOCUS_DEFAULT_SPEED, "Focus.DefaultSpeed=", AS_GIVEN,
     "Image.FocusSpeed"},
    {"Focus", "NearLimit", 0, checkNumber, AB_FOCUS_NEAR_LIMIT, "Focus.NearLimit=", AS_GIVEN,
     "Image.FocusNearLimit"},
    {"Focus", "FarLimit", 0, checkNumber, AB_FOCUS_FAR_LIMIT, "Focus.FarLimit=", AS_GIVEN, "Image.FocusFarLimit"},
    {0, "IrCutFilter", 0, Check_ON_OFF_AUTO, AB_IR_CUT_FILTER, "IrCutFilter=", AS_GIVEN, "Image.IrCutFilter"},
    {0, "Sharpness", 0, checkNumber, AB_SHARPNESS, "Sharpness=", AS_GIVEN, "Image.Sharpness"},
    {"WideDynamicRange", "Mode", 0, Check_ON_OFF, AB_WDR_MODE, "WideDynamicRange.Mode=", AS_GIVEN,
     "Image.WideDynamicRange"},
    {"WideDynamicRange", "Level", 0, checkNumber, AB_WDR_LEVEL, "WideDynamicRange.Level=", AS_GIVEN,
     "Image.WideDynamicRangeLevel"},
    {"WhiteBalance", "Mode", 0, Check_AUTO_MANUAL, AB_WHITE_BALANCE_MODE, "WhiteBalance.Mode=", AS_GIVEN,
     "Image.WhiteBalance"},
    {"WhiteBalance", "CrGain", 0, checkNumber, AB_CR_GAIN, "WhiteBalance.CrGain=", AS_GIVEN,
     "Image.WhiteBalanceCrGain"},
    {"WhiteBalance", "CbGain", 0, checkNumber, AB_CB_GAIN, "WhiteBalance.CbGain=", AS_GIVEN,
     "Image.WhiteBalanceCbGain"},
};

#define RULE_COUNT ((int)(sizeof RULES / sizeof RULES[0]))

// Where one group of the settings ends: the next top-level setting, or an
// Extension (always the last child of a group).
static const char* const SETTING_BOUNDARIES[] = {
    "BacklightCompensation", "Brightness", "ColorSaturation", "Contrast", "Exposure", "Focus", "IrCutFilter",
    "Sharpness", "WideDynamicRange", "WhiteBalance", "Extension", 0,
};

// Lower bounds that may not pass their upper bound when both are set.
static const char* const ORDERED_PAIRS[][2] = {
    {"Exposure.MinExposureTime=", "Exposure.MaxExposureTime="},
    {"Exposure.MinGain=", "Exposure.MaxGain="},
    {"Exposure.MinIris=", "Exposure.MaxIris="},
};

#define VALUE_TEXT_SIZE 64

struct Change {
    const ImagingRule* rule;
    double number;
    char value[VALUE_TEXT_SIZE];  // as the file and the camera get it
};

struct ChangeSet {
    Change changes[RULE_COUNT];
    int count;
};

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

static int readRuleText(const ImagingRule& r, char* text, size_t n)
{
    if (!r.attribute)
        return r.group ? requestTextInGroup(r.group, r.element, SETTING_BOUNDARIES, text, n) : requestText(r.element, text, n);
    char ignored[4];
    if (requestTextInGroup(r.group, r.element, SETTING_BOUNDARIES, ignored, sizeof ignored) == VALUE_ABSENT)
        return VALUE_ABSENT;
    return requestAttribute(r.attribute, 0, text, n);
}

// Checks one present value against its rule and the description.
static int acceptValue(const ImagingRule& r, const AbilityValue& bounds, char* text, Change* c)
{
    if (!bounds.present || r.check(text) != 0)
        return 0;
    c->rule = &r;
    if (!bounds.isRange)
        return wordListed(bounds.words, text) && (size_t)snprintf(c->value, sizeof c->value, "%s", text) < sizeof c->value;
    if (!parseDecimal(text, bounds.min, bounds.max, &c->number))
        return 0;
    double stored = r.unit == EXPOSURE_TIME_UNIT ? exposureTimeForFile(c->number) : c->number;
    return formatFileNumber(stored, c->value, sizeof c->value);
}

static const Change* changeOf(const ChangeSet& set, const char* key)
{
    for (int i = 0; i < set.count; ++i)
        if (strcmp(set.changes[i].rule->key, key) == 0)
            return &set.changes[i];
    return 0;
}

// "Exposure/Window/@bottom": the setting as the refusal names it.
static void settingName(const ImagingRule& r, char* out, size_t n)
{
    snprintf(out, n, "%s%s%s%s%s", r.group ? r.group : "", r.group ? "/" : "", r.element, r.attribute ? "/@" : "",
             r.attribute ? r.attribute : "");
}

// Reads every setting the request holds; 0 with the refusal written.
static int collectChanges(const ImagingAbilities& a, ChangeSet* set)
{
    char text[VALUE_TEXT_SIZE], name[64], detail[160];
    set->count = 0;
    for (const ImagingRule& r : RULES) {
        int got = readRuleText(r, text, sizeof text);
        if (got == VALUE_ABSENT)
            continue;
        if (got == VALUE_REFUSED || !acceptValue(r, a.of[r.bounds], text, &set->changes[set->count])) {
            settingName(r, name, sizeof name);
            snprintf(detail, sizeof detail, "%s is not within the imaging options of the video source.", name);
            refuseSettings(detail);
            return 0;
        }
        ++set->count;
    }
    for (const auto& pair : ORDERED_PAIRS) {
        const Change* low = changeOf(*set, pair[0]);
        const Change* high = changeOf(*set, pair[1]);
        if (low && high && low->number > high->number) {
            snprintf(detail, sizeof detail, "Exposure/%s is above Exposure/%s.", low->rule->element, high->rule->element);
            refuseSettings(detail);
            return 0;
        }
    }
    return 1;
}

static int replaceChangedLines(const char* line, FILE* out, void* ctx)
{
    const ChangeSet* set = (const ChangeSet*)ctx;
    if (!line)
        return 0;  // the file keeps its own set of keys
    for (int i = 0; i < set->count; ++i) {
        const char* key = set->changes[i].rule->key;
        if (strncmp(line, key, strlen(key)) == 0) {
            fprintf(out, "%s%s\n", key, set->changes[i].value);
            return 1;
        }
    }
    return 0;
}

static int buildSettingsQuery(const ChangeSet& set, char* query, size_t n)
{
    if ((size_t)snprintf(query, n, "action=update") >= n)
        return 0;
    for (int i = 0; i < set.count; ++i)
        if (!appendQueryParam(query, n, set.changes[i].rule->parameter, set.changes[i].value))
            return 0;
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
    char ignored[4];
    if (requestText("timg:ImagingSettings", ignored, sizeof ignored) == VALUE_ABSENT)
        return refuseSettings("ImagingSettings is missing.");
    int persist;
    if (requestBool("timg:ForcePersistence", &persist) == VALUE_REFUSED)
        return refuseSettings("ForcePersistence is not a boolean.");
    ChangeSet set;
    if (!collectChanges(a, &set))
        return;
    char query[1024];
    if (set.count) {
        // Everything is settled before the first write: a query that does not
        // fit is the generic fault with nothing changed.
        if (!buildSettingsQuery(set, query, sizeof query)) {
            G_httpAck = 500;
            return;
        }
        if (rewriteFileThroughWorkCopy(path, replaceChangedLines, &set) != 0)
            return answerStoreFailure(path);
        runSettingsProgram(query);
    }
    setResponse("<timg:SetImagingSettingsResponse></timg:SetImagingSettingsResponse>");
}
