// Typed, bounded reads of request values over the element search.
#include "frame/request_values.h"
#include "frame/frame.h"
#include "frame/xmlsearch.h"
#include "state/paths.h"

#include <errno.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// Every refusal answers the same way unless the handler names its own fault.
static Read refused(const char* what)
{
    char detail[160];
    snprintf(detail, sizeof detail, "The value of %s is too long for its field or not of its kind.", what);
    refuseRequestValue("InvalidArgs", "The value is not valid", detail);
    return Read::Refused;
}

static Read copyWhole(const char* what, const char* text, char* buf, size_t n)
{
    if (!text)
        return Read::Absent;
    size_t len = strlen(text);
    if (n == 0 || len >= n)
        return refused(what);
    memcpy(buf, text, len + 1);
    return Read::Value;
}

Read requestTextFrom(const char* key, int startRow, int* row, char* buf, size_t n)
{
    if (n)
        buf[0] = 0;
    return copyWhole(key, elementText(key, startRow, row), buf, n);
}

Read requestText(const char* key, char* buf, size_t n)
{
    return requestTextFrom(key, 0, 0, buf, n);
}

int requestRowFrom(const char* key, int startRow)
{
    int row = -1;
    return elementText(key, startRow, &row) ? row : -1;
}

Read requestTextWithin(const char* key, int fromRow, int toRow, char* buf, size_t n)
{
    int row = requestRowFrom(key, fromRow);
    if (row < 0 || row >= toRow) {
        if (n)
            buf[0] = 0;
        return Read::Absent;
    }
    return requestRowValue(row, buf, n);
}

Read requestTextEither(const char* key, const char* otherKey, char* buf, size_t n)
{
    Read r = requestText(key, buf, n);
    return r == Read::Absent ? requestText(otherKey, buf, n) : r;
}

int requestHas(const char* key)
{
    return requestRowOf(key, 0) >= 0;
}

// The namespaces the camera's services and their clients use, by the
// prefixes clients usually give them.
static const struct {
    const char* prefix;
    const char* uri;
} USUAL_NAMESPACES[] = {
    {"tds", "http://www.onvif.org/ver10/device/wsdl"},   {"trt", "http://www.onvif.org/ver10/media/wsdl"},
    {"tptz", "http://www.onvif.org/ver20/ptz/wsdl"},     {"timg", "http://www.onvif.org/ver20/imaging/wsdl"},
    {"tmd", "http://www.onvif.org/ver10/deviceIO/wsdl"}, {"tev", "http://www.onvif.org/ver10/events/wsdl"},
    {"wsnt", "http://docs.oasis-open.org/wsn/b-2"},      {"tt", "http://www.onvif.org/ver10/schema"},
};

static int rowMatchesKey(int row, const char* key)
{
    const char* colon = strchr(key, ':');
    const char* local = colon ? colon + 1 : key;
    if (!requestRowName(row) || strcmp(requestRowName(row), local) != 0)
        return 0;
    if (!colon)
        return 1;
    size_t prefixLength = (size_t)(colon - key);
    const char* ns = ElementNamespace[row] ? ElementNamespace[row] : "";
    if (strlen(ns) == prefixLength && strncmp(ns, key, prefixLength) == 0)
        return 1;
    for (const auto& usual : USUAL_NAMESPACES)
        if (strlen(usual.prefix) == prefixLength && strncmp(usual.prefix, key, prefixLength) == 0)
            return strcmp(ns, usual.uri) == 0;
    return 0;
}

int requestRowNamed(const char* key)
{
    for (int row = 0; row < requestRows(); ++row)
        if (rowMatchesKey(row, key))
            return row;
    return -1;
}

int requestRowIn(const char* key, int parentRow)
{
    if (parentRow < 0)
        return -1;
    for (int row = parentRow + 1; row < requestRows(); ++row)
        if (ElementParent[row] == parentRow && rowMatchesKey(row, key))
            return row;
    return -1;
}

Read requestTextIn(const char* parentKey, const char* key, char* buf, size_t n)
{
    int row = requestRowIn(key, requestRowNamed(parentKey));
    if (row < 0) {
        if (n)
            buf[0] = 0;
        return Read::Absent;
    }
    return requestRowValue(row, buf, n);
}

Read requestAttributeOf(int row, const char* name, char* buf, size_t n)
{
    int count = G_xmlAttributeNum < XML_TABLE_ROWS ? G_xmlAttributeNum : XML_TABLE_ROWS;
    for (int i = 0; row >= 0 && i < count; ++i)
        if (AttributeElement[i] == row && ElementBuffer3[i] && strcmp(ElementBuffer3[i], name) == 0)
            return copyWhole(name, ElementBuffer4[i] ? ElementBuffer4[i] : "", buf, n);
    if (n)
        buf[0] = 0;
    return Read::Absent;
}

