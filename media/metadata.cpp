// Metadata configurations: what the metadata stream carries and how it is
// multicast. Listed, printed, checked and rewritten here.
#include "frame/frame.h"
#include "state/mode.h"
#include "state/schema_values.h"
#include "frame/request_values.h"
#include "frame/setting_reads.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "media/printers.h"
#include "state/profiles.h"
#include "state/checkers.h"
#include "state/config.h"
#include "state/paths.h"
#include "state/setting_rules.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define METADATA_LIST ONVIF_WEB_DIR "MetaData.conf"
#define METADATA_OPTION_LIST ONVIF_WEB_DIR "MetaDataOption.conf"

// Printed element by element as the lines come: a file in the usual key order
// gives well-formed XML.
void Read_Print_MetadataFile(const char* fileName)
{
    FILE* f = openStoreFile(ONVIF_WEB_DIR, fileName);
    if (!f) {
        logServiceError("Read_Print_MetadataFile", "%s", "FILE missing");
        return;
    }
    static const struct { const char* key; const char* open; const char* close; } rows[] = {
        {"Name=", "<tt:Name>", "</tt:Name>"},
        {"UseCount=", "<tt:UseCount>", "</tt:UseCount>"},
        {"PTZStatus.Status=", "<tt:PTZStatus><tt:Status>", "</tt:Status>"},
        {"PTZStatus.Position=", "<tt:Position>", "</tt:Position></tt:PTZStatus>"},
        {"Analytics=", "<tt:Analytics>", "</tt:Analytics>"},
        {"Multicast.Address.Type=", "<tt:Multicast><tt:Address><tt:Type>", "</tt:Type>"},
        {"Multicast.Address.IPv4Address=", "<tt:IPv4Address>", "</tt:IPv4Address>"},
        {"Multicast.Address.IPv6Address=", "<tt:IPv6Address>", "</tt:IPv6Address></tt:Address>"},
        {"Multicast.Port=", "<tt:Port>", "</tt:Port>"},
        {"Multicast.TTL=", "<tt:TTL>", "</tt:TTL>"},
        {"Multicast.AutoStart=", "<tt:AutoStart>", "</tt:AutoStart></tt:Multicast>"},
        {"SessionTimeout=", "<tt:SessionTimeout>", "</tt:SessionTimeout>"},
    };
    char line[256], value[128];
    while (fgets(line, sizeof line, f)) {
        if (scanSettingLine(line, "Events.Filter.TopicExpression=", value, sizeof value, 0) && line[0] == 'E') {
            appendResponse("<tt:Events><tt:Filter><wsnt:TopicExpression "
                           "Dialect=\"http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet\">%s"
                           "</wsnt:TopicExpression>", strcmp(value, "NONE") == 0 ? "" : value);
            continue;
        }
        if (scanSettingLine(line, "Events.Filter.MessageContent=", value, sizeof value, 0) && line[0] == 'E') {
            appendResponse("<wsnt:MessageContent "
                           "Dialect=\"http://www.onvif.org/ver10/tev/messageContentFilter/ItemFilter\">%s"
                           "</wsnt:MessageContent></tt:Filter></tt:Events>", strcmp(value, "NONE") == 0 ? "" : value);
            continue;
        }
        for (auto& row : rows) {
            if (strncmp(line, row.key, strlen(row.key)) == 0) {
                scanSettingLine(line, row.key, value, sizeof value, 0);
                appendBetween(row.open, value, row.close);
                break;
            }
        }
    }
    fclose(f);
}

void Read_Print_MetadataOptionsFile(const char* fileName)
{
    FILE* f = openStoreFile(ONVIF_WEB_DIR, fileName);
    if (!f) {
        logServiceError("Read_Print_MetadataOptionsFile", "%s", "FILE missing");
        return;
    }
    char panTilt[49], zoom[49];
    findONVIFConfigurationFile(f, "PanTiltStatusSupported=%s\n", panTilt, sizeof panTilt);
    findONVIFConfigurationFile(f, "ZoomStatusSupported=%s\n", zoom, sizeof zoom);
    fclose(f);
    appendResponse("<tt:PTZStatusFilterOptions><tt:PanTiltStatusSupported>%s</tt:PanTiltStatusSupported>"
                   "<tt:ZoomStatusSupported>%s</tt:ZoomStatusSupported></tt:PTZStatusFilterOptions>", panTilt, zoom);
}

