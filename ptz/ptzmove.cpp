// PTZ movement and status: the camera's PTZ program moves the motors, the
// motion timers stay in the device state for the camera's PTZ process, and
// positions come back through the two query programs.
#include "ptz/ptzmove.h"
#include "state/shm_words.h"
#include "state/timespan.h"
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "media/profiles.h"
#include "state/checkers.h"
#include "state/command.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"
#include "state/storelock.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#define PTZ_DIR "/usr/apache/htdocs/onvif/"
#define POSITION_QUERY "/root/testShareMemClient"
#define ZOOM_QUERY "/home/aaaserver/viscaClient"
#define POSITION_FILE "/tmp/onvif/tmp/ptz_position"
#define ZOOM_STATUS_FILE "/tmp/onvif/zoom_status"
#define RELATIVE_ZOOM_STATUS_FILE "/tmp/onvif/tmp/zoom_status"
#define LENS_DOME 6
#define MAX_TIMEOUT_SECONDS 600

int runPtzCommand(const char* program, const char* verb, const char* assignments)
{
    char line[1024];
    int n = snprintf(line, sizeof line, "QUERY_STRING=\"%s\" %s", verb, assignments);
    if (n < 0 || (size_t)n >= sizeof line)
        return -1;  // never a cut command line
    return runCameraProgram(line, program);
}

int refuseWithoutPtzMotors()
{
    if (shmWord(PAN_TILT_WORD) >= 1 || shmWord(ZOOM_WORD) >= 1)
        return 0;
    writeSenderFault2("ActionNotSupported", "PTZNotSupported", "PTZ is not supported.", "PTZ is not supported.");
    return 1;
}

static void writeNoProfileFault(const char* token)
{
    char detail[200];
    snprintf(detail, sizeof detail, "The requested profile token ProfileToken %s does not exist.",
             token);
    writeSenderFault2("InvalidArgVal", "NoProfile", "The requested profile token ProfileToken does not exist.", detail);
}

int ptzProfileCheck(const char* const* keys, int length, int skipWithoutToken, const char* func)
{
    char token[129];
    memset(token, 0, sizeof token);
    int found = 0;
    for (int i = 0; keys[i] && !found; ++i)
        found = searchDataInElement(keys[i], token, length < 128 ? length : 128);
    if (!found) {
        if (skipWithoutToken)
            return 1;
        writeNoProfileFault("");
        return 0;
    }
    char fileName[64];
    int lookup = findProfile(token, fileName, sizeof fileName);
    if (lookup == PROFILE_INDEX_MISSING)
        logServiceError(func, "%s", "/tmp/onvif/onvif.conf missing");
    if (lookup != PROFILE_FOUND) {
        writeNoProfileFault(token);
        return 0;
    }
    char bound[CONFIG_TOKEN_MAX + 1];
    if (!readProfileField(fileName, "PTZ=", bound, sizeof bound))
        return 1;  // a profile that never had a PTZ line passes
    char confFile[64];
    snprintf(confFile, sizeof confFile, "%s.PTZConf", bound);
    FILE* f = openStoreFile(PTZ_DIR, confFile);
    if (f) {
        fclose(f);
        return 1;
    }
    char detail[200];
    snprintf(detail, sizeof detail, "The requested profile token %s does not reference a PTZ configuration.",
             token);
    writeSenderFault2("InvalidArgVal", "NoPTZProfile",
                      "The requested profile token does not reference a PTZ configuration.", detail);
    return 0;
}

int zoomModuleFactor(int forPresets)
{
    switch (shmWord(ZOOM_MODULE_WORD)) {
    case 0: return 1274;
    case 1: return 2241;
    case 2: return 2452;
    case 3: return 2489;
    case 7: return 5972;
    case 8: return 7311;
    case 9: return 9408;
    case 22: return 1260;
    case 23: return forPresets ? 1281 : 1280;
    default: return 0;
    }
}

int zoomStepFor(int lensType, double z, int* step6Variant)
{
    int step;
    if (lensType == 3) {
        step = z < 3.5 ? 1 : z < 7 ? 2 : 3;
    } else if (lensType == 5) {
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
        if (lensType == 4 && z >= 5 && z < 7) {
            *step6Variant = z >= 6 ? 1 : 0;
            step = 6;
        }
    }
    // A negative translation never asks the lens for a step below its widest.
    return step < 1 ? 1 : step;
}

