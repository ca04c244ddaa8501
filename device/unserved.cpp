// Actions of this folder that this build does not serve yet: each answers
// with the generic fault until its handler lands.
#include "frame/frame.h"
#include "frame/handlers.h"

void GetNetworkInterfaces() { actionNotServed(); }
void SetNetworkInterfaces() { actionNotServed(); }
void GetNetworkDefaultGateway() { actionNotServed(); }
void SetNetworkDefaultGateway() { actionNotServed(); }
void SetZeroConfiguration() { actionNotServed(); }
void GetZeroConfiguration() { actionNotServed(); }
void GetNetworkProtocols() { actionNotServed(); }
void SetNetworkProtocols() { actionNotServed(); }
void GetNTPResponse() { actionNotServed(); }
void SetNTPResponse() { actionNotServed(); }
void GetHostnameResponse() { actionNotServed(); }
void SetHostnameResponse() { actionNotServed(); }
void GetDNSResponse() { actionNotServed(); }
void SetDNSResponse() { actionNotServed(); }
void GetServices() { actionNotServed(); }
void GetServiceCapabilities() { actionNotServed(); }
