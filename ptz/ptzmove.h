// What PTZ movement, status and presets share: the motion timers, the
// position spaces and the profile check.
#ifndef PTZ_PTZMOVE_H
#define PTZ_PTZMOVE_H

#include <stddef.h>


#define TIMER_UNLIMITED (-9999)
#define TIMER_STOPPED (-1)
#define TIMER_ZERO_VELOCITY (-2)

#define PT_POSITION_SPACE "http://www.onvif.org/ver10/tptz/PanTiltSpaces/PositionGenericSpace"
#define ZOOM_POSITION_SPACE "http://www.onvif.org/ver10/tptz/ZoomSpaces/PositionGenericSpace"

#include "ptz/head.h"

// A device without pan/tilt and zoom: writes the fault, returns 1.
int refuseWithoutPtzMotors();

// The profile check of the movement and preset actions: reads the profile
// token (the first of the element names that the request holds), and
// returns 1 when the profile exists and its PTZ binding (if any) names a
// configuration file; otherwise writes the fault and returns 0. With
// skipWithoutToken, a request without a token passes unchecked.
// noneIsUnbound: a PTZ value of "NONE" is refused as no configuration.
int ptzProfileCheck(const char* const* keys, int length, int skipWithoutToken, const char* func);

#endif
