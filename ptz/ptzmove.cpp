// PTZ movement and status handlers: the requests' checks and targets; the
// head itself is driven through ptz/head.
#include "ptz/ptzmove.h"
#include "ptz/head.h"
#include "state/shm_words.h"
#include "state/timespan.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/profiles.h"
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
#define MAX_TIMEOUT_SECONDS 600

int refuseWithoutPtzMotors()
{
    if (modelHas(Cap::PtzMotors))
        return 0;
    writePtzNotSupportedFault();
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
    Read found = Read::Absent;
    for (int i = 0; keys[i] && found == Read::Absent; ++i)
        found = requestText(keys[i], token, (length < 128 ? length : 128) + 1);
    if (found == Read::Refused)
        return 0;
    if (found == Read::Absent) {
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
    formatChecked(confFile, sizeof confFile, "%s.PTZConf", bound);
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
    if (requestAttribute(name, n - 1, text, 129) != Read::Value)
        return 0;
    if (CheckFloat(text) || !text[0] || (int)strlen(text) > maxLength)
        return 0;
    *out = strtod(text, 0);
    return 1;
}

static const char* const PROFILE_KEY[] = {"tptz:ProfileToken", 0};

static int rowOf(const char* name)
{
    return requestRowOf(name, 0);
}

void ContinuousMove()
{
    if (refuseWithoutPtzMotors() || !ptzProfileCheck(PROFILE_KEY, 32, 1, "ContinuousMove"))
        return;
    int hasPanTilt = requestHas("PanTilt"), hasZoom = requestHas("Zoom");
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
        if (!modelHas(Cap::PtzPanTilt))
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
    int seconds = -1;
    Read timeoutRead = requestText("Timeout", timeout, 33);
    if (timeoutRead == Read::Refused)
        return;
    if (timeoutRead == Read::Value) {
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
        snprintf(args, sizeof args, "%.3f,%.3f", x, y);
        runPtzCommand("com/ptz.cgi", "continuouspantiltmove", "continuouspantiltmove", args);
        if (hasZoom)
            sleepMs(100);  // the head takes one command at a time
    }
    if (hasZoom) {
        snprintf(args, sizeof args, "%d", (int)z);
        runPtzCommand("com/ptz.cgi", "continuouszoommove", "continuouszoommove", args);
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
// or none (a lens that takes no position). Returns 0 when the target is out of range.
static int zoomTarget(double x, int* value, int* sendsZoom)
{
    int lens = shmWord(ZOOM_WORD);
    double z = x * 10;
    *sendsZoom = 1;
    if (lens == LENS_UNCONTROLLED) {
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
    char panText[32], tiltText[32], zoomText[16];
    if (pan == -180)
        pan = -179;  // the head's travel ends one degree short on that side
    snprintf(panText, sizeof panText, "%f", pan);
    snprintf(tiltText, sizeof tiltText, "%f", tilt);
    snprintf(zoomText, sizeof zoomText, "%d", zoom);
    int together = modelHas(Cap::PtzIntegratedPanTilt) || !modelHas(Cap::PtzZoom);
    if (together) {
        if (hasPanTilt && sendsZoom)
            runPtzCommand("com/ptz.cgi", "move", "pan", panText, "tilt", tiltText, "zoom", zoomText);
        else if (sendsZoom)
            runPtzCommand("com/ptz.cgi", "move", "zoom", zoomText);
        else if (hasPanTilt)
            runPtzCommand("com/ptz.cgi", "move", "pan", panText, "tilt", tiltText);
        return;
    }
    if (hasPanTilt)
        runPtzCommand("com/ptz.cgi", "move", "pan", panText, "tilt", tiltText);
    if (sendsZoom)
        runPtzCommand("com/ptz.cgi", "zoomratio", "zoomratio", zoomText);
}

// A speed value present at the occurrence must be a number from 0 to 1.
static int speedValueAccepted(const char* name, int occurrence)
{
    char text[130];
    double v;
    Read r = requestAttribute(name, occurrence - 1, text, 129);
    if (r != Read::Value)
        return r == Read::Absent;
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
    for (int i = speedRow; requestRowName(i); ++i) {
        if (strcmp(requestRowName(i), "PanTilt") == 0) {
            if (!speedValueAccepted("x", x++) || !speedValueAccepted("y", firstY))
                return 0;
        } else if (strcmp(requestRowName(i), "Zoom") == 0) {
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
        } else if (lens != LENS_UNCONTROLLED) {
            double target = fmin(1, fmax(0, zoomFromStep(lens, current) + zx));
            int variant = -1;
            zoom = zoomStepFor(lens, target * 10, &variant);
            if (variant >= 0)
                setShmWord(ZOOM_STEP6_WORD, variant);
            steps = zoom - current;
            stepsOnly = !hasPanTilt && !modelHas(Cap::PtzIntegratedPanTilt);
            sendsZoom = 1;
        }
    }
    if (stepsOnly) {
        char args[64];
        snprintf(args, sizeof args, "%d", steps);
        runPtzCommand("com/ptz.cgi", "zoomsteps", "zoomsteps", args);
    } else {
        sendTarget(hasPanTilt, pan, tilt, sendsZoom, zoom);
    }
    setResponse("<tptz:RelativeMoveResponse></tptz:RelativeMoveResponse>");
}

void PtzStop()
{
    static const char* const keys[] = {"tptz:ProfileToken", "ProfileToken", 0};
    if (refuseWithoutPtzMotors() || !ptzProfileCheck(keys, 64, 0, "Stop"))
        return;
    char panTilt[17], zoom[17];
    if (requestTextIn("tptz:Stop", "tptz:PanTilt", panTilt, 17) == Read::Refused ||
        requestTextIn("tptz:Stop", "tptz:Zoom", zoom, 17) == Read::Refused)
        return;
    if (strcmp(panTilt, "true") == 0) {
        runPtzCommand("com/ptz.cgi", "continuouspantiltmove", "continuouspantiltmove", "0,0");
        setShmWord(PAN_TILT_TIMER_WORD, TIMER_STOPPED);
    }
    if (strcmp(zoom, "true") == 0) {
        runPtzCommand("com/ptz.cgi", "continuouszoommove", "continuouszoommove", "0");
        setShmWord(ZOOM_TIMER_WORD, TIMER_STOPPED);
    }
    setResponse("<tptz:StopResponse></tptz:StopResponse>");
}

static const char* moveStatus(int word)
{
    int timer = shmWord(word);
    return timer >= 0 || timer == TIMER_UNLIMITED ? "MOVING" : "IDLE";
}

void PtzGetStatus()
{
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

// The camera has no auxiliary program: its nodes list no auxiliary commands,
// so every command is refused once the profile is known.
void SendAuxiliaryCommand()
{
    if (refuseWithoutPtzMotors() || !ptzProfileCheck(PROFILE_KEY, 32, 0, "SendAuxiliaryCommand"))
        return;
    char command[129];
    if (requestTextEither("tptz:AuxiliaryData", "AuxiliaryData", command, sizeof command) == Read::Refused)
        return;
    writeSenderFault2("InvalidArgVal", "AuxiliaryDataNotSupported", "The requested AuxiliaryCommand is not supported.",
                      "The requested AuxiliaryCommand is not supported.");
}
