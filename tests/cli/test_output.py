"""Files that the tool replaces: what another user, or another process, may do to them meanwhile.

Some tests put another file in the place of one at every moment at which the tool makes a call with
its name.
"""

import fcntl
import os
import signal
import stat
import struct
import subprocess
import sys
import time
import unittest

from tool import (MD5, NOBODY, TOOL, ToolTest, await_open, ended_by, environment, md5,
                  replacing_commands)

SWAPPING = os.environ["PELORIK_SWAPPING"]
SOMEBODY = 12345
LIST = "f=%s%s\n" % (MD5, md5(b"abc"))
OLD_LIST = "f=%s%s\n" % (MD5, md5(b"old"))
XML = "<a>text</a>"
MOMENTS = 100  # more than there are


def content(name):
    with open(name, "rb") as file:
        return file.read().decode()


class OutputTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("f", b"abc")

    def need_root(self):
        if os.getuid() != 0:
            self.skipTest("needs root")

    def assert_no_temporary_file(self, folder="."):
        self.assertEqual([name for name in os.listdir(folder) if name.startswith(".pelorik")], [])


class Sticky(OutputTest):
    """A directory such as /tmp: anybody may put files there, and nobody may remove those of others."""

    def setUp(self):
        super().setUp()
        self.need_root()
        os.mkdir("s")
        os.chmod("s", 0o1777)

    def assert_distrusted(self, words):
        self.assert_refused(self.run_tool(*words), "s/out: owned by another user in a sticky directory")

    def test_a_link_of_another_user_is_not_followed(self):
        os.symlink("../victim", "s/out")
        os.lchown("s/out", NOBODY, NOBODY)
        for words, before in replacing_commands("s/out"):
            self.write("victim", before)
            self.assert_distrusted(words)
            self.assertEqual(content("victim"), before)
            self.assertTrue(os.path.islink("s/out"))
        os.remove("victim")
        self.assert_distrusted(["list", "-o", "s/out", "f"])
        self.assertFalse(os.path.exists("victim"))

    def test_a_link_of_another_user_to_a_directory_is_not_followed(self):
        os.mkdir("private")
        os.symlink("../private", "s/sub")
        os.lchown("s/sub", NOBODY, NOBODY)
        self.assert_refused(self.run_tool("list", "-o", "s/sub/out", "f"),
                            "s/sub/out: owned by another user in a sticky directory")
        self.assertEqual(os.listdir("private"), [])

    def test_a_fifo_of_another_user_is_not_waited_for(self):
        os.mkfifo("s/out")
        os.chown("s/out", NOBODY, NOBODY)
        self.assert_distrusted(["list", "-o", "s/out", "f"])

    def test_a_file_of_another_user_is_not_replaced(self):
        for words, before in replacing_commands("s/out"):
            self.write("s/out", before)
            os.chown("s/out", NOBODY, NOBODY)
            self.assert_distrusted(words)
            self.assertEqual((content("s/out"), os.stat("s/out").st_uid), (before, NOBODY))

    def test_nor_where_only_a_group_may_write(self):
        os.chmod("s", 0o1775)
        self.write("s/out", "old")
        os.chown("s/out", NOBODY, NOBODY)
        self.assert_distrusted(["list", "-o", "s/out", "f"])

    def test_files_of_the_user_and_of_the_owner_of_the_directory_are_replaced(self):
        os.symlink("real", "s/out")
        for owner in (0, NOBODY):
            os.chown("s", owner, owner)
            for words, before in replacing_commands("s/out"):
                self.write("s/real", before)
                for name in ("s/real", "s/out"):
                    os.lchown(name, owner, owner)
                done = self.run_tool(*words)
                self.assertEqual(done.status, 0, done.complaint)
                self.assertNotEqual(content("s/real"), before)
                self.assertEqual(os.stat("s/real").st_uid, owner)
                self.assertTrue(os.path.islink("s/out"))
            os.lchown("s/real", SOMEBODY, SOMEBODY)
            self.assertEqual(self.run_tool("list", "-o", "s/out", "f").status, 2)

    def test_elsewhere_links_and_owners_are_kept(self):
        os.mkdir("d")
        os.chown("d", NOBODY, NOBODY)
        os.symlink("../real", "d/out")
        os.lchown("d/out", NOBODY, NOBODY)
        for words, before in replacing_commands("d/out"):
            self.write("real", before)
            os.chown("real", SOMEBODY, SOMEBODY)
            self.assertEqual(self.run_tool(*words).status, 0)
            self.assertNotEqual(content("real"), before)
            self.assertEqual(os.stat("real").st_uid, SOMEBODY)


