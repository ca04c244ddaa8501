// Authentication of a request. Every request passes until the credential
// check is built.
#include "frame/security.h"
#include "frame/frame.h"

void checkSecurity()
{
    G_httpAck = 200;
}
