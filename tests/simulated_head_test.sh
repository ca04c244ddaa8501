#!/bin/sh
# The simulated camera's PTZ head end to end: a timed continuous move makes
# GetStatus report MOVING, and after the timeout IDLE at a new position.
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d /tmp/onvif-head-XXXXXX)
. "$top/tests/ports.sh"
camera_ports
CAMERA_ROOT="$work/root" ONVIF_PORT=$port ONVIF_RTSP_PORT=$rtsp_port ONVIF_DISCOVERY_PORT=$discovery_port SKIP_SETUP=1 "$top/tools/simulated-camera.sh" > "$work/log" 2>&1 &
sim=$!
fail() { echo "FAIL: $*"; cat "$work/log"; kill -TERM $sim 2>/dev/null; wait $sim; rm -rf "$work"; exit 1; }

soap() {
    printf '%s' "<?xml version=\"1.0\" encoding=\"UTF-8\"?><s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" \
xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\" xmlns:tt=\"http://www.onvif.org/ver10/schema\"><s:Header>\
<wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\">\
<wsse:UsernameToken><wsse:Username>onvifuser</wsse:Username><wsse:Password Type=\"PasswordText\">onvif1234
</wsse:Password></wsse:UsernameToken></wsse:Security></s:Header><s:Body>$1</s:Body></s:Envelope>" |
        cat > "$work/request"
    curl -s -d @"$work/request" "http://127.0.0.1:$port/onvif/device_service"
}
status() { soap "<tptz:GetStatus><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:GetStatus>"; }

for i in $(seq 1 150); do
    answer=$(status) && [ -n "$answer" ] && break
    sleep 0.2
done
echo "$answer" | grep -q '<tt:PanTilt>IDLE</tt:PanTilt>' || fail "head not idle at start: $answer"
before=$(echo "$answer" | sed -n 's/.*PositionGenericSpace" y="[^"]*" x="\([^"]*\)".*/\1/p')

moved=$(soap "<tptz:ContinuousMove><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:Velocity>\
<tt:PanTilt x=\"0.5\" y=\"0\"/></tptz:Velocity><tptz:Timeout>PT2S</tptz:Timeout></tptz:ContinuousMove>")
echo "$moved" | grep -q 'ContinuousMoveResponse' || fail "move refused: $moved"
sleep 0.5
status | grep -q '<tt:PanTilt>MOVING</tt:PanTilt>' || fail "not moving during the timeout"
sleep 2.5
answer=$(status)
echo "$answer" | grep -q '<tt:PanTilt>IDLE</tt:PanTilt>' || fail "still moving after the timeout: $answer"
after=$(echo "$answer" | sed -n 's/.*PositionGenericSpace" y="[^"]*" x="\([^"]*\)".*/\1/p')
[ -n "$after" ] && [ "$after" != "$before" ] || fail "position did not change ($before -> $after)"

kill -TERM $sim
wait $sim
rm -rf "$work"
echo PASS
