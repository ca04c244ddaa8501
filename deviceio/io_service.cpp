// The device IO service's own answers (the ONVIF mode): its inputs, their
// options, and the tokens of the physical sources it counts.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "media/config_kinds.h"
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

void GetDigitalInputs()
{
    int inputs = modelValue(Cap::IoInputs);
    setResponse("<tmd:GetDigitalInputsResponse>");
    for (int k = 1; k <= inputs; ++k)
        appendResponse("<tmd:DigitalInputs token=\"IO_Input%d\"/>", k);
    appendMarkup("</tmd:GetDigitalInputsResponse>");
}

void GetDigitalInputConfigurationOptions()
{
    char token[65];
    Read read = requestTextEither("tmd:Token", "Token", token, sizeof token);
    if (read == Read::Refused)
        return;
    if (read == Read::Value && !inputNumber(token)) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "The requested configuration does not exist.",
                          "The requested configuration indicated by Token does not exist.");
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
