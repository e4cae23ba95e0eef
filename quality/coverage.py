#!/usr/bin/env python3
"""Which lines and branches of the library and the tool the tests reach; fails below the bars.

usage: coverage.py BUILD_DIRECTORY

Reads what the test programs wrote to BUILD_DIRECTORY/profiles.

What no test can reach stands in the sources between two comments, the first of which says why:

    // coverage off: REASON
    // coverage on

The check also fails when such a place has nothing that is not reached, or no reason. What is compiled for
instructions that this machine lacks is left out and named; so are the lines that choose it.
"""

import collections
import json
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
LIBRARY = ("digest", "checker", "text", "config", "system")
TOOL = ("cli",)
# In percent, of lines and of branches.
BARS = {"library": (LIBRARY, 100), "tool": (TOOL, 95)}

# The instructions that a source is compiled for, by the kernel's names.
NEEDS = {
    "digest/_md5_avx512.cpp": {"avx512f", "avx512vl"},
    "digest/gost3411_avx512.cpp": {"avx512f", "avx512bw", "avx512vl", "avx512vbmi", "gfni"},
    "digest/gost34_11_2012_avx512.cpp": {"avx512f", "avx512bw", "avx512vl", "avx512vbmi", "gfni"},
}
CHOICE = "roads::"

Places = collections.namedtuple("Places", "reached missed")


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def source_name(path):
    """The name of one of our sources by the root, or None."""
    match = re.match(r"(?:.*/)?((?:%s)/.+)$" % "|".join(LIBRARY + TOOL), path)
    return match.group(1) if match and (ROOT / match.group(1)).exists() else None


def export(build, kind):
    profile = build / "profile"
    return output_of(
        "llvm-cov", "export", f"-format={kind}", f"-instr-profile={profile}", "-ignore-filename-regex=^/usr|tests/",
        str(build / "libpelorikutil.so"), "-object", str(build / "pelorik"),
    )


def lines_of(build):
    """How often each line was reached, by source and number."""
    counts = collections.defaultdict(collections.Counter)
    name = None
    for record in export(build, "lcov").splitlines():
        key, _, value = record.partition(":")
        if key == "SF":
            name = source_name(value)
        elif key == "DA" and name:
            number, count = value.split(",")[:2]
            counts[name][int(number)] += int(count)
    return counts


def is_decided_by_the_compiler(text):
    return "constexpr" in text or "while (true)" in text


def branches_of(build, texts):
    """How often each condition was true, and how often false, by source and place."""
    counts = collections.defaultdict(collections.Counter)
    for data in json.loads(export(build, "text"))["data"]:
        for file in data["files"]:
            name = source_name(file["filename"])
            if not name:
                continue
            for branch in file["branches"]:
                line, column = branch[:2]
                if not is_decided_by_the_compiler(texts[name][line - 1]):
                    counts[name][(line, column, True)] += branch[4]
                    counts[name][(line, column, False)] += branch[5]
    return counts


def exclusions(name, text):
    """The numbers of the lines in each place that is left out; ends the run at a comment without a reason."""
    places = []
    start = None
    for number, line in enumerate(text, 1):
        off = re.search(r"// coverage off(?::(.*))?$", line)
        if off:
            if start is not None or not (off.group(1) or "").strip():
                sys.exit(f"{name}:{number}: 'coverage off' without a reason, or twice")
            start = number
        elif line.strip() == "// coverage on":
            if start is None:
                sys.exit(f"{name}:{number}: 'coverage on' without 'coverage off'")
            places.append(set(range(start, number)))
            start = None
    if start is not None:
        sys.exit(f"{name}:{start}: 'coverage off' without 'coverage on'")
    return places


def lacking():
    """The sources that this machine cannot run."""
    flags = set()
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("flags"):
            flags = set(line.split())
            break
    return {name for name, needed in NEEDS.items() if not needed <= flags}


class Report:
    def __init__(self, build):
        self.texts = {}
        for folder in LIBRARY + TOOL:
            for path in sorted([*(ROOT / folder).rglob("*.cpp"), *(ROOT / folder).rglob("*.h")]):
                self.texts[str(path.relative_to(ROOT))] = path.read_text().splitlines()
        self.lines = lines_of(build)
        self.branches = branches_of(build, self.texts)
        self.left_out = lacking()
        self.useless = []

    def excluded(self, name):
        """The numbers of the lines that do not count."""
        text = self.texts[name]
        out = set()
        for place in exclusions(name, text):
            missed = [line for line in place if self.lines[name].get(line, 1) == 0]
            missed += [key for key, count in self.branches[name].items() if key[0] in place and count == 0]
            if not missed:
                self.useless.append(f"{name}:{min(place)}")
            out |= place
        if self.left_out:
            out |= {number for number, line in enumerate(text, 1) if CHOICE in line}
        return out

    def of(self, name):
        """The lines and the branches of a source, reached and missed."""
        out = self.excluded(name)
        lines = {line: count for line, count in self.lines[name].items() if line not in out}
        branches = {key: count for key, count in self.branches[name].items() if key[0] not in out}
        return [
            Places([key for key, count in counts.items() if count], sorted(key for key, count in counts.items() if not count))
            for counts in (lines, branches)
        ]


def percent(places):
    total = len(places.reached) + len(places.missed)
    return 100 * len(places.reached) / total if total else 100


def describe(missed):
    return str(missed) if isinstance(missed, int) else "%d:%d never %s" % (missed[0], missed[1], str(missed[2]).lower())


def main(build):
    profiles = [str(path) for path in (build / "profiles").glob("*.profraw")]
    subprocess.run(["llvm-profdata", "merge", "-o", str(build / "profile"), *profiles], check=True)
    report = Report(build)
    passed = True
    for what, (folders, bar) in BARS.items():
        totals = [Places([], []), Places([], [])]
        for name in sorted(report.lines):
            if name.split("/")[0] not in folders or name in report.left_out:
                continue
            found = report.of(name)
            for total, places in zip(totals, found):
                total.reached.extend(places.reached)
                total.missed.extend(places.missed)
            missed = ", ".join(describe(place) for places in found for place in places.missed)
            print("%-36s lines %6.2f %%  branches %6.2f %%  %s" % (name, *map(percent, found), missed))
        for kind, total in zip(("lines", "branches"), totals):
            counts = (len(total.reached), len(total.reached) + len(total.missed))
            print("%s: %d of %d %s, %.2f %%; the bar is %d %%" % (what, *counts, kind, percent(total), bar))
            passed = passed and percent(total) >= bar
    for name in sorted(report.left_out):
        print(f"left out, since this machine lacks its instructions: {name}")
    for place in report.useless:
        print(f"{place}: 'coverage off', but everything there is reached")
        passed = False
    return 0 if passed else 1


sys.exit(main(pathlib.Path(sys.argv[1]).resolve()))
