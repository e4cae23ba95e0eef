"""pelorik check. The report's lines are the library's own; expected digests come from hashlib."""

import base64
import json
import os
import random
import socket
import stat
import subprocess
import sys
import time
import unittest

from tool import (GOST94, GOST2012, MD5, TOOL, ToolTest, await_open, await_that, environment, gost94,
                  gost2012, md5)


def record(name, data):
    return "%s=%s%s\n" % (name, MD5, md5(data))


class CheckTest(ToolTest):
    def check(self, *words, **options):
        return self.run_tool("check", *words, **options)

    def listed(self, *lines):
        return self.write("list", b"".join(
            line if isinstance(line, bytes) else line.encode() for line in lines))

    def make_mixed(self):
        """A list with one record of every status but denied; returns it with its report."""
        self.write("good", b"1")
        self.write("bad", b"2")
        os.mkdir("dir")
        self.listed(record("good", b"1"), record("bad", b"other"), record("gone", b""),
                    record("dir", b""), "odd=#SHA1:00\n")
        return ("File changed: bad [%s%s].\n"
                "Warning: File not found: gone.\n"
                "Error: File cannot be read: dir [Is a directory].\n"
                "Can't create hash calculator for odd [#SHA1:00].\n" % (MD5, md5(b"2")))

    MIXED_SUMMARY = ("pelorik: check: 5 checked: 1 unchanged, 1 changed, 1 missing, 1 unreadable, "
                     "1 of no known algorithm\n")


class Reports(CheckTest):
    def test_files_that_match_print_nothing_and_give_status_0(self):
        self.write("a", b"1")
        self.write("b", b"")
        self.listed(record("a", b"1"), record("b", b""))
        done = self.check("list")
        self.assertEqual((done.status, done.out), (0, b""))
        self.assertEqual(done.complaint, "pelorik: check: 2 checked: 2 unchanged\n")

    def test_the_librarys_lines_and_the_tools_own_in_list_order(self):
        report = self.make_mixed()
        done = self.check("list")
        self.assertEqual((done.status, done.text, done.complaint), (1, report, self.MIXED_SUMMARY))

    def test_each_problem_alone_is_status_1(self):
        self.write("bad", b"2")
        os.mkdir("dir")
        for line in (record("bad", b"x"), record("gone", b""), record("dir", b""), "bad=12\n"):
            with self.subTest(line=line):
                self.listed(line)
                self.assertEqual(self.check("list").status, 1)

    def test_a_file_without_permission(self):
        self.write("good", b"1")
        self.write("secret", b"1")
        os.chmod("secret", 0)
        self.listed(record("secret", b"1"), record("good", b"1"))
        done = self.run_unprivileged("check", "list")
        self.assertEqual((done.status, done.text), (1, "Warning: File access denied: secret.\n"))
        self.assertEqual(done.complaint, "pelorik: check: 2 checked: 1 unchanged, 1 denied\n")

    def test_every_form_of_digest_text(self):
        data = b"abc"
        self.write("f", data)
        for text in (MD5 + md5(data), "$MD5:" + md5(data).upper(), md5(data), md5(data).upper(),
                     GOST94 + gost94(data), "$" + GOST94[1:] + gost94(data).upper(),
                     GOST2012 + gost2012(data), gost2012(data).upper()):
            self.listed("f=%s\n" % text)
            self.assertEqual(self.check("list").status, 0, text)
        # Bare digits of gost94 are read as gost2012; mixed case is no digest.
        for text in (gost94(data), MD5 + md5(data)[:16].upper() + md5(data)[16:]):
            self.listed("f=%s\n" % text)
            self.assertEqual(self.check("list").status, 1, text)

    def test_section_headers_and_empty_lines_are_skipped_and_the_last_line_needs_no_end(self):
        self.write("f", b"1")
        self.listed("\n[section]\n[has=sign]\n\n", record("f", b"1").rstrip("\n"))
        done = self.check("list")
        self.assertEqual((done.status, done.complaint), (0, "pelorik: check: 1 checked: 1 unchanged\n"))

    def test_nothing_is_trimmed(self):
        self.write(" f ", b"1")
        self.listed(" f =%s%s\n" % (MD5, md5(b"1")))
        self.assertEqual(self.check("list").status, 0)

    def test_a_list_from_standard_input(self):
        self.write("f", b"1")
        self.assertEqual(self.check("-", stdin=record("f", b"1").encode()).status, 0)
        self.assertEqual(self.check("-", stdin=record("f", b"2").encode()).status, 1)

    def test_one_flipped_bit_is_caught(self):
        data = bytearray(os.urandom(200000))
        self.write("f", bytes(data))
        self.run_tool("list", "-o", "list", "f")
        self.assertEqual(self.check("list").status, 0)
        data[123456] ^= 4
        self.write("f", bytes(data))
        done = self.check("list")
        self.assertEqual((done.status, done.text),
                         (1, "File changed: f [%s%s].\n" % (GOST2012, gost2012(bytes(data)))))


