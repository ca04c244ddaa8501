// The device's own IPv4 address, which every service address carries.
#ifndef STATE_NETADDR_H
#define STATE_NETADDR_H

#include <stddef.h>

#define NETWORK_CONF_FILE "/etc/sysconfig/network.conf"
#define CAMERA_INTERFACE "eth0"

// Writes the address into out ("0.0.0.0" when none is known).
void getDeviceIPv4(char* out, size_t n);

// root.Network.IPAddress of the network settings file; 0 when missing.
int addressFromNetworkFile(char* out, size_t n);

#endif
