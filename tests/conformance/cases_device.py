"""Base device test cases: capabilities, services, network and system reads, users, relays, namespaces."""
import ipaddress
import os
import subprocess
import time
import xml.etree.ElementTree as ET
from contextlib import contextmanager
from xml.sax.saxutils import escape

import cases_events
from registry import answers, case, cases, not_applicable, refuses, uncoded
from soap import INVALID, NS, Camera, check, el, flag, q

PREFIXES = ("DEVICE-",)

# service: its prefix, its GetCapabilities category, the category case and the GetServices case
SERVICES = {"device": ("tds", "Device", "DEVICE-1-1-3", "DEVICE-1-1-13"),
            "media": ("trt", "Media", "DEVICE-1-1-4", "DEVICE-1-1-14"),
            "events": ("tev", "Events", "DEVICE-1-1-5", "DEVICE-1-1-16"),
            "ptz": ("tptz", "PTZ", "DEVICE-1-1-6", "DEVICE-1-1-15"),
            "imaging": ("timg", "Imaging", "DEVICE-1-1-10", "DEVICE-1-1-17")}


def capabilities(cam, category):
    return cam.ok("tds:GetCapabilities", el("tds:Category", category))


def category_case(category):
    def run(cam, f):
        check(capabilities(cam, category).value(".//tt:%s/tt:XAddr" % category), "no tt:%s XAddr" % category)
    return run


def services(cam, include):
    answer = cam.ok("tds:GetServices", el("tds:IncludeCapability", include))
    return {s.findtext("tds:Namespace", "", NS).strip(): s for s in answer.all("tds:Service")}


def get_services_case(namespace):
    def run(cam, f):
        without = services(cam, "false")
        check(namespace in without, "%s missing from GetServices" % namespace)
        check(without[namespace].find("tds:Capabilities", NS) is None, "capabilities without IncludeCapability")
        withcaps = services(cam, "true")
        check(namespace in withcaps, "%s missing from GetServices" % namespace)
        holder = withcaps[namespace].find("tds:Capabilities", NS)
        check(holder is not None and len(holder), "no capabilities with IncludeCapability")
        check(holder[0].tag == "{%s}Capabilities" % namespace, "capabilities element %s" % holder[0].tag)
        address = withcaps[namespace].findtext("tds:XAddr", "", NS)
        check(address.startswith("http://127.0.0.1:%d/" % cam.port), "XAddr %s" % address)
    return run


for _name, (_prefix, _category, _category_id, _services_id) in SERVICES.items():
    _needs = () if _name == "device" else (_name,)
    case(_category_id, *_needs)(category_case(_category))
    case(_services_id, *_needs)(get_services_case(NS[_prefix]))


def capabilities_agree(prefix):
    """The capabilities GetServices carries for a service are the ones its GetServiceCapabilities gives."""
    def run(cam, f):
        listed = services(cam, "true")[NS[prefix]].find("tds:Capabilities", NS)[0]
        own = cam.ok(prefix + ":GetServiceCapabilities").one(prefix + ":Capabilities")
        check(sorted(listed.attrib.items()) == sorted(own.attrib.items()),
              "GetServices %s, GetServiceCapabilities %s" % (listed.attrib, own.attrib))
        for child in own:
            twin = listed.find(child.tag)
            check(twin is not None and sorted(twin.attrib.items()) == sorted(child.attrib.items()),
                  "%s differs" % child.tag)
    return run


case("DEVICE-1-1-2")(answers("tds:GetCapabilities", el("tds:Category", "All"), "tds:Capabilities/tt:Device",
                             "tds:Capabilities/tt:Media"))
case("DEVICE-1-1-18")(answers("tds:GetServiceCapabilities", "", "tds:Capabilities/tds:Network",
                              "tds:Capabilities/tds:Security", "tds:Capabilities/tds:System"))
case("DEVICE-1-1-19")(capabilities_agree("tds"))


