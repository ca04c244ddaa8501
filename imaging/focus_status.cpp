// The imaging service's focus stop and focus status. The actions share their
// names with PTZ's; a request that names a video source is the imaging one.
#include "imaging/imaging_request.h"
#include "state/mode.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "state/command.h"
#include "state/config.h"
#include "state/mode.h"
#include "state/paths.h"
#include "state/profiles.h"

#include <string.h>

#define SOURCE_LIST "/usr/apache/htdocs/onvif/VideoSourceConf.conf"

int imagingSourceRequested()
{
    return requestRowFrom("timg:VideoSourceToken", 0) >= 0 || requestRowFrom("VideoSourceToken", 0) >= 0;
}

// The named source, 0 when the read refused it (the refusal is written).
static int readSourceToken(char* token, size_t n)
{
    memset(token, 0, n);
    return requestTextEither("timg:VideoSourceToken", "VideoSourceToken", token, n) == Read::Value;
}

static int videoSourceListed(const char* token)
{
    char fileName[128];
    formatChecked(fileName, sizeof fileName, "%s.VSConf", token);
    return isSafeFileToken(token) && isListedConfiguration(SOURCE_LIST, fileName, "Stop", "ONVIF_VIDEO_SOURCE_CONF");
}

// The ONVIF mode takes the video source token every other imaging action
// takes; the camera's own focus actions name a source configuration.
static int onvifSourceRefused()
{
    char source[65];
    return refuseWithoutImaging() || !readVideoSourceToken(source, sizeof source);
}

void ImagingStop()
{
    char source[65];
    if (onvifMode()) {
        if (onvifSourceRefused())
            return;
    } else if (!readSourceToken(source, sizeof source)) {
        return;
    } else if (!videoSourceListed(source)) {
        writeSenderFault2("ActionNotSupported", "NoImagingForSource",
                          "The requested VideoSource does not support imaging settings.",
                          "The requested VideoSource does not support imaging settings.");
        return;
    }
    const CommandArg args[] = {{"QUERY_STRING", "continuousfocusmove"}, {"continuousfocusmove", "0"}};
    runCameraProgramWith("com/ptz.cgi", args, 2);
    // The camera always answered the focus stop in the schema namespace; the
    // ONVIF mode answers the imaging service's own element.
    setResponse(onvifMode() ? "<timg:StopResponse></timg:StopResponse>" : "<tt:StopResponse></tt:StopResponse>");
}

void ImagingGetStatus()
{
    char source[65];
    if (onvifMode()) {
        if (onvifSourceRefused())
            return;
    } else if (!readSourceToken(source, sizeof source)) {
        return;
    } else if (!videoSourceListed(source)) {
        writeSenderFault2("InvalidArgVal", "NoSource", "The requested VideoSource does not exist.",
                          "The requested VideoSource does not exist.");
        return;
    }
    setResponse("<timg:GetStatusResponse><timg:Status><tt:FocusStatus20><tt:Position>0.00</tt:Position>"
                "<tt:MoveStatus>IDLE</tt:MoveStatus></tt:FocusStatus20></timg:Status></timg:GetStatusResponse>");
}
