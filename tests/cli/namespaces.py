"""Namespaces of the kernel in which a test may do what it likes to the network or to /var/run."""

import ctypes
import os
import subprocess
import unittest

CLONE_NEWNS = 0x00020000
CLONE_NEWUSER = 0x10000000
CLONE_NEWNET = 0x40000000

_LIBC = ctypes.CDLL(None, use_errno=True)


def _write(path, text):
    with open(path, "w", encoding="ascii") as file:
        file.write(text)


def _become_root_of_user_namespace():
    user, group = os.geteuid(), os.getegid()
    if _LIBC.unshare(CLONE_NEWUSER) != 0:
        raise unittest.SkipTest("needs root, or a kernel that gives users namespaces")
    _write("/proc/self/setgroups", "deny")
    _write("/proc/self/uid_map", "0 %d 1" % user)
    _write("/proc/self/gid_map", "0 %d 1" % group)


def enter(kind):
    """Moves this process, and what it starts from now on, into a new namespace; or skips the test."""
    if os.geteuid() != 0:
        _become_root_of_user_namespace()
    if _LIBC.unshare(kind) != 0:
        raise unittest.SkipTest("unshare: " + os.strerror(ctypes.get_errno()))


def enter_own_run_directory():
    """Gives this process, and what it starts from now on, a /var/run of its own."""
    enter(CLONE_NEWNS)
    for command in (["mount", "--make-rprivate", "/"],
                    ["mount", "-t", "tmpfs", "-o", "mode=0755", "none", "/var/run"]):
        subprocess.run(command, check=True)
