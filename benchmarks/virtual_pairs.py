#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Scans virtual objects with virtual sensors, aligns all pairs of their views with automatic settings, and tabulates per
kind of object and sensor how the answers are.

    benchmarks/virtual_pairs.py [--program build/release/bin/zorvan] [--seed 1000] [--scenes 32] [--views 11] [--jobs 2]

32 scenes (an object of its own seed, a sensor) of 11 views are 1,760 pairs. With another --seed all objects are others: a
figure to report comes from a seed that nobody has looked at. Right means within 5 degrees and 2 % of the object's size of
the truth, or of the truth moved by a motion that carries the object onto itself.

Columns: pairs of so much overlap (the smaller of both directions) that are called aligned and right ("found"), aligned
but wrong, ambiguous with and without the right pose in the list, not aligned, too little to go on. Every wrong one is
listed, and drawn with --pictures. A second table says why pairs of more than --reasons overlap are not found: whether the right pose was proposed,
and what became of it; for each that was not, what the judge says of the truth. --list prints every pair when it is done. With
--mesh, each view is aligned to the mesh of its object instead, and all of them count as overlapping. Exit code 1 when
more than --max-wrong (a share of the answers "aligned") are wrong.
"""
import argparse
import collections
import concurrent.futures
import csv
import itertools
import json
import os
import pathlib
import random
import re
import statistics
import subprocess
import sys
import tempfile
import time

from posemath import apply, errors, inverse, product

OBJECTS = ["bracket", "figure", "flange", "gear", "housing", "jaw", "part-on-table", "shell", "steps"]
SENSORS = ["depth", "oblique", "triangulation", "quantised", "warped", "lidar", "outliers", "patches",
           "oblique+triangulation", "triangulation+outliers+patches"]
VERDICTS = ["aligned", "ambiguous", "not aligned", "too little to go on"]
MAX_DEGREES, MAX_SHARE = 5.0, 0.02


class Scene:
    def __init__(self, number, seed, args):
        # Both lists are walked at steps that share no factor with their lengths: all kinds come early and evenly.
        self.object = OBJECTS[number % len(OBJECTS)]
        self.sensor = SENSORS[(number * 7 + number // len(OBJECTS)) % len(SENSORS)]
        self.seed = seed + number
        self.name = f"{self.object}, {self.sensor}, seed {self.seed}"
        self.views = args.views
        self.mesh = args.mesh

    def simulate(self, program, folder):
        self.folder = pathlib.Path(folder) / f"scene{self.seed}"
        subprocess.run([program, "simulate", "-o", self.folder, "--object", self.object, "--sensor", self.sensor,
                        "--seed", str(self.seed), "--views", str(self.views), "--overlap", "--quiet",
                        *(["--mesh"] if self.mesh else [])],
                       check=True, stdout=subprocess.DEVNULL)
        self.about = json.loads((self.folder / "object.json").read_text())
        scans = json.loads((self.folder / "truth.json").read_text())["clusters"][0]["scans"]
        self.truth = {scan["id"]: scan["pose"] for scan in scans}
        with open(self.folder / "overlap.csv", encoding="utf8") as file:
            self.overlap = {row["scan"]: row for row in csv.DictReader(file)}

    def pairs(self):
        if self.mesh:
            return [Pair(self, "object", flt) for flt in self.overlap]
        return [Pair(self, fix, flt) for fix, flt in itertools.combinations(self.overlap, 2)]


class Pair:
    def __init__(self, scene, fix, flt):
        self.scene, self.fix, self.flt = scene, fix, flt
        self.fix_file = f"{fix}.stl" if scene.mesh else f"{fix}.ply"
        self.overlap = 1.0 if scene.mesh else min(float(scene.overlap[fix][flt]), float(scene.overlap[flt][fix]))
        to_fix = inverse(scene.truth[fix])
        self.truths = [product(to_fix, product(s, scene.truth[flt])) for s in scene.about["symmetries"]]
        self.middle = apply(inverse(scene.truth[flt]), scene.about["middle"])

    def is_right(self, pose):
        largest = MAX_SHARE * self.scene.about["extent"]
        return any(degrees < MAX_DEGREES and mm < largest
                   for degrees, mm in (errors(pose, truth, self.middle) for truth in self.truths))

    def run(self, args, command, *inputs):
        """The poses file that a command of the program writes, and its exit code."""
        out = self.scene.folder / f"{self.fix}-{self.flt}-{command}.json"
        run = subprocess.run([args.program, command, self.scene.folder / self.fix_file,
                              self.scene.folder / f"{self.flt}.ply", *inputs, "-o", out, *args.option],
                             capture_output=True, text=True, check=False)
        return (json.loads(out.read_text()) if run.returncode in (0, 1) and out.exists() else {}), run.returncode

    def align(self, args):
        start = time.monotonic()
        answer, code = self.run(args, "align", "--all")
        self.seconds = time.monotonic() - start
        self.verdict = verdict_of(answer, code)
        self.text = next((m["text"] for m in members(answer) if isinstance(m, dict) and m.get("name") == self.verdict), "")
        candidates = answer.get("candidates", [])
        listed = candidates[:number_of_explanations(self.verdict, self.text)]
        self.pose = candidates[0].get("pose") if candidates else None
        self.is_found = bool(candidates) and self.verdict == "aligned" and self.is_right(candidates[0]["pose"])
        self.is_listed = any(self.is_right(c["pose"]) for c in listed)
        self.best = candidates[0]["verdict"] if candidates else {}
        self.right = next((c["verdict"] for c in candidates if c.get("pose") and self.is_right(c["pose"])), None)
        self.reason = "" if self.is_found else self.why(args, listed)

    def why(self, args, listed):
        if self.right is None:
            truth = self.judge_truth(args)
            return f"not proposed, and the judge calls the truth {truth}" if self.overlap > args.reasons else "not proposed"
        if self.verdict == "aligned":
            return f"proposed, but {self.right['name']}; another is aligned"
        if not self.is_listed:
            return f"proposed, but {self.right['name']}" + ("; others are not" if listed else "")
        if len(listed) == 1:
            return f"alone, but {self.right['name']}" + ("" if self.right["name"] != "consistent" else ", and outdone")
        return f"has rivals; {'it' if self.is_right(listed[0]['pose']) else 'another'} comes first"

    def judge_truth(self, args):
        poses = self.scene.folder / f"{self.fix}-{self.flt}-truth.json"
        scans = [{"file": self.fix_file, "id": self.fix, "pose": [[float(i == k) for k in range(4)] for i in range(4)]},
                 {"file": f"{self.flt}.ply", "id": self.flt, "pose": self.truths[0]}]
        poses.write_text(json.dumps({"unit": "mm", "clusters": [{"id": "truth", "scans": scans}]}))
        answer, _ = self.run(args, "judge", poses)
        return next((c["verdict"]["name"] for c in answer.get("candidates", [])), "nothing")


def number_of_explanations(verdict, text):
    """Of an ambiguous answer: they come first among all candidates."""
    if verdict != "ambiguous":
        return 0
    several = re.match(r"(\d+) poses explain", text)
    return int(several.group(1)) if several else 1


def verdict_of(answer, code):
    """As the poses file has it; a program that writes none has two verdicts, its exit codes. Scans in which no features
    are found are too little to go on."""
    for member in members(answer):
        if isinstance(member, dict):
            for key in ("verdict", "name", "text"):
                if member.get(key) in VERDICTS:
                    return member[key]
    return {0: "aligned", 1: "not aligned"}.get(code, "too little to go on")


def members(value):
    """A JSON value with all inside it, in the order of the file."""
    yield value
    for inner in value.values() if isinstance(value, dict) else value if isinstance(value, list) else []:
        yield from members(inner)


def outcome(pair):
    if pair.verdict == "aligned":
        return "found" if pair.is_found else "wrong"
    if pair.verdict == "ambiguous":
        return "ambiguous, listed" if pair.is_listed else "ambiguous, not listed"
    return pair.verdict


COLUMNS = ["found", "wrong", "ambiguous, listed", "ambiguous, not listed", "not aligned", "too little to go on"]


def table(title, pairs, key):
    groups = collections.defaultdict(list)
    for pair in pairs:
        groups[key(pair)].append(pair)
    print(f"\n| {title} | pairs | > 0.3 found | 0.1 to 0.3 found | {' | '.join(COLUMNS)} | median s |")
    print("|" + "---|" * (len(COLUMNS) + 5))
    for name, group in [*sorted(groups.items()), ("all", pairs)]:
        counts = collections.Counter(map(outcome, group))
        recall = []
        for low, high in ((0.3, 2.0), (0.1, 0.3)):
            some = [p for p in group if low < p.overlap <= high]
            recall.append(f"{sum(outcome(p) == 'found' for p in some)}/{len(some)}")
        cells = [name, len(group), *recall, *(counts[c] for c in COLUMNS),
                 f"{statistics.median(p.seconds for p in group):.2f}"]
        print("| " + " | ".join(map(str, cells)) + " |")


def counts_of(verdict):
    """A candidate's finding with what the judge counted, short."""
    if not verdict:
        return "-"
    counts = [f"{key} {verdict[key]}" for key in ("matched", "seen_through", "solid", "missing", "in_gap", "turned", "opposed", "tail", "shallow")
              if verdict.get(key)]
    return f"{verdict['name']} ({verdict['proposer']}; {', '.join(counts)} of {verdict['samples']})"


