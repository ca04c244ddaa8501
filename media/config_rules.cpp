// Media configuration kinds, listings, token lookups and the one generic setter
// (all values checked before the file is rewritten and the programs run once).
#include "media/config_rules.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "media/media_options.h"
#include "media/printers.h"
#include "state/checkers.h"
#include "state/command.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <string.h>

const ConfigKind VIDEO_SOURCE_KIND = {
    ONVIF_WEB_DIR "VideoSourceConf.conf", "ONVIF_VIDEO_SOURCE_CONF", ".VSConf", ONVIF_DIR,
    Read_Print_VideoSourceFile, "VideoSourceConfiguration does not exist",
    "The VideoSourceConfiguration indicated by the ConfigurationToken does not exist"};
// Audio source configurations are the one kind kept beside their list.
const ConfigKind AUDIO_SOURCE_KIND = {
    ONVIF_WEB_DIR "AudioSourceConf.conf", "ONVIF_AUDIO_SOURCE_CONF", ".ASConf", ONVIF_WEB_DIR,
    Read_Print_AudioSourceFile, "AudioSourceConfiguration does not exist",
    "The AudioSourceConfiguration indicated by the ConfigurationToken does not exist"};
const ConfigKind VIDEO_ENCODER_KIND = {
    ONVIF_WEB_DIR "VideoEncoder.conf", "ONVIF_VIDEO_ENCODER_CONF", ".VEncoder", ONVIF_DIR,
    Read_Print_VideoEncoderFile, "VideoEncoderConfiguration does not exist",
    "The VideoEncoderConfiguration indicated by the ConfigurationToken does not exist"};
const ConfigKind AUDIO_ENCODER_KIND = {
    ONVIF_WEB_DIR "AudioEncoder.conf", "ONVIF_AUDIO_ENCODER_CONF", ".AEncoder", ONVIF_DIR,
    Read_Print_AudioEncoderFile, "AudioEncoderConfiguration does not exist",
    "The AudioEncoderConfiguration indicated by the ConfigurationToken does not exist"};

// The token of a list line is its file name up to the first '.'; lines that
// could not name a file of the store are skipped.
static int listLineToken(char* line, const ConfigKind* kind, char* token, size_t n)
{
    line[strcspn(line, "\r\n")] = 0;
    size_t len = strcspn(line, ".");
    if (!line[0] || !isSafeFileToken(line) || len >= n || strcmp(line + len, kind->suffix) != 0)
        return 0;
    memcpy(token, line, len);
    token[len] = 0;
    return 1;
}

void appendConfigurationList(const ConfigKind* kind, const char* element)
{
    FILE* list = fopenRoot(kind->listFile, "r");
    if (!list) {
        logServiceError("appendConfigurationList", "%s missing", kind->listMacro);
        return;
    }
    char line[256], token[CONFIG_TOKEN_MAX + 1];
    while (fgets(line, sizeof line, list)) {
        if (!listLineToken(line, kind, token, sizeof token))
            continue;
        appendResponse("<%s token=\"%s\">", element, token);
        kind->printBody(line);
        appendResponse("</%s>", element);
    }
    fclose(list);
}

void writeNoConfigFault(const ConfigKind* kind)
{
    refuseRequestValue("NoConfig", kind->noConfigReason, kind->noConfigDetail);
}

int requestListedConfiguration(const ConfigKind* kind, const char* key, char* token, size_t tokenSize,
                               char* fileName, size_t fileSize, const char* handler)
{
    int read = key[0] == '@' ? requestAttribute(key + 1, 0, token, tokenSize) : requestToken(key, token, tokenSize);
    int written = snprintf(fileName, fileSize, "%s%s", token, kind->suffix);
    if (read != VALUE_READ || !isSafeFileToken(token) || written < 0 || (size_t)written >= fileSize ||
        !isListedConfiguration(kind->listFile, fileName, handler, kind->listMacro)) {
        writeNoConfigFault(kind);
        return 0;
    }
    return 1;
}

int requestOptionalConfiguration(const ConfigKind* kind, char* token, size_t tokenSize, char* fileName,
                                 size_t fileSize, const char* handler)
{
    if (requestText("trt:ConfigurationToken", token, tokenSize) == VALUE_ABSENT) {
        token[0] = 0;
        fileName[0] = 0;
        return 1;
    }
    return requestListedConfiguration(kind, "trt:ConfigurationToken", token, tokenSize, fileName, fileSize, handler);
}

int requestProfile(char* fileName, size_t n)
{
    char token[PROFILE_TOKEN_MAX + 1];
    if (requestToken("trt:ProfileToken", token, sizeof token) == VALUE_READ &&
        findProfile(token, fileName, n) == PROFILE_FOUND)
        return 1;
    writeNoProfileFault();
    return 0;
}

int requestOptionalProfile(char* fileName, size_t n)
{
    char token[PROFILE_TOKEN_MAX + 1];
    if (requestText("trt:ProfileToken", token, sizeof token) == VALUE_ABSENT) {
        fileName[0] = 0;
        return 1;
    }
    return requestProfile(fileName, n);
}

