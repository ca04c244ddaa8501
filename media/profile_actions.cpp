// Listing, creating and deleting media profiles.
#include "frame/frame.h"
#include "state/mode.h"
#include "frame/request_values.h"
#include "state/shm_words.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "media/printers.h"
#include "state/profiles.h"
#include "state/checkers.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <string.h>
#include <unistd.h>


struct ProfileFields {
    char fixed[16];
    char name[CONFIG_TOKEN_MAX + 1];
    char videoSource[CONFIG_TOKEN_MAX + 1];
    char audioSource[CONFIG_TOKEN_MAX + 1];
    char videoEncoder[CONFIG_TOKEN_MAX + 1];
    char audioEncoder[CONFIG_TOKEN_MAX + 1];
    char ptz[CONFIG_TOKEN_MAX + 1];
    char metadata[CONFIG_TOKEN_MAX + 1];
};

static int readProfile(const char* fileName, ProfileFields* p)
{
    char path[300];
    formatChecked(path, sizeof path, ONVIF_DIR "%s", fileName);
    static const char* const keys[] = {"Fixed", "Name", "VideoSource", "AudioSource", "VideoEncoder",
                                       "AudioEncoder", "PTZ", "Metadata"};
    char v[8][CONFIG_VALUE_SIZE];
    if (!readConfigValues(path, keys, v, 8))
        return 0;
    char* fields[] = {p->fixed, p->name, p->videoSource, p->audioSource, p->videoEncoder,
                      p->audioEncoder, p->ptz, p->metadata};
    size_t sizes[] = {sizeof p->fixed, sizeof p->name, sizeof p->videoSource, sizeof p->audioSource,
                      sizeof p->videoEncoder, sizeof p->audioEncoder, sizeof p->ptz, sizeof p->metadata};
    for (int i = 0; i < 8; ++i) {
        // A missing binding, or one no file could hold, is no binding.
        const char* value = v[i][0] ? v[i] : "NONE";
        if (i >= 2 && !isSafeFileToken(value))
            value = "NONE";
        snprintf(fields[i], sizes[i], "%s", value);
    }
    return 1;
}

static int bound(const char* token) { return strcmp(token, "NONE") != 0; }

// The configurations of a profile, in the order clients expect them.
static void printProfileBody(const ProfileFields* p)
{
    char file[64];
    appendResponse("<tt:Name>%s</tt:Name>", p->name);
    int audio = shmWord(AUDIO_INPUTS_WORD) > 0;
    if (bound(p->videoSource)) {
        appendResponse("<tt:VideoSourceConfiguration token=\"%s\">", p->videoSource);
        formatChecked(file, sizeof file, "%s.VSConf", p->videoSource);
        Read_Print_VideoSourceFile(file);
        appendResponse("</tt:VideoSourceConfiguration>");
    }
    if (audio && bound(p->audioSource)) {
        appendResponse("<tt:AudioSourceConfiguration token=\"%s\">", p->audioSource);
        formatChecked(file, sizeof file, "%s.ASConf", p->audioSource);
        Read_Print_AudioSourceFile(file);
        appendResponse("</tt:AudioSourceConfiguration>");
    }
    if (bound(p->videoEncoder)) {
        appendResponse("<tt:VideoEncoderConfiguration token=\"%s\">", p->videoEncoder);
        formatChecked(file, sizeof file, "%s.VEncoder", p->videoEncoder);
        Read_Print_VideoEncoderFile(file);
        appendResponse("</tt:VideoEncoderConfiguration>");
    }
    if (audio && bound(p->audioEncoder)) {
        appendResponse("<tt:AudioEncoderConfiguration token=\"%s\">", p->audioEncoder);
        formatChecked(file, sizeof file, "%s.AEncoder", p->audioEncoder);
        Read_Print_AudioEncoderFile(file);
        appendResponse("</tt:AudioEncoderConfiguration>");
    }
    if (bound(p->ptz) && modelHas(Cap::PtzMotors)) {
        appendResponse("<tt:PTZConfiguration xsi:type=\"tt:PTZConfiguration\" token=\"%s\">", p->ptz);
        formatChecked(file, sizeof file, "%s.PTZConf", p->ptz);
        Read_Print_PTZ_Conf(file);
        appendResponse("</tt:PTZConfiguration>");
    }
    if (bound(p->metadata)) {
        appendResponse("<tt:MetadataConfiguration token=\"%s\">", p->metadata);
        formatChecked(file, sizeof file, "%s.MetaData", p->metadata);
        Read_Print_MetadataFile(file);
        appendResponse("</tt:MetadataConfiguration>");
    }
}

