// Bodies shaped to make parsing costly, measured before parsing, and an event
// backlog larger than an answer (the requests themselves are recorded scenarios).
#include "events/events.h"
#include "frame/prescan.h"
#include "tests/fixture.h"

#include <string.h>
#include <string>

namespace {

std::string repeat(const std::string& s, int n)
{
    std::string out;
    for (int i = 0; i < n; ++i)
        out += s;
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
