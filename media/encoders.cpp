// Video and audio encoder configurations: listings, each channel's options from
// the model's options file, guaranteed instances, and the setters' rule tables.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "media/config_kinds.h"
#include "media/media_options.h"
#include "state/profiles.h"
#include "state/checkers.h"
#include "state/config.h"
#include "state/mode.h"
#include "state/shm.h"

#include <stdlib.h>
#include <string.h>

#define COUNT(a) (int)(sizeof(a) / sizeof((a)[0]))

// --- Video encoders ---

void GetVideoEncoderConfigurations()
{
    answerConfigurationList(&VIDEO_ENCODER_KIND, "GetVideoEncoderConfigurations", 1);
}

void GetVideoEncoderConfiguration()
{
    answerOneConfiguration(&VIDEO_ENCODER_KIND, "GetVideoEncoderConfiguration");
}

void GetCompatibleVideoEncoderConfigurations()
{
    char fileName[PROFILE_TOKEN_MAX + 16];
    if (requestProfile(fileName, sizeof fileName))
        answerConfigurationList(&VIDEO_ENCODER_KIND, "GetCompatibleVideoEncoderConfigurations", 1);
}

// What one encoder channel offers, as the options file states it.
struct ChannelOptions {
    char encodings[OPTION_TEXT_SIZE], resolutions[OPTION_TEXT_SIZE], quality[OPTION_TEXT_SIZE];
    char frameRate[OPTION_TEXT_SIZE], interval[OPTION_TEXT_SIZE], bitrate[OPTION_TEXT_SIZE];
    char govLength[OPTION_TEXT_SIZE], h264Profiles[OPTION_TEXT_SIZE], mpeg4Profiles[OPTION_TEXT_SIZE];
};

static int readChannelOptions(int channel, ChannelOptions* o)
{
    long min, max;
    return readChannelOption(channel, "Encodings", o->encodings, sizeof o->encodings) &&
           readChannelOption(channel, "Resolutions", o->resolutions, sizeof o->resolutions) &&
           readChannelOption(channel, "QualityRange", o->quality, sizeof o->quality) &&
           readChannelOption(channel, "FrameRateRange", o->frameRate, sizeof o->frameRate) &&
           readChannelOption(channel, "EncodingIntervalRange", o->interval, sizeof o->interval) &&
           readChannelOption(channel, "BitrateRange", o->bitrate, sizeof o->bitrate) &&
           readChannelOption(channel, "GovLengthRange", o->govLength, sizeof o->govLength) &&
           readChannelOption(channel, "H264Profiles", o->h264Profiles, sizeof o->h264Profiles) &&
           readChannelOption(channel, "Mpeg4Profiles", o->mpeg4Profiles, sizeof o->mpeg4Profiles) &&
           parseOptionRange(o->quality, &min, &max) && parseOptionRange(o->frameRate, &min, &max) &&
           parseOptionRange(o->interval, &min, &max) && parseOptionRange(o->bitrate, &min, &max) &&
           parseOptionRange(o->govLength, &min, &max);
}

static void appendResolutions(const char* list)
{
    char item[32];
    long width, height;
    const char* cursor = list;
    while (nextOptionItem(&cursor, item, sizeof item)) {
        if (!parseResolution(item, &width, &height))
            continue;
        char text[160];
        snprintf(text, sizeof text, "<tt:ResolutionsAvailable><tt:Width>%ld</tt:Width><tt:Height>%ld</tt:Height>"
                 "</tt:ResolutionsAvailable>", width, height);
        appendMarkup(text);
    }
}

static void appendListItems(const char* element, const char* list)
{
    char item[32];
    const char* cursor = list;
    while (nextOptionItem(&cursor, item, sizeof item))
        appendElement(element, item);
}

// The JPEG, MPEG4 and H264 blocks of the channel's encodings; the extension
// form adds each one's bitrate range.
static void appendEncodingBlocks(const ChannelOptions* o, int withBitrate)
{
    if (optionListHas(o->encodings, "JPEG")) {
        appendMarkup("<tt:JPEG>");
        appendResolutions(o->resolutions);
        appendOptionRange("FrameRateRange", o->frameRate);
        appendOptionRange("EncodingIntervalRange", o->interval);
        if (withBitrate)
            appendOptionRange("BitrateRange", o->bitrate);
        appendMarkup("</tt:JPEG>");
    }
    if (optionListHas(o->encodings, "MPEG4")) {
        appendMarkup("<tt:MPEG4>");
        appendResolutions(o->resolutions);
        appendOptionRange("GovLengthRange", o->govLength);
        appendOptionRange("FrameRateRange", o->frameRate);
        appendOptionRange("EncodingIntervalRange", o->interval);
        appendListItems("tt:Mpeg4ProfilesSupported", o->mpeg4Profiles);
        if (withBitrate)
            appendOptionRange("BitrateRange", o->bitrate);
        appendMarkup("</tt:MPEG4>");
    }
    if (optionListHas(o->encodings, "H264")) {
        appendMarkup("<tt:H264>");
        appendResolutions(o->resolutions);
        appendOptionRange("GovLengthRange", o->govLength);
        appendOptionRange("FrameRateRange", o->frameRate);
        appendOptionRange("EncodingIntervalRange", o->interval);
        appendListItems("tt:H264ProfilesSupported", o->h264Profiles);
        if (withBitrate)
            appendOptionRange("BitrateRange", o->bitrate);
        appendMarkup("</tt:H264>");
    }
}

