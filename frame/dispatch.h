// Dispatch of an authenticated request to the handler of its action.
#ifndef FRAME_DISPATCH_H
#define FRAME_DISPATCH_H

void checkXML();

#endif
