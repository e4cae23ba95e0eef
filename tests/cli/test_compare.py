"""pelorik compare. Which texts mean the same digest follows from the format's rules."""

import json
import os
import signal
import subprocess
import sys
import unittest

from tool import (GOST94, GOST2012, MD5, TOOL, Terminal, ToolTest, await_running, environment, md5)

ONE = md5(b"1")
TWO = md5(b"2")
LONG = ONE + TWO  # 64 digits


class CompareTest(ToolTest):
    def lists(self, old, new):
        self.write("old", "".join(line + "\n" for line in old))
        self.write("new", "".join(line + "\n" for line in new))

    def compare(self, *words, **options):
        return self.run_tool("compare", *words, **options)

    def difference(self, old, new):
        """Status, report and summary, the latter without what every summary begins with."""
        self.lists(old, new)
        done = self.compare("old", "new")
        self.assertTrue(done.complaint.startswith("pelorik: compare: "), done.complaint)
        return done.status, done.text, done.complaint[len("pelorik: compare: "):]


class Differences(CompareTest):
    def test_lists_of_one_content_print_nothing_and_give_status_0(self):
        same = ["a=" + MD5 + ONE, "b=" + GOST2012 + LONG]
        self.assertEqual(self.difference(same, same), (0, "", "2 unchanged\n"))

    def test_each_difference_alone_is_status_1(self):
        kept = "kept=" + MD5 + ONE
        for old, new, line, counted in (
                ([], ["x=" + MD5 + ONE], "added       x\n", "1 added"),
                (["x=" + MD5 + ONE], [], "removed     x\n", "1 removed"),
                (["x=" + MD5 + ONE], ["x=" + MD5 + TWO], "changed     x\n", "1 changed"),
                (["x=" + MD5 + ONE], ["x=" + GOST2012 + LONG], "rehashed    x\n", "1 rehashed")):
            self.assertEqual(self.difference([kept] + old, [kept] + new),
                             (1, line, "1 unchanged, %s\n" % counted))

    def test_the_order_of_old_and_then_that_of_new(self):
        status, report, summary = self.difference(
            ["z=" + MD5 + ONE, "b=" + MD5 + ONE, "a=" + MD5 + ONE, "same=" + MD5 + ONE],
            ["y=" + MD5 + ONE, "same=" + MD5 + ONE, "c=" + MD5 + ONE, "b=" + MD5 + TWO])
        self.assertEqual((status, report), (1, "removed     z\nchanged     b\nremoved     a\n"
                                               "added       y\nadded       c\n"))
        self.assertEqual(summary, "1 unchanged, 1 changed, 2 removed, 2 added\n")

    def test_the_order_of_a_list_is_no_difference_nor_are_headers_and_empty_lines(self):
        self.assertEqual(self.difference(["[x]", "a=" + MD5 + ONE, "", "b=" + MD5 + TWO],
                                         ["b=" + MD5 + TWO, "[y]", "a=" + MD5 + ONE])[0], 0)

    def test_files_are_not_read_and_need_not_exist(self):
        self.write("f", b"other")
        self.assertEqual(self.difference(["f=" + MD5 + ONE], ["f=" + MD5 + ONE])[0], 0)

    def test_names_are_compared_byte_by_byte(self):
        self.assertEqual(self.difference(["./a=" + MD5 + ONE], ["a=" + MD5 + ONE]),
                         (1, "removed     ./a\nadded       a\n", "1 removed, 1 added\n"))


class Digests(CompareTest):
    def test_texts_of_one_digest_are_no_difference(self):
        for texts in ([MD5 + ONE, "$" + MD5[1:] + ONE, ONE, ONE.upper(), MD5 + ONE.upper()],
                      [GOST2012 + LONG, "$" + GOST2012[1:] + LONG.upper(), LONG, LONG.upper()],
                      [GOST94 + LONG, "$" + GOST94[1:] + LONG.upper()]):
            for text in texts:
                self.assertEqual(self.difference(["a=" + texts[0]], ["a=" + text]),
                                 (0, "", "1 unchanged\n"), text)

    def test_bare_digits_are_never_taken_for_gost94(self):
        self.assertEqual(self.difference(["a=" + GOST94 + LONG], ["a=" + LONG])[:2],
                         (1, "rehashed    a\n"))

    def test_texts_that_match_no_file_are_the_same_only_when_they_are_equal(self):
        mixed = MD5 + ONE[:16].upper() + ONE[16:]
        self.assertNotEqual(mixed.upper(), mixed)
        for text in (mixed, "#SHA1:00", "", "x"):
            self.assertEqual(self.difference(["a=" + text], ["a=" + text])[0], 0)
        self.assertEqual(self.difference(["a=" + mixed], ["a=" + MD5 + ONE])[:2], (1, "changed     a\n"))
        self.assertEqual(self.difference(["a=x"], ["a=y"])[:2], (1, "changed     a\n"))
        self.assertEqual(self.difference(["a=x"], ["a=" + MD5 + ONE])[:2], (1, "rehashed    a\n"))

    def test_several_digests_of_one_name(self):
        both = ["a=" + MD5 + ONE, "a=" + GOST2012 + LONG]
        self.assertEqual(self.difference(both, both[::-1])[0], 0)
        # One digest less of one and the same content: nothing says that the file has changed.
        self.assertEqual(self.difference(both, both[:1])[:2], (1, "rehashed    a\n"))
        for other in (["a=" + MD5 + TWO], ["a=" + MD5 + TWO, both[1]], [both[0], "a=" + MD5 + TWO]):
            self.assertEqual(self.difference(both, other)[:2], (1, "changed     a\n"), other)
            self.assertEqual(self.difference(other, both)[:2], (1, "changed     a\n"), other)

    def test_a_name_that_is_listed_twice_alike_is_counted_once(self):
        self.assertEqual(self.difference(["a=" + MD5 + ONE] * 2, ["a=" + MD5 + ONE]),
                         (0, "", "1 unchanged\n"))


