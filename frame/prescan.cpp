// The shape check of a request body before parsing. The parser's cost grows
// with the square of the nesting depth and of the attributes of one element,
// so a hostile body of 64 KB could take seconds; one linear pass here refuses
// such bodies first.
#include "frame/prescan.h"
#include "frame/xmlsearch.h"

#include <string.h>

// Offset just past the first occurrence of the terminator at or after from,
// or end when there is none (the parser then fails on the body anyway).
static size_t skipPast(const char* body, size_t from, size_t end, const char* terminator)
{
    size_t n = strlen(terminator);
    for (size_t i = from; i + n <= end; ++i) {
        const char* first = (const char*)memchr(body + i, terminator[0], end - i);
        if (!first)
            break;
        i = (size_t)(first - body);
        if (i + n <= end && memcmp(body + i, terminator, n) == 0)
            return i + n;
    }
    return end;
}

static int startsWith(const char* body, size_t at, size_t end, const char* prefix)
{
    size_t n = strlen(prefix);
    return at + n <= end && memcmp(body + at, prefix, n) == 0;
}

int bodyFitsParser(const char* body, size_t length)
{
    size_t end = strnlen(body, length);
    int depth = 0;
    size_t i = 0;
    while (i < end) {
        const char* tag = (const char*)memchr(body + i, '<', end - i);
        if (!tag)
            break;
        i = (size_t)(tag - body);
        // Only the character after '<' tells the forms apart.
        const char next = i + 1 < end ? body[i + 1] : 0;
        if (next == '!' && startsWith(body, i, end, "<!--")) {
            i = skipPast(body, i + 4, end, "-->");
        } else if (next == '!' && startsWith(body, i, end, "<![CDATA[")) {
            i = skipPast(body, i + 9, end, "]]>");
        } else if (next == '?') {
            i = skipPast(body, i + 2, end, "?>");
        } else if (next == '!') {
            i = skipPast(body, i + 2, end, ">");
        } else if (next == '/') {
            if (depth > 0)
                --depth;
            i = skipPast(body, i + 2, end, ">");
        } else {
            // A start tag: every attribute has its "=", so counting them
            // outside quoted values never counts fewer than the parser sees.
            int attributes = 0;
            char quote = 0;
            size_t j = i + 1;
            for (; j < end; ++j) {
                char c = body[j];
                if (quote) {
                    if (c == quote)
                        quote = 0;
                } else if (c == '"' || c == '\'') {
                    quote = c;
                } else if (c == '=') {
                    ++attributes;
                } else if (c == '>' || c == '<') {
                    break;
                }
            }
            if (attributes > XML_TABLE_ROWS)
                return 0;
            int empty = j < end && body[j] == '>' && body[j - 1] == '/';
            if (!empty && ++depth > MAX_BODY_DEPTH)
                return 0;
            i = j < end && body[j] == '>' ? j + 1 : j;
        }
    }
    return 1;
}
