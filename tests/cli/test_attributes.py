"""Owner, permissions, access control lists and extended attributes of a file that the tool replaces."""

import errno
import os
import stat
import struct
import sys
import unittest

from tool import NOBODY, ToolTest, environment, replacing_commands

WATCHING = os.environ["PELORIK_WATCHING"]
ACCESS = "system.posix_acl_access"
DEFAULT = "system.posix_acl_default"
SOMEBODY = 12345
OTHER = 54321
GROUP = 23456

# Tags of the entries of a list.
USER_OBJ, USER, GROUP_OBJ, GROUP_TAG, MASK, OTHERS = 1, 2, 4, 8, 16, 32
NO_ID = 0xffffffff


def access_list(user, group, others, mask, users=(), groups=()):
    """The kernel's form of a list; `users` and `groups` are pairs of a number and permissions."""
    entries = [(USER_OBJ, user, NO_ID)] + [(USER, bits, number) for number, bits in users]
    entries += [(GROUP_OBJ, group, NO_ID)] + [(GROUP_TAG, bits, number) for number, bits in groups]
    entries += [(MASK, mask, NO_ID), (OTHERS, others, NO_ID)]
    return struct.pack("<I", 2) + b"".join(struct.pack("<HHI", *entry) for entry in entries)


def granted(state, user, group):
    """What a process of that user and group may do with a file (the algorithm of acl(5))."""
    mode, owner, owners_group, text = state
    if not text:
        if user == owner:
            return mode >> 6 & 7
        return mode >> 3 & 7 if group == owners_group else mode & 7
    entries = list(struct.iter_unpack("<HHI", text[4:]))
    bits = {tag: bits for tag, bits, _ in entries}
    if user == owner:
        return bits[USER_OBJ]
    for tag, named_bits, number in entries:
        if tag == USER and number == user:
            return named_bits & bits[MASK]
    matching = [entry_bits for tag, entry_bits, number in entries
                if (tag == GROUP_OBJ and group == owners_group) or (tag == GROUP_TAG and number == group)]
    if matching:
        union = 0
        for entry_bits in matching:
            union |= entry_bits
        return union & bits[MASK]
    return bits[OTHERS]


def state_of(name):
    status = os.stat(name)
    try:
        text = os.getxattr(name, ACCESS)
    except OSError as error:
        if error.errno not in (errno.ENODATA, errno.ENOTSUP):
            raise
        text = b""
    return stat.S_IMODE(status.st_mode), status.st_uid, status.st_gid, text


class AttributeTest(ToolTest):
    def setUp(self):
        super().setUp()
        self.write("f", b"abc")

    def need_root(self):
        if os.getuid() != 0:
            self.skipTest("needs root")

    def set(self, name, attribute, value):
        try:
            os.setxattr(name, attribute, value)
        except OSError as error:
            self.skipTest("%s: %s" % (attribute, error.strerror))

    def replace(self, prepare, run=None):
        """Yields after every command that has replaced `out`."""
        for words, before in replacing_commands("out"):
            if os.path.exists("out"):
                os.remove("out")
            self.write("out", before)
            prepare()
            number = os.stat("out").st_ino
            done = (run or self.run_tool)(*words)
            with self.subTest(words=words):
                self.assertEqual(done.status, 0, done.complaint)
                self.assertNotEqual(os.stat("out").st_ino, number)
                yield

    def assert_not_replaced(self, prepare, text, run=None):
        for words, before in replacing_commands("out"):
            if os.path.exists("out"):
                os.remove("out")
            self.write("out", before)
            prepare()
            with self.subTest(words=words):
                done = (run or self.run_tool)(*words)
                self.assertEqual(done.status, 2)
                self.assertIn(text, done.complaint)
                with open("out", encoding="ascii") as file:
                    self.assertEqual(file.read(), before)
                self.assertEqual([name for name in os.listdir() if name.startswith(".pelorik")], [])


class Kept(AttributeTest):
    def test_an_access_control_list(self):
        text = access_list(6, 0, 0, 6, users=[(SOMEBODY, 6)])

        def prepare():
            os.chmod("out", 0o640)
            self.set("out", ACCESS, text)

        for _ in self.replace(prepare):
            self.assertEqual(os.getxattr("out", ACCESS), text)
            self.assertEqual(stat.S_IMODE(os.stat("out").st_mode), 0o660)

    def test_having_none_where_the_directory_gives_one_to_new_files(self):
        self.set(".", DEFAULT, access_list(7, 7, 0, 7, users=[(SOMEBODY, 7)]))

        def prepare():
            if ACCESS in os.listxattr("out"):
                os.removexattr("out", ACCESS)
            os.chmod("out", 0o640)

        for _ in self.replace(prepare):
            self.assertNotIn(ACCESS, os.listxattr("out"))
            self.assertEqual(stat.S_IMODE(os.stat("out").st_mode), 0o640)

    def test_attributes_of_users_and_of_root(self):
        values = {"user.comment": b"of ours", "user.empty": b"", "user.long": b"x" * 2000}
        if os.getuid() == 0:
            values.update({"trusted.mark": b"\0\1", "security.other": b"label"})

        def prepare():
            for name, value in values.items():
                self.set("out", name, value)

        for _ in self.replace(prepare):
            self.assertEqual({name: os.getxattr("out", name) for name in os.listxattr("out")}, values)

    def test_the_group_where_the_user_may_give_it(self):
        self.need_root()
        os.chmod(".", 0o777)

        def prepare():
            os.chown("out", SOMEBODY, NOBODY)
            os.chmod("out", 0o664)

        for _ in self.replace(prepare, self.run_unprivileged):
            self.assertEqual(state_of("out"), (0o664, NOBODY, NOBODY, b""))


