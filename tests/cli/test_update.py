"""pelorik update. Expected digests come from hashlib and libgcrypt."""

import json
import os
import re
import resource
import signal
import stat
import subprocess
import sys
import unittest

from tool import (GOST94, GOST2012, MD5, TOOL, Terminal, ToolTest, await_open, environment, gost94,
                  gost2012, md5)

HUGE = 1 << 42  # bytes of a file without content: enough to be at it until the test ends it


def record(name, data):
    return "%s=%s%s\n" % (name, MD5, md5(data))


class UpdateTest(ToolTest):
    def update(self, *words, **options):
        return self.run_tool("update", *words, **options)

    def content(self, name="list"):
        with open(name, encoding="utf-8") as file:
            return file.read()

    def assert_untouched(self, before, names):
        self.assertEqual(self.content(), before)
        self.assertEqual(sorted(os.listdir()), sorted(names))


class Entries(UpdateTest):
    def test_what_agrees_is_left_as_it_is_and_not_even_written(self):
        self.write("a", b"1")
        self.write("list", "[head]\n\n" + record("a", b"1").rstrip("\n"))
        before = os.stat("list")
        done = self.update("list")
        self.assertEqual((done.status, done.out, done.complaint),
                         (0, b"", "pelorik: update: 1 unchanged\n"))
        now = os.stat("list")
        self.assertEqual((now.st_ino, now.st_mtime_ns), (before.st_ino, before.st_mtime_ns))

    def test_changed_files_get_new_digests_in_their_places(self):
        for name in ("a", "b", "c"):
            self.write(name, b"new " + name.encode())
        self.write("list", "[one]\n" + record("c", b"old") + "\n" + record("a", b"new a") +
                   "[two=2]\n" + record("b", b"old"))
        done = self.update("list")
        self.assertEqual((done.status, done.text), (0, "changed     c\nchanged     b\n"))
        self.assertEqual(done.complaint, "pelorik: update: 1 unchanged, 2 changed\n")
        self.assertEqual(self.content(), "[one]\n" + record("c", b"new c") + "\n" +
                         record("a", b"new a") + "[two=2]\n" + record("b", b"new b"))
        self.assertEqual(self.run_tool("check", "list").status, 0)

    def test_each_entry_keeps_its_algorithm(self):
        self.write("f", b"abc")
        zeros = "0" * 64
        self.write("list", "f=%s\nf=%s\nf=%s\nf=%s\nf=%s\n" % (
            GOST94 + zeros, "$MD5:" + zeros[:32], GOST2012 + zeros, zeros[:32], zeros))
        self.assertEqual(self.update("list").status, 0)
        self.assertEqual(self.content(), "f=%s\nf=%s\nf=%s\nf=%s\nf=%s\n" % (
            GOST94 + gost94(b"abc"), MD5 + md5(b"abc"), GOST2012 + gost2012(b"abc"),
            MD5 + md5(b"abc"), GOST2012 + gost2012(b"abc")))

    def test_unchanged_entries_keep_their_form(self):
        self.write("f", b"abc")
        self.write("g", b"abc")
        kept = "f=$MD5:%s\nf=%s\nf=%s\n" % (md5(b"abc").upper(), md5(b"abc"), gost2012(b"abc").upper())
        self.write("list", kept + record("g", b"old"))
        self.assertEqual(self.update("list").text, "changed     g\n")
        self.assertEqual(self.content(), kept + record("g", b"abc"))

    def test_digests_of_no_known_algorithm_are_replaced(self):
        self.write("f", b"abc")
        mixed = md5(b"abc")[:16].upper() + md5(b"abc")[16:]
        self.write("list", "f=#SHA1:00\nf=%s\n" % mixed)
        done = self.update("-a", "gost94", "list")
        self.assertEqual((done.status, done.text), (0, "changed     f\nchanged     f\n"))
        self.assertEqual(self.content(), "f=%s\nf=%s\n" % (GOST94 + gost94(b"abc"), MD5 + md5(b"abc")))

    def test_a_digest_that_would_make_its_line_too_long_is_refused(self):
        name = "d/" + "/" * 4059 + "f"  # with 64 digits and no prefix as long as a line may be
        self.write("d/f", b"abc")
        for digits in ("0" * 64, "x"):
            line = "%s=%s\n" % (name, digits)
            self.write("list", line)
            self.assert_refused(self.update("list"), "a name of 4062 characters cannot stand in a hash list")
            self.assertEqual(self.content(), line)
        self.write("list", "%s=%s\n" % (name, gost2012(b"abc")))
        self.assertEqual(self.update("list").status, 0)

    def test_missing_files_keep_their_entries_and_give_status_1(self):
        self.write("f", b"abc")
        lines = record("gone", b"") + record("f", b"abc") + record("f/below", b"")
        self.write("list", lines)
        done = self.update("list")
        self.assertEqual((done.status, done.text), (1, "missing     gone\nmissing     f/below\n"))
        self.assertEqual(done.complaint, "pelorik: update: 1 unchanged, 2 missing\n")
        self.assertEqual(self.content(), lines)

    def test_prune_drops_them(self):
        self.write("f", b"abc")
        self.write("list", "[h]\n" + record("gone", b"") + record("f", b"abc") + record("f/below", b""))
        done = self.update("--prune", "list")
        self.assertEqual((done.status, done.text), (0, "removed     gone\nremoved     f/below\n"))
        self.assertEqual(done.complaint, "pelorik: update: 1 unchanged, 2 removed\n")
        self.assertEqual(self.content(), "[h]\n" + record("f", b"abc"))

    def test_prune_never_leaves_a_list_without_entries(self):
        before = record("gone", b"") + record("gone too", b"")
        self.write("list", before)
        self.assert_refused(self.update("--prune", "list"), "list is as it was: no entry would be left")
        self.assert_untouched(before, ["list"])
        self.write("f", b"1")
        self.assertEqual(self.update("--prune", "-a", "md5", "list", "f").status, 0)
        self.assertEqual(self.content(), record("f", b"1"))


