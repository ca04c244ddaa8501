// The network setters: their rows (which request element goes to which key
// and which parameter of the settings program, and how it is checked), where
// each value lies in the request, and the checks between values.
#include "device/network_settings.h"
#include "frame/frame.h"
#include "frame/request_values.h"
#include "frame/setting_reads.h"
#include "state/checkers.h"
#include "state/config.h"
#include "state/setting_rules.h"

#include <stdio.h>
#include <string.h>

// ---------------------------------------------------------------------------
// The settings file's network keys, read in one pass of the reading pattern.

static const char* const NETWORK_KEYS[] = {
    "MAC=",
    "Network.Interface.Token=",
    "Network.Interface.Name=",
    "Network.Interface.MTU=",
    "Network.IPv4.Enable=",
    "Network.IPv4.Config.DHCP=",
    "Network.IPv4.Config.Manual.Address=",
    "Network.IPv4.Config.Manual.PrefixLength=",
    "Network.IPv4.Config.LinkLocal.Address=",
    "Network.DefaultGateway.IPv4Address=",
    "Network.ZeroConfiguration.Enabled=",
    "Network.Protocols.HTTP.Enabled=",
    "Network.Protocols.HTTP.Port=",
    "Network.Protocols.HTTPS.Enabled=",
    "Network.Protocols.HTTPS.Port=",
    "Network.Protocols.RTSP.Enabled=",
    "Network.Protocols.RTSP.Port=",
    "HostnameInformation.FromDHCP=",
    "HostnameInformation.Name=",
    "DNSInformation.FromDHCP=",
    "DNSInformation.SearchDomain=",
    "DNSInformation.DNSManual.Type=",
    "DNSInformation.DNSManual.IPv4Address=",
    "NTPInformation.FromDHCP=",
    "NTP.Type=",
    "NTP.IPv4Address=",
    "NTP.DNS=",
};
static_assert(sizeof NETWORK_KEYS / sizeof NETWORK_KEYS[0] == NETWORK_KEY_COUNT, "one value per key");

void readNetworkSettings(NetworkSettings* s, const char* func)
{
    memset(s, 0, sizeof *s);
    forEachLine(openSettingsFile(ONVIF_CONF_FILE, "ONVIF_CONF_FILE", func, 1), [&](const char* line) {
        for (size_t i = 0; i < NETWORK_KEY_COUNT; ++i)
            if (strncmp(line, NETWORK_KEYS[i], strlen(NETWORK_KEYS[i])) == 0)
                scanSettingLine(line, NETWORK_KEYS[i], s->values[i], NETWORK_VALUE_SIZE, 0);
        return true;
    });
}

const char* setting(const NetworkSettings* s, const char* key)
{
    for (size_t i = 0; i < NETWORK_KEY_COUNT; ++i)
        if (strcmp(NETWORK_KEYS[i], key) == 0)
            return s->values[i];
    return "";
}

// ---------------------------------------------------------------------------
// Checkers (SettingCheck); min and max are the row's.

static int checkAddress(char* value, const SettingRow*, const char*, void*) { return !isStrictIPv4(value); }
static int checkHostName(char* value, const SettingRow*, const char*, void*) { return !isHostName(value); }
static int checkDomainName(char* value, const SettingRow*, const char*, void*) { return !isDomainName(value); }
static int checkIPv4Type(char* value, const SettingRow*, const char*, void*) { return strcmp(value, "IPv4") != 0; }
static int checkNtpType(char* value, const SettingRow*, const char*, void*)
{
    return strcmp(value, "IPv4") != 0 && strcmp(value, "DNS") != 0;
}
static int checkProtocolName(char* value, const SettingRow*, const char*, void*)
{
    return strcmp(value, "HTTP") != 0 && strcmp(value, "HTTPS") != 0 && strcmp(value, "RTSP") != 0;
}
// The camera has no IPv6 stack: an IPv6 value is never stored.
static int refuseIPv6(char*, const SettingRow*, const char*, void*) { return 1; }

// Numbers are stored in one spelling ("+024" is 24), so equal values compare equal.
static int checkNumber(char* value, const SettingRow* row, const char*, void*)
{
    long n;
    if (!parseNumber(value, row->min, row->max, &n))
        return 1;
    snprintf(value, SETTING_VALUE_SIZE, "%ld", n);
    return 0;
}

