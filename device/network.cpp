// The device service's network settings: interface, default gateway, zero
// configuration, protocols, host name, DNS and NTP servers.
#include "frame/frame.h"
#include "frame/handlers.h"
#include "frame/request_values.h"
#include "frame/xmlsearch.h"
#include "state/checkers.h"
#include "state/command.h"
#include "state/config.h"
#include "state/netaddr.h"
#include "state/paths.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define NETWORK_VALUE_SIZE 256
#define LINK_LOCAL_PREFIX 16
// Ethernet without jumbo frames; below 576 an IPv4 host is out of the standard.
#define MTU_MIN 576
#define MTU_MAX 1500

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
#define NETWORK_KEY_COUNT (sizeof NETWORK_KEYS / sizeof NETWORK_KEYS[0])

struct NetworkSettings {
    char values[NETWORK_KEY_COUNT][NETWORK_VALUE_SIZE];
};

static void readNetworkSettings(NetworkSettings* s, const char* func)
{
    memset(s, 0, sizeof *s);
    forEachLine(openSettingsFile(ONVIF_CONF_FILE, "ONVIF_CONF_FILE", func, 1), [&](const char* line) {
        for (size_t i = 0; i < NETWORK_KEY_COUNT; ++i)
            if (strncmp(line, NETWORK_KEYS[i], strlen(NETWORK_KEYS[i])) == 0)
                scanSettingLine(line, NETWORK_KEYS[i], s->values[i], NETWORK_VALUE_SIZE, 0);
        return true;
    });
}

static const char* setting(const NetworkSettings* s, const char* key)
{
    for (size_t i = 0; i < NETWORK_KEY_COUNT; ++i)
        if (strcmp(NETWORK_KEYS[i], key) == 0)
            return s->values[i];
    return "";
}

// "NONE" and "NoSupport" are how the camera's files say a value is absent.
static int isAbsent(const char* value)
{
    return !*value || strcmp(value, "NONE") == 0 || strcmp(value, "NoSupport") == 0;
}

// Answers carry xs:boolean and xs:int whatever a file holds.
static const char* flagText(const char* value)
{
    return strcmp(value, "true") == 0 ? "true" : "false";
}

static long numberOr(const char* text, long min, long max, long fallback)
{
    long n;
    return parseNumber(text, min, max, &n) ? n : fallback;
}

static int prefixToMask(long prefix, char* out, size_t n)
{
    // 64 bits wide: the camera's long is 32, and a shift by 32 is undefined there.
    unsigned long long mask = prefix <= 0 ? 0 : (0xFFFFFFFFULL << (32 - prefix)) & 0xFFFFFFFFULL;
    return formatChecked(out, n, "%llu.%llu.%llu.%llu", (mask >> 24) & 255, (mask >> 16) & 255, (mask >> 8) & 255,
                         mask & 255);
}

// The prefix length of a dotted mask of contiguous ones; -1 for anything else.
static long maskToPrefix(const char* mask)
{
    if (!isStrictIPv4(mask))
        return -1;
    unsigned a, b, c, d;
    if (sscanf(mask, "%u.%u.%u.%u", &a, &b, &c, &d) != 4)
        return -1;
    unsigned long long bits = ((unsigned long long)a << 24) | (b << 16) | (c << 8) | d;
    long prefix = 0;
    while (prefix < 32 && (bits & (0x80000000ULL >> prefix)))
        ++prefix;
    return (bits & (0xFFFFFFFFULL >> prefix)) ? -1 : prefix;
}

// ---------------------------------------------------------------------------
// The setters' rules: which request element goes to which key and which
// parameter of the settings program, and how it is checked.

// 0 when the value is acceptable; may rewrite it to the form it is stored in.
typedef int (*ValueCheck)(char* value, long min, long max);

