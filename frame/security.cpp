// Authentication of a request: which actions need credentials, and the
// WS-Security UsernameToken check against the two password files.
#include "frame/security.h"
#include "frame/comcrypto.h"
#include "frame/frame.h"
#include "frame/users.h"
#include "frame/xmlsearch.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <string.h>

enum AuthDecision { AUTH_OPEN, AUTH_CHECK, AUTH_CHECK_UNLESS_12 };

struct AuthRow {
    const char* name;
    AuthDecision decision;
};

// Tried in order by substring; the first match decides. The uneven treatment
// of like actions is the camera's long-standing policy and clients rely on it.
static const AuthRow authTable[] = {
    {"SetNetworkInterfaces", AUTH_CHECK},
    {"GetNetworkDefaultGateway", AUTH_OPEN},
    {"SetNetworkDefaultGateway", AUTH_CHECK},
    {"SystemReboot", AUTH_CHECK},
    {"SetZeroConfiguration", AUTH_CHECK},
    {"GetZeroConfiguration", AUTH_OPEN},
    {"GetNetworkProtocols", AUTH_OPEN},
    {"SetNetworkProtocols", AUTH_CHECK},
    {"GetWsdlUrl", AUTH_OPEN},
    {"GetSystemDateAndTime", AUTH_OPEN},
    {"SetSystemDateAndTime", AUTH_CHECK_UNLESS_12},
    {"GetNTP", AUTH_OPEN},
    {"SetNTP", AUTH_CHECK},
    {"GetCapabilities", AUTH_OPEN},
    {"GetHostname", AUTH_OPEN},
    {"SetHostname", AUTH_CHECK},
    {"GetDNS", AUTH_OPEN},
    {"SetDNS", AUTH_CHECK},
    {"GetDeviceInformation", AUTH_OPEN},
    {"GetScopes", AUTH_OPEN},
    {"SetScopes", AUTH_CHECK},
    {"AddScopes", AUTH_CHECK},
    {"RemoveScopes", AUTH_CHECK},
    {"SetSystemFactoryDefault", AUTH_CHECK},
    {"SetDiscoveryMode", AUTH_CHECK},
    {"GetDiscoveryMode", AUTH_CHECK},
    {"GetSystemLog", AUTH_CHECK},
    {"CreateProfile", AUTH_CHECK_UNLESS_12},
    {"GetProfiles", AUTH_OPEN},
    {"GetProfile", AUTH_OPEN},
    {"DeleteProfile", AUTH_CHECK_UNLESS_12},
    {"GetVideoSources", AUTH_OPEN},
    {"GetCompatibleVideoSourceConfigurations", AUTH_OPEN},
    {"GetVideoSourceConfigurationOptions", AUTH_OPEN},
    {"GetVideoSourceConfigurations", AUTH_OPEN},
    {"GetVideoSourceConfiguration", AUTH_OPEN},
    {"AddVideoSourceConfiguration", AUTH_CHECK_UNLESS_12},
    {"RemoveVideoSourceConfiguration", AUTH_CHECK},
    {"SetVideoSourceConfiguration", AUTH_CHECK},
    {"GetCompatibleVideoEncoderConfigurations", AUTH_OPEN},
    {"GetVideoEncoderConfigurationOptions", AUTH_OPEN},
    {"GetVideoEncoderConfigurations", AUTH_OPEN},
    {"GetVideoEncoderConfiguration", AUTH_OPEN},
    {"AddVideoEncoderConfiguration", AUTH_CHECK_UNLESS_12},
    {"RemoveVideoEncoderConfiguration", AUTH_CHECK},
    {"SetVideoEncoderConfiguration", AUTH_CHECK_UNLESS_12},
    {"GetGuaranteedNumberOfVideoEncoderInstances", AUTH_OPEN},
    {"GetAudioSources", AUTH_OPEN},
    {"GetCompatibleAudioSourceConfigurations", AUTH_OPEN},
    {"GetAudioSourceConfigurationOptions", AUTH_OPEN},
    {"GetAudioSourceConfigurations", AUTH_OPEN},
    {"GetAudioSourceConfiguration", AUTH_OPEN},
    {"AddAudioSourceConfiguration", AUTH_CHECK},
    {"RemoveAudioSourceConfiguration", AUTH_CHECK},
    {"SetAudioSourceConfiguration", AUTH_CHECK},
    {"GetCompatibleAudioEncoderConfigurations", AUTH_OPEN},
    {"GetAudioEncoderConfigurationOptions", AUTH_OPEN},
    {"GetAudioEncoderConfigurations", AUTH_OPEN},
    {"GetAudioEncoderConfiguration", AUTH_OPEN},
    {"AddAudioEncoderConfiguration", AUTH_CHECK},
    {"RemoveAudioEncoderConfiguration", AUTH_CHECK},
    {"SetAudioEncoderConfiguration", AUTH_CHECK_UNLESS_12},
    {"GetAudioOutputConfigurations", AUTH_CHECK},
    {"GetAudioOutputConfigurationOptions", AUTH_CHECK},
    {"SetAudioOutputConfiguration", AUTH_CHECK},
    {"GetAudioOutputConfiguration", AUTH_CHECK},
    {"GetAudioOutputs", AUTH_CHECK},
    {"GetAudioDecoderConfigurationOptions", AUTH_CHECK},
    {"GetCompatibleMetadataConfigurations", AUTH_OPEN},
    {"GetMetadataConfigurationOptions", AUTH_OPEN},
    {"GetMetadataConfigurations", AUTH_OPEN},
    {"GetMetadataConfiguration", AUTH_OPEN},
    {"AddMetadataConfiguration", AUTH_CHECK_UNLESS_12},
    {"SetMetadataConfiguration", AUTH_CHECK_UNLESS_12},
    {"RemoveMetadataConfiguration", AUTH_CHECK},
    {"GetUsers", AUTH_CHECK},
    {"CreateUsers", AUTH_CHECK},
    {"DeleteUsers", AUTH_CHECK},
    {"SetUser", AUTH_CHECK},
    {"StartMulticastStreaming", AUTH_CHECK},
    {"StopMulticastStreaming", AUTH_CHECK},
    {"GetOptions", AUTH_OPEN},
    {"GetImagingSettings", AUTH_OPEN},
    {"GetMoveOptions", AUTH_OPEN},
    {"GetRelayOutputOptions", AUTH_OPEN},
    {"GetRelayOutputs", AUTH_OPEN},
    {"SetRelayOutputState", AUTH_CHECK},
    {"SetRelayOutputSettings", AUTH_CHECK},
    {"GetNodes", AUTH_CHECK},
    {"GetNode", AUTH_CHECK},
    {"GetConfigurationOptions", AUTH_CHECK},
    {"GetConfigurations", AUTH_CHECK_UNLESS_12},
    {"GetConfiguration", AUTH_CHECK},
    {"SetConfiguration", AUTH_CHECK},
    {"SetPreset", AUTH_CHECK},
    {"GotoPreset", AUTH_CHECK},
    {"RemovePreset", AUTH_CHECK},
    {"GetPresets", AUTH_CHECK},
    {"GetStatus", AUTH_CHECK},
    {"SetHomePosition", AUTH_CHECK},
    {"AddPTZConfiguration", AUTH_CHECK},
    {"RemovePTZConfiguration", AUTH_CHECK},
    {"GetAnalyticsModules", AUTH_CHECK},
    {"CreatePullPointSubscription", AUTH_CHECK_UNLESS_12},
    {"GetEventProperties", AUTH_CHECK_UNLESS_12},
    {"Subscribe", AUTH_CHECK},
    {"Unsubscribe", AUTH_CHECK},
    {"Renew", AUTH_CHECK},
    {"PullMessages", AUTH_CHECK_UNLESS_12},
};

