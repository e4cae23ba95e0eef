"""pelorik pem. Expected base64 texts come from Python's base64 and ssl."""

import base64
import ssl
import unittest

from tool import Terminal, ToolTest

BEGIN = b"-----BEGIN CERTIFICATE-----"
END = b"-----END CERTIFICATE-----"


def pattern(size):
    return bytes(i % 251 for i in range(size))


def pem(data, line_end=b"\r\n"):
    text = base64.b64encode(data)
    lines = [text[i:i + 64] for i in range(0, len(text), 64)]
    return b"".join(line + line_end for line in [BEGIN, *lines, END])


class Wrap(ToolTest):
    def test_frames_lines_of_64_characters(self):
        for size in (0, 1, 2, 3, 47, 48, 49, 95, 96, 97, 1000, 100000):
            with self.subTest(size=size):
                done = self.run_tool("pem", "wrap", stdin=pattern(size))
                self.assertEqual((done.status, done.out, done.err), (0, pem(pattern(size)), b""))

    def test_reads_a_file_or_standard_input(self):
        self.write("f", b"foo")
        for words, stdin in ((["f"], b""), (["-"], b"foo"), ([], b"foo")):
            self.assertEqual(self.run_tool("pem", "wrap", *words, stdin=stdin).out, pem(b"foo"))


class Unwrap(ToolTest):
    def unwrap(self, text):
        return self.run_tool("pem", "unwrap", stdin=text)

    def assert_unwraps(self, text, data):
        done = self.unwrap(text)
        self.assertEqual((done.status, done.out, done.err), (0, data, b""))

    def test_gives_the_bytes(self):
        for size in (0, 1, 2, 3, 48, 49, 1000, 100000):
            self.assert_unwraps(pem(pattern(size)), pattern(size))
            self.assert_unwraps(ssl.DER_cert_to_PEM_cert(pattern(size)).encode(), pattern(size))

    def test_reads_a_file(self):
        self.write("f", pem(b"foo"))
        self.assertEqual(self.run_tool("pem", "unwrap", "f").out, b"foo")

    def test_white_space_may_follow_the_lines(self):
        text = pem(b"foo", b"\n")
        for behind in (b"", b"\n", b"\r\n\r\n\r\n", b" \t\n\n\n"):
            self.assert_unwraps(text.rstrip() + behind, b"foo")
        self.assert_unwraps(text.replace(b"\n", b" \n"), b"foo")

    def test_the_text_has_to_be_one_certificate(self):
        for text, line in ((b"", 1), (b"\n", 1), (b"foo", 1),
                           (b"x" + pem(b"foo"), 1),
                           (b"\n" + pem(b"foo"), 1),
                           (pem(b"foo").replace(b"BEGIN", b"BEGIN X509"), 1),
                           (BEGIN + b"Zm9v\n" + END, 1),
                           (BEGIN, 1),
                           (BEGIN + b"\nZm9v\n", 2),
                           (BEGIN + b"\nZm9v\nZm9", 3),
                           (BEGIN + b"\nZm9v" + END, 2),
                           (pem(b"foo") + b"x", 4)):
            with self.subTest(text=text):
                done = self.unwrap(text)
                self.assertEqual((done.status, done.out), (1, b""))
                self.assertRegex(done.complaint,
                                 r"\Apelorik: pem: -: line %d: is not -----[^\n]*\n\Z" % line)

    def test_what_is_refused_between_the_lines_is_told_with_its_place(self):
        long = pem(pattern(100), b"\n")
        for text, line, column in ((long.replace(b"\n", b"\n!", 2).replace(b"!", b"", 1), 3, 1),
                                   (BEGIN + b"\nZm9\n" + END, 3, 1),
                                   (BEGIN + b"\nZm9v\nZh==\n" + END, 3, 1),
                                   (BEGIN + b"\nZm\0v\n" + END, 2, 3),
                                   (BEGIN + b"\nZm9v\n\0\n" + END, 3, 1),
                                   (pem(b"foo") + pem(b"bar"), 3, 1)):
            with self.subTest(text=text):
                done = self.unwrap(text)
                self.assertEqual((done.status, done.out), (1, b""))
                self.assertRegex(done.complaint, r"\Apelorik: pem: -: line %d, column %d: [^\n]*\n\Z"
                                 % (line, column))

    def test_not_to_a_terminal(self):
        self.write("f", pem(b"foo"))
        status, seen, _ = Terminal("pem", "unwrap", "f").finish()
        self.assertEqual(status, 2)
        self.assertIn(b"terminal", seen)


class Both(ToolTest):
    def test_what_has_no_end_is_refused(self):
        for verb in ("wrap", "unwrap"):
            self.assert_refused(self.run_tool("pem", verb, "/dev/zero"), "longer than 16 MiB")

    def test_the_longest(self):
        self.write("f", b"\0" * (1 << 24))
        self.assertEqual(self.run_tool("pem", "wrap", "f").status, 0)
        self.write("f", b"\0" * ((1 << 24) + 1))
        self.assert_refused(self.run_tool("pem", "wrap", "f"), "f: longer")

    def test_wrong_usage_is_refused(self):
        self.assert_refused(self.run_tool("pem"), "which verb")
        self.assert_refused(self.run_tool("pem", "fold"), "'fold'")
        self.assert_refused(self.run_tool("pem", "wrap", "a", "b"), "'b'", "pem wrap --help")
        self.assert_refused(self.run_tool("pem", "unwrap", "missing"), "missing: No such file")

    def test_help(self):
        self.assert_help(["pem"], ["wrap", "unwrap"])
        self.assert_help(["pem", "wrap"], ["FILE|-"], ("0", "2", "130"))
        self.assert_help(["pem", "unwrap"], ["FILE|-"])


if __name__ == "__main__":
    unittest.main()