static int checkAddress(char* value, long, long) { return !isStrictIPv4(value); }
static int checkHostName(char* value, long, long) { return !isHostName(value); }
static int checkDomainName(char* value, long, long) { return !isDomainName(value); }
static int checkIPv4Type(char* value, long, long) { return strcmp(value, "IPv4") != 0; }
static int checkNtpType(char* value, long, long) { return strcmp(value, "IPv4") != 0 && strcmp(value, "DNS") != 0; }
static int checkProtocolName(char* value, long, long)
{
    return strcmp(value, "HTTP") != 0 && strcmp(value, "HTTPS") != 0 && strcmp(value, "RTSP") != 0;
}
// The camera has no IPv6 stack: an IPv6 value is never stored.
static int refuseIPv6(char*, long, long) { return 1; }

// Numbers are stored in one spelling ("+024" is 24), so equal values compare equal.
static int checkNumber(char* value, long min, long max)
{
    long n;
    if (!parseNumber(value, min, max, &n))
        return 1;
    snprintf(value, NETWORK_VALUE_SIZE, "%ld", n);
    return 0;
}

static int checkPort(char* value, long, long) { return !isServerPort(value) || checkNumber(value, 1, 65535); }

// A flag within [min, max] (1, 1: may only stay on), stored as "true"/"false".
static int checkFlag(char* value, long min, long max)
{
    int on;
    if (!parseBool(value, &on) || on < min || on > max)
        return 1;
    strcpy(value, on ? "true" : "false");
    return 0;
}

static int checkInterfaceToken(char* value, long, long)
{
    char token[64];
    return !readSettingValue(ONVIF_CONF_FILE, "Network.Interface.Token=", token, sizeof token) ||
           strcmp(value, token) != 0;
}

// How a stored value is passed to the settings program.
enum ParameterForm {
    AS_GIVEN,
    YES_NO,          // a flag as the camera's parameters write one
    BOOT_PROTOCOL,   // the DHCP flag as the network file's boot protocol: "dhcp" or "none"
    PREFIX_AS_MASK   // a prefix length as a dotted subnet mask
};

enum RuleFlags {
    REQUIRED = 1,          // must be given whenever its section is
    RESTARTS_NETWORK = 2   // a changed value takes a restart of the network
};

struct NetworkRule {
    const char* action;     // the request element the row serves
    const char* section;    // the child element the value lies in; 0: the request's own level
    const char* selector;   // a repeated section's occurrence is the one whose Name is this
    const char* element;
    const char* key;        // the settings file key (with '='); 0: checked only
    ValueCheck check;
    long min, max;
    const char* subcode;    // the refusal's second subcode; 0: ter:InvalidArgVal alone
    const char* parameter;  // the settings program's parameter; 0: none
    ParameterForm form;
    unsigned flags;
};

