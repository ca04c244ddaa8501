// The event service's faults: the ultimate receiver as node and role, and
// the filter and resource faults built on them.
#include "events/events.h"
#include "frame/frame.h"

#include <stdio.h>
#include <string.h>

// The event service's fault, up to the opening of its detail; the caller
// appends the detail and closes it with closeEventFault.
static void openEventFault(const char* reason)
{
    setResponse("<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Sender</SOAP-ENV:Value>"
                "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:InvalidArgVal</SOAP-ENV:Value></SOAP-ENV:Subcode>"
                "</SOAP-ENV:Code><SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">%s</SOAP-ENV:Text></SOAP-ENV:Reason>"
                "<SOAP-ENV:Node>http://www.w3.org/2003/05/soap-envelope/node/ultimateReceiver</SOAP-ENV:Node>"
                "<SOAP-ENV:Role>http://www.w3.org/2003/05/soap-envelope/role/ultimateReceiver</SOAP-ENV:Role>"
                "<SOAP-ENV:Detail>", reason);
}

static void closeEventFault()
{
    appendMarkup("</SOAP-ENV:Detail></SOAP-ENV:Fault>");
    G_httpAck = 400;
}

void writeEventFault(const char* reason, const char* detail)
{
    openEventFault(reason);
    appendResponse("%s", detail);
    closeEventFault();
}

void writeInvalidFilterFault(const char* reason, const char* description, const char* unknownFilter)
{
    struct tm now;
    char stamp[64];
    currentTime(&now);
    formatTime(stamp, sizeof stamp, &now);
    openEventFault(reason);
    appendResponse("<wsnt:InvalidFilterFault><bf2:Timestamp>%s</bf2:Timestamp><bf2:Description>%s"
                   "</bf2:Description><wsnt:UnknownFilter>%s</wsnt:UnknownFilter></wsnt:InvalidFilterFault>",
                   stamp, description, unknownFilter);
    closeEventFault();
}

void writeResourceUnknownFault()
{
    struct tm now;
    char stamp[64];
    currentTime(&now);
    formatTime(stamp, sizeof stamp, &now);
    openEventFault("Argument Value Invalid");
    appendResponse("<wsrf-r:ResourceUnknownFault><bf2:Timestamp>%s</bf2:Timestamp>"
                   "<bf2:Description>Resource unknown</bf2:Description></wsrf-r:ResourceUnknownFault>", stamp);
    closeEventFault();
}

void writeCreationFailedFault()
{
    struct tm now;
    char stamp[64];
    zonedNow(stamp, sizeof stamp, &now);
    openEventFault("No more subscriptions");
    appendResponse("<wsnt:SubscribeCreationFailedFault><bf2:Timestamp>%s</bf2:Timestamp>"
                   "<bf2:Description>No more subscriptions</bf2:Description></wsnt:SubscribeCreationFailedFault>",
                   stamp);
    closeEventFault();
}

void writePullLimitsFault(int maxSeconds, int maxMessages)
{
    openEventFault("The timeout is longer than the camera waits");
    appendResponse("<tev:PullMessagesFaultResponse><tev:MaxTimeout>PT%dS</tev:MaxTimeout>"
                   "<tev:MaxMessageLimit>%d</tev:MaxMessageLimit></tev:PullMessagesFaultResponse>",
                   maxSeconds, maxMessages);
    closeEventFault();
}
