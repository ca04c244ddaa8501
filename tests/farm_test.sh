#!/bin/sh
# A farm of four simulated cameras on loopback addresses of their own: one Probe finds them all
# with distinct identities and addresses, a pan slides the picture, the stream carries the
# configured H.264 profile, nothing listens outside loopback, and the watch page lists every camera.
. "$(dirname "$0")/common.sh"
count=4
# A /24 of the loopback range picked from the process id, so parallel runs differ.
export ONVIF_FARM_NET="127.$(($$ % 200 + 30)).$(($$ / 200 % 250 + 1))"
net=$ONVIF_FARM_NET
[ -x "$top/build/rtsp-server" ] && [ -x "$top/build/sim-snapshot" ] || fail "stream server or snapshot program not built"
start_camera --cameras $count
at() { echo "http://$net.$1:$port/onvif/device_service"; }

# --- Each camera answers with its own serial.
serials=""
for k in $(seq 1 $count); do
    ready "$(at $k)"
    serials="$serials $(echo "$answer" | sed -n 's|.*<tds:SerialNumber>\([^<]*\)<.*|\1|p')"
done
[ "$(echo $serials | tr ' ' '\n' | sort -u | wc -l)" = $count ] || fail "serials not distinct:$serials"

# --- One Probe finds every discoverable camera, each from its own address;
# a camera made NonDiscoverable hides only itself.
probe() {  # probe CAMERA...: the cameras that must answer
    python3 - "$discovery_port" "$net" "$port" "$@" > "$work/probe" 2>&1 <<'PY' || fail "discovery: $(cat "$work/probe")"
import re, socket, sys, uuid
port, net, http = int(sys.argv[1]), sys.argv[2], sys.argv[3]
want = {"%s.%s" % (net, k): "http://%s.%s:%s/onvif/device_service" % (net, k, http) for k in sys.argv[4:]}
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
    while True:  # every answer within 2 s, one more included
        text, (sender, _) = s.recvfrom(65536)
        text = text.decode()
        found[sender] = tuple(re.search(p, text).group(1) for p in (
            r"<wsa:Address>(urn:uuid:[^<]+)</wsa:Address>", r"<wsd:XAddrs>([^<]+)</wsd:XAddrs>", r"onvif://www.onvif.org/name/(\S+)"))
except socket.timeout:
    pass
assert set(found) == set(want), "answered from %s" % sorted(found)
assert all(found[a][1] == want[a] for a in want), "XAddrs %s" % found
assert len({f[0] for f in found.values()}) == len(want), "endpoints not distinct: %s" % found
assert len({f[2] for f in found.values()}) == len(want), "names not distinct: %s" % found
PY
}
probe $(seq 1 $count)
hidden=$(soap "<tds:SetDiscoveryMode><tds:DiscoveryMode>NonDiscoverable</tds:DiscoveryMode></tds:SetDiscoveryMode>" "" "$(at $count)")
echo "$hidden" | grep -q SetDiscoveryModeResponse || fail "SetDiscoveryMode: $hidden"
probe $(seq 1 $((count - 1)))

# --- A pan to the right on camera 1 slides its picture to the left.
gray() {  # gray NAME: camera 1's sub-stream picture, as grey pixels
    curl -s -o "$work/$1.jpg" "http://$net.1:$port/snapshot/ch3.jpg" || fail "no snapshot"
    ffmpeg -v error -y -i "$work/$1.jpg" -f rawvideo -pix_fmt gray "$work/$1" || fail "snapshot no JPEG"
}
gray before
moved=$(soap "<tptz:ContinuousMove><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:Velocity>\
<tt:PanTilt x=\"0.3\" y=\"0\"/></tptz:Velocity><tptz:Timeout>PT1S</tptz:Timeout></tptz:ContinuousMove>" "" "$(at 1)")
echo "$moved" | grep -q ContinuousMoveResponse || fail "move refused: $moved"
for i in $(seq 1 50); do
    soap "<tptz:GetStatus><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:GetStatus>" "" "$(at 1)" |
        grep -q '<tt:PanTilt>IDLE</tt:PanTilt>' && break
    sleep 0.2
done
gray after
# How far the scene (the rows clear of the caption) moved left, in pixels of 640.
slid=$(python3 - "$work/before" "$work/after" <<'PY'
import sys
pictures = [open(path, "rb").read() for path in sys.argv[1:]]
a, b = ([sum(p[y * 640 + x] for y in range(70, 300, 2)) for x in range(640)] for p in pictures)
cost = lambda d: sum(abs(b[x] - a[x + d]) for x in range(max(0, -d), min(640, 640 - d))) / (640 - abs(d))
print(min(range(-320, 321), key=cost))
PY
) || fail "picture: $slid"
[ "$slid" -ge 50 ] || fail "camera 1's picture moved $slid pixels left after a pan to the right"

# --- The stream's H.264 profile is the encoder settings' (channel 2: Main).
profile=$(timeout 30 ffprobe -v error -rtsp_transport tcp -select_streams v:0 -show_entries stream=profile \
    -of csv=p=0 "rtsp://$net.2:$rtsp_port/live/ch2" 2>&1)
[ "$profile" = Main ] || fail "camera 2's channel 2 says Main and streams '$profile'"

# --- Only the loopback range: every listening socket of the farm.
listening=$(ss -Hlntu 2>/dev/null | awk '{print $5}' | grep -E ":($port|$rtsp_port|$discovery_port)\$")
echo "$listening" | grep -v -E '^(127\.[0-9.]+|239\.255\.255\.250):' && fail "listening outside loopback: $listening"

# --- The watch page in headless Chromium lists every camera.
if ! command -v chromium >/dev/null; then
    (. "$top/tools/packages.sh" && install_missing chromium) > "$work/chromium-install" 2>&1
fi
if ! command -v chromium >/dev/null; then
    echo "SKIP: the page needs headless Chromium (Debian package chromium), which could not be installed:"
    tail -3 "$work/chromium-install"
    exit 77
fi
# Nothing but the page: no name lookups, no background traffic.
timeout 60 chromium --headless --no-sandbox --disable-gpu --user-data-dir="$work/chromium" --no-first-run \
    --disable-background-networking --disable-component-update --disable-sync --disable-dev-shm-usage \
    --host-resolver-rules="MAP * ~NOTFOUND, EXCLUDE 127.*" --no-proxy-server --virtual-time-budget=10000 \
    --dump-dom "http://127.0.0.1:$port/" > "$work/page" 2>/dev/null || fail "chromium failed"
for serial in $serials; do
    grep -q "serial $serial" "$work/page" || fail "page does not show $serial: $(head -c 600 "$work/page")"
done
stop_camera $(for k in $(seq 1 $count); do echo "$root/cam$k"; done)
echo PASS
