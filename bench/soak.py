#!/usr/bin/env python3
"""The soak's clients: CLIENTS threads send the mix a VMS and Home Assistant
produce to the simulated camera until REQUESTS requests are done, check every
answer, and print one JSON line of counts for bench/soak.sh.

usage: soak.py URL ROOT REQUESTS CLIENTS LIGHTTPD_PID
"""
import json, os, random, re, sys, threading, time, urllib.request
import xml.etree.ElementTree as ET

url, root, total, clients, lighttpd = sys.argv[1], sys.argv[2], int(sys.argv[3]), int(sys.argv[4]), sys.argv[5]
NS = ('xmlns:s="http://www.w3.org/2003/05/soap-envelope" xmlns:tds="http://www.onvif.org/ver10/device/wsdl" '
      'xmlns:trt="http://www.onvif.org/ver10/media/wsdl" xmlns:tptz="http://www.onvif.org/ver20/ptz/wsdl" '
      'xmlns:timg="http://www.onvif.org/ver20/imaging/wsdl" xmlns:tev="http://www.onvif.org/ver10/events/wsdl" '
      'xmlns:wsnt="http://docs.oasis-open.org/wsn/b-2" xmlns:tt="http://www.onvif.org/ver10/schema"')
AUTH = ('<wsse:Security xmlns:wsse="http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd">'
        '<wsse:UsernameToken><wsse:Username>admin</wsse:Username><wsse:Password Type="PasswordText">admin'
        '</wsse:Password></wsse:UsernameToken></wsse:Security>')
# In today's mode this camera (variant 1) addresses every subscription action
# to the first pull point (the address's Idx is read on variants 32 and 34
# only): one client holds it and renews and replaces it, the others poll.
# A mode that addresses pull points by the request's query string will want
# one per client here.
PULL_CLIENTS = 1

lock = threading.Lock()
counts = {"requests": 0, "malformed": 0, "unexpected_faults": 0, "by_action": {}}
faults = []
accepted_passwords = {}   # user -> last password an accepted SetUser wrote
accepted_brightness = [None]
rss = []


def envelope(body, to=None):
    header = AUTH + (f'<wsa:To xmlns:wsa="http://www.w3.org/2005/08/addressing">{to}</wsa:To>' if to else "")
    return f'<?xml version="1.0" encoding="UTF-8"?><s:Envelope {NS}><s:Header>{header}</s:Header><s:Body>{body}</s:Body></s:Envelope>'


def post(action, body, to=None, expect_fault=False):
    data = envelope(body, to).encode()
    request = urllib.request.Request(url, data=data, headers={"Content-Type": "application/soap+xml"})
    try:
        with urllib.request.urlopen(request, timeout=120) as r:
            status, text = r.status, r.read()
    except urllib.error.HTTPError as e:
        status, text = e.code, e.read()
    ok_xml = True
    try:
        doc = ET.fromstring(text)
        fault = doc.find(".//{http://www.w3.org/2003/05/soap-envelope}Fault") is not None
        body_el = doc.find("{http://www.w3.org/2003/05/soap-envelope}Body")
        ok_xml = body_el is not None
    except ET.ParseError:
        ok_xml, fault = False, True
    with lock:
        counts["requests"] += 1
        counts["by_action"][action] = counts["by_action"].get(action, 0) + 1
        if not ok_xml:
            counts["malformed"] += 1
            faults.append(f"malformed {action}: {text[:200]!r}")
        elif (status != 200 or fault) and not expect_fault:
            counts["unexpected_faults"] += 1
            faults.append(f"{action} {status}: {text[-300:]!r}")
        n = counts["requests"]
    if n % 1000 == 0:
        sample_rss()
    return status, text.decode("utf-8", "replace")


def sample_rss():
    try:
        for line in open(f"/proc/{lighttpd}/status"):
            if line.startswith("VmRSS:"):
                with lock:
                    rss.append(int(line.split()[1]))
    except OSError:
        pass


def subscription_index(text):
    m = re.search(r"Idx=(\d+)", text)
    return int(m.group(1)) if m else None


