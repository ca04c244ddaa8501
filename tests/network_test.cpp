// The device service's network actions end to end: what each Get reports,
// which keys and settings-program parameters each Set changes, refusals and
// hostile values; and the strict checkers those setters rely on.
#include "state/checkers.h"
#include "tests/fixture.h"

#include <unistd.h>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

TEST(StrictCheckers, AcceptAndRefuse)
{
    struct Case { int (*check)(const char*); std::string text; int result; };
    const Case cases[] = {
        {isStrictIPv4, "192.168.0.1", 1}, {isStrictIPv4, "0.0.0.0", 1}, {isStrictIPv4, "255.255.255.255", 1},
        {isStrictIPv4, "256.1.1.1", 0}, {isStrictIPv4, "1.2.3", 0}, {isStrictIPv4, "1.2.3.4.5", 0},
        {isStrictIPv4, "1.2.3.4$(reboot)", 0}, {isStrictIPv4, "a.b.c.d", 0}, {isStrictIPv4, "1..2.3", 0},
        {isStrictIPv4, "1.2.3.1000", 0}, {isStrictIPv4, "1.2.3.4\n", 0}, {isStrictIPv4, " 1.2.3.4", 0},
        {isStrictIPv4, "+1.2.3.4", 0}, {isStrictIPv4, "", 0},
        {isHostName, "ipcamera", 1}, {isHostName, "cam-01.lab.example", 1}, {isHostName, "9cam", 1},
        {isHostName, "-cam", 0}, {isHostName, "cam-", 0}, {isHostName, "cam..lab", 0}, {isHostName, ".cam", 0},
        {isHostName, "cam.", 0}, {isHostName, "cam_1", 0}, {isHostName, "cam 1", 0}, {isHostName, "cam\n", 0},
        {isHostName, std::string(63, 'a'), 1}, {isHostName, std::string(64, 'a'), 0},
        {isHostName, std::string(63, 'a') + "." + std::string(63, 'b') + "." + std::string(63, 'c') + "." +
                         std::string(61, 'd'), 1},
        {isHostName, std::string(63, 'a') + "." + std::string(63, 'b') + "." + std::string(63, 'c') + "." +
                         std::string(62, 'd'), 0},
        {isHostName, "", 0}, {isHostName, "caf\xc3\xa9", 0},
        {isDomainName, "pool.ntp.org", 1}, {isDomainName, "1.2.3.4", 0}, {isDomainName, "ntp1", 1},
        {isDomainName, "x.y;z", 0},
        {isServerPort, "1", 1}, {isServerPort, "65535", 1}, {isServerPort, "0", 0}, {isServerPort, "65536", 0},
        {isServerPort, "-1", 0}, {isServerPort, "80a", 0}, {isServerPort, "", 0},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.check(c.text.c_str()), c.result) << "'" << c.text << "'";
}

const char PARAM_CGI[] = "/usr/apache/htdocs/cgi-bin/admin/param.cgi QUERY_STRING=action=update";
const char CALL_END[] = " REMOTE_USER=admin isOnvif=1\n";

std::vector<std::string> lines(const std::string& text)
{
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        out.push_back(line);
    return out;
}

class Network : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        word(WEB_USER_WORD) = WEB_USER_ADMIN;  // the camera's programs run as admin
    }
    std::string conf() { return readFile("tmp/onvif/onvif.conf"); }
    // The lines of the settings file that a call changed (the file keeps its lines).
    std::set<std::string> changedBy(const std::string& before)
    {
        std::vector<std::string> a = lines(before), b = lines(conf());
        std::set<std::string> changed;
        EXPECT_EQ(a.size(), b.size());
        for (size_t i = 0; i < a.size() && i < b.size(); ++i)
            if (a[i] != b[i])
                changed.insert(b[i]);
        return changed;
    }
    void expectUntouched(const std::string& before, const std::string& what)
    {
        EXPECT_EQ(conf(), before) << what;
        EXPECT_EQ(cameraCalls(), "") << what;
    }
    static std::string interfaces(const std::string& inner, const std::string& token = "eth0")
    {
        return "<tds:SetNetworkInterfaces><tds:InterfaceToken>" + token + "</tds:InterfaceToken><tds:NetworkInterface>" +
               inner + "</tds:NetworkInterface></tds:SetNetworkInterfaces>";
    }
    static std::string protocol(const std::string& name, const std::string& enabled, const std::string& port)
    {
        return "<tds:NetworkProtocols><tt:Name>" + name + "</tt:Name><tt:Enabled>" + enabled + "</tt:Enabled><tt:Port>" +
               port + "</tt:Port></tds:NetworkProtocols>";
    }
};