@case("DEVICE-1-1-30")
def services_and_capabilities(cam, f):
    listed = services(cam, "false")
    caps = capabilities(cam, "All")
    for name in ("media", "ptz", "imaging", "events"):
        namespace, element = NS[SERVICES[name][0]], "tt:" + SERVICES[name][1]
        has_cap = bool(caps.all(".//%s/tt:XAddr" % element))
        check(has_cap == (namespace in listed),
              "%s: GetCapabilities %s, GetServices %s" % (name, has_cap, namespace in listed))
        if has_cap:
            check(caps.value(".//%s/tt:XAddr" % element) == listed[namespace].findtext("tds:XAddr", "", NS).strip(),
                  "%s addresses differ" % name)
    io = caps.all(".//tt:Extension/tt:DeviceIO/tt:XAddr")
    check(bool(io) == (NS["tmd"] in listed), "device IO: GetCapabilities %s, GetServices %s" % (bool(io), NS["tmd"] in listed))


@case("DEVICE-1-1-31")
def services_xaddr(cam, f):
    for namespace, service in services(cam, "false").items():
        address = service.findtext("tds:XAddr", "", NS).strip()
        check(address.startswith("http://127.0.0.1:%d/" % cam.port), "%s XAddr %s" % (namespace, address))
        check(service.find("tds:Version/tt:Major", NS) is not None, "%s has no version" % namespace)


for _id, _read, _element in (("DEVICE-2-1-1", "Hostname", "HostnameInformation"), ("DEVICE-2-1-4", "DNS", "DNSInformation"),
                             ("DEVICE-2-1-11", "NTP", "NTPInformation"),
                             ("DEVICE-2-1-17", "NetworkInterfaces", "NetworkInterfaces"),
                             ("DEVICE-2-1-25", "NetworkDefaultGateway", "NetworkGateway"),
                             ("DEVICE-2-1-33", "NetworkProtocols", "NetworkProtocols"),
                             ("DEVICE-3-1-9", "DeviceInformation", "Manufacturer"), ("DEVICE-4-1-1", "Users", "User")):
    case(_id)(answers("tds:Get" + _read, "", "tds:" + _element))


def manual_server(kind, address):
    return el("tds:FromDHCP", "false") + el("tds:%sManual" % kind, el("tt:Type", "IPv4"), el("tt:IPv4Address", address))


def date_time(kind, hms=None, ymd=None, zone=None):
    """A SetSystemDateAndTime body: hms and ymd are the UTC time and date, zone the TZ text."""
    body = el("tds:DateTimeType", kind) + el("tds:DaylightSavings", "false")
    body += el("tds:TimeZone", el("tt:TZ", zone)) if zone else ""
    if hms:
        body += el("tds:UTCDateTime", el("tt:Time", *(el("tt:" + n, v) for n, v in zip(("Hour", "Minute", "Second"), hms))),
                   el("tt:Date", *(el("tt:" + n, v) for n, v in zip(("Year", "Month", "Day"), ymd))))
    return body


def user(name, password, level):
    return el("tds:User", el("tt:Username", name), el("tt:Password", password), el("tt:UserLevel", level))


def relay_settings(service, token, mode, delay, idle):
    """A SetRelayOutputSettings body of the device (tds) or device IO (tmd) service."""
    properties = el("tt:Mode", mode) + el("tt:DelayTime", delay) + el("tt:IdleState", idle)
    if service == "tds":
        return el("tds:RelayOutputToken", token) + el("tds:Properties", properties)
    return '<tmd:RelayOutput token="%s">%s</tmd:RelayOutput>' % (token, el("tt:Properties", properties))


def relay_state(token, state):
    return el("tds:RelayOutputToken", token) + el("tds:LogicalState", state)


