// The user actions: listing both stores, creating, deleting and changing
// ONVIF users, with the user file always whole and one line per user.
#include "tests/fixture.h"

namespace {

using Users = CameraTest;

std::string createUser(const std::string& name, const std::string& password, const std::string& level)
{
    return "<tds:User><tt:Username>" + name + "</tt:Username><tt:Password>" + password +
           "</tt:Password><tt:UserLevel>" + level + "</tt:UserLevel></tds:User>";
}

const char USERS_FILE[] = "usr/apache/htdocs/onvif/Users.conf";

TEST_F(Users, GetUsersListsWebAccountsFirst)
{
    writeFile("etc/appWeb/appweb.pass", "admin:admin\nviewer:v\n");
    writeFile("etc/appWeb/appweb.privacy", "admin:1:1:1:1\nviewer:1:0:0:0\n");
    writeFile(USERS_FILE, "onvifuser:Administrator:onvif1234\nop:Operator:secret\nodd:Guest:x\n");
    EXPECT_EQ(call("<tds:GetUsers/>").envelopeBody,
              "<tds:GetUsersResponse>"
              "<tds:User><tt:Username>admin</tt:Username><tt:UserLevel>Administrator</tt:UserLevel></tds:User>"
              "<tds:User><tt:Username>viewer</tt:Username><tt:UserLevel>User</tt:UserLevel></tds:User>"
              "<tds:User><tt:Username>onvifuser</tt:Username><tt:UserLevel>Administrator</tt:UserLevel></tds:User>"
              "<tds:User><tt:Username>op</tt:Username><tt:UserLevel>Operator</tt:UserLevel></tds:User>"
              "<tds:User><tt:Username>odd</tt:Username><tt:UserLevel></tt:UserLevel></tds:User>"
              "</tds:GetUsersResponse>");
}

TEST_F(Users, CreateUsersChecksInTheirOrder)
{
    struct Case { std::string user; std::string fault; };
    for (const Case& c : {
             Case{createUser("admin", "secret1", "User"), "ter:UsernameClash"},
             Case{createUser("onvifuser", "secret1", "User"), "ter:UsernameClash"},
             Case{createUser(std::string(17, 'n'), "secret1", "User"), "ter:UsernameTooLong"},
             Case{createUser("new", std::string(15, 'p'), "User"), "ter:PasswordTooLong"},
             Case{createUser("new", "abc", "Guest"), "Too weak password."},
             Case{createUser("new", "abcdef", "Guest"), "User level Guest is not allowed."},
             Case{createUser("a:b", "abcdef", "User"), "ter:InvalidArgs"},
             Case{createUser("new", "ab:cdef", "User"), "ter:InvalidArgs"},
             Case{createUser("new", "ab&#10;x:User:y", "User"), "ter:InvalidArgs"},
             Case{createUser("x&#13;", "abcdef", "User"), "ter:InvalidArgs"},
         }) {
        CgiResult r = call("<tds:CreateUsers>" + c.user + "</tds:CreateUsers>");
        EXPECT_EQ(r.status, 400) << c.user;
        EXPECT_NE(r.envelopeBody.find(c.fault), std::string::npos) << c.user << r.envelopeBody;
    }
    EXPECT_EQ(readFile(USERS_FILE), "onvifuser:Administrator:onvif1234\n");

    // A weak password with a valid level is taken; a later fault keeps earlier users.
    CgiResult r = call("<tds:CreateUsers>" + createUser("weak", "abc", "User") +
                       createUser("weak", "abcdef", "User") + "</tds:CreateUsers>");
    EXPECT_NE(r.envelopeBody.find("Username weak already exists."), std::string::npos);
    EXPECT_EQ(call("<tds:CreateUsers>" + createUser("op", "operator1", "Operator") + "</tds:CreateUsers>")
                  .envelopeBody, "<trt:CreateUsersResponse></trt:CreateUsersResponse>");
    EXPECT_EQ(readFile(USERS_FILE), "onvifuser:Administrator:onvif1234\nweak:User:abc\nop:Operator:operator1\n");
}

TEST_F(Users, DeleteUsersRefusesFixedAccountsBeforeDeletingAnything)
{
    writeFile(USERS_FILE, "onvifuser:Administrator:onvif1234\na:User:aaaaa\nb:User:bbbbb\n");
    struct Case { const char* names; const char* text; };
    for (const Case& c : {Case{"<tds:Username>a</tds:Username><tds:Username>onvifuser</tds:Username>",
                               "Username onvifuser may not be deleted."},
                          Case{"<tds:Username>a</tds:Username><tds:Username>admin</tds:Username>",
                               "Username admin may not be deleted."},
                          Case{"<tds:Username>ghost</tds:Username>", "Username ghost NOT recognized."}}) {
        CgiResult r = call(std::string("<tds:DeleteUsers>") + c.names + "</tds:DeleteUsers>");
        EXPECT_NE(r.envelopeBody.find(c.text), std::string::npos) << r.envelopeBody;
    }
    EXPECT_EQ(readFile(USERS_FILE), "onvifuser:Administrator:onvif1234\na:User:aaaaa\nb:User:bbbbb\n");
    EXPECT_EQ(call("<tds:DeleteUsers><tds:Username>a</tds:Username><tds:Username>b</tds:Username></tds:DeleteUsers>")
                  .envelopeBody, "<trt:DeleteUsersResponse></trt:DeleteUsersResponse>");
    EXPECT_EQ(readFile(USERS_FILE), "onvifuser:Administrator:onvif1234\n");
}

TEST_F(Users, SetUserChangesAnOnvifUserOnly)
{
    writeFile(USERS_FILE, "onvifuser:Administrator:onvif1234\nop:Operator:secret\n");
    struct Case { std::string user; std::string answer; };
    for (const Case& c : {
             Case{createUser("admin", "secret1", "User"), "Username admin may not be set."},
             Case{createUser("ghost", "secret1", "User"), "Username ghost NOT recognized."},
             Case{createUser("op", std::string(15, 'p'), "User"), "The maximum is 14."},
             Case{createUser("op", "abcd", "User"), "Too weak password. The minimum is 5."},
             Case{createUser("op", "abcdef", "Guest"), "User level Guest is not allowed."},
             Case{createUser("op", "x&#10;y:z", "User"), "ter:InvalidArgs"},
         }) {
        CgiResult r = call("<tds:SetUser>" + c.user + "</tds:SetUser>");
        EXPECT_NE(r.envelopeBody.find(c.answer), std::string::npos) << c.user << r.envelopeBody;
    }
    EXPECT_EQ(readFile(USERS_FILE), "onvifuser:Administrator:onvif1234\nop:Operator:secret\n");
    EXPECT_EQ(call("<tds:SetUser>" + createUser("op", "newsecret", "User") + "</tds:SetUser>").envelopeBody,
              "<trt:SetUserResponse></trt:SetUserResponse>");
    EXPECT_EQ(call("<tds:SetUser>" + createUser("onvifuser", "onvif5678", "Administator") + "</tds:SetUser>").status,
              200);
    EXPECT_EQ(readFile(USERS_FILE), "onvifuser:Administrator:onvif5678\nop:User:newsecret\n");
}

}  // namespace

TEST_F(Users, WebAccountRightsComeFromTheFirstPrivacyLineOfTheirName)
{
    writeFile("etc/appWeb/appweb.pass", "zed:1\nadmin:admin\nbob:2\n");
    writeFile("etc/appWeb/appweb.privacy", "bob:0:0:0:0\nzed:1:1:1:1\nbob:1:1:1:1\nadmin:1:1:1:1\n");
    CgiResult r = call("<tds:GetUsers/>");
    ASSERT_EQ(r.status, 200);
    for (const char* user : {"<tt:Username>zed</tt:Username><tt:UserLevel>Administrator</tt:UserLevel>",
                             "<tt:Username>admin</tt:Username><tt:UserLevel>Administrator</tt:UserLevel>",
                             "<tt:Username>bob</tt:Username><tt:UserLevel>User</tt:UserLevel>"})
        EXPECT_NE(r.envelopeBody.find(user), std::string::npos) << user;
}
