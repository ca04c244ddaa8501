// Dispatch of an authenticated request to the handler of its action.
#ifndef FRAME_DISPATCH_H
#define FRAME_DISPATCH_H

void checkXML();

// The 1-based row of the dispatch table that serves the action, 0 for none.
int dispatchRow(const char* action);

#endif