class Entries(CheckTest):
    """Entries that the library would hang on, give up at, or pass unverified."""

    def assert_error(self, name, why):
        self.write("good", b"1")
        self.listed(record(name, b""), record("good", b"1"))
        done = self.check("list")
        self.assertEqual(done.status, 1)
        self.assertEqual(done.text, "Error: File cannot be read: %s [%s].\n" % (name, why))
        self.assertEqual(done.complaint, "pelorik: check: 2 checked: 1 unchanged, 1 unreadable\n")

    def test_a_directory(self):
        os.mkdir("d")
        self.assert_error("d", "Is a directory")

    def test_a_pipe_without_a_writer(self):
        os.mkfifo("pipe")
        self.assert_error("pipe", "not a regular file")

    def test_a_device(self):
        self.assert_error("/dev/null", "not a regular file")

    def test_a_path_through_a_file(self):
        self.write("f")
        self.assert_error("f/below", "Not a directory")

    def test_a_name_that_is_too_long_for_the_system(self):
        self.assert_error("x" * 300, "File name too long")

    def test_links_in_a_circle(self):
        os.symlink("loop", "loop")
        self.assert_error("loop", "Too many levels of symbolic links")

    def test_a_file_that_gives_bytes_though_its_size_is_0(self):
        # The digest of nothing would match what the library reads of it.
        with open("/proc/version", "rb") as file:
            count = len(file.read())
        self.assert_error("/proc/version", "size mismatch: stat reports 0 bytes, read returned %d" % count)

    def test_a_file_that_gives_fewer_bytes_than_its_size(self):
        # Its digest as a stream would not match: the library takes zeros for what is missing.
        name = "/sys/kernel/mm/transparent_hugepage/enabled"
        if not os.path.exists(name):
            self.skipTest("needs " + name)
        with open(name, "rb") as file:
            count = len(file.read())
        self.assert_error(name, "size mismatch: stat reports %d bytes, read returned %d"
                          % (os.stat(name).st_size, count))

    def test_an_input_output_error(self):
        self.write("good", b"1")
        self.listed(record("/proc/self/mem", b""), record("good", b"1"))
        done = self.check("list")
        self.assertEqual(done.status, 1)
        self.assertRegex(done.text, r"\AError: File cannot be read: /proc/self/mem \[[A-Z][a-z /]+\]\.\n\Z")

    def test_an_unknown_algorithm_is_told_in_the_librarys_words_whatever_the_file(self):
        os.mkdir("d")
        self.listed("d=123\n")
        self.assertEqual(self.check("list").text, "Can't create hash calculator for d [123].\n")


