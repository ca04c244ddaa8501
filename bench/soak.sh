#!/bin/sh
# A week of polling in a few minutes: the simulated camera under lighttpd,
# driven by bench/soak.py's 8 clients with the mix a VMS and Home Assistant
# produce, for SOAK_REQUESTS requests (50,000 by default). Then the camera is
# stopped and nothing may be left: no segment, no process, no work copy. The
# summary goes to bench/RESULTS.md (section "Soak"); the script fails when a
# check fails.
set -eu
cd "$(dirname "$0")/.."
top=$(pwd)
requests="${SOAK_REQUESTS:-50000}"
clients="${SOAK_CLIENTS:-8}"

[ -x build/device_service ] || tools/setup.sh
ninja -C build -j2 device_service onvif-shm ptz-head >/dev/null

work=$(mktemp -d /tmp/onvif-soak-XXXXXX)
root="$work/root"
sim=""
cleanup() {
    trap - INT TERM EXIT
    [ -z "$sim" ] || { kill -TERM "$sim" 2>/dev/null; wait "$sim" 2>/dev/null; } || true
    rm -rf "$work"
}
trap cleanup INT TERM EXIT

set -- $(python3 -c 'import socket
s=[socket.socket() for _ in range(2)]
[x.bind(("127.0.0.1",0)) for x in s]
u=socket.socket(socket.AF_INET, socket.SOCK_DGRAM); u.bind(("127.0.0.1",0))
print(*[x.getsockname()[1] for x in s], u.getsockname()[1])')
CAMERA_ROOT="$root" ONVIF_PORT=$1 ONVIF_RTSP_PORT=$2 ONVIF_DISCOVERY_PORT=$3 SKIP_SETUP=1 \
    tools/simulated-camera.sh > "$work/sim.log" 2>&1 &
sim=$!
url="http://127.0.0.1:$1/onvif/device_service"
up=""
for i in $(seq 1 100); do
    curl -sf -d @bench/bodies/2-GetCapabilities.xml "$url" >/dev/null && { up=1; break; }
    sleep 0.2
done
[ -n "$up" ] || { echo "no answer from $url" >&2; cat "$work/sim.log" >&2; exit 1; }
lighttpd_pid=$(for p in /proc/[0-9]*; do
    [ "$(cat "$p/comm" 2>/dev/null)" = lighttpd ] && grep -q "$root/lighttpd.conf" "$p/cmdline" 2>/dev/null &&
        basename "$p"
done | head -n 1)

python3 bench/soak.py "$url" "$root" "$requests" "$clients" "${lighttpd_pid:-0}" > "$work/result.json"

# Work copies are their file's name and six characters; none may outlive a request.
work_copies=$(find "$root" -type f | grep -E '\.[A-Za-z0-9]{6}$' | while read -r f; do
    [ -f "${f%.*}" ] && echo "$f"; done | wc -l)
segment_key_file="$root/tmp/ONVIF_SHM/onvif"
kill -TERM "$sim"; wait "$sim" 2>/dev/null || true; sim=""
segment_left=0
ONVIF_ROOT="$root" build/onvif-shm get 1 >/dev/null 2>&1 && segment_left=1
processes_left=$(for p in /proc/[0-9]*; do
    { tr '\0' '\n' < "$p/environ"; } 2>/dev/null | grep -qx "ONVIF_ROOT=$root" && echo "$p"; done | wc -l)

python3 - "$work/result.json" "$work_copies" "$segment_left" "$processes_left" "$top/bench/RESULTS.md" <<'PY'
import json, sys, datetime, platform, os, subprocess
r = json.load(open(sys.argv[1]))
work_copies, segment_left, processes_left, results = int(sys.argv[2]), int(sys.argv[3]), int(sys.argv[4]), sys.argv[5]
rss = r["lighttpd_rss_kb"]  # at start, every 1,000 requests, at the end
warm = rss[min(len(rss) - 1, max(1, len(rss) // 10))] if rss else 0
commit = subprocess.run(["git", "rev-parse", "--short", "HEAD"], capture_output=True, text=True).stdout.strip()
checks = [
    ("malformed answers", r["malformed"], r["malformed"] == 0),
    ("unexpected faults", r["unexpected_faults"], r["unexpected_faults"] == 0),
    ("lost updates", len(r["lost_updates"]), not r["lost_updates"]),
    ("work copies left", work_copies, work_copies == 0),
    ("segment left after stop", segment_left, segment_left == 0),
    ("processes left after stop", processes_left, processes_left == 0),
    ("event files at the end (bytes)", f'{r["event_files"]} ({r["event_bytes"]})', r["event_bytes"] < 65536),
    # Flat: after the first tenth (lighttpd's pools and buffers warm up), within 512 KB.
    ("lighttpd RSS KB: at start / after the first tenth / max / last",
     f'{rss[0]} / {warm} / {max(rss)} / {rss[-1]}' if rss else "-", not rss or rss[-1] <= warm + 512),
]
lines = [
    "## Soak",
    "",
    f"Output of `bench/soak.sh` on {datetime.datetime.utcnow():%Y-%m-%d %H:%M} UTC, commit {commit}: "
    f"{r['requests']:,} requests from {r['clients']} concurrent clients in {r['seconds']:.0f} s "
    f"({r['requests'] / r['seconds']:.0f} req/s), {os.cpu_count()} cores shared with other work, {platform.platform()}.",
    "",
    "| check | value | pass |",
    "|---|---:|---|",
] + [f"| {name} | {value} | {'yes' if ok else 'NO'} |" for name, value, ok in checks] + [
    "",
    "lighttpd RSS every 1,000 requests (KB): " + " ".join(str(k) for k in rss) + ".",
    "",
    "Mix (requests per action): " + ", ".join(f"{a} {n:,}" for a, n in sorted(r["by_action"].items())) + ".",
    "",
]
text = open(results).read() if os.path.exists(results) else ""
start = text.find("## Soak")
if start >= 0:
    end = text.find("\n## ", start + 1)
    text = text[:start] + (text[end + 1:] if end >= 0 else "")
text = text.rstrip("\n") + "\n\n" + "\n".join(lines)
open(results, "w").write(text)
print("\n".join(lines))
for f in r["first_faults"]:
    print("fault:", f)
sys.exit(0 if all(ok for _, _, ok in checks) else 1)
PY
