// The profile index, profile files, configuration lists and use counts.
#include "state/profiles.h"
#include "state/config.h"
#include "state/paths.h"

#include <stdlib.h>
#include <string.h>

int findProfile(const char* token, char* fileName, size_t n)
{
    if (strlen(token) > PROFILE_TOKEN_MAX || !isSafeFileToken(token))
        return PROFILE_NOT_FOUND;
    char wanted[PROFILE_TOKEN_MAX + 16];
    snprintf(wanted, sizeof wanted, "%s.profile", token);
    FILE* f = fopenRoot(ONVIF_LODING_PROFILE_FILE, "r");
    if (!f)
        return PROFILE_INDEX_MISSING;
    char line[256], name[256];
    int found = PROFILE_NOT_FOUND;
    while (fgets(line, sizeof line, f)) {
        if (scanSettingLine(line, "profile filename=", name, sizeof name, 0) && strcmp(name, wanted) == 0) {
            found = PROFILE_FOUND;
            break;
        }
    }
    fclose(f);
    if (found)
        snprintf(fileName, n, "%s", wanted);
    return found;
}

FILE* openProfileFile(const char* fileName)
{
    char path[300];
    snprintf(path, sizeof path, ONVIF_DIR "%s", fileName);
    return fopenRoot(path, "r");
}

int readProfileField(const char* fileName, const char* key, char* out, size_t n)
{
    char path[300];
    snprintf(path, sizeof path, ONVIF_DIR "%s", fileName);
    return readSettingValue(path, key, out, n);
}

struct FieldEdit {
    const char* key;
    const char* value;
    char* oldValue;
    size_t oldSize;
};

static int replaceField(const char* line, FILE* out, void* ctx)
{
    FieldEdit* e = (FieldEdit*)ctx;
    if (!line || strncmp(line, e->key, strlen(e->key)) != 0)
        return 0;
    if (e->oldValue)
        scanSettingLine(line, e->key, e->oldValue, (int)e->oldSize, 0);
    fprintf(out, "%s%s\n", e->key, e->value);
    return 1;
}

int rewriteProfileField(const char* fileName, const char* key, const char* value, char* oldValue, size_t n)
{
    char path[300];
    snprintf(path, sizeof path, ONVIF_DIR "%s", fileName);
    if (oldValue && n)
        oldValue[0] = 0;
    FieldEdit e = {key, value, oldValue, n};
    return rewriteFileThroughWorkCopy(path, replaceField, &e);
}

int isListedConfiguration(const char* listFile, const char* fileName, const char* func, const char* listMacro)
{
    FILE* f = fopenRoot(listFile, "r");
    if (!f) {
        log_message_to_onvifErrorFile(1, "onvifService:[%s]:%s missing", func, listMacro);
        return 0;
    }
    char line[256];
    int listed = 0;
    while (!listed && fgets(line, sizeof line, f)) {
        line[strcspn(line, "\r\n")] = 0;
        listed = strcmp(line, fileName) == 0;
    }
    fclose(f);
    return listed;
}

struct CountEdit {
    int step;
};

static int stepUseCount(const char* line, FILE* out, void* ctx)
{
    if (!line)
        return 0;
    if (strstr(line, "UseCount=")) {
        char value[64] = "";
        scanSettingLine(line, "UseCount=", value, sizeof value, 0);
        fprintf(out, "UseCount=%d\n", atoi(value) + ((CountEdit*)ctx)->step);
    } else {
        copyLineAsFormatted(line, out);
    }
    return 1;
}

int Update_UseCount_withOneStep(const char* config_name, int add_or_minus, int directory)
{
    char path[300];
    snprintf(path, sizeof path, "%s%s", directory == 0 ? ONVIF_DIR : ONVIF_WEB_DIR, config_name);
    // A token that could lead out of the directory has no file of its own.
    char token[CONFIG_TOKEN_MAX + 16];
    snprintf(token, sizeof token, "%s", config_name);
    CountEdit e = {add_or_minus ? 1 : -1};
    if (!isSafeFileToken(token) || rewriteFileThroughWorkCopy(path, stepUseCount, &e) != 0)
        return log_message_to_onvifErrorFile(1, "[Update_UseCount_withOneStep]%s missing", path);
    return 0;
}

int addOneToUseCount(const char* config_name, int directory) { return Update_UseCount_withOneStep(config_name, 1, directory); }

int minusOneToUseCount(const char* config_name, int directory) { return Update_UseCount_withOneStep(config_name, 0, directory); }

int readConfigValues(const char* path, const char* const* keys, char (*values)[CONFIG_VALUE_SIZE], int count)
{
    for (int i = 0; i < count; ++i)
        values[i][0] = 0;
    SettingsLines r;
    if (!openSettingsLines(&r, path))
        return 0;
    // Measured once: every line is held against every key.
    size_t keyLengths[32];
    for (int i = 0; i < count && i < 32; ++i)
        keyLengths[i] = strlen(keys[i]);
    while (const char* line = nextSettingsLine(&r, 512)) {
        const char* eq = strchr(line, '=');
        if (!eq)
            continue;
        size_t keyLength = (size_t)(eq - line);
        for (int i = 0; i < count; ++i) {
            const char* key = keys[i];
            if ((i < 32 ? keyLengths[i] : strlen(key)) != keyLength || memcmp(key, line, keyLength) != 0)
                continue;
            // The rest of the line after the first '=', as scanSettingLine gives it.
            size_t v = 0;
            while (eq[1 + v] && eq[1 + v] != '\n' && v < CONFIG_VALUE_SIZE - 1) {
                values[i][v] = eq[1 + v];
                ++v;
            }
            values[i][v] = 0;
        }
    }
    closeSettingsLines(&r);
    return 1;
}

