"""pelorik lock between real processes, in a mount namespace whose /var/run is the tests' own."""

import fcntl
import os
import pty
import re
import shutil
import signal
import stat
import subprocess
import sys
import time
import unittest

import namespaces
from tool import NOBODY, TERMINATING, TOOL, Terminal, ToolTest, await_that, environment

DIRECTORY = "/var/run/vpnagent"
FILE = DIRECTORY + "/x"
LEFT_BEHIND = b"pelorik: lock: the file of 'x' was there already, though nobody held it\n"
HELD = b"pelorik: lock: another process holds the lock 'x'\n"


def setUpModule():
    namespaces.enter_own_run_directory()


def shell(script):
    return ["sh", "-c", script]


def child_of(process):
    path = "/proc/%d/task/%d/children" % (process.pid, process.pid)
    with open(path, encoding="ascii") as file:
        return int(file.read())


class LockTest(ToolTest):
    def setUp(self):
        super().setUp()
        os.mkdir(DIRECTORY)
        self.addCleanup(shutil.rmtree, DIRECTORY, ignore_errors=True)

    def lock(self, *command, options=(), **others):
        return self.run_tool("lock", *options, "x", "--", *command, **others)

    def start(self, script, greeting=b"running\n", **others):
        """A tool whose script has printed the greeting, or a line that begins with it."""
        child = subprocess.Popen([TOOL, "lock", "x", "--", *shell(script)],
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 env=environment(), **others)
        self.addCleanup(self.end, child)
        child.greeting = child.stdout.readline()
        self.assertTrue(child.greeting.startswith(greeting))
        return child

    @staticmethod
    def end(child):
        child.stdin.close()
        child.kill()
        child.wait()
        child.stdout.close()

    def start_holder(self):
        return self.start("echo running; read never; echo done")

    @staticmethod
    def let_go(holder):
        holder.stdin.close()
        return holder.wait()

    def need_second_user(self):
        try:
            subprocess.run(["true"], check=True, user=NOBODY)
        except (subprocess.SubprocessError, OSError):
            self.skipTest("needs a second user")

    def assert_ended(self, outcome, status, err=b""):
        self.assertEqual((outcome.status, outcome.err), (status, err))


class Statuses(LockTest):
    def test_a_command_s_own_status_is_passed_on(self):
        for status in (0, 1, 2, 3, 125, 255):
            self.assert_ended(self.lock(*shell("exit %d" % status)), status)

    def test_a_signal_that_ends_the_command_is_128_and_its_number(self):
        for number in (signal.SIGKILL, signal.SIGTERM, signal.SIGINT, signal.SIGUSR1):
            self.assert_ended(self.lock(*shell("kill -%d $$" % number)), 128 + number)

    def test_a_command_that_is_not_there_is_127(self):
        # A directory of PATH that the user cannot search would give EACCES.
        path = environment(PATH="/usr/bin:/bin")
        for command in ("./missing", "no-such-command-anywhere"):
            self.assert_ended(self.lock(command, env=path), 127, b"pelorik: lock: %s: No such file or "
                              b"directory\n" % command.encode())
        self.assertFalse(os.path.exists(FILE))

    def test_a_command_that_cannot_be_run_is_126(self):
        self.write("plain", "text")
        for command in ("./plain", "/"):
            self.assert_ended(self.lock(command), 126, b"pelorik: lock: %s: Permission denied\n"
                              % command.encode())
        self.assertFalse(os.path.exists(FILE))

    def test_a_lock_that_another_holds_is_1(self):
        self.start_holder()
        self.assert_ended(self.lock("touch", "ran"), 1, HELD)
        self.assertFalse(os.path.exists("ran"))
        self.assertTrue(os.path.exists(FILE))

    def test_a_directory_that_is_missing_is_2(self):
        os.rmdir(DIRECTORY)
        self.assert_refused(self.lock("touch", "ran"), "cannot lock 'x'",
                            "/run/vpnagent is missing")
        self.assertFalse(os.path.exists("ran"))

    def test_a_name_that_the_file_system_cannot_have_is_2(self):
        os.mkdir(FILE)
        self.assert_refused(self.lock("true"), "cannot lock 'x': Is a directory")
        self.assert_refused(self.run_tool("lock", "n" * 256, "--", "true"), "File name too long")

    def test_a_user_who_may_not_write_there_gets_2(self):
        self.need_second_user()
        self.assert_refused(self.run_unprivileged("lock", "x", "--", "true"),
                            "cannot lock 'x': Permission denied")


