// Request reads for the settings engine, over the typed reads.
#include "frame/setting_reads.h"
#include "frame/request_values.h"

SettingRead settingReadOf(Read requestRead)
{
    switch (requestRead) {
    case Read::Value:
        return SettingRead::Value;
    case Read::Absent:
        return SettingRead::Absent;
    case Read::Refused:
    default:
        return SettingRead::Refused;
    }
}

SettingRead readSettingElement(const char* path, char* buf, size_t n)
{
    return settingReadOf(path[0] == '@' ? requestAttribute(path + 1, 0, buf, n) : requestText(path, buf, n));
}
