// Stream and snapshot addresses of a profile's encoder channel, and starting
// and stopping the channel's multicast group.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "state/profiles.h"
#include "state/checkers.h"
#include "state/command.h"
#include "state/config.h"
#include "state/netaddr.h"
#include "state/paths.h"
#include "state/shm.h"

#include <string.h>

#define COUNT(a) (int)(sizeof(a) / sizeof((a)[0]))
#define DEFAULT_RTSP_PORT 554
#define DEFAULT_HTTP_PORT 80

static int isHostNameLabelChar(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-';
}

// Letters, digits and '-' in dot-separated labels of 1 to 63 characters, no
// label starting or ending with '-', and a last label that is not all digits
// (so that a malformed IPv4 literal is not taken for a name).
static int isHostName(const char* text, size_t len)
{
    if (len == 0 || len > 253)
        return 0;
    size_t labelStart = 0;
    int allDigits = 1;
    for (size_t i = 0; i <= len; ++i) {
        if (i == len || text[i] == '.') {
            size_t labelLen = i - labelStart;
            if (labelLen == 0 || labelLen > 63 || text[labelStart] == '-' || text[i - 1] == '-')
                return 0;
            if (i == len && allDigits)
                return 0;
            labelStart = i + 1;
            allDigits = 1;
            continue;
        }
        if (!isHostNameLabelChar(text[i]))
            return 0;
        if (text[i] < '0' || text[i] > '9')
            allDigits = 0;
    }
    return 1;
}

static int isPortText(const char* text)
{
    long port;
    return strlen(text) <= 5 && parseNumber(text, 1, 65535, &port) && text[0] >= '0' && text[0] <= '9';
}

// The client's Host header split into its host (an IPv6 literal keeps its
// brackets) and port ("" when none), when it is a host name, an IPv4 literal
// or a bracketed IPv6 literal with an optional port. 0 for anything else.
static int parseClientHost(const char* header, char* host, size_t hostSize, char* port, size_t portSize)
{
    size_t len = strlen(header), hostLen;
    if (len == 0 || len > 260)
        return 0;
    const char* rest;
    if (header[0] == '[') {
        const char* close = strchr(header, ']');
        char literal[64];
        size_t innerLen = close ? (size_t)(close - header - 1) : 0;
        if (!close || innerLen == 0 || innerLen >= sizeof literal)
            return 0;
        memcpy(literal, header + 1, innerLen);
        literal[innerLen] = 0;
        if (!isIPv6Literal(literal))
            return 0;
        hostLen = innerLen + 2;
        rest = close + 1;
    } else {
        const char* colon = strchr(header, ':');
        hostLen = colon ? (size_t)(colon - header) : len;
        char name[256];
        if (hostLen >= sizeof name)
            return 0;
        memcpy(name, header, hostLen);
        name[hostLen] = 0;
        if (!isStrictIPv4(name) && !isHostName(name, hostLen))
            return 0;
        rest = header + hostLen;
    }
    if (hostLen >= hostSize)
        return 0;
    if (*rest && (*rest != ':' || !isPortText(rest + 1) || strlen(rest + 1) >= portSize))
        return 0;
    memcpy(host, header, hostLen);
    host[hostLen] = 0;
    snprintf(port, portSize, "%s", *rest ? rest + 1 : "");
    return 1;
}

// The configured port of a protocol, "" when it is the protocol's default.
static void configuredPort(const char* key, long defaultPort, char* out, size_t n)
{
    char text[16];
    long value;
    out[0] = 0;
    if (readSettingValue(ONVIF_CONF_FILE, key, text, sizeof text) && parseNumber(text, 1, 65535, &value) &&
        value != defaultPort)
        snprintf(out, n, "%ld", value);
}

// The host the addresses carry: the client's when its Host header is well
// formed (clientPort gets its port), else the interface address.
static int addressHost(char* host, size_t hostSize, char* clientPort, size_t portSize)
{
    if (G_Host && parseClientHost(G_Host, host, hostSize, clientPort, portSize))
        return 1;
    getDeviceIPv4(host, hostSize);
    clientPort[0] = 0;
    return 0;
}

