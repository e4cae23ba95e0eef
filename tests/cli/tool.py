"""Runs the built tool as a user does: through pipes, on a pseudo-terminal, with and without rights."""

import contextlib
import ctypes
import ctypes.util
import glob
import hashlib
import os
import pty
import re
import select
import shutil
import signal
import subprocess
import tempfile
import termios
import threading
import time
import tty
import unittest

TOOL = os.environ["PELORIK"]
NOBODY = 65534

MD5 = "#MD5:"
GOST94 = "#GOST3411_RFC4357:"
GOST2012 = "#GOST3411_256_2012:"

# RFC 6986 has no example of an empty message; this one is libgcrypt's and rhash's.
EMPTY_GOST2012 = "3f539a213e97c802cc229d474c6aa32a825a360b2a933a949fd925208d9ce1bb"


def md5(data):
    return hashlib.md5(data).hexdigest()


def _gcrypt():
    try:
        library = ctypes.CDLL("libgcrypt.so.20")
    except OSError:
        return None
    library.gcry_check_version.restype = ctypes.c_char_p
    library.gcry_check_version(None)
    return library


_LIBGCRYPT = _gcrypt()


def peer_digest(algorithm, data):
    """The digest of an independent program: libgcrypt's STRIBOG256 or GOSTR3411_CP."""
    if _LIBGCRYPT is None:
        raise unittest.SkipTest("libgcrypt is not installed")
    number = _LIBGCRYPT.gcry_md_map_name(algorithm.encode())
    out = ctypes.create_string_buffer(32)
    _LIBGCRYPT.gcry_md_hash_buffer(number, out, data, ctypes.c_size_t(len(data)))
    return out.raw.hex()


def gost2012(data):
    return peer_digest("STRIBOG256", data)


def gost94(data):
    return peer_digest("GOSTR3411_CP", data)


def environment(**changes):
    """The tests' environment with `changes`; None takes a variable away."""
    variables = dict(os.environ, LC_ALL="C")
    variables.pop("NO_COLOR", None)
    for name, value in changes.items():
        if value is None:
            variables.pop(name, None)
        else:
            variables[name] = value
    return variables


def await_that(condition):
    """Waits until `condition()` is true, for a minute at most."""
    for _ in range(6000):
        if condition():
            return
        time.sleep(0.01)
    raise AssertionError("it never came so far")


def await_running(pid):
    """Waits until the process is the tool, and SIGINT no longer ends it at once."""

    def catches_interrupt():
        with open("/proc/%d/status" % pid, encoding="ascii") as status:
            caught = next(line for line in status if line.startswith("SigCgt:"))
        return int(caught.split()[1], 16) >> (signal.SIGINT - 1) & 1

    def is_tool():
        return os.path.samefile("/proc/%d/exe" % pid, TOOL)

    await_that(lambda: is_tool() and catches_interrupt())


def await_open(pid, name):
    """Waits until the process has the file `name` open."""

    def has_it():
        folder = "/proc/%d/fd" % pid
        for number in os.listdir(folder):
            try:
                if os.readlink(os.path.join(folder, number)) == os.path.abspath(name):
                    return True
            except FileNotFoundError:  # closed meanwhile
                pass
        return False

    await_running(pid)
    await_that(has_it)


def await_call(pid, number):
    """Waits until the process sleeps in the system call of that number."""

    def is_there():
        with open("/proc/%d/syscall" % pid, encoding="ascii") as call:
            return call.read().split()[0] == str(number)

    await_running(pid)
    await_that(is_there)


def await_reading(pid):
    """Waits until the process sleeps in read(2)."""
    await_call(pid, 0)


def await_writing(pid):
    """Waits until the process sleeps in write(2)."""
    await_call(pid, 1)


