"""Security test cases: the UsernameToken profile and HTTP digest authentication."""
import base64
import datetime
import hashlib
import os
import re
import urllib.error
import urllib.request

from registry import case
from soap import DIGEST, NS, WSSE, WSU, check

PREFIXES = ("SECURITY-",)
TEXT = DIGEST.replace("#PasswordDigest", "#PasswordText")


def get_users(cam, header="", authorization=None):
    """GetUsers with the given security header; (status, headers, body)."""
    envelope = ('<?xml version="1.0" encoding="UTF-8"?><s:Envelope xmlns:s="%s"><s:Header>%s</s:Header><s:Body>'
                '<tds:GetUsers xmlns:tds="%s"/></s:Body></s:Envelope>' % (NS["s"], header, NS["tds"]))
    headers = {"Content-Type": "application/soap+xml; charset=utf-8"}
    if authorization:
        headers["Authorization"] = authorization
    request = urllib.request.Request(cam.url, data=envelope.encode(), headers=headers)
    try:
        with urllib.request.urlopen(request, timeout=20) as r:
            return r.status, r.headers, r.read().decode("utf-8", "replace")
    except urllib.error.HTTPError as e:
        return e.code, e.headers, e.read().decode("utf-8", "replace")


def token(cam, nonce=True, created=True, password_type=DIGEST):
    raw = os.urandom(16)
    stamp = datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")
    digest = base64.b64encode(hashlib.sha1(raw + stamp.encode() + cam.password.encode()).digest()).decode()
    sent = digest if password_type == DIGEST else cam.password
    return ('<wsse:Security xmlns:wsse="%s" xmlns:wsu="%s"><wsse:UsernameToken><wsse:Username>%s</wsse:Username>'
            '<wsse:Password Type="%s">%s</wsse:Password>%s%s</wsse:UsernameToken></wsse:Security>'
            % (WSSE, WSU, cam.user, password_type, sent,
               "<wsse:Nonce>%s</wsse:Nonce>" % base64.b64encode(raw).decode() if nonce else "",
               "<wsu:Created>%s</wsu:Created>" % stamp if created else ""))


@case("SECURITY-1-1-1")
def username_token(cam, f):
    for why, header in (("missing nonce", token(cam, nonce=False)), ("missing timestamp", token(cam, created=False)),
                        ("incorrect password type", token(cam, password_type=TEXT))):
        status, _, body = get_users(cam, header)
        check(status in (400, 401) and "NotAuthorized" in body, "%s accepted: %d" % (why, status))
    status, _, body = get_users(cam, token(cam))
    check(status == 200 and "GetUsersResponse" in body, "a correct token refused: %d" % status)


@case("SECURITY-1-1-2")
def http_digest(cam, f):
    status, headers, _ = get_users(cam)
    check(status == 401, "no credentials answered %d" % status)
    challenges = ", ".join(headers.get_all("WWW-Authenticate") or [])
    algorithms = re.findall(r"algorithm=([\w-]+)", challenges)
    check(algorithms[:2] == ["SHA-256", "MD5"], "challenges: %s" % challenges)
    realm = re.search(r'realm="([^"]*)"', challenges).group(1)
    nonce = re.search(r'nonce="([^"]*)"', challenges).group(1)
    for nc, algorithm in ((1, "SHA-256"), (2, "MD5")):
        h = lambda s: hashlib.new("sha256" if algorithm == "SHA-256" else "md5", s.encode()).hexdigest()
        count, cnonce, uri = "%08x" % nc, os.urandom(8).hex(), "/onvif/device_service"
        response = h(":".join([h("%s:%s:%s" % (cam.user, realm, cam.password)), nonce, count, cnonce, "auth",
                               h("POST:" + uri)]))
        authorization = ('Digest username="%s", realm="%s", nonce="%s", uri="%s", algorithm=%s, response="%s", '
                         'qop=auth, nc=%s, cnonce="%s"' % (cam.user, realm, nonce, uri, algorithm, response, count, cnonce))
        status, _, body = get_users(cam, authorization=authorization)
        check(status == 200 and "GetUsersResponse" in body, "%s digest refused: %d" % (algorithm, status))
