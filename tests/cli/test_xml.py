"""pelorik xml. Expected digests are hashlib's MD5 of the strings that a document consists of, joined by
hand."""

import os
import signal
import stat
import subprocess
import sys
import time
import unittest

from tool import NOBODY, TOOL, Terminal, ToolTest, await_reading, await_running, environment, md5

VERBS = ("check", "seal", "format", "get")

# name, key, value; name, key, value, body; name, body
SAMPLE = b"""<?xml version="1.0"?>
<!-- the gateway -->
<net mode="on">
  <host port='443'>example.org</host>
  <note>a &amp; b</note>
</net>
"""
SAMPLE_DIGEST = md5(b"net" b"mode" b"on" b"host" b"port" b"443" b"example.org" b"note" b"a & b")
FLUSH_LEFT = (b'<net mode="on">\n'
              b'<host port="443">example.org</host>\n'
              b'<note>a &amp; b</note>\n'
              b'</net>\n')
INDENTED = (b'<net mode="on">\n'
            b'\t<host port="443">example.org</host>\n'
            b'\t<note>a &amp; b</note>\n'
            b'</net>\n')


def sealed(text, digest=SAMPLE_DIGEST):
    """`text` with a digest as the last attribute of its first tag."""
    at = text.index(b">", text.index(b"<net"))
    return text[:at] + b' Hash="' + digest.encode() + b'"' + text[at:]


def nested(depth):
    return b"<a>" * depth + b"</a>" * depth


# What the reader takes in but the writer cannot write so that it would be read again.
UNWRITABLE = {
    "a text that begins with a blank": b"<a>&#x20;b</a>",
    "a text that begins with a line feed": b"<a>&#x0a;b</a>",
    "a zero byte in a text": b"<a>b\0c</a>",
    "a zero byte in a value": b"<a b='c\0d'/>",
    "a zero byte in a key": b"<a b\0c='d'/>",
    "a zero byte in a name": b"<a\0b/>",
    "a second digest": b"<a Hash='1' Hash='2'/>",
    "a child whose name begins with an exclamation mark": b"<a>< !b/></a>",
    "a root whose name begins with a question mark": b"<!-- --><?b></?b>",
}

# Each error text of the library with a document that gives it, and where reading stops.
REFUSED = [
    (b"", "line 1, column 1: Unexpected end of stream"),
    (b" \n\n ", "line 3, column 2: Unexpected end of stream"),
    (b"<a>", "line 1, column 4: Unexpected end of stream"),
    (b"<a b='", "line 1, column 7: Unexpected end of stream, while '\" or '' ecpected"),
    (b"<a/", "line 1, column 4: Unexpected end of stream"),
    (b"<!", "line 1, column 3: Unexpected end of stream, while '<!--' ecpected"),
    (b"<!-- --->", "line 1, column 10: Unexpected end of stream, while '-->' ecpected"),
    (b"<a>\n&a", "line 2, column 3: Unexpected end of stream, while '&amp; or &apos;' ecpected"),
    (b"<a>&am", "line 1, column 7: Unexpected end of stream, while '&amp;' ecpected"),
    (b"<a>&ap", "line 1, column 7: Unexpected end of stream, while '&apos;' ecpected"),
    (b"<a>&g", "line 1, column 6: Unexpected end of stream, while '&gt;' ecpected"),
    (b"<a>&l", "line 1, column 6: Unexpected end of stream, while '&lt;' ecpected"),
    (b"<a>&q", "line 1, column 6: Unexpected end of stream, while '&quot;' ecpected"),
    (b"<a>&#x4", "line 1, column 8: Unexpected end of stream, while '#x<hex>;' ecpected"),
    (b"<a>&#04", "line 1, column 8: Unexpected end of stream, while '#<num>;' ecpected"),
    (b"<a>\n\n x&nbsp;</a>", "line 3, column 5: Unknown Entity"),
    (b"<a>&#xg;</a>", "line 1, column 8: invalid hexadecimal value"),
    (b"<a>&#0x;</a>", "line 1, column 8: invalid decimal value"),
    (b"<a>&#x100;</a>", "line 1, column 10: to big hexadecimal value"),
    (b"<a>&#0256;</a>", "line 1, column 10: to big decimal value"),
    (b"<a>&#65;</a>", "line 1, column 9: not printable hexadecimal char"),
    (b"<!DOCTYPE a><a/>", "line 1, column 4: '<!--' expected"),
    (b"<a>\n<b/>x</a>", "line 2, column 6: '<' expected at begining of tag"),
    (b"<a></a b>", "line 1, column 9: '>' expected at end of tag"),
    (b"<a b=1/>", "line 1, column 8: '=' expected"),
    (b"<?xml?><a/>", "line 1, column 7: \"xml\" expected"),
    (b"<?xml ?x", "line 1, column 9: \"?>\" expected"),
    (b"<a>\n<b></c></a>", "line 2, column 8: b [End tag mismatch]"),
    (b"<a>x<b></b></a>", "line 1, column 8: a [End tag expected]"),
    (b"\xef\xbb\xbe<a/>", "line 1, column 4: Unexpected symbol, when parsing Byte Order Mark (BOM). "
                          "UTF-8 only supported: EF BB BF"),
    (b"<a/>\n<!-- c -->", "line 2, column 1: End of file expected"),
    (b"xy", "line 1, column 2: End of file expected"),
]


