"""pelorik base64. Expected texts come from Python's base64."""

import base64
import os
import signal
import subprocess
import unittest

from tool import TOOL, Terminal, ToolTest, await_reading, environment

# The tool works in pieces of 49152 bytes.
SIZES = (0, 1, 2, 3, 4, 57, 49151, 49152, 49153, 98304, 200000)


def pattern(size):
    return bytes(i % 251 for i in range(size))


class Encode(ToolTest):
    def test_writes_one_line_at_sizes_around_a_piece(self):
        for size in SIZES:
            with self.subTest(size=size):
                done = self.run_tool("base64", stdin=pattern(size))
                self.assertEqual((done.status, done.err), (0, b""))
                self.assertEqual(done.out, base64.b64encode(pattern(size)) + b"\n")

    def test_reads_a_file_or_standard_input(self):
        self.write("f", b"foobar")
        for words, stdin in ((["f"], b""), (["-"], b"foobar"), ([], b"foobar"), (["--", "f"], b"")):
            done = self.run_tool("base64", *words, stdin=stdin)
            self.assertEqual((done.status, done.text), (0, "Zm9vYmFy\n"))

    def test_a_writer_of_few_bytes_gives_the_text_of_the_whole(self):
        child = subprocess.Popen([TOOL, "base64"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 env=environment())
        for i in range(1000):
            os.write(child.stdin.fileno(), pattern(1000)[i:i + 1])
        out, _ = child.communicate()
        self.assertEqual(out, base64.b64encode(pattern(1000)) + b"\n")


class Decode(ToolTest):
    def decode(self, text, *words):
        return self.run_tool("base64", "-d", *words, stdin=text)

    def test_gives_the_bytes_at_sizes_around_a_piece(self):
        for size in SIZES:
            for text in (base64.b64encode(pattern(size)), base64.encodebytes(pattern(size))):
                with self.subTest(size=size, length=len(text)):
                    done = self.decode(text)
                    self.assertEqual((done.status, done.out, done.err), (0, pattern(size), b""))

    def test_the_long_option_and_a_file(self):
        self.write("f", b"Zm9v\n")
        done = self.run_tool("base64", "--decode", "f")
        self.assertEqual((done.status, done.out), (0, b"foo"))

    def test_white_space_may_stand_anywhere(self):
        done = self.decode(b" Z\tm\r\n9\vv\fZ g = =\n\n")
        self.assertEqual((done.status, done.out), (0, b"foog"[:3] + b"f"))

    def test_much_white_space_between_the_characters(self):
        blanks = b" " * 70000 + b"\n"
        done = self.decode(blanks.join(b"%c" % c for c in b"Zm9vYmFy"))
        self.assertEqual((done.status, done.out), (0, b"foobar"))

    def test_what_is_refused_is_told_with_its_place(self):
        for text, line, column, why in (
                (b"Zm9v!", 1, 5, "no base64 character"),
                (b"Zm9v\nZm\xff9v", 2, 3, "no base64 character"),
                (b"Zm9v\r\n  Zm\x00v", 2, 5, "no base64 character"),
                (b"Zm9v-_", 1, 5, "no base64 character"),
                (b"Zm9vZm9", 1, 8, "ends within a group"),
                (b"Zm9v\nZg\n", 3, 1, "ends within a group"),
                (b"Zg=", 1, 4, "ends within a group"),
                (b"Zm9v\nZh==\n", 2, 1, "no group"),
                (b"Zm9vZg=A", 1, 5, "no group"),
                (b"Zm9v====", 1, 5, "no group"),
                (b"Zg==\nZg==", 2, 1, "behind the padding"),
                (b"Zg===", 1, 5, "behind the padding")):
            with self.subTest(text=text):
                done = self.decode(text)
                self.assertEqual((done.status, done.out), (1, b""))
                self.assertRegex(done.complaint, r"\Apelorik: base64: -: line %d, column %d: [^\n]*%s"
                                                 r"[^\n]*\n\Z" % (line, column, why))

    def test_places_behind_the_first_piece(self):
        lines = base64.encodebytes(pattern(57 * 3000)).splitlines(keepends=True)
        lines[2500] = lines[2500][:10] + b"*" + lines[2500][11:]
        done = self.decode(b"".join(lines))
        self.assertEqual(done.status, 1)
        self.assertIn("-: line 2501, column 11: no base64 character", done.complaint)
        self.assertTrue(done.out and pattern(57 * 3000).startswith(done.out))

    def test_padding_at_the_end_of_a_piece_is_an_end(self):
        text = base64.b64encode(pattern(49150))
        self.assertEqual((len(text), text[-2:]), (65536, b"=="))
        self.assertEqual(self.decode(text + b"\n").out, pattern(49150))
        done = self.decode(text + b"\nZm9v")
        self.assertEqual((done.status, done.out), (1, pattern(49150)))
        self.assertIn("line 2, column 1: text behind the padding", done.complaint)

    def test_a_terminal_gets_escapes_for_what_it_would_obey(self):
        self.write("f", base64.b64encode(b"one\n\x1b[31mtwo\n"))
        _, seen, _ = Terminal("base64", "-d", "f").finish()
        self.assertEqual(seen, b"one\n\\x1b[31mtwo\n")


class Both(ToolTest):
    def test_streams_of_any_length_take_the_same_memory(self):
        def peak(words, size):
            with open("in", "wb") as file:
                for _ in range(size // 65536):
                    file.write(b"A" * 65536)
            with open("in", "rb") as file:
                # A sanitizer keeps back what was freed.
                child = subprocess.Popen([TOOL, "base64", *words], stdin=file,
                                         stdout=subprocess.DEVNULL,
                                         env=environment(ASAN_OPTIONS="quarantine_size_mb=1"))
                _, status, usage = os.wait4(child.pid, 0)
                child.returncode = status
            self.assertEqual(status, 0)
            return usage.ru_maxrss

        for words in ([], ["-d"]):
            self.assertLess(peak(words, 1 << 24) - peak(words, 1 << 20), 8192)  # KiB

    def test_wrong_usage_is_refused(self):
        self.assert_refused(self.run_tool("base64", "a", "b"), "'b'", "--help")
        self.assert_refused(self.run_tool("base64", "--encode"), "--encode")
        self.assert_refused(self.run_tool("base64", "missing"), "missing: No such file")
        self.assert_refused(self.run_tool("base64", "-d", "."), ".: Is a directory")

    def test_a_full_disk_is_trouble(self):
        with open("/dev/full", "wb") as full:
            for words in ([], ["-d"]):
                done = subprocess.run([TOOL, "base64", *words], input=b"Zm9v", stdout=full,
                                      stderr=subprocess.PIPE, env=environment(), check=False)
                self.assertEqual(done.returncode, 2)
                self.assertIn(b"No space left", done.stderr)

    def test_interrupting_it(self):
        child = subprocess.Popen([TOOL, "base64"], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.PIPE, env=environment())
        await_reading(child.pid)
        child.send_signal(signal.SIGINT)
        self.assertEqual(child.wait(), 130)
        child.stdin.close()
        child.stderr.close()

    def test_help(self):
        self.assert_help(["base64"], ["-d, --decode", "FILE|-"])


if __name__ == "__main__":
    unittest.main()
