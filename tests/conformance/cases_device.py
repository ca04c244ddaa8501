"""Base device test cases: capabilities, services, network and system reads, users, relays, namespaces."""
import ipaddress
import os
import subprocess
import time
import xml.etree.ElementTree as ET
from xml.sax.saxutils import escape

import cases_events
from registry import case, not_applicable, not_coded, uncoded
from soap import NS, Camera, q, check, flag

PREFIXES = ("DEVICE-",)

SERVICE_NS = {"device": NS["tds"], "media": NS["trt"], "ptz": NS["tptz"], "imaging": NS["timg"],
              "events": NS["tev"], "deviceio": NS["tmd"]}
CAPABILITY_ELEMENT = {"device": "tt:Device", "media": "tt:Media", "events": "tt:Events", "ptz": "tt:PTZ",
                      "imaging": "tt:Imaging", "analytics": "tt:Analytics"}


def capabilities(cam, category):
    answer = cam.ok("tds:GetCapabilities", "<tds:Category>%s</tds:Category>" % category)
    return answer


def category_case(category, element):
    def run(cam, f):
        answer = capabilities(cam, category)
        check(answer.value(".//%s/tt:XAddr" % element), "no %s XAddr" % element)
    return run


case("DEVICE-1-1-3")(category_case("Device", "tt:Device"))
case("DEVICE-1-1-4", "media")(category_case("Media", "tt:Media"))
case("DEVICE-1-1-5", "events")(category_case("Events", "tt:Events"))
case("DEVICE-1-1-6", "ptz")(category_case("PTZ", "tt:PTZ"))
case("DEVICE-1-1-10", "imaging")(category_case("Imaging", "tt:Imaging"))


@case("DEVICE-1-1-2")
def all_capabilities(cam, f):
    answer = capabilities(cam, "All")
    for element in ("tt:Device", "tt:Media"):
        check(answer.all("tds:Capabilities/" + element), "%s missing" % element)


@case("DEVICE-1-1-9")
def soap_fault(cam, f):
    answer = cam.call("tds:GetCapabilities", "<tds:Category>NoSuchCategory</tds:Category>")
    check(answer.fault, "answered an invalid category: %s" % answer.text[-300:])


def services(cam, include):
    answer = cam.ok("tds:GetServices", "<tds:IncludeCapability>%s</tds:IncludeCapability>" % include)
    return {s.findtext("tds:Namespace", "", NS).strip(): s for s in answer.all("tds:Service")}


def get_services_case(name):
    namespace = SERVICE_NS[name]

    def run(cam, f):
        without = services(cam, "false")
        check(namespace in without, "%s missing from GetServices" % namespace)
        check(without[namespace].find("tds:Capabilities", NS) is None, "capabilities without IncludeCapability")
        withcaps = services(cam, "true")
        check(namespace in withcaps, "%s missing from GetServices" % namespace)
        holder = withcaps[namespace].find("tds:Capabilities", NS)
        check(holder is not None and len(holder), "no capabilities with IncludeCapability")
        check(holder[0].tag == "{%s}Capabilities" % namespace, "capabilities element %s" % holder[0].tag)
        check(withcaps[namespace].findtext("tds:XAddr", "", NS).startswith("http://127.0.0.1:%d/" % cam.port),
              "XAddr %s" % withcaps[namespace].findtext("tds:XAddr", "", NS))
    return run


case("DEVICE-1-1-13")(get_services_case("device"))
case("DEVICE-1-1-14", "media")(get_services_case("media"))
case("DEVICE-1-1-15", "ptz")(get_services_case("ptz"))
case("DEVICE-1-1-16", "events")(get_services_case("events"))
case("DEVICE-1-1-17", "imaging")(get_services_case("imaging"))


@case("DEVICE-1-1-18")
def device_service_capabilities(cam, f):
    answer = cam.ok("tds:GetServiceCapabilities")
    for part in ("tds:Network", "tds:Security", "tds:System"):
        check(answer.all("tds:Capabilities/" + part), "%s missing" % part)