class Lists(CheckTest):
    """Lists that the library would read in part without a word."""

    def refused(self, content, *texts):
        self.write("f", b"1")
        self.write("list", content)
        for words, stdin, name in ((["list"], b"", "list"), (["-"], content, "-")):
            self.assert_refused(self.check(*words, stdin=stdin), "pelorik: check: %s: " % name, *texts)

    def test_an_empty_list(self):
        for content in (b"", b"\n\n", b"[only]\n[headers]\n"):
            self.refused(content, "holds no record")

    def test_a_line_that_is_too_long(self):
        good = record("f", b"1").encode()
        for start in (b"x=", b"[", b""):
            self.refused(good + start.ljust(4129, b"y") + b"\n" + good, "line 2: longer than 4128")
            self.refused(good + start.ljust(4129, b"y"), "line 2: longer than 4128")
            self.refused(start.ljust(1 << 20, b"y"), "line 1: longer than 4128")

    def test_the_longest_line_is_read(self):
        self.write("f", b"1")
        self.listed(record("f", b"1"), b"[".ljust(4128, b"x") + b"\n", "y=".ljust(4128, "0") + "\n")
        done = self.check("list")
        self.assertEqual(done.status, 1)
        self.assertIn("1 unchanged, 1 of no known algorithm", done.complaint)

    def test_a_zero_byte(self):
        good = record("f", b"1").encode()
        self.refused(good + b"\n\0" + good, "line 3: holds a zero byte")
        self.refused(b"[\0]\n" + good, "line 1: holds a zero byte")
        self.refused(good + b"\0", "line 2: holds a zero byte")

    def test_a_line_without_a_divider(self):
        self.refused(record("f", b"1").encode() + b"# comment\n", "line 2: has no '='")

    def test_line_ends_of_another_system_get_a_hint(self):
        self.refused(record("f", b"1").replace("\n", "\r\n").encode(), "line 1", "CRLF")
        self.refused(b"\r\n" + record("f", b"1").encode(), "line 1", "CRLF")

    def test_a_missing_list_and_a_directory(self):
        os.mkdir("d")
        self.assert_refused(self.check("missing"), "missing: No such file or directory")
        self.assert_refused(self.check("d"), "d: Is a directory")
        self.assert_refused(self.check(""), ": No such file or directory")

    def test_a_list_without_permission(self):
        self.listed("f=1\n")
        os.chmod("list", 0)
        self.assert_refused(self.run_unprivileged("check", "list"), "list: Permission denied")

    def test_a_cut_read(self):
        self.assert_refused(self.check("/proc/self/mem"), "line 1: Input/output error")

    def test_lines_across_the_blocks_in_which_a_list_is_read(self):
        self.write("f", b"1")
        lines = [record("./" * (i % 50) + "f", b"1") for i in range(5000)]
        self.listed(*lines)
        self.assertGreater(os.stat("list").st_size, 5 * 65536)
        done = self.check("list")
        self.assertEqual((done.status, done.complaint),
                         (0, "pelorik: check: 5000 checked: 5000 unchanged\n"))


