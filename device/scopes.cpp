// Discovery scopes and discovery mode, kept in the settings file and its
// copy under the web root, and signalled to the discovery process through
// words 62 and 77.
#include "frame/frame.h"
#include "state/mode.h"
#include "state/schema_values.h"
#include "frame/request_values.h"
#include "state/shm_words.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/checkers.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"
#include "state/storelock.h"

#include <stdio.h>
#include <string.h>

#define ONVIF_CONF_MIRROR "/usr/apache/htdocs/onvif/onvif.conf"
#define LOCATION_COUNTRY "onvif://www.onvif.org/location/country/"
#define SCOPE_SIZE 257

// Hands the rewritten settings file to the web root's copy as well; 0, or
// -1 with the store failure answered.
static int copyToMirror()
{
    if (copyFileThroughWorkCopy(ONVIF_CONF_FILE, ONVIF_CONF_MIRROR) == 0)
        return 0;
    answerStoreFailure(ONVIF_CONF_MIRROR);
    return -1;
}

static int isScopeRow(int row, const char* plain)
{
    return requestRowName(row) && strcmp(requestRowName(row), plain) == 0 && requestRowText(row);
}

// Percent-decoding of %XX; a "%" that starts no such pair stays as it is.
static void url_decode(const char* in, char* out, size_t n)
{
    size_t o = 0;
    for (const char* p = in; *p && o + 1 < n; ++p) {
        int hi = -1, lo = -1;
        if (p[0] == '%' && p[1] && p[2]) {
            hi = strchr("0123456789abcdefABCDEF", p[1]) ? (p[1] <= '9' ? p[1] - '0' : (p[1] | 32) - 'a' + 10) : -1;
            lo = strchr("0123456789abcdefABCDEF", p[2]) ? (p[2] <= '9' ? p[2] - '0' : (p[2] | 32) - 'a' + 10) : -1;
        }
        if (hi >= 0 && lo >= 0) {
            out[o++] = (char)(hi * 16 + lo);
            p += 2;
        } else {
            out[o++] = *p;
        }
    }
    out[o] = 0;
}

// A scope becomes one line of the settings file: it may not hold a line
// break or decode to one (or to a NUL, which would cut it short).
static int scopeBreaksLine(const char* text)
{
    if (hasLineBreak(text))
        return 1;
    for (const char* p = text; *p; ++p)
        if (p[0] == '%' && p[1] == '0' && (p[2] == '0' || p[2] == 'a' || p[2] == 'A' || p[2] == 'd' || p[2] == 'D'))
            return 1;
    return 0;
}

static void writeBadScopeFault()
{
    writeSenderFault2("InvalidArgVal", "InvalidArgs", "The scope is not valid",
                      "A scope may not hold a line break, a carriage return or a NUL character.");
}

// Every scope is first read whole: one that does not fit is refused before
// any is looked at.
static int refuseBadScopes(const char* plainName)
{
    char scope[SCOPE_SIZE];
    for (int row = 1; row < requestRows(); ++row)
        if (isScopeRow(row, plainName) && requestRowValue(row, scope, sizeof scope) == Read::Refused)
            return 1;
    for (int row = 1; row < requestRows(); ++row) {
        if (isScopeRow(row, plainName) && scopeBreaksLine(requestRowText(row))) {
            writeBadScopeFault();
            return 1;
        }
    }
    // The camera stores any scope as sent; the ONVIF mode only the URIs the
    // schema lists back (SetScopes stores the decoded text, so both count).
    for (int row = 1; onvifMode() && row < requestRows(); ++row) {
        if (!isScopeRow(row, plainName))
            continue;
        char decoded[SCOPE_SIZE];
        url_decode(requestRowText(row), decoded, sizeof decoded);
        if (!isUriText(requestRowText(row)) || !isUriText(decoded)) {
            writeSenderFault2("InvalidArgVal", "InvalidArgs", "The scope is not valid", "A scope is a URI.");
            return 1;
        }
    }
    return 0;
}

static void writeValueNamesKeyFault()
{
    writeSenderFault2("InvalidArgVal", "InvalidArgs", "The value is not valid",
                      "A value may not hold the name of a setting followed by \"=\".");
}