double zoomFromStep(int lensType, int n)
{
    if (lensType == 4) {
        static const double steps[] = {0, 0, 0.1, 0.2, 0.3, 0.4, 0.5, 0.7, 0.8, 0.9};
        if (n == 6)
            return shmWord(ZOOM_STEP6_WORD) == 1 ? 0.6 : 0.5;
        return n >= 1 && n <= 9 ? steps[n] : 1.0;
    }
    if (lensType == 5) {
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
    snprintf(cmd, sizeof cmd, "%s %s 1> %s 2> /dev/null", quotedProgram, packet, quotedFile);
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
    writeSenderFault2("Action", "NoStatus", "No PTZ status is available in the requested Media Profile.",
                      "No PTZ status is available in the requested Media Profile.");
}

static void writeInvalidVelocityFault()
{
    writeSenderFault2("InvalidArgVal", "InvalidVelocity", "The requested velocity is out of bounds.",
                      "The requested velocity is out of bounds.");
}

static void writeInvalidPositionFault()
{
    writeSenderFault2("InvalidArgVal", "InvalidPosition", "The requested position is out of bounds.",
                      "The requested position is out of bounds.");
}

// The n-th attribute of the name as a checked number no longer than maxLength.
static int readAttributeNumber(const char* name, int n, int maxLength, double* out)
{
    char text[130];
    memset(text, 0, sizeof text);
    if (!searchAttriInElementContinous(name, text, 128, n))
        return 0;
    if (CheckFloat(text) || !text[0] || (int)strlen(text) > maxLength)
        return 0;
    *out = strtod(text, 0);
    return 1;
}

static const char* const PROFILE_KEY[] = {"tptz:ProfileToken", 0};

static int rowOf(const char* name)
{
    for (int i = 0; i < G_xmlElementNum && i < XML_TABLE_ROWS; ++i)
        if (ElementBuffer1[i] && strcmp(ElementBuffer1[i], name) == 0)
            return i;
    return -1;
}

void ContinuousMove()
{
    if (refuseWithoutPtzMotors() || !ptzProfileCheck(PROFILE_KEY, 32, 1, "ContinuousMove"))
        return;
    int hasPanTilt = searchDataInElementOnly("PanTilt"), hasZoom = searchDataInElementOnly("Zoom");
    float x = 0, y = 0, z = 0;
    double value;
    if (hasPanTilt) {
        // The y attribute may be one character longer than x, as the camera's clients send them.
        if (!readAttributeNumber("y", 1, 32, &value))
            return writeInvalidVelocityFault();
        y = (float)(value * 100.0);
        if (!readAttributeNumber("x", 1, 31, &value))
            return writeInvalidVelocityFault();
        x = (float)(value * 100.0);
        if (shmWord(PAN_TILT_WORD) < 1)
            x = y = 0;
        if (x < -100 || x > 100 || y < -100 || y > 100)
            return writeInvalidVelocityFault();
    }
    if (hasZoom) {
        if (!readAttributeNumber("x", hasPanTilt ? 2 : 1, 31, &value))
            return writeInvalidVelocityFault();
        z = (float)(value * 100.0);
        if (z < -100 || z > 100)
            return writeInvalidVelocityFault();
    }
    char timeout[33];
    memset(timeout, 0, sizeof timeout);
    int seconds = -1;
    if (searchDataInElement("Timeout", timeout, 32)) {
        int h, m, s;
        GetTimeSpanIntoTimeInteger(timeout, &h, &m, &s);
        long total = (long)h * 3600 + (long)m * 60 + s;
        if (total < 1 || total > MAX_TIMEOUT_SECONDS) {
            writeSenderFault("ter:InvalidArgVal", "The specified timeout argument is not within the supported timeout range.");
            return;
        }
        seconds = (int)total;
    }
    char args[128];
    if (hasPanTilt) {
        snprintf(args, sizeof args, "continuouspantiltmove=%.3f,%.3f", x, y);
        runPtzCommand("com/ptz.cgi", "continuouspantiltmove", args);
        if (hasZoom)
            sleepMs(100);  // the head takes one command at a time
    }
    if (hasZoom) {
        snprintf(args, sizeof args, "continuouszoommove=%d", (int)z);
        runPtzCommand("com/ptz.cgi", "continuouszoommove", args);
    }
    int panTiltMoves = x != 0 || y != 0, zoomMoves = z != 0;
    if (seconds > 0) {
        if (hasPanTilt)
            setShmWord(PAN_TILT_TIMER_WORD, panTiltMoves ? seconds * 10 : TIMER_ZERO_VELOCITY);
        if (hasZoom)
            setShmWord(ZOOM_TIMER_WORD, zoomMoves ? seconds * 10 : TIMER_ZERO_VELOCITY);
    } else {
        setShmWord(PAN_TILT_TIMER_WORD, panTiltMoves ? TIMER_UNLIMITED : TIMER_ZERO_VELOCITY);
        setShmWord(ZOOM_TIMER_WORD, zoomMoves ? TIMER_UNLIMITED : TIMER_ZERO_VELOCITY);
    }
    setResponse("<tptz:ContinuousMoveResponse></tptz:ContinuousMoveResponse>");
}

// The zoom value a target z = x * 10 sends: a lens step, a dome position,
// or none (lens type 2). Returns 0 when the target is out of range.
static int zoomTarget(double x, int* value, int* sendsZoom)
{
    int lens = shmWord(ZOOM_WORD);
    double z = x * 10;
    *sendsZoom = 1;
    if (lens == 2) {
        *sendsZoom = 0;
        return x >= -1 && x <= 1;
    }
    if (lens == LENS_DOME) {
        if (x < -1 || x > 1)
            return 0;
        *value = (int)(fabs(x) * zoomModuleFactor(0));
        return *value <= 9999;
    }
    if (z < -10 || z > 10)
        return 0;
    int variant = -1;
    *value = zoomStepFor(lens, z, &variant);
    if (variant >= 0)
        setShmWord(ZOOM_STEP6_WORD, variant);
    return 1;
}

// Sends a pan/tilt and zoom target the way the device takes it: all at once
// on the dome (or a head with no zoom lens of its own), else the lens apart.
static void sendTarget(int hasPanTilt, double pan, double tilt, int sendsZoom, int zoom)
{
    char args[160];
    if (pan == -180)
        pan = -179;  // the head's travel ends one degree short on that side
    int together = shmWord(PAN_TILT_WORD) >= 2 || shmWord(ZOOM_WORD) < 1;
    if (together) {
        if (hasPanTilt && sendsZoom)
            snprintf(args, sizeof args, "pan=%f tilt=%f zoom=%d", pan, tilt, zoom);
        else if (sendsZoom)
            snprintf(args, sizeof args, "zoom=%d", zoom);
        else if (hasPanTilt)
            snprintf(args, sizeof args, "pan=%f tilt=%f", pan, tilt);
        else
            return;
        runPtzCommand("com/ptz.cgi", "move", args);
        return;
    }
    if (hasPanTilt) {
        snprintf(args, sizeof args, "pan=%f tilt=%f", pan, tilt);
        runPtzCommand("com/ptz.cgi", "move", args);
    }
    if (sendsZoom) {
        snprintf(args, sizeof args, "zoomratio=%d", zoom);
        runPtzCommand("com/ptz.cgi", "zoomratio", args);
    }
}

// A speed value present at the occurrence must be a number from 0 to 1.
static int speedValueAccepted(const char* name, int occurrence)
{
    char text[130];
    double v;
    memset(text, 0, sizeof text);
    if (!searchAttriInElementContinous(name, text, 128, occurrence))
        return 1;
    return readAttributeNumber(name, occurrence, 32, &v) && v >= 0 && v <= 1;
}

// The Speed of a move is checked and then left to the camera's own speed.
// Its attributes follow the target's: x is the firstX-th, y the firstY-th.
static int speedAccepted(int firstX, int firstY)
{
    int speedRow = rowOf("Speed");
    if (speedRow < 0)
        return 1;
    int x = firstX;
    for (int i = speedRow; i < G_xmlElementNum && i < XML_TABLE_ROWS && ElementBuffer1[i]; ++i) {
        if (strcmp(ElementBuffer1[i], "PanTilt") == 0) {
            if (!speedValueAccepted("x", x++) || !speedValueAccepted("y", firstY))
                return 0;
        } else if (strcmp(ElementBuffer1[i], "Zoom") == 0) {
            if (!speedValueAccepted("x", x++))
                return 0;
        }
    }
    return 1;
}

void AbsoluteMove()
{
    if (refuseWithoutPtzMotors() || !ptzProfileCheck(PROFILE_KEY, 32, 0, "AbsoluteMove"))
        return;
    int speedRow = rowOf("Speed");
    int panTiltRow = rowOf("PanTilt"), zoomRow = rowOf("Zoom");
    int hasPanTilt = panTiltRow >= 0 && (speedRow < 0 || panTiltRow < speedRow);
    int hasZoom = zoomRow >= 0 && (speedRow < 0 || zoomRow < speedRow);
    double x = 0, y = 0, pan = 0, tilt = 0;
    if (hasPanTilt) {
        if (!readAttributeNumber("y", 1, 32, &y) || y < -1 || y > 1 || !readAttributeNumber("x", 1, 31, &x) ||
            x < -1 || x > 1)
            return writeInvalidPositionFault();
        tilt = y * 45 + 45;
        pan = x * 180;
    }
    int zoom = 0, sendsZoom = 0;
    if (hasZoom) {
        double zx;
        if (!readAttributeNumber("x", hasPanTilt ? 2 : 1, 31, &zx) || !zoomTarget(zx, &zoom, &sendsZoom))
            return writeInvalidPositionFault();
    }
    if (!speedAccepted(1 + hasPanTilt + hasZoom, 1 + hasPanTilt)) {
        writeSenderFault2("InvalidArgVal", "InvalidSpeed", "The requested speed is out of bounds.",
                          "The requested speed is out of bounds.");
        return;
    }
    sendTarget(hasPanTilt, pan, tilt, hasZoom && sendsZoom, zoom);
    setResponse("<tptz:AbsoluteMoveResponse></tptz:AbsoluteMoveResponse>");
}

void RelativeMove()
{
    if (refuseWithoutPtzMotors() || !ptzProfileCheck(PROFILE_KEY, 32, 0, "RelativeMove"))
        return;
    int translationRow = rowOf("Translation");
    if (translationRow < 0)
        return writeInvalidPositionFault();
    int speedRow = rowOf("Speed");
    int panTiltRow = rowOf("PanTilt"), zoomRow = rowOf("Zoom");
    int hasPanTilt = panTiltRow > translationRow && (speedRow < 0 || panTiltRow < speedRow);
    int hasZoom = zoomRow > translationRow && (speedRow < 0 || zoomRow < speedRow);
    double x = 0, y = 0, pan = 0, tilt = 0;
    if (hasPanTilt) {
        if (!readAttributeNumber("y", 1, 32, &y) || y < -1 || y > 1 || !readAttributeNumber("x", 1, 31, &x) ||
            x < -1 || x > 1)
            return writeInvalidPositionFault();
        if (!queryPanTilt(&pan, &tilt))
            return writeNoStatusFault();
        // The head rests at 0.225 degrees at its mechanical zero: that is 0.
        if (pan == 0.225)
            pan = 0;
        // A whole turn either way comes back to where it started.
        if (x != 1 && x != -1)
            pan += x * 360;
        if (pan > 180)
            pan -= 360;
        if (pan < -180)
            pan += 360;
        // Small steps against an end stop stay at the stop.
        tilt = fmin(90, fmax(0, tilt + y * 90));
    }
    int zoom = 0, sendsZoom = 0, stepsOnly = 0, steps = 0;
    if (hasZoom) {
        double zx;
        if (!readAttributeNumber("x", hasPanTilt ? 2 : 1, 31, &zx) || zx < -1 || zx > 1)
            return writeInvalidPositionFault();
        int lens = shmWord(ZOOM_WORD);
        int current = 0;
        if (!queryZoom(RELATIVE_ZOOM_STATUS_FILE, &current))
            return writeNoStatusFault();
        if (lens == LENS_DOME) {
            int factor = zoomModuleFactor(0);
            zoom = (int)fmin(factor, fmax(0, current + zx * factor));
            sendsZoom = 1;
        } else if (lens != 2) {
            double target = fmin(1, fmax(0, zoomFromStep(lens, current) + zx));
            int variant = -1;
            zoom = zoomStepFor(lens, target * 10, &variant);
            if (variant >= 0)
                setShmWord(ZOOM_STEP6_WORD, variant);
            steps = zoom - current;
            stepsOnly = !hasPanTilt && shmWord(PAN_TILT_WORD) < 2;
            sendsZoom = 1;
        }
    }
    if (stepsOnly) {
        char args[64];
        snprintf(args, sizeof args, "zoomsteps=%d", steps);
        runPtzCommand("com/ptz.cgi", "zoomsteps", args);
    } else {
        sendTarget(hasPanTilt, pan, tilt, sendsZoom, zoom);
    }
    setResponse("<tptz:RelativeMoveResponse></tptz:RelativeMoveResponse>");
}

// The imaging service's focus stop and status arrive here by name.
static int imagingSourceToken(char* token, size_t n)
{
    memset(token, 0, n);
    return searchDataInElement("timg:VideoSourceToken", token, (int)n - 1) ||
           searchDataInElement("VideoSourceToken", token, (int)n - 1);
}

static int videoSourceListed(const char* token)
{
    char fileName[128];
    snprintf(fileName, sizeof fileName, "%s.VSConf", token);
    return isSafeFileToken(token) &&
           isListedConfiguration(PTZ_DIR "VideoSourceConf.conf", fileName, "Stop", "ONVIF_VIDEO_SOURCE_CONF");
}

void Stop()
{
    char source[65];
    if (imagingSourceToken(source, sizeof source)) {
        if (!videoSourceListed(source)) {
            writeSenderFault2("ActionNotSupported", "NoImagingForSource",
                              "The requested VideoSource does not support imaging settings.",
                              "The requested VideoSource does not support imaging settings.");
            return;
        }
        runPtzCommand("com/ptz.cgi", "continuousfocusmove", "continuousfocusmove=0");
        setResponse("<tt:StopResponse></tt:StopResponse>");
        return;
    }
    static const char* const keys[] = {"tptz:ProfileToken", "ProfileToken", 0};
    if (refuseWithoutPtzMotors() || !ptzProfileCheck(keys, 64, 0, "Stop"))
        return;
    char panTilt[17], zoom[17];
    memset(panTilt, 0, sizeof panTilt);
    memset(zoom, 0, sizeof zoom);
    searchDataInElement("PanTilt", panTilt, 16);
    searchDataInElement("Zoom", zoom, 16);
    if (strcmp(panTilt, "true") == 0) {
        runPtzCommand("com/ptz.cgi", "continuouspantiltmove", "continuouspantiltmove=0,0");
        setShmWord(PAN_TILT_TIMER_WORD, TIMER_STOPPED);
    }
    if (strcmp(zoom, "true") == 0) {
        runPtzCommand("com/ptz.cgi", "continuouszoommove", "continuouszoommove=0");
        setShmWord(ZOOM_TIMER_WORD, TIMER_STOPPED);
    }
    setResponse("<tptz:StopResponse></tptz:StopResponse>");
}

static const char* moveStatus(int word)
{
    int timer = shmWord(word);
    return timer >= 0 || timer == TIMER_UNLIMITED ? "MOVING" : "IDLE";
}

void GetStatus()
{
    char source[65];
    if (imagingSourceToken(source, sizeof source)) {
        if (!videoSourceListed(source)) {
            writeSenderFault2("InvalidArgVal", "NoSource", "The requested VideoSource does not exist.",
                              "The requested VideoSource does not exist.");
            return;
        }
        setResponse("<timg:GetStatusResponse><timg:Status><tt:FocusStatus20><tt:Position>0.00</tt:Position>"
                    "<tt:MoveStatus>IDLE</tt:MoveStatus></tt:FocusStatus20></timg:Status></timg:GetStatusResponse>");
        return;
    }
    if (refuseWithoutPtzMotors() || !ptzProfileCheck(PROFILE_KEY, 32, 0, "GetStatus"))
        return;
    int zoomReading = 0;
    double pan = 0, tilt = 0;
    if (!queryZoom(ZOOM_STATUS_FILE, &zoomReading) || !queryPanTilt(&pan, &tilt))
        return writeNoStatusFault();
    double zoom = zoomFromStep(shmWord(ZOOM_WORD), zoomReading);
    double x = pan == -179 ? -1.0 : pan / 180, y = (tilt - 45) / 45;
    if (x > 1)
        x -= 2;
    struct tm t;
    char utc[32];
    currentTime(&t);
    formatTime(utc, sizeof utc, &t);
    setResponse("<tptz:GetStatusResponse><tptz:PTZStatus><tt:Position>"
                "<tt:PanTilt space=\"" PT_POSITION_SPACE "\" y=\"%g\" x=\"%g\"></tt:PanTilt>"
                "<tt:Zoom space=\"" ZOOM_POSITION_SPACE "\" x=\"%g\"></tt:Zoom></tt:Position>"
                "<tt:MoveStatus><tt:PanTilt>%s</tt:PanTilt><tt:Zoom>%s</tt:Zoom></tt:MoveStatus>"
                "<tt:UtcTime>%s</tt:UtcTime></tptz:PTZStatus></tptz:GetStatusResponse>",
                y, x, zoom, moveStatus(PAN_TILT_TIMER_WORD), moveStatus(ZOOM_TIMER_WORD), utc);
}
