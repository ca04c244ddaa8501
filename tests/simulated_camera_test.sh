#!/bin/sh
# The simulated camera end to end: starts it on a spare port, asks it for the
# device information with curl, stops it with Ctrl-C's signal and checks that
# its segment is gone.
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d /tmp/onvif-sim-XXXXXX)
. "$top/tests/ports.sh"
camera_ports
shm="${ONVIF_EMULATOR:-} ${ONVIF_BUILD:-$top/build}/onvif-shm"
CAMERA_ROOT="$work/root" ONVIF_PORT=$port ONVIF_RTSP_PORT=$rtsp_port ONVIF_DISCOVERY_PORT=$discovery_port SKIP_SETUP=1 "$top/tools/simulated-camera.sh" > "$work/log" 2>&1 &
sim=$!
fail() { echo "FAIL: $*"; cat "$work/log"; kill -TERM $sim 2>/dev/null; rm -rf "$work"; exit 1; }
answer=""
for i in $(seq 1 150); do
    answer=$(curl -s -d @"$top/tools/sim/GetDeviceInformation.xml" "http://127.0.0.1:$port/onvif/device_service") && [ -n "$answer" ] && break
    sleep 0.2
done
echo "$answer" | grep -q "<tds:Manufacturer>Camera</tds:Manufacturer>" || fail "no device information: $answer"
key=$(ONVIF_ROOT="$work/root" $shm get SERVICE_READY)
[ "$key" = "1" ] || fail "service ready word is '$key'"
kill -TERM $sim  # a background job ignores SIGINT; TERM takes the same way out
wait $sim
ONVIF_ROOT="$work/root" $shm get SERVICE_READY 2>/dev/null && fail "segment left behind"
grep -q "simulated camera stopped" "$work/log" || fail "no clean stop"
rm -rf "$work"
echo PASS