// The settings file is read by finding keys anywhere in a line, so a scope
// that holds "Brand=" would later read back as the brand; the scope listing
// tells its kinds apart by the bare key words.
static int refuseScopesNamingKeys(const char* plainName, int storedDecoded)
{
    for (int row = 1; row < requestRows(); ++row) {
        if (!isScopeRow(row, plainName))
            continue;
        char decoded[SCOPE_SIZE];
        if (storedDecoded)
            url_decode(requestRowText(row), decoded, sizeof decoded);
        const char* stored = storedDecoded ? decoded : requestRowText(row);
        if (namesKeyOfFile(ONVIF_CONF_FILE, stored) || strstr(stored, "FixedScopes") ||
            strstr(stored, "ConfigurableScopes")) {
            writeValueNamesKeyFault();
            return 1;
        }
    }
    return 0;
}

void GetScopes()
{
    if (shmWord(WS_MSG_NUM) != 0)
        sleepMs(3000);
    FILE* f = fopenRoot(ONVIF_CONF_FILE, "r");
    if (!f) {
        logServiceError("GetScopes", "%s", "ONVIF_CONF_FILE missing");
        return;
    }
    int ptzHead = modelHas(Cap::IoPtzHead);
    setResponse("<tds:GetScopesResponse>");
    char line[256], value[256];
    while (fgets(line, sizeof line, f)) {
        if (strstr(line, "FixedScopes")) {
            value[0] = 0;
            scanSettingLine(line, "FixedScopes=", value, sizeof value, 1);
            appendResponse("<tds:Scopes><tt:ScopeDef>Fixed</tt:ScopeDef><tt:ScopeItem>%s</tt:ScopeItem></tds:Scopes>",
                           value);
            if (ptzHead && strstr(line, "audio_encoder"))
                appendResponse("<tds:Scopes><tt:ScopeDef>Fixed</tt:ScopeDef>"
                               "<tt:ScopeItem>onvif://www.onvif.org/type/ptz</tt:ScopeItem></tds:Scopes>");
        } else if (strstr(line, "ConfigurableScopes")) {
            if (!strstr(line, "onvif"))
                break;
            value[0] = 0;
            scanSettingLine(line, "ConfigurableScopes=", value, sizeof value, 1);
            size_t len = strlen(value);
            if (modelHas(Cap::ScopesCountryAsOnvif) && strstr(value, "country") && len >= 8)
                snprintf(value + len - 8, sizeof value - (len - 8), "ONVIF");
            appendResponse("<tds:Scopes><tt:ScopeDef>Configurable</tt:ScopeDef><tt:ScopeItem>%s</tt:ScopeItem>"
                           "</tds:Scopes>", value);
        }
    }
    fclose(f);
    appendResponse("</tds:GetScopesResponse>");
}

static int isFixedScope(const char* scope, const char* func)
{
    FILE* f = fopenRoot(ONVIF_CONF_FILE, "r");
    if (!f) {
        logServiceError(func, "%s", "ONVIF_CONF_FILE missing");
        return 0;
    }
    char line[512];
    int fixed = 0;
    while (!fixed && fgets(line, sizeof line, f))
        fixed = strncmp(line, "FixedScopes=", 12) == 0 && strstr(line, scope) != 0;
    fclose(f);
    return fixed;
}

struct SetScopesEdit {
    int pastCountry;
};

static int keepUpToCountryLine(const char* line, FILE* out, void* ctx)
{
    int& pastCountry = ((SetScopesEdit*)ctx)->pastCountry;
    if (!line) {
        for (int row = 1; row < requestRows(); ++row) {
            if (!isScopeRow(row, "Scopes") || strcmp(requestRowText(row), LOCATION_COUNTRY) == 0)
                continue;
            char decoded[SCOPE_SIZE];
            url_decode(requestRowText(row), decoded, sizeof decoded);
            fprintf(out, "ConfigurableScopes=%s\n", decoded);
        }
        return 0;
    }
    // The scopes end the file; the mode and credential settings that may
    // follow them are no scope's to drop.
    if (pastCountry)
        return strncmp(line, "Conformance.", 12) == 0 || strncmp(line, "Security.", 9) == 0 ? 0 : 1;
    if (strstr(line, LOCATION_COUNTRY))
        pastCountry = 1;
    return 0;
}

