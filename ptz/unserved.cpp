// Actions of this folder that this build does not serve yet: each answers
// with the generic fault until its handler lands.
#include "frame/frame.h"
#include "frame/handlers.h"

void Stop() { actionNotServed(); }
void ContinuousMove() { actionNotServed(); }
void SetPreset() { actionNotServed(); }
void GotoPreset() { actionNotServed(); }
void RemovePreset() { actionNotServed(); }
void GetPresets() { actionNotServed(); }
void GetStatus() { actionNotServed(); }
void AbsoluteMove() { actionNotServed(); }
void RelativeMove() { actionNotServed(); }
void GotoHomePosition() { actionNotServed(); }
void SetHomePosition() { actionNotServed(); }
