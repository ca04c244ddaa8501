// Who the device is, which services it offers and where their descriptions lie.
#include "device/services.h"
#include "frame/frame.h"
#include "state/mode.h"
#include "frame/request_values.h"
#include "state/shm_words.h"
#include "frame/handlers.h"
#include "frame/xmlsearch.h"
#include "state/netaddr.h"
#include "state/config.h"
#include "state/shm.h"

#include <stdio.h>
#include <string.h>

void GetDeviceInfoResponse()
{
    char mac[128] = "", version[128] = "", brand[128] = "", model[128] = "";
    FILE* f = openSettingsFile(ONVIF_CONF_FILE, "ONVIF_CONF_FILE", "GetDeviceInfoResponse", 1);
    forEachLine(f, [&](const char* line) {
        if (strstr(line, "MAC="))
            scanSettingLine(line, "MAC=", mac, sizeof mac, 0);
        if (strstr(line, "Version="))
            scanSettingLine(line, "Version=", version, sizeof version, 0);
        if (strstr(line, "Brand="))
            scanSettingLine(line, "Brand=", brand, sizeof brand, 0);
        if (strstr(line, "Model="))
            scanSettingLine(line, "Model=", model, sizeof model, 1);
        return true;
    });
    setResponse("<tds:GetDeviceInformationResponse>"
                "<tds:Manufacturer>%s</tds:Manufacturer>"
                "<tds:Model>%s</tds:Model>"
                "<tds:FirmwareVersion>%s</tds:FirmwareVersion>"
                "<tds:SerialNumber>%s</tds:SerialNumber>"
                "<tds:HardwareId>001</tds:HardwareId>"
                "</tds:GetDeviceInformationResponse>", brand, model, version, mac);
}

void GetWSDLResponse()
{
    char address[64];
    getDeviceIPv4(address, sizeof address);
    setResponse("<tds:GetWsdlUrlResponse><tds:WsdlUrl>http://%s/wsdl/onvif/</tds:WsdlUrl></tds:GetWsdlUrlResponse>",
                address);
}

static void Capability_Analytics(const char* xaddr)
{
    appendResponse("<tt:Analytics><tt:XAddr>%s</tt:XAddr><tt:RuleSupport>false</tt:RuleSupport>"
                   "<tt:AnalyticsModuleSupport>true</tt:AnalyticsModuleSupport></tt:Analytics>", xaddr);
}

static void Capability_Device(const char* xaddr)
{
    int inputs = modelValue(Cap::IoInputs), relays = modelValue(Cap::IoRelays);
    int v20 = modelHas(Cap::DeviceVersion20);
    appendResponse("<tt:Device><tt:XAddr>%s</tt:XAddr>"
                   "<tt:Network><tt:IPFilter>false</tt:IPFilter><tt:ZeroConfiguration>false</tt:ZeroConfiguration>"
                   "<tt:IPVersion6>false</tt:IPVersion6><tt:DynDNS>false</tt:DynDNS></tt:Network>"
                   "<tt:System><tt:DiscoveryResolve>true</tt:DiscoveryResolve><tt:DiscoveryBye>true</tt:DiscoveryBye>"
                   "<tt:RemoteDiscovery>false</tt:RemoteDiscovery><tt:SystemBackup>false</tt:SystemBackup>"
                   "<tt:SystemLogging>false</tt:SystemLogging><tt:FirmwareUpgrade>false</tt:FirmwareUpgrade>"
                   "<tt:SupportedVersions><tt:Major>%d</tt:Major><tt:Minor>%d</tt:Minor></tt:SupportedVersions>"
                   "</tt:System>"
                   "<tt:IO><tt:InputConnectors>%d</tt:InputConnectors><tt:RelayOutputs>%d</tt:RelayOutputs></tt:IO>"
                   "<tt:Security><tt:TLS1.1>true</tt:TLS1.1><tt:TLS1.2>true</tt:TLS1.2>"
                   "<tt:OnboardKeyGeneration>false</tt:OnboardKeyGeneration>"
                   "<tt:AccessPolicyConfig>false</tt:AccessPolicyConfig><tt:X.509Token>false</tt:X.509Token>"
                   "<tt:SAMLToken>false</tt:SAMLToken><tt:KerberosToken>false</tt:KerberosToken>"
                   "<tt:RELToken>false</tt:RELToken></tt:Security></tt:Device>",
                   xaddr, v20 ? 2 : 1, v20 ? 0 : 2, inputs, relays);
}

