// The CGI header block, the SOAP envelope with its namespace sets, and the
// fault bodies.
#include "frame/frame.h"
#include "frame/dispatch.h"
#include "frame/onvif_security.h"
#include "frame/xmlsearch.h"
#include "frame/standard_faults.h"
#include "state/mode.h"
#include "state/shm.h"
#include "state/netaddr.h"
#include "state/config.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

int G_httpAck;
const char* G_Host;
unsigned char G_connection_close;
TiXmlDocument* G_myDocument;

#define NS_SOAP_ENV " xmlns:SOAP-ENV=\"http://www.w3.org/2003/05/soap-envelope\""
#define NS_SOAP_ENC " xmlns:SOAP-ENC=\"http://www.w3.org/2003/05/soap-encoding\""
#define NS_XSI " xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\""
#define NS_XSD " xmlns:xsd=\"http://www.w3.org/2001/XMLSchema\""
#define NS_C14N " xmlns:c14n=\"http://www.w3.org/2001/10/xml-exc-c14n#\""
#define NS_WSU " xmlns:wsu=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd\""
#define NS_DS " xmlns:ds=\"http://www.w3.org/2000/09/xmldsig#\""
#define NS_WSSE " xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\""
#define NS_WSA5 " xmlns:wsa5=\"http://www.w3.org/2005/08/addressing\""
#define NS_XMIME5 " xmlns:xmime5=\"http://www.w3.org/2005/05/xmlmime\""
#define NS_WSRF_BF " xmlns:wsrf-bf=\"http://docs.oasis-open.org/wsrf/bf-2\""
#define NS_WSTOP " xmlns:wstop=\"http://docs.oasis-open.org/wsn/t-1\""
#define NS_TT " xmlns:tt=\"http://www.onvif.org/ver10/schema\""
#define NS_WSRF_R " xmlns:wsrf-r=\"http://docs.oasis-open.org/wsrf/r-2\""
#define NS_TDS " xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\""
#define NS_TEV1 " xmlns:tev1=\"http://www.onvif.org/ver10/events/wsdl/NotificationProducerBinding\""
#define NS_TEV2 " xmlns:tev2=\"http://www.onvif.org/ver10/events/wsdl/EventBinding\""
#define NS_TEV3 " xmlns:tev3=\"http://www.onvif.org/ver10/events/wsdl/SubscriptionManagerBinding\""
#define NS_WSNT " xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\""
#define NS_TEV4 " xmlns:tev4=\"http://www.onvif.org/ver10/events/wsdl/PullPointSubscriptionBinding\""
#define NS_TEV " xmlns:tev=\"http://www.onvif.org/ver10/events/wsdl\""
#define NS_TIMG " xmlns:timg=\"http://www.onvif.org/ver20/imaging/wsdl\""
#define NS_TPTZ " xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\""
#define NS_TRT " xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\""
#define NS_TER " xmlns:ter=\"http://www.onvif.org/ver10/error\""
#define NS_TMD " xmlns:tmd=\"http://www.onvif.org/ver10/deviceIO/wsdl\""
#define NS_DN " xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\""
#define NS_TNS1 " xmlns:tns1=\"http://www.onvif.org/ver10/topics\""
#define NS_BF2 " xmlns:bf2=\"http://docs.oasis-open.org/wsrf/bf-2\""
#define NS_TNSIV " xmlns:tnsiv=\"http://www.indigovision.com/onvif/topics\""
#define NS_TNSAXIS " xmlns:tnsaxis=\"http://www.axis.com/2009/event/topics\""
#define NS_TNSAVG " xmlns:tnsavg=\"http://www.avigilon.com/onvif/ver10/topics\""

#define SET_BASE NS_SOAP_ENV NS_SOAP_ENC
#define SET_E1 NS_WSA5 NS_WSTOP NS_WSNT NS_TEV NS_TNS1 NS_TT
#define SET_E2 NS_WSA5 NS_WSTOP NS_WSNT NS_TEV NS_TNS1 NS_TDS NS_TIMG NS_TRT NS_TT
#define SET_V NS_WSA5 NS_XSI NS_XSD NS_WSTOP NS_WSNT NS_TEV NS_TNS1 NS_TT
#define SET_F1 NS_TER NS_TEV NS_WSNT NS_BF2 NS_WSRF_R NS_WSA5
#define SET_F2 NS_TER NS_WSNT NS_TEV NS_BF2 NS_WSRF_R NS_WSA5
#define SET_G_HEAD NS_SOAP_ENV NS_SOAP_ENC NS_XSI NS_XSD NS_C14N NS_WSU NS_DS NS_WSSE NS_WSA5 NS_XMIME5 \
    NS_WSRF_BF NS_WSTOP NS_TT NS_WSRF_R
