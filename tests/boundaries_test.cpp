// Both sides of every bound a value meets: credential fields at and one past
// their buffers, dates at the ends of the calendar, PTZ targets at the end
// stops, markup in values, and an answer too large for the buffer.
#include "tests/fixture.h"

namespace {

using Boundaries = CameraTest;

static std::string textToken(const std::string& user, const std::string& password, const std::string& nonce = "",
                             const std::string& created = "2026-11-23T10:00:00Z")
{
    return "<wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/"
           "oasis-200401-wss-wssecurity-secext-1.0.xsd\" xmlns:wsu=\"http://docs.oasis-open.org/wss/2004/01/"
           "oasis-200401-wss-wssecurity-utility-1.0.xsd\"><wsse:UsernameToken><wsse:Username>" + user +
           "</wsse:Username><wsse:Password Type=\"PasswordText\">" + password + "</wsse:Password>" +
           (nonce.empty() ? "" : "<wsse:Nonce>" + nonce + "</wsse:Nonce>") + "<wsu:Created>" + created +
           "</wsu:Created></wsse:UsernameToken></wsse:Security>";
}

TEST_F(Boundaries, CredentialFieldsFitOrAreRefused)
{
    word(AUTH_ON_WORD) = 1;
    const std::string fits(31, 'p'), past(32, 'q');
    writeFile("etc/appWeb/appweb.pass", "admin:admin\nfits:" + fits + "\npast:" + past + "\n");
    struct Case { std::string token; int status; };
    const std::string nonce63 = std::string(60, 'A') + "AAA", nonce64 = std::string(64, 'A');
    for (const Case& c : {
             Case{textToken("fits", fits), 200},                               // 31 bytes and its terminator: fits
             Case{textToken("past", past), 400},                               // 32: one past the field
             Case{textToken("admin", "admin", nonce63), 200},                  // nonce field of 64 bytes
             Case{textToken("admin", "admin", nonce64), 400},
             Case{textToken("admin", "admin", "", std::string(31, '1')), 200},  // created field of 32 bytes
             Case{textToken("admin", "admin", "", std::string(32, '1')), 400},
         }) {
        CgiResult r = run(soap("<tds:GetUsers/>", c.token));
        EXPECT_EQ(r.status, c.status) << c.token;
    }
}

TEST_F(Boundaries, ManualDateAtTheEndsOfTheCalendar)
{
    auto manual = [](int y, int mo, int d) {
        return "<tds:SetSystemDateAndTime><tds:DateTimeType>Manual</tds:DateTimeType><tds:DaylightSavings>false"
               "</tds:DaylightSavings><tds:UTCDateTime><tt:Date><tt:Year>" + std::to_string(y) + "</tt:Year><tt:Month>" +
               std::to_string(mo) + "</tt:Month><tt:Day>" + std::to_string(d) + "</tt:Day></tt:Date><tt:Time>"
               "<tt:Hour>0</tt:Hour><tt:Minute>0</tt:Minute><tt:Second>0</tt:Second></tt:Time></tds:UTCDateTime>"
               "</tds:SetSystemDateAndTime>";
    };
    struct Case { int month, day, status; };
    for (const Case& c : {Case{1, 1, 200}, Case{1, 31, 200}, Case{12, 31, 200}, Case{1, 0, 400}, Case{1, 32, 400},
                          Case{0, 1, 400}, Case{13, 1, 400}, Case{4, 31, 400}}) {
        CgiResult r = call(manual(2026, c.month, c.day));
        EXPECT_EQ(r.status, c.status) << c.month << "/" << c.day;
    }
}

class PtzEndStops : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        word(PAN_TILT_WORD) = PAN_TILT_RS485;
        word(ZOOM_WORD) = LENS_SPLIT_SIXTH_STEP;
        word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD;
    }
    std::string relative(const std::string& translation)
    {
        removeFile("camera_calls.log");
        CgiResult r = call("<tptz:RelativeMove><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:Translation>" +
                           translation + "</tptz:Translation></tptz:RelativeMove>");
        EXPECT_EQ(r.status, 200) << r.envelopeBody;
        std::string calls = cameraCalls();
        size_t at = calls.find("com/ptz.cgi");
        return at == std::string::npos ? "" : calls.substr(at);
    }
};

