// The imaging options, the imaging setter and the focus and iris moves, end
// to end: what each answers, what it writes and what it tells the camera.
#include "tests/fixture.h"

#include <stdio.h>
#include <unistd.h>
#include <vector>

namespace {

const char* const SOURCE_FILE = "tmp/onvif/VideoSource1.VSource";
const std::string PARAM = "/usr/apache/htdocs/cgi-bin/admin/param.cgi QUERY_STRING=action=update";
const std::string PTZ = "/usr/apache/htdocs/cgi-bin/com/ptz.cgi QUERY_STRING=";

class ImagingSetter : public CameraTest {
protected:
    // The factory camera: the A5s dome with iris, WDR, BLC and white balance.
    void SetUp() override
    {
        CameraTest::SetUp();
        factorySettings = readFile(SOURCE_FILE);
        word(MODEL_CODE_WORD) = MODEL_A5S_SDK310;
        word(PAN_TILT_WORD) = PAN_TILT_INTEGRATED;
        word(ZOOM_WORD) = LENS_DOME;
        word(IRIS_PRESENT_WORD) = 1;
        word(WDR_WORD) = 0;
        word(BACKLIGHT_WORD) = 0;
        word(WHITE_BALANCE_WORD) = 0;
    }
    CgiResult imagingCall(const std::string& action, const std::string& inner, const std::string& token = "VideoSource1")
    {
        CgiResult r = call("<timg:" + action + "><timg:VideoSourceToken>" + token + "</timg:VideoSourceToken>" + inner +
                           "</timg:" + action + ">");
        return r;
    }
    CgiResult set(const std::string& settings, const std::string& token = "VideoSource1")
    {
        return imagingCall("SetImagingSettings", "<timg:ImagingSettings>" + settings + "</timg:ImagingSettings>", token);
    }
    CgiResult move(const std::string& action, const std::string& group, const std::string& inner)
    {
        return imagingCall(action, "<timg:" + group + ">" + inner + "</timg:" + group + ">");
    }
    std::string takeCalls()
    {
        std::string calls = cameraCalls();
        removeFile("camera_calls.log");
        return calls;
    }
    // The factory settings file with the given lines in place of the factory's.
    std::string factoryWith(const std::vector<std::string>& lines) const
    {
        std::string s = factorySettings;
        for (const std::string& line : lines) {
            std::string key = line.substr(0, line.find('=') + 1);
            size_t at = s.find("\n" + key);
            at = s.compare(0, key.size(), key) == 0 ? 0 : at + 1;
            s.replace(at, s.find('\n', at) - at, line);
        }
        return s;
    }
    static bool has(const CgiResult& r, const std::string& text) { return r.envelopeBody.find(text) != std::string::npos; }

