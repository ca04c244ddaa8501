// Month lengths and carried additions to a broken-down time.
#include "state/calendar.h"
#include "state/timespan.h"

#include <stdio.h>

int Month_To_Day_Limit(int month, int year)
{
    switch (month) {
    case 2: return year % 4 == 0 ? 29 : 28;  // no century rule: the camera's clock never had one
    case 4: case 6: case 9: case 11: return 30;
    default: return 31;
    }
}

void Carry_Time(char* out, size_t n, int seconds, int minutes, int hours, const struct tm* t)
{
    long sec = (long)t->tm_sec + seconds;
    long min = (long)t->tm_min + minutes + sec / 60;
    sec %= 60;
    long hour = (long)t->tm_hour + hours + min / 60;
    min %= 60;
    long day = (long)t->tm_mday + hour / 24;
    hour %= 24;
    int month = t->tm_mon + 1;
    int year = t->tm_year + 1900;
    while (day > Month_To_Day_Limit(month, year)) {
        day -= Month_To_Day_Limit(month, year);
        if (++month > 12) {
            month = 1;
            ++year;
        }
    }
    snprintf(out, n, "%d-%02d-%02dT%02d:%02d:%02d%s", year, month, (int)day, (int)hour, (int)min, (int)sec,
             utcZone());
}
