// Video and audio sources, their configurations and options, and the audio
// outputs and decoders this camera does not have.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "media/config_kinds.h"
#include "media/media_options.h"
#include "state/profiles.h"
#include "state/config.h"
#include "state/paths.h"

#include <string.h>

#define COUNT(a) (int)(sizeof(a) / sizeof((a)[0]))

// --- Video sources ---

// The imaging settings a version 1.0 source carries; only well-formed values
// are printed, so a hand-edited file cannot make the answer invalid.
static void appendSourceImaging(const char* source)
{
    static const char* const keys[] = {"Brightness", "ColorSaturation", "Contrast", "IrCutFilter", "Sharpness"};
    char fileName[CONFIG_TOKEN_MAX + 16], path[320], v[COUNT(keys)][CONFIG_VALUE_SIZE];
    int nameLength = snprintf(fileName, sizeof fileName, "%s.VSource", source);
    if (nameLength < 0 || (size_t)nameLength >= sizeof fileName || !isSafeFileToken(fileName))
        return;
    snprintf(path, sizeof path, ONVIF_DIR "%s", fileName);
    if (!readConfigValues(path, keys, v, COUNT(keys)))
        return;
    appendMarkup("<tt:Imaging>");
    double number;
    for (int i = 0; i < COUNT(keys); ++i) {
        int irCut = strcmp(keys[i], "IrCutFilter") == 0;
        int valid = irCut ? (!strcmp(v[i], "ON") || !strcmp(v[i], "OFF") || !strcmp(v[i], "AUTO"))
                          : parseDecimal(v[i], -1e6, 1e6, &number);
        if (valid)
            appendResponse("<tt:%s>%s</tt:%s>", keys[i], v[i], keys[i]);
    }
    appendMarkup("</tt:Imaging>");
}

void GetVideoSources()
{
    char framerate[OPTION_TEXT_SIZE], width[OPTION_TEXT_SIZE], height[OPTION_TEXT_SIZE];
    double rate;
    long w, h;
    if (!readMediaOption(VIDEO_OPTIONS, "Source.Framerate", framerate, sizeof framerate) ||
        !readMediaOption(VIDEO_OPTIONS, "Source.Width", width, sizeof width) ||
        !readMediaOption(VIDEO_OPTIONS, "Source.Height", height, sizeof height) ||
        !parseDecimal(framerate, 0, 1000, &rate) || !parseNumber(width, 1, 65535, &w) ||
        !parseNumber(height, 1, 65535, &h)) {
        actionNotServed();
        return;
    }
    char tokens[MAX_SOURCES][CONFIG_TOKEN_MAX + 1];
    int count = collectSourceTokens(&VIDEO_SOURCE_KIND, tokens, MAX_SOURCES);
    setResponse("<trt:GetVideoSourcesResponse>");
    for (int i = 0; i < count; ++i) {
        appendResponse("<trt:VideoSources token=\"%s\"><tt:Framerate>%s</tt:Framerate><tt:Resolution>"
                       "<tt:Width>%s</tt:Width><tt:Height>%s</tt:Height></tt:Resolution>",
                       tokens[i], framerate, width, height);
        appendSourceImaging(tokens[i]);
        appendMarkup("</trt:VideoSources>");
    }
    appendMarkup("</trt:GetVideoSourcesResponse>");
}

void GetVideoSourceConfigurations()
{
    answerConfigurationList(&VIDEO_SOURCE_KIND, "GetVideoSourceConfigurations", 1);
}

void GetVideoSourceConfiguration()
{
    answerOneConfiguration(&VIDEO_SOURCE_KIND, "GetVideoSourceConfiguration");
}

void GetCompatibleVideoSourceConfigurations()
{
    char profileFile[PROFILE_TOKEN_MAX + 16];
    if (requestProfile(profileFile, sizeof profileFile))
        answerConfigurationList(&VIDEO_SOURCE_KIND, "GetCompatibleVideoSourceConfigurations", 1);
}