def service_capabilities_agree(cam, namespace, op):
    """The capabilities GetServices carries for a service are the ones its GetServiceCapabilities gives."""
    listed = services(cam, "true")[namespace].find("tds:Capabilities", NS)[0]
    own = cam.ok(op).one("%s:Capabilities" % op.split(":")[0])
    check(sorted(listed.attrib.items()) == sorted(own.attrib.items()),
          "GetServices %s, GetServiceCapabilities %s" % (listed.attrib, own.attrib))
    for child in own:
        twin = listed.find(child.tag)
        check(twin is not None and sorted(twin.attrib.items()) == sorted(child.attrib.items()),
              "%s differs" % child.tag)


@case("DEVICE-1-1-19")
def device_capabilities_agree(cam, f):
    service_capabilities_agree(cam, NS["tds"], "tds:GetServiceCapabilities")


@case("DEVICE-1-1-30")
def services_and_capabilities(cam, f):
    listed = services(cam, "false")
    caps = capabilities(cam, "All")
    for name, element in (("media", "tt:Media"), ("ptz", "tt:PTZ"), ("imaging", "tt:Imaging"),
                          ("events", "tt:Events")):
        has_cap = bool(caps.all(".//%s/tt:XAddr" % element))
        check(has_cap == (SERVICE_NS[name] in listed), "%s: GetCapabilities %s, GetServices %s"
              % (name, has_cap, SERVICE_NS[name] in listed))
        if has_cap:
            check(caps.value(".//%s/tt:XAddr" % element) == listed[SERVICE_NS[name]].findtext("tds:XAddr", "", NS).strip(),
                  "%s addresses differ" % name)
    io = caps.all(".//tt:Extension/tt:DeviceIO/tt:XAddr")
    check(bool(io) == (NS["tmd"] in listed), "device IO: GetCapabilities %s, GetServices %s" % (bool(io), NS["tmd"] in listed))


@case("DEVICE-1-1-31")
def services_xaddr(cam, f):
    for namespace, service in services(cam, "false").items():
        address = service.findtext("tds:XAddr", "", NS).strip()
        check(address.startswith("http://127.0.0.1:%d/" % cam.port), "%s XAddr %s" % (namespace, address))
        check(service.find("tds:Version/tt:Major", NS) is not None, "%s has no version" % namespace)


def read_case(op, element):
    def run(cam, f):
        cam.ok(op).one(element)
    return run


case("DEVICE-2-1-1")(read_case("tds:GetHostname", "tds:HostnameInformation"))
case("DEVICE-2-1-4")(read_case("tds:GetDNS", "tds:DNSInformation"))
case("DEVICE-2-1-11")(read_case("tds:GetNTP", "tds:NTPInformation"))
case("DEVICE-2-1-17")(read_case("tds:GetNetworkInterfaces", "tds:NetworkInterfaces"))
case("DEVICE-2-1-25")(read_case("tds:GetNetworkDefaultGateway", "tds:NetworkGateway"))
case("DEVICE-2-1-33")(read_case("tds:GetNetworkProtocols", "tds:NetworkProtocols"))
case("DEVICE-3-1-9")(read_case("tds:GetDeviceInformation", "tds:Manufacturer"))
case("DEVICE-4-1-1")(read_case("tds:GetUsers", "tds:User"))


@case("DEVICE-2-1-3")
def invalid_hostname(cam, f):
    cam.refused("tds:SetHostname", "<tds:Name>Home$Network</tds:Name>", "Sender", "InvalidArgVal", "InvalidHostname")


@case("DEVICE-2-1-9")
def invalid_dns(cam, f):
    cam.refused("tds:SetDNS", "<tds:FromDHCP>false</tds:FromDHCP><tds:DNSManual><tt:Type>IPv4</tt:Type>"
                "<tt:IPv4Address>10.1.1</tt:IPv4Address></tds:DNSManual>", "Sender", "InvalidArgVal", "InvalidIPv4Address")


@case("DEVICE-2-1-15")
def invalid_ntp(cam, f):
    cam.refused("tds:SetNTP", "<tds:FromDHCP>false</tds:FromDHCP><tds:NTPManual><tt:Type>IPv4</tt:Type>"
                "<tt:IPv4Address>10.1.1</tt:IPv4Address></tds:NTPManual>", "Sender", "InvalidArgVal", "InvalidIPv4Address")