// The credential fields: a token longer than its field is refused, never cut.
#define NONCE_SIZE 64
#define SENT_PASSWORD_SIZE 32
#define CREATED_SIZE 32
#define STORED_PASSWORD_SIZE 72

enum PasswordMode { MODE_NONE = 0, MODE_DIGEST = 1, MODE_TEXT = 2, MODE_UNKNOWN = 3 };

static int paddingOf(const char* text)
{
    return strstr(text, "===") ? 3 : strstr(text, "==") ? 2 : strstr(text, "=") ? 1 : 0;
}

// Base64 as a client sends it: whole quads of the alphabet with at most two
// '=' of padding at the end.
static int isWellFormedBase64(const char* text)
{
    size_t n = strlen(text);
    if (n == 0 || n % 4 != 0)
        return 0;
    size_t pad = 0;
    while (pad < n && text[n - 1 - pad] == '=')
        ++pad;
    if (pad > 2)
        return 0;
    for (size_t i = 0; i < n - pad; ++i)
        if (COM_Chr2Base(text[i]) < 0)
            return 0;
    return 1;
}

int check_password_digest(const char* nonce_b64, const char* created, const char* password, const char* digest_b64)
{
    unsigned char input[128];
    char hex[128];
    char encoded[128];
    memset(input, 0, sizeof input);
    memset(hex, 0, sizeof hex);
    memset(encoded, 0, sizeof encoded);
    // A nonce is optional; a digest is a whole SHA-1 (28 characters), never
    // a prefix of one that would need far fewer guesses.
    if (!created[0] || (nonce_b64[0] && !isWellFormedBase64(nonce_b64)) || strlen(digest_b64) != 28 ||
        !isWellFormedBase64(digest_b64))
        return 0;
    int nonceLength = (int)(strlen(nonce_b64) / 4) * 3 - paddingOf(nonce_b64);
    size_t createdLength = strlen(created), passwordLength = strlen(password);
    if (nonceLength < 0 || (size_t)nonceLength + createdLength + passwordLength > sizeof input)
        return 0;
    if (nonceLength > 0 && COM_Base64Decode(input, nonce_b64, nonceLength) != nonceLength)
        return 0;
    memcpy(input + nonceLength, created, createdLength);
    memcpy(input + nonceLength + createdLength, password, passwordLength);
    COM_MakeStrSHA1(hex, (const char*)input, (int)(nonceLength + createdLength + passwordLength));
    unsigned char digest[20];
    for (int i = 0; i < 20; ++i)
        digest[i] = (unsigned char)hexToAscii(hex[2 * i], hex[2 * i + 1]);
    // The encoded length follows the sent text, as the camera always did.
    int sentBytes = (int)(strlen(digest_b64) / 4) * 3 - paddingOf(digest_b64);
    if (sentBytes < 0 || sentBytes > 20)
        return 0;
    COM_Base64Encode(encoded, digest, sentBytes);
    return strncmp(encoded, digest_b64, strlen(digest_b64)) == 0;
}

