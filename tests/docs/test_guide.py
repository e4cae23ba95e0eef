"""Runs the commands of the tool's guide and of the README in their order, each page in one shell, over an
installation of its own, and compares what they print. The digests in the guide are libgcrypt's and Python's; the rest was reasoned
out from the commands' descriptions."""

import hashlib
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

import markdown

sys.path.insert(1, os.path.join(markdown.ROOT, "tests", "cli"))

import namespaces  # noqa: E402
from tool import GOST2012, MD5, TOOL, gost2012  # noqa: E402

PAGE = "docs/guide.md"
PAGES = [PAGE, "README.md"]
UNITS = "examples/systemd/"

INI = b"server = vpn.example.com\n"
EVIL = b"server = evil.example.com\n"
FILES = {"bin/agent": b"agent 1\n", "etc/agent.ini": INI, "lib/libagent.so": b"library\n"}
INSTALLATION = "/opt/PELORIKclient/"


def cut_list():
    """The list without the line that the guide deletes from it."""
    return "".join("%s%s=%s%s\n" % (INSTALLATION, name, GOST2012, gost2012(FILES[name]))
                   for name in ("bin/agent", "etc/agent.ini")).encode()


def commands(text):
    """(command, output, line) of every console block."""
    found = []
    for kind, content, line in markdown.blocks(text):
        if kind != "console":
            continue
        for number, row in enumerate(content.splitlines(), line):
            if row.startswith("$ "):
                found.append([row[2:], "", number])
            elif row.startswith("> "):
                found[-1][0] += "\n" + row[2:]
            else:
                found[-1][1] += row + "\n"
    return found


def mount_private_directories():
    namespaces.enter_own_run_directory()
    os.mkdir("/var/run/vpnagent", 0o755)
    for place in ("/opt", "/var/lib", "/media"):
        # What the build needs may lie below one of them.
        if os.path.realpath(TOOL).startswith(place + "/"):
            raise unittest.SkipTest("the tool lies in " + place)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "mode=0755", "none", place], check=True)
    os.mkdir("/media/usb")
    for name, content in FILES.items():
        os.makedirs(os.path.dirname(INSTALLATION + name), exist_ok=True)
        with open(INSTALLATION + name, "wb") as file:
            file.write(content)


def surroundings():
    return dict(os.environ, LC_ALL="C",
                PATH=os.path.dirname(TOOL) + ":" + os.environ["PATH"])


class Guide(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        mount_private_directories()

    def run_in_one_shell(self, lines):
        """What each of the commands printed. Each leaves its status in $? for the next."""
        end = "=====end of a command====="
        script = "".join("%s\nstatus=$?; echo '%s'; (exit $status)\n" % (line, end)
                         for line in lines)
        with tempfile.TemporaryDirectory() as folder:
            done = subprocess.run(["bash"], input=script, stdout=subprocess.PIPE, check=False,
                                  stderr=subprocess.STDOUT, text=True, env=surroundings(),
                                  cwd=folder)
        outputs = done.stdout.split(end + "\n")
        self.assertEqual(outputs.pop(), "")
        return outputs

    def compare(self, page):
        shown = commands(markdown.read(page))
        outputs = self.run_in_one_shell([command for command, _, _ in shown])
        self.assertEqual(len(outputs), len(shown))
        self.assertGreater(len(shown), 5)
        for (command, expected, line), printed in zip(shown, outputs):
            with self.subTest(page=page, line=line, command=command):
                self.assertEqual(printed, expected)

    def test_every_command_of_the_readme_prints_what_stands_under_it(self):
        self.compare("README.md")

    def test_every_command_of_the_guide_prints_what_stands_under_it(self):
        self.compare(PAGE)
        self.unit_reports_what_the_guide_shows()

    def unit_reports_what_the_guide_shows(self):
        """The installation is as the guide left it: one file is missing."""
        line = re.search("^ExecStart=(.*)$", markdown.read(UNITS + "pelorik-check.service"), re.M)
        done = subprocess.run(shlex.split(line.group(1)), check=False, capture_output=True,
                              text=True, env=surroundings())
        self.assertEqual((done.returncode, done.stderr), (1, ""))
        problem, summary = done.stdout.splitlines()
        self.assertIn('"status":"missing"', problem)
        self.assertIn('{"summary":{"records":4,', summary)


class Texts(unittest.TestCase):
    def test_every_digest_is_that_of_an_independent_program(self):
        known = {gost2012(content) for content in FILES.values()}
        known |= {gost2012(content) for content in (INI + EVIL, EVIL, b"agent 2\n", cut_list())}
        known.add(gost2012(b"agent\n"))
        known |= {hashlib.md5(content).hexdigest() for content in (b"agent 2\n", b"abc")}
        printed = "".join(content for page in PAGES
                          for kind, content, _ in markdown.blocks(markdown.read(page))
                          if kind == "console")
        digests = re.findall(r"\b(?:[0-9a-f]{64}|[0-9a-f]{32})\b", printed)
        self.assertGreater(len(digests), 6)
        self.assertEqual({digest for digest in digests if digest not in known}, set())
        self.assertIn(MD5, printed)

    def test_the_units_in_the_guide_are_the_examples(self):
        shown = [content for kind, content, _ in markdown.blocks(markdown.read(PAGE))
                 if kind == "ini"]
        self.assertEqual(shown, [markdown.read(UNITS + "pelorik-check.service"),
                                 markdown.read(UNITS + "pelorik-check.timer")])

    @unittest.skipUnless(shutil.which("systemd-analyze"), "needs systemd-analyze")
    def test_systemd_has_nothing_to_say_about_the_units(self):
        units = [os.path.join(markdown.ROOT, UNITS, name)
                 for name in ("pelorik-check.service", "pelorik-check.timer")]
        done = subprocess.run(["systemd-analyze", "verify", "--man=no", *units], check=False,
                              capture_output=True, text=True)
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))


if __name__ == "__main__":
    unittest.main()