@case("DEVICE-2-1-28")
def invalid_gateway(cam, f):
    cam.refused("tds:SetNetworkDefaultGateway", "<tds:IPv4Address>10.1.1</tds:IPv4Address>",
                "Sender", "InvalidArgVal", "InvalidGatewayAddress")


@case("DEVICE-3-1-1")
def date_and_time(cam, f):
    answer = cam.ok("tds:GetSystemDateAndTime")
    check(answer.value(".//tt:DateTimeType") in ("Manual", "NTP"), "DateTimeType")
    check(answer.all(".//tt:UTCDateTime/tt:Date/tt:Year"), "no UTC date")


@case("DEVICE-3-1-4")
def invalid_timezone(cam, f):
    cam.refused("tds:SetSystemDateAndTime", "<tds:DateTimeType>Manual</tds:DateTimeType>"
                "<tds:DaylightSavings>false</tds:DaylightSavings><tds:TimeZone><tt:TZ>INVALID</tt:TZ></tds:TimeZone>"
                "<tds:UTCDateTime><tt:Time><tt:Hour>10</tt:Hour><tt:Minute>0</tt:Minute><tt:Second>0</tt:Second></tt:Time>"
                "<tt:Date><tt:Year>2026</tt:Year><tt:Month>1</tt:Month><tt:Day>1</tt:Day></tt:Date></tds:UTCDateTime>",
                "Sender", "InvalidArgVal", "InvalidTimeZone")


@case("DEVICE-3-1-5")
def invalid_date(cam, f):
    cam.refused("tds:SetSystemDateAndTime", "<tds:DateTimeType>Manual</tds:DateTimeType>"
                "<tds:DaylightSavings>false</tds:DaylightSavings>"
                "<tds:UTCDateTime><tt:Time><tt:Hour>30</tt:Hour><tt:Minute>61</tt:Minute><tt:Second>61</tt:Second></tt:Time>"
                "<tt:Date><tt:Year>2026</tt:Year><tt:Month>13</tt:Month><tt:Day>32</tt:Day></tt:Date></tds:UTCDateTime>",
                "Sender", "InvalidArgVal", "InvalidDateTime")


def user(name, password, level):
    return ("<tds:User><tt:Username>%s</tt:Username><tt:Password>%s</tt:Password><tt:UserLevel>%s</tt:UserLevel>"
            "</tds:User>" % (name, password, level))


def users(cam):
    return {u.findtext("tt:Username", "", NS): u.findtext("tt:UserLevel", "", NS)
            for u in cam.ok("tds:GetUsers").all("tds:User")}


@case("DEVICE-4-1-9")
def create_users(cam, f):
    cam.ok("tds:CreateUsers", user("Onvif1", "Pass1234", "User"))
    try:
        check(users(cam).get("Onvif1") == "User", "created user not listed")
    finally:
        cam.ok("tds:DeleteUsers", "<tds:Username>Onvif1</tds:Username>")


@case("DEVICE-4-1-3")
def create_existing_user(cam, f):
    cam.ok("tds:CreateUsers", user("Onvif2", "Pass1234", "User"))
    try:
        cam.refused("tds:CreateUsers", user("Onvif2", "Pass1234", "User"), "Sender", "OperationProhibited", "UsernameClash")
    finally:
        cam.ok("tds:DeleteUsers", "<tds:Username>Onvif2</tds:Username>")


@case("DEVICE-4-1-4")
def delete_users(cam, f):
    cam.ok("tds:CreateUsers", user("Onvif3", "Pass1234", "User"))
    cam.ok("tds:DeleteUsers", "<tds:Username>Onvif3</tds:Username>")
    check("Onvif3" not in users(cam), "deleted user listed")


@case("DEVICE-4-1-5")
def delete_missing_user(cam, f):
    cam.refused("tds:DeleteUsers", "<tds:Username>NoSuchUser9</tds:Username>", "Sender", "InvalidArgVal", "UsernameMissing")


@case("DEVICE-4-1-7")
def set_user(cam, f):
    cam.ok("tds:CreateUsers", user("Onvif4", "Pass1234", "User"))
    try:
        cam.ok("tds:SetUser", user("Onvif4", "Pass5678", "Operator"))
        check(users(cam).get("Onvif4") == "Operator", "level not changed")
    finally:
        cam.ok("tds:DeleteUsers", "<tds:Username>Onvif4</tds:Username>")


