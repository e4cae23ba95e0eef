#!/usr/bin/env python3
"""Builds what some tests need, which is less than everything.

usage: build_selected.py BUILD_DIRECTORY [CTEST_OPTION...]

The tests are those that ctest selects with the same options, such as -R and -LE. The property REQUIRED_FILES of
each names the files that must be built before it runs.
"""

import json
import pathlib
import subprocess
import sys


def selected_tests(build, options):
    command = ["ctest", "--test-dir", str(build), "--show-only=json-v1", *options]
    return json.loads(subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout)["tests"]


def required_files(test):
    return next((item["value"] for item in test["properties"] if item["name"] == "REQUIRED_FILES"), [])


def main(build, *options):
    build = pathlib.Path(build).resolve()
    tests = selected_tests(build, options)
    if not tests:
        sys.exit("No test matches these options.")
    files = {pathlib.Path(file) for test in tests for file in required_files(test)}
    targets = sorted(str(file.relative_to(build)) for file in files)
    print(f"Building what {len(tests)} tests need", flush=True)
    return subprocess.run(["ninja", "-C", str(build), *targets], check=False).returncode if targets else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