// Characters a path of the encoder files may carry into an address.
static int isAddressPath(const char* path)
{
    if (!path[0] || path[0] == '/')
        return 0;
    for (const char* p = path; *p; ++p)
        if (!((*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') ||
              strchr("-._~/?=&%:@+,;", *p)))
            return 0;
    return 1;
}

enum { ENCODER_FOUND = 0, ENCODER_NO_PROFILE = 1, ENCODER_NONE = 2 };

// The video encoder file of the request's profile.
static int profileEncoderPath(char* path, size_t n, char* encoder, size_t encoderSize)
{
    char token[PROFILE_TOKEN_MAX + 1], fileName[PROFILE_TOKEN_MAX + 16];
    if (requestToken("trt:ProfileToken", token, sizeof token) != Read::Value ||
        findProfile(token, fileName, sizeof fileName) != PROFILE_FOUND)
        return ENCODER_NO_PROFILE;
    if (!readProfileField(fileName, "VideoEncoder=", encoder, encoderSize) || strcmp(encoder, "NONE") == 0 ||
        !isSafeFileToken(encoder))
        return ENCODER_NONE;
    int written = snprintf(path, n, ONVIF_DIR "%s.VEncoder", encoder);
    if (written < 0 || (size_t)written >= n)
        return ENCODER_NONE;
    FILE* f = fopenRoot(path, "r");
    if (!f)
        return ENCODER_NONE;
    fclose(f);
    return ENCODER_FOUND;
}

// Finds the encoder of the request's profile, or writes the fault.
static int requestEncoderPath(char* path, size_t n, char* encoder, size_t encoderSize)
{
    switch (profileEncoderPath(path, n, encoder, encoderSize)) {
    case ENCODER_FOUND:
        return 1;
    case ENCODER_NO_PROFILE:
        writeNoProfileFault();
        return 0;
    default:
        writeReceiverFault2("Action", "IncompleteConfiguration", "Incomplete configuration",
                            "The media profile does not contain a video encoder configuration");
        return 0;
    }
}

static void answerMediaUri(const char* action, const char* uri, const char* encoderPath)
{
    char timeout[CONFIG_VALUE_SIZE];
    if (!readSettingValue(encoderPath, "SessionTimeout=", timeout, sizeof timeout) || !isXmlDuration(timeout))
        snprintf(timeout, sizeof timeout, "%s", "PT0S");
    setResponse("<trt:%sResponse><trt:MediaUri><tt:Uri>%s</tt:Uri><tt:InvalidAfterConnect>false"
                "</tt:InvalidAfterConnect><tt:InvalidAfterReboot>false</tt:InvalidAfterReboot>"
                "<tt:Timeout>%s</tt:Timeout></trt:MediaUri></trt:%sResponse>", action, uri, timeout, action);
}

// The path the encoder file gives under key; 0 (and the generic fault) when
// the file has none fit for an address.
static int encoderAddressPath(const char* encoderPath, const char* key, char* out, size_t n, const char* handler)
{
    if (readSettingValue(encoderPath, key, out, n) && isAddressPath(out))
        return 1;
    logServiceError(handler, "%s has no usable %s", encoderPath, key);
    actionNotServed();
    return 0;
}

// The streams start over with a key frame.
void MediaSetSynchronizationPoint()
{
    runCameraProgramWith("h264/restart_stream.cgi", 0, 0);
    setResponse("<trt:SetSynchronizationPointResponse></trt:SetSynchronizationPointResponse>");
}

// Stream kinds and transports of tt:StreamSetup; a request without one asks
// for unicast.
static int requestWantsMulticast(int* multicast)
{
    static const char* const streams[] = {"RTP-Unicast", "RTP-Multicast"};
    static const char* const protocols[] = {"UDP", "TCP", "RTSP", "HTTP"};
    char stream[32] = "", protocol[16] = "";
    Read streamRead = requestText("tt:Stream", stream, sizeof stream);
    Read protocolRead = requestText("tt:Protocol", protocol, sizeof protocol);
    int streamOk = streamRead == Read::Absent, protocolOk = protocolRead == Read::Absent;
    for (int i = 0; i < COUNT(streams); ++i)
        streamOk |= streamRead == Read::Value && strcmp(stream, streams[i]) == 0;
    for (int i = 0; i < COUNT(protocols); ++i)
        protocolOk |= protocolRead == Read::Value && strcmp(protocol, protocols[i]) == 0;
    if (!streamOk || !protocolOk) {
        refuseRequestValue("InvalidStreamSetup", "Invalid stream setup",
                           "The requested stream type or transport is not supported");
        return 0;
    }
    *multicast = strcmp(stream, "RTP-Multicast") == 0;
    return 1;
}

void GetStreamURI()
{
    char encoderPath[320], encoder[CONFIG_TOKEN_MAX + 1], path[CONFIG_VALUE_SIZE];
    int multicast = 0;
    if (!requestWantsMulticast(&multicast) || !requestEncoderPath(encoderPath, sizeof encoderPath, encoder, sizeof encoder))
        return;
    if (!encoderAddressPath(encoderPath, multicast ? "Stream.MulticastPath=" : "Stream.Path=", path, sizeof path,
                            "GetStreamURI"))
        return;
    char host[264], clientPort[8], port[8], uri[600];
    // The stream server listens on its own port whatever HTTP port the client used.
    addressHost(host, sizeof host, clientPort, sizeof clientPort);
    configuredPort("Network.Protocols.RTSP.Port=", DEFAULT_RTSP_PORT, port, sizeof port);
    int written = snprintf(uri, sizeof uri, "rtsp://%s%s%s/%s", host, port[0] ? ":" : "", port, path);
    if (written < 0 || (size_t)written >= sizeof uri) {
        actionNotServed();
        return;
    }
    answerMediaUri("GetStreamUri", uri, encoderPath);
}

void GetSnapshotURI()
{
    char encoderPath[320], encoder[CONFIG_TOKEN_MAX + 1], path[CONFIG_VALUE_SIZE];
    if (!requestEncoderPath(encoderPath, sizeof encoderPath, encoder, sizeof encoder))
        return;
    const char* key = modelHas(Cap::PathsVariantOwn) ? "Snapshot.Variant16Path=" : "Snapshot.Path=";
    if (!encoderAddressPath(encoderPath, key, path, sizeof path, "GetSnapshotURI"))
        return;
    char host[264], port[8], uri[600];
    if (!addressHost(host, sizeof host, port, sizeof port))
        configuredPort("Network.Protocols.HTTP.Port=", DEFAULT_HTTP_PORT, port, sizeof port);
    int written = snprintf(uri, sizeof uri, "http://%s%s%s/%s", host, port[0] ? ":" : "", port, path);
    if (written < 0 || (size_t)written >= sizeof uri) {
        actionNotServed();
        return;
    }
    answerMediaUri("GetSnapshotUri", uri, encoderPath);
}

// Tells the stream program to start or stop the group of the profile's
// encoder; the program takes the group from the encoder's own settings.
static void commandMulticast(const char* action, const char* command)
{
    char encoderPath[320], encoder[CONFIG_TOKEN_MAX + 1];
    if (!requestEncoderPath(encoderPath, sizeof encoderPath, encoder, sizeof encoder))
        return;
    char query[256];
    snprintf(query, sizeof query, "action=%s", command);
    if (!appendQueryParam(query, sizeof query, "encoder", encoder)) {
        actionNotServed();
        return;
    }
    const CommandArg args[] = {{"QUERY_STRING", query}};
    runCameraProgramWith("h264/restart_stream.cgi", args, COUNT(args));
    setResponse("<trt:%sResponse></trt:%sResponse>", action, action);
}

void StartMulticastStreaming()
{
    commandMulticast("StartMulticastStreaming", "multicast_start");
}

void StopMulticastStreaming()
{
    commandMulticast("StopMulticastStreaming", "multicast_stop");
}