#define SET_G_TAIL NS_TDS NS_TEV1 NS_TEV2 NS_TEV3 NS_WSNT NS_TEV4 NS_TEV NS_TIMG NS_TPTZ NS_TRT NS_TER NS_TMD
#define SET_G1 SET_G_HEAD \
    " xmlns:tan=\"http://www.onvif.org/ver20/analytics/wsdl\"" \
    " xmlns:tan1=\"http://www.onvif.org/ver20/analytics/wsdl/RuleEngineBinding\"" \
    " xmlns:tan2=\"http://www.onvif.org/ver20/analytics/wsdl/AnalyticsEngineBinding\"" \
    SET_G_TAIL NS_TNS1
#define SET_G2 SET_G_HEAD \
    " xmlns:tan1=\"http://www.onvif.org/ver10/analytics/wsdl/RuleEngineBinding\"" \
    " xmlns:tan=\"http://www.onvif.org/ver10/analytics/wsdl\"" \
    " xmlns:tan2=\"http://www.onvif.org/ver10/analytics/wsdl/AnalyticsEngineBinding\"" \
    SET_G_TAIL NS_DN NS_TNS1

#define EVENTS_WSDL "http://www.onvif.org/ver10/events/wsdl/"
#define BW2 "http://docs.oasis-open.org/wsn/bw-2/"

static const char GENERIC_FAULT[] =
    "<SOAP-ENV:Fault SOAP-ENV:encodingStyle=\"http://www.w3.org/2003/05/soap-encoding\">"
    "<SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Receiver</SOAP-ENV:Value>"
    "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:Action</SOAP-ENV:Value></SOAP-ENV:Subcode></SOAP-ENV:Code>"
    "<SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">Action failed</SOAP-ENV:Text></SOAP-ENV:Reason>"
    "<SOAP-ENV:Detail><SOAP-ENV:Text xml:lang=\"en\">The requested SOAP action failed</SOAP-ENV:Text>"
    "</SOAP-ENV:Detail></SOAP-ENV:Fault>";

static const char NOT_AUTHORIZED_FAULT[] =
    "<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Sender</SOAP-ENV:Value>"
    "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:NotAuthorized</SOAP-ENV:Value></SOAP-ENV:Subcode></SOAP-ENV:Code>"
    "<SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">The security token could not be authenticated or authorized"
    "</SOAP-ENV:Text></SOAP-ENV:Reason></SOAP-ENV:Fault>";

void HttpStatus(int status)
{
    switch (status) {
    case 200: puts("Status: 200 OK\r"); break;
    case 400: puts("Status: 400 Bad Request\r"); break;
    case 401:
        if (!printDigestChallenge())
            puts("Status: 400 Bad Request\r");
        break;
    case 405: puts("Status: 405 Method Not Allowed\r"); break;
    case 415: puts("Status: 415 Unsupported media\r"); break;
    case 500: puts("Status: 500 Internal Server Error\r"); break;
    default: break;
    }
    if (G_connection_close)
        puts("Connection: close\r");
    puts("Content-type: application/soap+xml; charset=utf-8\r\n\r");
}

// withDeviceAddress adds the address a push subscriber answers to: the device itself.
static void printHeader(const char* action, int withDeviceAddress)
{
    fputs("<SOAP-ENV:Header><wsa5:Action>", stdout);
    fputs(action, stdout);
    fputs("</wsa5:Action>", stdout);
    if (withDeviceAddress) {
        char service[96];
        deviceServiceAddress(service, sizeof service);
        printf("<wsa5:To>%s/onvif/device_service</wsa5:To>", service);
    }
    fputs("</SOAP-ENV:Header>", stdout);
}

// The event answers: the set of a success, the set of a fault, and the
// header's action (a 0 set is the variant's event set V).
struct EventEnvelope {
    const char* okSet;
    const char* faultSet;
    const char* action;
};

static const EventEnvelope eventEnvelopes[] = {
    /* ENV_FULL */ {0, 0, 0},
    /* ENV_CREATE_PULL_POINT */ {SET_E1, SET_F2, EVENTS_WSDL "EventPortType/CreatePullPointSubscriptionResponse"},
    /* ENV_EVENT_PROPERTIES */ {0, SET_F1, EVENTS_WSDL "EventPortType/GetEventPropertiesResponse"},
    /* ENV_SUBSCRIBE */ {SET_E1, SET_F2, BW2 "NotificationProducer/SubscribeResponse"},
    /* ENV_UNSUBSCRIBE */ {SET_E1, SET_F1, BW2 "SubscriptionManager/UnsubscribeResponse"},
    /* ENV_RENEW */ {SET_E1, SET_F1, BW2 "SubscriptionManager/RenewResponse"},
    /* ENV_PULL_MESSAGES */ {0, SET_F1, EVENTS_WSDL "PullPointSubscription/PullMessagesResponse"},
    /* ENV_SERVICE_CAPABILITIES */ {SET_E2, SET_F1, EVENTS_WSDL "EventPortType/GetServiceCapabilitiesResponse"},
    /* ENV_SYNCHRONIZATION_POINT */ {SET_E2, SET_F1, EVENTS_WSDL "PullPointSubscription/SetSynchronizationPointResponse"},
};

