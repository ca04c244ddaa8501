// Every row of the action table against the list of actions, handlers,
// credential rules and envelopes this camera has always had: a wrong row
// fails by name.
#include "frame/dispatch.h"
#include "frame/handlers.h"

#include <gtest/gtest.h>
#include <string.h>

TEST(ActionTable, EveryRowIsTheActionsOwn)
{
    struct Expected {
        int order;
        const char* name;
        void (*handler)();
        Credentials credentials;
        EnvelopeKind envelope;
        unsigned exact;
    };
    const Expected expected[] = {
        {1, "GetNetworkInterfaces", GetNetworkInterfaces, CRED_AUTH_UNLESS_OPEN_INTERFACES, ENV_FULL, 0},
        {2, "SetNetworkInterfaces", SetNetworkInterfaces, CRED_AUTH, ENV_FULL, 0},
        {3, "GetNetworkDefaultGateway", GetNetworkDefaultGateway, CRED_OPEN, ENV_FULL, 0},
        {4, "SetNetworkDefaultGateway", SetNetworkDefaultGateway, CRED_AUTH, ENV_FULL, 0},
        {5, "SystemReboot", SystemReboot, CRED_AUTH, ENV_FULL, 0},
        {6, "SetZeroConfiguration", SetZeroConfiguration, CRED_AUTH, ENV_FULL, 0},
        {7, "GetZeroConfiguration", GetZeroConfiguration, CRED_OPEN, ENV_FULL, 0},
        {8, "GetNetworkProtocols", GetNetworkProtocols, CRED_OPEN, ENV_FULL, 0},
        {9, "SetNetworkProtocols", SetNetworkProtocols, CRED_AUTH, ENV_FULL, 0},
        {10, "GetWsdlUrl", GetWSDLResponse, CRED_OPEN, ENV_FULL, 0},
        {11, "GetSystemDateAndTime", GetSystemDateAndTimeResponse, CRED_OPEN, ENV_FULL, 0},
        {12, "SetSystemDateAndTime", SetSystemDateAndTimeResponse, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
        {13, "GetNTP", GetNTPResponse, CRED_OPEN, ENV_FULL, 0},
        {14, "SetNTP", SetNTPResponse, CRED_AUTH, ENV_FULL, 0},
        {15, "GetCapabilities", GetCapabilityResponse, CRED_OPEN, ENV_FULL, 0},
        {16, "GetHostname", GetHostnameResponse, CRED_OPEN, ENV_FULL, 0},
        {17, "SetHostname", SetHostnameResponse, CRED_AUTH, ENV_FULL, 0},
        {18, "GetDNS", GetDNSResponse, CRED_OPEN, ENV_FULL, 0},
        {19, "SetDNS", SetDNSResponse, CRED_AUTH, ENV_FULL, 0},
        {20, "GetDeviceInformation", GetDeviceInfoResponse, CRED_OPEN, ENV_FULL, 0},
        {21, "GetScopes", GetScopes, CRED_OPEN, ENV_FULL, 0},
        {22, "SetScopes", SetScopes, CRED_AUTH, ENV_FULL, 0},
        {23, "AddScopes", AddScopes, CRED_AUTH, ENV_FULL, 0},
        {24, "RemoveScopes", RemoveScopes, CRED_AUTH, ENV_FULL, 0},
        {25, "SetSystemFactoryDefault", SetDefault, CRED_AUTH, ENV_FULL, 0},
        {26, "SetDiscoveryMode", SetDiscoveryMode, CRED_AUTH, ENV_FULL, 0},
        {27, "GetDiscoveryMode", GetDiscoveryMode, CRED_AUTH, ENV_FULL, 0},
        {28, "GetSystemLog", GetSystemLog, CRED_AUTH, ENV_FULL, 0},
        {29, "CreateProfile", CreateProfile, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
        {30, "GetProfiles", GetProfiles, CRED_OPEN, ENV_FULL, 0},
        {31, "GetProfile", GetOneProfile, CRED_OPEN, ENV_FULL, 0},
        {32, "DeleteProfile", DeleteProfile, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
        {33, "GetVideoSources", GetVideoSources, CRED_OPEN, ENV_FULL, 0},
        {34, "GetCompatibleVideoSourceConfigurations", GetCompatibleVideoSourceConfigurations, CRED_OPEN, ENV_FULL, 0},
        {35, "GetVideoSourceConfigurationOptions", GetVideoSourceConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
        {36, "GetVideoSourceConfigurations", GetVideoSourceConfigurations, CRED_OPEN, ENV_FULL, 0},
        {37, "GetVideoSourceConfiguration", GetVideoSourceConfiguration, CRED_OPEN, ENV_FULL, 0},
        {38, "AddVideoSourceConfiguration", AddVideoSourceConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
        {39, "RemoveVideoSourceConfiguration", RemoveVideoSourceConfiguration, CRED_AUTH, ENV_FULL, 0},
        {40, "SetVideoSourceConfiguration", SetVideoSourceConfiguration, CRED_AUTH, ENV_FULL, 0},
        {41, "GetCompatibleVideoEncoderConfigurations", GetCompatibleVideoEncoderConfigurations, CRED_OPEN, ENV_FULL, 0},
        {42, "GetVideoEncoderConfigurationOptions", GetVideoEncoderConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
        {43, "GetVideoEncoderConfigurations", GetVideoEncoderConfigurations, CRED_OPEN, ENV_FULL, 0},
        {44, "GetVideoEncoderConfiguration", GetVideoEncoderConfiguration, CRED_OPEN, ENV_FULL, 0},
        {45, "AddVideoEncoderConfiguration", AddVideoEncoderConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
        {46, "RemoveVideoEncoderConfiguration", RemoveVideoEncoder, CRED_AUTH, ENV_FULL, 0},
        {47, "SetVideoEncoderConfiguration", SetVideoEncoderConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
        {48, "GetGuaranteedNumberOfVideoEncoderInstances", GetGuaranteedNumberOfVideoEncoderInstances, CRED_OPEN, ENV_FULL, 0},
        {49, "GetAudioSources", GetAudioSources, CRED_OPEN, ENV_FULL, 0},
        {50, "GetCompatibleAudioSourceConfigurations", GetCompatibleAudioSource, CRED_OPEN, ENV_FULL, 0},
        {51, "GetAudioSourceConfigurationOptions", GetAudioSourceConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
        {52, "GetAudioSourceConfigurations", GetAudioSourceConfigurations, CRED_OPEN, ENV_FULL, 0},
        {53, "GetAudioSourceConfiguration", GetAudioSourceConfiguration, CRED_OPEN, ENV_FULL, 0},
        {54, "AddAudioSourceConfiguration", AddAudioSourceConfiguration, CRED_AUTH, ENV_FULL, 0},
        {55, "RemoveAudioSourceConfiguration", RemoveAudioSource, CRED_AUTH, ENV_FULL, 0},
        {56, "SetAudioSourceConfiguration", SetAudioSourceConfiguration, CRED_AUTH, ENV_FULL, 0},
        {57, "GetCompatibleAudioEncoderConfigurations", GetCompatibleAudioEncoder, CRED_OPEN, ENV_FULL, 0},
        {58, "GetAudioEncoderConfigurationOptions", GetAudioEncoderConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
        {59, "GetAudioEncoderConfigurations", GetAudioEncoderConfigurations, CRED_OPEN, ENV_FULL, 0},
        {60, "GetAudioEncoderConfiguration", GetAudioEncoderConfiguration, CRED_OPEN, ENV_FULL, 0},
        {61, "AddAudioEncoderConfiguration", AddAudioEncoderConfiguration, CRED_AUTH, ENV_FULL, 0},
        {62, "RemoveAudioEncoderConfiguration", RemoveAudioEncoder, CRED_AUTH, ENV_FULL, 0},
        {63, "SetAudioEncoderConfiguration", SetAudioEncoderConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
        {64, "GetAudioOutputConfigurations", GetAudioOutputConfigurations, CRED_AUTH, ENV_FULL, 0},
        {65, "GetAudioOutputConfigurationOptions", GetAudioOutputConfigurationOptions, CRED_AUTH, ENV_FULL, 0},
        {66, "SetAudioOutputConfiguration", SetAudioOutputConfiguration, CRED_AUTH, ENV_FULL, 0},
        {67, "GetAudioOutputConfiguration", GetAudioOutputConfiguration, CRED_AUTH, ENV_FULL, 0},
        {68, "GetAudioOutputs", GetAudioOutputs, CRED_AUTH, ENV_FULL, 0},
        {69, "GetAudioDecoderConfigurationOptions", GetAudioDecoderConfigurationOptions, CRED_AUTH, ENV_FULL, 0},
        {70, "GetCompatibleMetadataConfigurations", GetCompatibleMetadataConfigurations, CRED_OPEN, ENV_FULL, 0},
        {71, "GetMetadataConfigurationOptions", GetMetadataConfigurationOptions, CRED_OPEN, ENV_FULL, 0},
        {72, "GetMetadataConfigurations", GetMetadataConfigurations, CRED_OPEN, ENV_FULL, 0},
        {73, "GetMetadataConfiguration", GetMetadataConfiguration, CRED_OPEN, ENV_FULL, 0},
        {74, "AddMetadataConfiguration", AddMetadataConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
        {75, "SetMetadataConfiguration", SetMetadataConfiguration, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
        {76, "RemoveMetadataConfiguration", RemoveMetadataConfiguration, CRED_AUTH, ENV_FULL, 0},
        {77, "GetUsers", GetUsers, CRED_AUTH, ENV_FULL, 0},
        {78, "CreateUsers", CreateUsers, CRED_AUTH, ENV_FULL, 0},
        {79, "DeleteUsers", DeleteUsers, CRED_AUTH, ENV_FULL, 0},
        {80, "SetUser", SetUser, CRED_AUTH, ENV_FULL, 0},
        {81, "GetStreamUri", GetStreamURI, CRED_OPEN, ENV_FULL, 0},
        {82, "GetSnapshotUri", GetSnapshotURI, CRED_OPEN, ENV_FULL, 0},
        {83, "StartMulticastStreaming", StartMulticastStreaming, CRED_AUTH, ENV_FULL, 0},
        {84, "StopMulticastStreaming", StopMulticastStreaming, CRED_AUTH, ENV_FULL, 0},
        {85, "SetSynchronizationPoint", SetSynchronizationPoint, CRED_OPEN, ENV_SYNCHRONIZATION_POINT, 0},
        {86, "GetOptions", GetOptions, CRED_OPEN, ENV_FULL, 0},
        {87, "GetImagingSettings", GetImagingSettings, CRED_OPEN, ENV_FULL, 0},
        {88, "SetImagingSettings", SetImagingSettings, CRED_OPEN, ENV_FULL, 0},
        {89, "Move", Move, CRED_OPEN, ENV_FULL, EXACT_NAME},
        {90, "GetMoveOptions", GetMoveOptions, CRED_OPEN, ENV_FULL, 0},
        {91, "MoveIris", MoveIris, CRED_OPEN, ENV_FULL, 0},
        {92, "GetRelayOutputOptions", GetRelayOutputOptions, CRED_OPEN, ENV_FULL, 0},
        {93, "GetRelayOutputs", GetRelayOutputs, CRED_OPEN, ENV_FULL, 0},
        {94, "SetRelayOutputState", SetRelayOutputState, CRED_AUTH, ENV_FULL, 0},
        {95, "SetRelayOutputSettings", SetRelayOutputSettings, CRED_AUTH, ENV_FULL, 0},
        {96, "GetNodes", GetNodes, CRED_AUTH, ENV_FULL, 0},
        {97, "GetNode", GetNode, CRED_AUTH, ENV_FULL, 0},
        {98, "Stop", Stop, CRED_OPEN, ENV_FULL, 0},
        {99, "GetConfigurationOptions", GetConfigurationOptions, CRED_AUTH, ENV_FULL, 0},
        {100, "GetConfigurations", GetConfigurations, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_FULL, 0},
        {101, "GetConfiguration", GetConfiguration, CRED_AUTH, ENV_FULL, 0},
        {102, "SetConfiguration", SetConfiguration, CRED_AUTH, ENV_FULL, 0},
        {103, "ContinuousMove", ContinuousMove, CRED_OPEN, ENV_FULL, 0},
        {104, "SetPreset", SetPreset, CRED_AUTH, ENV_FULL, 0},
        {105, "GotoPreset", GotoPreset, CRED_AUTH, ENV_FULL, 0},
        {106, "RemovePreset", RemovePreset, CRED_AUTH, ENV_FULL, 0},
        {107, "GetPresets", GetPresets, CRED_AUTH, ENV_FULL, 0},
        {108, "GetStatus", GetStatus, CRED_AUTH, ENV_FULL, 0},
        {109, "AbsoluteMove", AbsoluteMove, CRED_OPEN, ENV_FULL, 0},
        {110, "RelativeMove", RelativeMove, CRED_OPEN, ENV_FULL, 0},
        {111, "GotoHomePosition", GotoHomePosition, CRED_OPEN, ENV_FULL, 0},
        {112, "SetHomePosition", SetHomePosition, CRED_AUTH, ENV_FULL, 0},
        {113, "AddPTZConfiguration", AddPTZConfiguration, CRED_AUTH, ENV_FULL, 0},
        {114, "RemovePTZConfiguration", RemovePTZConfiguration, CRED_AUTH, ENV_FULL, 0},
        {115, "GetAnalyticsModules", GetAnalyticsModules, CRED_AUTH, ENV_FULL, 0},
        {116, "CreatePullPointSubscription", CreatePullPointSubscription, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_CREATE_PULL_POINT, 0},
        {117, "GetEventProperties", GetEventProperties, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_EVENT_PROPERTIES, 0},
        {118, "Subscribe", Subscribe, CRED_AUTH, ENV_SUBSCRIBE, 0},
        {119, "Unsubscribe", Unsubscribe, CRED_AUTH, ENV_UNSUBSCRIBE, 0},
        {120, "Renew", Renew, CRED_AUTH, ENV_RENEW, 0},
        {121, "PullMessages", PullMessages, CRED_AUTH_UNLESS_OPEN_SETUP, ENV_PULL_MESSAGES, 0},
    };
    int rows = 0;
    const ActionRow* table = actionTable(&rows);
    int legacyRows = 0;
    for (int i = 0; i < rows; ++i)
        legacyRows += !(table[i].flags & ONVIF_ONLY);
    ASSERT_EQ(legacyRows, 122);  // the served actions and the one named only for its envelope
    for (const Expected& e : expected) {
        const ActionRow& r = table[e.order - 1];
        SCOPED_TRACE(e.name);
        EXPECT_STREQ(r.name, e.name);
        EXPECT_EQ(r.handler, e.handler);
        EXPECT_EQ(r.credentials, e.credentials);
        EXPECT_EQ(r.envelope, e.envelope);
        EXPECT_EQ(r.flags & EXACT_NAME, e.exact);
        EXPECT_EQ(!!(r.flags & CLOSES_CONNECTION), !strcmp(e.name, "SystemReboot") || !strcmp(e.name, "SetSystemFactoryDefault"));
        EXPECT_EQ(dispatchRow(e.name), e.order);
    }
    const ActionRow& last = table[121];
    EXPECT_STREQ(last.name, "GetServiceCapabilities");
    EXPECT_EQ(last.handler, nullptr);
    EXPECT_EQ(last.envelope, ENV_SERVICE_CAPABILITIES);
    EXPECT_EQ(dispatchRow("GetServiceCapabilities"), 0);
}
