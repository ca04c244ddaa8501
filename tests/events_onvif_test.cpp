// Events in the ONVIF mode, end to end: each subscription at its own address,
// terms that end, initial states per pull point, the standard's topics and
// values, the pull's limits, and a Notify delivered to a loopback consumer.
#include "events/events.h"
#include "tests/fixture.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class OnvifEvents : public CameraTest {
protected:
    void SetUp() override
    {
        CameraTest::SetUp();
        setOnvifMode();
    }
    int* slot(int k) { return &word(SUBSCRIPTION_TABLE_WORD + SLOT_WORDS * k); }

    // An event action posted to subscription idx's address (-1: none).
    CgiResult at(int idx, const std::string& body)
    {
        if (idx < 0)
            return call(body);
        return run(soap(body), "", {{"QUERY_STRING", "Idx=" + std::to_string(idx)}});
    }
    CgiResult create(const std::string& topic = "")
    {
        std::string filter;
        if (!topic.empty())
            filter = "<tev:Filter><wsnt:TopicExpression Dialect=\"http://www.onvif.org/ver10/tev/topicExpression/"
                     "ConcreteSet\">" + topic + "</wsnt:TopicExpression></tev:Filter>";
        return call("<tev:CreatePullPointSubscription>" + filter + "</tev:CreatePullPointSubscription>");
    }
    CgiResult pull(int idx, const std::string& timeout = "PT0S", int limit = 100)
    {
        return at(idx, "<tev:PullMessages><tev:Timeout>" + timeout + "</tev:Timeout><tev:MessageLimit>" +
                           std::to_string(limit) + "</tev:MessageLimit></tev:PullMessages>");
    }
    void simEvent(const std::string& args)
    {
        shell("ONVIF_ROOT='" + root + "' " + buildProgram("sim-event") + " " + args);
    }
    static int count(const std::string& text, const std::string& what)
    {
        int n = 0;
        for (size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1))
            ++n;
        return n;
    }
};

const char MOTION_ON[] = "<wsnt:Topic Dialect=\"http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet\">"
                         "tns1:VideoSource/MotionAlarm</wsnt:Topic>";

TEST_F(OnvifEvents, TwoPullPointsEachGetTheirOwnMessages)
{
    word(MOTION_WORD) = 1;
    ASSERT_EQ(create().status, 200);
    CgiResult second = create("tns1:VideoSource/MotionAlarm");
    ASSERT_EQ(second.status, 200);
    EXPECT_NE(second.envelopeBody.find("/onvif/device_service?Idx=1</wsa5:Address>"), std::string::npos);
    EXPECT_NE(second.envelopeBody.find("Z</wsnt:TerminationTime>"), std::string::npos);

    // Each first pull has its own initial states, whoever pulls first.
    for (int idx : {1, 0}) {
        CgiResult first = pull(idx);
        EXPECT_EQ(first.status, 200) << first.body;
        EXPECT_NE(first.envelopeBody.find("PropertyOperation=\"Initialized\""), std::string::npos) << idx;
        EXPECT_NE(first.envelopeBody.find("<tt:SimpleItem Name=\"State\" Value=\"true\"/>"), std::string::npos);
        EXPECT_NE(first.envelopeBody.find("Z</tev:CurrentTime>"), std::string::npos);
        EXPECT_EQ(count(first.envelopeBody, "<wsnt:NotificationMessage>"), idx == 1 ? 1 : 4) << first.envelopeBody;
    }
    EXPECT_EQ(count(pull(0).envelopeBody, "<wsnt:NotificationMessage>"), 0);

    simEvent("motion off");
    simEvent("input 1 on");
    CgiResult all = pull(0), motion = pull(1);
    EXPECT_EQ(count(all.envelopeBody, "PropertyOperation=\"Changed\""), 2) << all.envelopeBody;
    EXPECT_NE(all.envelopeBody.find("tns1:Device/Trigger/DigitalInput</wsnt:Topic>"), std::string::npos);
    EXPECT_NE(all.envelopeBody.find("<tt:SimpleItem Name=\"LogicalState\" Value=\"true\"/>"), std::string::npos);
    EXPECT_EQ(count(motion.envelopeBody, "PropertyOperation=\"Changed\""), 1) << motion.envelopeBody;
    EXPECT_NE(motion.envelopeBody.find(MOTION_ON), std::string::npos);
    EXPECT_NE(motion.envelopeBody.find("<tt:SimpleItem Name=\"State\" Value=\"false\"/>"), std::string::npos);

    // A synchronization point resends the initial states to its own pull point only.
    EXPECT_EQ(at(1, "<tev:SetSynchronizationPoint/>").status, 200);
    EXPECT_EQ(count(pull(0).envelopeBody, "<wsnt:NotificationMessage>"), 0);
    EXPECT_EQ(count(pull(1).envelopeBody, "PropertyOperation=\"Initialized\""), 1);
}

