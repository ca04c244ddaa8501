// Credentials in the ONVIF mode: the access policy over every action and
// level, the UsernameToken forms, HTTP digest and the lock-out. HTTP digest
// answers are made by Python's hashlib, independently of the service's hashes.
#include "tests/fixture.h"

#include <sys/wait.h>
#include "frame/access.h"
#include "frame/auth_records.h"
#include "frame/comcrypto.h"
#include "frame/dispatch.h"

#include <fstream>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

namespace {

const char* const DIGEST_TYPE =
    "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordDigest";

std::string utc(time_t t, const char* tail = "Z")
{
    char out[40];
    struct tm tm;
    gmtime_r(&t, &tm);
    strftime(out, sizeof out, "%Y-%m-%dT%H:%M:%S", &tm);
    return std::string(out) + tail;
}

std::string python(const std::string& script, const std::vector<std::string>& args)
{
    std::string cmd = "python3 -c '" + script + "'";
    for (auto& a : args)
        cmd += " '" + a + "'";
    FILE* p = popen(cmd.c_str(), "r");
    char out[512] = {0};
    if (p) {
        if (!fgets(out, sizeof out, p))
            out[0] = 0;
        pclose(p);
    }
    std::string s(out);
    while (!s.empty() && s.back() == '\n')
        s.pop_back();
    return s;
}

class OnvifAuth : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        word(AUTH_ON_WORD) = 1;
        conf = readFile("tmp/onvif/onvif.conf");
        size_t at = conf.find("Conformance.Mode=legacy");
        conf.replace(at, strlen("Conformance.Mode=legacy"), "Conformance.Mode=onvif");
        setUpAccounts();
    }
    // The mode and the accounts again: actions allowed to change them do.
    void setUpAccounts()
    {
        writeFile("tmp/onvif/onvif.conf", conf);
        writeFile("usr/apache/htdocs/onvif/Users.conf",
                  "onvifuser:Administrator:onvif1234\nop:Operator:op-pass\nviewer:User:view-pass\n");
    }
    std::string conf;

    // A password digest token over a fresh nonce, Created as given.
    std::string token(const std::string& user, const std::string& password, const std::string& created,
                      bool withNonce = true, const std::string& type = DIGEST_TYPE)
    {
        static unsigned counter;
        unsigned char nonce[16];
        snprintf((char*)nonce, sizeof nonce, "%08x%07x", (unsigned)getpid(), ++counter);
        char nonceB64[32], digestB64[32];
        COM_Base64Encode(nonceB64, nonce, sizeof nonce);
        sha1_ctx_t ctx;
        unsigned char digest[20];
        COM_sha1_begin(&ctx);
        COM_sha1_hash(nonce, sizeof nonce, &ctx);
        COM_sha1_hash(created.data(), (unsigned)created.size(), &ctx);
        COM_sha1_hash(password.data(), (unsigned)password.size(), &ctx);
        COM_sha1_end(digest, &ctx);
        COM_Base64Encode(digestB64, digest, sizeof digest);
        std::string sent = type == DIGEST_TYPE ? digestB64 : password;
        return "<wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/"
               "oasis-200401-wss-wssecurity-secext-1.0.xsd\" xmlns:wsu=\"http://docs.oasis-open.org/wss/2004/01/"
               "oasis-200401-wss-wssecurity-utility-1.0.xsd\"><wsse:UsernameToken><wsse:Username>" + user +
               "</wsse:Username><wsse:Password Type=\"" + type + "\">" + sent + "</wsse:Password>" +
               (withNonce ? std::string("<wsse:Nonce>") + nonceB64 + "</wsse:Nonce>" : "") +
               "<wsu:Created>" + created + "</wsu:Created></wsse:UsernameToken></wsse:Security>";
    }
    std::string token(const std::string& user, const std::string& password)
    {
        return token(user, password, utc(time(0)));
    }

    // The Authorization header that answers the challenge's nonce.
    static std::string digestHeader(const std::string& algorithm, const std::string& user, const std::string& password,
                                    const std::string& nonce, const std::string& nc = "00000001")
    {
        std::string response = python(
            "import hashlib,sys; a,u,p,n,nc=sys.argv[1:]; "
            "h=lambda s: hashlib.new(\"sha256\" if a==\"SHA-256\" else \"md5\", s.encode()).hexdigest(); "
            "print(h(\":\".join([h(u+\":ONVIF camera:\"+p),n,nc,\"c0ffee\",\"auth\",h(\"POST:/onvif/device_service\")])))",
            {algorithm, user, password, nonce, nc});
        return "Digest username=\"" + user + "\", realm=\"ONVIF camera\", nonce=\"" + nonce +
               "\", uri=\"/onvif/device_service\", algorithm=" + algorithm + ", response=\"" + response +
               "\", qop=auth, nc=" + nc + ", cnonce=\"c0ffee\"";
    }

    CgiResult runAs(const std::string& body, const std::string& header, const std::string& authorization = "-",
                    const std::string& address = "127.0.0.9")
    {
        return run(soap(body, header), "",
                   {{"HTTP_AUTHORIZATION", authorization}, {"REMOTE_ADDR", address}, {"REQUEST_METHOD", "POST"},
                    {"REQUEST_URI", "/onvif/device_service"}});
    }

    static bool refused(const CgiResult& r)
    {
        return r.status == 401 || (r.status == 400 && r.envelopeBody.find("ter:NotAuthorized") != std::string::npos);
    }
    static std::string challengeNonce(const CgiResult& r)
    {
        size_t at = r.headers.find("nonce=\"");
        return at == std::string::npos ? "" : r.headers.substr(at + 7, r.headers.find('"', at + 7) - at - 7);
    }
};

