#!/bin/sh
# The simulated camera as a client meets it, end to end on free loopback
# ports: the addresses it hands out, the RTSP channels and their new size
# after a settings change, the snapshot, discovery, a live motion event and a
# preset recalled at once.
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d /tmp/onvif-services-XXXXXX)
root="$work/root"
sim=""

. "$top/tests/ports.sh"
camera_ports

cleanup() {
    trap - EXIT INT TERM
    [ -n "${pull:-}" ] && kill "$pull" 2>/dev/null
    if [ -n "$sim" ]; then
        kill -TERM "$sim" 2>/dev/null
        wait "$sim" 2>/dev/null
    fi
    rm -rf "$work"
}
trap cleanup EXIT INT TERM
fail() { echo "FAIL: $*"; cat "$work/log"; exit 1; }
# An action the service should answer and does not fails the test.
skip() { fail "$*"; }

command -v ffprobe >/dev/null || fail "ffprobe missing (Debian package ffmpeg; tools/setup.sh installs it)"
[ -x "$top/build/rtsp-server" ] || fail "build/rtsp-server not built (libgstrtspserver-1.0-dev missing?)"

CAMERA_ROOT="$root" ONVIF_PORT=$port ONVIF_RTSP_PORT=$rtsp_port ONVIF_DISCOVERY_PORT=$discovery_port SKIP_SETUP=1 \
    "$top/tools/simulated-camera.sh" > "$work/log" 2>&1 &
sim=$!
url="http://127.0.0.1:$port/onvif/device_service"

# soap BODY [HEADER]: posts an authenticated request and prints the answer.
soap() {
    printf '%s' "<?xml version=\"1.0\" encoding=\"UTF-8\"?><s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" \
xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\" xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\" \
xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\" xmlns:tev=\"http://www.onvif.org/ver10/events/wsdl\" \
xmlns:wsnt=\"http://docs.oasis-open.org/wsn/b-2\" xmlns:tt=\"http://www.onvif.org/ver10/schema\"><s:Header>\
<wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\">\
<wsse:UsernameToken><wsse:Username>onvifuser</wsse:Username><wsse:Password Type=\"PasswordText\">onvif1234\
</wsse:Password></wsse:UsernameToken></wsse:Security>${2:-}</s:Header><s:Body>$1</s:Body></s:Envelope>" > "$work/request.$$"
    curl -s --max-time 70 -d @"$work/request.$$" "$url"
}
# An action the service does not answer yet gets the generic fault.
unanswered() { echo "$1" | grep -q 'ter:ActionNotSupported\|ter:Action<' ; }

answer=""
for i in $(seq 1 100); do
    answer=$(curl -s -d @"$top/tools/sim/GetDeviceInformation.xml" "$url") && [ -n "$answer" ] && break
    sleep 0.2
done
echo "$answer" | grep -q "GetDeviceInformationResponse" || fail "no device information: $answer"

# --- Addresses: every one names 127.0.0.1 and the ports in use.
caps=$(soap "<tds:GetCapabilities><tds:Category>All</tds:Category></tds:GetCapabilities>")
addresses=$(echo "$caps" | grep -o '<tt:XAddr>[^<]*</tt:XAddr>' | sed 's/<[^>]*>//g')
[ -n "$addresses" ] || fail "no capability addresses: $caps"
echo "$addresses" | grep -v -q '^http://127\.0\.0\.1' && fail "a capability address leaves the camera: $addresses"
if echo "$addresses" | grep -q "^http://127\.0\.0\.1/"; then
    skip "capability addresses carry no port yet"
else
    echo "$addresses" | grep -v -q "^http://127\.0\.0\.1:$port/" && fail "a capability address names another port: $addresses"
fi