@contextlib.contextmanager
def profile_of_somebody(folder):
    """Where a coverage build may write its profile without rights; it is kept with the others."""
    kept = os.environ.get("LLVM_PROFILE_FILE")
    if kept is None:
        yield "/dev/null"
        return
    profiles = os.path.join(folder, "profiles")
    os.mkdir(profiles)
    os.chmod(profiles, 0o777)
    yield os.path.join(profiles, os.path.basename(folder) + "-%c%m.profraw")
    for name in os.listdir(profiles):
        shutil.move(os.path.join(profiles, name), os.path.dirname(kept))


# The signals that end a process by default and that are not faults, SIGABRT, SIGPIPE or SIGXFSZ.
# 16 is SIGSTKFLT; of the real-time signals the first and the last.
TERMINATING = [signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGALRM, signal.SIGTERM,
               signal.SIGUSR1, signal.SIGUSR2, signal.SIGXCPU, signal.SIGVTALRM, signal.SIGPROF,
               signal.SIGIO, signal.SIGPWR, 16, signal.SIGRTMIN, signal.SIGRTMAX]


def ended_by(number):
    """The status of the tool that a signal ended, as subprocess gives it."""
    return 130 if number == signal.SIGINT else -number


def replacing_commands(out):
    """The commands that replace a file, and what it has to hold before; they need a file f."""
    return ((["list", "-a", "md5", "-o", out, "f"], "old"),
            (["update", out], "f=%s%s\n" % (MD5, md5(b"old"))),
            (["xml", "seal", out], "<a>text</a>"))


class Outcome:
    def __init__(self, status, out, err):
        self.status = status
        self.out = out
        self.err = err

    @property
    def text(self):
        return self.out.decode(errors="surrogateescape")

    @property
    def complaint(self):
        return self.err.decode(errors="surrogateescape")


def drop_root():
    os.setgroups([])
    os.setgid(NOBODY)
    os.setuid(NOBODY)


@contextlib.contextmanager
def tool_for_anybody():
    """A copy of the tool: the build tree may lie where somebody without rights cannot go."""
    copies = tempfile.mkdtemp(prefix="pelorik-tool-")
    try:
        os.chmod(copies, 0o755)
        for library in glob.glob(os.path.join(os.path.dirname(TOOL), "libpelorikutil.so.*")):
            shutil.copy(library, copies)
        yield shutil.copy(TOOL, copies)
    finally:
        shutil.rmtree(copies)


class ToolTest(unittest.TestCase):
    """Each test works in a directory of its own, which is the current one."""

    maxDiff = None

    def setUp(self):
        self.dir = tempfile.mkdtemp(prefix="pelorik-test-")
        os.chmod(self.dir, 0o755)
        self.before = os.getcwd()
        os.chdir(self.dir)

    def tearDown(self):
        os.chdir(self.before)
        subprocess.run(["chmod", "-R", "u+rwX", self.dir], check=False)
        subprocess.run(["rm", "-rf", self.dir], check=True)  # trees may be deep

    def write(self, name, data=b""):
        folder = os.path.dirname(name)
        if folder:
            os.makedirs(folder, exist_ok=True)
        with open(name, "wb") as file:
            file.write(data if isinstance(data, bytes) else data.encode())
        return name

    def run_tool(self, *words, stdin=b"", tool=TOOL, **options):
        done = subprocess.run([tool, *words], input=stdin, capture_output=True,
                              env=options.pop("env", environment()), **options)
        return Outcome(done.returncode, done.stdout, done.stderr)

    def run_unprivileged(self, *words, **options):
        """Runs the tool as somebody who may not read everything, also when the tests run as root."""
        if os.getuid() != 0:
            return self.run_tool(*words, **options)
        with tool_for_anybody() as tool, profile_of_somebody(os.path.dirname(tool)) as profile:
            return self.run_tool(*words, tool=tool, preexec_fn=drop_root,
                                 env=environment(LLVM_PROFILE_FILE=profile), **options)

    def assert_refused(self, outcome, *texts):
        """Status 2, nothing on standard output, and one line on standard error with `texts`."""
        self.assertEqual((outcome.status, outcome.out), (2, b""), outcome.complaint)
        self.assertRegex(outcome.complaint, r"\Apelorik(: [a-z]+)?: [^\n]*\n\Z")
        for text in texts:
            self.assertIn(text, outcome.complaint)

    def assert_help(self, words, names, statuses=("0", "1", "2", "130")):
        """`words --help` fits a terminal, holds `names`, and ends with exit statuses and examples."""
        done = self.run_tool(*words, "--help")
        self.assertEqual((done.status, done.err), (0, b""))
        self.assertEqual(self.run_tool(*words, "-h").out, done.out)
        self.assertTrue(done.text.startswith("Usage: pelorik %s " % " ".join(words)))
        self.assertLessEqual(max(map(len, done.text.splitlines())), 80)
        for name in names:
            self.assertIn(name, done.text)
        exits, examples = done.text.split("\n\n")[-2:]
        self.assertTrue(exits.startswith("Exit status:\n"))
        self.assertEqual(re.findall(r"^  (\d+) ", exits, re.M), list(statuses))
        self.assertRegex(examples, r"\AExamples:\n(  [^\n]*pelorik %s[^\n]*\n)+\Z" % words[0])


