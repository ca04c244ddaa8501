#!/usr/bin/env python3
# Drives the simulated cameras' watch page in headless Chromium through its
# DevTools pipe: waits until the page shows CAMERAS cameras, presses camera
# K's motion switch and waits until the page shows that camera's motion on.
# Prints what the page showed as JSON lines; exit 0 when all of it happened.
#   page_check.py URL CAMERAS K PROFILE_DIR
import json
import os
import subprocess
import sys
import time

URL, CAMERAS, K, PROFILE = sys.argv[1], int(sys.argv[2]), int(sys.argv[3]), sys.argv[4]

to_browser_r, to_browser_w = os.pipe()
from_browser_r, from_browser_w = os.pipe()


def child_pipes():
    # Through spare numbers first: either pipe end may already be 3 or 4.
    r, w = os.dup(to_browser_r), os.dup(from_browser_w)
    os.dup2(r, 3)
    os.dup2(w, 4)


# Nothing but the page: no name lookups (the page uses loopback addresses
# only), no background traffic.
browser = subprocess.Popen(
    ["chromium", "--headless", "--no-sandbox", "--disable-gpu", "--remote-debugging-pipe",
     "--user-data-dir=" + PROFILE, "--no-first-run", "--no-default-browser-check",
     "--disable-background-networking", "--disable-component-update", "--disable-sync",
     "--disable-dev-shm-usage", "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.*", "--no-proxy-server",
     "about:blank"],
    stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
    preexec_fn=child_pipes, pass_fds=(3, 4))
os.close(to_browser_r)
os.close(from_browser_w)
pending = b""
next_id = 0


def call(method, params=None, session=None, deadline=30):
    global pending, next_id
    next_id += 1
    message = {"id": next_id, "method": method, "params": params or {}}
    if session:
        message["sessionId"] = session
    os.write(to_browser_w, json.dumps(message).encode() + b"\0")
    end = time.monotonic() + deadline
    while time.monotonic() < end:
        while b"\0" in pending:
            raw, pending = pending.split(b"\0", 1)
            answer = json.loads(raw)
            if answer.get("id") == next_id:
                if "error" in answer:
                    raise RuntimeError("%s: %s" % (method, answer["error"]))
                return answer.get("result", {})
        chunk = os.read(from_browser_r, 65536)
        if not chunk:
            raise RuntimeError("chromium went away")
        pending += chunk
    raise RuntimeError("%s: no answer" % method)


def evaluate(session, expression):
    result = call("Runtime.evaluate", {"expression": expression, "returnByValue": True}, session)
    return result.get("result", {}).get("value")


def wait_for(session, expression, what, seconds=40):
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        try:
            value = evaluate(session, expression)
        except RuntimeError:  # the page is still loading: no context yet
            value = None
        if value:
            return value
        time.sleep(0.3)
    try:
        shown = evaluate(session, "document.location.href + ' ' + document.body.innerText.slice(0, 400)")
    except RuntimeError as e:
        shown = str(e)
    raise RuntimeError("page never showed %s; it showed %s" % (what, shown))


SHOWN = """JSON.stringify([...document.querySelectorAll('.camera')].map(c => ({
  camera: c.dataset.camera, title: c.querySelector('h2').textContent,
  identity: c.querySelector('.identity').textContent, head: c.querySelector('.head').textContent,
  motion: c.querySelector('.motion').textContent, picture: c.querySelector('img').naturalWidth})))"""

status = 1
try:
    target = call("Target.createTarget", {"url": URL})["targetId"]
    session = call("Target.attachToTarget", {"targetId": target, "flatten": True})["sessionId"]
    cameras = json.loads(wait_for(session, "(() => { const s = %s; const l = JSON.parse(s);"
                                  " return l.length == %d && l.every(c => c.picture > 0) ? s : ''; })()"
                                  % (SHOWN, CAMERAS), "every camera with its picture"))
    for c in cameras:
        print(json.dumps(c))
    evaluate(session, "document.querySelector('.camera[data-camera=\"%d\"] .motion').click()" % K)
    wait_for(session, "document.querySelector('.camera[data-camera=\"%d\"] .motion').textContent == 'motion on'" % K,
             "camera %d's motion on" % K)
    print(json.dumps({"camera": K, "motion": "on"}))
    status = 0
except Exception as e:  # the test prints why
    print("page check: %s" % e)
finally:
    try:
        call("Browser.close", deadline=5)
    except Exception:
        pass
    try:
        browser.wait(timeout=10)
    except subprocess.TimeoutExpired:
        browser.kill()
        browser.wait()
sys.exit(status)
