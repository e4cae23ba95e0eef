"""pelorik bench. Speeds are compared with nothing: machines differ."""

import json
import re
import signal
import subprocess
import sys
import time
import unittest

from tool import TOOL, ToolTest, await_running, environment


class Bench(ToolTest):
    def test_a_line_for_each_digest_the_numbers_below_each_other(self):
        done = self.run_tool("bench")
        self.assertEqual((done.status, done.err), (0, b""))
        lines = done.text.splitlines()
        self.assertEqual([line.split()[0] for line in lines], ["md5", "gost94", "gost2012"])
        for line in lines:
            self.assertRegex(line, r"\A[a-z0-9]+ +[0-9]+\.[0-9] MiB/s\Z")
            self.assertGreater(float(line.split()[1]), 0)
        self.assertEqual(len(set(map(len, lines))), 1)

    def test_json_tells_what_was_measured(self):
        start = time.monotonic()
        done = self.run_tool("bench", "--json", "-a", "gost2012", "-a", "md5")
        took = time.monotonic() - start
        objects = [json.loads(line) for line in done.text.splitlines()]
        self.assertEqual([o["algorithm"] for o in objects], ["gost2012", "md5"])
        for o in objects:
            self.assertEqual(list(o), ["algorithm", "bytes", "seconds", "bytes_per_second"])
            self.assertEqual(o["bytes"] % 65536, 0)
            self.assertGreaterEqual(o["seconds"], 1)
            self.assertAlmostEqual(o["bytes_per_second"] * o["seconds"] / o["bytes"], 1)
        self.assertLessEqual(sum(o["seconds"] for o in objects), took)

    def test_seconds(self):
        done = self.run_tool("bench", "--json", "-a", "md5", "--seconds", "2")
        self.assertGreaterEqual(json.loads(done.text)["seconds"], 2)

    def test_usage(self):
        for words in (["x"], ["-a", "sha1"], ["--seconds", "0"], ["--seconds", "0x1"], ["-a"]):
            self.assert_refused(self.run_tool("bench", *words), "(try: pelorik bench --help)")
        self.assert_refused(self.run_tool("bench", "-a", "md5", "-a", "sha1"), "unknown algorithm 'sha1'")
        self.assert_help(["bench"], ["-a, --algorithm", "--seconds N", "--json"], ("0", "2", "130"))

    def test_an_interrupt_leaves_what_was_measured(self):
        child = subprocess.Popen([TOOL, "bench", "-a", "md5", "-a", "md5", "--seconds", "2"],
                                 stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment())
        await_running(child.pid)
        first = child.stdout.readline()
        self.assertTrue(re.match(rb"md5 +[0-9.]+ MiB/s\n", first), first)
        child.send_signal(signal.SIGINT)
        self.assertEqual(child.communicate(), (b"", b"pelorik: bench: interrupted\n"))
        self.assertEqual(child.returncode, 130)


if __name__ == "__main__":
    sys.exit(unittest.main())
