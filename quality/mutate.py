#!/usr/bin/python3
"""Changes the library in small ways, one at a time, and looks whether its tests notice.

usage: mutate.py [--all] [UNIT...]

For each unit, a sample of 60 changes is drawn from all that are possible (with --all, every one is made):
relational, logical and arithmetic operators, constants by one, negated conditions, deleted statements,
swapped arguments. The sample is the same in every run over the same sources. A change counts as noticed
when a test of the unit fails, crashes, or does not end. In the place of a change that does not compile
another one is drawn, and so in the place of one that nothing notices and that survivors.txt gives the reason
for why it changes nothing that anybody could see.

Fails when one of the 60 is not noticed. Works on copies, in build/mutate/UNIT.
"""

import collections
import pathlib
import random
import re
import resource
import shutil
import subprocess
import sys
import time

from clang import cindex
from clang.cindex import CursorKind as Kind

ROOT = pathlib.Path(__file__).resolve().parents[1]
WORK = ROOT / "build" / "mutate"
SURVIVORS = ROOT / "quality" / "survivors.txt"
SAMPLE = 60

GOST_FLAGS = ["-mavx512f", "-mavx512bw", "-mavx512vl", "-mavx512vbmi", "-mgfni"]

# The sources of a unit, and the tests that are its own, the quick ones first.
UNITS = {
    "_md5": (
        ["digest/_md5.cpp", "digest/_md5_portable.cpp", "digest/_md5_avx512.cpp", "digest/_md5_steps.h"],
        ["digest_road_choice", "digest_md5_portable", "digest_roads", "digest_md5"],
    ),
    "gost3411": (
        ["digest/gost3411.cpp", "digest/gost3411_portable.cpp", "digest/gost3411_avx512.cpp", "digest/wide_sum.h"],
        ["digest_road_choice", "digest_gost3411_portable", "digest_gost3411", "digest_roads"],
    ),
    "gost34_11_2012": (
        ["digest/gost34_11_2012.cpp", "digest/gost34_11_2012_portable.cpp", "digest/gost34_11_2012_avx512.cpp"],
        [
            "digest_road_choice", "digest_gost34_11_2012_portable", "digest_gost34_11_2012", "digest_roads",
            "digest_gost34_11_2012_tables",
        ],
    ),
    "gost34_11_2012_i": (
        ["digest/gost34_11_2012_i.cpp", "digest/hex_text.h"],
        ["digest_gost34_11_2012_i_portable", "digest_gost34_11_2012_i"],
    ),
    "hash": (["digest/hash.cpp"], ["digest_hash"]),
    "hashfile_checker": (
        ["checker/hashfile_checker.cpp"],
        ["checker_hashfile_checker_calls", "checker_hashfile_checker"],
    ),
    "agstr": (
        ["text/agstr.cpp", "text/print.cpp", "text/wildcard.cpp", "text/wildcard.h"],
        ["text_agstr", "text_agstr_match", "text_agstr_match_calls"],
    ),
    "base64": (["text/base64.cpp"], ["text_base64"]),
    "inifile": (["config/inifile.cpp"], ["config_inifile"]),
    "vpnxml": (
        [
            "config/vpnxml.cpp", "config/xml_digest.cpp", "config/xml_lexer.cpp", "config/xml_reader.cpp",
            "config/xml_writer.cpp", "config/byte_source.h", "config/digit_value.h", "config/xml_walk.h",
        ],
        [
            "config_vpnxml", "config_xml_reader", "config_xml_writer", "config_xml_digest", "config_xml_language",
            "config_xml_memory", "config_xml_deep",
        ],
    ),
    "net_interf": (["system/net_interf.cpp"], ["system_net_interf", "system_netinterface"]),
    "netinterface": (["system/netinterface.cpp"], ["system_netinterface_records", "system_netinterface"]),
    "scchecker": (["system/scchecker.cpp"], ["system_scchecker_calls", "system_scchecker"]),
}

