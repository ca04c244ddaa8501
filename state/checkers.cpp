// The value checkers shared by every setter.
#include "state/checkers.h"
#include "state/shm.h"

#include <arpa/inet.h>
#include <stdlib.h>
#include <string.h>

static int isDigit(char c) { return c >= '0' && c <= '9'; }

int CheckInRange(int value, int min, int max)
{
    if (min == 0 && max == 0)
        return 0;
    return (value < min || value > max) ? 1 : 0;
}

int CheckFloatRange(float value, float min, float max)
{
    if (min == 0.0f && max == 0.0f)
        return 0;
    return (value < min || value > max) ? 1 : 0;
}

int CheckInt(const char* text)
{
    for (const char* p = text; *p; ++p)
        if (!isDigit(*p))
            return 1;
    return 0;
}

int CheckFloat(const char* text)
{
    const char* p = text;
    if (!*p)
        return 0;
    if (*p == '.') {
        for (++p; *p; ++p)
            if (!isDigit(*p))
                return 1;
        return 0;
    }
    if (*p == '-')
        ++p;
    // '0' to '?' on purpose: the camera's tools have always let ':' to '?' lead.
    if (*p < '0' || *p > '?')
        return 1;
    int points = 0, exponents = 0;
    for (++p; *p; ++p) {
        if (isDigit(*p))
            continue;
        if (*p == '.') {
            if (points || exponents)
                return 1;
            ++points;
        } else if (*p == 'e' || *p == 'E') {
            if (exponents)
                return 1;
            ++exponents;
        } else if (*p == '-') {
            if (!exponents)
                return 1;
        } else {
            return 1;
        }
    }
    return 0;
}

static void toLower(char* t) { for (; *t; ++t) if (*t >= 'A' && *t <= 'Z') *t = (char)(*t + 32); }
static void toUpper(char* t) { for (; *t; ++t) if (*t >= 'a' && *t <= 'z') *t = (char)(*t - 32); }

int CheckBool(char* text)
{
    toLower(text);
    return (strcmp(text, "true") == 0 || strcmp(text, "false") == 0) ? 0 : 1;
}

int CheckBool_tolower(char* text)
{
    toLower(text);
    return 0;
}

int Check_ON_OFF(char* text)
{
    toUpper(text);
    return (strcmp(text, "ON") == 0 || strcmp(text, "OFF") == 0) ? 0 : 1;
}

int Check_ON_OFF_AUTO(char* text)
{
    toUpper(text);
    return (strcmp(text, "AUTO") == 0 || strcmp(text, "OFF") == 0 || strcmp(text, "ON") == 0) ? 0 : 1;
}

int Check_AUTO_MANUAL(char* text)
{
    toUpper(text);
    return (strcmp(text, "AUTO") == 0 || strcmp(text, "MANUAL") == 0) ? 0 : 1;
}

int CheckEncoding(const char* text)
{
    return (strcmp(text, "JPEG") == 0 || strcmp(text, "MPEG4") == 0 || strcmp(text, "H264") == 0) ? 0 : 1;
}

int CheckType(const char* text)
{
    return (strcmp(text, "IPv4") == 0 || strcmp(text, "IPv6") == 0) ? 0 : 1;
}

int CheckTimeout(const char* text)
{
    return strcmp(text, "invalid") == 0 ? 1 : 0;
}

int CheckChar(const char* text)
{
    for (const char* p = text; *p; ++p) {
        char c = *p;
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) ||
              c == '-' || c == ' ' || c == '.' || c == '_'))
            return 1;
    }
    return 0;
}

int CheckChar_including_space(const char* text)
{
    return CheckChar(text);
}

int CheckPresetname(const char* text)
{
    if (strlen(text) > 64)
        return 1;
    for (const unsigned char* p = (const unsigned char*)text; *p; ++p) {
        if (*p <= 31 || *p == 127 || strchr("\"()*+,/:;<=>?[\\]`{|}", *p))
            return 1;
    }
    return 0;
}

// Decimal digits only, read as a number in [min, max].
static int checkDecimalRange(const char* text, long min, long max)
{
    if (!*text || strlen(text) > 9 || CheckInt(text))
        return 1;
    long v = strtol(text, 0, 10);
    return (v < min || v > max) ? 1 : 0;
}

int CheckBitrateRange(const char* text) { return checkDecimalRange(text, 64, 8192); }
int CheckPortRange(const char* text) { return checkDecimalRange(text, 0, 65535); }
int CheckTTLRange(const char* text) { return checkDecimalRange(text, 0, 255); }

