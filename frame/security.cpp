// Authentication of a request: which actions need credentials, and the
// WS-Security UsernameToken check against the two password files.
#include "frame/security.h"
#include "frame/comcrypto.h"
#include "frame/dispatch.h"
#include "frame/onvif_security.h"
#include "frame/frame.h"
#include "frame/users.h"
#include "frame/xmlsearch.h"
#include "state/config.h"
#include "state/mode.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <string.h>

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
    if (onvifMode()) {
        checkOnvifSecurity();
        return;
    }
    G_httpAck = 200;
    if (shmWord(AUTH_ON_WORD) != 1)
        return;
    const ActionRow* row = actionRow(PrimaryElementName);
    int needsCredentials = 0;
    if (row) {
        switch (row->credentials) {
        case CRED_OPEN: break;
        case CRED_AUTH: needsCredentials = 1; break;
        case CRED_AUTH_UNLESS_OPEN_SETUP: needsCredentials = !modelHas(Cap::AuthWaivedForSetup); break;
        case CRED_AUTH_UNLESS_OPEN_INTERFACES: needsCredentials = !modelHas(Cap::AuthWaivedForInterfaces); break;
        }
    }
    if (needsCredentials && !credentialsAccepted())
        G_httpAck = 401;
}
