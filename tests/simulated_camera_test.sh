#!/bin/sh
# The simulated camera (also under the ARM emulator): starts, answers the device information,
# has set its service word, and stops on Ctrl-C's signal with its segment gone.
. "$(dirname "$0")/common.sh"
start_camera
ready
echo "$answer" | grep -q "<tds:Manufacturer>Camera</tds:Manufacturer>" || fail "no device information: $answer"
[ "$(ONVIF_ROOT="$root" $shm get SERVICE_READY)" = 1 ] || fail "service ready word not set"
stop_camera
echo PASS
