#!/usr/bin/env python3
"""Measures the built tool beside other programs, in turns, and writes medians or minima as JSON.

    tool.py PELORIK PORTABLE OUT.json

PORTABLE is the same tool with the roads for newer processors closed.
"""

import json
import os
import statistics
import subprocess
import sys
import tempfile
import time

FILE_SIZE = 512 << 20
SMALL_FILES = 100_000
ROUNDS = 5
ROAD_FLAGS = {"avx512f", "avx512bw", "avx512vl", "avx512vbmi", "gfni"}


def own_tools(pelorik, portable):
    """The tool on each road that this processor has, by name."""
    with open("/proc/cpuinfo", encoding="ascii") as cpuinfo:
        flags = next(line for line in cpuinfo if line.startswith("flags")).split()
    tools = {"pelorik-portable": portable}
    if ROAD_FLAGS <= set(flags):
        tools["pelorik-avx512"] = pelorik
    return tools


def times_of(command, directory):
    """CPU and wall seconds of one run, which must succeed."""
    begin = time.monotonic()
    child = subprocess.Popen(
        command, cwd=directory, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
    )
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        raise SystemExit(f"{command}: exit status {child.returncode}")
    return {"cpu": usage.ru_utime + usage.ru_stime, "wall": time.monotonic() - begin}


def race(commands, directory, statistic=statistics.median):
    """The medians, or another statistic, of runs in turn, by name of the contestant."""
    taken = {who: [] for who in commands}
    for _ in range(ROUNDS):
        for who, command in commands.items():
            taken[who].append(times_of(command, directory))
    return {
        who: {kind: statistic([run[kind] for run in runs]) for kind in ("cpu", "wall")}
        for who, runs in taken.items()
    }


def measure_one_file(tools, directory):
    with open(os.path.join(directory, "big"), "wb") as big:
        piece = os.urandom(1 << 20)
        for _ in range(FILE_SIZE >> 20):
            big.write(piece)
    races = {
        "md5": {"md5sum": ["md5sum", "big"]},
        "gost2012": {"rhash": ["rhash", "--gost12-256", "big"]},
        "gost94": {"rhash": ["rhash", "--gost94-cryptopro", "big"]},
    }
    for algorithm, commands in races.items():
        for who, tool in tools.items():
            commands[who] = [tool, "hash", "-a", algorithm, "big"]
        for who, median in race(commands, directory).items():
            yield f"tool-hash-{algorithm}/{FILE_SIZE}/{who}", median["cpu"]
    os.remove(os.path.join(directory, "big"))


def make_small_files(directory):
    for folder in range(100):
        os.mkdir(os.path.join(directory, f"d{folder}"))
        for number in range(SMALL_FILES // 100):
            with open(os.path.join(directory, f"d{folder}", f"f{number}"), "wb") as small:
                small.write(os.urandom(1024))


def measure_small_files(tools, directory):
    tree = os.path.join(directory, "tree")
    os.mkdir(tree)
    make_small_files(tree)
    best = tools.get("pelorik-avx512", tools["pelorik-portable"])
    subprocess.run([best, "list", "-r", "-o", "own.list", "tree"], cwd=directory, check=True)
    with open(os.path.join(directory, "rhash.list"), "wb") as out:
        subprocess.run(
            ["rhash", "--gost12-256", "-r", "tree"], cwd=directory, stdout=out, check=True
        )
    commands = {who: [tool, "check", "-j", "1", "own.list"] for who, tool in tools.items()}
    commands["rhash"] = ["rhash", "--gost12-256", "-c", "--skip-ok", "rhash.list"]
    for who, median in race(commands, directory).items():
        for kind in ("cpu", "wall"):
            yield f"tool-check-{kind}/{SMALL_FILES}/{who}", median[kind]
    threads = {f"pelorik-j{n}": [best, "check", "-j", str(n), "own.list"] for n in (1, 2)}
    for who, median in race(threads, directory).items():
        yield f"tool-check-threads/{SMALL_FILES}/{who}", median["wall"]


def write_output(command, directory, name, args=()):
    """Runs `command`, several times if it takes too many `args`."""
    with open(os.path.join(directory, name), "wb") as out:
        subprocess.run(["xargs", "-d", "\n", *command] if args else command, cwd=directory, check=True,
                       input="\n".join(args).encode(), stdout=out, stderr=subprocess.DEVNULL)


def make_lists(tool, directory):
    """Lists of the tree in the formats of all contestants, in one order."""
    for algorithm in ("md5", "gost2012"):
        write_output([tool, "list", "-a", algorithm, "-r", "tree"], directory, algorithm + ".list")
    with open(os.path.join(directory, "md5.list"), encoding="ascii") as own:
        lines = own.readlines()
    names = [line.split("=")[0] for line in lines]
    for half, part in enumerate((lines[::2], lines[1::2])):
        with open(os.path.join(directory, f"half{half}.list"), "w", encoding="ascii") as out:
            out.writelines(part)
    write_output(["md5sum"], directory, "md5.sums", names)
    write_output(["b3sum"], directory, "b3.sums", names)
    write_output(["rhash", "--md5"], directory, "rhash-md5.list", names)
    write_output(["hashdeep", "-c", "md5", "-l", "-r", "tree"], directory, "hashdeep.list")


def measure_commands(tools, directory):
    """One thread on the tree of small files that `measure_small_files` made: minima of CPU time."""
    best = tools.get("pelorik-avx512", tools["pelorik-portable"])
    make_lists(best, directory)
    commands = {
        "md5sum": ["md5sum", "-c", "--quiet", "md5.sums"],
        "b3sum": ["b3sum", "--num-threads", "1", "--quiet", "-c", "b3.sums"],
        "hashdeep": ["hashdeep", "-j0", "-l", "-a", "-k", "hashdeep.list", "-r", "tree"],
        "rhash": ["rhash", "-c", "--skip-ok", "rhash-md5.list"],
        "check-md5": [best, "check", "-j1", "md5.list"],
        "list-md5": [best, "list", "-j1", "-a", "md5", "-r", "tree"],
        "update-md5": [best, "update", "-j1", "md5.list"],
        "check-gost2012": [best, "check", "-j1", "gost2012.list"],
        "list-gost2012": [best, "list", "-j1", "-r", "tree"],
        "update-gost2012": [best, "update", "-j1", "gost2012.list"],
    }
    for who, least in race(commands, directory, min).items():
        yield f"tool-commands/{SMALL_FILES}/{who}", least["cpu"]
    processes = f"{best} check -j1 half0.list & {best} check -j1 half1.list && wait $!"
    threads = {
        "two-processes": ["sh", "-c", processes],
        "two-threads": [best, "check", "-j2", "md5.list"],
    }
    for who, least in race(threads, directory, min).items():
        yield f"tool-two-threads/{SMALL_FILES}/{who}", least["wall"]


def main():
    tools = own_tools(os.path.abspath(sys.argv[1]), os.path.abspath(sys.argv[2]))
    measured = {}
    with tempfile.TemporaryDirectory() as directory:
        for measure in (measure_one_file, measure_small_files, measure_commands):
            for name, seconds in measure(tools, directory):
                print(f"{name}: {seconds:.3f} s", flush=True)
                measured[name] = seconds
    with open(sys.argv[3], "w", encoding="utf-8") as file:
        json.dump(measured, file, indent=1)


if __name__ == "__main__":
    main()
