// Binding a video or audio source, encoder or metadata configuration into a
// profile and taking it out again, with the use counts kept.
#include "frame/frame.h"
#include "frame/request_values.h"
#include "state/shm_words.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "media/config_kinds.h"
#include "state/profiles.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <string.h>


static void writeChannelConflictFault(const char* detail)
{
    writeSenderFault2("Action", "ConfigurationConflict", "VideoEncoderConfiguration can't be set", detail);
}

// Use count and encoding of the four channel encoders, for the channel rule.
struct ChannelState {
    char useCount[4][16];
    char encoding[4][16];
};

static void readChannelState(ChannelState* s)
{
    memset(s, 0, sizeof *s);
    FILE* list = fopenRoot(ONVIF_WEB_DIR "VideoEncoder.conf", "r");
    if (!list)
        return;
    char line[256];
    while (fgets(line, sizeof line, list)) {
        line[strcspn(line, "\r\n")] = 0;
        if (!isSafeFileToken(line))
            continue;
        char path[300];
        formatChecked(path, sizeof path, ONVIF_DIR "%s", line);
        FILE* f = fopenRoot(path, "r");
        if (!f) {
            logServiceError("[AddVideoEncoderConfiguration]", "%s missing", line);
            continue;
        }
        int channel = -1;
        for (int i = 0; i < 4; ++i) {
            char name[32];
            snprintf(name, sizeof name, "VideoEncoder%d", i + 1);
            if (strstr(line, name))
                channel = i;
        }
        char row[256];
        while (channel >= 0 && fgets(row, sizeof row, f)) {
            if (strstr(row, "UseCount="))
                scanSettingLine(row, "UseCount=", s->useCount[channel], 16, 0);
            if (strstr(row, "Encoding=")) {
                scanSettingLine(row, "Encoding=", s->encoding[channel], 16, 0);
                break;
            }
        }
        fclose(f);
    }
    fclose(list);
}

// The camera's four encoder channels share one sensor pipeline: which
// encoder a channel profile may take depends on the stream mode and on what
// the lower channels already carry.
static int channelRuleAllows(const char* profile, const char* config)
{
    ChannelState s;
    readChannelState(&s);
    int freeUpper = modelHas(Cap::MediaFreeUpperChannels);
    int uc1 = strcmp(s.useCount[0], "1") == 0, uc2 = strcmp(s.useCount[1], "1") == 0,
        uc3 = strcmp(s.useCount[2], "1") == 0;
    int h1 = strcmp(s.encoding[0], "H264") == 0, h2 = strcmp(s.encoding[1], "H264") == 0,
        h3 = strcmp(s.encoding[2], "H264") == 0;
    if (strcmp(profile, "Profile1") == 0)
        return strcmp(config, "VideoEncoder1") == 0;
    if (strcmp(profile, "Profile2") == 0)
        return strcmp(config, "VideoEncoder2") == 0 && modelValue(Cap::MediaChannel2) == CHANNEL_OPEN;
    if (strcmp(profile, "Profile3") == 0)
        return freeUpper ||
               (strcmp(config, "VideoEncoder3") == 0 && uc1 && uc2 &&
                (modelValue(Cap::MediaChannel3) == CHANNEL_OPEN ||
                 (modelValue(Cap::MediaChannel3) == CHANNEL_IF_LOWER_H264 && h1 && h2)));
    if (strcmp(profile, "Profile4") == 0)
        return freeUpper ||
               (strcmp(config, "VideoEncoder4") == 0 && uc1 && uc2 && uc3 &&
                (modelValue(Cap::MediaChannel4) == CHANNEL_OPEN ||
                 (modelValue(Cap::MediaChannel4) == CHANNEL_IF_LOWER_H264 && h1 && h2 && h3)));
    return 1;
}

static void addConfiguration(const ConfigKind& kind, const char* handler, const char* response)
{
    char profile[PROFILE_TOKEN_MAX + 1], config[PROFILE_TOKEN_MAX + 1], fileName[64], configFile[64];
    if (requestText("trt:ProfileToken", profile, PROFILE_TOKEN_MAX + 1) == Read::Refused)
        return;
    if (requestText("trt:ConfigurationToken", config, PROFILE_TOKEN_MAX + 1) == Read::Refused)
        return;
    int found = findProfile(profile, fileName, sizeof fileName);
    if (found == PROFILE_INDEX_MISSING)
        log_message_to_onvifErrorFile(1, "onvifService:[%s]:ONVIF_LODING_PROFILE_FILE missing", handler);
    formatChecked(configFile, sizeof configFile, "%s%s", config, kind.suffix);
    int listed = isSafeFileToken(config) && isListedConfiguration(kind.listFile, configFile, handler, kind.listMacro);
    int allowed = 1;
    if (&kind == &VIDEO_ENCODER_KIND && modelHas(Cap::MediaSharedEncoderPipeline))
        allowed = channelRuleAllows(profile, config);
    if (found != PROFILE_FOUND) {
        writeNoProfileFault();
        return;
    }
    if (!listed) {
        writeSenderFault2("InvalidArgVal", "NoConfig", kind.noConfigReason, kind.noConfigDetail);
        return;
    }
    if (!allowed) {
        writeChannelConflictFault("Other configurations of the media profile conflicts with the one to add and "
                                  "adding it would cause a conflicting media profile.");
        return;
    }
    char old[CONFIG_TOKEN_MAX + 1];
    if (rewriteProfileField(fileName, kind.profileKey, config, old, sizeof old) != 0) {
        log_message_to_onvifErrorFile(1, "onvifService:[%s]:%s missing", handler, fileName);
    } else if (kind.useCountDir >= 0) {
        if (old[0] && strcmp(old, "NONE") != 0) {
            char oldFile[64];
            formatChecked(oldFile, sizeof oldFile, "%s%s", old, kind.suffix);
            minusOneToUseCount(oldFile, kind.useCountDir);
        }
        addOneToUseCount(configFile, kind.useCountDir);
    }
    clearResponse();
    appendMarkup(response);
}

