// Requests an attacker would send: bodies shaped to make parsing costly,
// lists longer than the element tables, values that would read back as other
// settings, malformed event filters; and an event backlog larger than an answer.
#include "events/events.h"
#include "frame/prescan.h"
#include "tests/fixture.h"

#include <string.h>
#include <string>

namespace {

const char CONF[] = "tmp/onvif/onvif.conf";
const char CONF_MIRROR[] = "usr/apache/htdocs/onvif/onvif.conf";
const char USERS_FILE[] = "usr/apache/htdocs/onvif/Users.conf";

std::string repeat(const std::string& s, int n)
{
    std::string out;
    for (int i = 0; i < n; ++i)
        out += s;
    return out;
}

// n distinct attributes.
std::string attributes(int n)
{
    std::string out;
    for (int i = 0; i < n; ++i)
        out += " a" + std::to_string(i) + "=\"1\"";
    return out;
}

TEST(Prescan, RefusesDeepNestingAndCrowdedElementsOnly)
{
    struct Case { std::string body; int fits; };
    for (const Case& c : {
             Case{repeat("<a>", 32) + repeat("</a>", 32), 1},
             Case{repeat("<a>", 33) + repeat("</a>", 33), 0},
             Case{repeat("<a>", 21845), 0},  // the 64 KB body of unclosed tags
             Case{repeat("<a/>", 1000), 1},
             Case{repeat("<a><b/></a>", 1000), 1},
             Case{"<a" + repeat(" x=\"1\"", 64) + "/>", 1},
             Case{"<a" + repeat(" x=\"1\"", 65) + "/>", 0},
             Case{"<a v=\"" + repeat("=", 100) + "\"/>", 1},  // no attribute in a quoted value
             Case{"<!--" + repeat("<a>", 100) + "-->", 1},
             Case{"<![CDATA[" + repeat("<a>", 100) + "]]>", 1},
             Case{"<?xml version=\"1.0\"?>" + repeat("<a>", 32) + "x", 1},
         }) {
        EXPECT_EQ(bodyFitsParser(c.body.c_str(), c.body.size()), c.fits) << c.body.substr(0, 80);
    }
}

using HostileInput = CameraTest;

// A request that would be served if the parser saw it is refused with the
// frame's empty 400 once its shape is past the limits.
TEST_F(HostileInput, ShapesPastTheLimitsAreRefusedUnparsed)
{
    const std::string action = "<tds:GetDeviceInformation/>";
    // The envelope of soap() has 9 namespace declarations.
    const std::string afterEnvelopeName = soap(action).substr(soap(action).find("<s:Envelope") + 11);
    struct Case { std::string request; int status; };
    for (const Case& c : {
             // Envelope and header are two levels: 30 more reach the limit of 32.
             Case{soap(action, repeat("<x>", 30) + repeat("</x>", 30)), 200},
             Case{soap(action, repeat("<x>", 31) + repeat("</x>", 31)), 400},
             Case{soap(action, repeat("<x>", 5000) + repeat("</x>", 5000)), 400},
             Case{"<s:Envelope" + attributes(55) + afterEnvelopeName, 200},
             Case{"<s:Envelope" + attributes(56) + afterEnvelopeName, 400},
         }) {
        CgiResult r = run(c.request);
        EXPECT_EQ(r.status, c.status) << c.request.size();
        if (c.status == 400) {
            EXPECT_EQ(r.envelopeBody, "");
        } else {
            EXPECT_NE(r.envelopeBody.find("<tds:Manufacturer>Camera</tds:Manufacturer>"), std::string::npos);
        }
    }
    std::string bomb = repeat("<a>", 21845);
    CgiResult r = run(bomb);
    EXPECT_EQ(r.status, 400);
    EXPECT_EQ(r.envelopeBody, "");
}

std::string user(int i)
{
    std::string name = "u" + std::to_string(i);
    return "<tds:User><tt:Username>" + name + "</tt:Username><tt:Password>pass" + std::to_string(1000 + i) +
           "</tt:Password><tt:UserLevel>User</tt:UserLevel></tds:User>";
}

TEST_F(HostileInput, ListsPastTheElementTablesChangeNothing)
{
    std::string users;
    for (int i = 0; i < 15; ++i)
        users += user(i);  // 1 + 15 * 4 rows: fits
    ASSERT_EQ(call("<tds:CreateUsers>" + users + "</tds:CreateUsers>").status, 200);
    const std::string before = readFile(USERS_FILE);
    ASSERT_NE(before.find("u14:User:pass1014"), std::string::npos);

    std::string names;
    for (int i = 0; i < 100; ++i)
        names += "<tds:Username>u" + std::to_string(i % 15) + "</tds:Username>";
    std::string moreUsers = users + user(15);  // 65 rows
    std::string scopes, setScopes;
    for (int i = 0; i < 70; ++i) {
        scopes += "<tds:ScopeItem>onvif://www.onvif.org/name/n" + std::to_string(i) + "</tds:ScopeItem>";
        setScopes += "<tds:Scopes>onvif://www.onvif.org/name/n" + std::to_string(i) + "</tds:Scopes>";
    }
    const std::string conf = readFile(CONF);
    for (const std::string& request : {"<tds:DeleteUsers>" + names + "</tds:DeleteUsers>",
                                       "<tds:CreateUsers>" + moreUsers + "</tds:CreateUsers>",
                                       "<tds:AddScopes>" + scopes + "</tds:AddScopes>",
                                       "<tds:SetScopes>" + setScopes + "</tds:SetScopes>"}) {
        CgiResult r = call(request);
        EXPECT_EQ(r.status, 400) << request.substr(0, 40);
        EXPECT_EQ(r.envelopeBody, "");
        EXPECT_EQ(readFile(USERS_FILE), before);
        EXPECT_EQ(readFile(CONF), conf);
    }
    EXPECT_EQ(word(SCOPES_CHANGED_WORD), 0);
}

TEST_F(HostileInput, StoredValuesNeverNameAnotherSetting)
{
    const std::string conf = readFile(CONF), mirror = readFile(CONF_MIRROR);
    const char KEY_FAULT[] = "A value may not hold the name of a setting";
    struct Case { std::string request; const char* fault; };
    for (const Case& c : {
             Case{"<tds:AddScopes><tds:ScopeItem>onvif://www.onvif.org/name/Brand=&lt;b&gt;Evil"
                  "</tds:ScopeItem></tds:AddScopes>", KEY_FAULT},
             Case{"<tds:AddScopes><tds:ScopeItem>onvif://www.onvif.org/name/a</tds:ScopeItem>"
                  "<tds:ScopeItem>onvif://x/FixedScopes=onvif://www.onvif.org/type/ptz</tds:ScopeItem>"
                  "</tds:AddScopes>", KEY_FAULT},
             Case{"<tds:SetScopes><tds:Scopes>onvif://www.onvif.org/name/Model%3DEvil</tds:Scopes>"
                  "</tds:SetScopes>", KEY_FAULT},
             // The scope listing tells fixed from configurable by the bare word.
             Case{"<tds:AddScopes><tds:ScopeItem>onvif://www.onvif.org/name/FixedScopes</tds:ScopeItem>"
                  "</tds:AddScopes>", KEY_FAULT},
             Case{"<tds:SetDiscoveryMode><tds:DiscoveryMode>MAC=evil</tds:DiscoveryMode></tds:SetDiscoveryMode>",
                  KEY_FAULT},
             // A zone name is any text before its offset.
             Case{"<tds:SetSystemDateAndTime><tds:DateTimeType>NTP</tds:DateTimeType>"
                  "<tds:TimeZone><tt:TZ>Brand=Evil-1</tt:TZ></tds:TimeZone></tds:SetSystemDateAndTime>",
                  "ter:InvalidTimeZone"},
         }) {
        CgiResult r = call(c.request);
        EXPECT_EQ(r.status, 400) << c.request;
        EXPECT_NE(r.envelopeBody.find(c.fault), std::string::npos) << r.envelopeBody;
        EXPECT_EQ(readFile(CONF), conf);
        EXPECT_EQ(readFile(CONF_MIRROR), mirror);
    }
    EXPECT_EQ(word(SCOPES_CHANGED_WORD), 0);
    CgiResult info = call("<tds:GetDeviceInformation/>");
    EXPECT_NE(info.envelopeBody.find("<tds:Manufacturer>Camera</tds:Manufacturer>"), std::string::npos);
    EXPECT_NE(info.envelopeBody.find("<tds:SerialNumber>00:1A:2B:3C:4D:5E</tds:SerialNumber>"), std::string::npos);

    // An "=" after a word that is no key of the file is a value like any other.
    EXPECT_EQ(call("<tds:AddScopes><tds:ScopeItem>onvif://www.onvif.org/name/a=b</tds:ScopeItem></tds:AddScopes>")
                  .status, 200);
    EXPECT_NE(readFile(CONF).find("ConfigurableScopes=onvif://www.onvif.org/name/a=b\n"), std::string::npos);
}

TEST_F(HostileInput, MessageContentTermsMustTestAnItem)
{
    struct Case { const char* content; int status; };
    for (const Case& c : {Case{"boolean(x) and boolean(y)", 400}, Case{"boolean(x) or boolean(y)", 400},
                          Case{"boolean(//tt:SimpleItem[@Name=\"a\"]) and boolean(//tt:SimpleItem[@Name=\"b\"])", 200}}) {
        CgiResult r = call(std::string("<tev:CreatePullPointSubscription><tev:Filter><wsnt:MessageContent>") +
                           c.content + "</wsnt:MessageContent></tev:Filter></tev:CreatePullPointSubscription>");
        EXPECT_EQ(r.status, c.status) << c.content;
        if (c.status == 400) {
            EXPECT_NE(r.envelopeBody.find("<wsnt:UnknownFilter>wsnt:MessageContent"), std::string::npos)
                << r.envelopeBody;
        }
    }
}

class PullBacklog : public CameraTest {
protected:
    CgiResult pull()
    {
        return run(soap("<tev:PullMessages><tev:Timeout>PT1S</tev:Timeout><tev:MessageLimit>10</tev:MessageLimit>"
                        "</tev:PullMessages>",
                        "<wsa:To xmlns:wsa=\"http://www.w3.org/2005/08/addressing\">"
                        "http://192.168.0.100/onvif/device_service?Idx=0</wsa:To>"));
    }
    static std::string messagesOf(const CgiResult& r)
    {
        size_t from = r.envelopeBody.find("</tev:TerminationTime>"), to = r.envelopeBody.rfind("</tev:PullMessagesResponse>");
        if (from == std::string::npos || to == std::string::npos)
            return "";
        from += strlen("</tev:TerminationTime>");
        return r.envelopeBody.substr(from, to - from);
    }
};

TEST_F(PullBacklog, WhatDoesNotFitStaysForTheNextPull)
{
    word(VARIANT_CODE) = VARIANT_VENDOR_TOPICS;
    ASSERT_EQ(call("<tev:CreatePullPointSubscription/>").status, 200);
    word(SUBSCRIPTION_CHANGE_WORD) = SUBSCRIPTIONS_SETTLED;  // past the initial states
    std::string events;
    for (int i = 0; i < 1000; ++i) {
        std::string n = std::to_string(i);
        events += "<wsnt:NotificationMessage><wsnt:Topic Dialect=\"http://docs.oasis-open.org/wsn/t-1/TopicExpression/Simple\">tns1:Device/Trigger/Relay</wsnt:Topic><wsnt:Message>"
                  "<tt:Message UtcTime=\"2026-11-23T12:00:00\"><tt:Data><tt:SimpleItem Name=\"State\" Value=\"" +
                  n + "\"/></tt:Data></tt:Message></wsnt:Message>" + std::string(200, ' ') +
                  "</wsnt:NotificationMessage>\n";
    }
    ASSERT_GT(events.size(), 400000u);
    writeFile("tmp/onvif/eventfile1", events);
    std::string delivered;
    int pulls = 0;
    while (delivered.size() < events.size() && pulls < 20) {
        CgiResult r = pull();
        ASSERT_EQ(r.status, 200);
        std::string messages = messagesOf(r);
        ASSERT_FALSE(messages.empty()) << pulls;
        delivered += messages;
        ++pulls;
        // Every answer ends after a whole message; the file keeps exactly the rest.
        EXPECT_EQ(readFile("tmp/onvif/eventfile1"), events.substr(delivered.size()));
    }
    EXPECT_EQ(delivered, events);
    EXPECT_GE(pulls, 4);

    // A message longer than any answer cannot block the ones behind it.
    writeFile("tmp/onvif/eventfile1", std::string(150000, 'x') + "\n<wsnt:NotificationMessage/>\n");
    EXPECT_EQ(messagesOf(pull()), "");
    EXPECT_EQ(readFile("tmp/onvif/eventfile1"), "<wsnt:NotificationMessage/>\n");
    EXPECT_EQ(messagesOf(pull()), "<wsnt:NotificationMessage/>\n");
    EXPECT_EQ(readFile("tmp/onvif/eventfile1"), "");
}

}  // namespace
