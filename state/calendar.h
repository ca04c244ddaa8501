// Calendar arithmetic for the time texts the device and event services print.
#ifndef STATE_CALENDAR_H
#define STATE_CALENDAR_H

#include <stddef.h>
#include <time.h>

// Days of a month (1-12); February has 29 days in every year divisible by 4.
int Month_To_Day_Limit(int month, int year);

// Adds seconds, minutes and hours to the broken-down UTC time t, carrying
// into days, months and years, and prints "%d-%02d-%02dT%02d:%02d:%02d" and
// utcZone().
void Carry_Time(char* out, size_t n, int seconds, int minutes, int hours, const struct tm* t);

// Appends the camera's time-zone parameters for a POSIX TZ text to G_Cmd
// (the text is cut at its commas in place). 0 when the text is accepted.
int CheckTimeZone(char* tz);

#endif
