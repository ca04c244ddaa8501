// How the camera's events are named in notifications, and which filter
// codes take them: shared by the initial states and the simulated camera's
// event process.
#include "events/events.h"
#include "state/mode.h"
#include "state/shm.h"

#include <stdio.h>

// The topics and items the ONVIF standard defines, which clients parse.
static EventNames standardNames(EventKind kind)
{
    switch (kind) {
    case EVENT_TAMPERING:
        return {"tns1:VideoSource/GlobalSceneChange/ImagingService", "Source", "VideoSource1", "State"};
    case EVENT_INPUT:
        return {"tns1:Device/Trigger/DigitalInput", "InputToken", "IO_Input", "LogicalState"};
    case EVENT_RELAY:
        return {"tns1:Device/Trigger/Relay", "RelayToken", "IO_Output", "LogicalState"};
    case EVENT_MOTION:
    case EVENT_ANALYTICS_MOTION:
        break;
    }
    return {"tns1:VideoSource/MotionAlarm", "Source", "VideoSource1", "State"};
}

EventNames eventNames(EventKind kind)
{
    if (onvifMode())
        return standardNames(kind);
    int vendor = modelHas(Cap::EventsVendorTopics);
    switch (kind) {
    case EVENT_MOTION:
        return {vendor ? "tns1:VideoAnalytics/tnsaxis:MotionDetection" : "tns1:VideoSource/MotionAlarm",
                modelHas(Cap::EventsMotionSourceWindow) ? "window" : "VideoSourceToken", "VideoSource1", "motion"};
    case EVENT_TAMPERING:
        return {vendor ? "tns1:VideoAnalytics/TamperingDetection" : "tns1:VideoSource/TamperingDetection",
                "VideoSourceToken", "VideoSource1", "State"};
    case EVENT_INPUT:
        return {vendor ? "tns1:Device/tnsiv:BinaryInput" : "tns1:Device/Trigger/BinaryInput", "BinaryInputToken",
                "IO_Input", "State"};
    case EVENT_RELAY:
        return {vendor ? "tns1:Device/tnsiv:Relay" : "tns1:Device/Trigger/Relay", "RelayToken", "IO_Output", "State"};
    case EVENT_ANALYTICS_MOTION:
        break;
    }
    return {"tns1:VideoAnalytics/tnsavg:MotionDetection", "VideoSourceToken", "VideoSource1", "motion"};
}

void eventSourceValue(const EventNames& names, int number, char* out, size_t n)
{
    if (number)
        snprintf(out, n, "%s%d", names.sourceValue, number);
    else
        snprintf(out, n, "%s", names.sourceValue);
}

int filterTakes(int filterCode, EventKind kind)
{
    // One bit per event kind, in the order of EventKind.
    enum { M = 1, T = 2, I = 4, R = 8, A = 16 };
    static const unsigned char TAKES[] = {
        /* FILTER_CONTENT_ONLY */ M | T | I | R,
        /* FILTER_MOTION */ M,
        /* FILTER_TAMPERING */ T,
        /* FILTER_VIDEO_SOURCE */ M | T,
        /* FILTER_VIDEO_SOURCE_ROOT */ M | T,
        /* FILTER_INPUTS */ I,
        /* FILTER_RELAYS */ R,
        /* FILTER_DEVICE */ I | R,
        /* FILTER_DEVICE_ROOT */ I | R,
        /* FILTER_ANALYTICS_MOTION */ A,
        /* FILTER_NONE */ M | T | I | R,
    };
    unsigned mask = filterCode >= 0 && filterCode < (int)sizeof TAKES ? TAKES[filterCode] : TAKES[FILTER_NONE];
    return (mask >> kind) & 1;
}
