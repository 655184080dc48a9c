#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Kills a process that saves a file over and over, at random moments, and checks after each kill
that the file is one whole saved state: never missing, never cut, never a mixture.

    kill_saves.py SAVE_LOOP [KILLS]

SAVE_LOOP is the program save_loop in the build's tests/io, which saves a table, or settings_loop in
its tests/settings. LIVETABLE_SEED sets the moments.
"""
import os
import random
import subprocess
import sys
import tempfile
import time


def main():
    program = os.path.abspath(sys.argv[1])
    kills = int(sys.argv[2]) if len(sys.argv) > 2 else 500
    seed = int(os.environ.get("LIVETABLE_SEED", random.randrange(1 << 30)))
    print("LIVETABLE_SEED=%d" % seed)
    moments = random.Random(seed)
    states = set()
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([program, "once", folder], check=True)
        for i in range(kills):
            saver = subprocess.Popen([program, "forever", folder, str(i)],
                                     stdout=subprocess.PIPE)
            saver.stdout.readline()  # it has begun to save
            time.sleep(moments.random() * 0.03)
            saver.kill()
            saver.wait()
            checked = subprocess.run([program, "check", folder], stdout=subprocess.PIPE)
            if checked.returncode != 0:
                sys.exit("after kill %d: %s %s" % (i, checked.stdout.decode(), os.listdir(folder)))
            states.add(checked.stdout)
    print("%d kills, %d different states seen, each whole" % (kills, len(states)))
    if len(states) < max(kills // 10, min(kills, 3)):
        sys.exit("the saver was not far enough often: little was tested")


main()
