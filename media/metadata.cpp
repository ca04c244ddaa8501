// Metadata configurations: what the metadata stream carries and how it is
// multicast. Listed, printed, checked and rewritten here.
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "media/printers.h"
#include "state/profiles.h"
#include "state/checkers.h"
#include "state/config.h"
#include "state/paths.h"

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
    requestText("trt:ConfigurationToken", token, 25);
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
    requestText("trt:ConfigurationToken", token, 25);
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

// The request's new values; an element the request leaves out keeps the
// file's value (given is 0 for it).
struct MetadataChange {
    char name[129], useCount[65], type[17], ipv4[17], port[17], ttl[17], autoStart[17], timeout[17], force[17];
    int hasName, hasUseCount, hasType, hasIpv4, hasPort, hasTtl, hasAutoStart, hasTimeout;
};

static int replaceMetadataLine(const char* line, FILE* out, void* ctx)
{
    if (!line)
        return 0;
    MetadataChange* c = (MetadataChange*)ctx;
    struct { const char* key; int given; const char* value; int asNumber; } rows[] = {
        {"Name=", c->hasName, c->name, 0},
        {"UseCount=", c->hasUseCount, c->useCount, 0},
        {"Multicast.Address.Type=", c->hasType, c->type, 0},
        // The camera's files name this key Multicast.Address.IPv4Address, so
        // the address is left as it is; kept that way on purpose.
        {"Multicast.IPv4Address=", c->hasIpv4, c->ipv4, 0},
        {"Multicast.Port=", c->hasPort, c->port, 1},
        {"Multicast.TTL=", c->hasTtl, c->ttl, 1},
        {"Multicast.AutoStart=", c->hasAutoStart, c->autoStart, 0},
        {"SessionTimeout=", c->hasTimeout, c->timeout, 0},
    };
    for (auto& row : rows) {
        if (!strstr(line, row.key))
            continue;
        if (!row.given)
            return 0;
        if (row.asNumber)
            fprintf(out, "%s%d\n", row.key, atoi(row.value));
        else
            fprintf(out, "%s%s\n", row.key, row.value);
        return 1;
    }
    copyLineAsFormatted(line, out);
    return 1;
}

void SetMetadataConfiguration()
{
    char token[17];
    requestAttribute("token", 0, token, 17);
    if (!metadataListed(METADATA_LIST, token, ".MetaData", "SetMetadataConfiguration")) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "The configuration does not exist.",
                          "The MetaDataConfiguration indicated by the ConfigurationToken does not exist in MetaData file.");
        return;
    }
    MetadataChange c;
    memset(&c, 0, sizeof c);
    c.hasName = requestText("tt:Name", c.name, 129);
    c.hasUseCount = requestText("tt:UseCount", c.useCount, 65);
    c.hasType = requestText("tt:Type", c.type, 17);
    c.hasIpv4 = requestText("tt:IPv4Address", c.ipv4, 17);
    c.hasPort = requestText("tt:Port", c.port, 17);
    c.hasTtl = requestText("tt:TTL", c.ttl, 17);
    c.hasAutoStart = requestText("tt:AutoStart", c.autoStart, 17);
    c.hasTimeout = requestText("tt:SessionTimeout", c.timeout, 17);
    int hasForce = requestText("trt:ForcePersistence", c.force, 17);
    int bad = (c.hasName && CheckChar(c.name)) || (c.hasUseCount && CheckInt(c.useCount)) ||
              (c.hasType && CheckType(c.type)) || (c.hasIpv4 && !checkIPv4AddressValid(c.ipv4)) ||
              (c.hasPort && CheckPortRange(c.port)) || (c.hasTtl && CheckInt(c.ttl)) ||
              (c.hasAutoStart && CheckBool(c.autoStart)) ||
              (c.hasTimeout && (CheckTimeout(c.timeout) || hasLineBreak(c.timeout))) ||
              (c.hasIpv4 && hasLineBreak(c.ipv4)) || (hasForce && CheckBool(c.force));
    char path[128];
    formatChecked(path, sizeof path, ONVIF_WEB_DIR "%s.MetaData", token);
    // Readers find keys anywhere in a line: a stored text holding "Name="
    // would read back as that setting.
    bad = bad || (c.hasTimeout && namesKeyOfFile(path, c.timeout)) || (c.hasName && namesKeyOfFile(path, c.name));
    if (bad) {
        writeSenderFault2("InvalidArgVal", "ConfigModify", "The configuration parameters are not possible to set.",
                          "The error code is indicated by the configuration parameters are not possible to set.");
        return;
    }
    int rewritten = rewriteFileThroughWorkCopy(path, replaceMetadataLine, &c);
    if (rewritten == WORK_COPY_FAILED)
        return answerStoreFailure(path);
    if (rewritten != 0) {
        writeSenderFault2("InvalidArgVal", "NoConfig", "The configuration does not exist.",
                          "The MetadataConfiguration indicated by the ConfigurationToken does not exist");
        return;
    }
    setResponse("<trt:SetMetadataConfigurationResponse></trt:SetMetadataConfigurationResponse>");
}
