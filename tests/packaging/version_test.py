#!/usr/bin/env python3
"""That the version, which the build takes from CMakeLists.txt, is the one that a release tells elsewhere.

usage: version_test.py VERSION
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
# The newest entry of each file.
PLACES = {
    "CHANGELOG.md": r"^## (\S+)",
    "packaging/debian/changelog": r"^\S+ \((\S+)\)",
}


def main(version):
    others = []
    for name, pattern in PLACES.items():
        found = re.search(pattern, (ROOT / name).read_text(), re.MULTILINE)
        if found is None or found[1] != version:
            others.append(f"{name}: {found and found[1]}, not {version}")
    print(*others, sep="\n")
    return 1 if others else 0


sys.exit(main(sys.argv[1]))
