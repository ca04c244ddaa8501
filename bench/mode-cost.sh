#!/bin/sh
# What reading the conformance mode costs a request: callgrind's instruction
# count of one GetDeviceInformation (build/device_service) with onvif.conf
# carrying no Conformance.Mode line, "legacy" and "onvif", and the part of it
# spent reading the mode (onvifMode, inclusive). Prints one table.
set -eu
cd "$(dirname "$0")/.."
top=$(pwd)
command -v valgrind >/dev/null || { echo "mode-cost: needs valgrind" >&2; exit 2; }
[ -x build/device_service ] || { echo "mode-cost: build build/ first" >&2; exit 2; }
work=$(mktemp -d /tmp/onvif-modecost-XXXXXX)
root="$work/root"
cleanup() { ONVIF_ROOT="$root" build/onvif-shm remove >/dev/null 2>&1 || true; rm -rf "$work"; }
trap cleanup INT TERM EXIT
cp -a factory/. "$root/" 2>/dev/null || { mkdir -p "$root"; cp -a factory/. "$root/"; }
ONVIF_ROOT="$root" build/onvif-shm create >/dev/null
ONVIF_ROOT="$root" build/onvif-shm set SERVICE_READY=1 >/dev/null
body="$top/bench/bodies/1-GetDeviceInformation.xml"
conf="$root/tmp/onvif/onvif.conf"
cp "$conf" "$work/onvif.conf"
instructions() {
    CONTENT_LENGTH=$(stat -c %s "$body") HOST=127.0.0.1 ONVIF_ROOT="$root" \
        valgrind --tool=callgrind --callgrind-out-file="$work/out" build/device_service <"$body" >/dev/null 2>&1
    total=$(callgrind_annotate "$work/out" 2>/dev/null | awk '/PROGRAM TOTALS/ { gsub(",", "", $1); print $1; exit }')
    mode=$(callgrind_annotate --inclusive=yes "$work/out" 2>/dev/null |
        awk '/onvifMode\(\)/ { gsub(",", "", $1); print $1; exit }')
    printf '%s | %s' "$total" "${mode:-0}"
}
printf '| onvif.conf | instructions | of which reading the mode |\n|---|---|---|\n'
grep -v '^Conformance.Mode=' "$work/onvif.conf" > "$conf"
printf '| no Conformance.Mode line | %s |\n' "$(instructions)"
for mode in legacy onvif; do
    { grep -v '^Conformance.Mode=' "$work/onvif.conf"; echo "Conformance.Mode=$mode"; } > "$conf"
    printf '| Conformance.Mode=%s | %s |\n' "$mode" "$(instructions)"
done