static int checkPort(char* value, const SettingRow*, const char*, void*)
{
    static const SettingRow PORT = {0, 0, 0, 1, 65535, 0, 0, FORM_AS_GIVEN, 0, 0};
    return !isServerPort(value) || checkNumber(value, &PORT, "", 0);
}

// A flag within [min, max] (1, 1: may only stay on), stored as "true"/"false".
static int checkFlag(char* value, const SettingRow* row, const char*, void*)
{
    int on;
    if (!parseBool(value, &on) || on < row->min || on > row->max)
        return 1;
    strcpy(value, on ? "true" : "false");
    return 0;
}

static int checkInterfaceToken(char* value, const SettingRow*, const char*, void*)
{
    char token[64];
    return !readSettingValue(ONVIF_CONF_FILE, "Network.Interface.Token=", token, sizeof token) ||
           strcmp(value, token) != 0;
}

// ---------------------------------------------------------------------------
// The rows, one table per setter. A path is "Element", "Section/Element", or
// "Section[Name]/Element" for the occurrence of a repeated section whose Name
// is that.

static const SettingRow SET_NETWORK_INTERFACES_ROWS[] = {
    // path, key, check, min, max, option, parameter, form, flags, refusal
    {"InterfaceToken", 0, checkInterfaceToken, 0, 0, 0, 0, FORM_AS_GIVEN, SETTING_REQUIRED, "InvalidNetworkInterface"},
    // The camera's one interface is its only way in: it stays enabled.
    {"Enabled", 0, checkFlag, 1, 1, 0, 0, FORM_AS_GIVEN, 0, 0},
    {"MTU", "Network.Interface.MTU", checkNumber, MTU_MIN, MTU_MAX, 0, "root.Network.MTU", FORM_AS_GIVEN, SETTING_RESTARTS, "InvalidMtuValue"},
    {"IPv4/Enabled", "Network.IPv4.Enable", checkFlag, 1, 1, 0, 0, FORM_AS_GIVEN, 0, 0},
    {"IPv4/Address", "Network.IPv4.Config.Manual.Address", checkAddress, 0, 0, 0, "root.Network.IPAddress", FORM_AS_GIVEN, SETTING_RESTARTS, "InvalidIPv4Address"},
    {"IPv4/PrefixLength", "Network.IPv4.Config.Manual.PrefixLength", checkNumber, 1, 32, 0, "root.Network.SubnetMask", FORM_PREFIX_AS_MASK, SETTING_RESTARTS, "InvalidIPv4Address"},
    {"IPv4/DHCP", "Network.IPv4.Config.DHCP", checkFlag, 0, 1, 0, "root.Network.BootProto", FORM_BOOT_PROTOCOL, SETTING_RESTARTS, 0},
    {"IPv6/Enabled", 0, checkFlag, 0, 0, 0, 0, FORM_AS_GIVEN, 0, "InvalidIPv6Address"},
};

static const SettingRow SET_NETWORK_DEFAULT_GATEWAY_ROWS[] = {
    {"IPv4Address", "Network.DefaultGateway.IPv4Address", checkAddress, 0, 0, 0, "root.Network.DefaultRouter", FORM_AS_GIVEN, 0, "InvalidGatewayAddress"},
    {"IPv6Address", 0, refuseIPv6, 0, 0, 0, 0, FORM_AS_GIVEN, 0, "InvalidGatewayAddress"},
};

static const SettingRow SET_ZERO_CONFIGURATION_ROWS[] = {
    {"InterfaceToken", 0, checkInterfaceToken, 0, 0, 0, 0, FORM_AS_GIVEN, SETTING_REQUIRED, "InvalidNetworkInterface"},
    {"Enabled", "Network.ZeroConfiguration.Enabled", checkFlag, 0, 1, 0, "root.Network.ZeroConf", FORM_YES_NO, SETTING_REQUIRED, 0},
};