static const NetworkRule NETWORK_RULES[] = {
    // action, section, selector, element, key, check, min, max, subcode, parameter, form, flags
    {"SetNetworkInterfaces", 0, 0, "InterfaceToken", 0, checkInterfaceToken, 0, 0,
     "InvalidNetworkInterface", 0, AS_GIVEN, REQUIRED},
    // The camera's one interface is its only way in: it stays enabled.
    {"SetNetworkInterfaces", 0, 0, "Enabled", 0, checkFlag, 1, 1, 0, 0, AS_GIVEN, 0},
    {"SetNetworkInterfaces", 0, 0, "MTU", "Network.Interface.MTU=", checkNumber, MTU_MIN, MTU_MAX,
     "InvalidMtuValue", "root.Network.MTU", AS_GIVEN, RESTARTS_NETWORK},
    {"SetNetworkInterfaces", "IPv4", 0, "Enabled", "Network.IPv4.Enable=", checkFlag, 1, 1, 0, 0, AS_GIVEN, 0},
    {"SetNetworkInterfaces", "IPv4", 0, "Address", "Network.IPv4.Config.Manual.Address=", checkAddress, 0, 0,
     "InvalidIPv4Address", "root.Network.IPAddress", AS_GIVEN, RESTARTS_NETWORK},
    {"SetNetworkInterfaces", "IPv4", 0, "PrefixLength", "Network.IPv4.Config.Manual.PrefixLength=", checkNumber, 1,
     32, "InvalidIPv4Address", "root.Network.SubnetMask", PREFIX_AS_MASK, RESTARTS_NETWORK},
    {"SetNetworkInterfaces", "IPv4", 0, "DHCP", "Network.IPv4.Config.DHCP=", checkFlag, 0, 1, 0,
     "root.Network.BootProto", BOOT_PROTOCOL, RESTARTS_NETWORK},
    {"SetNetworkInterfaces", "IPv6", 0, "Enabled", 0, checkFlag, 0, 0, "InvalidIPv6Address", 0, AS_GIVEN, 0},

    {"SetNetworkDefaultGateway", 0, 0, "IPv4Address", "Network.DefaultGateway.IPv4Address=", checkAddress, 0, 0,
     "InvalidGatewayAddress", "root.Network.DefaultRouter", AS_GIVEN, 0},
    {"SetNetworkDefaultGateway", 0, 0, "IPv6Address", 0, refuseIPv6, 0, 0, "InvalidGatewayAddress", 0, AS_GIVEN, 0},

    {"SetZeroConfiguration", 0, 0, "InterfaceToken", 0, checkInterfaceToken, 0, 0, "InvalidNetworkInterface", 0,
     AS_GIVEN, REQUIRED},
    {"SetZeroConfiguration", 0, 0, "Enabled", "Network.ZeroConfiguration.Enabled=", checkFlag, 0, 1, 0,
     "root.Network.ZeroConf", YES_NO, REQUIRED},

    {"SetNetworkProtocols", "NetworkProtocols", 0, "Name", 0, checkProtocolName, 0, 0, "ServiceNotSupported", 0,
     AS_GIVEN, REQUIRED},
    {"SetNetworkProtocols", "NetworkProtocols", "HTTP", "Enabled", "Network.Protocols.HTTP.Enabled=", checkFlag, 0, 1,
     0, "root.HTTP.Enabled", YES_NO, REQUIRED},
    {"SetNetworkProtocols", "NetworkProtocols", "HTTP", "Port", "Network.Protocols.HTTP.Port=", checkPort, 0, 0, 0,
     "root.HTTP.Port", AS_GIVEN, REQUIRED},
    {"SetNetworkProtocols", "NetworkProtocols", "HTTPS", "Enabled", "Network.Protocols.HTTPS.Enabled=", checkFlag, 0,
     1, 0, "root.HTTPS.Enabled", YES_NO, REQUIRED},
    {"SetNetworkProtocols", "NetworkProtocols", "HTTPS", "Port", "Network.Protocols.HTTPS.Port=", checkPort, 0, 0, 0,
     "root.HTTPS.Port", AS_GIVEN, REQUIRED},
    {"SetNetworkProtocols", "NetworkProtocols", "RTSP", "Enabled", "Network.Protocols.RTSP.Enabled=", checkFlag, 0, 1,
     0, "root.RTSP.Enabled", YES_NO, REQUIRED},
    {"SetNetworkProtocols", "NetworkProtocols", "RTSP", "Port", "Network.Protocols.RTSP.Port=", checkPort, 0, 0, 0,
     "root.RTSP.Port", AS_GIVEN, REQUIRED},

    {"SetHostname", 0, 0, "Name", "HostnameInformation.Name=", checkHostName, 0, 0, "InvalidHostname",
     "root.Network.HostName", AS_GIVEN, REQUIRED},
    {"SetHostnameFromDHCP", 0, 0, "FromDHCP", "HostnameInformation.FromDHCP=", checkFlag, 0, 1, 0,
     "root.Network.HostNameFromDHCP", YES_NO, REQUIRED},

    {"SetDNS", 0, 0, "FromDHCP", "DNSInformation.FromDHCP=", checkFlag, 0, 1, 0, "root.Network.DNSFromDHCP", YES_NO,
     REQUIRED},
    {"SetDNS", 0, 0, "SearchDomain", "DNSInformation.SearchDomain=", checkDomainName, 0, 0, "InvalidDnsName",
     "root.Network.DomainName", AS_GIVEN, 0},
    // IPv6 first: an IPv6 server is refused as one, before its Type is.
    {"SetDNS", "DNSManual", 0, "IPv6Address", 0, refuseIPv6, 0, 0, "InvalidIPv6Address", 0, AS_GIVEN, 0},
    {"SetDNS", "DNSManual", 0, "Type", "DNSInformation.DNSManual.Type=", checkIPv4Type, 0, 0, 0, 0, AS_GIVEN,
     REQUIRED},
    {"SetDNS", "DNSManual", 0, "IPv4Address", "DNSInformation.DNSManual.IPv4Address=", checkAddress, 0, 0,
     "InvalidIPv4Address", "root.Network.DNSServer1", AS_GIVEN, REQUIRED},

    {"SetNTP", 0, 0, "FromDHCP", "NTPInformation.FromDHCP=", checkFlag, 0, 1, 0, "Time.NTP.FromDHCP", YES_NO,
     REQUIRED},
    {"SetNTP", "NTPManual", 0, "IPv6Address", 0, refuseIPv6, 0, 0, "InvalidIPv6Address", 0, AS_GIVEN, 0},
    {"SetNTP", "NTPManual", 0, "Type", "NTP.Type=", checkNtpType, 0, 0, 0, 0, AS_GIVEN, REQUIRED},
    {"SetNTP", "NTPManual", 0, "IPv4Address", "NTP.IPv4Address=", checkAddress, 0, 0, "InvalidIPv4Address",
     "Time.NTP.Server", AS_GIVEN, 0},
    {"SetNTP", "NTPManual", 0, "DNSname", "NTP.DNS=", checkDomainName, 0, 0, "InvalidDnsName", "Time.NTP.Server",
     AS_GIVEN, 0},
};

