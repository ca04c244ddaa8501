// The two modes side by side: the camera's own answers, and the ONVIF mode's
// whole action names by namespace, standard faults, zoned times and
// schema-valid forms.
#include "state/schema_values.h"
#include "tests/fixture.h"

#include <functional>
#include <regex>

namespace {

const char ACTION_NOT_SUPPORTED[] =
    "<SOAP-ENV:Value>SOAP-ENV:Receiver</SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>ter:ActionNotSupported"
    "</SOAP-ENV:Value>";
const char GENERIC[] = "<SOAP-ENV:Value>ter:Action</SOAP-ENV:Value>";

// Each request in both modes: the status and a text the answer holds.
struct Case {
    const char* body;
    int legacyStatus;
    const char* legacyHas;
    int onvifStatus;
    const char* onvifHas;
};

class Modes : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        useIntegratedDome();
    }
    // The cases in the legacy mode, then in the ONVIF mode; prepare runs
    // before each pass.
    template <size_t N>
    void inBothModes(const Case (&cases)[N], const std::function<void()>& prepare = nullptr)
    {
        for (int onvif = 0; onvif <= 1; ++onvif) {
            if (prepare)
                prepare();
            if (onvif)
                setOnvifMode();
            for (const Case& c : cases) {
                CgiResult r = call(c.body);
                EXPECT_EQ(r.status, onvif ? c.onvifStatus : c.legacyStatus) << onvif << " " << c.body;
                EXPECT_NE(r.envelopeBody.find(onvif ? c.onvifHas : c.legacyHas), std::string::npos)
                    << onvif << " " << c.body << "\n" << r.envelopeBody;
                if (onvif) {
                    EXPECT_EQ(r.envelopeBody.find("encodingStyle"), std::string::npos) << c.body;
                }
            }
        }
    }
};

TEST_F(Modes, ActionsByModeAndNamespace)
{
    const Case cases[] = {
        // A name that only contains an action's name runs that action in the
        // legacy mode only.
        {"<tptz:RemovePresetTour><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:RemovePresetTour>", 400,
         "ter:InvalidArgVal", 500, ACTION_NOT_SUPPORTED},
        {"<tptz:StopRecording><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:StopRecording>", 200,
         "<tptz:StopResponse>", 500, ACTION_NOT_SUPPORTED},
        // An action of one service posted in another's namespace.
        {"<trt:GetDeviceInformation/>", 200, "<tds:GetDeviceInformationResponse>", 500, ACTION_NOT_SUPPORTED},
        {"<tds:GetProfiles/>", 200, "<trt:GetProfilesResponse>", 500, ACTION_NOT_SUPPORTED},
        {"<tds:GetDeviceInformation/>", 200, "<tds:GetDeviceInformationResponse>", 200,
         "<tds:GetDeviceInformationResponse>"},
        // No action of that name: the generic fault, or the standard's.
        {"<tds:NoSuchAction/>", 500, "SOAP-ENV:encodingStyle", 500, ACTION_NOT_SUPPORTED},
        {"<tds:GetSystemDateAndTimeX/>", 200, "<tds:GetSystemDateAndTimeResponse>", 500, ACTION_NOT_SUPPORTED},
        // A served name that fails keeps the generic fault, without the
        // attribute the schema refuses.
        {"<tan:GetAnalyticsModules xmlns:tan=\"http://www.onvif.org/ver20/analytics/wsdl\"/>", 500,
         "SOAP-ENV:encodingStyle", 500, GENERIC},
        // Faults as the standard lists them per operation.
        {"<tptz:GetConfiguration><tptz:PTZConfigurationToken>Nope</tptz:PTZConfigurationToken></tptz:GetConfiguration>",
         400, "ter:Action</SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>ter:NoConfig", 400,
         "ter:InvalidArgVal</SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>ter:NoConfig"},
        {"<tptz:GotoPreset><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:PresetToken>Nope</tptz:PresetToken>"
         "</tptz:GotoPreset>",
         400, "must be integer", 400, "ter:InvalidArgVal</SOAP-ENV:Value><SOAP-ENV:Subcode><SOAP-ENV:Value>ter:NoToken"},
        // Forms the schema takes.
        {"<tmd:GetRelayOutputOptions/>", 200, "<tmd:Discrete>False</tmd:Discrete>", 200,
         "<tmd:Discrete>false</tmd:Discrete>"},
        {"<tds:CreateUsers><tds:User><tt:Username>viewer</tt:Username><tt:Password>pw1234</tt:Password>"
         "<tt:UserLevel>User</tt:UserLevel></tds:User></tds:CreateUsers>",
         200, "<trt:CreateUsersResponse>", 200, "<tds:CreateUsersResponse>"},
        {"<tds:DeleteUsers><tds:Username>viewer</tds:Username></tds:DeleteUsers>", 200, "<trt:DeleteUsersResponse>",
         200, "<tds:DeleteUsersResponse>"},
        {"<tev:PullMessages><tev:Timeout>PT2M</tev:Timeout><tev:MessageLimit>1</tev:MessageLimit></tev:PullMessages>",
         200, "<tev:MaxTimeout>PT60S</tev:MaxTimeout>", 400, "<tev:PullMessagesFaultResponse><tev:MaxTimeout>PT60S"},
    };
    inBothModes(cases);
}