void GetProfiles()
{
    setResponse("<trt:GetProfilesResponse>");
    FILE* index = fopenRoot(ONVIF_LODING_PROFILE_FILE, "r");
    if (!index) {
        // Left open on purpose: clients of this camera know the unfinished
        // answer. The ONVIF mode answers an empty list.
        logServiceError("GetProfiles", "%s", "ONVIF_LODING_PROFILE_FILE missing");
        if (onvifMode())
            appendResponse("</trt:GetProfilesResponse>");
        return;
    }
    char line[256], fileName[128];
    while (fgets(line, sizeof line, index)) {
        if (!scanSettingLine(line, "profile filename=", fileName, sizeof fileName, 0))
            continue;
        char token[sizeof fileName];
        snprintf(token, sizeof token, "%s", fileName);
        token[strcspn(token, ".")] = 0;
        ProfileFields p;
        if (!isSafeFileToken(fileName) || !readProfile(fileName, &p)) {
            log_message_to_onvifErrorFile(1, "onvifService:[GetProfiles]%s missing", fileName);
            continue;
        }
        appendResponse("<trt:Profiles token=\"%s\" fixed=\"%s\">", token,
                       strcmp(p.fixed, "true") == 0 ? "true" : "false");
        printProfileBody(&p);
        appendResponse("</trt:Profiles>");
    }
    fclose(index);
    appendResponse("</trt:GetProfilesResponse>");
}

void GetOneProfile()
{
    char token[PROFILE_TOKEN_MAX + 1], fileName[64];
    if (requestText("trt:ProfileToken", token, PROFILE_TOKEN_MAX + 1) == Read::Refused)
        return;
    if (findProfile(token, fileName, sizeof fileName) != PROFILE_FOUND) {
        writeNoProfileFault();
        return;
    }
    ProfileFields p;
    if (!readProfile(fileName, &p)) {
        log_message_to_onvifErrorFile(1, "onvifService:[GetOneProfile]ONVIF_LODING_PROFILE_FILE missing");
        setResponse("%s", "");
        return;
    }
    setResponse("<trt:GetProfileResponse><trt:Profile token=\"%s\" fixed=\"%s\">", token,
                strcmp(p.fixed, "true") == 0 ? "true" : "false");
    printProfileBody(&p);
    appendResponse("</trt:Profile></trt:GetProfileResponse>");
}

static void writeBadProfileFormatFault()
{
    writeSenderFault2("InvalidArgVal", "CertificateFormat", "Invalid format",
                      "Bad certificate format or the format is not supported by the NVT");
}

struct IndexAppend {
    const char* line;
};

static int appendIndexLine(const char* line, FILE* out, void* ctx)
{
    if (!line)
        fputs(((IndexAppend*)ctx)->line, out);
    return 0;
}

// The lines of the profile index: one per profile.
static int profileIndexLines()
{
    int count = 0;
    FILE* index = fopenRoot(ONVIF_LODING_PROFILE_FILE, "r");
    if (!index) {
        log_message_to_onvifErrorFile(1, "deviceService:[CreateProfile]ONVIF_LODING_PROFILE_FILE missing");
        return 0;
    }
    char line[256];
    while (fgets(line, sizeof line, index))
        ++count;
    fclose(index);
    return count;
}