TEST_F(OnvifEvents, SubscriptionsAnswerOnlyAtTheirOwnLiveAddress)
{
    ASSERT_EQ(create().status, 200);
    ASSERT_EQ(create().status, 200);
    // The address in the header serves where the web server passes no query.
    CgiResult byHeader = run(soap("<wsnt:Unsubscribe/>", "<wsa:To xmlns:wsa=\"http://www.w3.org/2005/08/addressing\">"
                                  "http://127.0.0.1/onvif/device_service?Idx=0</wsa:To>"));
    EXPECT_EQ(byHeader.status, 200) << byHeader.body;
    EXPECT_EQ(slot(0)[SLOT_STATE], SLOT_FREE);
    EXPECT_NE(slot(1)[SLOT_STATE], SLOT_FREE);

    // Slot 1's term is over: it ends, and its slot is free again.
    slot(1)[SLOT_TERMINATION] = 2020;
    struct Case { int idx; const char* body; };
    for (const Case& c : {Case{0, "<tev:PullMessages><tev:Timeout>PT0S</tev:Timeout><tev:MessageLimit>1"
                                  "</tev:MessageLimit></tev:PullMessages>"},
                          Case{-1, "<tev:PullMessages><tev:Timeout>PT0S</tev:Timeout><tev:MessageLimit>1"
                                   "</tev:MessageLimit></tev:PullMessages>"},
                          Case{1, "<wsnt:Renew><wsnt:TerminationTime>PT60S</wsnt:TerminationTime></wsnt:Renew>"},
                          Case{7, "<wsnt:Unsubscribe/>"}, Case{1, "<tev:SetSynchronizationPoint/>"}}) {
        CgiResult r = at(c.idx, c.body);
        EXPECT_EQ(r.status, 400) << c.idx << c.body;
        EXPECT_NE(r.envelopeBody.find("<wsrf-r:ResourceUnknownFault>"), std::string::npos) << r.body;
    }
    EXPECT_EQ(slot(1)[SLOT_STATE], SLOT_FREE);
    EXPECT_FALSE(exists("tmp/onvif/eventfile2"));
}

TEST_F(OnvifEvents, LimitsAndTheTableSize)
{
    for (int i = 0; i < 5; ++i)
        ASSERT_EQ(create().status, 200) << i;
    CgiResult full = create();
    EXPECT_EQ(full.status, 400);
    EXPECT_NE(full.envelopeBody.find("<wsnt:SubscribeCreationFailedFault>"), std::string::npos) << full.body;

    // A limit of one hands the initial states over one by one, none lost.
    std::string topics;
    for (int i = 0; i < 4; ++i) {
        std::string b = pull(0, "PT0S", 1).envelopeBody;
        EXPECT_EQ(count(b, "PropertyOperation=\"Initialized\""), 1) << i << b;
        size_t at = b.find("\">tns1:");
        topics += at == std::string::npos ? "" : b.substr(at + 2, b.find('<', at) - at - 2) + " ";
    }
    EXPECT_EQ(topics, "tns1:VideoSource/MotionAlarm tns1:VideoSource/GlobalSceneChange/ImagingService "
                      "tns1:Device/Trigger/DigitalInput tns1:Device/Trigger/Relay ");

    CgiResult tooLong = pull(0, "PT61S");
    EXPECT_EQ(tooLong.status, 400);
    EXPECT_NE(tooLong.envelopeBody.find("<tev:PullMessagesFaultResponse><tev:MaxTimeout>PT60S</tev:MaxTimeout>"
                                        "<tev:MaxMessageLimit>"), std::string::npos) << tooLong.body;
    // A larger message limit than the camera's is answered, with what it has.
    EXPECT_EQ(pull(0, "PT0S", 1000).status, 200);
}

