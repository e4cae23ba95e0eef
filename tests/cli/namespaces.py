"""Namespaces of the kernel in which a test may change the network or /var/run."""

import ctypes
import os
import subprocess
import unittest

CLONE_NEWNS = 0x00020000
CLONE_NEWUSER = 0x10000000
CLONE_NEWNET = 0x40000000

_LIBC = ctypes.CDLL(None, use_errno=True)


def _unshare(kind):
    if _LIBC.unshare(kind) != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


def _write(path, text):
    with open(path, "w", encoding="ascii") as file:
        file.write(text)


def _become_root_of_user_namespace():
    user, group = os.geteuid(), os.getegid()
    _unshare(CLONE_NEWUSER)
    _write("/proc/self/setgroups", "deny")
    _write("/proc/self/uid_map", "0 %d 1" % user)
    _write("/proc/self/gid_map", "0 %d 1" % group)


def _in_child(action):
    """Returns whether `action` succeeds in a child process."""
    child = os.fork()
    if child == 0:
        try:
            action()
            os._exit(0)
        except OSError:
            os._exit(1)
    return os.waitpid(child, 0)[1] == 0


def _enter(kind):
    try:
        _unshare(kind)
    except PermissionError:
        # A child tries first, because a half-made user namespace has no way back.
        if not _in_child(_become_root_of_user_namespace):
            raise
        _become_root_of_user_namespace()
        _unshare(kind)


def enter(kind):
    """Moves this process, and what it starts from now on, into a new namespace; or skips the test."""
    try:
        _enter(kind)
    except OSError as error:
        raise unittest.SkipTest("needs CAP_SYS_ADMIN or unprivileged user namespaces: unshare: "
                                + error.strerror) from error


def _mount(*args):
    done = subprocess.run(["mount", *args], stderr=subprocess.PIPE, text=True, check=False)
    if done.returncode != 0:
        raise unittest.SkipTest("needs a root directory that is a mount point, and tmpfs: "
                                + done.stderr.strip())


def enter_own_run_directory():
    """Gives this process, and what it starts from now on, a /var/run of its own; or skips the test."""
    enter(CLONE_NEWNS)
    _mount("--make-rprivate", "/")
    _mount("-t", "tmpfs", "-o", "mode=0755", "none", "/var/run")
