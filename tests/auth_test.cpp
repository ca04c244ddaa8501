// Which actions need credentials, and the UsernameToken check end to end.
// Digests are made by Python's hashlib, independently of the service's SHA-1.
#include "tests/fixture.h"

#include <stdio.h>

namespace {

class Auth : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        word(AUTH_ON_WORD) = 1;
    }
    static std::string digestOf(const std::string& nonceB64, const std::string& created, const std::string& password)
    {
        std::string cmd = "python3 -c 'import hashlib,base64,sys; n=base64.b64decode(sys.argv[1]); "
                          "print(base64.b64encode(hashlib.sha1(n+sys.argv[2].encode()+sys.argv[3].encode())"
                          ".digest()).decode())' '" + nonceB64 + "' '" + created + "' '" + password + "'";
        FILE* p = popen(cmd.c_str(), "r");
        char out[64] = {0};
        if (p) {
            if (!fgets(out, sizeof out, p)) out[0] = 0;
            pclose(p);
        }
        std::string s(out);
        while (!s.empty() && s.back() == '\n') s.pop_back();
        return s;
    }
    static std::string token(const std::string& user, const std::string& password, const std::string& type,
                             const std::string& nonce = "", const std::string& created = "")
    {
        std::string typeAttr = type.empty() ? "" : " Type=\"" + type + "\"";
        return "<wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/"
               "oasis-200401-wss-wssecurity-secext-1.0.xsd\" xmlns:wsu=\"http://docs.oasis-open.org/wss/2004/01/"
               "oasis-200401-wss-wssecurity-utility-1.0.xsd\"><wsse:UsernameToken><wsse:Username>" + user +
               "</wsse:Username><wsse:Password" + typeAttr + ">" + password + "</wsse:Password>" +
               (nonce.empty() ? "" : "<wsse:Nonce>" + nonce + "</wsse:Nonce>") +
               "<wsu:Created>" + created + "</wsu:Created></wsse:UsernameToken></wsse:Security>";
    }
    int statusWith(const std::string& body, const std::string& header) { return run(soap(body, header)).status; }
    static constexpr const char* DIGEST_TYPE =
        "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordDigest";
    static constexpr const char* NONCE = "LKqI6G/AikKCQrN0zqZFlg==";
    static constexpr const char* CREATED = "2026-11-23T06:00:00Z";
};

const std::string GET_USERS = "<tds:GetUsers/>";

TEST_F(Auth, WhichActionsNeedCredentials)
{
    struct Case { int auth; int variant; const char* body; int status; };
    for (const Case& c : {
             Case{0, VARIANT_GENERIC, "<tds:SetUser/>", 200},            // off: through to the handler
             Case{1, VARIANT_GENERIC, "<tds:GetDeviceInformation/>", 200},
             Case{1, VARIANT_COUNTRY_SCOPE, "<tds:GetNetworkInterfaces/>", 200},  // open for 30
             Case{1, VARIANT_OPEN_SETUP, "<tds:GetNetworkInterfaces/>", 200},
             Case{1, VARIANT_GENERIC, "<tds:GetNetworkInterfaces/>", 401},
             Case{1, VARIANT_GENERIC, "<tev:Unsubscribe/>", 401},            // its own row, not "Subscribe"'s
             Case{1, VARIANT_GENERIC, "<trt:GetStreamUri/>", 200},           // no row: open, through to the handler
             Case{1, VARIANT_OPEN_SETUP, "<tev:PullMessages/>", 200},          // auth12 lets variant 12 through
             Case{1, VARIANT_GENERIC, "<tds:GetDiscoveryMode/>", 401},
         }) {
        word(AUTH_ON_WORD) = c.auth;
        word(VARIANT_CODE) = c.variant;
        CgiResult r = call(c.body);
        SCOPED_TRACE(c.body);
        if (c.status == 401) {
            EXPECT_EQ(r.status, 400);
            EXPECT_NE(r.envelopeBody.find("ter:NotAuthorized"), std::string::npos);
        } else if (c.status == 200) {
            EXPECT_EQ(r.envelopeBody.find("NotAuthorized"), std::string::npos);
        } else {
            EXPECT_EQ(r.status, c.status);
        }
    }
}

TEST_F(Auth, TokensAcceptedAndRefused)
{
    const std::string digest = digestOf(NONCE, CREATED, "onvif1234");
    ASSERT_EQ(digest.size(), 28u);
    std::string changed = digest;
    changed[5] = changed[5] == 'A' ? 'B' : 'A';
    std::string longNonce(68, 'A');
    struct Case { std::string header; int status; };
    for (const Case& c : {
             Case{token("onvifuser", digest, DIGEST_TYPE, NONCE, CREATED), 200},
             Case{token("onvifuser", digest, "PasswordDigest", NONCE, CREATED), 200},
             Case{token("onvifuser", changed, DIGEST_TYPE, NONCE, CREATED), 400},
             Case{token("onvifuser", digest, DIGEST_TYPE, NONCE, ""), 400},
             Case{token("onvifuser", digest, DIGEST_TYPE, "not base64!", CREATED), 400},
             Case{token("onvifuser", digest, DIGEST_TYPE, longNonce, CREATED), 400},
             Case{token("onvifuser", digest, "SomethingElse", NONCE, CREATED), 200},  // unknown type: digest
             Case{token("onvifuser", "onvif1234", "SomethingElse"), 200},             // ... or text
             Case{token("onvifuser", "onvif1234", "PasswordText"), 200},
             Case{token("onvifuser", "onvif12345", "PasswordText"), 400},
             Case{token("onvifuser", "onvif1234", ""), 200},  // no Type: text
             Case{token("onvifuser", std::string(40, 'x'), "PasswordText"), 400},
             Case{token(std::string(300, 'u'), "x", "PasswordText"), 400},
             Case{token("nobody", "onvif1234", "PasswordText"), 400},
             Case{token("admin", "admin", "PasswordText"), 200},
             Case{"<x/>", 400},
             Case{"", 400},
         }) {
        CgiResult r = run(soap(GET_USERS, c.header));
        EXPECT_EQ(r.status, c.status) << c.header;
    }
}

TEST_F(Auth, WebAccountShadowsTheOnvifUserOfTheSameName)
{
    writeFile("etc/appWeb/appweb.pass", "admin:admin\nonvifuser:webpass\n");
    EXPECT_EQ(statusWith(GET_USERS, token("onvifuser", "webpass", "PasswordText")), 200);
    EXPECT_EQ(statusWith(GET_USERS, token("onvifuser", "onvif1234", "PasswordText")), 400);
    removeFile("etc/appWeb/appweb.pass");
    EXPECT_EQ(statusWith(GET_USERS, token("onvifuser", "onvif1234", "PasswordText")), 200);
    EXPECT_NE(errorLog().find("onvifService::get_password:SYSTEM_APPWEB_PASS missing"), std::string::npos);
}

}  // namespace
