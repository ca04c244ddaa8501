// Relay outputs: their settings files (a working copy and a persistent
// copy), and switching through the camera's output and settings programs.
#include "state/timespan.h"
#include "state/mode.h"
#include "state/shm_words.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/command.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/shm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define OUTPUTS_CONF "/etc/sysconfig/outputs.conf"
#define MAX_DELAY_SECONDS 600

static int hasRelayOutputs() { return modelHas(Cap::IoRelayOutputs); }

static const char* outputListFile()
{
    return modelHas(Cap::IoHeadRelayList) ? "/usr/apache/htdocs/onvif/IOPTZ.conf" : "/usr/apache/htdocs/onvif/IO.conf";
}

// Reads the first of two element names that the request holds.
static Read readEither(const char* prefixed, const char* plain, char* out, int length)
{
    return requestTextEither(prefixed, plain, out, (size_t)length + 1);
}

// The list line "<token>.IOConf" of an output; the settings file is only
// ever named by the list, never by the request.
static int findOutputLine(const char* token, char* fileName, size_t n)
{
    FILE* list = fopenRoot(outputListFile(), "r");
    if (!list)
        return -1;
    char line[256], wanted[128];
    snprintf(wanted, sizeof wanted, "%s.IOConf", token);
    int found = 0;
    while (!found && fgets(line, sizeof line, list)) {
        line[strcspn(line, "\r\n")] = 0;
        found = strstr(line, "IO_Output") && strcmp(line, wanted) == 0 && isSafeFileToken(line);
    }
    fclose(list);
    if (found)
        formatChecked(fileName, n, "%s", wanted);
    return found;
}

static void writeUnknownTokenFault(const char* token)
{
    char detail[200];
    snprintf(detail, sizeof detail, "Unknown relay token %s reference.", token);
    writeSenderFault2("InvalidArgVal", "RelayToken", "Unknown relay token reference.", detail);
}

void GetRelayOutputs()
{
    setResponse("%s", "");
    FILE* list = fopenRoot(outputListFile(), "r");
    if (!list) {
        log_message_to_onvifErrorFile(1, "deviceService:GetRelayOutputs:/usr/apache/htdocs/onvif/IO.conf missing");
        return;
    }
    setResponse("<tds:GetRelayOutputsResponse>");
    char line[256];
    while (fgets(line, sizeof line, list)) {
        if (!strstr(line, "IO_Output"))
            continue;
        line[strcspn(line, "\r\n")] = 0;
        if (!hasRelayOutputs())
            break;
        FILE* f = openStoreFile("/tmp/onvif/", line);
        if (!f) {
            log_message_to_onvifErrorFile(1, "deviceService:GetRelayOutputs:%s missing", line);
            setResponse("%s", "");
            fclose(list);
            return;
        }
        forEachLine(f, [](const char* row) {
            char value[128];
            if (scanSettingLine(row, "token=", value, sizeof value, 0) && row[0] == 't')
                appendResponse("<tds:RelayOutputs token=\"%s\">", value);
            else if (scanSettingLine(row, "RelayMode=", value, sizeof value, 0))
                appendResponse("<tt:Properties><tt:Mode>%s</tt:Mode>", value);
            else if (scanSettingLine(row, "DelayTime=", value, sizeof value, 0))
                appendResponse("<tt:DelayTime>%s</tt:DelayTime>", value);
            else if (scanSettingLine(row, "IdleState=", value, sizeof value, 0))
                appendResponse("<tt:IdleState>%s</tt:IdleState></tt:Properties></tds:RelayOutputs>", value);
            return true;
        });
    }
    fclose(list);
    appendResponse("</tds:GetRelayOutputsResponse>");
}

static void writeOptions(const char* token)
{
    setResponse("<tmd:GetRelayOutputOptionsResponse><tmd:RelayOutputOptions token=\"%s\"><tmd:Mode>Bistable</tmd:Mode>"
                "<tmd:Mode>Monostable</tmd:Mode><tmd:DelayTimes>1 600</tmd:DelayTimes><tmd:Discrete>%s"
                "</tmd:Discrete></tmd:RelayOutputOptions></tmd:GetRelayOutputOptionsResponse>", token,
                onvifMode() ? "false" : "False");
}

