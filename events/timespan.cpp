// The duration reader shared by events, PTZ timeouts and relay delays.
#include "events/timespan.h"

#include <stdio.h>
#include <string.h>

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
