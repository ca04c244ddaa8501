#!/bin/sh
# The simulated camera in the ONVIF mode asks for the camera's accounts on every path: the
# snapshot (HTTP digest or basic), the stream (RTSP digest, the credentials in the address as
# Home Assistant puts them), and follows a user the service creates.
. "$(dirname "$0")/common.sh"
command -v ffprobe >/dev/null || fail "ffprobe missing (Debian package ffmpeg; tools/setup.sh installs it)"
[ -x "$top/build/rtsp-server" ] && [ -x "$top/build/sim-snapshot" ] || { echo "SKIP: no stream server"; exit 77; }
export ONVIF_CONFORMANCE=onvif
start_camera
ready
code() { curl -s -o "$work/out" -w '%{http_code}' --max-time 10 "$@"; }
probe() { ffprobe -v error -rtsp_transport tcp -timeout 10000000 -show_entries stream=codec_name -of csv=p=0 "$1" 2>&1; }
# streams USER:PASSWORD: whether the stream plays for that account; the stream server reads the
# accounts every second.
streams() {
    for i in $(seq 1 10); do
        probe "rtsp://$1@127.0.0.1:$rtsp_port/live/ch1" | grep -q 'h264\|mjpeg' && return 0
        sleep 0.5
    done
    return 1
}
snapshot="http://127.0.0.1:$port/snapshot/ch1.jpg"
[ "$(code "$snapshot")" = 401 ] || fail "snapshot without credentials"
[ "$(code --digest -u admin:admin "$snapshot")" = 200 ] || fail "snapshot, digest"
[ "$(head -c 3 "$work/out" | od -An -tx1 | tr -d ' ')" = ffd8ff ] || fail "snapshot is no JPEG"
[ "$(code --basic -u onvifuser:onvif1234 "$snapshot")" = 200 ] || fail "snapshot, basic"
[ "$(code --digest -u admin:wrong "$snapshot")" = 401 ] || fail "snapshot, wrong password"
probe "rtsp://127.0.0.1:$rtsp_port/live/ch1" | grep -q 401 || fail "stream without credentials"
streams admin:admin || fail "stream with credentials"

# A user the service creates may watch at once.
cat > "$work/create" <<XML
<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope"><s:Body>\
<CreateUsers xmlns="http://www.onvif.org/ver10/device/wsdl"><User><Username xmlns="http://www.onvif.org/ver10/schema">\
watcher</Username><Password xmlns="http://www.onvif.org/ver10/schema">watch-1234</Password><UserLevel \
xmlns="http://www.onvif.org/ver10/schema">User</UserLevel></User></CreateUsers></s:Body></s:Envelope>
XML
[ "$(code --digest -u admin:admin -H 'Content-Type: application/soap+xml' --data-binary @"$work/create" "$url")" = 200 ] \
    || fail "CreateUsers: $(cat "$work/out")"
streams watcher:watch-1234 || fail "stream as the new user"
[ "$(code --digest -u watcher:watch-1234 "$snapshot")" = 200 ] || fail "snapshot as the new user"
echo PASS