class Added(UpdateTest):
    def setUp(self):
        super().setUp()
        self.write("t/b", b"1")
        self.write("t/a", b"2")
        self.write("t/x.log", b"3")

    def test_paths_are_added_at_the_end_unless_they_are_listed(self):
        self.write("list", record("t/b", b"1").rstrip("\n"))  # whose last line lacks its end
        done = self.update("-r", "-a", "md5", "list", "t", "t/b")
        self.assertEqual((done.status, done.text), (0, "added       t/a\nadded       t/x.log\n"))
        self.assertEqual(done.complaint, "pelorik: update: 1 unchanged, 2 added\n")
        self.assertEqual(self.content(), record("t/b", b"1") + record("t/a", b"2") +
                         record("t/x.log", b"3"))

    def test_a_path_that_is_named_twice_is_added_once(self):
        self.write("list", record("t/b", b"1"))
        self.assertEqual(self.update("list", "t/a", "t/a").text, "added       t/a\n")
        self.assertEqual(self.content(), record("t/b", b"1") + "t/a=%s%s\n" % (GOST2012, gost2012(b"2")))

    def test_exclude_keeps_names_from_being_added_and_leaves_entries_alone(self):
        self.write("list", record("t/b", b"old"))
        done = self.update("-r", "--exclude", "*.log", "--exclude", "t/b", "list", "t")
        self.assertEqual(done.text, "changed     t/b\nadded       t/a\n")

    def test_directories_need_r(self):
        self.write("list", record("t/b", b"1"))
        done = self.update("list", "t")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertEqual(done.complaint.splitlines(), [
            "pelorik: update: t: Is a directory (-r lists the files in it)",
            "pelorik: update: list is as it was: directories need -r"])

    def test_names_that_a_list_cannot_hold_are_refused(self):
        self.write("t/a=b")
        before = record("t/b", b"old")
        self.write("list", before)
        done = self.update("-r", "list", "t")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertIn("t/a=b: a name with '=' cannot stand in a hash list", done.complaint)
        self.assert_untouched(before, ["list", "t"])

    def test_the_list_itself_is_never_added(self):
        self.write("t/list", record("t/b", b"1"))
        for dry in (["--dry-run"], []):
            done = self.update("-r", *dry, "t/list", "t")
            self.assertEqual(done.text, "added       t/a\nadded       t/x.log\n")

    def test_links_to_directories_are_counted(self):
        os.symlink(".", "t/loop")
        self.write("list", record("t/b", b"1"))
        self.assertIn("1 symbolic links to directories not followed",
                      self.update("-r", "list", "t").complaint)


