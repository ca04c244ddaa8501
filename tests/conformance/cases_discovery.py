"""Discovery test cases: Probes sent to the camera's discovery port on loopback, the discovery mode
and the scopes."""
import io
import os
import signal
import socket
import struct
import subprocess
import time
import uuid
import xml.etree.ElementTree as ET

from registry import case
from soap import NS, check, el
from cases_device import camera_word

PREFIXES = ("DISCOVERY-",)

WSD = "http://schemas.xmlsoap.org/ws/2005/04/discovery"
WSA = "http://schemas.xmlsoap.org/ws/2004/08/addressing"
DN = "http://www.onvif.org/ver10/network/wsdl"
PROBE = WSD + "/Probe"


def probe(body, prefixes=None, raw=False):
    """Sends one Probe to the camera's discovery port; the ProbeMatch elements of the answers in 2 s."""
    p = {"s": "s", "a": "a", "d": "d", "dn": "dn"}
    p.update(prefixes or {})
    envelope = ('<?xml version="1.0" encoding="UTF-8"?><{s}:Envelope xmlns:{s}="%s" xmlns:{a}="%s" xmlns:{d}="%s" '
                'xmlns:{dn}="%s"><{s}:Header><{a}:MessageID>urn:uuid:%s</{a}:MessageID>'
                '<{a}:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</{a}:To><{a}:Action>%s</{a}:Action>'
                '</{s}:Header><{s}:Body>%s</{s}:Body></{s}:Envelope>').format(**p) % (
        NS["s"], WSA, WSD, DN, uuid.uuid4(), PROBE, body.format(**p))
    answers = []
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as sock:
        sock.settimeout(2)
        sock.sendto(envelope.encode(), ("127.0.0.1", int(os.environ["ONVIF_DISCOVERY_PORT"])))
        while True:
            try:
                answers.append(ET.fromstring(sock.recvfrom(65536)[0]))
            except socket.timeout:
                break
    return answers if raw else [m for a in answers for m in a.findall(".//{%s}ProbeMatch" % WSD)]


def matched(cam, matches):
    check(matches, "no ProbeMatch")
    check(any(cam.url in (m.findtext("{%s}XAddrs" % WSD) or "").split() for m in matches), "no match names %s" % cam.url)
    for m in matches:
        check(m.find("{%s}EndpointReference/{%s}Address" % (WSA, WSA)) is not None, "match without endpoint address")


def probe_case(body, prefixes=None):
    return lambda cam, f: matched(cam, probe(body, prefixes))


TYPES = "<{d}:Probe><{d}:Types>{dn}:NetworkVideoTransmitter</{d}:Types></{d}:Probe>"
case("DISCOVERY-1-1-3")(probe_case("<{d}:Probe><{d}:Types>{dn}:NetworkVideoTransmitter</{d}:Types>"
                                   "<{d}:Scopes>onvif://www.onvif.org/type</{d}:Scopes></{d}:Probe>"))
case("DISCOVERY-1-1-4")(probe_case("<{d}:Probe/>"))
case("DISCOVERY-1-1-6")(probe_case(TYPES))
case("DISCOVERY-2-1-1")(probe_case(TYPES))
case("DISCOVERY-2-1-2")(probe_case('<Probe xmlns="%s"><Types xmlns:dp0="%s">dp0:NetworkVideoTransmitter</Types></Probe>'
                                   % (WSD, DN)))
case("DISCOVERY-2-1-3")(probe_case(TYPES, {"s": "env1", "a": "add1", "d": "disc1", "dn": "net1"}))
case("DISCOVERY-2-1-4")(probe_case('<{d}:Probe><dd:Types xmlns:dd="%s">{dn}:NetworkVideoTransmitter</dd:Types></{d}:Probe>'
                                   % WSD))
case("DISCOVERY-2-1-5")(probe_case('<{d}:Probe><{d}:Types xmlns:d9="%s">d9:NetworkVideoTransmitter</{d}:Types></{d}:Probe>'
                                   % DN))


@case("DISCOVERY-1-1-5")
def invalid_probe(cam, f):
    check(not probe('<{d}:Probe><{d}:Types xmlns:i="http://www.onvif.org/invalid">i:Invalid</{d}:Types>'
                    "<{d}:Scopes>onvif://www.onvif.org/invalid/scope</{d}:Scopes></{d}:Probe>"),
          "answered a Probe for another device type")


@case("DISCOVERY-1-1-9")
def discovery_mode(cam, f):
    cam.ok("tds:SetDiscoveryMode", el("tds:DiscoveryMode", "NonDiscoverable"))
    try:
        check(cam.ok("tds:GetDiscoveryMode").value("tds:DiscoveryMode") == "NonDiscoverable", "mode not kept")
        check(not probe(TYPES), "answered while not discoverable")
    finally:
        cam.ok("tds:SetDiscoveryMode", el("tds:DiscoveryMode", "Discoverable"))
    matched(cam, probe(TYPES))