cases([
    ("DEVICE-1-1-9", (), refuses("tds:GetCapabilities", el("tds:Category", "NoSuchCategory"))),
    ("DEVICE-2-1-3", (), refuses("tds:SetHostname", el("tds:Name", "Home$Network"), *INVALID, "InvalidHostname")),
    ("DEVICE-2-1-9", (), refuses("tds:SetDNS", manual_server("DNS", "10.1.1"), *INVALID, "InvalidIPv4Address")),
    ("DEVICE-2-1-15", (), refuses("tds:SetNTP", manual_server("NTP", "10.1.1"), *INVALID, "InvalidIPv4Address")),
    ("DEVICE-2-1-28", (), refuses("tds:SetNetworkDefaultGateway", el("tds:IPv4Address", "10.1.1"), *INVALID,
                                  "InvalidGatewayAddress")),
    ("DEVICE-3-1-4", (), refuses("tds:SetSystemDateAndTime", date_time("Manual", (10, 0, 0), (2026, 1, 1), "INVALID"),
                                 *INVALID, "InvalidTimeZone")),
    ("DEVICE-3-1-5", (), refuses("tds:SetSystemDateAndTime", date_time("Manual", (30, 61, 61), (2026, 13, 32)),
                                 *INVALID, "InvalidDateTime")),
    ("DEVICE-4-1-5", (), refuses("tds:DeleteUsers", el("tds:Username", "NoSuchUser9"), *INVALID, "UsernameMissing")),
    ("DEVICE-4-1-8", (), refuses("tds:SetUser", user("NoSuchUser8", "Pass1234", "User"), *INVALID, "UsernameMissing")),
    ("DEVICE-5-1-11", "relays", refuses("tds:SetRelayOutputSettings", relay_settings(
        "tds", "NoSuchRelay", "Bistable", "PT0S", "open"), *INVALID, "RelayToken")),
    ("DEVICE-5-1-12", "relays", refuses("tds:SetRelayOutputState", relay_state("NoSuchRelay", "active"), *INVALID,
                                        "RelayToken")),
])


@case("DEVICE-3-1-1")
def date_and_time(cam, f):
    answer = cam.ok("tds:GetSystemDateAndTime")
    check(answer.value(".//tt:DateTimeType") in ("Manual", "NTP"), "DateTimeType")
    check(answer.all(".//tt:UTCDateTime/tt:Date/tt:Year"), "no UTC date")


def users(cam):
    return {u.findtext("tt:Username", "", NS): u.findtext("tt:UserLevel", "", NS)
            for u in cam.ok("tds:GetUsers").all("tds:User")}


@contextmanager
def temporary_user(cam, name, level="User", password="Pass1234"):
    cam.ok("tds:CreateUsers", user(name, password, level))
    try:
        yield
    finally:
        cam.ok("tds:DeleteUsers", el("tds:Username", name))


def user_case(name, *steps, after=None):
    """A user of the flow's own, the steps done while it exists, the after step once it is deleted."""
    def run(cam, f):
        with temporary_user(cam, name):
            for step in steps:
                step(cam)
        if after:
            after(cam)
    return run


cases([
    ("DEVICE-4-1-9", (), user_case("Onvif1", lambda cam: check(users(cam).get("Onvif1") == "User", "user not listed"))),
    ("DEVICE-4-1-3", (), user_case("Onvif2", lambda cam: cam.refused("tds:CreateUsers", user("Onvif2", "Pass1234", "User"),
                                                                     "Sender", "OperationProhibited", "UsernameClash"))),
    ("DEVICE-4-1-4", (), user_case("Onvif3", after=lambda cam: check("Onvif3" not in users(cam), "deleted user listed"))),
    ("DEVICE-4-1-7", (), user_case("Onvif4", lambda cam: cam.ok("tds:SetUser", user("Onvif4", "Pass5678", "Operator")),
                                   lambda cam: check(users(cam).get("Onvif4") == "Operator", "level not changed"))),
])


def relay_tokens(cam):
    # deviceio.wsdl's GetRelayOutputs takes and gives the device service's elements.
    return [r.get("token") for r in cam.ok("tds:GetRelayOutputs").all("tds:RelayOutputs")]


def count_case(capability, listing):
    """The capabilities' count of a kind of IO is the length of its listing."""
    def run(cam, f):
        count = capability(cam, f)
        check(count is not None and int(count) == len(listing(cam)), "capabilities say %s" % count)
    return run


case("DEVICE-5-1-1", "relays")(answers("tds:GetRelayOutputs", "", "tds:RelayOutputs"))
case("DEVICE-5-1-2", "relays")(count_case(lambda cam, f: f["capabilities"].value(".//tt:IO/tt:RelayOutputs"), relay_tokens))


def relay_case(service, mode, idle, delay=None, toggle=True):
    """The first relay set up through the service and, with toggle, switched active and back; the device IO
    service's SetRelayOutputState takes the device service's element (deviceio.wsdl)."""
    def run(cam, f):
        token = relay_tokens(cam)[0]
        cam.ok(service + ":SetRelayOutputSettings", relay_settings(
            service, token, mode, delay or ("PT1S" if mode == "Monostable" else "PT0S"), idle))
        for state in ("active", "inactive") if toggle else ():
            cam.ok("tds:SetRelayOutputState", relay_state(token, state))
    return run