static void removeConfiguration(const ConfigKind& kind, const char* handler, const char* response)
{
    char profile[PROFILE_TOKEN_MAX + 1], fileName[64];
    if (requestText("trt:ProfileToken", profile, PROFILE_TOKEN_MAX + 1) == Read::Refused)
        return;
    int found = findProfile(profile, fileName, sizeof fileName);
    if (found == PROFILE_INDEX_MISSING)
        log_message_to_onvifErrorFile(1, "onvifService:[%s]:ONVIF_LODING_PROFILE_FILE missing", handler);
    if (found != PROFILE_FOUND) {
        if (&kind == &METADATA_KIND)
            writeSenderFault2("InvalidArgVal", "NoProfile", "The requested profile token ProfileToken does not exist.",
                              "The requested profile token ProfileToken does not exist.");
        else
            writeNoProfileFault();
        return;
    }
    char old[CONFIG_TOKEN_MAX + 1];
    if (rewriteProfileField(fileName, kind.profileKey, "NONE", old, sizeof old) != 0) {
        log_message_to_onvifErrorFile(1, "%s:[%s]:%s missing",
                                      &kind == &VIDEO_ENCODER_KIND && modelHas(Cap::MediaSharedEncoderPipeline)
                                          ? "DeviceService" : "onvifService", handler, fileName);
        clearResponse();
    appendMarkup(response);
        return;
    }
    if (!old[0] || strcmp(old, "NONE") == 0) {
        writeSenderFault2("InvalidArgVal", "NoConfig", kind.nothingReason, kind.nothingDetail);
        return;
    }
    if (kind.useCountDir >= 0) {
        char oldFile[64];
        formatChecked(oldFile, sizeof oldFile, "%s%s", old, kind.suffix);
        minusOneToUseCount(oldFile, kind.useCountDir);
    }
    clearResponse();
    appendMarkup(response);
}

void AddVideoSourceConfiguration()
{
    addConfiguration(VIDEO_SOURCE_KIND, "AddVideoSourceConfiguration",
                     "<trt:AddVideoSourceConfigurationResponse></trt:AddVideoSourceConfigurationResponse>");
}

void AddAudioSourceConfiguration()
{
    addConfiguration(AUDIO_SOURCE_KIND, "AddAudioSourceConfiguration",
                     "<trt:AddAudioSourceConfigurationResponse></trt:AddAudioSourceConfigurationResponse>");
}

void AddVideoEncoderConfiguration()
{
    addConfiguration(VIDEO_ENCODER_KIND, "AddVideoEncoderConfiguration",
                     "<trt:AddVideoEncoderConfigurationResponse></trt:AddVideoEncoderConfigurationResponse>");
}

void AddAudioEncoderConfiguration()
{
    addConfiguration(AUDIO_ENCODER_KIND, "AddAudioEncoderConfiguration",
                     "<trt:AddAudioEncoderConfigurationResponse></trt:AddAudioEncoderConfigurationResponse>");
}

void AddMetadataConfiguration()
{
    addConfiguration(METADATA_KIND, "AddMetadataConfiguration",
                     "<trt:AddMetadataConfigurationResponse></trt:AddMetadataConfigurationResponse>");
}

void RemoveVideoSourceConfiguration()
{
    removeConfiguration(VIDEO_SOURCE_KIND, "RemoveVideoSourceConfiguration",
                        "<trt:RemoveVideoSourceConfigurationResponse></trt:RemoveVideoSourceConfigurationResponse>");
}

void RemoveAudioSource()
{
    removeConfiguration(AUDIO_SOURCE_KIND, "RemoveAudioSource",
                        "<trt:RemoveAudioSourceConfigurationResponse></trt:RemoveAudioSourceConfigurationResponse>");
}

void RemoveVideoEncoder()
{
    char profile[PROFILE_TOKEN_MAX + 1];
    if (requestText("trt:ProfileToken", profile, PROFILE_TOKEN_MAX + 1) == Read::Refused)
        return;
    // The first channel carries the main stream the others are derived from:
    // on this platform its encoder stays.
    if (modelHas(Cap::MediaSharedEncoderPipeline) && strcmp(profile, "Profile1") == 0) {
        writeChannelConflictFault("Other configurations of the media profile are dependant on the "
                                  "VideoEncoderConfiguration and removing it would cause a conflicting media profile.");
        return;
    }
    removeConfiguration(VIDEO_ENCODER_KIND, "RemoveVideoEncoder",
                        "<trt:RemoveVideoEncoderConfigurationResponse></trt:RemoveVideoEncoderConfigurationResponse>");
}

void RemoveAudioEncoder()
{
    removeConfiguration(AUDIO_ENCODER_KIND, "RemoveAudioEncoder",
                        "<trt:RemoveAudioEncoderConfigurationResponse></trt:RemoveAudioEncoderConfigurationResponse>");
}

void RemoveMetadataConfiguration()
{
    removeConfiguration(METADATA_KIND, "RemoveMetadataConfiguration",
                        "<trt:RemoveMetadataConfigurationResponse></trt:RemoveMetadataConfigurationResponse>");
}
