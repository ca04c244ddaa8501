// The ONVIF mode's status-500 faults: an action no row serves, and the
// generic action fault in the form the schema takes.
#include "frame/standard_faults.h"
#include "frame/frame.h"

static int ownReceiverFault;

void writeActionNotSupportedFault()
{
    clearResponse();
    appendMarkup("<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Receiver</SOAP-ENV:Value>"
                 "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:ActionNotSupported</SOAP-ENV:Value></SOAP-ENV:Subcode>"
                 "</SOAP-ENV:Code><SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">Optional Action Not Implemented"
                 "</SOAP-ENV:Text></SOAP-ENV:Reason><SOAP-ENV:Detail><SOAP-ENV:Text xml:lang=\"en\">"
                 "The requested action is optional and is not implemented by the device.</SOAP-ENV:Text>"
                 "</SOAP-ENV:Detail></SOAP-ENV:Fault>");
    G_httpAck = 500;
    ownReceiverFault = 1;
}

int keepsOwnReceiverFault()
{
    int keep = ownReceiverFault && !responseOverflowed();
    ownReceiverFault = 0;
    return keep;
}

void writeStandardGenericFault()
{
    clearResponse();
    appendMarkup("<SOAP-ENV:Fault><SOAP-ENV:Code><SOAP-ENV:Value>SOAP-ENV:Receiver</SOAP-ENV:Value>"
                 "<SOAP-ENV:Subcode><SOAP-ENV:Value>ter:Action</SOAP-ENV:Value></SOAP-ENV:Subcode></SOAP-ENV:Code>"
                 "<SOAP-ENV:Reason><SOAP-ENV:Text xml:lang=\"en\">Action failed</SOAP-ENV:Text></SOAP-ENV:Reason>"
                 "<SOAP-ENV:Detail><SOAP-ENV:Text xml:lang=\"en\">The requested SOAP action failed</SOAP-ENV:Text>"
                 "</SOAP-ENV:Detail></SOAP-ENV:Fault>");
}
