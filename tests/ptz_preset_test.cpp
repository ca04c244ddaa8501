// Presets and the home position on both preset stores, with names that
// reach the PTZ program whole and run nothing.
#include "tests/fixture.h"

#include <tinyxml.h>

namespace {

class Presets : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        useIntegratedDome();
        word(ZOOM_MODULE_WORD) = ZOOM_MODULE_1280;
    }
    CgiResult preset(const std::string& action, const std::string& inner = "")
    {
        return call("<tptz:" + action + "><tptz:ProfileToken>Profile1</tptz:ProfileToken>" + inner + "</tptz:" +
                    action + ">");
    }
    CgiResult named(const std::string& name) { return preset("SetPreset", "<tptz:PresetName>" + name + "</tptz:PresetName>"); }
    std::string takeCalls()
    {
        std::string calls = cameraCalls();
        removeFile("camera_calls.log");
        return calls;
    }
    const std::string PTZ = "/usr/apache/htdocs/cgi-bin/com/ptz.cgi ";
};

TEST_F(Presets, IntegratedStoreListing)
{
    writeFile("etc/dynamic/ptz.conf", "root.PTZ.PresetPos.P1.Pos=-179.000000,45.000000,1281\n"
                                      "root.PTZ.PresetPos.P1.Label=West\n"
                                      "root.PTZ.PresetPos.P4.Pos=270.000000,90.000000,0\n"
                                      "root.PTZ.PresetPos.P4.Label=R&D\n");
    CgiResult r = preset("GetPresets");
    TiXmlDocument doc;
    doc.Parse(r.body.c_str());
    EXPECT_FALSE(doc.Error()) << r.body;
    EXPECT_NE(r.envelopeBody.find("<tptz:Preset token=\"1\"><tt:Name>West</tt:Name><tt:PTZPosition><tt:PanTilt space="
                                  "\"http://www.onvif.org/ver10/tptz/PanTiltSpaces/PositionGenericSpace\" y=\"0.0\" "
                                  "x=\"-1.0\"></tt:PanTilt><tt:Zoom space=\"http://www.onvif.org/ver10/tptz/ZoomSpaces/"
                                  "PositionGenericSpace\" x=\"1.0\"></tt:Zoom>"), std::string::npos) << r.envelopeBody;
    EXPECT_NE(r.envelopeBody.find("<tt:Name>R&amp;D</tt:Name><tt:PTZPosition><tt:PanTilt space=\"http://www.onvif.org/"
                                  "ver10/tptz/PanTiltSpaces/PositionGenericSpace\" y=\"1.0\" x=\"-0.5\">"),
              std::string::npos);
}

TEST_F(Presets, NamesAreCheckedAndArriveWholeWithoutRunningAnything)
{
    struct Case { std::string name; int ok; };
    for (const Case& c : {Case{std::string(64, 'n'), 1}, Case{std::string(65, 'n'), 0}, Case{"", 1},
                          Case{"two words", 1}, Case{"a,b", 0}, Case{"a/b", 0}, Case{"Entrance", 0}}) {
        CgiResult r = named(c.name);
        EXPECT_EQ(r.status, c.ok ? 200 : 400) << c.name << r.envelopeBody;
    }
    EXPECT_NE(named("Entrance").envelopeBody.find("The requested name already exist for another preset."), std::string::npos);
    EXPECT_NE(named("a,b").envelopeBody.find("ter:InvalidPresetName"), std::string::npos);
    takeCalls();
    // "(" and "`" are refused names; the shell's other characters go through unexpanded.
    for (const std::string& name : {std::string("a&amp;touch x"), std::string("$(reboot)"), std::string("it's"),
                                    std::string("`touch y`"), std::string("$HOME ~ !x #%")}) {
        named(name);
    }
    EXPECT_EQ(takeCalls(), PTZ + "QUERY_STRING=setserverpresetname REMOTE_USER=Admin setserverpresetname=4,a&touch x\n" +
                               PTZ + "QUERY_STRING=setserverpresetname REMOTE_USER=Admin setserverpresetname=4,it's\n" +
                               PTZ + "QUERY_STRING=setserverpresetname REMOTE_USER=Admin setserverpresetname=4,$HOME ~ !x #%\n");
    EXPECT_FALSE(exists("x"));
    EXPECT_FALSE(exists("y"));
    EXPECT_FALSE(exists("usr/apache/htdocs/cgi-bin/com/x"));
}

