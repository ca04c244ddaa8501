"""Security test cases: the UsernameToken profile and HTTP digest authentication."""
import hashlib
import os
import re

from registry import case
from soap import DIGEST, NS, check, el, envelope, username_token

PREFIXES = ("SECURITY-",)


def get_users(cam, header="", authorization=None):
    """GetUsers with the given security header and HTTP Authorization."""
    return cam.post(envelope('<tds:GetUsers xmlns:tds="%s"/>' % NS["tds"], el("s:Header", header)),
                    headers={"Authorization": authorization} if authorization else None)


@case("SECURITY-1-1-1")
def username_token_profile(cam, f):
    text = DIGEST.replace("#PasswordDigest", "#PasswordText")
    for why, header in (("missing nonce", username_token(cam.user, cam.password, nonce=False)),
                        ("missing timestamp", username_token(cam.user, cam.password, created=False)),
                        ("incorrect password type", username_token(cam.user, cam.password, password_type=text))):
        answer = get_users(cam, header)
        check(answer.status in (400, 401) and "NotAuthorized" in answer.text, "%s accepted: %d" % (why, answer.status))
    answer = get_users(cam, username_token(cam.user, cam.password))
    check(answer.status == 200 and "GetUsersResponse" in answer.text, "a correct token refused: %d" % answer.status)


@case("SECURITY-1-1-2")
def http_digest(cam, f):
    answer = get_users(cam)
    check(answer.status == 401, "no credentials answered %d" % answer.status)
    challenges = ", ".join(answer.headers.get_all("WWW-Authenticate") or [])
    check(re.findall(r"algorithm=([\w-]+)", challenges)[:2] == ["SHA-256", "MD5"], "challenges: %s" % challenges)
    realm = re.search(r'realm="([^"]*)"', challenges).group(1)
    nonce = re.search(r'nonce="([^"]*)"', challenges).group(1)
    for nc, algorithm in ((1, "SHA-256"), (2, "MD5")):
        h = lambda s: hashlib.new("sha256" if algorithm == "SHA-256" else "md5", s.encode()).hexdigest()  # noqa: E731
        count, cnonce, uri = "%08x" % nc, os.urandom(8).hex(), "/onvif/device_service"
        response = h(":".join([h("%s:%s:%s" % (cam.user, realm, cam.password)), nonce, count, cnonce, "auth",
                               h("POST:" + uri)]))
        answer = get_users(cam, authorization='Digest username="%s", realm="%s", nonce="%s", uri="%s", algorithm=%s, '
                           'response="%s", qop=auth, nc=%s, cnonce="%s"'
                           % (cam.user, realm, nonce, uri, algorithm, response, count, cnonce))
        check(answer.status == 200 and "GetUsersResponse" in answer.text, "%s digest refused: %d" % (algorithm, answer.status))
