// An event backlog larger than an answer: each pull ends after a whole message
// and the file keeps exactly the rest.
#include "events/events.h"
#include "tests/fixture.h"

#include <string.h>
#include <string>

namespace {

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
