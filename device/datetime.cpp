// The device clock: reported from the settings file and the system clock,
// set through the camera's settings and date programs.
#include "state/calendar.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/checkers.h"
#include "state/command.h"
#include "state/config.h"
#include "state/paths.h"

#include <stdarg.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>

#define QUERY_START "action=update"

static void appendCmd(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
// Set when a piece did not fit: the query is then never sent.
static int cmdCut;

static void appendCmd(const char* fmt, ...)
{
    size_t used = strlen(G_Cmd);
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(G_Cmd + used, sizeof G_Cmd - used, fmt, ap);
    va_end(ap);
    if (n < 0 || (size_t)n >= sizeof G_Cmd - used) {
        cmdCut = 1;
        G_Cmd[used] = 0;
    }
}

// The zone part "CET-1" (and the daylight name and offset after it):
// appends the camera's time zone; 0 when the offset is usable.
static int appendZone(const char* zonePart, char* daylightRest, size_t restSize)
{
    char name[64] = "", offset[64] = "", rest[64] = "";
    int n = sscanf(zonePart, "%63[^0-9,+,-]%63[0-9,+,-]%63s", name, offset, rest);
    if (n < 2)
        return 1;
    int hours = atoi(offset);
    if (hours >= 25)
        return 1;
    // POSIX counts west of Greenwich as positive; the camera names zones the other way.
    if (hours == 0)
        appendCmd("&Time.TimeZone=GMT");
    else if (offset[0] == '-')
        appendCmd("&Time.TimeZone=GMT+%d", hours);
    else
        appendCmd("&Time.TimeZone=GMT-%d", hours);
    if (daylightRest)
        snprintf(daylightRest, restSize, "%s", rest);
    return 0;
}

// One "Mm.w.d[/time]" rule; which is "Start" or "Stop".
static int appendRule(const char* rule, const char* which)
{
    char month[16] = "", week[16] = "", day[16] = "", time[32] = "", rest[64] = "";
    if (strchr(rule, '/')) {
        if (sscanf(rule, "M%15[0-9].%15[0-9].%15[0-9]/%31[0-9,:]%63s", month, week, day, time, rest) < 4)
            return 1;
        char* fields[3] = {time, 0, 0};
        int count = 1;
        for (char* p = time; *p && count < 4; ++p) {
            if (*p == ':') {
                *p = 0;
                if (count == 3)
                    return 1;
                fields[count++] = p + 1;
            }
        }
        if (atoi(fields[0]) >= 24 || (count > 1 && atoi(fields[1]) >= 59) || (count > 2 && atoi(fields[2]) >= 59))
            return 1;
        if (count == 1)
            appendCmd("&Time.DST.%sTime=%s:00:00", which, fields[0]);
        else if (count == 2)
            appendCmd("&Time.DST.%sTime=%s:%s:00", which, fields[0], fields[1]);
        else
            appendCmd("&Time.DST.%sTime=%s:%s:%s", which, fields[0], fields[1], fields[2]);
    } else {
        if (sscanf(rule, "M%15[0-9].%15[0-9].%15[0-9]%63s", month, week, day, rest) < 3)
            return 1;
        appendCmd("&Time.DST.%sTime=02:00:00", which);
    }
    int m = atoi(month), w = atoi(week), d = atoi(day);
    if (m < 1 || m > 12 || w < 1 || w > 5 || d < 0 || d > 6)
        return 1;
    appendCmd("&Time.DST.%sMonth=%d&Time.DST.%sDay=%d", which, m - 1, which, d);
    if (w == 5)
        appendCmd("&Time.DST.%sTypeOfDate=-1", which);
    else
        appendCmd("&Time.DST.%sTypeOfDate=%d", which, w * 7 - 6);
    return 0;
}

int CheckTimeZone(char* tz)
{
    if (!strchr(tz, ',')) {
        appendCmd("&Time.Time.DST.Enabled=no");
        return appendZone(tz, 0, 0);
    }
    char* parts[3];
    int count = 0;
    for (char* p = tz; count < 3;) {
        parts[count++] = p;
        char* comma = strchr(p, ',');
        if (!comma)
            break;
        *comma = 0;
        p = comma + 1;
        if (count == 3)
            return 1;  // a fourth part
    }
    if (count != 3)
        return 1;
    appendCmd("&Time.Time.DST.Enabled=yes");
    char daylight[64] = "";
    if (appendZone(parts[0], daylight, sizeof daylight))
        return 1;
    char daylightName[64] = "", daylightOffset[32] = "";
    if (sscanf(daylight, "%63[^0-9,+,-,:]%31[0-9,+,-,:]", daylightName, daylightOffset) == 2)
        appendCmd("&Time.DST.Offset=%s", daylightOffset);
    else
        appendCmd("&Time.DST.Offset=01:00:00");
    return appendRule(parts[1], "Start") || appendRule(parts[2], "Stop");
}

// The settings file's values for the time lines and what the rewrite keeps.
struct TimeSettings {
    char type[17];        // the working type: the request's, then NTP.Type's when it comes first
    char daylight[17];
    int hasDaylight;
    const char* zone;     // 0: keep the file's
    int ntp;              // NTP lines are read for the server
    char user[64];
    char server[128];
};

static int rewriteTimeLine(const char* line, FILE* out, void* ctx)
{
    TimeSettings* t = (TimeSettings*)ctx;
    if (!line)
        return 0;
    if (strncmp(line, "User=", 5) == 0) {
        scanSettingLine(line, "User=", t->user, sizeof t->user, 0);
    } else if (t->ntp && strncmp(line, "NTP.Type=", 9) == 0) {
        scanSettingLine(line, "NTP.Type=", t->type, sizeof t->type, 0);
    } else if (t->ntp && ((strcmp(t->type, "IPv4") == 0 && strncmp(line, "NTP.IPv4Address=", 16) == 0) ||
                          (strcmp(t->type, "IPv6") == 0 && strncmp(line, "NTP.IPv6Address=", 16) == 0) ||
                          (strcmp(t->type, "DNS") == 0 && strncmp(line, "NTP.DNS=", 8) == 0))) {
        scanSettingLine(line, "=", t->server, sizeof t->server, 0);
    } else if (strncmp(line, "Time.Type=", 10) == 0) {
        fprintf(out, "Time.Type=%s\n", t->type);
        return 1;
    } else if (strncmp(line, "Time.DaylightSavings=", 21) == 0 && t->hasDaylight) {
        fprintf(out, "Time.DaylightSavings=%s\n", t->daylight);
        return 1;
    } else if (strncmp(line, "Time.TimeZone=", 14) == 0 && t->zone) {
        fprintf(out, "Time.TimeZone=%s\n", t->zone);
        return 1;
    }
    return 0;
}

// Values from the settings file go into a command line: only plain words.
static const char* shellSafeWord(const char* text)
{
    for (const char* p = text; *p; ++p)
        if (!((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') ||
              strchr(".-_:", *p)))
            return "";
    return text;
}

static void writeInvalidTimeZoneFault()
{
    writeSenderFault2("InvalidArgVal", "InvalidTimeZone", "Invalid data", "An invalid time zone was specified");
}

// A clock field; 0 when absent. Sets *refused when the value is no number.
static int readNumber(const char* key, int* refused)
{
    long value = 0;
    if (requestNumber(key, INT_MIN, INT_MAX, &value) == Read::Refused)
        *refused = 1;
    return (int)value;
}

// The settings program learns an NTP clock (the query in G_Cmd); a manual
// clock is left to date.cgi alone, as the camera always has: its settings
// line never reached the settings program.
static void runClockPrograms(const char* user, int manual, const char* date = 0, const char* time = 0)
{
    if (!manual) {
        if (cmdCut)
            return;
        const CommandArg args[] = {{"QUERY_STRING", G_Cmd}, {"isOnvif", "1"}};
        runCameraProgramWithAs("admin/param.cgi", args, 2, user);
        return;
    }
    const CommandArg args[] = {{"method", "manu"}, {"system_date", date}, {"system_time", time}};
    runCameraProgramWithAs("date.cgi", args, 3, user);
}

void SetSystemDateAndTimeResponse()
{
    snprintf(G_Cmd, sizeof G_Cmd, "%s", QUERY_START);
    TimeSettings t;
    memset(&t, 0, sizeof t);
    char tz[65], zoneText[65];
    Read typeRead = requestText("tds:DateTimeType", t.type, 17);
    Read daylightRead = requestText("tds:DaylightSavings", t.daylight, 17);
    Read tzRead = requestText("tt:TZ", tz, 65);
    if (typeRead == Read::Refused || daylightRead == Read::Refused || tzRead == Read::Refused)
        return;
    t.hasDaylight = daylightRead == Read::Value && CheckBool(t.daylight) == 0;
    int hasTz = tzRead == Read::Value;
    snprintf(zoneText, sizeof zoneText, "%s", hasTz ? tz : "GMT+0:00:00");
    if (hasTz) {
        // The text goes into the settings file as it is: never a second line,
        // never a text that reads back as another setting.
        if (hasLineBreak(tz) || namesKeyOfFile(ONVIF_CONF_FILE, tz) || CheckTimeZone(tz)) {
            writeInvalidTimeZoneFault();
            return;
        }
        t.zone = zoneText;
    }
    if (strcmp(t.type, "NTP") == 0) {
        setResponse("<tds:SetSystemDateAndTimeResponse></tds:SetSystemDateAndTimeResponse>");
        t.ntp = 1;
        int rewritten = rewriteFileThroughWorkCopy(ONVIF_CONF_FILE, rewriteTimeLine, &t);
        if (rewritten == WORK_COPY_FAILED)
            return answerStoreFailure(ONVIF_CONF_FILE);
        if (rewritten != 0)
            logServiceError("SetSystemDateAndTimeResponse_NTP", "%s", "ONVIF_CONF_FILE missing");
        appendCmd("&Time.SyncSource=NTP");
        appendCmd("&Time.NTP.Server=%s&Time.NTP.Update=hour", shellSafeWord(t.server));
        runClockPrograms(shellSafeWord(t.user), 0);
        return;
    }
    if (strcmp(t.type, "Manual") != 0)
        return;
    int refused = 0;
    int hour = readNumber("tt:Hour", &refused), minute = readNumber("tt:Minute", &refused);
    int second = readNumber("tt:Second", &refused), year = readNumber("tt:Year", &refused);
    int month = readNumber("tt:Month", &refused), day = readNumber("tt:Day", &refused);
    if (refused || hour < 0 || hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 59 || month < 1 ||
        month > 12 || day < 1 || day > Month_To_Day_Limit(month, year)) {
        writeSenderFault2("InvalidArgVal", "InvalidDateTime", "Invalid data", ">An invalid date or time was specified");
        return;
    }
    if (requestHas("UTCDateTime")) {
        char sign[8] = "", hours[16] = "";
        sscanf(zoneText, "%*[^0-9,+,-]%7[+,-]%15[0-9]", sign, hours);
        struct tm given;
        memset(&given, 0, sizeof given);
        given.tm_year = year - 1900;
        given.tm_mon = month - 1;
        given.tm_mday = day;
        given.tm_hour = hour;
        given.tm_min = minute;
        given.tm_sec = second;
        time_t when = timegm(&given);
        long shift = atol(hours) * 3600;
        when += strcmp(sign, "-") == 0 ? shift : -shift;  // "-" is east of Greenwich
        struct tm local;
        gmtime_r(&when, &local);
        year = local.tm_year + 1900;
        month = local.tm_mon + 1;
        day = local.tm_mday;
        hour = local.tm_hour;
        minute = local.tm_min;
        second = local.tm_sec;
    }
    int rewritten = rewriteFileThroughWorkCopy(ONVIF_CONF_FILE, rewriteTimeLine, &t);
    if (rewritten == WORK_COPY_FAILED)
        return answerStoreFailure(ONVIF_CONF_FILE);
    if (rewritten != 0)
        logServiceError("SetSystemDateAndTimeResponse_Manual", "%s", "ONVIF_CONF_FILE missing");
    setResponse("<tds:SetSystemDateAndTimeResponse></tds:SetSystemDateAndTimeResponse>");
    const char* user = shellSafeWord(t.user);
    char date[32], time[32];
    snprintf(date, sizeof date, "%04d/%02d/%02d", year, month, day);
    snprintf(time, sizeof time, "%02d:%02d:%02d", hour, minute, second);
    runClockPrograms(user, 1, date, time);
}

void GetSystemDateAndTimeResponse()
{
    char type[64] = "", daylight[64] = "", zone[128] = "";
    int found = forEachSetting(ONVIF_CONF_FILE, [&](const char* line) {
        if (strncmp(line, "Time.Type=", 10) == 0)
            scanSettingLine(line, "Time.Type=", type, sizeof type, 0);
        else if (strncmp(line, "Time.DaylightSavings=", 21) == 0)
            scanSettingLine(line, "Time.DaylightSavings=", daylight, sizeof daylight, 0);
        else if (strncmp(line, "Time.TimeZone=", 14) == 0)
            scanSettingLine(line, "Time.TimeZone=", zone, sizeof zone, 0);
        return true;
    });
    if (!found) {
        log_message_to_onvifErrorFile(1, "deviceService:GetSystemDateAndTimeResponse: %s missing", ONVIF_CONF_FILE);
    }
    struct timeval tv;
    struct timezone tzone;
    gettimeofday(&tv, &tzone);
    time_t now = tv.tv_sec;
    int manual = strcmp(type, "Manual") == 0;
    if (!manual)
        now += (time_t)tzone.tz_minuteswest * 60;
    struct tm t;
    localtime_r(&now, &t);
    setResponse("<tds:GetSystemDateAndTimeResponse><tds:SystemDateAndTime><tt:DateTimeType>%s</tt:DateTimeType>"
                "<tt:DaylightSavings>%s</tt:DaylightSavings><tt:TimeZone><tt:TZ>%s</tt:TZ></tt:TimeZone>",
                type,
                daylight,
                zone);
    const char* element = manual ? "tt:UTCDateTime" : "tt:LocalDateTime";
    appendResponse("<%s><tt:Time><tt:Hour>%d</tt:Hour><tt:Minute>%d</tt:Minute><tt:Second>%d</tt:Second></tt:Time>"
                   "<tt:Date><tt:Year>%d</tt:Year><tt:Month>%d</tt:Month><tt:Day>%d</tt:Day></tt:Date></%s>",
                   element, t.tm_hour, t.tm_min, t.tm_sec, t.tm_year + 1900, t.tm_mon + 1, t.tm_mday, element);
    appendResponse("</tds:SystemDateAndTime></tds:GetSystemDateAndTimeResponse>");
}
