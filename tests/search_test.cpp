// The element tables and the matching rules of the search functions.
#include "frame/frame.h"
#include "frame/xmlsearch.h"
#include "state/shm.h"

#include <gtest/gtest.h>
#include <string.h>
#include <string>
#include <tinyxml.h>

namespace {

class Search : public ::testing::Test {
protected:
    void parse(const std::string& body, const std::string& header = "")
    {
        text = "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\">";
        if (!header.empty())
            text += "<s:Header>" + header + "</s:Header>";
        text += "<s:Body>" + body + "</s:Body></s:Envelope>";
        clearElementTables();
        doc.Clear();
        G_myDocument = &doc;
        parseXML(text.c_str());
    }
    void TearDown() override { G_myDocument = nullptr; }
    TiXmlDocument doc;
    std::string text;
};

TEST_F(Search, FlatteningKeepsDocumentOrderLocalNamesAndService)
{
    parse("<trt:GetProfile xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\">"
          "<trt:ProfileToken>Profile1</trt:ProfileToken><a:b:c>x</a:b:c><Empty/></trt:GetProfile>");
    EXPECT_EQ(G_httpAck, 200);
    EXPECT_STREQ(PrimaryElementName, "GetProfile");
    EXPECT_EQ(G_XML, 1);
    ASSERT_EQ(G_xmlElementNum, 4);
    EXPECT_STREQ(ElementBuffer1[1], "ProfileToken");
    EXPECT_STREQ(ElementBuffer1[2], "b");  // cut at the second colon
    EXPECT_EQ(ElementBuffer2[3], nullptr);
    EXPECT_STREQ(ElementBuffer3[0], "trt");
    EXPECT_EQ(G_xmlElementNum_WSSE, 0);

    parse("<tev:PullMessages/>");
    EXPECT_EQ(G_XML, 2);
    parse("<tev:PullMessages xmlns:tev=\"x\"/>");
    EXPECT_EQ(G_XML, 0);
    parse("<tev:PullMessages xmlns:tev=\"http://www.onvif.org/ver10/media\"/>");
    EXPECT_EQ(G_XML, 1);  // the first attribute's value has the last word
}

TEST_F(Search, HeaderGoesToItsOwnTablesAndMissingBodyIs400)
{
    parse("<GetUsers/>", "<Security><UsernameToken><Username>admin</Username></UsernameToken></Security>");
    EXPECT_STREQ(PrimaryElementName, "GetUsers");
    EXPECT_EQ(G_xmlElementNum_WSSE, 3);
    char user[16] = {0};
    EXPECT_EQ(searchDataInHeader("wsse:Username", user, sizeof user - 1), 1);
    EXPECT_STREQ(user, "admin");

    clearElementTables();
    doc.Clear();
    G_myDocument = &doc;
    parseXML("<e><s:Header/></e>");
    EXPECT_EQ(G_httpAck, 400);
}

TEST_F(Search, ElementSearchMatchingRules)
{
    parse("<A><Name>first</Name><x:Name>second</x:Name><tt:Token/><Name>fourth</Name></A>");
    struct Case { const char* key; int found; const char* text; };
    for (const Case& c : {Case{"tt:Name", 1, "first"}, Case{"other:Name", 1, "first"}, Case{"Name", 1, "first"},
                          Case{"ame", 0, "-"}, Case{"Nam", 0, "-"}, Case{"tt:Token", 1, "(null)"},
                          Case{"Token", 1, "(null)"}, Case{"x:", 0, "-"}}) {
        char dest[32];
        memset(dest, 0, sizeof dest);
        strcpy(dest, "-");
        EXPECT_EQ(searchDataInElement(c.key, dest, sizeof dest - 1), c.found) << c.key;
        EXPECT_STREQ(dest, c.text) << c.key;
    }
    char small[8];
    memset(small, 'z', sizeof small);
    EXPECT_EQ(searchDataInElement("Name", small, 3), 1);
    EXPECT_EQ(std::string(small, 4), "firz");  // bounded, not terminated when the text is as long
    char dest[32] = {0};
    EXPECT_EQ(searchDataInElement_Continuous("Name", dest, sizeof dest - 1, 2), 1);
    EXPECT_STREQ(dest, "second");
    EXPECT_EQ(searchDataInElement_Continuous("Name", dest, sizeof dest - 1, 3), 1);
    EXPECT_STREQ(dest, "fourth");
    EXPECT_EQ(searchDataInElement_Continuous("Name", dest, sizeof dest - 1, 5), 0);
    EXPECT_EQ(searchDataInElement(std::string(132, 'N').c_str(), dest, 4), 0);

    EXPECT_EQ(searchDataInElementOnly("Name"), 1);
    EXPECT_EQ(searchDataInElementOnly("tt:Name"), 0);  // exact names only
    EXPECT_EQ(searchDataInElementAfterStrOnly("x:Name", "Token"), 1);
    EXPECT_EQ(searchDataInElementAfterStrOnly("Token", "tt:A"), 0);
}

TEST_F(Search, ElementAfterAnchorNeedsPrefixedKeys)
{
    parse("<A><VideoEncoder><Name>enc</Name></VideoEncoder><AudioEncoder><Name/></AudioEncoder></A>");
    char dest[32] = {0};
    EXPECT_EQ(searchElementAfterStrInElement("tt:AudioEnc", "tt:Name", dest, sizeof dest - 1), 1);
    EXPECT_STREQ(dest, "(null)");
    memset(dest, 0, sizeof dest);
    EXPECT_EQ(searchElementAfterStrInElement("tt:Video", "tt:Name", dest, sizeof dest - 1), 1);
    EXPECT_STREQ(dest, "enc");
    EXPECT_EQ(searchElementAfterStrInElement("Video", "tt:Name", dest, sizeof dest - 1), 0);
    EXPECT_EQ(searchElementAfterStrInElement("tt:Video", "Name", dest, sizeof dest - 1), 0);
}

TEST_F(Search, AttributeSearchMatchingRules)
{
    parse("<A><B token=\"one\"/><C tt:token=\"two\"/><D token=\"three\" kind=\"Profile1\" x=\"y\"/>"
          "<E token=\"four\"/></A>");
    char dest[32] = {0};
    EXPECT_EQ(searchAttriInElement("tt:token", dest, sizeof dest - 1), 1);
    EXPECT_STREQ(dest, "one");
    struct Case { int n; const char* text; };
    for (const Case& c : {Case{0, "one"}, Case{1, "one"}, Case{2, "two"}, Case{4, "four"}}) {
        memset(dest, 0, sizeof dest);
        EXPECT_EQ(searchAttriInElementContinous("token", dest, sizeof dest - 1, c.n), 1) << c.n;
        EXPECT_STREQ(dest, c.text) << c.n;
    }
    EXPECT_EQ(searchAttriInElementContinous("token", dest, sizeof dest - 1, 5), 0);
    EXPECT_EQ(searchAttriInElementContinous("tt:token", dest, sizeof dest - 1, 1), 0);

    memset(dest, 0, sizeof dest);
    EXPECT_EQ(searchAttriInElementTemp("tt:token", dest, sizeof dest - 1), 1);
    EXPECT_STREQ(dest, "one");  // matched by the part after the colon: taken
    memset(dest, 0, sizeof dest);
    EXPECT_EQ(searchAttriInElementTemp("token", dest, sizeof dest - 1), 1);
    EXPECT_STREQ(dest, "two");  // a whole-key match hands over to the next one

    memset(dest, 0, sizeof dest);
    EXPECT_EQ(searchAttriAfterStrInElement("Profile1", "x", dest, sizeof dest - 1), 1);
    EXPECT_STREQ(dest, "y");
    EXPECT_EQ(searchAttriAfterStrInElement("Profile1", "token", dest, sizeof dest - 1), 1);
    EXPECT_STREQ(dest, "four");
}

TEST_F(Search, ARequestPastTheTablesIsRefusedWhole)
{
    // 64 rows fit; a 65th element or attribute, in the body or the header, does not.
    struct Case { int elements; int attributes; bool inHeader; int status; };
    for (const Case& c : {Case{63, 0, false, 200}, Case{64, 0, false, 400}, Case{0, 64, false, 200},
                          Case{0, 65, false, 400}, Case{100, 100, false, 400}, Case{64, 0, true, 200},
                          Case{65, 0, true, 400}, Case{0, 65, true, 400}}) {
        std::string items;
        for (int i = 0; i < c.elements; ++i)
            items += "<I>" + std::to_string(i) + "</I>";
        std::string attributes;
        for (int i = 0; i < c.attributes; ++i)
            attributes += " n" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
        if (!c.inHeader)
            parse("<A" + attributes + ">" + items + "</A>");  // A is a row too
        else if (c.attributes)
            parse("<A/>", "<L" + attributes + "/>");
        else
            parse("<A/>", items);
        EXPECT_EQ(G_httpAck, c.status) << c.elements << " " << c.attributes << " " << c.inHeader;
        EXPECT_LE(G_xmlElementNum, 64);
        EXPECT_LE(G_xmlAttributeNum, 64);
        EXPECT_LE(G_xmlElementNum_WSSE, 64);
        EXPECT_LE(G_xmlAttributeNum_WSSE, 64);
    }
}

TEST_F(Search, EventIndexIsTakenFromTheHeaderToOnlyForItsVariants)
{
    int words[ONVIF_SHM_WORDS] = {0};
    G_shared_memory = words;
    const std::string to = "<wsa:To>http://10.0.0.2/onvif/device_service?Idx=3 x</wsa:To>";
    words[VARIANT_CODE] = VARIANT_VENDOR_TOPICS;
    parse("<PullMessages/>", to);
    EXPECT_STREQ(G_event_service, "3");
    words[VARIANT_CODE] = VARIANT_ONE_PULL_POINT;
    parse("<PullMessages/>", "<To>http://h/onvif/device_service?Idx=123456789012</To>");
    EXPECT_STREQ(G_event_service, "1234567");  // bounded by its size
    words[VARIANT_CODE] = VARIANT_GENERIC;
    parse("<PullMessages/>", to);
    EXPECT_STREQ(G_event_service, "");
    G_shared_memory = nullptr;
}

}  // namespace
