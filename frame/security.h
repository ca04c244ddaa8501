// Authentication of a request (WS-Security UsernameToken).
#ifndef FRAME_SECURITY_H
#define FRAME_SECURITY_H

// Sets G_httpAck to 200 when the request may proceed, 401 when it may not.
void checkSecurity();

// 1 when digest_b64 is Base64(SHA-1(decoded nonce, created, password)).
int check_password_digest(const char* nonce_b64, const char* created, const char* password, const char* digest_b64);

#endif
