// The duration reader shared by events, PTZ timeouts and relay delays, and
// the UTC time text of the answers.
#include "state/timespan.h"
#include "state/mode.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

int GetTimeSpanIntoTimeInteger(const char* text, int* hours, int* minutes, int* seconds)
{
    *hours = *minutes = *seconds = 0;
    int h = strchr(text, 'H') != 0, m = strchr(text, 'M') != 0, s = strchr(text, 'S') != 0;
    int n = 0;
    if (h && m && s)
        n = sscanf(text, "PT%dH%dM%dS", hours, minutes, seconds);
    else if (h && m)
        n = sscanf(text, "PT%dH%dM", hours, minutes);
    else if (h && s)
        n = sscanf(text, "PT%dH%dS", hours, seconds);
    else if (h)
        n = sscanf(text, "PT%dH", hours);
    else if (m && s)
        n = sscanf(text, "PT%dM%dS", minutes, seconds);
    else if (m)
        n = sscanf(text, "PT%dM", minutes);
    else if (s)
        n = sscanf(text, "PT%dS", seconds);
    return n < 0 ? 0 : n;
}

void formatTime(char* out, size_t n, const struct tm* t)
{
    snprintf(out, n, "%d-%02d-%02dT%02d:%02d:%02d%s", t->tm_year + 1900, t->tm_mon + 1, t->tm_mday, t->tm_hour,
             t->tm_min, t->tm_sec, utcZone());
}

const char* utcZone()
{
    return onvifMode() ? "Z" : "";
}

void currentTime(struct tm* t)
{
    time_t now = time(0);
    gmtime_r(&now, t);
}
