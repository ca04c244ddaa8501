// The dispatch table: action name to handler, tried in order; the order
// settles names that contain others ("GetProfiles" before "GetProfile").
#include "frame/dispatch.h"
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"

#include <string.h>

struct DispatchRow {
    const char* name;
    void (*handler)();
    unsigned char exact;       // whole-name equality instead of containment
    unsigned char closesConnection;
};

static const DispatchRow dispatchTable[] = {
    {"GetNetworkInterfaces", GetNetworkInterfaces, 0, 0},
    {"SetNetworkInterfaces", SetNetworkInterfaces, 0, 0},
    {"GetNetworkDefaultGateway", GetNetworkDefaultGateway, 0, 0},
    {"SetNetworkDefaultGateway", SetNetworkDefaultGateway, 0, 0},
    {"SystemReboot", SystemReboot, 0, 1},
    {"SetZeroConfiguration", SetZeroConfiguration, 0, 0},
    {"GetZeroConfiguration", GetZeroConfiguration, 0, 0},
    {"GetNetworkProtocols", GetNetworkProtocols, 0, 0},
    {"SetNetworkProtocols", SetNetworkProtocols, 0, 0},
    {"GetWsdlUrl", GetWSDLResponse, 0, 0},
    {"GetSystemDateAndTime", GetSystemDateAndTimeResponse, 0, 0},
    {"SetSystemDateAndTime", SetSystemDateAndTimeResponse, 0, 0},
    {"GetNTP", GetNTPResponse, 0, 0},
    {"SetNTP", SetNTPResponse, 0, 0},
    {"GetCapabilities", GetCapabilityResponse, 0, 0},
    {"GetHostname", GetHostnameResponse, 0, 0},
    {"SetHostname", SetHostnameResponse, 0, 0},
    {"GetDNS", GetDNSResponse, 0, 0},
    {"SetDNS", SetDNSResponse, 0, 0},
    {"GetDeviceInformation", GetDeviceInfoResponse, 0, 0},
    {"GetScopes", GetScopes, 0, 0},
    {"SetScopes", SetScopes, 0, 0},
    {"AddScopes", AddScopes, 0, 0},
    {"RemoveScopes", RemoveScopes, 0, 0},
    {"SetSystemFactoryDefault", SetDefault, 0, 1},
    {"SetDiscoveryMode", SetDiscoveryMode, 0, 0},
    {"GetDiscoveryMode", GetDiscoveryMode, 0, 0},
    {"GetSystemLog", GetSystemLog, 0, 0},
    {"CreateProfile", CreateProfile, 0, 0},
    {"GetProfiles", GetProfiles, 0, 0},
    {"GetProfile", GetOneProfile, 0, 0},
    {"DeleteProfile", DeleteProfile, 0, 0},
    {"GetVideoSources", GetVideoSources, 0, 0},
    {"GetCompatibleVideoSourceConfigurations", GetCompatibleVideoSourceConfigurations, 0, 0},
    {"GetVideoSourceConfigurationOptions", GetVideoSourceConfigurationOptions, 0, 0},
    {"GetVideoSourceConfigurations", GetVideoSourceConfigurations, 0, 0},
    {"GetVideoSourceConfiguration", GetVideoSourceConfiguration, 0, 0},
    {"AddVideoSourceConfiguration", AddVideoSourceConfiguration, 0, 0},
    {"RemoveVideoSourceConfiguration", RemoveVideoSourceConfiguration, 0, 0},
    {"SetVideoSourceConfiguration", SetVideoSourceConfiguration, 0, 0},
    {"GetCompatibleVideoEncoderConfigurations", GetCompatibleVideoEncoderConfigurations, 0, 0},
    {"GetVideoEncoderConfigurationOptions", GetVideoEncoderConfigurationOptions, 0, 0},
    {"GetVideoEncoderConfigurations", GetVideoEncoderConfigurations, 0, 0},
    {"GetVideoEncoderConfiguration", GetVideoEncoderConfiguration, 0, 0},
    {"AddVideoEncoderConfiguration", AddVideoEncoderConfiguration, 0, 0},
    {"RemoveVideoEncoderConfiguration", RemoveVideoEncoder, 0, 0},
    {"SetVideoEncoderConfiguration", SetVideoEncoderConfiguration, 0, 0},
    {"GetGuaranteedNumberOfVideoEncoderInstances", GetGuaranteedNumberOfVideoEncoderInstances, 0, 0},
    {"GetAudioSources", GetAudioSources, 0, 0},
    {"GetCompatibleAudioSourceConfigurations", GetCompatibleAudioSource, 0, 0},
    {"GetAudioSourceConfigurationOptions", GetAudioSourceConfigurationOptions, 0, 0},
    {"GetAudioSourceConfigurations", GetAudioSourceConfigurations, 0, 0},
    {"GetAudioSourceConfiguration", GetAudioSourceConfiguration, 0, 0},
    {"AddAudioSourceConfiguration", AddAudioSourceConfiguration, 0, 0},
    {"RemoveAudioSourceConfiguration", RemoveAudioSource, 0, 0},
    {"SetAudioSourceConfiguration", SetAudioSourceConfiguration, 0, 0},
    {"GetCompatibleAudioEncoderConfigurations", GetCompatibleAudioEncoder, 0, 0},
    {"GetAudioEncoderConfigurationOptions", GetAudioEncoderConfigurationOptions, 0, 0},
    {"GetAudioEncoderConfigurations", GetAudioEncoderConfigurations, 0, 0},
    {"GetAudioEncoderConfiguration", GetAudioEncoderConfiguration, 0, 0},
    {"AddAudioEncoderConfiguration", AddAudioEncoderConfiguration, 0, 0},
    {"RemoveAudioEncoderConfiguration", RemoveAudioEncoder, 0, 0},
    {"SetAudioEncoderConfiguration", SetAudioEncoderConfiguration, 0, 0},
    {"GetAudioOutputConfigurations", GetAudioOutputConfigurations, 0, 0},
    {"GetAudioOutputConfigurationOptions", GetAudioOutputConfigurationOptions, 0, 0},
    {"SetAudioOutputConfiguration", SetAudioOutputConfiguration, 0, 0},
    {"GetAudioOutputConfiguration", GetAudioOutputConfiguration, 0, 0},
    {"GetAudioOutputs", GetAudioOutputs, 0, 0},
    {"GetAudioDecoderConfigurationOptions", GetAudioDecoderConfigurationOptions, 0, 0},
    {"GetCompatibleMetadataConfigurations", GetCompatibleMetadataConfigurations, 0, 0},
    {"GetMetadataConfigurationOptions", GetMetadataConfigurationOptions, 0, 0},
    {"GetMetadataConfigurations", GetMetadataConfigurations, 0, 0},
    {"GetMetadataConfiguration", GetMetadataConfiguration, 0, 0},
    {"AddMetadataConfiguration", AddMetadataConfiguration, 0, 0},
    {"SetMetadataConfiguration", SetMetadataConfiguration, 0, 0},
    {"RemoveMetadataConfiguration", RemoveMetadataConfiguration, 0, 0},
    {"GetUsers", GetUsers, 0, 0},
    {"CreateUsers", CreateUsers, 0, 0},
    {"DeleteUsers", DeleteUsers, 0, 0},
    {"SetUser", SetUser, 0, 0},
    {"GetStreamUri", GetStreamURI, 0, 0},
    {"GetSnapshotUri", GetSnapshotURI, 0, 0},
    {"StartMulticastStreaming", StartMulticastStreaming, 0, 0},
    {"StopMulticastStreaming", StopMulticastStreaming, 0, 0},
    {"SetSynchronizationPoint", SetSynchronizationPoint, 0, 0},
    {"GetOptions", GetOptions, 0, 0},
    {"GetImagingSettings", GetImagingSettings, 0, 0},
    {"SetImagingSettings", SetImagingSettings, 0, 0},
    {"Move", Move, 1, 0},
    {"GetMoveOptions", GetMoveOptions, 0, 0},
    {"MoveIris", MoveIris, 0, 0},
    {"GetRelayOutputOptions", GetRelayOutputOptions, 0, 0},
    {"GetRelayOutputs", GetRelayOutputs, 0, 0},
    {"SetRelayOutputState", SetRelayOutputState, 0, 0},
    {"SetRelayOutputSettings", SetRelayOutputSettings, 0, 0},
    {"GetNodes", GetNodes, 0, 0},
    {"GetNode", GetNode, 0, 0},
    {"Stop", Stop, 0, 0},
    {"GetConfigurationOptions", GetConfigurationOptions, 0, 0},
    {"GetConfigurations", GetConfigurations, 0, 0},
    {"GetConfiguration", GetConfiguration, 0, 0},
    {"SetConfiguration", SetConfiguration, 0, 0},
    {"ContinuousMove", ContinuousMove, 0, 0},
    {"SetPreset", SetPreset, 0, 0},
    {"GotoPreset", GotoPreset, 0, 0},
    {"RemovePreset", RemovePreset, 0, 0},
    {"GetPresets", GetPresets, 0, 0},
    {"GetStatus", GetStatus, 0, 0},
    {"AbsoluteMove", AbsoluteMove, 0, 0},
    {"RelativeMove", RelativeMove, 0, 0},
    {"GotoHomePosition", GotoHomePosition, 0, 0},
    {"SetHomePosition", SetHomePosition, 0, 0},
    {"AddPTZConfiguration", AddPTZConfiguration, 0, 0},
    {"RemovePTZConfiguration", RemovePTZConfiguration, 0, 0},
    {"GetAnalyticsModules", GetAnalyticsModules, 0, 0},
    {"CreatePullPointSubscription", CreatePullPointSubscription, 0, 0},
    {"GetEventProperties", GetEventProperties, 0, 0},
    {"Subscribe", Subscribe, 0, 0},
    {"Unsubscribe", Unsubscribe, 0, 0},
    {"Renew", Renew, 0, 0},
    {"PullMessages", PullMessages, 0, 0},
};

int dispatchRow(const char* action)
{
    int row = 1;
    for (const DispatchRow& r : dispatchTable) {
        if (r.exact ? strcmp(action, r.name) == 0 : strstr(action, r.name) != 0)
            return row;
        ++row;
    }
    return 0;
}

void checkXML()
{
    int row = dispatchRow(PrimaryElementName ? PrimaryElementName : "");
    if (row == 0) {
        G_httpAck = 500;
        return;
    }
    const DispatchRow& r = dispatchTable[row - 1];
    if (r.closesConnection)
        G_connection_close = 1;
    r.handler();
}
