// Media configuration kinds, listings, token lookups, and setting a
// configuration through the settings engine.
#include "media/config_kinds.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/setting_reads.h"
#include "media/media_options.h"
#include "media/printers.h"
#include "state/checkers.h"
#include "state/command.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <string.h>

// list, list name, suffix, directory, printer, NoConfig reason and detail,
// profile key, use-count directory, nothing-bound reason and detail, prefix
const ConfigKind VIDEO_SOURCE_KIND = {
    ONVIF_WEB_DIR "VideoSourceConf.conf", "ONVIF_VIDEO_SOURCE_CONF", ".VSConf", ONVIF_DIR,
    Read_Print_VideoSourceFile, "VideoSourceConfiguration does not exist",
    "The VideoSourceConfiguration indicated by the ConfigurationToken does not exist", "VideoSource=", 0,
    "There exists no video source configuration in the media profile",
    "There exists no video source configuration in the media profile", "VideoSource."};
// Audio source configurations are the one kind kept beside their list.
const ConfigKind AUDIO_SOURCE_KIND = {
    ONVIF_WEB_DIR "AudioSourceConf.conf", "ONVIF_AUDIO_SOURCE_CONF", ".ASConf", ONVIF_WEB_DIR,
    Read_Print_AudioSourceFile, "AudioSourceConfiguration does not exist",
    "The AudioSourceConfiguration indicated by the ConfigurationToken does not exist", "AudioSource=", 1,
    "There exists no Audio source configuration in the media profile",
    "There exists no Audio source configuration in the media profile", "AudioSource."};
const ConfigKind VIDEO_ENCODER_KIND = {
    ONVIF_WEB_DIR "VideoEncoder.conf", "ONVIF_VIDEO_ENCODER_CONF", ".VEncoder", ONVIF_DIR,
    Read_Print_VideoEncoderFile, "VideoEncoderConfiguration does not exist",
    "The VideoEncoderConfiguration indicated by the ConfigurationToken does not exist", "VideoEncoder=", 0,
    "No video encoder configuration in the media profile",
    "There exists no video encoder configuration in the media profile", 0};
const ConfigKind AUDIO_ENCODER_KIND = {
    ONVIF_WEB_DIR "AudioEncoder.conf", "ONVIF_AUDIO_ENCODER_CONF", ".AEncoder", ONVIF_DIR,
    Read_Print_AudioEncoderFile, "AudioEncoderConfiguration does not exist",
    "The AudioEncoderConfiguration indicated by the ConfigurationToken does not exist", "AudioEncoder=", 0,
    "No Audio encoder configuration in the media profile",
    "There exists no Audio encoder configuration in the media profile", "Audio."};
const ConfigKind METADATA_KIND = {
    ONVIF_WEB_DIR "MetaData.conf", "ONVIF_METADATA_CONF", ".MetaData", ONVIF_WEB_DIR,
    Read_Print_MetadataFile, "MetadataConfiguration does not exist",
    "The MetadataConfiguration indicated by the ConfigurationToken does not exist", "Metadata=", -1,
    "There exists no metadata configuration in the media profile.",
    "There exists no metadata configuration in the media profile.", 0};

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
    Read read = key[0] == '@' ? requestAttribute(key + 1, 0, token, tokenSize) : requestToken(key, token, tokenSize);
    int written = snprintf(fileName, fileSize, "%s%s", token, kind->suffix);
    if (read != Read::Value || !isSafeFileToken(token) || written < 0 || (size_t)written >= fileSize ||
        !isListedConfiguration(kind->listFile, fileName, handler, kind->listMacro)) {
        writeNoConfigFault(kind);
        return 0;
    }
    return 1;
}

int requestOptionalConfiguration(const ConfigKind* kind, char* token, size_t tokenSize, char* fileName,
                                 size_t fileSize, const char* handler)
{
    if (requestRowFrom("trt:ConfigurationToken", 0) < 0) {
        token[0] = 0;
        fileName[0] = 0;
        return 1;
    }
    return requestListedConfiguration(kind, "trt:ConfigurationToken", token, tokenSize, fileName, fileSize, handler);
}