def relay_tokens(cam):
    return [r.get("token") for r in cam.ok("tds:GetRelayOutputs").all("tds:RelayOutputs")]


@case("DEVICE-5-1-1", "relays")
def relay_outputs(cam, f):
    check(relay_tokens(cam), "no relay outputs")


@case("DEVICE-5-1-2", "relays")
def relay_count(cam, f):
    count = f["capabilities"].value(".//tt:IO/tt:RelayOutputs")
    check(int(count) == len(relay_tokens(cam)), "capabilities say %s" % count)


def relay_settings(mode, delay, idle):
    return ("<tt:Mode>%s</tt:Mode><tt:DelayTime>%s</tt:DelayTime><tt:IdleState>%s</tt:IdleState>" % (mode, delay, idle))


@case("DEVICE-5-1-3", "relays")
def set_relay_settings(cam, f):
    token = relay_tokens(cam)[0]
    cam.ok("tds:SetRelayOutputSettings", "<tds:RelayOutputToken>%s</tds:RelayOutputToken><tds:Properties>%s"
           "</tds:Properties>" % (token, relay_settings("Bistable", "PT0S", "open")))


def relay_state_case(mode, idle, prefix):
    def run(cam, f):
        token = relay_tokens(cam)[0]
        op = prefix + ":SetRelayOutputSettings"
        holder = "tds:Properties" if prefix == "tds" else "tmd:RelayOutput"
        token_part = ("<tds:RelayOutputToken>%s</tds:RelayOutputToken>" % token if prefix == "tds"
                      else "")
        inner = relay_settings(mode, "PT1S" if mode == "Monostable" else "PT0S", idle)
        if prefix == "tds":
            cam.ok(op, token_part + "<%s>%s</%s>" % (holder, inner, holder))
        else:
            cam.ok(op, '<tmd:RelayOutput token="%s"><tt:Properties>%s</tt:Properties></tmd:RelayOutput>' % (token, inner))
        # The device IO service's SetRelayOutputState takes the device
        # service's element (deviceio.wsdl), at the device IO address.
        for state in ("active", "inactive"):
            cam.ok("tds:SetRelayOutputState", "<tds:RelayOutputToken>%s</tds:RelayOutputToken>"
                   "<tds:LogicalState>%s</tds:LogicalState>" % (token, state))
    return run


case("DEVICE-5-1-5", "relays")(relay_state_case("Bistable", "open", "tds"))
case("DEVICE-5-1-6", "relays")(relay_state_case("Bistable", "closed", "tds"))
case("DEVICE-5-1-7", "relays")(relay_state_case("Monostable", "open", "tds"))
case("DEVICE-5-1-8", "relays")(relay_state_case("Monostable", "closed", "tds"))


@case("DEVICE-5-1-11", "relays")
def relay_settings_invalid(cam, f):
    cam.refused("tds:SetRelayOutputSettings", "<tds:RelayOutputToken>NoSuchRelay</tds:RelayOutputToken><tds:Properties>%s"
                "</tds:Properties>" % relay_settings("Bistable", "PT0S", "open"), "Sender", "InvalidArgVal", "RelayToken")


@case("DEVICE-5-1-12", "relays")
def relay_state_invalid(cam, f):
    cam.refused("tds:SetRelayOutputState", "<tds:RelayOutputToken>NoSuchRelay</tds:RelayOutputToken>"
                "<tds:LogicalState>active</tds:LogicalState>", "Sender", "InvalidArgVal", "RelayToken")


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
not_applicable("the camera serves no recording, replay, receiver, access control, door control, security "
               "configuration, access rules, credential or schedule service",
               *["DEVICE-1-1-%d" % n for n in range(20, 30)])
not_applicable("the camera has no analytics service", "DEVICE-1-1-11")