const std::string GET_USERS = "<tds:GetUsers/>";

// Rows of the default access policy as the standard's table gives them:
// which of Administrator, Operator, User and anonymous may use each class.
struct PolicyRow {
    AccessClass access;
    const char* allowed;  // "AOUN" letters
};
const PolicyRow POLICY[] = {
    {ACC_PRE_AUTH, "AOUN"},     {ACC_READ_SYSTEM, "AOU"}, {ACC_READ_SYSTEM_SENSITIVE, "AO"},
    {ACC_READ_SYSTEM_SECRET, "A"}, {ACC_WRITE_SYSTEM, "A"}, {ACC_UNRECOVERABLE, "A"},
    {ACC_READ_MEDIA, "AOU"},    {ACC_ACTUATE, "AO"},
};

TEST_F(OnvifAuth, EveryActionFollowsThePolicyForEveryLevel)
{
    struct Level { char letter; const char* user; const char* password; };
    const Level levels[] = {{'A', "onvifuser", "onvif1234"}, {'O', "op", "op-pass"}, {'U', "viewer", "view-pass"},
                            {'N', 0, 0}};
    int rows = 0;
    const ActionRow* table = actionTable(&rows);
    for (int i = 0; i < rows; ++i) {
        const ActionRow& row = table[i];
        if ((row.flags & LEGACY_ONLY) || !row.handler)
            continue;
        // Both would answer only after the camera's reboot and event waits.
        if (strcmp(row.name, "PullMessages") == 0 || strcmp(row.name, "SystemReboot") == 0)
            continue;
        AccessClass access = accessClassOf(&row);
        ASSERT_NE(access, ACC_UNLISTED) << row.name << ": no document gives its class";
        const char* allowed = 0;
        for (const PolicyRow& p : POLICY)
            if (p.access == access)
                allowed = p.allowed;
        ASSERT_TRUE(allowed);
        std::string body = std::string("<") + row.name + " xmlns=\"" + serviceNamespace(row.service) + "\"/>";
        for (const Level& l : levels) {
            setUpAccounts();
            CgiResult r = runAs(body, l.user ? token(l.user, l.password) : "");
            SCOPED_TRACE(std::string(row.name) + " as " + l.letter + " (" + accessClassName(access) + ")");
            EXPECT_EQ(refused(r), strchr(allowed, l.letter) == 0) << r.headers << r.envelopeBody.substr(0, 300);
        }
    }
}

