// The one description of what a video source's imaging can do, which the
// options print and every setting and lens move is checked against.
#ifndef IMAGING_ABILITIES_H
#define IMAGING_ABILITIES_H

#include <stddef.h>

#define IMAGING_TABLE_DIR "/usr/apache/htdocs/onvif/imaging/"

// The model's table of ranges and modes, cut down by the lens and presence
// words; one printer and all the checks read it, so they cannot disagree.
// Each names one line of the table (see factory/MEDIA-FILES.md).
enum Ability {
    AB_BLC_MODE, AB_BLC_LEVEL,
    AB_BRIGHTNESS, AB_COLOR_SATURATION, AB_CONTRAST,
    AB_EXPOSURE_MODE, AB_EXPOSURE_PRIORITY, AB_EXPOSURE_WINDOW,
    AB_MIN_EXPOSURE_TIME, AB_MAX_EXPOSURE_TIME, AB_MIN_GAIN, AB_MAX_GAIN, AB_MIN_IRIS, AB_MAX_IRIS,
    AB_EXPOSURE_TIME, AB_GAIN, AB_IRIS,
    AB_FOCUS_MODE, AB_FOCUS_DEFAULT_SPEED, AB_FOCUS_NEAR_LIMIT, AB_FOCUS_FAR_LIMIT,
    AB_IR_CUT_FILTER, AB_SHARPNESS,
    AB_WDR_MODE, AB_WDR_LEVEL,
    AB_WHITE_BALANCE_MODE, AB_CR_GAIN, AB_CB_GAIN,
    AB_FOCUS_ABSOLUTE_POSITION, AB_FOCUS_ABSOLUTE_SPEED, AB_FOCUS_RELATIVE_DISTANCE, AB_FOCUS_RELATIVE_SPEED,
    AB_FOCUS_CONTINUOUS_SPEED,
    AB_IRIS_ABSOLUTE_POSITION, AB_IRIS_RELATIVE_DISTANCE, AB_IRIS_CONTINUOUS_SPEED,
    ABILITY_COUNT
};

#define ABILITY_WORDS_SIZE 64

// A range (min..max) or a list of allowed words, as the table gives it;
// absent when the table has no line for it or the device lacks the part.
struct AbilityValue {
    int present;
    int isRange;
    double min, max;
    char words[ABILITY_WORDS_SIZE];  // space-separated
};

struct ImagingAbilities {
    AbilityValue of[ABILITY_COUNT];
};

// Fills the description for this device; 0 (logged) when the model has no
// table and there is no default one either.
int loadImagingAbilities(ImagingAbilities* a, const char* func);

// 1 when word is one of the space-separated words of the list.
int wordListed(const char* list, const char* word);

// Whether the settings file keeps the exposure time in seconds (the model
// stores it so, or the integrated dome) rather than in units of 100 us.
int exposureTimeKeptInSeconds();
// Seconds as the settings file keeps them, and back.
double exposureTimeForFile(double seconds);
double exposureTimeFromFile(double stored);

#endif