void CreateProfile()
{
    char name[PROFILE_TOKEN_MAX + 1], token[PROFILE_TOKEN_MAX + 8], fileName[64];
    memset(token, 0, sizeof token);
    Read nameRead = requestText("trt:Name", name, PROFILE_TOKEN_MAX + 1);
    if (nameRead == Read::Refused)
        return;
    if (nameRead == Read::Absent || strcmp(name, "(null)") == 0 ||
        CheckChar_including_space(name)) {
        writeBadProfileFormatFault();
        return;
    }
    Read tokenRead = requestText("trt:Token", token, PROFILE_TOKEN_MAX + 1);
    if (tokenRead == Read::Refused)
        return;
    if (tokenRead == Read::Value) {
        if (CheckChar(token) || !isSafeFileToken(token)) {
            writeBadProfileFormatFault();
            return;
        }
        int found = findProfile(token, fileName, sizeof fileName);
        if (found == PROFILE_INDEX_MISSING)
            log_message_to_onvifErrorFile(1, "deviceService:[CreateProfile]ONVIF_LODING_PROFILE_FILE missing");
        if (found == PROFILE_FOUND) {
            writeSenderFault2("InvalidArgVal", "ProfileExists", "Profile already exists",
                              "A profile with the token ProfileToken already exists");
            return;
        }
    } else {
        // Numbered after the count of profiles, not checked against them.
        snprintf(token, sizeof token, "Profile%d", profileIndexLines() + 1);
    }
    // The ONVIF mode holds the store to the number its capabilities report.
    if (onvifMode() && profileIndexLines() >= modelValue(Cap::MediaMaxProfiles)) {
        writeReceiverFault2("Action", "MaxNVTProfiles", "The maximum number of profiles has been reached",
                            "The maximum number of supported profiles supported by the device has been reached.");
        return;
    }
    char line[128];
    formatChecked(line, sizeof line, "profile filename=%s.profile\n", token);
    IndexAppend add = {line};
    if (rewriteFileThroughWorkCopy(ONVIF_LODING_PROFILE_FILE, appendIndexLine, &add) != 0 &&
        replaceFileContent(ONVIF_LODING_PROFILE_FILE, line) != 0)
        log_message_to_onvifErrorFile(1, "deviceService:[CreateProfile]:Append ONVIF_LODING_PROFILE_FILE missing");
    char path[128], content[512];
    formatChecked(path, sizeof path, ONVIF_DIR "%s.profile", token);
    formatChecked(content, sizeof content,
             "Fixed=false\nName=%s\nVideoSource=NONE\nAudioSource=NONE\nVideoEncoder=NONE\nAudioEncoder=NONE\n"
             "PTZ=NONE\nVAnalytics=NONE\nMetadata=NONE\n", name);
    if (replaceFileContent(path, content) != 0)
        return;
    setResponse("<trt:CreateProfileResponse><trt:Profile token=\"%s\" fixed=\"false\"><tt:Name>%s</tt:Name>"
                "</trt:Profile></trt:CreateProfileResponse>", token, name);
}

struct IndexDrop {
    const char* fileName;
};

static int dropIndexLine(const char* line, FILE*, void* ctx)
{
    char name[256];
    return line && scanSettingLine(line, "profile filename=", name, sizeof name, 0) &&
           strcmp(name, ((IndexDrop*)ctx)->fileName) == 0;
}

void DeleteProfile()
{
    char token[PROFILE_TOKEN_MAX + 1], fileName[64], path[128];
    if (requestText("trt:ProfileToken", token, PROFILE_TOKEN_MAX + 1) == Read::Refused)
        return;
    if (!isSafeFileToken(token)) {
        writeNoProfileFault();
        return;
    }
    formatChecked(fileName, sizeof fileName, "%s.profile", token);
    formatChecked(path, sizeof path, ONVIF_DIR "%s", fileName);
    ProfileFields p;
    if (!readProfile(fileName, &p)) {
        memset(&p, 0, sizeof p);
        log_message_to_onvifErrorFile(1, "deviceService:[DeleteProfile]:%s missing", path);
    }
    if (strcmp(p.fixed, "true") == 0) {
        writeSenderFault2("Action", "DeletionOfFixedProfile", "The fixed Profile cannot be deleted",
                          "The fixed Profile cannot be deleted");
        return;
    }
    char real[512];
    if (unlink(resolvePath(path, real, sizeof real)) != 0) {
        writeNoProfileFault();
        return;
    }
    IndexDrop drop = {fileName};
    if (rewriteFileThroughWorkCopy(ONVIF_LODING_PROFILE_FILE, dropIndexLine, &drop) != 0) {
        log_message_to_onvifErrorFile(1, "deviceService:[DeleteProfile]:ONVIF_LODING_PROFILE_FILE missing");
        setResponse("<trt:DeleteProfileResponse></trt:DeleteProfileResponse>");
        return;
    }
    struct { const char* token; const char* suffix; int directory; } former[] = {
        {p.videoSource, ".VSConf", 0}, {p.videoEncoder, ".VEncoder", 0},
        {p.audioSource, ".ASConf", 1}, {p.audioEncoder, ".AEncoder", 0},
    };
    for (auto& f : former) {
        char config[64];
        snprintf(config, sizeof config, "%s%s", f.token, f.suffix);
        minusOneToUseCount(config, f.directory);
    }
    setResponse("<trt:DeleteProfileResponse></trt:DeleteProfileResponse>");
}
