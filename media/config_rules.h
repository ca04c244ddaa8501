// The media configuration kinds (where each kind's files and list live),
// their listings, and the one generic setter that applies a rule table.
#ifndef MEDIA_CONFIG_RULES_H
#define MEDIA_CONFIG_RULES_H

#include <stddef.h>

#include "state/profiles.h"

struct ConfigKind {
    const char* listFile;       // names one configuration file per line
    const char* listMacro;      // the list's name in log lines
    const char* suffix;         // ".VEncoder"
    const char* dir;            // where the configuration files are
    void (*printBody)(const char* fileName);
    const char* noConfigReason;
    const char* noConfigDetail;
};

extern const ConfigKind VIDEO_SOURCE_KIND;
extern const ConfigKind AUDIO_SOURCE_KIND;
extern const ConfigKind VIDEO_ENCODER_KIND;
extern const ConfigKind AUDIO_ENCODER_KIND;

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

// --- The generic setter ---

struct SettingContext;
// Refuses (returns 1) a value the camera cannot take; may normalise the value
// in place (lower case, unit) within its CONFIG_VALUE_SIZE buffer. option is
// the text of the rule's options entry.
typedef int (*SettingCheck)(char* value, const SettingContext* ctx, const char* option);

struct SettingRule {
    const char* element;    // request element ("tt:FrameRateLimit"), "@x" for an attribute
    const char* key;        // key in the configuration file; 0: only checked
    SettingCheck check;
    const char* option;     // options entry that bounds it, or 0
    const char* parameter;  // camera parameter after the file's prefix, or 0
    int restartsStream;     // a change starts the encoder's stream over
};

#define MAX_SETTING_RULES 24

struct SettingContext {
    const SettingRule* rules;
    int count;
    const char* path;             // the configuration file
    const char* parameterPrefix;  // "Video.Ch1." before each camera parameter
    // Text of a rule's options entry; 0 when the model has none.
    int (*optionValue)(const SettingContext* ctx, const char* option, char* out, size_t n);
    // Checks that hold between values (a resolution pair); 1 refuses.
    int (*checkTogether)(const SettingContext* ctx);
    int channel;
    char fileValue[MAX_SETTING_RULES][CONFIG_VALUE_SIZE];
    char value[MAX_SETTING_RULES][CONFIG_VALUE_SIZE];  // the file's, overlaid with the request's
    int given[MAX_SETTING_RULES];
};

// The resulting value of a file key, and whether the request gave it.
const char* settingValue(const SettingContext* ctx, const char* key);
int settingGiven(const SettingContext* ctx, const char* key);

enum SettingOutcome { SETTING_DONE = 0, SETTING_REFUSED = 1, SETTING_NO_FILE = 2, SETTING_FAILED = 3 };

// Reads every rule's element, checks them all, and only then rewrites the
// file once (changed keys only), tells the settings program the changed
// camera parameters once, and restarts the stream when a rule that needs it
// changed. Writes the ConfigModify fault on refusal; other outcomes are the
// caller's to answer.
int applySettingRules(SettingContext* ctx);

// Checkers rules share.
int checkConfigurationName(char* value, const SettingContext* ctx, const char* option);
int checkWholeInOptionRange(char* value, const SettingContext* ctx, const char* option);
int checkInOptionList(char* value, const SettingContext* ctx, const char* option);
int checkAddressType(char* value, const SettingContext* ctx, const char* option);
int checkMulticastIPv4(char* value, const SettingContext* ctx, const char* option);
int checkMulticastIPv6(char* value, const SettingContext* ctx, const char* option);
int checkPort(char* value, const SettingContext* ctx, const char* option);
int checkTTL(char* value, const SettingContext* ctx, const char* option);
int checkAutoStart(char* value, const SettingContext* ctx, const char* option);
int checkSessionTimeout(char* value, const SettingContext* ctx, const char* option);
int checkForcePersistence(char* value, const SettingContext* ctx, const char* option);

// The rules of the multicast block and session timeout every stream
// configuration ends with, and the persistence flag every setter carries.
#define MULTICAST_SETTING_RULES(prefix)                                                                  \
    {"tt:Type", "Multicast.Address.Type", checkAddressType, 0, prefix "Type", 0},                        \
    {"tt:IPv4Address", "Multicast.Address.IPv4Address", checkMulticastIPv4, 0, prefix "IPv4Address", 0}, \
    {"tt:IPv6Address", "Multicast.Address.IPv6Address", checkMulticastIPv6, 0, prefix "IPv6Address", 0}, \
    {"tt:Port", "Multicast.Port", checkPort, 0, prefix "Port", 0},                                       \
    {"tt:TTL", "Multicast.TTL", checkTTL, 0, prefix "TTL", 0},                                           \
    {"tt:AutoStart", "Multicast.AutoStart", checkAutoStart, 0, prefix "AutoStart", 0},                   \
    {"tt:SessionTimeout", "SessionTimeout", checkSessionTimeout, 0, 0, 0},                               \
    {"trt:ForcePersistence", 0, checkForcePersistence, 0, 0, 0}

#endif
