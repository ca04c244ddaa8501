// The user actions: listing both account stores, and creating, deleting and
// changing ONVIF users; web accounts are listed and guarded but never changed.
#include "frame/users.h"
#include "state/mode.h"
#include "frame/request_values.h"
#include "frame/frame.h"
#include "frame/handlers.h"
#include "state/config.h"
#include "state/paths.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define MAX_NAME_LENGTH 16
#define MAX_PASSWORD_LENGTH 14
#define WEAK_PASSWORD_LENGTH 4
#define FIXED_ONVIF_USER "onvifuser"

static int isValidLevel(const char* level)
{
    return strcmp(level, "Administrator") == 0 || strcmp(level, "Operator") == 0 || strcmp(level, "User") == 0;
}

// A character that would break the user file (':' splits fields, a line
// break adds a line) or the XML the names are listed in.
static int hasForbiddenCharacter(const char* text, const char* alsoForbidden)
{
    for (const unsigned char* p = (const unsigned char*)text; *p; ++p)
        if (*p < 0x20 || *p == 0x7f || *p == ':' || strchr(alsoForbidden, *p))
            return 1;
    return 0;
}

static int refuseUnsafeAccountText(const char* name, const char* password)
{
    if (!hasForbiddenCharacter(name, "<>&\"'") && !hasForbiddenCharacter(password, ""))
        return 0;
    writeSenderFault2("InvalidArgVal", "InvalidArgs", "Invalid character in username or password.",
                      "A username or password may not hold ':', a control character or a line break, "
                      "and a username none of &lt;, &gt;, &amp; and quotes.");
    return 1;
}

// The web accounts' rights, read once per listing: the privacy file's
// lines by name (the first line of a name decides, as a lookup would).
struct PrivacyEntry {
    const char* name;
    const char* rights;
    int order;
};
static char privacyText[65536];
static PrivacyEntry privacy[2048];
static int privacyCount = -1;  // -1: the file is missing

static int comparePrivacy(const void* a, const void* b)
{
    const PrivacyEntry* x = (const PrivacyEntry*)a;
    const PrivacyEntry* y = (const PrivacyEntry*)b;
    int c = strcmp(x->name, y->name);
    return c ? c : x->order - y->order;
}

// 0 when the file does not fit the table: the caller then looks each name up.
static int loadPrivacy()
{
    privacyCount = -1;
    FILE* f = fopenRoot(SYSTEM_APPWEB_PRIVACY, "r");
    if (!f)
        return 1;
    size_t used = fread(privacyText, 1, sizeof privacyText - 1, f);
    int whole = feof(f) && !ferror(f);
    fclose(f);
    if (!whole)
        return 0;
    privacyText[used] = 0;
    privacyCount = 0;
    for (char* line = privacyText; line && *line;) {
        char* next = strchr(line, '\n');
        if (next)
            *next++ = 0;
        char* fields[2] = {0, 0};
        if (splitFields(line, ':', fields, 2) == 2) {
            if (privacyCount == (int)(sizeof privacy / sizeof *privacy))
                return 0;
            privacy[privacyCount] = {fields[0], fields[1], privacyCount};
            ++privacyCount;
        }
        line = next;
    }
    qsort(privacy, (size_t)privacyCount, sizeof *privacy, comparePrivacy);
    return 1;
}

// The rights of a web account; "" when none. FILE_MISSING when the file is.
static int privacyRights(const char* name, char* rights, size_t n, int loaded)
{
    if (!loaded)
        return findAccount(SYSTEM_APPWEB_PRIVACY, name, 1, rights, n);
    if (privacyCount < 0)
        return FILE_MISSING;
    int lo = 0, hi = privacyCount;
    while (lo < hi) {
        int mid = (lo + hi) / 2;
        if (strcmp(privacy[mid].name, name) < 0)
            lo = mid + 1;
        else
            hi = mid;
    }
    if (lo < privacyCount && strcmp(privacy[lo].name, name) == 0)
        snprintf(rights, n, "%s", privacy[lo].rights);
    return 1;
}

// The user actions have always answered in the media namespace; the ONVIF
// mode answers in the device service's, where the schema declares them.
static void writeUserAnswer(const char* element)
{
    const char* ns = onvifMode() ? "tds" : "trt";
    setResponse("<%s:%s></%s:%s>", ns, element, ns, element);
}

