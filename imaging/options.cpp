// The imaging options and the focus move options of a video source: the
// device's imaging description, printed in the order the schema gives.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "imaging/abilities.h"
#include "imaging/imaging_request.h"

#include <stdio.h>
#include <string.h>

struct OptionRow {
    const char* group;    // the enclosing element, 0 for none
    const char* element;  // printed once per word of a list, or around a range
    Ability ability;
};

// A group is printed only when its first row is: that row is the one the
// schema requires inside it.
static const OptionRow IMAGING_OPTIONS[] = {
    {"BacklightCompensation", "Mode", AB_BLC_MODE},
    {"BacklightCompensation", "Level", AB_BLC_LEVEL},
    {0, "Brightness", AB_BRIGHTNESS},
    {0, "ColorSaturation", AB_COLOR_SATURATION},
    {0, "Contrast", AB_CONTRAST},
    {"Exposure", "Mode", AB_EXPOSURE_MODE},
    {"Exposure", "Priority", AB_EXPOSURE_PRIORITY},
    {"Exposure", "MinExposureTime", AB_MIN_EXPOSURE_TIME},
    {"Exposure", "MaxExposureTime", AB_MAX_EXPOSURE_TIME},
    {"Exposure", "MinGain", AB_MIN_GAIN},
    {"Exposure", "MaxGain", AB_MAX_GAIN},
    {"Exposure", "MinIris", AB_MIN_IRIS},
    {"Exposure", "MaxIris", AB_MAX_IRIS},
    {"Exposure", "ExposureTime", AB_EXPOSURE_TIME},
    {"Exposure", "Gain", AB_GAIN},
    {"Exposure", "Iris", AB_IRIS},
    {"Focus", "AutoFocusModes", AB_FOCUS_MODE},
    {"Focus", "DefaultSpeed", AB_FOCUS_DEFAULT_SPEED},
    {"Focus", "NearLimit", AB_FOCUS_NEAR_LIMIT},
    {"Focus", "FarLimit", AB_FOCUS_FAR_LIMIT},
    {0, "IrCutFilterModes", AB_IR_CUT_FILTER},
    {0, "Sharpness", AB_SHARPNESS},
    {"WideDynamicRange", "Mode", AB_WDR_MODE},
    {"WideDynamicRange", "Level", AB_WDR_LEVEL},
    {"WhiteBalance", "Mode", AB_WHITE_BALANCE_MODE},
    {"WhiteBalance", "YrGain", AB_CR_GAIN},
    {"WhiteBalance", "YbGain", AB_CB_GAIN},
};

static const OptionRow MOVE_OPTIONS[] = {
    {"Absolute", "Position", AB_FOCUS_ABSOLUTE_POSITION},
    {"Absolute", "Speed", AB_FOCUS_ABSOLUTE_SPEED},
    {"Relative", "Distance", AB_FOCUS_RELATIVE_DISTANCE},
    {"Relative", "Speed", AB_FOCUS_RELATIVE_SPEED},
    {"Continuous", "Speed", AB_FOCUS_CONTINUOUS_SPEED},
};

// "<tt:name>" or "</tt:name>"; names are the program's own.
static void appendTag(const char* name, int closing)
{
    char tag[64];
    int n = snprintf(tag, sizeof tag, closing ? "</tt:%s>" : "<tt:%s>", name);
    if (n > 0 && (size_t)n < sizeof tag)
        appendMarkup(tag);
}

static void appendAbility(const char* element, const AbilityValue& v)
{
    if (v.isRange) {
        appendTag(element, 0);
        appendResponse("<tt:Min>%g</tt:Min><tt:Max>%g</tt:Max>", v.min, v.max);
        appendTag(element, 1);
        return;
    }
    char word[ABILITY_WORDS_SIZE];
    for (const char* p = v.words; *p;) {
        while (*p == ' ')
            ++p;
        size_t n = strcspn(p, " ");
        if (n) {
            snprintf(word, sizeof word, "%.*s", (int)n, p);
            appendTag(element, 0);
            appendResponse("%s", word);
            appendTag(element, 1);
        }
        p += n;
    }
}

static void appendOptionRows(const ImagingAbilities& a, const OptionRow* rows, int count)
{
    const char* open = 0;  // the group printed now
    for (int i = 0; i < count; ++i) {
        const OptionRow& r = rows[i];
        int startsGroup = r.group && (i == 0 || !rows[i - 1].group || strcmp(rows[i - 1].group, r.group) != 0);
        if (startsGroup || !r.group) {
            if (open)
                appendTag(open, 1);
            open = 0;
            if (startsGroup && a.of[r.ability].present) {
                open = r.group;
                appendTag(open, 0);
            }
        }
        if (a.of[r.ability].present && (!r.group || open))
            appendAbility(r.element, a.of[r.ability]);
    }
    if (open)
        appendTag(open, 1);
}

// The checks both answers start with; 1 with the description loaded.
static int describedSource(ImagingAbilities* a, const char* func)
{
    char token[65];
    if (refuseWithoutImaging() || !readVideoSourceToken(token, sizeof token))
        return 0;
    if (!loadImagingAbilities(a, func)) {
        G_httpAck = 500;
        return 0;
    }
    return 1;
}

void GetOptions()
{
    ImagingAbilities a;
    if (!describedSource(&a, "GetOptions"))
        return;
    setResponse("<timg:GetOptionsResponse><timg:ImagingOptions>");
    appendOptionRows(a, IMAGING_OPTIONS, (int)(sizeof IMAGING_OPTIONS / sizeof IMAGING_OPTIONS[0]));
    appendMarkup("</timg:ImagingOptions></timg:GetOptionsResponse>");
}

void GetMoveOptions()
{
    ImagingAbilities a;
    if (!describedSource(&a, "GetMoveOptions"))
        return;
    setResponse("<timg:GetMoveOptionsResponse><timg:MoveOptions>");
    appendOptionRows(a, MOVE_OPTIONS, (int)(sizeof MOVE_OPTIONS / sizeof MOVE_OPTIONS[0]));
    appendMarkup("</timg:MoveOptions></timg:GetMoveOptionsResponse>");
}
