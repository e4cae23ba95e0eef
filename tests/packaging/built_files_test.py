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


def segments(file):
    return output_of("readelf", "--segments", "--wide", str(file))


def dynamic_flags(file):
    """FLAGS and FLAGS_1 of a file's dynamic section."""
    lines = output_of("readelf", "--dynamic", "--wide", str(file)).splitlines()
    return [line.split(")", 1)[1] for line in lines if "(FLAGS" in line]


def entries(file, *options):
    """The functions that nm lists, each with its address."""
    lines = output_of("nm", "--defined-only", "--format=posix", *options, str(file)).splitlines()
    fields = [line.split() for line in lines]
    return {field[0]: int(field[2], 16) for field in fields if field[1] in "TW"}


def landing_places(file):
    """The addresses that are marked as those where an indirect jump may land."""
    code = output_of("objdump", "--disassemble", "--no-show-raw-insn", str(file))
    return {int(address, 16) for address in re.findall(r"^ +([0-9a-f]+):\s+endbr64", code, re.MULTILINE)}


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

    def test_library_reads_no_environment(self):
        self.assertEqual({name for name in imports(self.library) if "getenv" in name or name == "environ"}, set())

    def test_library_calls_files_by_their_plain_names(self):
        renamed = {"fopen64", "lseek64", "creat64", "lockf64", "open64"} & imports(self.library)
        self.assertEqual(renamed, set())
        macro = "_FILE_OFFSET" + "_BITS"
        for suffix in ("*.cpp", "*.h", "CMakeLists.txt", "*.cmake", "CMakePresets.json"):
            for file in ROOT.rglob(suffix):
                if "build" not in file.relative_to(ROOT).parts:
                    self.assertNotIn(macro, file.read_text(errors="replace"), file)

    def test_relocations_are_read_only_before_the_program_starts(self):
        for file in (self.library, self.tool):
            self.assertIn("GNU_RELRO", segments(file), file)
            self.assertIn("NOW", "".join(dynamic_flags(file)), file)
            self.assertNotIn("(TEXTREL)", output_of("readelf", "--dynamic", str(file)), file)

    def test_no_memory_is_both_written_and_executed(self):
        for file in (self.library, self.tool):
            self.assertRegex(segments(file), r"GNU_STACK .* RW +0x", file)
            self.assertNotRegex(segments(file), r" RWE ", file)

    def test_stack_is_watched(self):
        for file in (self.library, self.tool):
            self.assertIn("__stack_chk_fail", imports(file), file)

    def test_files_run_at_any_address(self):
        for file in (self.library, self.tool):
            self.assertRegex(output_of("readelf", "--file-header", str(file)), r"Type: +DYN ", file)
        self.assertIn("PIE", dynamic_flags(self.tool)[-1])

    # The note that says so of a whole file is lost to Debian's crti.o, which lacks it. So every object's
    # note is looked at, and the code.
    def test_every_object_is_marked_for_checked_jumps_and_returns(self):
        objects = [*BUILD.glob("CMakeFiles/pelorikutil.dir/**/*.o"), *BUILD.glob("cli/CMakeFiles/*.dir/**/*.o")]
        sources = [file for folder in ("digest", "cli") for file in (ROOT / folder).rglob("*.cpp")]
        self.assertGreater(len(objects), len(sources))
        for file in objects:
            self.assertRegex(output_of("readelf", "--notes", "--wide", str(file)), "x86 feature: IBT, SHSTK", file)

    def test_every_entry_is_marked_as_one_where_jumps_may_land(self):
        exported = entries(self.library, "--dynamic")
        self.assertGreater(len(exported), 100)
        for file, functions in ((self.library, exported), (self.tool, {"main": entries(self.tool)["main"]})):
            marked = landing_places(file)
            self.assertEqual([name for name, place in functions.items() if place not in marked], [], file)

    def test_calls_of_the_c_library_are_fortified(self):
        for file in (self.library, self.tool):
            fortified = {name for name in imports(file) if re.fullmatch("__.*_chk", name)}
            self.assertTrue(fortified - {"__stack_chk_fail"}, file)
        # Its size is known only at run time.
        self.assertIn("__memset_chk", imports(self.library))

    # The fortified call would abort for formats that callers may use.
    def test_formats_of_callers_go_to_the_plain_call(self):
        self.assertIn("vsnprintf", imports(self.library))
        self.assertNotIn("__vsnprintf_chk", imports(self.library))

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
