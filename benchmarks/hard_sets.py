#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Registers sets of scans that hold something wrong, and tabulates what becomes of them.

    benchmarks/hard_sets.py [--program build/release/bin/zorvan] [twin] [strangers] [moved] [copies] [start] [edited]
                            [forced]

twin       12 views of the cow and 12 of a cow with one more hole, 6 mm wide through its flank: each view where its own
           cow puts it. A view that shows nothing of the hole belongs to both; wrong are clusters that hold views of both
           that do show it
strangers  5 views of the spot among the 12 of the cow
moved      the cow's views, of one of which half has moved by 3 mm and 5 degrees
copies     the bunny's ten views, --copies times each
start      the cow's views with start poses, of which one is turned by a right angle
edited     the cow's views in a session, one of which was put in a wrong place: poses of a session of eleven views, and the
           twelfth given with a wrong start pose and --optimize
forced     a session of five views of the steps merged as they first fit, most of them turned, and the sixth added to it

The scans are those of the folder that the environment variable ZORVAN_DATA names. Right means within 5 degrees and 2 % of
the object's size of the truth, with the cluster laid on it. --option passes an option to every call. Exit code 1 when a
scan lies wrong.
"""
import argparse
import itertools
import json
import math
import os
import pathlib
import random
import resource
import struct
import subprocess
import sys
import tempfile

from posemath import apply, errors, inverse, product

MAX_DEGREES, MAX_SHARE = 5.0, 0.02
QUARTER_TURN = [[0, -1, 0, 0], [1, 0, 0, 0], [0, 0, 1, 0], [0, 0, 0, 1]]


def truth_of(folder):
    truth = json.loads((folder / "truth.json").read_text())
    poses = {scan["file"]: scan["pose"] for scan in truth["clusters"][0]["scans"]}
    return poses, truth.get("extent_mm", 155.0) / truth.get("mm_per_unit", 1.0)


def points_of(file):
    """Of a little-endian PLY file whose vertices begin with three floats."""
    head, body = file.read_bytes().split(b"end_header\n", 1)
    lines = head.decode().split("\n")
    at = next(k for k, line in enumerate(lines) if line.startswith("element vertex"))
    properties = itertools.takewhile(lambda line: line.startswith("property"), lines[at + 1:])
    width = sum({"float": 4, "double": 8, "uchar": 1}[line.split()[1]] for line in properties)
    return list(struct.iter_unpack(f"<3f{width - 12}x", body[:width * int(lines[at].split()[2])]))


def write_points(file, points):
    head = (f"ply\nformat binary_little_endian 1.0\nelement vertex {len(points)}\n"
            "property float x\nproperty float y\nproperty float z\nend_header\n")
    file.write_bytes(head.encode() + b"".join(struct.pack("<3f", *p) for p in points))


def middle_of(points):
    return [sum(p[k] for p in points) / len(points) for k in range(3)]


class Scans:
    """Scans in a folder, each with its object, its true pose there and its middle."""

    def __init__(self, folder):
        self.folder, self.owner, self.truth, self.middle, self.extent = folder, {}, {}, {}, 0.0

    def add(self, data, view, prefix="", owner=0, change=lambda points, pose: points):
        poses, extent = truth_of(data)
        points = change(points_of(data / view), poses[view])
        name = prefix + view
        write_points(self.folder / name, points)
        self.owner[name], self.truth[name], self.middle[name] = owner, poses[view], middle_of(points[::20])
        self.extent = max(self.extent, extent)

    def files(self, names=None):
        return [self.folder / name for name in names or self.truth]


def register(args, scans, files, *more):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    out = scans.folder / "out"
    run = subprocess.run([args.program, "register", *map(str, files), "-o", out, "--optimize", "--threads", "1", *map(str, more),
                          *args.option], capture_output=True, text=True, check=False)
    if run.returncode not in (0, 1):
        sys.exit(run.stderr)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    clusters = [{scan["file"]: scan["pose"] for scan in cluster["scans"]}
                for cluster in json.loads((out / "poses.json").read_text())["clusters"]]
    words = [line for line in run.stdout.split("\n") if line][-1]
    return clusters, after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime, words


def wrong_in(scans, cluster):
    """Scans that do not lie as most of the cluster does."""
    best = set()
    for anchor in cluster:
        onto = product(scans.truth[anchor], inverse(cluster[anchor]))
        right = set()
        for name, pose in cluster.items():
            degrees, away = errors(product(onto, pose), scans.truth[name], scans.middle[name])
            if scans.owner[name] in (scans.owner[anchor], None) and degrees < MAX_DEGREES \
                    and away < MAX_SHARE * scans.extent:
                right.add(name)
        best = max(best, right, key=len)
    return set(cluster) - best


def report_session(args, name, scans, goes):
    """Of a session that takes the scans in turns in so many goes."""
    names, session = list(scans.truth), []
    for k in range(goes - 1):
        register(args, scans, scans.files(names[k::goes]), *session)
        session = ["--session", (scans.folder / "out" / "session.zdoc").rename(scans.folder / "session.zdoc")]
    return report(args, name, scans, *session, files=scans.files(names[goes - 1::goes]))


def report(args, name, scans, *more, files=None):
    clusters, seconds, words = register(args, scans, files or scans.files(), *more)
    together = [cluster for cluster in clusters if len(cluster) > 1]
    wrong = set().union(*(wrong_in(scans, cluster) for cluster in together)) if together else set()
    placed = sum(map(len, together))
    mixed = sum(len({scans.owner[n] for n in cluster} - {None}) > 1 for cluster in together)
    sizes = ", ".join(str(len(cluster)) for cluster in together) or "none"
    print(f"{name:10} {len(scans.truth):5} {placed - len(wrong):6} {len(wrong):6} {len(scans.truth) - placed:9}   "
          f"{sizes:14} {mixed:5} {seconds:8.1f}   {words}", flush=True)
    for scan in sorted(wrong):
        print(f"    wrong: {scan}")
    return not wrong


def views_of(data):
    return sorted(truth_of(data)[0])


def twin(args, data, scans):
    def in_hole(point, pose):
        x, y, _ = apply(pose, point)
        return math.hypot(x - 5.0, y) < 3.0

    cow = data / "cow"
    for view in views_of(cow):
        scans.add(cow, view, "a_", 0)
        scans.add(cow, view, "b_", 1, lambda points, pose: [p for p in points if not in_hole(p, pose)])
        if len(points_of(scans.folder / f"b_{view}")) == len(points_of(scans.folder / f"a_{view}")):
            scans.owner[f"a_{view}"] = scans.owner[f"b_{view}"] = None
    if args.order:
        names = random.Random(args.order).sample(list(scans.truth), len(scans.truth))
        scans.truth = {name: scans.truth[name] for name in names}
    return report_session(args, "twin", scans, args.goes)


def strangers(args, data, scans):
    for view in views_of(data / "cow"):
        scans.add(data / "cow", view, "cow_", 0)
    for view in views_of(data / "spot")[:5]:
        scans.add(data / "spot", view, "spot_", 1)
    return report(args, "strangers", scans)


def moved(args, data, scans):
    turn = math.radians(5.0)
    motion = [[math.cos(turn), -math.sin(turn), 0, 3.0], [math.sin(turn), math.cos(turn), 0, 0], [0, 0, 1, 0]]

    def move_half(points, _):
        middle = middle_of(points)
        return [tuple(apply(motion, p)) if p[0] > middle[0] else p for p in points]

    for k, view in enumerate(views_of(data / "cow")):
        scans.add(data / "cow", view, change=move_half if k == 4 else lambda points, _: points)
    return report(args, "moved", scans)


def copies(args, data, scans):
    for k in range(args.copies):
        for view in views_of(data / "bunny"):
            scans.add(data / "bunny", view, f"{k}_")
    scans.extent = 0.155
    return report(args, "copies", scans, "--scale", 1000)


def with_start(scans, wrong):
    """All true poses but one."""
    poses = {name: product(pose, QUARTER_TURN) if name == wrong else pose for name, pose in scans.truth.items()}
    file = scans.folder / "start.json"
    file.write_text(json.dumps({"unit": "mm", "clusters": [{"id": "start", "primary": True, "scans": [
        {"file": name, "pose": pose} for name, pose in poses.items()]}]}))
    return file


def start(args, data, scans):
    for view in views_of(data / "cow"):
        scans.add(data / "cow", view)
    return report(args, "start", scans, "--initial", with_start(scans, views_of(data / "cow")[4]))


def edited(args, data, scans):
    for view in views_of(data / "cow"):
        scans.add(data / "cow", view)
    *most, last = scans.truth
    register(args, scans, scans.files(most))
    session = (scans.folder / "out" / "session.zdoc").rename(scans.folder / "session.zdoc")
    return report(args, "edited", scans, "--session", session, "--initial", with_start(scans, last),
                  files=scans.files([last]))


def forced(args, data, scans):
    for view in views_of(data / "steps")[:6]:
        scans.add(data / "steps", view)
    *most, last = scans.truth
    clusters, _, _ = register(args, scans, scans.files(most), "--first-fit")
    merged = max(clusters, key=len)
    print(f"{'forced':10} {len(merged)} merged, {len(wrong_in(scans, merged))} of them wrong")
    session = (scans.folder / "out" / "session.zdoc").rename(scans.folder / "session.zdoc")
    return report(args, "forced", scans, "--session", session, files=scans.files([last]))


def main():
    cases = {case.__name__: case for case in (twin, strangers, moved, copies, start, edited, forced)}
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("cases", nargs="*", metavar="CASE", help=", ".join(cases))
    parser.add_argument("--program", default="build/release/bin/zorvan")
    parser.add_argument("--copies", type=int, default=10)
    parser.add_argument("--goes", type=int, default=1, help="of the twin: runs that go on with a session")
    parser.add_argument("--order", type=int, default=0, help="of the twin: seed of a random order of the scans")
    parser.add_argument("--option", action="append", default=[], help="of zorvan register")
    args = parser.parse_args()
    if unknown := [name for name in args.cases if name not in cases]:
        parser.error(f"{unknown[0]} is none of {', '.join(cases)}")
    if "ZORVAN_DATA" not in os.environ:
        print("skipped: ZORVAN_DATA does not name the folder of the scans")
        return
    print(f"{'set':10} scans  right  wrong  left out   clusters       mixed  seconds   last line")
    good = True
    for name in args.cases or cases:
        with tempfile.TemporaryDirectory() as folder:
            good = cases[name](args, pathlib.Path(os.environ["ZORVAN_DATA"]), Scans(pathlib.Path(folder))) and good
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
