// Actions of this folder that this build does not serve yet: each answers
// with the generic fault until its handler lands.
#include "frame/frame.h"
#include "frame/handlers.h"

void GetNodes() { actionNotServed(); }
void GetNode() { actionNotServed(); }
void Stop() { actionNotServed(); }
void GetConfigurationOptions() { actionNotServed(); }
void GetConfigurations() { actionNotServed(); }
void GetConfiguration() { actionNotServed(); }
void SetConfiguration() { actionNotServed(); }
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
void AddPTZConfiguration() { actionNotServed(); }
void RemovePTZConfiguration() { actionNotServed(); }