// The values of one request that passed their checks, waiting to be stored.
struct PendingValue {
    const NetworkRule* rule;
    char value[NETWORK_VALUE_SIZE];
    int written;  // its key's line was replaced
};

struct PendingValues {
    PendingValue items[sizeof NETWORK_RULES / sizeof NETWORK_RULES[0]];
    int count;
    NetworkSettings stored;
};

static const char* pendingValue(const PendingValues* p, const char* element)
{
    for (int i = 0; i < p->count; ++i)
        if (strcmp(p->items[i].rule->element, element) == 0)
            return p->items[i].value;
    return 0;
}

static void refuseRule(const NetworkRule* rule)
{
    char detail[128];
    snprintf(detail, sizeof detail, "The value of %s is not acceptable", rule->element);
    if (rule->subcode)
        refuseRequestValue(rule->subcode, "Invalid data", detail);
    else
        writeSenderFault("ter:InvalidArgVal", "Invalid data");
}

// ---------------------------------------------------------------------------
// Finding a value in the request. The element search knows names, not
// nesting, so a setter names the sibling sections of its request: a section
// runs from its element to the next section element, and the request's own
// level runs up to the first of them.

struct NetworkSetter {
    const char* action;
    const char* sections[5];
    // Checks between values that passed their rows; writes its fault and gives 0.
    int (*agree)(const PendingValues* p);
};

struct Span {
    int from, to;  // rows [from, to)
};

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

static Read readInSpan(const char* element, Span span, char* buf, size_t n)
{
    return requestTextWithin(element, span.from, span.to, buf, n);
}

// The span of a rule's section in this request; 0 when the request has none,
// -1 when a selecting name was refused (the refusal is written).
static int sectionSpan(const NetworkSetter* setter, const NetworkRule* rule, Span* span)
{
    if (!rule->section) {
        span->from = 1;
        span->to = nextSectionRow(setter, 1);
        return 1;
    }
    for (int from = 1;;) {
        int row = requestRowOf(rule->section, from);
        if (row < 0)
            return 0;
        span->from = row + 1;
        span->to = nextSectionRow(setter, row + 1);
        char name[16];
        if (!rule->selector)
            return 1;
        Read r = readInSpan("Name", *span, name, sizeof name);
        if (r == Read::Refused)
            return -1;
        if (r == Read::Value && strcmp(name, rule->selector) == 0)
            return 1;
        from = row + 1;
    }
}

// Every occurrence of a repeated section is checked, not only the first.
static int checkEveryOccurrence(const NetworkSetter* setter, const NetworkRule* rule)
{
    for (int from = 1;;) {
        int row = requestRowOf(rule->section, from);
        if (row < 0)
            return 1;
        Span span = {row + 1, nextSectionRow(setter, row + 1)};
        char value[NETWORK_VALUE_SIZE];
        Read r = readInSpan(rule->element, span, value, sizeof value);
        if ((r == Read::Absent && (rule->flags & REQUIRED)) || r == Read::Refused ||
            (r == Read::Value && rule->check(value, rule->min, rule->max) != 0)) {
            refuseRule(rule);
            return 0;
        }
        from = row + 1;
    }
}

