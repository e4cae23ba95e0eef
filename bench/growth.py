#!/usr/bin/env python3
"""Prints time against size as a table, with the exponent that fits.

    growth.py DIRECTORY

DIRECTORY holds the benchmark programs' own output, *.json. A name is WHAT/SIZE/pelorik. The exponent is the
slope of the line through the logarithms, by least squares, over the sizes whose time is more than ten times
that of the smallest: below that, opening a file or starting a call costs more than its size does.
"""

import glob
import json
import math
import os
import sys

UNITS = [(1e9, "s"), (1e6, "ms"), (1e3, "us"), (1, "ns")]


def read_times(directory):
    """Nanoseconds by what and size."""
    times = {}
    for path in sorted(glob.glob(os.path.join(directory, "*.json"))):
        with open(path, encoding="utf-8") as file:
            for run in json.load(file)["benchmarks"]:
                what, size, _ = run["run_name"].split("/")
                times.setdefault(what, {})[int(size)] = run["cpu_time"]
    return times


def exponent(points):
    """The slope through the logarithms of (size, time)."""
    logs = [(math.log(size), math.log(time)) for size, time in points]
    mean_x, mean_y = (sum(column) / len(logs) for column in zip(*logs))
    return sum((x - mean_x) * (y - mean_y) for x, y in logs) / sum(
        (x - mean_x) ** 2 for x, _ in logs
    )


def readable(time):
    scale, unit = next((scale, unit) for scale, unit in UNITS if time >= scale)
    return f"{time / scale:.3g} {unit}"


def main():
    print("| what | size: time | exponent |")
    print("|---|---|---|")
    for what, by_size in read_times(sys.argv[1]).items():
        points = sorted(by_size.items())
        fitted = [point for point in points if point[1] > 10 * points[0][1]]
        listed = ", ".join(f"{size:,}: {readable(time)}" for size, time in points)
        print(f"| {what} | {listed} | {exponent(fitted):.2f} |")


if __name__ == "__main__":
    main()
