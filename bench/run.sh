#!/bin/sh
# The benchmark: the simulated camera (running the x86-64 camera release, fully
# static) and a lighttpd serving a trivial static C CGI, side by side on
# loopback, driven alternately with the same bodies; prints one table and keeps
# it in bench/RESULTS.md. BENCH_ROUNDS (3) and BENCH_SECONDS (2) set the load.
set -eu
cd "$(dirname "$0")/.."
top=$(pwd)
rounds="${BENCH_ROUNDS:-3}"
seconds="${BENCH_SECONDS:-2}"

packages="g++ gcc cmake ninja-build pkg-config libgtest-dev dpkg-dev patch lighttpd curl python3 wrk valgrind strace time"
. tools/packages.sh
install_missing $packages

tinyxml=$(tools/tinyxml-source.sh build-deps/tinyxml)
cmake -S . -B build-camera-x86 -G Ninja -DONVIF_CAMERA_RELEASE=ON -DONVIF_FULLY_STATIC=ON -DONVIF_TESTS=OFF \
    -DONVIF_TINYXML_SOURCE="$tinyxml" >/dev/null
ninja -C build-camera-x86 -j2 device_service onvif-shm ptz-head >/dev/null
camera_bin="$top/build-camera-x86/device_service"
# The same code unstripped, with line information, for the profile by group.
cmake -S . -B build-camera-x86-symbols -G Ninja -DONVIF_CAMERA_RELEASE=ON -DONVIF_FULLY_STATIC=ON -DONVIF_TESTS=OFF \
    -DONVIF_STRIP=OFF -DCMAKE_CXX_FLAGS=-g -DONVIF_TINYXML_SOURCE="$tinyxml" >/dev/null
ninja -C build-camera-x86-symbols -j2 device_service >/dev/null
symbols_bin="$top/build-camera-x86-symbols/device_service"

work=$(mktemp -d /tmp/onvif-bench-XXXXXX)
sim=""; trivial=""
cleanup() {
    trap - INT TERM EXIT
    [ -z "$trivial" ] || { kill "$trivial" 2>/dev/null; wait "$trivial" 2>/dev/null; } || true
    [ -z "$sim" ] || { kill -TERM "$sim" 2>/dev/null; wait "$sim" 2>/dev/null; } || true
    rm -rf "$work"
}
trap cleanup INT TERM EXIT

# The yardstick, built the way the camera release is.
release_flags="-Os -ffunction-sections -fdata-sections -Wl,--gc-sections -s -static"
gcc $release_flags bench/trivial-cgi.c -o "$work/trivial-cgi"
trivial_bin="$work/trivial-cgi"
: > "$work/sizes"
if command -v arm-linux-gnueabi-gcc >/dev/null; then
    arm-linux-gnueabi-gcc $release_flags bench/trivial-cgi.c -o "$work/trivial-cgi-armel"
    echo "trivial static C CGI, armel|$(stat -c %s "$work/trivial-cgi-armel")" >> "$work/sizes"
fi
echo "trivial static C CGI, x86-64|$(stat -c %s "$trivial_bin")" >> "$work/sizes"
for form in armel armel-static armhf armhf-static; do
    f="build-$form/device_service"
    [ -f "$f" ] && echo "device_service, $form (tools/cross-build.sh)|$(stat -c %s "$f")" >> "$work/sizes"
done
echo "device_service, x86-64 static|$(stat -c %s "$camera_bin")" >> "$work/sizes"

set -- $(python3 -c 'import socket
s=[socket.socket() for _ in range(2)]
[x.bind(("127.0.0.1",0)) for x in s]
print(*[x.getsockname()[1] for x in s])')
camera_port=$1; trivial_port=$2

CAMERA_ROOT="$work/root" ONVIF_PORT=$camera_port SKIP_SETUP=1 ONVIF_BUILD="$top/build-camera-x86" \
    tools/simulated-camera.sh > "$work/sim.log" 2>&1 &
sim=$!
mkdir -p "$work/trivial-www"
cat > "$work/trivial.conf" <<CONF
server.modules = ("mod_alias", "mod_cgi")
server.bind = "127.0.0.1"
server.port = $trivial_port
server.document-root = "$work/trivial-www"
server.errorlog = "$work/trivial-error.log"
alias.url = ("/onvif/device_service" => "$trivial_bin")
cgi.assign = ("/trivial-cgi" => "")
CONF
lighttpd -D -f "$work/trivial.conf" &
trivial=$!

camera_url="http://127.0.0.1:$camera_port/onvif/device_service"
trivial_url="http://127.0.0.1:$trivial_port/onvif/device_service"
for url in "$camera_url" "$trivial_url"; do
    up=""
    for i in $(seq 1 50); do
        curl -sf -d @bench/bodies/2-GetCapabilities.xml "$url" >/dev/null && { up=1; break; }
        sleep 0.2
    done
    [ -n "$up" ] || { echo "no answer from $url" >&2; cat "$work/sim.log" >&2; exit 1; }
done

# Load: the camera and the yardstick take turns on every body, round after round.
: > "$work/load"
for round in $(seq 1 "$rounds"); do
    for body in bench/bodies/*.xml; do
        action=$(basename "$body" .xml)
        for side in camera trivial; do
            [ $side = camera ] && url=$camera_url || url=$trivial_url
            wrk -t1 -c1 -d"${seconds}s" -s bench/post.lua "$url" -- "$body" |
                sed -n "s/^RESULT /$action $side /p" >> "$work/load"
        done
    done
done

# One request of each, run directly: instructions (callgrind, the program
# alone, not the camera programs it starts), peak memory, fixed waits.
: > "$work/direct"
groups_args=""
for body in bench/bodies/*.xml; do
    action=$(basename "$body" .xml)
    for side in camera trivial; do
        [ $side = camera ] && bin=$camera_bin || bin=$trivial_bin
        run="env -i PATH=/usr/bin:/bin ONVIF_ROOT=$work/root HOST=127.0.0.1 CONTENT_LENGTH=$(stat -c %s "$body")"
        ir=$($run valgrind --tool=callgrind --callgrind-out-file=/dev/null "$bin" < "$body" 2>&1 >/dev/null |
            sed -n 's/.*Collected : //p')
        rss=$($run /usr/bin/time -f %M "$bin" < "$body" 2>&1 >/dev/null | tail -n 1)
        $run strace -qq -e trace=nanosleep,clock_nanosleep -o "$work/strace" "$bin" < "$body" >/dev/null
        waits=$(sed -n 's/.*tv_sec=\([0-9]*\), tv_nsec=\([0-9]*\).*/\1 \2/p' "$work/strace" |
            awk '{ t = $1 + $2 / 1e9; if (t >= 0.4) printf "%s%.1f", (n++ ? "+" : ""), t } END { if (!n) printf "-" }')
        echo "$action $side $ir $rss $waits" >> "$work/direct"
    done
    $run valgrind --tool=callgrind --callgrind-out-file="$work/callgrind-$action" "$symbols_bin" < "$body" >/dev/null 2>&1
    groups_args="$groups_args ${action#*-}=$work/callgrind-$action"
