#!/bin/sh
# Starts the simulated camera: a fresh camera root from factory/ under
# build/camera-root, its device-state segment with the words of a typical
# camera, and lighttpd on 127.0.0.1:8080 running device_service as the CGI
# program of POST /onvif/device_service. Runs in the foreground; Ctrl-C stops
# it and removes the segment.
set -eu
cd "$(dirname "$0")/.."
top=$(pwd)
[ -n "${SKIP_SETUP:-}" ] || tools/setup.sh

root="${CAMERA_ROOT:-$top/build/camera-root}"
port="${ONVIF_PORT:-8080}"
rm -rf "$root"
mkdir -p "$root"
cp -a factory/. "$root/"
# Stand-ins for the camera's programs: most only record their calls; the
# PTZ programs and position queries talk to the simulated head.
install_program() {
    mkdir -p "$(dirname "$root/$2")"
    cp "tools/sim/$1" "$root/$2"
}
for dir in cgi-bin vantor-cgi; do
    for program in admin/param.cgi date.cgi io/output.cgi h264/restart_stream.cgi; do
        install_program camera-program "usr/apache/htdocs/$dir/$program"
    done
    install_program ptz-program "usr/apache/htdocs/$dir/com/ptz.cgi"
    install_program ptz-program "usr/apache/htdocs/$dir/com/ptzconfig.cgi"
done
install_program position-query home/aaaserver/viscaClient
install_program position-query root/testShareMemClient

# ONVIF_BUILD: the build whose programs to run; ONVIF_EMULATOR: the command
# that runs them when they are built for another processor (qemu-arm -L ...).
build="${ONVIF_BUILD:-$top/build}"
emulator="${ONVIF_EMULATOR:-}"
export ONVIF_ROOT="$root"
shm="$emulator $build/onvif-shm"
$shm create >/dev/null
cleanup() {
    trap - INT TERM EXIT
    [ -n "${server:-}" ] && kill "$server" 2>/dev/null || true
    [ -n "${head:-}" ] && kill "$head" 2>/dev/null && wait "$head" 2>/dev/null || true
    $shm remove || true
    echo "simulated camera stopped"
}
trap cleanup INT TERM EXIT
# The words of a typical camera; see README.md for their meaning.
$shm set $(grep -v '^#' tools/sim/camera-words | tr '\n' ' ')
$emulator "$build/ptz-head" &
head=$!

mkdir -p "$root/www"
cgi_runner=""
if [ -n "$emulator" ]; then
    cgi_runner="$root/run-emulated"
    printf '#!/bin/sh\nexec %s "$@"\n' "$emulator" > "$cgi_runner"
    chmod +x "$cgi_runner"
fi
cat > "$root/lighttpd.conf" <<CONF
server.modules = ("mod_alias", "mod_cgi", "mod_setenv")
server.bind = "127.0.0.1"
server.port = $port
server.document-root = "$root/www"
server.errorlog = "$root/lighttpd-error.log"
alias.url = ("/onvif/device_service" => "$build/device_service")
cgi.assign = ("/device_service" => "$cgi_runner")
setenv.add-environment = ("ONVIF_ROOT" => "$root", "SIM_TOOLS" => "$top/tools/sim")
CONF
echo "simulated camera: http://127.0.0.1:$port/onvif/device_service (root $root)"
lighttpd -D -f "$root/lighttpd.conf" &
server=$!
wait "$server"
