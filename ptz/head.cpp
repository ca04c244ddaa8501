// The PTZ head and its lens: the camera's PTZ programs that move it, the
// zoom tables of each lens type, and the two query programs that read back
// where it is.
#include "ptz/head.h"
#include "state/mode.h"
#include "frame/frame.h"
#include "state/command.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"
#include "state/storelock.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define POSITION_QUERY "/root/testShareMemClient"
#define ZOOM_QUERY "/home/aaaserver/viscaClient"
#define POSITION_FILE "/tmp/onvif/tmp/ptz_position"

int runPtzCommand(const char* program, const char* verb, const char* name1, const char* value1,
                  const char* name2, const char* value2, const char* name3, const char* value3)
{
    const CommandArg args[] = {{"QUERY_STRING", verb}, {name1, value1}, {name2, value2}, {name3, value3}};
    int count = 1 + (name1 ? 1 + (name2 ? 1 + (name3 ? 1 : 0) : 0) : 0);
    return runCameraProgramWith(program, args, count);
}

int zoomModuleFactor(int forPresets)
{
    int own = forPresets ? modelValue(Cap::LensPresetZoomFactor) : 0;
    return own ? own : modelValue(Cap::LensZoomFactor);
}

int zoomStepFor(int lensType, double z, int* step6Variant)
{
    int step;
    if (lensType == LENS_THREE_STEPS) {
        step = z < 3.5 ? 1 : z < 7 ? 2 : 3;
    } else if (lensType == LENS_EIGHTEEN_STEPS) {
        if (z < 1) step = 1;
        else if (z < 2) step = 2;
        else if (z < 2.5) step = 3;
        else if (z < 3) step = 4;
        else if (z < 10) step = 5 + (int)floor((z - 3) * 2);
        else step = 18;
        if (z < 10 && step > 17)
            step = 17;
    } else {
        step = z >= 10 ? 10 : (int)floor(z) + 1;
        if (lensType == LENS_SPLIT_SIXTH_STEP && z >= 5 && z < 7) {
            *step6Variant = z >= 6 ? 1 : 0;
            step = 6;
        }
    }
    // A negative translation never asks the lens for a step below its widest.
    return step < 1 ? 1 : step;
}

double zoomFromStep(int lensType, int n)
{
    if (lensType == LENS_SPLIT_SIXTH_STEP) {
        static const double steps[] = {0, 0, 0.1, 0.2, 0.3, 0.4, 0.5, 0.7, 0.8, 0.9};
        if (n == 6)
            return shmWord(ZOOM_STEP6_WORD) == 1 ? 0.6 : 0.5;
        return n >= 1 && n <= 9 ? steps[n] : 1.0;
    }
    if (lensType == LENS_EIGHTEEN_STEPS) {
        if (n == 1) return 0;
        if (n == 2) return 0.1;
        if (n == 3) return 0.2;
        return n >= 4 && n <= 17 ? (n + 1) / 20.0 : 1.0;
    }
    if (lensType == LENS_DOME) {
        int factor = zoomModuleFactor(0);
        return factor ? (double)n / factor : 0;
    }
    return (n - 1) / 9.0;
}

static int runQuery(const char* program, const char* packet, const char* outputFile)
{
    char quotedProgram[600], quotedFile[600], cmd[1400];
    if (!shellQuotedPath(program, quotedProgram, sizeof quotedProgram) ||
        !shellQuotedPath(outputFile, quotedFile, sizeof quotedFile))
        return -1;
    formatChecked(cmd, sizeof cmd, "%s %s 1> %s 2> /dev/null", quotedProgram, packet, quotedFile);
    return runShellCommand(cmd);
}

// A number of a status file; 0 when the text is none.
static int parseNumber(const char* text, double* out)
{
    char* end;
    while (*text == ' ' || *text == '\t')
        ++text;
    double v = strtod(text, &end);
    if (end == text || !isfinite(v))
        return 0;
    while (*end == ' ' || *end == '\t' || *end == '\r' || *end == '\n')
        ++end;
    if (*end)
        return 0;
    *out = v;
    return 1;
}

// The query programs answer into fixed files that every request shares: a
// run and its read hold the query lock, or another request's run empties the
// file between them.
static FILE* runQueryLocked(const char* program, const char* packet, const char* outputFile, int* lock)
{
    *lock = lockFileExclusive(PTZ_QUERY_LOCK_FILE);
    if (*lock == -1)
        return 0;
    runQuery(program, packet, outputFile);
    FILE* f = fopenRoot(outputFile, "r");
    if (!f)
        unlockFile(*lock);
    return f;
}

int queryPanTilt(double* pan, double* tilt)
{
    int lock;
    FILE* f = runQueryLocked(POSITION_QUERY, "6 81 01 04 07 04 ff", POSITION_FILE, &lock);
    if (!f)
        return 0;
    char line[128];
    int havePan = 0, haveTilt = 0;
    while (fgets(line, sizeof line, f)) {
        if (strncmp(line, "pan = ", 6) == 0)
            havePan = parseNumber(line + 6, pan);
        else if (strncmp(line, "tilt = ", 7) == 0)
            haveTilt = parseNumber(line + 7, tilt);
    }
    fclose(f);
    unlockFile(lock);
    return havePan && haveTilt && fabs(*pan) <= 360 && fabs(*tilt) <= 360;
}

int queryZoom(const char* statusFile, int* zoom)
{
    int lock;
    FILE* f = runQueryLocked(ZOOM_QUERY, "6 81 01 04 07 06 FF", statusFile, &lock);
    if (!f)
        return 0;
    char line[128];
    int found = 0;
    double value = 0;
    // The reading is the first line's number, bare or as "zoom = N".
    if (fgets(line, sizeof line, f)) {
        const char* text = strncmp(line, "zoom = ", 7) == 0 ? line + 7 : line;
        found = parseNumber(text, &value) && value >= 0 && value <= 100000;
    }
    fclose(f);
    unlockFile(lock);
    if (found)
        *zoom = (int)value;
    return found;
}

void writeNoStatusFault()
{
    // The head not answering is the device's failure, as the standard has it.
    if (onvifMode())
        return writeReceiverFault2("Action", "NoStatus", "No PTZ status is available in the requested Media Profile.",
                                   "No PTZ status is available in the requested Media Profile.");
    writeSenderFault2("Action", "NoStatus", "No PTZ status is available in the requested Media Profile.",
                      "No PTZ status is available in the requested Media Profile.");
}

void writePtzNotSupportedFault()
{
    writeSenderFault2("ActionNotSupported", "PTZNotSupported", "PTZ is not supported.", "PTZ is not supported.");
}