void GetUsers()
{
    setResponse("<tds:GetUsersResponse>");
    FILE* pass = fopenRoot(SYSTEM_APPWEB_PASS, "r");
    if (!pass) {
        log_message_to_onvifErrorFile(1, "onvifService::GetUsers:SYSTEM_APPWEB_PASS missing");
    } else {
        int loaded = loadPrivacy();
        char line[256];
        while (fgets(line, sizeof line, pass)) {
            char* fields[2] = {0, 0};
            splitFields(line, ':', fields, 2);
            if (!fields[0][0])
                continue;
            char rights[128] = "";
            int r = privacyRights(fields[0], rights, sizeof rights, loaded);
            if (r == FILE_MISSING)
                log_message_to_onvifErrorFile(1, "onvifService::GetUsers:SYSTEM_APPWEB_PRIVACY missing");
            appendResponse("<tds:User><tt:Username>%s</tt:Username><tt:UserLevel>%s</tt:UserLevel></tds:User>",
                           fields[0], strcmp(rights, "1:1:1:1") == 0 ? "Administrator" : "User");
        }
        fclose(pass);
    }
    FILE* users = fopenRoot(ONVIF_USER_FILE, "r");
    if (!users) {
        log_message_to_onvifErrorFile(1, "onvifService::GetUsers:ONVIF_USER_FILE missing");
        return;
    }
    char line[256];
    while (fgets(line, sizeof line, users)) {
        char* fields[3] = {0, 0, 0};
        int n = splitFields(line, ':', fields, 3);
        if (!fields[0][0])
            continue;
        // An unknown stored level is listed empty by the camera; the schema
        // allows only its levels, and "Extended" is the one for any other.
        const char* level = n > 1 && isValidLevel(fields[1]) ? fields[1] : onvifMode() ? "Extended" : "";
        appendResponse("<tds:User><tt:Username>%s</tt:Username><tt:UserLevel>%s</tt:UserLevel></tds:User>",
                       fields[0], level);
    }
    fclose(users);
    appendResponse("</tds:GetUsersResponse>");
}

struct UserEdit {
    const char* name;
    const char* newLine;  // replacement for the user's line, 0 to drop it
    const char* append;   // a line to add at the end, or 0
};

static int editUserLine(const char* line, FILE* out, void* ctx)
{
    UserEdit* e = (UserEdit*)ctx;
    if (!line) {
        if (e->append)
            fputs(e->append, out);
        return 0;
    }
    size_t n = strlen(e->name);
    if (!e->name[0] || strncmp(line, e->name, n) != 0 || line[n] != ':')
        return 0;
    if (e->newLine)
        fputs(e->newLine, out);
    return 1;
}

// The k-th user of the request: a value when all three fields are there,
// refused when any one is.
static Read readNewUser(int k, char* name, char* password, char* level)
{
    int row = 1 + 4 * k;
    Read r[3] = {requestTextFrom("tt:Username", row, 0, name, 33),
                 requestTextFrom("tt:Password", row, 0, password, 33),
                 requestTextFrom("tt:UserLevel", row, 0, level, 17)};
    for (Read one : r)
        if (one != Read::Value)
            return r[0] == Read::Refused || r[1] == Read::Refused || r[2] == Read::Refused ? Read::Refused
                                                                                             : Read::Absent;
    return Read::Value;
}

void CreateUsers()
{
    int count = (requestRows() - 1) / 4;
    char name[33], password[33], level[17];
    // Users are added one by one; a refused value must stop the first one too.
    for (int k = 0; k < count; ++k)
        if (readNewUser(k, name, password, level) == Read::Refused)
            return;
    for (int k = 0; k < count; ++k) {
        if (readNewUser(k, name, password, level) != Read::Value)
            continue;
        if (refuseUnsafeAccountText(name, password))
            return;
        int nameTooLong = strlen(name) > MAX_NAME_LENGTH;
        int nameExists = 0;
        if (!nameTooLong)
            nameExists = findWebAccount(name, "GetUsers") || findOnvifUser(name, "CreateUsers");
        size_t passwordLength = strlen(password);
        int passwordTooLong = passwordLength > MAX_PASSWORD_LENGTH;
        int weak = !passwordTooLong && passwordLength <= WEAK_PASSWORD_LENGTH;
        char detail[128];
        if (nameExists) {
            snprintf(detail, sizeof detail, "Username %s already exists.", name);
            writeSenderFault2("OperationProhibited", "UsernameClash", "Username already exists.", detail);
            return;
        }
        if (nameTooLong) {
            writeSenderFault2("OperationProhibited", "UsernameTooLong", "The username was too long.",
                              "The username was too long. The maximum is 16.");
            return;
        }
        if (passwordTooLong) {
            writeSenderFault2("OperationProhibited", "PasswordTooLong", "The password was too long.",
                              "The password was too long. The maximum is 14.");
            return;
        }
        if (!isValidLevel(level)) {
            if (weak) {
                writeSenderFault2("OperationProhibited", "Password", "Too weak password.", "Too weak password.");
            } else {
                snprintf(detail, sizeof detail, "User level %s is not allowed.", level);
                writeSenderFault2("OperationProhibited", "AnonymousNotAllowed", "User level not allowed.", detail);
            }
            return;
        }
        char line[128];
        formatChecked(line, sizeof line, "%s:%s:%s\n", name, level, password);
        UserEdit add = {"", 0, line};
        if (rewriteFileThroughWorkCopy(ONVIF_USER_FILE, editUserLine, &add) != 0) {
            log_message_to_onvifErrorFile(1, "onvifService::CreateUsers:ONVIF_USER_FILE missing");
            replaceFileContent(ONVIF_USER_FILE, line);
        }
    }
    writeUserAnswer("CreateUsersResponse");
}

