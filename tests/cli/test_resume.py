"""pelorik list: what an interrupted run leaves, and how --resume goes on from it.

That a file is not hashed again shows by a digest in OUT.partial that is not its own. Files that have
just been made are hashed again in any case, so that files of the system stand for older ones.
"""

import os
import re
import resource
import signal
import stat
import subprocess
import sys
import time
import unittest

from tool import (GOST2012, MD5, TERMINATING, TOOL, Terminal, ToolTest, await_open, await_that, ended_by, environment, gost2012, md5)

HUGE = 1 << 42  # bytes of a file without content: enough to be at it until the test ends it
OLD = os.path.realpath("/bin/true")
FAKE = "0" * 32


def content(name):
    with open(name, "rb") as file:
        return file.read()


class ResumeTest(ToolTest):
    def setUp(self):
        super().setUp()
        with open("huge", "wb") as huge:
            huge.truncate(HUGE)

    def start(self, *words):
        return subprocess.Popen([TOOL, "list", "-a", "md5", *words], env=environment(),
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def interrupt(self, *words, by=signal.SIGINT):
        """Stops a list of `words` and the huge file while it is at the latter."""
        child = self.start("-j1", *words, "huge")  # the files before the huge one are done then
        await_open(child.pid, "huge")
        child.send_signal(by)
        out, err = child.communicate()
        self.assertEqual(out, b"")
        return child.returncode, err.decode()

    def resume(self, *words):
        return self.run_tool("list", "-a", "md5", "--resume", "-o", "out", *words)

    def fake(self, name=OLD):
        """Puts another digest into the partial list."""
        before = content("out.partial")
        after = re.sub(rb" %s=#MD5:[0-9a-f]{32}\n" % name.encode(),
                       b" %s=#MD5:%s\n" % (name.encode(), FAKE.encode()), before)
        self.assertNotEqual(after, before)
        self.write("out.partial", after)

    def listed(self):
        return content("out").decode()

    def real(self, name):
        return "%s=%s%s\n" % (name, MD5, md5(content(name)))


class Interrupted(ResumeTest):
    def test_a_partial_list_is_left_and_the_output_is_as_it_was(self):
        self.write("out", b"old")
        status, err = self.interrupt("-o", "out", OLD)
        self.assertEqual((status, err), (130, "pelorik: list: interrupted: 1 of 2 files hashed, "
                                              "--resume goes on from out.partial\n"))
        self.assertEqual(sorted(os.listdir()), ["huge", "out", "out.partial"])
        self.assertEqual(content("out"), b"old")
        self.assertEqual(stat.S_IMODE(os.stat("out.partial").st_mode), 0o600)

    def test_without_an_old_output_there_is_none_either(self):
        self.interrupt("-o", "out", OLD)
        self.assertEqual(sorted(os.listdir()), ["huge", "out.partial"])

    def test_by_every_other_signal_too_which_ends_the_tool_as_ever(self):
        for number in TERMINATING:
            status, err = self.interrupt("-o", "out", OLD, by=number)
            self.assertEqual(status, ended_by(number))
            self.assertIn("--resume goes on from out.partial", err)
            self.assertIn(OLD.encode(), content("out.partial"))
            os.remove("out.partial")

    def test_a_kill_leaves_what_was_saved_before_a_large_file(self):
        child = self.start("-o", "out", OLD, "huge")
        await_that(lambda: os.path.exists("out.partial") and OLD.encode() in content("out.partial"))
        child.kill()
        self.assertEqual(child.communicate(), (b"", b""))
        self.assertEqual(sorted(os.listdir()), ["huge", "out.partial"])
        self.fake()
        self.assertEqual(self.resume(OLD).status, 0)
        self.assertEqual(self.listed(), "%s=%s%s\n" % (OLD, MD5, FAKE))

    def test_before_the_first_file_is_hashed_there_is_nothing_to_leave(self):
        status, err = self.interrupt("-o", "out")
        self.assertEqual((status, err), (130, "pelorik: list: interrupted: 0 of 1 files hashed, nothing "
                                              "was written\n"))
        self.assertEqual(os.listdir(), ["huge"])

    def test_a_partial_list_is_no_hash_list(self):
        self.interrupt("-o", "out", OLD)
        for command in (["check"], ["update"], ["compare", "out.partial"]):
            done = self.run_tool(*command, "out.partial")
            self.assert_refused(done, "out.partial: line 1: has no '='")

    def test_beside_the_file_that_a_link_leads_to(self):
        os.mkdir("d")
        os.symlink("d/real", "link")
        self.write("d/real", b"old")
        _, err = self.interrupt("-o", "link", OLD)
        self.assertIn(os.path.abspath("d/real.partial"), err)
        done = self.run_tool("list", "--resume", "-o", "link", OLD)
        self.assertEqual((done.status, os.listdir("d")), (0, ["real"]))

    def test_where_it_cannot_be_saved_that_is_told(self):
        def no_space():  # a write beyond the limit fails
            signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
            resource.setrlimit(resource.RLIMIT_FSIZE, (10, 10))

        child = subprocess.Popen([TOOL, "list", "-o", "out", OLD, "huge"], stderr=subprocess.PIPE,
                                 env=environment(), preexec_fn=no_space, restore_signals=False)
        await_open(child.pid, "huge")
        child.send_signal(signal.SIGINT)
        self.assertEqual(child.communicate()[1].decode(),
                         "pelorik: list: interrupted: 1 of 2 files hashed, nothing was written, as "
                         "out.partial could not be: File too large\n")
        self.assertEqual((child.returncode, os.listdir()), (130, ["huge"]))


class Resumed(ResumeTest):
    def test_what_was_hashed_before_is_not_hashed_again(self):
        self.interrupt("-o", "out", OLD)
        self.fake()
        self.write("new", b"1")
        done = self.resume(OLD, "new")
        self.assertEqual((done.status, done.out, done.complaint),
                         (0, b"", "pelorik: list: resumed: 1 of 2 files were hashed before\n"))
        self.assertEqual(self.listed(), "%s=%s%s\n" % (OLD, MD5, FAKE) + self.real("new"))
        self.assertEqual(sorted(os.listdir()), ["huge", "new", "out"])

    def test_the_list_is_what_a_run_at_one_go_writes(self):
        names = [os.path.join("/usr/bin", name) for name in sorted(os.listdir("/usr/bin"))[:40]]
        names = [name for name in names if os.path.isfile(name)]
        self.interrupt("-o", "out", *names)
        self.assertEqual(self.resume(*names).status, 0)
        self.assertEqual(self.listed(), self.run_tool("list", "-a", "md5", *names).text)

    def test_what_is_newer_is_hashed_again(self):
        names = ["content", "times", "replaced", "same"]
        for name in names:
            self.write(name, b"old")
        time.sleep(4)  # files that were made within the last seconds are not relied on
        self.interrupt("-o", "out", *names)
        for name in names:
            self.fake(name)
        before = os.stat("content")
        self.write("content", b"new")
        os.utime("content", ns=(before.st_atime_ns, before.st_mtime_ns))  # pretends to be old
        os.utime("times", (1 << 33, 1 << 33))
        self.write("other", b"other")
        os.rename("other", "replaced")
        self.resume(*names)
        self.assertEqual(self.listed(), "".join(map(self.real, names[:3])) + "same=%s%s\n" % (MD5, FAKE))

    def test_files_that_have_just_been_made_are_hashed_again(self):
        # Within one tick of the file system's clock they can change without getting newer.
        self.write("new", b"1")
        self.interrupt("-o", "out", "new")
        self.assertNotIn(b"new=", content("out.partial"))
        self.write("new", b"2")
        self.assertEqual(self.resume("new").status, 0)
        self.assertEqual(self.listed(), self.real("new"))

    def test_a_name_that_leads_to_another_file_now_is_hashed_again(self):
        os.mkdir("a")
        os.mkdir("b")
        os.symlink(OLD, "a/f")
        os.symlink(os.path.realpath("/bin/false"), "b/f")
        os.symlink("a", "current")
        self.interrupt("-o", "out", "current/f")
        self.fake("current/f")
        os.remove("current")
        os.symlink("b", "current")
        self.resume("current/f")
        self.assertEqual(self.listed(), self.real("current/f"))

    def test_another_algorithm_hashes_everything(self):
        self.interrupt("-o", "out", OLD)
        done = self.run_tool("list", "--resume", "-o", "out", OLD)
        self.assertEqual(done.complaint, "pelorik: list: resumed: 0 of 1 files were hashed before\n")
        self.assertEqual(self.listed(), "%s=%s%s\n" % (OLD, GOST2012, gost2012(content(OLD))))

    def test_names_that_are_not_listed_any_more_are_left_out(self):
        self.interrupt("-o", "out", OLD)
        self.write("new", b"1")
        self.resume("new")
        self.assertEqual(self.listed(), self.real("new"))

    def test_interrupted_again_and_again(self):
        false = os.path.realpath("/bin/false")
        self.interrupt("-o", "out", OLD)
        self.fake()
        self.interrupt("--resume", "-o", "out", OLD, false)
        self.fake(false)
        status, err = self.interrupt("--resume", "-o", "out", OLD, false)
        self.assertIn("interrupted: 2 of 3 files hashed", err)
        self.assertEqual(self.resume(OLD, false).status, 0)
        self.assertEqual(self.listed(), "%s=%s%s\n%s=%s%s\n" % (OLD, MD5, FAKE, false, MD5, FAKE))

    def test_lines_that_are_not_whole_count_for_nothing(self):
        self.interrupt("-o", "out", OLD)
        self.fake()
        whole = content("out.partial")
        head, line = whole.split(b"\n", 1)
        torn = [whole[:-2], whole[:-20], head + b"\n" + b"\0" * 100 + b"\n", head + b"\n",
                head, b"", head + b"\nrubbish\n=\n \n", whole.replace(FAKE.encode(), b"z" * 32),
                head + b"\n" + b"x" * 100000]
        for text in torn:
            with self.subTest(text=text[-60:]):
                self.write("out.partial", text)
                self.assertEqual(self.resume(OLD).status, 0)
                self.assertEqual(self.listed(), self.real(OLD))
        # What is saved behind a torn line is whole, and read.
        self.write("out.partial", whole[:-20])
        self.interrupt("--resume", "-o", "out", OLD)
        self.fake()
        self.resume(OLD)
        self.assertEqual(self.listed(), "%s=%s%s\n" % (OLD, MD5, FAKE))

    def test_without_anything_to_go_on_from_it_is_an_ordinary_run(self):
        done = self.resume(OLD)
        self.assertEqual((done.status, done.err), (0, b""))
        self.assertEqual(self.listed(), self.real(OLD))

    def test_an_empty_partial_list(self):
        self.write("out.partial")
        self.interrupt("--resume", "-o", "out", OLD)
        self.assertEqual(self.resume(OLD).complaint,
                         "pelorik: list: resumed: 1 of 1 files were hashed before\n")

    def test_the_progress_counts_what_is_taken_over(self):
        self.interrupt("-o", "out", OLD)
        terminal = Terminal("list", "-a", "md5", "--resume", "-o", "out", OLD, "huge")
        terminal.wait_for(re.compile(rb"\r1 of 2 files, "))
        terminal.interrupt()
        self.assertEqual(terminal.finish()[0], 130)


class Afresh(ResumeTest):
    def test_without_resume_a_partial_list_means_nothing_and_is_removed_in_the_end(self):
        self.interrupt("-o", "out", OLD)
        self.fake()
        done = self.run_tool("list", "-a", "md5", "-o", "out", OLD)
        self.assertEqual((done.status, done.err), (0, b""))
        self.assertEqual(self.listed(), self.real(OLD))
        self.assertEqual(sorted(os.listdir()), ["huge", "out"])

    def test_an_interrupted_one_begins_it_anew(self):
        self.interrupt("-o", "out", OLD)
        self.fake()
        self.interrupt("-o", "out", os.path.realpath("/bin/false"))
        self.assertNotIn(OLD.encode() + b"=", content("out.partial"))

    def test_it_is_never_listed(self):
        os.mkdir("t")
        self.write("t/f", b"1")
        self.interrupt("-o", "t/out", OLD)
        for words in ([], ["--resume"]):
            before = content("t/out.partial")
            done = self.run_tool("list", "-r", *words, "-a", "md5", "-o", "t/out", "t")
            self.assertEqual(done.status, 0)
            self.assertEqual(content("t/out").decode(), self.real("t/f"))
            self.write("t/out.partial", before)
        os.remove("t/out.partial")

    def test_resume_needs_an_output(self):
        for words in (["--resume", OLD], ["--resume", "-o", "-", OLD]):
            self.assert_refused(self.run_tool("list", *words), "-o OUT", "pelorik list --help")
        self.assert_refused(self.run_tool("list", "--resume", "-o", "/dev/null", OLD),
                            "/dev/null: is no regular file, so that there is nothing to resume")

    def test_something_else_in_its_place_is_left_alone(self):
        for make, why in ((lambda: self.write("out.partial", b"mine\n"), "no interrupted list"),
                          (lambda: os.symlink("huge", "out.partial"), "no file of yours"),
                          (lambda: os.mkdir("out.partial"), "no file of yours"),
                          (lambda: os.mkfifo("out.partial"), "no file of yours")):
            make()
            for words in ([], ["--resume"]):
                self.assert_refused(self.run_tool("list", *words, "-o", "out", OLD),
                                    "out.partial: is in the way: " + why)
            subprocess.run(["rm", "-r", "out.partial"], check=True)

    def test_one_that_others_may_write_to_is_not_believed(self):
        self.interrupt("-o", "out", OLD)
        for mode in (0o620, 0o602):
            os.chmod("out.partial", mode)
            self.assert_refused(self.resume(OLD), "out.partial: is in the way: no file of yours")

    def test_a_partial_list_of_somebody_else_is_not_believed(self):
        if os.getuid() != 0:
            self.skipTest("needs root")
        self.interrupt("-o", "out", OLD)
        os.chown("out.partial", 65534, 65534)
        self.assert_refused(self.resume(OLD), "out.partial: is in the way: no file of yours")


class Locked(ResumeTest):
    def test_a_second_list_to_the_same_output_is_status_2_and_names_the_lock(self):
        for lock in ("out.partial", "out"):
            first = self.start("-o", "out", "huge")
            await_open(first.pid, "huge")
            second = self.run_tool("list", "-o", "out", OLD)
            self.assert_refused(second, lock + ": locked by another process")
            first.kill()
            first.communicate()
            self.assertFalse(lock == "out.partial" and os.path.exists("out"))
            done = self.run_tool("list", "-o", "out", OLD)  # what the killed one left is no obstacle
            self.assertEqual((done.status, done.err), (0, b""))
            self.assertEqual(sorted(os.listdir()), ["huge", "out"])

    def test_without_anything_saved_no_partial_list_is_left(self):
        self.run_tool("list", "-o", "out", "missing")
        self.assertEqual(os.listdir(), ["huge"])


class Commit(ToolTest):
    """Signals while the whole list is written."""

    def stop_while_writing(self, command):
        """The tool, stopped at a moment when its temporary file is there."""
        while True:
            child = subprocess.Popen(command, env=environment(), stderr=subprocess.PIPE)
            while child.poll() is None:
                if any(name.startswith(".pelorik-") for name in os.listdir("d")):
                    child.send_signal(signal.SIGSTOP)
                    break
            if child.poll() is None:
                os.waitid(os.P_PID, child.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
                if any(name.startswith(".pelorik-") for name in os.listdir("d")):
                    return child
                child.send_signal(signal.SIGCONT)
            child.communicate()

    def test_no_temporary_file_is_left_and_the_list_is_whole(self):
        self.write("f", b"1")
        os.mkdir("d")
        names = "".join("./" * 1990 + "f\n" for _ in range(2000))
        self.write("names", names)
        expected = names.replace("\n", "=%s%s\n" % (MD5, md5(b"1")))
        for number in TERMINATING:
            child = self.stop_while_writing(
                [TOOL, "list", "-a", "md5", "--files-from", "names", "-o", "d/out"])
            for _ in range(2):  # twice, as the second one is not caught
                child.send_signal(number)
            child.send_signal(signal.SIGCONT)
            child.communicate()
            self.assertIn(child.returncode, (0, -number))
            self.assertEqual(os.listdir("d"), ["out"])
            self.assertEqual(content("d/out").decode(), expected)
            os.remove("d/out")


if __name__ == "__main__":
    sys.exit(unittest.main())
