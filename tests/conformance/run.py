"""The conformance flow: runs the device test cases that apply to the simulated camera, by test case
ID, and prints (or writes, CONFORMANCE_REPORT=FILE) the table of results. Run by
tests/client_flow_test.sh conformance, which starts the camera and sets ONVIF_PORT and the rest.
  run.py [ID-PREFIX...]      only the cases whose ID starts with one of the prefixes (or CONFORMANCE_CASES)
A case listed in expected-failures (ID, then why) may fail; one that passes there fails the flow,
so the list only shrinks."""
import importlib
import os
import subprocess
import sys
import time
import traceback

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import features  # noqa: E402
import registry  # noqa: E402
from soap import Camera  # noqa: E402
HERE = os.path.dirname(os.path.abspath(__file__))
# One module cases_*.py per ONVIF test document, each naming the case ID prefixes it covers in PREFIXES:
# a new document's cases (events, security) join as a module of their own.
MODULES = [importlib.import_module(name[:-3]) for name in sorted(os.listdir(HERE))
           if name.startswith("cases_") and name.endswith(".py")]
SCOPE = tuple(prefix for module in MODULES for prefix in module.PREFIXES)


def expected_failures():
    known = {}
    with open(os.path.join(HERE, "expected-failures")) as f:
        for line in f:
            line = line.strip()
            if line and not line.startswith("#"):
                case_id, _, why = line.partition(" ")
                known[case_id] = why.strip()
    return known


def document_cases():
    """Every case of the covered test documents, ID to title, from the documents' own tool where present."""
    tool = os.path.join(os.environ.get("ONVIF_TOP", os.path.join(HERE, "..", "..")), "..", "shared", "onvif-docs", "testcase")
    if not os.path.exists(tool):
        return {}
    listing = subprocess.run([sys.executable, tool, "list"], capture_output=True, text=True, timeout=60).stdout
    cases = {}
    for line in listing.splitlines():
        parts = line.split(None, 1)
        if parts and parts[0].startswith(SCOPE):
            cases[parts[0]] = parts[1].rsplit("[", 1)[0].strip() if len(parts) > 1 else ""
    return cases


DOC_HEAD = """# Device test cases in the ONVIF mode

The camera in the ONVIF mode (`Conformance.Mode=onvif`) against the device test cases of the Base
(DEVICE, DISCOVERY), Media Configuration (MEDIA), PTZ, Imaging, DeviceIO and Event Handling (EVENT) device
test documents. Each case's procedure and pass criteria are coded in `tests/conformance/` (one module per document)
and run against the simulated camera by the ctest `Conformance.DeviceTestCases`. Whether a case
applies follows the camera's own answers (capabilities, services, profiles, PTZ nodes, focus move
options, audio and IO counts), as the test documents' feature discovery does; a case that does
not apply names the feature the camera does not have. "known failure" is a case listed in
`tests/conformance/expected-failures` with why; "not run" is a case that applies but is not coded.

This table is the flow's output:

    CONFORMANCE_REPORT=$PWD/docs/conformance.md sh tests/client_flow_test.sh conformance onvif

"""


def order(case_id):
    head, *numbers = case_id.split("-")
    return (head, [int(n) for n in numbers if n.isdigit()])


def main():
    prefixes = sys.argv[1:] or os.environ.get("CONFORMANCE_CASES", "").split()
    cam = Camera(int(os.environ["ONVIF_PORT"]))
    found = features.discover(cam)
    known = expected_failures()
    rows, unexpected = [], []
    started = time.time()
    for case_id in sorted(registry.CASES, key=order):
        if prefixes and not any(case_id.startswith(p) for p in prefixes):
            continue
        needs, fn = registry.CASES[case_id]
        lacking = [n for n in needs if not found.get(n)]
        if lacking:
            rows.append((case_id, "does not apply", features.MISSING.get(lacking[0], "the camera has no " + lacking[0])))
            print("N/A  %s (%s)" % (case_id, rows[-1][2]), flush=True)
            continue
        cam.log = []
        try:
            fn(cam, found)
            result, detail = "pass", ""
        except Exception as e:  # every failure is a row of the table
            result, detail = "fail", "%s" % e
            traceback.print_exc(file=sys.stdout)
            if cam.log:
                print("last request: %s\nits answer: %s" % (cam.log[-1][0][-1500:], cam.log[-1][1].text[-1500:]))
        if result == "fail" and case_id in known:
            result, detail = "known failure", known[case_id]
        elif result == "fail" or case_id in known:
            unexpected.append(case_id)
            if case_id in known:
                detail = "passes now: remove it from expected-failures"
        rows.append((case_id, result, " ".join(detail.split())[:300]))
        print("%s %s %s" % (result.upper(), case_id, detail[:300]), flush=True)
    listed = {row[0] for row in rows}
    for table, result in ((registry.NOT_APPLICABLE, "does not apply"), (registry.NOT_CODED, "not run")):
        for case_id, reason in table.items():
            if case_id not in listed and (not prefixes or any(case_id.startswith(p) for p in prefixes)):
                rows.append((case_id, result, reason))
                listed.add(case_id)
    titles = document_cases()
    for case_id in titles:
        if case_id not in listed and (not prefixes or any(case_id.startswith(p) for p in prefixes)):
            rows.append((case_id, "not run", "not coded yet"))
    rows.sort(key=lambda row: order(row[0]))
    table = ["| Test case | Title | Result | Note |", "|---|---|---|---|"]
    table += ["| %s | %s | %s | %s |" % (i, titles.get(i, ""), r, d.replace("|", "/")) for i, r, d in rows]
    counts = {}
    for _, result, _ in rows:
        counts[result] = counts.get(result, 0) + 1
    summary = ", ".join("%d %s" % (n, r) for r, n in sorted(counts.items()))
    print("\n".join(table))
    print("conformance: %s in %.0f s" % (summary, time.time() - started))
    report = os.environ.get("CONFORMANCE_REPORT")
    if report:
        with open(report, "w") as f:
            f.write(DOC_HEAD + "\n".join(table) + "\n\n" + summary + ".\n")
    if unexpected:
        print("conformance: unexpected results: %s" % " ".join(unexpected))
    return 1 if unexpected else 0


if __name__ == "__main__":
    sys.exit(main())
