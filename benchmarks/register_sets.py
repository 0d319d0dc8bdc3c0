#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Registers all views of an object in one call, with automatic settings and without start poses, and tabulates how many
scans lie right, how many wrong and how many were left out.

    benchmarks/register_sets.py [--program build/release/bin/zorvan] [bunny] [flange] ...
    benchmarks/register_sets.py --virtual bracket gear --seed 7000 --seeds 3 [--sensor triangulation]

The sets are those of the folder that the environment variable ZORVAN_DATA names; without it only virtual parts, which
`zorvan simulate` makes, can be measured. Right means within 5 degrees and 2 % of the object's size of the truth, with the
largest cluster laid on it; for a virtual part also on the truth moved by a motion that carries the object onto itself, the
same for all scans or another one for each. Degrees and mm are root mean squares of the right ones' errors, beside one of
them. Exit code 1 when a scan lies wrong.
"""
import argparse
import json
import math
import os
import pathlib
import random
import resource
import subprocess
import sys
import tempfile
import time

from posemath import apply, errors, inverse, product

SETS = {"bunny": 1000, "cow": 1, "homer": 1, "spot": 1, "cheburashka": 1, "bracket": 1, "flange": 1, "steps": 1}
MAX_DEGREES, MAX_SHARE = 5.0, 0.02
BUNNY_EXTENT = 155.0  # mm; the other sets say theirs


def clusters_of(file):
    return [{scan["file"]: scan["pose"] for scan in cluster["scans"]}
            for cluster in json.loads(file.read_text())["clusters"]]


def extent_of(folder):
    truth = json.loads((folder / "truth.json").read_text())
    return truth.get("extent_mm", BUNNY_EXTENT)


def middle_of(scan, count=500):
    """Mean of some points of a PLY file: text, or little-endian with x, y, z as floats in front."""
    import struct
    data = scan.read_bytes()
    head, body = data.split(b"end_header\n", 1)
    lines = head.decode("ascii", "replace").split("\n")
    total = next(int(line.split()[2]) for line in lines if line.startswith("element vertex"))
    first = next(i for i, line in enumerate(lines) if line.startswith("element vertex"))
    sizes = {"float": 4, "float32": 4, "double": 8, "uchar": 1, "uint8": 1, "int": 4, "int32": 4, "uint": 4, "short": 2}
    properties = []
    for line in lines[first + 1:]:
        if not line.startswith("property"):
            break
        properties.append(line.split()[1])
    if "format ascii" in head.decode("ascii", "replace"):
        points = [tuple(map(float, row.split()[:3])) for row in body.decode().split("\n")[:total]]
    else:
        stride = sum(sizes[p] for p in properties)
        kind = "<3d" if properties[0] == "double" else "<3f"
        points = [struct.unpack_from(kind, body, k * stride) for k in range(0, total, max(1, total // count))]
    return [sum(p[k] for p in points) / len(points) for k in range(3)]


class Outcome:
    def __init__(self, args, scans, truth, symmetries, extent, scale, middles):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        start = time.monotonic()
        with tempfile.TemporaryDirectory() as folder:
            session = []
            for go in range(args.goes):
                some = scans[go * len(scans) // args.goes:(go + 1) * len(scans) // args.goes]
                out = pathlib.Path(folder) / str(go)
                run = subprocess.run([args.program, "register", *map(str, some), *session, "-o", out, "--threads",
                                      str(args.threads), "--scale", str(scale), *args.option],
                                     capture_output=True, text=True, check=False)
                if run.returncode not in (0, 1):
                    sys.exit(run.stderr)
                session = ["--session", out / "session.zdoc"]
            clusters = clusters_of(out / "poses.json")
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        self.seconds = time.monotonic() - start
        self.cpu = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        self.words = [line for line in run.stdout.split("\n") if line][-1]
        largest = max(clusters, key=len)
        self.count, self.scale = len(scans), scale
        self.right, self.wrong = {}, set()
        if len(largest) > 1:
            self.right = max((self.agreeing(largest, truth, symmetries, anchor, extent / scale * MAX_SHARE, middles)
                              for anchor in largest), key=len)
            self.wrong = set(largest) - set(self.right)
        # Two scans that lie wrong beside the largest cluster are as wrong as in it.
        for cluster in clusters:
            if cluster is not largest and len(cluster) > 1:
                agreeing = max((self.agreeing(cluster, truth, symmetries, anchor, extent / scale * MAX_SHARE, middles)
                                for anchor in cluster), key=len)
                self.wrong |= set(cluster) - set(agreeing)

    @staticmethod
    def agreeing(cluster, truth, symmetries, anchor, limit, middles):
        """The scans that lie right when the one named `anchor` does, and how far off they are: degrees, and a length."""
        found = {}
        onto = product(truth[anchor], inverse(cluster[anchor]))
        for name, pose in cluster.items():
            moved = product(onto, pose)
            for motion in symmetries:
                degrees, away = errors(moved, product(motion, truth[name]), middles[name])
                if degrees < MAX_DEGREES and away < limit:
                    found[name] = degrees, away
                    break
        return found

    def row(self, name):
        degrees, away = (math.sqrt(sum(e[k] ** 2 for e in self.right.values()) / max(1, len(self.right) - 1))
                         for k in range(2))
        return (f"{name:32} {self.count:5} {len(self.right):6} {len(self.wrong):6} "
                f"{self.count - len(self.right) - len(self.wrong):9} {self.seconds:7.1f} {self.cpu:7.1f} {degrees:8.4f} {away * self.scale:8.4f}   {self.words}")


IDENTITY = [[1.0 if i == k else 0.0 for k in range(4)] for i in range(4)]


def measure(args, name, folder, scale, symmetries, extent):
    truth = clusters_of(folder / "truth.json")[0]
    middles = {scan: middle_of(folder / scan) for scan in truth}
    good = True
    for order in range(args.orders):
        scans = [folder / scan for scan in truth]
        if order > 0:
            random.Random(order).shuffle(scans)
        outcome = Outcome(args, scans, truth, symmetries, extent, scale, middles)
        print(outcome.row(name + (f", order {order}" if order else "")), flush=True)
        for scan in sorted(outcome.wrong):
            print(f"    wrong: {scan}")
        good = good and not outcome.wrong
    return good


def virtual_part(args, kind, seed):
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        subprocess.run([args.program, "simulate", "-o", folder, "--object", kind, "--sensor", args.sensor, "--seed",
                        str(seed), "--views", str(args.views), "--quiet"], check=True, stdout=subprocess.DEVNULL)
        about = json.loads((folder / "object.json").read_text())
        return measure(args, f"{kind}, seed {seed}", folder, 1, about["symmetries"], about["extent"])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("sets", nargs="*", metavar="SET", help=", ".join(SETS))
    parser.add_argument("--program", default="build/release/bin/zorvan")
    parser.add_argument("--virtual", nargs="*", default=[], metavar="OBJECT", help="as zorvan simulate knows them")
    parser.add_argument("--sensor", default="depth", help="of virtual parts, as zorvan simulate knows them")
    parser.add_argument("--seed", type=int, default=1, help="of the first virtual part")
    parser.add_argument("--seeds", type=int, default=1, help="virtual parts of each kind")
    parser.add_argument("--views", type=int, default=12, help="of a virtual part")
    parser.add_argument("--orders", type=int, default=1, help="the given one, then random ones")
    parser.add_argument("--goes", type=int, default=1, help="runs, of which each goes on with the session of the one before")
    parser.add_argument("--threads", type=int, default=1)
    parser.add_argument("--option", action="append", default=["--optimize"], help="of zorvan register")
    args = parser.parse_args()
    if wrong := [name for name in args.sets if name not in SETS]:
        parser.error(f"{wrong[0]} is none of {', '.join(SETS)}")
    sets = args.sets or ([] if args.virtual else list(SETS))
    if sets and "ZORVAN_DATA" not in os.environ:
        print("skipped: ZORVAN_DATA does not name the folder of the scans")
        sets = []
    print(f"{'set':32} scans  right  wrong  left out    wall     cpu  degrees       mm   last line")
    good = True
    for name in sets:
        folder = pathlib.Path(os.environ["ZORVAN_DATA"]) / name
        good = measure(args, name, folder, SETS[name], [IDENTITY], extent_of(folder)) and good
    for number in range(args.seeds):
        for kind in args.virtual:
            good = virtual_part(args, kind, args.seed + number) and good
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
