// Reboot and factory default through the command word, and the system log.
#include "tests/fixture.h"

namespace {

using Maintenance = CameraTest;

TEST_F(Maintenance, CommandWordsForRebootAndFactoryDefault)
{
    CgiResult reboot = call("<tds:SystemReboot/>");
    EXPECT_EQ(reboot.envelopeBody, "<tds:SystemRebootResponse><tds:Message>Rebooting in 20 seconds.</tds:Message>"
                                   "</tds:SystemRebootResponse>");
    EXPECT_EQ(word(MAINTENANCE_WORD), 1);
    struct Case { const char* body; int word; const char* answer; };
    for (const Case& c : {Case{"<tds:FactoryDefault>Hard</tds:FactoryDefault>", 2, "<tds:SetSystemFactoryDefaultResponse>"},
                          Case{"<tds:FactoryDefault>Soft</tds:FactoryDefault>", 3, "<tds:SetSystemFactoryDefaultResponse>"},
                          Case{"<tds:FactoryDefault>Medium</tds:FactoryDefault>", 7, "<tds:SetSystemFactoryDefaultResponse>"},
                          Case{"", 7, ""}}) {
        word(MAINTENANCE_WORD) = 7;
        CgiResult r = call(std::string("<tds:SetSystemFactoryDefault>") + c.body + "</tds:SetSystemFactoryDefault>");
        EXPECT_EQ(r.status, 200);
        EXPECT_EQ(r.envelopeBody.rfind(c.answer, 0), 0u) << c.body;
        EXPECT_EQ(word(MAINTENANCE_WORD), c.word) << c.body;
        EXPECT_NE(r.headers.find("Connection: close"), std::string::npos);
    }
}

TEST_F(Maintenance, SystemLogByType)
{
    writeFile("tmp/access.log", "a & b <c> 100%\nsecond\n");
    struct Case { const char* type; int status; const char* body; };
    for (const Case& c : {
             Case{"<tt:LogType>Access</tt:LogType>", 200,
                  "<tds:GetSystemLogResponse><tds:SystemLog><tt:String>a &amp; b &lt;c> 100%\nsecond\n</tt:String>"
                  "</tds:SystemLog></tds:GetSystemLogResponse>"},
             Case{"<tds:LogType>System</tds:LogType>", 200, nullptr},
             Case{"<tds:LogType>Kernel</tds:LogType>", 400, nullptr},
             Case{"", 400, nullptr},
         }) {
        CgiResult r = call(std::string("<tds:GetSystemLog>") + c.type + "</tds:GetSystemLog>");
        EXPECT_EQ(r.status, c.status) << c.type;
        if (c.body) {
            EXPECT_EQ(r.envelopeBody, c.body);
        }
    }
    EXPECT_NE(call("<tds:GetSystemLog><tds:LogType>System</tds:LogType></tds:GetSystemLog>")
                  .envelopeBody.find("MemTotal:"), std::string::npos);
    EXPECT_NE(call("<tds:GetSystemLog/>").envelopeBody.find("SOAP-ENV:Receiver</SOAP-ENV:Value><SOAP-ENV:Subcode>"
                                                         "<SOAP-ENV:Value>ter:InvalidArgs"), std::string::npos);
    EXPECT_NE(call("<tds:GetSystemLog><tds:LogType>Kernel</tds:LogType></tds:GetSystemLog>")
                  .envelopeBody.find("There is an error LogType information."), std::string::npos);
    removeFile("tmp/access.log");
    CgiResult missing = call("<tds:GetSystemLog><tds:LogType>Access</tds:LogType></tds:GetSystemLog>");
    EXPECT_EQ(missing.status, 400);
    EXPECT_EQ(missing.envelopeBody, "<tds:GetSystemLogResponse><tds:SystemLog></tds:SystemLog></tds:GetSystemLogResponse>");
}

}  // namespace