class Options(CheckTest):
    def test_c_looks_for_the_files_from_there_but_for_the_list_from_here(self):
        self.write("d/f", b"1")
        self.listed(record("f", b"1"))
        for words in (["-C", "d"], ["-Cd"], ["--directory=d"]):
            self.assertEqual(self.check(*words, "list").status, 0)
        self.assertEqual(self.check("list").status, 1)
        self.assertEqual(self.check("-C", "d", "-", stdin=record("f", b"1").encode()).status, 0)

    def test_c_to_nowhere_is_status_2(self):
        self.listed(record("f", b"1"))
        for directory in ("missing", "list", ""):
            self.assert_refused(self.check("-C", directory, "list"), "check: %s: N" % directory)

    def test_c_without_permission_is_status_2(self):
        os.mkdir("d")
        self.listed(record("f", b"1"))
        os.chmod("d", 0)
        self.assert_refused(self.run_unprivileged("check", "-C", "d", "list"), "d: Permission denied")

    def test_stop_ends_at_the_first_problem(self):
        for first, line in ((record("f", b"other"), "File changed: f [%s%s].\n" % (MD5, md5(b"1"))),
                            (record("gone", b""), "Warning: File not found: gone.\n"),
                            (record(".", b""), "Error: File cannot be read: . [Is a directory].\n"),
                            ("f=1\n", "Can't create hash calculator for f [1].\n")):
            self.write("f", b"1")
            self.listed(record("f", b"1"), first, record("gone too", b""))
            for jobs in ("1", "4"):
                done = self.check("--stop", "-j", jobs, "list")
                self.assertEqual((done.status, done.text), (1, line))
                self.assertIn("pelorik: check: 2 of 3 checked: 1 unchanged, 1 ", done.complaint)

    def test_stop_at_a_forbidden_file(self):
        self.write("secret", b"1")
        os.chmod("secret", 0)
        self.listed(record("secret", b"1"), record("gone", b""))
        done = self.run_unprivileged("check", "--stop", "list")
        self.assertEqual((done.status, done.text), (1, "Warning: File access denied: secret.\n"))

    def test_stop_without_a_problem(self):
        self.write("f", b"1")
        self.listed(record("f", b"1"), record("f", b"1"))
        self.assertEqual(self.check("--stop", "list").status, 0)

    def test_ignore_missing_forgives_missing_files(self):
        self.write("f", b"1")
        self.listed(record("gone", b""), record("f", b"1"))
        for words in ([], ["--stop"]):
            done = self.check("--ignore-missing", *words, "list")
            self.assertEqual((done.status, done.out), (0, b""))
            self.assertIn("2 checked: 1 unchanged, 1 missing", done.complaint)

    def test_ignore_missing_forgives_nothing_else(self):
        self.write("f", b"1")
        self.write("secret", b"1")
        os.chmod("secret", 0)
        for line in (record("f", b"2"), record(".", b""), record("secret", b"1"), "f=1\n"):
            self.listed(record("gone", b""), record("f", b"1"), line)
            self.assertEqual(self.run_unprivileged("check", "--ignore-missing", "list").status, 1, line)

    def test_ignore_missing_needs_one_verified_file(self):
        self.listed(record("gone", b""), record("gone too", b""))
        done = self.check("--ignore-missing", "list")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertEqual(done.complaint.splitlines(), [
            "pelorik: check: 2 checked: 2 missing",
            "pelorik: check: none of the files in list was verified"])

    def test_ignore_missing_with_nothing_but_unreadable_files_left(self):
        self.listed(record("gone", b""), record(".", b""))
        self.assertEqual(self.check("--ignore-missing", "list").status, 2)

    def test_ignore_missing_counts_a_changed_file_as_looked_at(self):
        self.write("f", b"1")
        self.listed(record("gone", b""), record("f", b"2"))
        self.assertEqual(self.check("--ignore-missing", "list").status, 1)

    def test_quiet_takes_the_summary_away(self):
        report = self.make_mixed()
        done = self.check("--quiet", "list")
        self.assertEqual((done.status, done.text, done.err), (1, report, b""))

    def test_status_writes_nothing(self):
        self.make_mixed()
        done = self.check("--status", "list")
        self.assertEqual((done.status, done.out, done.err), (1, b"", b""))
        self.listed(record("good", b"1"))
        done = self.check("--status", "list")
        self.assertEqual((done.status, done.out, done.err), (0, b"", b""))

    def test_status_writes_nothing_when_the_list_is_bad_either(self):
        self.listed("no divider\n")
        for words in (["list"], ["missing"], ["-C", "nowhere", "list"]):
            done = self.check("--status", *words)
            self.assertEqual((done.status, done.out, done.err), (2, b"", b""))
        self.listed(record("gone", b""))
        done = self.check("--status", "--ignore-missing", "list")
        self.assertEqual((done.status, done.out, done.err), (2, b"", b""))

    def test_status_still_writes_errors_of_usage(self):
        self.assert_refused(self.check("--status"), "pelorik check --help")