int requestProfile(char* fileName, size_t n)
{
    char token[PROFILE_TOKEN_MAX + 1];
    if (requestToken("trt:ProfileToken", token, sizeof token) == Read::Value &&
        findProfile(token, fileName, n) == PROFILE_FOUND)
        return 1;
    writeNoProfileFault();
    return 0;
}

int requestOptionalProfile(char* fileName, size_t n)
{
    if (requestRowFrom("trt:ProfileToken", 0) < 0) {
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

// --- Setting a configuration ---

static void refuseMediaSetting(const SettingRow*, void*)
{
    refuseRequestValue("ConfigModify", "The configuration parameters are not possible to set",
                       "A value of the configuration is outside what this camera can take");
}

static SettingRead readMediaRow(const SettingRow* row, char* buf, size_t n, void*)
{
    return readSettingElement(row->path, buf, n);
}

static int mediaOptionText(const SettingRow* row, char* out, size_t n, void* ctx)
{
    const MediaSetting* m = (const MediaSetting*)ctx;
    return m->optionText && m->optionText(m, row->option, out, n);
}

static int agreeMediaValues(SettingValues* v, void* ctx)
{
    const MediaSetting* m = (const MediaSetting*)ctx;
    if (m->checkTogether && m->checkTogether(v, m)) {
        refuseMediaSetting(0, 0);
        return 0;
    }
    return 1;
}

void setMediaConfiguration(const ConfigKind* kind, const char* fileName, const SettingRow* rows, int count,
                           const char* action, const char* prefix, MediaSetting* m)
{
    char path[320];
    snprintf(path, sizeof path, "%s%s", kind->dir, fileName);
    SettingTable table = {rows, count, path, prefix ? prefix : kind->parameterPrefix, SETTINGS_LOAD_FIRST,
                          CONFIG_VALUE_SIZE, 0, readMediaRow, mediaOptionText, agreeMediaValues,
                          refuseMediaSetting, m};
    static SettingValues values;
    switch (applySettings(&table, &values)) {
    case SETTINGS_DONE:
        if (values.restart)
            runCameraProgramWith("h264/restart_stream.cgi", 0, 0);
        setResponse("<trt:%sResponse></trt:%sResponse>", action, action);
        break;
    case SETTINGS_NOT_LOADED:
        writeNoConfigFault(kind);
        break;
    case SETTINGS_REFUSED:
        break;  // the refusal is written
    case SETTINGS_STORE_FAILED:
    case SETTINGS_NOT_WRITTEN:
        answerStoreFailure(path);
        break;
    default:
        actionNotServed();
        break;
    }
}

// --- Checkers rows share ---

// The character rule of profile names, up to the length of an ONVIF name.
int checkConfigurationName(char* value, const SettingRow*, const char*, void*)
{
    return !value[0] || strlen(value) > 64 || CheckChar_including_space(value);
}

int checkWholeInOptionRange(char* value, const SettingRow*, const char* option, void*)
{
    long min, max, v;
    return !parseOptionRange(option, &min, &max) || !parseNumber(value, min, max, &v);
}

int checkInOptionList(char* value, const SettingRow*, const char* option, void*)
{
    return !optionListHas(option, value);
}

int checkAddressType(char* value, const SettingRow*, const char*, void*) { return CheckType(value); }
int checkMulticastIPv4(char* value, const SettingRow*, const char*, void*) { return !isStrictIPv4(value); }
int checkMulticastIPv6(char* value, const SettingRow*, const char*, void*) { return !isIPv6Literal(value); }
int checkPort(char* value, const SettingRow*, const char*, void*) { return CheckPortRange(value); }
int checkTTL(char* value, const SettingRow*, const char*, void*) { return CheckTTLRange(value); }
int checkAutoStart(char* value, const SettingRow*, const char*, void*) { return CheckBool(value); }
int checkSessionTimeout(char* value, const SettingRow*, const char*, void*) { return !isXmlDuration(value); }

int checkForcePersistence(char* value, const SettingRow*, const char*, void*)
{
    int flag;
    return !parseBool(value, &flag);
}