void SoapEnvStart()
{
    const ActionRow* row = actionRow(PrimaryElementName);
    EnvelopeKind kind = row ? row->envelope : ENV_FULL;
    fputs("<?xml version=\"1.0\" encoding=\"UTF-8\"?><SOAP-ENV:Envelope", stdout);
    if (kind == ENV_FULL) {
        fputs(modelHas(Cap::EventsVendorTopics) ? SET_G1 ">" : SET_G2 ">", stdout);
    } else {
        const EventEnvelope& e = eventEnvelopes[kind];
        if (G_httpAck != 200) {
            fputs(SET_BASE, stdout);
            fputs(e.faultSet, stdout);
            fputs(">", stdout);
        } else if (!e.okSet) {
            fputs(SET_BASE SET_V, stdout);
            fputs(modelHas(Cap::EventsVendorTopics)   ? NS_TNSIV NS_TNSAXIS ">"
                  : modelHas(Cap::EventsOnePullPoint) ? ">"
                                                      : NS_TNSAVG ">",
                  stdout);
            printHeader(e.action, 0);
        } else {
            fputs(SET_BASE, stdout);
            fputs(e.okSet, stdout);
            fputs(">", stdout);
            printHeader(e.action, kind == ENV_SUBSCRIBE);
        }
    }
    fputs("<SOAP-ENV:Body>", stdout);
}

void SoapBody()
{
    // Printed verbatim: a body is text, never a format.
    fputs(G_Response, stdout);
}

void SoapEnvEnd()
{
    fputs("</SOAP-ENV:Body></SOAP-ENV:Envelope>", stdout);
}

void Print_Error_MSG_to_G_Reponse()
{
    clearResponse();
    appendMarkup(NOT_AUTHORIZED_FAULT);
}

#define FAULT_REASON "<SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">%s</SOAP-ENV:Text></SOAP-ENV:Reason>"
#define FAULT_DETAIL "<SOAP-ENV:Detail>%s</SOAP-ENV:Detail>"

void writeSenderFault(const char* subcode, const char* reason)
{
    setResponse("<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Sender</SOAP-ENV:Value>"
                "<SOAP-ENV:Subcode><SOAP-ENV:Value>%s</SOAP-ENV:Value></SOAP-ENV:Subcode></SOAP-ENV:Code>"
                FAULT_REASON "</SOAP-ENV:Fault>", subcode, reason);
    G_httpAck = 400;
}

static void writeFault2(const char* code, const char* subcode1, const char* subcode2, const char* reason,
                        const char* detail)
{
    setResponse("<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:%s</SOAP-ENV:Value>"
                "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:%s</SOAP-ENV:Value>"
                "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:%s</SOAP-ENV:Value></SOAP-ENV:Subcode>"
                "</SOAP-ENV:Subcode></SOAP-ENV:Code>" FAULT_REASON FAULT_DETAIL "</SOAP-ENV:Fault>",
                code, subcode1, subcode2, reason, detail);
    G_httpAck = 400;
}

void writeSenderFault2(const char* subcode1, const char* subcode2, const char* reason, const char* detail)
{
    writeFault2("Sender", subcode1, subcode2, reason, detail);
}

void writeReceiverFault2(const char* subcode1, const char* subcode2, const char* reason, const char* detail)
{
    writeFault2("Receiver", subcode1, subcode2, reason, detail);
}

void writeReceiverFault1(const char* subcode, const char* reason, const char* detail)
{
    setResponse("<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Receiver</SOAP-ENV:Value>"
                "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:%s</SOAP-ENV:Value></SOAP-ENV:Subcode>"
                "</SOAP-ENV:Code>" FAULT_REASON FAULT_DETAIL "</SOAP-ENV:Fault>", subcode, reason, detail);
    G_httpAck = 400;
}

void writeNoProfileFault()
{
    writeSenderFault2("InvalidArgVal", "NoProfile", "Profile token does not exist",
                      "The requested profile token ProfileToken does not exist");
}

void actionNotServed()
{
    G_httpAck = 500;
}

void answerStoreFailure(const char* path)
{
    logServiceError(PrimaryElementName ? PrimaryElementName : "", "%s not written", path);
    G_httpAck = 500;
}

// Copies the generic fault over the start of the body, as the frame does for
// any status other than 200, 400 and 401.
void writeGenericFault()
{
    if (onvifMode()) {
        writeStandardGenericFault();
        return;
    }
    clearResponse();
    appendMarkup(GENERIC_FAULT);
}