// ---------------------------------------------------------------------------
// The one generic setter: read every element of the request that has a row,
// check them all, then rewrite the settings file once and run the settings
// program once.

static int replacePendingKeys(const char* line, FILE* out, void* ctx)
{
    PendingValues* p = (PendingValues*)ctx;
    if (!line) {
        // The key writer never adds a key: a value with no line to go to
        // gives the whole rewrite up rather than store half a request.
        for (int i = 0; i < p->count; ++i)
            if (p->items[i].rule->key && !p->items[i].written)
                return -1;
        return 0;
    }
    for (int i = 0; i < p->count; ++i) {
        const char* key = p->items[i].rule->key;
        if (key && strncmp(line, key, strlen(key)) == 0) {
            fputs(key, out);
            fputs(p->items[i].value, out);
            fputc('\n', out);
            p->items[i].written = 1;
            return 1;
        }
    }
    return 0;
}

static int hasKeys(const PendingValues* p)
{
    for (int i = 0; i < p->count; ++i)
        if (p->items[i].rule->key)
            return 1;
    return 0;
}

static int parameterText(const PendingValue* v, char* out, size_t n)
{
    switch (v->rule->form) {
    case YES_NO:
        return formatChecked(out, n, "%s", strcmp(v->value, "true") == 0 ? "yes" : "no");
    case BOOT_PROTOCOL:
        return formatChecked(out, n, "%s", strcmp(v->value, "true") == 0 ? "dhcp" : "none");
    case PREFIX_AS_MASK:
        return prefixToMask(atol(v->value), out, n);
    case AS_GIVEN:
    default:
        return formatChecked(out, n, "%s", v->value);
    }
}

// 1 when the request was applied (its answer is the caller's to write), 0
// when it was refused or failed with its fault written.
static int applyNetworkRules(const NetworkSetter* setter, int* restartNeeded)
{
    static PendingValues pending;
    memset(&pending, 0, sizeof pending);
    *restartNeeded = 0;
    for (const NetworkRule& rule : NETWORK_RULES) {
        if (strcmp(rule.action, setter->action) != 0)
            continue;
        if (rule.section && !rule.selector && !checkEveryOccurrence(setter, &rule))
            return 0;
        Span span;
        int found = sectionSpan(setter, &rule, &span);
        if (found < 0)
            return 0;
        if (!found)
            continue;
        PendingValue* v = &pending.items[pending.count];
        Read r = readInSpan(rule.element, span, v->value, sizeof v->value);
        if (r == Read::Absent && !(rule.flags & REQUIRED))
            continue;
        if (r != Read::Value || rule.check(v->value, rule.min, rule.max) != 0) {
            refuseRule(&rule);
            return 0;
        }
        v->rule = &rule;
        ++pending.count;
    }
    // Read only now: a refused request costs no wait on the settings file.
    readNetworkSettings(&pending.stored, setter->action);
    if (setter->agree && !setter->agree(&pending))
        return 0;

    char query[1024] = "action=update";
    int parameters = 0;
    for (int i = 0; i < pending.count; ++i) {
        const PendingValue* v = &pending.items[i];
        if ((v->rule->flags & RESTARTS_NETWORK) && strcmp(v->value, setting(&pending.stored, v->rule->key)) != 0)
            *restartNeeded = 1;
        if (!v->rule->parameter)
            continue;
        char text[NETWORK_VALUE_SIZE];
        if (!parameterText(v, text, sizeof text) || !appendQueryParam(query, sizeof query, v->rule->parameter, text)) {
            logServiceError(setter->action, "%s", "settings query too long");
            G_httpAck = 500;
            return 0;
        }
        ++parameters;
    }
    if (hasKeys(&pending)) {
        int r = rewriteFileThroughWorkCopy(ONVIF_CONF_FILE, replacePendingKeys, &pending);
        if (r != 0) {
            logServiceError(setter->action, "%s", r == -2 ? "ONVIF_CONF_FILE lacks a network key"
                                                          : "ONVIF_CONF_FILE missing");
            G_httpAck = 500;
            return 0;
        }
    }
    if (parameters)
        runSettingsProgram(query);
    return 1;
}

