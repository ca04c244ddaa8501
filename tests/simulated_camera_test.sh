#!/bin/sh
# The simulated camera (also under the ARM emulator): starts, answers the device information with
# its service word set, a continuous move with a timeout makes GetStatus report MOVING and then
# IDLE at a new position, and it stops on Ctrl-C's signal with nothing left behind.
. "$(dirname "$0")/common.sh"
start_camera
ready
echo "$answer" | grep -q "<tds:Manufacturer>Camera</tds:Manufacturer>" || fail "no device information: $answer"
[ "$(ONVIF_ROOT="$root" $shm get SERVICE_READY)" = 1 ] || fail "service ready word not set"

pan() { echo "$answer" | sed -n 's/.*PositionGenericSpace" y="[^"]*" x="\([^"]*\)".*/\1/p'; }
# head_is STATE: GetStatus until the head reports it (30 s), left in $answer.
head_is() {
    for i in $(seq 1 150); do
        answer=$(soap "<tptz:GetStatus><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:GetStatus>")
        echo "$answer" | grep -q "<tt:PanTilt>$1</tt:PanTilt>" && return 0
        sleep 0.2
    done
    fail "head never $1: $answer"
}
head_is IDLE
before=$(pan)
moved=$(soap "<tptz:ContinuousMove><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:Velocity>\
<tt:PanTilt x=\"0.5\" y=\"0\"/></tptz:Velocity><tptz:Timeout>PT2S</tptz:Timeout></tptz:ContinuousMove>")
echo "$moved" | grep -q 'ContinuousMoveResponse' || fail "move refused: $moved"
head_is MOVING
head_is IDLE
[ -n "$(pan)" ] && [ "$(pan)" != "$before" ] || fail "position did not change ($before -> $(pan))"
stop_camera
echo PASS
