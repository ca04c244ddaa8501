#!/bin/sh
# One client flow (tests/clients/FLOW, node or python) against its own simulated camera on free
# loopback ports, started and stopped here; or the conformance flow (tests/conformance).
# usage: client_flow_test.sh FLOW|conformance [legacy|onvif]
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
flow="$1"
mode="${2:-legacy}"
work=$(mktemp -d /tmp/onvif-client-XXXXXX)
root="$work/root"
build="${ONVIF_BUILD:-$top/build}"
sim=""
client=""

. "$top/tests/ports.sh"
camera_ports

cleanup() {
    trap - EXIT INT TERM
    [ -n "$client" ] && kill "$client" 2>/dev/null
    if [ -n "$sim" ]; then
        kill -TERM "$sim" 2>/dev/null
        wait "$sim" 2>/dev/null
    fi
    rm -rf "$work"
}
trap cleanup EXIT INT TERM
fail() { echo "FAIL: $*"; cat "$work/log" 2>/dev/null; exit 1; }

case "$flow" in
    conformance)
        runner=/usr/bin/python3
        flow="$top/tests/conformance/run.py" ;;
    *.js)
        command -v node >/dev/null || fail "node missing (Debian package nodejs; tools/setup.sh installs it)"
        [ -d "$top/tests/clients/node_modules" ] || fail "tests/clients/node_modules missing: run 'npm ci' there (tools/setup.sh does)"
        runner=node ;;
    *.py)
        /usr/bin/python3 -c 'import zeep' 2>/dev/null || fail "zeep missing (Debian package python3-zeep; tools/setup.sh installs it)"
        # zeep reads the ONVIF WSDLs beside the project (or where ONVIF_SCHEMA_DIR says).
        schema="${ONVIF_SCHEMA_DIR:-$top/../shared/onvif-schema}"
        if [ ! -d "$schema/onvif" ]; then
            echo "no ONVIF schema at $schema (set ONVIF_SCHEMA_DIR): flow skipped"
            exit 77
        fi
        # Debian's python3 with Debian's zeep, whatever python3 is first on the path.
        runner=/usr/bin/python3 ;;
    *) fail "unknown flow $flow" ;;
esac

ONVIF_CONFORMANCE="$mode" ONVIF_BUILD="$build" CAMERA_ROOT="$root" ONVIF_PORT=$port ONVIF_RTSP_PORT=$rtsp_port ONVIF_DISCOVERY_PORT=$discovery_port SKIP_SETUP=1 \
    "$top/tools/simulated-camera.sh" > "$work/log" 2>&1 &
sim=$!
url="http://127.0.0.1:$port/onvif/device_service"
answer=""
for i in $(seq 1 50); do
    answer=$(curl -s --max-time 2 -d @"$top/tools/sim/GetDeviceInformation.xml" "$url") && [ -n "$answer" ] && break
    sleep 0.2
done
# In the ONVIF mode the question needs credentials: the camera's own account, by HTTP digest.
if echo "$answer" | grep -q "ter:NotAuthorized"; then
    answer=$(curl -s --max-time 5 --digest -u admin:admin -d @"$top/tools/sim/GetDeviceInformation.xml" "$url")
fi
echo "$answer" | grep -q "GetDeviceInformationResponse" || fail "the simulated camera did not answer: $answer"
grep -q "^Conformance.Mode=$mode\$" "$root/tmp/onvif/onvif.conf" || fail "the camera is not in the $mode mode"

# The flow gets four minutes, each of its steps less; with the start above
# the whole stays within the test's time limit, so the cleanup always runs.
(cd "$top/tests/clients" && exec env ONVIF_MODE="$mode" ONVIF_DISCOVERY_PORT=$discovery_port ONVIF_PORT=$port ONVIF_RTSP_PORT=$rtsp_port CAMERA_ROOT="$root" ONVIF_TOP="$top" \
    timeout 240 $runner "$flow") &
client=$!
wait "$client"
status=$?
client=""

kill -TERM "$sim"
wait "$sim"
sim=""
ONVIF_ROOT="$root" "$build/onvif-shm" get SERVICE_READY 2>/dev/null && fail "segment left behind"
grep -q "simulated camera stopped" "$work/log" || fail "no clean stop"
# device_service's standard error lands in the web server's logs: a sanitizer
# build's report there fails the flow even when the client got its answer.
for log in "$root/lighttpd-error.log" "$work/log"; do
    if grep -q "Sanitizer\|runtime error:" "$log" 2>/dev/null; then
        grep -A20 "Sanitizer\|runtime error:" "$log" | head -60
        fail "device_service reported a sanitizer error"
    fi
done
if [ "$status" -ne 0 ]; then
    echo "--- simulated camera log"
    cat "$work/log"
    [ -f "$root/tmp/onvif_error" ] && { echo "--- service error log"; tail -20 "$root/tmp/onvif_error"; }
    exit 1
fi
echo PASS