def reasons(pairs, args):
    missed = [p for p in pairs if p.overlap > args.reasons and not p.is_found]
    print(f"\n| why pairs above an overlap of {args.reasons} are not found | pairs | objects | sensors |\n|---|---|---|---|")
    for reason, _ in collections.Counter(p.reason for p in missed).most_common():
        some = [p for p in missed if p.reason == reason]
        parts = (collections.Counter(key(p.scene) for p in some).most_common() for key in (lambda s: s.object, lambda s: s.sensor))
        print(f"| {reason} | {len(some)} | " + " | ".join(", ".join(f"{n} {name}" for name, n in part) for part in parts) + " |")


def line_of(pair):
    return (f"{pair.scene.name}: {pair.flt} on {pair.fix}, overlap {pair.overlap:.2f}: {outcome(pair)}; {pair.reason}; "
            f"right {counts_of(pair.right)}; first {counts_of(pair.best)}")


def draw(pair, folder):
    """The answer beside the truth, as the sensor of the fixed scan sees both."""
    import numpy
    import pairpicture
    folder.mkdir(parents=True, exist_ok=True)
    picture = folder / f"{pair.scene.object}-{pair.scene.seed}-{pair.fix}-{pair.flt}.svg"
    pairpicture.draw(picture, pair.scene.folder / pair.fix_file, pair.scene.folder / f"{pair.flt}.ply",
                     {"called aligned": numpy.array(pair.pose), "the truth": numpy.array(pair.truths[0])})


