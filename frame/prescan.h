// The look at a request body before the XML parser gets it: bodies whose
// shape alone would make parsing costly are refused unparsed.
#ifndef FRAME_PRESCAN_H
#define FRAME_PRESCAN_H

#include <stddef.h>

// No ONVIF request comes near this nesting (envelope, body, action and the
// deepest configuration together stay under 10).
#define MAX_BODY_DEPTH 32

// 1 when the body (up to its first NUL or length bytes) nests no deeper
// than MAX_BODY_DEPTH and no element carries more attributes than the
// element tables hold; 0 when it must be refused. Linear in the length.
int bodyFitsParser(const char* body, size_t length);

#endif
