"""The conformance flow: runs the device test cases that apply to the simulated camera, by test case
ID, and prints (or writes, CONFORMANCE_REPORT=FILE) the table of results. Run by
tests/client_flow_test.sh conformance, which starts the camera and sets ONVIF_PORT and the rest.
  run.py [ID-PREFIX...]      only the cases whose ID starts with one of the prefixes (or CONFORMANCE_CASES)
A case listed in expected-failures (ID, then why) may fail; one that passes there fails the flow,
so the list only shrinks."""
import collections
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
    with open(os.path.join(HERE, "expected-failures")) as f:
        rows = [line.strip().partition(" ") for line in f if line.strip() and not line.strip().startswith("#")]
    return {case_id: why.strip() for case_id, _, why in rows}


def document_cases():
    """Every case of the covered test documents, ID to title, from the documents' own tool where present."""
    tool = os.path.join(os.environ.get("ONVIF_TOP", os.path.join(HERE, "..", "..")), "..", "shared", "onvif-docs", "testcase")
    if not os.path.exists(tool):
        return {}
    listing = subprocess.run([sys.executable, tool, "list"], capture_output=True, text=True, timeout=60).stdout
    rows = [line.split(None, 1) + [""] for line in listing.splitlines() if line.startswith(SCOPE)]
    return {row[0]: row[1].rsplit("[", 1)[0].strip() for row in rows}


def order(case_id):
    head, *numbers = case_id.split("-")
    return (head, [int(n) for n in numbers if n.isdigit()])


def main():
    prefixes = tuple(sys.argv[1:] or os.environ.get("CONFORMANCE_CASES", "").split())
    wanted = lambda case_id: not prefixes or case_id.startswith(prefixes)  # noqa: E731
    cam = Camera(int(os.environ["ONVIF_PORT"]))
    found = features.discover(cam)
    known = expected_failures()
    rows, unexpected = [], []
    started = time.time()
    for case_id in filter(wanted, sorted(registry.CASES, key=order)):
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
            detail = "passes now: remove it from expected-failures" if result == "pass" else detail
        rows.append((case_id, result, " ".join(detail.split())[:300]))
        print("%s %s %s" % (result.upper(), case_id, detail[:300]), flush=True)
    titles = document_cases()
    for table, result in ((registry.NOT_APPLICABLE, "does not apply"), (registry.NOT_CODED, "not run"),
                          (dict.fromkeys(titles, "not coded yet"), "not run")):
        listed = {row[0] for row in rows}
        rows += [(case_id, result, reason) for case_id, reason in table.items() if case_id not in listed and wanted(case_id)]
    rows.sort(key=lambda row: order(row[0]))
    table = ["| Test case | Title | Result | Note |", "|---|---|---|---|"]
    table += ["| %s | %s | %s | %s |" % (i, titles.get(i, ""), r, d.replace("|", "/")) for i, r, d in rows]
    counts = collections.Counter(result for _, result, _ in rows)
    summary = ", ".join("%d %s" % (n, r) for r, n in sorted(counts.items()))
    print("\n".join(table))
    print("conformance: %s in %.0f s" % (summary, time.time() - started))
    if os.environ.get("CONFORMANCE_REPORT"):
        with open(os.path.join(HERE, "report-head.md")) as head, open(os.environ["CONFORMANCE_REPORT"], "w") as f:
            f.write(head.read() + "\n".join(table) + "\n\n" + summary + ".\n")
    if unexpected:
        print("conformance: unexpected results: %s" % " ".join(unexpected))
    return 1 if unexpected else 0


if __name__ == "__main__":
    sys.exit(main())
