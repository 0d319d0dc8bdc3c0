#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Aligns bun045 to bun000 from random start poses and says how many ended in success, and how far off.

    benchmarks/random_starts.py [--program build/release/bin/zorvan] [--starts 50] [--degrees 10] [--mm 5] [--seed 1]

Each start is the true pose turned by an angle drawn evenly from [0, DEGREES] about a random axis through the middle of
the fixed scan, and shifted by a length drawn evenly from [0, MM] in a random direction. Reads the real scans of the
folder that the environment variable ZORVAN_DATA names, and the truth beside them. With --max-degrees and --max-mm every
start must end in success within these errors; exit code 1 otherwise.
"""
import argparse
import json
import math
import os
import pathlib
import random
import statistics
import subprocess
import sys
import tempfile
import time

from posemath import errors

FIX, FLT, MM_PER_UNIT = "bun000.ply", "bun045.ply", 1000.0
MIDDLE = (-0.024, 0.097, 0.036)  # of bun000, in its unit (m)


def direction(rng):
    while True:
        v = [rng.gauss(0, 1) for _ in range(3)]
        length = math.sqrt(sum(x * x for x in v))
        if length > 1e-6:
            return [x / length for x in v]


def rotation(axis, angle):
    x, y, z = axis
    c, s = math.cos(angle), math.sin(angle)
    d = 1 - c
    return [[x * x * d + c, x * y * d - z * s, x * z * d + y * s],
            [x * y * d + z * s, y * y * d + c, y * z * d - x * s],
            [x * z * d - y * s, y * z * d + x * s, z * z * d + c]]


def apply(turn, v):
    return [sum(turn[i][k] * v[k] for k in range(3)) for i in range(3)]


def disturbed(pose, rng, degrees, mm):
    turn = rotation(direction(rng), math.radians(rng.uniform(0, degrees)))
    length = rng.uniform(0, mm) / MM_PER_UNIT
    shift = [length * x for x in direction(rng)]
    moved = [[sum(turn[i][k] * pose[k][j] for k in range(3)) for j in range(3)] for i in range(3)]
    about = apply(turn, [pose[i][3] - MIDDLE[i] for i in range(3)])
    return [moved[i] + [about[i] + MIDDLE[i] + shift[i]] for i in range(3)] + [[0, 0, 0, 1]]


def align(program, data, start, folder):
    initial, out = folder / "rough.json", folder / "pose.json"
    scan = {"file": FLT, "id": "flt", "pose": start}
    initial.write_text(json.dumps({"unit": "m", "mm_per_unit": MM_PER_UNIT,
                                   "clusters": [{"id": "rough", "primary": True, "scans": [scan]}]}))
    run = subprocess.run([program, "align", data / FIX, data / FLT, "--scale", str(MM_PER_UNIT), "--initial", initial,
                          "-o", out, "--quiet"], capture_output=True, text=True, check=False)
    if run.returncode == 2:
        sys.exit(run.stderr)
    entry = next(s for s in json.loads(out.read_text())["clusters"][0]["scans"] if s["file"] == FLT)
    return entry["pose"] if run.returncode == 0 else None, entry["result"]


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", default="build/release/bin/zorvan")
    parser.add_argument("--starts", type=int, default=50)
    parser.add_argument("--degrees", type=float, default=10)
    parser.add_argument("--mm", type=float, default=5)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--max-degrees", type=float, default=math.inf)
    parser.add_argument("--max-mm", type=float, default=math.inf)
    args = parser.parse_args()
    if "ZORVAN_DATA" not in os.environ:
        print("skipped: ZORVAN_DATA does not name the folder of the real scans")
        return
    data = pathlib.Path(os.environ["ZORVAN_DATA"]) / "bunny"
    scans = {s["file"]: s["pose"] for c in json.loads((data / "truth.json").read_text())["clusters"] for s in c["scans"]}
    truth = scans[FLT]  # the frame of the truth is that of bun000

    rng = random.Random(args.seed)
    found, verdicts, begin = [], {}, time.perf_counter()
    with tempfile.TemporaryDirectory() as folder:
        for k in range(args.starts):
            pose, result = align(args.program, data, disturbed(truth, rng, args.degrees, args.mm), pathlib.Path(folder))
            verdicts[result["text"].split(" (")[0]] = verdicts.get(result["text"].split(" (")[0], 0) + 1
            if pose is not None:
                found.append(errors(pose, truth, mm_per_unit=MM_PER_UNIT))
            if sys.stderr.isatty():
                print(f"\r{k + 1} of {args.starts}", end="", file=sys.stderr)
    if sys.stderr.isatty():
        print(file=sys.stderr)

    print(f"{args.starts} starts within {args.degrees:g} degrees and {args.mm:g} mm: {len(found)} end in success")
    print("verdicts: " + ", ".join(f"{text}: {n}" for text, n in sorted(verdicts.items())))
    if found:
        for name, values in zip(("rotation error (degrees)", "translation error (mm)"), zip(*found)):
            print(f"{name}: median {statistics.median(values):.4f}, worst {max(values):.4f}")
    print(f"{(time.perf_counter() - begin) / args.starts:.2f} s a start, reading both files included")
    limited = math.isfinite(args.max_degrees) or math.isfinite(args.max_mm)
    good = [e for e in found if e[0] <= args.max_degrees and e[1] <= args.max_mm]
    sys.exit(1 if limited and len(good) < args.starts else 0)


if __name__ == "__main__":
    main()