void SetScopes()
{
    if (refuseBadScopes("Scopes") || refuseScopesNamingKeys("Scopes", 1))
        return;
    for (int row = 1; row < requestRows(); ++row) {
        if (isScopeRow(row, "Scopes") && isFixedScope(requestRowText(row), "SetScopes")) {
            writeSenderFault2("OperationProhibited", "ScopeOverwrite",
                              "Trying to overwrite permanent device scope setting",
                              "Trying to overwrite permanent device scope setting");
            return;
        }
    }
    SetScopesEdit e = {0};
    int rewritten = rewriteFileThroughWorkCopy(ONVIF_CONF_FILE, keepUpToCountryLine, &e);
    if (rewritten == WORK_COPY_FAILED)
        return answerStoreFailure(ONVIF_CONF_FILE);
    if (rewritten == 0 && copyToMirror() != 0)
        return;
    setResponse("<tds:SetScopesResponse></tds:SetScopesResponse>");
}

// Only scope lines are a scope item's to take: an item that happens to
// occur in another setting never removes that setting.
static int isScopeLine(const char* line)
{
    return strncmp(line, "FixedScopes=", 12) == 0 || strncmp(line, "ConfigurableScopes=", 19) == 0;
}

struct AddScopeEdit {
    const char* item;
    int* found;  // never cleared between items: an item already present stops the later ones too
};

static int dropLinesWithItem(const char* line, FILE* out, void* ctx)
{
    AddScopeEdit* e = (AddScopeEdit*)ctx;
    if (!line) {
        if (!*e->found)
            fprintf(out, "ConfigurableScopes=%s\n", e->item);
        return 0;
    }
    if (!isScopeLine(line) || !strstr(line, e->item))
        return 0;
    *e->found = 1;
    return 1;
}

void AddScopes()
{
    if (refuseBadScopes("ScopeItem") || refuseScopesNamingKeys("ScopeItem", 0))
        return;
    int found = 0;
    for (int row = 1; row < requestRows(); ++row) {
        if (!isScopeRow(row, "ScopeItem") || !requestRowText(row)[0])
            continue;
        AddScopeEdit e = {requestRowText(row), &found};
        int rewritten = rewriteFileThroughWorkCopy(ONVIF_CONF_FILE, dropLinesWithItem, &e);
        if (rewritten == WORK_COPY_FAILED)
            return answerStoreFailure(ONVIF_CONF_FILE);
        if (rewritten != 0)
            logServiceError("AddScopes", "%s", "ONVIF_CONF_FILE missing");
        else if (copyToMirror() != 0)
            return;
    }
    setShmWord(SCOPES_CHANGED_WORD, 1);
    setResponse("<tds:AddScopesResponse></tds:AddScopesResponse>");
}

// Removal walks the file once, item after item in file order; everything
// after the last removed scope is dropped with it.
struct RemoveScopesEdit {
    int rows[XML_TABLE_ROWS];
    int count;
    int next;
};

static int removeInFileOrder(const char* line, FILE*, void* ctx)
{
    RemoveScopesEdit* e = (RemoveScopesEdit*)ctx;
    char detail[400];
    if (e->next >= e->count)
        return line ? 1 : 0;
    const char* item = requestRowText(e->rows[e->next]);
    if (!line) {
        snprintf(detail, sizeof detail, "Trying to Remove scope which does not exist, %s.",
                 item);
        writeSenderFault2("InvalidArgVal", "NoScope", "Scope does not exist", detail);
        return -1;
    }
    if (!isScopeLine(line) || !strstr(line, item))
        return 0;
    if (strstr(line, "FixedScopes=")) {
        snprintf(detail, sizeof detail, "Trying to Remove fixed scope parameter, command rejected, %s.",
                 item);
        writeSenderFault2("OperationProhibited", "FixedScope",
                          "Trying to Remove fixed scope parameter, command rejected.", detail);
        return -1;
    }
    ++e->next;
    return 1;
}

