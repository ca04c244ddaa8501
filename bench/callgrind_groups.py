#!/usr/bin/env python3
"""Where one request's instructions go: reads callgrind outputs of the
program (unstripped release build with line information) and prints one
Markdown table, a column per request, a row per group of functions.

A function's own instructions belong to the group of its source file (code
the optimiser folded into a caller keeps its own file), or to the group named
for it below; C library and compiler-runtime code belongs to its callers'
groups in proportion to what each caller spent in it.

usage: callgrind_groups.py NAME=callgrind.out ...
"""
import re
import sys
from collections import defaultdict

GROUPS = ["start-up", "read and parse", "auth", "dispatch and request reads", "action's own work",
          "settings reads", "answer writing", "exit"]

# By function name first (C library and runtime start-up and exit; the
# segment attach before main; freeing the parsed request), then by file.
NAME_GROUPS = [
    (re.compile(r"^(exit|__run_exit_handlers|_IO_cleanup|_dl_fini|__libc_atexit|_IO_flush_all.*)$"), "exit"),
    (re.compile(r"^(TiXmlDocument::~TiXmlDocument|TiXmlNode::Clear|TiXml\w+::~TiXml)"), "exit"),
    (re.compile(r"^(getShareMemory|attachSegment)"), "start-up"),
    (re.compile(r"^(__libc_start_main|__libc_start_call_main|_start|__libc_init_first|__libc_setup_tls|"
                r"_dl_relocate_static_pie|_dl_non_dynamic_init|__tunables_init|init_cacheinfo|"
                r"_dl_aux_init|__libc_init_secure|_IO_init|__init_misc|_GLOBAL__sub_I.*|__libc_csu_init|"
                r"call_init|_init|frame_dummy|register_tm_clones|init_cpu_features.*|handle_intel.*|"
                r"intel_check_word.*|update_active.*|_dl_discover_osversion|__libc_early_init|"
                r"ARCH_SETUP_IREL|apply_irel|_dl_relocate_static_pie|__ctype_init)\b"), "start-up"),
]
FILE_GROUPS = [
    (re.compile(r"frame/(prescan|xmlsearch|request)\.cpp$|tinyxml"), "read and parse"),
    (re.compile(r"frame/(security|comcrypto|users)\.cpp$"), "auth"),
    (re.compile(r"frame/(dispatch|request_values|setting_reads)\.cpp$|state/mode\.cpp$"), "dispatch and request reads"),
    (re.compile(r"state/(config|profiles|netaddr|paths|shm|model|model_names|calendar|timespan|"
                r"checkers|storelock|command)\.(cpp|h)$"), "settings reads"),
    (re.compile(r"frame/(answer|envelope)\.cpp$"), "answer writing"),
    (re.compile(r"/(device|media|ptz|imaging|deviceio|events)/[^/]+\.(cpp|h)$"), "action's own work"),
]


def group_of(fn, file):
    for pattern, group in NAME_GROUPS:
        if pattern.search(fn):
            return group
    for pattern, group in FILE_GROUPS:
        if pattern.search(file or ""):
            return group
    return None  # the callers' groups


def base_name(full):
    """A function's name without its recursion level, clone mark and arguments."""
    full = re.sub(r"'\d+$", "", full)
    full = re.sub(r" \[clone [^]]*\]", "", full)
    return full if full.startswith("(") else full.split("(")[0]


def read_profile(path):
    names = {"fl": {}, "fn": {}}
    self_cost = defaultdict(int)          # (fn, file) -> own instructions
    calls = defaultdict(int)              # ((fn, file), callee fn) -> instructions of the calls
    callers = defaultdict(list)
    fn = file = function_file = callee = None
    call_line = False

    def name(kind, text):
        m = re.match(r"\((\d+)\)(?: (.*))?$", text)
        if not m:
            return text
        if m.group(2) is not None:
            names[kind][m.group(1)] = m.group(2)
        return names[kind].get(m.group(1), "?")

    for raw in open(path, errors="replace"):
        line = raw.rstrip("\n")
        key, _, value = line.partition("=")
        if key == "fl":
            file = function_file = name("fl", value)
        elif key in ("fi", "fe"):
            # Code folded in from another file, up to the next change; the
            # system headers' inline wrappers stay with the function.
            file = name("fl", value)
            if file.startswith("/usr/"):
                file = function_file
        elif key == "fn":
            fn = base_name(name("fn", value))
            file = function_file
        elif key in ("cfi", "cfl"):
            name("fl", value)
        elif key == "cfn":
            callee = base_name(name("fn", value))
        elif key == "calls":
            call_line = True
        elif line and (line[0].isdigit() or line[0] in "+-*"):
            parts = line.split()
            cost = int(parts[1]) if len(parts) > 1 else 0
            if call_line:
                calls[((fn, file), callee)] += cost
                call_line = False
            else:
                self_cost[(fn, file)] += cost
    nodes_of = defaultdict(set)
    for node in self_cost:
        nodes_of[node[0]].add(node)
    for (caller, callee_fn), cost in calls.items():
        nodes_of[caller[0]].add(caller)
        callers[callee_fn].append((caller, cost))
    return self_cost, calls, callers, nodes_of


def spending(path):
    self_cost, calls, callers, nodes_of = read_profile(path)
    nodes = set(self_cost) | {c for c, _ in calls}
    share = {}
    for node in nodes:
        group = group_of(*node)
        if group:
            share[node] = {group: 1.0}
    # Unplaced code takes its callers' groups; repeated until it settles
    # (recursion aside, a few rounds reach the deepest C library call).
    for _ in range(40):
        changed = False
        for node in nodes:
            if group_of(*node):
                continue
            mix = defaultdict(float)
            total = 0.0
            for caller, cost in callers.get(node[0], []):
                if caller[0] == node[0]:
                    continue
                for group, part in share.get(caller, {"start-up": 1.0}).items():
                    mix[group] += cost * part
                total += cost
            new = {g: v / total for g, v in mix.items()} if total else {"start-up": 1.0}
            if new != share.get(node):
                share[node] = new
                changed = True
        if not changed:
            break
    result = defaultdict(float)
    for node, cost in self_cost.items():
        for group, part in share.get(node, {"start-up": 1.0}).items():
            result[group] += cost * part
    return result, sum(self_cost.values())


def main():
    runs = [arg.split("=", 1) for arg in sys.argv[1:]]
    columns = [(label, *spending(path)) for label, path in runs]
    print("| instructions by group | " + " | ".join(label for label, _, _ in columns) + " |")
    print("|---|" + "---:|" * len(columns))
    for group in GROUPS:
        cells = []
        for _, result, total in columns:
            n = result.get(group, 0.0)
            cells.append(f"{n:,.0f} ({100 * n / total:.0f} %)" if total else "-")
        print(f"| {group} | " + " | ".join(cells) + " |")
    print("| total | " + " | ".join(f"{total:,}" for _, _, total in columns) + " |")


if __name__ == "__main__":
    main()