void DeleteUsers()
{
    char name[33];
    for (int row = 1; row < requestRows(); ++row) {
        Read read = requestTextFrom("tds:Username", row, 0, name, 33);
        if (read == Read::Refused)
            return;
        if (read == Read::Absent)
            continue;
        int web = findWebAccount(name, "GetUsers");
        int onvif = findOnvifUser(name, "CreateUsers");
        char detail[128];
        if ((web && !onvif) || (onvif && strcmp(name, FIXED_ONVIF_USER) == 0)) {
            snprintf(detail, sizeof detail, "Username %s may not be deleted.", name);
            writeSenderFault2("InvalidArgVal", "FixedUser", "Username may not be deleted.", detail);
            return;
        }
        if (!web && !onvif) {
            snprintf(detail, sizeof detail, "Username %s NOT recognized.", name);
            writeSenderFault2("InvalidArgVal", "UsernameMissing", "Username NOT recognized.", detail);
            return;
        }
    }
    for (int row = 1; row < requestRows(); ++row) {
        if (requestTextFrom("tds:Username", row, 0, name, 33) != Read::Value)
            continue;
        UserEdit drop = {name, 0, 0};
        if (rewriteFileThroughWorkCopy(ONVIF_USER_FILE, editUserLine, &drop) != 0)
            log_message_to_onvifErrorFile(1, "onvifService::CreateUsers:ONVIF_USER_FILE missing");
    }
    writeUserAnswer("DeleteUsersResponse");
}

// The stored level for a requested one; the camera's web pages have long
// sent "Administator", so it is taken as "Administrator" too.
static const char* storedLevel(const char* level)
{
    if (strcmp(level, "Administator") == 0)
        return "Administrator";
    return isValidLevel(level) ? level : 0;
}

void SetUser()
{
    char name[33], password[33], level[17], stored[72];
    memset(stored, 0, sizeof stored);
    Read nameRead = requestTextFrom("tt:Username", 1, 0, name, 33);
    Read passwordRead = requestTextFrom("tt:Password", 1, 0, password, 33);
    Read levelRead = requestTextFrom("tt:UserLevel", 1, 0, level, 17);
    if (nameRead == Read::Refused || passwordRead == Read::Refused || levelRead == Read::Refused)
        return;
    int hasPassword = passwordRead == Read::Value;
    if (refuseUnsafeAccountText(name, password))
        return;
    char detail[128];
    if (findWebAccount(name, "GetUsers")) {
        snprintf(detail, sizeof detail, "Username %s may not be set.", name);
        writeSenderFault2("InvalidArgVal", "FixedUser", "Username may not be set.", detail);
        return;
    }
    if (findAccount(ONVIF_USER_FILE, name, 2, stored, sizeof stored) != FOUND) {
        snprintf(detail, sizeof detail, "Username %s NOT recognized.", name);
        writeSenderFault2("InvalidArgVal", "UsernameMissing", "Username NOT recognized.", detail);
        return;
    }
    // A request that leaves the password out keeps the stored one.
    const char* newPassword = hasPassword && strcmp(password, "(null)") != 0 ? password : stored;
    if (strlen(newPassword) > MAX_PASSWORD_LENGTH) {
        writeSenderFault2("OperationProhibited", "PasswordTooLong", "The password was too long.",
                          "The password was too long. The maximum is 14.");
        return;
    }
    if (strlen(newPassword) <= WEAK_PASSWORD_LENGTH) {
        writeSenderFault2("OperationProhibited", "Password", "Too weak password.",
                          "Too weak password. The minimum is 5.");
        return;
    }
    const char* newLevel = storedLevel(level);
    if (!newLevel) {
        snprintf(detail, sizeof detail, "User level %s is not allowed.", level);
        writeSenderFault2("OperationProhibited", "AnonymousNotAllowed", "User level not allowed.", detail);
        return;
    }
    char line[128];
    formatChecked(line, sizeof line, "%s:%s:%s\n", name, newLevel, newPassword);
    UserEdit change = {name, line, 0};
    rewriteFileThroughWorkCopy(ONVIF_USER_FILE, editUserLine, &change);
    writeUserAnswer("SetUserResponse");
}