class XmlTest(ToolTest):
    def xml(self, *words, **options):
        return self.run_tool("xml", *words, **options)

    def assert_answer_is_no(self, outcome, complaint):
        """Status 1, nothing on standard output, and `complaint` on one line."""
        self.assertEqual((outcome.status, outcome.out), (1, b""), outcome.complaint)
        self.assertEqual(outcome.complaint, "pelorik: xml: " + complaint + "\n")

    def assert_done(self, outcome, out=b""):
        self.assertEqual((outcome.status, outcome.out, outcome.err), (0, out, b""))

    def content(self, name):
        with open(name, "rb") as file:
            return file.read()


class Check(XmlTest):
    def test_a_document_with_a_valid_digest_is_accepted_in_silence(self):
        self.write("f", sealed(SAMPLE))
        self.assert_done(self.xml("check", "f"))
        self.assert_done(self.xml("check", "-", stdin=sealed(SAMPLE)))
        self.assert_done(self.xml("check", "--no-hash", "f"))

    def test_how_a_document_is_written_does_not_matter_to_its_digest(self):
        text = sealed(SAMPLE).replace(b"&amp;", b"&#x26;").replace(b"'", b'"').replace(b"\n", b"\r\n")
        self.assert_done(self.xml("check", "-", stdin=text))

    def test_a_document_without_a_digest_is_refused(self):
        for text in (SAMPLE, sealed(SAMPLE, "")):
            self.assert_answer_is_no(
                self.xml("check", "-", stdin=text),
                "-: empty hash attribute (there is no digest: pelorik xml seal adds one, --no-hash "
                "checks without)")
            self.assert_done(self.xml("check", "--no-hash", "-", stdin=text))

    def test_a_document_whose_digest_does_not_hold_is_refused(self):
        wrong = [sealed(SAMPLE).replace(b"443", b"444"), sealed(SAMPLE, SAMPLE_DIGEST.upper()),
                 sealed(SAMPLE, SAMPLE_DIGEST[:-1]), sealed(SAMPLE, SAMPLE_DIGEST + "0"),
                 sealed(SAMPLE, SAMPLE_DIGEST + "\0")]
        for text in wrong:
            self.assert_answer_is_no(
                self.xml("check", "-", stdin=text),
                "-: invalid hash (the document was changed after it was sealed; where that is meant, "
                "pelorik xml seal renews the digest)")
            self.assert_done(self.xml("check", "--no-hash", "-", stdin=text))

    def test_every_error_of_the_text_with_its_place(self):
        for text, complaint in REFUSED:
            for words in (["check"], ["check", "--no-hash"]):
                with self.subTest(text=text, words=words):
                    self.assert_answer_is_no(self.xml(*words, "-", stdin=text), "-: " + complaint)

    def test_the_place_is_right_wherever_a_block_of_reading_ends(self):
        for before in (65530, 65534, 65535, 65536, 65537, 131071, 131072):
            with self.subTest(before=before):
                text = b"<a>\n" + b"x" * (before - 5) + b"\n&bad;</a>"
                self.assert_answer_is_no(self.xml("check", "-", stdin=text),
                                         "-: line 3, column 3: Unknown Entity")
                text = b"<a>\n" + b"x" * (before - 4) + b"&bad;</a>"
                self.assert_answer_is_no(self.xml("check", "-", stdin=text),
                                         "-: line 2, column %d: Unknown Entity" % (before - 1))

    def test_a_text_without_an_element_is_refused(self):
        for text in (b"x", b" x\n", b"\xef\xbb\xbfx"):
            for words in (["check"], ["check", "--no-hash"], ["format"]):
                self.assert_answer_is_no(self.xml(*words, "-", stdin=text), "-: holds no element")

    def test_an_element_without_a_name_is_one(self):
        self.assert_done(self.xml("check", "--no-hash", "-", stdin=b"<></>"))

    def test_a_document_nested_a_million_deep(self):
        deep = nested(1000000)
        self.assert_done(self.xml("check", "--no-hash", "-", stdin=deep))
        self.assert_answer_is_no(self.xml("check", "--no-hash", "-", stdin=deep[:-4]),
                                 "-: line 1, column 6999997: Unexpected end of stream")

    def test_a_text_without_end_is_given_up_where_it_goes_wrong(self):
        self.assert_answer_is_no(self.xml("check", "/dev/zero"),
                                 "/dev/zero: line 1, column 2: End of file expected")

    def test_a_slow_pipe(self):
        child = subprocess.Popen([TOOL, "xml", "check", "-"], stdin=subprocess.PIPE, env=environment())
        for byte in sealed(SAMPLE):
            os.write(child.stdin.fileno(), bytes([byte]))
        child.stdin.close()
        self.assertEqual(child.wait(), 0)


