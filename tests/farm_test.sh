#!/bin/sh
# A farm of four simulated cameras end to end, on free loopback addresses and
# ports: one Probe finds them all with distinct identities and addresses, each
# answers with its own serial, a pan on one slides its picture and no other,
# the stream carries the configured H.264 profile,
# and the watch page in headless Chromium shows them all and its motion switch
# reaches a pull point of that camera. Nothing is left running.
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d /tmp/onvif-farm-XXXXXX)
sim=""
count=4
. "$top/tests/ports.sh"
camera_ports
# A /24 of the loopback range picked from the free port, so parallel runs differ.
net="127.$((port % 200 + 30)).$((rtsp_port % 250 + 1))"
farm="$work/farm"
shm="$top/build/onvif-shm"

cleanup() {
    trap - EXIT INT TERM
    if [ -n "$sim" ]; then
        kill -TERM "$sim" 2>/dev/null
        wait "$sim" 2>/dev/null
    fi
    rm -rf "$work"
}
trap cleanup EXIT INT TERM
fail() { echo "FAIL: $*"; cat "$work/log"; exit 1; }

[ -x "$top/build/rtsp-server" ] && [ -x "$top/build/sim-snapshot" ] || fail "stream server or snapshot program not built"
CAMERA_ROOT="$farm" ONVIF_FARM_NET="$net" ONVIF_PORT=$port ONVIF_RTSP_PORT=$rtsp_port \
    ONVIF_DISCOVERY_PORT=$discovery_port SKIP_SETUP=1 "$top/tools/simulated-camera.sh" --cameras $count > "$work/log" 2>&1 &
sim=$!

soap() {  # soap CAMERA BODY [HEADER]
    printf '%s' "<?xml version=\"1.0\" encoding=\"UTF-8\"?><s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" \
xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\" xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\" \
xmlns:tev=\"http://www.onvif.org/ver10/events/wsdl\" xmlns:tt=\"http://www.onvif.org/ver10/schema\"><s:Header>\
<wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\">\
<wsse:UsernameToken><wsse:Username>onvifuser</wsse:Username><wsse:Password Type=\"PasswordText\">onvif1234\
</wsse:Password></wsse:UsernameToken></wsse:Security>${3:-}</s:Header><s:Body>$2</s:Body></s:Envelope>" > "$work/request.$1"
    curl -s --max-time 30 -d @"$work/request.$1" "http://$net.$1:$port/onvif/device_service"
}

# --- Each camera answers with its own serial.
serials=""
for k in $(seq 1 $count); do
    answer=""
    for i in $(seq 1 150); do
        answer=$(curl -s -d @"$top/tools/sim/GetDeviceInformation.xml" "http://$net.$k:$port/onvif/device_service") \
            && [ -n "$answer" ] && break
        sleep 0.2
    done
    serial=$(echo "$answer" | sed -n 's|.*<tds:SerialNumber>\([^<]*\)<.*|\1|p')
    [ -n "$serial" ] || fail "camera $k: no serial: $answer"
    serials="$serials $serial"
done
[ "$(echo $serials | tr ' ' '\n' | sort -u | wc -l)" = $count ] || fail "serials not distinct:$serials"