def client(number):
    rnd = random.Random(number)
    user = f"soak{number}"
    status, _ = post("CreateUsers", f"<tds:CreateUsers><tds:User><tt:Username>{user}</tt:Username><tt:Password>"
                     f"start{number}pw</tt:Password><tt:UserLevel>User</tt:UserLevel></tds:User></tds:CreateUsers>")
    if status == 200:
        with lock:
            accepted_passwords[user] = f"start{number}pw"
    pull = None
    if number < PULL_CLIENTS:
        _, text = post("CreatePullPointSubscription", "<tev:CreatePullPointSubscription/>")
        pull = subscription_index(text)
    k = 0
    mix = [("GetDeviceInformation", 10), ("GetCapabilities", 15), ("GetProfiles", 15), ("GetStreamUri", 10),
           ("GetSnapshotUri", 6), ("PTZGetStatus", 10), ("PTZMove", 4), ("PullMessages", 8), ("Renew", 2),
           ("Replace", 1), ("SetUser", 3), ("SetImagingSettings", 2), ("UserChurn", 1)]
    names = [m[0] for m in mix]
    weights = [m[1] for m in mix]
    while True:
        with lock:
            if counts["requests"] >= total:
                break
        k += 1
        what = rnd.choices(names, weights)[0]
        profile = f"Profile{rnd.randint(1, 3)}"
        if what == "GetDeviceInformation":
            post(what, "<tds:GetDeviceInformation/>")
        elif what == "GetCapabilities":
            post(what, "<tds:GetCapabilities><tds:Category>All</tds:Category></tds:GetCapabilities>")
        elif what == "GetProfiles":
            post(what, "<trt:GetProfiles/>")
        elif what == "GetStreamUri":
            post(what, f"<trt:GetStreamUri><trt:StreamSetup><tt:Stream>RTP-Unicast</tt:Stream><tt:Transport>"
                       f"<tt:Protocol>RTSP</tt:Protocol></tt:Transport></trt:StreamSetup><trt:ProfileToken>{profile}"
                       f"</trt:ProfileToken></trt:GetStreamUri>")
        elif what == "GetSnapshotUri":
            post(what, f"<trt:GetSnapshotUri><trt:ProfileToken>{profile}</trt:ProfileToken></trt:GetSnapshotUri>")
        elif what == "PTZGetStatus":
            post(what, "<tptz:GetStatus><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:GetStatus>")
        elif what == "PTZMove":
            post("ContinuousMove", "<tptz:ContinuousMove><tptz:ProfileToken>Profile1</tptz:ProfileToken><tptz:Velocity>"
                                   "<tt:PanTilt x=\"0.1\" y=\"0\"/></tptz:Velocity></tptz:ContinuousMove>")
            post("Stop", "<tptz:Stop><tptz:ProfileToken>Profile1</tptz:ProfileToken></tptz:Stop>")
        elif what in ("PullMessages", "Renew", "Replace") and pull is not None:
            to = f"http://127.0.0.1/onvif/device_service?Idx={pull}"
            if what == "PullMessages":
                post(what, "<tev:PullMessages><tev:Timeout>PT1S</tev:Timeout><tev:MessageLimit>10"
                           "</tev:MessageLimit></tev:PullMessages>", to)
            elif what == "Renew":
                post(what, "<wsnt:Renew><wsnt:TerminationTime>PT60S</wsnt:TerminationTime></wsnt:Renew>", to)
            else:
                post("Unsubscribe", "<wsnt:Unsubscribe/>", to)
                _, text = post("CreatePullPointSubscription", "<tev:CreatePullPointSubscription/>")
                pull = subscription_index(text)
        elif what == "SetUser":
            password = f"pass{number}x{k}"[:14]
            status, _ = post(what, f"<tds:SetUser><tds:User><tt:Username>{user}</tt:Username><tt:Password>{password}"
                                   f"</tt:Password><tt:UserLevel>User</tt:UserLevel></tds:User></tds:SetUser>")
            if status == 200:
                with lock:
                    accepted_passwords[user] = password
        elif what == "SetImagingSettings" and number == 0:
            value = rnd.randint(0, 100)
            status, _ = post(what, "<timg:SetImagingSettings><timg:VideoSourceToken>VideoSource1</timg:VideoSourceToken>"
                                   f"<timg:ImagingSettings><tt:Brightness>{value}</tt:Brightness></timg:ImagingSettings>"
                                   "</timg:SetImagingSettings>")
            if status == 200:
                accepted_brightness[0] = value
        elif what == "UserChurn":
            temp = f"tmp{number}"
            post("CreateUsers", f"<tds:CreateUsers><tds:User><tt:Username>{temp}</tt:Username><tt:Password>"
                                f"churn{number}pw</tt:Password><tt:UserLevel>User</tt:UserLevel></tds:User></tds:CreateUsers>")
            post("DeleteUsers", f"<tds:DeleteUsers><tds:Username>{temp}</tds:Username></tds:DeleteUsers>")
        else:
            post("GetCapabilities", "<tds:GetCapabilities><tds:Category>All</tds:Category></tds:GetCapabilities>")
    if pull is not None:
        post("Unsubscribe", "<wsnt:Unsubscribe/>", f"http://127.0.0.1/onvif/device_service?Idx={pull}")


start = time.time()
sample_rss()
threads = [threading.Thread(target=client, args=(c,)) for c in range(clients)]
for t in threads:
    t.start()
for t in threads:
    t.join()
seconds = time.time() - start
sample_rss()

# No lost update: the stored file holds exactly what the accepted writes imply.
users = {}
for line in open(f"{root}/usr/apache/htdocs/onvif/Users.conf"):
    parts = line.rstrip("\n").split(":")
    if len(parts) == 3:
        users[parts[0]] = parts[2]
lost = [u for u, p in accepted_passwords.items() if users.get(u) != p]
lost += [u for u in users if u.startswith("tmp")]
if accepted_brightness[0] is not None:
    source = open(f"{root}/tmp/onvif/VideoSource1.VSource").read()
    m = re.search(r"^Brightness=(\S+)", source, re.M)
    if not m or float(m.group(1)) != accepted_brightness[0]:
        lost.append(f"Brightness {m.group(1) if m else None} != {accepted_brightness[0]}")
event_files = [f for f in os.listdir(f"{root}/tmp/onvif") if f.startswith("eventfile")]
event_bytes = sum(os.path.getsize(f"{root}/tmp/onvif/{f}") for f in event_files)
print(json.dumps({"requests": counts["requests"], "clients": clients, "seconds": round(seconds, 1),
                  "malformed": counts["malformed"], "unexpected_faults": counts["unexpected_faults"],
                  "lost_updates": lost, "event_files": len(event_files), "event_bytes": event_bytes,
                  "lighttpd_rss_kb": rss, "by_action": counts["by_action"], "first_faults": faults[:5]}))
