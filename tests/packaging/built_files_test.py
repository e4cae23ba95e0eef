#!/usr/bin/env python3
"""What the linker wrote into the files that are shipped, before and after installation.

usage: built_files_test.py BUILD_DIRECTORY
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
PREFIX = "opt/PELORIKclient"
STANDARD_LIBRARIES = {"libstdc++.so.6", "libm.so.6", "libgcc_s.so.1", "libc.so.6", "ld-linux-x86-64.so.2"}


def output_of(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **options).stdout


def dynamic(file, tag):
    """The values of a tag in a file's dynamic section."""
    lines = output_of("readelf", "--dynamic", "--wide", str(file)).splitlines()
    return [line.split("[")[1].rstrip("]") for line in lines if f"({tag})" in line and "[" in line]


def imports(file):
    lines = output_of("nm", "--dynamic", "--undefined-only", "--format=posix", str(file)).splitlines()
    return {re.split("[@ ]", line)[0] for line in lines}


class BuiltFiles(unittest.TestCase):
    library = BUILD / "libpelorikutil.so"
    tool = BUILD / "pelorik"

    def test_library_is_named_by_its_major_version(self):
        self.assertEqual(dynamic(self.library, "SONAME"), ["libpelorikutil.so.1"])
        self.assertEqual(os.readlink(self.library), "libpelorikutil.so.1")
        self.assertEqual(os.readlink(BUILD / "libpelorikutil.so.1"), "libpelorikutil.so.1.0.0")

    # An empty entry between colons would be the current directory.
    def test_build_tree_looks_for_libraries_beside_the_file_only(self):
        for file in (self.library, self.tool):
            self.assertEqual(len(dynamic(file, "RUNPATH")), 1, file)
            for entry in dynamic(file, "RUNPATH")[0].split(":"):
                self.assertRegex(entry, r"^\$ORIGIN(/\.)*$", file)
            self.assertEqual(dynamic(file, "RPATH"), [], file)

    def test_library_needs_only_the_standard_libraries(self):
        self.assertLessEqual(set(dynamic(self.library, "NEEDED")), STANDARD_LIBRARIES)

    def test_library_starts_no_threads(self):
        started = {name for name in imports(self.library) if "pthread_create" in name or "std6thread" in name}
        self.assertEqual(started, set())

    def test_library_calls_files_by_their_plain_names(self):
        renamed = {"fopen64", "lseek64", "creat64", "lockf64", "open64"} & imports(self.library)
        self.assertEqual(renamed, set())
        macro = "_FILE_OFFSET" + "_BITS"
        for suffix in ("*.cpp", "*.h", "CMakeLists.txt", "*.cmake", "CMakePresets.json"):
            for file in ROOT.rglob(suffix):
                if "build" not in file.relative_to(ROOT).parts:
                    self.assertNotIn(macro, file.read_text(errors="replace"), file)

    def test_files_are_hardened(self):
        for file in (self.library, self.tool):
            segments = output_of("readelf", "--segments", "--wide", str(file))
            self.assertIn("GNU_RELRO", segments, file)
            self.assertRegex(segments, r"GNU_STACK .* RW +0x", file)
            flags = output_of("readelf", "--dynamic", "--wide", str(file))
            self.assertIn("NOW", flags, file)
            self.assertNotIn("TEXTREL", flags, file)
            self.assertIn("__stack_chk_fail", imports(file), file)

    def test_library_marks_where_jumps_may_land(self):
        # The note that says so of the whole file is lost to Debian's crti.o, which lacks it.
        function = "_Z17createHashFactoryN15HashFileChecker3AlgE"
        code = output_of("objdump", f"--disassemble={function}", "--no-show-raw-insn", str(self.library))
        self.assertRegex(code, rf"<{function}[^>]*>:\s+[0-9a-f]+:\s+endbr64")

    def test_library_is_fortified(self):
        self.assertTrue([name for name in imports(self.library) if name.endswith("_chk")])

    def test_files_do_not_name_the_build_machines_paths(self):
        for file in (self.library, self.tool):
            self.assertNotIn(str(ROOT).encode() + b"/", file.read_bytes(), file)


class InstalledFiles(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.scratch = tempfile.TemporaryDirectory()
        cls.prefix = pathlib.Path(cls.scratch.name) / PREFIX
        output_of("cmake", "--install", str(BUILD), env={**os.environ, "DESTDIR": cls.scratch.name})

    @classmethod
    def tearDownClass(cls):
        cls.scratch.cleanup()

    def test_look_for_libraries_in_the_installation_only(self):
        for name in ("lib/libpelorikutil.so.1.0.0", "bin/pelorik"):
            file = self.prefix / name
            self.assertEqual(dynamic(file, "RUNPATH"), ["/opt/PELORIKclient/lib"], file)
            self.assertEqual(dynamic(file, "RPATH"), [], file)

    def test_links_of_the_library_are_installed(self):
        self.assertEqual(os.readlink(self.prefix / "lib/libpelorikutil.so"), "libpelorikutil.so.1")
        self.assertTrue((self.prefix / "lib/libpelorikutil.so.1").exists())

    def test_headers_include_only_what_is_installed(self):
        include = self.prefix / "include" / "pelorikutil"
        headers = sorted(include.rglob("*.h"))
        self.assertTrue(headers)
        for header in headers:
            for name in re.findall(r'#include "([^"]+)"', header.read_text()):
                self.assertTrue((include / name).exists(), f"{header} includes {name}")

    def test_nothing_is_installed_outside_the_prefix(self):
        top = pathlib.Path(self.scratch.name)
        self.assertEqual([entry.name for entry in top.iterdir()], ["opt"])
        self.assertEqual([entry.name for entry in (top / "opt").iterdir()], ["PELORIKclient"])


unittest.main()
