// The device IO service's own answers (the ONVIF mode): its inputs, their
// options and settings, and the tokens of the physical sources it counts.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "media/config_kinds.h"
#include "state/config.h"
#include "state/model.h"

#include <stdio.h>
#include <string.h>

// The inputs' tokens are the ones their events name: IO_Input1 and on.
static int inputNumber(const char* token)
{
    int number = 0;
    char rest;
    int inputs = modelValue(Cap::IoInputs);
    if (sscanf(token, "IO_Input%d%c", &number, &rest) != 1 || number < 1 || number > inputs)
        return 0;
    return number;
}

// The idle state a client set for each input ("IO_Input1=closed"); an input
// without a line has none.
#define INPUTS_FILE "/tmp/onvif/DigitalInputs.conf"

static int storedIdleState(int input, char* state, size_t n)
{
    char key[24];
    snprintf(key, sizeof key, "IO_Input%d=", input);
    return readSettingValue(INPUTS_FILE, key, state, n);
}

void GetDigitalInputs()
{
    int inputs = modelValue(Cap::IoInputs);
    setResponse("<tmd:GetDigitalInputsResponse>");
    for (int k = 1; k <= inputs; ++k) {
        char state[16];
        if (storedIdleState(k, state, sizeof state))
            appendResponse("<tmd:DigitalInputs token=\"IO_Input%d\" IdleState=\"%s\"/>", k, state);
        else
            appendResponse("<tmd:DigitalInputs token=\"IO_Input%d\"/>", k);
    }
    appendMarkup("</tmd:GetDigitalInputsResponse>");
}

static void refuseInputConfiguration()
{
    writeSenderFault2("InvalidArgVal", "NoConfig", "The requested configuration does not exist.",
                      "The requested configuration indicated by Token does not exist.");
}

// All or none: every named input and state is checked before the file is
// written once.
void SetDigitalInputConfigurations()
{
    enum { MAX_INPUTS = 8 };
    char states[MAX_INPUTS + 1][16] = {};
    int inputs = modelValue(Cap::IoInputs);
    for (int k = 1; k <= inputs && k <= MAX_INPUTS; ++k)
        if (!storedIdleState(k, states[k], sizeof states[k]))
            states[k][0] = 0;
    for (int row = 1; (row = requestRowOf("DigitalInputs", row)) > 0; ++row) {
        char token[65], state[16];
        Read tokenRead = requestAttributeOf(row, "token", token, sizeof token);
        Read stateRead = requestAttributeOf(row, "IdleState", state, sizeof state);
        if (tokenRead == Read::Refused || stateRead == Read::Refused)
            return;
        int input = tokenRead == Read::Value ? inputNumber(token) : 0;
        if (!input || input > MAX_INPUTS ||
            (stateRead == Read::Value && strcmp(state, "open") != 0 && strcmp(state, "closed") != 0)) {
            refuseInputConfiguration();
            return;
        }
        if (stateRead == Read::Value)
            snprintf(states[input], sizeof states[input], "%s", state);
    }
    char content[MAX_INPUTS * 24] = "";
    for (int k = 1; k <= inputs && k <= MAX_INPUTS; ++k)
        if (states[k][0])
            snprintf(content + strlen(content), sizeof content - strlen(content), "IO_Input%d=%s\n", k, states[k]);
    if (replaceFileContent(INPUTS_FILE, content) != 0) {
        G_httpAck = 500;
        return;
    }
    setResponse("<tmd:SetDigitalInputConfigurationsResponse></tmd:SetDigitalInputConfigurationsResponse>");
}

void GetDigitalInputConfigurationOptions()
{
    char token[65];
    Read read = requestTextEither("tmd:Token", "Token", token, sizeof token);
    if (read == Read::Refused)
        return;
    if (read == Read::Value && !inputNumber(token)) {
        refuseInputConfiguration();
        return;
    }
    setResponse("<tmd:GetDigitalInputConfigurationOptionsResponse><tmd:DigitalInputOptions>"
                "<tmd:IdleState>closed</tmd:IdleState><tmd:IdleState>open</tmd:IdleState>"
                "</tmd:DigitalInputOptions></tmd:GetDigitalInputConfigurationOptionsResponse>");
}

static void answerSourceTokens(const ConfigKind* kind, const char* response)
{
    char tokens[MAX_SOURCES][CONFIG_TOKEN_MAX + 1];
    int count = collectSourceTokens(kind, tokens, MAX_SOURCES);
    setResponse("<tmd:%s>", response);
    for (int i = 0; i < count; ++i)
        appendElement("tmd:Token", tokens[i]);
    appendResponse("</tmd:%s>", response);
}

void DeviceIoGetVideoSources()
{
    answerSourceTokens(&VIDEO_SOURCE_KIND, "GetVideoSourcesResponse");
}

void DeviceIoGetAudioSources()
{
    answerSourceTokens(&AUDIO_SOURCE_KIND, "GetAudioSourcesResponse");
}