# Setters: each sets a value, reads it back and puts the original back.
def server_setting_case(kind, request, read, wanted):
    """kind DNS or NTP: Set<kind> with the request's settings, the read path of Get<kind> holds wanted."""
    info = "tds:%sInformation" % kind

    def run(cam, f):
        before = cam.ok("tds:Get" + kind)
        cam.ok("tds:Set" + kind, request)
        got = [(e.text or "").strip() for e in cam.ok("tds:Get" + kind).all("%s/%s" % (info, read))]
        check(wanted in got, "%s %s: %s after setting %s" % (kind, read, got, wanted))
        manual = "".join("<tds:%sManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>%s</tt:IPv4Address></tds:%sManual>"
                         % (kind, a.text.strip(), kind) for a in before.all(info + "/tt:%sManual/tt:IPv4Address" % kind)
                         if a.text)
        cam.ok("tds:Set" + kind, "<tds:FromDHCP>%s</tds:FromDHCP>%s" % (before.value(info + "/tt:FromDHCP"), manual))
    return run


def manual_server(kind, address):
    return ("<tds:FromDHCP>false</tds:FromDHCP><tds:%sManual><tt:Type>IPv4</tt:Type><tt:IPv4Address>%s</tt:IPv4Address>"
            "</tds:%sManual>" % (kind, address, kind))


case("DEVICE-2-1-5")(server_setting_case("DNS", "<tds:FromDHCP>false</tds:FromDHCP><tds:SearchDomain>conformance.example"
                                         "</tds:SearchDomain>", "tt:SearchDomain", "conformance.example"))
case("DEVICE-2-1-6")(server_setting_case("DNS", manual_server("DNS", "10.1.1.1"), "tt:DNSManual/tt:IPv4Address", "10.1.1.1"))
case("DEVICE-2-1-8")(server_setting_case("DNS", "<tds:FromDHCP>true</tds:FromDHCP>", "tt:FromDHCP", "true"))
case("DEVICE-2-1-12")(server_setting_case("NTP", manual_server("NTP", "10.1.1.2"), "tt:NTPManual/tt:IPv4Address", "10.1.1.2"))
case("DEVICE-2-1-14")(server_setting_case("NTP", "<tds:FromDHCP>true</tds:FromDHCP>", "tt:FromDHCP", "true"))


@case("DEVICE-2-1-20")
def interface_invalid(cam, f):
    token = cam.ok("tds:GetNetworkInterfaces").one("tds:NetworkInterfaces").get("token")
    cam.refused("tds:SetNetworkInterfaces", "<tds:InterfaceToken>%s</tds:InterfaceToken><tds:NetworkInterface>"
                "<tt:Enabled>true</tt:Enabled><tt:IPv4><tt:Enabled>true</tt:Enabled><tt:Manual><tt:Address>10.1.1</tt:Address>"
                "<tt:PrefixLength>24</tt:PrefixLength></tt:Manual><tt:DHCP>false</tt:DHCP></tt:IPv4></tds:NetworkInterface>"
                % token, "Sender", "InvalidArgVal")


def one_value_case(name, read, field, value):
    """Set<name> with one field, Get<name> shows it at read; the value read before goes back."""
    def run(cam, f):
        before = cam.ok("tds:Get" + name).value(read)
        cam.ok("tds:Set" + name, "<tds:%s>%s</tds:%s>" % (field, value, field))
        got = cam.ok("tds:Get" + name).value(read)
        check(got == value, "%s %s after setting %s" % (name, got, value))
        if before:
            cam.ok("tds:Set" + name, "<tds:%s>%s</tds:%s>" % (field, before, field))
    return run


case("DEVICE-2-1-30")(one_value_case("NetworkDefaultGateway", "tds:NetworkGateway/tt:IPv4Address", "IPv4Address",
                                     "10.1.1.254"))
case("DEVICE-2-1-32")(one_value_case("Hostname", "tds:HostnameInformation/tt:Name", "Name", "conformance-host"))


def protocols(cam):
    return cam.ok("tds:GetNetworkProtocols").all("tds:NetworkProtocols")


@case("DEVICE-2-1-34")
def set_protocols(cam, f):
    listed = protocols(cam)
    body = "".join(ET.tostring(p, encoding="unicode") for p in listed)
    cam.ok("tds:SetNetworkProtocols", body)
    check(len(protocols(cam)) == len(listed), "protocols changed")


