// Binding a PTZ configuration into a media profile and taking it out again.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/profiles.h"
#include "state/model.h"
#include "state/shm.h"

#include <string.h>

static int refuseWithoutPTZ()
{
    if (modelHas(Cap::PtzMotors))
        return 0;
    writeSenderFault2("ActionNotSupported", "PTZNotSupported", "PTZ is not supported by the NVT.",
                      "PTZ is not supported by the NVT.");
    return 1;
}

// Finds the profile of the request for the binding actions; 0 after a fault.
static int bindingProfile(char* fileName, size_t n)
{
    char profile[PROFILE_TOKEN_MAX + 1];
    if (requestText("trt:ProfileToken", profile, PROFILE_TOKEN_MAX + 1) == Read::Refused)
        return 0;
    if (findProfile(profile, fileName, n) != PROFILE_FOUND) {
        writeNoProfileFault();
        return 0;
    }
    return 1;
}

void AddPTZConfiguration()
{
    if (refuseWithoutPTZ())
        return;
    char fileName[64], config[PROFILE_TOKEN_MAX + 1], configFile[64];
    if (!bindingProfile(fileName, sizeof fileName))
        return;
    if (requestText("trt:ConfigurationToken", config, PROFILE_TOKEN_MAX + 1) == Read::Refused)
        return;
    formatChecked(configFile, sizeof configFile, "%s.PTZConf", config);
    if (!isSafeFileToken(config) || !isListedConfiguration(ONVIF_PTZ_CONF, configFile, "AddPTZConfiguration", "ONVIF_PTZ_CONF")) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "PTZConfiguration does not exist",
                          "The PTZConfiguration indicated by the ConfigurationToken does not exist");
        return;
    }
    rewriteProfileField(fileName, "PTZ=", config, 0, 0);
    setResponse("<trt:AddPTZConfigurationResponse></trt:AddPTZConfigurationResponse>");
}

void RemovePTZConfiguration()
{
    if (refuseWithoutPTZ())
        return;
    char fileName[64], bound[CONFIG_TOKEN_MAX + 1] = "NONE";
    if (!bindingProfile(fileName, sizeof fileName))
        return;
    readProfileField(fileName, "PTZ=", bound, sizeof bound);
    if (strcmp(bound, "NONE") == 0) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "There exists no PTZ configuration in the media profile",
                          "There exists no PTZ configuration in the media profile");
        return;
    }
    rewriteProfileField(fileName, "PTZ=", "NONE", 0, 0);
    setResponse("<trt:RemovePTZConfigurationResponse></trt:RemovePTZConfigurationResponse>");
}
