#!/usr/bin/env python3
"""That a program which links the archive can have any name of its own: every global name in the objects of
config/ is exported by the shared library too, or belongs to the library's own namespace or a public class.
And that none of them has thread-local storage, which a thread may have to allocate at its first use.

usage: archive_names_test.py ARCHIVE
"""

import pathlib
import re
import subprocess
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
ARCHIVE = pathlib.Path(sys.argv.pop(1))
OBJECTS = {source.name + ".o" for source in (ROOT / "config").glob("*.cpp")}

# What the compiler emits for the standard library's templates and for exceptions is every program's alike.
EVERYONES = re.compile(r"_ZN?K?S[a-z]|_ZZ?N?K?St|_ZN?K?9__gnu_cxx|_ZT[ISV]N?S[a-z]|DW\.ref\.|__clang_call_terminate")
OWN = re.compile(r"_ZN?Z?N?K?(11pelorikutil|14XMLDeclaration|11XMLDocument)")


def output_of(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout


def global_names():
    """Yields the object and the name of each global definition."""
    for line in output_of("nm", "--defined-only", "--extern-only", "--print-file-name", ARCHIVE).splitlines():
        place, kind, name = line.rsplit(maxsplit=2)
        yield place.split(":")[1], name


class ArchiveNames(unittest.TestCase):
    def test_global_names_are_public_or_in_the_namespace(self):
        exported = {
            line.split("  ", 1)[0]
            for line in (ROOT / "packaging" / "exported-symbols.txt").read_text().splitlines()
        }
        found = [name for member, name in global_names() if member in OBJECTS]
        self.assertGreater(len(found), 50)
        strange = [
            name for name in found if name not in exported and not EVERYONES.match(name) and not OWN.match(name)
        ]
        self.assertEqual(strange, [])

    def test_nothing_is_thread_local(self):
        member = None
        seen = set()
        found = []
        for line in output_of("readelf", "--section-headers", "--wide", ARCHIVE).splitlines():
            if line.startswith("File:"):
                member = line.rsplit("(", 1)[1].rstrip(")")
                seen.add(member)
            elif member in OBJECTS and re.search(r" \.t(bss|data)\b", line):
                found.append(member)
        self.assertLessEqual(OBJECTS, seen)
        self.assertEqual(found, [])


if __name__ == "__main__":
    unittest.main()