class Swapped(OutputTest):
    """Another file in the place of one, at every moment."""

    def run_swapping(self, number, source, target, *words):
        """Returns the outcome, and whether the run came to that moment."""
        before = os.lstat(source).st_ino
        changes = {"LD_PRELOAD": SWAPPING, "PELORIK_SWAP": "%d %s %s" % (number, source, target),
                   "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"}
        done = self.run_tool(*words, env=environment(**changes))
        try:
            return done, os.lstat(source).st_ino != before
        except FileNotFoundError:
            return done, True

    def swap_at_every_moment(self, prepare, source, target, words, judge):
        for number in range(1, MOMENTS):
            prepare()
            done, swapped = self.run_swapping(number, source, target, *words)
            with self.subTest(words=words, moment=number):
                self.assertIn(done.status, (0, 1, 2), done.complaint)
                judge(done, swapped)
            if not swapped:
                self.assertGreater(number, 1)
                return
        self.fail("more moments than expected")

    def remove(self, *names):
        for name in names:
            if os.path.lexists(name):
                subprocess.run(["rm", "-r", name], check=True)

    def test_a_link_of_another_user_is_never_followed(self):
        self.need_root()
        os.mkdir("s")
        os.chmod("s", 0o1777)
        for exists in (True, False):
            for words, before in replacing_commands("s/out"):
                if not exists and words[0] != "list":
                    continue

                def prepare():
                    self.remove("s/out", "s/evil")
                    self.write("victim", before)
                    if exists:
                        self.write("s/out", before)
                    os.symlink("../victim", "s/evil")
                    os.lchown("s/evil", NOBODY, NOBODY)

                def judge(_, __):
                    self.assertEqual(content("victim"), before)
                    self.assert_no_temporary_file("s")

                self.swap_at_every_moment(prepare, "s/evil", "s/out", words, judge)

    def test_a_directory_that_becomes_a_link_of_another_user_leads_nowhere_else(self):
        self.need_root()
        os.mkdir("s")
        os.chmod("s", 0o1777)
        for words, before in replacing_commands("s/d/out"):
            def prepare():
                self.remove("s/d", "s/evil", "private")
                self.write("s/d/out", before)
                self.write("private/out", before)
                os.symlink("../private", "s/evil")
                os.lchown("s/evil", NOBODY, NOBODY)

            def judge(_, __):
                self.assertEqual(os.listdir("private"), ["out"])
                self.assertEqual(content("private/out"), before)

            self.swap_at_every_moment(prepare, "s/evil", "s/d", words, judge)

    def test_a_file_that_takes_the_place_of_a_fifo_is_not_overwritten_in_place(self):
        old = "old " * 1000

        def prepare():
            self.remove("out", "other")
            os.mkfifo("out")
            self.write("other", old)
            self.addCleanup(os.close, os.open("out", os.O_RDONLY | os.O_NONBLOCK))

        def judge(done, swapped):
            if swapped:
                self.assertIn(content("out"), (old, LIST) if done.status == 0 else (old,))

        self.swap_at_every_moment(prepare, "other", "out", ["list", "-a", "md5", "-o", "out", "f"], judge)

    def test_a_fifo_that_takes_the_place_of_a_file_is_not_waited_for(self):
        for words, before in replacing_commands("out"):
            def prepare():
                self.remove("out", "other")
                self.write("out", before)
                os.mkfifo("other")
                # For a list that finds it from the beginning, and writes to it.
                self.addCleanup(os.close, os.open("other", os.O_RDONLY | os.O_NONBLOCK))

            self.swap_at_every_moment(prepare, "other", "out", words, lambda *_: None)

    def test_a_checkpoint_of_another_user_is_never_believed(self):
        self.need_root()
        true = os.path.realpath("/bin/true")
        with open(true, "rb") as file:
            real = "%s=%s%s\n" % (true, MD5, md5(file.read()))
        status = os.stat(true)
        header = "pelorik: an interrupted list, which pelorik list --resume goes on from\n"
        times = ["%d.%d" % divmod(time, 10**9) for time in (status.st_mtime_ns, status.st_ctime_ns)]
        entry = "%d:%d:%d:%s:%s %s=%s" % (status.st_dev, status.st_ino, status.st_size, *times, true, MD5)
        os.mkdir("s")

        def prepare():
            self.remove("s/out", "s/out.partial", "s/evil")
            self.write("s/evil", header + entry + "0" * 32 + "\n")
            os.chown("s/evil", NOBODY, NOBODY)
            self.write("s/out.partial", header + entry + md5(b"") + "\n")
            os.chmod("s/out.partial", 0o600)

        words = ["list", "-a", "md5", "--resume", "-o", "s/out", true]
        prepare()
        self.assertEqual(self.run_tool(*words).status, 0)
        self.assertIn(md5(b""), content("s/out"))  # entries of this form count

        def judge(done, _):
            if done.status == 0:
                self.assertIn(content("s/out"), (real, real.replace(real[-33:-1], md5(b""))))

        self.swap_at_every_moment(prepare, "s/evil", "s/out.partial", words, judge)

    def test_an_edit_is_never_lost(self):
        edited = {OLD_LIST: OLD_LIST + "[edited]\n", XML: "<a>edited</a>"}
        for words, before in replacing_commands("out")[1:]:
            def prepare():
                self.remove("out", "other")
                self.write("out", before)
                self.write("other", edited[before])

            def judge(done, swapped):
                self.assert_no_temporary_file()
                if swapped:
                    self.assertIn("edited", content("out"))
                if done.status != 0:
                    self.assertEqual(content("out"), edited[before])

            self.swap_at_every_moment(prepare, "other", "out", words, judge)

    def test_a_new_file_of_another_process_is_never_lost(self):
        refused = []

        def prepare():
            self.remove("out", "other")
            self.write("other", "other")

        def judge(done, _):
            if done.status != 0:
                refused.append(done.complaint)
                self.assertEqual(content("out"), "other")

        self.swap_at_every_moment(prepare, "other", "out", ["list", "-o", "out", "f"], judge)
        self.assertTrue(refused)
        for complaint in refused:
            self.assertIn("out: changed by another process", complaint)


