"""Every command with each of its allocations and system calls failing once: whatever fails, the tool
exits by itself, with the usual output or with an error and a status that reports it, and leaves neither a
temporary file nor a truncated output. Reads are short or fail in the middle of a file, too."""

import errno
import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

import namespaces
from tool import MD5, TOOL, Outcome, ToolTest, environment, md5


CALLS = os.environ["PELORIK_FAULT_INJECTION"]
SANITIZED = os.environ["PELORIK_SANITIZE"] != ""

# Under the sanitizers, where every process takes long, as many of a command's failures as this, spread
# over all of them.
AT_MOST = 10 if SANITIZED else 10**6


def variables(order):
    changes = {"LD_PRELOAD": CALLS, "PELORIK_FAULTS": order}
    if SANITIZED:  # its own library would like to be the first, and every failure is an allocation's
        changes["ASAN_OPTIONS"] = os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"
    return environment(**changes)


def contents(folder):
    found = {}
    for name in os.listdir(folder):
        with open(os.path.join(folder, name), "rb") as file:
            found[name] = file.read()
    return found


def remade(folder):
    shutil.rmtree(folder, ignore_errors=True)
    os.mkdir(folder)


class Failures(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("f", b"abc")
        self.write("g", b"def")
        self.write("list", "f=%s%s\ng=%s%s\n" % (MD5, md5(b"abc"), MD5, md5(b"def")))
        self.write("changed", "f=%s%s\ng=%s%s\n" % (MD5, md5(b"abc"), MD5, md5(b"abc")))
        self.write("x.xml", b"<a><b c='d'>text</b></a>")
        self.write("x.ini", b"[net]\nhost = example\nport = 1\n")
        self.files = contents(".")

    def restore(self):
        for name in os.listdir("."):
            if name not in self.files:
                os.remove(name)
        for name, content in self.files.items():
            self.write(name, content)

    def run_once(self, words, order, stdin):
        """Returns the outcome, and the files that are there then, which are put back as they were."""
        done = subprocess.run([TOOL, *words], input=stdin, capture_output=True,
                              env=variables(order), timeout=60)
        files = contents(".")
        if files != self.files:
            self.restore()
        return Outcome(done.returncode, done.stdout, done.stderr), files

    def log(self, kind, words, stdin):
        with tempfile.NamedTemporaryFile("r", encoding="ascii") as log:
            usual, files = self.run_once(words, "%s log %s" % (kind, log.name), stdin)
            calls = [line.split() for line in log]
        self.assertTrue(calls)
        return usual, files, [(int(number), name, way)
                              for number, name, ways in calls for way in range(int(ways))]

    def fail_each(self, *words, stdin=b"", statuses=(2,), without=None):
        """Runs `words` with one failure after another; they may end with `statuses` then. `without` is a
        pattern of what is different in every run's output."""
        for kind in ("memory", "system"):
            usual, files, failures = self.log(kind, words, stdin)
            for number, name, way in failures[::-(-len(failures) // AT_MOST)]:
                with self.subTest(words=words, kind=kind, call=number, name=name, way=way):
                    outcome, left = self.run_once(
                        words, "%s fail %d %d" % (kind, number, way), stdin)
                    self.judge(usual, outcome, statuses, without)
                    self.judge_files(files, left, outcome.status == 0)

    def judge(self, usual, outcome, statuses, without):
        self.assertIn(outcome.status, {usual.status, *statuses}, outcome.complaint)
        self.assertRegex(outcome.complaint, r"\A(pelorik(: [a-z]+)?: [^\n]+\n)*\Z")
        if outcome.status == 0:
            self.assertEqual(*(re.sub(without, b"", out) if without else out
                               for out in (outcome.out, usual.out)))
        elif (outcome.status, outcome.out) != (usual.status, usual.out):
            self.assertTrue(outcome.err or outcome.out)

    def judge_files(self, usual, left, done):
        """Outputs are there whole or as they were before."""
        self.assertLessEqual(left.keys(), usual.keys())
        for name, content in left.items():
            self.assertIn(content, [usual[name]] if done else [usual[name], self.files.get(name)])


class Commands(Failures):
    def test_hash(self):
        self.fail_each("hash", "f", statuses=(1, 2))
        self.fail_each("hash", "f", "g", "-a", "md5", "-a", "gost94", statuses=(1, 2))
        self.fail_each("hash", "-", stdin=b"abc", statuses=(1, 2))

    def test_list(self):
        self.fail_each("list", "f", "g")
        self.fail_each("list", "-r", ".")
        self.fail_each("list", "-o", "new", "f")
        self.fail_each("list", "-o", "list", "f")

    def test_check(self):
        self.fail_each("check", "-j1", "list", statuses=(1, 2))
        self.fail_each("check", "-j1", "changed", statuses=(1, 2))
        self.fail_each("check", "-j1", "--json", "list", statuses=(1, 2))

    def test_compare(self):
        self.fail_each("compare", "list", "changed")
        self.fail_each("compare", "--json", "list", "changed")

    def test_update(self):
        self.fail_each("update", "changed", statuses=(1, 2))

    def test_bench(self):
        self.fail_each("bench", "-a", "md5", without=rb"[ 0-9.]+ MiB")

    def test_xml(self):
        self.fail_each("xml", "check", "x.xml", statuses=(1, 2))
        self.fail_each("xml", "seal", "x.xml", statuses=(1, 2))
        self.fail_each("xml", "format", "x.xml", statuses=(1, 2))
        self.fail_each("xml", "get", "x.xml", "b@c", statuses=(1, 2))

    def test_ini(self):
        self.fail_each("ini", "get", "x.ini", "net", "host")
        self.fail_each("ini", "groups", "x.ini")
        self.fail_each("ini", "dump", "--json", "x.ini")

    def test_base64(self):
        self.fail_each("base64", "f")
        self.fail_each("base64", "-d", stdin=b"YWJj")

    def test_pem(self):
        self.fail_each("pem", "wrap", "f")
        pem = b"-----BEGIN CERTIFICATE-----\r\nYWJj\r\n-----END CERTIFICATE-----\r\n"
        self.fail_each("pem", "unwrap", stdin=pem)

    def test_help_and_errors_of_usage(self):
        self.fail_each("--help")
        self.fail_each("hash", "--help")
        self.fail_each("frobnicate")
        self.fail_each("list", "--frobnicate")


class Durability(Failures):
    def test_file_and_directory_are_synchronized_around_the_rename(self):
        for words in (["list", "-o", "new", "f"], ["list", "-o", "list", "f"], ["update", "changed"],
                      ["xml", "seal", "x.xml"]):
            calls = [name for _, name, _ in self.log("system", words, b"")[2]]
            rename = max(i for i, name in enumerate(calls) if name.startswith("rename"))
            with self.subTest(words=words):
                self.assertIn("fsync", calls[:rename])
                self.assertIn("fsync", calls[rename:])


class Reads(Failures):
    """Larger files than any buffer, of which reads are short or fail from an offset on."""

    def setUp(self):
        super().setUp()
        self.write("big", bytes(range(256)) * 1500)
        self.write("biglist", "big=%s%s\n" % (MD5, md5(bytes(range(256)) * 1500)))
        self.files = contents(".")

    def run_with(self, order, *words):
        return self.run_once(words, order, b"")

    def test_short_counts_change_nothing(self):
        for words in (["hash", "big"], ["list", "big", "f"], ["check", "-j1", "biglist"],
                      ["base64", "big"], ["xml", "format", "x.xml"], ["ini", "dump", "x.ini"]):
            usual, _ = self.run_with("short 1000000", *words)
            self.assertEqual(usual.status, 0, usual.complaint)
            with self.subTest(words=words):
                outcome, _ = self.run_with("short 7", *words)
                self.assertEqual((outcome.status, outcome.out), (0, usual.out), outcome.complaint)

    def test_a_file_that_cannot_be_read_to_its_end_is_an_error(self):
        for words, status in ((["hash", "big"], 1), (["list", "-o", "new", "big"], 2),
                              (["check", "-j1", "biglist"], 1), (["base64", "big"], 2)):
            for offset in (0, 1000, 200000, 383999):
                with self.subTest(words=words, offset=offset):
                    order = "read %d %d big" % (offset, errno.EIO)
                    outcome, files = self.run_with(order, *words)
                    self.assertEqual(outcome.status, status, outcome.complaint)
                    self.assertIn("Input/output error", outcome.complaint + outcome.text)
                    self.assertEqual(files, self.files)

    def test_a_failure_after_the_end_of_the_file_is_none(self):
        outcome, _ = self.run_with("read 384001 %d big" % errno.EIO, "check", "-j1", "biglist")
        self.assertEqual(outcome.status, 0, outcome.complaint)


class Interfaces(Failures):
    def test_interfaces(self):
        namespaces.enter(namespaces.CLONE_NEWNET)
        if subprocess.run(["ip", "link", "add", "br0", "type", "bridge"], check=False,
                          capture_output=True).returncode != 0:
            self.skipTest("needs iproute2 and a kernel with bridges")
        self.fail_each("interfaces")
        self.fail_each("interfaces", "--json")


class Lock(Failures):
    def run_once(self, words, order, stdin):
        remade("/var/run/vpnagent")
        return super().run_once(words, order, stdin)

    def test_lock(self):
        namespaces.enter_own_run_directory()
        self.fail_each("lock", "x", "--", "cat", stdin=b"abc", statuses=(1, 2, 126, 127))


if __name__ == "__main__":
    sys.exit(unittest.main())