class Seal(XmlTest):
    def test_the_digest_is_written_and_verifies(self):
        self.write("f", SAMPLE)
        self.assert_done(self.xml("seal", "f"))
        self.assertEqual(self.content("f"), sealed(FLUSH_LEFT))
        self.assert_done(self.xml("check", "f"))
        self.assertEqual(os.listdir(), ["f"])

    def test_sealing_again_changes_nothing(self):
        self.write("f", sealed(FLUSH_LEFT))
        self.assert_done(self.xml("seal", "f"))
        self.assertEqual(self.content("f"), sealed(FLUSH_LEFT))

    def test_a_digest_that_does_not_hold_is_replaced(self):
        self.write("f", sealed(SAMPLE, "0" * 32))
        self.assert_done(self.xml("seal", "f"))
        self.assertEqual(self.content("f"), sealed(FLUSH_LEFT))

    def test_what_would_not_verify_again_is_refused_and_the_file_untouched(self):
        for what, text in UNWRITABLE.items():
            with self.subTest(what=what):
                self.write("f", text)
                before = os.stat("f")
                done = self.xml("seal", "f")
                self.assertEqual((done.status, done.out), (1, b""), done.complaint)
                self.assertTrue(done.complaint.startswith("pelorik: xml: f: nothing was written, "
                                                          "since it would not read back"))
                after = os.stat("f")
                self.assertEqual(self.content("f"), text)
                self.assertEqual((before.st_ino, before.st_mtime_ns), (after.st_ino, after.st_mtime_ns))
                self.assertEqual(os.listdir(), ["f"])

    def test_white_space_behind_a_text_is_kept(self):
        self.write("f", b"<net>b \n</net>")
        self.assert_done(self.xml("seal", "f"))
        self.assertEqual(self.content("f"), sealed(b"<net>b \n</net>\n", md5(b"netb \n")))

    def test_no_document_is_refused_and_the_file_untouched(self):
        for text, complaint in REFUSED:
            self.write("f", text)
            self.assert_answer_is_no(self.xml("seal", "f"), "f: " + complaint)
            self.assertEqual(self.content("f"), text)
        self.write("f", b"x")
        self.assert_answer_is_no(self.xml("seal", "f"), "f: holds no element")
        self.assertEqual(self.content("f"), b"x")

    def test_permissions_are_kept_whatever_the_umask(self):
        for mode in (0o600, 0o644, 0o640, 0o666, 0o755):
            for mask in (0o000, 0o022, 0o077, 0o777):
                with self.subTest(mode=oct(mode), mask=oct(mask)):
                    self.write("f", SAMPLE)
                    os.chmod("f", mode)
                    self.assert_done(self.xml("seal", "f", preexec_fn=lambda mask=mask: os.umask(mask)))
                    self.assertEqual(stat.S_IMODE(os.stat("f").st_mode), mode)
                    self.assertEqual(self.content("f"), sealed(FLUSH_LEFT))

    @unittest.skipUnless(os.getuid() == 0, "needs root")
    def test_the_owner_is_kept_by_root(self):
        self.write("f", SAMPLE)
        os.chown("f", NOBODY, NOBODY)
        os.chmod("f", 0o640)
        self.assert_done(self.xml("seal", "f"))
        status = os.stat("f")
        self.assertEqual((status.st_uid, status.st_gid, stat.S_IMODE(status.st_mode)),
                         (NOBODY, NOBODY, 0o640))

    def test_a_symbolic_link_stays_one(self):
        self.write("d/f", SAMPLE)
        os.symlink("d/f", "link")
        self.assert_done(self.xml("seal", "link"))
        self.assertTrue(os.path.islink("link"))
        self.assertEqual(self.content("d/f"), sealed(FLUSH_LEFT))
        self.assertEqual(os.listdir("d"), ["f"])

    def test_a_file_that_may_not_be_written_is_as_it_was(self):
        os.chmod(".", 0o777)
        self.write("f", SAMPLE)
        os.chmod("f", 0o444)
        self.assert_refused(self.run_unprivileged("xml", "seal", "f"), "f: Permission denied")
        self.assertEqual(self.content("f"), SAMPLE)
        os.chmod(".", 0o755)
        os.chmod("f", 0o666)
        if os.getuid() == 0:
            self.assert_refused(self.run_unprivileged("xml", "seal", "f"), "f: Permission denied")
            self.assertEqual(self.content("f"), SAMPLE)

    def test_a_full_disk_leaves_the_file_as_it_was(self):
        # A limit on the size of files stands in for the disk.
        def limit():
            import resource
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
            resource.setrlimit(resource.RLIMIT_FSIZE, (20, 20))

        self.write("f", SAMPLE)
        done = self.xml("seal", "f", preexec_fn=limit, env=environment(LLVM_PROFILE_FILE="/dev/null"))
        self.assert_refused(done, "f: File too large")
        self.assertEqual((self.content("f"), os.listdir()), (SAMPLE, ["f"]))

    def test_what_is_no_regular_file_is_refused(self):
        os.mkfifo("pipe")
        self.assert_refused(self.xml("seal", "pipe"), "pipe: not a regular file")
        self.assert_refused(self.xml("seal", "/dev/null"), "/dev/null: not a regular file")
        self.assert_refused(self.xml("seal", "."), ".: Is a directory")
        self.assert_refused(self.xml("seal", "missing"), "missing: No such file or directory")
        self.assertFalse(os.path.exists("missing"))

    def test_standard_input_cannot_be_sealed_but_a_file_of_that_name_can(self):
        self.assert_refused(self.xml("seal", "-", stdin=SAMPLE), "format --seal",
                            "(try: pelorik xml seal --help)")
        self.write("-", SAMPLE)
        self.assert_done(self.xml("seal", "./-"))
        self.assertEqual(self.content("-"), sealed(FLUSH_LEFT))

    def test_a_document_nested_a_million_deep(self):
        self.write("f", nested(1000000))
        self.assert_done(self.xml("seal", "f"))
        lines = self.content("f").split(b"\n")
        self.assertEqual(lines[0], b'<a Hash="%s">' % md5(b"a" * 1000000).encode())
        self.assertEqual((lines[1], lines[-2], len(lines)), (b"<a>", b"</a>", 2 * 1000000))

    def test_an_interrupt_leaves_the_file_as_it_was(self):
        # There is no moment to be sure of, so it comes at several.
        text = b"<a>" + b"<b>x</b>\n" * 200000 + b"</a>"
        for delay in (0, 0.1, 0.2):
            self.write("f", text)
            child = subprocess.Popen([TOOL, "xml", "seal", "f"], stderr=subprocess.PIPE,
                                     env=environment())
            await_running(child.pid)
            time.sleep(delay)
            child.send_signal(signal.SIGINT)
            _, err = child.communicate()
            self.assertIn(child.returncode, (0, 130))
            if child.returncode == 130:
                self.assertEqual(err, b"pelorik: xml: interrupted\n")
            if child.returncode != 0:
                self.assertEqual(self.content("f"), text)
            self.assertEqual(os.listdir(), ["f"])


