// Focus and iris moves: checked against the device's imaging description and
// sent to the camera's PTZ program the way zoom moves are.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "imaging/abilities.h"
#include "imaging/imaging_request.h"
#include "state/checkers.h"
#include "state/command.h"

#include <math.h>
#include <stdio.h>

#define PTZ_PROGRAM "com/ptz.cgi"

enum MoveKind { ABSOLUTE_MOVE, RELATIVE_MOVE, CONTINUOUS_MOVE, MOVE_KINDS };

// What one motor (focus or iris) offers and how the PTZ program takes it: a
// position, a number of steps, or a speed in percent that "continuous...move=0"
// stops. Positions have verbs of their own: a "move" without pan and tilt
// could send the head somewhere.
struct LensMotor {
    const char* group;                 // the request element holding the move
    const char* name;                  // for the refusals
    Ability target[MOVE_KINDS];        // position, distance, speed
    Ability speed[MOVE_KINDS];         // the optional speed of the kind, ABILITY_COUNT for none
    const char* verb[MOVE_KINDS];      // QUERY_STRING, and the name of the verb's value
};

static const LensMotor FOCUS_MOTOR = {
    "Focus", "focus",
    {AB_FOCUS_ABSOLUTE_POSITION, AB_FOCUS_RELATIVE_DISTANCE, AB_FOCUS_CONTINUOUS_SPEED},
    {AB_FOCUS_ABSOLUTE_SPEED, AB_FOCUS_RELATIVE_SPEED, ABILITY_COUNT},
    {"focusposition", "focussteps", "continuousfocusmove"},
};

static const LensMotor IRIS_MOTOR = {
    "Iris", "iris",
    {AB_IRIS_ABSOLUTE_POSITION, AB_IRIS_RELATIVE_DISTANCE, AB_IRIS_CONTINUOUS_SPEED},
    {ABILITY_COUNT, ABILITY_COUNT, ABILITY_COUNT},
    {"irisposition", "irissteps", "continuousirismove"},
};

static const char* const KIND_ELEMENT[MOVE_KINDS] = {"Absolute", "Relative", "Continuous"};
static const char* const TARGET_ELEMENT[MOVE_KINDS] = {"Position", "Distance", "Speed"};
static const char* const KIND_BOUNDARIES[] = {"Absolute", "Relative", "Continuous", 0};

// A number of the move inside its kind's element, within the description.
// Absent, or a value with the number, or refused (the move's own refusal is
// the caller's to write).
static Read readMoveNumber(MoveKind kind, const char* element, const AbilityValue& bounds, double* out)
{
    char text[40];
    Read got = requestTextInGroup(KIND_ELEMENT[kind], element, KIND_BOUNDARIES, text, sizeof text);
    if (got != Read::Value)
        return got;
    if (!bounds.present || !text[0] || CheckFloat(text) || !parseDecimal(text, bounds.min, bounds.max, out))
        return Read::Refused;
    return Read::Value;
}

// The one kind of move the request holds; -1 when none or more than one.
static int requestedKind(const LensMotor& m)
{
    static const char* const TO_THE_END[] = {0};
    int kind = -1;
    for (int k = 0; k < MOVE_KINDS; ++k) {
        if (requestRowInGroup(m.group, KIND_ELEMENT[k], TO_THE_END) < 0)
            continue;
        if (kind >= 0)
            return -1;
        kind = k;
    }
    return kind;
}

static void refuseMove(const LensMotor& m, const char* what)
{
    char detail[160];
    snprintf(detail, sizeof detail, "The requested %s move is %s.", m.name, what);
    refuseSettings(detail);
}

static int motorFitted(const ImagingAbilities& a, const LensMotor& m)
{
    for (int k = 0; k < MOVE_KINDS; ++k)
        if (a.of[m.target[k]].present)
            return 1;
    return 0;
}

// The value the PTZ program takes: whole lens units, or percent of full speed.
static long commandValue(MoveKind kind, double value)
{
    return kind == CONTINUOUS_MOVE ? (long)(value * 100.0) : lround(value);
}

static void moveLens(const LensMotor& m, const char* func)
{
    char token[65];
    ImagingAbilities a;
    if (refuseWithoutImaging() || !readVideoSourceToken(token, sizeof token))
        return;
    if (!loadImagingAbilities(&a, func)) {
        G_httpAck = 500;
        return;
    }
    if (!motorFitted(a, m)) {
        char reason[96];
        snprintf(reason, sizeof reason, "The requested VideoSource does not support %s movement.", m.name);
        writeReceiverFault2("ActionNotSupported", "NoImagingForSource", reason, reason);
        return;
    }
    int kind = requestedKind(m);
    if (kind < 0)
        return refuseMove(m, "not exactly one of Absolute, Relative and Continuous");
    MoveKind k = (MoveKind)kind;
    double target = 0, speed = 0;
    if (readMoveNumber(k, TARGET_ELEMENT[k], a.of[m.target[k]], &target) != Read::Value)
        return refuseMove(m, "outside the move options of the video source");
    // A speed is checked, then the lens moves at its own pace, as PTZ moves do.
    if (k != CONTINUOUS_MOVE) {
        const AbilityValue& bounds = m.speed[k] < ABILITY_COUNT ? a.of[m.speed[k]] : AbilityValue();
        if (readMoveNumber(k, "Speed", bounds, &speed) == Read::Refused)
            return refuseMove(m, "outside the move options of the video source");
    }
    char value[24];
    snprintf(value, sizeof value, "%ld", commandValue(k, target));
    const CommandArg args[] = {{"QUERY_STRING", m.verb[k]}, {m.verb[k], value}};
    runCameraProgramWith(PTZ_PROGRAM, args, 2);
    setResponse("<timg:MoveResponse></timg:MoveResponse>");
}

void Move()
{
    moveLens(FOCUS_MOTOR, "Move");
}

// The imaging schema knows no iris move of its own: the answer is the one
// of a lens move, so that it stays valid for every client.
void MoveIris()
{
    moveLens(IRIS_MOTOR, "MoveIris");
}
