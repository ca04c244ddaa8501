#!/bin/sh
# The discovery responder alone, on a free port of its own: Hello on start,
# a Probe sent to the discovery group on the loopback interface answered,
# Probes for other types or scopes left unanswered, Bye on stop. Where the
# host keeps the loopback interface out of multicast, the group part is
# skipped and only the unicast part runs.
. "$(dirname "$0")/common.sh"
cp -a "$top/factory/." "$root/"
python3 - "$top/tools/sim/discovery" "$root" "$(free_port udp)" <<'PY' || exit 1
import os, socket, struct, subprocess, sys, uuid

program, root, port = sys.argv[1], sys.argv[2], int(sys.argv[3])
GROUP = "239.255.255.250"


def probe(types="", scopes=""):
    body = "<d:Probe>%s%s</d:Probe>" % (
        "<d:Types>%s</d:Types>" % types if types else "", "<d:Scopes>%s</d:Scopes>" % scopes if scopes else "")
    return ('<e:Envelope xmlns:e="http://www.w3.org/2003/05/soap-envelope" '
            'xmlns:w="http://schemas.xmlsoap.org/ws/2004/08/addressing" '
            'xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery" xmlns:dn="http://www.onvif.org/ver10/network/wsdl" '
            'xmlns:x="urn:other"><e:Header><w:MessageID>uuid:%s</w:MessageID></e:Header><e:Body>%s</e:Body></e:Envelope>'
            % (uuid.uuid4(), body)).encode()


def ask(sock, message, to):
    sock.sendto(message, to)
    try:
        return sock.recvfrom(65536)[0].decode()
    except socket.timeout:
        return ""


def fail(text):
    print("FAIL:", text)
    sys.exit(1)


listener = None
try:
    listener = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind((GROUP, port))
    listener.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP,
                        struct.pack("4s4s", socket.inet_aton(GROUP), socket.inet_aton("127.0.0.1")))
    listener.settimeout(5)
except OSError:
    listener = None
    print("SKIP: this host keeps the loopback interface out of multicast")

responder = subprocess.Popen([program, "18080"], env=dict(os.environ, ONVIF_ROOT=root, ONVIF_DISCOVERY_PORT=str(port)),
                             stdout=subprocess.PIPE, text=True)
try:
    ready = responder.stdout.readline()
    if "udp://127.0.0.1:%d" % port not in ready:
        fail("responder did not start: " + ready)
    client = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    client.settimeout(2)
    client.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_IF, socket.inet_aton("127.0.0.1"))
    client.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 0)
    unicast = ("127.0.0.1", port)

    if listener and "group on loopback" in ready:
        hello = listener.recvfrom(65536)[0].decode()
        if "<wsd:Hello>" not in hello or "http://127.0.0.1:18080/onvif/device_service" not in hello:
            fail("no Hello with the address: " + hello)
        answer = ask(client, probe("dn:NetworkVideoTransmitter"), (GROUP, port))
        if "<wsd:ProbeMatch>" not in answer:
            fail("Probe to the group unanswered: " + answer)

    for message, answered, what in (
        (probe(), True, "a Probe without types or scopes"),
        (probe(scopes="onvif://www.onvif.org/name onvif://www.onvif.org/type/video_encoder"), True, "scopes the camera has"),
        (probe(scopes="onvif://www.onvif.org/name/Other"), False, "a scope the camera lacks"),
        (probe(scopes="onvif://www.onvif.org/nam"), False, "a scope that ends in the middle of a path segment"),
        (probe("x:Printer"), False, "another type"),
        (b"<not-xml", False, "a message that is no Probe"),
    ):
        got = ask(client, message, unicast)
        if ("<wsd:ProbeMatch>" not in got) if answered else got:
            fail("%s: %s" % (what, "unanswered" if answered else "answered " + got))

    responder.terminate()
    responder.wait(timeout=10)
    if listener and "group on loopback" in ready:
        while True:
            try:
                message = listener.recvfrom(65536)[0].decode()
            except socket.timeout:
                fail("no Bye on stop")
            if "<wsd:Bye>" in message:
                break
finally:
    if responder.poll() is None:
        responder.kill()
        responder.wait()
print("PASS")
PY