stream_uri=$(soap "<trt:GetStreamUri><trt:StreamSetup><tt:Stream>RTP-Unicast</tt:Stream><tt:Transport><tt:Protocol>RTSP</tt:Protocol>\
</tt:Transport></trt:StreamSetup><trt:ProfileToken>Profile1</trt:ProfileToken></trt:GetStreamUri>")
if unanswered "$stream_uri"; then
    skip "GetStreamUri is not answered yet"
else
    uri=$(echo "$stream_uri" | sed -n 's|.*<tt:Uri>\([^<]*\)</tt:Uri>.*|\1|p')
    [ "$uri" = "rtsp://127.0.0.1:$rtsp_port/live/ch1" ] || fail "stream address $uri: $stream_uri"
fi
snapshot_uri=$(soap "<trt:GetSnapshotUri><trt:ProfileToken>Profile1</trt:ProfileToken></trt:GetSnapshotUri>")
if unanswered "$snapshot_uri"; then
    skip "GetSnapshotUri is not answered yet"
else
    uri=$(echo "$snapshot_uri" | sed -n 's|.*<tt:Uri>\([^<]*\)</tt:Uri>.*|\1|p')
    [ "$uri" = "http://127.0.0.1:$port/snapshot/ch1.jpg" ] || fail "snapshot address $uri: $snapshot_uri"
fi

# --- RTSP: each channel delivers what its encoder file holds.
probe() {  # probe CHANNEL: prints codec,width,height of the stream
    for attempt in 1 2 3; do
        result=$(timeout 30 ffprobe -v error -rtsp_transport tcp -select_streams v:0 \
            -show_entries stream=codec_name,width,height -of csv=p=0 "rtsp://127.0.0.1:$rtsp_port/live/ch$1" 2>/dev/null)
        [ -n "$result" ] && break
    done
    echo "$result"
}
expected() {  # expected CHANNEL: codec,width,height from the encoder file
    file="$root/tmp/onvif/VideoEncoder$1.VEncoder"
    codec=$(sed -n 's/^Encoding=//p' "$file")
    [ "$codec" = JPEG ] && codec=mjpeg || codec=h264
    echo "$codec,$(sed -n 's/^Resolution.Width=//p' "$file"),$(sed -n 's/^Resolution.Height=//p' "$file")"
}
for channel in 1 2 3 4; do
    got=$(probe $channel)
    want=$(expected $channel)
    [ "$got" = "$want" ] || fail "channel $channel delivers '$got', its encoder file says '$want'"
done
grep -q '^Encoding=JPEG' "$root/tmp/onvif/VideoEncoder4.VEncoder" || fail "no JPEG channel to check"

# A new size, then the restart program: new sessions get the new size.
sed -i 's/^Resolution.Width=.*/Resolution.Width=320/; s/^Resolution.Height=.*/Resolution.Height=180/' \
    "$root/tmp/onvif/VideoEncoder3.VEncoder"
ONVIF_ROOT="$root" SIM_TOOLS="$top/tools/sim" "$root/usr/apache/htdocs/cgi-bin/h264/restart_stream.cgi" \
    || fail "restart program stand-in failed"
grep -q 'h264/restart_stream.cgi' "$root/camera_calls.log" || fail "restart call not recorded"
got=$(probe 3)
[ "$got" = "h264,320,180" ] || fail "after the restart channel 3 delivers '$got'"

# The same through the media service, once it answers the setter: the
# second channel takes the third's factory size.
set_encoder=$(soap "<trt:SetVideoEncoderConfiguration><trt:Configuration token=\"VideoEncoder2\">\
<tt:Name>VideoEncoder2</tt:Name><tt:UseCount>1</tt:UseCount><tt:Encoding>H264</tt:Encoding>\
<tt:Resolution><tt:Width>640</tt:Width><tt:Height>360</tt:Height></tt:Resolution><tt:Quality>60</tt:Quality>\
<tt:RateControl><tt:FrameRateLimit>30</tt:FrameRateLimit><tt:EncodingInterval>1</tt:EncodingInterval>\
<tt:BitrateLimit>2048</tt:BitrateLimit></tt:RateControl><tt:H264><tt:GovLength>30</tt:GovLength>\
<tt:H264Profile>Main</tt:H264Profile></tt:H264><tt:Multicast><tt:Address><tt:Type>IPv4</tt:Type>\
<tt:IPv4Address>239.0.0.2</tt:IPv4Address></tt:Address><tt:Port>5562</tt:Port><tt:TTL>1</tt:TTL>\
<tt:AutoStart>false</tt:AutoStart></tt:Multicast><tt:SessionTimeout>PT60S</tt:SessionTimeout></trt:Configuration>\
<trt:ForcePersistence>true</trt:ForcePersistence></trt:SetVideoEncoderConfiguration>")
if unanswered "$set_encoder"; then
    skip "SetVideoEncoderConfiguration is not answered yet"
