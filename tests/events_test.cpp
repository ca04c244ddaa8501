// Events: topics, subscriptions in the segment's slot table, renewal and
// pulling messages, end to end; termination times from a given clock.
#include "events/events.h"
#include "state/timespan.h"
#include "tests/fixture.h"

#include <string.h>
#include <tinyxml.h>

namespace {

struct tm at(int y, int mo, int d, int h, int mi, int s)
{
    struct tm t;
    memset(&t, 0, sizeof t);
    t.tm_year = y - 1900;
    t.tm_mon = mo - 1;
    t.tm_mday = d;
    t.tm_hour = h;
    t.tm_min = mi;
    t.tm_sec = s;
    return t;
}

TEST(EventTimes, TerminationFromDurations)
{
    struct Case { struct tm now; const char* text; int has; int mode; const char* out; };
    for (const Case& c : {Case{at(2026, 11, 23, 12, 0, 30), "PT90S", 1, 1, "2026-11-23T12:02:00"},
                          Case{at(2026, 12, 31, 23, 30, 0), "PT1H", 1, 1, "2027-01-01T00:30:00"},
                          Case{at(2026, 11, 23, 12, 0, 30), "P1D", 1, 2, "2026-11-23T12:01:30"},
                          Case{at(2026, 2, 28, 23, 59, 30), "2030-01-01T00:00:00Z", 1, 2, "2026-03-01T00:00:30"},
                          Case{at(2026, 11, 23, 12, 0, 0), "", 0, 2, "2026-11-23T12:01:00"},
                          Case{at(2028, 2, 28, 23, 0, 0), "PT1H30M", 1, 1, "2028-02-29T00:30:00"}}) {
        char out[64];
        EXPECT_EQ(terminationFromDuration(c.text, c.has, &c.now, out, sizeof out), c.mode) << c.text;
        EXPECT_STREQ(out, c.out) << c.text;
    }
    struct Span { const char* text; int n, h, m, s; };
    for (const Span& c : {Span{"PT1H2M3S", 3, 1, 2, 3}, Span{"PT10M", 1, 0, 10, 0}, Span{"PT2H5S", 2, 2, 0, 5},
                          Span{"PT1.5S", 1, 0, 0, 1}, Span{"P1D", 0, 0, 0, 0}, Span{"PT5M30S", 2, 0, 5, 30},
                          Span{"xyzS", 0, 0, 0, 0}}) {
        int h, m, s;
        EXPECT_EQ(GetTimeSpanIntoTimeInteger(c.text, &h, &m, &s), c.n) << c.text;
        EXPECT_EQ(h * 3600 + m * 60 + s, c.h * 3600 + c.m * 60 + c.s) << c.text;
    }
    EXPECT_EQ(expiration_check("2026-11-23T12:00:00", "2026-11-23T12:00:00"), 1);
    EXPECT_EQ(expiration_check("2026-11-23T11:59:59", "2026-11-23T12:00:00"), 0);
    EXPECT_EQ(A_larger_than_B("2027-01-01T00:00:00", "2026-12-31T23:59:59"), 1);
}

class Events : public CameraTest {
protected:
    int* slot(int k) { return &word(SUBSCRIPTION_TABLE_WORD + SLOT_WORDS * k); }
    CgiResult create(const std::string& filter = "", const std::string& initial = "")
    {
        std::string body = "<tev:CreatePullPointSubscription>";
        body += filter;
        if (!initial.empty())
            body += "<tev:InitialTerminationTime>" + initial + "</tev:InitialTerminationTime>";
        return call(body + "</tev:CreatePullPointSubscription>");
    }
    // Calls an action addressed to subscription Idx (variants 32 and 34 read it from the header).
    CgiResult toSubscription(int idx, const std::string& body)
    {
        return run(soap(body, "<wsa:To xmlns:wsa=\"http://www.w3.org/2005/08/addressing\">"
                              "http://192.168.0.100/onvif/device_service?Idx=" + std::to_string(idx) + "</wsa:To>"));
    }
    static std::string topic(const std::string& t)
    {
        return "<tev:Filter><wsnt:TopicExpression Dialect=\"http://www.onvif.org/ver10/tev/topicExpression/"
               "ConcreteSet\">" + t + "</wsnt:TopicExpression></tev:Filter>";
    }
    static std::string content(const std::string& c)
    {
        return "<tev:Filter><wsnt:MessageContent>" + c + "</wsnt:MessageContent></tev:Filter>";
    }
    static void expectWellFormed(const CgiResult& r)
    {
        TiXmlDocument doc;
        doc.Parse(r.body.c_str());
        EXPECT_FALSE(doc.Error()) << doc.ErrorDesc() << "\n" << r.body;
    }
};

TEST_F(Events, PropertiesOfEachVariantAreWellFormed)
{
    for (int variant : {VARIANT_VENDOR_TOPICS, VARIANT_ONE_PULL_POINT, VARIANT_GENERIC})
        for (int model : {MODEL_A5S_SDK310, MODEL_WITHOUT_TAMPERING}) {
            word(VARIANT_CODE) = variant;
            word(MODEL_CODE_WORD) = model;
            CgiResult r = call("<tev:GetEventProperties/>");
            EXPECT_EQ(r.status, 200);
            expectWellFormed(r);
            EXPECT_EQ(r.envelopeBody.find("TamperingDetection") != std::string::npos, model != MODEL_WITHOUT_TAMPERING) << variant;
        }
    word(VARIANT_CODE) = VARIANT_GENERIC;
    word(MODEL_CODE_WORD) = MODEL_A5S_SDK310;
    const std::string b = call("<tev:GetEventProperties/>").envelopeBody;
    EXPECT_NE(b.find("<tns1:VideoAnalytics><tnsavg:MotionDetection wstop:topic=\"true\">"), std::string::npos);
    EXPECT_NE(b.find("<tns1:Device wstop:topic=\"true\"><Trigger wstop:topic=\"true\"><BinaryInput"), std::string::npos);
}

TEST_F(Events, PullPointLimitsAndSlots)
{
    word(VARIANT_CODE) = VARIANT_GENERIC;
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(create().status, 200) << i;
    CgiResult push = call("<wsnt:Subscribe><wsnt:ConsumerReference><a:Address xmlns:a=\"http://www.w3.org/2005/08/"
                          "addressing\">http://10.0.0.9:8080/events</a:Address></wsnt:ConsumerReference></wsnt:Subscribe>");
    EXPECT_EQ(push.status, 200);
    CgiResult sixth = create();
    EXPECT_EQ(sixth.status, 400);
    EXPECT_NE(sixth.envelopeBody.find("The Subscribe Allow 5 Client To Connect."), std::string::npos);
    EXPECT_EQ(slot(0)[SLOT_STATE], SLOT_PULL);
    EXPECT_EQ(slot(0)[SLOT_ADDRESS], 192);
    EXPECT_EQ(slot(0)[SLOT_ADDRESS + 3], 100);
    EXPECT_EQ(slot(0)[SLOT_NUMBER], 1);
    EXPECT_EQ(slot(0)[SLOT_FILTER], FILTER_NONE);
    EXPECT_EQ(slot(0)[SLOT_TERMINATION_MODE], 2);
    EXPECT_EQ(slot(5)[SLOT_STATE], SLOT_PUSH);
    EXPECT_EQ(slot(5)[SLOT_ADDRESS], 10);
    EXPECT_EQ(slot(5)[SLOT_ADDRESS + 3], 9);
    EXPECT_EQ(word(SUBSCRIPTION_CHANGE_WORD), SUBSCRIPTION_PUSH_ADDED);
    EXPECT_EQ(readFile("tmp/onvif/subscribe6.event"), "consumer_address=http://10.0.0.9:8080/events\nclient_no=6\n");
    EXPECT_TRUE(exists("tmp/onvif/eventfile5"));

    // A full table still answers, but slot 0's event file stays its subscriber's.
    for (int k = 6; k < SUBSCRIPTION_SLOTS; ++k)
        slot(k)[SLOT_STATE] = SLOT_PUSH;
    writeFile("tmp/onvif/eventfile1", "pending\n");
    word(VARIANT_CODE) = VARIANT_GENERIC;
    for (int k = 1; k < 5; ++k)
        slot(k)[SLOT_STATE] = SLOT_PUSH;
    EXPECT_EQ(create().status, 200);
    EXPECT_EQ(readFile("tmp/onvif/eventfile1"), "pending\n");
    for (int k = 6; k < SUBSCRIPTION_SLOTS; ++k)
        slot(k)[SLOT_STATE] = SLOT_FREE;

    word(VARIANT_CODE) = VARIANT_ONE_PULL_POINT;
    for (int k = 1; k < 5; ++k)
        slot(k)[SLOT_STATE] = SLOT_FREE;
    CgiResult second = create();
    EXPECT_NE(second.envelopeBody.find("The Subscribe Allow 1 Client To Connect."), std::string::npos);

    CgiResult badAddress = call("<wsnt:Subscribe><wsnt:ConsumerReference><a:Address>http://x/&#10;client_no=9"
                                "</a:Address></wsnt:ConsumerReference></wsnt:Subscribe>");
    EXPECT_NE(badAddress.envelopeBody.find("wsnt:Need Assign Address"), std::string::npos);
}

TEST_F(Events, FilterClassification)
{
    struct Case { int variant; std::string filter; int code; const char* fault; };
    for (const Case& c : {
             Case{VARIANT_GENERIC, topic("tns1:VideoSource/MotionAlarm"), FILTER_MOTION, nullptr},
             Case{VARIANT_GENERIC, topic("tns1:VideoSource/TamperingDetection"), FILTER_TAMPERING, nullptr},
             Case{VARIANT_GENERIC, topic("tns1:VideoSource/MotionAlarm|TamperingDetection"), FILTER_VIDEO_SOURCE, nullptr},
             Case{VARIANT_GENERIC, topic("tns1:VideoSource"), FILTER_VIDEO_SOURCE_ROOT, nullptr},
             Case{VARIANT_GENERIC, topic("tns1:Device/Trigger/Relay"), FILTER_RELAYS, nullptr},
             Case{VARIANT_GENERIC, topic("tns1:Device"), FILTER_DEVICE_ROOT, nullptr},
             Case{VARIANT_GENERIC, topic("tns1:VideoAnalytics/tnsavg:MotionDetection"), FILTER_ANALYTICS_MOTION, nullptr},
             Case{VARIANT_GENERIC, topic("tns1:Foo/(null)"), FILTER_CONTENT_ONLY, nullptr},
             Case{VARIANT_ONE_PULL_POINT, topic("tns1:Foo/(null)"), -1, "wsnt:TopicExpression"},
             Case{VARIANT_GENERIC, topic("tns1:Foo/Bar"), -1, "wsnt:TopicExpression"},
             Case{VARIANT_ONE_PULL_POINT, topic("tns1:VideoAnalytics/tnsavg:MotionDetection"), -1, "wsnt:TopicExpression"},
             Case{VARIANT_VENDOR_TOPICS, topic("tns1:VideoAnalytics/tnsaxis:MotionDetection"), FILTER_MOTION, nullptr},
             Case{VARIANT_VENDOR_TOPICS, topic("tns1:Device/tnsiv:BinaryInput"), FILTER_INPUTS, nullptr},
             Case{VARIANT_GENERIC, content("boolean(//tt:SimpleItem[@Name=\"State\"])"), FILTER_CONTENT_ONLY, nullptr},
             Case{VARIANT_GENERIC, content("not(//tt:SimpleItem[@Name=\"State\"]) or boolean(//tt:SimpleItem[@Name=\"x\"])"), -1,
                  "wsnt:MessageContent"},
             Case{VARIANT_GENERIC, content("boolean(//tt:SimpleItem[@Name=\"a\"]) or boolean(//tt:SimpleItem[@Name=\"b\"])"), FILTER_CONTENT_ONLY,
                  nullptr},
             Case{VARIANT_GENERIC, topic("tns1:Device/Trigger/BinaryInput") + content("boolean (//tns1:SimpleItem)"), FILTER_INPUTS, nullptr},
             Case{VARIANT_GENERIC, topic("tns1:Device/Trigger/BinaryInput") + content("boolean(//tns1:SimpleItem[@Name=\"x\"])"), -1,
                  "wsnt:MessageContent"},
         }) {
        word(VARIANT_CODE) = c.variant;
        for (int k = 0; k < SUBSCRIPTION_SLOTS; ++k)
            slot(k)[SLOT_STATE] = SLOT_FREE;
        CgiResult r = create(c.filter);
        if (c.fault) {
            EXPECT_EQ(r.status, 400) << c.filter;
            EXPECT_NE(r.envelopeBody.find(std::string("<wsnt:UnknownFilter>") + c.fault), std::string::npos) << c.filter;
        } else {
            EXPECT_EQ(r.status, 200) << c.filter << r.envelopeBody;
            EXPECT_EQ(slot(0)[SLOT_FILTER], c.code) << c.filter;
        }
    }
}

TEST_F(Events, RenewAndUnsubscribe)
{
    word(VARIANT_CODE) = VARIANT_VENDOR_TOPICS;
    create("", "PT1H");
    EXPECT_EQ(slot(0)[SLOT_TERMINATION_MODE], 1);
    const int year = slot(0)[SLOT_TERMINATION];
    CgiResult bare = toSubscription(0, "<wsnt:Renew/>");
    EXPECT_EQ(bare.envelopeBody, "<wsnt:RenewResponse><wsnt:TerminationTime>Z</wsnt:TerminationTime>"
                                 "<wsnt:CurrentTime>Z</wsnt:CurrentTime></wsnt:RenewResponse>");
    CgiResult past = toSubscription(0, "<wsnt:Renew><wsnt:TerminationTime>2001-02-03T04:05:06Z"
                                       "</wsnt:TerminationTime></wsnt:Renew>");
    EXPECT_EQ(past.envelopeBody, "<wsnt:RenewResponse><wsnt:TerminationTime>2001-02-03T04:05:06Z</wsnt:TerminationTime>"
                                 "<wsnt:CurrentTime>2001-02-03T04:05:06Z</wsnt:CurrentTime></wsnt:RenewResponse>");
    EXPECT_EQ(slot(0)[SLOT_TERMINATION], 2001);
    EXPECT_EQ(toSubscription(0, "<wsnt:Renew><wsnt:TerminationTime>PT10M</wsnt:TerminationTime></wsnt:Renew>").status,
              200);
    EXPECT_GE(slot(0)[SLOT_TERMINATION], year);
    EXPECT_NE(toSubscription(7, "<wsnt:Renew/>").envelopeBody.find("Resource unknown"), std::string::npos);

    EXPECT_EQ(toSubscription(0, "<wsnt:Unsubscribe/>").envelopeBody, "<wsnt:UnsubscribeResponse></wsnt:UnsubscribeResponse>");
    EXPECT_FALSE(exists("tmp/onvif/eventfile1"));
    EXPECT_EQ(slot(0)[SLOT_STATE], SLOT_FREE);
    CgiResult again = toSubscription(0, "<wsnt:Unsubscribe/>");
    EXPECT_EQ(again.status, 400);
    EXPECT_NE(again.envelopeBody.find("wsrf-r:ResourceUnknownFault"), std::string::npos);
    expectWellFormed(again);
    word(VARIANT_CODE) = VARIANT_LENIENT;
    EXPECT_EQ(call("<wsnt:Unsubscribe/>").status, 200);
    for (const char* idx : {"-1", "99999999", "x"}) {
        word(VARIANT_CODE) = VARIANT_ONE_PULL_POINT;
        CgiResult r = run(soap("<wsnt:Unsubscribe/>", std::string("<To>http://h/onvif/device_service?Idx=") + idx + "</To>"));
        EXPECT_EQ(r.status, 400) << idx;
    }
}

TEST_F(Events, PullingInitialStatesAndMessages)
{
    word(VARIANT_CODE) = VARIANT_VENDOR_TOPICS;
    word(IO_LAYOUT_WORD) = IO_LAYOUT_HEAD_TWO_RELAYS;
    word(MOTION_WORD) = 1;
    word(RELAY_WORD_1) = 1;
    CgiResult max = toSubscription(0, "<tev:PullMessages><tev:Timeout>PT61S</tev:Timeout></tev:PullMessages>");
    EXPECT_EQ(max.envelopeBody, "<tev:PullMessagesResponse><tev:MaxTimeout>PT60S</tev:MaxTimeout>"
                                "<tev:MaxMessageLimit>8</tev:MaxMessageLimit></tev:PullMessagesResponse>");
    create();
    writeFile("tmp/onvif/eventfile1", "<wsnt:NotificationMessage>one</wsnt:NotificationMessage>\n"
                                      "<wsnt:NotificationMessage>two</wsnt:NotificationMessage>\n");
    // The first pull after creation answers initial states, two by default.
    CgiResult first = toSubscription(0, "<tev:PullMessages><tev:Timeout>PT5S</tev:Timeout></tev:PullMessages>");
    expectWellFormed(first);
    const std::string& b = first.envelopeBody;
    EXPECT_NE(b.find("tns1:VideoAnalytics/tnsaxis:MotionDetection</wsnt:Topic>"), std::string::npos);
    EXPECT_NE(b.find("<tt:SimpleItem Name=\"motion\" Value=\"1\">"), std::string::npos);
    EXPECT_NE(b.find("tns1:VideoAnalytics/TamperingDetection"), std::string::npos);
    EXPECT_EQ(b.find("BinaryInput"), std::string::npos);
    EXPECT_EQ(word(SUBSCRIPTION_CHANGE_WORD), SUBSCRIPTIONS_SETTLED);

    CgiResult second = toSubscription(0, "<tev:PullMessages><tev:Timeout>PT5S</tev:Timeout></tev:PullMessages>");
    EXPECT_NE(second.envelopeBody.find("</tev:TerminationTime><wsnt:NotificationMessage>one</wsnt:NotificationMessage>\n"
                                       "<wsnt:NotificationMessage>two</wsnt:NotificationMessage>\n"
                                       "</tev:PullMessagesResponse>"), std::string::npos);
    EXPECT_TRUE(exists("tmp/onvif/eventfile1"));
    EXPECT_EQ(readFile("tmp/onvif/eventfile1"), "");

    EXPECT_EQ(toSubscription(0, "<tev:SetSynchronizationPoint/>").status, 200);
    EXPECT_EQ(slot(0)[SLOT_STATE], SLOT_PULL_SYNC);
    CgiResult sync = toSubscription(0, "<tev:PullMessages><tev:Timeout>PT1S</tev:Timeout>"
                                       "<tev:MessageLimit>10</tev:MessageLimit></tev:PullMessages>");
    expectWellFormed(sync);
    EXPECT_NE(sync.envelopeBody.find("IO_Input4"), std::string::npos);
    EXPECT_NE(sync.envelopeBody.find("<tt:SimpleItem Name=\"RelayToken\" Value=\"IO_Output2\"></tt:SimpleItem>"
                                     "</tt:Source><tt:Data><tt:SimpleItem Name=\"State\" Value=\"open\">"), std::string::npos);
    EXPECT_NE(sync.envelopeBody.find("Value=\"closed\""), std::string::npos);
    EXPECT_EQ(slot(0)[SLOT_STATE], SLOT_PULL);

    // A short timeout with nothing to say ends after its rounds.
    CgiResult quiet = toSubscription(0, "<tev:PullMessages><tev:Timeout>PT1S</tev:Timeout></tev:PullMessages>");
    EXPECT_EQ(quiet.envelopeBody.find("Notification"), std::string::npos);
    EXPECT_NE(quiet.envelopeBody.find("<tev:TerminationTime>"), std::string::npos);
}

}  // namespace