void answerConfigurationList(const ConfigKind* kind, const char* action, int listed)
{
    setResponse("<trt:%sResponse>", action);
    if (listed)
        appendConfigurationList(kind, "trt:Configurations");
    appendResponse("</trt:%sResponse>", action);
}

void answerOneConfiguration(const ConfigKind* kind, const char* action)
{
    char token[CONFIG_TOKEN_MAX + 1], fileName[CONFIG_TOKEN_MAX + 16];
    if (!requestListedConfiguration(kind, "trt:ConfigurationToken", token, sizeof token, fileName,
                                    sizeof fileName, action))
        return;
    setResponse("<trt:%sResponse><trt:Configuration token=\"%s\">", action, token);
    kind->printBody(fileName);
    appendResponse("</trt:Configuration></trt:%sResponse>", action);
}

void appendOptionRange(const char* element, const char* range)
{
    long min = 0, max = 0;
    parseOptionRange(range, &min, &max);
    char numbers[80];
    snprintf(numbers, sizeof numbers, "<tt:Min>%ld</tt:Min><tt:Max>%ld</tt:Max>", min, max);
    appendResponse("<tt:%s>", element);
    appendMarkup(numbers);
    appendResponse("</tt:%s>", element);
}

int collectSourceTokens(const ConfigKind* kind, char (*tokens)[CONFIG_TOKEN_MAX + 1], int max)
{
    FILE* list = fopenRoot(kind->listFile, "r");
    if (!list)
        return 0;
    char line[256], token[CONFIG_TOKEN_MAX + 1], path[320], source[CONFIG_TOKEN_MAX + 1];
    int count = 0;
    while (count < max && fgets(line, sizeof line, list)) {
        if (!listLineToken(line, kind, token, sizeof token))
            continue;
        snprintf(path, sizeof path, "%s%s", kind->dir, line);
        if (!readSettingValue(path, "SourceToken=", source, sizeof source) || !isSafeFileToken(source))
            continue;
        int seen = 0;
        for (int i = 0; i < count && !seen; ++i)
            seen = strcmp(tokens[i], source) == 0;
        if (!seen)
            snprintf(tokens[count++], CONFIG_TOKEN_MAX + 1, "%s", source);
    }
    fclose(list);
    return count;
}

int isKnownSourceToken(const ConfigKind* kind, const char* token)
{
    char tokens[MAX_SOURCES][CONFIG_TOKEN_MAX + 1];
    int count = collectSourceTokens(kind, tokens, MAX_SOURCES);
    for (int i = 0; i < count; ++i)
        if (strcmp(tokens[i], token) == 0)
            return 1;
    return 0;
}

int cameraHasAudio()
{
    return shmWord(AUDIO_INPUTS_WORD) > 0;
}

int refuseWithoutAudio()
{
    if (cameraHasAudio())
        return 0;
    writeAudioNotSupportedFault();
    return 1;
}

void writeAudioNotSupportedFault()
{
    writeReceiverFault2("ActionNotSupported", "AudioNotSupported", "Audio is not supported",
                        "The device does not support audio");
}

// --- The generic setter ---

const char* settingValue(const SettingContext* ctx, const char* key)
{
    for (int i = 0; i < ctx->count; ++i)
        if (ctx->rules[i].key && strcmp(ctx->rules[i].key, key) == 0)
            return ctx->value[i];
    return "";
}

int settingGiven(const SettingContext* ctx, const char* key)
{
    for (int i = 0; i < ctx->count; ++i)
        if (ctx->rules[i].key && strcmp(ctx->rules[i].key, key) == 0 && ctx->given[i])
            return 1;
    return 0;
}

// Several rules may write one key (the H.264 and MPEG-4 profiles); the first
// of them speaks for the key.
static int firstRuleOfKey(const SettingContext* ctx, int i)
{
    for (int j = 0; j < i; ++j)
        if (ctx->rules[j].key && strcmp(ctx->rules[j].key, ctx->rules[i].key) == 0)
            return 0;
    return 1;
}

static int ruleChanged(const SettingContext* ctx, int i)
{
    return ctx->rules[i].key && ctx->given[i] && strcmp(ctx->value[i], ctx->fileValue[i]) != 0;
}

static void refuseSetting()
{
    refuseRequestValue("ConfigModify", "The configuration parameters are not possible to set",
                       "A value of the configuration is outside what this camera can take");
}