const char* requestBodyNamespace()
{
    return requestRows() > 0 && ElementNamespace[0] ? ElementNamespace[0] : "";
}

int requestRows()
{
    return G_xmlElementNum < XML_TABLE_ROWS ? G_xmlElementNum : XML_TABLE_ROWS;
}

const char* requestRowName(int row)
{
    return row >= 0 && row < requestRows() ? ElementBuffer1[row] : 0;
}

const char* requestRowText(int row)
{
    return requestRowName(row) ? ElementBuffer2[row] : 0;
}

int requestRowOf(const char* name, int start)
{
    for (int row = start < 0 ? 0 : start; row < requestRows(); ++row)
        if (ElementBuffer1[row] && strcmp(ElementBuffer1[row], name) == 0)
            return row;
    return -1;
}

Read requestRowValue(int row, char* buf, size_t n)
{
    if (n)
        buf[0] = 0;
    if (!requestRowName(row))
        return Read::Absent;
    const char* text = requestRowText(row);
    return copyWhole(requestRowName(row), text ? text : "(null)", buf, n);
}

Read requestAttribute(const char* key, int occurrence, char* buf, size_t n)
{
    if (n)
        buf[0] = 0;
    return copyWhole(key, attributeText(key, occurrence), buf, n);
}

Read requestToken(const char* key, char* buf, size_t n)
{
    Read r = requestText(key, buf, n);
    if (r == Read::Value && !isSafeFileToken(buf)) {
        buf[0] = 0;
        return refused(key);
    }
    return r;
}

int parseNumber(const char* text, long min, long max, long* out)
{
    const char* p = text;
    if (*p == '+' || *p == '-')
        ++p;
    if (!*p || strlen(p) > 18)
        return 0;
    for (const char* q = p; *q; ++q)
        if (*q < '0' || *q > '9')
            return 0;
    long v = strtol(text, 0, 10);
    if (v < min || v > max)
        return 0;
    *out = v;
    return 1;
}

int parseDecimal(const char* text, double min, double max, double* out)
{
    const char* p = text;
    if (*p == '+' || *p == '-')
        ++p;
    int digits = 0, dot = 0;
    for (; *p; ++p) {
        if (*p >= '0' && *p <= '9')
            ++digits;
        else if (*p == '.' && !dot)
            dot = 1;
        else
            return 0;  // no exponents, spaces, "inf" or "nan"
    }
    if (!digits || digits > 30)
        return 0;
    double v = strtod(text, 0);
    if (!isfinite(v) || v < min || v > max)
        return 0;
    *out = v;
    return 1;
}

int parseBool(const char* text, int* out)
{
    if (!strcmp(text, "true") || !strcmp(text, "1"))
        *out = 1;
    else if (!strcmp(text, "false") || !strcmp(text, "0"))
        *out = 0;
    else
        return 0;
    return 1;
}

int parseDateTime(const char* text, int parts[6])
{
    static const char SEPARATORS[] = "--T::";
    const char* p = text;
    for (int i = 0; i < 6; ++i) {
        char digits[8];
        size_t n = 0;
        while (p[n] >= '0' && p[n] <= '9' && n < sizeof digits - 1)
            ++n;
        memcpy(digits, p, n);
        digits[n] = 0;
        long v;
        if (!n || !parseNumber(digits, 0, 9999, &v))
            return 0;
        parts[i] = (int)v;
        p += n;
        if (i < 5 && *p++ != SEPARATORS[i])
            return 0;
    }
    if (*p == '.')
        for (++p; *p >= '0' && *p <= '9'; ++p) {}
    if (*p == 'Z')
        ++p;
    return *p == 0;
}

Read requestNumber(const char* key, long min, long max, long* out)
{
    char text[32];
    Read r = requestText(key, text, sizeof text);
    if (r != Read::Value)
        return r;
    return parseNumber(text, min, max, out) ? Read::Value : refused(key);
}

Read requestDecimal(const char* key, double min, double max, double* out)
{
    char text[40];
    Read r = requestText(key, text, sizeof text);
    if (r != Read::Value)
        return r;
    return parseDecimal(text, min, max, out) ? Read::Value : refused(key);
}

Read requestBool(const char* key, int* out)
{
    char text[8];
    Read r = requestText(key, text, sizeof text);
    if (r != Read::Value)
        return r;
    return parseBool(text, out) ? Read::Value : refused(key);
}

void refuseRequestValue(const char* subcode2, const char* reason, const char* detail)
{
    writeSenderFault2("InvalidArgVal", subcode2, reason, detail);
}