// The channel the request asks about: the configuration's, else the one the
// profile binds, else the main channel. 0 after a fault.
static int requestedChannel()
{
    char token[CONFIG_TOKEN_MAX + 1], fileName[CONFIG_TOKEN_MAX + 16], profileFile[PROFILE_TOKEN_MAX + 16];
    char encoder[CONFIG_TOKEN_MAX + 1];
    if (!requestOptionalConfiguration(&VIDEO_ENCODER_KIND, token, sizeof token, fileName, sizeof fileName,
                                      "GetVideoEncoderConfigurationOptions") ||
        !requestOptionalProfile(profileFile, sizeof profileFile))
        return 0;
    int channel = 0;
    if (token[0])
        channel = encoderChannel(token);
    else if (profileFile[0] && readProfileField(profileFile, "VideoEncoder=", encoder, sizeof encoder))
        channel = encoderChannel(encoder);
    return channel > 0 ? channel : 1;
}

void GetVideoEncoderConfigurationOptions()
{
    int channel = requestedChannel();
    if (!channel)
        return;
    ChannelOptions o;
    if (!readChannelOptions(channel, &o)) {
        logServiceError("GetVideoEncoderConfigurationOptions", "no options for channel %d", channel);
        actionNotServed();
        return;
    }
    setResponse("<trt:GetVideoEncoderConfigurationOptionsResponse><trt:Options>");
    appendOptionRange("QualityRange", o.quality);
    appendEncodingBlocks(&o, 0);
    appendMarkup("<tt:Extension>");
    appendEncodingBlocks(&o, 1);
    appendMarkup("</tt:Extension></trt:Options></trt:GetVideoEncoderConfigurationOptionsResponse>");
}

void GetGuaranteedNumberOfVideoEncoderInstances()
{
    char token[CONFIG_TOKEN_MAX + 1], fileName[CONFIG_TOKEN_MAX + 16], text[OPTION_TEXT_SIZE];
    if (!requestListedConfiguration(&VIDEO_SOURCE_KIND, "trt:ConfigurationToken", token, sizeof token, fileName,
                                    sizeof fileName, "GetGuaranteedNumberOfVideoEncoderInstances"))
        return;
    long channels;
    if (!readMediaOption(VIDEO_OPTIONS, "Channels", text, sizeof text) || !parseNumber(text, 1, 99, &channels)) {
        actionNotServed();
        return;
    }
    // Every channel runs at once, each in one of its encodings.
    long jpeg = 0, h264 = 0, mpeg4 = 0;
    for (int channel = 1; channel <= channels; ++channel) {
        if (!readChannelOption(channel, "Encodings", text, sizeof text))
            continue;
        jpeg += optionListHas(text, "JPEG");
        h264 += optionListHas(text, "H264");
        mpeg4 += optionListHas(text, "MPEG4");
    }
    char body[300];
    snprintf(body, sizeof body, "<trt:GetGuaranteedNumberOfVideoEncoderInstancesResponse><trt:TotalNumber>%ld"
             "</trt:TotalNumber><trt:JPEG>%ld</trt:JPEG><trt:H264>%ld</trt:H264><trt:MPEG4>%ld</trt:MPEG4>"
             "</trt:GetGuaranteedNumberOfVideoEncoderInstancesResponse>", channels, jpeg, h264, mpeg4);
    clearResponse();
    appendMarkup(body);
}

static int channelOption(const MediaSetting* m, const char* option, char* out, size_t n)
{
    return readChannelOption(m->channel, option, out, n);
}

static int checkVideoEncoding(char* value, const SettingRow*, const char* option, void*)
{
    return CheckEncoding(value) || !optionListHas(option, value);
}

static int checkDimension(char* value, const SettingRow*, const char*, void*)
{
    long v;
    return !parseNumber(value, 1, 16384, &v);
}

static int checkQuality(char* value, const SettingRow*, const char* option, void*)
{
    long min, max;
    double v;
    return !parseOptionRange(option, &min, &max) || !parseDecimal(value, (double)min, (double)max, &v);
}

