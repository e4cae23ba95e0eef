#!/usr/bin/env python3
"""Builds agstr_caller.cpp with -fno-rtti against the installed library, and runs it.

usage: installed_library_test.py BUILD_DIRECTORY
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE = pathlib.Path(__file__).resolve().parent / "agstr_caller.cpp"
BUILD = pathlib.Path(sys.argv.pop(1)).resolve()
PREFIX = "opt/PELORIKclient"


def run(*command, **options):
    done = subprocess.run(
        [str(arg) for arg in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options
    )
    if done.returncode != 0:
        raise AssertionError(f"{command}: exit status {done.returncode}\n{done.stdout}")


class Caller(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(scratch.cleanup)
        cls.scratch = pathlib.Path(scratch.name)
        cls.prefix = cls.scratch / PREFIX
        for component in ("Library", "Development"):
            run("cmake", "--install", BUILD, "--component", component,
                env={**os.environ, "DESTDIR": scratch.name})

    def check(self, *library):
        program = self.scratch / "caller"
        for compiler in ("g++", "clang++"):
            with self.subTest(compiler=compiler):
                if shutil.which(compiler) is None:
                    self.skipTest(f"no {compiler}")
                run(compiler, "-std=c++11", "-fno-rtti", "-I", self.prefix / "include" / "pelorikutil", SOURCE,
                    "-o", program, *library)
                run(program)

    def test_shared_library(self):
        directory = self.prefix / "lib"
        self.check("-L", directory, "-lpelorikutil", f"-Wl,-rpath,{directory}")

    def test_archive(self):
        self.check(self.prefix / "lib" / "libpelorikutil.a")


unittest.main()
