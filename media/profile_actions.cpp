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
        // Cut to the field, as the stored bindings always were.
        size_t length = strnlen(value, sizes[i] - 1);
        memcpy(fields[i], value, length);
        fields[i][length] = 0;
    }
    return 1;
}

static int bound(const char* token) { return strcmp(token, "NONE") != 0; }

// The parts of the answer printed from each configuration file so far: the
// factory's profiles share their source and PTZ configurations, and a file
// does not change while one request lists them.
struct PrintedFiles {
    struct Part {
        char file[64];
        size_t from, to;
    } parts[16];
    int count;
};

static void printConfigurationFile(const char* file, void (*print)(const char*), PrintedFiles* printed)
{
    for (int i = 0; printed && i < printed->count; ++i)
        if (strcmp(printed->parts[i].file, file) == 0)
            return appendResponsePart(printed->parts[i].from, printed->parts[i].to);
    size_t from = responseMark();
    print(file);
    // Only a part that printed: a missing file is looked for (and logged) each time.
    size_t to = responseMark();
    if (!printed || to == from || printed->count >= (int)(sizeof printed->parts / sizeof *printed->parts) || responseOverflowed())
        return;
    PrintedFiles::Part& part = printed->parts[printed->count++];
    snprintf(part.file, sizeof part.file, "%s", file);
    part.from = from;
    part.to = to;
}

// The configurations of a profile, in the order clients expect them.
static void printProfileBody(const ProfileFields* p, PrintedFiles* printed)
{
    char file[64];
    appendResponse("<tt:Name>%s</tt:Name>", p->name);
    int audio = shmWord(AUDIO_INPUTS_WORD) > 0;
    if (bound(p->videoSource)) {
        appendResponse("<tt:VideoSourceConfiguration token=\"%s\">", p->videoSource);
        formatChecked(file, sizeof file, "%s.VSConf", p->videoSource);
        printConfigurationFile(file, Read_Print_VideoSourceFile, printed);
        appendResponse("</tt:VideoSourceConfiguration>");
    }
    if (audio && bound(p->audioSource)) {
        appendResponse("<tt:AudioSourceConfiguration token=\"%s\">", p->audioSource);
        formatChecked(file, sizeof file, "%s.ASConf", p->audioSource);
        printConfigurationFile(file, Read_Print_AudioSourceFile, printed);
        appendResponse("</tt:AudioSourceConfiguration>");
    }
    if (bound(p->videoEncoder)) {
        appendResponse("<tt:VideoEncoderConfiguration token=\"%s\">", p->videoEncoder);
        formatChecked(file, sizeof file, "%s.VEncoder", p->videoEncoder);
        printConfigurationFile(file, Read_Print_VideoEncoderFile, printed);
        appendResponse("</tt:VideoEncoderConfiguration>");
    }
    if (audio && bound(p->audioEncoder)) {
        appendResponse("<tt:AudioEncoderConfiguration token=\"%s\">", p->audioEncoder);
        formatChecked(file, sizeof file, "%s.AEncoder", p->audioEncoder);
        printConfigurationFile(file, Read_Print_AudioEncoderFile, printed);
        appendResponse("</tt:AudioEncoderConfiguration>");
    }
    if (bound(p->ptz) && modelHas(Cap::PtzMotors)) {
        appendResponse("<tt:PTZConfiguration xsi:type=\"tt:PTZConfiguration\" token=\"%s\">", p->ptz);
        formatChecked(file, sizeof file, "%s.PTZConf", p->ptz);
        printConfigurationFile(file, Read_Print_PTZ_Conf, printed);
        appendResponse("</tt:PTZConfiguration>");
    }
    if (bound(p->metadata)) {
        appendResponse("<tt:MetadataConfiguration token=\"%s\">", p->metadata);
        formatChecked(file, sizeof file, "%s.MetaData", p->metadata);
        printConfigurationFile(file, Read_Print_MetadataFile, printed);
        appendResponse("</tt:MetadataConfiguration>");
    }
}

void GetProfiles()
{
    setResponse("<trt:GetProfilesResponse>");
    SettingsLines index;
    if (!openSettingsLines(&index, ONVIF_LODING_PROFILE_FILE)) {
        // Left open on purpose: clients of this camera know the unfinished
        // answer. The ONVIF mode answers an empty list.
        logServiceError("GetProfiles", "%s", "ONVIF_LODING_PROFILE_FILE missing");
        if (onvifMode())
            appendResponse("</trt:GetProfilesResponse>");
        return;
    }
    char fileName[128];
    PrintedFiles printed;
    printed.count = 0;
    while (const char* line = nextSettingsLine(&index, 256)) {
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
        printProfileBody(&p, &printed);
        appendResponse("</trt:Profiles>");
    }
    closeSettingsLines(&index);
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
    printProfileBody(&p, 0);
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
    // The profile's file before its index line: the index never names a
    // profile that is not there, whatever fails or stops in between.
    char path[128], content[512];
    formatChecked(path, sizeof path, ONVIF_DIR "%s.profile", token);
    formatChecked(content, sizeof content,
             "Fixed=false\nName=%s\nVideoSource=NONE\nAudioSource=NONE\nVideoEncoder=NONE\nAudioEncoder=NONE\n"
             "PTZ=NONE\nVAnalytics=NONE\nMetadata=NONE\n", name);
    if (replaceFileContent(path, content) != 0)
        return answerStoreFailure(path);
    char line[128];
    formatChecked(line, sizeof line, "profile filename=%s.profile\n", token);
    IndexAppend add = {line};
    int indexed = rewriteFileThroughWorkCopy(ONVIF_LODING_PROFILE_FILE, appendIndexLine, &add);
    if (indexed == -1 && (indexed = replaceFileContent(ONVIF_LODING_PROFILE_FILE, line)) != 0)
        log_message_to_onvifErrorFile(1, "deviceService:[CreateProfile]:Append ONVIF_LODING_PROFILE_FILE missing");
    if (indexed != 0) {
        char real[512];
        unlink(resolvePath(path, real, sizeof real));
        return answerStoreFailure(ONVIF_LODING_PROFILE_FILE);
    }
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
    if (access(resolvePath(path, real, sizeof real), F_OK) != 0) {
        writeNoProfileFault();
        return;
    }
    // The index line goes first: the index never names a profile that is
    // not there, whatever fails or stops in between.
    IndexDrop drop = {fileName};
    int dropped = rewriteFileThroughWorkCopy(ONVIF_LODING_PROFILE_FILE, dropIndexLine, &drop);
    if (dropped == WORK_COPY_FAILED)
        return answerStoreFailure(ONVIF_LODING_PROFILE_FILE);
    if (unlink(real) != 0) {
        writeNoProfileFault();
        return;
    }
    if (dropped != 0) {
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