static int checkVideoBitrate(char* value, const SettingRow* row, const char* option, void* ctx)
{
    return CheckBitrateRange(value) || checkWholeInOptionRange(value, row, option, ctx);
}

// Checks between values: the resolution pair is one of the channel's, and an
// H.264 or MPEG-4 encoder carries a profile of that encoding.
static int checkVideoEncoderTogether(const SettingValues* v, const MediaSetting* m)
{
    char text[OPTION_TEXT_SIZE];
    if (settingGiven(v, "Resolution.Width") || settingGiven(v, "Resolution.Height")) {
        char pair[64];
        snprintf(pair, sizeof pair, "%sx%s", settingValue(v, "Resolution.Width"),
                 settingValue(v, "Resolution.Height"));
        if (!readChannelOption(m->channel, "Resolutions", text, sizeof text) || !optionListHas(text, pair))
            return 1;
    }
    if (settingGiven(v, "Encoding") || settingGiven(v, "Profile")) {
        const char* encoding = settingValue(v, "Encoding");
        const char* list = strcmp(encoding, "H264") == 0 ? "H264Profiles"
                           : strcmp(encoding, "MPEG4") == 0 ? "Mpeg4Profiles" : 0;
        if (list && (!readChannelOption(m->channel, list, text, sizeof text) ||
                     !optionListHas(text, settingValue(v, "Profile"))))
            return 1;
    }
    return 0;
}

static const SettingRow VIDEO_ENCODER_ROWS[] = {
    MEDIA_ROW("tt:Name", "Name", checkConfigurationName, 0, 0, 0),
    MEDIA_ROW("tt:Encoding", "Encoding", checkVideoEncoding, "Encodings", "Encoding", 1),
    MEDIA_ROW("tt:Width", "Resolution.Width", checkDimension, 0, "Width", 1),
    MEDIA_ROW("tt:Height", "Resolution.Height", checkDimension, 0, "Height", 1),
    MEDIA_ROW("tt:Quality", "Quality", checkQuality, "QualityRange", "Quality", 1),
    MEDIA_ROW("tt:FrameRateLimit", "RateControl.FrameRateLimit", checkWholeInOptionRange, "FrameRateRange", "FrameRate", 1),
    MEDIA_ROW("tt:EncodingInterval", "RateControl.EncodingInterval", checkWholeInOptionRange, "EncodingIntervalRange",
     "EncodingInterval", 1),
    MEDIA_ROW("tt:BitrateLimit", "RateControl.BitrateLimit", checkVideoBitrate, "BitrateRange", "Bitrate", 1),
    MEDIA_ROW("tt:GovLength", "GovLength", checkWholeInOptionRange, "GovLengthRange", "GovLength", 1),
    MEDIA_ROW("tt:H264Profile", "Profile", checkInOptionList, "H264Profiles", "Profile", 1),
    MEDIA_ROW("tt:Mpeg4Profile", "Profile", checkInOptionList, "Mpeg4Profiles", "Profile", 1),
    MULTICAST_SETTING_ROWS("Multicast."),
};

void SetVideoEncoderConfiguration()
{
    char token[CONFIG_TOKEN_MAX + 1], fileName[CONFIG_TOKEN_MAX + 16], prefix[32];
    if (!requestListedConfiguration(&VIDEO_ENCODER_KIND, "@token", token, sizeof token, fileName, sizeof fileName,
                                    "SetVideoEncoderConfiguration"))
        return;
    MediaSetting m = {encoderChannel(token), channelOption, checkVideoEncoderTogether};
    snprintf(prefix, sizeof prefix, "Video.Ch%d.", m.channel);
    setMediaConfiguration(&VIDEO_ENCODER_KIND, fileName, VIDEO_ENCODER_ROWS, COUNT(VIDEO_ENCODER_ROWS),
                          "SetVideoEncoderConfiguration", prefix, &m);
}

// --- Audio encoders ---

void GetAudioEncoderConfigurations()
{
    answerConfigurationList(&AUDIO_ENCODER_KIND, "GetAudioEncoderConfigurations", cameraHasAudio());
}

void GetAudioEncoderConfiguration()
{
    if (refuseWithoutAudio())
        return;
    answerOneConfiguration(&AUDIO_ENCODER_KIND, "GetAudioEncoderConfiguration");
}

void GetCompatibleAudioEncoder()
{
    char fileName[PROFILE_TOKEN_MAX + 16];
    if (requestProfile(fileName, sizeof fileName))
        answerConfigurationList(&AUDIO_ENCODER_KIND, "GetCompatibleAudioEncoderConfigurations", cameraHasAudio());
}

