#!/bin/sh
# The simulated camera's PTZ head (also under the ARM emulator): a continuous move with a
# timeout makes GetStatus report MOVING, then IDLE at a new position once the timeout is over.
. "$(dirname "$0")/common.sh"
start_camera
ready
status() { soap "<tptz:GetStatus><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:GetStatus>"; }
pan() { echo "$1" | sed -n 's/.*PositionGenericSpace" y="[^"]*" x="\([^"]*\)".*/\1/p'; }
# wait_for STATE: GetStatus until the head reports it (30 s), left in $answer.
wait_for() {
    for i in $(seq 1 150); do
        answer=$(status)
        echo "$answer" | grep -q "<tt:PanTilt>$1</tt:PanTilt>" && return 0
        sleep 0.2
    done
    fail "head never $1: $answer"
}
wait_for IDLE
before=$(pan "$answer")
moved=$(soap "<tptz:ContinuousMove><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:Velocity>\
<tt:PanTilt x=\"0.5\" y=\"0\"/></tptz:Velocity><tptz:Timeout>PT2S</tptz:Timeout></tptz:ContinuousMove>")
echo "$moved" | grep -q 'ContinuousMoveResponse' || fail "move refused: $moved"
wait_for MOVING
wait_for IDLE
after=$(pan "$answer")
[ -n "$after" ] && [ "$after" != "$before" ] || fail "position did not change ($before -> $after)"
stop_camera
echo PASS
