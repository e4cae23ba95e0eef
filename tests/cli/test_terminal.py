"""The tool on a pseudo-terminal: escapes, colour, progress, and Ctrl-C."""

import json
import os
import re
import signal
import subprocess
import sys
import time
import unittest

from tool import (MD5, TOOL, SlowWriter, Terminal, ToolTest, await_open, await_running, drop_root,
                  environment, md5, screen, tool_for_anybody)

NASTY = b"a\x1b[31m\x07\x7f\xc2\x9b\xd8\x9c\xe2\x80\xae\xff\xc3\xa9\t"
SHOWN = b"a\\x1b[31m\\x07\\x7f\\xc2\\x9b\\xd8\\x9c\\xe2\\x80\\xae\\xff\xc3\xa9\\t"
HUGE = 1 << 42  # bytes of a file without content: enough to be at it until the test ends it


def record(name, data):
    return os.fsencode(name) + b"=" + (MD5 + md5(data)).encode() + b"\n"


class Names(ToolTest):
    def setUp(self):
        super().setUp()
        self.nasty = os.fsdecode(NASTY)
        self.write(self.nasty, b"1")
        self.write("list", record(self.nasty, b"2") + record(self.nasty + "!", b""))

    def test_hash_and_list(self):
        for command in ("hash", "list"):
            status, seen, _ = Terminal(command, "-a", "md5", self.nasty).finish()
            self.assertEqual(status, 0)
            self.assertEqual(seen, SHOWN + b"=" + (MD5 + md5(b"1")).encode() + b"\n")

    def test_a_line_break_in_a_name(self):
        self.write("a\nb", b"1")
        _, seen, _ = Terminal("hash", "-a", "md5", "a\nb").finish()
        self.assertEqual(seen, b"a\\nb=" + (MD5 + md5(b"1")).encode() + b"\n")

    def test_the_report_of_a_check(self):
        status, seen, _ = Terminal("check", "list", NO_COLOR="1").finish()
        self.assertEqual(status, 1)
        self.assertEqual(seen.splitlines(), [
            b"File changed: " + SHOWN + b" [" + (MD5 + md5(b"1")).encode() + b"].",
            b"Warning: File not found: " + SHOWN + b"!.",
            b"pelorik: check: 2 checked: 1 changed, 1 missing"])

    def test_json(self):
        _, seen, _ = Terminal("check", "--json", "list", NO_COLOR="1").finish()
        self.assertNotIn(b"\x1b", seen)
        self.assertNotIn(b"\x7f", seen)

    def test_json_stays_json(self):
        name = "\x1b\x7f\u009b\u202e\u044f"
        self.write("list", record(name, b""))
        _, seen, _ = Terminal("check", "--json", "list", NO_COLOR="1", err=False).finish()
        self.assertEqual(json.loads(seen.splitlines()[0])["name"], name)
        self.assertNotRegex(seen.decode(), "[\x1b\x7f\u009b\u202e]")

    def test_complaints(self):
        for words in (["hash", self.nasty + "!"], ["check", self.nasty + "!"],
                      ["--" + self.nasty], ["hash", "--" + self.nasty], ["list", "-r", self.nasty + "!"]):
            _, seen, piped = Terminal(*words, out=False).finish()
            self.assertIn(SHOWN, seen)
            self.assertEqual(piped, b"")

    def test_each_stream_for_itself(self):
        # Standard error is the terminal, standard output a pipe, and the other way round.
        words = ("hash", "-a", "md5", self.nasty, self.nasty + "!")
        _, seen, piped = Terminal(*words, out=False).finish()
        self.assertTrue(piped.startswith(NASTY + b"="))
        self.assertTrue(seen.startswith(b"pelorik: hash: " + SHOWN + b"!: No such"))
        _, seen, piped = Terminal(*words, err=False).finish()
        self.assertTrue(seen.startswith(SHOWN + b"="))
        escaped = SHOWN.replace(b"\\xff", b"\xff")  # what is not UTF-8 is no control character
        self.assertTrue(piped.startswith(b"pelorik: hash: " + escaped + b"!: No such"))


