// One request: read the body, parse, authenticate, dispatch, print.
#include "frame/frame.h"
#include "frame/standard_faults.h"
#include "frame/dispatch.h"
#include "frame/prescan.h"
#include "frame/onvif_security.h"
#include "frame/security.h"
#include "frame/xmlsearch.h"
#include "state/shm.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tinyxml.h>
#include <unistd.h>

void writeGenericFault();

// The body and the zero bytes TinyXML may read past a cut multi-byte character.
static char requestBody[MAX_CONTENT_LENGTH + 8];

// CONTENT_LENGTH as a number, or -1 when it is not a plain one.
static long announcedContentLength(const char* text)
{
    if (!text || !*text)
        return -1;
    for (const char* p = text; *p; ++p)
        if (*p < '0' || *p > '9')
            return -1;
    if (strlen(text) > 9)
        return -1;
    return strtol(text, 0, 10);
}

// A body we refuse unread is still taken off standard input before the
// answer: Apache's mod_cgid hands the program a socket, and leaving bytes in
// it resets the connection and loses the answer. Bounded in bytes (the
// announced length when there is one), and a second of silence ends it: a
// server that hands over the client's connection never closes our input.
#define UNREAD_BODY_DISCARD_LIMIT (4L * 1024 * 1024)
#define UNREAD_BODY_SILENCE_MS 1000

static void discardUnreadBody(long announced)
{
    long limit = announced >= 0 && announced < UNREAD_BODY_DISCARD_LIMIT ? announced : UNREAD_BODY_DISCARD_LIMIT;
    char chunk[4096];
    long discarded = 0;
    struct pollfd input = {STDIN_FILENO, POLLIN, 0};
    while (discarded < limit && poll(&input, 1, UNREAD_BODY_SILENCE_MS) > 0) {
        size_t want = limit - discarded < (long)sizeof chunk ? (size_t)(limit - discarded) : sizeof chunk;
        ssize_t n = read(STDIN_FILENO, chunk, want);
        if (n <= 0)
            break;
        discarded += n;
    }
}

int serveRequest()
{
    TiXmlDocument document;
    G_myDocument = &document;
    long announced = announcedContentLength(getenv("CONTENT_LENGTH"));
    long length = announced <= MAX_CONTENT_LENGTH ? announced : -1;
    G_Host = getenv("HOST");
    if (!G_Host || !*G_Host)
        G_Host = getenv("HTTP_HOST");
    if (!G_Host)
        G_Host = "";
    G_httpAck = 400;

    bool bodyRead = length >= 0 && G_shared_memory && G_shared_memory[SERVICE_READY] == 1;
    if (bodyRead) {
        size_t got = 0;
        while (got < (size_t)length) {
            size_t n = fread(requestBody + got, 1, (size_t)length - got, stdin);
            if (n == 0)
                break;
            got += n;
        }
        // Only the bytes the parser can reach past the body: zeroing the
        // whole buffer costs more than the rest of a small request.
        memset(requestBody + got, 0, sizeof requestBody - MAX_CONTENT_LENGTH);
        // A body refused here is answered as one the parser could not read.
        if (bodyFitsParser(requestBody, got))
            parseXML(requestBody);
        if (got == 0)
            challengeEmptyProbe();
        if (G_httpAck == 200) {
            checkSecurity();
            if (G_httpAck == 200)
                checkXML();
            // A cut answer is malformed SOAP: better the generic fault.
            if (responseOverflowed())
                G_httpAck = 500;
        }
    }

    if (!bodyRead)
        discardUnreadBody(announced);
    HttpStatus(G_httpAck);
    if (G_httpAck == 401)
        Print_Error_MSG_to_G_Reponse();
    if (G_httpAck != 200 && G_httpAck != 400 && G_httpAck != 401 && !keepsOwnReceiverFault())
        writeGenericFault();
    SoapEnvStart();
    SoapBody();
    SoapEnvEnd();
    fflush(stdout);
    document.Clear();
    G_myDocument = 0;
    return 0;
}