class Jobs(CheckTest):
    def make_many(self, count):
        dice = random.Random(1)
        lines, report = [], []
        for i in range(count):
            data = bytes([i % 256]) * dice.choice([0, 10, 1000, 200000])
            kind = dice.choice(["good", "good", "bad", "gone", "odd"])
            name = "f%d" % i
            if kind != "gone":
                self.write(name, data)
            lines.append("%s=1\n" % name if kind == "odd" else
                         record(name, data + b"x" if kind == "bad" else data))
            report += {"good": [], "bad": ["File changed: %s [%s%s].\n" % (name, MD5, md5(data))],
                       "gone": ["Warning: File not found: %s.\n" % name],
                       "odd": ["Can't create hash calculator for %s [1].\n" % name]}[kind]
        self.listed(*lines)
        return "".join(report)

    def test_output_keeps_the_lists_order(self):
        report = self.make_many(600)
        for jobs in ([], ["-j", "1"], ["-j2"], ["--jobs", "16"], ["-j", "1024"]):
            done = self.check(*jobs, "list")
            self.assertEqual((done.status, done.text), (1, report), jobs)
        self.assertEqual(
            [json.loads(line).get("name") for line in self.check("-j", "8", "--json", "list").text.splitlines()],
            ["f%d" % i for i in range(600)] + [None])

    def threads(self, expected, *words):
        """How many threads are at work on a list of files that nobody reads to the end."""
        child = subprocess.Popen([TOOL, "check", *words, "list"], env=environment(),
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        tasks = "/proc/%d/task" % child.pid
        await_open(child.pid, "huge")
        await_that(lambda: len(os.listdir(tasks)) >= expected)
        time.sleep(0.2)  # more than expected would come now
        count = len(os.listdir(tasks))
        child.kill()
        child.wait()
        return count

    def test_the_default_is_the_number_of_usable_processors(self):
        with open("huge", "wb") as file:
            file.truncate(1 << 42)
        self.listed(*[record("huge", b"")] * 1000)
        usable = os.sched_getaffinity(0)
        self.assertEqual(self.threads(1, "-j", "1"), 1)
        two = self.threads(3, "-j", "2")  # a sanitizer may have one of its own
        default = two + len(usable) - 2 if len(usable) > 1 else 1
        for expected, words in ((two + 1, ["-j", "3"]), (default, [])):
            self.assertEqual(self.threads(expected, *words), expected)
        try:
            os.sched_setaffinity(0, {min(usable)})
            self.assertEqual(self.threads(1), 1)
        finally:
            os.sched_setaffinity(0, usable)


class Json(CheckTest):
    def objects(self, *words, **options):
        done = self.check("--json", *words, **options)
        return done, [json.loads(line) for line in done.out.splitlines()]

    def test_one_object_a_record_in_list_order_and_a_summary_last(self):
        self.make_mixed()
        done, objects = self.objects("list")
        self.assertEqual((done.status, done.err), (1, b""))
        self.assertEqual(objects, [
            {"name": "good", "status": "ok", "digest": MD5 + md5(b"1"), "error": None},
            {"name": "bad", "status": "changed", "digest": MD5 + md5(b"2"), "error": None},
            {"name": "gone", "status": "missing", "digest": None, "error": "No such file or directory"},
            {"name": "dir", "status": "error", "digest": None, "error": "Is a directory"},
            {"name": "odd", "status": "unknown", "digest": None,
             "error": "The digest text names no known algorithm"},
            {"summary": {"records": 5, "checked": 5, "ok": 1, "changed": 1, "missing": 1, "denied": 0,
                         "error": 1, "unknown": 1, "complete": True}}])

    def test_a_denied_file(self):
        self.write("secret", b"1")
        os.chmod("secret", 0)
        self.listed(record("secret", b"1"))
        done = self.run_unprivileged("check", "--json", "list")
        self.assertEqual((done.status, json.loads(done.out.splitlines()[0])), (
            1, {"name": "secret", "status": "denied", "digest": None, "error": "Permission denied"}))

    def test_names_that_are_not_utf8_come_as_bytes_in_base64_too(self):
        for name in (b"\xff", b"a\xc3", b"\xed\xa0\x80", b"\xc0\xaf", b"ab\xf5\x80\x80\x80", b"\x80bc",
                     b"\xe2\x82", b"\xe2\x82x", b"\xf0\x9f\x92\xe2\x82\xac", b"\xf4\x90\x80\x80",
                     b"\xe0\x80\xaf\"\\\x7f"):
            self.listed(name + b"=" + (MD5 + md5(b"")).encode() + b"\n")
            done, objects = self.objects("list")
            self.assertEqual(base64.b64decode(objects[0]["name_base64"]), name)
            self.assertEqual(objects[0]["name"], name.decode(errors="replace"))  # as Python does
            done.out.decode()  # the whole is UTF-8

    def test_names_that_are_utf8_come_as_they_are(self):
        for name in ("\u00e9", "\U0001f600", "a\"b\\c\td", "\x1b[31m"):
            self.listed(record(name, b""))
            _, objects = self.objects("list")
            self.assertEqual(objects[0]["name"], name)
            self.assertNotIn("name_base64", objects[0])

    def test_ignored_missing_files_are_shown_and_the_status_is_0(self):
        self.write("f", b"1")
        self.listed(record("gone", b""), record("f", b"1"))
        done, objects = self.objects("--ignore-missing", "list")
        self.assertEqual([o.get("status") for o in objects], ["missing", "ok", None])
        self.assertEqual(done.status, 0)

    def test_a_stopped_check_is_not_complete(self):
        self.listed(record("gone", b""), record("gone too", b""))
        done, objects = self.objects("--stop", "list")
        self.assertEqual(done.status, 1)
        self.assertEqual([o.get("name") for o in objects], ["gone", None])
        self.assertEqual((objects[1]["summary"]["checked"], objects[1]["summary"]["complete"]), (1, False))

    def test_a_bad_list_gives_no_object(self):
        self.listed("no divider\n")
        self.assert_refused(self.check("--json", "list"), "line 1")

    def test_quiet_leaves_json_as_it_is(self):
        self.make_mixed()
        self.assertEqual(self.check("--json", "--quiet", "list").out, self.check("--json", "list").out)


class NotListed(CheckTest):
    """--unlisted: every entry that is neither named by the list nor a directory that was searched."""

    def setUp(self):
        super().setUp()
        self.write("t/a", b"1")
        self.write("t/sub/b", b"2")
        self.lines = record("t/a", b"1") + record("t/sub/b", b"2")
        self.listed(self.lines)

    def test_nothing_to_report(self):
        done = self.check("--unlisted", "t", "list")
        self.assertEqual((done.status, done.out, done.complaint),
                         (0, b"", "pelorik: check: 2 checked: 2 unchanged\n"))

    def test_each_file_that_is_not_named_is_reported_and_gives_status_1(self):
        self.write("t/z")
        self.write("t/A")
        self.write("t/sub/\u00e9")
        self.write("other/file")
        done = self.check("--unlisted", "t", "list")
        self.assertEqual((done.status, done.text), (1, "Warning: File not listed: t/A.\n"
                                                       "Warning: File not listed: t/sub/\u00e9.\n"
                                                       "Warning: File not listed: t/z.\n"))
        self.assertEqual(done.complaint, "pelorik: check: 2 checked: 2 unchanged, 3 not listed\n")
        self.assertEqual(self.check("list").status, 0)

    def test_they_come_behind_the_reports_on_the_records(self):
        self.write("t/a", b"other")
        self.write("t/z")
        done = self.check("--unlisted", "t", "list")
        self.assertEqual([line.split(":")[0] for line in done.text.splitlines()],
                         ["File changed", "Warning"])
        self.assertEqual(done.complaint,
                         "pelorik: check: 2 checked: 1 unchanged, 1 changed, 1 not listed\n")

    def test_several_directories(self):
        self.write("u/x")
        self.write("t/y")
        done = self.check("--unlisted", "u", "--unlisted", "t", "list")
        self.assertEqual(done.text, "Warning: File not listed: u/x.\nWarning: File not listed: t/y.\n")

    def test_what_several_directories_lead_to_is_reported_once(self):
        self.write("t/sub/new")
        os.symlink("nowhere", "t/sub/dangling")
        for directories in (("t", "t/sub"), ("t/sub", "t"), ("t", "./t/", os.path.abspath("t"))):
            words = [word for directory in directories for word in ("--unlisted", directory)]
            done = self.check(*words, "list")
            self.assertEqual(done.text.count("not listed"), 2)
            self.assertIn(", 2 not listed", done.complaint)

    def test_other_spellings_of_a_name_are_the_same_name(self):
        for directory in ("./t", "t/", ".//t/.", os.path.abspath("t"), os.path.abspath(".") + "/./t"):
            self.assertEqual(self.check("--unlisted", directory, "list").status, 0, directory)
        self.listed(record(os.path.abspath("t/a"), b"1"), record("./t//sub/./b", b"2"))
        self.assertEqual(self.check("--unlisted", "t", "list").status, 0)

    def test_other_ways_to_a_file_are_other_names(self):
        # A link may lead elsewhere tomorrow, and ".." behind it, too.
        os.symlink("t", "link")
        os.link("t/a", "t/hard")
        done = self.check("--unlisted", "t", "--unlisted", "link", "list")
        self.assertEqual(done.text, "Warning: File not listed: t/hard.\n"
                                    "Warning: File not listed: link/a.\n"
                                    "Warning: File not listed: link/hard.\n"
                                    "Warning: File not listed: link/sub/b.\n")
        self.assertEqual(self.check("--unlisted", "t/sub/../sub", "list").text,
                         "Warning: File not listed: t/sub/../sub/b.\n")

    def test_a_line_break_in_a_name_forges_no_line(self):
        name = "x\nWarning: File not found: important.\r\x1b[2K\u0085"
        self.write("t/" + name)
        done = self.check("--unlisted", "t", "list")
        self.assertEqual((done.status, done.text), (
            1, "Warning: File not listed: t/x\\nWarning: File not found: important."
               "\\x0d\\x1b[2K\\xc2\\x85.\n"))
        json_line = self.check("--json", "--unlisted", "t", "list").out.splitlines()[2]
        self.assertEqual(json.loads(json_line)["name"], "t/" + name)

    def test_with_c_the_directory_is_looked_for_from_there(self):
        self.write("d/f", b"1")
        self.write("d/more", b"1")
        self.listed(record("f", b"1"))
        done = self.check("-C", "d", "--unlisted", ".", "list")
        self.assertEqual((done.status, done.text), (1, "Warning: File not listed: ./more.\n"))

    def test_a_link_to_the_list_is_reported_unless_the_list_was_given_by_it(self):
        os.rename("list", "t/list")
        os.symlink("list", "t/inject")
        self.assertEqual(self.check("--unlisted", "t", "t/list").text, "Warning: File not listed: t/inject.\n")
        self.assertEqual(self.check("--unlisted", "t", "t/inject").status, 0)

    def test_the_list_itself_is_none(self):
        os.rename("list", "t/list")
        self.assertEqual(self.check("--unlisted", "t", "t/list").status, 0)
        self.assertEqual(self.check("-C", ".", "--unlisted", "t", os.path.abspath("t/list")).status, 0)
        with open("t/list", "rb") as stdin:
            done = subprocess.run([TOOL, "check", "--unlisted", "t", "-"], stdin=stdin, env=environment(),
                                  capture_output=True)
        self.assertEqual((done.returncode, done.stdout), (0, b""))
        os.link("t/list", "t/copy")
        self.assertEqual(self.check("--unlisted", "t", "t/list").text,
                         "Warning: File not listed: t/copy.\n")

    def test_exclude_takes_globs_as_list_does(self):
        self.write("t/x.log")
        self.write("t/cache/x")
        self.write("t/c")
        done = self.check("--unlisted", "t", "--exclude", "*.log", "--exclude", "t/cache", "list")
        self.assertEqual((done.status, done.text), (1, "Warning: File not listed: t/c.\n"))
        # It has nothing to do with what is listed.
        self.write("t/a", b"other")
        done = self.check("--unlisted", "t", "--exclude", "*", "list")
        self.assertEqual((done.status, done.text.split(":")[0]), (1, "File changed"))

    def test_exclude_alone_is_an_error_of_usage(self):
        self.assert_refused(self.check("--exclude", "x", "list"), "--unlisted", "pelorik check --help")

    def test_what_list_skips_is_reported(self):
        os.mkfifo("t/pipe")
        os.symlink("sub", "t/link")
        os.symlink("/dev/null", "t/null")
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind("t/socket")
        done = self.check("--unlisted", "t", "list")
        self.assertEqual((done.status, done.text), (1, "".join(
            "Warning: File not listed: t/%s.\n" % name for name in ("link", "null", "pipe", "socket"))))
        self.assertEqual(done.complaint, "pelorik: check: 2 checked: 2 unchanged, 4 not listed\n")

    def test_a_device(self):
        if os.getuid() != 0:
            self.skipTest("needs root")
        try:
            os.mknod("t/device", stat.S_IFCHR | 0o600, os.makedev(1, 3))
        except PermissionError:
            self.skipTest("needs a file system for devices")
        done = self.check("--unlisted", "t", "list")
        self.assertEqual((done.status, done.text), (1, "Warning: File not listed: t/device.\n"))

    def test_a_directory_that_was_replaced_by_a_link_to_another_with_the_same_files(self):
        os.rename("t/sub", "elsewhere")
        os.symlink("../elsewhere", "t/sub")
        done = self.check("--unlisted", "t", "list")
        self.assertEqual((done.status, done.text), (1, "Warning: File not listed: t/sub.\n"))

    def test_a_listed_link_is_as_listed(self):
        os.symlink("a", "t/link")
        self.listed(self.lines, record("t/link", b"1"))
        self.assertEqual(self.check("--unlisted", "t", "list").status, 0)

    def test_empty_directories_are_searched_and_not_reported(self):
        os.makedirs("t/empty/deeper")
        self.assertEqual(self.check("--unlisted", "t", "list").status, 0)

    def test_a_directory_that_cannot_be_searched_and_a_link_that_leads_nowhere(self):
        self.write("t/secret/f")
        os.chmod("t/secret", 0)
        os.symlink("nowhere", "t/broken")
        done = self.run_unprivileged("check", "--unlisted", "t", "list")
        self.assertEqual((done.status, done.text), (
            1, "Warning: File not listed: t/broken.\n"
               "Error: File cannot be read: t/secret [Permission denied].\n"))
        self.assertEqual(done.complaint,
                         "pelorik: check: 2 checked: 2 unchanged, 1 not searched, 1 not listed\n")

    def test_a_listed_link_that_leads_nowhere_is_told_once(self):
        os.symlink("nowhere", "t/broken")
        self.listed(self.lines, record("t/broken", b""))
        done = self.check("--unlisted", "t", "list")
        self.assertEqual(done.text, "Warning: File not found: t/broken.\n")

    def test_what_is_no_directory_is_status_2_before_anything_is_checked(self):
        self.assert_refused(self.check("--unlisted", "missing", "list"),
                            "check: missing: No such file or directory")
        self.assert_refused(self.check("--unlisted", "t/a", "list"), "check: t/a: Not a directory")
        self.assert_refused(self.check("--unlisted", "", "list"), "check: : No such file")

    def test_stop_ends_at_the_first(self):
        self.write("t/x")
        self.write("t/y")
        done = self.check("--stop", "--unlisted", "t", "list")
        self.assertEqual((done.status, done.text), (1, "Warning: File not listed: t/x.\n"))
        self.write("t/a", b"other")
        done = self.check("--stop", "--unlisted", "t", "list")
        self.assertEqual((done.status, done.text.count("\n"), done.text[:12]), (1, 1, "File changed"))

    def test_status_writes_nothing(self):
        self.write("t/x")
        os.mkfifo("t/pipe")
        done = self.check("--status", "--unlisted", "t", "list")
        self.assertEqual((done.status, done.out, done.err), (1, b"", b""))

    def test_json(self):
        self.write("t/x")
        self.write("t/secret/f")
        os.chmod("t/secret", 0)
        done = self.run_unprivileged("check", "--json", "--quiet", "--unlisted", "t", "list")
        self.assertEqual((done.status, done.err), (1, b""))
        self.assertEqual([json.loads(line) for line in done.text.splitlines()][2:], [
            {"name": "t/secret", "status": "error", "digest": None, "error": "Permission denied"},
            {"name": "t/x", "status": "unlisted", "digest": None, "error": None},
            {"summary": {"records": 2, "checked": 2, "ok": 2, "changed": 0, "missing": 0, "denied": 0,
                         "error": 0, "unknown": 0, "unsearched": 1, "unlisted": 1, "complete": True}}])

    def test_a_fresh_list_of_a_tree_leaves_nothing_unlisted(self):
        for i in range(300):
            self.write("t/%d/%d" % (i % 7, i), b"%d" % i)
        self.run_tool("list", "-r", "-o", "t/out", "t")
        self.assertEqual(self.check("--unlisted", "t", "t/out").status, 0)


if __name__ == "__main__":
    sys.exit(unittest.main())