# What each operator is changed into.
OPERATORS = {
    "<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==",
    "+": "-", "-": "+", "*": "/", "/": "*", "%": "*",
    "<<": ">>", ">>": "<<", "&": "|", "|": "&", "^": "|", "&&": "||", "||": "&&",
    "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "%=": "*=",
    "<<=": ">>=", ">>=": "<<=", "&=": "|=", "|=": "&=", "^=": "|=", "++": "--", "--": "++",
}
STATEMENTS = {
    Kind.CALL_EXPR, Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR, Kind.UNARY_OPERATOR,
    Kind.UNEXPOSED_EXPR, Kind.CXX_DELETE_EXPR, Kind.CXX_THROW_EXPR, Kind.BREAK_STMT, Kind.CONTINUE_STMT,
    Kind.RETURN_STMT,
}
FUNCTIONS = {
    Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.FUNCTION_TEMPLATE, Kind.CONVERSION_FUNCTION, Kind.LAMBDA_EXPR,
}
LOOPS_AND_CHOICES = {
    Kind.IF_STMT, Kind.WHILE_STMT, Kind.FOR_STMT, Kind.CXX_FOR_RANGE_STMT, Kind.DO_STMT, Kind.CASE_STMT,
    Kind.DEFAULT_STMT,
}

Change = collections.namedtuple("Change", "kind file start end text")


class Source:
    """A source as it is, with the places in it where something can be changed."""

    def __init__(self, name):
        self.name = name
        self.bytes = (ROOT / name).read_bytes()

    def text(self, start, end):
        return self.bytes[start:end].decode()

    def lines_around(self, change):
        """The lines that a change touches, before and after it, each as one line of text; with the line in
        front when they are so short that there may be others like them."""
        start = self.bytes.rfind(b"\n", 0, change.start) + 1
        if len(self.text(start, change.end).strip()) < 15:
            start = self.bytes.rfind(b"\n", 0, start - 1) + 1
        end = self.bytes.find(b"\n", change.end)
        before = self.text(start, end)
        after = self.text(start, change.start) + change.text + self.text(change.end, end)
        return " ".join(before.split()), " ".join(after.split())

    def changed(self, change):
        return self.bytes[: change.start] + change.text.encode() + self.bytes[change.end :]


