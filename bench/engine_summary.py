#!/usr/bin/env python3
"""Medians of bench/engine.sh's rounds, and each tool's ratio to the others.

Reads the lines the script printed ("<tool> <step>: S s wall, K KB peak RSS",
the storage sizes) and prints one table of medians and one of ratios.
"""
import re
import statistics
import sys
from collections import defaultdict

TOOLS = [("orv mixed", "nbf"), ("orv mixed cbf", "cbf"), ("restic", "restic"), ("borg", "borg")]
STEPS = ["first backup", "no-change backup", "restore"]
RATIOS = [("nbf", "restic"), ("nbf", "borg"), ("cbf", "nbf"), ("cbf", "restic"), ("cbf", "borg")]

timed = re.compile(r"^(.*) (first backup|no-change backup|restore): ([\d.]+) s wall, (\d+) KB")
ours_size = re.compile(r"^(orv .*) storage size: ([\d.]+)([KMG])")
peer_size = re.compile(r"([\d.]+)([KMG])\s+(\S+)-repo")
scale = {"K": 1 / 1024, "M": 1, "G": 1024}

seconds = defaultdict(list)
rss = defaultdict(list)
stored = defaultdict(list)
names = dict(TOOLS)
for line in open(sys.argv[1]):
    if m := timed.match(line):
        if m[1] in names:
            seconds[names[m[1]], m[2]].append(float(m[3]))
            rss[names[m[1]], m[2]].append(int(m[4]) / 1024)
    elif m := ours_size.match(line):
        if m[1] in names:
            stored[names[m[1]]].append(float(m[2]) * scale[m[3]])
    elif line.startswith("repository size:"):
        for size, unit, tool in peer_size.findall(line):
            stored[tool].append(float(size) * scale[unit])


def median(values):
    return statistics.median(values) if values else float("nan")


rounds = max((len(v) for v in seconds.values()), default=0)
print(f"\nMedians of {rounds} round(s): wall seconds / peak RSS MB")
tools = [short for _, short in TOOLS]
print("| step | " + " | ".join(tools) + " |")
print("|---" * (len(tools) + 1) + "|")
for step in STEPS:
    cells = [f"{median(seconds[t, step]):.2f} / {median(rss[t, step]):.0f}" for t in tools]
    print(f"| {step} | " + " | ".join(cells) + " |")
print("| stored MB | " + " | ".join(f"{median(stored[t]):.0f}" for t in tools) + " |")

print("\nRatios of the medians (time; stored size)")
print("| step | " + " | ".join(f"{a}/{b}" for a, b in RATIOS) + " |")
print("|---" * (len(RATIOS) + 1) + "|")
for step in STEPS:
    cells = [f"{median(seconds[a, step]) / median(seconds[b, step]):.2f}" for a, b in RATIOS]
    print(f"| {step} | " + " | ".join(cells) + " |")
print("| stored | " + " | ".join(f"{median(stored[a]) / median(stored[b]):.2f}" for a, b in RATIOS) + " |")
