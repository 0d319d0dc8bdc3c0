#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Registers views of virtual objects among views of a twin that differs in one spot, and tabulates what becomes of them.

    benchmarks/virtual_twins.py [--program build/release/bin/zorvan] [--objects figure shell ...] [--sensors depth ...]
                                [--changes hole lug] [--seed 1] [--width 8] [--views 24] [--goes 1]

Every second view is of the twin. A hole is a cylinder, --width mm wide, through which points are lost; a lug is surface that
wide, raised by half of that along its normal. The spot lies where most views show it with all that is about it. A view that
shows nothing of it belongs to both; wrong are scans that do not lie as most of their cluster do, or that are of the other
object. --goes divides the views, in turns, over so many runs that go on with a session.
"""
import argparse
import math
import pathlib
import random
import subprocess
import sys
import tempfile

from hard_sets import Scans, middle_of, points_of, report_session, truth_of, write_points
from posemath import apply, inverse

SECTORS = 8


def normal_at(point, surface, reach):
    """Normal of the surface about a point, by the smallest spread over some tries of three points."""
    near = [p for p in surface if math.dist(p, point) < reach]
    best, rng = (math.inf, (0, 0, 1)), random.Random(1)
    for _ in range(60):
        a, b, c = rng.sample(near, 3)
        u, v = ([y - x for x, y in zip(a, q)] for q in (b, c))
        n = [u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]]
        size = math.hypot(*n)
        if size < 1e-6:
            continue
        n = [x / size for x in n]
        off = sorted(abs(sum(m * (x - y) for m, x, y in zip(n, p, point))) for p in near)[len(near) // 2]
        best = min(best, (off, tuple(n)))
    return best[1]


def is_about(point, surface, normal, radius):
    """Whether there is surface all round the spot."""
    side = [normal[1], -normal[0], 0] if abs(normal[2]) < 0.9 else [0, normal[2], -normal[1]]
    size = math.hypot(*side)
    u = [x / size for x in side]
    v = [normal[1] * u[2] - normal[2] * u[1], normal[2] * u[0] - normal[0] * u[2], normal[0] * u[1] - normal[1] * u[0]]
    seen = [0] * SECTORS
    for p in surface:
        if 1.2 * radius < math.dist(p, point) < 1.8 * radius:
            d = [x - y for x, y in zip(p, point)]
            turn = math.atan2(sum(map(math.prod, zip(d, v))), sum(map(math.prod, zip(d, u)))) / (2 * math.pi)
            seen[int((turn + 1) * SECTORS) % SECTORS] += 1
    return min(seen) >= 2


def spot_of(world, radius):
    """Where most views show surface all round, of some places, and the normal there."""
    rng = random.Random(1)
    thin = {view: rng.sample(points, min(len(points), 2500)) for view, points in world.items()}
    everywhere = [p for points in thin.values() for p in points]
    best = None
    for point in rng.sample(everywhere, 40):
        normal = normal_at(point, [p for p in everywhere if math.dist(p, point) < radius], radius)
        count = sum(is_about(point, points, normal, radius) for points in thin.values())
        best = max(best or (0, point, normal), (count, point, normal), key=lambda found: found[0])
    return best


def row(args, kind, sensor, change):
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        subprocess.run([args.program, "simulate", "-o", folder, "--object", kind, "--sensor", sensor, "--views",
                        str(args.views), "--points", str(args.points), "--seed", str(args.seed), "--quiet"], check=True,
                       stdout=subprocess.DEVNULL)
        poses, extent = truth_of(folder)
        scans = Scans(folder)
        world = {view: [apply(pose, p) for p in points_of(folder / view)] for view, pose in poses.items()}
        radius = args.width / 2
        count, spot, normal = spot_of(world, radius)
        for k, (view, pose) in enumerate(sorted(poses.items())):
            raised = [s + n for s, n in zip(spot, normal)]
            toward = 1.0 if apply(inverse(pose), raised)[2] > apply(inverse(pose), spot)[2] else -1.0  # its sensor
            kept, changed = [], 0
            for p in world[view]:
                if math.dist(p, spot) >= radius:
                    kept.append(p)
                    continue
                changed += 1
                if k % 2 == 0:
                    kept.append(p)
                elif change == "lug":
                    kept.append(tuple(x + toward * radius * n for x, n in zip(p, normal)))
            write_points(folder / view, [apply(inverse(pose), p) for p in kept])
            scans.owner[view] = k % 2 if changed else None
            scans.truth[view], scans.middle[view] = pose, middle_of(points_of(folder / view)[::20])
        scans.extent = extent
        words = f"{kind}, {sensor}, {change}"
        return report_session(args, f"{words:36} {count:3}", scans, args.goes)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", default="build/release/bin/zorvan")
    parser.add_argument("--objects", nargs="+", default=["figure", "shell", "jaw", "bracket"])
    parser.add_argument("--sensors", nargs="+", default=["depth", "triangulation"])
    parser.add_argument("--changes", nargs="+", default=["hole", "lug"])
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--width", type=float, default=8.0)
    parser.add_argument("--views", type=int, default=24)
    parser.add_argument("--points", type=int, default=8000)
    parser.add_argument("--goes", type=int, default=1)
    parser.add_argument("--option", action="append", default=[], help="of zorvan register")
    args = parser.parse_args()
    print(f"{'twin, and views that show the spot':40} scans  right  wrong  left out   clusters       mixed  seconds   last line")
    results = [row(args, *which) for which in
               ((kind, sensor, change) for kind in args.objects for sensor in args.sensors for change in args.changes)]
    sys.exit(0 if all(results) else 1)


if __name__ == "__main__":
    main()
