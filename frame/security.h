// Authentication of a request (WS-Security UsernameToken).
#ifndef FRAME_SECURITY_H
#define FRAME_SECURITY_H

// Sets G_httpAck to 200 when the request may proceed, 401 when it may not.
void checkSecurity();

#endif
