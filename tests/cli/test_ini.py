"""pelorik ini. What a text means was read off its grammar by hand."""

import base64
import json
import os
import signal
import subprocess
import sys
import unittest

from tool import TOOL, Terminal, ToolTest, await_reading, environment

VERBS = ("get", "groups", "dump")

SAMPLE = b"""# comment
before = 1
[net]
host = example.org
port=443
host=example.net # no comment
; semi = colon
[empty]
[ a ]
k\t=\tv
=x
no value here
[net] # no header
k=
a=b=c
[net]
last='q'"""

VALUES = {
    ("", "before"): b"1",
    ("net", "host"): b"example.net # no comment",
    ("net", "port"): b"443",
    ("net", "; semi"): b"colon",
    (" a ", "k\t"): b"\tv",
    (" a ", ""): b"x",
    (" a ", "k"): b"",
    (" a ", "a"): b"b=c",
    ("net", "last"): b"'q'",
}

DUMP = (b"[]\nbefore=1\n"
        b"[ a ]\n=x\na=b=c\nk=\nk\t=\tv\n"
        b"[net]\n; semi=colon\nhost=example.net # no comment\nlast='q'\nport=443\n")


class IniTest(ToolTest):
    def ini(self, *words, **options):
        return self.run_tool("ini", *words, **options)

    def assert_done(self, outcome, out):
        self.assertEqual((outcome.status, outcome.out, outcome.err), (0, out, b""))

    def assert_answer_is_no(self, outcome, complaint):
        self.assertEqual((outcome.status, outcome.text, outcome.complaint),
                         (1, "", "pelorik: ini: " + complaint + "\n"))


class Get(IniTest):
    def get(self, *words, text=SAMPLE):
        return self.ini("get", "-", *words, stdin=text)

    def test_every_value_of_the_sample(self):
        self.write("f", SAMPLE)
        for (group, key), value in VALUES.items():
            with self.subTest(group=group, key=key):
                self.assert_done(self.ini("get", "f", group, key), value + b"\n")

    def test_lines_may_end_as_they_do_elsewhere(self):
        for (group, key), value in VALUES.items():
            self.assert_done(self.get(group, key, text=SAMPLE.replace(b"\n", b"\r\n")), value + b"\n")

    def test_a_missing_key(self):
        self.assert_answer_is_no(self.get("net", "Host"), "-: no key 'Host' in group 'net'")
        self.assert_answer_is_no(self.get("", "host"), "-: no key 'host' in group ''")

    def test_a_default_stands_in_for_a_missing_key_alone(self):
        for words in (["--default", "d"], ["--default=d"]):
            self.assert_done(self.get("net", "user", *words), b"d\n")
            self.assert_done(self.get("net", "port", *words), b"443\n")
            self.assert_done(self.get(" a ", "k", *words), b"\n")
        self.assert_done(self.get("net", "user", "--default="), b"\n")
        self.assert_done(self.get("net", "user", "--default", ""), b"\n")
        self.assert_done(self.get("net", "user", "--default", "-1"), b"-1\n")

    def test_a_default_never_stands_in_for_a_missing_group(self):
        for group in ("Net", "empty", "a", "net] # no header"):
            self.assert_answer_is_no(self.get(group, "k"), "-: no group '%s'" % group)
            self.assert_answer_is_no(self.get(group, "k", "--default", "d"), "-: no group '%s'" % group)

    def test_an_empty_text_has_no_group(self):
        for text in (b"", b"# k=v\n", b"\n\n", b"[g]\n", b"k\n"):
            self.assert_answer_is_no(self.get("", "k", text=text), "-: no group ''")

    def test_names_that_start_with_a_dash_go_behind_two_dashes(self):
        self.assert_done(self.ini("get", "--", "-", "-g", "--k", stdin=b"[-g]\n--k=v"), b"v\n")

    def test_bytes_go_out_as_they_are_in_a_pipe_and_escaped_on_a_terminal(self):
        self.write("f", b"k=\x1b\xff\0\tv\n")
        self.assert_done(self.ini("get", "f", "", "k"), b"\x1b\xff\0\tv\n")
        status, seen, _ = Terminal("ini", "get", "f", "", "k").finish()
        self.assertEqual((status, seen), (0, b"\\x1b\\xff\\x00\\tv\n"))

    def test_complaints_are_escaped_on_a_terminal(self):
        self.write("f", b"k=v")
        _, seen, _ = Terminal("ini", "get", "f", "", "k\x1b", out=False).finish()
        self.assertEqual(seen, b"pelorik: ini: f: no key 'k\\x1b' in group ''\n")
        _, seen, _ = Terminal("ini", "get", "f", "g\x1b", "k", out=False).finish()
        self.assertEqual(seen, b"pelorik: ini: f: no group 'g\\x1b'\n")


