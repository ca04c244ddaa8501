// The action table: one row per action, tried in order; the order settles
// names that contain others ("GetProfiles" before "GetProfile").
#include "frame/dispatch.h"
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/storelock.h"

#include <string.h>

// The credential rules are the camera's long-standing policy and clients rely
// on them, uneven as they are between like actions.
static const ActionRow actionRows[] = {
    {"GetNetworkInterfaces", GetNetworkInterfaces, CRED_AUTH_UNLESS_12_30, ENV_FULL, 0},
    {"SetNetworkInterfaces", SetNetworkInterfaces, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetNetworkDefaultGateway", GetNetworkDefaultGateway, CRED_OPEN, ENV_FULL, 0},
    {"SetNetworkDefaultGateway", SetNetworkDefaultGateway, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SystemReboot", SystemReboot, CRED_AUTH, ENV_FULL, CLOSES_CONNECTION},
    {"SetZeroConfiguration", SetZeroConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetZeroConfiguration", GetZeroConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"GetNetworkProtocols", GetNetworkProtocols, CRED_OPEN, ENV_FULL, 0},
    {"SetNetworkProtocols", SetNetworkProtocols, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetWsdlUrl", GetWSDLResponse, CRED_OPEN, ENV_FULL, 0},
    {"GetSystemDateAndTime", GetSystemDateAndTimeResponse, CRED_OPEN, ENV_FULL, 0},
    {"SetSystemDateAndTime", SetSystemDateAndTimeResponse, CRED_AUTH12, ENV_FULL, CHANGES_STORE},
    {"GetNTP", GetNTPResponse, CRED_OPEN, ENV_FULL, 0},
    {"SetNTP", SetNTPResponse, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetCapabilities", GetCapabilityResponse, CRED_OPEN, ENV_FULL, 0},
    {"GetHostname", GetHostnameResponse, CRED_OPEN, ENV_FULL, 0},
    {"SetHostname", SetHostnameResponse, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetDNS", GetDNSResponse, CRED_OPEN, ENV_FULL, 0},
    {"SetDNS", SetDNSResponse, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetDeviceInformation", GetDeviceInfoResponse, CRED_OPEN, ENV_FULL, 0},
    {"GetScopes", GetScopes, CRED_OPEN, ENV_FULL, 0},
    {"SetScopes", SetScopes, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"AddScopes", AddScopes, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"RemoveScopes", RemoveScopes, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetSystemFactoryDefault", SetDefault, CRED_AUTH, ENV_FULL, CLOSES_CONNECTION | CHANGES_STORE},
    {"SetDiscoveryMode", SetDiscoveryMode, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetDiscoveryMode", GetDiscoveryMode, CRED_AUTH, ENV_FULL, 0},
    {"GetSystemLog", GetSystemLog, CRED_AUTH, ENV_FULL, 0},
    {"CreateProfile", CreateProfile, CRED_AUTH12, ENV_FULL, CHANGES_STORE},
    {"GetProfiles", GetProfiles, CRED_OPEN, ENV_FULL, 0},
    {"GetProfile", GetOneProfile, CRED_OPEN, ENV_FULL, 0},
    {"DeleteProfile", DeleteProfile, CRED_AUTH12, ENV_FULL, CHANGES_STORE},
    {"GetVideoSources", GetVideoSources, CRED_OPEN, ENV_FULL, 0},
    {"GetCompatibleVideoSourceConfigurations", GetCompatibleVideoSourceConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoSourceConfigurationOptions", GetVideoSourceConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoSourceConfigurations", GetVideoSourceConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoSourceConfiguration", GetVideoSourceConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"AddVideoSourceConfiguration", AddVideoSourceConfiguration, CRED_AUTH12, ENV_FULL, CHANGES_STORE},
    {"RemoveVideoSourceConfiguration", RemoveVideoSourceConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetVideoSourceConfiguration", SetVideoSourceConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetCompatibleVideoEncoderConfigurations", GetCompatibleVideoEncoderConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoEncoderConfigurationOptions", GetVideoEncoderConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoEncoderConfigurations", GetVideoEncoderConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetVideoEncoderConfiguration", GetVideoEncoderConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"AddVideoEncoderConfiguration", AddVideoEncoderConfiguration, CRED_AUTH12, ENV_FULL, CHANGES_STORE},
    {"RemoveVideoEncoderConfiguration", RemoveVideoEncoder, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetVideoEncoderConfiguration", SetVideoEncoderConfiguration, CRED_AUTH12, ENV_FULL, CHANGES_STORE},
    {"GetGuaranteedNumberOfVideoEncoderInstances", GetGuaranteedNumberOfVideoEncoderInstances, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioSources", GetAudioSources, CRED_OPEN, ENV_FULL, 0},
    {"GetCompatibleAudioSourceConfigurations", GetCompatibleAudioSource, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioSourceConfigurationOptions", GetAudioSourceConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioSourceConfigurations", GetAudioSourceConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioSourceConfiguration", GetAudioSourceConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"AddAudioSourceConfiguration", AddAudioSourceConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"RemoveAudioSourceConfiguration", RemoveAudioSource, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetAudioSourceConfiguration", SetAudioSourceConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetCompatibleAudioEncoderConfigurations", GetCompatibleAudioEncoder, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioEncoderConfigurationOptions", GetAudioEncoderConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioEncoderConfigurations", GetAudioEncoderConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetAudioEncoderConfiguration", GetAudioEncoderConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"AddAudioEncoderConfiguration", AddAudioEncoderConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"RemoveAudioEncoderConfiguration", RemoveAudioEncoder, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetAudioEncoderConfiguration", SetAudioEncoderConfiguration, CRED_AUTH12, ENV_FULL, CHANGES_STORE},
    {"GetAudioOutputConfigurations", GetAudioOutputConfigurations, CRED_AUTH, ENV_FULL, 0},
    {"GetAudioOutputConfigurationOptions", GetAudioOutputConfigurationOptions, CRED_AUTH, ENV_FULL, 0},
    {"SetAudioOutputConfiguration", SetAudioOutputConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetAudioOutputConfiguration", GetAudioOutputConfiguration, CRED_AUTH, ENV_FULL, 0},
    {"GetAudioOutputs", GetAudioOutputs, CRED_AUTH, ENV_FULL, 0},
    {"GetAudioDecoderConfigurationOptions", GetAudioDecoderConfigurationOptions, CRED_AUTH, ENV_FULL, 0},
    {"GetCompatibleMetadataConfigurations", GetCompatibleMetadataConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetMetadataConfigurationOptions", GetMetadataConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetMetadataConfigurations", GetMetadataConfigurations, CRED_OPEN, ENV_FULL, 0},
    {"GetMetadataConfiguration", GetMetadataConfiguration, CRED_OPEN, ENV_FULL, 0},
    {"AddMetadataConfiguration", AddMetadataConfiguration, CRED_AUTH12, ENV_FULL, CHANGES_STORE},
    {"SetMetadataConfiguration", SetMetadataConfiguration, CRED_AUTH12, ENV_FULL, CHANGES_STORE},
    {"RemoveMetadataConfiguration", RemoveMetadataConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetUsers", GetUsers, CRED_AUTH, ENV_FULL, 0},
    {"CreateUsers", CreateUsers, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"DeleteUsers", DeleteUsers, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetUser", SetUser, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetStreamUri", GetStreamURI, CRED_OPEN, ENV_FULL, 0},
    {"GetSnapshotUri", GetSnapshotURI, CRED_OPEN, ENV_FULL, 0},
    {"StartMulticastStreaming", StartMulticastStreaming, CRED_AUTH, ENV_FULL, 0},
    {"StopMulticastStreaming", StopMulticastStreaming, CRED_AUTH, ENV_FULL, 0},
    {"SetSynchronizationPoint", SetSynchronizationPoint, CRED_OPEN, ENV_SYNCHRONIZATION_POINT, CHANGES_STORE},
    {"GetOptions", GetOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetImagingSettings", GetImagingSettings, CRED_OPEN, ENV_FULL, 0},
    {"SetImagingSettings", SetImagingSettings, CRED_OPEN, ENV_FULL, CHANGES_STORE},
    {"Move", Move, CRED_OPEN, ENV_FULL, EXACT_NAME},
    {"GetMoveOptions", GetMoveOptions, CRED_OPEN, ENV_FULL, 0},
    {"MoveIris", MoveIris, CRED_OPEN, ENV_FULL, 0},
    {"GetRelayOutputOptions", GetRelayOutputOptions, CRED_OPEN, ENV_FULL, 0},
    {"GetRelayOutputs", GetRelayOutputs, CRED_OPEN, ENV_FULL, 0},
    {"SetRelayOutputState", SetRelayOutputState, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"SetRelayOutputSettings", SetRelayOutputSettings, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetNodes", GetNodes, CRED_AUTH, ENV_FULL, 0},
    {"GetNode", GetNode, CRED_AUTH, ENV_FULL, 0},
    {"Stop", Stop, CRED_OPEN, ENV_FULL, 0},
    {"GetConfigurationOptions", GetConfigurationOptions, CRED_AUTH, ENV_FULL, 0},
    {"GetConfigurations", GetConfigurations, CRED_AUTH12, ENV_FULL, 0},
    {"GetConfiguration", GetConfiguration, CRED_AUTH, ENV_FULL, 0},
    {"SetConfiguration", SetConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"ContinuousMove", ContinuousMove, CRED_OPEN, ENV_FULL, 0},
    {"SetPreset", SetPreset, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GotoPreset", GotoPreset, CRED_AUTH, ENV_FULL, 0},
    {"RemovePreset", RemovePreset, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetPresets", GetPresets, CRED_AUTH, ENV_FULL, 0},
    {"GetStatus", GetStatus, CRED_AUTH, ENV_FULL, 0},
    {"AbsoluteMove", AbsoluteMove, CRED_OPEN, ENV_FULL, 0},
    {"RelativeMove", RelativeMove, CRED_OPEN, ENV_FULL, 0},
    {"GotoHomePosition", GotoHomePosition, CRED_OPEN, ENV_FULL, 0},
    {"SetHomePosition", SetHomePosition, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"AddPTZConfiguration", AddPTZConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"RemovePTZConfiguration", RemovePTZConfiguration, CRED_AUTH, ENV_FULL, CHANGES_STORE},
    {"GetAnalyticsModules", GetAnalyticsModules, CRED_AUTH, ENV_FULL, 0},
    {"CreatePullPointSubscription", CreatePullPointSubscription, CRED_AUTH12, ENV_CREATE_PULL_POINT, CHANGES_STORE},
    {"GetEventProperties", GetEventProperties, CRED_AUTH12, ENV_EVENT_PROPERTIES, 0},
    {"Subscribe", Subscribe, CRED_AUTH, ENV_SUBSCRIBE, CHANGES_STORE},
    {"Unsubscribe", Unsubscribe, CRED_AUTH, ENV_UNSUBSCRIBE, CHANGES_STORE},
    {"Renew", Renew, CRED_AUTH, ENV_RENEW, CHANGES_STORE},
    // A pull waits up to a minute for the event process and writes only its
    // own event file: it must not hold the store lock.
    {"PullMessages", PullMessages, CRED_AUTH12, ENV_PULL_MESSAGES, 0},
    // Named only so that its failure is answered in the event envelope.
    {"GetServiceCapabilities", 0, CRED_OPEN, ENV_SERVICE_CAPABILITIES, 0},
};

static const int ACTION_ROWS = (int)(sizeof actionRows / sizeof actionRows[0]);

const ActionRow* actionTable(int* rows)
{
    *rows = ACTION_ROWS;
    return actionRows;
}

const ActionRow* actionRow(const char* action)
{
    // Authentication, dispatch and the envelope each ask for the request's
    // row: the table is walked once per name.
    static char lastAction[128];
    static const ActionRow* lastRow;
    if (!action)
        return 0;
    if (lastAction[0] && strcmp(action, lastAction) == 0)
        return lastRow;
    const ActionRow* found = 0;
    for (const ActionRow& r : actionRows)
        if ((r.flags & EXACT_NAME) ? strcmp(action, r.name) == 0 : strstr(action, r.name) != 0) {
            found = &r;
            break;
        }
    if (strlen(action) < sizeof lastAction) {
        memcpy(lastAction, action, strlen(action) + 1);
        lastRow = found;
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
    if (!r || !r->handler) {
        G_httpAck = 500;
        return;
    }
    if (r->flags & CLOSES_CONNECTION)
        G_connection_close = 1;
    // Concurrent writers each read, change and rename whole files: without
    // the lock the last rename would undo the others' changes.
    int changesStore = (r->flags & CHANGES_STORE) != 0;
    if (changesStore && lockStore() != 0)
        return answerStoreFailure(STORE_LOCK_FILE);
    r->handler();
    if (changesStore)
        unlockStore();
}