class Options(CompareTest):
    def setUp(self):
        super().setUp()
        self.lists(["gone=" + MD5 + ONE, "b=" + ONE], ["b=" + MD5 + TWO, "n=" + MD5 + ONE, "n=" + LONG])

    def test_quiet_takes_the_summary_away(self):
        done = self.compare("--quiet", "old", "new")
        self.assertEqual((done.status, done.text, done.err),
                         (1, "removed     gone\nchanged     b\nadded       n\n", b""))

    def test_json(self):
        done = self.compare("--json", "old", "new")
        self.assertEqual((done.status, done.err), (1, b""))
        self.assertEqual([json.loads(line) for line in done.text.splitlines()], [
            {"name": "gone", "status": "removed", "old": [MD5 + ONE], "new": []},
            {"name": "b", "status": "changed", "old": [ONE], "new": [MD5 + TWO]},
            {"name": "n", "status": "added", "old": [], "new": [MD5 + ONE, LONG]},
            {"summary": {"unchanged": 0, "changed": 1, "removed": 1, "rehashed": 0, "added": 1}}])

    def test_json_of_lists_that_agree_is_a_summary(self):
        done = self.compare("--json", "old", "old")
        self.assertEqual((done.status, done.err), (0, b""))
        self.assertEqual(json.loads(done.text)["summary"]["unchanged"], 2)

    def test_names_that_are_not_utf8_come_in_base64_too(self):
        self.write("new", b"\xff=" + (MD5 + ONE).encode() + b"\n")
        done = self.compare("--json", "old", "new")
        self.assertEqual(json.loads(done.text.splitlines()[2])["name_base64"], "/w==")

    def test_standard_input(self):
        with open("old", "rb") as old:
            content = old.read()
        self.assertEqual(self.compare("-", "old", stdin=content).status, 0)
        self.assertEqual(self.compare("old", "-", stdin=content).status, 0)
        self.assertEqual(self.compare("-", "new", stdin=content).status, 1)
        self.assert_refused(self.compare("-", "-"), "standard input (-) can be read only once")

    def test_usage(self):
        self.assert_refused(self.compare(), "OLD is missing", "pelorik compare --help")
        self.assert_refused(self.compare("old"), "NEW is missing")
        self.assert_refused(self.compare("old", "new", "more"), "unexpected operand 'more'")

    def test_help(self):
        self.assert_help(["compare"], ["--quiet", "--json", "OLD|- NEW|-"])

    def test_lists_that_are_none_are_refused(self):
        for content, why in (("", "holds no record"), ("no divider\n", "line 1: has no '='"),
                             ("a=1\r\n", "CRLF")):
            self.write("bad", content)
            for words in (["bad", "new"], ["old", "bad"]):
                self.assert_refused(self.compare(*words), "pelorik: compare: bad: ", why)
        self.assert_refused(self.compare("old", "missing"), "missing: No such file or directory")
        os.mkdir("d")
        self.assert_refused(self.compare("d", "new"), "d: Is a directory")

    def test_a_full_device_is_status_2(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([TOOL, "compare", "old", "new"], stdout=full, stderr=subprocess.PIPE,
                                  env=environment())
        self.assertEqual((done.returncode, done.stderr), (
            2, b"pelorik: compare: standard output: No space left on device\n"))

    def test_an_interrupt_while_a_list_is_read(self):
        reader, writer = os.pipe()
        child = subprocess.Popen([TOOL, "compare", "old", "-"], stdin=reader, env=environment(),
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        await_running(child.pid)
        child.send_signal(signal.SIGINT)
        self.assertEqual(child.communicate(), (b"", b"pelorik: compare: interrupted\n"))
        self.assertEqual(child.returncode, 130)
        os.close(reader)
        os.close(writer)

    def test_colour_on_a_terminal(self):
        _, seen, _ = Terminal("compare", "--quiet", "old", "new").finish()
        self.assertEqual(seen, b"\x1b[33mremoved     gone\x1b[0m\n\x1b[31mchanged     b\x1b[0m\n"
                               b"\x1b[32madded       n\x1b[0m\n")
        _, seen, _ = Terminal("compare", "--json", "old", "new").finish()
        self.assertNotIn(b"\x1b", seen)


class Whole(CompareTest):
    def test_two_listings_of_a_tree_that_changed(self):
        for i in range(50):
            self.write("t/%d" % i, b"%d" % i)
        self.run_tool("list", "-r", "-o", "old", "t")
        self.write("t/7", b"other")
        os.remove("t/9")
        self.write("t/new", b"")
        self.run_tool("list", "-r", "-o", "new", "t")
        done = self.compare("old", "new")
        self.assertEqual((done.status, done.text),
                         (1, "changed     t/7\nremoved     t/9\nadded       t/new\n"))
        self.assertEqual(done.complaint,
                         "pelorik: compare: 48 unchanged, 1 changed, 1 removed, 1 added\n")


if __name__ == "__main__":
    sys.exit(unittest.main())