def report(pairs, args):
    table("object", pairs, lambda p: p.scene.object)
    table("sensor", pairs, lambda p: p.scene.sensor)
    reasons(pairs, args)
    wrong = [p for p in pairs if outcome(p) == "wrong"]
    for p in wrong:
        print(f"wrong: {line_of(p)}")
        if args.pictures:
            draw(p, args.pictures)
    aligned = sum(p.verdict == "aligned" for p in pairs)
    print(f"{len(wrong)} of {aligned} answers \"aligned\" are wrong, in {len(pairs)} pairs of "
          f"{len({p.scene.seed for p in pairs})} scenes")
    return len(wrong) <= args.max_wrong * max(aligned, 1)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", default="build/release/bin/zorvan")
    parser.add_argument("--seed", type=int, default=1000, help="of the first scene; the others follow")
    parser.add_argument("--scenes", type=int, default=32)
    parser.add_argument("--views", type=int, default=11)
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="pairs at the same time")
    parser.add_argument("--object", choices=OBJECTS, action="append", help="only these; may be repeated")
    parser.add_argument("--mesh", action="store_true", help="align each view to the mesh of its object")
    parser.add_argument("--option", action="append", default=[], help="passed on to align, as --option=--grid=2")
    parser.add_argument("--every", type=int, default=1, help="of the pairs of a scene, each so many-th")
    parser.add_argument("--reasons", type=float, default=0.3, help="overlap from which on the reason is given why a pair is not found")
    parser.add_argument("--drawn", type=int, help="of the pairs of a scene, so many, drawn by its seed")
    parser.add_argument("--list", action="store_true", help="print every pair with the counts of its poses")
    parser.add_argument("--pictures", type=pathlib.Path, help="folder for a picture of every wrong pair; needs the Python module")
    parser.add_argument("--max-wrong", type=float, default=0.002)
    args = parser.parse_args()
    scenes = [Scene(number, args.seed, args) for number in range(args.scenes)]
    scenes = [s for s in scenes if not args.object or s.object in args.object]
    pairs = []
    with tempfile.TemporaryDirectory() as folder, concurrent.futures.ThreadPoolExecutor(args.jobs) as pool:
        list(pool.map(lambda scene: scene.simulate(args.program, folder), scenes))
        for done, scene in enumerate(scenes, 1):
            some = scene.pairs()
            if args.drawn:
                random.Random(scene.seed).shuffle(some)
                some = some[:args.drawn]
            some = some[done % args.every::args.every]
            list(pool.map(lambda pair: pair.align(args), some))
            pairs += some
            print(f"{done} of {len(scenes)} scenes: {scene.name}", file=sys.stderr)
            for pair in some if args.list else []:
                print(line_of(pair), flush=True)
        is_right = report(pairs, args)
    sys.exit(0 if is_right else 1)


if __name__ == "__main__":
    main()
