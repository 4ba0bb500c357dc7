#!/usr/bin/env python3
"""Holds the sources of Android.bp's modules against those of CMake's targets.

usage: check_android_bp.py ANDROID_BP COMPILE_COMMANDS

COMPILE_COMMANDS is the compile_commands.json of a build that knows every target. That Android.bp is
well formed is bpfmt's to say.
"""

import json
import re
import sys
from collections import defaultdict
from pathlib import Path

# Modules of Android.bp, the targets of CMake that make up the same, and what a device does without.
MODULES = {
    "libjcam_jlog": (["jcam_jlog"], []),
    "jcam_jlog_test": (["jcam_reader", "jcam_test_support", "jlog_test", "android_log_test"], []),
    "jcam_file_test": (
        ["jcam_reader", "jcam_test_support", "jcam_test_interpose", "file_test"],
        ["tests/file/FileMergeJLoggerTest.cpp"],
    ),
    "jcam_track_test": (
        ["jcam_reader", "jcam_test_support", "jcam_test_interpose", "track_test"],
        ["tests/track/StatsReportTest.cpp"],
    ),
    "jcam_jlog_benchmark": (["jlog_microbench"], []),
}


def modules_of(path):
    """Name -> sources, those of the module's defaults and of what it takes in whole included."""
    own, others = {}, {}
    text = re.sub(r"//.*", "", path.read_text())
    for body in re.findall(r"^cc_\w+ \{\n(.*?)^\}", text, re.M | re.S):
        name = re.search(r'^    name: "(.*)"', body, re.M).group(1)
        lists = dict(re.findall(r"^    (\w+): \[(.*?)\]", body, re.M | re.S))
        own[name] = re.findall(r'"([^"]+)"', lists.get("srcs", ""))
        others[name] = re.findall(r'"([^"]+)"', lists.get("defaults", "") + lists.get("whole_static_libs", ""))

    def sources(name):
        return own[name] + [source for other in others[name] for source in sources(other)]

    parts = {other for each in others.values() for other in each}
    return {name: sources(name) for name in own if name not in parts}


def targets_of(path, root):
    """Name -> sources."""
    targets = defaultdict(list)
    for command in json.loads(path.read_text()):
        target = re.search(r"CMakeFiles/(.+?)\.dir/", command["command"]).group(1)
        targets[target].append(str(Path(command["file"]).relative_to(root)))
    return targets


def main(android_bp, compile_commands):
    root = Path(android_bp).resolve().parent
    modules = modules_of(Path(android_bp))
    targets = targets_of(Path(compile_commands), root)
    faults = [f"{name}: which targets of CMake are in it?" for name in modules if name not in MODULES]
    script = re.search(r'version_script: "(.*)"', Path(android_bp).read_text())
    if script is None or not (root / script.group(1)).is_file():
        faults.append("libjcam_jlog: the version script is not there")
    count = 0
    for module, (names, left_out) in MODULES.items():
        expected = sorted({source for name in names for source in targets[name]} - set(left_out))
        found = sorted(modules.get(module, []))
        faults += [f"{module}: {source} is missing" for source in expected if source not in found]
        faults += [f"{module}: {source} is too much" for source in found if source not in expected]
        faults += [f"{module}: {s} stands twice" for s in set(found) if found.count(s) > 1]
        count += len(found)
    if faults:
        sys.exit("Android.bp differs from CMake's lists:\n  " + "\n  ".join(faults))
    print(f"Android.bp: {len(MODULES)} modules, {count} sources, as CMake has them")


if __name__ == "__main__":
    main(*sys.argv[1:])