TEST_F(Presets, TokensGotoRemoveAndHome)
{
    EXPECT_EQ(preset("SetPreset").envelopeBody, "<tptz:SetPresetResponse><tptz:PresetToken>4</tptz:PresetToken>"
                                               "</tptz:SetPresetResponse>");
    EXPECT_EQ(preset("SetPreset", "<tptz:PresetToken>2</tptz:PresetToken>").status, 200);  // overwrites
    EXPECT_NE(preset("SetPreset", "<tptz:PresetToken>x1</tptz:PresetToken>").envelopeBody
                  .find("The requested preset token must be integer."), std::string::npos);
    EXPECT_EQ(preset("GotoPreset", "<tptz:PresetToken>3</tptz:PresetToken>").status, 200);
    EXPECT_NE(preset("GotoPreset", "<tptz:PresetToken>9</tptz:PresetToken>").envelopeBody
                  .find("<SOAP-ENV:Text xml:lang=\"en\">The requested PresetToken does not exist.</SOAP-ENV:Text>"),
              std::string::npos);
    CgiResult remove = preset("RemovePreset", "<tptz:PresetToken>9</tptz:PresetToken>");
    EXPECT_NE(remove.envelopeBody.find("The requested PresetToken does not exist</SOAP-ENV:Text>"), std::string::npos);
    EXPECT_NE(remove.envelopeBody.find("<SOAP-ENV:Detail>The PresetToken, 9, does not exist</SOAP-ENV:Detail>"),
              std::string::npos);
    EXPECT_EQ(preset("RemovePreset", "<tptz:PresetToken>1</tptz:PresetToken>").status, 200);
    EXPECT_EQ(preset("SetHomePosition").status, 200);
    EXPECT_EQ(preset("GotoHomePosition").status, 200);
    EXPECT_EQ(takeCalls(), PTZ + "QUERY_STRING=setserverpresetno REMOTE_USER=Admin setserverpresetno=4\n" + PTZ +
                               "QUERY_STRING=setserverpresetno REMOTE_USER=Admin setserverpresetno=2\n" + PTZ +
                               "QUERY_STRING=gotoserverpresetno REMOTE_USER=Admin gotoserverpresetno=3\n" + PTZ +
                               "QUERY_STRING=removeserverpresetno REMOTE_USER=Admin removeserverpresetno=1\n"
                               "/usr/apache/htdocs/cgi-bin/com/ptzconfig.cgi QUERY_STRING=home REMOTE_USER=Admin home=yes\n" +
                               PTZ + "QUERY_STRING=move REMOTE_USER=Admin move=home\n");
}

TEST_F(Presets, Rs485StoreLimits)
{
    word(PAN_TILT_WORD) = PAN_TILT_RS485;
    word(ZOOM_WORD) = LENS_NONE;
    word(IO_LAYOUT_WORD) = IO_LAYOUT_BASIC;
    word(MODEL_CODE_WORD) = MODEL_WITHOUT_TAMPERING;
    std::string full;
    for (int i = 1; i <= 127; ++i)
        full += "root.preset.position" + std::to_string(i) + ".set=yes\n";
    writeFile("etc/sysconfig/presetlist.conf", full + "root.preset.position128.set=no\n");
    EXPECT_NE(preset("SetPreset").envelopeBody.find("Maximum number of Presets reached."), std::string::npos);
    EXPECT_EQ(preset("SetPreset", "<tptz:PresetToken>5</tptz:PresetToken>").status, 200);  // an existing slot
    word(MODEL_CODE_WORD) = MODEL_A5S_SDK310;
    CgiResult list = preset("GetPresets");
    EXPECT_EQ(list.envelopeBody, "<tptz:GetPresetsResponse><tptz:Preset token=\"1\"><tt:Name>Preset1</tt:Name>"
                                 "</tptz:Preset><tptz:Preset token=\"2\"><tt:Name>Preset2</tt:Name></tptz:Preset>"
                                 "</tptz:GetPresetsResponse>");
    EXPECT_EQ(preset("SetPreset").envelopeBody, "<tptz:SetPresetResponse><tptz:PresetToken>3</tptz:PresetToken>"
                                               "</tptz:SetPresetResponse>");
    takeCalls();
    EXPECT_EQ(preset("GotoHomePosition").status, 200);
    EXPECT_EQ(takeCalls(), PTZ + "QUERY_STRING= REMOTE_USER=Admin pan=0 tilt=0 zoom=0\n");
    word(IO_LAYOUT_WORD) = IO_LAYOUT_INPUTS_ONLY;
    EXPECT_NE(preset("GetPresets").envelopeBody.find("PTZ is not supported."), std::string::npos);
}

}  // namespace