RELAY_STATES = (("Bistable", "open"), ("Bistable", "closed"), ("Monostable", "open"), ("Monostable", "closed"))
for _n, (_mode, _idle) in enumerate(RELAY_STATES):
    case("DEVICE-5-1-%d" % (_n + 5), "relays")(relay_case("tds", _mode, _idle))
case("DEVICE-5-1-3", "relays")(relay_case("tds", "Bistable", "open", toggle=False))
case("DEVICE-5-1-9", "relays")(relay_case("tds", "Monostable", "open", "PT10S"))

# The same request written with other prefixes and namespace declarations.
NAMESPACE_FORMS = {
    "DEVICE-6-1-1": '<GetCapabilities xmlns="%(tds)s"><Category>All</Category></GetCapabilities>',
    "DEVICE-6-1-2": '<GetCapabilities xmlns="%(tds)s"><Category xmlns="%(tds)s">All</Category></GetCapabilities>',
    "DEVICE-6-1-3": '<abc:GetCapabilities xmlns:abc="%(tds)s"><abc:Category>All</abc:Category></abc:GetCapabilities>',
    "DEVICE-6-1-4": '<a:GetCapabilities xmlns:a="%(tds)s"><b:Category xmlns:b="%(tds)s">All</b:Category></a:GetCapabilities>',
    "DEVICE-6-1-5": '<x:GetCapabilities xmlns:x="%(tds)s"><x:Category>All</x:Category></x:GetCapabilities>',
}


def namespace_case(form):
    def run(cam, f):
        envelope = ('<?xml version="1.0" encoding="UTF-8"?><x:Envelope xmlns:x="%s">%s<x:Body>%s</x:Body></x:Envelope>'
                    % (NS["s"], cam.security().replace("s:Header", "x:Header"), form % NS))
        answer = cam.post(envelope)
        check(answer.status == 200 and answer.body is not None and answer.body.tag == q("tds:GetCapabilitiesResponse"),
              "status %d %s" % (answer.status, answer.text[-300:]))
        check(answer.all(".//tt:Device/tt:XAddr"), "no device address")
    return run


for _id, _form in NAMESPACE_FORMS.items():
    case(_id)(namespace_case(_form))

for _id in ("DEVICE-2-1-7", "DEVICE-2-1-10", "DEVICE-2-1-13", "DEVICE-2-1-16", "DEVICE-2-1-19", "DEVICE-2-1-21",
            "DEVICE-2-1-29", "DEVICE-2-1-31"):
    case(_id, "ipv6")(uncoded("IPv6"))
for _id, _feature in (("DEVICE-2-1-36", "dynamic dns"), ("DEVICE-2-1-37", "dynamic dns"), ("DEVICE-3-1-10", "system log"),
                      ("DEVICE-3-1-13", "system uris"), ("DEVICE-4-1-10", "remote user"), ("DEVICE-4-1-11", "remote user"),
                      ("DEVICE-7-1-1", "ip filter"), ("DEVICE-7-1-2", "ip filter"), ("DEVICE-7-1-3", "ip filter"),
                      ("DEVICE-7-1-4", "ip filter"), ("DEVICE-3-1-14", "system backup"),
                      ("DEVICE-3-1-15", "system backup"), ("DEVICE-3-1-16", "firmware upload"),
                      ("DEVICE-3-1-17", "firmware upload"), ("DEVICE-8-1-1", "device aux")):
    case(_id, _feature)(uncoded(_feature))
not_applicable("the camera serves no recording, replay, receiver, access control, door control, security "
               "configuration, access rules, credential or schedule service",
               *["DEVICE-1-1-%d" % n for n in range(20, 30)])
not_applicable("the camera has no analytics service", "DEVICE-1-1-11")


