#!/usr/bin/env python3
"""Turns what the benchmarks measured into a table of ratios and a bar chart, or checks it against the bars.

    report.py DIRECTORY             prints the table and writes DIRECTORY/ratios.svg
    report.py DIRECTORY --check     also exits with 1 when a bar of bars.json is missed

DIRECTORY holds *.json: the benchmark programs' own output, and plain objects of names and seconds.
A name is RACE/SIZE/WHO; a ratio says how many times as fast WHO is as the best of its peers.
"""

import argparse
import collections
import glob
import json
import os
import sys

BARS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "bars.json")


def read_times(directory):
    """Seconds (or any one unit a race) by race and runner."""
    times = {}
    for path in sorted(glob.glob(os.path.join(directory, "*.json"))):
        with open(path, encoding="utf-8") as file:
            content = json.load(file)
        if "benchmarks" in content:
            measured = {
                run["run_name"]: run["cpu_time"]
                for run in content["benchmarks"]
                if run.get("aggregate_name") == "median"
            }
        else:
            measured = content
        for name, seconds in measured.items():
            race, who = name.removesuffix("/iterations:1").rsplit("/", 1)
            times.setdefault(race, {})[who] = seconds
    return times


def judged(bars, times):
    """For each bar: the bar, the best peer and the ratio, both None where it was not measured."""
    for bar in bars:
        race = times.get(bar["race"], {})
        peers = {who: race[who] for who in bar["peers"] if who in race}
        if bar["who"] not in race or not peers:
            yield bar, None, None
            continue
        best = min(peers, key=peers.get)
        yield bar, best, peers[best] / race[bar["who"]]


def verdict(bar, ratio):
    if ratio is None:
        return "not measured"
    if ratio >= bar["times"]:
        return "reached"
    return "within tolerance" if ratio >= bar["times"] * (1 - bar["tolerance"]) else "MISSED"


def print_table(rows):
    print("| race | who | times as fast as the best peer | bar | |")
    print("|---|---|---|---|---|")
    for bar, best, ratio in rows:
        measured = "-" if ratio is None else f"{ratio:.2f} ({best})"
        print(
            f"| {bar['race']} | {bar['who']} | {measured} | {bar['times']:.2f} "
            f"| {verdict(bar, ratio)} |"
        )


def chart_label(bar, times):
    """Names the peers where a race has several bars."""
    label = f"{bar['race']} {bar['who']}"
    return f"{label} ({', '.join(bar['peers'])})" if times[bar["race"], bar["who"]] > 1 else label


def write_chart(rows, path):
    times = collections.Counter((bar["race"], bar["who"]) for bar, _, _ in rows)
    rows = [(chart_label(bar, times), bar, ratio) for bar, _, ratio in rows if ratio]
    left, scale, height = 300, 90, 18
    width = left + int(scale * max(ratio for _, _, ratio in rows)) + 60
    lines = [
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" '
        f'height="{height * len(rows) + 40}" font-family="sans-serif" font-size="12">',
        '<rect width="100%" height="100%" fill="white"/>',
        '<text x="10" y="16">Times as fast as the best peer (dark line: 1; mark: the bar)</text>',
    ]
    for index, (label, bar, ratio) in enumerate(rows):
        y = 28 + height * index
        colour = "#4a7" if ratio >= bar["times"] else "#c63"
        goal = left + int(scale * bar["times"])
        lines += [
            f'<text x="{left - 6}" y="{y + 12}" text-anchor="end">{label}</text>',
            f'<rect x="{left}" y="{y}" width="{int(scale * ratio)}" height="{height - 4}" '
            f'fill="{colour}"/>',
            f'<rect x="{goal}" y="{y - 1}" width="2" height="{height - 2}" fill="#333"/>',
            f'<text x="{left + int(scale * ratio) + 6}" y="{y + 12}">{ratio:.2f}</text>',
        ]
    lines.append(
        f'<line x1="{left + scale}" y1="24" x2="{left + scale}" '
        f'y2="{28 + height * len(rows)}" stroke="black"/>'
    )
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(lines + ["</svg>", ""]))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("directory")
    parser.add_argument("--check", action="store_true")
    arguments = parser.parse_args()
    with open(BARS, encoding="utf-8") as file:
        bars = json.load(file)
    rows = list(judged(bars, read_times(arguments.directory)))
    print_table(rows)
    write_chart(rows, os.path.join(arguments.directory, "ratios.svg"))
    missed = [bar for bar, _, ratio in rows if verdict(bar, ratio) == "MISSED"]
    if arguments.check and missed:
        sys.exit(f"{len(missed)} bars were missed")


if __name__ == "__main__":
    main()
