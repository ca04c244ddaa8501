// The device service's network actions: interface, default gateway, zero
// configuration, protocols, host name, DNS and NTP servers.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "device/network_settings.h"
#include "frame/request_values.h"
#include "frame/xmlsearch.h"
#include "state/checkers.h"
#include "state/command.h"
#include "state/config.h"
#include "state/netaddr.h"
#include "state/paths.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define LINK_LOCAL_PREFIX 16

// "NONE" and "NoSupport" are how the camera's files say a value is absent.
static int isAbsent(const char* value)
{
    return !*value || strcmp(value, "NONE") == 0 || strcmp(value, "NoSupport") == 0;
}

// Answers carry xs:boolean and xs:int whatever a file holds.
static const char* flagText(const char* value)
{
    return strcmp(value, "true") == 0 ? "true" : "false";
}

static long numberOr(const char* text, long min, long max, long fallback)
{
    long n;
    return parseNumber(text, min, max, &n) ? n : fallback;
}

// The prefix length of a dotted mask of contiguous ones; -1 for anything else.
static long maskToPrefix(const char* mask)
{
    if (!isStrictIPv4(mask))
        return -1;
    unsigned a, b, c, d;
    if (sscanf(mask, "%u.%u.%u.%u", &a, &b, &c, &d) != 4)
        return -1;
    unsigned long long bits = ((unsigned long long)a << 24) | (b << 16) | (c << 8) | d;
    long prefix = 0;
    while (prefix < 32 && (bits & (0x80000000ULL >> prefix)))
        ++prefix;
    return (bits & (0xFFFFFFFFULL >> prefix)) ? -1 : prefix;
}

// ---------------------------------------------------------------------------
// The handlers.

void GetNetworkInterfaces()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetNetworkInterfaces");
    setResponse("<tds:GetNetworkInterfacesResponse><tds:NetworkInterfaces token=\"%s\"><tt:Enabled>true</tt:Enabled>"
                "<tt:Info><tt:Name>%s</tt:Name><tt:HwAddress>%s</tt:HwAddress><tt:MTU>%ld</tt:MTU></tt:Info>"
                "<tt:IPv4><tt:Enabled>%s</tt:Enabled><tt:Config>",
                setting(&s, "Network.Interface.Token="), setting(&s, "Network.Interface.Name="), setting(&s, "MAC="),
                numberOr(setting(&s, "Network.Interface.MTU="), MTU_MIN, MTU_MAX, MTU_MAX),
                flagText(setting(&s, "Network.IPv4.Enable=")));
    long prefix = numberOr(setting(&s, "Network.IPv4.Config.Manual.PrefixLength="), 1, 32, 24);
    const char* manual = setting(&s, "Network.IPv4.Config.Manual.Address=");
    if (!isAbsent(manual))
        appendResponse("<tt:Manual><tt:Address>%s</tt:Address><tt:PrefixLength>%ld</tt:PrefixLength></tt:Manual>",
                       manual, prefix);
    const char* linkLocal = setting(&s, "Network.IPv4.Config.LinkLocal.Address=");
    if (strcmp(setting(&s, "Network.ZeroConfiguration.Enabled="), "true") == 0 && !isAbsent(linkLocal))
        appendResponse("<tt:LinkLocal><tt:Address>%s</tt:Address><tt:PrefixLength>%d</tt:PrefixLength></tt:LinkLocal>",
                       linkLocal, LINK_LOCAL_PREFIX);
    int dhcp = strcmp(setting(&s, "Network.IPv4.Config.DHCP="), "true") == 0;
    if (dhcp) {
        // What the lease gave is what the camera runs with now.
        char current[64], mask[64];
        getDeviceIPv4(current, sizeof current);
        long leased = readSettingValue(NETWORK_CONF_FILE, "root.Network.SubnetMask=", mask, sizeof mask)
                          ? maskToPrefix(mask) : -1;
        appendResponse("<tt:FromDHCP><tt:Address>%s</tt:Address><tt:PrefixLength>%ld</tt:PrefixLength></tt:FromDHCP>",
                       current, leased > 0 ? leased : prefix);
    }
    appendResponse("<tt:DHCP>%s</tt:DHCP></tt:Config></tt:IPv4></tds:NetworkInterfaces>"
                   "</tds:GetNetworkInterfacesResponse>", dhcp ? "true" : "false");
}

void SetNetworkInterfaces()
{
    int restart;
    if (!applyNetworkSetter("SetNetworkInterfaces", &restart))
        return;
    setResponse("<tds:SetNetworkInterfacesResponse><tds:RebootNeeded>%s</tds:RebootNeeded>"
                "</tds:SetNetworkInterfacesResponse>", restart ? "true" : "false");
}

void GetNetworkDefaultGateway()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetNetworkDefaultGateway");
    setResponse("<tds:GetNetworkDefaultGatewayResponse><tds:NetworkGateway>");
    const char* gateway = setting(&s, "Network.DefaultGateway.IPv4Address=");
    if (!isAbsent(gateway))
        appendResponse("<tt:IPv4Address>%s</tt:IPv4Address>", gateway);
    appendResponse("</tds:NetworkGateway></tds:GetNetworkDefaultGatewayResponse>");
}

void SetNetworkDefaultGateway()
{
    int restart;
    if (applyNetworkSetter("SetNetworkDefaultGateway", &restart))
        setResponse("<tds:SetNetworkDefaultGatewayResponse></tds:SetNetworkDefaultGatewayResponse>");
}

