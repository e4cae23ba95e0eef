"""The completions of the build tree, asked as the shells ask them."""

import os
import re
import shutil
import subprocess
import sys
import unittest

from tool import TOOL, ToolTest

SHARE = os.path.join(os.path.dirname(os.path.abspath(TOOL)), "share")
BASH = os.path.join(SHARE, "bash-completion/completions/pelorik")
ZSH = os.path.join(SHARE, "zsh/site-functions/_pelorik")
FISH = os.path.join(SHARE, "fish/vendor_completions.d/pelorik.fish")

ASK_BASH = """
source "$1"; shift
function=$(complete -p pelorik); function=${function#*-F }; function=${function%% *}
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
"$function" pelorik "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
((${#COMPREPLY[@]} == 0)) || printf '%s\\n' "${COMPREPLY[@]}"
"""


def needs(program):
    return unittest.skipIf(shutil.which(program) is None, program + " is not installed")


class Helped(ToolTest):
    """What --help says there is."""

    def commands(self):
        text = self.run_tool("--help").text
        return re.findall(r"^  (\w+) ", text[text.index("Commands:"):text.index("Examples:")], re.M)

    def options(self, *words):
        text = self.run_tool(*words, "--help").text
        text = text[text.index("\nOptions:\n"):text.index("\nExit status:\n")]
        return sorted(re.findall(r"^  (-\w), ", text, re.M) +
                      re.findall(r"^  (?:-\w, |    )(--[a-z-]+)", text, re.M))

    LEAVES = ([["xml", verb] for verb in ("check", "seal", "format", "get")] +
              [["ini", verb] for verb in ("get", "groups", "dump")] + [["pem", "wrap"], ["pem", "unwrap"]])

    def leaves(self):
        families = {leaf[0] for leaf in self.LEAVES}
        return self.LEAVES + [[command] for command in self.commands() if command not in families]


@needs("bash")
class Bash(Helped):
    def ask(self, *words):
        done = subprocess.run(["bash", "--norc", "-c", ASK_BASH, "bash", BASH, "pelorik", *words],
                              capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout.splitlines()

    def test_commands(self):
        self.assertEqual(self.ask(""), self.commands() + ["--help", "--version"])
        self.assertEqual(self.ask("c"), ["check", "compare"])
        self.assertEqual(self.ask("--v"), ["--version"])

    def test_verbs(self):
        self.assertEqual(self.ask("xml", ""), ["check", "seal", "format", "get", "--help"])
        self.assertEqual(self.ask("ini", "g"), ["get", "groups"])

    def test_every_option_of_every_command(self):
        for leaf in self.leaves():
            with self.subTest(leaf=leaf):
                self.assertEqual(sorted(self.ask(*leaf, "-")), self.options(*leaf))

    def test_options_behind_operands(self):
        self.assertEqual(self.ask("check", "x.list", "--st"), ["--stop", "--status"])

    def test_algorithms(self):
        for words in (["hash", "-a"], ["list", "--algorithm"], ["update", "f", "-a"], ["bench", "-a"]):
            self.assertEqual(self.ask(*words, ""), ["md5", "gost94", "gost2012"])
        self.assertEqual(self.ask("hash", "-a", "g"), ["gost94", "gost2012"])

    def test_files_and_directories(self):
        self.write("file one")
        self.write("dir/f")
        self.assertEqual(sorted(self.ask("check", "")), ["dir", "file one"])
        self.assertEqual(self.ask("list", "-o", "fi"), ["file one"])
        self.assertEqual(self.ask("check", "-C", ""), ["dir"])
        self.assertEqual(self.ask("check", "--unlisted", ""), ["dir"])
        self.assertEqual(self.ask("xml", "get", "dir/"), ["dir/f"])

    def test_nothing_where_anything_may_stand_or_nothing(self):
        self.write("file")
        for words in (["check", "-j", ""], ["list", "--exclude", ""], ["lock", ""], ["interfaces", ""],
                      ["bench", ""], ["frobnicate", ""], ["xml", "frobnicate", ""]):
            self.assertEqual(self.ask(*words), [], words)

    def test_behind_two_dashes_there_are_no_options(self):
        self.write("-file")
        self.assertEqual(self.ask("check", "--", "-"), ["-file"])
        self.assertIn("bash", self.ask("lock", "name", "--", "bas"))
        self.assertEqual(self.ask("lock", "name", "--", "cat", "-f"), ["-file"])


@needs("fish")
class Fish(Helped):
    def setUp(self):
        super().setUp()
        self.home = os.path.abspath(".home")
        os.mkdir(self.home)

    def ask(self, line):
        done = subprocess.run(["fish", "--no-config", "-c", "source %s; complete -C $argv[1]" % FISH, line],
                              capture_output=True, text=True, check=False,
                              env=dict(os.environ, HOME=self.home, XDG_CONFIG_HOME=self.home))
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return [answer.split("\t")[0] for answer in done.stdout.splitlines()]

    def test_commands_and_verbs(self):
        self.assertEqual(sorted(self.ask("pelorik ")), sorted(self.commands()))
        self.assertEqual(sorted(self.ask("pelorik xml ")), ["check", "format", "get", "seal"])

    def test_every_option_of_every_command(self):
        for leaf in self.leaves():
            with self.subTest(leaf=leaf):
                got = self.ask("pelorik %s -" % " ".join(leaf)) + self.ask("pelorik %s --" % " ".join(leaf))
                self.assertEqual(sorted(set(got)), sorted(set(self.options(*leaf))))

    def test_values(self):
        self.assertEqual(sorted(self.ask("pelorik hash -a ")), ["gost2012", "gost94", "md5"])
        self.write("dir/f")
        self.write("file")
        self.assertEqual(self.ask("pelorik check -C "), ["dir/"])
        self.assertEqual(sorted(self.ask("pelorik check ")), ["dir/", "file"])
        self.assertEqual(self.ask("pelorik bench "), [])


@needs("zsh")
class Zsh(Helped):
    def test_it_parses_and_names_every_option(self):
        done = subprocess.run(["zsh", "-n", ZSH], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        with open(ZSH, encoding="ascii") as file:
            text = file.read()
        for leaf in self.leaves():
            piece = text.split("    '%s')\n" % " ".join(leaf))[1].split(";;")[0]
            self.assertEqual(sorted(re.findall(r"^ +'\*(-[A-Za-z0-9-]+)\[", piece, re.M)), self.options(*leaf))


if __name__ == "__main__":
    sys.exit(unittest.main())