    std::string factorySettings;
};

TEST_F(ImagingSetter, OptionsOfTheFactoryCamera)
{
    CgiResult r = imagingCall("GetOptions", "");
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.envelopeBody,
              "<timg:GetOptionsResponse><timg:ImagingOptions>"
              "<tt:BacklightCompensation><tt:Mode>OFF</tt:Mode><tt:Mode>ON</tt:Mode>"
              "<tt:Level><tt:Min>0</tt:Min><tt:Max>100</tt:Max></tt:Level></tt:BacklightCompensation>"
              "<tt:Brightness><tt:Min>0</tt:Min><tt:Max>100</tt:Max></tt:Brightness>"
              "<tt:ColorSaturation><tt:Min>0</tt:Min><tt:Max>100</tt:Max></tt:ColorSaturation>"
              "<tt:Contrast><tt:Min>0</tt:Min><tt:Max>100</tt:Max></tt:Contrast>"
              "<tt:Exposure><tt:Mode>AUTO</tt:Mode><tt:Mode>MANUAL</tt:Mode>"
              "<tt:Priority>LowNoise</tt:Priority><tt:Priority>FrameRate</tt:Priority>"
              "<tt:MinExposureTime><tt:Min>0.0001</tt:Min><tt:Max>0.033333</tt:Max></tt:MinExposureTime>"
              "<tt:MaxExposureTime><tt:Min>0.0001</tt:Min><tt:Max>0.033333</tt:Max></tt:MaxExposureTime>"
              "<tt:MinGain><tt:Min>0</tt:Min><tt:Max>36</tt:Max></tt:MinGain>"
              "<tt:MaxGain><tt:Min>0</tt:Min><tt:Max>36</tt:Max></tt:MaxGain>"
              "<tt:MinIris><tt:Min>0</tt:Min><tt:Max>10</tt:Max></tt:MinIris>"
              "<tt:MaxIris><tt:Min>0</tt:Min><tt:Max>10</tt:Max></tt:MaxIris>"
              "<tt:ExposureTime><tt:Min>0.0001</tt:Min><tt:Max>0.033333</tt:Max></tt:ExposureTime>"
              "<tt:Gain><tt:Min>0</tt:Min><tt:Max>36</tt:Max></tt:Gain>"
              "<tt:Iris><tt:Min>0</tt:Min><tt:Max>10</tt:Max></tt:Iris></tt:Exposure>"
              "<tt:Focus><tt:AutoFocusModes>AUTO</tt:AutoFocusModes><tt:AutoFocusModes>MANUAL</tt:AutoFocusModes>"
              "<tt:DefaultSpeed><tt:Min>0</tt:Min><tt:Max>1</tt:Max></tt:DefaultSpeed>"
              "<tt:NearLimit><tt:Min>0</tt:Min><tt:Max>100</tt:Max></tt:NearLimit>"
              "<tt:FarLimit><tt:Min>0</tt:Min><tt:Max>1000</tt:Max></tt:FarLimit></tt:Focus>"
              "<tt:IrCutFilterModes>ON</tt:IrCutFilterModes><tt:IrCutFilterModes>OFF</tt:IrCutFilterModes>"
              "<tt:IrCutFilterModes>AUTO</tt:IrCutFilterModes>"
              "<tt:Sharpness><tt:Min>0</tt:Min><tt:Max>100</tt:Max></tt:Sharpness>"
              "<tt:WideDynamicRange><tt:Mode>OFF</tt:Mode><tt:Mode>ON</tt:Mode>"
              "<tt:Level><tt:Min>0</tt:Min><tt:Max>100</tt:Max></tt:Level></tt:WideDynamicRange>"
              "<tt:WhiteBalance><tt:Mode>AUTO</tt:Mode><tt:Mode>MANUAL</tt:Mode>"
              "<tt:YrGain><tt:Min>0</tt:Min><tt:Max>255</tt:Max></tt:YrGain>"
              "<tt:YbGain><tt:Min>0</tt:Min><tt:Max>255</tt:Max></tt:YbGain></tt:WhiteBalance>"
              "</timg:ImagingOptions></timg:GetOptionsResponse>");
    EXPECT_FALSE(exists("camera_calls.log"));
}

TEST_F(ImagingSetter, OptionsFollowThePresenceAndLensWords)
{
    struct Case { int w17, w36, w39, w41, w42; std::vector<std::string> present, absent; };
    for (const Case& c : {
             Case{LENS_DOME, -1, 0, 0, 0, {"<tt:WideDynamicRange>", "<tt:Gain>"}, {"Iris>"}},
             Case{LENS_DOME, 1, -1, 0, 0, {"<tt:Iris>", "<tt:MinIris>"}, {"WideDynamicRange"}},
             Case{LENS_DOME, -1, -1, -1, -1, {"<tt:Exposure>", "<tt:Focus>"},
                  {"Iris>", "WideDynamicRange", "BacklightCompensation", "WhiteBalance"}},
             Case{LENS_NONE, 1, 0, 0, 0, {"<tt:Iris>", "<tt:WhiteBalance>"}, {"Focus"}},
         }) {
        word(ZOOM_WORD) = c.w17;
        word(IRIS_PRESENT_WORD) = c.w36;
        word(WDR_WORD) = c.w39;
        word(BACKLIGHT_WORD) = c.w41;
        word(WHITE_BALANCE_WORD) = c.w42;
        CgiResult r = imagingCall("GetOptions", "");
        EXPECT_EQ(r.status, 200);
        for (const std::string& s : c.present)
            EXPECT_TRUE(has(r, s)) << s << " in " << r.envelopeBody;
        for (const std::string& s : c.absent)
            EXPECT_FALSE(has(r, s)) << s << " in " << r.envelopeBody;
    }
}