// Every xs:dateTime the ONVIF mode writes carries its zone; the legacy mode
// writes the bare time, except in Renew (and there "Z" alone without a time).
TEST_F(Modes, TimesCarryTheirZone)
{
    const std::regex bare(">\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d<|UtcTime=\"\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\"");
    const std::regex zoned(">\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ<|UtcTime=\"\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ\"");
    const std::string toSlot = "<wsa5:To xmlns:wsa5=\"http://www.w3.org/2005/08/addressing\">"
                               "http://127.0.0.1/onvif/device_service?Idx=0</wsa5:To>";
    const char* const requests[] = {
        "<tptz:GetStatus><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:GetStatus>",
        "<tev:CreatePullPointSubscription><tev:InitialTerminationTime>PT1H</tev:InitialTerminationTime>"
        "</tev:CreatePullPointSubscription>",
        "<tev:PullMessages><tev:Timeout>PT0S</tev:Timeout><tev:MessageLimit>5</tev:MessageLimit></tev:PullMessages>",
        "<wsnt:Renew><wsnt:TerminationTime>PT10M</wsnt:TerminationTime></wsnt:Renew>",
        "<wsnt:Renew/>",
    };
    for (int onvif = 0; onvif <= 1; ++onvif) {
        if (onvif)
            setOnvifMode();
        for (const char* request : requests) {
            std::string header = std::string(request).find("wsnt:") != std::string::npos ||
                                         std::string(request).find("PullMessages") != std::string::npos
                                     ? toSlot
                                     : "";
            CgiResult r = run(soap(request, header));
            EXPECT_EQ(r.status, 200) << onvif << request << r.envelopeBody;
            bool renew = std::string(request).find("Renew") != std::string::npos;
            if (!onvif && renew && std::string(request) == "<wsnt:Renew/>") {
                EXPECT_NE(r.envelopeBody.find("<wsnt:TerminationTime>Z</wsnt:TerminationTime>"), std::string::npos);
                continue;
            }
            bool wantZone = onvif || renew;
            EXPECT_TRUE(std::regex_search(r.envelopeBody, wantZone ? zoned : bare)) << onvif << request << r.envelopeBody;
            EXPECT_FALSE(std::regex_search(r.envelopeBody, wantZone ? bare : zoned)) << onvif << request;
            EXPECT_EQ(r.envelopeBody.find("ZZ"), std::string::npos) << request;
        }
    }
}

