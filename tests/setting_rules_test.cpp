// The settings engine's contract across every service that sets values: one
// refused value (out of its bounds, or one byte past its buffer) refuses the
// whole request, with nothing written and nothing run, even when an earlier
// value of the same request was good.
#include "tests/fixture.h"

#include <string>

namespace {

class SettingRules : public CameraTest {};

struct Case {
    const char* service;
    std::string file;    // the settings file the setter rewrites
    std::string body;    // a good value first, then the refused one
    std::string fault;   // the refusal's subcode
};

std::string repeat(char c, size_t n) { return std::string(n, c); }

std::string dns(const std::string& domain)
{
    return "<tds:SetDNS><tds:FromDHCP>false</tds:FromDHCP><tds:SearchDomain>" + domain +
           "</tds:SearchDomain></tds:SetDNS>";
}

std::string encoder(const std::string& name, const std::string& quality)
{
    return "<trt:SetVideoEncoderConfiguration><trt:Configuration token=\"VideoEncoder1\"><tt:Name>" + name +
           "</tt:Name><tt:Quality>" + quality + "</tt:Quality></trt:Configuration>"
           "<trt:ForcePersistence>true</trt:ForcePersistence></trt:SetVideoEncoderConfiguration>";
}

std::string imaging(const std::string& contrast)
{
    return "<timg:SetImagingSettings><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken>"
           "<timg:ImagingSettings><tt:Brightness>40</tt:Brightness><tt:Contrast>" + contrast +
           "</tt:Contrast></timg:ImagingSettings></timg:SetImagingSettings>";
}

std::string ptz(const std::string& node)
{
    return "<tptz:SetConfiguration><tptz:PTZConfiguration token=\"PTZConfig1\"><tt:Name>Moved</tt:Name>"
           "<tt:NodeToken>" + node + "</tt:NodeToken></tptz:PTZConfiguration>"
           "<tptz:ForcePersistence>true</tptz:ForcePersistence></tptz:SetConfiguration>";
}

TEST_F(SettingRules, OneRefusedValueWritesNothingAndRunsNothing)
{
    const std::string onvifConf = "tmp/onvif/onvif.conf", encoderFile = "tmp/onvif/VideoEncoder1.VEncoder",
                      sourceFile = "tmp/onvif/VideoSource1.VSource",
                      ptzFile = "usr/apache/htdocs/onvif/PTZConfig1.PTZConf";
    const Case cases[] = {
        {"network", onvifConf, dns("not..a.name"), "ter:InvalidDnsName"},
        {"network", onvifConf, dns(repeat('a', 256)), "ter:InvalidDnsName"},
        {"media", encoderFile, encoder("Changed", "1000"), "ter:ConfigModify"},
        {"media", encoderFile, encoder(repeat('n', 96), "50"), "ter:ConfigModify"},
        {"imaging", sourceFile, imaging("1000"), "ter:SettingsInvalid"},
        {"imaging", sourceFile, imaging("5" + repeat('0', 63)), "ter:SettingsInvalid"},
        {"ptz", ptzFile, ptz("Node/1"), "ter:ConfigModify"},
        {"ptz", ptzFile, ptz(repeat('n', 129)), "ter:ConfigModify"},
    };
    // The A5s dome: imaging with iris, pan/tilt and zoom.
    word(79) = 6;
    word(16) = 2;
    word(17) = 6;
    word(18) = 2;
    word(36) = 1;
    for (const Case& c : cases) {
        std::string before = readFile(c.file);
        CgiResult r = call(c.body);
        EXPECT_EQ(r.status, 400) << c.service << ": " << c.body << "\n" << r.envelopeBody;
        EXPECT_NE(r.envelopeBody.find(c.fault), std::string::npos) << c.service << ": " << r.envelopeBody;
        EXPECT_EQ(readFile(c.file), before) << c.service << ": " << c.body;
        EXPECT_EQ(cameraCalls(), "") << c.service << ": " << c.body;
    }
}

}  // namespace
