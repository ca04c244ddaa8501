// The ONVIF mode's service list, service capabilities and the device IO,
// imaging and PTZ operations each service answers under its own namespace.
#include "tests/fixture.h"

namespace {

class OnvifServices : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        std::string conf = readFile("tmp/onvif/onvif.conf");
        size_t at = conf.find("Conformance.Mode=legacy");
        ASSERT_NE(at, std::string::npos);
        conf.replace(at, strlen("Conformance.Mode=legacy"), "Conformance.Mode=onvif");
        writeFile("tmp/onvif/onvif.conf", conf);
    }
    struct Case {
        std::string body;
        int status;
        std::vector<std::string> present, absent;
    };
    void expectCases(const std::vector<Case>& cases);
};

void OnvifServices::expectCases(const std::vector<Case>& cases)
{
    for (const Case& c : cases) {
        CgiResult r = call(c.body);
        EXPECT_EQ(r.status, c.status) << c.body << "\n" << r.body;
        for (const std::string& p : c.present)
            EXPECT_NE(r.envelopeBody.find(p), std::string::npos) << c.body << "\nmissing " << p << "\n" << r.envelopeBody;
        for (const std::string& a : c.absent)
            EXPECT_EQ(r.envelopeBody.find(a), std::string::npos) << c.body << "\nunexpected " << a << "\n" << r.envelopeBody;
    }
}

const std::string NOT_SUPPORTED = "<SOAP-ENV:Value>SOAP-ENV:Receiver</SOAP-ENV:Value><SOAP-ENV:Subcode>"
                                  "<SOAP-ENV:Value>ter:ActionNotSupported</SOAP-ENV:Value>";

TEST_F(OnvifServices, ServicesAndTheirCapabilities)
{
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD;
    word(PAN_TILT_WORD) = PAN_TILT_RS485;
    expectCases({
        {"<tds:GetServices><tds:IncludeCapability>false</tds:IncludeCapability></tds:GetServices>", 200,
         {"<tds:Namespace>http://www.onvif.org/ver10/deviceIO/wsdl</tds:Namespace>",
          "<tds:Namespace>http://www.onvif.org/ver20/ptz/wsdl</tds:Namespace>",
          "<tds:Namespace>http://www.onvif.org/ver20/imaging/wsdl</tds:Namespace>",
          "/onvif/device_service</tds:XAddr>"},
         {"Capabilities"}},
        {"<tds:GetServices><tds:IncludeCapability>true</tds:IncludeCapability></tds:GetServices>", 200,
         {"<tds:Capabilities><trt:Capabilities SnapshotUri=\"true\"", "WSPullPointSupport=\"true\"",
          "DigitalInputs=\"4\""}, {}},
        {"<trt:GetServiceCapabilities/>", 200, {"<trt:GetServiceCapabilitiesResponse><trt:Capabilities SnapshotUri=\"true\"",
                                                "RTP_RTSP_TCP=\"true\"", "MaximumNumberOfProfiles=\"10\""}, {}},
        {"<tev:GetServiceCapabilities/>", 200, {"MaxPullPoints=\"5\"", "WSPullPointSupport=\"true\""}, {}},
        {"<tmd:GetServiceCapabilities/>", 200, {"VideoSources=\"1\"", "RelayOutputs=\"1\"", "DigitalInputs=\"4\""}, {}},
        {"<tds:GetServiceCapabilities/>", 200, {"<tds:Capabilities><tds:Network", "UsernameToken=\"true\""}, {}},
        {"<tptz:GetServiceCapabilities/>", 200, {"<tptz:Capabilities", "StatusPosition=\"true\""}, {}},
        {"<timg:GetServiceCapabilities/>", 200, {"<timg:GetServiceCapabilitiesResponse><timg:Capabilities"}, {}},
        {"<tds:GetCapabilities><tds:Category>All</tds:Category></tds:GetCapabilities>", 200,
         {"<tt:WSPullPointSupport>true</tt:WSPullPointSupport>", "<tt:Extension><tt:DeviceIO><tt:XAddr>"}, {}},
    });
}

TEST_F(OnvifServices, ServicesTheModelLacksAreNotListed)
{
    word(MODEL_CODE_WORD) = MODEL_NO_IMAGING;
    word(PAN_TILT_WORD) = PAN_TILT_NONE;
    word(ZOOM_WORD) = LENS_NONE;
    expectCases({
        {"<tds:GetServices><tds:IncludeCapability>false</tds:IncludeCapability></tds:GetServices>", 200,
         {"ver10/deviceIO/wsdl"}, {"ver20/imaging/wsdl", "ver20/ptz/wsdl"}},
        {"<tds:GetCapabilities/>", 200, {"<tt:Media>"}, {"<tt:Imaging>", "<tt:PTZ>", "<tt:Analytics>"}},
    });
}