// ---------------------------------------------------------------------------
// Checks between values.

// The server a NetworkHost names is the one its Type says.
static int agreeNtpServer(const PendingValues* p)
{
    const char* type = pendingValue(p, "Type");
    const char* ipv4 = pendingValue(p, "IPv4Address");
    const char* name = pendingValue(p, "DNSname");
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
static int agreeProtocolPorts(const PendingValues* p)
{
    static const char* const PORT_KEYS[] = {"Network.Protocols.HTTP.Port=", "Network.Protocols.HTTPS.Port=",
                                            "Network.Protocols.RTSP.Port="};
    const char* ports[3];
    for (int i = 0; i < 3; ++i) {
        ports[i] = setting(&p->stored, PORT_KEYS[i]);
        for (int j = 0; j < p->count; ++j)
            if (p->items[j].rule->key && strcmp(p->items[j].rule->key, PORT_KEYS[i]) == 0)
                ports[i] = p->items[j].value;
    }
    for (int i = 0; i < 3; ++i)
        for (int j = i + 1; j < 3; ++j)
            if (*ports[i] && strcmp(ports[i], ports[j]) == 0) {
                refuseRequestValue("PortAlreadyInUse", "Invalid data", "Two protocols cannot share one port");
                return 0;
            }
    return 1;
}

static const NetworkSetter NETWORK_SETTERS[] = {
    {"SetNetworkInterfaces", {"Link", "IPv4", "IPv6", "Extension", 0}, 0},
    {"SetNetworkDefaultGateway", {0}, 0},
    {"SetZeroConfiguration", {0}, 0},
    {"SetNetworkProtocols", {"NetworkProtocols", 0}, agreeProtocolPorts},
    {"SetHostname", {0}, 0},
    {"SetHostnameFromDHCP", {0}, 0},
    {"SetDNS", {"DNSManual", 0}, 0},
    {"SetNTP", {"NTPManual", 0}, agreeNtpServer},
};

static const NetworkSetter* networkSetter(const char* action)
{
    for (const NetworkSetter& s : NETWORK_SETTERS)
        if (strcmp(s.action, action) == 0)
            return &s;
    return 0;
}

// ---------------------------------------------------------------------------
// The handlers.

void GetNetworkInterfaces()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetNetworkInterfaces");
    setResponse("<tds:GetNetworkInterfacesResponse><tds:NetworkInterfaces token=\"%s\"><tt:Enabled>true</tt:Enabled>"
                "<tt:Info><tt:Name>%s</tt:Name><tt:HwAddress>%s</tt:HwAddress><tt:MTU>%ld</tt:MTU></tt:Info>"
                "<tt:IPv4><tt:Enabled>%s</tt:Enabled><tt:Config>",
                setting(&s, "Network.Interface.Token="), setting(&s, "Network.Interface.Name="), setting(&s, "MAC="),
                numberOr(setting(&s, "Network.Interface.MTU="), MTU_MIN, MTU_MAX, MTU_MAX),
                flagText(setting(&s, "Network.IPv4.Enable=")));
    long prefix = numberOr(setting(&s, "Network.IPv4.Config.Manual.PrefixLength="), 1, 32, 24);
    const char* manual = setting(&s, "Network.IPv4.Config.Manual.Address=");
    if (!isAbsent(manual))
        appendResponse("<tt:Manual><tt:Address>%s</tt:Address><tt:PrefixLength>%ld</tt:PrefixLength></tt:Manual>",
                       manual, prefix);
    const char* linkLocal = setting(&s, "Network.IPv4.Config.LinkLocal.Address=");
    if (strcmp(setting(&s, "Network.ZeroConfiguration.Enabled="), "true") == 0 && !isAbsent(linkLocal))
        appendResponse("<tt:LinkLocal><tt:Address>%s</tt:Address><tt:PrefixLength>%d</tt:PrefixLength></tt:LinkLocal>",
                       linkLocal, LINK_LOCAL_PREFIX);
    int dhcp = strcmp(setting(&s, "Network.IPv4.Config.DHCP="), "true") == 0;
    if (dhcp) {
        // What the lease gave is what the camera runs with now.
        char current[64], mask[64];
        getDeviceIPv4(current, sizeof current);
        long leased = readSettingValue(NETWORK_CONF_FILE, "root.Network.SubnetMask=", mask, sizeof mask)
                          ? maskToPrefix(mask) : -1;
        appendResponse("<tt:FromDHCP><tt:Address>%s</tt:Address><tt:PrefixLength>%ld</tt:PrefixLength></tt:FromDHCP>",
                       current, leased > 0 ? leased : prefix);
    }
    appendResponse("<tt:DHCP>%s</tt:DHCP></tt:Config></tt:IPv4></tds:NetworkInterfaces>"
                   "</tds:GetNetworkInterfacesResponse>", dhcp ? "true" : "false");
}