// The imaging report in the schema's order and names, whatever the file's
// order; a group whose mode line is missing is left out, not half-closed.
TEST_F(Modes, ImagingReportInTheSchemasForm)
{
    setOnvifMode();
    word(GAIN_WORD) = 6;
    word(IRIS_WORD) = 2;
    word(SHUTTER_WORD) = 333;
    const std::string request =
        "<timg:GetImagingSettings><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken></timg:GetImagingSettings>";
    CgiResult factory = call(request);
    EXPECT_EQ(factory.status, 200);
    EXPECT_NE(factory.envelopeBody.find(
                  "<tt:Exposure><tt:Mode>AUTO</tt:Mode><tt:Priority>LowNoise</tt:Priority><tt:Window bottom=\"1.000000\" "
                  "top=\"0.000000\" right=\"1.000000\" left=\"0.000000\"/><tt:MinExposureTime>"),
              std::string::npos)
        << factory.envelopeBody;
    EXPECT_NE(factory.envelopeBody.find("<tt:ExposureTime>0.033300</tt:ExposureTime><tt:Gain>6.000</tt:Gain>"
                                        "<tt:Iris>2.000</tt:Iris></tt:Exposure>"),
              std::string::npos);
    writeFile("tmp/onvif/VideoSource1.VSource", "Exposure.Gain=3\nSharpness=20\nWhiteBalance.CbGain=NONE\n"
                                                 "Exposure.Mode=MANUAL\nBrightness=40\n");
    EXPECT_NE(call(request).envelopeBody.find("<timg:ImagingSettings><tt:Brightness>40</tt:Brightness><tt:Exposure>"
                                              "<tt:Mode>MANUAL</tt:Mode><tt:ExposureTime>0.033300</tt:ExposureTime>"
                                              "<tt:Gain>3.000</tt:Gain><tt:Iris>2.000</tt:Iris></tt:Exposure>"
                                              "<tt:Sharpness>20</tt:Sharpness></timg:ImagingSettings>"),
              std::string::npos);
}

// Values the camera stores as sent and the schema cannot take back are
// refused in the ONVIF mode; answers it leaves unfinished or empty are whole.
TEST_F(Modes, StoredValuesAndAnswersTheSchemaTakes)
{
    const Case cases[] = {
        {"<tds:SetDiscoveryMode><tds:DiscoveryMode>Sometimes</tds:DiscoveryMode></tds:SetDiscoveryMode>", 200,
         "<tds:SetDiscoveryModeResponse>", 400, "ter:InvalidArgVal"},
        {"<tds:AddScopes><tds:ScopeItem>onvif://www.onvif.org/name/a b</tds:ScopeItem></tds:AddScopes>", 200,
         "<tds:AddScopesResponse>", 400, "ter:InvalidArgVal"},
        {"<tds:SetScopes><tds:Scopes>onvif://www.onvif.org/location/%3Cx%3E</tds:Scopes></tds:SetScopes>", 200,
         "<tds:SetScopesResponse>", 400, "ter:InvalidArgVal"},
        {"<trt:SetMetadataConfiguration><trt:Configuration token=\"MetaData1\"><tt:SessionTimeout>soon"
         "</tt:SessionTimeout></trt:Configuration><trt:ForcePersistence>true</trt:ForcePersistence>"
         "</trt:SetMetadataConfiguration>",
         200, "<trt:SetMetadataConfigurationResponse>", 400, "ter:InvalidArgVal"},
        {"<tptz:GetConfigurations/>", 200, "<tt:UseCount></tt:UseCount>", 200, "<tt:UseCount>0</tt:UseCount>"},
        {"<trt:GetProfiles/>", 200, "<trt:GetProfilesResponse>", 200,
         "<trt:GetProfilesResponse></trt:GetProfilesResponse>"},
    };
    inBothModes(cases, [this] {
        writeFile("usr/apache/htdocs/onvif/PTZConfig1.PTZConf", "Name=x\nUseCount=NONE\nNodeToken=PTZNode1\n");
        removeFile("tmp/onvif/Profiles.conf");
    });
}

