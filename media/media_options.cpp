// One reader for the model's media options files, so that a new camera model
// or variant is a new file in factory/, not new code.
#include "media/media_options.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// Variants 9, 30 and those above 11 carry other sensors or encoder sets than
// their model's base file describes.
static int existingOptionsFile(const char* name, const char* kind, char* path, size_t n)
{
    int written = snprintf(path, n, MEDIA_OPTIONS_DIR "%s%s", name, kind);
    if (written < 0 || (size_t)written >= n)
        return 0;
    FILE* f = fopenRoot(path, "r");
    if (!f)
        return 0;
    fclose(f);
    return 1;
}

static int optionsFilePath(const char* kind, char* path, size_t n)
{
    char name[48];
    int model = shmWord(MODEL_CODE_WORD), variant = shmWord(VARIANT_CODE);
    snprintf(name, sizeof name, "model%d-variant%d", model, variant);
    if (modelHas(Cap::MediaVariantOptions) && existingOptionsFile(name, kind, path, n))
        return 1;
    snprintf(name, sizeof name, "model%d", model);
    if (existingOptionsFile(name, kind, path, n) || existingOptionsFile("default", kind, path, n))
        return 1;
    logServiceError("readMediaOption", "%s%s missing", MEDIA_OPTIONS_DIR "default", kind);
    return 0;
}

int readMediaOption(const char* kind, const char* entry, char* out, size_t n)
{
    char path[256], key[96];
    if (n)
        out[0] = 0;
    int written = snprintf(key, sizeof key, "%s=", entry);
    if (written < 0 || (size_t)written >= sizeof key || !optionsFilePath(kind, path, sizeof path))
        return 0;
    return readSettingValue(path, key, out, n);
}

int readChannelOption(int channel, const char* name, char* out, size_t n)
{
    char entry[80];
    int written = snprintf(entry, sizeof entry, "Channel%d.%s", channel, name);
    if (written < 0 || (size_t)written >= sizeof entry) {
        if (n)
            out[0] = 0;
        return 0;
    }
    return readMediaOption(VIDEO_OPTIONS, entry, out, n);
}

static int parseWhole(const char* text, size_t len, long* out)
{
    if (len == 0 || len > 9)
        return 0;
    long v = 0;
    for (size_t i = 0; i < len; ++i) {
        if (text[i] < '0' || text[i] > '9')
            return 0;
        v = v * 10 + (text[i] - '0');
    }
    *out = v;
    return 1;
}

int parseOptionRange(const char* text, long* min, long* max)
{
    const char* dash = strchr(text, '-');
    return dash && parseWhole(text, (size_t)(dash - text), min) && parseWhole(dash + 1, strlen(dash + 1), max) &&
           *min <= *max;
}

int nextOptionItem(const char** cursor, char* out, size_t n)
{
    const char* p = *cursor;
    if (!*p || strcmp(p, "NONE") == 0)
        return 0;
    size_t len = strcspn(p, ",");
    if (len == 0 || len >= n)
        return 0;
    memcpy(out, p, len);
    out[len] = 0;
    *cursor = p[len] ? p + len + 1 : p + len;
    return 1;
}

int optionListHas(const char* list, const char* item)
{
    char each[64];
    const char* cursor = list;
    while (nextOptionItem(&cursor, each, sizeof each))
        if (strcmp(each, item) == 0)
            return 1;
    return 0;
}

int parseResolution(const char* text, long* width, long* height)
{
    const char* x = strchr(text, 'x');
    return x && parseWhole(text, (size_t)(x - text), width) && parseWhole(x + 1, strlen(x + 1), height);
}

int encoderChannel(const char* token)
{
    static const char prefix[] = "VideoEncoder";
    long channel = 0;
    if (strncmp(token, prefix, sizeof prefix - 1) != 0)
        return 0;
    const char* digits = token + sizeof prefix - 1;
    if (!parseWhole(digits, strlen(digits), &channel) || channel < 1 || channel > 99)
        return 0;
    return (int)channel;
}
