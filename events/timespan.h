// XML durations ("PT1H30M", "PT10S") as hours, minutes and seconds.
#ifndef EVENTS_TIMESPAN_H
#define EVENTS_TIMESPAN_H

// Reads the duration's hours, minutes and seconds (absent parts are 0).
// Returns the number of parts read, 0 when the text has none of H, M, S.
int GetTimeSpanIntoTimeInteger(const char* text, int* hours, int* minutes, int* seconds);

#endif