void GetVideoSourceConfigurationOptions()
{
    char token[CONFIG_TOKEN_MAX + 1], fileName[CONFIG_TOKEN_MAX + 16], profileFile[PROFILE_TOKEN_MAX + 16];
    if (!requestOptionalConfiguration(&VIDEO_SOURCE_KIND, token, sizeof token, fileName, sizeof fileName,
                                      "GetVideoSourceConfigurationOptions") ||
        !requestOptionalProfile(profileFile, sizeof profileFile))
        return;
    static const char* const ranges[] = {"XRange", "YRange", "WidthRange", "HeightRange"};
    char text[COUNT(ranges)][OPTION_TEXT_SIZE], entry[64];
    long min, max;
    for (int i = 0; i < COUNT(ranges); ++i) {
        snprintf(entry, sizeof entry, "Source.%s", ranges[i]);
        if (!readMediaOption(VIDEO_OPTIONS, entry, text[i], sizeof text[i]) || !parseOptionRange(text[i], &min, &max)) {
            actionNotServed();
            return;
        }
    }
    char tokens[MAX_SOURCES][CONFIG_TOKEN_MAX + 1];
    int count = collectSourceTokens(&VIDEO_SOURCE_KIND, tokens, MAX_SOURCES);
    if (count == 0) {
        actionNotServed();  // options name at least one source
        return;
    }
    setResponse("<trt:GetVideoSourceConfigurationOptionsResponse><trt:Options><tt:BoundsRange>");
    for (int i = 0; i < COUNT(ranges); ++i)
        appendOptionRange(ranges[i], text[i]);
    appendMarkup("</tt:BoundsRange>");
    for (int i = 0; i < count; ++i)
        appendElement("tt:VideoSourceTokensAvailable", tokens[i]);
    appendMarkup("</trt:Options></trt:GetVideoSourceConfigurationOptionsResponse>");
}

static int checkVideoSourceToken(char* value, const SettingRow*, const char*, void*)
{
    return !isKnownSourceToken(&VIDEO_SOURCE_KIND, value);
}

static int checkAudioSourceToken(char* value, const SettingRow*, const char*, void*)
{
    return !isKnownSourceToken(&AUDIO_SOURCE_KIND, value);
}

static int videoSourceOption(const MediaSetting*, const char* option, char* out, size_t n)
{
    char entry[64];
    snprintf(entry, sizeof entry, "Source.%s", option);
    return readMediaOption(VIDEO_OPTIONS, entry, out, n);
}

static const SettingRow VIDEO_SOURCE_ROWS[] = {
    MEDIA_ROW("tt:Name", "Name", checkConfigurationName, 0, 0, 0),
    MEDIA_ROW("tt:SourceToken", "SourceToken", checkVideoSourceToken, 0, 0, 0),
    MEDIA_ROW("@x", "Bounds.x", checkWholeInOptionRange, "XRange", "Bounds.X", 1),
    MEDIA_ROW("@y", "Bounds.y", checkWholeInOptionRange, "YRange", "Bounds.Y", 1),
    MEDIA_ROW("@width", "Bounds.width", checkWholeInOptionRange, "WidthRange", "Bounds.Width", 1),
    MEDIA_ROW("@height", "Bounds.height", checkWholeInOptionRange, "HeightRange", "Bounds.Height", 1),
    MEDIA_ROW("trt:ForcePersistence", 0, checkForcePersistence, 0, 0, 0),
};

static const SettingRow AUDIO_SOURCE_ROWS[] = {
    MEDIA_ROW("tt:Name", "Name", checkConfigurationName, 0, 0, 0),
    MEDIA_ROW("tt:SourceToken", "SourceToken", checkAudioSourceToken, 0, 0, 0),
    MEDIA_ROW("trt:ForcePersistence", 0, checkForcePersistence, 0, 0, 0),
};

// Runs a source setter's rows on the configuration the request names.
static void setSourceConfiguration(const ConfigKind* kind, const SettingRow* rows, int count, const char* action,
                                   int (*optionText)(const MediaSetting*, const char*, char*, size_t))
{
    char token[CONFIG_TOKEN_MAX + 1], fileName[CONFIG_TOKEN_MAX + 16];
    if (!requestListedConfiguration(kind, "@token", token, sizeof token, fileName, sizeof fileName, action))
        return;
    MediaSetting m = {0, optionText, 0};
    setMediaConfiguration(kind, fileName, rows, count, action, 0, &m);
}

void SetVideoSourceConfiguration()
{
    setSourceConfiguration(&VIDEO_SOURCE_KIND, VIDEO_SOURCE_ROWS, COUNT(VIDEO_SOURCE_ROWS),
                           "SetVideoSourceConfiguration", videoSourceOption);
}

// --- Audio sources ---

