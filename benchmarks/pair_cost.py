#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Says what a pair of scans costs two programs: all pairs of a set, one program after the other, the least of some turns.

    benchmarks/pair_cost.py BEFORE AFTER [--set bunny] [--turns 4] [--before=--threads=1] [--after=--threads=1]

BEFORE and AFTER are builds of `zorvan`, AFTER's options those of today: without --after=--threads=1 it uses all processors.
For each pair: processor time and clock in ms, and the exit code of `align`; then the medians over all pairs, their ratio, and the same
of pairs that AFTER aligns. Needs the folder that the environment variable ZORVAN_DATA names. Nothing else should run. Exit code 1
when the median of AFTER's processor time is more than --most times that of BEFORE.
"""
import argparse
import itertools
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time


def cost(command):
    """(processor time, clock) in ms, and the exit code."""
    start = time.monotonic()
    process = subprocess.Popen([*map(str, command)], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    clock = time.monotonic() - start
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode not in (0, 1):
        sys.exit(f"{command[0]} ended with {process.returncode}")
    return (1e3 * (usage.ru_utime + usage.ru_stime), 1e3 * clock, process.returncode)


def show(name, rows):
    before, after = ([statistics.median(row[program][k] for row in rows) for k in (0, 1)] for program in (0, 1))
    print(f"{name:26} {before[0]:7.1f} {before[1]:7.1f}    {after[0]:7.1f} {after[1]:7.1f}      "
          f"{after[0] / before[0]:.2f} times, by the clock {after[1] / before[1]:.2f}")
    return after[0] / before[0]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("programs", nargs=2, metavar=("BEFORE", "AFTER"))
    parser.add_argument("--set", default="bunny")
    parser.add_argument("--turns", type=int, default=4)
    parser.add_argument("--before", action="append", default=[], help="option of align for BEFORE")
    parser.add_argument("--after", action="append", default=[], help="of AFTER")
    parser.add_argument("--most", type=float, default=1.5)
    args = parser.parse_args()
    if "ZORVAN_DATA" not in os.environ:
        print("skipped: ZORVAN_DATA is not set")
        return 0
    scans = sorted((pathlib.Path(os.environ["ZORVAN_DATA"]) / args.set).glob("*.ply"))
    rows = []
    print(f"{'pair':26} {'before':>7} {'clock':>7}    {'after':>7} {'clock':>7}  exit codes, ms")
    with tempfile.TemporaryDirectory() as folder:
        for fix, flt in itertools.combinations(scans, 2):
            runs = [[program, "align", fix, flt, "-o", pathlib.Path(folder) / "poses.json", *options]
                    for program, options in zip(args.programs, (args.before, args.after))]
            turns = [[cost(run) for run in runs] for _ in range(args.turns)]
            rows.append([min(turn[program] for turn in turns) for program in (0, 1)])
            (before, after) = rows[-1]
            print(f"{fix.stem + ' ' + flt.stem:26} {before[0]:7.1f} {before[1]:7.1f}    {after[0]:7.1f} {after[1]:7.1f}  "
                  f"{before[2]} {after[2]}", flush=True)
    ratio = show("median", rows)
    show("of those aligned", [row for row in rows if row[1][2] == 0])
    return int(ratio > args.most)


if __name__ == "__main__":
    sys.exit(main())
