// The network keys of the settings file as the network actions read them, and
// the network setters (their rows live in device/network_rules.cpp).
#ifndef DEVICE_NETWORK_SETTINGS_H
#define DEVICE_NETWORK_SETTINGS_H

#define NETWORK_VALUE_SIZE 256
#define NETWORK_KEY_COUNT 27
// Ethernet without jumbo frames; below 576 an IPv4 host is out of the standard.
#define MTU_MIN 576
#define MTU_MAX 1500

struct NetworkSettings {
    char values[NETWORK_KEY_COUNT][NETWORK_VALUE_SIZE];
};

// Reads every network key of the settings file in one pass of the reading pattern.
void readNetworkSettings(NetworkSettings* s, const char* func);
// The value of a key (with its '='); "" when the file has none.
const char* setting(const NetworkSettings* s, const char* key);

// Runs the setter of the action (its rows, then its checks between values):
// 1 when the request was applied (its answer is the caller's to write), 0
// when it was refused or failed with its fault written. *restartNeeded: a
// value that takes a restart of the network changed.
int applyNetworkSetter(const char* action, int* restartNeeded);

#endif