void SetNetworkInterfaces()
{
    int restart;
    if (!applyNetworkRules(networkSetter("SetNetworkInterfaces"), &restart))
        return;
    setResponse("<tds:SetNetworkInterfacesResponse><tds:RebootNeeded>%s</tds:RebootNeeded>"
                "</tds:SetNetworkInterfacesResponse>", restart ? "true" : "false");
}

void GetNetworkDefaultGateway()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetNetworkDefaultGateway");
    setResponse("<tds:GetNetworkDefaultGatewayResponse><tds:NetworkGateway>");
    const char* gateway = setting(&s, "Network.DefaultGateway.IPv4Address=");
    if (!isAbsent(gateway))
        appendResponse("<tt:IPv4Address>%s</tt:IPv4Address>", gateway);
    appendResponse("</tds:NetworkGateway></tds:GetNetworkDefaultGatewayResponse>");
}

void SetNetworkDefaultGateway()
{
    int restart;
    if (applyNetworkRules(networkSetter("SetNetworkDefaultGateway"), &restart))
        setResponse("<tds:SetNetworkDefaultGatewayResponse></tds:SetNetworkDefaultGatewayResponse>");
}

void GetZeroConfiguration()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetZeroConfiguration");
    int enabled = strcmp(setting(&s, "Network.ZeroConfiguration.Enabled="), "true") == 0;
    setResponse("<tds:GetZeroConfigurationResponse><tds:ZeroConfiguration><tt:InterfaceToken>%s</tt:InterfaceToken>"
                "<tt:Enabled>%s</tt:Enabled>", setting(&s, "Network.Interface.Token="), enabled ? "true" : "false");
    const char* linkLocal = setting(&s, "Network.IPv4.Config.LinkLocal.Address=");
    if (enabled && !isAbsent(linkLocal))
        appendResponse("<tt:Addresses>%s</tt:Addresses>", linkLocal);
    appendResponse("</tds:ZeroConfiguration></tds:GetZeroConfigurationResponse>");
}

void SetZeroConfiguration()
{
    int restart;
    if (applyNetworkRules(networkSetter("SetZeroConfiguration"), &restart))
        setResponse("<tds:SetZeroConfigurationResponse></tds:SetZeroConfigurationResponse>");
}

void GetNetworkProtocols()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetNetworkProtocols");
    static const char* const PROTOCOLS[][3] = {
        {"HTTP", "Network.Protocols.HTTP.Enabled=", "Network.Protocols.HTTP.Port="},
        {"HTTPS", "Network.Protocols.HTTPS.Enabled=", "Network.Protocols.HTTPS.Port="},
        {"RTSP", "Network.Protocols.RTSP.Enabled=", "Network.Protocols.RTSP.Port="},
    };
    setResponse("<tds:GetNetworkProtocolsResponse>");
    for (const auto& p : PROTOCOLS) {
        long port = numberOr(setting(&s, p[2]), 1, 65535, 0);
        if (port == 0)
            continue;  // a protocol the camera's file does not configure
        appendResponse("<tds:NetworkProtocols><tt:Name>%s</tt:Name><tt:Enabled>%s</tt:Enabled><tt:Port>%ld</tt:Port>"
                       "</tds:NetworkProtocols>", p[0], flagText(setting(&s, p[1])), port);
    }
    appendResponse("</tds:GetNetworkProtocolsResponse>");
}