def server_setting_case(kind, request, read, wanted):
    """kind DNS or NTP: Set<kind> with the request's settings, the read path of Get<kind> holds wanted; the
    settings read before go back."""
    info = "tds:%sInformation" % kind

    def run(cam, f):
        before = cam.ok("tds:Get" + kind)
        cam.ok("tds:Set" + kind, request)
        got = [(e.text or "").strip() for e in cam.ok("tds:Get" + kind).all("%s/%s" % (info, read))]
        check(wanted in got, "%s %s: %s after setting %s" % (kind, read, got, wanted))
        manual = "".join(el("tds:%sManual" % kind, el("tt:Type", "IPv4"), el("tt:IPv4Address", a.text.strip()))
                         for a in before.all(info + "/tt:%sManual/tt:IPv4Address" % kind) if a.text)
        cam.ok("tds:Set" + kind, el("tds:FromDHCP", before.value(info + "/tt:FromDHCP")) + manual)
    return run


case("DEVICE-2-1-5")(server_setting_case("DNS", el("tds:FromDHCP", "false") + el("tds:SearchDomain", "conformance.example"),
                                         "tt:SearchDomain", "conformance.example"))
case("DEVICE-2-1-6")(server_setting_case("DNS", manual_server("DNS", "10.1.1.1"), "tt:DNSManual/tt:IPv4Address", "10.1.1.1"))
case("DEVICE-2-1-8")(server_setting_case("DNS", el("tds:FromDHCP", "true"), "tt:FromDHCP", "true"))
case("DEVICE-2-1-12")(server_setting_case("NTP", manual_server("NTP", "10.1.1.2"), "tt:NTPManual/tt:IPv4Address", "10.1.1.2"))
case("DEVICE-2-1-14")(server_setting_case("NTP", el("tds:FromDHCP", "true"), "tt:FromDHCP", "true"))


def one_value_case(name, read, field, value):
    """Set<name> with one field, Get<name> shows it at read; the value read before goes back."""
    def run(cam, f):
        before = cam.ok("tds:Get" + name).value(read)
        cam.ok("tds:Set" + name, el("tds:" + field, value))
        got = cam.ok("tds:Get" + name).value(read)
        check(got == value, "%s %s after setting %s" % (name, got, value))
        if before:
            cam.ok("tds:Set" + name, el("tds:" + field, before))
    return run


case("DEVICE-2-1-30")(one_value_case("NetworkDefaultGateway", "tds:NetworkGateway/tt:IPv4Address", "IPv4Address",
                                     "10.1.1.254"))
case("DEVICE-2-1-32")(one_value_case("Hostname", "tds:HostnameInformation/tt:Name", "Name", "conformance-host"))


def protocols(cam):
    return cam.ok("tds:GetNetworkProtocols").all("tds:NetworkProtocols")


@case("DEVICE-2-1-34")
def set_protocols(cam, f):
    listed = protocols(cam)
    cam.ok("tds:SetNetworkProtocols", "".join(ET.tostring(p, encoding="unicode") for p in listed))
    check(len(protocols(cam)) == len(listed), "protocols changed")


@case("DEVICE-2-1-35")
def unsupported_protocol(cam, f):
    names = [p.findtext("tt:Name", "", NS) for p in protocols(cam)]
    missing = [n for n in ("HTTP", "HTTPS", "RTSP") if n not in names]
    if missing:
        cam.refused("tds:SetNetworkProtocols", el("tds:NetworkProtocols", el("tt:Name", missing[0]), el("tt:Enabled", "true"),
                                                  el("tt:Port", 8443)), *INVALID, "ServiceNotSupported")


def date_time_case(kind, *settings):
    """SetSystemDateAndTime of a kind, which the camera then reports; with NTP, the clock goes back to manual."""
    def run(cam, f):
        zone = cam.ok("tds:GetSystemDateAndTime").value(".//tt:TimeZone/tt:TZ", "GMT0") if settings else None
        cam.ok("tds:SetSystemDateAndTime", date_time(kind, *settings, zone))
        check(cam.ok("tds:GetSystemDateAndTime").value(".//tt:DateTimeType") == kind, "not %s" % kind)
        if kind == "NTP":
            now = time.gmtime()
            cam.ok("tds:SetSystemDateAndTime", date_time("Manual", now[3:6], now[0:3]))
    return run


case("DEVICE-3-1-11")(date_time_case("Manual", (10, 20, 30), (2026, 3, 4)))
case("DEVICE-3-1-12")(date_time_case("NTP"))


def first_interface(cam):
    return cam.ok("tds:GetNetworkInterfaces").one("tds:NetworkInterfaces")