static const SettingRow SET_NETWORK_PROTOCOLS_ROWS[] = {
    {"NetworkProtocols/Name", 0, checkProtocolName, 0, 0, 0, 0, FORM_AS_GIVEN, SETTING_REQUIRED, "ServiceNotSupported"},
    {"NetworkProtocols[HTTP]/Enabled", "Network.Protocols.HTTP.Enabled", checkFlag, 0, 1, 0, "root.HTTP.Enabled", FORM_YES_NO, SETTING_REQUIRED, 0},
    {"NetworkProtocols[HTTP]/Port", "Network.Protocols.HTTP.Port", checkPort, 0, 0, 0, "root.HTTP.Port", FORM_AS_GIVEN, SETTING_REQUIRED, 0},
    {"NetworkProtocols[HTTPS]/Enabled", "Network.Protocols.HTTPS.Enabled", checkFlag, 0, 1, 0, "root.HTTPS.Enabled", FORM_YES_NO, SETTING_REQUIRED, 0},
    {"NetworkProtocols[HTTPS]/Port", "Network.Protocols.HTTPS.Port", checkPort, 0, 0, 0, "root.HTTPS.Port", FORM_AS_GIVEN, SETTING_REQUIRED, 0},
    {"NetworkProtocols[RTSP]/Enabled", "Network.Protocols.RTSP.Enabled", checkFlag, 0, 1, 0, "root.RTSP.Enabled", FORM_YES_NO, SETTING_REQUIRED, 0},
    {"NetworkProtocols[RTSP]/Port", "Network.Protocols.RTSP.Port", checkPort, 0, 0, 0, "root.RTSP.Port", FORM_AS_GIVEN, SETTING_REQUIRED, 0},
};

static const SettingRow SET_HOSTNAME_ROWS[] = {
    {"Name", "HostnameInformation.Name", checkHostName, 0, 0, 0, "root.Network.HostName", FORM_AS_GIVEN, SETTING_REQUIRED, "InvalidHostname"},
};

static const SettingRow SET_HOSTNAME_FROM_DHCP_ROWS[] = {
    {"FromDHCP", "HostnameInformation.FromDHCP", checkFlag, 0, 1, 0, "root.Network.HostNameFromDHCP", FORM_YES_NO, SETTING_REQUIRED, 0},
};

static const SettingRow SET_DNS_ROWS[] = {
    {"FromDHCP", "DNSInformation.FromDHCP", checkFlag, 0, 1, 0, "root.Network.DNSFromDHCP", FORM_YES_NO, SETTING_REQUIRED, 0},
    {"SearchDomain", "DNSInformation.SearchDomain", checkDomainName, 0, 0, 0, "root.Network.DomainName", FORM_AS_GIVEN, 0, "InvalidDnsName"},
    // IPv6 first: an IPv6 server is refused as one, before its Type is.
    {"DNSManual/IPv6Address", 0, refuseIPv6, 0, 0, 0, 0, FORM_AS_GIVEN, 0, "InvalidIPv6Address"},
    {"DNSManual/Type", "DNSInformation.DNSManual.Type", checkIPv4Type, 0, 0, 0, 0, FORM_AS_GIVEN, SETTING_REQUIRED, 0},
    {"DNSManual/IPv4Address", "DNSInformation.DNSManual.IPv4Address", checkAddress, 0, 0, 0, "root.Network.DNSServer1", FORM_AS_GIVEN, SETTING_REQUIRED, "InvalidIPv4Address"},
};

static const SettingRow SET_NTP_ROWS[] = {
    {"FromDHCP", "NTPInformation.FromDHCP", checkFlag, 0, 1, 0, "Time.NTP.FromDHCP", FORM_YES_NO, SETTING_REQUIRED, 0},
    {"NTPManual/IPv6Address", 0, refuseIPv6, 0, 0, 0, 0, FORM_AS_GIVEN, 0, "InvalidIPv6Address"},
    {"NTPManual/Type", "NTP.Type", checkNtpType, 0, 0, 0, 0, FORM_AS_GIVEN, SETTING_REQUIRED, 0},
    {"NTPManual/IPv4Address", "NTP.IPv4Address", checkAddress, 0, 0, 0, "Time.NTP.Server", FORM_AS_GIVEN, 0, "InvalidIPv4Address"},
    {"NTPManual/DNSname", "NTP.DNS", checkDomainName, 0, 0, 0, "Time.NTP.Server", FORM_AS_GIVEN, 0, "InvalidDnsName"},
};

// ---------------------------------------------------------------------------
// Checks between values.

static const char* givenValue(const SettingValues* v, const char* key)
{
    return settingGiven(v, key) ? settingValue(v, key) : 0;
}

// The server a NetworkHost names is the one its Type says.
static int agreeNtpServer(const SettingValues* v)
{
    const char* type = givenValue(v, "NTP.Type");
    const char* ipv4 = givenValue(v, "NTP.IPv4Address");
    const char* name = givenValue(v, "NTP.DNS");
    if (!type && !ipv4 && !name)
        return 1;
    if (type && strcmp(type, "IPv4") == 0 && ipv4 && !name)
        return 1;
    if (type && strcmp(type, "DNS") == 0 && name && !ipv4)
        return 1;
    if (type && strcmp(type, "DNS") == 0)
        refuseRequestValue("InvalidDnsName", "Invalid data", "The NTP server's name does not match its Type");
    else
        refuseRequestValue("InvalidIPv4Address", "Invalid data", "The NTP server's address does not match its Type");
    return 0;
}