class Format(XmlTest):
    def test_children_are_indented_and_the_digest_left_out(self):
        for text in (SAMPLE, sealed(SAMPLE), sealed(SAMPLE, "wrong"), INDENTED):
            self.assert_done(self.xml("format", "-", stdin=text), INDENTED)
        self.write("f", SAMPLE)
        self.assert_done(self.xml("format", "f"), INDENTED)
        self.assertEqual(self.content("f"), SAMPLE)

    def test_each_level_has_one_tab_more(self):
        done = self.xml("format", "-", stdin=b"<a><b><c/><d>\n e\nf</d></b></a>")
        self.assert_done(done, b"<a>\n\t<b>\n\t\t<c></c>\n\t\t<d>e\nf</d>\n\t</b>\n</a>\n")

    def test_seal_adds_a_digest_that_verifies(self):
        for text in (SAMPLE, sealed(SAMPLE, "wrong")):
            done = self.xml("format", "--seal", "-", stdin=text)
            self.assert_done(done, sealed(INDENTED))
            self.assert_done(self.xml("check", "-", stdin=done.out))

    def test_bytes_go_out_as_they_are_in_a_pipe(self):
        text = b'<a b="\x1b[31m\xff\t">\x01\x7f\xc2\x9b\t\n\n\tx</a>\n'
        self.assert_done(self.xml("format", "-", stdin=text), text)

    def test_what_would_be_lost_is_refused(self):
        for what, text in UNWRITABLE.items():
            for words in (["format"], ["format", "--seal"]):
                with self.subTest(what=what, words=words):
                    done = self.xml(*words, "-", stdin=text)
                    self.assertEqual((done.status, done.out), (1, b""), done.complaint)
                    self.assertIn("would not read back", done.complaint)

    def test_no_document_is_refused(self):
        for text, complaint in REFUSED:
            self.assert_answer_is_no(self.xml("format", "-", stdin=text), "-: " + complaint)

    def test_a_text_longer_than_any_buffer(self):
        text = b"<a>\n\t<b>" + b"xyz" * 100000 + b"</b>\n</a>\n"
        self.assert_done(self.xml("format", "-", stdin=text), text)

    def test_depth_shows_in_tabs(self):
        depth = 2000
        lines = self.xml("format", "-", stdin=nested(depth)).out.split(b"\n")
        self.assertEqual(lines[depth - 1], b"\t" * (depth - 1) + b"<a></a>")
        self.assertEqual(lines[depth], b"\t" * (depth - 2) + b"</a>")
        self.assertEqual(len(lines), 2 * depth)

    def test_a_million_levels_can_be_interrupted(self):
        # Printing them all would take terabytes of tabs.
        child = subprocess.Popen([TOOL, "xml", "format", "-"], stdin=subprocess.PIPE,
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment())
        child.stdin.write(nested(1000000))
        child.stdin.close()
        self.assertEqual(child.stdout.read(8), b"<a>\n\t<a>")
        child.send_signal(signal.SIGINT)
        while child.stdout.read(65536):
            pass
        self.assertEqual(child.wait(), 130)
        self.assertEqual(child.stderr.read(), b"pelorik: xml: interrupted\n")
        child.stdout.close()
        child.stderr.close()

    def test_a_terminal_shows_indents_and_escapes_the_rest(self):
        self.write("f", b"<a><b c='\x1b[31m'>x\ty\x07\n\t\x1bz</b></a>")
        status, seen, _ = Terminal("xml", "format", "f").finish()
        self.assertEqual(status, 0)
        self.assertEqual(seen, b'<a>\n\t<b c="\\x1b[31m">x\\ty\\x07\n\t\\x1bz</b>\n</a>\n')


