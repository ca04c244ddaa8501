#!/usr/bin/env python3
# The watch page's one program: GET answers, as JSON, every camera's identity,
# snapshot address, head position, last events and last camera-program calls,
# read from the cameras' roots; POST camera=K&motion=on|off runs the event tool
# for camera K. The cameras are the farm's list (SIM_CAMERAS) or the single
# camera at ONVIF_ROOT.
import json
import os
import subprocess
import sys
import urllib.parse

TOOLS = os.path.dirname(os.path.abspath(__file__))


def cameras():
    listed = os.environ.get("SIM_CAMERAS", "")
    if listed:
        with open(listed, encoding="utf-8") as f:
            return [tuple(line.split()) for line in f if len(line.split()) == 2]
    root = os.environ.get("ONVIF_ROOT", "")
    return [("", root)] if root else []


def settings(path, *keys):
    found = {}
    try:
        with open(path, encoding="utf-8", errors="replace") as f:
            for line in f:
                key, _, value = line.rstrip("\r\n").partition("=")
                if key in keys and key not in found:
                    found[key] = value
    except OSError:
        pass
    return [found.get(k, "") for k in keys]


def last_lines(path, count):
    try:
        with open(path, "rb") as f:
            f.seek(0, 2)
            f.seek(max(0, f.tell() - 8192))
            lines = f.read().decode("utf-8", "replace").splitlines()
    except OSError:
        return []
    return [line[:200] for line in lines[-count:]]


def snapshot_path(root):
    # The sub-stream's picture: small enough to refresh a whole farm.
    for channel in (3, 1):
        path, = settings(os.path.join(root, "tmp/onvif/VideoEncoder%d.VEncoder" % channel), "Snapshot.Path")
        if path:
            return path
    return "snapshot/ch1.jpg"


def describe(number, address, root):
    conf = os.path.join(root, "tmp/onvif/onvif.conf")
    mac, name = settings(conf, "MAC", "HostnameInformation.Name")
    view = "0 45 0"
    try:
        with open(os.path.join(root, "tmp/ptz_head_view"), encoding="utf-8") as f:
            view = f.read()
    except OSError:
        pass
    pan, tilt, zoom = (view.split() + ["0", "0", "0"])[:3]
    events = last_lines(os.path.join(root, "tmp/sim_events.log"), 5)
    motion = next((e.split()[-1] == "on" for e in reversed(events) if " motion " in e), False)
    port = os.environ.get("SERVER_PORT", "80")
    base = "http://%s:%s/" % (address, port) if address else "/"
    calls = [c.replace(root, "") for c in last_lines(os.path.join(root, "camera_calls.log"), 5)]
    return {"number": number, "name": name, "serial": mac, "address": address or os.environ.get("SERVER_ADDR", ""),
            "snapshot": base + snapshot_path(root), "pan": float(pan), "tilt": float(tilt), "zoom": float(zoom),
            "motion": motion, "events": events, "calls": calls}


def reply(status, body, kind="application/json"):
    sys.stdout.write("Status: %s\r\nContent-Type: %s\r\nCache-Control: no-store\r\n\r\n%s" % (status, kind, body))


def main():
    known = cameras()
    if os.environ.get("REQUEST_METHOD") == "POST":
        length = os.environ.get("CONTENT_LENGTH", "")
        form = urllib.parse.parse_qs(sys.stdin.read(min(int(length), 1024)) if length.isdigit() else "")
        number = (form.get("camera") or [""])[0]
        state = (form.get("motion") or [""])[0]
        if not number.isdigit() or not 1 <= int(number) <= len(known) or state not in ("on", "off"):
            reply("400 Bad Request", '{"error": "camera=K&motion=on|off"}')
            return
        root = known[int(number) - 1][1]
        env = dict(os.environ, ONVIF_ROOT=root)
        done = subprocess.run([os.path.join(TOOLS, "event"), "motion", state], env=env,
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=20)
        reply("200 OK" if done.returncode == 0 else "500 Internal Server Error",
              json.dumps({"camera": int(number), "motion": state}))
        return
    reply("200 OK", json.dumps([describe(i + 1, a, r) for i, (a, r) in enumerate(known)]))


if __name__ == "__main__":
    main()
