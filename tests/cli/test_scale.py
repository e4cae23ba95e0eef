"""What long lists and crafted names cost: memory a record, and comparisons of names."""

import os
import random
import subprocess
import sys
import tempfile
import unittest

from tool import MD5, TOOL, ToolTest, environment, md5

WATCHED_CALLS = os.environ["PELORIK_WATCHED_CALLS"]
RECORDS = 200000
A_RECORD = 64  # bytes that a record may take beside its line


# Runs its args without output, and prints the status and the peak of memory.
MEASURE = """
import os, sys
child = os.fork()
if child == 0:
    null = os.open(os.devnull, os.O_RDWR)
    os.dup2(null, 1)
    os.dup2(null, 2)
    os.execv(sys.argv[1], sys.argv[1:])
_, status, usage = os.wait4(child, 0)
print(os.waitstatus_to_exitcode(status), usage.ru_maxrss)
"""


def record(name, data):
    return "%s=%s%s\n" % (name, MD5, md5(data))


class Memory(ToolTest):
    """The largest resident set, beside that of the same command on one record."""

    def setUp(self):
        super().setUp()
        self.write("f", b"1")
        self.write("one", record("f", b"1"))
        self.write("changed-one", record("f", b""))

    def peak(self, *words, statuses=(0,)):
        """In bytes. The tool is the child of a small process: a child's count begins with its parent's."""
        done = subprocess.run([sys.executable, "-I", "-S", "-c", MEASURE, TOOL, *words], env=environment(),
                              stdout=subprocess.PIPE, check=True)
        status, kibibytes = map(int, done.stdout.split())
        self.assertIn(status, statuses)
        return kibibytes * 1024

    def assert_bounded(self, list_bytes, many, one, statuses=(0,)):
        taken = self.peak(*many, statuses=statuses) - self.peak(*one, statuses=statuses)
        self.assertLess(taken, list_bytes + A_RECORD * RECORDS, many)

    def test_check_update_and_compare(self):
        for depth in (0, 30):
            names = ["./" * (depth + i % 7) + "f" for i in range(RECORDS)]
            self.write("many", "".join(record(name, b"1") for name in names))
            self.write("changed", "".join(record(name, b"") for name in names))
            self.write("other", "".join(record(name, b"") for name in reversed(names)))
            size = os.stat("many").st_size
            self.write("changed-one", record("f", b""))
            with self.subTest(depth=depth):
                for jobs in ("-j1", "-j2"):
                    self.assert_bounded(size, ["check", jobs, "many"], ["check", jobs, "one"])
                    self.assert_bounded(size, ["check", jobs, "changed"], ["check", jobs, "changed-one"],
                                        statuses=(1,))
                    self.assert_bounded(size, ["update", jobs, "--dry-run", "many"],
                                        ["update", jobs, "--dry-run", "one"])
                self.write("new", b"1")
                self.assert_bounded(size, ["update", "changed", "new"], ["update", "changed-one", "new"])
                self.assert_bounded(2 * size + A_RECORD * RECORDS, ["compare", "many", "other"],
                                    ["compare", "one", "changed-one"], statuses=(0, 1))

    def test_list(self):
        for depth in (0, 30):
            names = ["./" * (depth + i % 7) + "f" for i in range(RECORDS)]
            self.write("names", "".join(name + "\n" for name in names))
            self.write("name", "f\n")
            size = sum(len(record(name, b"1")) for name in names)
            for words in (["list", "-a", "md5"], ["list", "-a", "md5", "-o", "out"]):
                with self.subTest(depth=depth, words=words):
                    self.assert_bounded(size, [*words, "--files-from", "names"],
                                        [*words, "--files-from", "name"])

    def test_a_resumed_list(self):
        old = os.path.realpath("/bin/true")
        names = ["/" + "./" * (i % 7) + old[1:] for i in range(RECORDS)]
        self.write("names", "".join(name + "\n" for name in names))
        self.write("name", old + "\n")
        size = sum(len(record(name, b"")) for name in names)
        status = os.stat(old)
        fingerprint = "%d:%d:%d:%s:%s" % (
            status.st_dev, status.st_ino, status.st_size,
            *("%d.%d" % divmod(time, 10**9) for time in (status.st_mtime_ns, status.st_ctime_ns)))
        self.write("out.partial", "pelorik: an interrupted list, which pelorik list --resume goes on from\n" +
                   "".join("%s %s" % (fingerprint, record(name, b"1")) for name in names))
        words = ["list", "-a", "md5", "--resume", "-o"]
        self.assert_bounded(size, [*words, "out", "--files-from", "names"],
                            [*words, "other", "--files-from", "name"])
        with open("out", encoding="ascii") as out:
            self.assertEqual(out.readline(), record(names[0], b"1"))  # from the checkpoint

    def test_the_size_of_files_makes_no_difference(self):
        with open("large", "wb") as large:
            large.truncate(1 << 28)
        for words in (["hash", "-a", "md5"], ["list", "-a", "md5"]):
            taken = self.peak(*words, "large") - self.peak(*words, "f")
            self.assertLess(taken, 1 << 20)


