// Actions of this folder that this build does not serve yet: each answers
// with the generic fault until its handler lands.
#include "frame/frame.h"
#include "frame/handlers.h"

void GetVideoSources() { actionNotServed(); }
void GetCompatibleVideoSourceConfigurations() { actionNotServed(); }
void GetVideoSourceConfigurationOptions() { actionNotServed(); }
void GetVideoSourceConfigurations() { actionNotServed(); }
void GetVideoSourceConfiguration() { actionNotServed(); }
void SetVideoSourceConfiguration() { actionNotServed(); }
void GetCompatibleVideoEncoderConfigurations() { actionNotServed(); }
void GetVideoEncoderConfigurationOptions() { actionNotServed(); }
void GetVideoEncoderConfigurations() { actionNotServed(); }
void GetVideoEncoderConfiguration() { actionNotServed(); }
void SetVideoEncoderConfiguration() { actionNotServed(); }
void GetGuaranteedNumberOfVideoEncoderInstances() { actionNotServed(); }
void GetAudioSources() { actionNotServed(); }
void GetCompatibleAudioSource() { actionNotServed(); }
void GetAudioSourceConfigurationOptions() { actionNotServed(); }
void GetAudioSourceConfigurations() { actionNotServed(); }
void GetAudioSourceConfiguration() { actionNotServed(); }
void SetAudioSourceConfiguration() { actionNotServed(); }
void GetCompatibleAudioEncoder() { actionNotServed(); }
void GetAudioEncoderConfigurationOptions() { actionNotServed(); }
void GetAudioEncoderConfigurations() { actionNotServed(); }
void GetAudioEncoderConfiguration() { actionNotServed(); }
void SetAudioEncoderConfiguration() { actionNotServed(); }
void GetAudioOutputConfigurations() { actionNotServed(); }
void GetAudioOutputConfigurationOptions() { actionNotServed(); }
void SetAudioOutputConfiguration() { actionNotServed(); }
void GetAudioOutputConfiguration() { actionNotServed(); }
void GetAudioOutputs() { actionNotServed(); }
void GetAudioDecoderConfigurationOptions() { actionNotServed(); }
void GetStreamURI() { actionNotServed(); }
void GetSnapshotURI() { actionNotServed(); }
void StartMulticastStreaming() { actionNotServed(); }
void StopMulticastStreaming() { actionNotServed(); }
void GetAnalyticsModules() { actionNotServed(); }