void GetAudioSources()
{
    setResponse("<trt:GetAudioSourcesResponse>");
    if (cameraHasAudio()) {
        char channels[OPTION_TEXT_SIZE];
        long n;
        if (!readMediaOption(AUDIO_OPTIONS, "Source.Channels", channels, sizeof channels) ||
            !parseNumber(channels, 1, 64, &n))
            snprintf(channels, sizeof channels, "%s", "1");
        char tokens[MAX_SOURCES][CONFIG_TOKEN_MAX + 1];
        int count = collectSourceTokens(&AUDIO_SOURCE_KIND, tokens, MAX_SOURCES);
        for (int i = 0; i < count; ++i)
            appendResponse("<trt:AudioSources token=\"%s\"><tt:Channels>%s</tt:Channels></trt:AudioSources>",
                           tokens[i], channels);
    }
    appendMarkup("</trt:GetAudioSourcesResponse>");
}

void GetAudioSourceConfigurations()
{
    answerConfigurationList(&AUDIO_SOURCE_KIND, "GetAudioSourceConfigurations", cameraHasAudio());
}

void GetAudioSourceConfiguration()
{
    if (refuseWithoutAudio())
        return;
    answerOneConfiguration(&AUDIO_SOURCE_KIND, "GetAudioSourceConfiguration");
}

void GetCompatibleAudioSource()
{
    char profileFile[PROFILE_TOKEN_MAX + 16];
    if (requestProfile(profileFile, sizeof profileFile))
        answerConfigurationList(&AUDIO_SOURCE_KIND, "GetCompatibleAudioSourceConfigurations", cameraHasAudio());
}

void GetAudioSourceConfigurationOptions()
{
    if (refuseWithoutAudio())
        return;
    char token[CONFIG_TOKEN_MAX + 1], fileName[CONFIG_TOKEN_MAX + 16], profileFile[PROFILE_TOKEN_MAX + 16];
    if (!requestOptionalConfiguration(&AUDIO_SOURCE_KIND, token, sizeof token, fileName, sizeof fileName,
                                      "GetAudioSourceConfigurationOptions") ||
        !requestOptionalProfile(profileFile, sizeof profileFile))
        return;
    char tokens[MAX_SOURCES][CONFIG_TOKEN_MAX + 1];
    int count = collectSourceTokens(&AUDIO_SOURCE_KIND, tokens, MAX_SOURCES);
    if (count == 0) {
        writeAudioNotSupportedFault();
        return;
    }
    setResponse("<trt:GetAudioSourceConfigurationOptionsResponse><trt:Options>");
    for (int i = 0; i < count; ++i)
        appendElement("tt:InputTokensAvailable", tokens[i]);
    appendMarkup("</trt:Options></trt:GetAudioSourceConfigurationOptionsResponse>");
}

void SetAudioSourceConfiguration()
{
    if (refuseWithoutAudio())
        return;
    setSourceConfiguration(&AUDIO_SOURCE_KIND, AUDIO_SOURCE_ROWS, COUNT(AUDIO_SOURCE_ROWS),
                           "SetAudioSourceConfiguration", 0);
}

// --- Audio outputs and decoders: the camera has neither ---

static void writeAudioOutputNotSupportedFault()
{
    writeReceiverFault2("ActionNotSupported", "AudioOutputNotSupported", "Audio output is not supported",
                        "The device has no audio outputs");
}

void GetAudioOutputs()
{
    setResponse("<trt:GetAudioOutputsResponse></trt:GetAudioOutputsResponse>");
}

void GetAudioOutputConfigurations()
{
    setResponse("<trt:GetAudioOutputConfigurationsResponse></trt:GetAudioOutputConfigurationsResponse>");
}

void GetAudioOutputConfiguration()
{
    refuseRequestValue("NoConfig", "AudioOutputConfiguration does not exist",
                       "The AudioOutputConfiguration indicated by the ConfigurationToken does not exist");
}

void GetAudioOutputConfigurationOptions() { writeAudioOutputNotSupportedFault(); }
void SetAudioOutputConfiguration() { writeAudioOutputNotSupportedFault(); }

void GetAudioDecoderConfigurationOptions()
{
    setResponse("<trt:GetAudioDecoderConfigurationOptionsResponse><trt:Options></trt:Options>"
                "</trt:GetAudioDecoderConfigurationOptionsResponse>");
}