void GetRelayOutputOptions()
{
    char token[65];
    Read read = readEither("tt:RelayOutputToken", "RelayOutputToken", token, 64);
    if (read == Read::Refused)
        return;
    if (read == Read::Value) {
        char fileName[128];
        int found = findOutputLine(token, fileName, sizeof fileName);
        if (found < 0)
            log_message_to_onvifErrorFile(1, "deviceService:GetRelayOutputOptions: %s is missing", outputListFile());
        if (found > 0)
            writeOptions(token);
        else
            writeUnknownTokenFault(token);
        return;
    }
    FILE* list = fopenRoot(outputListFile(), "r");
    if (!list) {
        log_message_to_onvifErrorFile(1, "deviceService:GetRelayOutputOptions: %s is missing", outputListFile());
        return;
    }
    // Each output's answer is written over the last: the last output answers.
    char line[256];
    while (fgets(line, sizeof line, list)) {
        if (!strstr(line, "IO_Output"))
            continue;
        char outputToken[128] = "";
        sscanf(line, "%127[^.]", outputToken);
        writeOptions(outputToken);
    }
    fclose(list);
}

struct RelayEdit {
    const char* mode;
    const char* delay;
    const char* idle;
    const char* logical;
};

static int rewriteRelayLine(const char* line, FILE* out, void* ctx)
{
    RelayEdit* e = (RelayEdit*)ctx;
    if (!line)
        return 0;
    struct { const char* key; const char* value; } rows[] = {
        {"RelayMode=", e->mode}, {"DelayTime=", e->delay}, {"IdleState=", e->idle}, {"RelayLogicalState=", e->logical}};
    for (auto& row : rows) {
        if (row.value && strncmp(line, row.key, strlen(row.key)) == 0) {
            fprintf(out, "%s%s\n", row.key, row.value);
            return 1;
        }
    }
    return 0;
}

// Rewrites the working copy and hands the same file to the persistent copy.
static int rewriteRelaySettings(const char* fileName, RelayEdit* edit)
{
    char working[300], persistent[300];
    formatChecked(working, sizeof working, "/tmp/onvif/%s", fileName);
    formatChecked(persistent, sizeof persistent, "/usr/apache/htdocs/onvif/%s", fileName);
    if (rewriteFileThroughWorkCopy(working, rewriteRelayLine, edit) != 0)
        return -1;
    return copyFileThroughWorkCopy(working, persistent);
}

static int outputIndex(const char* fileName)
{
    int number = 0;
    sscanf(fileName, "IO_Output%d.IOConf", &number);
    return number;
}