TEST_F(OnvifEvents, TheEventProcessFormBecomesTheStandardOne)
{
    ASSERT_EQ(create().status, 200);
    pull(0);
    // A notification in the form the camera's event process has always written.
    auto legacy = [](const std::string& topic, const std::string& source, const std::string& token,
                     const std::string& value) {
        return "<wsnt:NotificationMessage><wsnt:Topic Dialect=\"x\">" + topic + "</wsnt:Topic><wsnt:Message>"
               "<tt:Message UtcTime=\"2026-11-24T10:00:00\" PropertyOperation=\"Changed\"><tt:Source><tt:SimpleItem "
               "Name=\"" + source + "\" Value=\"" + token + "\"></tt:SimpleItem></tt:Source><tt:Data><tt:SimpleItem "
               "Name=\"State\" Value=\"" + value + "\"></tt:SimpleItem></tt:Data></tt:Message></wsnt:Message>"
               "</wsnt:NotificationMessage>\n";
    };
    struct Case { const char* topic; const char* source; const char* token; const char* value; const char* expected; };
    const Case cases[] = {
        {"tns1:Device/Trigger/BinaryInput", "BinaryInputToken", "IO_Input2", "1",
         "tns1:Device/Trigger/DigitalInput</wsnt:Topic><wsnt:Message><tt:Message UtcTime=\"2026-11-24T10:00:00Z\" "
         "PropertyOperation=\"Changed\"><tt:Source><tt:SimpleItem Name=\"InputToken\" Value=\"IO_Input2\"/>"
         "</tt:Source><tt:Data><tt:SimpleItem Name=\"LogicalState\" Value=\"true\"/>"},
        {"tns1:Device/Trigger/Relay", "RelayToken", "IO_Output1", "closed",
         "<tt:SimpleItem Name=\"RelayToken\" Value=\"IO_Output1\"/></tt:Source><tt:Data><tt:SimpleItem "
         "Name=\"LogicalState\" Value=\"active\"/>"},
        {"tns1:VideoSource/TamperingDetection", "VideoSourceToken", "VideoSource1", "0",
         "tns1:VideoSource/GlobalSceneChange/ImagingService</wsnt:Topic>"},
        {"tns1:VideoSource/MotionAlarm", "VideoSourceToken", "VideoSource1", "1",
         "<tt:SimpleItem Name=\"Source\" Value=\"VideoSource1\"/></tt:Source><tt:Data><tt:SimpleItem Name=\"State\" "
         "Value=\"true\"/>"},
    };
    std::string file;
    for (const Case& c : cases)
        file += legacy(c.topic, c.source, c.token, c.value);
    writeFile("tmp/onvif/eventfile1", file);
    // The default model hands over four at most: one pull takes them all.
    CgiResult r = pull(0);
    for (const Case& c : cases)
        EXPECT_NE(r.envelopeBody.find(c.expected), std::string::npos) << c.topic << "\n" << r.envelopeBody;
    EXPECT_EQ(readFile("tmp/onvif/eventfile1"), "");

    std::string properties = call("<tev:GetEventProperties/>").envelopeBody;
    for (const char* item : {"<DigitalInput wstop:topic=\"true\">", "Name=\"LogicalState\" Type=\"tt:RelayLogicalState\"",
                             "<GlobalSceneChange><ImagingService wstop:topic=\"true\">"})
        EXPECT_NE(properties.find(item), std::string::npos) << item;
}

TEST_F(OnvifEvents, TopicFiltersInTheStandardNames)
{
    struct Case { const char* topic; int status; int code; };
    for (const Case& c : {Case{"tns1:Device/Trigger/DigitalInput", 200, FILTER_INPUTS},
                          Case{"tns1:VideoSource//.", 200, FILTER_VIDEO_SOURCE},
                          Case{"tns1:VideoSource/MotionAlarm|tns1:VideoSource/GlobalSceneChange/ImagingService", 200,
                               FILTER_VIDEO_SOURCE},
                          Case{"tns1:VideoSource/MotionAlarm|tns1:Device/Trigger/Relay", 200, FILTER_NONE},
                          Case{"tns1:Device/Trigger/BinaryInput", 400, 0}, Case{"tns1:RuleEngine", 400, 0}}) {
        CgiResult r = create(c.topic);
        EXPECT_EQ(r.status, c.status) << c.topic << r.body;
        if (c.status == 200) {
            EXPECT_EQ(slot(0)[SLOT_FILTER], c.code) << c.topic;
            EXPECT_EQ(at(0, "<wsnt:Unsubscribe/>").status, 200);
        }
    }
}

