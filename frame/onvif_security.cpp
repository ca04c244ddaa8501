// Authentication in the ONVIF mode. The legacy rules stay in security.cpp;
// here every action is weighed by its access class against the level of the
// user the credentials prove, over HTTP digest and WS-Security alike.
#include "frame/onvif_security.h"
#include "frame/access.h"
#include "frame/auth_records.h"
#include "frame/comcrypto.h"
#include "frame/digests.h"
#include "frame/dispatch.h"
#include "frame/frame.h"
#include "frame/security.h"
#include "frame/users.h"
#include "frame/xmlsearch.h"
#include "state/config.h"
#include "state/mode.h"
#include "state/paths.h"
#include "state/shm.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>
#include <unistd.h>

namespace {

// The onvif.conf keys and their defaults.
struct SecuritySettings {
    int createdWindow = 300;        // Security.CreatedWindow: seconds a token's Created may differ from the clock
    int digestNonceLifetime = 300;  // Security.DigestNonceLifetime: seconds before a server nonce is stale
    int lockoutLimit = 5;           // Security.LockoutLimit: failures that lock an address out
    int lockoutWindow = 300;        // Security.LockoutWindow: seconds a failure counts, and the lock lasts
};

SecuritySettings settings;
int challenge;     // the refusal is answered with digest challenges
int challengeStale;

void readSettings()
{
    struct Key {
        const char* name;
        int* value;
    } keys[] = {{"Security.CreatedWindow=", &settings.createdWindow},
                {"Security.DigestNonceLifetime=", &settings.digestNonceLifetime},
                {"Security.LockoutLimit=", &settings.lockoutLimit},
                {"Security.LockoutWindow=", &settings.lockoutWindow}};
    forEachSetting(ONVIF_CONF_FILE, [&](const char* line) {
        for (Key& k : keys) {
            size_t n = strlen(k.name);
            if (strncmp(line, k.name, n) == 0) {
                char* end;
                long v = strtol(line + n, &end, 10);
                if (end != line + n && v >= 1 && v <= 86400)
                    *k.value = (int)v;
            }
        }
        return true;
    });
}

// The account's level and password: a web server account is an
// Administrator; an ONVIF user has the level stored with it.
int findUser(const char* name, UserLevel* level, char* password, size_t n)
{
    if (!name[0] || strlen(name) > 32)
        return 0;
    if (findAccount(SYSTEM_APPWEB_PASS, name, 1, password, n) == FOUND) {
        *level = LEVEL_ADMINISTRATOR;
        return 1;
    }
    // The level field is followed by the password: only its part before ':'.
    char stored[80];
    if (findAccount(ONVIF_USER_FILE, name, 1, stored, sizeof stored) != FOUND)
        return 0;
    stored[strcspn(stored, ":")] = 0;
    *level = userLevelNamed(stored);
    return findAccount(ONVIF_USER_FILE, name, 2, password, n) == FOUND;
}

// REMOTE_ADDR when it is an address (digits, hex letters, '.', ':'), else "unknown".
const char* clientAddress()
{
    const char* a = getenv("REMOTE_ADDR");
    if (!a || !a[0] || strlen(a) >= sizeof(AuthFailures::address) || strspn(a, "0123456789abcdefABCDEF.:") != strlen(a))
        return "unknown";
    return a;
}

// Created as the clients send it: 2024-05-01T12:00:00, optional fraction,
// then Z, +hh:mm or -hh:mm (none is taken as UTC). -1 when malformed.
time_t parseCreated(const char* text)
{
    struct tm t;
    memset(&t, 0, sizeof t);
    int used = 0;
    if (sscanf(text, "%4d-%2d-%2dT%2d:%2d:%2d%n", &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour, &t.tm_min,
               &t.tm_sec, &used) != 6 || used != 19)
        return -1;
    const char* p = text + used;
    if (*p == '.') {
        ++p;
        size_t digits = strspn(p, "0123456789");
        if (digits == 0 || digits > 9)
            return -1;
        p += digits;
    }
    long offset = 0;
    if (*p == 'Z') {
        ++p;
    } else if (*p == '+' || *p == '-') {
        int h, m, n = 0;
        if (sscanf(p + 1, "%2d:%2d%n", &h, &m, &n) != 2 || n != 5 || h > 14 || m > 59)
            return -1;
        offset = (h * 3600L + m * 60L) * (*p == '-' ? -1 : 1);
        p += 6;
    }
    if (*p || t.tm_mon < 1 || t.tm_mon > 12 || t.tm_mday < 1 || t.tm_mday > 31 || t.tm_hour > 23 ||
        t.tm_min > 59 || t.tm_sec > 60)
        return -1;
    t.tm_year -= 1900;
    t.tm_mon -= 1;
    return timegm(&t) - offset;
}

const char* headerAttribute(const char* suffix)
{
    for (int i = 0; i < G_xmlAttributeNum_WSSE && i < XML_TABLE_ROWS && ElementBuffer3_WSSE[i]; ++i) {
        const char* name = ElementBuffer3_WSSE[i];
        size_t n = strlen(name), s = strlen(suffix);
        if (n >= s && strcmp(name + n - s, suffix) == 0 && (n == s || name[n - s - 1] == ':'))
            return ElementBuffer4_WSSE[i] ? ElementBuffer4_WSSE[i] : "";
    }
    return 0;
}

// The header's one UsernameToken: its four texts (0 where absent).
struct Token {
    const char* username = 0;
    const char* password = 0;
    const char* nonce = 0;
    const char* created = 0;
    int tokens = 0;
};

Token headerToken()
{
    Token t;
    for (int i = 0; i < G_xmlElementNum_WSSE && i < XML_TABLE_ROWS && ElementBuffer1_WSSE[i]; ++i) {
        const char* name = ElementBuffer1_WSSE[i];
        const char* text = ElementBuffer2_WSSE[i] ? ElementBuffer2_WSSE[i] : "";
        if (strcmp(name, "UsernameToken") == 0)
            ++t.tokens;
        else if (strcmp(name, "Username") == 0)
            t.username = text;
        else if (strcmp(name, "Password") == 0)
            t.password = text;
        else if (strcmp(name, "Nonce") == 0)
            t.nonce = text;
        else if (strcmp(name, "Created") == 0)
            t.created = text;
    }
    return t;
}

enum Outcome { NO_CREDENTIALS, ACCEPTED, REFUSED, REFUSED_STALE };

// A password digest over a nonce and a Created inside the window, each
// nonce once: a PasswordText or a token without both is refused.
Outcome checkUsernameToken(const Token& t, UserLevel* level, time_t now)
{
    if (t.tokens != 1 || !t.username || !t.password || !t.nonce || !t.created || !t.nonce[0])
        return REFUSED;
    const char* type = headerAttribute("Type");
    static const char DIGEST_TYPE[] =
        "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordDigest";
    if (!type || strcmp(type, DIGEST_TYPE) != 0)
        return REFUSED;
    time_t created = parseCreated(t.created);
    if (created < 0 || labs((long)(created - now)) > settings.createdWindow)
        return REFUSED;
    char password[72];
    if (strlen(t.nonce) > 64 || !findUser(t.username, level, password, sizeof password) ||
        !check_password_digest(t.nonce, t.created, password, t.password))
        return REFUSED;
    // Claimed only once the digest holds: guesses cannot fill the record.
    // The nonce stays refused as long as its Created could still pass.
    unsigned char raw[64];
    int length = COM_Base64Decode(raw, t.nonce, sizeof raw);
    if (length <= 0)
        return REFUSED;
    time_t until = (created > now ? created : now) + settings.createdWindow + 1;
    return claimNonce("W", (const char*)raw, (size_t)length, until, now) == NONCE_FIRST_USE ? ACCEPTED : REFUSED;
}

// The per-camera secret, 32 random bytes in hexadecimal, made on first use.
// Written to a private file and linked into place, so that requests that
// race on a fresh camera all end up with the one that won.
int digestSecret(char* out, size_t n)
{
    if (n < 65)
        return 0;
    char real[512], temp[540];
    if (!resolvePath(DIGEST_SECRET_FILE, real, sizeof real)[0])
        return 0;
    for (int attempt = 0; attempt < 2; ++attempt) {
        int fd = open(real, O_RDONLY | O_CLOEXEC);
        if (fd >= 0) {
            ssize_t got = read(fd, out, 64);
            close(fd);
            out[got > 0 ? got : 0] = 0;
            return got == 64;
        }
        unsigned char random[32];
        if (getrandom(random, sizeof random, 0) != (ssize_t)sizeof random)
            return 0;
        char hex[65];
        for (int i = 0; i < 32; ++i)
            snprintf(hex + 2 * i, 3, "%02x", random[i]);
        if (!formatChecked(temp, sizeof temp, "%s.%ld", real, (long)getpid()))
            return 0;
        fd = open(temp, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0)
            return 0;
        bool written = write(fd, hex, 64) == 64 && fsync(fd) == 0;
        close(fd);
        if (written && link(temp, real) != 0 && errno != EEXIST)
            written = false;
        unlink(temp);
        if (!written)
            return 0;
    }
    return 0;
}

void hashParts(int sha256, char* out, const char* const* parts, int count)
{
    HashContext ctx;
    hashBegin(&ctx, sha256);
    for (int i = 0; i < count; ++i) {
        if (i)
            hashAdd(&ctx, ":", 1);
        hashAdd(&ctx, parts[i], strlen(parts[i]));
    }
    hashHexEnd(&ctx, out);
}

// One parameter of a digest Authorization header, quoted or not; 0 when
// absent or too long for out.
int digestParameter(const char* header, const char* key, char* out, size_t n)
{
    const char* p = header;
    size_t k = strlen(key);
    while (*p) {
        while (*p == ' ' || *p == ',' || *p == '\t')
            ++p;
        const char* name = p;
        while (*p && *p != '=' && *p != ',' && *p != ' ')
            ++p;
        size_t nameLength = (size_t)(p - name);
        if (*p != '=')
            continue;
        ++p;
        const char* value = p;
        size_t length;
        if (*p == '"') {
            value = ++p;
            while (*p && *p != '"')
                ++p;
            length = (size_t)(p - value);
            if (*p)
                ++p;
        } else {
            while (*p && *p != ',' && *p != ' ')
                ++p;
            length = (size_t)(p - value);
        }
        if (nameLength == k && strncasecmp(name, key, k) == 0) {
            if (length >= n)
                return 0;
            memcpy(out, value, length);
            out[length] = 0;
            return 1;
        }
    }
    return 0;
}

Outcome checkHttpDigest(const char* header, UserLevel* level, time_t now)
{
    char username[40], realm[40], nonce[DIGEST_NONCE_LENGTH + 8], uri[256], response[72], qop[8], nc[12], cnonce[72], algorithm[24];
    if (!digestParameter(header, "username", username, sizeof username) ||
        !digestParameter(header, "realm", realm, sizeof realm) || !digestParameter(header, "nonce", nonce, sizeof nonce) ||
        !digestParameter(header, "uri", uri, sizeof uri) ||
        !digestParameter(header, "response", response, sizeof response) ||
        !digestParameter(header, "qop", qop, sizeof qop) || !digestParameter(header, "nc", nc, sizeof nc) ||
        !digestParameter(header, "cnonce", cnonce, sizeof cnonce))
        return REFUSED;
    if (!digestParameter(header, "algorithm", algorithm, sizeof algorithm))
        strcpy(algorithm, "MD5");
    int sha256 = strcmp(algorithm, "SHA-256") == 0;
    if ((!sha256 && strcmp(algorithm, "MD5") != 0) || strcmp(qop, "auth") != 0 || strcmp(realm, DIGEST_REALM) != 0 ||
        strlen(nc) != 8 || strspn(nc, "0123456789abcdefABCDEF") != 8)
        return REFUSED;
    const char* requestUri = getenv("REQUEST_URI");
    if (requestUri && requestUri[0] && strcmp(requestUri, uri) != 0)
        return REFUSED;
    // The nonce names its own time; only this camera's secret makes its MAC.
    if (strlen(nonce) != DIGEST_NONCE_LENGTH)
        return REFUSED;
    char stamp[9] = {0}, salt[9] = {0}, *end;
    memcpy(stamp, nonce, 8);
    memcpy(salt, nonce + 8, 8);
    long issued = strtol(stamp, &end, 16);
    char expected[DIGEST_NONCE_LENGTH + 1];
    if (end != stamp + 8 || issued <= 0 || issued > (long)now + 5)
        return REFUSED;
    digestNonce((time_t)issued, salt, expected, sizeof expected);
    if (!expected[0] || strcmp(expected, nonce) != 0)
        return REFUSED;
    char password[72];
    if (!findUser(username, level, password, sizeof password))
        return REFUSED;
    const char* method = getenv("REQUEST_METHOD");
    char ha1[65], ha2[65], sent[65];
    const char* a1[] = {username, realm, password};
    hashParts(sha256, ha1, a1, 3);
    const char* a2[] = {method && method[0] ? method : "POST", uri};
    hashParts(sha256, ha2, a2, 2);
    const char* r[] = {ha1, nonce, nc, cnonce, qop, ha2};
    hashParts(sha256, sent, r, 6);
    if (strcasecmp(sent, response) != 0)
        return REFUSED;
    // A right answer to an old nonce: the client asks again with a fresh one.
    if ((long)now - issued > settings.digestNonceLifetime)
        return REFUSED_STALE;
    char use[64];
    snprintf(use, sizeof use, "%s:%s", nonce, nc);
    return claimNonce("H", use, strlen(use), (time_t)issued + settings.digestNonceLifetime + 1, now) == NONCE_FIRST_USE
               ? ACCEPTED
               : REFUSED;
}

// "Basic base64(name:password)" over the same accounts.
Outcome checkHttpBasic(const char* credentials, UserLevel* level)
{
    unsigned char decoded[80];
    if (strlen(credentials) > 100)
        return REFUSED;
    int n = COM_Base64Decode(decoded, credentials, sizeof decoded - 1);
    if (n <= 0)
        return REFUSED;
    decoded[n] = 0;
    char* colon = strchr((char*)decoded, ':');
    char password[72];
    if (!colon)
        return REFUSED;
    *colon = 0;
    if (!findUser((const char*)decoded, level, password, sizeof password) || strcmp(password, colon + 1) != 0)
        return REFUSED;
    return ACCEPTED;
}

void refuse(int withChallenge, int stale)
{
    G_httpAck = 401;
    challenge = withChallenge;
    challengeStale = stale;
}

}  // namespace