int CheckSampleRate(const char* text)
{
    if (modelHas(Cap::AudioSampleRateKHz))
        return (strcmp(text, "8") == 0 || strcmp(text, "16") == 0) ? 0 : 1;
    return (strcmp(text, "8000") == 0 || strcmp(text, "16000") == 0) ? 0 : 1;
}

int checkIPv4AddressValid(const char* text)
{
    char work[17];
    strncpy(work, text, 16);
    work[16] = 0;
    if (strcmp(work, "255.255.255.255") == 0)
        return 0;
    char* part = work;
    for (int i = 0; i < 4; ++i) {
        if (!part)
            return 0;
        char* dot = strchr(part, '.');
        if (dot)
            *dot = 0;
        // A part that is no number reads as 0 and passes, as it always has.
        if (strtoul(part, 0, 10) > 255)
            return 0;
        part = dot ? dot + 1 : 0;
    }
    return 1;
}

int CheckH264Profile(const char*) { return 0; }
int CheckMPEG4Profile(const char*) { return 0; }

int hasLineBreak(const char* text)
{
    for (const char* p = text; *p; ++p)
        if (*p == '\n' || *p == '\r')
            return 1;
    return 0;
}

// --- Strict forms for values that reach URIs, the stream server and files ---

int isStrictIPv4(const char* text)
{
    const char* p = text;
    for (int part = 0; part < 4; ++part) {
        if (part > 0 && *p++ != '.')
            return 0;
        int digits = 0, value = 0;
        while (isDigit(*p) && digits < 4) {
            value = value * 10 + (*p++ - '0');
            ++digits;
        }
        if (digits == 0 || digits > 3 || value > 255)
            return 0;
    }
    return *p == 0;
}

int isIPv6Literal(const char* text)
{
    struct in6_addr address;
    if (strlen(text) > 45)
        return 0;
    for (const char* p = text; *p; ++p)
        if (!(isDigit(*p) || (*p >= 'a' && *p <= 'f') || (*p >= 'A' && *p <= 'F') || *p == ':' || *p == '.'))
            return 0;
    return inet_pton(AF_INET6, text, &address) == 1;
}

// Reads "<digits><letter>" parts in the order the letters allow; the seconds
// may carry a fraction.
static const char* durationParts(const char* p, const char* letters, int* parts)
{
    while (*p && *p != 'T') {
        const char* start = p;
        while (isDigit(*p))
            ++p;
        int fraction = 0;
        if (*p == '.' && strchr(letters, 'S')) {
            const char* fractionStart = ++p;
            while (isDigit(*p))
                ++p;
            if (p == fractionStart)
                return 0;
            fraction = 1;
        }
        if (p == start || !*p)
            return 0;
        const char* at = strchr(letters, *p);
        if (!at || (fraction && *p != 'S'))
            return 0;
        letters = at + 1;  // each letter once, in order
        ++p;
        ++*parts;
    }
    return p;
}

int isXmlDuration(const char* text)
{
    if (strlen(text) > 32 || text[0] != 'P')
        return 0;
    int parts = 0;
    const char* p = durationParts(text + 1, "YMD", &parts);
    if (!p)
        return 0;
    if (*p == 'T') {
        int timeParts = 0;
        p = durationParts(p + 1, "HMS", &timeParts);
        if (!p || timeParts == 0)
            return 0;
        parts += timeParts;
    }
    return *p == 0 && parts > 0;
}

static int isLetterOrDigit(char c)
{
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

int isHostName(const char* text)
{
    size_t total = strlen(text);
    if (total == 0 || total > 253)
        return 0;
    size_t label = 0;
    char previous = '.';
    for (const char* p = text; *p; ++p) {
        if (*p == '.') {
            if (label == 0 || previous == '-')
                return 0;
            label = 0;
        } else if (isLetterOrDigit(*p) || (*p == '-' && label > 0)) {
            if (++label > 63)
                return 0;
        } else {
            return 0;
        }
        previous = *p;
    }
    return label > 0 && previous != '-';
}

int isDomainName(const char* text)
{
    if (!isHostName(text))
        return 0;
    const char* last = strrchr(text, '.');
    last = last ? last + 1 : text;
    for (const char* p = last; *p; ++p)
        if (!isDigit(*p))
            return 1;
    return 0;
}

int isServerPort(const char* text)
{
    return checkDecimalRange(text, 1, 65535) == 0;
}
