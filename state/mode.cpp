// The conformance mode, read from onvif.conf once per request.
#include "state/mode.h"
#include "state/config.h"
#include "state/paths.h"

#include <string.h>

static int modeRead = -1;

int onvifMode()
{
    if (modeRead >= 0)
        return modeRead;
    modeRead = 0;
    // The key is matched at the start of a line only: a stored value that
    // holds the text must not switch the camera's behaviour.
    static const char KEY[] = "Conformance.Mode=";
    forEachSetting(ONVIF_CONF_FILE, [](const char* line) {
        if (line[0] != KEY[0] || strncmp(line, KEY, sizeof KEY - 1) != 0)
            return true;
        const char* value = line + sizeof KEY - 1;
        size_t n = strcspn(value, "\r\n");
        modeRead = n == 5 && strncmp(value, "onvif", 5) == 0;
        return false;
    });
    return modeRead;
}

void forgetMode()
{
    modeRead = -1;
}