def open_terminal():
    try:
        return pty.openpty()
    except OSError as error:  # /dev/pts is not mounted
        raise unittest.SkipTest("needs a pseudo-terminal: %s" % error) from error


class Terminal:
    """A child whose standard output, error or both are a pseudo-terminal."""

    def __init__(self, *words, out=True, err=True, columns=80, stdin=subprocess.DEVNULL, tool=TOOL,
                 preexec_fn=None, **changes):
        self.master, slave = open_terminal()
        tty.setraw(slave)
        termios.tcsetwinsize(slave, (24, columns))
        changes.setdefault("TERM", "xterm")
        self.child = subprocess.Popen(
            [tool, *words], stdin=stdin, env=environment(**changes), preexec_fn=preexec_fn,
            stdout=slave if out else subprocess.PIPE, stderr=slave if err else subprocess.PIPE)
        os.close(slave)
        self.seen = b""

    def read_more(self, patience):
        """Takes in what comes; False once there is nothing more to come."""
        if not select.select([self.master], [], [], patience)[0]:
            return True
        try:
            more = os.read(self.master, 65536)
        except OSError:  # the other side is closed
            return False
        self.seen += more
        return more != b""

    def wait_for(self, pattern):
        """Waits until what was drawn matches `pattern`."""
        while not pattern.search(self.seen):
            if not self.read_more(60):
                raise AssertionError("never drawn: %r in %r" % (pattern.pattern, self.seen))

    def finish(self):
        """Waits for the end; returns the status, what the terminal got, and what the pipe got."""
        while self.read_more(60):
            pass
        piped = b"".join(pipe.read() for pipe in (self.child.stdout, self.child.stderr) if pipe)
        status = self.child.wait()
        for pipe in (self.child.stdout, self.child.stderr):
            if pipe:
                pipe.close()
        os.close(self.master)
        return status, self.seen, piped

    def interrupt(self):
        self.child.send_signal(signal.SIGINT)


def screen(drawn):
    """The lines that a terminal shows in the end after `drawn`, which only returns and overwrites."""
    lines = []
    for line in drawn.split(b"\n"):
        cells = bytearray()
        for part in line.split(b"\r"):
            cells[:len(part)] = part
        lines.append(bytes(cells).rstrip(b" "))
    return lines


class SlowWriter(threading.Thread):
    """Writes pieces to a descriptor with pauses between them, then closes it."""

    def __init__(self, descriptor, pieces, pause):
        super().__init__()
        self.descriptor, self.pieces, self.pause = descriptor, pieces, pause

    def run(self):
        for piece in self.pieces:
            os.write(self.descriptor, piece)
            time.sleep(self.pause)
        os.close(self.descriptor)