TEST_F(OnvifEvents, MessageContentFiltersTakeOnlyTheirItems)
{
    auto withContent = [&](const std::string& content) {
        return call("<tev:CreatePullPointSubscription><tev:Filter><wsnt:MessageContent Dialect=\"http://www.onvif.org/"
                    "ver10/tev/messageContentFilter/ItemFilter\">" + content +
                    "</wsnt:MessageContent></tev:Filter></tev:CreatePullPointSubscription>");
    };
    EXPECT_EQ(withContent("boolean((//tt:SimpleItem[@Name=&quot;xyz&quot; and @Value=&quot;xyz&quot;])").status, 400);
    ASSERT_EQ(withContent("boolean(//tt:SimpleItem[@Name=&quot;InputToken&quot; and @Value=&quot;IO_Input1&quot;]) or "
                          "boolean(//tt:SimpleItem[@Name=&quot;RelayToken&quot;])").status, 200);
    std::string first = pull(0).envelopeBody;
    EXPECT_EQ(count(first, "<wsnt:NotificationMessage>"), 2) << first;
    EXPECT_NE(first.find("Value=\"IO_Input1\""), std::string::npos);
    simEvent("motion on");
    simEvent("input 1 on");
    std::string changed = pull(0).envelopeBody;
    EXPECT_EQ(count(changed, "<wsnt:NotificationMessage>"), 1) << changed;
    EXPECT_NE(changed.find("tns1:Device/Trigger/DigitalInput"), std::string::npos);
}

TEST_F(OnvifEvents, PushSubscriberReceivesANotify)
{
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in a;
    memset(&a, 0, sizeof a);
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof a;
    ASSERT_EQ(bind(listener, (struct sockaddr*)&a, sizeof a), 0);
    ASSERT_EQ(listen(listener, 4), 0);
    ASSERT_EQ(getsockname(listener, (struct sockaddr*)&a, &length), 0);
    std::string consumer = "http://127.0.0.1:" + std::to_string(ntohs(a.sin_port)) + "/hook";
    // The Notify the next delivery posts, answered.
    auto received = [&]() {
        std::string request;
        struct pollfd p = {listener, POLLIN, 0};
        if (poll(&p, 1, 10000) != 1)
            return request;
        int c = accept(listener, 0, 0);
        char buffer[4096];
        struct pollfd q = {c, POLLIN, 0};
        while (request.find("</SOAP-ENV:Envelope>") == std::string::npos && poll(&q, 1, 10000) == 1) {
            ssize_t n = read(c, buffer, sizeof buffer);
            if (n <= 0)
                break;
            request.append(buffer, n);
        }
        const char answer[] = "HTTP/1.1 202 Accepted\r\nContent-Length: 0\r\n\r\n";
        EXPECT_EQ(write(c, answer, sizeof answer - 1), (ssize_t)sizeof answer - 1);
        close(c);
        return request;
    };
    word(MOTION_WORD) = 1;
    CgiResult s = call("<wsnt:Subscribe><wsnt:ConsumerReference><a:Address xmlns:a=\"http://www.w3.org/2005/08/"
                       "addressing\">" + consumer + "</a:Address></wsnt:ConsumerReference><wsnt:Filter><wsnt:"
                       "TopicExpression Dialect=\"http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet\">"
                       "tns1:VideoSource/MotionAlarm|tns1:Device/Trigger/DigitalInput</wsnt:TopicExpression>"
                       "</wsnt:Filter></wsnt:Subscribe>");
    ASSERT_EQ(s.status, 200) << s.body;

    // The new subscriber's initial states (as they stood), then the event, in one Notify.
    simEvent("motion off");
    std::string request = received();
    EXPECT_EQ(request.rfind("POST /hook HTTP/1.1\r\n", 0), 0u) << request;
    EXPECT_NE(request.find("Content-Length: "), std::string::npos);
    EXPECT_NE(request.find("<wsnt:Notify>"), std::string::npos);
    size_t initialized = request.find("PropertyOperation=\"Initialized\"><tt:Source><tt:SimpleItem Name=\"Source\" "
                                      "Value=\"VideoSource1\"/></tt:Source><tt:Data><tt:SimpleItem Name=\"State\" "
                                      "Value=\"true\"/>");
    EXPECT_NE(initialized, std::string::npos) << request;
    EXPECT_LT(initialized, request.find("PropertyOperation=\"Changed\""));
    EXPECT_NE(request.find(MOTION_ON), std::string::npos);
    EXPECT_NE(request.find("<tt:SimpleItem Name=\"State\" Value=\"false\"/>"), std::string::npos);
    // The or-joined topics take the inputs, but neither relays nor tampering.
    EXPECT_EQ(count(request, "PropertyOperation=\"Initialized\""), 2) << request;
    EXPECT_EQ(slot(0)[SLOT_STATE], SLOT_PUSH);

    // A synchronization point: the event process sends them again, alone.
    EXPECT_EQ(at(0, "<tev:SetSynchronizationPoint/>").status, 200);
    simEvent("sync");
    request = received();
    EXPECT_EQ(count(request, "PropertyOperation=\"Initialized\""), 2) << request;
    EXPECT_EQ(count(request, "<wsnt:NotificationMessage>"), 2);
    close(listener);
}

}  // namespace
