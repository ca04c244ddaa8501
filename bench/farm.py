#!/usr/bin/env python3
# What a farm of simulated cameras costs on this machine: starts
# tools/simulated-camera.sh --cameras N (64) on free loopback ports and
# measures the start time, the idle processor time and memory, N_STREAMS (8)
# sub-stream viewers at once, and a paced load of device-information class
# requests spread over the farm with every answer checked. Prints a Markdown
# section and puts it in bench/RESULTS.md in place of the last one.
#   bench/farm.py [CAMERAS]      (FARM_IDLE_SECONDS 30, FARM_STREAM_SECONDS 20,
#                                 FARM_RATE 100, FARM_LOAD_SECONDS 10)
import concurrent.futures
import os
import random
import re
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
CAMERAS = int(sys.argv[1]) if len(sys.argv) > 1 else 64
IDLE = float(os.environ.get("FARM_IDLE_SECONDS", 30))
STREAM_SECONDS = float(os.environ.get("FARM_STREAM_SECONDS", 20))
STREAMS = int(os.environ.get("FARM_STREAMS", 8))
RATE = float(os.environ.get("FARM_RATE", 100))
LOAD_SECONDS = float(os.environ.get("FARM_LOAD_SECONDS", 10))
NET = os.environ.get("ONVIF_FARM_NET", "127.0.64")
TICK = os.sysconf("SC_CLK_TCK")
PAGE = os.sysconf("SC_PAGE_SIZE")

DEVICE_INFORMATION = open(os.path.join(TOP, "tools/sim/GetDeviceInformation.xml"), "rb").read()
CAPABILITIES = (b'<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" '
                b'xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><s:Body><tds:GetCapabilities>'
                b'<tds:Category>All</tds:Category></tds:GetCapabilities></s:Body></s:Envelope>')


NOTES = (
    "One web server, one stream server and one discovery responder serve the whole farm; each camera adds "
    "its PTZ head process (resident memory counted whole, shared library pages included). A channel is "
    "encoded only while someone watches it, in one pipeline its viewers share; a snapshot is drawn when "
    "it is asked for. Idle: nobody asks anything; the heads poll their command queues ten times a second "
    "and write their position only when it changes. Viewers: ffmpeg over RTSP/TCP, one per camera, "
    "frames received per second of stream. Requests: paced at the rate, each to a random camera, every "
    "answer checked for that camera's serial number or its own address; GetDeviceInformation carries the "
    "program's fixed half-second wait after opening a settings file, hence the latency.")


def free_port(kind=socket.SOCK_STREAM):
    s = socket.socket(socket.AF_INET, kind)
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]
    s.close()
    return port


def descendants(pid):
    children = {}
    for entry in os.listdir("/proc"):
        if entry.isdigit():
            try:
                with open("/proc/%s/stat" % entry) as f:
                    parent = int(f.read().rsplit(")", 1)[1].split()[1])
                children.setdefault(parent, []).append(int(entry))
            except (OSError, IndexError, ValueError):
                pass
    found, todo = [], [pid]
    while todo:
        p = todo.pop()
        found.append(p)
        todo.extend(children.get(p, []))
    return found


def process(pid):
    """name, processor seconds, resident bytes of one process, or None once gone."""
    try:
        with open("/proc/%d/stat" % pid) as f:
            stat = f.read()
        with open("/proc/%d/statm" % pid) as f:
            resident = int(f.read().split()[1]) * PAGE
    except OSError:
        return None
    name = stat[stat.index("(") + 1:stat.rindex(")")]
    fields = stat.rsplit(")", 1)[1].split()
    return name, (int(fields[11]) + int(fields[12])) / TICK, resident


def post(url, body, timeout=30):
    request = urllib.request.Request(url, data=body, headers={"Content-Type": "application/soap+xml"})
    with urllib.request.urlopen(request, timeout=timeout) as answer:
        return answer.read().decode("utf-8", "replace")