// Copies text into a credential field; 0 when it does not fit.
static int copyCredential(char* field, size_t size, const char* text)
{
    if (!text)
        text = "";
    if (strlen(text) >= size)
        return 0;
    strcpy(field, text);
    return 1;
}

static int passwordModeFromHeader()
{
    for (int i = 0; i < G_xmlAttributeNum_WSSE && i < XML_TABLE_ROWS; ++i) {
        const char* name = ElementBuffer3_WSSE[i];
        if (!name)
            break;
        if (strcmp(name, "Type") == 0 || strcmp(name, "wsse:Type") == 0 || strstr(name, "Type") ||
            strstr(name, "type")) {
            const char* value = ElementBuffer4_WSSE[i] ? ElementBuffer4_WSSE[i] : "";
            size_t n = strlen(value);
            static const char DIGEST_TAIL[] = "#PasswordDigest";
            if (strcmp(value, "PasswordDigest") == 0 ||
                (n >= sizeof DIGEST_TAIL - 1 && strcmp(value + n - (sizeof DIGEST_TAIL - 1), DIGEST_TAIL) == 0))
                return MODE_DIGEST;
            if (strcmp(value, "PasswordText") == 0)
                return MODE_TEXT;
            return MODE_UNKNOWN;
        }
    }
    return -1;
}

static int credentialsAccepted()
{
    char nonce[NONCE_SIZE], sent[SENT_PASSWORD_SIZE], created[CREATED_SIZE], stored[STORED_PASSWORD_SIZE];
    memset(nonce, 0, sizeof nonce);
    memset(sent, 0, sizeof sent);
    memset(created, 0, sizeof created);
    memset(stored, 0, sizeof stored);
    int mode = MODE_NONE, found = 0;
    if (G_xmlElementNum_WSSE < 1)
        return 0;
    for (int i = 0; i < G_xmlElementNum_WSSE && i < XML_TABLE_ROWS; ++i) {
        const char* name = ElementBuffer1_WSSE[i];
        const char* text = ElementBuffer2_WSSE[i];
        if (!name)
            break;
        if (strstr(name, "UsernameToken")) {
            found = 0;
        } else if (strstr(name, "Username")) {
            found = text && strlen(text) < 64 && get_password(text, stored, sizeof stored);
        } else if (strstr(name, "Password")) {
            if (!found)
                continue;
            if (!copyCredential(sent, sizeof sent, text))
                return 0;
            int m = passwordModeFromHeader();
            if (m >= 0)
                mode = m;
        } else if (strstr(name, "Nonce")) {
            if (found && !copyCredential(nonce, sizeof nonce, text))
                return 0;
        } else if (strstr(name, "Created")) {
            if (found && !copyCredential(created, sizeof created, text))
                return 0;
        }
    }
    if (!found)
        return 0;
    switch (mode) {
    case MODE_DIGEST: return check_password_digest(nonce, created, stored, sent);
    case MODE_TEXT: return strcmp(sent, stored) == 0;
    case MODE_UNKNOWN: return strcmp(sent, stored) == 0 || check_password_digest(nonce, created, stored, sent);
    default: return strcmp(sent, stored) == 0;
    }
}

void checkSecurity()
{
    G_httpAck = 200;
    if (shmWord(AUTH_ON_WORD) != 1)
        return;
    const char* action = PrimaryElementName ? PrimaryElementName : "";
    int variant = shmWord(VARIANT_CODE);
    int needsCredentials = 0;
    if (strstr(action, "GetNetworkInterfaces")) {
        needsCredentials = variant != 12 && variant != 30;
    } else {
        for (const AuthRow& row : authTable) {
            if (strstr(action, row.name)) {
                needsCredentials = row.decision == AUTH_CHECK || (row.decision == AUTH_CHECK_UNLESS_12 && variant != 12);
                break;
            }
        }
    }
    if (needsCredentials && !credentialsAccepted())
        G_httpAck = 401;
}