TEST_F(OnvifAuth, UsernameTokenForms)
{
    time_t now = time(0);
    int n = 0;
    struct Case { std::string header; bool accepted; const char* why; };
    for (const Case& c : {
             Case{token("onvifuser", "onvif1234"), true, "digest, Z"},
             Case{token("onvifuser", "onvif1234", utc(now, ".123Z")), true, "fractional seconds"},
             Case{token("onvifuser", "onvif1234", utc(now, "+00:00")), true, "+00:00"},
             Case{token("onvifuser", "onvif1234", utc(now + 7200, "+02:00")), true, "another offset"},
             Case{token("onvifuser", "onvif1234", utc(now - 3600)), false, "Created outside the window"},
             Case{token("onvifuser", "onvif1234", utc(now + 3600)), false, "Created in the future"},
             Case{token("onvifuser", "wrong"), false, "wrong password"},
             Case{token("nobody", "onvif1234"), false, "unknown user"},
             Case{token("onvifuser", "onvif1234", utc(now), false), false, "no nonce"},
             Case{token("onvifuser", "onvif1234", "", true), false, "no Created"},
             Case{token("onvifuser", "onvif1234", utc(now), true,
                        "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordText"),
                  false, "PasswordText"},
             Case{token("admin", "admin"), true, "the web server's account"},
         }) {
        // Each from its own address: the refusals must not add up to a lock-out.
        CgiResult r = runAs(GET_USERS, c.header, "-", "127.0.1." + std::to_string(++n));
        EXPECT_EQ(!refused(r), c.accepted) << c.why;
        EXPECT_EQ(r.status, c.accepted ? 200 : 400) << c.why << " (a WS-Security refusal is a SOAP fault)";
    }
}

TEST_F(OnvifAuth, ATokenIsUsedOnce)
{
    std::string header = token("onvifuser", "onvif1234");
    EXPECT_FALSE(refused(runAs(GET_USERS, header)));
    EXPECT_TRUE(refused(runAs(GET_USERS, header)));
    // The clock is open to anyone: clients read it before they sign.
    EXPECT_FALSE(refused(runAs("<tds:GetSystemDateAndTime/>", header)));
}

TEST_F(OnvifAuth, HttpDigest)
{
    std::string nonce = challengeNonce(runAs(GET_USERS, ""));
    ASSERT_FALSE(nonce.empty());
    int n = 0;
    struct Case {
        std::string authorization, header;
        int status;
        const char* why;
        std::string body = GET_USERS;
    };
    for (const Case& c : {
             Case{digestHeader("SHA-256", "onvifuser", "onvif1234", nonce), "", 200, "SHA-256"},
             Case{digestHeader("MD5", "onvifuser", "onvif1234", nonce, "00000002"), "", 200, "MD5"},
             Case{digestHeader("MD5", "onvifuser", "onvif1234", nonce, "00000002"), "", 401, "the same nc again"},
             Case{digestHeader("SHA-256", "onvifuser", "wrong", nonce, "00000003"), "", 401, "SHA-256, wrong password"},
             Case{digestHeader("MD5", "onvifuser", "wrong", nonce, "00000004"), "", 401, "MD5, wrong password"},
             Case{digestHeader("MD5", "onvifuser", "onvif1234", "00000001" + nonce.substr(8), "00000005"), "", 401,
                  "a nonce this camera did not make"},
             Case{digestHeader("SHA-256", "onvifuser", "onvif1234", nonce, "00000006"), token("onvifuser", "wrong"), 400,
                  "HTTP right, WS-Security wrong"},
             Case{digestHeader("SHA-256", "onvifuser", "wrong", nonce, "00000007"), token("onvifuser", "onvif1234"), 401,
                  "HTTP checked first"},
             Case{digestHeader("SHA-256", "viewer", "view-pass", nonce, "00000008"), "", 400, "a User may not"},
             Case{digestHeader("SHA-256", "viewer", "view-pass", nonce, "00000009"), "", 200, "... but may read media",
                  "<trt:GetProfiles/>"},
         }) {
        // Each from its own address: the refusals must not add up to a lock-out.
        CgiResult r = runAs(c.body, c.header, c.authorization, "127.0.2." + std::to_string(++n));
        EXPECT_EQ(r.status, c.status) << c.why << "\n" << r.headers;
        EXPECT_EQ(r.status != 200, refused(r)) << c.why;
    }
}