DOCUMENT = (b"<r version='3' none='' both='1' both='2'><a><b k='v'>first</b><b>second</b></a>"
            b"<a><c>hidden</c></a><text>&lt;&#x0a;</text><empty/><at@home k@w='1'>x</at@home></r>")


class Get(XmlTest):
    def get(self, path, text=DOCUMENT):
        return self.xml("get", "-", path, stdin=text)

    def test_the_text_of_an_element(self):
        for path, text in (("a/b", b"first"), ("text", b"<\n"), ("empty", b""), ("a", b"")):
            with self.subTest(path=path):
                self.assert_done(self.get(path), text + b"\n")

    def test_an_attribute_of_an_element_and_of_the_root(self):
        for path, value in (("a/b@k", b"v"), ("@version", b"3"), ("@both", b"1")):
            with self.subTest(path=path):
                self.assert_done(self.get(path), value + b"\n")

    def test_the_text_of_the_root(self):
        self.assert_done(self.get("", b"<r>text</r>"), b"text\n")

    def test_a_missing_attribute_is_not_an_empty_one(self):
        self.assert_done(self.get("@none"), b"\n")
        self.assert_answer_is_no(self.get("@nine"), "-: 'r' has no attribute 'nine'")
        self.assert_answer_is_no(self.get("a/b@version"), "-: 'b' has no attribute 'version'")

    def test_an_element_that_is_not_there(self):
        self.assert_answer_is_no(self.get("x"), "-: 'r' has no element 'x'")
        self.assert_answer_is_no(self.get("a/x@k"), "-: 'a' has no element 'x'")
        self.assert_answer_is_no(self.get("r"), "-: 'r' has no element 'r'")

    def test_only_the_first_element_of_a_name_is_looked_into(self):
        self.assert_answer_is_no(self.get("a/c"), "-: 'a' has no element 'c'")

    def test_names_may_hold_the_sign_that_leads_to_an_attribute(self):
        self.assert_done(self.get("m@n/x", b"<r><m@n><x>1</x></m@n></r>"), b"1\n")
        self.assert_done(self.get("at@home@k", b"<r><at@home k='1'/></r>"), b"1\n")
        self.assert_answer_is_no(self.get("at@home"), "-: 'r' has no element 'at'")

    def test_empty_names_are_errors_of_usage(self):
        for path in ("/a", "a/", "a//b", "/", "a@", "@", "a/@k"):
            self.assert_refused(self.get(path), "a name is empty", "(try: pelorik xml get --help)")

    def test_the_digest_is_neither_verified_nor_shown(self):
        text = sealed(SAMPLE, "wrong")
        self.assert_done(self.get("host", text), b"example.org\n")
        self.assert_answer_is_no(self.get("@Hash", text), "-: 'net' has no attribute 'Hash'")

    def test_bytes_go_out_as_they_are_in_a_pipe_and_escaped_on_a_terminal(self):
        text = b"<r><a>\x1b\xff\0\n\t.</a></r>"
        self.assert_done(self.get("a", text), b"\x1b\xff\0\n\t.\n")
        self.write("f", text)
        status, seen, _ = Terminal("xml", "get", "f", "a").finish()
        self.assertEqual((status, seen), (0, b"\\x1b\\xff\\x00\\n\\t.\n"))

    def test_complaints_are_escaped(self):
        self.write("f\x1b", b"<r\x1b/>")
        _, seen, piped = Terminal("xml", "get", "f\x1b", "a\x07", out=False).finish()
        self.assertEqual((seen, piped),
                         (b"pelorik: xml: f\\x1b: 'r\\x1b' has no element 'a\\x07'\n", b""))
        done = self.xml("get", "f\x1b", "a\x07")
        self.assertEqual(done.err, seen)

    def test_no_document_is_refused(self):
        for text, complaint in REFUSED:
            self.assert_answer_is_no(self.get("a", text), "-: " + complaint)
        self.assert_answer_is_no(self.get("a", b"x"), "-: holds no element")


