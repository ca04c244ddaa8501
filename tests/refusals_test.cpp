// Values one byte past their buffers end in the action's fault with nothing
// written, run or signalled, from one list of fields; a wait on a missing
// file leaves other writers free; file text printed into an answer is text.
#include "tests/fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <string>

namespace {

using Refusals = CameraTest;

const char CONF[] = "tmp/onvif/onvif.conf";
const char USERS_FILE[] = "usr/apache/htdocs/onvif/Users.conf";

// One row per request field read into a fixed buffer: the body with "@" where
// the value goes, the buffer's size (a value of size bytes is one past it,
// size - 1 bytes fit), and the fault the action answers when it is not the
// standard refusal.
struct Field {
    const char* body;
    size_t size;
    const char* fault;
};

const char STANDARD_REFUSAL[] = "is too long for its field";

const Field FIELDS[] = {
    {"<tds:SetDiscoveryMode><tds:DiscoveryMode>@</tds:DiscoveryMode></tds:SetDiscoveryMode>", 17, 0},
    {"<tds:CreateUsers><tds:User><tt:Username>@</tt:Username><tt:Password>secret1</tt:Password>"
     "<tt:UserLevel>User</tt:UserLevel></tds:User></tds:CreateUsers>", 33, 0},
    {"<tds:AddScopes><tds:ScopeItem>@</tds:ScopeItem></tds:AddScopes>", 257, 0},
    {"<tds:DeleteUsers><tds:Username>@</tds:Username></tds:DeleteUsers>", 33, 0},
    {"<tds:SetSystemFactoryDefault><tds:FactoryDefault>@</tds:FactoryDefault></tds:SetSystemFactoryDefault>", 33, 0},
    {"<tds:GetSystemLog><tds:LogType>@</tds:LogType></tds:GetSystemLog>", 65, 0},
    {"<tds:SetSystemDateAndTime><tds:DateTimeType>@</tds:DateTimeType></tds:SetSystemDateAndTime>", 17, 0},
    {"<tds:SetRelayOutputState><tds:RelayOutputToken>@</tds:RelayOutputToken>"
     "<tds:LogicalState>active</tds:LogicalState></tds:SetRelayOutputState>", 65, 0},
    {"<trt:GetProfile><trt:ProfileToken>@</trt:ProfileToken></trt:GetProfile>", 17, 0},
    {"<trt:CreateProfile><trt:Name>@</trt:Name></trt:CreateProfile>", 17, 0},
    {"<trt:GetMetadataConfiguration><trt:ConfigurationToken>@</trt:ConfigurationToken>"
     "</trt:GetMetadataConfiguration>", 25, 0},
    {"<timg:GetImagingSettings><timg:VideoSourceToken>@</timg:VideoSourceToken></timg:GetImagingSettings>", 65, "ter:NoSource"},
    {"<tptz:GotoPreset><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:PresetToken>@</tptz:PresetToken>"
     "</tptz:GotoPreset>", 33, 0},
    {"<tptz:SetPreset><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:PresetName>@</tptz:PresetName>"
     "</tptz:SetPreset>", 67, 0},
    {"<tptz:ContinuousMove><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:Velocity>"
     "<tt:PanTilt x=\"0.1\" y=\"0\"/></tptz:Velocity><tptz:Timeout>@</tptz:Timeout></tptz:ContinuousMove>", 33, 0},
    {"<tev:CreatePullPointSubscription><tev:InitialTerminationTime>@</tev:InitialTerminationTime>"
     "</tev:CreatePullPointSubscription>", 33, 0},
};

TEST_F(Refusals, AValueOnePastItsBufferChangesNothing)
{
    word(16) = 1;
    word(17) = 4;
    word(18) = 2;
    const std::string conf = readFile(CONF), users = readFile(USERS_FILE);
    const int discovery = word(77);
    for (const Field& f : FIELDS) {
        std::string body = f.body, fits = f.body;
        body.replace(body.find('@'), 1, std::string(f.size, 'a'));
        fits.replace(fits.find('@'), 1, std::string(f.size - 1, 'a'));
        EXPECT_EQ(call(fits).envelopeBody.find(STANDARD_REFUSAL), std::string::npos) << fits;
        writeFile(CONF, conf);
        writeFile(USERS_FILE, users);
        word(60) = 0;
        word(77) = discovery;
        word(85) = 0;
        removeFile("camera_calls.log");
        CgiResult r = call(body);
        EXPECT_EQ(r.status, 400) << body;
        EXPECT_NE(r.envelopeBody.find("ter:InvalidArgVal"), std::string::npos) << body;
        EXPECT_NE(r.envelopeBody.find(f.fault ? f.fault : STANDARD_REFUSAL), std::string::npos) << body;
        EXPECT_EQ(readFile(CONF), conf) << body;
        EXPECT_EQ(readFile(USERS_FILE), users) << body;
        EXPECT_EQ(cameraCalls(), "") << body;
        EXPECT_EQ(word(60), 0) << body;
        EXPECT_EQ(word(77), discovery) << body;
        EXPECT_EQ(word(85), 0) << body;
    }
}

TEST_F(Refusals, ARenewTimeOnePastItsBufferKeepsTheTermination)
{
    word(2) = 32;
    ASSERT_EQ(call("<tev:CreatePullPointSubscription><tev:InitialTerminationTime>PT1H</tev:InitialTerminationTime>"
                   "</tev:CreatePullPointSubscription>").status, 200);
    const std::vector<int> before(&word(85), &word(85) + 15);
    CgiResult r = run(soap("<wsnt:Renew><wsnt:TerminationTime>" + std::string(40, '2') +
                               "</wsnt:TerminationTime></wsnt:Renew>",
                           "<wsa:To xmlns:wsa=\"http://www.w3.org/2005/08/addressing\">"
                           "http://127.0.0.1/onvif/device_service?Idx=0</wsa:To>"));
    EXPECT_EQ(r.status, 400) << r.envelopeBody;
    EXPECT_NE(r.envelopeBody.find("ter:InvalidArgVal"), std::string::npos) << r.envelopeBody;
    EXPECT_EQ(std::vector<int>(&word(85), &word(85) + 15), before);
}

// A removal that waits for the settings file to come back must not keep
// every other writer out meanwhile.
TEST_F(Refusals, AWaitForAMissingFileLeavesOtherWritersFree)
{
    const std::string conf = readFile(CONF);
    removeFile(CONF);
    const std::string body = soap("<tds:RemoveScopes><tds:ScopeItem>onvif://www.onvif.org/name/x</tds:ScopeItem>"
                                  "</tds:RemoveScopes>");
    writeFile("req-remove", body);
    pid_t waiting = spawnService({"HOST=192.168.0.100", "CONTENT_LENGTH=" + std::to_string(body.size())},
                                 path("req-remove"), path("resp-remove"));
    ASSERT_GE(waiting, 0);
    for (int i = 0; i < 1000 && errorLog().find("RemoveScopes") == std::string::npos; ++i)
        usleep(20000);
    CgiResult other = call("<tds:CreateUsers><tds:User><tt:Username>waiter</tt:Username><tt:Password>secret1"
                           "</tt:Password><tt:UserLevel>User</tt:UserLevel></tds:User></tds:CreateUsers>");
    EXPECT_EQ(other.status, 200) << other.envelopeBody;
    writeFile(CONF, conf);
    int wstatus = 0;
    waitpid(waiting, &wstatus, 0);
    EXPECT_EQ(slurp(path("resp-remove")).rfind("Status: ", 0), 0u);
}

TEST_F(Refusals, LogTextIsPrintedAsText)
{
    writeFile("tmp/access.log", "GET /</tt:String><injected/>\n");
    CgiResult r = call("<tds:GetSystemLog><tds:LogType>Access</tds:LogType></tds:GetSystemLog>");
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.envelopeBody, "<tds:GetSystemLogResponse><tds:SystemLog><tt:String>GET /&lt;/tt:String>&lt;injected/>\n"
                              "</tt:String></tds:SystemLog></tds:GetSystemLogResponse>");
}

}  // namespace
