#!/bin/sh
# One client flow (tests/clients/FLOW, node or python) or the conformance flow (tests/conformance)
# against its own simulated camera, started and stopped here.
# usage: client_flow_test.sh FLOW|conformance [legacy|onvif]
flow="$1"
mode="${2:-legacy}"
. "$(dirname "$0")/common.sh"
case "$flow" in
    conformance)
        runner=/usr/bin/python3
        flow="$top/tests/conformance/run.py" ;;
    *.js)
        [ -d "$top/tests/clients/node_modules" ] && command -v node >/dev/null \
            || fail "node or tests/clients/node_modules missing (tools/setup.sh installs both)"
        runner=node ;;
    *.py)
        # Debian's python3 with Debian's zeep, whatever python3 is first on the path.
        runner=/usr/bin/python3
        $runner -c 'import zeep' 2>/dev/null || fail "zeep missing (Debian package python3-zeep; tools/setup.sh installs it)"
        # zeep reads the ONVIF WSDLs beside the project (or where ONVIF_SCHEMA_DIR says).
        schema="${ONVIF_SCHEMA_DIR:-$top/../shared/onvif-schema}"
        [ -d "$schema/onvif" ] || { echo "no ONVIF schema at $schema (set ONVIF_SCHEMA_DIR): flow skipped"; exit 77; } ;;
    *) fail "unknown flow $flow" ;;
esac

export ONVIF_CONFORMANCE="$mode"
start_camera
ready
grep -q "^Conformance.Mode=$mode\$" "$root/tmp/onvif/onvif.conf" || fail "the camera is not in the $mode mode"

# The flow gets four minutes, each of its steps less; with the start above
# the whole stays within the test's time limit, so the cleanup always runs.
(cd "$top/tests/clients" && exec env ONVIF_MODE="$mode" ONVIF_PORT=$port ONVIF_RTSP_PORT=$rtsp_port \
    ONVIF_DISCOVERY_PORT=$discovery_port CAMERA_ROOT="$root" ONVIF_TOP="$top" timeout 240 $runner "$flow")
status=$?
stop_camera
# device_service's standard error lands in the web server's logs: a sanitizer
# build's report there fails the flow even when the client got its answer.
grep -h -A20 "Sanitizer\|runtime error:" "$root/lighttpd-error.log" "$log" 2>/dev/null | head -60 | grep . \
    && fail "device_service reported a sanitizer error"
if [ "$status" -ne 0 ]; then
    [ -f "$root/tmp/onvif_error" ] && { echo "--- service error log"; tail -20 "$root/tmp/onvif_error"; }
    fail "the flow failed"
fi
echo PASS
