// The dispatch table's order settles names that contain other names.
#include "frame/dispatch.h"

#include <gtest/gtest.h>

TEST(Dispatch, OrderResolvesCollisions)
{
    struct Case { const char* action; int row; };
    const Case cases[] = {
        {"GetNetworkInterfaces", 1}, {"SystemReboot", 5}, {"GetWsdlUrl", 10}, {"GetCapabilities", 15},
        {"GetServiceCapabilities", 0}, {"GetServices", 0}, {"GetDeviceInformation", 20},
        {"SetSystemFactoryDefault", 25}, {"GetProfiles", 30}, {"GetProfile", 31},
        {"GetVideoSourceConfigurationOptions", 35}, {"GetVideoSourceConfigurations", 36},
        {"GetVideoSourceConfiguration", 37}, {"GetVideoEncoderConfigurationOptions", 42},
        {"GetVideoEncoderConfiguration", 44}, {"GetAudioOutputConfigurationOptions", 65},
        {"GetAudioOutputConfiguration", 67}, {"GetMetadataConfiguration", 73}, {"SetUser", 80},
        {"StopMulticastStreaming", 84}, {"Move", 89}, {"AbsoluteMove", 109}, {"RelativeMove", 110},
        {"ContinuousMove", 103}, {"MoveIris", 91}, {"GetNodes", 96}, {"GetNode", 97}, {"Stop", 98},
        {"GetConfigurationOptions", 99}, {"GetConfigurations", 100}, {"GetConfiguration", 101},
        {"CreatePullPointSubscription", 116}, {"GetEventProperties", 117}, {"Subscribe", 118},
        {"Unsubscribe", 119}, {"Renew", 120}, {"PullMessages", 121}, {"XXGetDNSYY", 18}, {"move", 0},
        {"", 0},
    };
    for (const Case& c : cases)
        EXPECT_EQ(dispatchRow(c.action), c.row) << c.action;
}
