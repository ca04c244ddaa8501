// What PTZ movement, status and presets share: the device command runner
// for the camera's PTZ programs, the profile check, the lens tables and the
// position queries.
#ifndef PTZ_PTZMOVE_H
#define PTZ_PTZMOVE_H

#include <stddef.h>


#define TIMER_UNLIMITED (-9999)
#define TIMER_STOPPED (-1)
#define TIMER_ZERO_VELOCITY (-2)

#define PT_POSITION_SPACE "http://www.onvif.org/ver10/tptz/PanTiltSpaces/PositionGenericSpace"
#define ZOOM_POSITION_SPACE "http://www.onvif.org/ver10/tptz/ZoomSpaces/PositionGenericSpace"

// Runs one verb of the camera's PTZ program ("com/ptz.cgi" or
// "com/ptzconfig.cgi"): QUERY_STRING="<verb>" followed by the verb's own
// assignments, which must be numbers formatted here or quoted text.
// Runs one of the PTZ programs with QUERY_STRING=<verb> and up to three
// assignments (a 0 name ends the list); the runner quotes every value.
int runPtzCommand(const char* program, const char* verb, const char* name1 = 0, const char* value1 = 0,
                  const char* name2 = 0, const char* value2 = 0, const char* name3 = 0, const char* value3 = 0);

// A device without pan/tilt and zoom: writes the fault, returns 1.
int refuseWithoutPtzMotors();

// The profile check of the movement and preset actions: reads the profile
// token (the first of the element names that the request holds), and
// returns 1 when the profile exists and its PTZ binding (if any) names a
// configuration file; otherwise writes the fault and returns 0. With
// skipWithoutToken, a request without a token passes unchecked.
// noneIsUnbound: a PTZ value of "NONE" is refused as no configuration.
int ptzProfileCheck(const char* const* keys, int length, int skipWithoutToken, const char* func);

// The zoom position factor of the zoom module (word 78); 0 for unknown modules.
// The preset listing uses 1281 for module 23 where movement uses 1280.
int zoomModuleFactor(int forPresets);

// Zoom steps of the stepped lens types from a zoom value z = x * 10.
int zoomStepFor(int lensType, double z, int* step6Variant);
// The normalised zoom (0 to 1) of a step or position read back.
double zoomFromStep(int lensType, int step);

// Runs the position query and reads pan and tilt in degrees and the zoom
// reading; 0 when no status can be read.
int queryPanTilt(double* pan, double* tilt);
// Runs the zoom query into the given status file; 0 when nothing usable.
int queryZoom(const char* statusFile, int* zoom);

void writeNoStatusFault();

#endif