class Colour(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("bad", b"1")
        self.write("list", record("bad", b"2") + record("gone", b""))

    def test_problems_have_a_colour_on_a_terminal(self):
        _, seen, _ = Terminal("check", "--quiet", "list").finish()
        self.assertRegex(seen, rb"\A\x1b\[31mFile changed: [^\n]*\x1b\[0m\n"
                               rb"\x1b\[33mWarning: File not found: gone\.\x1b\[0m\n\Z")

    def test_each_outcome_has_its_own(self):
        self.write("secret")
        os.chmod("secret", 0)
        self.write("list", record("secret", b""))
        with tool_for_anybody() as tool:
            drop = drop_root if os.getuid() == 0 else None
            _, seen, _ = Terminal("check", "--quiet", "list", tool=tool, preexec_fn=drop,
                                  LLVM_PROFILE_FILE="/dev/null").finish()
        self.assertEqual(seen, b"\x1b[35mWarning: File access denied: secret.\x1b[0m\n")

    def test_json_has_none(self):
        _, seen, _ = Terminal("check", "--json", "list").finish()
        self.assertNotIn(b"\x1b", seen)
        self.assertEqual(json.loads(seen.splitlines()[0])["status"], "changed")

    def test_the_summary_has_one(self):
        self.write("good", b"1")
        self.write("all", record("good", b"1"))
        self.write("some", record("good", b"1") + record("gone", b""))
        for words, code, text in ((["all"], b"32", b"1 checked: 1 unchanged"),
                                  (["--ignore-missing", "some"], b"33",
                                   b"2 checked: 1 unchanged, 1 missing"),
                                  (["--stop", "list"], b"31", b"1 of 2 checked: 1 changed"),
                                  (["list"], b"31", b"2 checked: 1 changed, 1 missing")):
            _, seen, _ = Terminal("check", *words).finish()
            self.assertEqual(seen.splitlines()[-1],
                             b"\x1b[%sm" % code + b"pelorik: check: " + text + b"\x1b[0m")

    def test_none_with_no_color_or_on_a_dumb_terminal(self):
        for changes in ({"NO_COLOR": "1"}, {"NO_COLOR": "0"}, {"TERM": "dumb"}, {"TERM": None}):
            _, seen, _ = Terminal("check", "list", **changes).finish()
            self.assertNotIn(b"\x1b", seen)
            self.assertIn(b"File changed", seen)

    def test_an_empty_no_color_means_nothing(self):
        _, seen, _ = Terminal("check", "list", NO_COLOR="").finish()
        self.assertIn(b"\x1b[31m", seen)

    def test_none_in_a_pipe(self):
        done = self.run_tool("check", "list", env=environment(TERM="xterm"))
        self.assertNotIn(b"\x1b", done.out + done.err)

    def test_help_is_the_same(self):
        _, seen, _ = Terminal("--help").finish()
        self.assertEqual(seen, self.run_tool("--help").out)


class ProgressLine(ToolTest):
    def slow_hash(self, pieces, *words, pause=0.13, **options):
        """Hashes what a slow writer writes; returns what a finished terminal does, and the time."""
        reader, writer = os.pipe()
        start = time.monotonic()
        terminal = Terminal("hash", "-a", "md5", *words, stdin=reader, **options)
        os.close(reader)
        await_running(terminal.child.pid)
        slow = SlowWriter(writer, pieces, pause)
        slow.start()
        result = terminal.finish()
        slow.join()
        return result, time.monotonic() - start

    def test_it_shows_files_bytes_and_rate_and_is_erased_at_the_end(self):
        data = b"x" * 65536
        (status, seen, piped), _ = self.slow_hash([data] * 4, out=False)
        self.assertEqual(status, 0)
        self.assertEqual(piped, b"-=" + (MD5 + md5(data * 4)).encode() + b"\n")
        self.assertRegex(seen, rb"\r0 of 1 files, [0-9]+\.0 KiB, [0-9.]+ [KM]iB/s")
        self.assertEqual(screen(seen), [b""])
        self.assertTrue(seen.endswith(b"\r"))

    def test_it_is_drawn_ten_times_a_second_at_most(self):
        (_, seen, _), seconds = self.slow_hash([b"x" * 65536] * 100, pause=0.01, out=False)
        drawn = len(re.findall(rb"\r\d", seen))
        self.assertGreater(drawn, 1)
        self.assertLessEqual(drawn, seconds * 10 + 1)

    def test_results_on_the_same_terminal_stand_on_lines_of_their_own(self):
        self.write("f", b"1")
        (_, seen, _), _ = self.slow_hash([b"x" * 65536] * 3, "f", "-", "missing")
        self.assertIn(b" files, ", seen)
        lines = screen(seen)
        self.assertEqual(lines[:2], [b"f=" + (MD5 + md5(b"1")).encode(),
                                     b"-=" + (MD5 + md5(b"x" * 196608)).encode()])
        self.assertTrue(lines[2].startswith(b"pelorik: hash: missing: "))
        self.assertEqual(lines[3:], [b""])

    def test_it_never_fills_the_line(self):
        (_, seen, _), _ = self.slow_hash([b"x" * 65536] * 3, out=False, columns=12)
        self.assertIn(b"\r0 of 1 file", seen)
        for drawn in seen.split(b"\r"):
            self.assertLess(len(drawn), 12)

    def test_there_is_none_in_a_pipe_whatever_standard_output_is(self):
        (_, seen, piped), _ = self.slow_hash([b"x" * 65536] * 3, err=False)
        self.assertNotIn(b"\r", seen)
        self.assertEqual(piped, b"")

    def test_no_color_leaves_it(self):
        (_, seen, _), _ = self.slow_hash([b"x" * 65536] * 3, out=False, NO_COLOR="1")
        self.assertIn(b" files, ", seen)
        self.assertNotIn(b"\x1b", seen)

    def sparse(self, name):
        with open(name, "wb") as file:
            file.truncate(HUGE)

    def long_runs(self):
        """Commands that are at it for ever, with the number of files."""
        self.write("small", b"1")
        self.sparse("huge")
        self.write("list", record("small", b"1") + record("huge", b""))
        yield ["hash", "-a", "md5", "small", "huge"]
        yield ["list", "-a", "md5", "small", "huge"]
        yield ["check", "list"]
        yield ["check", "-j1", "--quiet", "list"]

    def test_it_shows_the_total_and_the_time_left(self):
        for words in self.long_runs():
            with self.subTest(words=words):
                terminal = Terminal(*words)
                terminal.wait_for(re.compile(
                    rb"\r1 of 2 files, [0-9.]+ [KMG]iB of 4\.0 TiB, [0-9.]+ [KMG]iB/s, "
                    rb"([0-9]+:)?[0-9]+:[0-9]{2} left"))
                terminal.interrupt()
                status, seen, _ = terminal.finish()
                self.assertEqual(status, 130)
                self.assertEqual(screen(seen)[-1], b"")
                self.assertNotIn(b" left", b"\n".join(screen(seen)))

    def test_status_shows_none(self):
        self.write("list", record("huge", b""))
        self.sparse("huge")
        terminal = Terminal("check", "--status", "list")
        await_open(terminal.child.pid, "huge")
        time.sleep(0.5)  # a line would be drawn by now
        terminal.interrupt()
        status, seen, _ = terminal.finish()
        self.assertEqual((status, seen), (130, b""))


class Widths(ToolTest):
    """Terminals from narrow to wide."""

    COLUMNS = (40, 80, 200)

    def seen(self, *words, columns):
        status, seen, _ = Terminal(*words, columns=columns, NO_COLOR="1").finish()
        return status, seen.decode().splitlines()

    def test_help_fits_but_for_the_examples_which_can_be_copied(self):
        commands = re.findall(r"^  (\w+) ", self.run_tool("--help").text.split("Examples:")[0], re.M)
        for words in [["--help"], ["xml", "seal", "--help"]] + [[c, "--help"] for c in commands]:
            piped = self.run_tool(*words).text
            for columns in self.COLUMNS:
                with self.subTest(words=words, columns=columns):
                    status, lines = self.seen(*words, columns=columns)
                    text = "\n".join(lines)
                    body = text.split("Examples:")[0]
                    # "Usage:" of the tool itself has two lines that are not broken.
                    fitting = body.split("\n\n", 1)[1] if words == ["--help"] else body
                    self.assertLessEqual(max(map(len, fitting.splitlines())), min(columns, 80))
                    self.assertEqual((status, text.split()), (0, piped.split()))
                    self.assertIn("\n".join(piped.splitlines()[-2:]), text)
                    if columns >= 80:
                        self.assertEqual(text + "\n", piped)

    def test_the_summary_is_broken_between_words(self):
        self.write("good", b"1")
        self.write("bad", b"1")
        self.write("list", record("good", b"1") + record("bad", b"2") + record("gone", b"") +
                   record(".", b"") + b"odd=1\n")
        summary = ("pelorik: check: 5 checked: 1 unchanged, 1 changed, 1 missing, 1 unreadable, 1 of no "
                   "known algorithm")
        for columns in self.COLUMNS:
            _, lines = self.seen("check", "list", columns=columns)
            report, rest = lines[:4], lines[4:]
            self.assertEqual([line.split(":")[0] for line in report],
                             ["File changed", "Warning", "Error", "Can't create hash calculator for odd [1]."])
            self.assertEqual(" ".join(line.strip() for line in rest), summary)
            self.assertLessEqual(max(map(len, rest)), columns)
            self.assertEqual(len(rest), {40: 3, 80: 2, 200: 1}[columns])
            self.assertTrue(all(line.startswith("  ") for line in rest[1:]))

    def test_reports_are_whole_and_aligned_whatever_the_width(self):
        # Lines that do not fit are left to the terminal: a broken name could not be copied.
        long = "n" * 100
        self.write("old", record("a", b"1") + record("b", b"1") + record(long, b"1"))
        self.write("new", record("a", b"2") + record(long, b"2") + record("c", b"1"))
        for columns in self.COLUMNS:
            _, lines = self.seen("compare", "--quiet", "old", "new", columns=columns)
            self.assertEqual(lines, ["changed     a", "removed     b", "changed     " + long,
                                     "added       c"])

    def test_the_progress_line_is_cut(self):
        with open("huge", "wb") as file:
            file.truncate(HUGE)
        whole = re.compile(rb"\r(0 of 1 files, [0-9.]+ [KMG]iB of 4\.0 TiB, [0-9.]+ [KMG]iB/s, [0-9:]+ left)")
        for columns in self.COLUMNS:
            terminal = Terminal("hash", "-a", "md5", "huge", columns=columns)
            terminal.wait_for(whole if columns > 40 else re.compile(rb"\r0 of 1 files, [^\r]{24}"))
            terminal.interrupt()
            status, seen, _ = terminal.finish()
            self.assertEqual(status, 130)
            for drawn in re.findall(rb"\r(0 of [^\r]*)", seen):
                self.assertLess(len(drawn), columns)
            self.assertEqual(screen(seen)[0], b"pelorik: hash: interrupted: 0 of 1 files hashed")

    def test_interfaces_are_a_table(self):
        _, lines = self.seen("interfaces", columns=200)
        self.assertEqual(lines[0].split(), ["NAME", "INDEX", "MTU", "ADDRESSES", "BROADCASTS"])
        for line in lines[1:]:
            self.assertEqual(line[lines[0].index("MTU") - 1], " ")


class Interrupt(ToolTest):
    def start(self, *words, **options):
        return subprocess.Popen([TOOL, *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                env=environment(), **options)

    def setUp(self):
        super().setUp()
        self.write("small", b"1")
        with open("huge", "wb") as file:
            file.truncate(HUGE)

    def interrupted(self, *words, after=None):
        child = self.start(*words)
        await_open(child.pid, "huge")
        if after is not None:
            self.assertEqual(child.stdout.read(len(after)), after)
        child.send_signal(signal.SIGINT)
        out, err = child.communicate()
        return child.returncode, out, err.decode()

    def test_check_gives_a_partial_summary_and_status_130(self):
        gone = b"Warning: File not found: gone.\n"
        self.write("list", record("small", b"1") + record("gone", b"") + record("huge", b"") +
                   record("small", b"1"))
        for jobs in ("1", "2", "8"):
            # What is reported so far comes out while the rest is still at work.
            status, out, err = self.interrupted("check", "-j", jobs, "list", after=gone)
            self.assertEqual((status, out), (130, b""))
            self.assertEqual(err, "pelorik: check: interrupted: 2 of 4 checked: 1 unchanged, 1 missing\n")

    def test_check_in_json(self):
        self.write("list", record("small", b"1") + record("huge", b""))
        status, out, err = self.interrupted("check", "-j1", "--json", "list")
        objects = [json.loads(line) for line in out.splitlines()]
        self.assertEqual((status, err), (130, ""))
        self.assertEqual(objects[0]["status"], "ok")
        self.assertEqual((objects[1]["summary"]["checked"], objects[1]["summary"]["complete"]), (1, False))

    def test_a_stop_does_not_wait_for_files_that_other_threads_are_at(self):
        self.write("list", record("gone", b"") + record("huge", b""))
        done = self.run_tool("check", "--stop", "-j", "2", "list")
        self.assertEqual((done.status, done.text), (1, "Warning: File not found: gone.\n"))

    def test_a_write_error_does_not_wait_for_them_either(self):
        self.write("list", record("gone", b"") + record("huge", b""))
        with open("/dev/full", "wb") as full:
            done = subprocess.run([TOOL, "check", "list"], stdout=full, stderr=subprocess.PIPE,
                                  env=environment())
        self.assertEqual((done.returncode, done.stderr),
                         (2, b"pelorik: check: standard output: No space left on device\n"))

    def test_hash(self):
        status, out, err = self.interrupted("hash", "-a", "md5", "small", "huge", "small")
        self.assertEqual((status, out), (130, b"small=" + (MD5 + md5(b"1")).encode() + b"\n"))
        self.assertEqual(err, "pelorik: hash: interrupted: 1 of 3 files hashed\n")

    def test_hash_waiting_for_a_pipe(self):
        os.mkfifo("pipe")
        reader, writer = os.pipe()
        for words, stdin in ((["hash", "pipe"], subprocess.DEVNULL), (["hash"], reader),
                             (["check", "-"], reader), (["list", "--files-from", "-"], reader)):
            child = self.start(*words, stdin=stdin)
            await_running(child.pid)
            time.sleep(0.2)  # it waits by now, or finds the signal before it does
            child.send_signal(signal.SIGINT)
            out, err = child.communicate()
            self.assertEqual((child.returncode, out), (130, b""), words)
            self.assertIn(b"interrupted", err)
        os.close(reader)
        os.close(writer)

    def test_list_to_standard_output_writes_nothing(self):
        status, out, err = self.interrupted("list", "-j1", "small", "huge")
        self.assertEqual((status, out), (130, b""))
        self.assertEqual(err, "pelorik: list: interrupted: 1 of 2 files hashed, nothing was written\n")
        self.assertEqual(sorted(os.listdir()), ["huge", "small"])

    def test_list_waiting_for_the_reader_of_a_pipe(self):
        self.write("f")
        os.mkfifo("pipe")
        child = self.start("list", "-o", "pipe", "f")
        await_running(child.pid)
        time.sleep(0.2)
        child.send_signal(signal.SIGINT)
        self.assertEqual(child.communicate(), (b"", b"pelorik: list: interrupted\n"))
        self.assertEqual(child.returncode, 130)

    def test_an_interrupt_that_the_parent_ignores_is_ignored(self):
        child = self.start("hash", "-a", "md5", stdin=subprocess.PIPE, restore_signals=True,
                           preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_IGN))
        time.sleep(0.2)
        child.send_signal(signal.SIGINT)
        out, _ = child.communicate(b"1")
        self.assertEqual((child.returncode, out), (0, b"-=" + (MD5 + md5(b"1")).encode() + b"\n"))


if __name__ == "__main__":
    sys.exit(unittest.main())