class Unreadable(UpdateTest):
    def setUp(self):
        super().setUp()
        os.chmod(self.dir, 0o777)
        self.write("good", b"new")
        self.write("secret", b"1")
        os.chmod("secret", 0)
        self.old = record("secret", b"1") + record("good", b"old")
        self.write("list", self.old)
        os.chmod("list", 0o666)

    def test_nothing_is_written_and_status_is_2(self):
        done = self.run_unprivileged("update", "list")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertEqual(done.complaint.splitlines(), [
            "pelorik: update: secret: Permission denied",
            "pelorik: update: list is as it was, as 1 could not be read (--keep-going keeps their "
            "entries)"])
        self.assertEqual(self.content(), self.old)

    def test_prune_does_not_take_them_for_missing(self):
        self.assertEqual(self.run_unprivileged("update", "--prune", "list").status, 2)
        self.assertEqual(self.content(), self.old)

    def test_keep_going_keeps_their_entries_and_status_is_1(self):
        done = self.run_unprivileged("update", "--keep-going", "list")
        self.assertEqual((done.status, done.text), (1, "unreadable  secret\nchanged     good\n"))
        self.assertEqual(done.complaint.splitlines(), [
            "pelorik: update: secret: Permission denied",
            "pelorik: update: 1 changed, 1 unreadable"])
        self.assertEqual(self.content(), record("secret", b"1") + record("good", b"new"))

    def test_paths_that_cannot_be_added(self):
        os.chmod("secret", 0o644)
        self.write("new")
        os.chmod("new", 0)
        done = self.run_unprivileged("update", "list", "new", "missing")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertIn("missing: No such file", done.complaint)
        self.assertIn("new: Permission denied", done.complaint)
        done = self.run_unprivileged("update", "--keep-going", "list", "new", "missing", "good")
        self.assertEqual((done.status, done.text),
                         (1, "changed     good\nunreadable  missing\nunreadable  new\n"))
        done = self.run_unprivileged("update", "--keep-going", "--json", "list", "new")
        self.assertEqual([json.loads(line) for line in done.text.splitlines()], [
            {"name": "new", "status": "unreadable", "old": [], "new": []},
            {"summary": {"unchanged": 2, "changed": 0, "removed": 0, "missing": 0, "unreadable": 1,
                         "added": 0, "written": False}}])

    def test_a_directory_in_the_place_of_a_file(self):
        os.mkdir("d")
        self.write("list", record("d", b""))
        done = self.update("list")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertIn("d: Is a directory", done.complaint)

    def test_a_list_that_cannot_be_replaced(self):
        os.chmod("secret", 0o644)
        os.chmod("list", 0o444)
        self.assert_refused(self.run_unprivileged("update", "list"), "list: Permission denied")
        done = self.run_unprivileged("update", "--dry-run", "list")
        self.assertEqual((done.status, done.text), (0, "changed     good\n"))