def ipv4_settings(token, address, prefix, dhcp, enabled=""):
    """A SetNetworkInterfaces body with the IPv4 part only (and the interface's Enabled where given)."""
    manual = el("tt:Manual", el("tt:Address", address), el("tt:PrefixLength", prefix)) if address else ""
    return el("tds:InterfaceToken", escape(token)) + el("tds:NetworkInterface", el("tt:Enabled", enabled) if enabled else "",
                                                        el("tt:IPv4", el("tt:Enabled", "true"), manual, el("tt:DHCP", dhcp)))


case("DEVICE-2-1-20")(refuses("tds:SetNetworkInterfaces", lambda cam, f: ipv4_settings(
    first_interface(cam).get("token"), "10.1.1", 24, "false", "true"), *INVALID))


def set_ipv4(cam, token, address, prefix, dhcp):
    answer = cam.ok("tds:SetNetworkInterfaces", ipv4_settings(token, address, prefix, dhcp))
    if flag(answer.value("tds:RebootNeeded")):
        maintenance_case("tds:SystemReboot", "", "tds:Message", 1)(cam, None)


@case("DEVICE-2-1-18")
def set_interface_address(cam, f):
    # The simulated camera keeps serving (and announcing) 127.0.0.1 whatever its settings say, so the
    # flow goes on at the address it has and the Hello from the new address is not awaited.
    original = first_interface(cam)
    token = original.get("token")
    config = lambda path, default="": original.findtext("tt:IPv4/tt:Config/" + path, default, NS).strip()
    address = config("tt:Manual/tt:Address") or config("tt:FromDHCP/tt:Address")
    prefix = config("tt:Manual/tt:PrefixLength") or config("tt:FromDHCP/tt:PrefixLength", "24")
    subnet = ipaddress.ip_interface("%s/%s" % (address, prefix)).network
    other = next(h for h in subnet.hosts() if str(h) != address)
    set_ipv4(cam, token, other, prefix, "false")
    try:
        updated = [i for i in cam.ok("tds:GetNetworkInterfaces").all("tds:NetworkInterfaces") if i.get("token") == token]
        check(updated, "interface %s gone" % token)
        ipv4 = updated[0].find("tt:IPv4", NS)
        check(ipv4 is not None and flag(ipv4.findtext("tt:Enabled", "", NS)), "IPv4 missing or disabled")
        check(ipv4.findtext("tt:Config/tt:Manual/tt:Address", "", NS).strip() == str(other),
              "manual address %s, set %s" % (ipv4.findtext("tt:Config/tt:Manual/tt:Address", "", NS), other))
        check(not flag(ipv4.findtext("tt:Config/tt:DHCP", "", NS)), "DHCP on after a manual address")
    finally:
        set_ipv4(cam, token, config("tt:Manual/tt:Address"), prefix, config("tt:DHCP", "false"))
    check(ET.tostring(first_interface(cam)) == ET.tostring(original), "the original settings did not come back")


@case("DEVICE-4-1-6")
def delete_all_users(cam, f):
    """Every listed user deleted, through a second administrator so the flow keeps a way in; the flow's own
    account is recreated afterwards with its password (the camera cannot tell it back)."""
    listed = users(cam)
    spare = Camera(cam.port, "Onvif6", "Pass1234")
    deleted = []
    with temporary_user(cam, spare.user, "Administrator", spare.password):
        try:
            for name in listed:
                answer = spare.call("tds:DeleteUsers", el("tds:Username", escape(name)))
                if answer.fault:
                    check(answer.subcodes()[:3] == [*INVALID, "FixedUser"], "deleting %s: %s" % (name, answer.summary()))
                else:
                    check(answer.body.tag == q("tds:DeleteUsersResponse"), "deleting %s: %s" % (name, answer.summary()))
                    deleted.append(name)
            left = users(spare)
            check(not any(name in left for name in deleted), "deleted users still listed: %s" % sorted(left))
        finally:
            if cam.user in deleted:
                spare.ok("tds:CreateUsers", user(cam.user, cam.password, listed[cam.user]))


