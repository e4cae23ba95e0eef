"""pelorik list. Expected digests come from hashlib, libgcrypt and, where it is installed, rhash."""

import os
import resource
import shutil
import signal
import socket
import stat
import subprocess
import sys
import unittest

from tool import (EMPTY_GOST2012, GOST94, GOST2012, MD5, TOOL, ToolTest, environment, gost94, gost2012,
                  md5)


def names_in(outcome):
    return [line.split("=")[0] for line in outcome.text.splitlines()]


class List(ToolTest):
    def tree(self):
        self.write("tree/a", b"1")
        self.write("tree/sub/file", b"2")
        self.write("tree/sub.x", b"3")
        self.write("tree/sub-x", b"4")
        self.write("tree/Z", b"5")
        self.write("tree/\u00e9", b"6")

    def test_writes_gost2012_by_default_under_the_names_given(self):
        self.write("a", b"abc")
        self.write("d/b", b"")
        done = self.run_tool("list", "a", "./a", "d/b", os.path.abspath("a"))
        self.assertEqual((done.status, done.err), (0, b""))
        digest = GOST2012 + gost2012(b"abc")
        self.assertEqual(done.text, "a=%s\n./a=%s\nd/b=%s%s\n%s=%s\n" % (
            digest, digest, GOST2012, EMPTY_GOST2012, os.path.abspath("a"), digest))

    def test_each_algorithm(self):
        self.write("a", b"abc")
        for name, text in (("md5", MD5 + md5(b"abc")), ("gost94", GOST94 + gost94(b"abc")),
                           ("gost2012", GOST2012 + gost2012(b"abc"))):
            done = self.run_tool("list", "-a", name, "a")
            self.assertEqual((done.status, done.text), (0, "a=%s\n" % text))

    def test_a_dash_is_the_name_of_a_file(self):
        self.write("-", b"abc")
        done = self.run_tool("list", "-a", "md5", "-")
        self.assertEqual((done.status, done.text), (0, "-=%s%s\n" % (MD5, md5(b"abc"))))

    def test_an_unknown_algorithm_is_refused(self):
        self.write("a")
        self.assert_refused(self.run_tool("list", "-a", "sha1", "a"), "md5, gost94 or gost2012")

    def test_walks_in_the_byte_order_of_each_directorys_entries(self):
        self.tree()
        done = self.run_tool("list", "-r", "tree")
        self.assertEqual(names_in(done), ["tree/Z", "tree/a", "tree/sub/file", "tree/sub-x",
                                          "tree/sub.x", "tree/\u00e9"])

    def test_names_of_a_walk_start_as_the_directory_was_given(self):
        self.write("tree/sub/file")
        for given, name in (("tree", "tree/sub/file"), ("tree/", "tree/sub/file"),
                            ("./tree", "./tree/sub/file"), (".", "./tree/sub/file"),
                            ("tree//", "tree//sub/file"), ("tree/sub/..", "tree/sub/../sub/file")):
            self.assertEqual(names_in(self.run_tool("list", "--recursive", given)), [name])

    def test_a_directory_without_r_is_status_2(self):
        self.tree()
        self.write("f")
        self.assertEqual(self.run_tool("list", "f", "tree").status, 2)
        done = self.run_tool("list", "f", "tree")
        self.assertEqual(done.out, b"")
        self.assertIn("pelorik: list: tree: Is a directory (-r lists", done.complaint)

    def test_nothing_to_list_is_status_2(self):
        os.mkdir("empty")
        self.write("f")
        self.assert_refused(self.run_tool("list", "-r", "empty"), "nothing to list")
        self.assert_refused(self.run_tool("list", "--exclude", "*", "f"), "nothing to list")
        self.assert_refused(self.run_tool("list", "--files-from", "-"), "nothing to list")
        self.assert_refused(self.run_tool("list"), "nothing to list")

    def test_links_to_files_are_followed_and_links_to_directories_are_not(self):
        self.write("tree/f", b"abc")
        os.symlink("f", "tree/link")
        os.symlink(".", "tree/loop")
        os.symlink("/", "tree/root")
        done = self.run_tool("list", "-r", "-a", "md5", "tree")
        self.assertEqual(done.status, 0)
        self.assertEqual(done.text, "tree/f=%s%s\ntree/link=%s%s\n" % ((MD5, md5(b"abc")) * 2))
        self.assertEqual(done.complaint,
                         "pelorik: list: 2 symbolic links to directories not followed\n")

    def test_a_link_to_a_directory_is_walked_when_it_is_named_itself(self):
        self.write("tree/f")
        os.symlink("tree", "link")
        self.assertEqual(names_in(self.run_tool("list", "-r", "link")), ["link/f"])

    def test_special_files_are_skipped_with_a_word(self):
        self.write("tree/f")
        os.mkfifo("tree/pipe")
        os.symlink("/dev/null", "tree/null")
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind("tree/socket")
        done = self.run_tool("list", "-r", "tree")
        self.assertEqual((done.status, names_in(done)), (0, ["tree/f"]))
        self.assertEqual(done.complaint.splitlines(), [
            "pelorik: list: tree/%s: skipped: not a regular file" % name
            for name in ("null", "pipe", "socket")])
        alone = self.run_tool("list", "tree/pipe")
        self.assertEqual((alone.status, alone.out), (2, b""))

    def test_exclude_leaves_its_operands_alone(self):
        self.write("tree/a.c")
        self.write("tree/a.o")
        done = self.run_tool("list", "-r", "--exclude", "*.o", "tree")
        self.assertEqual((done.status, names_in(done)), (0, ["tree/a.c"]))

    def test_exclude_matches_the_whole_name_and_slashes(self):
        self.write("tree/a.o")
        self.write("tree/sub/b.o")
        self.write("tree/.hidden")
        self.write("tree/o")
        cases = {"*.o": ["tree/.hidden", "tree/o"],
                 "tree/*.o": ["tree/.hidden", "tree/o"],
                 "*.hidden": ["tree/a.o", "tree/o", "tree/sub/b.o"],
                 "o": ["tree/.hidden", "tree/a.o", "tree/o", "tree/sub/b.o"],
                 "?ree/o": ["tree/.hidden", "tree/a.o", "tree/sub/b.o"],
                 "tree/[ab].o": ["tree/.hidden", "tree/o", "tree/sub/b.o"],
                 "": ["tree/.hidden", "tree/a.o", "tree/o", "tree/sub/b.o"]}
        for glob, left in cases.items():
            for words in (["--exclude", glob], ["--exclude=" + glob]):
                with self.subTest(words=words):
                    done = self.run_tool("list", "-r", *words, "tree")
                    self.assertEqual((done.status, names_in(done)), (0, left))

    def test_a_glob_in_brackets_is_one_glob(self):
        self.write("a")
        self.write("b")
        self.write(",")
        self.assertEqual(names_in(self.run_tool("list", "--exclude", "[a,]", "a", "b", ",")), ["b"])

    def test_several_excludes(self):
        for name in ("a", "b", "c"):
            self.write(name)
        done = self.run_tool("list", "--exclude", "a", "--exclude", "b", "a", "b", "c")
        self.assertEqual(names_in(done), ["c"])

    def test_excluded_directories_are_not_entered(self):
        self.write("tree/secret/f")
        self.write("tree/f")
        os.chmod("tree/secret", 0)  # entering would be an error
        os.chmod("tree", 0o755)
        done = self.run_unprivileged("list", "-r", "--exclude", "tree/secret", "tree")
        self.assertEqual((done.status, names_in(done), done.err), (0, ["tree/f"], b""))