TEST_F(ImagingSetter, ModelsWithoutATableOfTheirOwnTakeTheDefaultOne)
{
    word(MODEL_CODE_WORD) = MODEL_WITHOUT_TAMPERING;
    CgiResult options = imagingCall("GetOptions", "");
    EXPECT_TRUE(has(options, "<tt:Brightness><tt:Min>0</tt:Min><tt:Max>100</tt:Max></tt:Brightness>"));
    EXPECT_FALSE(has(options, "Focus"));
    EXPECT_FALSE(has(options, "Iris"));
    EXPECT_EQ(imagingCall("GetMoveOptions", "").envelopeBody,
              "<timg:GetMoveOptionsResponse><timg:MoveOptions></timg:MoveOptions></timg:GetMoveOptionsResponse>");

    // A model's own table is data: a new one changes the answers without new code.
    writeFile("usr/apache/htdocs/onvif/imaging/Model7.ImagingOptions",
              "# a test model\nBrightness=-5 5\nExposure.Mode=AUTO\n");
    word(MODEL_CODE_WORD) = MODEL_WITHOUT_TABLES;
    EXPECT_EQ(imagingCall("GetOptions", "").envelopeBody,
              "<timg:GetOptionsResponse><timg:ImagingOptions>"
              "<tt:Brightness><tt:Min>-5</tt:Min><tt:Max>5</tt:Max></tt:Brightness>"
              "<tt:Exposure><tt:Mode>AUTO</tt:Mode></tt:Exposure>"
              "</timg:ImagingOptions></timg:GetOptionsResponse>");
    EXPECT_EQ(set("<tt:Brightness>-4.5</tt:Brightness>").status, 200);
    EXPECT_EQ(set("<tt:Brightness>6</tt:Brightness>").status, 400);
    EXPECT_EQ(set("<tt:Contrast>6</tt:Contrast>").status, 400);
    EXPECT_EQ(readFile(SOURCE_FILE), factoryWith({"Brightness=-4.5"}));
}

TEST_F(ImagingSetter, PartialSettingsChangeExactlyTheirKeys)
{
    struct Case { std::string settings; std::vector<std::string> lines; std::string query; };
    for (const Case& c : {
             Case{"<tt:IrCutFilter>OFF</tt:IrCutFilter>", {"IrCutFilter=OFF"}, "&Image.IrCutFilter=OFF"},
             Case{"<tt:Focus><tt:AutoFocusMode>MANUAL</tt:AutoFocusMode></tt:Focus>", {"Focus.AutoFocusMode=MANUAL"},
                  "&Image.FocusMode=MANUAL"},
             Case{"<tt:Brightness>60.50</tt:Brightness>", {"Brightness=60.5"}, "&Image.Brightness=60.5"},
             Case{"<tt:IrCutFilter>on</tt:IrCutFilter>", {"IrCutFilter=ON"}, "&Image.IrCutFilter=ON"},
             Case{"<tt:WhiteBalance><tt:Mode>MANUAL</tt:Mode><tt:CbGain>12</tt:CbGain></tt:WhiteBalance>",
                  {"WhiteBalance.Mode=MANUAL", "WhiteBalance.CbGain=12"},
                  "&Image.WhiteBalance=MANUAL&Image.WhiteBalanceCbGain=12"},
             Case{"<tt:BacklightCompensation><tt:Mode>ON</tt:Mode></tt:BacklightCompensation>"
                  "<tt:WideDynamicRange><tt:Mode>ON</tt:Mode><tt:Level>30</tt:Level></tt:WideDynamicRange>",
                  {"BacklightCompensation.Mode=ON", "WideDynamicRange.Mode=ON", "WideDynamicRange.Level=30"},
                  "&Image.BacklightCompensation=ON&Image.WideDynamicRange=ON&Image.WideDynamicRangeLevel=30"},
         }) {
        writeFile(SOURCE_FILE, factorySettings);
        CgiResult r = set(c.settings);
        EXPECT_EQ(r.envelopeBody, "<timg:SetImagingSettingsResponse></timg:SetImagingSettingsResponse>") << c.settings;
        EXPECT_EQ(readFile(SOURCE_FILE), factoryWith(c.lines)) << c.settings;
        EXPECT_EQ(takeCalls(), PARAM + c.query + " REMOTE_USER=Admin isOnvif=1\n") << c.settings;
    }
}

