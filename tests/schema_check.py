#!/usr/bin/python3
"""Checks every answer the end-to-end tests kept against the ONVIF schema.

usage: schema_check.py ANSWER_DIR [--require-all]

Runs ../shared/onvif-schema/validate once over all kept answers. An invalid
answer fails the check unless it is one of the expected exceptions below:
answers the camera gives on purpose although the schema rejects them, in the
legacy mode only; an answer of the ONVIF mode has no exception. With
--require-all (a run of the whole suite), an exception that no answer shows
fails too, so that the list stays true.
"""
import os
import re
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
# The schema and its validator sit beside the project (../shared/onvif-schema),
# or where ONVIF_SCHEMA_DIR says.
SCHEMA_DIR = os.environ.get("ONVIF_SCHEMA_DIR") or os.path.join(HERE, "..", "..", "shared", "onvif-schema")
VALIDATE = os.path.join(SCHEMA_DIR, "validate")
SKIPPED = 77
# Answers the camera gave in the ONVIF mode (Conformance.Mode=onvif): the
# exceptions below are the legacy mode's, and none applies to these.
STRICT_PREFIX = "onvif-mode."

# (answer element, the validator's message (a regular expression), why the
# camera answers so). The element is the first child of the SOAP Body, or
# None for a body the parser could not read to its end.
EXCEPTIONS = [
    ("SOAP-ENV:Fault", r"Fault carries attributes \['\{http://www.w3.org/2003/05/soap-envelope\}encodingStyle'\]",
     "the generic action fault carries SOAP-ENV:encodingStyle on SOAP-ENV:Fault"),
    ("trt:CreateUsersResponse", r"CreateUsersResponse': No matching global declaration",
     "the user actions answer in the media namespace"),
    ("trt:SetUserResponse", r"SetUserResponse': No matching global declaration",
     "the user actions answer in the media namespace"),
    ("trt:DeleteUsersResponse", r"DeleteUsersResponse': No matching global declaration",
     "the user actions answer in the media namespace"),
    ("tmd:GetRelayOutputOptionsResponse", r"'False' is not a valid value of the atomic type 'xs:boolean'",
     "tmd:Discrete is written \"False\""),
    ("timg:GetImagingSettingsResponse", r"ExposurePriority': This element is not expected",
     "the imaging report names the exposure priority tt:ExposurePriority (and its window's sides follow)"),
    ("timg:GetImagingSettingsResponse", r"'\{http://www.onvif.org/ver10/schema\}(ExposureTime|Gain)': This element is not expected",
     "the imaging report prints the exposure values it has, in the file's order, whatever the schema's order"),
    (None, r"Opening and ending tag mismatch: ImagingSettings line 1 and WhiteBalance",
     "the imaging report closes a group whose opening line the settings file lacks"),
    ("tev:PullMessagesResponse", r"MaxTimeout': This element is not expected",
     "a pull that found no message answers tev:MaxTimeout"),
    ("tev:PullMessagesResponse", r"NotificationMessage': Missing child element",
     "pulled messages are copied from the event file as the event process wrote them"),
    ("wsnt:RenewResponse", r"'Z' is not a valid value of the atomic type 'xs:dateTime'",
     "a Renew without a termination time answers both times as \"Z\""),
    (None, r"Opening and ending tag mismatch: GetProfilesResponse line 1 and Body",
     "with the profile index missing, GetProfiles answers only its opening element"),
    (None, r"xmlParseEntityRef: no name",
     "the system log is copied into the answer as the file holds it"),
    ("tt:StopResponse", r"StopResponse': No matching global declaration",
     "the imaging focus stop answers tt:StopResponse"),
    ("tds:GetUsersResponse", r"UserLevel': \[facet 'enumeration'\] The value '' is not an element",
     "an ONVIF user whose stored level is unknown is listed with an empty level"),
    ("tptz:GetConfigurationsResponse", r"UseCount': '' is not a valid value of the atomic type 'xs:int'",
     "a PTZ configuration printed from a file whose use count is empty"),
    ("tds:GetScopesResponse", r"is not a valid value of the atomic type 'xs:anyURI'",
     "scopes are stored and listed as the client sent them"),
    ("tds:GetDiscoveryModeResponse", r"\[facet 'enumeration'\] The value '\w*' is not an element of the set \{'Discoverable'",
     "the discovery mode is stored and reported as the client sent it"),
    ("trt:GetMetadataConfigurationsResponse", r"SessionTimeout': '.*' is not a valid value of the atomic type 'xs:duration'",
     "a metadata session timeout is stored and reported as the client sent it"),
    ("trt:GetProfilesResponse", r"SessionTimeout': '.*' is not a valid value of the atomic type 'xs:duration'",
     "a metadata session timeout is stored and reported as the client sent it"),
]


def body_element(path):
    with open(path, "rb") as f:
        text = f.read().decode("utf-8", "replace")
    m = re.search(r"<SOAP-ENV:Body><([A-Za-z0-9_:.-]+)", text)
    return m.group(1) if m else None


def main():
    if len(sys.argv) < 2:
        print(__doc__)
        return 2
    if not os.path.exists(VALIDATE):
        print("no ONVIF schema validator at", VALIDATE, "(set ONVIF_SCHEMA_DIR): check skipped")
        return SKIPPED
    folder = sys.argv[1]
    require_all = "--require-all" in sys.argv[2:]
    answers = sorted(os.path.join(folder, n) for n in os.listdir(folder)) if os.path.isdir(folder) else []
    if not answers:
        print("no answers were kept in", folder)
        return 1 if require_all else 0
    out = subprocess.run([VALIDATE] + answers,
                         stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if out.returncode == 2:
        print(out.stdout)
        return 1
    seen = [0] * len(EXCEPTIONS)
    failures = []
    for line in out.stdout.splitlines():
        if not line.startswith("invalid "):
            continue
        path, _, message = line[len("invalid "):].partition(": ")
        element = body_element(path)
        if os.path.basename(path).startswith(STRICT_PREFIX):
            failures.append("%s (%s): %s" % (os.path.basename(path), element, message))
            continue
        for i, (want, pattern, _) in enumerate(EXCEPTIONS):
            if (want is None or want == element) and re.search(pattern, message):
                seen[i] += 1
                break
        else:
            failures.append("%s (%s): %s" % (os.path.basename(path), element, message))
    for f in failures:
        print("INVALID", f)
    stale = [EXCEPTIONS[i] for i, n in enumerate(seen) if n == 0]
    if require_all:
        for want, pattern, why in stale:
            print("EXCEPTION NO LONGER SEEN: %s %s (%s)" % (want, pattern, why))
    print("%d answers checked, %d invalid as expected, %d invalid otherwise" %
          (len(answers), sum(seen), len(failures)))
    return 1 if failures or (require_all and stale) else 0


if __name__ == "__main__":
    sys.exit(main())
