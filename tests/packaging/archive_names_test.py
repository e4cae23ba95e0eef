#!/usr/bin/env python3
"""That a program which links the archive can have any name of its own: every global name in its
objects is exported by the shared library too, or belongs to the library's own namespace or a public class.
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

# What the compiler emits for the standard library's templates and for exceptions is every program's alike.
EVERYONES = re.compile(r"_ZN?K?S[a-z]|_ZZ?N?K?St|_ZN?K?9__gnu_cxx|_ZT[ISV]N?S[a-z]|DW\.ref\.|__clang_call_terminate")
PUBLIC_CLASSES = (
    "11XMLDocument|12HashMD5_Calc|14GOST34_11_2012|14MD5HashFactory|14XMLDeclaration|23GOST_RFC4357HashFactory"
    "|25GOST_3411_2012HashFactory|5vpnfc16NetInterfaceInfo"
)
OWN = re.compile(rf"_ZN?Z?N?K?(11pelorikutil|{PUBLIC_CLASSES})")


def output_of(*command):
    return subprocess.run(command, stdout=subprocess.PIPE, check=True, text=True).stdout


def global_names():
    """Yields the name of each global definition."""
    for line in output_of("nm", "--defined-only", "--extern-only", "--print-file-name", ARCHIVE).splitlines():
        yield line.rsplit(maxsplit=1)[1]


class ArchiveNames(unittest.TestCase):
    def test_global_names_are_public_or_in_the_namespace(self):
        exported = {
            line.split("  ", 1)[0]
            for line in (ROOT / "packaging" / "exported-symbols.txt").read_text().splitlines()
        }
        found = list(global_names())
        self.assertGreater(len(found), 50)
        strange = [
            name for name in found if name not in exported and not EVERYONES.match(name) and not OWN.match(name)
        ]
        self.assertEqual(strange, [])

    def test_nothing_is_thread_local(self):
        member = None
        found = []
        for line in output_of("readelf", "--section-headers", "--wide", ARCHIVE).splitlines():
            if line.startswith("File:"):
                member = line.rsplit("(", 1)[1].rstrip(")")
            elif re.search(r" \.t(bss|data)\b", line):
                found.append(member)
        self.assertIsNotNone(member)
        self.assertEqual(found, [])


if __name__ == "__main__":
    unittest.main()