class NotKept(AttributeTest):
    def test_a_signature_of_the_content(self):
        self.need_root()
        for name in ("security.ima", "security.evm"):
            self.assert_not_replaced(lambda: self.set("out", name, b"\2" + b"x" * 20),
                                     "out: extended attribute '%s' cannot be kept" % name)

    def test_capabilities_as_after_any_write(self):
        self.need_root()
        capability = struct.pack("<IIIII", 0x02000001, 1, 0, 0, 0)
        for _ in self.replace(lambda: self.set("out", "security.capability", capability)):
            self.assertEqual(os.listxattr("out"), [])

    def test_a_list_whose_group_would_be_another_one(self):
        self.need_root()
        os.chmod(".", 0o777)

        def prepare():
            os.chown("out", SOMEBODY, GROUP)
            self.set("out", ACCESS, access_list(6, 4, 0, 6, users=[(NOBODY, 6)]))

        self.assert_not_replaced(prepare, "out: extended attribute '%s' cannot be kept" % ACCESS,
                                 self.run_unprivileged)

    def test_another_group_gets_no_more_than_all_others(self):
        self.need_root()
        os.chmod(".", 0o777)
        for before, after in ((0o666, 0o666), (0o676, 0o666), (0o606, 0o606)):
            def prepare():
                os.chown("out", SOMEBODY, GROUP)
                os.chmod("out", before)

            for _ in self.replace(prepare, self.run_unprivileged):
                self.assertEqual(state_of("out"), (after, NOBODY, NOBODY, b""))


class AtEveryMoment(AttributeTest):
    """The temporary file never grants more than the file that it will replace."""

    def run_watched(self, *words):
        if os.path.exists("log"):
            os.remove("log")
        changes = {"LD_PRELOAD": WATCHING, "PELORIK_WATCH": "log",
                   "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + ":verify_asan_link_order=0"}
        return self.run_tool(*words, env=environment(**changes))

    def assert_never_wider(self, prepare):
        for _ in self.replace(prepare, self.run_watched):
            final = state_of("out")
            with open("log", encoding="ascii") as log:
                states = [line.rstrip("\n").split(" ") for line in log]
            self.assertGreater(len(states), 2)
            for mode, user, group, text in states:
                state = (int(mode), int(user), int(group), bytes.fromhex(text))
                for who in ((SOMEBODY, GROUP), (SOMEBODY, OTHER), (NOBODY, GROUP), (OTHER, OTHER),
                            (OTHER, GROUP), (NOBODY, OTHER), (OTHER, 0)):
                    self.assertEqual(granted(state, *who) & ~granted(final, *who), 0, (state, final, who))

    def test_with_modes_and_owners(self):
        self.need_root()
        for mode in (0o644, 0o640, 0o600, 0o440, 0o400, 0o604, 0o060, 0):
            for owner, group in ((0, 0), (SOMEBODY, GROUP), (0, GROUP), (SOMEBODY, 0)):
                def prepare():
                    os.chown("out", owner, group)
                    os.chmod("out", mode)

                self.assert_never_wider(prepare)

    def test_with_access_control_lists(self):
        self.need_root()
        for text in (access_list(6, 0, 0, 6, users=[(SOMEBODY, 6)]),
                     access_list(4, 6, 0, 4, groups=[(GROUP, 6)]),
                     access_list(6, 7, 4, 1, users=[(NOBODY, 0)])):
            for owner, group in ((0, 0), (SOMEBODY, GROUP)):
                def prepare():
                    os.chown("out", owner, group)
                    self.set("out", ACCESS, text)

                self.assert_never_wider(prepare)

    def test_where_the_directory_gives_lists_to_new_files(self):
        self.need_root()
        self.set(".", DEFAULT, access_list(7, 7, 7, 7, users=[(SOMEBODY, 7), (NOBODY, 7)]))
        for mode in (0o640, 0o600, 0o644):
            def prepare():
                if ACCESS in os.listxattr("out"):
                    os.removexattr("out", ACCESS)
                os.chmod("out", mode)

            self.assert_never_wider(prepare)


if __name__ == "__main__":
    sys.exit(unittest.main())
