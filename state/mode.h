// Which behaviour the camera shows: the camera's long-standing one (legacy),
// or the ONVIF standard's (Conformance.Mode=onvif in onvif.conf).
#ifndef STATE_MODE_H
#define STATE_MODE_H

// 1 when onvif.conf says "Conformance.Mode=onvif". Read once per request,
// without the settings readers' waits: a missing or unreadable file, key or
// value is the legacy mode, and the read never fails a request.
int onvifMode();

// Forgets the mode read, for processes that serve several requests (the fuzz
// target, tests).
void forgetMode();

#endif
