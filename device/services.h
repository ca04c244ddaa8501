// What the ONVIF mode tells clients about the services: their list, each
// service's capabilities, and the counts the device IO service reports.
#ifndef DEVICE_SERVICES_H
#define DEVICE_SERVICES_H

#include <stddef.h>

// The physical IO the camera has, from its source lists and model data.
struct IoCounts {
    int videoSources, audioSources, relayOutputs, digitalInputs;
};
IoCounts ioCounts();

// The service address every service answers at ("http://host[:port]/onvif/device_service");
// 0 when it would not fit.
int serviceXAddr(char* out, size_t n);

#endif
