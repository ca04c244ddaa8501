// The answer writer: G_Response with its length kept, every text argument
// XML-escaped on the way in, and an overflow that becomes a fault, never a
// cut body.
#include "frame/frame.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

char G_Response[G_RESPONSE_SIZE];
static size_t responseLength;
static int responseOverflow;

// What a text must not hold as it is, in an element or a double-quoted
// attribute. Apostrophes and a '>' stay, as the camera's own texts have them
// (a '>' that would close "]]>" does not).
static const char* entityOf(const char* p, const char* start)
{
    switch (*p) {
    case '<': return "&lt;";
    case '&': return "&amp;";
    case '"': return "&quot;";
    case '>': return p - start >= 2 && p[-1] == ']' && p[-2] == ']' ? "&gt;" : 0;
    default: return 0;
    }
}

// Appends n bytes as they are; 0 (and the overflow mark) when they do not fit.
static int put(const char* text, size_t n)
{
    if (responseOverflow || responseLength + n >= sizeof G_Response) {
        responseOverflow = 1;
        return 0;
    }
    memcpy(G_Response + responseLength, text, n);
    responseLength += n;
    G_Response[responseLength] = 0;
    return 1;
}

static int putEscaped(const char* text)
{
    static const char SPECIAL[] = "<&\">";
    const char* run = text;
    for (const char* p = text + strcspn(text, SPECIAL); *p; p += 1 + strcspn(p + 1, SPECIAL)) {
        const char* entity = entityOf(p, text);
        if (!entity)
            continue;
        if (!put(run, (size_t)(p - run)) || !put(entity, strlen(entity)))
            return 0;
        run = p + 1;
    }
    return put(run, strlen(run));
}

// The conversions below are copied out of the caller's literal format,
// which the compiler has checked against the arguments.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

// printf's conversions, except that every %s argument is escaped: the
// format is the markup, the arguments are always text.
static void vappend(const char* fmt, va_list ap)
{
    const char* run = fmt;
    // The markup between conversions is long and plain: find each '%' at once.
    for (const char* p = strchr(fmt, '%'); p; p = strchr(p + 1, '%')) {
        if (!put(run, (size_t)(p - run)))
            return;
        const char* start = p++;
        if (*p == '%') {
            put("%", 1);
            run = p + 1;
            continue;
        }
        while (*p == '-' || *p == '+' || *p == ' ' || *p == '#' || *p == '0')
            ++p;
        while (*p >= '0' && *p <= '9')
            ++p;
        if (*p == '.')
            for (++p; *p >= '0' && *p <= '9'; ++p) {}
        int longs = 0;
        while (*p == 'l' || *p == 'h' || *p == 'z') {
            if (*p == 'l') ++longs;
            if (*p == 'z') longs = 3;
            ++p;
        }
        char conversion[32];
        size_t conversionLength = (size_t)(p - start) + 1;
        if (!*p || conversionLength >= sizeof conversion) {
            responseOverflow = 1;  // a format this writer does not know: refuse, never guess
            return;
        }
        if (*p == 's') {
            const char* text = va_arg(ap, const char*);
            if (!putEscaped(text ? text : ""))
                return;
            run = p + 1;
            continue;
        }
        memcpy(conversion, start, conversionLength);
        conversion[conversionLength] = 0;
        char piece[512];
        int n = 0;
        switch (*p) {
        case 'd': case 'i': case 'u': case 'x': case 'X': case 'c':
            if (longs == 3)
                n = snprintf(piece, sizeof piece, conversion, va_arg(ap, size_t));
            else if (longs == 2)
                n = snprintf(piece, sizeof piece, conversion, va_arg(ap, long long));
            else if (longs == 1)
                n = snprintf(piece, sizeof piece, conversion, va_arg(ap, long));
            else
                n = snprintf(piece, sizeof piece, conversion, va_arg(ap, int));
            break;
        case 'f': case 'g': case 'e': case 'G': case 'E':
            n = snprintf(piece, sizeof piece, conversion, va_arg(ap, double));
            break;
        default:
            responseOverflow = 1;
            return;
        }
        if (n < 0 || (size_t)n >= sizeof piece || !put(piece, (size_t)n))
            return;
        run = p + 1;
    }
    put(run, strlen(run));
}

void appendResponse(const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    vappend(fmt, ap);
    va_end(ap);
}

void setResponse(const char* fmt, ...)
{
    clearResponse();
    va_list ap;
    va_start(ap, fmt);
    vappend(fmt, ap);
    va_end(ap);
}

void appendMarkup(const char* markup)
{
    put(markup, strlen(markup));
}

void appendElement(const char* tag, const char* text)
{
    put("<", 1);
    put(tag, strlen(tag));
    put(">", 1);
    putEscaped(text ? text : "");
    put("</", 2);
    put(tag, strlen(tag));
    put(">", 1);
}

void appendBetween(const char* openMarkup, const char* text, const char* closeMarkup)
{
    appendMarkup(openMarkup);
    putEscaped(text ? text : "");
    appendMarkup(closeMarkup);
}

void clearResponse()
{
    G_Response[0] = 0;
    responseLength = 0;
    responseOverflow = 0;
}

size_t responseMark()
{
    return responseLength;
}

void appendResponsePart(size_t from, size_t to)
{
    if (from < to && to <= responseLength)
        put(G_Response + from, to - from);
}

int responseOverflowed()
{
    return responseOverflow;
}

static long appendFileLines(FILE* f, size_t reserve, int escaped)
{
    char piece[1024];
    long start = ftell(f), taken = start;
    size_t lineStart = responseLength;
    const int overflowBefore = responseOverflow;
    while (fgets(piece, sizeof piece, f)) {
        size_t n = strlen(piece);
        int fits = !responseOverflow && (escaped ? putEscaped(piece) : put(piece, n)) &&
                   responseLength + reserve < G_RESPONSE_SIZE;
        if (!fits) {
            // The line that does not fit goes whole, not in part.
            responseLength = lineStart;
            G_Response[responseLength] = 0;
            responseOverflow = overflowBefore;
            return taken - start;
        }
        if (n > 0 && piece[n - 1] == '\n') {
            taken = ftell(f);
            lineStart = responseLength;
        }
    }
    return ftell(f) - start;  // a last line without its line feed ends the file
}

long appendFileTextToResponse(FILE* f, size_t reserve)
{
    return appendFileLines(f, reserve, 1);
}

long appendMarkupFileToResponse(FILE* f, size_t reserve)
{
    return appendFileLines(f, reserve, 0);
}

const char* xmlEscape(const char* text, char* out, size_t n)
{
    size_t o = 0;
    if (n == 0)
        return out;
    for (const char* p = text; *p; ++p) {
        const char* entity = entityOf(p, text);
        size_t len = entity ? strlen(entity) : 1;
        if (o + len >= n)
            break;
        if (entity)
            memcpy(out + o, entity, len);
        else
            out[o] = *p;
        o += len;
    }
    out[o] = 0;
    return out;
}