def camera_word(name, value=None):
    """Reads (or sets) one word of the camera's segment, where the service leaves its commands to the
    camera's control process."""
    build = os.environ.get("ONVIF_BUILD") or os.path.join(os.environ["ONVIF_TOP"], "build")
    args = ["set", "%s=%d" % (name, value)] if value is not None else ["get", name]
    done = subprocess.run([os.path.join(build, "onvif-shm"), *args], capture_output=True, text=True, timeout=20,
                          env=dict(os.environ, ONVIF_ROOT=os.environ["CAMERA_ROOT"]), check=True)
    return int(done.stdout.strip() or 0) if value is None else value


def maintenance_case(op, body, response, command, probe_after=False):
    """The answer and the command word the camera's control process acts on. The simulated camera keeps
    running on that word, so its return (its Hello) is not awaited here (the discovery cases play the
    restart); after a soft reset or reboot it must still be found by a Probe."""
    def run(cam, f):
        camera_word("MAINTENANCE_WORD", 0)
        try:
            answer = cam.ok(op, body)
            if response:
                answer.one(response)
            word = camera_word("MAINTENANCE_WORD")
            check(word == command, "command word %d after %s, expected %d" % (word, op, command))
        finally:
            camera_word("MAINTENANCE_WORD", 0)
        if probe_after:
            import cases_discovery
            cases_discovery.matched(cam, cases_discovery.probe(cases_discovery.TYPES))
    return run


case("DEVICE-3-1-6")(maintenance_case("tds:SetSystemFactoryDefault", el("tds:FactoryDefault", "Hard"), None, 2))
case("DEVICE-3-1-7")(maintenance_case("tds:SetSystemFactoryDefault", el("tds:FactoryDefault", "Soft"), None, 3, True))
case("DEVICE-3-1-8")(maintenance_case("tds:SystemReboot", "", "tds:Message", 1, True))


# --- Monitoring events: each applies when the camera announces its topic ---

MONITORING = (  # case, topic, its Source item, its Data item
    ("DEVICE-9-1-1", "tns1:Monitoring/ProcessorUsage", ("Token", "ReferenceToken"), ("Value", "float")),
    ("DEVICE-9-1-2", "tns1:Monitoring/OperatingTime/LastReset", None, ("Status", "dateTime")),
    ("DEVICE-9-1-3", "tns1:Monitoring/OperatingTime/LastReboot", None, ("Status", "dateTime")),
    ("DEVICE-9-1-5", "tns1:Monitoring/OperatingTime/LastClockSynchronization", None, ("Status", "dateTime")),
    ("DEVICE-9-1-8", "tns1:Monitoring/Backup/Last", None, ("Status", "dateTime")),
    ("DEVICE-9-1-9", "tns1:Device/HardwareFailure/FanFailure", ("Token", "ReferenceToken"), ("Failed", "boolean")),
    ("DEVICE-9-1-10", "tns1:Device/HardwareFailure/PowerSupplyFailure", ("Token", "ReferenceToken"), ("Failed", "boolean")),
    ("DEVICE-9-1-11", "tns1:Device/HardwareFailure/StorageFailure", ("Token", "ReferenceToken"), ("Failed", "boolean")),
    ("DEVICE-9-1-12", "tns1:Device/HardwareFailure/TemperatureCritical", None, ("Critical", "boolean")),
)


def monitoring_case(topic, source, data):
    def run(cam, f):
        initial = cases_events.property_event(cam, f, topic, source, data, utc=topic.endswith("LastClockSynchronization"))
        if topic.endswith("ProcessorUsage"):
            usage = float(initial.find("wsnt:Message/tt:Message/tt:Data/tt:SimpleItem", NS).get("Value"))
            check(0 <= usage <= 100, "processor usage %s" % usage)
    return run


for _id, _topic, _source, _data in MONITORING:
    case(_id, "events", cases_events.event_topic(_topic))(monitoring_case(_topic, _source, _data))
# These change the state the event reports (a reboot, a clock set by hand, a clock set by NTP) and wait for
# the change; the camera announces none of their topics.
case("DEVICE-9-1-4", "events", "tns1:Monitoring/OperatingTime/LastReboot")(uncoded("a last reboot event"))
for _id in ("DEVICE-9-1-6", "DEVICE-9-1-7"):
    case(_id, "events", "tns1:Monitoring/OperatingTime/LastClockSynchronization")(
        uncoded("a last clock synchronisation event"))
