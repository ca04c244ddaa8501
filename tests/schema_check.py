#!/usr/bin/python3
"""Checks every answer the end-to-end tests kept against the ONVIF schema.

usage: schema_check.py ANSWER_DIR [--require-all]

Runs ../shared/onvif-schema/validate once over all kept answers. An invalid
answer fails unless tests/schema-exceptions lists it (legacy mode only); with
--require-all, so does a listed exception that no answer shows.
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

# The expected exceptions (tests/schema-exceptions): (answer element or None, message pattern, why).
with open(os.path.join(HERE, "schema-exceptions")) as listed:
    EXCEPTIONS = [(None if el == "-" else el, pattern, why) for el, pattern, why in
                  (line.rstrip("\n").split("\t") for line in listed if line.strip() and not line.startswith("#"))]


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