// Reads and checks one rule's request value; 0 refuses.
static int readRule(SettingContext* ctx, int i)
{
    const SettingRule* rule = &ctx->rules[i];
    char text[CONFIG_VALUE_SIZE], option[OPTION_TEXT_SIZE] = "";
    int read = rule->element[0] == '@' ? requestAttribute(rule->element + 1, 0, text, sizeof text)
                                       : requestText(rule->element, text, sizeof text);
    if (read == VALUE_ABSENT)
        return 1;
    if (read != VALUE_READ || hasLineBreak(text))
        return 0;
    if (rule->option && !(ctx->optionValue && ctx->optionValue(ctx, rule->option, option, sizeof option)))
        return 0;
    if (rule->check(text, ctx, option))
        return 0;
    ctx->given[i] = 1;
    if (!rule->key)
        return 1;
    // Every rule of the key carries the value, so the first of them can speak for it.
    for (int j = 0; j < ctx->count; ++j) {
        if (ctx->rules[j].key && strcmp(ctx->rules[j].key, rule->key) == 0) {
            snprintf(ctx->value[j], CONFIG_VALUE_SIZE, "%s", text);
            ctx->given[j] = 1;
        }
    }
    return 1;
}

static int replaceChangedLines(const char* line, FILE* out, void* data)
{
    const SettingContext* ctx = (const SettingContext*)data;
    if (!line)
        return 0;
    for (int i = 0; i < ctx->count; ++i) {
        const char* key = ctx->rules[i].key;
        size_t len = key ? strlen(key) : 0;
        if (ruleChanged(ctx, i) && strncmp(line, key, len) == 0 && line[len] == '=') {
            fprintf(out, "%s=%s\n", key, ctx->value[i]);
            return 1;
        }
    }
    return 0;
}

// "action=update" and every changed camera parameter; 0 when it would not fit.
static int buildSettingsQuery(const SettingContext* ctx, char* query, size_t n, int* parameters)
{
    *parameters = 0;
    snprintf(query, n, "%s", "action=update");
    for (int i = 0; i < ctx->count; ++i) {
        if (!ruleChanged(ctx, i) || !ctx->rules[i].parameter || !firstRuleOfKey(ctx, i))
            continue;
        char name[96];
        int written = snprintf(name, sizeof name, "%s%s", ctx->parameterPrefix, ctx->rules[i].parameter);
        if (written < 0 || (size_t)written >= sizeof name || !appendQueryParam(query, n, name, ctx->value[i]))
            return 0;
        ++*parameters;
    }
    return 1;
}

int applySettingRules(SettingContext* ctx)
{
    if (ctx->count > MAX_SETTING_RULES)
        return SETTING_FAILED;
    const char* keys[MAX_SETTING_RULES];
    for (int i = 0; i < ctx->count; ++i) {
        keys[i] = ctx->rules[i].key ? ctx->rules[i].key : "";
        ctx->given[i] = 0;
    }
    if (!readConfigValues(ctx->path, keys, ctx->fileValue, ctx->count))
        return SETTING_NO_FILE;
    memcpy(ctx->value, ctx->fileValue, sizeof ctx->value);
    for (int i = 0; i < ctx->count; ++i) {
        if (!readRule(ctx, i)) {
            refuseSetting();
            return SETTING_REFUSED;
        }
    }
    if (ctx->checkTogether && ctx->checkTogether(ctx)) {
        refuseSetting();
        return SETTING_REFUSED;
    }
    int changed = 0, restart = 0, parameters = 0;
    for (int i = 0; i < ctx->count; ++i) {
        if (ruleChanged(ctx, i)) {
            changed = 1;
            restart |= ctx->rules[i].restartsStream;
        }
    }
    if (!changed)
        return SETTING_DONE;
    char query[2048];
    if (!buildSettingsQuery(ctx, query, sizeof query, &parameters))
        return SETTING_FAILED;
    if (rewriteFileThroughWorkCopy(ctx->path, replaceChangedLines, ctx) != 0) {
        answerStoreFailure(ctx->path);
        return SETTING_FAILED;
    }
    if (parameters)
        runSettingsProgram(query);
    if (restart)
        runCameraProgramWith("h264/restart_stream.cgi", 0, 0);
    return SETTING_DONE;
}

// --- Checkers rules share ---

// The character rule of profile names, up to the length of an ONVIF name.
int checkConfigurationName(char* value, const SettingContext*, const char*)
{
    return !value[0] || strlen(value) > 64 || CheckChar_including_space(value);
}

int checkWholeInOptionRange(char* value, const SettingContext*, const char* option)
{
    long min, max, v;
    return !parseOptionRange(option, &min, &max) || !parseNumber(value, min, max, &v);
}

int checkInOptionList(char* value, const SettingContext*, const char* option)
{
    return !optionListHas(option, value);
}

int checkAddressType(char* value, const SettingContext*, const char*) { return CheckType(value); }
int checkMulticastIPv4(char* value, const SettingContext*, const char*) { return !isStrictIPv4(value); }
int checkMulticastIPv6(char* value, const SettingContext*, const char*) { return !isIPv6Literal(value); }
int checkPort(char* value, const SettingContext*, const char*) { return CheckPortRange(value); }
int checkTTL(char* value, const SettingContext*, const char*) { return CheckTTLRange(value); }
int checkAutoStart(char* value, const SettingContext*, const char*) { return CheckBool(value); }
int checkSessionTimeout(char* value, const SettingContext*, const char*) { return !isXmlDuration(value); }

int checkForcePersistence(char* value, const SettingContext*, const char*)
{
    int flag;
    return !parseBool(value, &flag);
}
