// The checks every imaging action starts with, and reads of values inside
// one group of a request whose groups share child names.
#include "imaging/imaging_request.h"
#include "imaging/abilities.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "state/paths.h"
#include "state/shm.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>

int refuseWithoutImaging()
{
    if (!modelHas(Cap::ImagingNone))
        return 0;
    // The trailing blank of the first subcode is what clients of this camera have always seen.
    writeReceiverFault2("ActionNotSupported ", "NoImagingForSource",
                        "The requested VideoSource does not support imaging settings.",
                        "The requested VideoSource does not support imaging settings.");
    return 1;
}

int videoSourceSettingsPath(const char* token, char* path, size_t n)
{
    int len = snprintf(path, n, "/tmp/onvif/%s.VSource", token);
    return isSafeFileToken(token) && len > 0 && (size_t)len < n;
}

int readVideoSourceToken(char* token, size_t n)
{
    char path[128];
    FILE* f = 0;
    if (requestToken("timg:VideoSourceToken", token, n) == Read::Value &&
        videoSourceSettingsPath(token, path, sizeof path))
        f = fopenRoot(path, "r");
    if (!f) {
        writeSenderFault2("InvalidArgVal", "NoSource", "The requested VideoSource does not exist.",
                          "The requested VideoSource does not exist.");
        return 0;
    }
    fclose(f);
    return 1;
}

int requestRowInGroup(const char* group, const char* name, const char* const* boundaries)
{
    int groupRow = requestRowFrom(group, 0);
    if (groupRow < 0)
        return -1;
    int end = INT_MAX;
    for (int i = 0; boundaries[i]; ++i) {
        int row = requestRowFrom(boundaries[i], groupRow + 1);
        if (row >= 0 && row < end)
            end = row;
    }
    int row = requestRowFrom(name, groupRow + 1);
    return row >= 0 && row < end ? row : -1;
}

Read requestTextInGroup(const char* group, const char* name, const char* const* boundaries, char* buf, size_t n)
{
    int row = requestRowInGroup(group, name, boundaries);
    if (row < 0) {
        if (n)
            buf[0] = 0;
        return Read::Absent;
    }
    return requestRowValue(row, buf, n);
}

void refuseSettings(const char* detail)
{
    refuseRequestValue("SettingsInvalid", "The requested settings are incorrect.", detail);
}