@case("DEVICE-2-1-35")
def unsupported_protocol(cam, f):
    names = [p.findtext("tt:Name", "", NS) for p in protocols(cam)]
    missing = [n for n in ("HTTP", "HTTPS", "RTSP") if n not in names]
    if missing:
        cam.refused("tds:SetNetworkProtocols", "<tds:NetworkProtocols><tt:Name>%s</tt:Name><tt:Enabled>true</tt:Enabled>"
                    "<tt:Port>8443</tt:Port></tds:NetworkProtocols>" % missing[0],
                    "Sender", "InvalidArgVal", "ServiceNotSupported")


@case("DEVICE-3-1-11")
def set_date_and_time(cam, f):
    before = cam.ok("tds:GetSystemDateAndTime")
    zone = before.value(".//tt:TimeZone/tt:TZ", "GMT0")
    cam.ok("tds:SetSystemDateAndTime", "<tds:DateTimeType>Manual</tds:DateTimeType>"
           "<tds:DaylightSavings>false</tds:DaylightSavings><tds:TimeZone><tt:TZ>%s</tt:TZ></tds:TimeZone>"
           "<tds:UTCDateTime><tt:Time><tt:Hour>10</tt:Hour><tt:Minute>20</tt:Minute><tt:Second>30</tt:Second></tt:Time>"
           "<tt:Date><tt:Year>2026</tt:Year><tt:Month>3</tt:Month><tt:Day>4</tt:Day></tt:Date></tds:UTCDateTime>" % zone)
    check(cam.ok("tds:GetSystemDateAndTime").value(".//tt:DateTimeType") == "Manual", "not manual")


@case("DEVICE-3-1-12")
def date_and_time_ntp(cam, f):
    cam.ok("tds:SetSystemDateAndTime", "<tds:DateTimeType>NTP</tds:DateTimeType>"
           "<tds:DaylightSavings>false</tds:DaylightSavings>")
    check(cam.ok("tds:GetSystemDateAndTime").value(".//tt:DateTimeType") == "NTP", "not NTP")
    now = time.gmtime()
    cam.ok("tds:SetSystemDateAndTime", "<tds:DateTimeType>Manual</tds:DateTimeType>"
           "<tds:DaylightSavings>false</tds:DaylightSavings><tds:UTCDateTime><tt:Time><tt:Hour>%d</tt:Hour>"
           "<tt:Minute>%d</tt:Minute><tt:Second>%d</tt:Second></tt:Time><tt:Date><tt:Year>%d</tt:Year>"
           "<tt:Month>%d</tt:Month><tt:Day>%d</tt:Day></tt:Date></tds:UTCDateTime>"
           % (now.tm_hour, now.tm_min, now.tm_sec, now.tm_year, now.tm_mon, now.tm_mday))


@case("DEVICE-4-1-8")
def user_errors(cam, f):
    cam.refused("tds:SetUser", user("NoSuchUser8", "Pass1234", "User"), "Sender", "InvalidArgVal", "UsernameMissing")


@case("DEVICE-5-1-9", "relays")
def monostable_early_inactive(cam, f):
    token = relay_tokens(cam)[0]
    cam.ok("tds:SetRelayOutputSettings", "<tds:RelayOutputToken>%s</tds:RelayOutputToken><tds:Properties>%s"
           "</tds:Properties>" % (token, relay_settings("Monostable", "PT10S", "open")))
    for state in ("active", "inactive"):
        cam.ok("tds:SetRelayOutputState", "<tds:RelayOutputToken>%s</tds:RelayOutputToken>"
               "<tds:LogicalState>%s</tds:LogicalState>" % (token, state))


for _id, _feature in (("DEVICE-2-1-36", "dynamic dns"), ("DEVICE-2-1-37", "dynamic dns"), ("DEVICE-3-1-10", "system log"),
                      ("DEVICE-3-1-13", "system uris"), ("DEVICE-4-1-10", "remote user"), ("DEVICE-4-1-11", "remote user"),
                      ("DEVICE-7-1-1", "ip filter"), ("DEVICE-7-1-2", "ip filter"), ("DEVICE-7-1-3", "ip filter"),
                      ("DEVICE-7-1-4", "ip filter"), ("DEVICE-3-1-14", "system backup"),
                      ("DEVICE-3-1-15", "system backup"), ("DEVICE-3-1-16", "firmware upload"),
                      ("DEVICE-3-1-17", "firmware upload"), ("DEVICE-8-1-1", "device aux")):
    case(_id, _feature)(uncoded(_feature))