TEST_F(ImagingSetter, AFullSetIsWrittenOnceAndReportedBack)
{
    word(WEB_USER_WORD) = WEB_USER_ADMIN;
    std::string full =
        "<tt:BacklightCompensation><tt:Mode>ON</tt:Mode><tt:Level>20</tt:Level></tt:BacklightCompensation>"
        "<tt:Brightness>40</tt:Brightness><tt:ColorSaturation>45</tt:ColorSaturation><tt:Contrast>55</tt:Contrast>"
        "<tt:Exposure><tt:Mode>MANUAL</tt:Mode><tt:Priority>FrameRate</tt:Priority>"
        "<tt:Window bottom=\"0.9\" top=\"0.1\" right=\"0.8\" left=\"0.2\"/>"
        "<tt:MinExposureTime>0.0002</tt:MinExposureTime><tt:MaxExposureTime>0.02</tt:MaxExposureTime>"
        "<tt:MinGain>1</tt:MinGain><tt:MaxGain>30</tt:MaxGain><tt:MinIris>1</tt:MinIris><tt:MaxIris>9</tt:MaxIris>"
        "<tt:ExposureTime>0.01</tt:ExposureTime><tt:Gain>12</tt:Gain><tt:Iris>3</tt:Iris></tt:Exposure>"
        "<tt:Focus><tt:AutoFocusMode>MANUAL</tt:AutoFocusMode><tt:DefaultSpeed>0.5</tt:DefaultSpeed>"
        "<tt:NearLimit>2</tt:NearLimit><tt:FarLimit>500</tt:FarLimit></tt:Focus>"
        "<tt:IrCutFilter>AUTO</tt:IrCutFilter><tt:Sharpness>70</tt:Sharpness>"
        "<tt:WideDynamicRange><tt:Mode>ON</tt:Mode><tt:Level>80</tt:Level></tt:WideDynamicRange>"
        "<tt:WhiteBalance><tt:Mode>MANUAL</tt:Mode><tt:CrGain>100</tt:CrGain><tt:CbGain>110</tt:CbGain>"
        "</tt:WhiteBalance>";
    CgiResult r = imagingCall("SetImagingSettings", "<timg:ImagingSettings>" + full + "</timg:ImagingSettings>"
                                                    "<timg:ForcePersistence>true</timg:ForcePersistence>");
    EXPECT_EQ(r.status, 200) << r.envelopeBody;
    EXPECT_EQ(readFile(SOURCE_FILE),
              "BacklightCompensation.Mode=ON\nBacklightCompensation.Level=20\nBrightness=40\nColorSaturation=45\n"
              "Contrast=55\nExposure.Mode=MANUAL\nExposure.Priority=FrameRate\nExposure.Window.bottom=0.9\n"
              "Exposure.Window.top=0.1\nExposure.Window.right=0.8\nExposure.Window.left=0.2\n"
              "Exposure.MinExposureTime=0.0002\nExposure.MaxExposureTime=0.02\nExposure.MinGain=1\n"
              "Exposure.MaxGain=30\nExposure.MinIris=1\nExposure.MaxIris=9\nExposure.ExposureTime=0.01\n"
              "Exposure.Gain=12\nExposure.Iris=3\nFocus.AutoFocusMode=MANUAL\nFocus.DefaultSpeed=0.5\n"
              "Focus.NearLimit=2\nFocus.FarLimit=500\nIrCutFilter=AUTO\nSharpness=70\nWideDynamicRange.Mode=ON\n"
              "WideDynamicRange.Level=80\nWhiteBalance.Mode=MANUAL\nWhiteBalance.CrGain=100\n"
              "WhiteBalance.CbGain=110\n");
    EXPECT_EQ(takeCalls(),
              PARAM + "&Image.BacklightCompensation=ON&Image.BacklightCompensationLevel=20&Image.Brightness=40"
                      "&Image.Saturation=45&Image.Contrast=55&Image.ExposureMode=MANUAL"
                      "&Image.ExposurePriority=FrameRate&Image.ExposureWindowBottom=0.9&Image.ExposureWindowTop=0.1"
                      "&Image.ExposureWindowRight=0.8&Image.ExposureWindowLeft=0.2&Image.MinExposureTime=0.0002"
                      "&Image.MaxExposureTime=0.02&Image.MinGain=1&Image.MaxGain=30&Image.MinIris=1&Image.MaxIris=9"
                      "&Image.ExposureTime=0.01&Image.Gain=12&Image.Iris=3&Image.FocusMode=MANUAL"
                      "&Image.FocusSpeed=0.5&Image.FocusNearLimit=2&Image.FocusFarLimit=500"
                      "&Image.IrCutFilter=AUTO&Image.Sharpness=70&Image.WideDynamicRange=ON"
                      "&Image.WideDynamicRangeLevel=80&Image.WhiteBalance=MANUAL&Image.WhiteBalanceCrGain=100"
                      "&Image.WhiteBalanceCbGain=110 REMOTE_USER=admin isOnvif=1\n");
    CgiResult report = imagingCall("GetImagingSettings", "");
    for (const char* reported : {
             "<tt:BacklightCompensation><tt:Mode>ON</tt:Mode><tt:Level>20</tt:Level></tt:BacklightCompensation>",
             "<tt:Brightness>40</tt:Brightness>", "<tt:ExposureTime>0.010000</tt:ExposureTime>",
             "<tt:Gain>12.000</tt:Gain><tt:Iris>3.000</tt:Iris></tt:Exposure>",
             "<tt:MinExposureTime>0.000200</tt:MinExposureTime>",
             "<tt:Focus><tt:AutoFocusMode>MANUAL</tt:AutoFocusMode><tt:DefaultSpeed>0.5</tt:DefaultSpeed>"
             "<tt:NearLimit>2</tt:NearLimit><tt:FarLimit>500</tt:FarLimit></tt:Focus>",
             "<tt:WhiteBalance><tt:Mode>MANUAL</tt:Mode><tt:CrGain>100</tt:CrGain><tt:CbGain>110</tt:CbGain>"
             "</tt:WhiteBalance>"})
        EXPECT_TRUE(has(report, reported)) << reported << " in " << report.envelopeBody;
}

