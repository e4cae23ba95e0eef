"""The manual pages of the build tree, beside --help and under mandoc's eyes."""

import glob
import os
import re
import shutil
import subprocess
import sys
import unittest

from tool import TOOL, ToolTest

PAGES = os.path.join(os.path.dirname(os.path.abspath(TOOL)), "share/man/man1")
OPTION = re.compile(r"^ +(?:(-\w), )?(--[a-z-]+)(?: ([A-Z]+))?(?:  .*|)$", re.M)


def source(page):
    with open(os.path.join(PAGES, page + ".1"), encoding="ascii") as file:
        return file.read()


def plain(text):
    """mdoc source without its escapes."""
    return re.sub(r"\\f[BR]", "", text).replace("\\-", "-").replace("\\&", "")


def listed_options(text):
    """What stands in the lists of options of a piece of a page, as (names, value)."""
    options = set()
    for line in re.findall(r"^\.It (Fl .*)$", plain(text), re.M):
        names = tuple("-" + name for name in re.findall(r"Fl (\S+)", line))
        value = re.search(r"Ar (\S+)$", line)
        options.add((names, value.group(1) if value else None))
    return options


class Manual(ToolTest):
    def helped_options(self, *words):
        text = self.run_tool(*words, "--help").text
        text = text[text.index("\nOptions:\n"):text.index("\nExit status:\n")]
        return {(tuple(name for name in (short, name) if name), value or None)
                for short, name, value in OPTION.findall(text)}

    def commands(self):
        text = self.run_tool("--help").text
        return re.findall(r"^  (\w+) ", text[text.index("Commands:"):text.index("Examples:")], re.M)

    def verbs(self, command):
        text = self.run_tool(command, "--help").text
        if "\nVerbs:\n" not in text:
            return []
        return re.findall(r"^  (\w+) ", text[text.index("\nVerbs:"):text.index("\nOptions:")], re.M)

    def test_there_is_a_page_for_the_tool_and_each_command_and_no_other(self):
        pages = sorted(os.path.basename(path) for path in glob.glob(PAGES + "/*"))
        self.assertEqual(pages, sorted(["pelorik.1"] + ["pelorik-%s.1" % c for c in self.commands()]))

    def test_every_option_of_help_stands_in_its_page_and_the_reverse(self):
        seen = 0
        for command in self.commands():
            page = source("pelorik-" + command)
            verbs = self.verbs(command)
            pieces = re.split(r"^\.Ss pelorik .*$", page, flags=re.M)
            self.assertEqual(re.findall(r"^\.Ss pelorik (.*)$", page, re.M),
                             ["%s %s" % (command, verb) for verb in verbs])
            if not verbs:
                pieces.insert(0, "")
            self.assertEqual(listed_options(pieces[0]), set())
            for words, piece in zip([[command, v] for v in verbs] or [[command]], pieces[1:]):
                with self.subTest(words=words):
                    helped = self.helped_options(*words)
                    self.assertIn((("-h", "--help"), None), helped)
                    self.assertEqual(listed_options(piece), helped)
                    seen += len(helped)
        self.assertGreater(seen, 40)

    def test_the_synopsis_names_the_options_too(self):
        for command in self.commands():
            page = plain(source("pelorik-" + command))
            synopsis = page[page.index(".Sh SYNOPSIS"):page.index(".Sh DESCRIPTION")]
            for words in [[command, v] for v in self.verbs(command)] or [[command]]:
                for names, _ in self.helped_options(*words) - {(("-h", "--help"), None)}:
                    self.assertTrue(any("Fl %s" % name[1:] in synopsis for name in names), names)

    def test_every_exit_status_of_help_stands_in_its_page(self):
        for command in self.commands():
            text = self.run_tool(command, "--help").text
            statuses = re.findall(r"^  (\d+) ", text[text.index("\nExit status:"):], re.M)
            page = source("pelorik-" + command)
            section = re.search(r"^\.Sh EXIT STATUS\n(.*?)^\.Sh ", page, re.M | re.S).group(1)
            self.assertEqual(re.findall(r"^\.It (\d+)$", section, re.M), statuses)

    def test_the_page_of_the_tool_names_every_command_in_the_order_of_help(self):
        page = source("pelorik")
        self.assertEqual(re.findall(r"^\.It Cm (\w+)$", page, re.M), self.commands())

    def test_other_pages_that_are_named_exist(self):
        for path in glob.glob(PAGES + "/*"):
            with open(path, encoding="ascii") as file:
                for name in re.findall(r"^\.Xr (\S+) 1", file.read(), re.M):
                    self.assertTrue(os.path.exists("%s/%s.1" % (PAGES, name)), name)

    def test_files_that_the_tool_leaves_are_documented(self):
        self.assertIn("OUT.partial", plain(source("pelorik-list")).split(".Sh FILES")[1])
        self.assertIn("/run/vpnagent/NAME", source("pelorik-lock").split(".Sh FILES")[1])

    def mandoc(self, *words):
        if shutil.which("mandoc") is None:
            self.skipTest("mandoc is not installed")
        return subprocess.run(["mandoc", *words], capture_output=True, check=False, text=True)

    def test_mandoc_has_nothing_to_say(self):
        for path in sorted(glob.glob(PAGES + "/*")):
            with self.subTest(page=os.path.basename(path)):
                done = self.mandoc("-T", "lint", path)
                # Whether they are installed on this machine does not matter.
                told = [line for line in done.stdout.splitlines()
                        if "referenced manual not found: " not in line]
                self.assertEqual(told, [])

    def test_a_page_reads_well(self):
        text = re.sub(".\b", "", self.mandoc("-T", "ascii", PAGES + "/pelorik-check.1").stdout)
        squeezed = " ".join(text.split())
        for piece in ("pelorik check [-C DIR] [-j N] [--stop]", "[--exclude GLOB]... [--quiet | --status]",
                      "-C, --directory DIR", "pelorik check --unlisted /srv --exclude '*.log' srv.list",
                      "pelorik check --json srv.list | jq -r 'select(.status==\"changed\").name'"):
            self.assertIn(piece, squeezed)


if __name__ == "__main__":
    sys.exit(unittest.main())