static void listMetadataConfigurations(const char* handler, const char* responseElement)
{
    setResponse("%s", "");
    FILE* list = fopenRoot(METADATA_LIST, "r");
    if (!list) {
        logServiceError(handler, "%s missing", METADATA_LIST);
        return;
    }
    appendResponse("<trt:%s>", responseElement);
    // Lines are taken in pieces of 23 characters, as the camera's list reader does.
    char line[24];
    while (fgets(line, sizeof line, list)) {
        line[strcspn(line, "\r\n")] = 0;
        if (!line[0])
            continue;
        char token[24];
        snprintf(token, sizeof token, "%s", line);
        token[strcspn(token, ".")] = 0;
        appendResponse("<trt:Configurations token=\"%s\">", token);
        Read_Print_MetadataFile(line);
        appendResponse("</trt:Configurations>");
    }
    fclose(list);
    appendResponse("</trt:%s>", responseElement);
}

void GetMetadataConfigurations()
{
    listMetadataConfigurations("GetMetadataConfigurations", "GetMetadataConfigurationsResponse");
}

void GetCompatibleMetadataConfigurations()
{
    listMetadataConfigurations("GetCompatibleMetadataConfigurations", "GetCompatibleMetadataConfigurationsResponse");
}

// 1 when token + suffix is a line of the list; a missing list is logged.
static int metadataListed(const char* list, const char* token, const char* suffix, const char* handler)
{
    char fileName[64];
    formatChecked(fileName, sizeof fileName, "%s%s", token, suffix);
    if (!isSafeFileToken(token))
        return 0;
    FILE* f = fopenRoot(list, "r");
    if (!f) {
        logServiceError(handler, "%s missing", list);
        return 0;
    }
    fclose(f);
    return isListedConfiguration(list, fileName, handler, list);
}

void GetMetadataConfiguration()
{
    char token[25];
    if (requestText("trt:ConfigurationToken", token, 25) == Read::Refused)
        return;
    if (!metadataListed(METADATA_LIST, token, ".MetaData", "GetMetadataConfiguration")) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "Configuration does not exist",
                          "The requested configuration indicated with ConfigurationToken does not exist");
        return;
    }
    char fileName[64];
    formatChecked(fileName, sizeof fileName, "%s.MetaData", token);
    setResponse("<trt:GetMetadataConfigurationResponse><trt:Configuration token=\"%s\">", token);
    Read_Print_MetadataFile(fileName);
    appendResponse("</trt:Configuration></trt:GetMetadataConfigurationResponse>");
}

void GetMetadataConfigurationOptions()
{
    char token[25];
    if (requestText("trt:ConfigurationToken", token, 25) == Read::Refused)
        return;
    if (!metadataListed(METADATA_OPTION_LIST, token, ".MetaDataOpt", "GetMetadataConfigurationOptions")) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "Metadata Configuration does not exist.",
                          "The requested configuration indicated with ConfigurationToken does not exist in Metadata.");
        return;
    }
    char fileName[64];
    formatChecked(fileName, sizeof fileName, "%s.MetaDataOpt", token);
    FILE* f = openStoreFile(ONVIF_WEB_DIR, fileName);
    if (!f) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "Metadata Configuration does not exist",
                          "The requested configuration indicated with ConfigurationToken does not exist");
        return;
    }
    fclose(f);
    setResponse("<trt:GetMetadataConfigurationOptionsResponse><trt:Options>");
    Read_Print_MetadataOptionsFile(fileName);
    appendResponse("</trt:Options></trt:GetMetadataConfigurationOptionsResponse>");
}

// SetMetadataConfiguration: its rows, read and applied by the settings engine.

// Text up to max characters that the row's checker (min: which) accepts.
enum MetadataCheck { NAME_CHARS, WHOLE_NUMBER, ADDRESS_TYPE, IPV4_ADDRESS, PORT, FLAG, TIMEOUT };