# --- One Probe to the responder finds every discoverable camera, each from its
# own address; a camera made NonDiscoverable hides only itself.
probe() {  # probe CAMERA...: the cameras that must answer
    python3 - "$discovery_port" "$net" "$port" "$@" > "$work/probe" 2>&1 <<'PY' || fail "discovery: $(cat "$work/probe")"
import re, socket, sys, uuid
port, net, http = int(sys.argv[1]), sys.argv[2], sys.argv[3]
expected = [int(k) for k in sys.argv[4:]]
count = len(expected)
probe = ('<?xml version="1.0" encoding="UTF-8"?><e:Envelope xmlns:e="http://www.w3.org/2003/05/soap-envelope" '
         'xmlns:w="http://schemas.xmlsoap.org/ws/2004/08/addressing" xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery" '
         'xmlns:dn="http://www.onvif.org/ver10/network/wsdl"><e:Header><w:MessageID>uuid:%s</w:MessageID>'
         '<w:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</w:To>'
         '<w:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</w:Action></e:Header>'
         '<e:Body><d:Probe><d:Types>dn:NetworkVideoTransmitter</d:Types></d:Probe></e:Body></e:Envelope>' % uuid.uuid4())
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.bind(("127.0.0.1", 0))
s.settimeout(2)
s.sendto(probe.encode(), ("127.0.0.1", port))
found = {}
try:
    while len(found) < count:
        data, sender = s.recvfrom(65536)
        text = data.decode()
        endpoint = re.search(r"<wsa:Address>(urn:uuid:[^<]+)</wsa:Address>", text).group(1)
        xaddr = re.search(r"<wsd:XAddrs>([^<]+)</wsd:XAddrs>", text).group(1)
        name = re.search(r"onvif://www.onvif.org/name/(\S+)", text).group(1)
        found[sender[0]] = (endpoint, xaddr, name)
except socket.timeout:
    pass
want = {"%s.%d" % (net, k): "http://%s.%d:%s/onvif/device_service" % (net, k, http) for k in expected}
try:
    data, sender = s.recvfrom(65536)  # nobody more
    found[sender[0]] = ("", "", "")
except socket.timeout:
    pass
assert set(found) == set(want), "answered from %s" % sorted(found)
assert all(found[a][1] == want[a] for a in want), "XAddrs %s" % found
assert len({f[0] for f in found.values()}) == count, "endpoints not distinct: %s" % found
assert len({f[2] for f in found.values()}) == count, "names not distinct: %s" % found
PY
}
probe $(seq 1 $count)
hidden=$(soap $count "<tds:SetDiscoveryMode><tds:DiscoveryMode>NonDiscoverable</tds:DiscoveryMode></tds:SetDiscoveryMode>")
echo "$hidden" | grep -q SetDiscoveryModeResponse || fail "SetDiscoveryMode: $hidden"
probe $(seq 1 $((count - 1)))

# --- A pan to the right on camera 1 slides its picture left; the others stay.
snapshots() {  # snapshots SUFFIX: the sub-stream picture of every camera, as grey pixels
    for k in $(seq 1 $count); do
        curl -s -o "$work/cam$k.jpg" "http://$net.$k:$port/snapshot/ch3.jpg" || fail "camera $k: no snapshot"
        ffmpeg -v error -y -i "$work/cam$k.jpg" -f rawvideo -pix_fmt gray "$work/cam$k.$1" || fail "camera $k: snapshot no JPEG"
    done
}
shift_of() {  # shift_of K: how far camera K's picture content moved to the left, in pixels
    python3 - "$work/cam$1.before" "$work/cam$1.after" <<'PY'
import sys
w, h = 640, 360
def profile(path):
    data = open(path, "rb").read()
    assert len(data) == w * h, "picture is not 640x360"
    # Rows clear of the caption: the scene only.
    return [sum(data[y * w + x] for y in range(70, 300, 2)) / 115.0 for x in range(w)]
a, b = profile(sys.argv[1]), profile(sys.argv[2])
def cost(d):  # b[x] == a[x + d] when the content moved d pixels left
    xs = [x for x in range(w) if 0 <= x + d < w]
    return sum(abs(b[x] - a[x + d]) for x in xs) / len(xs)
print(min(range(-320, 321), key=cost))
PY
}
pan_of() { cut -d' ' -f1 "$farm/cam1/tmp/ptz_head_view" 2>/dev/null || echo 0; }
snapshots before
pan_before=$(pan_of)
moved=$(soap 1 "<tptz:ContinuousMove><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:Velocity>\
<tt:PanTilt x=\"0.3\" y=\"0\"/></tptz:Velocity><tptz:Timeout>PT1S</tptz:Timeout></tptz:ContinuousMove>")
echo "$moved" | grep -q ContinuousMoveResponse || fail "move refused: $moved"
for i in $(seq 1 50); do
    soap 1 "<tptz:GetStatus><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:GetStatus>" |
        grep -q '<tt:PanTilt>IDLE</tt:PanTilt>' && break
    sleep 0.2
