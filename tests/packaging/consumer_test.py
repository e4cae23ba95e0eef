#!/usr/bin/env python3
"""That a stranger can build against the library: installs a build into a scratch root, moves it, and builds
and runs examples/consumer by CMake, by pkg-config and as a part of its own project, with both compilers and
as C++11 and C++20.

usage: consumer_test.py BUILD_DIRECTORY
"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
PREFIX = "opt/PELORIKclient"
EXAMPLE = ROOT / "examples" / "consumer"
WAYS = [(compiler, standard) for compiler in ("g++", "clang++") for standard in ("11", "20")]


def run(*command, **options):
    done = subprocess.run(
        [str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options
    )
    if done.returncode != 0:
        raise AssertionError(f"{command}: exit status {done.returncode}\n{done.stdout}")
    return done.stdout


class Consumer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.directory = tempfile.TemporaryDirectory()
        cls.scratch = pathlib.Path(cls.directory.name)
        run("cmake", "--install", BUILD, env={"DESTDIR": str(cls.scratch / "root"), "PATH": "/usr/bin:/bin"})
        # Moved away from where it was to be installed: nothing in it may depend on that place.
        cls.prefix = cls.scratch / "moved"
        shutil.move(cls.scratch / "root" / PREFIX, cls.prefix)
        cls.sample = cls.scratch / "sample"
        cls.sample.write_bytes(b"")

    @classmethod
    def tearDownClass(cls):
        cls.directory.cleanup()

    # GOST R 34.11-2012 of nothing, from RFC 6986's algorithm by libgcrypt.
    def check_program(self, program, **options):
        lines = run(program, self.sample, **options).splitlines()
        self.assertEqual(
            lines[0],
            f"{self.sample}=#GOST3411_256_2012:"
            "3F539A213E97C802CC229D474C6AA32A825A360B2A933A949FD925208D9CE1BB",
        )
        self.assertRegex("".join(lines[1:]), r'<agent Hash="[0-9a-f]{32}">')

    def configure(self, name, compiler, standard, *settings):
        build = self.scratch / f"{name}-{compiler}-{standard}"
        run("cmake", "-G", "Ninja", "-S", EXAMPLE, "-B", build, f"-DCMAKE_CXX_COMPILER={compiler}",
            f"-DCMAKE_CXX_STANDARD={standard}", "-DCMAKE_CXX_STANDARD_REQUIRED=ON", *settings)
        return build

    def test_by_find_package(self):
        for compiler, standard in WAYS:
            with self.subTest(compiler=compiler, standard=standard):
                build = self.configure("found", compiler, standard, f"-DCMAKE_PREFIX_PATH={self.prefix}")
                run("cmake", "--build", build)
                self.check_program(build / "consumer")
                self.check_program(build / "consumer_static")

    def test_another_major_version_is_not_found(self):
        lists = self.scratch / "other" / "CMakeLists.txt"
        lists.parent.mkdir()
        for version, found in (("1", True), ("1.0", True), ("2", False), ("0.9", False), ("1.1", False)):
            lists.write_text(
                "cmake_minimum_required(VERSION 3.16)\nproject(other LANGUAGES CXX)\n"
                f"find_package(pelorikutil {version} QUIET)\n"
                'message(STATUS "found: ${pelorikutil_FOUND}")\n'
            )
            build = self.scratch / f"other-{version}"
            said = run("cmake", "-G", "Ninja", "-S", lists.parent, "-B", build, f"-DCMAKE_PREFIX_PATH={self.prefix}")
            self.assertIn(f"found: {int(found)}", said, version)

    def test_by_pkg_config(self):
        paths = {"PKG_CONFIG_PATH": str(self.prefix / "lib" / "pkgconfig"), "PATH": "/usr/bin:/bin"}
        flags = run("pkg-config", "--cflags", "--libs", "pelorikutil", env=paths).split()
        version = re.search(r"^CMAKE_PROJECT_VERSION:STATIC=(.*)$", (BUILD / "CMakeCache.txt").read_text(), re.M)
        self.assertEqual(run("pkg-config", "--modversion", "pelorikutil", env=paths).strip(), version[1])
        for compiler, standard in WAYS:
            with self.subTest(compiler=compiler, standard=standard):
                program = self.scratch / f"by-pkg-config-{compiler}-{standard}"
                run(compiler, f"-std=c++{standard}", EXAMPLE / "main.cpp", "-o", program, *flags)
                self.check_program(program)

    # The parent's settings are the parent's: what it says of its own standard does not reach the library,
    # nor does the library add to what it installs.
    def test_as_a_part_of_another_project(self):
        for compiler, standard in (("g++", "20"), ("clang++", "11")):
            with self.subTest(compiler=compiler, standard=standard):
                build = self.configure(
                    "part", compiler, standard, f"-DPELORIKUTIL_SOURCE={ROOT}", "-DCMAKE_CXX_FLAGS=-O0"
                )
                run("cmake", "--build", build)
                self.check_program(build / "consumer")
                cache = (build / "CMakeCache.txt").read_text()
                self.assertIn("CMAKE_INSTALL_PREFIX:PATH=/usr/local\n", cache)
                destination = self.scratch / f"part-installed-{compiler}"
                run("cmake", "--install", build, env={"DESTDIR": str(destination), "PATH": "/usr/bin:/bin"})
                self.assertFalse(destination.exists())
                self.assertFalse((build / "pelorikutil" / "pelorik").exists())


unittest.main()