TEST_F(PtzEndStops, TiltAndZoomStopAtBothEnds)
{
    struct Case { std::string panTilt, zoom, translation, sent; };
    for (const Case& c : {
             Case{"pan = 0.0\ntilt = 10.0\n", "zoom = 2\n", "<tt:PanTilt x=\"0\" y=\"-0.5\"/>", "tilt=0.000000"},
             Case{"pan = 0.0\ntilt = 80.0\n", "zoom = 2\n", "<tt:PanTilt x=\"0\" y=\"0.5\"/>", "tilt=90.000000"},
             Case{"pan = 0.0\ntilt = 45.0\n", "zoom = 10\n", "<tt:Zoom x=\"1\"/>", "zoomsteps=0"},
             Case{"pan = 0.0\ntilt = 45.0\n", "zoom = 2\n", "<tt:Zoom x=\"-1\"/>", "zoomsteps=-1"},
         }) {
        writeFile("root/testShareMemClient.out", c.panTilt);
        writeFile("home/aaaserver/viscaClient.out", c.zoom);
        std::string sent = relative(c.translation);
        EXPECT_NE(sent.find(c.sent), std::string::npos) << c.translation << "\n" << sent;
    }
}

TEST_F(Boundaries, MarkupInValuesNeverBecomesMarkup)
{
    word(AUTH_ON_WORD) = 0;
    CgiResult r = call("<tds:DeleteUsers><tds:Username>x&lt;/SOAP-ENV:Text&gt;&lt;evil/&gt;</tds:Username>"
                       "</tds:DeleteUsers>");
    EXPECT_EQ(r.status, 400);
    EXPECT_EQ(r.envelopeBody.find("<evil/>"), std::string::npos) << r.envelopeBody;
    EXPECT_NE(r.envelopeBody.find("x&lt;/SOAP-ENV:Text>&lt;evil/>"), std::string::npos) << r.envelopeBody;
}

TEST_F(Boundaries, AnAnswerTooLargeIsTheGenericFaultNotACutBody)
{
    useIntegratedDome();
    word(ZOOM_MODULE_WORD) = ZOOM_MODULE_2489;
    std::string store;
    for (int i = 1; i <= 255; ++i)
        store += "root.PTZ.PresetPos.P" + std::to_string(i) + ".Pos=0.000000,45.000000,0\n"
                 "root.PTZ.PresetPos.P" + std::to_string(i) + ".Label=" + std::string(60, '&') + "\n";
    writeFile("etc/dynamic/ptz.conf", store);
    CgiResult r = call("<tptz:GetPresets><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:GetPresets>");
    EXPECT_EQ(r.status, 500);
    EXPECT_NE(r.envelopeBody.find("ter:Action"), std::string::npos);
    EXPECT_LT(r.raw.size(), 4096u);
}

TEST_F(Boundaries, StoredMarkupIsPrintedAsText)
{
    word(PAN_TILT_WORD) = PAN_TILT_RS485;
    word(ZOOM_WORD) = LENS_SPLIT_SIXTH_STEP;
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD;
    CgiResult set = call("<tptz:SetConfiguration><tptz:PTZConfiguration token=\"PTZConfig1\">"
                         "<tt:DefaultAbsolutePantTiltPositionSpace>http://x/&lt;evil/&gt;"
                         "</tt:DefaultAbsolutePantTiltPositionSpace></tptz:PTZConfiguration>"
                         "<tptz:ForcePersistence>true</tptz:ForcePersistence></tptz:SetConfiguration>");
    ASSERT_EQ(set.status, 200) << set.envelopeBody;
    CgiResult meta = call("<trt:SetMetadataConfiguration><trt:Configuration token=\"MetaData1\">"
                          "<tt:SessionTimeout>&lt;b&gt;PT1S</tt:SessionTimeout></trt:Configuration>"
                          "<trt:ForcePersistence>true</trt:ForcePersistence></trt:SetMetadataConfiguration>");
    ASSERT_EQ(meta.status, 200) << meta.envelopeBody;
    for (const char* action : {"<tptz:GetConfigurations/>", "<trt:GetProfiles/>", "<trt:GetMetadataConfigurations/>"}) {
        CgiResult r = call(action);
        EXPECT_EQ(r.status, 200) << action;
        EXPECT_EQ(r.envelopeBody.find("<evil/>"), std::string::npos) << action;
        EXPECT_EQ(r.envelopeBody.find("<b>"), std::string::npos) << action;
    }
    EXPECT_NE(call("<tptz:GetConfigurations/>").envelopeBody.find("http://x/&lt;evil/>"), std::string::npos);
    EXPECT_NE(call("<trt:GetMetadataConfigurations/>").envelopeBody.find("&lt;b>PT1S"), std::string::npos);
}

}  // namespace