void GetZeroConfiguration()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetZeroConfiguration");
    int enabled = strcmp(setting(&s, "Network.ZeroConfiguration.Enabled="), "true") == 0;
    setResponse("<tds:GetZeroConfigurationResponse><tds:ZeroConfiguration><tt:InterfaceToken>%s</tt:InterfaceToken>"
                "<tt:Enabled>%s</tt:Enabled>", setting(&s, "Network.Interface.Token="), enabled ? "true" : "false");
    const char* linkLocal = setting(&s, "Network.IPv4.Config.LinkLocal.Address=");
    if (enabled && !isAbsent(linkLocal))
        appendResponse("<tt:Addresses>%s</tt:Addresses>", linkLocal);
    appendResponse("</tds:ZeroConfiguration></tds:GetZeroConfigurationResponse>");
}

void SetZeroConfiguration()
{
    int restart;
    if (applyNetworkSetter("SetZeroConfiguration", &restart))
        setResponse("<tds:SetZeroConfigurationResponse></tds:SetZeroConfigurationResponse>");
}

void GetNetworkProtocols()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetNetworkProtocols");
    static const char* const PROTOCOLS[][3] = {
        {"HTTP", "Network.Protocols.HTTP.Enabled=", "Network.Protocols.HTTP.Port="},
        {"HTTPS", "Network.Protocols.HTTPS.Enabled=", "Network.Protocols.HTTPS.Port="},
        {"RTSP", "Network.Protocols.RTSP.Enabled=", "Network.Protocols.RTSP.Port="},
    };
    setResponse("<tds:GetNetworkProtocolsResponse>");
    for (const auto& p : PROTOCOLS) {
        long port = numberOr(setting(&s, p[2]), 1, 65535, 0);
        if (port == 0)
            continue;  // a protocol the camera's file does not configure
        appendResponse("<tds:NetworkProtocols><tt:Name>%s</tt:Name><tt:Enabled>%s</tt:Enabled><tt:Port>%ld</tt:Port>"
                       "</tds:NetworkProtocols>", p[0], flagText(setting(&s, p[1])), port);
    }
    appendResponse("</tds:GetNetworkProtocolsResponse>");
}

void SetNetworkProtocols()
{
    int restart;
    if (applyNetworkSetter("SetNetworkProtocols", &restart))
        setResponse("<tds:SetNetworkProtocolsResponse></tds:SetNetworkProtocolsResponse>");
}

void GetNTPResponse()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetNTPResponse");
    setResponse("<tds:GetNTPResponse><tds:NTPInformation><tt:FromDHCP>%s</tt:FromDHCP>",
                flagText(setting(&s, "NTPInformation.FromDHCP=")));
    const char* type = setting(&s, "NTP.Type=");
    const char* ipv4 = setting(&s, "NTP.IPv4Address=");
    const char* name = setting(&s, "NTP.DNS=");
    if (strcmp(type, "IPv4") == 0 && !isAbsent(ipv4))
        appendResponse("<tt:NTPManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>%s</tt:IPv4Address></tt:NTPManual>",
                       ipv4);
    else if (strcmp(type, "DNS") == 0 && !isAbsent(name))
        appendResponse("<tt:NTPManual><tt:Type>DNS</tt:Type><tt:DNSname>%s</tt:DNSname></tt:NTPManual>", name);
    appendResponse("</tds:NTPInformation></tds:GetNTPResponse>");
}

void SetNTPResponse()
{
    int restart;
    if (applyNetworkSetter("SetNTP", &restart))
        setResponse("<tds:SetNTPResponse></tds:SetNTPResponse>");
}

void GetHostnameResponse()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetHostnameResponse");
    setResponse("<tds:GetHostnameResponse><tds:HostnameInformation><tt:FromDHCP>%s</tt:FromDHCP>",
                flagText(setting(&s, "HostnameInformation.FromDHCP=")));
    const char* name = setting(&s, "HostnameInformation.Name=");
    if (!isAbsent(name))
        appendResponse("<tt:Name>%s</tt:Name>", name);
    appendResponse("</tds:HostnameInformation></tds:GetHostnameResponse>");
}

// Also serves SetHostnameFromDHCP, whose name contains this action's.
void SetHostnameResponse()
{
    int restart;
    if (strcmp(PrimaryElementName, "SetHostnameFromDHCP") == 0) {
        if (applyNetworkSetter("SetHostnameFromDHCP", &restart))
            setResponse("<tds:SetHostnameFromDHCPResponse><tds:RebootNeeded>false</tds:RebootNeeded>"
                        "</tds:SetHostnameFromDHCPResponse>");
        return;
    }
    if (applyNetworkSetter("SetHostname", &restart))
        setResponse("<tds:SetHostnameResponse></tds:SetHostnameResponse>");
}

void GetDNSResponse()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetDNSResponse");
    setResponse("<tds:GetDNSResponse><tds:DNSInformation><tt:FromDHCP>%s</tt:FromDHCP>",
                flagText(setting(&s, "DNSInformation.FromDHCP=")));
    const char* domain = setting(&s, "DNSInformation.SearchDomain=");
    if (!isAbsent(domain))
        appendResponse("<tt:SearchDomain>%s</tt:SearchDomain>", domain);
    const char* server = setting(&s, "DNSInformation.DNSManual.IPv4Address=");
    if (strcmp(setting(&s, "DNSInformation.DNSManual.Type="), "IPv4") == 0 && !isAbsent(server))
        appendResponse("<tt:DNSManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>%s</tt:IPv4Address></tt:DNSManual>",
                       server);
    appendResponse("</tds:DNSInformation></tds:GetDNSResponse>");
}

void SetDNSResponse()
{
    int restart;
    if (applyNetworkSetter("SetDNS", &restart))
        setResponse("<tds:SetDNSResponse></tds:SetDNSResponse>");
}