// Two protocols cannot listen on one port; ports not in the request keep theirs.
static int agreeProtocolPorts(const SettingValues* v)
{
    const char* ports[3] = {settingValue(v, "Network.Protocols.HTTP.Port"),
                            settingValue(v, "Network.Protocols.HTTPS.Port"),
                            settingValue(v, "Network.Protocols.RTSP.Port")};
    for (int i = 0; i < 3; ++i)
        for (int j = i + 1; j < 3; ++j)
            if (*ports[i] && strcmp(ports[i], ports[j]) == 0) {
                refuseRequestValue("PortAlreadyInUse", "Invalid data", "Two protocols cannot share one port");
                return 0;
            }
    return 1;
}

// ---------------------------------------------------------------------------
// The setters: their rows, the sibling sections of their request and their
// checks between values.

struct NetworkSetter {
    const char* action;
    const SettingRow* rows;
    int count;
    const char* sections[5];
    // Checks between values that passed their rows; writes its fault and gives 0.
    int (*agree)(const SettingValues* v);
};

#define ROWS(table) table, (int)(sizeof table / sizeof table[0])

static const NetworkSetter NETWORK_SETTERS[] = {
    {"SetNetworkInterfaces", ROWS(SET_NETWORK_INTERFACES_ROWS), {"Link", "IPv4", "IPv6", "Extension", 0}, 0},
    {"SetNetworkDefaultGateway", ROWS(SET_NETWORK_DEFAULT_GATEWAY_ROWS), {0}, 0},
    {"SetZeroConfiguration", ROWS(SET_ZERO_CONFIGURATION_ROWS), {0}, 0},
    {"SetNetworkProtocols", ROWS(SET_NETWORK_PROTOCOLS_ROWS), {"NetworkProtocols", 0}, agreeProtocolPorts},
    {"SetHostname", ROWS(SET_HOSTNAME_ROWS), {0}, 0},
    {"SetHostnameFromDHCP", ROWS(SET_HOSTNAME_FROM_DHCP_ROWS), {0}, 0},
    {"SetDNS", ROWS(SET_DNS_ROWS), {"DNSManual", 0}, 0},
    {"SetNTP", ROWS(SET_NTP_ROWS), {"NTPManual", 0}, agreeNtpServer},
};

// ---------------------------------------------------------------------------
// Finding a value in the request. The element search knows names, not
// nesting, so a setter names the sibling sections of its request: a section
// runs from its element to the next section element, and the request's own
// level runs up to the first of them.

struct Span {
    int from, to;  // rows [from, to)
};

struct RowPath {
    char section[32];
    char selector[16];
    const char* element;
};

static void splitPath(const char* path, RowPath* p)
{
    p->section[0] = p->selector[0] = 0;
    const char* slash = strchr(path, '/');
    p->element = slash ? slash + 1 : path;
    if (!slash)
        return;
    size_t len = strcspn(path, "[/");
    snprintf(p->section, sizeof p->section, "%.*s", (int)len, path);
    if (path[len] == '[')
        snprintf(p->selector, sizeof p->selector, "%.*s", (int)strcspn(path + len + 1, "]"), path + len + 1);
}

static int nextSectionRow(const NetworkSetter* setter, int from)
{
    int first = requestRows();
    for (const char* const* s = setter->sections; *s; ++s) {
        int row = requestRowOf(*s, from);
        if (row >= 0 && row < first)
            first = row;
    }
    return first;
}

static SettingRead readInSpan(const char* element, Span span, char* buf, size_t n)
{
    return settingReadOf(requestTextWithin(element, span.from, span.to, buf, n));
}