static int checkMetadataValue(char* value, const SettingRow* row, const char*, void*)
{
    if (strlen(value) > (size_t)row->max)
        return 1;
    switch (row->min) {
    case NAME_CHARS:
        return CheckChar(value);
    case WHOLE_NUMBER:
        return CheckInt(value);
    case ADDRESS_TYPE:
        return CheckType(value);
    case IPV4_ADDRESS:
        return !checkIPv4AddressValid(value);
    case FLAG:
        return CheckBool(value);
    case TIMEOUT:
        return onvifMode() ? !isDurationText(value) : CheckTimeout(value);
    default:
        return 1;
    }
}

// Port and TTL are stored as the whole numbers they read as.
static int checkMetadataNumber(char* value, const SettingRow* row, const char* bound, void* ctx)
{
    if ((row->min == PORT ? strlen(value) > (size_t)row->max || CheckPortRange(value)
                          : checkMetadataValue(value, row, bound, ctx)))
        return 1;
    snprintf(value, SETTING_VALUE_SIZE, "%d", atoi(value));
    return 0;
}

#define METADATA_ROW(path, key, check, which, length) {path, key, check, which, length, 0, 0, FORM_AS_GIVEN, 0, 0}

static const SettingRow METADATA_ROWS[] = {
    // path, key, check, which check, length at most
    METADATA_ROW("tt:Name", "Name", checkMetadataValue, NAME_CHARS, 128),
    METADATA_ROW("tt:UseCount", "UseCount", checkMetadataValue, WHOLE_NUMBER, 64),
    METADATA_ROW("tt:Type", "Multicast.Address.Type", checkMetadataValue, ADDRESS_TYPE, 16),
    // The camera's files name this key Multicast.Address.IPv4Address, so
    // the address is left as it is; kept that way on purpose.
    METADATA_ROW("tt:IPv4Address", "Multicast.IPv4Address", checkMetadataValue, IPV4_ADDRESS, 16),
    METADATA_ROW("tt:Port", "Multicast.Port", checkMetadataNumber, PORT, 16),
    METADATA_ROW("tt:TTL", "Multicast.TTL", checkMetadataNumber, WHOLE_NUMBER, 16),
    METADATA_ROW("tt:AutoStart", "Multicast.AutoStart", checkMetadataValue, FLAG, 16),
    METADATA_ROW("tt:SessionTimeout", "SessionTimeout", checkMetadataValue, TIMEOUT, 16),
    METADATA_ROW("trt:ForcePersistence", 0, checkMetadataValue, FLAG, 16),
};

static SettingRead readMetadataRow(const SettingRow* row, char* buf, size_t n, void*)
{
    return readSettingElement(row->path, buf, n);
}

static void refuseMetadataRow(const SettingRow*, void*)
{
    writeSenderFault2("InvalidArgVal", "ConfigModify", "The configuration parameters are not possible to set.",
                      "The error code is indicated by the configuration parameters are not possible to set.");
}

void SetMetadataConfiguration()
{
    char token[17];
    if (requestAttribute("token", 0, token, 17) == Read::Refused)
        return;
    if (!metadataListed(METADATA_LIST, token, ".MetaData", "SetMetadataConfiguration")) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "The configuration does not exist.",
                          "The MetaDataConfiguration indicated by the ConfigurationToken does not exist in MetaData file.");
        return;
    }
    char path[128];
    formatChecked(path, sizeof path, ONVIF_WEB_DIR "%s.MetaData", token);
    SettingTable table = {METADATA_ROWS, (int)(sizeof METADATA_ROWS / sizeof METADATA_ROWS[0]), path, 0,
                          SETTINGS_PASS_UNCHANGED | SETTINGS_ALWAYS_REWRITE | SETTINGS_OTHER_LINES_AS_FORMATTED,
                          129, 0, readMetadataRow, 0, 0, refuseMetadataRow, 0};
    static SettingValues values;
    SettingOutcome outcome = applySettings(&table, &values);
    if (outcome == SETTINGS_REFUSED)
        return;
    if (outcome != SETTINGS_DONE) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "The configuration does not exist.",
                          "The MetadataConfiguration indicated by the ConfigurationToken does not exist");
        return;
    }
    setResponse("<trt:SetMetadataConfigurationResponse></trt:SetMetadataConfigurationResponse>");
}
