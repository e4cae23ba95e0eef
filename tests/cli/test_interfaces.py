"""pelorik interfaces, each test in a network namespace of its own. What is to be listed was set with
iproute2's ip."""

import json
import re
import subprocess
import sys
import unittest

import namespaces
from tool import TOOL, Terminal, ToolTest


class Interfaces(ToolTest):
    def setUp(self):
        super().setUp()
        namespaces.enter(namespaces.CLONE_NEWNET)

    def ip(self, *commands):
        for command in commands:
            try:
                subprocess.run(["ip"] + command.split(" "), check=True, capture_output=True)
            except FileNotFoundError:
                self.skipTest("needs the command ip of iproute2")
            except subprocess.CalledProcessError as error:
                self.skipTest("this kernel cannot: ip %s: %s" % (ascii(command), error.stderr))

    def make_two_bridges(self):
        self.ip("link add name br0 index 12 mtu 1400 type bridge",
                "addr add 192.0.2.1/24 brd + dev br0", "addr add 198.51.100.7/32 dev br0",
                "link add name longername index 7 type bridge")

    def test_the_loopback_interface_alone_gives_nothing(self):
        done = self.run_tool("interfaces")
        self.assertEqual((done.status, done.out, done.err), (0, b"", b""))
        self.assertEqual(self.run_tool("interfaces", "--json").out, b"")

    def test_a_pipe_gets_tabs_and_commas_in_the_order_of_the_indices(self):
        self.make_two_bridges()
        done = self.run_tool("interfaces")
        self.assertEqual((done.status, done.err), (0, b""))
        self.assertEqual(done.out, b"longername\t7\t1500\t-\t-\n"
                                   b"br0\t12\t1400\t192.0.2.1,198.51.100.7\t192.0.2.255\n")

    def test_json_is_one_object_a_line(self):
        self.make_two_bridges()
        done = self.run_tool("interfaces", "--json")
        self.assertEqual((done.status, done.err), (0, b""))
        self.assertEqual([json.loads(line) for line in done.text.splitlines()], [
            {"name": "longername", "index": 7, "mtu": 1500, "addresses": [], "broadcasts": []},
            {"name": "br0", "index": 12, "mtu": 1400,
             "addresses": ["192.0.2.1", "198.51.100.7"], "broadcasts": ["192.0.2.255"]}])

    def test_a_terminal_gets_aligned_columns_with_a_heading(self):
        self.make_two_bridges()
        status, seen, _ = Terminal("interfaces").finish()
        self.assertEqual(status, 0)
        self.assertEqual(seen.split(b"\n"), [
            b"NAME        INDEX  MTU   ADDRESSES               BROADCASTS",
            b"longername  7      1500  -                       -",
            b"br0         12     1400  192.0.2.1 198.51.100.7  192.0.2.255",
            b""])

    def test_a_terminal_gets_names_that_it_does_not_obey(self):
        self.ip("link add name a\033b index 2 type bridge", "link add name \u00e4 index 3 type bridge")
        status, seen, _ = Terminal("interfaces").finish()
        self.assertEqual(status, 0)
        self.assertEqual(seen.split(b"\n")[1:], [b"a\\x1bb  2      1500  -          -",
                                                 "\u00e4       3      1500  -          -".encode(),
                                                 b""])
        self.assertEqual(self.run_tool("interfaces").out.split(b"\n")[0], b"a\033b\t2\t1500\t-\t-")

    def test_json_on_a_terminal_is_json(self):
        self.ip("link add name br0 type bridge")
        _, seen, _ = Terminal("interfaces", "--json").finish()
        self.assertEqual(json.loads(seen)["name"], "br0")

    def test_a_name_that_is_not_utf_8_is_given_as_bytes_too(self):
        self.ip("link add name br\udcff type bridge")
        answer = json.loads(self.run_tool("interfaces", "--json").out)
        self.assertEqual((answer["name"], answer["name_base64"]), ("br\ufffd", "YnL/"))

    def test_help_names_the_option_and_every_exit_status(self):
        text = self.run_tool("interfaces", "--help").text
        self.assertIn("--json", text)
        self.assertEqual(re.findall(r"^  (\d+) ", text, re.M), ["0", "2", "130"])

    def test_words_that_make_no_sense(self):
        self.assert_refused(self.run_tool("interfaces", "eth0"), "'eth0'",
                            "(try: pelorik interfaces --help)")
        self.assert_refused(self.run_tool("interfaces", "--jsonl"), "--jsonl")

    def test_standard_output_that_cannot_be_written(self):
        self.ip("link add name br0 type bridge")
        for words in (["interfaces"], ["interfaces", "--json"]):
            with open("/dev/full", "wb") as full:
                done = subprocess.run([TOOL, *words], stdout=full, stderr=subprocess.PIPE,
                                      check=False)
            self.assertEqual(done.returncode, 2)
            self.assertIn(b"standard output: No space left on device\n", done.stderr)


if __name__ == "__main__":
    sys.exit(unittest.main())
