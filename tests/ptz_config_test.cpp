// PTZ nodes and configurations: listings by capability, options, changes
// and binding to profiles.
#include "tests/fixture.h"

#include <tinyxml.h>

namespace {

class PtzConfig : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        useIntegratedDome();
    }
    static void expectWellFormed(const CgiResult& r)
    {
        TiXmlDocument doc;
        doc.Parse(r.body.c_str());
        EXPECT_FALSE(doc.Error()) << doc.ErrorDesc() << "\n" << r.body;
    }
    CgiResult setSpeed(const std::string& x, const std::string& space)
    {
        return call("<tptz:SetConfiguration><tptz:PTZConfiguration token=\"PTZConfig1\"><tt:Name>Moved</tt:Name>"
                    "<tt:DefaultPTZSpeed><tt:PanTilt x=\"" + x + "\" y=\"0.25\" space=\"" + space + "\"/>"
                    "<tt:Zoom x=\"1\" space=\"http://www.onvif.org/ver10/tptz/ZoomSpaces/ZoomGenericSpeedSpace\"/>"
                    "</tt:DefaultPTZSpeed><tt:PanTiltLimits><tt:Range><tt:URI>http://www.onvif.org/ver10/tptz/"
                    "PanTiltSpaces/PositionGenericSpace</tt:URI><tt:XRange><tt:Min>-0.5</tt:Min><tt:Max>0.5</tt:Max>"
                    "</tt:XRange><tt:YRange><tt:Min>-1</tt:Min><tt:Max>1</tt:Max></tt:YRange></tt:Range>"
                    "</tt:PanTiltLimits></tptz:PTZConfiguration><tptz:ForcePersistence>true</tptz:ForcePersistence>"
                    "</tptz:SetConfiguration>");
    }
    const std::string CONF = "usr/apache/htdocs/onvif/PTZConfig1.PTZConf";
    const std::string PT_SPEED = "http://www.onvif.org/ver10/tptz/PanTiltSpaces/GenericSpeedSpace";
};

TEST_F(PtzConfig, FactoryListingsAreWellFormed)
{
    for (const char* action : {"<tptz:GetNodes/>", "<tptz:GetConfigurations/>",
                               "<tptz:GetNode><tptz:NodeToken>PTZNode1</tptz:NodeToken></tptz:GetNode>",
                               "<tptz:GetConfiguration><tptz:PTZConfigurationToken>PTZConfig1"
                               "</tptz:PTZConfigurationToken></tptz:GetConfiguration>",
                               "<tptz:GetConfigurationOptions><tptz:ConfigurationToken>PTZConfig1"
                               "</tptz:ConfigurationToken></tptz:GetConfigurationOptions>",
                               "<trt:GetProfiles/>"}) {
        CgiResult r = call(action);
        EXPECT_EQ(r.status, 200) << action;
        expectWellFormed(r);
    }
    const std::string nodes = call("<tptz:GetNodes/>").envelopeBody;
    EXPECT_NE(nodes.find("<tt:MaximumNumberOfPresets>255</tt:MaximumNumberOfPresets><tt:HomeSupported>true"),
              std::string::npos);
    EXPECT_EQ(nodes.find("AuxiliaryCommands"), std::string::npos);
    EXPECT_NE(call("<trt:GetProfiles/>").envelopeBody.find("<tt:PTZConfiguration xsi:type=\"tt:PTZConfiguration\" "
                                                          "token=\"PTZConfig1\"><tt:Name>PTZConfig1</tt:Name>"),
              std::string::npos);
}