else
    echo "$set_encoder" | grep -q 'SetVideoEncoderConfigurationResponse' || fail "SetVideoEncoderConfiguration: $set_encoder"
    got=$(probe 2)
    [ "$got" = "h264,640,360" ] || fail "after SetVideoEncoderConfiguration channel 2 delivers '$got'"
fi

# --- Snapshot: a JPEG of the channel's size, through the web server.
curl -s -o "$work/snapshot.jpg" -w '%{http_code} %{content_type}' "http://127.0.0.1:$port/snapshot/ch1.jpg" > "$work/snapshot.status"
[ "$(cat "$work/snapshot.status")" = "200 image/jpeg" ] || fail "snapshot answered $(cat "$work/snapshot.status")"
[ "$(head -c 3 "$work/snapshot.jpg" | od -An -tx1 | tr -d ' \n')" = "ffd8ff" ] || fail "snapshot is no JPEG"
size=$(timeout 30 ffprobe -v error -show_entries stream=width,height -of csv=p=0 "$work/snapshot.jpg")
[ "$size" = "1920,1080" ] || fail "snapshot size $size"

# --- Discovery: a unicast Probe gets the camera's address, unless it is not discoverable.
discover() {
    python3 - "$discovery_port" <<'PY'
import socket, sys, uuid
probe = ('<?xml version="1.0" encoding="UTF-8"?><e:Envelope xmlns:e="http://www.w3.org/2003/05/soap-envelope" '
         'xmlns:w="http://schemas.xmlsoap.org/ws/2004/08/addressing" xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery" '
         'xmlns:dn="http://www.onvif.org/ver10/network/wsdl"><e:Header><w:MessageID>uuid:%s</w:MessageID>'
         '<w:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</w:To>'
         '<w:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</w:Action></e:Header>'
         '<e:Body><d:Probe><d:Types>dn:NetworkVideoTransmitter</d:Types></d:Probe></e:Body></e:Envelope>' % uuid.uuid4())
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
s.settimeout(3)
for attempt in range(3):
    s.sendto(probe.encode(), ("127.0.0.1", int(sys.argv[1])))
    try:
        print(s.recvfrom(65536)[0].decode())
        break
    except socket.timeout:
        pass
PY
}
match=$(discover)
echo "$match" | grep -q 'ProbeMatch>' || fail "no ProbeMatch: $match"
echo "$match" | grep -q "<wsd:XAddrs>http://127.0.0.1:$port/onvif/device_service</wsd:XAddrs>" || fail "ProbeMatch address: $match"
echo "$match" | grep -q 'onvif://www.onvif.org/name/IPCamera' || fail "ProbeMatch scopes: $match"
echo "$match" | grep -q 'dn:NetworkVideoTransmitter' || fail "ProbeMatch types: $match"
mode=$(soap "<tds:SetDiscoveryMode><tds:DiscoveryMode>NonDiscoverable</tds:DiscoveryMode></tds:SetDiscoveryMode>")
echo "$mode" | grep -q SetDiscoveryModeResponse || fail "SetDiscoveryMode: $mode"
match=$(discover)
[ -z "$match" ] || fail "answered while NonDiscoverable: $match"
soap "<tds:SetDiscoveryMode><tds:DiscoveryMode>Discoverable</tds:DiscoveryMode></tds:SetDiscoveryMode>" > /dev/null
echo "$(discover)" | grep -q 'ProbeMatch>' || fail "no ProbeMatch once discoverable again"