// The span of a row's section in this request; 0 when the request has none,
// -1 when a selecting name was refused (the refusal is written).
static int sectionSpan(const NetworkSetter* setter, const RowPath& p, Span* span)
{
    if (!p.section[0]) {
        span->from = 1;
        span->to = nextSectionRow(setter, 1);
        return 1;
    }
    for (int from = 1;;) {
        int row = requestRowOf(p.section, from);
        if (row < 0)
            return 0;
        span->from = row + 1;
        span->to = nextSectionRow(setter, row + 1);
        char name[16];
        if (!p.selector[0])
            return 1;
        SettingRead r = readInSpan("Name", *span, name, sizeof name);
        if (r == SettingRead::Refused)
            return -1;
        if (r == SettingRead::Value && strcmp(name, p.selector) == 0)
            return 1;
        from = row + 1;
    }
}

// Every occurrence of a repeated section is checked, not only the first.
static int checkEveryOccurrence(const NetworkSetter* setter, const SettingRow* rowRule, const RowPath& p)
{
    for (int from = 1;;) {
        int row = requestRowOf(p.section, from);
        if (row < 0)
            return 1;
        Span span = {row + 1, nextSectionRow(setter, row + 1)};
        char value[NETWORK_VALUE_SIZE];
        SettingRead r = readInSpan(p.element, span, value, sizeof value);
        if ((r == SettingRead::Absent && (rowRule->flags & SETTING_REQUIRED)) || r == SettingRead::Refused ||
            (r == SettingRead::Value && rowRule->check(value, rowRule, "", 0) != 0))
            return 0;
        from = row + 1;
    }
}

static SettingRead readNetworkRow(const SettingRow* row, char* buf, size_t n, void* ctx)
{
    const NetworkSetter* setter = (const NetworkSetter*)ctx;
    RowPath p;
    splitPath(row->path, &p);
    buf[0] = 0;
    if (p.section[0] && !p.selector[0] && !checkEveryOccurrence(setter, row, p))
        return SettingRead::Refused;
    Span span;
    int found = sectionSpan(setter, p, &span);
    if (found <= 0)
        return found < 0 ? SettingRead::Refused : SettingRead::Absent;
    SettingRead r = readInSpan(p.element, span, buf, n);
    return r == SettingRead::Absent && (row->flags & SETTING_REQUIRED) ? SettingRead::Refused : r;
}

static void refuseNetworkRow(const SettingRow* row, void*)
{
    const char* slash = strrchr(row->path, '/');
    char detail[128];
    snprintf(detail, sizeof detail, "The value of %s is not acceptable", slash ? slash + 1 : row->path);
    if (row->refusal)
        refuseRequestValue(row->refusal, "Invalid data", detail);
    else
        writeSenderFault("ter:InvalidArgVal", "Invalid data");
}

// Read only once every row passed: a refused request costs no wait on the
// settings file.
static int agreeNetworkValues(SettingValues* v, void* ctx)
{
    const NetworkSetter* setter = (const NetworkSetter*)ctx;
    static NetworkSettings stored;
    readNetworkSettings(&stored, setter->action);
    for (int i = 0; i < setter->count; ++i) {
        const char* key = setter->rows[i].key;
        if (!key)
            continue;
        char keyed[64];
        snprintf(keyed, sizeof keyed, "%s=", key);
        settingStored(v, key, setting(&stored, keyed));
    }
    return !setter->agree || setter->agree(v);
}

int applyNetworkSetter(const char* action, int* restartNeeded)
{
    *restartNeeded = 0;
    const NetworkSetter* setter = 0;
    for (const NetworkSetter& s : NETWORK_SETTERS)
        if (strcmp(s.action, action) == 0)
            setter = &s;
    if (!setter)
        return 0;
    SettingTable table = {setter->rows, setter->count, ONVIF_CONF_FILE, 0,
                          SETTINGS_PASS_UNCHANGED | SETTINGS_KEYS_MUST_EXIST, NETWORK_VALUE_SIZE, 1024,
                          readNetworkRow, 0, agreeNetworkValues, refuseNetworkRow, (void*)setter};
    static SettingValues values;
    switch (applySettings(&table, &values)) {
    case SETTINGS_DONE:
        *restartNeeded = values.restart;
        return 1;
    case SETTINGS_REFUSED:
        return 0;
    case SETTINGS_STORE_FAILED:
        answerStoreFailure(ONVIF_CONF_FILE);
        return 0;
    case SETTINGS_QUERY_TOO_LONG:
        logServiceError(action, "%s", "settings query too long");
        break;
    case SETTINGS_KEY_MISSING:
        logServiceError(action, "%s", "ONVIF_CONF_FILE lacks a network key");
        break;
    default:
        logServiceError(action, "%s", "ONVIF_CONF_FILE missing");
        break;
    }
    G_httpAck = 500;
    return 0;
}