void digestNonce(time_t issued, const char* salt, char* out, size_t n)
{
    char secret[72], head[24], mac[65];
    out[0] = 0;
    if (n < DIGEST_NONCE_LENGTH + 1 || strlen(salt) != 8 || !digestSecret(secret, sizeof secret))
        return;
    snprintf(head, sizeof head, "%08lx%s", (unsigned long)issued & 0xffffffffUL, salt);
    const char* parts[] = {secret, head};
    hashParts(1, mac, parts, 2);
    snprintf(out, n, "%s%.32s", head, mac);
}

void checkOnvifSecurity()
{
    G_httpAck = 200;
    challenge = 0;
    // The camera's own switch (its pages' "authentication off") is honoured
    // in both modes; a camera ships with it on.
    if (shmWord(AUTH_ON_WORD) != 1)
        return;
    const ActionRow* row = actionRow(PrimaryElementName);
    // An action without a row has no handler and is refused by dispatch;
    // nothing it could reach needs protecting.
    if (!row)
        return;
    AccessClass access = accessClassOf(row);
    if (access == ACC_PRE_AUTH)
        return;
    readSettings();
    time_t now = time(0);
    const char* address = clientAddress();
    if (lockedOut(address, settings.lockoutLimit, settings.lockoutWindow, now)) {
        refuse(0, 0);
        return;
    }
    const char* http = getenv("HTTP_AUTHORIZATION");
    Token token = headerToken();
    int haveHttp = http && strncasecmp(http, "Digest ", 7) == 0;
    int haveToken = token.tokens > 0 || token.username || token.password;
    if (!haveHttp && !haveToken) {
        refuse(1, 0);
        return;
    }
    UserLevel level = LEVEL_ADMINISTRATOR;
    if (haveHttp) {
        Outcome o = checkHttpDigest(http + 7, &level, now);
        if (o != ACCEPTED) {
            if (o == REFUSED && countFailure(address, settings.lockoutLimit, settings.lockoutWindow, now))
                log_message_to_onvifErrorFile(1, "onvifService::checkSecurity:%s locked out", address);
            refuse(1, o == REFUSED_STALE);
            return;
        }
    }
    if (haveToken) {
        UserLevel tokenLevel = LEVEL_ANONYMOUS;
        if (checkUsernameToken(token, &tokenLevel, now) != ACCEPTED) {
            if (countFailure(address, settings.lockoutLimit, settings.lockoutWindow, now))
                log_message_to_onvifErrorFile(1, "onvifService::checkSecurity:%s locked out", address);
            refuse(0, 0);
            return;
        }
        // Both proved: the request may do what the lesser of the two may.
        if (tokenLevel < level)
            level = tokenLevel;
    }
    if (!levelMayUse(level, access))
        refuse(0, 0);
}