TEST_F(OnvifServices, EachServiceAnswersItsOwnOperations)
{
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD;
    word(PAN_TILT_WORD) = PAN_TILT_RS485;
    expectCases({
        {"<tmd:GetDigitalInputs/>", 200, {"<tmd:DigitalInputs token=\"IO_Input4\"/>"}, {"IO_Input5"}},
        {"<tmd:GetDigitalInputConfigurationOptions><tmd:Token>IO_Input2</tmd:Token>"
         "</tmd:GetDigitalInputConfigurationOptions>", 200, {"<tmd:IdleState>closed</tmd:IdleState>"}, {}},
        {"<tmd:GetDigitalInputConfigurationOptions><tmd:Token>IO_Input9</tmd:Token>"
         "</tmd:GetDigitalInputConfigurationOptions>", 400, {"ter:NoConfig"}, {}},
        {"<tmd:SetDigitalInputConfigurations><tmd:DigitalInputs token=\"IO_Input2\" IdleState=\"closed\"/>"
         "<tmd:DigitalInputs token=\"IO_Input3\" IdleState=\"open\"/></tmd:SetDigitalInputConfigurations>", 200,
         {"<tmd:SetDigitalInputConfigurationsResponse>"}, {}},
        {"<tmd:SetDigitalInputConfigurations><tmd:DigitalInputs token=\"IO_Input2\" IdleState=\"open\"/>"
         "<tmd:DigitalInputs token=\"IO_Input7\" IdleState=\"open\"/></tmd:SetDigitalInputConfigurations>", 400,
         {"ter:NoConfig"}, {}},
        {"<tmd:GetDigitalInputs/>", 200,
         {"<tmd:DigitalInputs token=\"IO_Input1\"/><tmd:DigitalInputs token=\"IO_Input2\" IdleState=\"closed\"/>"
          "<tmd:DigitalInputs token=\"IO_Input3\" IdleState=\"open\"/>"}, {}},
        {"<tmd:GetVideoSources/>", 200, {"<tmd:GetVideoSourcesResponse><tmd:Token>"}, {"trt:"}},
        {"<tmd:GetSerialPorts/>", 500, {NOT_SUPPORTED}, {}},
        {"<tmd:SetRelayOutputSettings><tmd:RelayOutput token=\"IO_Output1\"><tt:Properties><tt:Mode>Bistable</tt:Mode>"
         "<tt:DelayTime>PT1S</tt:DelayTime><tt:IdleState>closed</tt:IdleState></tt:Properties></tmd:RelayOutput>"
         "</tmd:SetRelayOutputSettings>", 200, {"<tmd:SetRelayOutputSettingsResponse>"}, {}},
        {"<tmd:SetRelayOutputSettings><tmd:RelayOutput token=\"IO_Output9\"><tt:Properties><tt:Mode>Bistable</tt:Mode>"
         "<tt:DelayTime>PT1S</tt:DelayTime><tt:IdleState>closed</tt:IdleState></tt:Properties></tmd:RelayOutput>"
         "</tmd:SetRelayOutputSettings>", 400, {"ter:RelayToken"}, {}},
        {"<timg:Stop><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken></timg:Stop>", 200,
         {"<timg:StopResponse>"}, {}},
        {"<timg:GetStatus><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken></timg:GetStatus>", 200,
         {"<timg:GetStatusResponse>"}, {}},
        {"<timg:GetStatus><timg:VideoSourceToken>VideoSrcConfig1</timg:VideoSourceToken></timg:GetStatus>", 400,
         {"ter:InvalidArgVal"}, {}},
        {"<tptz:SendAuxiliaryCommand><tptz:ProfileToken>Profile1</tptz:ProfileToken>"
         "<tptz:AuxiliaryData>tt:Wiper|On</tptz:AuxiliaryData></tptz:SendAuxiliaryCommand>", 400,
         {"ter:AuxiliaryDataNotSupported"}, {}},
    });
}

TEST_F(OnvifServices, ProfilesStopAtTheReportedMaximum)
{
    std::string index;
    for (int k = 1; k <= 9; ++k)
        index += "profile filename=Profile" + std::to_string(k) + ".profile\n";
    writeFile("tmp/onvif/Profiles.conf", index);
    const std::string create = "<trt:CreateProfile><trt:Name>extra</trt:Name></trt:CreateProfile>";
    expectCases({
        {create, 200, {"<trt:Profile token=\"Profile10\""}, {}},
        {create, 400, {"ter:MaxNVTProfiles"}, {}},
    });
}

// The camera's own mode keeps answering these with the generic fault.
TEST_F(CameraTest, LegacyModeServesNoneOfThem)
{
    for (const char* body : {"<tds:GetServices><tds:IncludeCapability>true</tds:IncludeCapability></tds:GetServices>",
                             "<trt:GetServiceCapabilities/>", "<tmd:GetDigitalInputs/>"}) {
        CgiResult r = call(body);
        EXPECT_EQ(r.status, 500) << body;
        EXPECT_EQ(r.envelopeBody.find("ActionNotSupported"), std::string::npos) << body;
    }
}

}  // namespace