TEST_F(ImagingSetter, ExposureTimeIsKeptInTheUnitsOfItsFile)
{
    // Only the dome and model 4 keep seconds; the others count units of 100 us.
    struct Case { int model, panTilt, lens; std::string request, line, reported; };
    for (const Case& c : {
             Case{MODEL_A5S_SDK310, PAN_TILT_INTEGRATED, LENS_DOME, "0.0333", "Exposure.ExposureTime=0.0333", "0.033300"},
             Case{MODEL_A5S_SDK310, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, "0.0333", "Exposure.ExposureTime=333", "0.033300"},
             Case{MODEL_A5S_SDK310, PAN_TILT_RS485, LENS_SPLIT_SIXTH_STEP, "0.033333", "Exposure.ExposureTime=333.33", "0.033333"},
             Case{MODEL_EXPOSURE_AS_STORED, PAN_TILT_NONE, LENS_NONE, "0.02", "Exposure.ExposureTime=0.02", "0.020000"},
         }) {
        word(MODEL_CODE_WORD) = c.model;
        word(PAN_TILT_WORD) = c.panTilt;
        word(ZOOM_WORD) = c.lens;
        writeFile("usr/apache/htdocs/onvif/imaging/Model4.ImagingOptions", "Exposure.ExposureTime=0.0001 0.04\n");
        writeFile(SOURCE_FILE, factorySettings);
        CgiResult r = set("<tt:Exposure><tt:ExposureTime>" + c.request + "</tt:ExposureTime></tt:Exposure>");
        EXPECT_EQ(r.status, 200) << r.envelopeBody;
        EXPECT_EQ(readFile(SOURCE_FILE), factoryWith({c.line}));
        EXPECT_TRUE(has(imagingCall("GetImagingSettings", ""), "<tt:ExposureTime>" + c.reported + "</tt:ExposureTime>"))
            << c.request;
    }
}

