// The answer of the ONVIF mode to an operation of a served service that the
// camera does not support: env:Receiver / ter:ActionNotSupported, status 500.
#ifndef FRAME_NOT_SUPPORTED_H
#define FRAME_NOT_SUPPORTED_H

// Writes the fault and sets the status; the frame then prints it as it is
// instead of the generic fault of other 500 answers.
void answerActionNotSupported();

// 1 when this request's answer is that fault; the mark is cleared.
int actionNotSupportedAnswered();

#endif