TEST_F(OnvifAuth, AnExpiredNonceIsStale)
{
    writeFile("tmp/onvif/onvif.conf", readFile("tmp/onvif/onvif.conf") + "Security.DigestNonceLifetime=60\n");
    runAs(GET_USERS, "");  // makes the camera's secret
    std::string secret = readFile("etc/onvif_digest.secret");
    char stamp[24];
    snprintf(stamp, sizeof stamp, "%08lx0badcafe", (unsigned long)time(0) - 120);
    std::string old = std::string(stamp) +
                      python("import hashlib,sys; print(hashlib.sha256((sys.argv[1]+\":\"+sys.argv[2]).encode())"
                             ".hexdigest()[:32])", {secret, stamp});
    CgiResult r = runAs(GET_USERS, "", digestHeader("SHA-256", "onvifuser", "onvif1234", old));
    EXPECT_EQ(r.status, 401);
    EXPECT_NE(r.headers.find("stale=true"), std::string::npos) << r.headers;
    EXPECT_NE(challengeNonce(r), old);
}

TEST_F(OnvifAuth, GuessingLocksTheAddressOutUntilTheWindowPasses)
{
    for (int i = 0; i < 5; ++i)
        EXPECT_TRUE(refused(runAs(GET_USERS, token("onvifuser", "guess"))));
    EXPECT_TRUE(refused(runAs(GET_USERS, token("onvifuser", "onvif1234"))));  // right, but locked out
    EXPECT_FALSE(refused(runAs("<tds:GetSystemDateAndTime/>", "")));           // PRE_AUTH stays open
    EXPECT_FALSE(refused(runAs(GET_USERS, token("onvifuser", "onvif1234"), "-", "127.0.0.10")));  // others are not
    std::string log = errorLog();
    EXPECT_NE(log.find("127.0.0.9 locked out"), std::string::npos);
    EXPECT_EQ(log.find("locked out"), log.rfind("locked out")) << "logged once";
    // The window passes: every record of the address moves back by its length.
    std::fstream f(path("tmp/onvif/auth_failures"), std::ios::in | std::ios::out | std::ios::binary);
    AuthFailures slot;
    for (std::streamoff at = 0; f.seekg(at), f.read((char*)&slot, sizeof slot); at += sizeof slot)
        if (strcmp(slot.address, "127.0.0.9") == 0) {
            slot.last -= 300;
            f.seekp(at);
            f.write((const char*)&slot, sizeof slot);
        }
    f.close();
    EXPECT_FALSE(refused(runAs(GET_USERS, token("onvifuser", "onvif1234"))));
}

TEST_F(OnvifAuth, TheAccessTableIsTheDocuments)
{
    int rc = system("python3 " ONVIF_SOURCE_DIR "/tools/access-classes.py --check");
    if (WIFEXITED(rc) && WEXITSTATUS(rc) == 3)
        GTEST_SKIP() << "the ONVIF documents are not on this machine";
    EXPECT_EQ(rc, 0) << "frame/access_classes.inc differs from the documents: run tools/access-classes.py";
}

}  // namespace