// A pull hands over whole messages only; a line the schema would refuse
// is dropped from the event file, not passed on.
TEST_F(Modes, PulledMessagesAreWhole)
{
    setOnvifMode();
    const std::string to = "<wsa5:To xmlns:wsa5=\"http://www.w3.org/2005/08/addressing\">"
                           "http://127.0.0.1/onvif/device_service?Idx=0</wsa5:To>";
    const std::string pull =
        "<tev:PullMessages><tev:Timeout>PT1S</tev:Timeout><tev:MessageLimit>5</tev:MessageLimit></tev:PullMessages>";
    ASSERT_EQ(call("<tev:CreatePullPointSubscription/>").status, 200);
    ASSERT_EQ(run(soap(pull, to)).status, 200);  // the initial states
    const std::string whole =
        "<wsnt:NotificationMessage><wsnt:Topic Dialect=\"http://docs.oasis-open.org/wsn/t-1/TopicExpression/Simple\">"
        "tns1:VideoSource/MotionAlarm</wsnt:Topic><wsnt:Message><tt:Message UtcTime=\"2026-11-24T10:00:00Z\" "
        "PropertyOperation=\"Changed\"><tt:Source><tt:SimpleItem Name=\"Source\" Value=\"VideoSource1\"></tt:SimpleItem>"
        "</tt:Source><tt:Data><tt:SimpleItem Name=\"State\" Value=\"true\"></tt:SimpleItem></tt:Data></tt:Message>"
        "</wsnt:Message></wsnt:NotificationMessage>\n";
    writeFile("tmp/onvif/eventfile1", "<wsnt:NotificationMessage>one</wsnt:NotificationMessage>\n" + whole +
                                          "<wsnt:NotificationMessage><wsnt:Message>\n");
    CgiResult r = run(soap(pull, to));
    EXPECT_EQ(r.status, 200);
    EXPECT_NE(r.envelopeBody.find("</tev:TerminationTime>" + whole + "</tev:PullMessagesResponse>"), std::string::npos)
        << r.envelopeBody;
    EXPECT_EQ(readFile("tmp/onvif/eventfile1"), "");
}

// The key is read from the start of a line, and anything but "onvif" is the
// camera's own behaviour.
TEST_F(Modes, OnlyTheWholeKeySwitches)
{
    for (const char* conf : {"Conformance.Mode=onvif2\n", "Conformance.Mode=\n", "X.Conformance.Mode=onvif\n",
                             "Name=Conformance.Mode=onvif\n", ""}) {
        writeFile("tmp/onvif/onvif.conf", conf);
        EXPECT_FALSE(inOnvifMode());
        EXPECT_EQ(call("<tds:NoSuchAction/>").envelopeBody.find("ActionNotSupported"), std::string::npos) << conf;
    }
    writeFile("tmp/onvif/onvif.conf", "Conformance.Mode=onvif\r\n");
    EXPECT_NE(call("<tds:NoSuchAction/>").envelopeBody.find("ActionNotSupported"), std::string::npos);
}

// SetScopes rewrites the scopes at the end of the file: the mode and the
// credential settings after them stay.
TEST_F(Modes, SetScopesKeepsTheModeAndCredentialSettings)
{
    setOnvifMode();
    writeFile("tmp/onvif/onvif.conf", readFile("tmp/onvif/onvif.conf") + "Security.LockoutLimit=7\n");
    CgiResult r = call("<tds:SetScopes xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\">"
                       "<tds:Scopes>onvif://www.onvif.org/location/city/Here</tds:Scopes></tds:SetScopes>");
    EXPECT_EQ(r.status, 200) << r.envelopeBody;
    std::string conf = readFile("tmp/onvif/onvif.conf");
    EXPECT_TRUE(inOnvifMode()) << conf;
    EXPECT_NE(conf.find("Security.LockoutLimit=7\n"), std::string::npos) << conf;
    EXPECT_NE(conf.find("ConfigurableScopes=onvif://www.onvif.org/location/city/Here\n"), std::string::npos) << conf;
}

TEST(SchemaValues, DurationsAndUris)
{
    for (const char* yes : {"PT10S", "P1D", "P1Y2M3DT4H5M6.5S", "-PT1M", "PT0S", "P0D"})
        EXPECT_TRUE(isDurationText(yes)) << yes;
    for (const char* no : {"", "P", "PT", "P1DT", "PT1", "10S", "PT1S5M", "P1.5D", "PT.5S", "PT1.S", "<b>PT1S",
                           "PT1S ", "invalid"})
        EXPECT_FALSE(isDurationText(no)) << no;
    for (const char* yes : {"onvif://www.onvif.org/name/Camera", "onvif://x/a%20b", "urn:x?y=1#z"})
        EXPECT_TRUE(isUriText(yes)) << yes;
    for (const char* no : {"", "a b", "a<b", "a%2", "a%zz", "a\"b", "a\\b", "tab\there"})
        EXPECT_FALSE(isUriText(no)) << no;
}

}  // namespace
