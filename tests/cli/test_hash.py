"""pelorik hash. Expected digests come from hashlib and libgcrypt."""

import os
import subprocess
import sys
import threading
import time
import unittest

from tool import (EMPTY_GOST2012, GOST94, GOST2012, MD5, TOOL, ToolTest, environment, gost94, gost2012,
                  md5)


def pattern(size):
    return bytes(i % 251 for i in range(size))


class Hash(ToolTest):
    def test_one_line_a_digest_in_hash_list_form_gost2012_by_default(self):
        self.write("a", b"abc")
        self.write("b", b"")
        done = self.run_tool("hash", "a", "b")
        self.assertEqual(done.status, 0)
        self.assertEqual(done.text, "a=%s%s\nb=%s%s\n" % (GOST2012, gost2012(b"abc"), GOST2012,
                                                          EMPTY_GOST2012))
        self.assertEqual(done.err, b"")

    def test_each_algorithm_at_the_sizes_around_a_block(self):
        for size in (0, 1, 31, 32, 33, 65535, 65536, 65537, 131072, 200000):
            data = pattern(size)
            self.write("f", data)
            for name, expected in (("md5", MD5 + md5(data)), ("gost94", GOST94 + gost94(data)),
                                   ("gost2012", GOST2012 + gost2012(data))):
                with self.subTest(size=size, algorithm=name):
                    done = self.run_tool("hash", "-a", name, "f")
                    self.assertEqual((done.status, done.text), (0, "f=%s\n" % expected))

    def test_several_algorithms_in_the_order_asked_for(self):
        self.write("f", b"abc")
        done = self.run_tool("hash", "-a", "gost94", "--algorithm=md5", "-agost2012", "f")
        self.assertEqual(done.text, "f=%s%s\nf=%s%s\nf=%s%s\n" % (
            GOST94, gost94(b"abc"), MD5, md5(b"abc"), GOST2012, gost2012(b"abc")))

    def test_several_algorithms_take_one_pass(self):
        # A pipe can be read only once.
        done = self.run_tool("hash", "-a", "md5", "-a", "gost94", "-", stdin=pattern(100000))
        self.assertEqual(done.text, "-=%s%s\n-=%s%s\n" % (
            MD5, md5(pattern(100000)), GOST94, gost94(pattern(100000))))

    def test_upper_writes_upper_case_digits(self):
        self.write("f", b"abc")
        done = self.run_tool("hash", "-a", "md5", "--upper", "f")
        self.assertEqual(done.text, "f=%s%s\n" % (MD5, md5(b"abc").upper()))

    def test_bare_prints_digits_alone(self):
        self.write("f", b"abc")
        done = self.run_tool("hash", "--bare", "-a", "md5", "-a", "gost2012", "f")
        self.assertEqual(done.text, "%s\n%s\n" % (md5(b"abc"), gost2012(b"abc")))

    def test_bare_and_upper_together(self):
        done = self.run_tool("hash", "--bare", "--upper", "-a", "md5", stdin=b"abc")
        self.assertEqual(done.text, md5(b"abc").upper() + "\n")

    def test_bare_is_refused_for_gost94(self):
        self.write("f", b"abc")
        self.assert_refused(self.run_tool("hash", "--bare", "-a", "gost94", "f"), "gost2012")
        self.assert_refused(self.run_tool("hash", "-a", "md5", "-a", "gost94", "--bare", "f"))

    def test_standard_input_with_a_dash_and_without_operands(self):
        for words in (["-"], []):
            done = self.run_tool("hash", "-a", "md5", *words, stdin=b"data")
            self.assertEqual((done.status, done.text), (0, "-=%s%s\n" % (MD5, md5(b"data"))))

    def test_standard_input_twice_is_refused(self):
        self.assert_refused(self.run_tool("hash", "-", "-", stdin=b"data"), "only once")

    def test_a_writer_of_single_bytes_gives_the_digest_of_the_whole(self):
        data = pattern(70001)
        child = subprocess.Popen([TOOL, "hash", "-a", "gost94", "-a", "gost2012", "-a", "md5"],
                                 stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=environment())
        for i in range(len(data)):
            os.write(child.stdin.fileno(), data[i:i + 1])
        out, _ = child.communicate()
        self.assertEqual(out.decode(), "-=%s%s\n-=%s%s\n-=%s%s\n" % (
            GOST94, gost94(data), GOST2012, gost2012(data), MD5, md5(data)))

    def test_a_pipe_that_others_made_one_that_does_not_wait_is_read_to_its_end(self):
        reader, writer = os.pipe()
        os.set_blocking(reader, False)
        child = subprocess.Popen([TOOL, "hash", "-a", "md5"], stdin=reader, stdout=subprocess.PIPE,
                                 env=environment())
        os.close(reader)
        time.sleep(0.2)  # it finds nothing to read
        os.write(writer, b"abc")
        os.close(writer)
        out, _ = child.communicate()
        self.assertEqual((child.returncode, out.decode()), (0, "-=%s%s\n" % (MD5, md5(b"abc"))))

    def test_a_named_pipe_is_read_as_a_stream(self):
        os.mkfifo("pipe")

        def feed():
            with open("pipe", "wb") as pipe:
                for _ in range(100):
                    pipe.write(b"x" * 1000)
                    pipe.flush()

        writer = threading.Thread(target=feed)
        writer.start()
        done = self.run_tool("hash", "-a", "gost94", "pipe")
        writer.join()
        self.assertEqual((done.status, done.text), (0, "pipe=%s%s\n" % (GOST94, gost94(b"x" * 100000))))

    def test_files_whose_size_is_not_what_they_give_are_refused_but_not_as_streams(self):
        for name in ("/proc/version", "/proc/filesystems", "/sys/kernel/mm/transparent_hugepage/enabled"):
            if not os.path.exists(name):
                continue
            with self.subTest(name=name):
                with open(name, "rb") as file:
                    content = file.read()
                done = self.run_tool("hash", "-a", "md5", name)
                self.assertEqual((done.status, done.out), (1, b""))
                self.assertEqual(done.complaint, "pelorik: hash: %s: size mismatch: stat reports %d bytes, "
                                 "read returned %d\n" % (name, os.stat(name).st_size, len(content)))
                with open(name, "rb") as file:
                    done = subprocess.run([TOOL, "hash", "-a", "md5", "--bare"], stdin=file,
                                          env=environment(), capture_output=True)
                self.assertEqual((done.returncode, done.stdout.decode()), (0, md5(content) + "\n"))

    def test_a_directory_and_a_missing_file_are_errors_with_a_hint_and_the_others_are_hashed(self):
        os.mkdir("d")
        self.write("f", b"abc")
        done = self.run_tool("hash", "-a", "md5", "d", "f", "missing", "/missing/too")
        self.assertEqual(done.status, 1)
        self.assertEqual(done.text, "f=%s%s\n" % (MD5, md5(b"abc")))
        self.assertEqual(done.complaint.splitlines(), [
            "pelorik: hash: d: Is a directory (pelorik list -r hashes the files in it)",
            "pelorik: hash: missing: No such file or directory "
            "(the name is looked for in the current directory)",
            "pelorik: hash: /missing/too: No such file or directory (is the name spelt right?)"])

    def test_a_missing_file_alone_is_status_1(self):
        done = self.run_tool("hash", "missing")
        self.assertEqual((done.status, done.out), (1, b""))

    def test_a_file_without_permission_is_status_1(self):
        self.write("secret")
        os.chmod("secret", 0)
        done = self.run_unprivileged("hash", "secret")
        self.assertEqual((done.status, done.out), (1, b""))
        self.assertEqual(done.complaint, "pelorik: hash: secret: Permission denied\n")

    def test_a_file_that_fails_while_it_is_read_gives_no_line(self):
        # Address 0 of a process is never mapped: reading there is an input/output error.
        done = self.run_tool("hash", "/proc/self/mem")
        self.assertEqual((done.status, done.out), (1, b""))
        self.assertEqual(done.complaint, "pelorik: hash: /proc/self/mem: Input/output error\n")

    def test_names_are_raw_in_a_pipe(self):
        name = b"\x1b[31m\xff=\n"
        self.write(os.fsdecode(name), b"abc")
        done = self.run_tool("hash", "-a", "md5", os.fsdecode(name))
        self.assertEqual(done.out, name + b"=" + (MD5 + md5(b"abc")).encode() + b"\n")

    def test_help_tells_that_names_are_raw_in_a_pipe(self):
        text = " ".join(self.run_tool("hash", "--help").text.split())
        self.assertIn("Names go to a pipe or a file byte for byte, line breaks included", text)

    def test_a_name_in_brackets_is_a_file_name(self):
        for name in ("[x]", "[a,b]", "[]"):
            self.write(name, b"abc")
            done = self.run_tool("hash", "-a", "md5", name)
            self.assertEqual((done.status, done.text), (0, "%s=%s%s\n" % (name, MD5, md5(b"abc"))))

    def test_names_of_commands_and_odd_names_are_file_names(self):
        for name in ("hash", "check", "++", " ", "a b"):
            self.write(name, b"abc")
            done = self.run_tool("hash", "-a", "md5", name)
            self.assertEqual((done.status, done.text), (0, "%s=%s%s\n" % (name, MD5, md5(b"abc"))))

    def test_names_that_start_with_a_dash_go_behind_two_dashes(self):
        self.write("-f", b"abc")
        self.write("--", b"def")
        done = self.run_tool("hash", "-a", "md5", "--", "-f", "--")
        self.assertEqual((done.status, done.text), (0, "-f=%s%s\n--=%s%s\n" % (
            MD5, md5(b"abc"), MD5, md5(b"def"))))

    def test_options_may_stand_behind_operands(self):
        self.write("f", b"abc")
        done = self.run_tool("hash", "f", "-a", "md5")
        self.assertEqual(done.text, "f=%s%s\n" % (MD5, md5(b"abc")))

    def test_an_empty_name_is_a_missing_file(self):
        done = self.run_tool("hash", "")
        self.assertEqual((done.status, done.out), (1, b""))

    def test_an_unknown_algorithm_is_refused(self):
        for name in ("sha1", "MD5", "", "md5,gost94"):
            self.assert_refused(self.run_tool("hash", "-a", name, "f"), "md5, gost94 or gost2012")

    def test_many_operands(self):
        self.write("f", b"abc")
        done = self.run_tool("hash", "-a", "md5", *["f"] * 20000)
        self.assertEqual(done.status, 0)
        self.assertEqual(done.text, ("f=%s%s\n" % (MD5, md5(b"abc"))) * 20000)

    def test_closed_standard_input_is_an_error(self):
        done = self.run_tool("hash", "-", stdin=None, preexec_fn=lambda: os.close(0))
        self.assertEqual((done.status, done.out), (1, b""))
        self.assertIn("Bad file descriptor", done.complaint)


if __name__ == "__main__":
    sys.exit(unittest.main())
