"""What all commands share: help, version, errors of usage, and writing to standard output."""

import os
import re
import resource
import signal
import subprocess
import sys
import time
import unittest

from tool import EMPTY_GOST2012, GOST2012, MD5, TOOL, ToolTest, environment, md5

COMMANDS = ("hash", "list", "check", "update", "compare", "interfaces", "lock", "xml", "ini", "base64",
            "pem", "bench")


class Help(ToolTest):
    def helps(self):
        return [["--help"], ["-h"]] + [[command, "--help"] for command in COMMANDS]

    def test_help_fits_80_columns_and_ends_with_examples(self):
        for words in self.helps():
            with self.subTest(words=words):
                done = self.run_tool(*words)
                self.assertEqual((done.status, done.err), (0, b""))
                self.assertLessEqual(max(map(len, done.text.splitlines())), 80)
                last = done.text.split("\n\n")[-1].splitlines()
                self.assertEqual(last[0], "Examples:")
                self.assertGreater(len(last), 1)
                for line in last[1:]:
                    self.assertIn("pelorik ", line)

    def test_help_of_a_command_names_every_option_and_exit_status(self):
        options = {
            "hash": ["-a, --algorithm", "--upper", "--bare", "[FILE|-]..."],
            "list": ["-a, --algorithm", "-r, --recursive", "--exclude", "--files-from", "-0, --null",
                     "--keep-going", "-o, --output", "PATH..."],
            "check": ["-C, --directory", "-j, --jobs", "--stop", "--ignore-missing", "--quiet",
                      "--status", "--json", "--unlisted DIR", "--exclude GLOB", "LIST|-"],
            "compare": ["--quiet", "--json", "OLD|- NEW|-"]}
        for command, names in options.items():
            text = self.run_tool(command, "-h").text
            for name in names:
                self.assertIn(name, text)
            statuses = re.search(r"\nExit status:\n(.*?)\n\n", text, re.S).group(1)
            self.assertEqual(re.findall(r"^  (\d+) ", statuses, re.M), ["0", "1", "2", "130"])

    def test_the_overview_names_every_command(self):
        text = self.run_tool("--help").text
        for command in COMMANDS:
            self.assertRegex(text, r"\n  %s +\w" % command)

    def test_the_examples_of_list_and_check_parse(self):
        # Their files do not exist, so that the command ends in its own words, not in those of usage.
        for command in COMMANDS[:-1]:  # bench would run
            text = self.run_tool(command, "--help").text
            for line in text[text.index("Examples:"):].splitlines()[1:]:
                words = re.search(r"pelorik (.*)", line).group(1).split("|")[0].split(">")[0]
                if "/usr/bin/env" in words:
                    continue
                done = subprocess.run("'%s' %s" % (TOOL, words), shell=True, env=environment(),
                                      stdin=subprocess.DEVNULL, capture_output=True)
                self.assertNotIn(b"--help)", done.stderr, line)

    def test_version(self):
        done = self.run_tool("--version")
        self.assertEqual((done.status, done.out, done.err), (0, b"pelorik 1.0.0\n", b""))


class Usage(ToolTest):
    def test_without_a_command_or_with_an_unknown_one(self):
        self.assert_refused(self.run_tool(), "pelorik --help")
        self.assert_refused(self.run_tool("frobnicate"), "frobnicate", "pelorik --help")
        self.assert_refused(self.run_tool("--frobnicate"), "pelorik --help")

    def test_errors_of_usage_are_status_2_and_point_to_help(self):
        cases = [
            ["hash", "--frobnicate"], ["hash", "-x"], ["hash", "-5"], ["hash", "-a"],
            ["hash", "-a", "sha1"],
            ["list"], ["list", "--exclude"], ["list", "-0", "f"], ["list", "-a", "md5", "-a", "md5", "f"],
            ["list", "-o", "a", "-o", "b", "f"], ["list", "--frobnicate", "f"],
            ["check"], ["check", "a", "b"], ["check", "--quiet", "--status", "a"],
            ["check", "--json", "--status", "a"], ["check", "-j", "0", "a"], ["check", "-j", "x", "a"],
            ["check", "-j", "-1", "a"], ["check", "-j", "99999999999999999999", "a"],
            ["check", "-j", "1.5", "a"], ["check", "-j", "0x10", "a"], ["check", "-j", "+4", "a"],
            ["check", "-j", " 4", "a"], ["check", "-j", "1025", "a"], ["check", "-j", "", "a"], ["check", "-C"], ["check", "--frobnicate", "a"],
        ]
        for words in cases:
            with self.subTest(words=words):
                self.assert_refused(self.run_tool(*words),
                                    "(try: pelorik %s --help)" % words[0])


    def test_a_flag_takes_no_value(self):
        self.write("f")
        for flag in ("--upper", "--bare", "--help"):
            for value in ("", "{}", "[]", "no", "true", "1"):
                for words in (["f"], ["--", "f"]):
                    with self.subTest(flag=flag, value=value):
                        self.assert_refused(self.run_tool("hash", flag + "=" + value, *words),
                                            flag + " takes no value (try: pelorik hash --help)")
        self.write("--upper={}", b"abc")
        self.assertEqual(self.run_tool("hash", "-a", "md5", "--", "--upper={}").text,
                         "--upper={}=%s%s\n" % (MD5, md5(b"abc")))


