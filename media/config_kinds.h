// The media configuration kinds (where each kind's files, list, profile key
// and use counts live, and how its faults read), their listings and token
// lookups, and the checkers their setting rows share.
#ifndef MEDIA_CONFIG_KINDS_H
#define MEDIA_CONFIG_KINDS_H

#include <stddef.h>

#include "state/profiles.h"
#include "state/setting_rules.h"

struct ConfigKind {
    const char* listFile;       // names one configuration file per line
    const char* listMacro;      // the list's name in log lines
    const char* suffix;         // ".VEncoder"
    const char* dir;            // where the configuration files are
    void (*printBody)(const char* fileName);
    const char* noConfigReason;  // a token that names no configuration of the kind
    const char* noConfigDetail;
    const char* profileKey;      // the profile's key of the bound configuration, with its '='
    int useCountDir;             // the use-count directory selector; -1: no use count
    const char* nothingReason;   // taking it out of a profile that has none
    const char* nothingDetail;
    const char* parameterPrefix; // before the settings program's parameters; 0: per channel
};

extern const ConfigKind VIDEO_SOURCE_KIND;
extern const ConfigKind AUDIO_SOURCE_KIND;
extern const ConfigKind VIDEO_ENCODER_KIND;
extern const ConfigKind AUDIO_ENCODER_KIND;
extern const ConfigKind METADATA_KIND;

// Appends <element token="...">body</element> for each listed configuration.
void appendConfigurationList(const ConfigKind* kind, const char* element);

// Reads the token from the request element key (an attribute when the key
// starts with '@') and finds it in the kind's list. On success the token and
// its file name are filled in; otherwise the kind's NoConfig fault is written.
int requestListedConfiguration(const ConfigKind* kind, const char* key, char* token, size_t tokenSize,
                               char* fileName, size_t fileSize, const char* handler);
void writeNoConfigFault(const ConfigKind* kind);

// An optional token: 1 when the request leaves it out (the token is then
// empty) or it names a configuration of the kind; 0 after the NoConfig fault.
int requestOptionalConfiguration(const ConfigKind* kind, char* token, size_t tokenSize, char* fileName,
                                 size_t fileSize, const char* handler);

// trt:ProfileToken names a profile (fileName gets its file); 0 after the
// NoProfile fault. The optional form also accepts a request without one
// (fileName is then empty).
int requestProfile(char* fileName, size_t n);
int requestOptionalProfile(char* fileName, size_t n);

// The answers of the listing actions: <trt:<action>Response> with every
// configuration of the kind (none when listed is 0), or the one the request's
// trt:ConfigurationToken names.
void answerConfigurationList(const ConfigKind* kind, const char* action, int listed);
void answerOneConfiguration(const ConfigKind* kind, const char* action);

// <tt:element><tt:Min>..</tt:Min><tt:Max>..</tt:Max></tt:element> of a
// "min-max" options text.
void appendOptionRange(const char* element, const char* range);

// The distinct SourceToken values of the kind's configurations, in list order.
#define MAX_SOURCES 8
int collectSourceTokens(const ConfigKind* kind, char (*tokens)[CONFIG_TOKEN_MAX + 1], int max);
int isKnownSourceToken(const ConfigKind* kind, const char* token);

// Audio exists only where the segment says the camera has inputs; without
// it the audio setters and single reads answer this fault.
int cameraHasAudio();
void writeAudioNotSupportedFault();
// A camera without audio: writes that fault and returns 1.
int refuseWithoutAudio();

// --- Setting a configuration of a kind through the settings engine ---

// Where the media setters' rows get their option bounds and cross-field
// checks; ctx of their tables.
struct MediaSetting {
    int channel;  // the video encoder's channel
    int (*optionText)(const MediaSetting* m, const char* option, char* out, size_t n);
    int (*checkTogether)(const SettingValues* v, const MediaSetting* m);  // 1 refuses
};

// Runs rows on the kind's configuration named by token (file fileName), restarts
// the stream when a row that needs it changed, and answers: the empty
// response, the ConfigModify refusal, NoConfig for a missing file or the
// generic fault. prefix 0: the kind's.
void setMediaConfiguration(const ConfigKind* kind, const char* fileName, const SettingRow* rows, int count,
                           const char* action, const char* prefix, MediaSetting* m);

// Checkers rows share (SettingCheck).
int checkConfigurationName(char* value, const SettingRow* row, const char* option, void* ctx);
int checkWholeInOptionRange(char* value, const SettingRow* row, const char* option, void* ctx);
int checkInOptionList(char* value, const SettingRow* row, const char* option, void* ctx);
int checkAddressType(char* value, const SettingRow* row, const char* option, void* ctx);
int checkMulticastIPv4(char* value, const SettingRow* row, const char* option, void* ctx);
int checkMulticastIPv6(char* value, const SettingRow* row, const char* option, void* ctx);
int checkPort(char* value, const SettingRow* row, const char* option, void* ctx);
int checkTTL(char* value, const SettingRow* row, const char* option, void* ctx);
int checkAutoStart(char* value, const SettingRow* row, const char* option, void* ctx);
int checkSessionTimeout(char* value, const SettingRow* row, const char* option, void* ctx);
int checkForcePersistence(char* value, const SettingRow* row, const char* option, void* ctx);

// path, key, check, min, max, option, parameter, form, flags
#define MEDIA_ROW(path, key, check, option, parameter, restarts) \
    {path, key, check, 0, 0, option, parameter, FORM_AS_GIVEN, (restarts) ? (unsigned)SETTING_RESTARTS : 0u, 0}

// The rows of the multicast block and session timeout every stream
// configuration ends with, and the persistence flag every setter carries.
#define MULTICAST_SETTING_ROWS(prefix)                                                                  \
    MEDIA_ROW("tt:Type", "Multicast.Address.Type", checkAddressType, 0, prefix "Type", 0),                        \
    MEDIA_ROW("tt:IPv4Address", "Multicast.Address.IPv4Address", checkMulticastIPv4, 0, prefix "IPv4Address", 0), \
    MEDIA_ROW("tt:IPv6Address", "Multicast.Address.IPv6Address", checkMulticastIPv6, 0, prefix "IPv6Address", 0), \
    MEDIA_ROW("tt:Port", "Multicast.Port", checkPort, 0, prefix "Port", 0),                                       \
    MEDIA_ROW("tt:TTL", "Multicast.TTL", checkTTL, 0, prefix "TTL", 0),                                           \
    MEDIA_ROW("tt:AutoStart", "Multicast.AutoStart", checkAutoStart, 0, prefix "AutoStart", 0),                   \
    MEDIA_ROW("tt:SessionTimeout", "SessionTimeout", checkSessionTimeout, 0, 0, 0),                               \
    MEDIA_ROW("trt:ForcePersistence", 0, checkForcePersistence, 0, 0, 0)

#endif