// The settings change of both services; they differ in how the request
// names the output and in the answer's element.
static void changeRelaySettings(Read tokenRead, const char* token, const char* response)
{
    char mode[65], delay[65], idle[65], fileName[128];
    int hasToken = tokenRead == Read::Value;
    if (!hasRelayOutputs() || !hasToken || findOutputLine(token, fileName, sizeof fileName) <= 0) {
        writeUnknownTokenFault(hasToken ? token : "");
        return;
    }
    Read modeRead = readEither("tt:Mode", "RelayMode", mode, 64);
    Read delayRead = readEither("tt:DelayTime", "DelayTime", delay, 64);
    Read idleRead = readEither("tt:IdleState", "IdleState", idle, 64);
    if (modeRead == Read::Refused || delayRead == Read::Refused || idleRead == Read::Refused)
        return;
    int hasMode = modeRead == Read::Value, hasDelay = delayRead == Read::Value, hasIdle = idleRead == Read::Value;
    if (hasMode && strcmp(mode, "Monostable") != 0)
        snprintf(mode, sizeof mode, "Bistable");
    if (hasDelay) {
        int h, m, s;
        GetTimeSpanIntoTimeInteger(delay, &h, &m, &s);
        long seconds = (long)h * 3600 + (long)m * 60 + s;
        // A duration is one word of its own letters: nothing else reaches the file.
        int wellFormed = strspn(delay, "PTDHMS0123456789.") == strlen(delay);
        if (!wellFormed || (hasMode && strcmp(mode, "Monostable") == 0 && (seconds > MAX_DELAY_SECONDS || seconds < 0))) {
            writeSenderFault2("InvalidArgVal", "ModeError", "Monostable delay time not valid.",
                              "Monostable delay time not valid.");
            return;
        }
    }
    if (hasIdle && strcmp(idle, "open") != 0 && strcmp(idle, "closed") != 0)
        hasIdle = 0;
    if (modelHas(Cap::RelaysIdleFixedOnHead) && hasIdle && strcmp(idle, "closed") != 0) {
        writeSenderFault("ter:PTZNotSupported", "PTZ can't set IdleState by the device.");
        return;
    }
    RelayEdit edit = {hasMode ? mode : 0, hasDelay ? delay : 0, hasIdle ? idle : 0, 0};
    if (rewriteRelaySettings(fileName, &edit) != 0) {
        log_message_to_onvifErrorFile(1, "deviceService:SetRelayOutputSettings:%s missing", fileName);
        setResponse("%s", "");
        return;
    }
    if (!modelHas(Cap::IoPtzHead)) {
        // The camera's Active parameter is the output's idle state.
        char active[16] = "open";
        char working[300];
        formatChecked(working, sizeof working, "/tmp/onvif/%s", fileName);
        readSettingValue(working, "IdleState=", active, sizeof active);
        if (strcmp(active, "closed") != 0)
            snprintf(active, sizeof active, "open");
        char query[128], name[32];
        snprintf(query, sizeof query, "action=update");
        snprintf(name, sizeof name, "Output.O%d.Active", outputIndex(fileName) - 1);
        if (appendQueryParam(query, sizeof query, name, active))
            runSettingsProgram(query);
    }
    FILE* outputs = fopenRoot(OUTPUTS_CONF, "r");
    if (!outputs) {
        log_message_to_onvifErrorFile(1, "[SetRelayOutputSettings] FILE: %s missing", OUTPUTS_CONF);
        return;
    }
    char line[256], value[32];
    while (fgets(line, sizeof line, outputs)) {
        for (int i = 0; i < 2; ++i) {
            char key[32];
            snprintf(key, sizeof key, "root.Output.O%d.Active=", i);
            if (strncmp(line, key, strlen(key)) == 0 && scanSettingLine(line, key, value, sizeof value, 0))
                setShmWord(IDLE_STATE_WORD_1 + i, strcmp(value, "closed") == 0 ? 0 : 1);
        }
    }
    fclose(outputs);
    setResponse("<%s></%s>", response, response);
}

void SetRelayOutputSettings()
{
    char token[65];
    Read tokenRead = readEither("tt:RelayOutputToken", "RelayOutputToken", token, 64);
    if (tokenRead != Read::Refused)
        changeRelaySettings(tokenRead, token, "tds:SetRelayOutputSettingsResponse");
}

// The device IO service names the output by its RelayOutput's token attribute.
void DeviceIoSetRelayOutputSettings()
{
    char token[65] = "";
    int row = requestRowFrom("tmd:RelayOutput", 0);
    Read tokenRead = row >= 0 ? requestAttributeOf(row, "token", token, sizeof token) : Read::Absent;
    if (tokenRead != Read::Refused)
        changeRelaySettings(tokenRead, token, "tmd:SetRelayOutputSettingsResponse");
}

void SetRelayOutputState()
{
    char token[65], state[65], fileName[128];
    Read tokenRead = readEither("tt:RelayOutputToken", "RelayOutputToken", token, 64);
    if (tokenRead == Read::Refused)
        return;
    int hasToken = tokenRead == Read::Value;
    int found = hasToken && hasRelayOutputs() ? findOutputLine(token, fileName, sizeof fileName) : 0;
    if (found < 0)
        log_message_to_onvifErrorFile(1, "[SetRelayOutputState] FILE: %s missing", outputListFile());
    if (found <= 0) {
        writeUnknownTokenFault(hasToken ? token : "");
        return;
    }
    if (readEither("tt:LogicalState", "LogicalState", state, 64) == Read::Refused)
        return;
    int active = strcmp(state, "inactive") != 0;
    RelayEdit edit = {0, 0, 0, active ? "active" : "inactive"};
    rewriteRelaySettings(fileName, &edit);
    int number = outputIndex(fileName);
    if (number >= 1 && number <= 2)
        setShmWord(LOGICAL_STATE_WORD_1 + number - 1, active);
    // "/" raises the output into its active state, "\" lets it fall back.
    char action[32];
    snprintf(action, sizeof action, active ? "%d:/" : "%d:\\", number);
    const CommandArg args[] = {{"action", action}, {"isOnvif", "1"}};
    runCameraProgramWith("io/output.cgi", args, 2);
    setResponse("<tds:SetRelayOutputStateResponse></tds:SetRelayOutputStateResponse>");
}
