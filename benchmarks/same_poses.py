#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Registers the same scans in several ways, and tabulates how far their poses lie from those of one call in the given
order, in standard deviations of that call.

    benchmarks/same_poses.py [--program build/release/bin/zorvan] [bunny] [steps] ... [--virtual housing --seed 7000]

threads  with 2 and with 8: the poses are the same bytes
order    the scans in --orders random orders
goes     over three runs, each of which goes on with the session of the one before
killed   the same, but each run is killed --kills times, at moments drawn over the time that it takes, and called again

The distance is that of Mahalanobis: of the small motion between two poses of a scan, beside the scan that the covariances
are measured against, with twice the covariance of the one call. Of two calls on scans with noise of their own one distance in a
thousand is over 4.74; these have the same scans, but a session keeps the grid that suited those of its first run. Exit code 1 when a scan is, when threads give other bytes, or when a killed run leaves other poses than one
that was not.
"""
import argparse
import json
import math
import os
import pathlib
import random
import subprocess
import sys
import tempfile
import time

from posemath import apply, errors, inverse, product
from register_sets import SETS, clusters_of

LIMIT = 4.74  # the root of the 0.999 quantile of chi-square with six degrees of freedom


class Result:
    """The largest cluster of a run."""

    def __init__(self, folder):
        self.text = (folder / "poses.json").read_text()
        record = json.loads((folder / "run.json").read_text())
        largest = max(clusters_of(folder / "poses.json"), key=len)
        self.poses = largest if len(largest) > 1 else {}
        self.covariances = {c["scan"]: c for c in record["covariances"] if c["scan"] in self.poses}


def register(args, scans, out, *more):
    return subprocess.Popen([args.program, "register", *scans, "-o", out, "--optimize", "--quiet", *more],
                            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)


def ended(process):
    if process.wait() not in (0, 1):
        sys.exit(f"register ended with {process.returncode}")


def in_one_call(args, scans, folder, *more):
    ended(register(args, scans, folder, *more))
    return Result(folder)


def in_goes(args, scans, folder, *more, kills=0, rng=None, goes=3):
    session = []
    for go in range(goes):
        some = scans[go * len(scans) // goes:(go + 1) * len(scans) // goes]
        start = time.monotonic()
        if kills:  # how long it takes
            ended(register(args, some, folder / f"whole{go}", *session, *more))
        seconds = time.monotonic() - start
        for _ in range(kills):
            process = register(args, some, folder / str(go), *session, *more)
            time.sleep(rng.uniform(0.0, 1.05 * seconds))
            process.kill()
            process.wait()
        ended(register(args, some, folder / str(go), *session, *more))
        session = ["--session", folder / str(go) / "session.zdoc"]
    return Result(folder / str(goes - 1))


def solved(matrix, right):
    """By Gaussian elimination with the largest pivots."""
    rows = [list(row) + [b] for row, b in zip(matrix, right)]
    n = len(rows)
    for k in range(n):
        pivot = max(range(k, n), key=lambda r: abs(rows[r][k]))
        rows[k], rows[pivot] = rows[pivot], rows[k]
        for r in range(n):
            if r == k:
                continue
            factor = rows[r][k] / rows[k][k]
            rows[r] = [x - factor * y for x, y in zip(rows[r], rows[k])]
    return [rows[k][n] / rows[k][k] for k in range(n)]


def distance(motion, covariance):
    """Of a small motion of the frame: a rotation vector about the centre, then a shift."""
    centre, matrix = covariance["centre"], covariance["covariance"]
    turn = [(motion[2][1] - motion[1][2]) / 2, (motion[0][2] - motion[2][0]) / 2, (motion[1][0] - motion[0][1]) / 2]
    vector = turn + [a - b for a, b in zip(apply(motion, centre), centre)]
    # Units differ by thousands: with a diagonal of ones no pivot is small by its unit.
    scale = [math.sqrt(matrix[k][k]) for k in range(6)]
    unit = [[matrix[r][c] / (scale[r] * scale[c]) for c in range(6)] for r in range(6)]
    whitened = [x / s for x, s in zip(vector, scale)]
    return math.sqrt(max(0.0, sum(x * y for x, y in zip(whitened, solved(unit, whitened)))) / 2)


def compare(reference, other):
    """Scans that both placed, that one placed, and the largest distance, angle and shift."""
    anchor = next(s for s, c in reference.covariances.items() if not any(map(any, c["covariance"])))
    both = set(reference.poses) & set(other.poses)
    once = len(set(reference.poses) ^ set(other.poses))
    if anchor not in both:
        return both, once, (0.0, 0.0, 0.0)
    onto = product(reference.poses[anchor], inverse(other.poses[anchor]))
    worst = (0.0, 0.0, 0.0)
    for scan in both - {anchor}:
        pose = product(onto, other.poses[scan])
        motion = product(pose, inverse(reference.poses[scan]))
        found = (distance(motion, reference.covariances[scan]),
                 *errors(pose, reference.poses[scan], apply(inverse(reference.poses[scan]),
                                                            reference.covariances[scan]["centre"])))
        worst = tuple(map(max, worst, found))
    return both, once, worst


def measure(args, name, scans, scale):
    rng = random.Random(args.seed)
    good = True
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        more = ["--scale", str(scale)]
        one = [*more, "--threads", "1"]
        reference = in_one_call(args, scans, folder / "reference", *one)

        def say(way, result, must_be=None):
            nonlocal good
            both, once, worst = compare(reference, result) if reference.poses else (set(), len(result.poses), (0, 0, 0))
            words = "" if must_be is None else "same bytes" if result.text == must_be.text else "OTHER BYTES"
            print(f"{name:28} {way:10} {len(both):6} {once:8} {worst[0]:10.3f} {worst[1]:10.5f} {worst[2]:10.5f}   {words}",
                  flush=True)
            good = good and worst[0] <= LIMIT and words != "OTHER BYTES"

        for threads in ("2", "8"):
            result = in_one_call(args, scans, folder / f"threads{threads}", *more, "--threads", threads)
            say(f"{threads} threads", result, must_be=reference)
        for k in range(1, args.orders + 1):
            say(f"order {k}", in_one_call(args, random.Random(k).sample(scans, len(scans)), folder / f"order{k}", *one))
        whole = in_goes(args, scans, folder / "goes", *one)
        say("goes", whole)
        if args.kills:
            say("killed", in_goes(args, scans, folder / "killed", *one, kills=args.kills, rng=rng), must_be=whole)
    return good


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("sets", nargs="*", metavar="SET", help="folders of the one that ZORVAN_DATA names")
    parser.add_argument("--program", default="build/release/bin/zorvan")
    parser.add_argument("--virtual", nargs="*", default=[], metavar="OBJECT", help="as zorvan simulate knows them")
    parser.add_argument("--seed", type=int, default=1, help="of the virtual objects, and of the moments to kill at")
    parser.add_argument("--views", type=int, default=12, help="of a virtual object")
    parser.add_argument("--orders", type=int, default=2)
    parser.add_argument("--kills", type=int, default=3, help="of each of three runs")
    args = parser.parse_args()
    sets = args.sets
    if sets and "ZORVAN_DATA" not in os.environ:
        print("skipped: ZORVAN_DATA does not name the folder of the scans")
        sets = []
    print(f"{'set':28} {'way':10} {'placed':>6} {'in one':>8} {'distance':>10} {'degrees':>10} {'shift':>10}")
    good = True
    for name in sets:
        folder = pathlib.Path(os.environ["ZORVAN_DATA"]) / name
        scans = [folder / scan for scan in clusters_of(folder / "truth.json")[0]]
        good = measure(args, name, scans, SETS.get(name, 1)) and good
    for kind in args.virtual:
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([args.program, "simulate", "-o", folder, "--object", kind, "--seed", str(args.seed), "--views",
                            str(args.views), "--quiet"], check=True, stdout=subprocess.DEVNULL)
            scans = sorted(pathlib.Path(folder).glob("view*.ply"))
            good = measure(args, f"{kind}, seed {args.seed}", scans, 1) and good
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