class Finder:
    """Finds the changes that the sources of a unit allow."""

    def __init__(self, sources):
        self.places = {str(ROOT / name): source for name, source in sources.items()}
        self.source = None  # the one that is looked at
        self.changes = set()
        self.last_returns = set()

    def add(self, kind, start, end, text):
        self.changes.add(Change(kind, self.source.name, start, end, text))

    def span(self, cursor):
        return cursor.extent.start.offset, cursor.extent.end.offset

    def source_of(self, cursor):
        file = cursor.extent.start.file
        return self.places.get(file.name) if file else None

    def visit(self, cursor):
        for child in cursor.get_children():
            if child.kind == Kind.STATIC_ASSERT:
                continue
            if cursor.kind == Kind.TRANSLATION_UNIT and self.source_of(child) is None:
                continue
            if child.kind == Kind.COMPOUND_STMT and cursor.kind in FUNCTIONS:
                self.keep_last_return(child)
            self.visit(child)
        self.source = self.source_of(cursor)
        if self.source is not None:
            self.look_at(cursor)

    # What a function that returns nothing at its end gives is undefined.
    def keep_last_return(self, body):
        statements = list(body.get_children())
        if statements and statements[-1].kind == Kind.RETURN_STMT:
            self.last_returns.add((self.source_of(body), self.span(statements[-1])))

    def look_at(self, cursor):
        children = list(cursor.get_children())
        if cursor.kind in (Kind.BINARY_OPERATOR, Kind.COMPOUND_ASSIGNMENT_OPERATOR):
            self.between(children)
        elif cursor.kind == Kind.CALL_EXPR:
            if cursor.spelling.startswith("operator") and len(children) >= 2:
                self.between(sorted(children, key=self.span))
            else:
                self.arguments(cursor)
        elif cursor.kind == Kind.UNARY_OPERATOR:
            self.unary(cursor, children)
        elif cursor.kind == Kind.INTEGER_LITERAL:
            self.constant(cursor)
        elif cursor.kind == Kind.COMPOUND_STMT:
            self.statements(children)
        elif cursor.kind in LOOPS_AND_CHOICES:
            self.statements(children[-2:] if cursor.kind == Kind.IF_STMT else children[-1:])
        if cursor.kind in (Kind.IF_STMT, Kind.WHILE_STMT, Kind.CONDITIONAL_OPERATOR):
            self.condition(cursor, children)

    def between(self, operands):
        start, end = self.span(operands[0])[1], self.span(operands[-1])[0]
        if start >= end:
            return
        operator = self.source.text(start, end)
        word = operator.strip()
        if word in OPERATORS:
            at = start + operator.index(word)
            self.add("operator", at, at + len(word), OPERATORS[word])

    def unary(self, cursor, children):
        start, end = self.span(cursor)
        text = self.source.text(start, end)
        for word in ("++", "--"):
            if text.startswith(word):
                self.add("operator", start, start + 2, OPERATORS[word])
            elif text.endswith(word):
                self.add("operator", end - 2, end, OPERATORS[word])
        if text.startswith("!") and children:
            self.add("negation", start, start + 1, "!!")

    def constant(self, cursor):
        start, end = self.span(cursor)
        text = self.source.text(start, end)
        if re.fullmatch(r"[0-9][0-9a-fA-FxX']*[uUlL]*", text):
            self.add("constant", start, end, f"({text} + 1)")
            if text.rstrip("uUlL") != "0":
                self.add("constant", start, end, f"({text} - 1)")

    def arguments(self, cursor):
        if cursor.spelling in ("min", "max"):
            return  # the same either way
        call_start, call_end = self.span(cursor)
        places = [self.span(argument) for argument in cursor.get_arguments()]
        places = [place for place in places if call_start < place[0] < place[1] < call_end]
        for (start, middle_start), (middle_end, end) in zip(places, places[1:]):
            first, second = self.source.text(start, middle_start), self.source.text(middle_end, end)
            if first != second and middle_start < middle_end:
                between = self.source.text(middle_start, middle_end)
                self.add("arguments", start, end, second + between + first)

    def statements(self, children):
        for child in children:
            if child.kind in STATEMENTS and self.source_of(child) is self.source:
                start, end = self.span(child)
                if (self.source, (start, end)) not in self.last_returns:
                    self.add("statement", start, end, "")

    def condition(self, cursor, children):
        start = self.span(cursor)[0]
        first = children[0]
        if not first.kind.is_expression() or "constexpr" in self.source.text(start, self.span(first)[0]):
            return
        start, end = self.span(first)
        self.add("negation", start, end, "!(" + self.source.text(start, end) + ")")


def changes_of(sources):
    """All changes of a unit's sources, in the order of their places."""
    index = cindex.Index.create()
    finder = Finder(sources)
    for name in sources:
        if name.endswith(".cpp"):
            flags = GOST_FLAGS if "avx512" in name else []
            unit = index.parse(str(ROOT / name), args=["-std=c++20", f"-I{ROOT}", *flags])
            errors = [problem for problem in unit.diagnostics if problem.severity >= cindex.Diagnostic.Error]
            if errors:
                sys.exit(f"{name}: {errors[0].spelling}")
            finder.visit(unit.cursor)
    return sorted(finder.changes, key=lambda change: (change.file, change.start, change.end, change.text))


def drawn(unit, changes):
    """The changes in the order in which they are tried: of each kind in turn, at random."""
    generator = random.Random(unit)
    kinds = collections.defaultdict(list)
    for change in changes:
        kinds[change.kind].append(change)
    for group in kinds.values():
        generator.shuffle(group)
    order = []
    while any(kinds.values()):
        order += [group.pop() for _, group in sorted(kinds.items()) if group]
    return order