TEST_F(Network, GetsReportTheFactoryValues)
{
    struct Case { const char* request; const char* answer; };
    for (const Case& c : {
             Case{"<tds:GetNetworkInterfaces/>",
                  "<tds:GetNetworkInterfacesResponse><tds:NetworkInterfaces token=\"eth0\"><tt:Enabled>true</tt:Enabled>"
                  "<tt:Info><tt:Name>eth0</tt:Name><tt:HwAddress>00:1A:2B:3C:4D:5E</tt:HwAddress><tt:MTU>1500</tt:MTU>"
                  "</tt:Info><tt:IPv4><tt:Enabled>true</tt:Enabled><tt:Config><tt:Manual><tt:Address>192.168.0.100"
                  "</tt:Address><tt:PrefixLength>24</tt:PrefixLength></tt:Manual><tt:DHCP>false</tt:DHCP></tt:Config>"
                  "</tt:IPv4></tds:NetworkInterfaces></tds:GetNetworkInterfacesResponse>"},
             Case{"<tds:GetNetworkDefaultGateway/>",
                  "<tds:GetNetworkDefaultGatewayResponse><tds:NetworkGateway><tt:IPv4Address>192.168.0.1"
                  "</tt:IPv4Address></tds:NetworkGateway></tds:GetNetworkDefaultGatewayResponse>"},
             Case{"<tds:GetZeroConfiguration/>",
                  "<tds:GetZeroConfigurationResponse><tds:ZeroConfiguration><tt:InterfaceToken>eth0</tt:InterfaceToken>"
                  "<tt:Enabled>false</tt:Enabled></tds:ZeroConfiguration></tds:GetZeroConfigurationResponse>"},
             Case{"<tds:GetNetworkProtocols/>",
                  "<tds:GetNetworkProtocolsResponse>"
                  "<tds:NetworkProtocols><tt:Name>HTTP</tt:Name><tt:Enabled>true</tt:Enabled><tt:Port>80</tt:Port>"
                  "</tds:NetworkProtocols>"
                  "<tds:NetworkProtocols><tt:Name>HTTPS</tt:Name><tt:Enabled>false</tt:Enabled><tt:Port>443</tt:Port>"
                  "</tds:NetworkProtocols>"
                  "<tds:NetworkProtocols><tt:Name>RTSP</tt:Name><tt:Enabled>true</tt:Enabled><tt:Port>554</tt:Port>"
                  "</tds:NetworkProtocols></tds:GetNetworkProtocolsResponse>"},
             Case{"<tds:GetNTP/>",
                  "<tds:GetNTPResponse><tds:NTPInformation><tt:FromDHCP>false</tt:FromDHCP><tt:NTPManual><tt:Type>IPv4"
                  "</tt:Type><tt:IPv4Address>192.168.0.1</tt:IPv4Address></tt:NTPManual></tds:NTPInformation>"
                  "</tds:GetNTPResponse>"},
             Case{"<tds:GetHostname/>",
                  "<tds:GetHostnameResponse><tds:HostnameInformation><tt:FromDHCP>false</tt:FromDHCP><tt:Name>ipcamera"
                  "</tt:Name></tds:HostnameInformation></tds:GetHostnameResponse>"},
             Case{"<tds:GetDNS/>",
                  "<tds:GetDNSResponse><tds:DNSInformation><tt:FromDHCP>false</tt:FromDHCP><tt:DNSManual><tt:Type>IPv4"
                  "</tt:Type><tt:IPv4Address>192.168.0.1</tt:IPv4Address></tt:DNSManual></tds:DNSInformation>"
                  "</tds:GetDNSResponse>"},
         }) {
        CgiResult r = call(c.request);
        EXPECT_EQ(r.status, 200) << c.request;
        EXPECT_EQ(r.envelopeBody, c.answer);
    }
    EXPECT_EQ(cameraCalls(), "");
}