TEST_F(ImagingSetter, ValuesOutsideTheOptionsAndHostileValuesChangeNothing)
{
    std::string longText(300, '5');
    for (const std::string& settings : std::vector<std::string>{
             "<tt:Brightness>100.5</tt:Brightness>",
             "<tt:Brightness>-1</tt:Brightness>",
             "<tt:Brightness></tt:Brightness>",
             "<tt:Brightness>1e2</tt:Brightness>",
             "<tt:Brightness>:5</tt:Brightness>",
             "<tt:Sharpness>NaN</tt:Sharpness>",
             "<tt:Contrast>" + longText + "</tt:Contrast>",
             "<tt:IrCutFilter>SOMETIMES</tt:IrCutFilter>",
             "<tt:IrCutFilter>ON; touch pwned</tt:IrCutFilter>",
             "<tt:IrCutFilter>$(reboot)</tt:IrCutFilter>",
             "<tt:IrCutFilter>ON&#10;Brightness=0</tt:IrCutFilter>",
             "<tt:IrCutFilter>" + std::string(300, 'A') + "</tt:IrCutFilter>",
             "<tt:Brightness>50&#10;Contrast=0</tt:Brightness>",
             "<tt:Brightness>`id`</tt:Brightness>",
             "<tt:Exposure><tt:Mode>AUTO'</tt:Mode></tt:Exposure>",
             "<tt:Exposure><tt:Priority>lownoise</tt:Priority></tt:Exposure>",
             "<tt:Exposure><tt:Mode>AUTO</tt:Mode><tt:ExposureTime>0.5</tt:ExposureTime></tt:Exposure>",
             "<tt:Exposure><tt:Mode>AUTO</tt:Mode><tt:Gain>37</tt:Gain></tt:Exposure>",
             "<tt:Exposure><tt:Mode>AUTO</tt:Mode><tt:MinGain>20</tt:MinGain><tt:MaxGain>10</tt:MaxGain></tt:Exposure>",
             "<tt:Exposure><tt:Mode>AUTO</tt:Mode><tt:Window bottom=\"2\" top=\"0\" right=\"1\" left=\"0\"/></tt:Exposure>",
             "<tt:Exposure><tt:Mode>AUTO</tt:Mode><tt:Window bottom=\"1|id\"/></tt:Exposure>",
             "<tt:Focus><tt:AutoFocusMode>ON</tt:AutoFocusMode></tt:Focus>",
             "<tt:Focus><tt:AutoFocusMode>MANUAL</tt:AutoFocusMode><tt:NearLimit>101</tt:NearLimit></tt:Focus>",
             "<tt:WideDynamicRange><tt:Mode>AUTO</tt:Mode></tt:WideDynamicRange>",
             "<tt:WideDynamicRange><tt:Mode>ON</tt:Mode><tt:Level>101</tt:Level></tt:WideDynamicRange>",
             "<tt:WhiteBalance><tt:Mode>MANUAL</tt:Mode><tt:CrGain>256</tt:CrGain></tt:WhiteBalance>",
             // A good value does not carry a bad one through.
             "<tt:Brightness>10</tt:Brightness><tt:Contrast>200</tt:Contrast>",
         }) {
        CgiResult r = set(settings);
        EXPECT_EQ(r.status, 400) << settings;
        EXPECT_TRUE(has(r, "<SOAP-ENV:Value>ter:InvalidArgVal</SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>"
                           "ter:SettingsInvalid</SOAP-ENV:Value>")) << settings << r.envelopeBody;
        EXPECT_EQ(readFile(SOURCE_FILE), factorySettings) << settings;
        EXPECT_FALSE(exists("camera_calls.log")) << settings;
    }
    EXPECT_EQ(imagingCall("SetImagingSettings", "<tt:Brightness>1</tt:Brightness>").status, 400);
    CgiResult persistence = imagingCall("SetImagingSettings", "<timg:ImagingSettings><tt:Brightness>1</tt:Brightness>"
                                        "</timg:ImagingSettings><timg:ForcePersistence>yes</timg:ForcePersistence>");
    EXPECT_EQ(persistence.status, 400);
    EXPECT_EQ(readFile(SOURCE_FILE), factorySettings);
    EXPECT_FALSE(exists("camera_calls.log"));
}

