// The device's IPv4 address: from its network interface, or from the
// network settings file when the interface has none; and the HTTP port the
// service addresses carry. A simulated camera
// (ONVIF_ROOT set) has no interface of its own and uses the file only, so
// no client is ever sent to the host machine's addresses.
#include "state/netaddr.h"
#include "state/checkers.h"
#include "state/config.h"
#include "state/paths.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

static int addressFromInterface(char* out, size_t n)
{
    int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0)
        return 0;
    struct ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    strncpy(ifr.ifr_name, CAMERA_INTERFACE, IFNAMSIZ - 1);
    int ok = ioctl(fd, SIOCGIFADDR, &ifr) == 0;
    close(fd);
    if (!ok)
        return 0;
    struct sockaddr_in* sin = (struct sockaddr_in*)&ifr.ifr_addr;
    return inet_ntop(AF_INET, &sin->sin_addr, out, (socklen_t)n) != 0;
}

int addressFromNetworkFile(char* out, size_t n)
{
    SettingsLines r;
    if (!openSettingsLines(&r, NETWORK_CONF_FILE))
        return 0;
    char value[64];
    int found = 0;
    while (const char* line = nextSettingsLine(&r, 256)) {
        if (strncmp(line, "root.Network.IPAddress=", 23) == 0 &&
            scanSettingLine(line, "root.Network.IPAddress=", value, sizeof value, 0)) {
            // The value goes into addresses we print: keep to an address's characters.
            found = value[0] != 0 && strspn(value, "0123456789.") == strlen(value);
            if (found)
                snprintf(out, n, "%s", value);
        }
    }
    closeSettingsLines(&r);
    return found;
}

void getDeviceIPv4(char* out, size_t n)
{
    const char* root = getenv("ONVIF_ROOT");
    int simulated = root && *root;
    if ((!simulated && addressFromInterface(out, n)) || addressFromNetworkFile(out, n))
        return;
    snprintf(out, n, "0.0.0.0");
}

int deviceHttpPort()
{
    char port[16];
    if (!readSettingValue(ONVIF_CONF_FILE, "Network.Protocols.HTTP.Port=", port, sizeof port) || !isServerPort(port))
        return 80;
    return atoi(port);
}

int serviceAddressFor(const char* ip, char* out, size_t n)
{
    int port = deviceHttpPort();
    // Port 80 keeps the address texts clients have always been given.
    return port == 80 ? formatChecked(out, n, "http://%s", ip) : formatChecked(out, n, "http://%s:%d", ip, port);
}

int deviceServiceAddress(char* out, size_t n)
{
    char ip[64];
    getDeviceIPv4(ip, sizeof ip);
    return serviceAddressFor(ip, out, n);
}

int prefixToMask(long prefix, char* out, size_t n)
{
    // 64 bits wide: the camera's long is 32, and a shift by 32 is undefined there.
    unsigned long long mask = prefix <= 0 ? 0 : (0xFFFFFFFFULL << (32 - prefix)) & 0xFFFFFFFFULL;
    return formatChecked(out, n, "%llu.%llu.%llu.%llu", (mask >> 24) & 255, (mask >> 16) & 255, (mask >> 8) & 255,
                         mask & 255);
}
