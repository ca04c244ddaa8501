// XML durations ("PT1H30M", "PT10S") as hours, minutes and seconds, and the
// UTC times the answers carry.
#ifndef STATE_TIMESPAN_H
#define STATE_TIMESPAN_H

// Reads the duration's hours, minutes and seconds (absent parts are 0).
// Returns the number of parts read, 0 when the text has none of H, M, S.
int GetTimeSpanIntoTimeInteger(const char* text, int* hours, int* minutes, int* seconds);

struct tm;
#include <stddef.h>

// "%d-%02d-%02dT%02d:%02d:%02d" of a broken-down UTC time, with utcZone().
void formatTime(char* out, size_t n, const struct tm* t);
// What follows a UTC time the camera writes: "Z" in the ONVIF mode, nothing
// in the legacy one, whose clients read the bare time.
const char* utcZone();
// The current UTC time.
void currentTime(struct tm* t);

#endif
