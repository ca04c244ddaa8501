#!/usr/bin/env python3
"""The cost of the credential check per request in the ONVIF mode: callgrind
instruction counts (exact, repeatable) and the mean wall time of many runs,
for an open action, a UsernameToken digest (with the used-nonce record
nearly full) and an HTTP digest, beside the legacy check.
Usage: bench/auth-cost.py [BUILD_DIR] (default build/); RUNS (200) sets the runs."""
import base64, hashlib, os, re, shutil, subprocess, sys, tempfile, time

top = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
build = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else os.path.join(top, "build"))
service, shm = os.path.join(build, "device_service"), os.path.join(build, "onvif-shm")
runs = int(os.environ.get("RUNS", "200"))
root = tempfile.mkdtemp(prefix="onvif-auth-bench-")
env = {"ONVIF_ROOT": root, "PATH": "/usr/bin:/bin", "REMOTE_ADDR": "127.0.0.1", "REQUEST_METHOD": "POST",
       "REQUEST_URI": "/onvif/device_service", "HOST": "127.0.0.1"}
SOAP = ('<?xml version="1.0"?><s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" '
        'xmlns:tds="http://www.onvif.org/ver10/device/wsdl"><s:Header>%s</s:Header><s:Body>%s</s:Body></s:Envelope>')
TYPE = "http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-username-token-profile-1.0#PasswordDigest"
count = 0


def token():
    global count
    count += 1
    nonce = os.urandom(16)
    created = time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime())
    digest = base64.b64encode(hashlib.sha1(nonce + created.encode() + b"onvif1234").digest()).decode()
    return ('<wsse:Security xmlns:wsse="http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-secext-1.0.xsd" '
            'xmlns:wsu="http://docs.oasis-open.org/wss/2004/01/oasis-200401-wss-wssecurity-utility-1.0.xsd">'
            '<wsse:UsernameToken><wsse:Username>onvifuser</wsse:Username><wsse:Password Type="%s">%s</wsse:Password>'
            '<wsse:Nonce>%s</wsse:Nonce><wsu:Created>%s</wsu:Created></wsse:UsernameToken></wsse:Security>'
            % (TYPE, digest, base64.b64encode(nonce).decode(), created))


def run(body, extra=None, prefix=()):
    e = dict(env, CONTENT_LENGTH=str(len(body)), **(extra or {}))
    return subprocess.run(list(prefix) + [service], input=body.encode(), env=e, capture_output=True)


def http_digest():
    out = run(SOAP % ("", "<tds:GetUsers/>")).stdout.decode()
    nonce = re.search(r'nonce="([0-9a-f]+)"', out).group(1)
    h = lambda s: hashlib.sha256(s.encode()).hexdigest()
    global count
    count += 1
    nc = "%08x" % count
    resp = h(":".join([h("onvifuser:ONVIF camera:onvif1234"), nonce, nc, "ab", "auth", h("POST:/onvif/device_service")]))
    return {"HTTP_AUTHORIZATION": 'Digest username="onvifuser", realm="ONVIF camera", nonce="%s", '
            'uri="/onvif/device_service", algorithm=SHA-256, response="%s", qop=auth, nc=%s, cnonce="ab"' % (nonce, resp, nc)}


def set_mode(mode):
    conf = os.path.join(root, "tmp/onvif/onvif.conf")
    text = open(conf).read()
    open(conf, "w").write(re.sub(r"Conformance\.Mode=\w+", "Conformance.Mode=" + mode, text))


CASES = [
    ("legacy, GetUsers with a digest token", "legacy", lambda: (SOAP % (token(), "<tds:GetUsers/>"), None)),
    ("ONVIF, GetSystemDateAndTime (PRE_AUTH)", "onvif", lambda: (SOAP % ("", "<tds:GetSystemDateAndTime/>"), None)),
    ("ONVIF, GetUsers with a digest token", "onvif", lambda: (SOAP % (token(), "<tds:GetUsers/>"), None)),
    ("ONVIF, GetUsers with HTTP digest SHA-256", "onvif", lambda: (SOAP % ("", "<tds:GetUsers/>"), http_digest())),
]

try:
    shutil.copytree(os.path.join(top, "factory"), root, dirs_exist_ok=True)
    subprocess.run([shm, "create"], env=env, check=True)
    subprocess.run([shm, "set", "1=1", "845=1"], env=env, check=True)
    # A used-nonce record three quarters full, as under steady load.
    slots = 8192
    with open(os.path.join(root, "tmp/onvif/used_nonces"), "wb") as f:
        live = int(time.time()) + 3600
        for i in range(slots):
            key = hashlib.sha1(b"fill%d" % i).digest()[:12]
            f.write(key + (live if i % 4 else 0).to_bytes(4, "little"))
    print("| request | instructions (callgrind) | mean wall time, %d runs |" % runs)
    print("|---|---:|---:|")
    for name, mode, make in CASES:
        set_mode(mode)
        body, extra = make()
        out = os.path.join(root, "callgrind.out")
        run(body, extra, ["valgrind", "--tool=callgrind", "--callgrind-out-file=" + out])
        instructions = re.search(r"summary: (\d+)", open(out).read()).group(1)
        requests = [make() for _ in range(runs)]
        start = time.perf_counter()
        for body, extra in requests:
            r = run(body, extra)
            assert b"200 OK" in r.stdout, r.stdout[:300]
        mean = (time.perf_counter() - start) / runs * 1000
        print("| %s | %s | %.2f ms |" % (name, instructions, mean))
finally:
    subprocess.run([shm, "remove"], env=env)
    shutil.rmtree(root, ignore_errors=True)
