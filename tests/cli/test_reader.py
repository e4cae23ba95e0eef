"""How files are read: every error is seen, in every command, and nothing waits that must not."""

import contextlib
import fcntl
import os
import resource
import signal
import subprocess
import sys
import tempfile
import threading
import unittest

from tool import (GOST94, MD5, TOOL, ToolTest, await_running, ended_by, environment, gost94, md5)

WATCHED_CALLS = os.environ["PELORIK_WATCHED_CALLS"]
BLOCK = 65536
CLEAR_REFS = "/proc/self/clear_refs"  # of size 0; every read fails


def record(name, data):
    return "%s=%s%s\n" % (name, MD5, md5(data))


def watching(name, **settings):
    changes = {"PELORIK_" + key.upper(): str(value) for key, value in settings.items()}
    return environment(LD_PRELOAD=WATCHED_CALLS, PELORIK_WATCHED=name, **changes)


class ReaderTest(ToolTest):
    def assert_error_everywhere(self, name, data, reason, env=None):
        """Every command refuses the file `name`, also when its digest would be that of `data`."""
        env = env or environment()
        good = self.write("good", b"1")
        lines = record(name, data) + record(good, b"1")
        complaint = "%s: %s" % (name, reason)

        def run(*words):
            self.write("list", lines)
            return self.run_tool(*words, env=env)

        done = run("hash", "-a", "md5", name, good)
        self.assertEqual((done.status, done.text), (1, record(good, b"1")))
        self.assertIn("hash: " + complaint, done.complaint)
        for words in (["list"], ["list", "-o", "out"]):
            done = run(*words, "-a", "md5", name, good)
            self.assertEqual((done.status, done.out, os.path.exists("out")), (2, b"", False))
            self.assertIn("list: " + complaint, done.complaint)
        done = run("list", "-a", "md5", "--keep-going", name, good)
        self.assertEqual((done.status, done.text), (1, record(good, b"1")))
        for words in ([], ["-j1"], ["--json"], ["--stop"], ["--ignore-missing"]):
            done = run("check", *words, "list")
            self.assertEqual(done.status, 1)
            self.assertIn(reason, done.text)
        for words, status in (([], 2), (["--keep-going"], 1)):
            done = run("update", *words, "list")
            self.assertEqual(done.status, status)
            self.assertIn("update: " + complaint, done.complaint)
            with open("list", encoding="ascii") as file:
                self.assertEqual(file.read(), lines)


class Errors(ReaderTest):
    def test_a_bad_sector_in_a_chunk_of_zeros(self):
        for size, offset in ((3 * BLOCK, 2 * BLOCK + 4096), (3 * BLOCK - 1, 2 * BLOCK + 1), (10000, 1)):
            self.write("f", b"\0" * size)
            with self.subTest(size=size):
                self.assert_error_everywhere("f", b"\0" * size, "Input/output error",
                                             env=watching("f", bad_offset=offset))

    def test_an_empty_file_that_cannot_be_read(self):
        if not os.access(CLEAR_REFS, os.R_OK):
            self.skipTest("needs root")
        self.assert_error_everywhere(CLEAR_REFS, b"", "Invalid argument")

    def test_a_file_of_the_kernels_that_is_shorter_than_its_size(self):
        name = "/sys/kernel/mm/transparent_hugepage/enabled"
        if not os.path.exists(name):
            self.skipTest("needs " + name)
        with open(name, "rb") as file:
            data = file.read()
        size = os.stat(name).st_size
        reason = "size mismatch: stat reports %d bytes, read returned %d" % (size, len(data))
        for padding in (b"", b"\0" * (size - len(data))):
            self.assert_error_everywhere(name, data + padding, reason)

    def test_a_file_of_the_kernels_that_is_longer_than_its_size(self):
        self.assert_error_everywhere("/proc/filesystems", b"", "size mismatch: stat reports 0 bytes")

    def test_special_files_are_not_opened(self):
        self.write("list", record("/dev/watchdog", b"") + record("pipe", b""))
        os.mkfifo("pipe")
        with tempfile.NamedTemporaryFile("r") as counts:
            self.run_tool("check", "list", env=watching("pipe", counts=counts.name))
            self.assertIn("open 0\n", counts.read())