TEST_F(ImagingSetter, PartsTheCameraLacksCannotBeSet)
{
    word(IRIS_PRESENT_WORD) = -1;
    word(WDR_WORD) = -1;
    word(ZOOM_WORD) = LENS_NONE;
    for (const char* settings : {
             "<tt:Exposure><tt:Mode>AUTO</tt:Mode><tt:Iris>2</tt:Iris></tt:Exposure>",
             "<tt:WideDynamicRange><tt:Mode>OFF</tt:Mode></tt:WideDynamicRange>",
             "<tt:Focus><tt:AutoFocusMode>AUTO</tt:AutoFocusMode></tt:Focus>",
         }) {
        EXPECT_EQ(set(settings).status, 400) << settings;
        EXPECT_EQ(readFile(SOURCE_FILE), factorySettings);
        EXPECT_FALSE(exists("camera_calls.log"));
    }
    EXPECT_EQ(set("<tt:Exposure><tt:Mode>AUTO</tt:Mode><tt:Gain>2</tt:Gain></tt:Exposure>").status, 200);
}

TEST_F(ImagingSetter, UnknownSourcesAndModelsWithoutImaging)
{
    writeFile("tmp/x.VSource", "Brightness=1\n");
    for (const char* token : {"Nope", "../x", "../../tmp/x", ""}) {
        for (const char* action : {"GetOptions", "GetMoveOptions", "SetImagingSettings", "Move", "MoveIris"}) {
            CgiResult r = imagingCall(action, "<timg:ImagingSettings><tt:Brightness>1</tt:Brightness>"
                                              "</timg:ImagingSettings>", token);
            EXPECT_EQ(r.status, 400) << action << " " << token;
            EXPECT_TRUE(has(r, "The requested VideoSource does not exist.")) << action << " " << token;
        }
    }
    word(MODEL_CODE_WORD) = MODEL_NO_IMAGING;
    for (const char* action : {"GetOptions", "GetMoveOptions", "SetImagingSettings", "Move", "MoveIris"}) {
        CgiResult r = imagingCall(action, "<timg:ImagingSettings><tt:Brightness>1</tt:Brightness>"
                                          "</timg:ImagingSettings>");
        EXPECT_EQ(r.status, 400) << action;
        EXPECT_TRUE(has(r, "<SOAP-ENV:Value>SOAP-ENV:Receiver</SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>"
                           "ter:ActionNotSupported </SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>"
                           "ter:NoImagingForSource</SOAP-ENV:Value>")) << action;
    }
    EXPECT_EQ(readFile(SOURCE_FILE), factorySettings);
    EXPECT_FALSE(exists("camera_calls.log"));
}

TEST_F(ImagingSetter, FocusMovesReachThePtzProgram)
{
    EXPECT_EQ(imagingCall("GetMoveOptions", "").envelopeBody,
              "<timg:GetMoveOptionsResponse><timg:MoveOptions>"
              "<tt:Absolute><tt:Position><tt:Min>0</tt:Min><tt:Max>1000</tt:Max></tt:Position>"
              "<tt:Speed><tt:Min>0</tt:Min><tt:Max>1</tt:Max></tt:Speed></tt:Absolute>"
              "<tt:Relative><tt:Distance><tt:Min>-1000</tt:Min><tt:Max>1000</tt:Max></tt:Distance>"
              "<tt:Speed><tt:Min>0</tt:Min><tt:Max>1</tt:Max></tt:Speed></tt:Relative>"
              "<tt:Continuous><tt:Speed><tt:Min>-1</tt:Min><tt:Max>1</tt:Max></tt:Speed></tt:Continuous>"
              "</timg:MoveOptions></timg:GetMoveOptionsResponse>");
    struct Case { std::string inner, calls; };
    for (const Case& c : {
             Case{"<tt:Absolute><tt:Position>420.4</tt:Position></tt:Absolute>",
                  PTZ + "focusposition REMOTE_USER=Admin focusposition=420\n"},
             Case{"<tt:Absolute><tt:Position>1000</tt:Position><tt:Speed>0.5</tt:Speed></tt:Absolute>",
                  PTZ + "focusposition REMOTE_USER=Admin focusposition=1000\n"},
             Case{"<tt:Relative><tt:Distance>-25</tt:Distance></tt:Relative>",
                  PTZ + "focussteps REMOTE_USER=Admin focussteps=-25\n"},
             Case{"<tt:Continuous><tt:Speed>-0.555</tt:Speed></tt:Continuous>",
                  PTZ + "continuousfocusmove REMOTE_USER=Admin continuousfocusmove=-55\n"},
         }) {
        CgiResult r = move("Move", "Focus", c.inner);
        EXPECT_EQ(r.envelopeBody, "<timg:MoveResponse></timg:MoveResponse>") << c.inner;
        EXPECT_EQ(takeCalls(), c.calls) << c.inner;
    }
    for (const std::string& inner : std::vector<std::string>{
             "<tt:Absolute><tt:Position>1001</tt:Position></tt:Absolute>",
             "<tt:Absolute><tt:Position>5</tt:Position><tt:Speed>2</tt:Speed></tt:Absolute>",
             "<tt:Absolute><tt:Speed>0.5</tt:Speed></tt:Absolute>",
             "<tt:Relative><tt:Distance>1;reboot</tt:Distance></tt:Relative>",
             "<tt:Continuous><tt:Speed>1.5</tt:Speed></tt:Continuous>",
             "<tt:Continuous><tt:Speed>" + std::string(300, '1') + "</tt:Speed></tt:Continuous>",
             "<tt:Absolute><tt:Position>5</tt:Position></tt:Absolute><tt:Continuous><tt:Speed>1</tt:Speed>"
             "</tt:Continuous>",
             "",
         }) {
        CgiResult r = move("Move", "Focus", inner);
        EXPECT_EQ(r.status, 400) << inner;
        EXPECT_TRUE(has(r, "ter:SettingsInvalid")) << inner;
        EXPECT_FALSE(exists("camera_calls.log")) << inner;
    }
}

