// A Notify delivered to a loopback consumer in the ONVIF mode: the event
// process posts it, so it needs a listener; pull points are recorded in
// tests/scenarios/onvif_events.scenario.
#include "events/events.h"
#include "tests/fixture.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int count(const std::string& text, const std::string& what)
{
    int n = 0;
    for (size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1))
        ++n;
    return n;
}

// The request the next delivery posts, answered with a 202.
std::string received(int listener)
{
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
}

using OnvifEvents = CameraTest;

TEST_F(OnvifEvents, PushSubscriberReceivesANotify)
{
    setOnvifMode();
    int listener = socket(AF_INET, SOCK_STREAM, 0);
    struct sockaddr_in a;
    memset(&a, 0, sizeof a);
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof a;
    ASSERT_EQ(bind(listener, (struct sockaddr*)&a, sizeof a), 0);
    ASSERT_EQ(listen(listener, 4), 0);
    ASSERT_EQ(getsockname(listener, (struct sockaddr*)&a, &length), 0);
    word(MOTION_WORD) = 1;
    CgiResult s = call("<wsnt:Subscribe><wsnt:ConsumerReference><a:Address xmlns:a=\"http://www.w3.org/2005/08/"
                       "addressing\">http://127.0.0.1:" + std::to_string(ntohs(a.sin_port)) + "/hook</a:Address>"
                       "</wsnt:ConsumerReference><wsnt:Filter><wsnt:TopicExpression Dialect=\"http://www.onvif.org/"
                       "ver10/tev/topicExpression/ConcreteSet\">tns1:VideoSource/MotionAlarm|tns1:Device/Trigger/"
                       "DigitalInput</wsnt:TopicExpression></wsnt:Filter></wsnt:Subscribe>");
    ASSERT_EQ(s.status, 200) << s.body;

    // The new subscriber's initial states (as they stood), then the event, in one Notify.
    shell("ONVIF_ROOT='" + root + "' " + buildProgram("sim-event") + " motion off");
    std::string request = received(listener);
    EXPECT_EQ(request.rfind("POST /hook HTTP/1.1\r\n", 0), 0u) << request;
    EXPECT_NE(request.find("Content-Length: "), std::string::npos);
    EXPECT_NE(request.find("<wsnt:Notify>"), std::string::npos);
    size_t initialized = request.find("PropertyOperation=\"Initialized\"><tt:Source><tt:SimpleItem Name=\"Source\" "
                                      "Value=\"VideoSource1\"/></tt:Source><tt:Data><tt:SimpleItem Name=\"State\" "
                                      "Value=\"true\"/>");
    EXPECT_NE(initialized, std::string::npos) << request;
    EXPECT_LT(initialized, request.find("PropertyOperation=\"Changed\"><tt:Source><tt:SimpleItem Name=\"Source\" "
                                       "Value=\"VideoSource1\"/></tt:Source><tt:Data><tt:SimpleItem Name=\"State\" "
                                       "Value=\"false\"/>"));
    EXPECT_NE(request.find("<wsnt:Topic Dialect=\"http://www.onvif.org/ver10/tev/topicExpression/ConcreteSet\">"
                           "tns1:VideoSource/MotionAlarm</wsnt:Topic>"), std::string::npos);
    // The or-joined topics take the inputs, but neither relays nor tampering.
    EXPECT_EQ(count(request, "PropertyOperation=\"Initialized\""), 2) << request;
    EXPECT_EQ(word(SUBSCRIPTION_TABLE_WORD + SLOT_STATE), SLOT_PUSH);

    // A synchronization point: the event process sends them again, alone.
    EXPECT_EQ(run(soap("<tev:SetSynchronizationPoint/>"), "", {{"QUERY_STRING", "Idx=0"}}).status, 200);
    shell("ONVIF_ROOT='" + root + "' " + buildProgram("sim-event") + " sync");
    request = received(listener);
    EXPECT_EQ(count(request, "PropertyOperation=\"Initialized\""), 2) << request;
    EXPECT_EQ(count(request, "<wsnt:NotificationMessage>"), 2);
    close(listener);
}

}  // namespace