class SystemCalls(ReaderTest):
    def calls(self, *words):
        with tempfile.NamedTemporaryFile("r") as counts:
            done = self.run_tool(*words, env=watching("f", counts=counts.name))
            self.assertEqual(done.status, 0, done.complaint)
            return {name: int(number) for name, number in map(str.split, counts)}

    def test_a_small_file_takes_five(self):
        for data in (b"", b"1", b"x" * (BLOCK - 1)):
            self.write("f", data)
            self.write("list", record("f", data))
            for words in (["hash", "f"], ["list", "f"], ["check", "list"], ["update", "list"]):
                with self.subTest(words=words, size=len(data)):
                    calls = self.calls(*words)
                    looks = calls.pop("stat") - (words[0] == "list")  # it walks to its operands, too
                    del calls["memcmp"]
                    self.assertEqual((looks, calls),
                                     (1, {"open": 1, "read": 1, "fstat": 1, "close": 1}))

    def test_the_end_of_whole_blocks_is_proved_by_one_more_read(self):
        for blocks in (1, 3):
            self.write("f", b"x" * BLOCK * blocks)
            self.write("list", record("f", b"x" * BLOCK * blocks))
            self.assertEqual(self.calls("check", "list")["read"], blocks + 1)


class Changed(ReaderTest):
    """Files that change between the looks at them."""

    CHANGED = "Error: File cannot be read: f [changed while it was read].\n"

    def setUp(self):
        super().setUp()
        self.data = b"x" * 100000
        self.write("f", self.data)
        self.write("list", record("f", self.data))

    def check_with_change(self, where, change, *words):
        """The outcome of a check that is stopped at `where` until `change` is done."""
        child = subprocess.Popen([TOOL, "check", *words, "list"], env=watching("f", stop_at=where),
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        os.waitid(os.P_PID, child.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
        change()
        child.send_signal(signal.SIGCONT)
        out, _ = child.communicate()
        return child.returncode, out.decode()

    def replace_by(self, make):
        os.rename("f", "kept")
        make("f")

    def overwrite_with_old_times(self):
        before = os.stat("f")
        self.write("f", self.data)
        os.utime("f", ns=(before.st_atime_ns, before.st_mtime_ns))

    def test_every_change_is_an_error(self):
        changes = {
            "longer": lambda: self.write("f", self.data + b"x"),
            "shorter": lambda: os.truncate("f", 70000),
            "empty": lambda: os.truncate("f", 0),
            "written": lambda: self.write("f", self.data),
            "old times": self.overwrite_with_old_times,
            "mode": lambda: os.chmod("f", 0o600),
        }
        for where in ("open", "read"):
            for name, change in changes.items():
                for words in (["-j1"], ["-j2"]):
                    self.setUpFile()
                    with self.subTest(where=where, change=name):
                        self.assertEqual(self.check_with_change(where, change, *words), (1, self.CHANGED))

    def setUpFile(self):
        with contextlib.suppress(FileNotFoundError):
            os.remove("f")
        self.write("f", self.data)

    def test_another_file_in_its_place(self):
        def twin(name):
            self.write(name, self.data)

        def link(name):
            os.symlink("kept", name)
            os.link("kept", "other")  # a change of the file that the link leads to

        def null(name):
            os.symlink("/dev/null", name)

        for make in (twin, link, null, os.mkfifo):
            self.setUpFile()
            with self.subTest(make=make.__name__):
                self.assertEqual(self.check_with_change("open", lambda: self.replace_by(make)),
                                 (1, self.CHANGED))
            os.remove("f")
            with contextlib.suppress(FileNotFoundError):
                os.remove("other")

    def test_a_pipe_with_a_writer_in_its_place_is_not_waited_for(self):
        def pipe(name):
            os.mkfifo(name)
            self.addCleanup(os.close, os.open(name, os.O_RDWR))

        self.assertEqual(self.check_with_change("open", lambda: self.replace_by(pipe)), (1, self.CHANGED))

    def test_a_directory_in_its_place(self):
        self.assertEqual(self.check_with_change("open", lambda: self.replace_by(os.mkdir)),
                         (1, "Error: File cannot be read: f [Is a directory].\n"))

    def test_a_file_that_goes_is_missing(self):
        self.assertEqual(self.check_with_change("open", lambda: os.remove("f")),
                         (1, "Warning: File not found: f.\n"))


class Leases(ReaderTest):
    """A file whose lease another process holds: opening it has to wait."""

    def setUp(self):
        super().setUp()
        self.write("f", b"1")
        self.write("list", record("f", b"1"))
        self.asked = threading.Event()
        before = signal.signal(signal.SIGIO, lambda *_: self.asked.set())
        self.addCleanup(signal.signal, signal.SIGIO, before)
        self.file = open("f", "rb+")
        self.addCleanup(self.file.close)
        try:
            fcntl.fcntl(self.file, fcntl.F_SETLEASE, fcntl.F_WRLCK)
        except OSError as error:
            self.skipTest("no leases here: %s" % error)

    def start(self, *words):
        child = subprocess.Popen([TOOL, *words], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                 env=environment())
        while not self.asked.wait(0.01):  # the signal is handled between two waits
            self.assertIsNone(child.poll())
        return child

    COMMANDS = (["hash", "f"], ["list", "f"], ["check", "-j1", "list"], ["check", "-j2", "list"],
                ["update", "list"])

    def test_the_tool_waits_until_it_is_given_back(self):
        for words in self.COMMANDS:
            with self.subTest(words=words):
                child = self.start(*words)
                fcntl.fcntl(self.file, fcntl.F_SETLEASE, fcntl.F_UNLCK)
                child.communicate()
                self.assertEqual(child.returncode, 0)
                self.asked.clear()
                fcntl.fcntl(self.file, fcntl.F_SETLEASE, fcntl.F_WRLCK)

    def test_signals_end_that_wait(self):
        for words in self.COMMANDS:
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                with self.subTest(words=words, signal=number):
                    child = self.start(*words)
                    child.send_signal(number)
                    child.communicate()
                    self.assertEqual(child.returncode, ended_by(number))
                    fcntl.fcntl(self.file, fcntl.F_SETLEASE, fcntl.F_UNLCK)
                    self.asked.clear()
                    fcntl.fcntl(self.file, fcntl.F_SETLEASE, fcntl.F_WRLCK)


class Lists(ReaderTest):
    """LIST is never waited for, unless a shell has opened it already."""

    def setUp(self):
        super().setUp()
        self.write("f", b"1")
        self.lines = record("f", b"1")
        self.write("list", self.lines)

    def test_a_fifo_is_refused(self):
        os.mkfifo("pipe")
        writer = os.open("pipe", os.O_RDWR)
        for close in (lambda: None, lambda: os.close(writer)):
            close()
            for words in (["check", "pipe"], ["compare", "pipe", "list"], ["compare", "list", "pipe"],
                          ["update", "pipe"]):
                self.assert_refused(self.run_tool(*words), "pipe: ", "regular file")

    def test_a_list_that_becomes_a_fifo(self):
        def swap():
            os.rename("list", "kept")
            os.mkfifo("list")

        for command in ("check", "update"):
            child = subprocess.Popen([TOOL, command, "list"], env=watching("list", stop_at="open"),
                                     stdout=subprocess.PIPE, stderr=subprocess.PIPE)
            os.waitid(os.P_PID, child.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
            swap()
            child.send_signal(signal.SIGCONT)
            child.communicate()
            self.assertEqual(child.returncode, 2)
            os.rename("kept", "list")

    def test_what_a_shell_has_opened_is_read(self):
        for command in ("pelorik check <(cat list)", "pelorik check - < list", "pelorik check /dev/stdin < list",
                        "cat list | pelorik check -", "cat list | pelorik check /dev/stdin",
                        "cat list | pelorik check /dev/fd/0", "cat list | pelorik check /proc/self/fd/0",
                        "pelorik check /dev/fd/7 7< list", "mkfifo p; cat list > p & pelorik check - < p",
                        "pelorik compare <(cat list) <(cat list)", "pelorik compare list <(cat list)"):
            with self.subTest(command=command):
                done = subprocess.run(["bash", "-c", "pelorik() { %s \"$@\"; }; %s" % (TOOL, command)],
                                      env=environment(), capture_output=True)
                self.assertEqual((done.returncode, done.stdout), (0, b""), done.stderr)

    def test_a_socket_as_standard_input(self):
        import socket
        ours, theirs = socket.socketpair()
        with ours, theirs:
            ours.sendall(self.lines.encode())
            ours.shutdown(socket.SHUT_WR)
            for name in ("-", "/dev/stdin"):
                if name == "-":
                    done = subprocess.run([TOOL, "check", name], stdin=theirs, env=environment())
                    self.assertEqual(done.returncode, 0)


class Descriptors(ReaderTest):
    def test_few_descriptors_mean_fewer_threads_and_the_same_answer(self):
        names = []
        for i in range(300):
            names.append(self.write("f%d" % i, b"%d" % i))
        self.write("list", "".join(record("f%d" % i, b"%d" % i) for i in range(300)))
        for limit in (4, 5, 6, 9):
            for words in (["check", "-j64", "list"], ["list", "-j64", *names], ["hash", *names],
                          ["update", "-j64", "--dry-run", "list"]):
                if words[0] == "update" and limit < 6:  # the list stays open
                    continue
                with self.subTest(limit=limit, words=words[:2]):
                    done = self.run_tool(*words, preexec_fn=lambda: resource.setrlimit(
                        resource.RLIMIT_NOFILE, (limit, limit)))
                    self.assertEqual(done.status, 0, done.complaint)

    def test_gost94_in_blocks(self):
        # It pads every call: short reads must not become short calls.
        data = os.urandom(3 * BLOCK + 17)
        self.write("f", data)
        self.assertEqual(self.run_tool("hash", "-a", "gost94", "f").text, "f=%s%s\n" % (GOST94, gost94(data)))


if __name__ == "__main__":
    sys.exit(unittest.main())
