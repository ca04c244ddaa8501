// The settings-rule engine: read every row, check all, agree, then one
// rewrite of the file and one call of the settings program.
#include "state/setting_rules.h"
#include "state/checkers.h"
#include "state/command.h"
#include "state/config.h"
#include "state/netaddr.h"
#include "state/paths.h"
#include "state/profiles.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int rowOfKey(const SettingTable* t, const char* key)
{
    for (int i = 0; i < t->count; ++i)
        if (t->rows[i].key && strcmp(t->rows[i].key, key) == 0)
            return i;
    return -1;
}

const char* settingValue(const SettingValues* v, const char* key)
{
    int i = rowOfKey(v->table, key);
    return i < 0 ? "" : v->value[i];
}

int settingGiven(const SettingValues* v, const char* key)
{
    const SettingTable* t = v->table;
    for (int i = 0; i < t->count; ++i)
        if (t->rows[i].key && strcmp(t->rows[i].key, key) == 0 && v->given[i])
            return 1;
    return 0;
}

void settingStored(SettingValues* v, const char* key, const char* value)
{
    const SettingTable* t = v->table;
    for (int i = 0; i < t->count; ++i) {
        if (!t->rows[i].key || strcmp(t->rows[i].key, key) != 0)
            continue;
        snprintf(v->stored[i], SETTING_VALUE_SIZE, "%s", value);
        if (!v->given[i])
            snprintf(v->value[i], SETTING_VALUE_SIZE, "%s", value);
    }
}

static int loadStored(const SettingTable* t, SettingValues* v)
{
    static char values[MAX_SETTING_ROWS][CONFIG_VALUE_SIZE];
    const char* keys[MAX_SETTING_ROWS];
    for (int i = 0; i < t->count; ++i)
        keys[i] = t->rows[i].key ? t->rows[i].key : "";
    if (!readConfigValues(t->path, keys, values, t->count))
        return 0;
    static_assert(CONFIG_VALUE_SIZE <= SETTING_VALUE_SIZE, "a stored value fits a setting value");
    for (int i = 0; i < t->count; ++i) {
        memcpy(v->stored[i], values[i], CONFIG_VALUE_SIZE);
        memcpy(v->value[i], values[i], CONFIG_VALUE_SIZE);
    }
    return 1;
}

// Reads and checks one row's value; 0 refuses.
static int takeRow(const SettingTable* t, SettingValues* v, int i)
{
    const SettingRow* row = &t->rows[i];
    char text[SETTING_VALUE_SIZE], bound[SETTING_VALUE_SIZE] = "";
    size_t n = t->valueSize && t->valueSize < sizeof text ? t->valueSize : sizeof text;
    SettingRead read = t->read(row, text, n, t->ctx);
    if (read == SettingRead::Absent)
        return 1;
    if (read != SettingRead::Value || hasLineBreak(text))
        return 0;
    if (row->option) {
        if (!t->optionText)
            snprintf(bound, sizeof bound, "%s", row->option);
        else if (!t->optionText(row, bound, sizeof bound, t->ctx))
            return 0;
    }
    if (row->check(text, row, bound, t->ctx))
        return 0;
    v->given[i] = 1;
    if (!row->key)
        return 1;
    // Several rows may write one key (the H.264 and MPEG-4 profiles): every
    // row of the key carries the value, so the first of them speaks for it.
    for (int j = 0; j < t->count; ++j) {
        if (t->rows[j].key && strcmp(t->rows[j].key, row->key) == 0) {
            snprintf(v->value[j], SETTING_VALUE_SIZE, "%s", text);
            v->given[j] = 1;
        }
    }
    return 1;
}

// A given value that goes to the file and the program: every given one, or
// only those that differ from the stored value.
static int rowPassed(const SettingTable* t, const SettingValues* v, int i)
{
    if (!t->rows[i].key || !v->given[i])
        return 0;
    return (t->flags & SETTINGS_PASS_UNCHANGED) || strcmp(v->value[i], v->stored[i]) != 0;
}

static int firstRowOfKey(const SettingTable* t, int i)
{
    return rowOfKey(t, t->rows[i].key) == i;
}

