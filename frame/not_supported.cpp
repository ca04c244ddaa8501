// The ActionNotSupported fault of operations the camera does not support.
#include "frame/not_supported.h"
#include "frame/frame.h"

static int answered;

void answerActionNotSupported()
{
    writeReceiverFault1("ActionNotSupported", "Optional Action Not Implemented",
                        "The requested action is optional and is not implemented by the device.");
    G_httpAck = 500;
    answered = 1;
}

// Read once per request by the frame, which also forgets the mark for a
// process that serves several requests.
int actionNotSupportedAnswered()
{
    int was = answered && G_httpAck == 500;
    answered = 0;
    return was;
}
