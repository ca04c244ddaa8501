// The calendar's carried additions (event terms); the clock actions
// themselves are recorded in tests/scenarios/device_settings.scenario.
#include "state/calendar.h"

#include <gtest/gtest.h>
#include <string.h>

namespace {

// Answers show these sums only as masked times, so they are checked here.
TEST(Calendar, CarriesAcrossMonthsYearsAndLeapDays)
{
    struct Carry { int y, mo, d, h, mi, s, addS, addMi, addH; const char* out; };
    for (const Carry& c : {Carry{2026, 11, 23, 6, 0, 0, 90, 0, 0, "2026-11-23T06:01:30"},
                           Carry{2026, 12, 31, 23, 30, 0, 0, 0, 1, "2027-01-01T00:30:00"},
                           Carry{2024, 2, 28, 12, 0, 0, 0, 0, 24, "2024-02-29T12:00:00"},
                           Carry{2100, 2, 28, 12, 0, 0, 0, 0, 24, "2100-02-29T12:00:00"},
                           Carry{2026, 2, 28, 23, 59, 59, 1, 0, 0, "2026-03-01T00:00:00"},
                           Carry{2026, 1, 31, 0, 0, 0, 0, 0, 24 * 60, "2026-04-01T00:00:00"},
                           Carry{2026, 4, 30, 23, 0, 0, 0, 120, 0, "2026-05-01T01:00:00"}}) {
        struct tm t;
        memset(&t, 0, sizeof t);
        t.tm_year = c.y - 1900;
        t.tm_mon = c.mo - 1;
        t.tm_mday = c.d;
        t.tm_hour = c.h;
        t.tm_min = c.mi;
        t.tm_sec = c.s;
        char out[32];
        Carry_Time(out, sizeof out, c.addS, c.addMi, c.addH, &t);
        EXPECT_STREQ(out, c.out);
    }
}

}  // namespace
