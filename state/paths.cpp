// Path resolution under ONVIF_ROOT and shell quoting.
#include "state/paths.h"

#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

const char* resolvePath(const char* path, char* out, size_t n)
{
    const char* root = getenv("ONVIF_ROOT");
    if (!root || path[0] != '/')
        root = "";
    // Joined by hand: every file a request opens comes through here.
    size_t rootLength = strlen(root), pathLength = strlen(path);
    if (!n)
        return out;
    // A cut path names another file: give none, so every use of it fails.
    if (rootLength + pathLength >= n) {
        out[0] = 0;
        return out;
    }
    memcpy(out, root, rootLength);
    memcpy(out + rootLength, path, pathLength + 1);
    return out;
}

FILE* fopenRoot(const char* path, const char* mode)
{
    char real[512];
    return fopen(resolvePath(path, real, sizeof real), mode);
}

int shellQuote(const char* text, char* out, size_t n)
{
    size_t o = 0;
    if (n < 3)
        return 0;
    out[o++] = '\'';
    for (const char* p = text; *p; ++p) {
        if (*p == '\'') {
            if (o + 4 >= n) { out[0] = 0; return 0; }
            memcpy(out + o, "'\\''", 4);
            o += 4;
        } else {
            if (o + 1 >= n) { out[0] = 0; return 0; }
            out[o++] = *p;
        }
    }
    if (o + 2 > n) { out[0] = 0; return 0; }
    out[o++] = '\'';
    out[o] = 0;
    return 1;
}

int shellQuotedPath(const char* path, char* out, size_t n)
{
    char real[512];
    return shellQuote(resolvePath(path, real, sizeof real), out, n);
}

int isSafeFileToken(const char* token)
{
    if (!token || !*token || strstr(token, ".."))
        return 0;
    for (const char* p = token; *p; ++p) {
        char c = *p;
        if (!((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
              c == '-' || c == '_' || c == '.'))
            return 0;
    }
    return strcmp(token, ".") != 0;
}

// A format of plain text and %s only (the paths and file names) joined by
// hand, as vsnprintf would: its set-up costs more than the copy. -2 when
// the format holds anything else.
static int joinTexts(char* out, size_t n, const char* fmt, va_list ap)
{
    for (const char* p = strchr(fmt, '%'); p; p = strchr(p + 2, '%'))
        if (p[1] != 's')
            return -2;
    size_t o = 0;
    for (const char* p = fmt; *p; ++p) {
        const char* piece = p;
        size_t length = 1;
        if (p[0] == '%') {
            piece = va_arg(ap, const char*);
            if (!piece)
                piece = "(null)";
            length = strlen(piece);
            ++p;
        }
        for (size_t i = 0; i < length; ++i, ++o)
            if (o + 1 < n)
                out[o] = piece[i];
    }
    if (n)
        out[o < n ? o : n - 1] = 0;
    return o > (size_t)0x7fffffff ? -1 : (int)o;
}

int formatChecked(char* out, size_t n, const char* fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    int written = joinTexts(out, n, fmt, ap);
    va_end(ap);
    if (written == -2) {
        va_start(ap, fmt);
        written = vsnprintf(out, n, fmt, ap);
        va_end(ap);
    }
    if (written >= 0 && (size_t)written < n)
        return 1;
    if (n)
        out[0] = 0;
    return 0;
}
