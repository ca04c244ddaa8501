#!/bin/sh
# Starts the simulated camera: a fresh camera root from factory/ under
# build/camera-root that names 127.0.0.1 and the ports in use as the camera's
# address, its device-state segment with the words of a typical camera,
# lighttpd on 127.0.0.1 running device_service as the CGI program of POST
# /onvif/device_service and serving the snapshots and the watch page, the RTSP
# stream server, the discovery responder and the PTZ head. Everything listens
# on and sends to the loopback range only. Runs in the foreground; Ctrl-C
# stops it all and removes the segment.
#   simulated-camera.sh [--cameras N]     (or ONVIF_CAMERAS=N)
# With N > 1 it starts a farm: camera k at 127.0.1.k (ONVIF_FARM_NET.k) on the
# same ports, with its own root build/camera-farm/camk, segment, head and
# identity; one web server, stream server and discovery responder serve them
# all, and the watch page is at 127.0.0.1.
set -eu
cd "$(dirname "$0")/.."
top=$(pwd)
cameras="${ONVIF_CAMERAS:-1}"
if [ "${1:-}" = "--cameras" ] && [ $# -eq 2 ]; then
    cameras=$2
elif [ $# -ne 0 ]; then
    echo "usage: simulated-camera.sh [--cameras N]" >&2
    exit 2
fi
case "$cameras" in
    ''|*[!0-9]*) echo "simulated camera: --cameras takes a number from 1 to 254" >&2; exit 2 ;;
esac
[ "$cameras" -ge 1 ] && [ "$cameras" -le 254 ] || { echo "simulated camera: --cameras takes a number from 1 to 254" >&2; exit 2; }
[ -n "${SKIP_SETUP:-}" ] || tools/setup.sh

port="${ONVIF_PORT:-8080}"
rtsp_port="${ONVIF_RTSP_PORT:-8554}"
discovery_port="${ONVIF_DISCOVERY_PORT:-3702}"
net="${ONVIF_FARM_NET:-127.0.1}"
# The camera's behaviour: its own (legacy, the factory value) or the ONVIF
# standard's (onvif).
conformance="${ONVIF_CONFORMANCE:-legacy}"
case "$conformance" in
    legacy|onvif) ;;
    *) echo "simulated camera: ONVIF_CONFORMANCE is legacy or onvif" >&2; exit 2 ;;
esac
case "$net" in
    127.*.*) ;;
    *) echo "simulated camera: ONVIF_FARM_NET must be three numbers of the loopback range, like 127.0.1" >&2; exit 2 ;;
esac
if [ "$cameras" -eq 1 ]; then
    farm=""
    root="${CAMERA_ROOT:-$top/build/camera-root}"
else
    farm="${CAMERA_ROOT:-$top/build/camera-farm}"
    rm -rf "$farm"
    mkdir -p "$farm"
fi

