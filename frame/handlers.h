// Every action handler the dispatch table can call, by the folder that owns it.
#ifndef FRAME_HANDLERS_H
#define FRAME_HANDLERS_H

// frame/
void GetUsers();
void CreateUsers();
void DeleteUsers();
void SetUser();

// device/
void GetNetworkInterfaces();
void SetNetworkInterfaces();
void GetNetworkDefaultGateway();
void SetNetworkDefaultGateway();
void SystemReboot();
void SetZeroConfiguration();
void GetZeroConfiguration();
void GetNetworkProtocols();
void SetNetworkProtocols();
void GetWSDLResponse();
void GetSystemDateAndTimeResponse();
void SetSystemDateAndTimeResponse();
void GetNTPResponse();
void SetNTPResponse();
void GetCapabilityResponse();
void GetHostnameResponse();
void SetHostnameResponse();
void GetDNSResponse();
void SetDNSResponse();
void GetDeviceInfoResponse();
void GetScopes();
void SetScopes();
void AddScopes();
void RemoveScopes();
void SetDefault();
void SetDiscoveryMode();
void GetDiscoveryMode();
void GetSystemLog();
void GetServices();
void GetServiceCapabilities();
// The ONVIF mode's GetServiceCapabilities, one per service (device/services.cpp).
void DeviceServiceCapabilities();
void MediaServiceCapabilities();
void EventServiceCapabilities();
void PtzServiceCapabilities();
void ImagingServiceCapabilities();
void DeviceIoServiceCapabilities();

// deviceio/
void GetRelayOutputOptions();
void GetRelayOutputs();
void SetRelayOutputState();
void SetRelayOutputSettings();
// The device IO service's own operations (the ONVIF mode).
void GetDigitalInputs();
void GetDigitalInputConfigurationOptions();
void SetDigitalInputConfigurations();
void DeviceIoGetVideoSources();
void DeviceIoGetAudioSources();
void DeviceIoSetRelayOutputSettings();

// media/
void CreateProfile();
void GetProfiles();
void GetOneProfile();
void DeleteProfile();
void GetVideoSources();
void GetCompatibleVideoSourceConfigurations();
void GetVideoSourceConfigurationOptions();
void GetVideoSourceConfigurations();
void GetVideoSourceConfiguration();
void AddVideoSourceConfiguration();
void RemoveVideoSourceConfiguration();
void SetVideoSourceConfiguration();
void GetCompatibleVideoEncoderConfigurations();
void GetVideoEncoderConfigurationOptions();
void GetVideoEncoderConfigurations();
void GetVideoEncoderConfiguration();
void AddVideoEncoderConfiguration();
void RemoveVideoEncoder();
void SetVideoEncoderConfiguration();
void GetGuaranteedNumberOfVideoEncoderInstances();
void GetAudioSources();
void GetCompatibleAudioSource();
void GetAudioSourceConfigurationOptions();
void GetAudioSourceConfigurations();
void GetAudioSourceConfiguration();
void AddAudioSourceConfiguration();
void RemoveAudioSource();
void SetAudioSourceConfiguration();
void GetCompatibleAudioEncoder();
void GetAudioEncoderConfigurationOptions();
void GetAudioEncoderConfigurations();
void GetAudioEncoderConfiguration();
void AddAudioEncoderConfiguration();
void RemoveAudioEncoder();
void SetAudioEncoderConfiguration();
void GetAudioOutputConfigurations();
void GetAudioOutputConfigurationOptions();
void SetAudioOutputConfiguration();
void GetAudioOutputConfiguration();
void GetAudioOutputs();
void GetAudioDecoderConfigurationOptions();
void GetCompatibleMetadataConfigurations();
void GetMetadataConfigurationOptions();
void GetMetadataConfigurations();
void GetMetadataConfiguration();
void AddMetadataConfiguration();
void SetMetadataConfiguration();
void RemoveMetadataConfiguration();
void GetStreamURI();
void GetSnapshotURI();
void StartMulticastStreaming();
void StopMulticastStreaming();
void GetAnalyticsModules();

// ptz/
void GetNodes();
void GetNode();
void Stop();
void PtzStop();
void ImagingStop();
void GetConfigurationOptions();
void GetConfigurations();
void GetConfiguration();
void SetConfiguration();
void ContinuousMove();
void SetPreset();
void GotoPreset();
void RemovePreset();
void GetPresets();
void GetStatus();
void PtzGetStatus();
void SendAuxiliaryCommand();
void ImagingGetStatus();
// A request naming a video source is the imaging service's Stop or GetStatus.
int imagingSourceRequested();
void AbsoluteMove();
void RelativeMove();
void GotoHomePosition();
void SetHomePosition();
void AddPTZConfiguration();
void RemovePTZConfiguration();

// imaging/
void GetOptions();
void GetImagingSettings();
void SetImagingSettings();
void Move();
void GetMoveOptions();
void MoveIris();

// events/
void SetSynchronizationPoint();
void MediaSetSynchronizationPoint();
void EventSetSynchronizationPoint();
void CreatePullPointSubscription();
void GetEventProperties();
void Subscribe();
void Unsubscribe();
void Renew();
void PullMessages();

// A printer one service offers another: the body of a PTZ configuration
// ("<token>.PTZConf"), which the media profile listings carry (ptz/).
void Read_Print_PTZ_Conf(const char* fileName);

#endif