def first_interface(cam):
    return cam.ok("tds:GetNetworkInterfaces").one("tds:NetworkInterfaces")


def set_ipv4(cam, token, address, prefix, dhcp):
    """SetNetworkInterfaces with the IPv4 part only, and the reboot it may ask for."""
    manual = ("<tt:Manual><tt:Address>%s</tt:Address><tt:PrefixLength>%s</tt:PrefixLength></tt:Manual>"
              % (address, prefix)) if address else ""
    answer = cam.ok("tds:SetNetworkInterfaces", "<tds:InterfaceToken>%s</tds:InterfaceToken><tds:NetworkInterface>"
                    "<tt:IPv4><tt:Enabled>true</tt:Enabled>%s<tt:DHCP>%s</tt:DHCP></tt:IPv4></tds:NetworkInterface>"
                    % (escape(token), manual, dhcp))
    if flag(answer.value("tds:RebootNeeded")):
        maintenance_case("tds:SystemReboot", "", "tds:Message", 1)(cam, None)


@case("DEVICE-2-1-18")
def set_interface_address(cam, f):
    """A new address in the interface's subnet, read back, then the original settings put back. The
    simulated camera keeps serving (and announcing) 127.0.0.1 whatever its settings say, so the flow
    goes on at the address it has and the Hello from the new address is not awaited."""
    original = first_interface(cam)
    token = original.get("token")
    address = original.findtext("tt:IPv4/tt:Config/tt:Manual/tt:Address", "", NS).strip() or \
        original.findtext("tt:IPv4/tt:Config/tt:FromDHCP/tt:Address", "", NS).strip()
    prefix = original.findtext("tt:IPv4/tt:Config/tt:Manual/tt:PrefixLength", "", NS).strip() or \
        original.findtext("tt:IPv4/tt:Config/tt:FromDHCP/tt:PrefixLength", "24", NS).strip()
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
        dhcp = original.findtext("tt:IPv4/tt:Config/tt:DHCP", "false", NS).strip()
        manual = original.findtext("tt:IPv4/tt:Config/tt:Manual/tt:Address", "", NS).strip()
        set_ipv4(cam, token, manual, prefix, dhcp)
    check(ET.tostring(first_interface(cam)) == ET.tostring(original), "the original settings did not come back")


@case("DEVICE-4-1-6")
def delete_all_users(cam, f):
    """Every listed user deleted, through a second administrator so the flow keeps a way in; the flow's own
    account is recreated afterwards with its password (the camera cannot tell it back)."""
    listed = users(cam)
    spare = Camera(cam.port, "Onvif6", "Pass1234")
    cam.ok("tds:CreateUsers", user(spare.user, spare.password, "Administrator"))
    deleted = []
    try:
        for name in listed:
            answer = spare.call("tds:DeleteUsers", "<tds:Username>%s</tds:Username>" % escape(name))
            if answer.fault:
                check(answer.subcodes()[:3] == ["Sender", "InvalidArgVal", "FixedUser"],
                      "deleting %s: %s" % (name, answer.summary()))
            else:
                check(answer.body.tag == q("tds:DeleteUsersResponse"), "deleting %s: %s" % (name, answer.summary()))
                deleted.append(name)
        left = users(spare)
        check(not any(name in left for name in deleted), "deleted users still listed: %s" % sorted(left))
    finally:
        if cam.user in deleted:
            spare.ok("tds:CreateUsers", user(cam.user, cam.password, listed[cam.user]))
        cam.ok("tds:DeleteUsers", "<tds:Username>%s</tds:Username>" % spare.user)


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
    running on that word, so the camera's return (its Hello) is not awaited here: the discovery cases play
    the responder's restart. After a soft reset the camera must still be found by a Probe."""
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


case("DEVICE-3-1-6")(maintenance_case("tds:SetSystemFactoryDefault", "<tds:FactoryDefault>Hard</tds:FactoryDefault>",
                                      None, 2))
case("DEVICE-3-1-7")(maintenance_case("tds:SetSystemFactoryDefault", "<tds:FactoryDefault>Soft</tds:FactoryDefault>",
                                      None, 3, probe_after=True))
case("DEVICE-3-1-8")(maintenance_case("tds:SystemReboot", "", "tds:Message", 1, probe_after=True))


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