class FilesFrom(ToolTest):
    def test_one_path_a_line_from_a_file_or_standard_input(self):
        self.write("a b")
        self.write("c\r")
        self.write("from", b"a b\n\nc\r")  # empty lines mean nothing, nothing is trimmed
        for words, stdin in ((["from"], b""), (["-"], b"a b\nc\r\n")):
            done = self.run_tool("list", "--files-from", *words, stdin=stdin)
            self.assertEqual((done.status, done.out.count(b"\n")), (0, 2))
            self.assertTrue(done.out.startswith(b"a b="))
            self.assertIn(b"\nc\r=", done.out)

    def test_paths_that_end_with_zero_bytes(self):
        self.write("a")
        self.write("b")
        for words in (["-0"], ["--null"]):
            done = self.run_tool("list", *words, "--files-from", "-", stdin=b"a\0b\0")
            self.assertEqual(names_in(done), ["a", "b"])
        done = self.run_tool("list", "-0", "--files-from", "-", stdin=b"a\0b")
        self.assertEqual(names_in(done), ["a", "b"])

    def test_a_path_with_a_line_break_is_one_path_and_refused(self):
        self.write("a\nb")
        done = self.run_tool("list", "-0", "--files-from", "-", stdin=b"a\nb\0")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertIn("a name with a line break", done.complaint)

    def test_paths_come_behind_those_of_the_command_line_and_may_be_directories(self):
        self.write("a")
        self.write("d/b")
        done = self.run_tool("list", "-r", "--files-from", "-", "a", stdin=b"d\n")
        self.assertEqual(names_in(done), ["a", "d/b"])
        done = self.run_tool("list", "--files-from", "-", "a", stdin=b"d\n")
        self.assertEqual((done.status, done.out), (2, b""))

    def test_a_list_that_is_no_list_of_paths_is_status_2(self):
        self.write("a")
        self.assert_refused(self.run_tool("list", "--files-from", "-", stdin=b"a\nx\0y\n"), "line 2")
        self.assert_refused(self.run_tool("list", "--files-from", "-", stdin=b"a\n" + b"x" * 5000),
                            "line 2")
        self.assert_refused(self.run_tool("list", "--files-from", "missing", "a"), "missing: No such")
        self.assert_refused(self.run_tool("list", "--files-from", ".", "a"), ".: Is a directory")
        self.assert_refused(self.run_tool("list", "--files-from", "/proc/self/mem", "a"),
                            "line 1: Input/output error")


