// Discovery scopes and mode in the settings file and its web-root copy.
#include "tests/fixture.h"

namespace {

class Scopes : public CameraTest {
protected:
    const std::string FIXED =
        "Discovery_Mode=Discoverable\n"
        "FixedScopes=onvif://www.onvif.org/type/video_encoder\n"
        "FixedScopes=onvif://www.onvif.org/type/audio_encoder\n"
        "ConfigurableScopes=onvif://www.onvif.org/location/country/unknown\n";
    void SetUp() override
    {
        CameraTest::SetUp();
        writeFile("tmp/onvif/onvif.conf", "Brand=Camera\n" + FIXED);
    }
    std::string conf() { return readFile("tmp/onvif/onvif.conf"); }
    void expectBothFiles(const std::string& content)
    {
        EXPECT_EQ(conf(), content);
        EXPECT_EQ(readFile("usr/apache/htdocs/onvif/onvif.conf"), content);
    }
    static std::string items(const char* action, const char* element, std::initializer_list<const char*> scopes)
    {
        std::string s = std::string("<tds:") + action + ">";
        for (const char* scope : scopes)
            s += std::string("<tds:") + element + ">" + scope + "</tds:" + element + ">";
        return s + "</tds:" + action + ">";
    }
};

const char A[] = "onvif://www.onvif.org/name/a";
const char B[] = "onvif://www.onvif.org/location/city/b";

TEST_F(Scopes, ListingStopsAtAForeignConfigurableLine)
{
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD;
    writeFile("tmp/onvif/onvif.conf", FIXED + "ConfigurableScopes=http://x/y\nConfigurableScopes=onvif://late\n");
    EXPECT_EQ(call("<tds:GetScopes/>").envelopeBody,
              "<tds:GetScopesResponse>"
              "<tds:Scopes><tt:ScopeDef>Fixed</tt:ScopeDef><tt:ScopeItem>onvif://www.onvif.org/type/video_encoder"
              "</tt:ScopeItem></tds:Scopes>"
              "<tds:Scopes><tt:ScopeDef>Fixed</tt:ScopeDef><tt:ScopeItem>onvif://www.onvif.org/type/audio_encoder"
              "</tt:ScopeItem></tds:Scopes>"
              "<tds:Scopes><tt:ScopeDef>Fixed</tt:ScopeDef><tt:ScopeItem>onvif://www.onvif.org/type/ptz"
              "</tt:ScopeItem></tds:Scopes>"
              "<tds:Scopes><tt:ScopeDef>Configurable</tt:ScopeDef><tt:ScopeItem>"
              "onvif://www.onvif.org/location/country/unknown</tt:ScopeItem></tds:Scopes></tds:GetScopesResponse>");
    word(VARIANT_CODE) = VARIANT_COUNTRY_SCOPE;
    word(IO_LAYOUT_WORD) = IO_LAYOUT_BASIC;
    EXPECT_NE(call("<tds:GetScopes/>").envelopeBody.find("onvif://www.onvif.org/location/countryONVIF"),
              std::string::npos);
}

TEST_F(Scopes, AddScopesAndItsFoundFlag)
{
    EXPECT_EQ(call(items("AddScopes", "ScopeItem", {A, B})).status, 200);
    EXPECT_EQ(word(SCOPES_CHANGED_WORD), 1);
    expectBothFiles("Brand=Camera\n" + FIXED + "ConfigurableScopes=" + A + "\nConfigurableScopes=" + B + "\n");
    // An existing scope first: its line goes, and nothing after it is added.
    EXPECT_EQ(call(items("AddScopes", "ScopeItem", {A, "onvif://www.onvif.org/name/c"})).status, 200);
    expectBothFiles("Brand=Camera\n" + FIXED + "ConfigurableScopes=" + B + "\n");
    // A scope holding "%" is stored as it is.
    EXPECT_EQ(call(items("AddScopes", "ScopeItem", {"onvif://www.onvif.org/name/50%25%%"})).status, 200);
    EXPECT_NE(conf().find("ConfigurableScopes=onvif://www.onvif.org/name/50%25%%\n"), std::string::npos);
    EXPECT_NE(call("<tds:GetScopes/>").envelopeBody.find("name/50%25%%</tt:ScopeItem>"), std::string::npos);
    // Only scope lines are an item's to take.
    EXPECT_EQ(call(items("AddScopes", "ScopeItem", {"Camera"})).status, 200);
    EXPECT_NE(conf().find("Brand=Camera\n"), std::string::npos);
    EXPECT_NE(conf().find("ConfigurableScopes=Camera\n"), std::string::npos);
}

TEST_F(Scopes, SetScopesReplacesWhatFollowsTheCountryLine)
{
    call(items("AddScopes", "ScopeItem", {A}));
    CgiResult fixed = call(items("SetScopes", "Scopes", {"onvif://www.onvif.org/type/video_encoder"}));
    EXPECT_NE(fixed.envelopeBody.find("ter:ScopeOverwrite"), std::string::npos);
    EXPECT_EQ(call(items("SetScopes", "Scopes", {"onvif://www.onvif.org/location/country/", B,
                                                 "onvif://www.onvif.org/name/my%20cam"})).status, 200);
    expectBothFiles("Brand=Camera\n" + FIXED + "ConfigurableScopes=" + B +
                    "\nConfigurableScopes=onvif://www.onvif.org/name/my cam\n");
}

TEST_F(Scopes, LineBreaksAreRefusedInEverySetter)
{
    const std::string before = conf();
    for (const std::string& body : {items("SetScopes", "Scopes", {"onvif://x&#10;Discovery_Mode=Off"}),
                                    items("SetScopes", "Scopes", {"onvif://x%0aDiscovery_Mode=Off"}),
                                    items("SetScopes", "Scopes", {"onvif://x%0DDiscovery_Mode=Off"}),
                                    items("SetScopes", "Scopes", {"onvif://x%00"}),
                                    items("AddScopes", "ScopeItem", {"onvif://x&#13;y"}),
                                    items("RemoveScopes", "ScopeItem", {"onvif://x&#10;y"}),
                                    std::string("<tds:SetDiscoveryMode><tds:DiscoveryMode>Off&#10;x=y"
                                                "</tds:DiscoveryMode></tds:SetDiscoveryMode>")}) {
        CgiResult r = call(body);
        EXPECT_EQ(r.status, 400) << body;
        EXPECT_NE(r.envelopeBody.find("ter:InvalidArgs"), std::string::npos) << body;
    }
    EXPECT_EQ(conf(), before);
}

TEST_F(Scopes, RemoveScopesInFileOrderOnly)
{
    call(items("AddScopes", "ScopeItem", {A, B}));
    const std::string added = conf();
    EXPECT_NE(call(items("RemoveScopes", "ScopeItem", {"Brand"})).envelopeBody.find("ter:NoScope"), std::string::npos);
    CgiResult reversed = call(items("RemoveScopes", "ScopeItem", {B, A}));
    EXPECT_NE(reversed.envelopeBody.find("Trying to Remove scope which does not exist, " + std::string(A) + "."),
              std::string::npos);
    CgiResult fixed = call(items("RemoveScopes", "ScopeItem", {"onvif://www.onvif.org/type/audio_encoder"}));
    EXPECT_NE(fixed.envelopeBody.find("ter:FixedScope"), std::string::npos);
    EXPECT_EQ(conf(), added);
    word(SCOPES_CHANGED_WORD) = 0;
    // Removing A drops B after it too.
    CgiResult r = call(items("RemoveScopes", "ScopeItem", {A}));
    EXPECT_EQ(r.envelopeBody, "<tds:RemoveScopesResponse><tds:ScopeItem>" + std::string(A) +
                                  "</tds:ScopeItem></tds:RemoveScopesResponse>");
    expectBothFiles("Brand=Camera\n" + FIXED);
    EXPECT_EQ(word(SCOPES_CHANGED_WORD), 1);
}

TEST_F(Scopes, DiscoveryModeGoesToBothFilesAndWord77)
{
    word(DISCOVERY_WORD) = 1;
    struct Case { const char* mode; int word; };
    for (const Case& c : {Case{"NonDiscoverable", 0}, Case{"Discoverable", 1}, Case{"Sometimes", 1}}) {
        EXPECT_EQ(call(std::string("<tds:SetDiscoveryMode><tds:DiscoveryMode>") + c.mode +
                       "</tds:DiscoveryMode></tds:SetDiscoveryMode>").status, 200);
        EXPECT_EQ(word(DISCOVERY_WORD), c.word) << c.mode;
        EXPECT_NE(readFile("usr/apache/htdocs/onvif/onvif.conf").find(std::string("Discovery_Mode=") + c.mode + "\n"),
                  std::string::npos);
        EXPECT_EQ(call("<tds:GetDiscoveryMode/>").envelopeBody,
                  std::string("<tds:GetDiscoveryModeResponse><tds:DiscoveryMode>") + c.mode +
                      "</tds:DiscoveryMode></tds:GetDiscoveryModeResponse>");
    }
}

}  // namespace
