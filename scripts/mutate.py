#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Judges the tests: plants the faults of mutations.txt one at a time and asks whether a test fails.

    scripts/mutate.py [--work DIR] [--jobs N] [--only TEXT] [--every N] [--check]

The tree is copied to DIR, built there with -O1 and without debug information, and for each fault
changed, built, tested by the ctest programs that the fault names, and changed back. A test that
hangs counts as one that fails. N jobs take the faults in turn, each in a copy and a build of its
own. --only takes the faults whose title or file contains TEXT, --every each N-th of those; --check
looks only at whether each fault still fits its file. The exit code is 1 when a fault is missed.
ccache, where there is one, makes a second run much shorter.
"""

import argparse
import concurrent.futures
import dataclasses
import os
import pathlib
import queue
import shutil
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
FUNCTION_TIMEOUT_MS = "100000"  # of one test function


@dataclasses.dataclass
class Fault:
    title: str
    file: str = ""
    tests: str = ""
    old: str = ""
    new: str = ""


def read_faults(path):
    faults = []
    for number, line in enumerate(path.read_text().splitlines(), 1):
        kind, text = line[:2], line[2:]
        if kind == "= ":
            faults.append(Fault(text))
        elif kind == "@ ":
            faults[-1].file, faults[-1].tests = text.split()
        elif kind == "- ":
            faults[-1].old += text + "\n"
        elif kind == "+ ":
            faults[-1].new += text + "\n"
        elif line and line[0] != "#":
            sys.exit(f"{path}:{number}: not understood: {line}")
    return faults


def copy_tree(target):
    """Copies what git knows; files that have not changed keep their times, so little is rebuilt."""
    listed = subprocess.run(["git", "-C", ROOT, "ls-files", "-z", "--cached", "--others",
                             "--exclude-standard"], capture_output=True, check=True)
    for name in filter(None, listed.stdout.decode().split("\0")):
        source, copy = ROOT / name, target / name
        if not source.is_file():
            copy.unlink(missing_ok=True)
            continue
        copy.parent.mkdir(parents=True, exist_ok=True)
        if not copy.exists() or copy.read_bytes() != source.read_bytes():
            copy.write_bytes(source.read_bytes())


class Bench:
    """A copy of the tree with a build of its own."""

    def __init__(self, place, jobs):
        self.tree = place / "tree"
        self.folder = place / "build"
        self.compilers = max(1, (os.cpu_count() or 1) // jobs)
        # Tests that run twice at a time do not meet in a folder, and all benches share a cache.
        (place / "tmp").mkdir(parents=True, exist_ok=True)
        self.environment = dict(os.environ, QTEST_FUNCTION_TIMEOUT=FUNCTION_TIMEOUT_MS,
                                TMPDIR=str(place / "tmp"), CCACHE_BASEDIR=str(place),
                                CCACHE_NOHASHDIR="1")

    def run(self, *command):
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              env=self.environment)

    def build(self, targets, compilers=None):
        return self.run("cmake", "--build", self.folder, f"-j{compilers or self.compilers}",
                        "--target", *targets)

    def prepare(self, programs):
        copy_tree(self.tree)
        launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
        configured = self.run("cmake", "-S", self.tree, "-B", self.folder, "-G", "Ninja",
                              "-DCMAKE_BUILD_TYPE=Release",
                              "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -DNDEBUG",
                              "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON", *launcher)
        if configured.returncode != 0 or self.build(programs, os.cpu_count()).returncode != 0:
            sys.exit(f"{self.folder}: the unchanged tree does not build")

    def judge(self, fault):
        """What becomes of the fault: a word, and the test that failed or the reason."""
        path = self.tree / fault.file
        whole = path.read_text()
        path.write_text(whole.replace(fault.old, fault.new))
        try:
            built = self.build(fault.tests.split("|"))
            if built.returncode != 0:
                return "UNBUILT", next((l for l in built.stdout.splitlines() if "error" in l), "")
            tested = self.run("ctest", "--test-dir", self.folder, "-R", f"^({fault.tests})",
                              "--stop-on-failure")
        finally:
            path.write_text(whole)
        if "No tests were found" in tested.stdout:
            return "UNBUILT", "no such test"
        failed = [line.split()[3] for line in tested.stdout.splitlines() if "***" in line]
        return ("caught", " ".join(failed)) if tested.returncode else ("MISSED", fault.tests)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--work", type=pathlib.Path)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--only", default="")
    parser.add_argument("--every", type=int, default=1)
    parser.add_argument("--check", action="store_true")
    options = parser.parse_args()

    faults = [f for f in read_faults(ROOT / "scripts/mutations.txt")
              if options.only in f.title or options.only in f.file][::options.every]
    faults.sort(key=lambda fault: fault.file.endswith(".h"))  # half a tree is built for a header
    unfit = [f for f in faults if (ROOT / f.file).read_text().count(f.old) != 1]
    for fault in unfit:
        print(f"does not stand in {fault.file} once: {fault.title}\n{fault.old}")
    if options.check or unfit:
        print(f"{len(faults)} faults, {len(unfit)} do not fit")
        return 1 if unfit else 0

    work = options.work or pathlib.Path(tempfile.mkdtemp(prefix="livetable-mutate-"))
    programs = sorted({program for fault in faults for program in fault.tests.split("|")})
    benches = queue.SimpleQueue()
    for job in range(options.jobs):
        bench = Bench(work / str(job), options.jobs)
        bench.prepare(programs)
        benches.put(bench)
    counts = {}

    def take(fault):
        bench = benches.get()
        start = time.monotonic()
        word, detail = bench.judge(fault)
        counts[word] = counts.get(word, 0) + 1
        print(f"{word:8}{fault.file.removeprefix('src/database/')}: {fault.title} "
              f"[{detail}, {time.monotonic() - start:.0f} s]", flush=True)
        benches.put(bench)

    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for done in [pool.submit(take, fault) for fault in faults]:
            done.result()
    print(", ".join(f"{n} {word}" for word, n in sorted(counts.items())))
    return 0 if set(counts) <= {"caught"} else 1


if __name__ == "__main__":
    sys.exit(main())
