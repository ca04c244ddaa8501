// The device's own IPv4 address and HTTP port, which every service address carries.
#ifndef STATE_NETADDR_H
#define STATE_NETADDR_H

#include <stddef.h>

#define NETWORK_CONF_FILE "/etc/sysconfig/network.conf"
#define CAMERA_INTERFACE "eth0"

// Writes the address into out ("0.0.0.0" when none is known).
void getDeviceIPv4(char* out, size_t n);

// root.Network.IPAddress of the network settings file; 0 when missing.
int addressFromNetworkFile(char* out, size_t n);

// Network.Protocols.HTTP.Port of the settings file; 80 when it is missing or no port.
int deviceHttpPort();

// The address clients reach the service host at: "http://<ip>", with
// ":<port>" when the HTTP port is not 80. 0 (out empty) when it would not fit.
int serviceAddressFor(const char* ip, char* out, size_t n);

// serviceAddressFor the device's own address (getDeviceIPv4).
int deviceServiceAddress(char* out, size_t n);

// A prefix length (0 to 32) as a dotted subnet mask; 0 when it would not fit.
int prefixToMask(long prefix, char* out, size_t n);

#endif
