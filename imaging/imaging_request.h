// What every imaging action does first (refuse a model without imaging, find
// the source), and reads of values inside one group of a request.
#ifndef IMAGING_IMAGING_REQUEST_H
#define IMAGING_IMAGING_REQUEST_H

#include "frame/request_values.h"

#include <stddef.h>

// A model without imaging: writes the fault every imaging action answers
// then, and returns 1.
int refuseWithoutImaging();

// Reads timg:VideoSourceToken into token (at least 65 bytes) and returns 1
// when it names a source with a settings file; otherwise writes the
// no-such-source fault and returns 0.
int readVideoSourceToken(char* token, size_t n);

// The settings file of a source.
int videoSourceSettingsPath(const char* token, char* path, size_t n);

// The text of the element name inside the first element group (the Mode of
// Exposure, not of WhiteBalance): from the
// group's row up to the next row named by one of boundaries (a 0-ended
// list). Reads like requestText; requestRowInGroup gives only the row (-1
// when none) and reads nothing.
int requestRowInGroup(const char* group, const char* name, const char* const* boundaries);
Read requestTextInGroup(const char* group, const char* name, const char* const* boundaries, char* buf, size_t n);

// The refusal of settings or moves that lie outside the description:
// 400, ter:InvalidArgVal, ter:SettingsInvalid; detail names what is wrong.
void refuseSettings(const char* detail);

#endif