class Groups(IniTest):
    def test_one_name_a_line_in_the_order_of_their_bytes(self):
        self.assert_done(self.ini("groups", "-", stdin=SAMPLE), b"\n a \nnet\n")
        self.write("f", SAMPLE)
        self.assert_done(self.ini("groups", "f"), b"\n a \nnet\n")

    def test_bytes_of_0x80_and_above_come_last(self):
        self.assert_done(self.ini("groups", "-", stdin=b"[\xff]\nk=\n[a]\nk=\n[B]\nk=\n"),
                         b"B\na\n\xff\n")

    def test_names_may_hold_brackets(self):
        self.assert_done(self.ini("groups", "-", stdin=b"[a] [b]\nk=v\n[[c]]\nk=v\n[]]\nk=v\n"),
                         b"[c]\n]\na] [b\n")

    def test_a_text_without_values_has_no_groups(self):
        for text in (b"", b"[g]\n[h]\n", b"# [g]\n", b"[g]\nk\n"):
            self.assert_done(self.ini("groups", "-", stdin=text), b"")

    def test_names_are_escaped_on_a_terminal(self):
        self.write("f", b"[\x1b\tg]\nk=v")
        status, seen, _ = Terminal("ini", "groups", "f").finish()
        self.assertEqual((status, seen), (0, b"\\x1b\\tg\n"))
        self.assert_done(self.ini("groups", "f"), b"\x1b\tg\n")


class Dump(IniTest):
    def objects(self, text):
        done = self.ini("dump", "--json", "-", stdin=text)
        self.assertEqual((done.status, done.err), (0, b""))
        return [json.loads(line) for line in done.text.splitlines()]

    def test_every_value_once_in_the_order_of_the_bytes(self):
        self.assert_done(self.ini("dump", "-", stdin=SAMPLE), DUMP)
        self.write("f", SAMPLE)
        self.assert_done(self.ini("dump", "f"), DUMP)

    def test_a_dump_is_a_text_with_the_same_values(self):
        for text in (SAMPLE, b"[x = y\n]=a]b\n[]]\n= =\n[[]\nk=\x0b\n", b"k=v"):
            first = self.ini("dump", "-", stdin=text).out
            self.assertNotEqual(first, b"")
            self.assert_done(self.ini("dump", "-", stdin=first), first)
            self.assertEqual(self.objects(first), self.objects(text))

    def test_json_is_one_object_a_value(self):
        self.assertEqual(self.objects(SAMPLE), [
            {"group": group, "key": key, "value": VALUES[group, key].decode()}
            for group, key in sorted(VALUES)])

    def test_json_gives_bytes_that_are_not_utf_8_in_base64_too(self):
        def coded(data):
            return base64.b64encode(data).decode()

        self.assertEqual(self.objects(b"[g\xff]\nk\xfe=\xfd\n[h]\n\xc3\xa9=\"\0\\\n"), [
            {"group": "g\ufffd", "group_base64": coded(b"g\xff"), "key": "k\ufffd",
             "key_base64": coded(b"k\xfe"), "value": "\ufffd", "value_base64": coded(b"\xfd")},
            {"group": "h", "key": "\u00e9", "value": "\"\0\\"}])

    def test_a_text_without_values_gives_nothing(self):
        for words in (["dump"], ["dump", "--json"]):
            self.assert_done(self.ini(*words, "-", stdin=b"[g]\n# c\nx\n"), b"")

    def test_a_terminal_gets_escapes(self):
        self.write("f", b"[g\x1b]\nk\x07=\tv")
        status, seen, _ = Terminal("ini", "dump", "f").finish()
        self.assertEqual((status, seen), (0, b"[g\\x1b]\nk\\x07=\\tv\n"))
        _, seen, _ = Terminal("ini", "dump", "--json", "f").finish()
        self.assertEqual(json.loads(seen), {"group": "g\x1b", "key": "k\x07", "value": "\tv"})

    def test_long_lines_and_many_groups(self):
        text = b"".join(b"[g%06d]\nk=%d\n" % (i, i) for i in range(50000))
        self.assert_done(self.ini("dump", "-", stdin=text), text)
        text = b"[g]\n" + b"k" * 100000 + b"=" + b"v" * 300000 + b"\n"
        self.assert_done(self.ini("dump", "-", stdin=text), text)