void RemoveScopes()
{
    if (refuseBadScopes("ScopeItem"))
        return;
    if (shmWord(WS_MSG_NUM) != 0)
        sleepMs(2000);
    FILE* f;
    while ((f = fopenRoot(ONVIF_CONF_FILE, "r")) == 0) {
        logServiceError("RemoveScopes", "%s", "ONVIF_CONF_FILE missing");
        logServiceError("RemoveScopes", "*(G_shared_memory + WS_MSG_NUM)=%d", shmWord(WS_MSG_NUM));
        if (sleepOutsideStoreLock(2000) != 0) {
            G_httpAck = 500;
            return;
        }
    }
    fclose(f);
    RemoveScopesEdit e;
    memset(&e, 0, sizeof e);
    for (int row = 1; row < requestRows(); ++row) {
        sleepMs(500);
        if (isScopeRow(row, "ScopeItem") && requestRowText(row)[0])
            e.rows[e.count++] = row;
    }
    // With no item the walk would keep nothing at all: leave the files be.
    int rewritten = e.count > 0 ? rewriteFileThroughWorkCopy(ONVIF_CONF_FILE, removeInFileOrder, &e) : 0;
    if (rewritten == WORK_COPY_FAILED)
        return answerStoreFailure(ONVIF_CONF_FILE);
    if (rewritten != 0)
        return;  // the fault is written, the files stay
    if (copyToMirror() != 0)
        return;
    setResponse("<tds:RemoveScopesResponse>");

    for (int i = 0; i < e.count; ++i)
        appendResponse("<tds:ScopeItem>%s</tds:ScopeItem>", requestRowText(e.rows[i]));
    appendResponse("</tds:RemoveScopesResponse>");
    setShmWord(SCOPES_CHANGED_WORD, 1);
}

void GetDiscoveryMode()
{
    char mode[64] = "";
    FILE* f = fopenRoot(ONVIF_CONF_FILE, "r");
    if (f) {
        char line[256];
        while (fgets(line, sizeof line, f))
            if (strstr(line, "Discovery_Mode=") && scanSettingLine(line, "Discovery_Mode=", mode, sizeof mode, 0))
                break;
        fclose(f);
    } else {
        logServiceError("GetDiscoveryMode", "%s", "ONVIF_CONF_FILE missing");
    }

    setResponse("<tds:GetDiscoveryModeResponse><tds:DiscoveryMode>%s</tds:DiscoveryMode></tds:GetDiscoveryModeResponse>",
                mode);
}

void SetDiscoveryMode()
{
    char mode[17];
    Read read = requestTextEither("DiscoveryMode", "tds:DiscoveryMode", mode, 17);
    if (read == Read::Refused)
        return;
    if (read == Read::Value) {
        if (hasLineBreak(mode) ||
            (onvifMode() && strcmp(mode, "Discoverable") != 0 && strcmp(mode, "NonDiscoverable") != 0)) {
            writeSenderFault2("InvalidArgVal", "InvalidArgs", "The discovery mode is not valid",
                              "A discovery mode may not hold a line break.");
            return;
        }
        int rewritten = rewriteKeyInFile(ONVIF_CONF_FILE, "Discovery_Mode=", mode);
        if (rewritten == -3)
            return writeValueNamesKeyFault();
        if (rewritten == WORK_COPY_FAILED)
            return answerStoreFailure(ONVIF_CONF_FILE);
        if (rewritten == 0) {
            if (copyToMirror() != 0)
                return;
        } else
            logServiceError("SetDiscoveryMode", "%s", "ONVIF_CONF_FILE missing");
        if (strcmp(mode, "Discoverable") == 0)
            setShmWord(DISCOVERY_WORD, 1);
        else if (strcmp(mode, "NonDiscoverable") == 0)
            setShmWord(DISCOVERY_WORD, 0);
    }
    setResponse("<tds:SetDiscoveryModeResponse></tds:SetDiscoveryModeResponse>");
}