class Usage(LockTest):
    def test_help_names_every_option_and_exit_status(self):
        text = self.run_tool("lock", "--help").text
        self.assertIn("--wait SECONDS", text)
        self.assertIn("NAME -- COMMAND [ARG]...", text)
        self.assertEqual(re.findall(r"^  (\d+) ", text, re.M), ["0", "1", "2", "126", "127", "130"])

    def test_unsafe_names_are_refused(self):
        victim = self.write(os.path.join(self.dir, "victim"), "text")
        for name in ("", ".", "..", "/", "a/b", "../x", victim):
            with self.subTest(name=name):
                done = self.run_tool("lock", name, "--", "touch", "ran")
                self.assert_refused(done, "'%s'" % name, "(try: pelorik lock --help)")
        self.assertFalse(os.path.exists("ran"))
        with open(victim, encoding="ascii") as file:
            self.assertEqual(file.read(), "text")
        self.assertEqual(os.listdir(DIRECTORY), [])

    def test_words_that_make_no_sense(self):
        for words in ([], ["x"], ["x", "--"], ["--", "true"], ["x", "y", "--", "true"],
                      ["x", "true"], ["--frobnicate", "x", "--", "true"],
                      ["--wait", "x", "--", "true"],
                      ["--wait", "1", "--wait", "2", "x", "--", "true"]):
            with self.subTest(words=words):
                self.assert_refused(self.run_tool("lock", *words), "(try: pelorik lock --help)")

    def test_a_wait_that_is_no_number_of_seconds(self):
        for seconds in ("", "x", "1x", " 1", "nan", "inf", "-1", "1e3", "0x1", "1" + "0" * 20):
            with self.subTest(seconds=seconds):
                self.assert_refused(self.run_tool("lock", "--wait=" + seconds, "x", "--", "true"),
                                    "--wait", "(try: pelorik lock --help)")

    def test_the_command_keeps_its_own_words(self):
        done = self.lock("printf", "%s|", "--help", "--", "-x", "", "a b", "--wait")
        self.assertEqual((done.status, done.text), (0, "--help|--|-x||a b|--wait|"))

    def test_names_may_be_strange_otherwise(self):
        for name in ("...", "-", "a b", "\u00e4", "a\nb", "[x]", "[x,y]"):
            with self.subTest(name=name):
                self.assert_ended(self.run_tool("lock", name, "--", "test", "-f",
                                                DIRECTORY + "/" + name), 0)

    def test_names_are_printed_safely_on_a_terminal(self):
        status, seen, _ = Terminal("lock", "a/\033[2J", "--", "true").finish()
        self.assertEqual(status, 2)
        self.assertIn(b"'a/\\x1b[2J'", seen)


