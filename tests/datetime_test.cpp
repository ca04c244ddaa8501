// The device clock: calendar arithmetic, time zones, and the settings and
// date programs called for manual and NTP sets.
#include "state/calendar.h"
#include "state/command.h"
#include "tests/fixture.h"

#include <string.h>

namespace {

TEST(Calendar, MonthLengthsAndCarries)
{
    struct Case { int month, year, days; };
    for (const Case& c : {Case{1, 2026, 31}, Case{2, 2024, 29}, Case{2, 2026, 28}, Case{2, 2100, 29},
                          Case{4, 2026, 30}, Case{11, 2026, 30}, Case{12, 2026, 31}})
        EXPECT_EQ(Month_To_Day_Limit(c.month, c.year), c.days) << c.month << "/" << c.year;

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

TEST(Calendar, TimeZoneParameters)
{
    struct Case { const char* tz; int result; const char* params; };
    for (const Case& c : {
             Case{"CET-1CEST,M3.5.0,M10.5.0/3", 0,
                  "&Time.Time.DST.Enabled=yes&Time.TimeZone=GMT+-1&Time.DST.Offset=01:00:00"
                  "&Time.DST.StartTime=02:00:00&Time.DST.StartMonth=2&Time.DST.StartDay=0&Time.DST.StartTypeOfDate=-1"
                  "&Time.DST.StopTime=3:00:00&Time.DST.StopMonth=9&Time.DST.StopDay=0&Time.DST.StopTypeOfDate=-1"},
             Case{"EST5EDT,M3.2.0", 1, ""},
             Case{"GMT0", 0, "&Time.Time.DST.Enabled=no&Time.TimeZone=GMT"},
             Case{"JST-9", 0, "&Time.Time.DST.Enabled=no&Time.TimeZone=GMT+-9"},
             Case{"XYZ30", 1, "&Time.Time.DST.Enabled=no"},
             Case{"UTC", 1, "&Time.Time.DST.Enabled=no"},
             Case{"EST5EDT4,M3.2.0/2:30,M11.1.0/2:00:10", 0,
                  "&Time.Time.DST.Enabled=yes&Time.TimeZone=GMT-5&Time.DST.Offset=4"
                  "&Time.DST.StartTime=2:30:00&Time.DST.StartMonth=2&Time.DST.StartDay=0&Time.DST.StartTypeOfDate=8"
                  "&Time.DST.StopTime=2:00:10&Time.DST.StopMonth=10&Time.DST.StopDay=0&Time.DST.StopTypeOfDate=1"},
             Case{"A-1B,M13.1.0,M1.1.0", 1, "&Time.Time.DST.Enabled=yes&Time.TimeZone=GMT+-1&Time.DST.Offset=01:00:00"
                                            "&Time.DST.StartTime=02:00:00"},
             Case{"A-1B,M3.1.0/24,M1.1.0", 1, "&Time.Time.DST.Enabled=yes&Time.TimeZone=GMT+-1"
                                              "&Time.DST.Offset=01:00:00"},
         }) {
        G_Cmd[0] = 0;
        char tz[64];
        strcpy(tz, c.tz);
        EXPECT_EQ(CheckTimeZone(tz), c.result) << c.tz;
        EXPECT_STREQ(G_Cmd, c.params) << c.tz;
    }
}

class DateTime : public CameraTest {
protected:
    CgiResult set(const std::string& inner) { return call("<tds:SetSystemDateAndTime>" + inner + "</tds:SetSystemDateAndTime>"); }
    static std::string manual(int y, int mo, int d, int h, int mi, int s, const std::string& element = "UTCDateTime")
    {
        return "<tds:DateTimeType>Manual</tds:DateTimeType><tds:DaylightSavings>false</tds:DaylightSavings>"
               "<tds:TimeZone><tt:TZ>CET-1CEST,M3.5.0,M10.5.0/3</tt:TZ></tds:TimeZone><tds:" + element +
               "><tt:Date><tt:Year>" + std::to_string(y) + "</tt:Year><tt:Month>" + std::to_string(mo) +
               "</tt:Month><tt:Day>" + std::to_string(d) + "</tt:Day></tt:Date><tt:Time><tt:Hour>" +
               std::to_string(h) + "</tt:Hour><tt:Minute>" + std::to_string(mi) + "</tt:Minute><tt:Second>" +
               std::to_string(s) + "</tt:Second></tt:Time></tds:" + element + ">";
    }
};

TEST_F(DateTime, ManualSetRunsDateProgramOnly)
{
    CgiResult r = set(manual(2026, 12, 31, 23, 30, 5));
    EXPECT_EQ(r.envelopeBody, "<tds:SetSystemDateAndTimeResponse></tds:SetSystemDateAndTimeResponse>");
    // The settings line written over the buffer's start is no command: only date.cgi runs.
    EXPECT_EQ(cameraCalls(), "/usr/apache/htdocs/cgi-bin/date.cgi REMOTE_USER=admin method=manu "
                             "system_date=2027/01/01 system_time=00:30:05\n");
    const std::string conf = readFile("tmp/onvif/onvif.conf");
    EXPECT_NE(conf.find("Time.Type=Manual\nTime.DaylightSavings=false\nTime.TimeZone=CET-1CEST,M3.5.0,M10.5.0/3\n"),
              std::string::npos);
    EXPECT_EQ(readFile("tmp/onvif/onvif.conf").find("%"), std::string::npos);

    removeFile("camera_calls.log");
    word(VARIANT_CODE) = VARIANT_VANTOR;
    EXPECT_EQ(set(manual(2100, 2, 29, 6, 7, 8, "LocalDateTime")).status, 200);
    EXPECT_EQ(cameraCalls(), "/usr/apache/htdocs/vantor-cgi/date.cgi REMOTE_USER=admin method=manu "
                             "system_date=2100/02/29 system_time=06:07:08\n");
}

TEST_F(DateTime, NtpSetKeepsTheConfiguredServer)
{
    CgiResult r = set("<tds:DateTimeType>NTP</tds:DateTimeType><tds:DaylightSavings>true</tds:DaylightSavings>"
                      "<tds:TimeZone><tt:TZ>JST-9</tt:TZ></tds:TimeZone>");
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(cameraCalls(), "/usr/apache/htdocs/cgi-bin/admin/param.cgi QUERY_STRING=action=update"
                             "&Time.Time.DST.Enabled=no&Time.TimeZone=GMT+-9&Time.SyncSource=NTP"
                             "&Time.NTP.Server=192.168.0.1&Time.NTP.Update=hour REMOTE_USER=admin isOnvif=1\n");
    const std::string conf = readFile("tmp/onvif/onvif.conf");
    EXPECT_NE(conf.find("Time.Type=NTP\nTime.DaylightSavings=true\nTime.TimeZone=JST-9\n"), std::string::npos);
    EXPECT_NE(conf.find("NTP.IPv4Address=192.168.0.1\n"), std::string::npos);

    CgiResult now = call("<tds:GetSystemDateAndTime/>");
    EXPECT_NE(now.envelopeBody.find("<tt:DateTimeType>NTP</tt:DateTimeType><tt:DaylightSavings>true"
                                    "</tt:DaylightSavings><tt:TimeZone><tt:TZ>JST-9</tt:TZ></tt:TimeZone>"
                                    "<tt:LocalDateTime>"), std::string::npos);
    EXPECT_EQ(now.envelopeBody.find("UTCDateTime"), std::string::npos);
}

TEST_F(DateTime, RefusalsRunNothingAndWriteNothing)
{
    const std::string before = readFile("tmp/onvif/onvif.conf");
    struct Case { std::string inner; std::string fault; };
    for (const Case& c : {
             Case{manual(2026, 2, 29, 0, 0, 0), ">An invalid date or time was specified"},
             Case{manual(2026, 13, 1, 0, 0, 0), "ter:InvalidDateTime"},
             Case{manual(2026, 0, 1, 0, 0, 0), "ter:InvalidDateTime"},
             Case{manual(2026, 1, 0, 0, 0, 0), "ter:InvalidDateTime"},
             Case{manual(2026, 1, 32, 0, 0, 0), "ter:InvalidDateTime"},
             Case{manual(2026, 1, 1, 24, 0, 0), "ter:InvalidDateTime"},
             Case{"<tds:DateTimeType>NTP</tds:DateTimeType><tds:TimeZone><tt:TZ>EST5EDT,M3.2.0</tt:TZ></tds:TimeZone>",
                  "ter:InvalidTimeZone"},
             Case{"<tds:DateTimeType>NTP</tds:DateTimeType><tds:TimeZone><tt:TZ>$(touch x)-1;touch y</tt:TZ>"
                  "</tds:TimeZone>", "-"},
             Case{"<tds:DateTimeType>NTP</tds:DateTimeType><tds:TimeZone><tt:TZ>CET-1&#10;User=root</tt:TZ>"
                  "</tds:TimeZone>", "ter:InvalidTimeZone"},
         }) {
        CgiResult r = set(c.inner);
        if (c.fault != "-") {
            EXPECT_NE(r.envelopeBody.find(c.fault), std::string::npos) << c.inner << r.envelopeBody;
            EXPECT_EQ(r.status, 400);
        }
    }
    // The shell-looking zone was taken as a zone: its text reached no shell.
    EXPECT_FALSE(exists("x"));
    EXPECT_FALSE(exists("usr/apache/htdocs/cgi-bin/admin/x"));
    EXPECT_EQ(cameraCalls().find("touch"), std::string::npos);
    EXPECT_EQ(readFile("tmp/onvif/onvif.conf").find("User=root"), std::string::npos);
    EXPECT_EQ(set("<tds:DateTimeType>Other</tds:DateTimeType>").envelopeBody, "");
}

}  // namespace