done
python3 bench/callgrind_groups.py $groups_args > "$work/groups"

python3 - "$work" "$rounds" "$seconds" > "$work/table" <<'PY'
import statistics, sys, platform, os
work, rounds, seconds = sys.argv[1], sys.argv[2], sys.argv[3]
load = {}
for line in open(f"{work}/load"):
    action, side, n, rps, p50, p99, errors = line.split()
    load.setdefault((action, side), []).append((float(rps), float(p50), float(p99), int(errors)))
direct = {}
for line in open(f"{work}/direct"):
    action, side, ir, rss, waits = line.split()
    direct[(action, side)] = (int(ir), int(rss), waits)
def med(values): return statistics.median(values)
actions = sorted({a for a, _ in load})
print("| action | camera req/s | trivial req/s | time ratio | camera p50 / p99 ms | trivial p50 / p99 ms "
      "| camera instr. | trivial instr. | instr. ratio | camera / trivial peak KB | fixed waits s |")
print("|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---|")
for a in actions:
    c, t = load[(a, "camera")], load[(a, "trivial")]
    crps, trps = med([x[0] for x in c]), med([x[0] for x in t])
    cir, crss, waits = direct[(a, "camera")]
    tir, trss, _ = direct[(a, "trivial")]
    errors = sum(x[3] for x in c + t)
    name = a.split("-", 1)[1] + (" *" if waits != "-" else "") + (f" ({errors} errors)" if errors else "")
    print(f"| {name} | {crps:.0f} | {trps:.0f} | {trps / crps:.1f} | {med([x[1] for x in c]):.2f} / "
          f"{med([x[2] for x in c]):.2f} | {med([x[1] for x in t]):.2f} / {med([x[2] for x in t]):.2f} | "
          f"{cir:,} | {tir:,} | {cir / tir:.1f} | {crss:,} / {trss:,} | {waits} |")
print()
print(f"Medians of {rounds} rounds of {seconds} s per action and side, one connection (wrk -t1 -c1), "
      "the two servers taking turns. Time ratio: trivial req/s over camera req/s. Instructions: callgrind, "
      "one request run directly with the body on stdin (the program alone, not the camera programs it "
      "starts). Peak: maximum resident set of the program or of the largest program it starts. * : the time includes fixed waits the camera's protocol sets "
      "(fixed waits column, from the program's sleeps: 0.5 s after opening a settings file; 3 s more "
      "per open while messages are pending, none on the simulated camera). PTZGetStatus also starts the position query programs (shell stand-ins here), whose time it includes.")
print()
print("| stripped binary | bytes |")
print("|---|---:|")
for line in open(f"{work}/sizes"):
    name, size = line.rstrip("\n").split("|")
    print(f"| {name} | {int(size):,} |")
PY

cpu=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -n 1)
# The sections written by hand or by bench/farm.py stay as they were.
awk '/^## / { keep = $0 != "## Where the instructions go" } keep' bench/RESULTS.md > "$work/farm" 2>/dev/null || true
{
    echo "# Benchmark results"
    echo
    echo "Output of \`bench/run.sh\` on $(date -u '+%Y-%m-%d %H:%M UTC'): $cpu, $(nproc) cores (shared with other"
    echo "work), $(uname -sr), $(. /etc/os-release && echo "$PRETTY_NAME"), commit $(git rev-parse --short HEAD)."
    echo
    cat "$work/table"
    echo
    echo "## Where the instructions go"
    echo
    cat "$work/groups"
    echo
    echo "callgrind of the same release unstripped (bench/callgrind_groups.py): a function's own instructions count"
    echo "in the group of its source file (code the optimiser folded into a caller keeps its file), C library code in"
    echo "its callers' groups in proportion. start-up: the C library before main and the segment attach; read and"
    echo "parse: the body read, its shape check, TinyXML and the element tables; auth: the credential check; dispatch"
    echo "and request reads: the action table, the mode and the typed reads; action's own work: the handler's code;"
    echo "settings reads: files, the segment, paths and address formatting (state/); answer writing: the escaping"
    echo "writer and the envelope; exit: the C library's exit and freeing the parsed request."
    [ ! -s "$work/farm" ] || { echo; cat "$work/farm"; }
} > bench/RESULTS.md
cat bench/RESULTS.md