class Collisions:
    """Names that libstdc++'s hash function for strings maps to one value."""

    MULTIPLIER = 0xc6a4a7935bd1e995
    MASK = (1 << 64) - 1
    FORBIDDEN = set(b"\0\n\r/.=[")

    @classmethod
    def unmixed(cls, mixed):
        """The eight bytes that the hash function turns into that number."""
        inverse = pow(cls.MULTIPLIER, -1, 1 << 64)
        number = mixed * inverse & cls.MASK
        number ^= number >> 47
        return (number * inverse & cls.MASK).to_bytes(8, "little")

    @classmethod
    def pair(cls, dice):
        """Sixteen bytes, and others that leave the hash value the same: two differences in the highest bit
        that cancel each other."""
        while True:
            mixed = [dice.getrandbits(64) for _ in range(2)]
            texts = [b"".join(cls.unmixed(number ^ flip) for number in mixed) for flip in (0, 1 << 63)]
            if not cls.FORBIDDEN & set(texts[0] + texts[1]):
                return texts

    @classmethod
    def names(cls, prefix, bits):
        dice = random.Random(1)
        names = [prefix]
        for _ in range(bits):
            pair = cls.pair(dice)
            names = [name + text for name in names for text in pair]
        return names


class CraftedNames(ToolTest):
    BITS = 12
    DIGEST = (MD5 + md5(b"")).encode()

    def comparisons(self, *words, status):
        with tempfile.NamedTemporaryFile("r") as counts:
            env = environment(LD_PRELOAD=WATCHED_CALLS, PELORIK_COUNTS=counts.name)
            self.assertEqual(self.run_tool(*words, env=env).status, status)
            return int(counts.readline().split()[1])

    def test_they_cost_what_other_names_do(self):
        crafted = Collisions.names(b"/collide", self.BITS)
        dice = random.Random(2)
        usual = [b"/collide" + dice.randbytes(16 * self.BITS).translate(None, bytes(Collisions.FORBIDDEN))
                 for _ in crafted]
        counts = []
        os.mkdir("d")
        self.write("d/f")
        for names in (usual, crafted):
            self.write("list", b"".join(b"%s=%s\n" % (name, self.DIGEST) for name in names))
            self.write("out.partial", b"pelorik: an interrupted list, which pelorik list --resume goes on from\n" +
                       b"".join(b"1:1:1:1.1:1.1 %s=%s\n" % (name, self.DIGEST) for name in names))
            counts.append([
                self.comparisons("compare", "list", "list", status=0),
                self.comparisons("check", "--unlisted", "d", "list", status=1),
                self.comparisons("update", "list", "d/f", status=1),
                self.comparisons("list", "-a", "md5", "--resume", "-o", "out", "d/f", status=0),
            ])
        for expected, count in zip(*counts):
            self.assertLess(count, 2 * expected + len(crafted) * self.BITS)


if __name__ == "__main__":
    sys.exit(unittest.main())
