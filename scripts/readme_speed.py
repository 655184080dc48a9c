#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the speed table of README.md from benchmarks/RESULTS.md.

usage: readme_speed.py [--check]      --check: fails when the table is not what the results say
"""
import os
import re
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
README = os.path.join(ROOT, "README.md")
# What a reader cares about: a workload and a figure of the results, and the words for it.
LINES = (
    ("W1", "load", "Load a million rows and build four sorted views"),
    ("W2", "rate", "Change one row, three of the four views move it"),
    ("W2", "p99", "The same: 99 % of these changes take less than"),
    ("IO", "load", "Read a million rows from a file"),
    ("pricing", "implied", "Implied volatility of an option, one thread"),
)
UNITS = {"1/s": "a second", "M/s": "million a second", "us": "µs"}


def measured():
    figures = {}
    with open(os.path.join(ROOT, "benchmarks", "RESULTS.md"), encoding="utf-8") as file:
        text = file.read()
    for line in text.split("\n"):
        cells = [c.strip() for c in line.strip("|").split("|")]
        if len(cells) == 8:
            figures[cells[0], cells[1]] = cells
    return (figures, re.search(r"^- Machine: (.*)$", text, re.M).group(1),
            re.search(r"^- Command: (.*)$", text, re.M).group(1))


def table():
    figures, machine, command = measured()
    out = ["| | livetable | best of the others | |", "|---|--:|--:|---|"]
    for workload, figure, words in LINES:
        if (workload, figure) not in figures:
            sys.exit("readme_speed: benchmarks/RESULTS.md has no %s, %s" % (workload, figure))
        _, _, unit, own, peer, best, _, _ = figures[workload, figure]
        unit = UNITS.get(unit, unit)
        other = "%s %s" % (best, unit) if best else ""
        out.append("| %s | %s %s | %s | %s |" % (words, own, unit, other, peer))
    out.append("")
    out.append("Measured on %s, by %s." % (machine, command))
    return "\n".join(out) + "\n"


def main():
    with open(README, encoding="utf-8") as file:
        text = file.read()
    fresh, count = re.subn(r"(?s)(<!-- speed -->\n).*?(<!-- end -->\n)",
                           lambda m: m.group(1) + table() + m.group(2), text)
    if count != 1:
        sys.exit("readme_speed: README.md has no place for the table")
    if "--check" in sys.argv:
        if fresh != text:
            sys.exit("readme_speed: the table of README.md is not what benchmarks/RESULTS.md says; "
                     "run scripts/readme_speed.py")
    elif fresh != text:
        with open(README, "w", encoding="utf-8") as file:
            file.write(fresh)


main()