void GetAudioEncoderConfigurationOptions()
{
    if (refuseWithoutAudio())
        return;
    char token[CONFIG_TOKEN_MAX + 1], fileName[CONFIG_TOKEN_MAX + 16], profileFile[PROFILE_TOKEN_MAX + 16];
    if (!requestOptionalConfiguration(&AUDIO_ENCODER_KIND, token, sizeof token, fileName, sizeof fileName,
                                      "GetAudioEncoderConfigurationOptions") ||
        !requestOptionalProfile(profileFile, sizeof profileFile))
        return;
    char encodings[OPTION_TEXT_SIZE], encoding[32], entry[64], list[OPTION_TEXT_SIZE];
    readMediaOption(AUDIO_OPTIONS, "Encodings", encodings, sizeof encodings);
    setResponse("<trt:GetAudioEncoderConfigurationOptionsResponse><trt:Options>");
    const char* cursor = encodings;
    while (nextOptionItem(&cursor, encoding, sizeof encoding)) {
        if (strcmp(encoding, "G711") && strcmp(encoding, "G726") && strcmp(encoding, "AAC"))
            continue;  // not an ONVIF audio encoding
        appendResponse("<tt:Options><tt:Encoding>%s</tt:Encoding><tt:BitrateList>", encoding);
        snprintf(entry, sizeof entry, "%s.Bitrates", encoding);
        readMediaOption(AUDIO_OPTIONS, entry, list, sizeof list);
        appendListItems("tt:Items", list);
        appendMarkup("</tt:BitrateList><tt:SampleRateList>");
        snprintf(entry, sizeof entry, "%s.SampleRates", encoding);
        readMediaOption(AUDIO_OPTIONS, entry, list, sizeof list);
        appendListItems("tt:Items", list);
        appendMarkup("</tt:SampleRateList></tt:Options>");
    }
    appendMarkup("</trt:Options></trt:GetAudioEncoderConfigurationOptionsResponse>");
}

static int audioOption(const MediaSetting*, const char* option, char* out, size_t n)
{
    return readMediaOption(AUDIO_OPTIONS, option, out, n);
}

static int checkWholeNumber(char* value, const SettingRow*, const char*, void*)
{
    long v;
    return !parseNumber(value, 1, 100000, &v);
}

// The sample rate rule of the variant; the file keeps kHz, so a rate given
// in Hz is written as kHz.
static int checkAudioSampleRate(char* value, const SettingRow*, const char*, void*)
{
    // The schema gives the rate in kHz, as the camera reports it: the ONVIF
    // mode takes back what it hands out whatever the model's rule.
    if (onvifMode() && (strcmp(value, "8") == 0 || strcmp(value, "16") == 0))
        return 0;
    if (CheckSampleRate(value))
        return 1;
    long hz = atol(value);
    if (hz >= 1000)
        snprintf(value, CONFIG_VALUE_SIZE, "%ld", hz / 1000);
    return 0;
}

// The bitrate and sample rate are among those the encoding offers.
static int checkAudioEncoderTogether(const SettingValues* v, const MediaSetting*)
{
    char entry[64], list[OPTION_TEXT_SIZE];
    const char* encoding = settingValue(v, "Encoding");
    static const char* const checked[][2] = {{"Bitrate", "Bitrates"}, {"SampleRate", "SampleRates"}};
    for (auto& pair : checked) {
        if (!settingGiven(v, "Encoding") && !settingGiven(v, pair[0]))
            continue;
        snprintf(entry, sizeof entry, "%s.%s", encoding, pair[1]);
        if (!readMediaOption(AUDIO_OPTIONS, entry, list, sizeof list) || !optionListHas(list, settingValue(v, pair[0])))
            return 1;
    }
    return 0;
}

static const SettingRow AUDIO_ENCODER_ROWS[] = {
    MEDIA_ROW("tt:Name", "Name", checkConfigurationName, 0, 0, 0),
    MEDIA_ROW("tt:Encoding", "Encoding", checkInOptionList, "Encodings", "Encoding", 1),
    MEDIA_ROW("tt:Bitrate", "Bitrate", checkWholeNumber, 0, "Bitrate", 1),
    MEDIA_ROW("tt:SampleRate", "SampleRate", checkAudioSampleRate, 0, "SampleRate", 1),
    MULTICAST_SETTING_ROWS("Multicast."),
};

void SetAudioEncoderConfiguration()
{
    if (refuseWithoutAudio())
        return;
    char token[CONFIG_TOKEN_MAX + 1], fileName[CONFIG_TOKEN_MAX + 16];
    if (!requestListedConfiguration(&AUDIO_ENCODER_KIND, "@token", token, sizeof token, fileName, sizeof fileName,
                                    "SetAudioEncoderConfiguration"))
        return;
    MediaSetting m = {0, audioOption, checkAudioEncoderTogether};
    setMediaConfiguration(&AUDIO_ENCODER_KIND, fileName, AUDIO_ENCODER_ROWS, COUNT(AUDIO_ENCODER_ROWS),
                          "SetAudioEncoderConfiguration", 0, &m);
}