class Writing(UpdateTest):
    def setUp(self):
        super().setUp()
        self.write("f", b"new")
        self.old = record("f", b"old")
        self.write("list", self.old)

    def test_dry_run_shows_the_same_and_writes_nothing(self):
        self.write("n")
        done = self.update("--dry-run", "list", "n")
        self.assertEqual((done.status, done.text), (0, "changed     f\nadded       n\n"))
        self.assertEqual(done.complaint, "pelorik: update: dry run: 1 changed, 1 added\n")
        self.assert_untouched(self.old, ["f", "list", "n"])

    def test_the_list_is_replaced_as_a_whole_and_keeps_its_permissions(self):
        os.chmod("list", 0o640)
        os.link("list", "link")
        os.symlink("list", "symbolic")
        self.assertEqual(self.update("symbolic").status, 0)
        self.assertTrue(os.path.islink("symbolic"))
        self.assertEqual(stat.S_IMODE(os.stat("list").st_mode), 0o640)
        self.assertEqual((self.content("link"), self.content()), (self.old, record("f", b"new")))
        self.assertEqual(sorted(os.listdir()), ["f", "link", "list", "symbolic"])

    def test_lists_that_are_none_are_refused(self):
        os.mkdir("d")
        os.mkfifo("pipe")
        self.write("empty")
        self.write("bad", "no divider\n")
        for name, why in (("missing", "missing: No such file or directory"), ("d", "d: Is a directory"),
                          ("pipe", "pipe: not a regular file"), ("empty", "empty: holds no record"),
                          ("bad", "bad: line 1: has no '='"),
                          ("-", "standard input (-) cannot be updated")):
            self.assert_refused(self.update(name), why)

    def test_usage(self):
        self.assert_refused(self.update(), "update which LIST?", "pelorik update --help")
        self.assert_refused(self.update("-a", "sha1", "list"), "unknown algorithm 'sha1'")
        self.assert_help(["update"], ["--prune", "--dry-run", "--exclude GLOB", "--keep-going",
                                      "-a, --algorithm", "-r, --recursive", "LIST [PATH]..."])

    def test_quiet(self):
        done = self.update("--quiet", "list")
        self.assertEqual((done.status, done.text, done.err), (0, "changed     f\n", b""))

    def test_json(self):
        self.write("n", b"1")
        self.write("list", self.old + record("gone", b"") + record("n", b"1"))
        self.write("m", b"2")
        done = self.update("--json", "-a", "md5", "list", "m")
        self.assertEqual((done.status, done.err), (1, b""))
        self.assertEqual([json.loads(line) for line in done.text.splitlines()], [
            {"name": "f", "status": "changed", "old": [MD5 + md5(b"old")], "new": [MD5 + md5(b"new")]},
            {"name": "gone", "status": "missing", "old": [MD5 + md5(b"")], "new": []},
            {"name": "m", "status": "added", "old": [], "new": [MD5 + md5(b"2")]},
            {"summary": {"unchanged": 1, "changed": 1, "removed": 0, "missing": 1, "unreadable": 0,
                         "added": 1, "written": True}}])
        done = self.update("--json", "--prune", "--dry-run", "list")
        self.assertEqual([json.loads(line) for line in done.text.splitlines()], [
            {"name": "gone", "status": "removed", "old": [MD5 + md5(b"")], "new": []},
            {"summary": {"unchanged": 3, "changed": 0, "removed": 1, "missing": 0, "unreadable": 0,
                         "added": 0, "written": False}}])

    def test_what_cannot_be_shown_is_not_done(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([TOOL, "update", "list"], stdout=full, stderr=subprocess.PIPE,
                                  env=environment())
        self.assertEqual((done.returncode, done.stderr), (
            2, b"pelorik: update: standard output: No space left on device\n"))
        self.assert_untouched(self.old, ["f", "list"])

    def test_a_write_that_fails_is_not_reported_as_done(self):
        self.write("n" * 200)
        done = self.update("--json", "list", "n" * 200, env=environment(LLVM_PROFILE_FILE="/dev/null"),
                           preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100)))
        self.assertEqual((done.status, done.complaint), (2, "pelorik: update: list: File too large\n"))
        self.assertNotIn("written", done.text)
        self.assert_untouched(self.old, ["f", "list", "n" * 200])

    def test_a_summary_that_cannot_be_printed_is_status_2(self):
        limit = len(self.update("--json", "--dry-run", "list").out.splitlines()[0]) + 20
        with open("out", "wb") as out:
            done = subprocess.run(
                [TOOL, "update", "--json", "list"], stdout=out, stderr=subprocess.PIPE,
                env=environment(LLVM_PROFILE_FILE="/dev/null"),
                preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
        self.assertEqual((done.returncode, done.stderr), (
            2, b"pelorik: update: standard output: File too large\n"))
        self.assertEqual(self.content(), record("f", b"new"))
        self.assertNotIn('"written":true', self.content("out"))

    def test_an_interrupt_leaves_the_list(self):
        with open("huge", "wb") as huge:
            huge.truncate(HUGE)
        self.write("list", self.old + record("huge", b""))
        child = subprocess.Popen([TOOL, "update", "list"], env=environment(), stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE)
        await_open(child.pid, "huge")
        child.send_signal(signal.SIGINT)
        self.assertEqual(child.communicate(), (b"", b"pelorik: update: interrupted: list is as it was\n"))
        self.assertEqual(child.returncode, 130)
        self.assert_untouched(self.old + record("huge", b""), ["f", "huge", "list"])

    def test_on_a_terminal(self):
        _, seen, _ = Terminal("update", "--dry-run", "--quiet", "list").finish()
        self.assertEqual(seen, b"\x1b[31mchanged     f\x1b[0m\n")
        with open("huge", "wb") as huge:
            huge.truncate(HUGE)
        self.write("list", self.old + record("huge", b""))
        terminal = Terminal("update", "list")
        terminal.wait_for(re.compile(rb"\r1 of 2 files, [0-9.]+ [KMG]iB of 4\.0 TiB"))
        terminal.interrupt()
        self.assertEqual(terminal.finish()[0], 130)


class Whole(UpdateTest):
    def test_an_updated_list_is_what_a_new_one_would_be(self):
        for i in range(200):
            self.write("t/%03d" % i, b"%d" % i)
        self.run_tool("list", "-r", "-o", "list", "t")
        for i in range(0, 200, 7):
            self.write("t/%03d" % i, b"changed")
        for i in range(1, 200, 7):
            os.remove("t/%03d" % i)
        self.write("t/zzz", b"")
        self.assertEqual(self.update("--prune", "-r", "list", "t").status, 0)
        self.assertEqual(self.content(), self.run_tool("list", "-r", "t").text)


if __name__ == "__main__":
    sys.exit(unittest.main())
