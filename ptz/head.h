// The PTZ head and its lens: commands, lens tables, position queries.
#ifndef PTZ_HEAD_H
#define PTZ_HEAD_H

#include <stddef.h>

#define ZOOM_STATUS_FILE "/tmp/onvif/zoom_status"
#define RELATIVE_ZOOM_STATUS_FILE "/tmp/onvif/tmp/zoom_status"

// Runs one of the PTZ programs with QUERY_STRING=<verb> and up to three
// assignments (a 0 name ends the list); the runner quotes every value.
int runPtzCommand(const char* program, const char* verb, const char* name1 = 0, const char* value1 = 0,
                  const char* name2 = 0, const char* value2 = 0, const char* name3 = 0, const char* value3 = 0);

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

// "PTZ is not supported.": the fault of a device or store without PTZ.
void writePtzNotSupportedFault();

#endif
