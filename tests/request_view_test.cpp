// The request as the reads see it: element rows in document order with their
// namespaces and parents, the header apart, the event
// index of the header's address, and reads that ask by namespace and nesting.
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/xmlsearch.h"
#include "state/shm.h"

#include <gtest/gtest.h>
#include <string.h>
#include <string>
#include <tinyxml.h>

namespace {

class RequestView : public ::testing::Test {
protected:
    void parse(const std::string& body, const std::string& header = "")
    {
        text = "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\""
               " xmlns:tt=\"http://www.onvif.org/ver10/schema\">";
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

TEST_F(RequestView, RowsKeepOrderLocalNamesServiceAndHeaderApart)
{
    parse("<trt:GetProfile xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\">"
          "<trt:ProfileToken>Profile1</trt:ProfileToken><a:b:c>x</a:b:c><Empty/></trt:GetProfile>",
          "<Security><UsernameToken><Username>admin</Username></UsernameToken></Security>");
    EXPECT_EQ(G_httpAck, 200);
    EXPECT_STREQ(PrimaryElementName, "GetProfile");
    EXPECT_STREQ(requestRowName(2), "b");  // cut at the second colon
    EXPECT_EQ(requestRowText(3), nullptr);
    EXPECT_EQ(G_xmlElementNum_WSSE, 3);
    EXPECT_STREQ(requestBodyNamespace(), "http://www.onvif.org/ver10/media/wsdl");

    parse("<tev:PullMessages/>");
    EXPECT_EQ(G_XML, 2);
    EXPECT_STREQ(requestBodyNamespace(), "tev");  // undeclared: the prefix stands for it
    parse("<tev:PullMessages xmlns:tev=\"http://www.onvif.org/ver10/media\"/>");
    EXPECT_EQ(G_XML, 1);  // the first attribute's value has the last word
    clearElementTables();
    doc.Clear();
    parseXML("<e><s:Header/></e>");
    EXPECT_EQ(G_httpAck, 400);
}

TEST_F(RequestView, ReadsByNamespaceAndNesting)
{
    parse("<p:ContinuousMove xmlns:p=\"http://www.onvif.org/ver20/ptz/wsdl\"><p:ProfileToken>P</p:ProfileToken>"
          "<p:Velocity><tt:PanTilt x=\"0.5\" y=\"-1\"/><x:Zoom xmlns:x=\"urn:other\" x=\"0.2\"/></p:Velocity>"
          "<p:Timeout><Zoom xmlns=\"http://www.onvif.org/ver10/schema\">t</Zoom></p:Timeout></p:ContinuousMove>");
    char buf[8];
    int velocity = requestRowNamed("tptz:Velocity");
    ASSERT_GT(velocity, 0);
    int panTilt = requestRowIn("tt:PanTilt", velocity);
    ASSERT_GT(panTilt, velocity);
    EXPECT_EQ(requestAttributeOf(panTilt, "y", buf, sizeof buf), Read::Value);
    EXPECT_STREQ(buf, "-1");
    EXPECT_EQ(requestAttributeOf(panTilt, "z", buf, sizeof buf), Read::Absent);
    EXPECT_EQ(requestRowIn("tt:Zoom", velocity), -1);  // another namespace
    EXPECT_EQ(requestRowIn("Zoom", velocity), panTilt + 1);
    EXPECT_EQ(requestTextIn("tptz:Timeout", "tt:Zoom", buf, sizeof buf), Read::Value);  // a default namespace
    EXPECT_STREQ(buf, "t");
    EXPECT_EQ(requestTextIn("tptz:Velocity", "tptz:ProfileToken", buf, sizeof buf), Read::Absent);
    EXPECT_EQ(requestTextIn("tptz:ContinuousMove", "tptz:ProfileToken", buf, 1), Read::Refused);
    EXPECT_EQ(G_httpAck, 400);
}

TEST_F(RequestView, EventIndexIsTakenFromTheHeaderToOnlyForItsVariants)
{
    int words[1024] = {0};
    G_shared_memory = words;
    const std::string to = "<wsa:To>http://127.0.0.2/onvif/device_service?Idx=3 x</wsa:To>";
    words[2] = 32;
    parse("<PullMessages/>", to);
    EXPECT_STREQ(G_event_service, "3");
    words[2] = 34;
    parse("<PullMessages/>", "<To>http://h/onvif/device_service?Idx=123456789012</To>");
    EXPECT_STREQ(G_event_service, "1234567");  // bounded by its size
    words[2] = 1;
    parse("<PullMessages/>", to);
    EXPECT_STREQ(G_event_service, "");
    G_shared_memory = nullptr;
}

}  // namespace
