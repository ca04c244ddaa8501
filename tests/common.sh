# Sourced by the end-to-end shell tests: a work folder removed on exit, free loopback ports, a
# simulated camera started, awaited and stopped with nothing left behind, signed SOAP requests.
set -u
top=$(cd "$(dirname "$0")/.." && pwd)
build="${ONVIF_BUILD:-$top/build}"
shm="${ONVIF_EMULATOR:-} $build/onvif-shm"
work=$(mktemp -d "/tmp/onvif-$(basename "$0" .sh)-XXXXXX")
root="$work/root"
log="$work/log"
sim=""
more_cleanup() { :; }
cleanup() {
    trap - EXIT INT TERM
    if [ -n "$sim" ]; then
        kill -TERM "$sim" 2>/dev/null
        wait "$sim" 2>/dev/null
    fi
    more_cleanup
    [ -n "${KEEP_WORK:-}" ] || rm -rf "$work"
}
trap cleanup EXIT INT TERM
fail() { echo "FAIL: $*"; tail -30 "$log" 2>/dev/null; exit 1; }

# free_port tcp|udp: a port the kernel just handed out, so tests run beside each other.
free_port() {
    python3 -c 'import socket, sys
s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM if sys.argv[1] == "udp" else socket.SOCK_STREAM)
s.bind(("127.0.0.1", 0))
print(s.getsockname()[1])' "$1"
}

# start_camera [simulated-camera.sh options]: one camera (or a farm) in $root on free ports; the
# caller exports ONVIF_CONFORMANCE or ONVIF_FARM_NET when it needs them.
start_camera() {
    port=$(free_port tcp)
    rtsp_port=$(free_port tcp)
    while [ "$rtsp_port" = "$port" ]; do rtsp_port=$(free_port tcp); done
    discovery_port=$(free_port udp)
    url="http://${host:-127.0.0.1}:$port/onvif/device_service"
    CAMERA_ROOT="$root" ONVIF_PORT=$port ONVIF_RTSP_PORT=$rtsp_port ONVIF_DISCOVERY_PORT=$discovery_port SKIP_SETUP=1 \
        "$top/tools/simulated-camera.sh" "$@" > "$log" 2>&1 &
    sim=$!
}

# ready [URL]: the device information, asked until an answer comes (30 s), left in $answer.
ready() {
    for i in $(seq 1 150); do
        answer=$(curl -s --max-time 2 -d @"$top/tools/sim/GetDeviceInformation.xml" "${1:-$url}") && [ -n "$answer" ] && return 0
        sleep 0.2
    done
    fail "no answer at ${1:-$url}"
}

# envelope BODY [HEADER]: a request signed by the camera's ONVIF account, with the usual prefixes.
envelope() {
    printf '%s' "<?xml version=\"1.0\" encoding=\"UTF-8\"?><s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" \
xmlns:tds=\"http://www.onvif.org/ver10/device/wsdl\" xmlns:trt=\"http://www.onvif.org/ver10/media/wsdl\" \
xmlns:tptz=\"http://www.onvif.org/ver20/ptz/wsdl\" xmlns:tev=\"http://www.onvif.org/ver10/events/wsdl\" \
xmlns:tt=\"http://www.onvif.org/ver10/schema\"><s:Header>\
<wsse:Security xmlns:wsse=\"http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd\">\
<wsse:UsernameToken><wsse:Username>onvifuser</wsse:Username><wsse:Password Type=\"PasswordText\">onvif1234\
</wsse:Password></wsse:UsernameToken></wsse:Security>${2:-}</s:Header><s:Body>$1</s:Body></s:Envelope>"
}

# soap BODY [HEADER [URL]]: posts the signed request (to $url by default) and prints the answer.
soap() {
    request=$(mktemp "$work/request-XXXXXX")
    envelope "$1" "${2:-}" > "$request"
    curl -s --max-time 70 -d @"$request" "${3:-$url}"
}

# pull_point [URL]: a new pull point's address; pull PULL_POINT [URL]: its messages within 20 s.
pull_point() {
    soap "<tev:CreatePullPointSubscription><tev:InitialTerminationTime>PT120S</tev:InitialTerminationTime>\
</tev:CreatePullPointSubscription>" "" "${1:-$url}" | sed -n 's|.*<wsa5:Address>\([^<]*\)</wsa5:Address>.*|\1|p'
}
pull() {
    soap "<tev:PullMessages><tev:Timeout>PT20S</tev:Timeout><tev:MessageLimit>10</tev:MessageLimit></tev:PullMessages>" \
        "<wsa:To xmlns:wsa=\"http://www.w3.org/2005/08/addressing\">$1</wsa:To>" "${2:-$url}"
}

# stop_camera [ROOT...]: TERM, as Ctrl-C (a background job ignores INT); then no segment of the
# roots (default $root) and no process of the work folder may be left.
stop_camera() {
    kill -TERM "$sim"
    wait "$sim"
    sim=""
    grep -q "simulated camera stopped" "$log" || fail "no clean stop"
    [ $# -gt 0 ] || set -- "$root"
    for r in "$@"; do
        ONVIF_ROOT="$r" $shm get SERVICE_READY >/dev/null 2>&1 && fail "segment of $r left behind"
    done
    sleep 0.5
    left=$(ps -eo pid,args | grep -F "$work" | grep -v grep)
    [ -z "$left" ] || fail "left running: $left"
}
