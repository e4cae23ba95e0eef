#!/usr/bin/env python3
"""Compares the library's binary interface with the committed baseline: which classes there are, the order
of their fields and virtual operations, and what every exported function takes and returns.

usage: abi.py [--write] [LIBRARY]

The baseline, packaging/abi.xml, is libabigail's description of a build with debug information. LIBRARY is
build/asan/libpelorikutil.so unless it is given. With --write the baseline is made anew; read what abidiff
says of the difference before you commit it: programs built against the old one may crash with the new.
"""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
BASELINE = ROOT / "packaging" / "abi.xml"
SUPPRESSIONS = ROOT / "packaging" / "abi-suppressions.ini"

# Only what users can reach, and nothing that depends on where or how it was compiled.
DESCRIPTION = [
    "--exported-interfaces-only",
    "--drop-undefined-syms",
    "--no-comp-dir-path",
    "--no-corpus-path",
    "--no-elf-needed",
    "--no-parameter-names",
    "--no-show-locs",
    "--no-write-default-sizes",
    "--type-id-style",
    "hash",
    "--suppressions",
    str(SUPPRESSIONS),
]


def describe(library, description):
    """Writes the library's interface to the file `description`."""
    subprocess.run(["abidw", *DESCRIPTION, "--out-file", str(description), str(library)], check=True)


def differences(old, new):
    """What abidiff has to say of two descriptions or libraries; empty when they are equal."""
    command = ["abidiff", "--suppressions", str(SUPPRESSIONS), str(old), str(new)]
    result = subprocess.run(command, stdout=subprocess.PIPE, text=True)
    # 1 and 2 are its errors, 4 and 8 its findings, combined.
    if result.returncode & 3:
        raise subprocess.CalledProcessError(result.returncode, command)
    return result.stdout if result.returncode else ""


def main(arguments):
    rest = [argument for argument in arguments if argument != "--write"]
    library = rest[0] if rest else str(ROOT / "build" / "asan" / "libpelorikutil.so")
    if "--write" in arguments:
        describe(library, BASELINE)
        return 0
    found = differences(BASELINE, library)
    if not found:
        return 0
    print(found)
    print("The binary interface is not that of the baseline. When that is wanted:")
    print("  tests/packaging/abi.py --write", library)
    return 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
