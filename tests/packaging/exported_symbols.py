#!/usr/bin/env python3
"""Compares the names that the library exports with the committed list.

usage: exported_symbols.py [--write] [LIBRARY]

The list, packaging/exported-symbols.txt, has a line a name: as the linker sees it, and as a person
reads it. LIBRARY is build/release/libpelorikutil.so unless it is given. With --write the list is made
anew; read its difference before you commit it: a name that goes breaks the library's users.
"""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIST = ROOT / "packaging" / "exported-symbols.txt"


def output_of(command, text=None):
    return subprocess.run(command, input=text, stdout=subprocess.PIPE, check=True, text=True).stdout


def exported(library):
    lines = output_of(["nm", "--dynamic", "--defined-only", "--format=posix", library]).splitlines()
    # The node of the version script is listed too, as an absolute symbol.
    symbols = {line.split("@")[0].split()[0] for line in lines if line.split()[1] != "A"}
    ordered = sorted(symbols)
    readable = output_of(["c++filt"], "\n".join(ordered)).splitlines()
    return sorted((text, symbol) for symbol, text in zip(ordered, readable))


def main(arguments):
    write = "--write" in arguments
    rest = [argument for argument in arguments if argument != "--write"]
    library = rest[0] if rest else str(ROOT / "build" / "release" / "libpelorikutil.so")
    actual = [f"{symbol}  {text}" for text, symbol in exported(library)]
    if write:
        LIST.write_text("\n".join(actual) + "\n")
        return 0
    expected = LIST.read_text().splitlines()
    missing = [line for line in expected if line not in set(actual)]
    added = [line for line in actual if line not in set(expected)]
    for sign, lines in (("-", missing), ("+", added)):
        for line in lines:
            print(sign, line.split("  ", 1)[1], f"({line.split('  ', 1)[0]})")
    if not missing and not added:
        return 0
    print(f"{len(missing)} names are gone, {len(added)} are new. When that is wanted:")
    print("  tests/packaging/exported_symbols.py --write", library)
    return 1


sys.exit(main(sys.argv[1:]))