class Changed(OutputTest):
    """Changes of the file itself, between its reading and its replacement."""

    def start_update(self):
        with open("huge", "wb") as huge:
            huge.truncate(1 << 28)
        self.write("list", OLD_LIST + "huge=%s%s\n" % (MD5, "0" * 32))
        child = subprocess.Popen([TOOL, "update", "list"], stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE, env=environment())
        await_open(child.pid, "huge")
        return child

    def test_it_is_not_replaced_then(self):
        def append():
            with open("list", "a", encoding="ascii") as file:
                file.write("[added]\n")

        def overwrite():
            before = os.stat("list")
            with open("list", "r+", encoding="ascii") as file:
                file.write("g")
            os.utime("list", ns=(before.st_atime_ns, before.st_mtime_ns))

        for change in (append, overwrite, lambda: os.chmod("list", 0o600),
                       lambda: os.remove("list"), lambda: (os.remove("list"), os.mkdir("list"))):
            child = self.start_update()
            child.send_signal(signal.SIGSTOP)
            change()
            after = os.path.isfile("list") and content("list")
            child.send_signal(signal.SIGCONT)
            self.assertRegex(child.communicate()[1].decode(), "list: changed by another process")
            self.assertEqual(child.returncode, 2)
            self.assertEqual(os.path.isfile("list") and content("list"), after)
            self.assert_no_temporary_file()
            subprocess.run(["rm", "-rf", "list"], check=True)

    def test_an_output_that_is_not_read_only_has_to_be_the_same_file(self):
        with open("huge", "wb") as huge:
            huge.truncate(1 << 28)
        for change, status in ((lambda: os.chmod("out", 0o640), 0), (lambda: self.write("out", "edit"), 0),
                               (lambda: (os.remove("out"), self.write("out", "other")), 2)):
            self.write("out", "old")
            child = subprocess.Popen([TOOL, "list", "-a", "md5", "-o", "out", "huge"],
                                     stderr=subprocess.PIPE, env=environment())
            await_open(child.pid, "huge")
            child.send_signal(signal.SIGSTOP)
            change()
            mode = os.stat("out").st_mode
            child.send_signal(signal.SIGCONT)
            complaint = child.communicate()[1].decode()
            self.assertEqual(child.returncode, status, complaint)
            if status == 0:
                self.assertTrue(content("out").startswith("huge="))
                self.assertEqual(os.stat("out").st_mode, mode)
            else:
                self.assertIn("out: changed by another process", complaint)
                self.assertEqual(content("out"), "other")