@case("DISCOVERY-1-1-11")
def scopes(cam, f):
    scope = "onvif://www.onvif.org/location/conformance"
    cam.ok("tds:AddScopes", el("tds:ScopeItem", scope))
    try:
        listed = [s.text.strip() for s in cam.ok("tds:GetScopes").all("tds:Scopes/tt:ScopeItem")]
        check(scope in listed, "added scope not listed")
        matched(cam, probe("<{d}:Probe><{d}:Scopes>%s</{d}:Scopes></{d}:Probe>" % scope))
    finally:
        cam.ok("tds:RemoveScopes", el("tds:ScopeItem", scope))


@case("DISCOVERY-1-1-10")
def soap_fault(cam, f):
    answers = probe('<{d}:Probe><{d}:Scopes MatchBy="http://example.org/unknown">onvif://www.onvif.org/type'
                    "</{d}:Scopes></{d}:Probe>", raw=True)
    check(not any(a.findall(".//{%s}ProbeMatch" % WSD) for a in answers), "matched with an unknown MatchBy rule")
    codes = [v.text or "" for a in answers for v in a.iter("{%s}Value" % NS["s"])]
    check(any(c.endswith(":MatchingRuleNotSupported") for c in codes), "no MatchingRuleNotSupported fault: %s" % codes)


GROUP = "239.255.255.250"


def group_listener(port):
    """A socket in the discovery group on the loopback interface, at the given port."""
    sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    sock.bind((GROUP, port))
    sock.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                    struct.pack("4s4s", socket.inet_aton(GROUP), socket.inet_aton("127.0.0.1")))
    return sock


def announcement(sock, kind, wait=10):
    """The first Hello or Bye heard in the group within the wait, as (root element, namespace prefixes), or None."""
    ends = time.time() + wait
    while time.time() < ends:
        sock.settimeout(max(0.1, ends - time.time()))
        try:
            data, _ = sock.recvfrom(65536)
        except socket.timeout:
            return None
        prefixes = {}
        for _, (prefix, uri) in ET.iterparse(io.BytesIO(data), events=("start-ns",)):
            prefixes.setdefault(prefix, uri)
        root = ET.fromstring(data)
        if root.find(".//{%s}%s" % (WSD, kind)) is not None:
            return root.find(".//{%s}%s" % (WSD, kind)), prefixes
    return None


def rebooted(cam):
    """SystemReboot with the camera's restart played around it (the simulated camera stays up): the flow
    runs the discovery process on a port of its own, stops it and starts it again; the Bye and the Hello heard."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as free:  # a free port for the discovery process
        free.bind(("127.0.0.1", 0))
        port = free.getsockname()[1]
    listener = group_listener(port)
    responder = os.path.join(os.environ["ONVIF_TOP"], "tools", "sim", "discovery")
    env = dict(os.environ, ONVIF_ROOT=os.environ["CAMERA_ROOT"], ONVIF_DISCOVERY_PORT=str(port))

    start = lambda: subprocess.Popen([responder, str(cam.port)], env=env, stdout=subprocess.DEVNULL)  # noqa: E731

    def stop(process):
        process.send_signal(signal.SIGTERM)
        process.wait(timeout=20)

    running = start()
    try:
        check(announcement(listener, "Hello"), "the discovery process said no Hello on start")
        camera_word("MAINTENANCE_WORD", 0)
        check(cam.ok("tds:SystemReboot").value("tds:Message"), "SystemRebootResponse without a message")
        check(camera_word("MAINTENANCE_WORD") == 1, "no reboot command word")
        camera_word("MAINTENANCE_WORD", 0)
        stop(running)
        bye = announcement(listener, "Bye")
        running = start()
        return bye, announcement(listener, "Hello")
    finally:
        if running.poll() is None:
            stop(running)
        listener.close()


def endpoint(element):
    return (element.findtext("{%s}EndpointReference/{%s}Address" % (WSA, WSA)) or "").strip()


@case("DISCOVERY-1-1-2")
def hello(cam, f):
    _, heard = rebooted(cam)
    check(heard, "no Hello after the reboot")
    message, prefixes = heard
    check(endpoint(message), "Hello without an endpoint address")
    check(message.find("{%s}MetadataVersion" % WSD) is not None, "Hello without a metadata version")
    types = (message.findtext("{%s}Types" % WSD) or "").split()
    check(any(t.partition(":")[2] == "NetworkVideoTransmitter" and prefixes.get(t.partition(":")[0]) == DN
              for t in types), "Hello types %s lack %s's NetworkVideoTransmitter" % (types, DN))
    scopes = (message.findtext("{%s}Scopes" % WSD) or "").split()
    for kind in ("type", "location", "hardware", "name"):
        check(any(s.startswith("onvif://www.onvif.org/%s/" % kind) for s in scopes), "Hello without a %s scope" % kind)
    check(cam.url in (message.findtext("{%s}XAddrs" % WSD) or "").split(), "Hello does not name %s" % cam.url)


@case("DISCOVERY-1-1-8")
def bye(cam, f):
    heard, hello_after = rebooted(cam)
    check(heard, "no Bye before the reboot")
    check(endpoint(heard[0]) and hello_after and endpoint(heard[0]) == endpoint(hello_after[0]),
          "the Bye names another endpoint than the camera's Hello")