TEST_F(PtzConfig, CapabilitiesDecideWhatIsListed)
{
    word(PAN_TILT_WORD) = PAN_TILT_NONE;
    word(ZOOM_WORD) = LENS_TEN_STEPS;
    CgiResult confs = call("<tptz:GetConfigurations/>");
    expectWellFormed(confs);
    EXPECT_NE(confs.envelopeBody.find("<tt:DefaultPTZSpeed><tt:Zoom space=\"http://www.onvif.org/ver10/tptz/ZoomSpaces/"
                                      "ZoomGenericSpeedSpace\" x=\"0.500000\"></tt:Zoom></tt:DefaultPTZSpeed>"),
              std::string::npos);
    EXPECT_EQ(confs.envelopeBody.find("PanTilt"), std::string::npos);
    CgiResult nodes = call("<tptz:GetNodes/>");
    expectWellFormed(nodes);
    EXPECT_EQ(nodes.envelopeBody.find("PanTilt"), std::string::npos);
    EXPECT_NE(nodes.envelopeBody.find("<tt:MaximumNumberOfPresets>0<"), std::string::npos);

    // An RS-485 head: presets by model code and the port switch.
    word(PAN_TILT_WORD) = PAN_TILT_RS485;
    word(IO_LAYOUT_WORD) = IO_LAYOUT_BASIC;
    struct Case { int model; const char* rs485; const char* presets; };
    for (const Case& c : {Case{MODEL_WITHOUT_TAMPERING, "root.RS485Control.Switch=1\n", ">127<"}, Case{MODEL_A5S_SDK310, "root.RS485Control.Switch=1\n", ">255<"},
                          Case{MODEL_WITHOUT_TAMPERING, "root.RS485Control.Switch=0\n", ">0<"}, Case{MODEL_NO_IMAGING, "root.RS485Control.Switch=1\n", ">0<"}}) {
        word(MODEL_CODE_WORD) = c.model;
        writeFile("etc/sysconfig/rs485protocol.conf", c.rs485);
        EXPECT_NE(call("<tptz:GetNodes/>").envelopeBody.find(std::string("<tt:MaximumNumberOfPresets") + c.presets),
                  std::string::npos) << c.model << c.rs485;
    }
    writeFile("usr/apache/htdocs/onvif/PTZConfig1.PTZConf", "Name=x\nUseCount=NONE\nNodeToken=PTZNode1\n");
    EXPECT_NE(call("<tptz:GetConfigurations/>").envelopeBody.find("<tt:UseCount></tt:UseCount>"), std::string::npos);

    word(PAN_TILT_WORD) = PAN_TILT_NONE;
    word(ZOOM_WORD) = LENS_NONE;
    struct Fault { const char* action; const char* text; };
    for (const Fault& f : {Fault{"<tptz:GetNodes/>", "<SOAP-ENV:Value>ter:PTZNotSupported</SOAP-ENV:Value></SOAP-ENV:Subcode>"
                                                   "</SOAP-ENV:Code><SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">PTZ is not supported.<"},
                           Fault{"<tptz:GetNode/>", "PTZ is not supported by the NVT."},
                           Fault{"<tptz:SetConfiguration/>", "ter:ActionNotSupported"}}) {
        CgiResult r = call(f.action);
        EXPECT_EQ(r.status, 400);
        EXPECT_NE(r.envelopeBody.find(f.text), std::string::npos) << f.action << r.envelopeBody;
    }
}

TEST_F(PtzConfig, SetConfigurationStoresSixDigitNumbersOrNothing)
{
    const std::string before = readFile(CONF);
    EXPECT_NE(setSpeed(std::string(32, '1') + "1", PT_SPEED).envelopeBody.find("ter:ConfigModify"), std::string::npos);
    EXPECT_NE(setSpeed("0.5", "http://www.onvif.org/ver10/tptz/PanTiltSpaces/SpeedSpaceDegrees").envelopeBody
                  .find("ter:ConfigModify"), std::string::npos);
    EXPECT_EQ(readFile(CONF), before);
    CgiResult ok = setSpeed("0.75", PT_SPEED);
    EXPECT_EQ(ok.envelopeBody, "<tptz:SetConfigurationResponse></tptz:SetConfigurationResponse>");
    const std::string after = readFile(CONF);
    for (const char* line : {"Name=Moved\n", "DefaultPTZSpeed.PanTilt.x=0.750000\n", "DefaultPTZSpeed.PanTilt.y=0.250000\n",
                             "DefaultPTZSpeed.Zoom.x=1.000000\n", "PanTiltLimits.Range.XRange.Min=-0.500000\n",
                             "PanTiltLimits.Range.XRange.Max=0.500000\n", "PanTiltLimits.Range.YRange.Min=-1.000000\n",
                             "ZoomLimits.Range.XRange.Max=1.000000\n"})
        EXPECT_NE(after.find(line), std::string::npos) << line << after;
    CgiResult unknown = call("<tptz:SetConfiguration><tptz:PTZConfiguration token=\"../../x\"/></tptz:SetConfiguration>");
    EXPECT_NE(unknown.envelopeBody.find("The configuration does not exist."), std::string::npos);
    CgiResult lineBreak = call("<tptz:SetConfiguration><tptz:PTZConfiguration token=\"PTZConfig1\"><tt:Name>a&#10;UseCount=9"
                               "</tt:Name></tptz:PTZConfiguration></tptz:SetConfiguration>");
    EXPECT_NE(lineBreak.envelopeBody.find("ter:ConfigModify"), std::string::npos);
    EXPECT_EQ(readFile(CONF), after);
}

TEST_F(PtzConfig, BindingAndTokensThatLeaveTheStore)
{
    auto bind = [&](const std::string& action, const std::string& profile, const std::string& config) {
        return call("<trt:" + action + "><trt:ProfileToken>" + profile + "</trt:ProfileToken>" +
                    (config.empty() ? "" : "<trt:ConfigurationToken>" + config + "</trt:ConfigurationToken>") +
                    "</trt:" + action + ">");
    };
    call("<trt:CreateProfile><trt:Name>p</trt:Name><trt:Token>Mine</trt:Token></trt:CreateProfile>");
    EXPECT_NE(bind("AddPTZConfiguration", "Mine", "Nope").envelopeBody.find("PTZConfiguration does not exist"),
              std::string::npos);
    EXPECT_NE(bind("AddPTZConfiguration", "Nope", "PTZConfig1").envelopeBody.find("ter:NoProfile"), std::string::npos);
    EXPECT_EQ(bind("AddPTZConfiguration", "Mine", "PTZConfig1").status, 200);
    EXPECT_NE(readFile("tmp/onvif/Mine.profile").find("PTZ=PTZConfig1\n"), std::string::npos);
    EXPECT_EQ(bind("RemovePTZConfiguration", "Mine", "").status, 200);
    CgiResult twice = bind("RemovePTZConfiguration", "Mine", "");
    EXPECT_NE(twice.envelopeBody.find("There exists no PTZ configuration in the media profile"), std::string::npos);

    writeFile("etc/passwd.Node", "Name=secret\n");
    writeFile("etc/x.PTZConf", "Name=secret\n");
    CgiResult node = call("<tptz:GetNode><tptz:NodeToken>../../../etc/passwd</tptz:NodeToken></tptz:GetNode>");
    EXPECT_NE(node.envelopeBody.find("ter:NoEntity"), std::string::npos);
    EXPECT_EQ(node.envelopeBody.find("secret"), std::string::npos);
    CgiResult conf = call("<tptz:GetConfiguration><tptz:PTZConfigurationToken>../../../etc/x"
                          "</tptz:PTZConfigurationToken></tptz:GetConfiguration>");
    EXPECT_NE(conf.envelopeBody.find("The requested configuration ../../../etc/x does not exist."), std::string::npos);
}

}  // namespace
