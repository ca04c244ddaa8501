// Subscription termination times from a given clock, and the time spans and
// comparisons they are made of.
#include "events/events.h"
#include "state/timespan.h"

#include <gtest/gtest.h>
#include <string.h>

namespace {

struct tm at(int y, int mo, int d, int h, int mi, int s)
{
    struct tm t;
    memset(&t, 0, sizeof t);
    t.tm_year = y - 1900;
    t.tm_mon = mo - 1;
    t.tm_mday = d;
    t.tm_hour = h;
    t.tm_min = mi;
    t.tm_sec = s;
    return t;
}

TEST(EventTimes, TerminationFromDurations)
{
    struct Case { struct tm now; const char* text; int has; int mode; const char* out; };
    for (const Case& c : {Case{at(2026, 11, 23, 12, 0, 30), "PT90S", 1, 1, "2026-11-23T12:02:00"},
                          Case{at(2026, 12, 31, 23, 30, 0), "PT1H", 1, 1, "2027-01-01T00:30:00"},
                          Case{at(2026, 11, 23, 12, 0, 30), "P1D", 1, 2, "2026-11-23T12:01:30"},
                          Case{at(2026, 2, 28, 23, 59, 30), "2030-01-01T00:00:00Z", 1, 2, "2026-03-01T00:00:30"},
                          Case{at(2026, 11, 23, 12, 0, 0), "", 0, 2, "2026-11-23T12:01:00"},
                          Case{at(2028, 2, 28, 23, 0, 0), "PT1H30M", 1, 1, "2028-02-29T00:30:00"}}) {
        char out[64];
        EXPECT_EQ(terminationFromDuration(c.text, c.has, &c.now, out, sizeof out), c.mode) << c.text;
        EXPECT_STREQ(out, c.out) << c.text;
    }
    struct Span { const char* text; int n, h, m, s; };
    for (const Span& c : {Span{"PT1H2M3S", 3, 1, 2, 3}, Span{"PT10M", 1, 0, 10, 0}, Span{"PT2H5S", 2, 2, 0, 5},
                          Span{"PT1.5S", 1, 0, 0, 1}, Span{"P1D", 0, 0, 0, 0}, Span{"PT5M30S", 2, 0, 5, 30},
                          Span{"xyzS", 0, 0, 0, 0}}) {
        int h, m, s;
        EXPECT_EQ(GetTimeSpanIntoTimeInteger(c.text, &h, &m, &s), c.n) << c.text;
        EXPECT_EQ(h * 3600 + m * 60 + s, c.h * 3600 + c.m * 60 + c.s) << c.text;
    }
    EXPECT_EQ(expiration_check("2026-11-23T12:00:00", "2026-11-23T12:00:00"), 1);
    EXPECT_EQ(expiration_check("2026-11-23T11:59:59", "2026-11-23T12:00:00"), 0);
    EXPECT_EQ(A_larger_than_B("2027-01-01T00:00:00", "2026-12-31T23:59:59"), 1);
}

}  // namespace
