// GetServices and every service's GetServiceCapabilities (the ONVIF mode):
// one row per service, its capabilities from the camera's state and model.
#include "device/services.h"
#include "frame/dispatch.h"
#include "frame/access.h"
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "events/events.h"
#include "media/config_kinds.h"
#include "state/config.h"
#include "state/model.h"
#include "state/netaddr.h"

#include <string.h>

IoCounts ioCounts()
{
    char tokens[MAX_SOURCES][CONFIG_TOKEN_MAX + 1];
    IoCounts c;
    c.videoSources = collectSourceTokens(&VIDEO_SOURCE_KIND, tokens, MAX_SOURCES);
    c.audioSources = collectSourceTokens(&AUDIO_SOURCE_KIND, tokens, MAX_SOURCES);
    c.relayOutputs = modelValue(Cap::IoRelays);
    c.digitalInputs = modelValue(Cap::IoInputs);
    return c;
}

int serviceXAddr(char* out, size_t n)
{
    char service[96];
    return deviceServiceAddress(service, sizeof service) &&
           formatChecked(out, n, "%s/onvif/device_service", service);
}

static const char* flag(bool on)
{
    return on ? "true" : "false";
}

// Network and system agree with the Device section of GetCapabilities.
static void deviceCapabilities(const char* prefix)
{
    appendResponse("<%s:Capabilities><tds:Network IPFilter=\"false\" ZeroConfiguration=\"false\" IPVersion6=\"false\" "
                   "DynDNS=\"false\" Dot11Configuration=\"false\" HostnameFromDHCP=\"false\" NTP=\"1\"/>",
                   prefix);
    appendMarkup("<tds:Security ");
    appendMarkup(securityCapabilities());
    appendMarkup("/><tds:System DiscoveryResolve=\"true\" DiscoveryBye=\"true\" RemoteDiscovery=\"false\" "
                 "SystemBackup=\"false\" SystemLogging=\"false\" HttpFirmwareUpgrade=\"false\"/>"
                 "<tds:Misc AuxiliaryCommands=\"\"/>");
    appendResponse("</%s:Capabilities>", prefix);
}

static void mediaCapabilities(const char* prefix)
{
    appendResponse("<%s:Capabilities SnapshotUri=\"true\" Rotation=\"false\" VideoSourceMode=\"false\" OSD=\"false\">"
                   "<trt:ProfileCapabilities MaximumNumberOfProfiles=\"%d\"/>"
                   "<trt:StreamingCapabilities RTPMulticast=\"true\" RTP_TCP=\"true\" RTP_RTSP_TCP=\"true\" "
                   "NonAggregateControl=\"false\" NoRTSPStreaming=\"false\"/></%s:Capabilities>",
                   prefix, modelValue(Cap::MediaMaxProfiles), prefix);
}

static void eventCapabilities(const char* prefix)
{
    appendResponse("<%s:Capabilities WSSubscriptionPolicySupport=\"true\" WSPullPointSupport=\"true\" "
                   "WSPausableSubscriptionManagerInterfaceSupport=\"false\" MaxNotificationProducers=\"%d\" "
                   "MaxPullPoints=\"%d\" PersistentNotificationStorage=\"false\"/>",
                   prefix, SUBSCRIPTION_SLOTS, maxPullPoints());
}

static void ptzCapabilities(const char* prefix)
{
    appendResponse("<%s:Capabilities EFlip=\"false\" Reverse=\"false\" GetCompatibleConfigurations=\"false\" "
                   "MoveStatus=\"%s\" StatusPosition=\"%s\"/>",
                   prefix, flag(modelHas(Cap::PtzMotors)), flag(modelHas(Cap::PtzMotors)));
}

static void imagingCapabilities(const char* prefix)
{
    appendResponse("<%s:Capabilities ImageStabilization=\"false\" Presets=\"false\"/>", prefix);
}

static void deviceIoCapabilities(const char* prefix)
{
    IoCounts c = ioCounts();
    appendResponse("<%s:Capabilities VideoSources=\"%d\" VideoOutputs=\"0\" AudioSources=\"%d\" AudioOutputs=\"0\" "
                   "RelayOutputs=\"%d\" SerialPorts=\"0\" DigitalInputs=\"%d\" DigitalInputOptions=\"true\"/>",
                   prefix, c.videoSources, c.audioSources, c.relayOutputs, c.digitalInputs);
}

struct ServiceRow {
    Service service;
    const char* prefix;     // of the service's own elements
    int major, minor;       // the version of the service's interface implemented
    void (*capabilities)(const char* prefix);
    bool (*served)();       // 0: always
};

static bool ptzServed() { return modelHas(Cap::PtzMotors); }
static bool imagingServed() { return !modelHas(Cap::ImagingNone); }

static const ServiceRow SERVICE_ROWS[] = {
    {SVC_DEVICE, "tds", 2, 0, deviceCapabilities, 0},
    {SVC_MEDIA, "trt", 2, 0, mediaCapabilities, 0},
    {SVC_EVENTS, "tev", 2, 0, eventCapabilities, 0},
    {SVC_PTZ, "tptz", 2, 0, ptzCapabilities, ptzServed},
    {SVC_IMAGING, "timg", 2, 0, imagingCapabilities, imagingServed},
    {SVC_DEVICEIO, "tmd", 2, 0, deviceIoCapabilities, 0},
};

void GetServices()
{
    char xaddr[128], include[8] = "false";
    if (!serviceXAddr(xaddr, sizeof xaddr)) {
        G_httpAck = 500;
        return;
    }
    if (requestTextEither("tds:IncludeCapability", "IncludeCapability", include, sizeof include) == Read::Refused)
        return;
    bool withCapabilities = strcmp(include, "true") == 0 || strcmp(include, "1") == 0;
    setResponse("<tds:GetServicesResponse>");
    for (const ServiceRow& s : SERVICE_ROWS) {
        if (s.served && !s.served())
            continue;
        appendResponse("<tds:Service><tds:Namespace>%s</tds:Namespace><tds:XAddr>%s</tds:XAddr>",
                       serviceNamespace(s.service), xaddr);
        if (withCapabilities) {
            appendMarkup("<tds:Capabilities>");
            s.capabilities(s.prefix);
            appendMarkup("</tds:Capabilities>");
        }
        appendResponse("<tds:Version><tt:Major>%d</tt:Major><tt:Minor>%d</tt:Minor></tds:Version></tds:Service>",
                       s.major, s.minor);
    }
    appendMarkup("</tds:GetServicesResponse>");
}

static void answerServiceCapabilities(Service service)
{
    for (const ServiceRow& s : SERVICE_ROWS)
        if (s.service == service) {
            setResponse("<%s:GetServiceCapabilitiesResponse>", s.prefix);
            s.capabilities(s.prefix);
            appendResponse("</%s:GetServiceCapabilitiesResponse>", s.prefix);
        }
}

void DeviceServiceCapabilities() { answerServiceCapabilities(SVC_DEVICE); }
void MediaServiceCapabilities() { answerServiceCapabilities(SVC_MEDIA); }
void EventServiceCapabilities() { answerServiceCapabilities(SVC_EVENTS); }
void PtzServiceCapabilities() { answerServiceCapabilities(SVC_PTZ); }
void ImagingServiceCapabilities() { answerServiceCapabilities(SVC_IMAGING); }
void DeviceIoServiceCapabilities() { answerServiceCapabilities(SVC_DEVICEIO); }