class Holding(LockTest):
    def test_the_file_is_there_while_the_command_runs_and_gone_after(self):
        done = self.lock("stat", "-c", "%a %s", FILE)
        self.assertEqual((done.status, done.out, done.err), (0, b"200 0\n", b""))
        self.assertFalse(os.path.exists(FILE))

    def test_other_programs_find_the_file_locked(self):
        self.start_holder()
        with open(FILE, "wb") as file:
            with self.assertRaises(BlockingIOError):
                fcntl.lockf(file, fcntl.LOCK_EX | fcntl.LOCK_NB)

    def test_a_lock_that_another_program_holds_is_refused(self):
        with open(FILE, "wb") as file:
            fcntl.lockf(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
            self.assert_ended(self.lock("true"), 1, HELD)
        self.assert_ended(self.lock("true"), 0, LEFT_BEHIND)

    def test_other_names_are_other_locks(self):
        self.start_holder()
        self.assert_ended(self.run_tool("lock", "y", "--", "true"), 0)

    def test_a_lock_is_not_had_twice_from_within(self):
        self.assert_ended(self.lock(TOOL, "lock", "x", "--", "true"), 1, HELD)

    def test_the_lock_is_free_when_the_command_has_ended(self):
        self.assertEqual(self.let_go(self.start_holder()), 0)
        self.assert_ended(self.lock("true"), 0)

    def test_the_lock_is_free_when_the_command_was_killed(self):
        holder = self.start("echo running; exec sleep 1000")
        os.kill(child_of(holder), signal.SIGKILL)
        self.assertEqual(holder.wait(), 128 + signal.SIGKILL)
        self.assert_ended(self.lock("true"), 0)

    def test_a_killed_tool_takes_the_command_along_and_leaves_its_file(self):
        holder = self.start("echo running; exec sleep 1000")
        command = child_of(holder)
        holder.kill()
        holder.wait()
        while os.path.exists("/proc/%d/fd/0" % command):  # not so for one that waits to be reaped
            time.sleep(0.01)
        self.assert_ended(self.lock("true"), 0, LEFT_BEHIND)
        self.assert_ended(self.lock("true"), 0)

    def test_a_file_left_behind_is_noticed_by_a_user_who_cannot_read_it(self):
        self.need_second_user()
        os.chmod(DIRECTORY, 0o777)
        self.write(FILE)
        os.chmod(FILE, 0o200)
        os.chown(FILE, NOBODY, NOBODY)
        self.assert_ended(self.run_unprivileged("lock", "x", "--", "true"), 0, LEFT_BEHIND)

    def test_what_is_not_a_regular_file_is_refused(self):
        victim = self.write(os.path.join(self.dir, "victim"), "text")
        for make, why in ((lambda: os.mkfifo(FILE), "not a regular file"),
                          (lambda: os.mknod(FILE, stat.S_IFSOCK), "not a regular file"),
                          (lambda: os.symlink("/dev/null", FILE), "symbolic links"),
                          (lambda: os.symlink(victim, FILE), "symbolic links")):
            make()
            self.assert_refused(self.lock("touch", "ran"), "cannot lock 'x': ", why)
            os.unlink(FILE)
        os.mkfifo(FILE)
        reader = os.open(FILE, os.O_RDONLY | os.O_NONBLOCK)
        self.assert_refused(self.lock("touch", "ran"), "cannot lock 'x': not a regular file")
        os.close(reader)
        self.assertEqual(sorted(os.listdir()), ["victim"])
        with open(victim, encoding="ascii") as file:
            self.assertEqual(file.read(), "text")

    def test_a_killed_tool_leaves_the_lock_to_the_descendants_of_its_command(self):
        holder = self.start("sleep 1000 2> /dev/null & echo running $!; wait", greeting=b"running ")
        descendant = int(holder.greeting.split()[1])
        self.addCleanup(subprocess.run, ["kill", str(descendant)], check=False, capture_output=True)
        holder.kill()
        holder.wait()
        self.assert_ended(self.lock("touch", "ran"), 1, HELD)
        with open(FILE, "wb") as file:  # as the library does
            with self.assertRaises(BlockingIOError):
                fcntl.lockf(file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        os.kill(descendant, signal.SIGKILL)
        await_that(lambda: not os.path.exists("/proc/%d/fd/0" % descendant))
        self.assertTrue(os.path.exists(FILE))
        self.assert_ended(self.lock("true"), 0, LEFT_BEHIND)
        self.assertFalse(os.path.exists("ran"))

    def test_the_lock_ends_with_the_command_though_descendants_go_on(self):
        done = self.lock(*shell("sleep 1000 > /dev/null 2>&1 & echo $!"))
        descendant = int(done.text)
        self.addCleanup(os.kill, descendant, signal.SIGKILL)
        with open("/proc/%d/comm" % descendant, encoding="ascii") as name:
            self.assertEqual(name.read(), "sleep\n")
        self.assertFalse(os.path.exists(FILE))
        self.assert_ended(self.lock("true"), 0)

    def test_the_command_inherits_the_descriptor_of_the_lock_alone(self):
        done = self.lock("ls", "-l", "/proc/self/fd")
        self.assertEqual(done.status, 0)
        links = re.findall(r" -> (/.*)", done.text)
        self.assertEqual([link for link in links if not link.startswith(("/dev/null", "/proc/"))],
                         [os.path.realpath(FILE)])

    def test_the_command_reads_standard_input(self):
        self.assertEqual(self.lock("cat", stdin=b"text").out, b"text")

    def test_a_command_without_standard_descriptors_runs(self):
        done = subprocess.run([TOOL, "lock", "x", "--", "touch", "ran"], env=environment(),
                              preexec_fn=lambda: os.closerange(0, 3), check=False)
        self.assertEqual(done.returncode, 0)
        self.assertTrue(os.path.exists("ran"))

    def test_a_file_that_another_put_in_its_place_is_not_removed(self):
        self.assert_ended(self.lock(*shell("rm -f '%s'; : > '%s'" % (FILE, FILE))), 0)
        self.assertTrue(os.path.exists(FILE))

    def test_of_many_that_wait_one_at_a_time_runs(self):
        # Each would find the file that the one inside has made.
        alone = "set -C; : > inside || exit 99; sleep 0.01; rm inside"
        holders = [subprocess.Popen([TOOL, "lock", "--wait", "600", "x", "--", *shell(alone)],
                                    stderr=subprocess.PIPE, env=environment()) for _ in range(12)]
        for holder in holders:
            self.assertIn(holder.communicate()[1], (b"", LEFT_BEHIND))  # another's, not yet locked
            self.assertEqual(holder.returncode, 0)
        self.assertFalse(os.path.exists(FILE))


class Waiting(LockTest):
    def test_it_gives_up_after_its_time(self):
        self.start_holder()
        start = time.monotonic()
        self.assert_ended(self.lock("true", options=["--wait", "0.3"]), 1, HELD)
        self.assertGreaterEqual(time.monotonic() - start, 0.3)

    def start_waiting(self):
        waiting = subprocess.Popen([TOOL, "lock", "--wait", "1000", "x", "--", "echo", "had it"],
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   env=environment())
        time.sleep(0.2)
        self.assertIsNone(waiting.poll())
        return waiting

    def test_it_has_the_lock_once_the_holder_is_done(self):
        holder = self.start_holder()
        waiting = self.start_waiting()
        self.let_go(holder)
        self.assertEqual(waiting.communicate(), (b"had it\n", b""))
        self.assertEqual(waiting.returncode, 0)

    def test_it_is_interrupted(self):
        self.start_holder()
        waiting = self.start_waiting()
        waiting.send_signal(signal.SIGINT)
        self.assertEqual(waiting.communicate(), (b"", b"pelorik: lock: interrupted\n"))
        self.assertEqual(waiting.returncode, 130)
        self.assertTrue(os.path.exists(FILE))

    def test_a_lock_that_is_free_is_had_at_once(self):
        for seconds in ("0", "1000000", "0.5"):
            self.assert_ended(self.lock("true", options=["--wait", seconds]), 0)


class Signals(LockTest):
    def test_signals_are_passed_on_to_the_command(self):
        script = "trap 'echo got %s; exit 7' %s; echo running; while :; do sleep 0.01; done"
        for number in TERMINATING:
            with self.subTest(signal=number):
                holder = self.start(script % (number, number))
                holder.send_signal(number)
                self.assertEqual(holder.stdout.read(), b"got %d\n" % number)
                self.assertEqual(holder.wait(), 7)
                self.assertFalse(os.path.exists(FILE))

    def test_a_command_that_a_signal_ends_gives_the_lock_up(self):
        holder = self.start("echo running; exec sleep 1000")
        holder.terminate()
        self.assertEqual(holder.wait(), 128 + signal.SIGTERM)
        self.assertFalse(os.path.exists(FILE))

    def test_a_signal_that_the_parent_ignores_stays_ignored(self):
        for number in (signal.SIGHUP, signal.SIGINT):
            ignoring = lambda: signal.signal(number, signal.SIG_IGN)
            holder = self.start("echo running; read never; echo done", preexec_fn=ignoring)
            holder.send_signal(number)
            os.kill(child_of(holder), number)
            time.sleep(0.1)
            self.assertIsNone(holder.poll())
            self.assertEqual(self.let_go(holder), 0)
            self.assertEqual(holder.stdout.read(), b"done\n")

    def test_the_signal_for_files_that_are_too_large_is_as_the_parent_had_it(self):
        for handling in (signal.SIG_DFL, signal.SIG_IGN):
            change = lambda: signal.signal(signal.SIGXFSZ, handling)
            words = ("grep", "SigIgn", "/proc/self/status")
            plain = subprocess.run(words, preexec_fn=change, restore_signals=False, env=environment(),
                                   stdout=subprocess.PIPE, check=True)
            done = self.lock(*words, preexec_fn=change, restore_signals=False)
            self.assertEqual(done.out, plain.stdout)

    def test_a_command_that_wants_what_the_parent_ignores_gets_it(self):
        script = ("import signal\n"
                  "signal.signal(signal.SIGHUP, lambda *_: exit(7))\n"
                  "print('running', flush=True)\n"
                  "while True: signal.pause()\n")
        holder = self.start("exec '%s' -c \"%s\"" % (sys.executable, script),
                            preexec_fn=lambda: signal.signal(signal.SIGHUP, signal.SIG_IGN))
        holder.send_signal(signal.SIGHUP)
        self.assertEqual(holder.wait(), 7)

    def test_the_status_is_known_where_the_parent_ignores_children(self):
        done = self.lock(*shell("exit 9"),
                         preexec_fn=lambda: signal.signal(signal.SIGCHLD, signal.SIG_IGN))
        self.assertEqual(done.status, 9)

    def test_the_command_starts_with_no_signal_blocked(self):
        done = self.lock("grep", "SigBlk", "/proc/self/status")
        self.assertEqual(int(done.text.split()[1], 16), 0)

    def test_an_interrupt_from_the_terminal_reaches_the_command_once(self):
        script = ("import signal, time\n"
                  "signal.signal(signal.SIGINT, lambda *_: print('got it', flush=True))\n"
                  "print('running', flush=True)\n"
                  "time.sleep(1)\n"
                  "print('done', flush=True)\n")
        seen = self.interrupt_from_terminal(
            [TOOL, "lock", "x", "--", sys.executable, "-c", script])
        self.assertEqual(re.findall(rb"running|got it|done", seen), [b"running", b"got it", b"done"])

    def test_a_hang_up_of_its_terminal_reaches_the_command_and_ends_the_tool(self):
        for script, status in (("exec sleep 1000", 128 + signal.SIGHUP),
                               ("trap 'exit 7' HUP; while :; do sleep 0.01; done", 7)):
            reader, writer = os.pipe()
            os.set_inheritable(writer, True)
            child, master = pty.fork()  # which leads the session, as a command of ssh -t does
            if child == 0:
                os.execve(TOOL, [TOOL, "lock", "x", "--", *shell(
                    "echo running >&%d; %s" % (writer, script))], environment())
            os.close(writer)
            self.assertEqual(os.read(reader, 10), b"running\n")
            os.close(master)
            self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), status)
            os.close(reader)
            self.assertFalse(os.path.exists(FILE))

    def interrupt_from_terminal(self, command):
        """What a terminal gets on which Ctrl-C is typed when the command says that it runs."""
        child, master = os.forkpty()
        if child == 0:
            os.execve(command[0], command, environment())
        seen = b""
        while True:
            try:
                more = os.read(master, 1024)
            except OSError:  # the other side is closed
                break
            if b"running" not in seen and b"running" in seen + more:
                os.write(master, b"\x03")
            seen += more
        os.close(master)
        self.assertEqual(os.waitpid(child, 0)[1], 0)
        return seen


if __name__ == "__main__":
    sys.exit(unittest.main())
