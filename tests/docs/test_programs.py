"""Compiles and runs every C++ program of the pages, as C++11 and as C++20, and compares what it prints
with the block below it. What is printed was reasoned out from the programs; digests in it are those of
independent programs: Python's MD5 and libgcrypt's GOST."""

import base64
import hashlib
import os
import re
import subprocess
import sys
import tempfile
import unittest

import markdown

sys.path.insert(1, os.path.join(markdown.ROOT, "tests", "cli"))

import namespaces  # noqa: E402
from tool import gost2012, gost94, md5  # noqa: E402

PAGES = ["README.md", "docs/guide-library.md"]
LIBRARY = os.path.dirname(os.environ["PELORIK"])
STRICT = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]

# What the pages digest. The last is the XML document's content: its strings, one behind the other.
MESSAGES = [b"Hello, world", b"Hello, world\n", b"abc", b"abd", b"profile" b"version" b"2" b"server" b"id" b"1" b"a & b"]
SHA1_OF_ABC = hashlib.sha1(b"abc").hexdigest()


def independent_digests():
    return {digest(message) for digest in (md5, gost94, gost2012) for message in MESSAGES}


def why_no_bridge():
    """Makes the bridge that the pages list, or returns why there is none."""
    try:
        namespaces.enter(namespaces.CLONE_NEWNET)
    except unittest.SkipTest as skip:
        return str(skip)
    done = subprocess.run(
        "ip link add name br0 index 2 mtu 1400 type bridge && ip addr add 192.0.2.1/24 dev br0",
        shell=True, capture_output=True, text=True, check=False)
    return "needs iproute2 and a kernel with bridges: " + done.stderr if done.returncode else None


def why_no_lock_directory():
    """Makes /var/run/vpnagent in a /var/run of this process, or returns why there is none."""
    try:
        namespaces.enter_own_run_directory()
    except unittest.SkipTest as skip:
        return str(skip)
    os.mkdir("/var/run/vpnagent", 0o755)
    return None


class Programs(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.missing = {"netinterface.h": why_no_bridge(), "scchecker.h": why_no_lock_directory()}

    def skip_unless_possible(self, program):
        for header, why in self.missing.items():
            if header in program and why:
                self.skipTest(why)

    def run_program(self, program, standard):
        with tempfile.TemporaryDirectory() as folder:
            with open(os.path.join(folder, "program.cpp"), "w", encoding="utf-8") as file:
                file.write(program)
            subprocess.run(["g++", "-std=" + standard, *STRICT, "-I" + markdown.ROOT, "program.cpp",
                            "-L" + LIBRARY, "-lpelorikutil", "-Wl,-rpath," + LIBRARY,
                            "-o", "program"], cwd=folder, check=True)
            done = subprocess.run([os.path.join(folder, "program")], cwd=folder, check=True,
                                  capture_output=True, text=True)
        self.assertEqual(done.stderr, "")
        return done.stdout

    def compare_all(self, standard):
        for page in PAGES:
            for line, program, expected in markdown.programs(markdown.read(page)):
                with self.subTest(page=page, line=line):
                    self.skip_unless_possible(program)
                    self.assertEqual(self.run_program(program, standard), expected)

    def test_every_program_prints_as_cpp11_what_stands_below_it(self):
        self.compare_all("c++11")

    def test_every_program_prints_as_cpp20_what_stands_below_it(self):
        self.compare_all("c++20")


class Values(unittest.TestCase):
    def test_every_digest_in_the_pages_is_that_of_an_independent_program(self):
        known = independent_digests()
        found = 0
        for page in PAGES:
            for kind, content, line in markdown.blocks(markdown.read(page)):
                if kind not in ("cpp", "text"):
                    continue
                for digits in re.findall(r"\b(?:[0-9A-Fa-f]{64}|[0-9A-Fa-f]{32})\b", content):
                    found += 1
                    self.assertIn(digits.lower(), known, "%s:%d" % (page, line))
        self.assertGreater(found, 5)

    def test_other_encoded_values_are_those_of_python(self):
        page = markdown.read("docs/guide-library.md")
        self.assertIn(base64.b64encode(bytes(range(4))).decode() + "\n", page)
        self.assertIn("#SHA1:" + SHA1_OF_ABC, page)


if __name__ == "__main__":
    unittest.main()
