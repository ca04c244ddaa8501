// Actions of this folder that this build does not serve yet: each answers
// with the generic fault until its handler lands.
#include "frame/frame.h"
#include "frame/handlers.h"

void GetServiceCapabilities() { actionNotServed(); }