def main():
    port, rtsp_port, discovery_port = free_port(), free_port(), free_port(socket.SOCK_DGRAM)
    work = tempfile.mkdtemp(prefix="onvif-farm-bench-")
    env = dict(os.environ, CAMERA_ROOT=os.path.join(work, "farm"), ONVIF_FARM_NET=NET, ONVIF_PORT=str(port),
               ONVIF_RTSP_PORT=str(rtsp_port), ONVIF_DISCOVERY_PORT=str(discovery_port), SKIP_SETUP="1")
    log = open(os.path.join(work, "log"), "w")
    started = time.monotonic()
    farm = subprocess.Popen([os.path.join(TOP, "tools/simulated-camera.sh"), "--cameras", str(CAMERAS)], env=env,
                            stdout=log, stderr=subprocess.STDOUT)
    rows = []
    try:
        url = ["http://%s.%d:%d/onvif/device_service" % (NET, k, port) for k in range(1, CAMERAS + 1)]
        # Started: every camera answers (GetCapabilities: the device
        # information has a fixed half-second wait of its own).
        def answers(k):
            while time.monotonic() - started < 300:
                try:
                    if "GetCapabilitiesResponse" in post(url[k], CAPABILITIES, 5):
                        return time.monotonic()
                except OSError:
                    pass
                time.sleep(0.2)
            raise RuntimeError("camera %d never answered" % (k + 1))
        with concurrent.futures.ThreadPoolExecutor(CAMERAS) as pool:
            start_time = max(pool.map(answers, range(CAMERAS))) - started
        rows.append(("%d cameras start" % CAMERAS, "under 60 s", "%.1f s" % start_time, start_time < 60))
        def serial(k):
            return re.search(r"<tds:SerialNumber>([^<]+)<", post(url[k], DEVICE_INFORMATION)).group(1)
        with concurrent.futures.ThreadPoolExecutor(CAMERAS) as pool:
            serials = dict(enumerate(pool.map(serial, range(CAMERAS))))

        # Idle: nothing asks anything for the idle time.
        time.sleep(3)
        pids = descendants(farm.pid)
        before = {p: process(p) for p in pids}
        time.sleep(IDLE)
        after = {p: process(p) for p in pids}
        busy = sum(after[p][1] - before[p][1] for p in pids if before[p] and after[p])
        cpu = 100.0 * busy / IDLE
        rows.append(("idle processor time, whole farm", "under 5 % of one core",
                     "%.2f %% (%d processes, %.0f s)" % (cpu, len(pids), IDLE), cpu < 5))
        names = {}
        for p in pids:
            if after[p]:
                name, _, resident = after[p]
                count, total = names.get(name, (0, 0))
                names[name] = (count + 1, total + resident)
        per_camera = names.get("ptz-head", (0, 0))[1] / CAMERAS
        shared = sum(total for name, (count, total) in names.items() if name != "ptz-head")
        rows.append(("resident memory per camera beyond the shared processes", "under 8 MB",
                     "%.2f MB (its head process; shared: %s, %.1f MB together)" % (
                         per_camera / 2**20,
                         ", ".join("%s %.1f MB" % (n, t / 2**20) for n, (c, t) in sorted(names.items())
                                   if n != "ptz-head"), shared / 2**20), per_camera < 8 * 2**20))

        # Streams: N viewers of the sub-stream, each on its own camera.
        def watch(k):
            begin = time.monotonic()
            done = subprocess.run(["ffmpeg", "-nostdin", "-rtsp_transport", "tcp", "-i",
                                   "rtsp://%s.%d:%d/live/ch3" % (NET, k, rtsp_port), "-t", str(STREAM_SECONDS),
                                   "-f", "null", "-"], capture_output=True, text=True, timeout=STREAM_SECONDS + 60)
            wall = time.monotonic() - begin
            frames = re.findall(r"frame=\s*(\d+)", done.stderr)
            return (int(frames[-1]) if frames else 0), wall
        with concurrent.futures.ThreadPoolExecutor(STREAMS) as pool:
            watched = list(pool.map(watch, range(1, STREAMS + 1)))
        rates = [frames / STREAM_SECONDS for frames, wall in watched]
        late = max(wall for frames, wall in watched) - STREAM_SECONDS
        rows.append(("%d sub-stream viewers (640x360, 15 frames/s configured)" % STREAMS, "keep the frame rate",
                     "%.1f to %.1f frames/s each over %.0f s of stream; the slowest took %.1f s longer, "
                     "connection included" % (min(rates), max(rates), STREAM_SECONDS, late),
                     min(rates) >= 14.5 and late < 5))

        # Requests: RATE per second, paced, each to a random camera; every
        # answer must be that camera's own.
        total = int(RATE * LOAD_SECONDS)
        outcome = {"ok": 0, "wrong": 0, "failed": 0}
        latencies, starts = [], []
        lock = threading.Lock()

        def one(i):
            k = random.randrange(CAMERAS)
            wait = started_load + i / RATE - time.monotonic()
            if wait > 0:
                time.sleep(wait)
            begin = time.monotonic()
            with lock:
                starts.append(begin)
            try:
                if i % 2:
                    answer = post(url[k], DEVICE_INFORMATION)
                    good = "<tds:SerialNumber>%s<" % serials[k] in answer
                else:
                    answer = post(url[k], CAPABILITIES)
                    good = ("%s.%d:%d/" % (NET, k + 1, port)) in answer and "GetCapabilitiesResponse" in answer
                key = "ok" if good else "wrong"
            except OSError:
                key = "failed"
            with lock:
                outcome[key] += 1
                latencies.append(time.monotonic() - begin)
        started_load = time.monotonic() + 0.5
        with concurrent.futures.ThreadPoolExecutor(96) as pool:
            list(pool.map(one, range(total)))
        # The pace the requests went out at, while earlier ones were still answered.
        pace = (total - 1) / (max(starts) - min(starts))
        latencies.sort()
        rows.append(("%d requests/s for %.0f s over the farm (GetDeviceInformation, GetCapabilities)" % (
            RATE, LOAD_SECONDS), "answers correct",
            "%d of %d right, %d wrong, %d failed; %.0f requests/s achieved; latency p50 %.0f ms, p99 %.0f ms" % (
                outcome["ok"], total, outcome["wrong"], outcome["failed"], pace,
                1000 * latencies[len(latencies) // 2], 1000 * latencies[int(len(latencies) * 0.99)]),
            outcome["ok"] == total and pace >= RATE * 0.95))
    finally:
        farm.send_signal(signal.SIGTERM)
        try:
            farm.wait(timeout=60)
        except subprocess.TimeoutExpired:
            farm.kill()
        log.close()
        subprocess.run(["rm", "-rf", work])
    load = os.getloadavg()
    section = []
    say = section.append  # the section goes to the screen and to the results
    say("## The camera farm\n")
    say("Output of `bench/farm.py %d` on %s UTC: %d cores, load average %.1f at the end (the machine is shared "
          "with other work while it runs).\n" % (CAMERAS, time.strftime("%Y-%m-%d %H:%M", time.gmtime()),
                                                 os.cpu_count(), load[0]))
    say("| measure | goal | result | met |\n|---|---|---|---|")
    for what, goal, result, met in rows:
        say("| %s | %s | %s | %s |" % (what, goal, result, "yes" if met else "**no**"))
    say("")
    say(NOTES)
    text = "\n".join(section) + "\n"
    sys.stdout.write(text)
    results = os.path.join(TOP, "bench/RESULTS.md")
    with open(results, encoding="utf-8") as f:
        kept = f.read().split("## The camera farm")[0].rstrip("\n")
    with open(results, "w", encoding="utf-8") as f:
        f.write(kept + "\n\n" + text)
    return 0 if all(r[3] for r in rows) else 1


if __name__ == "__main__":
    sys.exit(main())