void SetNetworkProtocols()
{
    int restart;
    if (applyNetworkRules(networkSetter("SetNetworkProtocols"), &restart))
        setResponse("<tds:SetNetworkProtocolsResponse></tds:SetNetworkProtocolsResponse>");
}

void GetNTPResponse()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetNTPResponse");
    setResponse("<tds:GetNTPResponse><tds:NTPInformation><tt:FromDHCP>%s</tt:FromDHCP>",
                flagText(setting(&s, "NTPInformation.FromDHCP=")));
    const char* type = setting(&s, "NTP.Type=");
    const char* ipv4 = setting(&s, "NTP.IPv4Address=");
    const char* name = setting(&s, "NTP.DNS=");
    if (strcmp(type, "IPv4") == 0 && !isAbsent(ipv4))
        appendResponse("<tt:NTPManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>%s</tt:IPv4Address></tt:NTPManual>",
                       ipv4);
    else if (strcmp(type, "DNS") == 0 && !isAbsent(name))
        appendResponse("<tt:NTPManual><tt:Type>DNS</tt:Type><tt:DNSname>%s</tt:DNSname></tt:NTPManual>", name);
    appendResponse("</tds:NTPInformation></tds:GetNTPResponse>");
}

void SetNTPResponse()
{
    int restart;
    if (applyNetworkRules(networkSetter("SetNTP"), &restart))
        setResponse("<tds:SetNTPResponse></tds:SetNTPResponse>");
}

void GetHostnameResponse()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetHostnameResponse");
    setResponse("<tds:GetHostnameResponse><tds:HostnameInformation><tt:FromDHCP>%s</tt:FromDHCP>",
                flagText(setting(&s, "HostnameInformation.FromDHCP=")));
    const char* name = setting(&s, "HostnameInformation.Name=");
    if (!isAbsent(name))
        appendResponse("<tt:Name>%s</tt:Name>", name);
    appendResponse("</tds:HostnameInformation></tds:GetHostnameResponse>");
}

// Also serves SetHostnameFromDHCP, whose name contains this action's.
void SetHostnameResponse()
{
    int restart;
    if (strcmp(PrimaryElementName, "SetHostnameFromDHCP") == 0) {
        if (applyNetworkRules(networkSetter("SetHostnameFromDHCP"), &restart))
            setResponse("<tds:SetHostnameFromDHCPResponse><tds:RebootNeeded>false</tds:RebootNeeded>"
                        "</tds:SetHostnameFromDHCPResponse>");
        return;
    }
    if (applyNetworkRules(networkSetter("SetHostname"), &restart))
        setResponse("<tds:SetHostnameResponse></tds:SetHostnameResponse>");
}

void GetDNSResponse()
{
    static NetworkSettings s;
    readNetworkSettings(&s, "GetDNSResponse");
    setResponse("<tds:GetDNSResponse><tds:DNSInformation><tt:FromDHCP>%s</tt:FromDHCP>",
                flagText(setting(&s, "DNSInformation.FromDHCP=")));
    const char* domain = setting(&s, "DNSInformation.SearchDomain=");
    if (!isAbsent(domain))
        appendResponse("<tt:SearchDomain>%s</tt:SearchDomain>", domain);
    const char* server = setting(&s, "DNSInformation.DNSManual.IPv4Address=");
    if (strcmp(setting(&s, "DNSInformation.DNSManual.Type="), "IPv4") == 0 && !isAbsent(server))
        appendResponse("<tt:DNSManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>%s</tt:IPv4Address></tt:DNSManual>",
                       server);
    appendResponse("</tds:DNSInformation></tds:GetDNSResponse>");
}

void SetDNSResponse()
{
    int restart;
    if (applyNetworkRules(networkSetter("SetDNS"), &restart))
        setResponse("<tds:SetDNSResponse></tds:SetDNSResponse>");
}