class Workshop:
    """A copy of the sources with a build of its own."""

    def __init__(self, unit, tests):
        self.directory = WORK / unit
        self.sources = self.directory / "sources"
        self.build = self.directory / "build"
        self.tests = tests
        self.limits = {}

    def prepare(self):
        shutil.rmtree(self.directory, ignore_errors=True)
        shutil.copytree(ROOT, self.sources, ignore=shutil.ignore_patterns("build", ".git", "__pycache__"))
        subprocess.run(
            ["cmake", "-G", "Ninja", "-S", str(self.sources), "-B", str(self.build), "-DCMAKE_BUILD_TYPE=Release",
             "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -D_GLIBCXX_ASSERTIONS", "-DPELORIK_BUILD_TOOL=OFF",
             "-DPELORIK_STATIC_TESTS=ON"],
            check=True, stdout=subprocess.DEVNULL,
        )
        if not self.compiles():
            sys.exit(f"{self.directory.name}: the sources do not compile")
        for test in self.tests:
            before = resource.getrusage(resource.RUSAGE_CHILDREN)
            if self.fails(test, 3600):
                sys.exit(f"{test} fails without a change")
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
            self.limits[test] = 10 + int(10 * (after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime))

    def compiles(self):
        command = ["cmake", "--build", str(self.build), "--target", *(f"test_{test}" for test in self.tests)]
        return subprocess.run(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0

    def fails(self, test, seconds):
        """Whether a test fails, or takes more than so many seconds of the processor, or much more by the clock."""

        def limit():
            resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds))
            resource.setrlimit(resource.RLIMIT_AS, (16 << 30, 16 << 30))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

        program = self.build / "tests" / test.split("_")[0] / f"test_{test}"
        here = self.directory / "run"
        here.mkdir(exist_ok=True)
        try:
            done = subprocess.run(
                [str(program), "--gtest_brief=1", "--gtest_fail_fast"], cwd=here, preexec_fn=limit,
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                timeout=4 * seconds + 120,
            )
        except subprocess.TimeoutExpired:
            return True
        return done.returncode != 0

    def killer(self):
        """The first test that notices the change at hand, or None."""
        return next((test for test in self.tests if self.fails(test, self.limits[test])), None)


def reasons():
    """The entries of survivors.txt, by file, line before and line after."""
    known = {}
    for entry in re.split(r"\n\s*\n", SURVIVORS.read_text() if SURVIVORS.exists() else ""):
        lines = [line for line in entry.splitlines() if not line.startswith("#")]
        if len(lines) >= 4 and lines[1].startswith("- ") and lines[2].startswith("+ ") and lines[3].startswith("= "):
            known[(lines[0], lines[1][2:], lines[2][2:])] = lines[3][2:]
        elif lines:
            sys.exit(f"{SURVIVORS}: an entry is a file, '- before', '+ after' and '= reason': {lines[0]}")
    return known


def examine(unit, everything):
    files, tests = UNITS[unit]
    sources = {name: Source(name) for name in files}
    changes = drawn(unit, changes_of(sources))
    print(f"{unit}: {len(changes)} possible changes", flush=True)
    workshop = Workshop(unit, tests)
    workshop.prepare()
    known = reasons()
    made = killed = without_effect = 0
    started = time.monotonic()
    while changes and (everything or made < SAMPLE):
        # In the order of the files, so that fewer are compiled again.
        batch = sorted(changes[: len(changes) if everything else SAMPLE - made], key=lambda change: change[1:])
        del changes[: len(batch)]
        for change in batch:
            source = sources[change.file]
            copy = workshop.sources / change.file
            copy.write_bytes(source.changed(change))
            noticed_by = workshop.killer() if workshop.compiles() else "compiler"
            copy.write_bytes(source.bytes)
            if noticed_by == "compiler":
                continue
            before, after = source.lines_around(change)
            reason = None if noticed_by else known.get((change.file, before, after))
            made += reason is None
            killed += noticed_by is not None
            without_effect += reason is not None
            verdict = f"killed by {noticed_by}" if noticed_by else f"no effect: {reason}" if reason else "SURVIVED"
            print(f"{made} {change.kind} {verdict}\n{change.file}\n- {before}\n+ {after}\n", flush=True)
    minutes = (time.monotonic() - started) / 60
    print(f"{unit}: {killed} of {made} killed, {without_effect} others have no effect, {minutes:.0f} minutes",
          flush=True)
    return killed == made


def main(arguments):
    units = [argument for argument in arguments if argument != "--all"] or list(UNITS)
    unknown = [unit for unit in units if unit not in UNITS]
    if unknown:
        sys.exit(f"no unit {unknown[0]}; there are: {' '.join(UNITS)}")
    results = [examine(unit, "--all" in arguments) for unit in units]
    return 0 if all(results) else 1


sys.exit(main(sys.argv[1:]))