TEST_F(Network, EachSetChangesItsKeysRunsTheSettingsProgramOnceAndIsReportedBack)
{
    struct Case {
        std::string request, answer;
        std::set<std::string> keys;
        std::string parameters;  // what follows "action=update" in the settings program's query
        std::string get, reported;
    };
    const Case cases[] = {
        {interfaces("<tt:Enabled>true</tt:Enabled><tt:MTU>1400</tt:MTU><tt:IPv4><tt:Enabled>true</tt:Enabled>"
                    "<tt:Manual><tt:Address>10.0.0.5</tt:Address><tt:PrefixLength>16</tt:PrefixLength></tt:Manual>"
                    "<tt:DHCP>false</tt:DHCP></tt:IPv4>"),
         "<tds:SetNetworkInterfacesResponse><tds:RebootNeeded>true</tds:RebootNeeded></tds:SetNetworkInterfacesResponse>",
         {"Network.Interface.MTU=1400", "Network.IPv4.Config.Manual.Address=10.0.0.5",
          "Network.IPv4.Config.Manual.PrefixLength=16"},
         "&root.Network.MTU=1400&root.Network.IPAddress=10.0.0.5&root.Network.SubnetMask=255.255.0.0"
         "&root.Network.BootProto=none",
         "<tds:GetNetworkInterfaces/>",
         "<tt:MTU>1400</tt:MTU></tt:Info><tt:IPv4><tt:Enabled>true</tt:Enabled><tt:Config><tt:Manual><tt:Address>"
         "10.0.0.5</tt:Address><tt:PrefixLength>16</tt:PrefixLength></tt:Manual><tt:DHCP>false</tt:DHCP>"},
        {"<tds:SetNetworkDefaultGateway><tds:IPv4Address>10.0.0.1</tds:IPv4Address></tds:SetNetworkDefaultGateway>",
         "<tds:SetNetworkDefaultGatewayResponse></tds:SetNetworkDefaultGatewayResponse>",
         {"Network.DefaultGateway.IPv4Address=10.0.0.1"}, "&root.Network.DefaultRouter=10.0.0.1",
         "<tds:GetNetworkDefaultGateway/>", "<tt:IPv4Address>10.0.0.1</tt:IPv4Address>"},
        {"<tds:SetZeroConfiguration><tds:InterfaceToken>eth0</tds:InterfaceToken><tds:Enabled>true</tds:Enabled>"
         "</tds:SetZeroConfiguration>",
         "<tds:SetZeroConfigurationResponse></tds:SetZeroConfigurationResponse>",
         {"Network.ZeroConfiguration.Enabled=true"}, "&root.Network.ZeroConf=yes",
         "<tds:GetZeroConfiguration/>", "<tt:Enabled>true</tt:Enabled><tt:Addresses>169.254.0.100</tt:Addresses>"},
        {"<tds:SetNetworkProtocols>" + protocol("RTSP", "true", "8554") + protocol("HTTPS", "true", "8443") +
             "</tds:SetNetworkProtocols>",
         "<tds:SetNetworkProtocolsResponse></tds:SetNetworkProtocolsResponse>",
         {"Network.Protocols.HTTPS.Enabled=true", "Network.Protocols.HTTPS.Port=8443",
          "Network.Protocols.RTSP.Port=8554"},
         "&root.HTTPS.Enabled=yes&root.HTTPS.Port=8443&root.RTSP.Enabled=yes&root.RTSP.Port=8554",
         "<tds:GetNetworkProtocols/>",
         "<tt:Name>HTTPS</tt:Name><tt:Enabled>true</tt:Enabled><tt:Port>8443</tt:Port></tds:NetworkProtocols>"
         "<tds:NetworkProtocols><tt:Name>RTSP</tt:Name><tt:Enabled>true</tt:Enabled><tt:Port>8554</tt:Port>"},
        {"<tds:SetHostname><tds:Name>cam-01.lab</tds:Name></tds:SetHostname>",
         "<tds:SetHostnameResponse></tds:SetHostnameResponse>",
         {"HostnameInformation.Name=cam-01.lab"}, "&root.Network.HostName=cam-01.lab",
         "<tds:GetHostname/>", "<tt:FromDHCP>false</tt:FromDHCP><tt:Name>cam-01.lab</tt:Name>"},
        {"<tds:SetDNS><tds:FromDHCP>false</tds:FromDHCP><tds:SearchDomain>lab.example</tds:SearchDomain>"
         "<tds:DNSManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>10.0.0.2</tt:IPv4Address></tds:DNSManual></tds:SetDNS>",
         "<tds:SetDNSResponse></tds:SetDNSResponse>",
         {"DNSInformation.SearchDomain=lab.example", "DNSInformation.DNSManual.IPv4Address=10.0.0.2"},
         "&root.Network.DNSFromDHCP=no&root.Network.DomainName=lab.example&root.Network.DNSServer1=10.0.0.2",
         "<tds:GetDNS/>",
         "<tt:FromDHCP>false</tt:FromDHCP><tt:SearchDomain>lab.example</tt:SearchDomain><tt:DNSManual><tt:Type>IPv4"
         "</tt:Type><tt:IPv4Address>10.0.0.2</tt:IPv4Address></tt:DNSManual>"},
        {"<tds:SetNTP><tds:FromDHCP>false</tds:FromDHCP><tds:NTPManual><tt:Type>DNS</tt:Type>"
         "<tt:DNSname>time.example.org</tt:DNSname></tds:NTPManual></tds:SetNTP>",
         "<tds:SetNTPResponse></tds:SetNTPResponse>",
         {"NTP.Type=DNS", "NTP.DNS=time.example.org"}, "&Time.NTP.FromDHCP=no&Time.NTP.Server=time.example.org",
         "<tds:GetNTP/>",
         "<tt:FromDHCP>false</tt:FromDHCP><tt:NTPManual><tt:Type>DNS</tt:Type><tt:DNSname>time.example.org"
         "</tt:DNSname></tt:NTPManual>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.request);
        removeFile("camera_calls.log");
        const std::string before = conf();
        CgiResult r = call(c.request);
        EXPECT_EQ(r.status, 200);
        EXPECT_EQ(r.envelopeBody, c.answer);
        EXPECT_EQ(changedBy(before), c.keys);
        EXPECT_EQ(cameraCalls(), PARAM_CGI + c.parameters + CALL_END);
        EXPECT_NE(call(c.get).envelopeBody.find(c.reported), std::string::npos) << call(c.get).envelopeBody;
    }
}

TEST_F(Network, FromDHCPStoresTheFlagAndKeepsTheManualValues)
{
    struct Case { std::string request, answer, key, parameters, get, reported; };
    const Case cases[] = {
        {"<tds:SetHostnameFromDHCP><tds:FromDHCP>true</tds:FromDHCP></tds:SetHostnameFromDHCP>",
         "<tds:SetHostnameFromDHCPResponse><tds:RebootNeeded>false</tds:RebootNeeded></tds:SetHostnameFromDHCPResponse>",
         "HostnameInformation.FromDHCP=true", "&root.Network.HostNameFromDHCP=yes", "<tds:GetHostname/>",
         "<tt:FromDHCP>true</tt:FromDHCP><tt:Name>ipcamera</tt:Name>"},
        {"<tds:SetDNS><tds:FromDHCP>true</tds:FromDHCP></tds:SetDNS>", "<tds:SetDNSResponse></tds:SetDNSResponse>",
         "DNSInformation.FromDHCP=true", "&root.Network.DNSFromDHCP=yes", "<tds:GetDNS/>",
         "<tt:FromDHCP>true</tt:FromDHCP><tt:DNSManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>192.168.0.1"},
        {"<tds:SetNTP><tds:FromDHCP>1</tds:FromDHCP></tds:SetNTP>", "<tds:SetNTPResponse></tds:SetNTPResponse>",
         "NTPInformation.FromDHCP=true", "&Time.NTP.FromDHCP=yes", "<tds:GetNTP/>",
         "<tt:FromDHCP>true</tt:FromDHCP><tt:NTPManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>192.168.0.1"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.request);
        removeFile("camera_calls.log");
        const std::string before = conf();
        CgiResult r = call(c.request);
        EXPECT_EQ(r.envelopeBody, c.answer);
        EXPECT_EQ(changedBy(before), std::set<std::string>{c.key});
        EXPECT_EQ(cameraCalls(), PARAM_CGI + c.parameters + CALL_END);
        EXPECT_NE(call(c.get).envelopeBody.find(c.reported), std::string::npos);
    }
}

TEST_F(Network, RebootNeededOnlyWhenTheAddressingChanges)
{
    const std::string same = interfaces("<tt:MTU>1500</tt:MTU><tt:IPv4><tt:Manual><tt:Address>192.168.0.100</tt:Address>"
                                        "<tt:PrefixLength>24</tt:PrefixLength></tt:Manual><tt:DHCP>false</tt:DHCP>"
                                        "</tt:IPv4>");
    EXPECT_NE(call(same).envelopeBody.find("<tds:RebootNeeded>false</tds:RebootNeeded>"), std::string::npos);
    // Switching to DHCP: the lease's address and mask are what the camera reports.
    writeFile("etc/sysconfig/network.conf", "root.Network.BootProto=dhcp\nroot.Network.IPAddress=10.9.8.7\n"
                                            "root.Network.SubnetMask=255.255.252.0\n");
    removeFile("camera_calls.log");
    EXPECT_NE(call(interfaces("<tt:IPv4><tt:DHCP>true</tt:DHCP></tt:IPv4>")).envelopeBody
                  .find("<tds:RebootNeeded>true</tds:RebootNeeded>"), std::string::npos);
    EXPECT_EQ(cameraCalls(), std::string(PARAM_CGI) + "&root.Network.BootProto=dhcp" + CALL_END);
    EXPECT_NE(call("<tds:GetNetworkInterfaces/>").envelopeBody.find(
                  "<tt:Manual><tt:Address>192.168.0.100</tt:Address><tt:PrefixLength>24</tt:PrefixLength></tt:Manual>"
                  "<tt:FromDHCP><tt:Address>10.9.8.7</tt:Address><tt:PrefixLength>22</tt:PrefixLength></tt:FromDHCP>"
                  "<tt:DHCP>true</tt:DHCP>"), std::string::npos);
}

TEST_F(Network, TheClockSetterUsesTheServerSetNTPStored)
{
    struct Case { std::string host, server; };
    for (const Case& c : {Case{"<tt:Type>IPv4</tt:Type><tt:IPv4Address>10.1.1.1</tt:IPv4Address>", "10.1.1.1"},
                          Case{"<tt:Type>DNS</tt:Type><tt:DNSname>ntp.lab</tt:DNSname>", "ntp.lab"}}) {
        EXPECT_EQ(call("<tds:SetNTP><tds:FromDHCP>false</tds:FromDHCP><tds:NTPManual>" + c.host +
                       "</tds:NTPManual></tds:SetNTP>").status, 200);
        removeFile("camera_calls.log");
        EXPECT_EQ(call("<tds:SetSystemDateAndTime><tds:DateTimeType>NTP</tds:DateTimeType>"
                       "<tds:DaylightSavings>false</tds:DaylightSavings></tds:SetSystemDateAndTime>").status, 200);
        EXPECT_NE(cameraCalls().find("&Time.NTP.Server=" + c.server + "&"), std::string::npos) << cameraCalls();
    }
}

TEST_F(Network, RefusalsWriteNothingAndRunNothing)
{
    struct Case { std::string request, subcode; };
    const std::string NTP = "<tds:SetNTP><tds:FromDHCP>false</tds:FromDHCP><tds:NTPManual>";
    const std::string DNS = "<tds:SetDNS><tds:FromDHCP>false</tds:FromDHCP><tds:DNSManual>";
    const Case cases[] = {
        {interfaces("<tt:MTU>1400</tt:MTU>", "eth1"), "ter:InvalidNetworkInterface"},
        {"<tds:SetNetworkInterfaces><tds:NetworkInterface><tt:MTU>1400</tt:MTU></tds:NetworkInterface>"
         "</tds:SetNetworkInterfaces>", "ter:InvalidNetworkInterface"},
        {interfaces("<tt:MTU>9000</tt:MTU>"), "ter:InvalidMtuValue"},
        {interfaces("<tt:Enabled>false</tt:Enabled>"), "ter:InvalidArgVal"},
        {interfaces("<tt:IPv4><tt:Enabled>false</tt:Enabled></tt:IPv4>"), "ter:InvalidArgVal"},
        {interfaces("<tt:IPv4><tt:Manual><tt:Address>10.0.0.5</tt:Address><tt:PrefixLength>33</tt:PrefixLength>"
                    "</tt:Manual></tt:IPv4>"), "ter:InvalidIPv4Address"},
        {interfaces("<tt:IPv4><tt:Manual><tt:Address>10.0.0.256</tt:Address></tt:Manual></tt:IPv4>"),
         "ter:InvalidIPv4Address"},
        {interfaces("<tt:IPv4><tt:DHCP>false</tt:DHCP></tt:IPv4><tt:IPv6><tt:Enabled>true</tt:Enabled></tt:IPv6>"),
         "ter:InvalidIPv6Address"},
        {"<tds:SetNetworkDefaultGateway><tds:IPv4Address>10.0.0</tds:IPv4Address></tds:SetNetworkDefaultGateway>",
         "ter:InvalidGatewayAddress"},
        {"<tds:SetNetworkDefaultGateway><tds:IPv6Address>fe80::1</tds:IPv6Address></tds:SetNetworkDefaultGateway>",
         "ter:InvalidGatewayAddress"},
        {"<tds:SetZeroConfiguration><tds:InterfaceToken>wlan0</tds:InterfaceToken><tds:Enabled>true</tds:Enabled>"
         "</tds:SetZeroConfiguration>", "ter:InvalidNetworkInterface"},
        {"<tds:SetNetworkProtocols>" + protocol("HTTP", "true", "8080") + protocol("FTP", "true", "21") +
             "</tds:SetNetworkProtocols>", "ter:ServiceNotSupported"},
        {"<tds:SetNetworkProtocols>" + protocol("RTSP", "true", "0") + "</tds:SetNetworkProtocols>",
         "ter:InvalidArgVal"},
        {"<tds:SetNetworkProtocols>" + protocol("RTSP", "true", "65536") + "</tds:SetNetworkProtocols>",
         "ter:InvalidArgVal"},
        {"<tds:SetNetworkProtocols>" + protocol("RTSP", "true", "80") + "</tds:SetNetworkProtocols>",
         "ter:PortAlreadyInUse"},
        {"<tds:SetNetworkProtocols>" + protocol("HTTP", "true", "8080") + protocol("HTTPS", "true", "8080") +
             "</tds:SetNetworkProtocols>", "ter:PortAlreadyInUse"},
        {"<tds:SetHostname><tds:Name>-cam</tds:Name></tds:SetHostname>", "ter:InvalidHostname"},
        {"<tds:SetHostname></tds:SetHostname>", "ter:InvalidHostname"},
        {"<tds:SetHostnameFromDHCP><tds:FromDHCP>maybe</tds:FromDHCP></tds:SetHostnameFromDHCP>", "ter:InvalidArgVal"},
        {"<tds:SetDNS><tds:FromDHCP>false</tds:FromDHCP><tds:SearchDomain>1.2.3.4</tds:SearchDomain></tds:SetDNS>",
         "ter:InvalidDnsName"},
        {DNS + "<tt:Type>IPv6</tt:Type><tt:IPv6Address>fe80::1</tt:IPv6Address></tds:DNSManual></tds:SetDNS>",
         "ter:InvalidIPv6Address"},
        {DNS + "<tt:Type>IPv4</tt:Type></tds:DNSManual></tds:SetDNS>", "ter:InvalidIPv4Address"},
        // A second server is checked as the first is.
        {DNS + "<tt:Type>IPv4</tt:Type><tt:IPv4Address>10.0.0.2</tt:IPv4Address></tds:DNSManual><tds:DNSManual>"
               "<tt:Type>IPv4</tt:Type><tt:IPv4Address>10.0.0.2;x</tt:IPv4Address></tds:DNSManual></tds:SetDNS>",
         "ter:InvalidIPv4Address"},
        {NTP + "<tt:Type>DNS</tt:Type><tt:IPv4Address>10.1.1.1</tt:IPv4Address></tds:NTPManual></tds:SetNTP>",
         "ter:InvalidDnsName"},
        {NTP + "<tt:Type>IPv4</tt:Type><tt:DNSname>ntp.lab</tt:DNSname></tds:NTPManual></tds:SetNTP>",
         "ter:InvalidIPv4Address"},
        {NTP + "<tt:Type>IPv6</tt:Type><tt:IPv6Address>fe80::1</tt:IPv6Address></tds:NTPManual></tds:SetNTP>",
         "ter:InvalidIPv6Address"},
        {NTP + "<tt:IPv4Address>10.1.1.1</tt:IPv4Address></tds:NTPManual></tds:SetNTP>", "ter:InvalidArgVal"},
        {"<tds:SetNTP><tds:NTPManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>10.1.1.1</tt:IPv4Address></tds:NTPManual>"
         "</tds:SetNTP>", "ter:InvalidArgVal"},
    };
    const std::string before = conf();
    for (const Case& c : cases) {
        CgiResult r = call(c.request);
        EXPECT_EQ(r.status, 400) << c.request;
        EXPECT_NE(r.envelopeBody.find("<SOAP-ENV:Value>" + c.subcode + "</SOAP-ENV:Value>"), std::string::npos)
            << c.request << "\n" << r.envelopeBody;
        EXPECT_NE(r.envelopeBody.find("<SOAP-ENV:Value>SOAP-ENV:Sender</SOAP-ENV:Value><SOAP-ENV:Subcode>"
                                      "<SOAP-ENV:Value>ter:InvalidArgVal</SOAP-ENV:Value>"), std::string::npos);
        expectUntouched(before, c.request);
    }
}

TEST_F(Network, AKeyTheFileLacksGivesTheWholeSetUp)
{
    std::string without = conf();
    without.erase(without.find("Network.Interface.MTU=1500\n"), 27);
    writeFile("tmp/onvif/onvif.conf", without);
    CgiResult r = call(interfaces("<tt:MTU>1400</tt:MTU><tt:IPv4><tt:Manual><tt:Address>10.0.0.5</tt:Address>"
                                  "</tt:Manual></tt:IPv4>"));
    EXPECT_EQ(r.status, 500);
    expectUntouched(without, "missing MTU key");
    EXPECT_NE(errorLog().find("ONVIF_CONF_FILE lacks a network key"), std::string::npos);
}

TEST_F(Network, HostileValuesAreRefusedInEveryField)
{
    // Every field that reaches the settings file or the settings program;
    // "@" is where the hostile value goes.
    const std::string NTP = "<tds:SetNTP><tds:FromDHCP>false</tds:FromDHCP><tds:NTPManual>";
    const std::string DNS = "<tds:SetDNS><tds:FromDHCP>false</tds:FromDHCP>";
    const std::vector<std::string> fields = {
        interfaces("<tt:MTU>1400</tt:MTU>", "@"),
        interfaces("<tt:Enabled>@</tt:Enabled>"),
        interfaces("<tt:MTU>@</tt:MTU>"),
        interfaces("<tt:IPv4><tt:Enabled>@</tt:Enabled></tt:IPv4>"),
        interfaces("<tt:IPv4><tt:Manual><tt:Address>@</tt:Address><tt:PrefixLength>24</tt:PrefixLength></tt:Manual>"
                   "</tt:IPv4>"),
        interfaces("<tt:IPv4><tt:Manual><tt:Address>10.0.0.5</tt:Address><tt:PrefixLength>@</tt:PrefixLength>"
                   "</tt:Manual></tt:IPv4>"),
        interfaces("<tt:IPv4><tt:DHCP>@</tt:DHCP></tt:IPv4>"),
        "<tds:SetNetworkDefaultGateway><tds:IPv4Address>@</tds:IPv4Address></tds:SetNetworkDefaultGateway>",
        "<tds:SetZeroConfiguration><tds:InterfaceToken>@</tds:InterfaceToken><tds:Enabled>true</tds:Enabled>"
        "</tds:SetZeroConfiguration>",
        "<tds:SetZeroConfiguration><tds:InterfaceToken>eth0</tds:InterfaceToken><tds:Enabled>@</tds:Enabled>"
        "</tds:SetZeroConfiguration>",
        "<tds:SetNetworkProtocols>" + protocol("@", "true", "8080") + "</tds:SetNetworkProtocols>",
        "<tds:SetNetworkProtocols>" + protocol("HTTP", "@", "8080") + "</tds:SetNetworkProtocols>",
        "<tds:SetNetworkProtocols>" + protocol("HTTP", "true", "@") + "</tds:SetNetworkProtocols>",
        "<tds:SetHostname><tds:Name>@</tds:Name></tds:SetHostname>",
        "<tds:SetHostnameFromDHCP><tds:FromDHCP>@</tds:FromDHCP></tds:SetHostnameFromDHCP>",
        "<tds:SetDNS><tds:FromDHCP>@</tds:FromDHCP></tds:SetDNS>",
        DNS + "<tds:SearchDomain>@</tds:SearchDomain></tds:SetDNS>",
        DNS + "<tds:DNSManual><tt:Type>@</tt:Type><tt:IPv4Address>10.0.0.2</tt:IPv4Address></tds:DNSManual></tds:SetDNS>",
        DNS + "<tds:DNSManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>@</tt:IPv4Address></tds:DNSManual></tds:SetDNS>",
        "<tds:SetNTP><tds:FromDHCP>@</tds:FromDHCP></tds:SetNTP>",
        NTP + "<tt:Type>@</tt:Type><tt:IPv4Address>10.1.1.1</tt:IPv4Address></tds:NTPManual></tds:SetNTP>",
        NTP + "<tt:Type>IPv4</tt:Type><tt:IPv4Address>@</tt:IPv4Address></tds:NTPManual></tds:SetNTP>",
        NTP + "<tt:Type>DNS</tt:Type><tt:DNSname>@</tt:DNSname></tds:NTPManual></tds:SetNTP>",
    };
    const std::string canary = "net-canary-" + std::to_string(getpid());
    const std::vector<std::string> hostile = {
        "a;touch " + canary,
        "1.2.3.4$(touch " + canary + ")",
        "`touch " + canary + "`",
        "x' ; touch " + canary + " ; '",
        "x&quot;$(touch " + canary + ")&quot;",
        "a|touch " + canary,
        "1.2.3.4&amp;root.Network.IPAddress=6.6.6.6",
        "%n%n%s%s",
        "1.2.3.4&#10;User=root",
        "cam&#13;&#10;Network.Interface.Token=x",
        std::string(300, '1'),
        std::string(300, 'a'),
        "caf\xc3\xa9\xff\xfe",
        "../../etc/passwd",
        "&lt;x/&gt;",
        "",
    };
    const std::string before = conf();
    for (const std::string& field : fields)
        for (const std::string& value : hostile) {
            std::string request = field;
            request.replace(request.find('@'), 1, value);
            CgiResult r = call(request);
            EXPECT_EQ(r.status, 400) << request;
            EXPECT_NE(r.envelopeBody.find("ter:InvalidArgVal"), std::string::npos) << request;
            expectUntouched(before, request);
        }
    char cwd[4096];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    EXPECT_FALSE(exists(canary));
    EXPECT_FALSE(exists("usr/apache/htdocs/cgi-bin/admin/" + canary));
    EXPECT_NE(access((std::string(cwd) + "/" + canary).c_str(), F_OK), 0);
    EXPECT_EQ(conf().find("User=root"), std::string::npos);
    EXPECT_EQ(conf().find("6.6.6.6"), std::string::npos);
}

TEST_F(Network, AnHttpPortOtherThan80ReachesEveryAddressHandedOut)
{
    const std::string port80 = "http://192.168.0.100/onvif/device_service";
    EXPECT_NE(call("<tds:GetCapabilities/>").envelopeBody.find("<tt:XAddr>" + port80 + "</tt:XAddr>"),
              std::string::npos);
    EXPECT_EQ(call("<tds:SetNetworkProtocols>" + protocol("HTTP", "true", "8080") + "</tds:SetNetworkProtocols>")
                  .status, 200);
    const std::string moved = "http://192.168.0.100:8080/onvif/device_service";
    CgiResult caps = call("<tds:GetCapabilities/>");
    EXPECT_NE(caps.envelopeBody.find("<tt:XAddr>" + moved + "</tt:XAddr>"), std::string::npos);
    EXPECT_EQ(caps.envelopeBody.find(port80), std::string::npos);
    word(VARIANT_CODE) = VARIANT_GENERIC;
    EXPECT_NE(call("<tev:CreatePullPointSubscription/>").envelopeBody.find(
                  "<wsa5:Address>" + moved + "?Idx=0</wsa5:Address>"), std::string::npos);
    CgiResult push = call("<wsnt:Subscribe><wsnt:ConsumerReference><a:Address xmlns:a=\"http://www.w3.org/2005/08/"
                          "addressing\">http://10.0.0.9:8080/events</a:Address></wsnt:ConsumerReference></wsnt:Subscribe>");
    EXPECT_NE(push.body.find("<wsa5:To>" + moved + "</wsa5:To>"), std::string::npos);
    EXPECT_NE(push.envelopeBody.find("<wsa5:Address>" + moved + "?Idx=1</wsa5:Address>"), std::string::npos);
}

// Home Assistant reads the MAC address this way when it adds the camera.
TEST_F(Network, HomeAssistantReadsTheMacWithCredentials)
{
    word(AUTH_ON_WORD) = 1;
    word(VARIANT_CODE) = VARIANT_GENERIC;
    CgiResult anonymous = call("<tds:GetNetworkInterfaces/>");
    EXPECT_EQ(anonymous.status, 400);
    EXPECT_NE(anonymous.envelopeBody.find("ter:NotAuthorized"), std::string::npos);
    CgiResult r = run(soap("<tds:GetNetworkInterfaces/>",
                           "<wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/"
                           "oasis-200401-wss-wssecurity-secext-1.0.xsd\"><wsse:UsernameToken><wsse:Username>onvifuser"
                           "</wsse:Username><wsse:Password Type=\"PasswordText\">onvif1234</wsse:Password>"
                           "</wsse:UsernameToken></wsse:Security>"));
    EXPECT_EQ(r.status, 200);
    EXPECT_NE(r.envelopeBody.find("<tt:HwAddress>00:1A:2B:3C:4D:5E</tt:HwAddress>"), std::string::npos);
}

}  // namespace
