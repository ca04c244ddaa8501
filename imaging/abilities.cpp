// The imaging description of this device: the model's table of ranges and
// modes, and which parts the lens and presence words say are fitted.
#include "imaging/abilities.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// The part of the camera a line needs before it applies.
enum Needs { ALWAYS, NEEDS_IRIS, NEEDS_WDR, NEEDS_BLC, NEEDS_WHITE_BALANCE, NEEDS_FOCUS_MOTOR };

struct AbilityLine {
    const char* key;  // in the model's table, with its '='
    int isRange;
    Needs needs;
};

// Indexed by Ability.
static const AbilityLine LINES[ABILITY_COUNT] = {
    {"BacklightCompensation.Mode=", 0, NEEDS_BLC},
    {"BacklightCompensation.Level=", 1, NEEDS_BLC},
    {"Brightness=", 1, ALWAYS},
    {"ColorSaturation=", 1, ALWAYS},
    {"Contrast=", 1, ALWAYS},
    {"Exposure.Mode=", 0, ALWAYS},
    {"Exposure.Priority=", 0, ALWAYS},
    {"Exposure.Window=", 1, ALWAYS},
    {"Exposure.MinExposureTime=", 1, ALWAYS},
    {"Exposure.MaxExposureTime=", 1, ALWAYS},
    {"Exposure.MinGain=", 1, ALWAYS},
    {"Exposure.MaxGain=", 1, ALWAYS},
    {"Exposure.MinIris=", 1, NEEDS_IRIS},
    {"Exposure.MaxIris=", 1, NEEDS_IRIS},
    {"Exposure.ExposureTime=", 1, ALWAYS},
    {"Exposure.Gain=", 1, ALWAYS},
    {"Exposure.Iris=", 1, NEEDS_IRIS},
    {"Focus.AutoFocusMode=", 0, NEEDS_FOCUS_MOTOR},
    {"Focus.DefaultSpeed=", 1, NEEDS_FOCUS_MOTOR},
    {"Focus.NearLimit=", 1, NEEDS_FOCUS_MOTOR},
    {"Focus.FarLimit=", 1, NEEDS_FOCUS_MOTOR},
    {"IrCutFilter=", 0, ALWAYS},
    {"Sharpness=", 1, ALWAYS},
    {"WideDynamicRange.Mode=", 0, NEEDS_WDR},
    {"WideDynamicRange.Level=", 1, NEEDS_WDR},
    {"WhiteBalance.Mode=", 0, NEEDS_WHITE_BALANCE},
    {"WhiteBalance.CrGain=", 1, NEEDS_WHITE_BALANCE},
    {"WhiteBalance.CbGain=", 1, NEEDS_WHITE_BALANCE},
    {"FocusMove.Absolute.Position=", 1, NEEDS_FOCUS_MOTOR},
    {"FocusMove.Absolute.Speed=", 1, NEEDS_FOCUS_MOTOR},
    {"FocusMove.Relative.Distance=", 1, NEEDS_FOCUS_MOTOR},
    {"FocusMove.Relative.Speed=", 1, NEEDS_FOCUS_MOTOR},
    {"FocusMove.Continuous.Speed=", 1, NEEDS_FOCUS_MOTOR},
    {"IrisMove.Absolute.Position=", 1, NEEDS_IRIS},
    {"IrisMove.Relative.Distance=", 1, NEEDS_IRIS},
    {"IrisMove.Continuous.Speed=", 1, NEEDS_IRIS},
};

// The lens kinds (word 17) that carry a focus motor.
#define FOCUS_LENSES_KEY "Focus.Lenses="

int wordListed(const char* list, const char* word)
{
    size_t len = strlen(word);
    if (!len)
        return 0;
    for (const char* p = list; *p;) {
        while (*p == ' ')
            ++p;
        size_t n = strcspn(p, " ");
        if (n == len && strncmp(p, word, len) == 0)
            return 1;
        p += n;
    }
    return 0;
}