class Trouble(XmlTest):
    def commands(self, name):
        return [["check", name], ["check", "--no-hash", name], ["seal", name], ["format", name],
                ["get", name, "a"]]

    def test_files_that_cannot_be_read_are_status_2(self):
        os.mkdir("d")
        os.symlink("loop", "loop")
        for name, why in (("missing", "No such file or directory"), ("d", "Is a directory"),
                          ("", "No such file or directory"),
                          ("loop", "Too many levels of symbolic links")):
            for words in self.commands(name):
                with self.subTest(words=words):
                    self.assert_refused(self.xml(*words), "pelorik: xml: %s: %s\n" % (name, why))
        # Address 0 of a process is never mapped: reading there is an error.
        for words in self.commands("/proc/self/mem"):
            why = ": " if "seal" in words else ": Input/output error\n"
            self.assert_refused(self.xml(*words), "pelorik: xml: /proc/self/mem" + why)

    def test_a_file_without_permission_is_status_2(self):
        self.write("secret", sealed(SAMPLE))
        os.chmod("secret", 0)
        for words in self.commands("secret"):
            self.assert_refused(self.run_unprivileged("xml", *words), "secret: Permission denied")

    def test_closed_standard_input_is_status_2(self):
        for words in (["check", "-"], ["format", "-"], ["get", "-", "a"]):
            done = self.xml(*words, stdin=None, preexec_fn=lambda: os.close(0))
            self.assert_refused(done, "-: Bad file descriptor")

    def test_a_directory_as_standard_input_is_status_2(self):
        with open_directory(".") as directory:
            done = subprocess.run([TOOL, "xml", "check", "-"], stdin=directory, capture_output=True,
                                  env=environment())
        self.assertEqual((done.returncode, done.stderr), (2, b"pelorik: xml: -: Is a directory\n"))

    def test_standard_output_that_cannot_be_written_is_status_2(self):
        self.write("f", SAMPLE)
        writing = [["format", "f"], ["format", "--seal", "f"], ["get", "f", "host"], ["--help"],
                   *([verb, "--help"] for verb in VERBS)]
        for words in writing:
            with self.subTest(words=words):
                with open("/dev/full", "wb") as full:
                    done = subprocess.run([TOOL, "xml", *words], stdout=full, stderr=subprocess.PIPE,
                                          env=environment())
                self.assertEqual((done.returncode, done.stderr),
                                 (2, b"pelorik: xml: standard output: No space left on device\n"))
                done = subprocess.run([TOOL, "xml", *words], stderr=subprocess.PIPE,
                                      env=environment(), preexec_fn=lambda: os.close(1))
                self.assertEqual((done.returncode, done.stderr),
                                 (2, b"pelorik: xml: standard output: Bad file descriptor\n"))

    def test_a_long_document_to_a_full_device(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([TOOL, "xml", "format", "-"], stdout=full, stderr=subprocess.PIPE,
                                  input=b"<a>" + b"<b/>" * 50000 + b"</a>", env=environment())
        self.assertEqual((done.returncode, done.stderr),
                         (2, b"pelorik: xml: standard output: No space left on device\n"))

    def test_check_and_seal_need_no_standard_output(self):
        for words in (["seal", "f"], ["check", "f"]):
            self.write("f", sealed(SAMPLE))
            self.assertEqual(self.xml(*words, preexec_fn=lambda: os.close(1)).status, 0)

    def test_an_interrupt_while_standard_input_is_waited_for(self):
        for words in (["check", "-"], ["format", "-"], ["get", "-", "a"]):
            reader, writer = os.pipe()
            child = subprocess.Popen([TOOL, "xml", *words], stdin=reader, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, env=environment())
            await_reading(child.pid)
            child.send_signal(signal.SIGINT)
            out, err = child.communicate()
            os.close(reader)
            os.close(writer)
            self.assertEqual((child.returncode, out, err),
                             (130, b"", b"pelorik: xml: interrupted\n"))


class open_directory:
    def __init__(self, name):
        self.name = name

    def __enter__(self):
        self.descriptor = os.open(self.name, os.O_RDONLY | os.O_DIRECTORY)
        return self.descriptor

    def __exit__(self, *_):
        os.close(self.descriptor)


class Usage(XmlTest):
    def test_errors_of_usage_point_to_the_help_that_fits(self):
        for words, where in (([], "xml"), (["frobnicate"], "xml"), (["--frobnicate"], "xml"),
                             (["check"], "xml check"), (["check", "a", "b"], "xml check"),
                             (["check", "--frobnicate", "a"], "xml check"),
                             (["check", "--no-hash=1", "a"], "xml check"),
                             (["seal"], "xml seal"), (["seal", "a", "b"], "xml seal"),
                             (["format"], "xml format"), (["format", "a", "b"], "xml format"),
                             (["get"], "xml get"), (["get", "a"], "xml get"),
                             (["get", "a", "b", "c"], "xml get")):
            with self.subTest(words=words):
                self.assert_refused(self.xml(*words), "(try: pelorik %s --help)\n" % where)

    def test_it_says_what_is_missing(self):
        self.assert_refused(self.xml("get"), "FILE is missing")
        self.assert_refused(self.xml("get", "f"), "PATH is missing")
        self.assert_refused(self.xml("get", "f", "p", "more"), "unexpected operand 'more'")
        self.assert_refused(self.xml(), "which verb?")
        self.assert_refused(self.xml("chek", "f"), "unknown verb 'chek'")

    def test_files_whose_names_start_with_a_dash_go_behind_two_dashes(self):
        self.write("-f", sealed(SAMPLE))
        self.assert_done(self.xml("check", "--", "-f"))
        self.assert_done(self.xml("get", "--", "-f", "host"), b"example.org\n")

    def test_help_fits_and_ends_with_exit_statuses_and_examples(self):
        self.assert_help(["xml"], VERBS)
        self.assert_help(["xml", "check"], ["--no-hash", "FILE|-"])
        self.assert_help(["xml", "seal"], ["FILE"])
        self.assert_help(["xml", "format"], ["--seal", "FILE|-"])
        self.assert_help(["xml", "get"], ["FILE|-", "PATH[@ATTR]"])


if __name__ == "__main__":
    sys.exit(unittest.main())
