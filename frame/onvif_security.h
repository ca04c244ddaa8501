// Authentication in the ONVIF mode: access classes and user levels, tokens
// that cannot be used twice, HTTP digest, and a lock-out for guessing.
#ifndef FRAME_ONVIF_SECURITY_H
#define FRAME_ONVIF_SECURITY_H

#include <stddef.h>
#include <time.h>

// Sets G_httpAck to 200 when the request may proceed, 401 when it may not.
void checkOnvifSecurity();

// An empty body without credentials, in the ONVIF mode: HTTP clients probe
// with one before they send the body with their digest answer (curl does),
// so it is challenged rather than refused as unreadable.
void challengeEmptyProbe();

// For a 401: prints "Status: 401 Unauthorized" and one digest challenge per
// algorithm when the request is to be challenged, and returns 1; 0 when the
// refusal is a SOAP fault (the caller prints its 400).
int printDigestChallenge();

// The server nonce issued at the given time with a salt of 8 hexadecimal
// digits: time and salt in hexadecimal, then a MAC of both under the camera's
// secret. Empty when no secret can be had.
void digestNonce(time_t issued, const char* salt, char* out, size_t n);
#define DIGEST_NONCE_LENGTH 48

// For a program beside the service that serves media on its own path (the
// simulated camera's snapshot): 1 when the request may have it, that is in
// the legacy mode, or when its Authorization (digest, or basic where
// allowBasic) proves an account whose level may read media. Otherwise it
// prints a whole 401 answer with the digest challenges and returns 0.
int mediaRequestAuthorized(int allowBasic);

#define DIGEST_REALM "ONVIF camera"
#define DIGEST_SECRET_FILE "/etc/onvif_digest.secret"

#endif