static void Capability_Events(const char* xaddr)
{
    // The camera always denied the pull points it serves; the ONVIF mode
    // says what GetServiceCapabilities says.
    appendResponse("<tt:Events><tt:XAddr>%s</tt:XAddr><tt:WSSubscriptionPolicySupport>true</tt:WSSubscriptionPolicySupport>"
                   "<tt:WSPullPointSupport>%s</tt:WSPullPointSupport>"
                   "<tt:WSPausableSubscriptionManagerInterfaceSupport>false"
                   "</tt:WSPausableSubscriptionManagerInterfaceSupport></tt:Events>",
                   xaddr, onvifMode() ? "true" : "false");
}

static void Capability_Imaging(const char* xaddr)
{
    appendResponse("<tt:Imaging><tt:XAddr>%s</tt:XAddr></tt:Imaging>", xaddr);
}

static void Capability_Media(const char* xaddr)
{
    appendResponse("<tt:Media><tt:XAddr>%s</tt:XAddr><tt:StreamingCapabilities><tt:RTPMulticast>true</tt:RTPMulticast>"
                   "<tt:RTP_TCP>true</tt:RTP_TCP><tt:RTP_RTSP_TCP>true</tt:RTP_RTSP_TCP>"
                   "</tt:StreamingCapabilities></tt:Media>", xaddr);
}

static void Capability_PTZ(const char* xaddr)
{
    appendResponse("<tt:PTZ><tt:XAddr>%s</tt:XAddr></tt:PTZ>", xaddr);
}

// Where clients that read only GetCapabilities find the device IO service.
static void Capability_DeviceIO(const char* xaddr)
{
    IoCounts c = ioCounts();
    appendResponse("<tt:Extension><tt:DeviceIO><tt:XAddr>%s</tt:XAddr><tt:VideoSources>%d</tt:VideoSources>"
                   "<tt:VideoOutputs>0</tt:VideoOutputs><tt:AudioSources>%d</tt:AudioSources>"
                   "<tt:AudioOutputs>0</tt:AudioOutputs><tt:RelayOutputs>%d</tt:RelayOutputs></tt:DeviceIO>"
                   "</tt:Extension>", xaddr, c.videoSources, c.audioSources, c.relayOutputs);
}

static int hasPTZ()
{
    return modelHas(Cap::PtzMotors);
}

// The ONVIF mode lists only the services GetServices lists; the analytics
// service is not one of them.
static int analyticsListed()
{
    return !onvifMode();
}

static void writeAllSections(const char* xaddr)
{
    if (analyticsListed())
        Capability_Analytics(xaddr);
    Capability_Device(xaddr);
    Capability_Events(xaddr);
    // The camera always listed imaging; the ONVIF mode agrees with GetServices.
    if (!onvifMode() || !modelHas(Cap::ImagingNone))
        Capability_Imaging(xaddr);
    Capability_Media(xaddr);
    if (hasPTZ())
        Capability_PTZ(xaddr);
    if (onvifMode())
        Capability_DeviceIO(xaddr);
}

static void closeCapabilities()
{
    appendResponse("</tds:Capabilities></tds:GetCapabilitiesResponse>");
}

void GetCapabilityResponse()
{
    char xaddr[128];
    if (!serviceXAddr(xaddr, sizeof xaddr)) {
        G_httpAck = 500;
        return;
    }
    setResponse("<tds:GetCapabilitiesResponse><tds:Capabilities>");
    if (requestRows() == 1) {
        writeAllSections(xaddr);
        closeCapabilities();
        return;
    }
    // Each Category element is handled once, in order; a request that names
    // none gets every section.
    int handled = 0;
    for (int row = 1; (row = requestRowOf("Category", row)) > 0; ++row) {
        char category[33];
        if (requestRowValue(row, category, sizeof category) == Read::Refused)
            return;
        ++handled;
        if (strcmp(category, "All") == 0) {
            setResponse("<tds:GetCapabilitiesResponse><tds:Capabilities>");
            writeAllSections(xaddr);
            closeCapabilities();
            return;
        }
        if (strcmp(category, "Analytics") == 0 && analyticsListed())
            Capability_Analytics(xaddr);
        else if (strcmp(category, "Device") == 0)
            Capability_Device(xaddr);
        else if (strcmp(category, "Events") == 0)
            Capability_Events(xaddr);
        else if (strcmp(category, "Media") == 0)
            Capability_Media(xaddr);
        else if (strcmp(category, "Imaging") == 0 && !modelHas(Cap::ImagingNone))
            Capability_Imaging(xaddr);
        else if (strcmp(category, "PTZ") == 0 && hasPTZ())
            Capability_PTZ(xaddr);
        else {
            writeReceiverFault2("ActionNotSupported", "NoSuchService", "The service is not supported",
                                "The requested WSDL service category is not supported by the NVT");
            return;
        }
    }
    if (!handled)
        writeAllSections(xaddr);
    closeCapabilities();
}
