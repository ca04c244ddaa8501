// The duration and URI forms the ONVIF schema takes.
#include "state/schema_values.h"

#include <string.h>

static int isDigitChar(char c) { return c >= '0' && c <= '9'; }
static int isHexChar(char c) { return isDigitChar(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// Reads "<digits>[.<digits>]<unit>" parts whose units come in the order of
// units; a fraction only where allowFraction names the unit.
static const char* durationParts(const char* p, const char* units, char allowFraction, int* parts)
{
    while (isDigitChar(*p)) {
        const char* start = p;
        while (isDigitChar(*p))
            ++p;
        if (*p == '.' && allowFraction) {
            ++p;
            if (!isDigitChar(*p))
                return 0;
            while (isDigitChar(*p))
                ++p;
            if (*p != allowFraction)
                return 0;
        }
        const char* unit = *p ? strchr(units, *p) : 0;
        if (!unit || p == start)
            return 0;
        units = unit + 1;
        ++*parts;
        ++p;
    }
    return p;
}

int isDurationText(const char* text)
{
    const char* p = text;
    if (*p == '-')
        ++p;
    if (*p++ != 'P')
        return 0;
    int dateParts = 0, timeParts = 0;
    p = durationParts(p, "YMD", 0, &dateParts);
    if (!p)
        return 0;
    if (*p == 'T') {
        p = durationParts(p + 1, "HMS", 'S', &timeParts);
        if (!p || timeParts == 0)
            return 0;
    }
    return *p == 0 && dateParts + timeParts > 0;
}

int isUriText(const char* text)
{
    if (!*text)
        return 0;
    for (const char* p = text; *p; ++p) {
        char c = *p;
        if (c == '%') {
            if (!isHexChar(p[1]) || !isHexChar(p[2]))
                return 0;
            p += 2;
            continue;
        }
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigitChar(c) || strchr("-._~:/?#[]@!$&'()*+,;=", c)))
            return 0;
    }
    return 1;
}
