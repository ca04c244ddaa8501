// The imaging settings report and the relay outputs, end to end.
#include "tests/fixture.h"

#include <tinyxml.h>

namespace {

class Imaging : public CameraTest {
protected:
    CgiResult report(const std::string& token = "VideoSource1")
    {
        return call("<timg:GetImagingSettings><timg:VideoSourceToken>" + token +
                    "</timg:VideoSourceToken></timg:GetImagingSettings>");
    }
    void settings(const std::string& lines) { writeFile("tmp/onvif/VideoSource1.VSource", lines); }
};

TEST_F(Imaging, FactoryReportIsWellFormed)
{
    word(GAIN_WORD) = 6;
    word(IRIS_WORD) = 2;
    word(SHUTTER_WORD) = 333;
    CgiResult r = report();
    EXPECT_EQ(r.status, 200);
    TiXmlDocument doc;
    doc.Parse(r.body.c_str());
    EXPECT_FALSE(doc.Error()) << doc.ErrorDesc() << r.body;
    const std::string& b = r.envelopeBody;
    EXPECT_NE(b.find("<tt:Window><tt:bottom>1</tt:bottom><tt:top>0</tt:top><tt:right>1</tt:right><tt:left>0"
                     "</tt:left></tt:Window>"), std::string::npos);
    EXPECT_NE(b.find("<tt:ExposureTime>0.033300</tt:ExposureTime><tt:Gain>6.000</tt:Gain><tt:Iris>2.000</tt:Iris>"
                     "</tt:Exposure>"), std::string::npos) << b;
}

TEST_F(Imaging, ExposureGainIrisAndGroupRules)
{
    struct Case { int model, panTilt, lens, w36, w38, w42; std::string lines; std::string expect; bool present; };
    for (const Case& c : {
             Case{MODEL_WITHOUT_TAMPERING, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, 0, 0, 0, "Exposure.ExposureTime=333\n", "<tt:ExposureTime>0.033300</tt:ExposureTime>", true},
             Case{MODEL_EXPOSURE_AS_STORED, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, 0, 0, 0, "Exposure.ExposureTime=333\n", "<tt:ExposureTime>333.000000</tt:ExposureTime>", true},
             Case{MODEL_WITHOUT_TAMPERING, PAN_TILT_INTEGRATED, LENS_DOME, 0, 0, 0, "Exposure.ExposureTime=333\n", "<tt:ExposureTime>333.000000</tt:ExposureTime>", true},
             Case{MODEL_WITHOUT_TAMPERING, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, 0, 12, 0, "Exposure.Gain=NONE\n", "<tt:Gain>12.000</tt:Gain>", true},
             Case{MODEL_WITHOUT_TAMPERING, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, 0, 0, 0, "Exposure.Gain=abc\n", "<tt:Gain>0.000</tt:Gain>", true},
             Case{MODEL_WITHOUT_TAMPERING, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, -1, 0, 0, "Exposure.Iris=NONE\n", "Iris", false},
             Case{MODEL_WITHOUT_TAMPERING, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, -1, 0, 0, "Exposure.Iris=NONE\n", "</tt:Exposure>", false},
             Case{MODEL_WITHOUT_TAMPERING, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, 0, 0, 0, "WhiteBalance.CbGain=NONE\n", "<timg:ImagingSettings></tt:WhiteBalance>", true},
             Case{MODEL_WITHOUT_TAMPERING, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, 0, 0, -1, "WhiteBalance.CbGain=NONE\n", "WhiteBalance", false},
             Case{MODEL_WITHOUT_TAMPERING, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, 0, 0, 0, "Focus.FarLimit=NONE\n", "Focus", false},
             Case{MODEL_WITHOUT_TAMPERING, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, 0, 0, 0, "Brightness=" + std::string(400, '7') + "Contrast=9\n", "Contrast", false},
         }) {
        word(MODEL_CODE_WORD) = c.model;
        word(PAN_TILT_WORD) = c.panTilt;
        word(ZOOM_WORD) = c.lens;
        word(IRIS_PRESENT_WORD) = c.w36;
        word(GAIN_WORD) = c.w38;
        word(WHITE_BALANCE_WORD) = c.w42;
        settings(c.lines);
        CgiResult r = report();
        EXPECT_EQ(r.envelopeBody.find(c.expect) != std::string::npos, c.present) << c.lines << r.envelopeBody;
    }
}

TEST_F(Imaging, NoImagingModelAndUnknownSources)
{
    word(MODEL_CODE_WORD) = MODEL_NO_IMAGING;
    EXPECT_EQ(report().envelopeBody,
              "<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Receiver</SOAP-ENV:Value><SOAP-ENV:Subcode>"
              "<SOAP-ENV:Value>ter:ActionNotSupported </SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>"
              "ter:NoImagingForSource</SOAP-ENV:Value></SOAP-ENV:Subcode></SOAP-ENV:Subcode></SOAP-ENV:Code>"
              "<SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">The requested VideoSource does not support imaging "
              "settings.</SOAP-ENV:Text></SOAP-ENV:Reason><SOAP-ENV:Detail>The requested VideoSource does not "
              "support imaging settings.</SOAP-ENV:Detail></SOAP-ENV:Fault>");
    word(MODEL_CODE_WORD) = MODEL_A5S_SDK310;
    writeFile("tmp/x.VSource", "Brightness=1\n");
    for (const char* token : {"Nope", "../x", "../../tmp/x"}) {
        CgiResult r = report(token);
        EXPECT_EQ(r.status, 400);
        EXPECT_NE(r.envelopeBody.find("The requested VideoSource does not exist."), std::string::npos) << token;
    }
}

class Relays : public CameraTest {
protected:
    CgiResult settings(const std::string& token, const std::string& mode, const std::string& delay,
                       const std::string& idle)
    {
        return call("<tds:SetRelayOutputSettings><tds:RelayOutputToken>" + token + "</tds:RelayOutputToken>"
                    "<tds:Properties><tt:Mode>" + mode + "</tt:Mode><tt:DelayTime>" + delay + "</tt:DelayTime>"
                    "<tt:IdleState>" + idle + "</tt:IdleState></tds:Properties></tds:SetRelayOutputSettings>");
    }
    CgiResult state(const std::string& token, const std::string& logical)
    {
        return call("<tds:SetRelayOutputState><tds:RelayOutputToken>" + token + "</tds:RelayOutputToken>"
                    "<tds:LogicalState>" + logical + "</tds:LogicalState></tds:SetRelayOutputState>");
    }
    void expectCopiesEqual(int n)
    {
        std::string name = "IO_Output" + std::to_string(n) + ".IOConf";
        EXPECT_EQ(readFile("tmp/onvif/" + name), readFile("usr/apache/htdocs/onvif/" + name));
    }
};

TEST_F(Relays, ListingAndOptions)
{
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD_TWO_RELAYS;
    CgiResult list = call("<tds:GetRelayOutputs/>");
    EXPECT_NE(list.envelopeBody.find("<tds:RelayOutputs token=\"IO_Output2\"><tt:Properties><tt:Mode>Bistable"
                                     "</tt:Mode><tt:DelayTime>PT5S</tt:DelayTime><tt:IdleState>open</tt:IdleState>"
                                     "</tt:Properties></tds:RelayOutputs></tds:GetRelayOutputsResponse>"),
              std::string::npos);
    CgiResult options = call("<tmd:GetRelayOutputOptions/>");
    EXPECT_NE(options.envelopeBody.find("token=\"IO_Output2\""), std::string::npos);
    EXPECT_EQ(options.envelopeBody.find("IO_Output1"), std::string::npos);
    CgiResult unknown = call("<tmd:GetRelayOutputOptions><tmd:RelayOutputToken>IO_Output9</tmd:RelayOutputToken>"
                             "</tmd:GetRelayOutputOptions>");
    EXPECT_EQ(unknown.envelopeBody,
              "<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Sender</SOAP-ENV:Value><SOAP-ENV:Subcode>"
              "<SOAP-ENV:Value>ter:InvalidArgVal</SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>ter:RelayToken"
              "</SOAP-ENV:Value></SOAP-ENV:Subcode></SOAP-ENV:Subcode></SOAP-ENV:Code><SOAP-ENV:Reason>"
              "<SOAP-ENV:Text xml:lang=\"en\">Unknown relay token reference.</SOAP-ENV:Text></SOAP-ENV:Reason>"
              "<SOAP-ENV:Detail>Unknown relay token IO_Output9 reference.</SOAP-ENV:Detail></SOAP-ENV:Fault>");
}

TEST_F(Relays, SettingsChecksFilesCommandsAndWords)
{
    word(IO_LAYOUT_WORD) = IO_LAYOUT_BASIC;
    word(WEB_USER_WORD) = WEB_USER_ROOT;
    EXPECT_NE(settings("IO_Output1", "Monostable", "PT601S", "open").envelopeBody.find("ter:ModeError"),
              std::string::npos);
    EXPECT_NE(settings("IO_Output1", "Bistable", "PT5S&#10;IdleState=x", "open").envelopeBody.find("ter:ModeError"),
              std::string::npos);
    EXPECT_EQ(readFile("tmp/onvif/IO_Output1.IOConf").find("PT601S"), std::string::npos);
    writeFile("etc/sysconfig/outputs.conf", "root.Output.O0.Active=closed\nroot.Output.O1.Active=open\n");
    EXPECT_EQ(settings("IO_Output1", "Astable", "PT601S", "closed").status, 200);
    EXPECT_EQ(readFile("tmp/onvif/IO_Output1.IOConf"),
              "token=IO_Output1\nRelayMode=Bistable\nDelayTime=PT601S\nIdleState=closed\nRelayLogicalState=inactive\n");
    expectCopiesEqual(1);
    EXPECT_EQ(word(IDLE_STATE_WORD_1), 0);
    EXPECT_EQ(word(IDLE_STATE_WORD_1 + 1), 1);
    EXPECT_EQ(cameraCalls(), "/usr/apache/htdocs/cgi-bin/admin/param.cgi "
                             "QUERY_STRING=action=update&Output.O0.Active=closed REMOTE_USER=root isOnvif=1\n");

    // On a PTZ layout the camera's own rules keep the idle state; variant 32 refuses changing it.
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD_TWO_RELAYS;
    word(VARIANT_CODE) = VARIANT_VENDOR_TOPICS;
    EXPECT_NE(settings("IO_Output2", "Bistable", "PT1S", "open").envelopeBody.find("PTZ can't set IdleState by the device."),
              std::string::npos);
    word(VARIANT_CODE) = VARIANT_VANTOR;
    removeFile("camera_calls.log");
    EXPECT_EQ(settings("IO_Output2", "Monostable", "PT10S", "open").status, 200);
    EXPECT_FALSE(exists("camera_calls.log"));
    expectCopiesEqual(2);
}

TEST_F(Relays, StateSwitchesTheOutputProgram)
{
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD_TWO_RELAYS;
    word(VARIANT_CODE) = VARIANT_VANTOR;
    word(WEB_USER_WORD) = WEB_USER_ADMIN;
    EXPECT_EQ(state("IO_Output2", "active").status, 200);
    EXPECT_EQ(word(LOGICAL_STATE_WORD_1 + 1), 1);
    EXPECT_EQ(state("IO_Output1", "inactive").status, 200);
    EXPECT_EQ(word(LOGICAL_STATE_WORD_1), 0);
    EXPECT_EQ(cameraCalls(), "/usr/apache/htdocs/vantor-cgi/io/output.cgi REMOTE_USER=admin action=2:/ isOnvif=1\n"
                             "/usr/apache/htdocs/vantor-cgi/io/output.cgi REMOTE_USER=admin action=1:\\ isOnvif=1\n");
    EXPECT_NE(readFile("tmp/onvif/IO_Output2.IOConf").find("RelayLogicalState=active\n"), std::string::npos);
    expectCopiesEqual(2);
    EXPECT_EQ(state("../../etc/passwd", "active").status, 400);
    word(IO_LAYOUT_WORD) = IO_LAYOUT_NONE;
    EXPECT_EQ(state("IO_Output1", "active").status, 400);
}

}  // namespace