static int parameterText(const SettingRow* row, const char* value, char* out, size_t n)
{
    switch (row->form) {
    case FORM_YES_NO:
        return formatChecked(out, n, "%s", strcmp(value, "true") == 0 ? "yes" : "no");
    case FORM_BOOT_PROTOCOL:
        return formatChecked(out, n, "%s", strcmp(value, "true") == 0 ? "dhcp" : "none");
    case FORM_PREFIX_AS_MASK:
        return prefixToMask(atol(value), out, n);
    case FORM_AS_GIVEN:
    default:
        return formatChecked(out, n, "%s", value);
    }
}

// "action=update" and every passed parameter; 0 when it would not fit.
static int buildQuery(const SettingTable* t, const SettingValues* v, char* query, size_t n, int* parameters)
{
    *parameters = 0;
    snprintf(query, n, "%s", "action=update");
    for (int i = 0; i < t->count; ++i) {
        const SettingRow* row = &t->rows[i];
        if (!row->parameter || !rowPassed(t, v, i) || !firstRowOfKey(t, i))
            continue;
        char name[96], text[SETTING_VALUE_SIZE];
        if (!formatChecked(name, sizeof name, "%s%s", t->parameterPrefix ? t->parameterPrefix : "", row->parameter) ||
            !parameterText(row, v->value[i], text, sizeof text) || !appendQueryParam(query, n, name, text))
            return 0;
        ++*parameters;
    }
    return 1;
}

struct Rewrite {
    const SettingTable* table;
    const SettingValues* values;
    int written[MAX_SETTING_ROWS];
};

static int replacePassedLines(const char* line, FILE* out, void* data)
{
    Rewrite* w = (Rewrite*)data;
    const SettingTable* t = w->table;
    if (!line) {
        // The rewrite never adds a key: where keys must exist, a value with no
        // line to go to gives the whole rewrite up rather than store half a request.
        if (t->flags & SETTINGS_KEYS_MUST_EXIST)
            for (int i = 0; i < t->count; ++i)
                if (rowPassed(t, w->values, i) && !w->written[i])
                    return -1;
        return 0;
    }
    int ofRow = 0;
    for (int i = 0; i < t->count; ++i) {
        const char* key = t->rows[i].key;
        size_t len = key ? strlen(key) : 0;
        if (!key || strncmp(line, key, len) != 0 || line[len] != '=')
            continue;
        if (rowPassed(t, w->values, i)) {
            fprintf(out, "%s=%s\n", key, w->values->value[i]);
            w->written[i] = 1;
            return 1;
        }
        ofRow = 1;
    }
    if (ofRow || !(t->flags & SETTINGS_OTHER_LINES_AS_FORMATTED))
        return 0;
    copyLineAsFormatted(line, out);
    return 1;
}

SettingOutcome applySettings(const SettingTable* t, SettingValues* v)
{
    memset(v, 0, sizeof *v);
    v->table = t;
    if (t->count > MAX_SETTING_ROWS)
        return SETTINGS_NOT_WRITTEN;
    if ((t->flags & SETTINGS_LOAD_FIRST) && !loadStored(t, v))
        return SETTINGS_NOT_LOADED;
    for (int i = 0; i < t->count; ++i) {
        if (!takeRow(t, v, i)) {
            t->refuse(&t->rows[i], t->ctx);
            return SETTINGS_REFUSED;
        }
    }
    if (t->agree && !t->agree(v, t->ctx))
        return SETTINGS_REFUSED;

    int passed = 0;
    for (int i = 0; i < t->count; ++i) {
        if (!rowPassed(t, v, i))
            continue;
        passed = 1;
        if ((t->rows[i].flags & SETTING_RESTARTS) && strcmp(v->value[i], v->stored[i]) != 0)
            v->restart = 1;
    }
    if (!passed && !(t->flags & SETTINGS_ALWAYS_REWRITE))
        return SETTINGS_DONE;
    char query[2048];
    size_t querySize = t->querySize && t->querySize < sizeof query ? t->querySize : sizeof query;
    int parameters;
    if (!buildQuery(t, v, query, querySize, &parameters))
        return SETTINGS_QUERY_TOO_LONG;
    static Rewrite w;
    memset(&w, 0, sizeof w);
    w.table = t;
    w.values = v;
    int r = rewriteFileThroughWorkCopy(t->path, replacePassedLines, &w);
    if (r != 0)
        return r == -2 ? SETTINGS_KEY_MISSING : r == WORK_COPY_FAILED ? SETTINGS_STORE_FAILED : SETTINGS_NOT_WRITTEN;
    if (parameters)
        runSettingsProgram(query);
    return SETTINGS_DONE;
}
