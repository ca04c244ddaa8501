// Reading the settings engine's values out of the request: the one place a
// request read's outcome becomes the engine's, and the plain reader.
#ifndef FRAME_SETTING_READS_H
#define FRAME_SETTING_READS_H

#include <stddef.h>

#include "frame/request_values.h"
#include "state/setting_rules.h"

// What a typed request read found, as the engine takes it.
SettingRead settingReadOf(Read requestRead);

// A row path "tt:Name" (the element's text) or "@x" (the first attribute of
// that name).
SettingRead readSettingElement(const char* path, char* buf, size_t n);

#endif
