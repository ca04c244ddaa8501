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
// the value goes, the buffer's size (a value of size bytes is one past it),
// and the fault the action answers when it is not the standard refusal.
struct Field {
    const char* body;
    size_t size;
    const char* fault;
};

const Field FIELDS[] = {
    {"<tds:SetDiscoveryMode><tds:DiscoveryMode>@</tds:DiscoveryMode></tds:SetDiscoveryMode>", 17, 0},
    {"<tds:CreateUsers><tds:User><tt:Username>@</tt:Username><tt:Password>secret1</tt:Password>"
     "<tt:UserLevel>User</tt:UserLevel></tds:User></tds:CreateUsers>", 33, 0},
    {"<tds:SetSystemFactoryDefault><tds:FactoryDefault>@</tds:FactoryDefault></tds:SetSystemFactoryDefault>", 33, 0},
    {"<tds:SetHostname><tds:Name>@</tds:Name></tds:SetHostname>", 65, 0},
    {"<tds:SetRelayOutputState><tds:RelayOutputToken>@</tds:RelayOutputToken>"
     "<tds:LogicalState>active</tds:LogicalState></tds:SetRelayOutputState>", 33, 0},
    {"<trt:GetProfile><trt:ProfileToken>@</trt:ProfileToken></trt:GetProfile>", 33, 0},
    {"<trt:CreateProfile><trt:Name>@</trt:Name></trt:CreateProfile>", 65, 0},
    {"<timg:GetImagingSettings><timg:VideoSourceToken>@</timg:VideoSourceToken></timg:GetImagingSettings>", 33, 0},
    {"<tptz:GotoPreset><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:PresetToken>@</tptz:PresetToken>"
     "</tptz:GotoPreset>", 33, 0},
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
        std::string body = f.body;
        body.replace(body.find('@'), 1, std::string(f.size, 'a'));
        removeFile("camera_calls.log");
        CgiResult r = call(body);
        EXPECT_EQ(r.status, 400) << body;
        EXPECT_NE(r.envelopeBody.find(f.fault ? f.fault : "ter:InvalidArgVal"), std::string::npos) << body;
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
                           "http://192.168.0.100/onvif/device_service?Idx=0</wsa:To>"));
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
    while (errorLog().find("RemoveScopes") == std::string::npos)
        usleep(20000);
    CgiResult other = call("<tds:SetHostname><tds:Name>cam2</tds:Name></tds:SetHostname>");
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