class Trouble(IniTest):
    def commands(self, name):
        return [["get", name, "", "k"], ["get", "--default", "v", name, "", "k"], ["groups", name],
                ["dump", name], ["dump", "--json", name]]

    def test_files_that_cannot_be_read_are_status_2_and_never_empty(self):
        os.mkdir("d")
        for name, why in (("missing", "No such file or directory"), ("d", "Is a directory"),
                          ("", "No such file or directory"),
                          # Address 0 of a process is never mapped: reading there is an error.
                          ("/proc/self/mem", "Input/output error")):
            for words in self.commands(name):
                with self.subTest(words=words):
                    self.assert_refused(self.ini(*words), "pelorik: ini: %s: %s\n" % (name, why))

    def test_a_file_without_permission_is_status_2(self):
        self.write("secret", b"k=v")
        os.chmod("secret", 0)
        for words in self.commands("secret"):
            self.assert_refused(self.run_unprivileged("ini", *words), "secret: Permission denied")

    def test_closed_standard_input_is_status_2(self):
        for words in self.commands("-"):
            done = self.ini(*words, stdin=None, preexec_fn=lambda: os.close(0))
            self.assert_refused(done, "-: Bad file descriptor")

    def test_standard_output_that_cannot_be_written_is_status_2(self):
        self.write("f", b"k=v\n")
        for words in self.commands("f") + [["--help"]] + [[verb, "--help"] for verb in VERBS]:
            with self.subTest(words=words):
                with open("/dev/full", "wb") as full:
                    done = subprocess.run([TOOL, "ini", *words], stdout=full, stderr=subprocess.PIPE,
                                          env=environment())
                self.assertEqual((done.returncode, done.stderr),
                                 (2, b"pelorik: ini: standard output: No space left on device\n"))
                done = subprocess.run([TOOL, "ini", *words], stderr=subprocess.PIPE,
                                      env=environment(), preexec_fn=lambda: os.close(1))
                self.assertEqual((done.returncode, done.stderr),
                                 (2, b"pelorik: ini: standard output: Bad file descriptor\n"))

    def test_an_interrupt_while_standard_input_is_waited_for(self):
        for words in self.commands("-"):
            reader, writer = os.pipe()
            child = subprocess.Popen([TOOL, "ini", *words], stdin=reader, stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, env=environment())
            await_reading(child.pid)
            child.send_signal(signal.SIGINT)
            out, err = child.communicate()
            os.close(reader)
            os.close(writer)
            self.assertEqual((child.returncode, out, err),
                             (130, b"", b"pelorik: ini: interrupted\n"))


class Usage(IniTest):
    def test_errors_of_usage_point_to_the_help_that_fits(self):
        for words, where in (([], "ini"), (["frobnicate"], "ini"), (["--json"], "ini"),
                             (["get"], "ini get"), (["get", "f"], "ini get"),
                             (["get", "f", "g"], "ini get"), (["get", "f", "g", "k", "x"], "ini get"),
                             (["get", "f", "g", "k", "--default"], "ini get"),
                             (["get", "f", "g", "k", "--default", "a", "--default", "b"], "ini get"),
                             (["get", "--json", "f", "g", "k"], "ini get"),
                             (["groups"], "ini groups"), (["groups", "a", "b"], "ini groups"),
                             (["dump"], "ini dump"), (["dump", "a", "b"], "ini dump"),
                             (["dump", "--json=1", "a"], "ini dump")):
            with self.subTest(words=words):
                self.assert_refused(self.ini(*words), "(try: pelorik %s --help)\n" % where)

    def test_it_says_what_is_missing(self):
        self.assert_refused(self.ini("get"), "FILE is missing")
        self.assert_refused(self.ini("get", "f"), "GROUP is missing")
        self.assert_refused(self.ini("get", "f", "g"), "KEY is missing")

    def test_help_fits_and_ends_with_exit_statuses_and_examples(self):
        self.assert_help(["ini"], VERBS)
        self.assert_help(["ini", "get"], ["--default V", "FILE|-", "GROUP", "KEY"])
        self.assert_help(["ini", "groups"], ["FILE|-"], statuses=["0", "2", "130"])
        self.assert_help(["ini", "dump"], ["--json", "FILE|-"], statuses=["0", "2", "130"])


if __name__ == "__main__":
    sys.exit(unittest.main())