class Locked(OutputTest):
    def test_of_concurrent_updates_no_entry_is_lost(self):
        self.write("list", LIST)
        for i in range(10):
            for j in range(20):
                self.write("t%d/%d" % (i, j), b"%d" % j)
        updates = [subprocess.Popen([TOOL, "update", "--quiet", "-a", "md5", "-r", "list", "t%d" % i],
                                    stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,
                                    env=environment()) for i in range(10)]
        succeeded = []
        for i, update in enumerate(updates):
            complaint = update.communicate()[1].decode()
            if update.returncode == 0:
                succeeded.append(i)
            else:
                self.assertIn("list: locked by another process", complaint)
        self.assertTrue(succeeded)
        listed = {line.split("=")[0] for line in content("list").splitlines()}
        self.assertEqual(listed, {"f"} | {"t%d/%d" % (i, j) for i in succeeded for j in range(20)})

    def test_a_file_that_stays_locked_is_status_2(self):
        waiting = []
        for number in range(3):
            name = "out%d" % number
            words, before = replacing_commands(name)[number]
            holder = open(self.write(name, before), "rb")
            self.addCleanup(holder.close)
            fcntl.flock(holder, fcntl.LOCK_EX)
            waiting.append((name, before, subprocess.Popen(
                [TOOL, *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment())))
        start = time.monotonic()
        for name, before, child in waiting:
            out, complaint = child.communicate()
            self.assertEqual((child.returncode, out), (2, b""))
            self.assertIn(name + ": locked by another process", complaint.decode())
            self.assertEqual(content(name), before)
        self.assertGreater(time.monotonic() - start, 9)

    def test_waiting_for_a_lock_ends_with_it(self):
        with open(self.write("list", OLD_LIST), "rb") as holder:
            fcntl.flock(holder, fcntl.LOCK_EX)
            child = subprocess.Popen([TOOL, "update", "list"], stdout=subprocess.PIPE,
                                     stderr=subprocess.PIPE, env=environment())
            await_open(child.pid, "list")
            time.sleep(0.1)
            self.write("new", OLD_LIST + "[new]\n")
            os.rename("new", "list")  # what another update does
        self.assertEqual(child.communicate()[0], b"changed     f\n")
        self.assertEqual((child.returncode, content("list")), (0, LIST + "[new]\n"))

    def test_a_signal_ends_the_waiting(self):
        with open(self.write("list", OLD_LIST), "rb") as holder:
            fcntl.flock(holder, fcntl.LOCK_EX)
            for number in (signal.SIGINT, signal.SIGTERM):
                child = subprocess.Popen([TOOL, "update", "list"], stdout=subprocess.PIPE,
                                         stderr=subprocess.PIPE, env=environment())
                await_open(child.pid, "list")
                child.send_signal(number)
                self.assertEqual(child.communicate(), (b"", b"pelorik: update: interrupted\n"))
                self.assertEqual(child.returncode, ended_by(number))

    def test_showing_what_an_update_would_do_needs_no_lock(self):
        with open(self.write("list", OLD_LIST), "rb") as holder:
            fcntl.flock(holder, fcntl.LOCK_EX)
            self.assertEqual(self.run_tool("update", "--dry-run", "list").status, 0)


if __name__ == "__main__":
    sys.exit(unittest.main())
