"""Signals that end a process: each ends the tool, wherever it waits, after it has put things in order."""

import os
import signal
import subprocess
import sys
import unittest

from tool import (MD5, TERMINATING, TOOL, ToolTest, await_call, await_open, await_reading, await_writing, ended_by, environment,
                  md5)

FILES = 400  # whose lines are more than a pipe holds
USUAL = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)


class SignalTest(ToolTest):
    def end(self, child, number):
        """Sends the signal once; returns what the tool says on standard error."""
        child.send_signal(number)
        status = child.wait()
        complaint = child.stderr.read().decode()
        child.stdout.close()
        child.stderr.close()
        self.assertEqual(status, ended_by(number))
        return complaint


class FullPipe(SignalTest):
    """A reader of standard output that reads nothing and stays."""

    def setUp(self):
        super().setUp()
        self.write("f", b"1")
        self.names = ["./" * 100 + "%04d" % i for i in range(FILES)]
        for name in self.names:
            self.write(name, b"1")
        digest = MD5 + md5(b"1")
        self.write("list", "".join("%s=%s\n" % (name, digest) for name in self.names))
        self.write("changed", "".join("%s=%s\n" % (name, MD5 + md5(b"")) for name in self.names))

    def assert_ended(self, number, *words, **options):
        child = subprocess.Popen([TOOL, *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                 env=environment(), **options)
        await_writing(child.pid)
        with self.subTest(words=words[:2], signal=number):
            self.assertRegex(self.end(child, number), r"\Apelorik: [a-z0-9]+: interrupted")

    def test_every_signal_ends_a_write(self):
        for number in TERMINATING:
            self.assert_ended(number, "hash", "-a", "md5", *self.names)

    def test_the_write_of_every_command_ends(self):
        self.write("x.ini", "[g]\n" + "".join("k%d = v\n" % i for i in range(20000)))
        self.write("x.xml", "<a>" + "<b c='d'>text</b>" * 10000 + "</a>")
        self.write("bytes", b"\0" * 200000)
        for number in USUAL:
            for words in (["list", "-a", "md5", *self.names],
                          ["list", "-a", "md5", "-o", "/dev/stdout", *self.names],
                          ["check", "-j1", "changed"],
                          ["check", "--json", "list"],
                          ["compare", "list", "changed"],
                          ["update", "--dry-run", "changed"],
                          ["ini", "dump", "x.ini"],
                          ["xml", "format", "x.xml"],
                          ["base64", "bytes"],
                          ["pem", "wrap", "bytes"]):
                self.assert_ended(number, *words)

    def test_it_ends_also_when_the_complaint_goes_into_the_same_pipe(self):
        for number in USUAL:
            child = subprocess.Popen([TOOL, "hash", *self.names], stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT, env=environment())
            await_writing(child.pid)
            child.send_signal(number)
            self.assertEqual(child.wait(), ended_by(number))
            child.stdout.close()

    def test_a_pipe_that_does_not_wait_is_given_up_too(self):
        for number in USUAL:
            reader, writer = os.pipe()
            os.set_blocking(writer, False)
            child = subprocess.Popen([TOOL, "hash", *self.names], stdout=writer,
                                     stderr=subprocess.PIPE, env=environment())
            os.close(writer)
            await_call(child.pid, 7)  # poll(2)
            child.send_signal(number)
            self.assertEqual(child.wait(), ended_by(number))
            child.stderr.close()
            os.close(reader)

    def test_what_was_found_until_then_is_printed_where_it_is_read(self):
        child = subprocess.Popen([TOOL, "hash", "-a", "md5", "f", "-"], stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment())
        await_reading(child.pid)
        child.send_signal(signal.SIGTERM)
        self.assertEqual(child.wait(), -signal.SIGTERM)
        out, err = child.communicate()
        self.assertEqual(out.decode(), "f=%s%s\n" % (MD5, md5(b"1")))
        self.assertEqual(err, b"pelorik: hash: interrupted: 1 of 2 files hashed\n")


class Work(SignalTest):
    """Signals while files are hashed; list has tests of its own among those of --resume."""

    def setUp(self):
        super().setUp()
        with open("huge", "wb") as huge:
            huge.truncate(1 << 42)

    def test_an_update_leaves_its_list(self):
        text = "huge=%s%s\n" % (MD5, "0" * 32)
        self.write("list", text)
        for number in TERMINATING:
            child = subprocess.Popen([TOOL, "update", "list"], env=environment(),
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            await_open(child.pid, "huge")
            with self.subTest(signal=number):
                self.assertIn("interrupted: list is as it was", self.end(child, number))
            with open("list", encoding="ascii") as file:
                self.assertEqual(file.read(), text)
            self.assertEqual(sorted(os.listdir()), ["huge", "list"])

    def test_a_signal_that_the_parent_ignores_stays_ignored(self):
        for number in TERMINATING:
            child = subprocess.Popen([TOOL, "hash", "-a", "md5"], stdin=subprocess.PIPE,
                                     stdout=subprocess.PIPE, env=environment(),
                                     preexec_fn=lambda: signal.signal(number, signal.SIG_IGN))
            child.stdin.write(b"x")
            child.stdin.flush()
            child.send_signal(number)
            self.assertEqual(child.communicate()[0].decode(), "-=%s%s\n" % (MD5, md5(b"x")))
            self.assertEqual(child.returncode, 0)


if __name__ == "__main__":
    sys.exit(unittest.main())
