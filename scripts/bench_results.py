#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes benchmarks/RESULTS.md, and docs/growth.svg, of what the benchmarks printed.

usage: bench_results.py COMMAND ROUNDS < lines         (each "subject workload figure value unit")
"""
import math
import os
import platform
import statistics
import subprocess
import sys
from collections import defaultdict

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
PACKAGES = ["libqt5core5a", "libabsl-dev", "libboost-dev", "libsqlite3-dev", "libintelrdfpmath-dev",
            "libisal-dev", "libquantlib0-dev", "libtbb-dev"]
LESS_IS_BETTER = {"s", "ms", "us", "B", "MB"}


def output(*command):
    try:
        return subprocess.run(command, capture_output=True, text=True, check=True).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return ""


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        models = [line.split(":")[1].strip() for line in info if line.startswith("model name")]
    with open("/proc/meminfo", encoding="utf-8") as info:
        memory = int(info.readline().split()[1]) / 1024 / 1024
    return f"{len(models)} x {models[0]}, {memory:.0f} GiB, Linux {platform.release().split('-')[0]}"


def versions():
    found = [f"{name} {version}" for name in PACKAGES
             if (version := output("dpkg-query", "-W", "-f=${Version}", name))]
    compiler = output("c++", "--version").split("\n")[0]
    revision = output("git", "-C", ROOT, "describe", "--always", "--dirty")
    return f"livetable {revision}; {compiler}; " + ", ".join(found)


def number(value):
    if value >= 1000:
        return f"{value:,.0f}"
    return f"{value:.3g}" if value < 100 else f"{value:.0f}"


def read(lines):
    figures = defaultdict(lambda: defaultdict(list))
    units = {}
    for line in lines:
        words = line.split()
        if len(words) == 5:
            subject, workload, figure, value, unit = words
            figures[workload, figure][subject].append(float(value))
            units[workload, figure] = unit
    medians = {key: {subject: statistics.median(values) for subject, values in subjects.items()}
               for key, subjects in figures.items()}
    return medians, units


def results_table(medians, units):
    yield "| workload | figure | unit | livetable | best peer | | ratio | the others |"
    yield "|---|---|---|--:|---|--:|--:|---|"
    for (workload, figure), subjects in medians.items():
        if workload.startswith("growth"):
            continue
        unit = units[workload, figure]
        sign = 1 if unit in LESS_IS_BETTER else -1
        ours = next((v for s, v in subjects.items() if s.startswith("livetable")), None)
        peers = sorted(((sign * v, s, v) for s, v in subjects.items()
                        if not s.startswith("livetable")))
        best = (peers[0][1], number(peers[0][2])) if peers else ("", "")
        ratio = ""
        if peers and ours:
            ratio = f"{(ours / peers[0][2]) ** -sign:.2f}"
        others = ", ".join(f"{s} {number(v)}" for _, s, v in peers[1:])
        yield (f"| {workload} | {figure} | {unit} | {number(ours) if ours else ''} | {best[0]} |"
               f" {best[1]} | {ratio} | {others} |")


def growth_points(medians):
    points = {}
    for (workload, figure), subjects in medians.items():
        if workload.startswith("growth-") and figure == "rate":
            _, rows, views = workload.split("-")
            points[int(rows), int(views)] = subjects["livetable"]
    return points


def growth_table(points):
    yield "| rows | views | updates/s | us each | us each and changed view |"
    yield "|--:|--:|--:|--:|--:|"
    changed = {1: 1, 2: 2, 4: 3, 8: 6}
    for (rows, views), rate in sorted(points.items(), key=lambda p: (p[0][1] != 4, p[0])):
        yield (f"| {rows:,} | {views} | {rate:,.0f} | {1e6 / rate:.2f} |"
               f" {1e6 / rate / changed[views]:.2f} |")


def panel(x, title, labels, values):
    """One line chart: time against a logarithmic axis, with the line of logarithmic growth."""
    top, width, height = max(values) * 1.15, 300, 200
    step = width / max(len(values) - 1, 1)
    place = [(x + i * step, 250 - v / top * height) for i, v in enumerate(values)]
    yield f'<text x="{x}" y="30" font-weight="bold">{title}</text>'
    yield f'<path d="M{x} 250H{x + width}M{x} 250V{250 - height}" stroke="#888" fill="none"/>'
    line = " ".join(f"{a:.1f},{b:.1f}" for a, b in place)
    yield f'<polyline points="{line}" fill="none" stroke="#1f6fb2" stroke-width="2"/>'
    for (a, b), label, value in zip(place, labels, values):
        yield f'<circle cx="{a:.1f}" cy="{b:.1f}" r="3.5" fill="#1f6fb2"/>'
        yield f'<text x="{a:.1f}" y="{b - 8:.1f}" text-anchor="middle">{value:.1f}</text>'
        yield f'<text x="{a:.1f}" y="268" text-anchor="middle">{label}</text>'


def picture(points):
    by_rows = sorted((rows, 1e6 / rate) for (rows, views), rate in points.items() if views == 4)
    by_views = sorted((views, 1e6 / rate) for (rows, views), rate in points.items()
                      if rows == 1000000)
    yield ('<svg xmlns="http://www.w3.org/2000/svg" width="780" height="290" '
           'font-family="sans-serif" font-size="12">')
    yield '<rect width="780" height="290" fill="white"/>'
    yield from panel(50, "Microseconds an update, 4 views, by rows",
                     [f"{rows:,}" for rows, _ in by_rows], [us for _, us in by_rows])
    yield from panel(430, "Microseconds an update, 1,000,000 rows, by views",
                     [str(views) for views, _ in by_views], [us for _, us in by_views])
    yield "</svg>"


def write(name, lines):
    with open(os.path.join(ROOT, name), "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")


def main():
    medians, units = read(sys.stdin)
    points = growth_points(medians)
    text = ["# What the benchmarks say", "",
            "All contenders take turns in each round; where there are several rounds the figures are",
            "medians. The clock of a machine moves between runs: only the ratios are worth comparing.",
            "A ratio above 1 means that livetable is ahead of the best peer. What the workloads do is",
            "told at the top of each program; W2c is W2 with views that compare as a host would write",
            "it.", "",
            f"- Machine: {machine()}", f"- Versions: {versions()}", f"- Command: `{sys.argv[1]}`",
            f"- Rounds: {sys.argv[2]}; load average of the machine at the end:"
            f" {os.getloadavg()[0]:.1f}", ""]
    text += results_table(medians, units)
    if points:
        text += ["", "## Growth", "",
                 "One single-row update (W2). Of four views an update changes three, of eight six.",
                 "", *growth_table(points), "", "![The same as a picture](../docs/growth.svg)"]
        if all((rows, 4) in points for rows in (10000, 1000000)):
            small, large = (1e6 / points[rows, 4] for rows in (10000, 1000000))
            text += ["", f"From 10,000 to 1,000,000 rows the time grows {large / small:.1f}-fold;"
                         f" the logarithm grows {math.log(1e6) / math.log(1e4):.1f}-fold.",
                     "What exceeds it is the memory's: 10,000 rows with their views lie in the second",
                     "cache, of a million rows nearly every row, leaf and list of leaves that an update",
                     "touches comes from further away. A simulated cache of 512 KB (callgrind, 200,000",
                     "rows) misses 210 lines an update, most of them where leaves are searched and moved."]
        write("docs/growth.svg", picture(points))
    write("benchmarks/RESULTS.md", text)


main()