# --- Events: motion reaches a pending pull.
created=$(soap "<tev:CreatePullPointSubscription><tev:InitialTerminationTime>PT120S</tev:InitialTerminationTime></tev:CreatePullPointSubscription>")
subscription=$(echo "$created" | sed -n 's|.*<wsa5:Address>\([^<]*\)</wsa5:Address>.*|\1|p')
[ -n "$subscription" ] || fail "no pull point: $created"
case "$subscription" in
    "http://127.0.0.1/"*) skip "subscription address carries no port yet" ;;
    "http://127.0.0.1:$port/"*) ;;
    *) fail "subscription address leaves the camera: $subscription" ;;
esac
to="<wsa:To xmlns:wsa=\"http://www.w3.org/2005/08/addressing\">$subscription</wsa:To>"
pull_body="<tev:PullMessages><tev:Timeout>PT20S</tev:Timeout><tev:MessageLimit>10</tev:MessageLimit></tev:PullMessages>"
first=$(soap "$pull_body" "$to")
echo "$first" | grep -q 'PropertyOperation="Initialized"' || fail "first pull without initial states: $first"
soap "$pull_body" "$to" > "$work/pulled" &
pull=$!
# The pull is waiting on the event file once the service has extended the
# subscription; the event goes in after that or the next pull takes it.
sleep 1
ONVIF_ROOT="$root" "$top/tools/sim/event" motion on || fail "event tool failed"
wait $pull
pull=""
grep -q 'tns1:VideoSource/MotionAlarm</wsnt:Topic>' "$work/pulled" || fail "motion not pulled: $(cat "$work/pulled")"
grep -q 'PropertyOperation="Changed"' "$work/pulled" || fail "no Changed message: $(cat "$work/pulled")"
grep -q 'Name="motion" Value="true"' "$work/pulled" || fail "motion state not true: $(cat "$work/pulled")"
[ "$(ONVIF_ROOT="$root" "$top/build/onvif-shm" get MOTION_WORD)" = 1 ] || fail "motion word not set"
[ "$(ONVIF_ROOT="$root" "$top/build/onvif-shm" get EVENT_FILE_BUSY_WORD)" = 0 ] || fail "event file left busy"
ONVIF_ROOT="$root" "$top/tools/sim/event" input 2 on || fail "input event failed"
pulled=$(soap "$pull_body" "$to")
echo "$pulled" | grep -q 'Value="IO_Input2"' || fail "input not pulled: $pulled"

# --- Presets: recalled right after they are set.
for n in 1 2 3 4 5; do
    set_answer=$(soap "<tptz:SetPreset><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:PresetName>Spot$n</tptz:PresetName></tptz:SetPreset>")
    token=$(echo "$set_answer" | sed -n 's|.*<tptz:PresetToken>\([^<]*\)</tptz:PresetToken>.*|\1|p')
    [ -n "$token" ] || fail "SetPreset: $set_answer"
    goto=$(soap "<tptz:GotoPreset><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:PresetToken>$token</tptz:PresetToken></tptz:GotoPreset>")
    echo "$goto" | grep -q 'GotoPresetResponse' || fail "GotoPreset right after SetPreset $token: $goto"
done

# --- Stop: everything started is gone.
kill -TERM $sim
wait $sim
sim=""
ONVIF_ROOT="$root" "$top/build/onvif-shm" get SERVICE_READY 2>/dev/null && fail "segment left behind"
grep -q "simulated camera stopped" "$work/log" || fail "no clean stop"
kill -0 "$(cat "$root/tmp/rtsp_server.pid")" 2>/dev/null && fail "stream server left running"
echo PASS