TEST_F(ImagingSetter, AFixedLensHasNoFocusMoves)
{
    word(PAN_TILT_WORD) = PAN_TILT_NONE;
    word(ZOOM_WORD) = LENS_NONE;
    EXPECT_EQ(imagingCall("GetMoveOptions", "").envelopeBody,
              "<timg:GetMoveOptionsResponse><timg:MoveOptions></timg:MoveOptions></timg:GetMoveOptionsResponse>");
    CgiResult r = move("Move", "Focus", "<tt:Continuous><tt:Speed>0.5</tt:Speed></tt:Continuous>");
    EXPECT_EQ(r.status, 400);
    EXPECT_TRUE(has(r, "<SOAP-ENV:Value>SOAP-ENV:Receiver</SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>"
                       "ter:ActionNotSupported</SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>"
                       "ter:NoImagingForSource</SOAP-ENV:Value>")) << r.envelopeBody;
    EXPECT_TRUE(has(r, "The requested VideoSource does not support focus movement."));
    EXPECT_FALSE(exists("camera_calls.log"));
}

TEST_F(ImagingSetter, IrisMovesNeedAControllableIris)
{
    struct Case { std::string inner, calls; };
    for (const Case& c : {
             Case{"<tt:Absolute><tt:Position>4</tt:Position></tt:Absolute>", PTZ + "irisposition REMOTE_USER=Admin irisposition=4\n"},
             Case{"<tt:Relative><tt:Distance>-2</tt:Distance></tt:Relative>",
                  PTZ + "irissteps REMOTE_USER=Admin irissteps=-2\n"},
             Case{"<tt:Continuous><tt:Speed>0.25</tt:Speed></tt:Continuous>",
                  PTZ + "continuousirismove REMOTE_USER=Admin continuousirismove=25\n"},
         }) {
        CgiResult r = move("MoveIris", "Iris", c.inner);
        EXPECT_EQ(r.envelopeBody, "<timg:MoveResponse></timg:MoveResponse>") << c.inner;
        EXPECT_EQ(takeCalls(), c.calls) << c.inner;
    }
    EXPECT_EQ(move("MoveIris", "Iris", "<tt:Absolute><tt:Position>11</tt:Position></tt:Absolute>").status, 400);
    word(IRIS_PRESENT_WORD) = -1;
    CgiResult r = move("MoveIris", "Iris", "<tt:Absolute><tt:Position>4</tt:Position></tt:Absolute>");
    EXPECT_EQ(r.status, 400);
    EXPECT_TRUE(has(r, "The requested VideoSource does not support iris movement."));
    EXPECT_FALSE(exists("camera_calls.log"));
}

}  // namespace