class SmallStack(ToolTest):
    """A limit of 64 KiB, as small systems and containers set for their daemons."""

    def test_every_command_runs(self):
        self.write("f", b"abc")
        self.write("list", "f=%s%s\n" % (MD5, md5(b"abc")))
        self.write("names", "f\n")
        self.write("x.xml", "<a>text</a>")
        self.write("x.ini", "[g]\nk = v\n")
        self.write("x.b64", "YWJj")
        self.write("x.pem", "-----BEGIN CERTIFICATE-----\r\nYWJj\r\n-----END CERTIFICATE-----\r\n")
        self.assertEqual(self.run_tool("xml", "seal", "x.xml").status, 0)
        limit = 64 << 10
        for words in (["--help"], ["hash", "f"], ["hash"], ["list", "f"], ["list", "-o", "new", "f"],
                      ["list", "--files-from", "names"], ["list", "-r", "."],
                      ["check", "-j1", "list"], ["check", "-j4", "list"],
                      ["check", "--unlisted", ".", "list"],
                      ["compare", "list", "list"], ["update", "list"], ["update", "-r", "list", "."],
                      ["xml", "check", "x.xml"], ["xml", "seal", "x.xml"], ["xml", "format", "x.xml"],
                      ["xml", "get", "x.xml", "@Hash"], ["ini", "get", "x.ini", "g", "k"],
                      ["ini", "groups", "x.ini"], ["ini", "dump", "x.ini"], ["base64", "f"],
                      ["base64", "-d", "x.b64"], ["pem", "wrap", "f"], ["pem", "unwrap", "x.pem"],
                      ["interfaces"], ["bench", "-a", "md5"], ["lock", "/", "--", "true"]):
            usual = self.run_tool(*words)
            done = self.run_tool(*words, preexec_fn=lambda: resource.setrlimit(
                resource.RLIMIT_STACK, (limit, limit)))
            with self.subTest(words=words):
                self.assertEqual(done.status, usual.status, done.complaint)


class StandardOutput(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("f", b"")
        self.write("list", "f=%s%s\nmissing=%s%s\n" % (MD5, md5(b""), MD5, md5(b"")))
        self.writing = [["hash", "f"], ["list", "f"], ["check", "list"], ["check", "--json", "list"],
                        ["bench", "-a", "md5"], ["--help"], ["--version"], ["hash", "--help"]]

    def test_a_full_device_is_status_2(self):
        for words in self.writing:
            with self.subTest(words=words), open("/dev/full", "wb") as full:
                done = subprocess.run([TOOL, *words], stdout=full, stderr=subprocess.PIPE,
                                      env=environment())
                self.assertEqual(done.returncode, 2)
                self.assertIn(b"standard output: No space left on device\n", done.stderr)

    def test_closed_standard_output_is_status_2(self):
        for words in self.writing:
            with self.subTest(words=words):
                done = subprocess.run([TOOL, *words], stderr=subprocess.PIPE, env=environment(),
                                      preexec_fn=lambda: os.close(1))
                self.assertEqual(done.returncode, 2)
                self.assertIn(b"standard output: Bad file descriptor\n", done.stderr)

    def test_closed_standard_output_never_becomes_a_file_that_is_written(self):
        done = subprocess.run([TOOL, "list", "-o", "out", "f"], env=environment(),
                              preexec_fn=lambda: (os.close(0), os.close(1), os.close(2)))
        self.assertEqual(done.returncode, 0)  # nothing was to be written there
        with open("out", encoding="ascii") as out:
            self.assertEqual(out.read(), "f=%s%s\n" % (GOST2012, EMPTY_GOST2012))

    def test_closed_standard_output_does_not_matter_when_nothing_is_written(self):
        self.write("good", "f=%s%s\n" % (MD5, md5(b"")))
        done = subprocess.run([TOOL, "check", "--quiet", "good"], env=environment(),
                              preexec_fn=lambda: os.close(1))
        self.assertEqual(done.returncode, 0)

    def test_a_pipe_that_others_made_one_that_does_not_wait_gets_everything(self):
        self.write("list", b"missing=x\n" * 10000)
        reader, writer = os.pipe()
        os.set_blocking(writer, False)
        child = subprocess.Popen([TOOL, "check", "--quiet", "list"], stdout=writer, env=environment())
        os.close(writer)
        time.sleep(0.2)  # the pipe is full
        with open(reader, "rb") as file:
            self.assertEqual(file.read(), b"Can't create hash calculator for missing [x].\n" * 10000)
        self.assertEqual(child.wait(), 1)

    def broken_pipe(self, restore):
        reader, writer = os.pipe()
        os.close(reader)
        done = subprocess.run([TOOL, "hash", "f"], stdout=writer, stderr=subprocess.PIPE,
                              env=environment(), restore_signals=restore)
        os.close(writer)
        return done

    def test_a_broken_pipe_ends_the_tool_by_its_signal_as_other_tools(self):
        done = self.broken_pipe(True)
        self.assertEqual((done.returncode, done.stderr), (-signal.SIGPIPE, b""))

    def test_a_broken_pipe_is_status_2_where_the_signal_is_ignored(self):
        done = self.broken_pipe(False)  # Python ignores it, and its children inherit that
        self.assertEqual(done.returncode, 2)
        self.assertEqual(done.stderr, b"pelorik: hash: standard output: Broken pipe\n")

    def test_what_was_printed_comes_before_the_complaint_that_followed(self):
        done = subprocess.run([TOOL, "hash", "f", "missing", "f"], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, env=environment())
        self.assertEqual([line[:2] for line in done.stdout.splitlines()], [b"f=", b"pe", b"f="])


if __name__ == "__main__":
    sys.exit(unittest.main())