class UnsafeNames(ToolTest):
    LONGEST = 4128 - len("=") - len(GOST2012) - 64

    def refused(self, name, *options, say):
        self.write("good")
        done = self.run_tool("list", *options, "good", name)
        self.assertEqual((done.status, done.out), (2, b""), done.complaint)
        self.assertIn("pelorik: list: %s: %s" % (name.replace("\n", "\\n"), say), done.complaint)
        self.assertIn("nothing was written", done.complaint)

    def test_names_that_do_not_read_back_are_refused_by_name(self):
        for name, say in (("a=b", "a name with '='"), ("a\nb", "a name with a line break"),
                          ("[a", "a name that starts with '['")):
            self.write(name)
            self.refused(name, say=say)
            self.refused(name, "--keep-going", say=say)

    def test_every_refused_name_is_told(self):
        self.write("a=")
        self.write("b=")
        done = self.run_tool("list", "a=", "b=")
        self.assertIn("list: a=: ", done.complaint)
        self.assertIn("list: b=: ", done.complaint)

    def test_nothing_is_written_to_the_output_file(self):
        self.write("a=b")
        self.write("out", b"old")
        self.assertEqual(self.run_tool("list", "-o", "out", "a=b").status, 2)
        with open("out", "rb") as out:
            self.assertEqual(out.read(), b"old")

    def test_a_bracket_deeper_in_the_name_is_no_harm(self):
        self.write("[a")
        self.write("d/[a")
        done = self.run_tool("list", "./[a", "d/[a")
        self.assertEqual((done.status, names_in(done)), (0, ["./[a", "d/[a"]))

    def test_an_excluded_name_is_not_refused(self):
        self.write("d/a=b")
        self.write("d/c")
        done = self.run_tool("list", "-r", "--exclude", "*=*", "d")
        self.assertEqual((done.status, names_in(done)), (0, ["d/c"]))

    def long_name(self, length):
        return "./" * ((length - 1) // 2) + "f" * (2 - length % 2)

    def test_the_longest_name_that_a_line_holds_is_listed_and_one_more_is_refused(self):
        self.write("f", b"abc")
        self.write("ff", b"abc")
        longest = self.long_name(self.LONGEST)
        self.assertEqual(len(longest), self.LONGEST)
        done = self.run_tool("list", "-o", "out", longest)
        self.assertEqual(done.status, 0, done.complaint)
        self.assertEqual(os.stat("out").st_size, 4129)
        self.assertEqual(self.run_tool("check", "out").status, 0)
        longer = self.long_name(self.LONGEST + 1)
        self.refused(longer, say="a name of %d characters" % (self.LONGEST + 1))

    def test_shorter_digests_leave_more_room_for_the_name(self):
        self.write("f", b"abc")
        self.write("ff", b"abc")
        longer = self.long_name(self.LONGEST + 1)
        self.assertEqual(self.run_tool("list", "-a", "md5", longer).status, 0)


class Unreadable(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("tree/good", b"abc")
        self.write("tree/secret")
        os.chmod("tree/secret", 0)
        os.chmod("tree", 0o755)

    def test_nothing_is_written_and_status_is_2(self):
        done = self.run_unprivileged("list", "-r", "tree")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertIn("pelorik: list: tree/secret: Permission denied\n", done.complaint)
        self.assertIn("nothing was written", done.complaint)

    def test_keep_going_lists_the_others_and_status_is_1(self):
        done = self.run_unprivileged("list", "-r", "-a", "md5", "--keep-going", "tree")
        self.assertEqual((done.status, done.text), (1, "tree/good=%s%s\n" % (MD5, md5(b"abc"))))
        self.assertEqual(done.complaint, "pelorik: list: tree/secret: Permission denied\n")

    def test_every_unreadable_file_is_told(self):
        self.write("tree/secret2")
        os.chmod("tree/secret2", 0)
        done = self.run_unprivileged("list", "-r", "tree")
        self.assertIn("tree/secret: Permission denied", done.complaint)
        self.assertIn("tree/secret2: Permission denied", done.complaint)

    def test_an_unreadable_directory(self):
        self.write("tree/sub/f")
        os.chmod("tree/sub", 0)
        os.chmod("tree/secret", 0o644)
        done = self.run_unprivileged("list", "-r", "tree")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertIn("tree/sub: Permission denied", done.complaint)
        done = self.run_unprivileged("list", "-r", "--keep-going", "tree")
        self.assertEqual((done.status, names_in(done)), (1, ["tree/good", "tree/secret"]))

    def test_a_missing_file_and_a_link_that_leads_nowhere(self):
        os.symlink("nowhere", "tree/broken")
        for words in (["missing"], ["-r", "--exclude", "*/secret", "tree"]):
            done = self.run_tool("list", *words)
            self.assertEqual((done.status, done.out), (2, b""))
            self.assertIn("No such file or directory", done.complaint)
        done = self.run_tool("list", "--keep-going", "missing", "tree/good")
        self.assertEqual((done.status, names_in(done)), (1, ["tree/good"]))

    def test_nothing_readable_at_all_is_status_2_even_when_going_on(self):
        done = self.run_unprivileged("list", "--keep-going", "tree/secret")
        self.assertEqual((done.status, done.out), (2, b""))

    def test_files_whose_size_is_not_what_they_give_cannot_be_listed(self):
        done = self.run_tool("list", "/proc/version")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertIn("/proc/version: size mismatch: stat reports 0 bytes, read returned ", done.complaint)


class Output(ToolTest):
    def content(self, name="out"):
        with open(name, encoding="ascii") as file:
            return file.read()

    def test_o_writes_what_standard_output_would_get(self):
        self.write("f", b"abc")
        done = self.run_tool("list", "-o", "out", "f")
        self.assertEqual((done.status, done.out, done.err), (0, b"", b""))
        self.assertEqual(self.content(), self.run_tool("list", "f").text)
        self.assertEqual(sorted(os.listdir()), ["f", "out"])

    def test_o_dash_is_standard_output(self):
        self.write("f", b"abc")
        done = self.run_tool("list", "-o", "-", "f")
        self.assertEqual(names_in(done), ["f"])
        self.assertEqual(os.listdir(), ["f"])

    def test_the_output_is_replaced_as_a_whole_by_renaming(self):
        self.write("f", b"abc")
        self.write("out", b"old" * 1000)
        os.link("out", "old")
        inode = os.stat("out").st_ino
        self.assertEqual(self.run_tool("list", "-o", "out", "f").status, 0)
        self.assertNotEqual(os.stat("out").st_ino, inode)
        self.assertEqual(self.content("old"), "old" * 1000)

    def test_a_new_output_has_the_permissions_of_any_new_file(self):
        self.write("f")
        self.run_tool("list", "-o", "out", "f", preexec_fn=lambda: os.umask(0o027))
        self.assertEqual(stat.S_IMODE(os.stat("out").st_mode), 0o640)

    def test_a_replaced_output_keeps_permissions_and_owner(self):
        self.write("f")
        self.write("out")
        os.chmod("out", 0o604)
        if os.getuid() == 0:
            os.chown("out", 12, 34)
        self.assertEqual(self.run_tool("list", "-o", "out", "f").status, 0)
        now = os.stat("out")
        self.assertEqual(stat.S_IMODE(now.st_mode), 0o604)
        if os.getuid() == 0:
            self.assertEqual((now.st_uid, now.st_gid), (12, 34))

    def test_the_output_is_never_listed(self):
        self.write("tree/f")
        os.symlink("out", "tree/link-to-out")
        self.write("tree/out", b"old")
        os.link("tree/out", "tree/same-inode")
        for _ in range(2):
            done = self.run_tool("list", "-r", "-o", "tree/out", "tree", "./tree/out",
                                 os.path.abspath("tree/out"))
            self.assertEqual(done.status, 0, done.complaint)
            # The other name of the old inode keeps its content, so that it is listed.
            names = [line.split("=")[0] for line in self.content("tree/out").splitlines()]
            self.assertEqual(names, ["tree/f", "tree/same-inode"])
            self.assertEqual(self.run_tool("check", "tree/out").status, 0)

    def test_a_new_output_and_its_temporary_file_are_never_listed(self):
        self.write("tree/f")
        self.assertEqual(self.run_tool("list", "-r", "-o", "tree/out", "tree").status, 0)
        self.assertEqual([line.split("=")[0] for line in self.content("tree/out").splitlines()],
                         ["tree/f"])
        self.assertEqual(sorted(os.listdir("tree")), ["f", "out"])

    def test_an_output_that_is_a_link_stays_one(self):
        self.write("f")
        self.write("real/out", b"old")
        os.symlink("real/out", "link")
        self.assertEqual(self.run_tool("list", "-o", "link", "f").status, 0)
        self.assertTrue(os.path.islink("link"))
        self.assertTrue(self.content("real/out").startswith("f=#"))
        self.assertEqual(os.listdir("real"), ["out"])

    def test_an_output_that_cannot_be_written_is_status_2_and_left_alone(self):
        self.write("f")
        os.mkdir("d")
        os.symlink("nowhere/at/all", "broken")
        for out, say in (("d", "Is a directory"), ("missing/out", "No such file"),
                         ("f/out", "Not a directory"), ("", "No such file"), ("broken", "No such file"),
                         ("new/", "No such file")):
            with self.subTest(out=out):
                self.assert_refused(self.run_tool("list", "-o", out, "f"), "%s: %s" % (out, say))
        self.assertEqual(sorted(os.listdir()), ["broken", "d", "f"])

    def test_a_write_protected_output_is_not_replaced(self):
        self.write("f")
        os.mkdir("open")
        os.chmod("open", 0o777)
        self.write("open/out", b"old")
        os.chmod("open/out", 0o444)
        os.mkdir("closed")
        os.chmod("closed", 0o555)
        for out in ("open/out", "closed/new"):
            self.assert_refused(self.run_unprivileged("list", "-o", out, "f"),
                                out + ": Permission denied")
        self.assertEqual(self.content("open/out"), "old")
        self.assertEqual(os.listdir("open"), ["out"])

    def test_devices_and_pipes_are_written_in_place(self):
        self.write("f")
        self.assertEqual(self.run_tool("list", "-o", "/dev/null", "f").status, 0)
        self.assertTrue(stat.S_ISCHR(os.stat("/dev/null").st_mode))
        self.assert_refused(self.run_tool("list", "-o", "/dev/full", "f"),
                            "/dev/full: No space left on device")

    def test_a_link_to_a_pipe_is_written_in_place(self):
        self.write("f")
        for out in ("/dev/stdout", "/dev/fd/1"):
            self.assertEqual(names_in(self.run_tool("list", "-o", out, "f")), ["f"])

    def test_a_file_that_standard_output_goes_to_is_not_listed(self):
        self.write("tree/f")
        os.symlink("out", "tree/link-to-out")
        with open("tree/out", "wb") as out:
            subprocess.run([TOOL, "list", "-r", "tree"], stdout=out, check=True)
        self.assertEqual([line.split("=")[0] for line in self.content("tree/out").splitlines()],
                         ["tree/f"])
        self.assertEqual(self.run_tool("check", "tree/out").status, 0)

    def test_a_write_error_leaves_the_old_output_and_no_temporary_file(self):
        self.write("f")
        self.write("out", b"old")

        def no_space():  # a write beyond the limit fails
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
            resource.setrlimit(resource.RLIMIT_FSIZE, (10, 10))

        done = self.run_tool("list", "-o", "out", "f", preexec_fn=no_space, restore_signals=False,
                             env=environment(LLVM_PROFILE_FILE="/dev/null"))
        self.assert_refused(done, "out: File too large")
        self.assertEqual(self.content(), "old")
        self.assertEqual(sorted(os.listdir()), ["f", "out"])


class Whole(ToolTest):
    def test_a_list_checks_and_agrees_with_rhash(self):
        if shutil.which("rhash") is None:
            raise unittest.SkipTest("rhash is not installed")
        for i in range(500):
            self.write("tree/%d/%d" % (i % 7, i), bytes(k % 251 for k in range(i * 37)))
        self.assertEqual(self.run_tool("list", "-r", "-o", "out", "tree").status, 0)
        peer = subprocess.run(["rhash", "--gost12-256", "--simple", "-r", "tree"],
                              capture_output=True, check=True)
        expected = sorted("%s=%s%s" % (line.split("  ", 1)[1], GOST2012, line.split("  ", 1)[0])
                          for line in peer.stdout.decode().splitlines())
        with open("out", encoding="ascii") as out:
            self.assertEqual(sorted(out.read().splitlines()), expected)
        self.assertEqual(len(expected), 500)

    def test_deep_trees_need_no_stack(self):
        # As deep as paths can be.
        deep = "t"
        os.mkdir(deep)
        while len(deep) < 4000:
            deep += "/d"
            os.mkdir(deep)
        self.write(deep + "/f")
        done = self.run_tool("list", "-r", "t")
        self.assertEqual((done.status, names_in(done)), (0, [deep + "/f"]))

    def test_what_cannot_be_named_is_an_error(self):
        # Beyond the longest path: reachable only step by step.
        os.mkdir("t")
        os.chdir("t")
        for _ in range(30):
            os.mkdir("d" * 200)
            os.chdir("d" * 200)
        os.chdir(self.dir)
        done = self.run_tool("list", "-r", "t")
        self.assertEqual((done.status, done.out), (2, b""))
        self.assertIn("File name too long", done.complaint)


if __name__ == "__main__":
    sys.exit(unittest.main())