// "min max": two numbers, the first not above the second.
static int parseRange(const char* text, double* min, double* max)
{
    char* end;
    *min = strtod(text, &end);
    if (end == text)
        return 0;
    const char* second = end;
    *max = strtod(second, &end);
    if (end == second || !isfinite(*min) || !isfinite(*max) || *min > *max)
        return 0;
    while (*end == ' ' || *end == '\t' || *end == '\r')
        ++end;
    return *end == 0;
}

static void readTableLine(const char* line, ImagingAbilities* a, char* focusLenses, size_t lensesSize)
{
    char value[ABILITY_WORDS_SIZE];
    if (strncmp(line, FOCUS_LENSES_KEY, strlen(FOCUS_LENSES_KEY)) == 0) {
        scanSettingLine(line, FOCUS_LENSES_KEY, focusLenses, (int)lensesSize, 1);
        return;
    }
    for (int i = 0; i < ABILITY_COUNT; ++i) {
        size_t keyLength = strlen(LINES[i].key);
        if (strncmp(line, LINES[i].key, keyLength) != 0)
            continue;
        AbilityValue* v = &a->of[i];
        // A value too long for its place is no value: never a cut list.
        if (strcspn(line + keyLength, "\r\n") >= sizeof value)
            return;
        scanSettingLine(line, LINES[i].key, value, (int)sizeof value, 1);
        for (size_t end = strlen(value); end > 0 && (value[end - 1] == ' ' || value[end - 1] == '\r'); --end)
            value[end - 1] = 0;
        v->isRange = LINES[i].isRange;
        if (v->isRange)
            v->present = parseRange(value, &v->min, &v->max);
        else
            v->present = snprintf(v->words, sizeof v->words, "%s", value) > 0;
        return;
    }
}

static int lineNeedsMet(Needs needs, const char* focusLenses)
{
    char lens[16];
    switch (needs) {
    case NEEDS_IRIS: return shmWord(IRIS_PRESENT_WORD) >= 0;
    case NEEDS_WDR: return shmWord(WDR_WORD) >= 0;
    case NEEDS_BLC: return shmWord(BACKLIGHT_WORD) >= 0;
    case NEEDS_WHITE_BALANCE: return shmWord(WHITE_BALANCE_WORD) >= 0;
    case NEEDS_FOCUS_MOTOR:
        snprintf(lens, sizeof lens, "%d", shmWord(ZOOM_WORD));
        return wordListed(focusLenses, lens);
    default: return 1;
    }
}

static FILE* openModelTable()
{
    char path[128];
    snprintf(path, sizeof path, IMAGING_TABLE_DIR "Model%d.ImagingOptions", shmWord(MODEL_CODE_WORD));
    FILE* f = fopenRoot(path, "r");
    return f ? f : fopenRoot(IMAGING_TABLE_DIR "Default.ImagingOptions", "r");
}

int loadImagingAbilities(ImagingAbilities* a, const char* func)
{
    memset(a, 0, sizeof *a);
    FILE* f = openModelTable();
    if (!f) {
        logServiceError(func, "%s", "IMAGING_OPTIONS_FILE missing");
        return 0;
    }
    char line[512], focusLenses[64] = "";
    int continuation = 0;
    while (fgets(line, sizeof line, f)) {
        size_t len = strlen(line);
        int partOfLonger = continuation;
        continuation = len > 0 && line[len - 1] != '\n';
        if (!partOfLonger && line[0] != '#')
            readTableLine(line, a, focusLenses, sizeof focusLenses);
    }
    fclose(f);
    for (int i = 0; i < ABILITY_COUNT; ++i)
        if (!lineNeedsMet(LINES[i].needs, focusLenses))
            a->of[i].present = 0;
    return 1;
}

int exposureTimeKeptInSeconds()
{
    return modelHas(Cap::ImagingExposureInSeconds);
}

// The image process counts exposure in units of 100 microseconds.
double exposureTimeForFile(double seconds)
{
    return exposureTimeKeptInSeconds() ? seconds : seconds * 10000.0;
}

double exposureTimeFromFile(double stored)
{
    return exposureTimeKeptInSeconds() ? stored : stored / 10000.0;
}