done
snapshots after
pan_after=$(pan_of)
slid=$(shift_of 1) || fail "camera 1: $slid"
# The picture is 60 degrees wide over 640 pixels; 0.3 of 60 degrees per
# second for a second turns the head about 18 degrees.
expected=$(python3 -c "print(round(($pan_after - $pan_before) * 640 / 60))")
[ "$expected" -ge 100 ] || fail "camera 1's head turned from $pan_before to $pan_after only"
[ $((slid - expected)) -le 8 ] && [ $((expected - slid)) -le 8 ] ||
    fail "camera 1's picture moved $slid pixels left after the head turned right by $expected pixels' worth"
for k in $(seq 2 $count); do
    still=$(shift_of $k) || fail "camera $k: $still"
    [ "$still" -eq 0 ] || fail "camera $k's picture moved $still pixels without a move"
done

# --- The stream's H.264 profile is the encoder settings' (channel 2: Main).
profile=$(timeout 30 ffprobe -v error -rtsp_transport tcp -select_streams v:0 -show_entries stream=profile \
    -of csv=p=0 "rtsp://$net.2:$rtsp_port/live/ch2" 2>&1)
[ "$profile" = Main ] || fail "camera 2's channel 2 says Main and streams '$profile'"

# --- Only the loopback range: every listening socket of the farm.
listening=$(ss -Hlntu 2>/dev/null | awk '{print $5}' | grep -E ":($port|$rtsp_port|$discovery_port)\$")
echo "$listening" | grep -v -E '^(127\.[0-9.]+|239\.255\.255\.250):' && fail "listening outside loopback: $listening"

# --- The watch page: every camera, and a motion switch that a pull point hears.
created=$(soap 3 "<tev:CreatePullPointSubscription><tev:InitialTerminationTime>PT120S</tev:InitialTerminationTime></tev:CreatePullPointSubscription>")
subscription=$(echo "$created" | sed -n 's|.*<wsa5:Address>\([^<]*\)</wsa5:Address>.*|\1|p')
case "$subscription" in
    "http://$net.3:$port/"*) ;;
    *) fail "camera 3's pull point is not at its own address: $created" ;;
esac
to="<wsa:To xmlns:wsa=\"http://www.w3.org/2005/08/addressing\">$subscription</wsa:To>"
pull_body="<tev:PullMessages><tev:Timeout>PT2S</tev:Timeout><tev:MessageLimit>10</tev:MessageLimit></tev:PullMessages>"
soap 3 "$pull_body" "$to" | grep -q 'PropertyOperation="Initialized"' || fail "no initial states on camera 3"
if ! command -v chromium >/dev/null; then
    (. "$top/tools/packages.sh" && install_missing chromium) > "$work/chromium-install" 2>&1
fi
if ! command -v chromium >/dev/null; then
    echo "SKIP: the page needs headless Chromium (Debian package chromium), which could not be installed:"
    tail -3 "$work/chromium-install"
    exit 77
fi
timeout 100 python3 "$top/tests/page_check.py" "http://127.0.0.1:$port/" $count 3 "$work/chromium" > "$work/page" 2>&1 \
    || fail "page: $(cat "$work/page")"
for serial in $serials; do
    grep -q "serial $serial" "$work/page" || fail "page does not show $serial: $(cat "$work/page")"
done
pulled=$(soap 3 "$pull_body" "$to")
echo "$pulled" | grep -q 'Name="motion" Value="true"' || fail "camera 3's pull point got no motion from the page: $pulled"
[ "$(ONVIF_ROOT="$farm/cam3" "$shm" get MOTION_WORD)" = 1 ] || fail "camera 3's motion word not set"
[ "$(ONVIF_ROOT="$farm/cam2" "$shm" get MOTION_WORD)" = 0 ] || fail "camera 2's motion set by camera 3's switch"

# --- Stop: every process and segment gone.
kill -TERM $sim
wait $sim
sim=""
for k in $(seq 1 $count); do
    ONVIF_ROOT="$farm/cam$k" "$shm" get SERVICE_READY >/dev/null 2>&1 && fail "camera $k's segment left behind"
done
sleep 0.5
left=$(ps -eo pid,args | grep -F "$work" | grep -v grep)
[ -z "$left" ] || fail "left running: $left"
echo PASS