# The addresses the service hands out must reach this camera: its address
# and ports are the ones served here, not the factory's LAN address.
set_key() {  # file key value: replaces the key's line, or adds it
    if grep -q "^$2=" "$1"; then
        sed -i "s|^$2=.*|$2=$3|" "$1"
    else
        printf '%s=%s\n' "$2" "$3" >> "$1"
    fi
}
# Stand-ins for the camera's programs: most only record their calls; the
# PTZ programs and position queries talk to the simulated head, the settings
# and stream restart programs to the stream server.
install_program() {  # root stand-in path
    mkdir -p "$(dirname "$1/$3")"
    cp "tools/sim/$2" "$1/$3"
}
# identify ROOT ADDRESS NUMBER: a farm camera's own address, serial/MAC
# address, host name and scope name, over a copy of a prepared root.
identify() {
    for conf in "$1/tmp/onvif/onvif.conf" "$1/usr/apache/htdocs/onvif/onvif.conf"; do
        sed -i -e "s|^Network.IPv4.Config.Manual.Address=.*|Network.IPv4.Config.Manual.Address=$2|" \
            -e "s|^MAC=.*|MAC=$(printf '02:53:49:4D:%02X:%02X' $(($3 / 256)) $(($3 % 256)))|" \
            -e "s|^HostnameInformation.Name=.*|HostnameInformation.Name=ipcamera-$3|" \
            -e "s|^FixedScopes=onvif://www.onvif.org/name/.*|FixedScopes=onvif://www.onvif.org/name/IPCamera-$3|" "$conf"
    done
    sed -i -e "s|^root.Network.IPAddress=.*|root.Network.IPAddress=$2|" \
        -e "s|^root.Network.HostName=.*|root.Network.HostName=ipcamera-$3|" "$1/etc/sysconfig/network.conf"
}
# prepare_root ROOT ADDRESS: a fresh root at ADDRESS.
prepare_root() {
    rm -rf "$1"
    mkdir -p "$1"
    cp -a factory/. "$1/"
    set_key "$1/etc/sysconfig/network.conf" root.Network.IPAddress "$2"
    for conf in "$1/tmp/onvif/onvif.conf" "$1/usr/apache/htdocs/onvif/onvif.conf"; do
        set_key "$conf" Network.IPv4.Config.Manual.Address "$2"
        set_key "$conf" Network.Protocols.HTTP.Port "$port"
        set_key "$conf" Network.Protocols.RTSP.Port "$rtsp_port"
        set_key "$conf" Conformance.Mode "$conformance"
    done
    # Each encoder channel's RTSP path and snapshot name, where the factory
    # files do not carry them yet.
    for encoder in "$1"/tmp/onvif/VideoEncoder*.VEncoder; do
        channel=${encoder##*/VideoEncoder}
        channel=${channel%.VEncoder}
        grep -q '^Stream.Path=' "$encoder" || echo "Stream.Path=live/ch$channel" >> "$encoder"
        grep -q '^Snapshot.Path=' "$encoder" || echo "Snapshot.Path=snapshot/ch$channel.jpg" >> "$encoder"
    done
    for dir in cgi-bin vantor-cgi; do
        for program in date.cgi io/output.cgi; do
            install_program "$1" camera-program "usr/apache/htdocs/$dir/$program"
        done
        for program in admin/param.cgi h264/restart_stream.cgi; do
            install_program "$1" stream-program "usr/apache/htdocs/$dir/$program"
        done
        install_program "$1" ptz-program "usr/apache/htdocs/$dir/com/ptz.cgi"
        install_program "$1" ptz-program "usr/apache/htdocs/$dir/com/ptzconfig.cgi"
    done
    install_program "$1" position-query home/aaaserver/viscaClient
    install_program "$1" position-query root/testShareMemClient
    mkdir -p "$1/www"
}

# ONVIF_BUILD: the build whose programs to run; ONVIF_EMULATOR: the command
# that runs them when they are built for another processor (qemu-arm -L ...).
build="${ONVIF_BUILD:-$top/build}"
emulator="${ONVIF_EMULATOR:-}"
shm="$emulator $build/onvif-shm"
# The farm's cameras, one "ADDRESS ROOT" line each; a single camera's list
# names only it.
list="${farm:-$root}/cameras"
if [ -z "$farm" ]; then
    prepare_root "$root" 127.0.0.1
    export ONVIF_ROOT="$root"
    echo "127.0.0.1 $root" > "$list"
else
    # One root prepared, then copied: a large farm starts in seconds.
    prepare_root "$farm/template" "$net.1"
    set_key "$farm/template/etc/sysconfig/network.conf" root.Network.HostName ipcamera
    k=1
    : > "$list"
    while [ $k -le "$cameras" ]; do
        cp -a "$farm/template" "$farm/cam$k"
        identify "$farm/cam$k" "$net.$k" $k
        echo "$net.$k $farm/cam$k" >> "$list"
        k=$((k + 1))
    done
    rm -rf "$farm/template"
fi
roots=$(cut -d' ' -f2 "$list")

heads=""
cleanup() {
    trap - INT TERM EXIT
    [ -n "${server:-}" ] && kill "$server" 2>/dev/null || true
    for process in $heads ${stream:-} ${discovery:-}; do
        kill "$process" 2>/dev/null && wait "$process" 2>/dev/null || true
    done
    for r in $roots; do
        ONVIF_ROOT="$r" $shm remove || true
    done
    [ -z "$farm" ] || rm -f "$list"
    echo "simulated camera stopped"
}
trap cleanup INT TERM EXIT
# The words of a typical camera; see README.md for their meaning.
words=$(grep -v '^#' tools/sim/camera-words | tr '\n' ' ')
for r in $roots; do
    ONVIF_ROOT="$r" $shm create >/dev/null
    ONVIF_ROOT="$r" $shm set $words
    ONVIF_ROOT="$r" $emulator "$build/ptz-head" &
    heads="$heads $!"
    # The event process between events: the initial states owed to push subscribers.
    ONVIF_ROOT="$r" $emulator "$build/sim-event" watch &
    heads="$heads $!"
done

# The stream server is built only where GStreamer's RTSP server library is.
if [ -x "$top/build/rtsp-server" ]; then
    if [ -z "$farm" ]; then
        "$top/build/rtsp-server" "$rtsp_port" "$root/www" &
    else
        "$top/build/rtsp-server" "$rtsp_port" --cameras "$list" &
    fi
    stream=$!
    # It names its first reading of each camera's channels once their
    # snapshot names are laid out.
    for r in $roots; do
        echo "$stream" > "$r/tmp/rtsp_server.pid"
        tries=0
        while [ ! -f "$r/tmp/rtsp_server_generation" ] && [ $tries -lt 300 ] && kill -0 "$stream" 2>/dev/null; do
            sleep 0.1
            tries=$((tries + 1))
        done
    done
else
    echo "simulated camera: no build/rtsp-server (libgstrtspserver-1.0-dev missing): no stream or snapshot" >&2
fi
if [ -z "$farm" ]; then
    ONVIF_DISCOVERY_PORT="$discovery_port" tools/sim/discovery "$port" &
else
    ONVIF_DISCOVERY_PORT="$discovery_port" tools/sim/discovery "$port" --cameras "$list" &
fi
discovery=$!

cgi_runner=""
if [ -n "$emulator" ]; then
    cgi_runner="${farm:-$root}/run-emulated"
    printf '#!/bin/sh\nexec %s "$@"\n' "$emulator" > "$cgi_runner"
    chmod +x "$cgi_runner"
fi
# Snapshots are drawn by a program the web server runs on the name the stream
# server laid out; the watch page is static and asks status.cgi.
snapshot_cgi=""
[ -x "$top/build/sim-snapshot" ] && snapshot_cgi=", \".jpg\" => \"$top/build/sim-snapshot\""
if [ -z "$farm" ]; then page_dir="$root/www"; else page_dir="$farm/page"; fi
mkdir -p "$page_dir"
cp tools/sim/page.html "$page_dir/index.html"
conf="${farm:-$root}/lighttpd.conf"
cat > "$conf" <<CONF
server.modules = ("mod_alias", "mod_cgi", "mod_setenv")
server.bind = "127.0.0.1"
server.port = $port
server.document-root = "$page_dir"
server.errorlog = "${farm:-$root}/lighttpd-error.log"
index-file.names = ("index.html")
mimetype.assign = (".jpg" => "image/jpeg", ".html" => "text/html; charset=utf-8")
cgi.assign = ("/device_service" => "$cgi_runner", "/status.cgi" => ""$snapshot_cgi)
CONF
if [ -z "$farm" ]; then
    cat >> "$conf" <<CONF
alias.url = ("/onvif/device_service" => "$build/device_service", "/status.cgi" => "$top/tools/sim/status.cgi")
setenv.add-environment = ("ONVIF_ROOT" => "$root", "SIM_TOOLS" => "$top/tools/sim")
CONF
else
    # The page's address runs no service: without a camera root it would
    # reach for the real camera's files.
    echo "alias.url = (\"/status.cgi\" => \"$top/tools/sim/status.cgi\")" >> "$conf"
    echo "setenv.add-environment = (\"SIM_CAMERAS\" => \"$list\")" >> "$conf"
    while read -r address r; do
        cat >> "$conf" <<CONF
\$SERVER["socket"] == "$address:$port" {
    server.document-root = "$r/www"
    alias.url = ("/onvif/device_service" => "$build/device_service")
    setenv.add-environment = ("ONVIF_ROOT" => "$r", "SIM_TOOLS" => "$top/tools/sim")
}
CONF
    done < "$list"
fi
if [ -z "$farm" ]; then
    echo "simulated camera: http://127.0.0.1:$port/onvif/device_service (root $root)"
    echo "  stream:    rtsp://127.0.0.1:$rtsp_port/live/ch1 .. ch4; snapshot: http://127.0.0.1:$port/snapshot/ch1.jpg .. ch4"
    echo "  discovery: udp://127.0.0.1:$discovery_port; events: ONVIF_ROOT=$root tools/sim/event motion on"
    echo "  page:      http://127.0.0.1:$port/"
else
    echo "simulated camera farm: $cameras cameras, camera k at http://$net.k:$port/onvif/device_service (roots $farm/camk)"
    echo "  stream:    rtsp://$net.k:$rtsp_port/live/ch1 .. ch4; snapshot: http://$net.k:$port/snapshot/ch1.jpg .. ch4"
    echo "  discovery: udp://127.0.0.1:$discovery_port finds all; events: tools/sim/event K motion on"
    echo "  page:      http://127.0.0.1:$port/"
fi
lighttpd -D -f "$conf" &
server=$!
wait "$server"
