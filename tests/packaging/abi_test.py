#!/usr/bin/env python3
"""That the comparison of binary interfaces notices what it is there for.

Compiles a unit twice: as it is, and behind a copy of its header in which two lines have changed places.
"""

import pathlib
import shutil
import subprocess
import tempfile
import unittest

import abi

FOLDERS = ("pelorik", "digest", "checker", "system", "text", "config")


class Interface(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.scratch = pathlib.Path(scratch.name)

    def compiled(self, name, unit, change):
        """A library of one unit, from a copy of the sources under `name` with `change` in its header."""
        copy = self.scratch / name
        for folder in FOLDERS:
            shutil.copytree(abi.ROOT / folder, copy / folder)
        header = copy / f"{unit}.h"
        header.write_text(change(header.read_text()))
        library = copy / "library.so"
        subprocess.run(
            ["g++", "-std=c++20", "-g", "-O0", "-fPIC", "-shared", "-fvisibility=hidden", f"-I{copy}"]
            + [str(copy / f"{unit}.cpp"), "-o", str(library)],
            check=True,
        )
        return library

    def differences(self, unit, change):
        original = self.compiled("original", unit, lambda text: text)
        return abi.differences(original, self.compiled("changed", unit, change))

    def after_swapping(self, unit, first, second):
        """What is found when the only lines with `first` and with `second` change places."""

        def swap(text):
            lines = text.splitlines(keepends=True)
            (one,) = [number for number, line in enumerate(lines) if first in line]
            (other,) = [number for number, line in enumerate(lines) if second in line]
            lines[one], lines[other] = lines[other], lines[one]
            return "".join(lines)

        return self.differences(unit, swap)

    def test_is_the_same_in_another_directory(self):
        self.assertEqual(self.differences("system/scchecker", lambda text: "// Longer.\n" + text), "")

    def test_differs_when_two_virtual_operations_change_places(self):
        found = self.after_swapping(
            "digest/hash",
            "virtual std::string ToStr(bool upperCase, bool withPrefix) const = 0;",
            "virtual bool Check(const std::string& text, bool upperCase) const = 0;",
        )
        self.assertRegex(found, r"vtable offset of method virtual .*IHash::ToStr\(bool, bool\) const changed")

    def test_differs_when_two_fields_of_one_type_change_places(self):
        found = self.after_swapping("checker/hashfile_checker", "std::uint32_t failed;", "std::uint32_t notFound;")
        self.assertRegex(found, r"'uint32_t failed' offset changed")

    def test_differs_when_two_private_fields_change_places(self):
        found = self.after_swapping("digest/gost3411", "unsigned char hash_[32];", "unsigned char sigma_[32];")
        self.assertRegex(found, r"'unsigned char hash_.32.' offset changed")


unittest.main()