int mediaRequestAuthorized(int allowBasic)
{
    if (!onvifMode())
        return 1;
    readSettings();
    const char* http = getenv("HTTP_AUTHORIZATION");
    UserLevel level = LEVEL_ANONYMOUS;
    Outcome o = REFUSED;
    if (http && strncasecmp(http, "Digest ", 7) == 0)
        o = checkHttpDigest(http + 7, &level, time(0));
    else if (allowBasic && http && strncasecmp(http, "Basic ", 6) == 0)
        o = checkHttpBasic(http + 6, &level);
    if (o == ACCEPTED && levelMayUse(level, ACC_READ_MEDIA))
        return 1;
    refuse(1, o == REFUSED_STALE);
    printDigestChallenge();
    printf("Content-Type: text/plain\r\n\r\nUnauthorized\n");
    return 0;
}

void challengeEmptyProbe()
{
    const char* http = getenv("HTTP_AUTHORIZATION");
    if (onvifMode() && !(http && http[0]))
        refuse(1, 0);
}

int printDigestChallenge()
{
    if (!challenge)
        return 0;
    // Two challenges in one second must differ: each client counts nc from 1.
    unsigned char random[4];
    char salt[9], nonce[DIGEST_NONCE_LENGTH + 1];
    if (getrandom(random, sizeof random, 0) != (ssize_t)sizeof random)
        memset(random, 0, sizeof random);
    snprintf(salt, sizeof salt, "%02x%02x%02x%02x", random[0], random[1], random[2], random[3]);
    digestNonce(time(0), salt, nonce, sizeof nonce);
    puts("Status: 401 Unauthorized\r");
    // SHA-256 first: a client takes the first it supports.
    static const char* const ALGORITHMS[] = {"SHA-256", "MD5"};
    for (const char* algorithm : ALGORITHMS)
        printf("WWW-Authenticate: Digest realm=\"%s\", qop=\"auth\", algorithm=%s, nonce=\"%s\"%s\r\n", DIGEST_REALM,
               algorithm, nonce, challengeStale ? ", stale=true" : "");
    return 1;
}
