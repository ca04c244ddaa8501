// The faults the ONVIF mode answers where the camera's own answer is the
// generic action fault.
#ifndef FRAME_STANDARD_FAULTS_H
#define FRAME_STANDARD_FAULTS_H

// env:Receiver / ter:ActionNotSupported, status 500: no row serves the
// action by its whole name in its namespace. The frame keeps this body.
void writeActionNotSupportedFault();

// 1 once (and only for the request that wrote it) when the status-500 body
// is a fault a handler or the dispatch wrote itself; the frame then leaves it.
int keepsOwnReceiverFault();

// The generic action fault in the schema's form (no encodingStyle on the
// Fault element).
void writeStandardGenericFault();

#endif
