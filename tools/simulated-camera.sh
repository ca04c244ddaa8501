#!/bin/sh
# Starts the simulated camera: a fresh camera root from factory/ under
# build/camera-root that names 127.0.0.1 and the ports in use as the camera's
# address, its device-state segment with the words of a typical camera,
# lighttpd on 127.0.0.1 running device_service as the CGI program of POST
# /onvif/device_service and serving the snapshots, the RTSP stream server,
# the discovery responder and the PTZ head. Everything listens on and sends
# to the loopback range only. Runs in the foreground; Ctrl-C stops it all and
# removes the segment.
set -eu
cd "$(dirname "$0")/.."
top=$(pwd)
[ -n "${SKIP_SETUP:-}" ] || tools/setup.sh

root="${CAMERA_ROOT:-$top/build/camera-root}"
port="${ONVIF_PORT:-8080}"
rtsp_port="${ONVIF_RTSP_PORT:-8554}"
discovery_port="${ONVIF_DISCOVERY_PORT:-3702}"
rm -rf "$root"
mkdir -p "$root"
cp -a factory/. "$root/"

# The addresses the service hands out must reach this camera: its address
# and ports are the ones served here, not the factory's LAN address.
set_key() {  # file key value: replaces the key's line, or adds it
    if grep -q "^$2=" "$1"; then
        sed -i "s|^$2=.*|$2=$3|" "$1"
    else
        printf '%s=%s\n' "$2" "$3" >> "$1"
    fi
}
set_key "$root/etc/sysconfig/network.conf" root.Network.IPAddress 127.0.0.1
for conf in "$root/tmp/onvif/onvif.conf" "$root/usr/apache/htdocs/onvif/onvif.conf"; do
    set_key "$conf" Network.IPv4.Config.Manual.Address 127.0.0.1
    set_key "$conf" Network.Protocols.HTTP.Port "$port"
    set_key "$conf" Network.Protocols.RTSP.Port "$rtsp_port"
done
# Each encoder channel's RTSP path and snapshot name, where the factory
# files do not carry them yet.
for encoder in "$root"/tmp/onvif/VideoEncoder*.VEncoder; do
    channel=${encoder##*/VideoEncoder}
    channel=${channel%.VEncoder}
    grep -q '^Stream.Path=' "$encoder" || echo "Stream.Path=live/ch$channel" >> "$encoder"
    grep -q '^Snapshot.Path=' "$encoder" || echo "Snapshot.Path=snapshot/ch$channel.jpg" >> "$encoder"
done
# Stand-ins for the camera's programs: most only record their calls; the
# PTZ programs and position queries talk to the simulated head, the settings
# and stream restart programs to the stream server.
install_program() {
    mkdir -p "$(dirname "$root/$2")"
    cp "tools/sim/$1" "$root/$2"
}
for dir in cgi-bin vantor-cgi; do
    for program in date.cgi io/output.cgi; do
        install_program camera-program "usr/apache/htdocs/$dir/$program"
    done
    for program in admin/param.cgi h264/restart_stream.cgi; do
        install_program stream-program "usr/apache/htdocs/$dir/$program"
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
    for process in ${head:-} ${stream:-} ${discovery:-}; do
        kill "$process" 2>/dev/null && wait "$process" 2>/dev/null || true
    done
    $shm remove || true
    echo "simulated camera stopped"
}
trap cleanup INT TERM EXIT
# The words of a typical camera; see README.md for their meaning.
$shm set $(grep -v '^#' tools/sim/camera-words | tr '\n' ' ')
$emulator "$build/ptz-head" &
head=$!

mkdir -p "$root/www"
# The stream server is built only where GStreamer's RTSP server library is.
if [ -x "$top/build/rtsp-server" ]; then
    "$top/build/rtsp-server" "$rtsp_port" "$root/www" &
    stream=$!
    echo "$stream" > "$root/tmp/rtsp_server.pid"
    # It names its first reading of the channels once the snapshots exist.
    tries=0
    while [ ! -f "$root/tmp/rtsp_server_generation" ] && [ $tries -lt 100 ] && kill -0 "$stream" 2>/dev/null; do
        sleep 0.1
        tries=$((tries + 1))
    done
else
    echo "simulated camera: no build/rtsp-server (libgstrtspserver-1.0-dev missing): no stream or snapshot" >&2
fi
ONVIF_DISCOVERY_PORT="$discovery_port" tools/sim/discovery "$port" &
discovery=$!

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
mimetype.assign = (".jpg" => "image/jpeg")
alias.url = ("/onvif/device_service" => "$build/device_service")
cgi.assign = ("/device_service" => "$cgi_runner")
setenv.add-environment = ("ONVIF_ROOT" => "$root", "SIM_TOOLS" => "$top/tools/sim")
CONF
echo "simulated camera: http://127.0.0.1:$port/onvif/device_service (root $root)"
echo "  stream:    rtsp://127.0.0.1:$rtsp_port/live/ch1 .. ch4; snapshot: http://127.0.0.1:$port/snapshot/ch1.jpg .. ch4"
echo "  discovery: udp://127.0.0.1:$discovery_port; events: ONVIF_ROOT=$root tools/sim/event motion on"
lighttpd -D -f "$root/lighttpd.conf" &
server=$!
wait "$server"
