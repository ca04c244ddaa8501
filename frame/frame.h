// The request frame's process-wide globals, the CGI header and SOAP
// envelope writers, and the shared fault writers every handler uses.
#ifndef FRAME_FRAME_H
#define FRAME_FRAME_H

#include <stddef.h>
#include <stdio.h>

class TiXmlDocument;

#define G_RESPONSE_SIZE 100000
// Larger bodies are refused unread with 400: no ONVIF request comes near it.
#define MAX_CONTENT_LENGTH 65536

extern char G_Response[G_RESPONSE_SIZE];
extern int G_httpAck;
extern const char* G_Host;
extern unsigned char G_connection_close;
extern TiXmlDocument* G_myDocument;

void HttpStatus(int status);
void SoapEnvStart();
void SoapBody();
void SoapEnvEnd();
void Print_Error_MSG_to_G_Reponse();

// Serves one CGI request from stdin to stdout; main() is this call.
int serveRequest();

// The answer writer. Formats are markup written in the code; every %s
// argument is text and is XML-escaped on the way in. An answer that would
// not fit is marked as overflowed (the frame then answers the generic fault)
// and nothing more is appended.
void appendResponse(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
// Replaces G_Response with the formatted text (and clears the overflow mark).
void setResponse(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
// Appends markup the program composed itself, as it is.
void appendMarkup(const char* markup);
// Appends <tag>text</tag> with the text escaped.
void appendElement(const char* tag, const char* text);
// Appends markup, the text escaped, markup: one row of a file printed between
// the tags its table gives.
void appendBetween(const char* openMarkup, const char* text, const char* closeMarkup);
void clearResponse();
int responseOverflowed();
// Where the answer ends now; and its own bytes between two such marks
// appended again (a part printed once that the answer repeats).
size_t responseMark();
void appendResponsePart(size_t from, size_t to);

// Appends a file's text, escaped like request text, to G_Response, leaving
// room for reserve more bytes (the closing tags); a file too long for the
// answer is cut after its last whole line that fits. Returns the bytes of
// the file taken.
long appendFileTextToResponse(FILE* f, size_t reserve);
// The same for the one kind of file whose content is markup by design: the
// event files the camera's event process writes notifications into.
long appendMarkupFileToResponse(FILE* f, size_t reserve);

// Escapes text for an XML element or attribute ("<", ">", "&", quotes) into
// out; cut short rather than past its end. Returns out. Only for texts that
// do not go through the answer writer (which escapes by itself).
const char* xmlEscape(const char* text, char* out, size_t n);

// Fault writers. Each replaces G_Response and sets G_httpAck to 400.
// Sender fault with one subcode; the subcode carries its own "ter:" prefix.
void writeSenderFault(const char* subcode, const char* reason);
// Sender fault with two subcodes ("ter:" is added to each) and a detail text.
void writeSenderFault2(const char* subcode1, const char* subcode2, const char* reason, const char* detail);
// Receiver fault with two subcodes ("ter:" added) and a detail text.
void writeReceiverFault2(const char* subcode1, const char* subcode2, const char* reason, const char* detail);
// Receiver fault with one subcode ("ter:" added) and a detail text.
void writeReceiverFault1(const char* subcode, const char* reason, const char* detail);

// The profile store's fault: the requested profile token does not exist.
void writeNoProfileFault();

// For an action whose handler this build does not serve: the generic fault.
void actionNotServed();

// A change the store could not take (a full or failing disk): the error log
// gets a line naming the action and the file, and the answer is the generic
// fault, never a 200 for a change that was not made.
void answerStoreFailure(const char* path);

#endif
