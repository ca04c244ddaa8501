// The action table: one row per action, tried in order; the order settles
// names that contain others ("GetProfiles" before "GetProfile").
#include "frame/dispatch.h"
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/not_supported.h"
#include "frame/xmlsearch.h"
#include "frame/request_values.h"
#include "frame/standard_faults.h"
#include "state/mode.h"
#include "state/storelock.h"

#include <string.h>

// Three names belong to two services each; until the body's namespace picks
// the service, the request's own content does, as it always has.
void Stop()
{
    imagingSourceRequested() ? ImagingStop() : PtzStop();
}

void GetStatus()
{
    imagingSourceRequested() ? ImagingGetStatus() : PtzGetStatus();
}

void SetSynchronizationPoint()
{
    G_XML == 2 ? EventSetSynchronizationPoint() : MediaSetSynchronizationPoint();
}

// The credential rules are the camera's long-standing policy and clients rely
// on them, uneven as they are between like actions.
static const ActionRow actionRows[] = {
    {"GetNetworkInterfaces", SVC_DEVICE, GetNetworkInterfaces, CRED_AUTH_UNLESS_OPEN_INTERFACES, ENV_FULL, 0},
    {"SetNetworkInterfaces", SVC_DEVICE, SetNetworkInterfaces, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetNetworkDefaultGateway", SVC_DEVICE, GetNetworkDefaultGateway, CRED_OPEN, ENV_FULL, 0},
    {"SetNetworkDefaultGateway", SVC_DEVICE, SetNetworkDefaultGateway, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SystemReboot", SVC_DEVICE, SystemReboot, CRED_AUTH, ENV_FULL, CLOSES_CONNECTION},
    {"SetZeroConfiguration", SVC_DEVICE, SetZeroConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetZeroConfiguration", SVC_DEVICE, GetZeroConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"GetNetworkProtocols", SVC_DEVICE, GetNetworkProtocols, CRED_OPEN, ENV_FULL, 0},
    {"SetNetworkProtocols", SVC_DEVICE, SetNetworkProtocols, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetWsdlUrl", SVC_DEVICE, GetWSDLResponse, CRED_OPEN, ENV_FULL, 0},
    {"GetSystemDateAndTime", SVC_DEVICE, GetSystemDateAndTimeResponse, CRED_OPEN, ENV_FULL, 0},
    {"SetSystemDateAndTime", SVC_DEVICE, SetSystemDateAndTimeResponse, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, CHANGES_STORE},
    {"GetNTP", SVC_DEVICE, GetNTPResponse, CRED_OPEN, ENV_FULL, 0},
    {"SetNTP", SVC_DEVICE, SetNTPResponse, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetCapabilities", SVC_DEVICE, GetCapabilityResponse, CRED_OPEN, ENV_FULL, 0},
    {"GetHostname", SVC_DEVICE, GetHostnameResponse, CRED_OPEN, ENV_FULL, 0},
    {"SetHostname", SVC_DEVICE, SetHostnameResponse, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetDNS", SVC_DEVICE, GetDNSResponse, CRED_OPEN, ENV_FULL, 0},
    {"SetDNS", SVC_DEVICE, SetDNSResponse, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetDeviceInformation", SVC_DEVICE, GetDeviceInfoResponse, CRED_OPEN, ENV_FULL, 0},
    {"GetScopes", SVC_DEVICE, GetScopes, CRED_OPEN, ENV_FULL, 0},
    {"SetScopes", SVC_DEVICE, SetScopes, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"AddScopes", SVC_DEVICE, AddScopes, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"RemoveScopes", SVC_DEVICE, RemoveScopes, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetSystemFactoryDefault", SVC_DEVICE, SetDefault, CRED_AUTH, ENV_FULL, CLOSES_CONNECTION | CHANGES_STORE},
    {"SetDiscoveryMode", SVC_DEVICE, SetDiscoveryMode, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetDiscoveryMode", SVC_DEVICE, GetDiscoveryMode, CRED_AUTH, ENV_FULL, 0},
    {"GetSystemLog", SVC_DEVICE, GetSystemLog, CRED_AUTH, ENV_FULL, 0},
    {"CreateProfile", SVC_MEDIA, CreateProfile, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, CHANGES_STORE},
    {"GetProfiles", SVC_MEDIA, GetProfiles, CRED_OPEN, ENV_FULL, 0},
    {"GetProfile", SVC_MEDIA, GetOneProfile, CRED_OPEN, ENV_FULL, 0},
    {"DeleteProfile", SVC_MEDIA, DeleteProfile, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, CHANGES_STORE},
    {"GetVideoSources", SVC_MEDIA, GetVideoSources, CRED_OPEN, ENV_FULL, 0},
    {"GetCompatibleVideoSourceConfigurations", SVC_MEDIA, GetCompatibleVideoSourceConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoSourceConfigurationOptions", SVC_MEDIA, GetVideoSourceConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoSourceConfigurations", SVC_MEDIA, GetVideoSourceConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoSourceConfiguration", SVC_MEDIA, GetVideoSourceConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"AddVideoSourceConfiguration", SVC_MEDIA, AddVideoSourceConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, CHANGES_STORE},
    {"RemoveVideoSourceConfiguration", SVC_MEDIA, RemoveVideoSourceConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetVideoSourceConfiguration", SVC_MEDIA, SetVideoSourceConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetCompatibleVideoEncoderConfigurations", SVC_MEDIA, GetCompatibleVideoEncoderConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoEncoderConfigurationOptions", SVC_MEDIA, GetVideoEncoderConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoEncoderConfigurations", SVC_MEDIA, GetVideoEncoderConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoEncoderConfiguration", SVC_MEDIA, GetVideoEncoderConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"AddVideoEncoderConfiguration", SVC_MEDIA, AddVideoEncoderConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, CHANGES_STORE},
    {"RemoveVideoEncoderConfiguration", SVC_MEDIA, RemoveVideoEncoder, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetVideoEncoderConfiguration", SVC_MEDIA, SetVideoEncoderConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, CHANGES_STORE},
    {"GetGuaranteedNumberOfVideoEncoderInstances", SVC_MEDIA, GetGuaranteedNumberOfVideoEncoderInstances, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioSources", SVC_MEDIA, GetAudioSources, CRED_OPEN, ENV_FULL, 0},
    {"GetCompatibleAudioSourceConfigurations", SVC_MEDIA, GetCompatibleAudioSource, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioSourceConfigurationOptions", SVC_MEDIA, GetAudioSourceConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioSourceConfigurations", SVC_MEDIA, GetAudioSourceConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioSourceConfiguration", SVC_MEDIA, GetAudioSourceConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"AddAudioSourceConfiguration", SVC_MEDIA, AddAudioSourceConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"RemoveAudioSourceConfiguration", SVC_MEDIA, RemoveAudioSource, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetAudioSourceConfiguration", SVC_MEDIA, SetAudioSourceConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetCompatibleAudioEncoderConfigurations", SVC_MEDIA, GetCompatibleAudioEncoder, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioEncoderConfigurationOptions", SVC_MEDIA, GetAudioEncoderConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioEncoderConfigurations", SVC_MEDIA, GetAudioEncoderConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioEncoderConfiguration", SVC_MEDIA, GetAudioEncoderConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"AddAudioEncoderConfiguration", SVC_MEDIA, AddAudioEncoderConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"RemoveAudioEncoderConfiguration", SVC_MEDIA, RemoveAudioEncoder, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetAudioEncoderConfiguration", SVC_MEDIA, SetAudioEncoderConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, CHANGES_STORE},
    {"GetAudioOutputConfigurations", SVC_MEDIA, GetAudioOutputConfigurations, CRED_AUTH, ENV_FULL, 0},
    {"GetAudioOutputConfigurationOptions", SVC_MEDIA, GetAudioOutputConfigurationOptions, CRED_AUTH, ENV_FULL, 0},
    {"SetAudioOutputConfiguration", SVC_MEDIA, SetAudioOutputConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetAudioOutputConfiguration", SVC_MEDIA, GetAudioOutputConfiguration, CRED_AUTH, ENV_FULL, 0},
    {"GetAudioOutputs", SVC_MEDIA, GetAudioOutputs, CRED_AUTH, ENV_FULL, 0},
    {"GetAudioDecoderConfigurationOptions", SVC_MEDIA, GetAudioDecoderConfigurationOptions, CRED_AUTH, ENV_FULL, 0},
    {"GetCompatibleMetadataConfigurations", SVC_MEDIA, GetCompatibleMetadataConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetMetadataConfigurationOptions", SVC_MEDIA, GetMetadataConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetMetadataConfigurations", SVC_MEDIA, GetMetadataConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetMetadataConfiguration", SVC_MEDIA, GetMetadataConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"AddMetadataConfiguration", SVC_MEDIA, AddMetadataConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, CHANGES_STORE},
    {"SetMetadataConfiguration", SVC_MEDIA, SetMetadataConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, CHANGES_STORE},
    {"RemoveMetadataConfiguration", SVC_MEDIA, RemoveMetadataConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetUsers", SVC_DEVICE, GetUsers, CRED_AUTH, ENV_FULL, 0},
    {"CreateUsers", SVC_DEVICE, CreateUsers, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"DeleteUsers", SVC_DEVICE, DeleteUsers, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetUser", SVC_DEVICE, SetUser, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetStreamUri", SVC_MEDIA, GetStreamURI, CRED_OPEN, ENV_FULL, 0},
    {"GetSnapshotUri", SVC_MEDIA, GetSnapshotURI, CRED_OPEN, ENV_FULL, 0},
    {"StartMulticastStreaming", SVC_MEDIA, StartMulticastStreaming, CRED_AUTH, ENV_FULL, 0},
    {"StopMulticastStreaming", SVC_MEDIA, StopMulticastStreaming, CRED_AUTH, ENV_FULL, 0},
    {"SetSynchronizationPoint", SVC_MEDIA, SetSynchronizationPoint, CRED_OPEN, ENV_SYNCHRONIZATION_POINT, CHANGES_STORE | LEGACY_ONLY},
    {"GetOptions", SVC_IMAGING, GetOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetImagingSettings", SVC_IMAGING, GetImagingSettings, CRED_OPEN, ENV_FULL, 0},
    {"SetImagingSettings", SVC_IMAGING, SetImagingSettings, CRED_OPEN, ENV_FULL, CHANGES_STORE},
    {"Move", SVC_IMAGING, Move, CRED_OPEN, ENV_FULL, EXACT_NAME},
    {"GetMoveOptions", SVC_IMAGING, GetMoveOptions, CRED_OPEN, ENV_FULL, 0},
    {"MoveIris", SVC_IMAGING, MoveIris, CRED_OPEN, ENV_FULL, 0},
    {"GetRelayOutputOptions", SVC_DEVICEIO, GetRelayOutputOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetRelayOutputs", SVC_DEVICE, GetRelayOutputs, CRED_OPEN, ENV_FULL, 0},
    {"SetRelayOutputState", SVC_DEVICE, SetRelayOutputState, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetRelayOutputSettings", SVC_DEVICE, SetRelayOutputSettings, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetNodes", SVC_PTZ, GetNodes, CRED_AUTH, ENV_FULL, 0},
    {"GetNode", SVC_PTZ, GetNode, CRED_AUTH, ENV_FULL, 0},
    {"Stop", SVC_PTZ, Stop, CRED_OPEN, ENV_FULL, LEGACY_ONLY},
    {"GetConfigurationOptions", SVC_PTZ, GetConfigurationOptions, CRED_AUTH, ENV_FULL, 0},
    {"GetConfigurations", SVC_PTZ, GetConfigurations, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
    {"GetConfiguration", SVC_PTZ, GetConfiguration, CRED_AUTH, ENV_FULL, 0},
    {"SetConfiguration", SVC_PTZ, SetConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"ContinuousMove", SVC_PTZ, ContinuousMove, CRED_OPEN, ENV_FULL, 0},
    {"SetPreset", SVC_PTZ, SetPreset, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GotoPreset", SVC_PTZ, GotoPreset, CRED_AUTH, ENV_FULL, 0},
    {"RemovePreset", SVC_PTZ, RemovePreset, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetPresets", SVC_PTZ, GetPresets, CRED_AUTH, ENV_FULL, 0},
    {"GetStatus", SVC_PTZ, GetStatus, CRED_AUTH, ENV_FULL, LEGACY_ONLY},
    {"AbsoluteMove", SVC_PTZ, AbsoluteMove, CRED_OPEN, ENV_FULL, 0},
    {"RelativeMove", SVC_PTZ, RelativeMove, CRED_OPEN, ENV_FULL, 0},
    {"GotoHomePosition", SVC_PTZ, GotoHomePosition, CRED_OPEN, ENV_FULL, 0},
    {"SetHomePosition", SVC_PTZ, SetHomePosition, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"AddPTZConfiguration", SVC_MEDIA, AddPTZConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"RemovePTZConfiguration", SVC_MEDIA, RemovePTZConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetAnalyticsModules", SVC_ANALYTICS, GetAnalyticsModules, CRED_AUTH, ENV_FULL, 0},
    {"CreatePullPointSubscription", SVC_EVENTS, CreatePullPointSubscription, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_CREATE_PULL_POINT, CHANGES_STORE},
    {"GetEventProperties", SVC_EVENTS, GetEventProperties, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_EVENT_PROPERTIES, 0},
    {"Subscribe", SVC_NOTIFICATION, Subscribe, CRED_AUTH, ENV_SUBSCRIBE, CHANGES_STORE},
    {"Unsubscribe", SVC_NOTIFICATION, Unsubscribe, CRED_AUTH, ENV_UNSUBSCRIBE, CHANGES_STORE},
    {"Renew", SVC_NOTIFICATION, Renew, CRED_AUTH, ENV_RENEW, CHANGES_STORE},
    // A pull waits up to a minute for the event process and writes only its
    // own event file: it must not hold the store lock.
    {"PullMessages", SVC_EVENTS, PullMessages, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_PULL_MESSAGES, 0},
    // Named only so that its failure is answered in the event envelope.
    {"GetServiceCapabilities", SVC_EVENTS, 0, CRED_OPEN, ENV_SERVICE_CAPABILITIES, LEGACY_ONLY},

    // The ONVIF mode tells the services apart by the body's namespace where
    // the camera always decided by the request's content.
    {"Stop", SVC_PTZ, PtzStop, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"Stop", SVC_IMAGING, ImagingStop, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"GetStatus", SVC_PTZ, PtzGetStatus, CRED_AUTH, ENV_FULL, ONVIF_ONLY},
    {"GetStatus", SVC_IMAGING, ImagingGetStatus, CRED_AUTH, ENV_FULL, ONVIF_ONLY},
    {"SetSynchronizationPoint", SVC_MEDIA, MediaSetSynchronizationPoint, CRED_OPEN, ENV_FULL, CHANGES_STORE | ONVIF_ONLY},
    {"SetSynchronizationPoint", SVC_EVENTS, EventSetSynchronizationPoint, CRED_OPEN, ENV_SYNCHRONIZATION_POINT,
     CHANGES_STORE | ONVIF_ONLY},
    // What the services are and can do, one answer per service.
    {"GetServices", SVC_DEVICE, GetServices, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"GetServiceCapabilities", SVC_DEVICE, DeviceServiceCapabilities, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"GetServiceCapabilities", SVC_MEDIA, MediaServiceCapabilities, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"GetServiceCapabilities", SVC_EVENTS, EventServiceCapabilities, CRED_OPEN, ENV_SERVICE_CAPABILITIES, ONVIF_ONLY},
    {"GetServiceCapabilities", SVC_PTZ, PtzServiceCapabilities, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"GetServiceCapabilities", SVC_IMAGING, ImagingServiceCapabilities, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"GetServiceCapabilities", SVC_DEVICEIO, DeviceIoServiceCapabilities, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"SendAuxiliaryCommand", SVC_PTZ, SendAuxiliaryCommand, CRED_AUTH, ENV_FULL, ONVIF_ONLY},
    // The device IO service's own operations; those for IO the camera lacks
    // are not supported.
    {"GetDigitalInputs", SVC_DEVICEIO, GetDigitalInputs, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"GetDigitalInputConfigurationOptions", SVC_DEVICEIO, GetDigitalInputConfigurationOptions, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"SetDigitalInputConfigurations", SVC_DEVICEIO, SetDigitalInputConfigurations, CRED_AUTH, ENV_FULL,
     CHANGES_STORE | ONVIF_ONLY},
    {"GetVideoSources", SVC_DEVICEIO, DeviceIoGetVideoSources, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"GetAudioSources", SVC_DEVICEIO, DeviceIoGetAudioSources, CRED_OPEN, ENV_FULL, ONVIF_ONLY},
    {"SetRelayOutputSettings", SVC_DEVICEIO, DeviceIoSetRelayOutputSettings, CRED_AUTH, ENV_FULL, CHANGES_STORE | ONVIF_ONLY},
#define DEVICEIO_NOT_SUPPORTED(name) {name, SVC_DEVICEIO, answerActionNotSupported, CRED_OPEN, ENV_FULL, ONVIF_ONLY}
    DEVICEIO_NOT_SUPPORTED("GetAudioOutputs"),
    DEVICEIO_NOT_SUPPORTED("GetVideoOutputs"),
    DEVICEIO_NOT_SUPPORTED("GetVideoOutputConfiguration"),
    DEVICEIO_NOT_SUPPORTED("GetVideoOutputConfigurationOptions"),
    DEVICEIO_NOT_SUPPORTED("SetVideoOutputConfiguration"),
    DEVICEIO_NOT_SUPPORTED("GetVideoSourceConfiguration"),
    DEVICEIO_NOT_SUPPORTED("GetVideoSourceConfigurationOptions"),
    DEVICEIO_NOT_SUPPORTED("SetVideoSourceConfiguration"),
    DEVICEIO_NOT_SUPPORTED("GetAudioSourceConfiguration"),
    DEVICEIO_NOT_SUPPORTED("GetAudioSourceConfigurationOptions"),
    DEVICEIO_NOT_SUPPORTED("SetAudioSourceConfiguration"),
    DEVICEIO_NOT_SUPPORTED("GetAudioOutputConfiguration"),
    DEVICEIO_NOT_SUPPORTED("GetAudioOutputConfigurationOptions"),
    DEVICEIO_NOT_SUPPORTED("SetAudioOutputConfiguration"),
    DEVICEIO_NOT_SUPPORTED("GetSerialPorts"),
    DEVICEIO_NOT_SUPPORTED("GetSerialPortConfiguration"),
    DEVICEIO_NOT_SUPPORTED("GetSerialPortConfigurationOptions"),
    DEVICEIO_NOT_SUPPORTED("SetSerialPortConfiguration"),
    DEVICEIO_NOT_SUPPORTED("SendReceiveSerialCommand"),
#undef DEVICEIO_NOT_SUPPORTED
};

static const char* const SERVICE_NAMESPACES[] = {
    "http://www.onvif.org/ver10/device/wsdl",   "http://www.onvif.org/ver10/media/wsdl",
    "http://www.onvif.org/ver20/ptz/wsdl",      "http://www.onvif.org/ver20/imaging/wsdl",
    "http://www.onvif.org/ver10/deviceIO/wsdl", "http://www.onvif.org/ver10/events/wsdl",
    "http://docs.oasis-open.org/wsn/b-2",       "http://www.onvif.org/ver20/analytics/wsdl",
};

const char* serviceNamespace(Service s)
{
    return SERVICE_NAMESPACES[s];
}

static const int ACTION_ROWS = (int)(sizeof actionRows / sizeof actionRows[0]);

const ActionRow* actionTable(int* rows)
{
    *rows = ACTION_ROWS;
    return actionRows;
}

// The camera's own matching: the first row whose name the action contains
// (or equals, for EXACT_NAME rows), in table order.
static const ActionRow* legacyRow(const char* action)
{
    for (const ActionRow& r : actionRows)
        if (!(r.flags & ONVIF_ONLY) &&
            ((r.flags & EXACT_NAME) ? strcmp(action, r.name) == 0 : strstr(action, r.name) != 0))
            return &r;
    return 0;
}

// The standard's: the whole name in the namespace of the row's service.
static const ActionRow* onvifRow(const char* action, const char* ns)
{
    for (const ActionRow& r : actionRows)
        if (!(r.flags & LEGACY_ONLY) && strcmp(action, r.name) == 0 && strcmp(ns, SERVICE_NAMESPACES[r.service]) == 0)
            return &r;
    return 0;
}

const ActionRow* actionRow(const char* action)
{
    // Authentication, dispatch and the envelope each ask for the request's
    // row: the table is walked once per name.
    // A process that serves several requests (the fuzz target) may switch
    // the mode between them: the mode and namespace are part of the key.
    static char lastAction[128], lastNamespace[128];
    static const ActionRow* lastRow;
    static int lastMode = -1;
    if (!action)
        return 0;
    int mode = onvifMode();
    const char* ns = mode ? requestBodyNamespace() : "";
    if (lastAction[0] && mode == lastMode && strcmp(action, lastAction) == 0 && strcmp(ns, lastNamespace) == 0)
        return lastRow;
    const ActionRow* found = mode ? onvifRow(action, ns) : legacyRow(action);
    if (strlen(action) < sizeof lastAction && strlen(ns) < sizeof lastNamespace) {
        memcpy(lastAction, action, strlen(action) + 1);
        memcpy(lastNamespace, ns, strlen(ns) + 1);
        lastRow = found;
        lastMode = mode;
    }
    return found;
}

int dispatchRow(const char* action)
{
    const ActionRow* r = actionRow(action);
    return r && r->handler ? (int)(r - actionRows) + 1 : 0;
}

void checkXML()
{
    const ActionRow* r = actionRow(PrimaryElementName);
    if (!r && onvifMode()) {
        writeActionNotSupportedFault();
        return;
    }
    if (!r || !r->handler) {
        G_httpAck = 500;
        return;
    }
    if (r->flags & CLOSES_CONNECTION)
        G_connection_close = 1;
    // Concurrent writers each read, change and rename whole files: without
    // the lock the last rename would undo the others' changes.
    int changesStore = (r->flags & CHANGES_STORE) != 0;
    if (changesStore && lockStore() != 0) {
        G_httpAck = 500;
        return;
    }
    r->handler();
    if (changesStore)
        unlockStore();
}
