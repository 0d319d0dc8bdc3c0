#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Aligns pairs of scans without a start pose, and says how many are found, how many wrong ones are called a success, and
how long a pair takes.

    benchmarks/pairs_without_start.py [--program build/release/bin/zorvan] [bunny] [teeth] [strangers] [cow ...]

bunny      all 45 pairs of the ten real views in the folder that the environment variable ZORVAN_DATA names; found means
           within 5 degrees and 3.1 mm (2 % of the object) of the truth. --min-overlap leaves out pairs that share less
teeth      30 pairs of neighbouring views of the virtual scanner, each of another object; found: 1 degree, 1 mm
strangers  50 pairs of views of different virtual objects: there is nothing to find
any other  all pairs of the scans in the folder of that name below ZORVAN_DATA; found means within 5 degrees and 2 % of the
           object; pairs are classed by the smaller of their two overlaps

Without a name, the first three. Sets of a folder end in a table of verdicts: found / pairs by overlap, ambiguous with
the right pose among those listed, and wrong poses called aligned. Automatic settings for all, one thread; times are what the program reports for features of
both scans, search and refinement, without reading the files. Exit code 1 when a wrong pose is called a success, or fewer
than --min-found (a share of the pairs with something to find) are found.
"""
import argparse
import concurrent.futures
import csv
import functools
import json
import os
import pathlib
import re
import statistics
import subprocess
import sys
import tempfile

from posemath import errors, inverse, product, apply

MIDDLE = [-0.024, 0.097, 0.036]  # of the bunny, in the frame of its truth (m)


def zorvan(program, *arguments):
    run = subprocess.run([program, *map(str, arguments)], capture_output=True, text=True, check=False)
    if run.returncode not in (0, 1):
        sys.exit(run.stderr)
    return run


class Pair:
    def __init__(self, fix, flt, scale=1.0, truth=None, overlap=None, middle=None, limits=(5.0, 3.1)):
        self.fix, self.flt, self.scale, self.truth = fix, flt, scale, truth
        self.overlap, self.middle, self.limits = overlap, middle, limits

    def align(self, args, folder):
        out = pathlib.Path(folder) / f"{id(self)}.json"
        trace = ["--log", "trace"] if args.polygons else []
        run = zorvan(args.program, "align", "--threads", "1", self.fix, self.flt, "--scale", self.scale, "-o", out, *trace)
        stop = re.search(r"after looking at (\d+) polygons", run.stderr)
        self.polygons = int(stop.group(1)) if stop else None
        self.is_success = run.returncode == 0
        stages = re.search(r"features (\S+) ms, search (\S+) ms, refinement (\S+) ms", run.stderr)
        self.stages = [float(x) for x in stages.groups()]
        written = json.loads(out.read_text())
        flt = written["clusters"][0]["scans"][1]
        self.verdict = flt["verdict"]["name"]
        self.errors = self.errors_of(flt["pose"]) if self.is_success and self.truth else None
        self.is_found = self.errors is not None and self.is_right(self.errors)
        self.is_listed = bool(self.truth) and any(
            self.is_right(self.errors_of(candidate["pose"])) for candidate in written.get("candidates", []))

    def errors_of(self, pose):
        return errors(pose, self.truth, self.middle, self.scale)

    def is_right(self, error):
        return all(e < limit for e, limit in zip(error, self.limits))


def truth_of(folder):
    clusters = json.loads((folder / "truth.json").read_text())["clusters"]
    return {scan["file"]: scan["pose"] for cluster in clusters for scan in cluster["scans"]}


def pairs_of(data, truth, min_overlap, of_both, middle, scale, **how):
    """All pairs of a folder whose overlap is enough. of_both: which of its two directions counts; middle: of the object."""
    with open(data / "overlap.csv", encoding="utf8") as file:
        overlap = {row["scan"]: row for row in csv.DictReader(file)}
    names, pairs = list(overlap), []
    for i, fix in enumerate(names):
        for flt in names[i + 1:]:
            share = of_both(float(overlap[fix][flt]), float(overlap[flt][fix]))
            if share < min_overlap:
                continue
            to_flt = inverse(truth[f"{flt}.ply"])
            pose = product(inverse(truth[f"{fix}.ply"]), truth[f"{flt}.ply"])
            pairs.append(Pair(data / f"{fix}.ply", data / f"{flt}.ply", scale, pose, share, apply(to_flt, middle), **how))
    return pairs


def bunny(args, _):
    data = pathlib.Path(os.environ["ZORVAN_DATA"]) / "bunny"
    truth = truth_of(data)
    return pairs_of(data, truth, args.min_overlap, max, MIDDLE, 1000.0)


def folder_of_scans(name):
    def load(args, _):
        data = pathlib.Path(os.environ["ZORVAN_DATA"]) / name
        document = json.loads((data / "truth.json").read_text())
        truth, scale, size = truth_of(data), document.get("mm_per_unit", 1.0), document["extent_mm"]
        return pairs_of(data, truth, args.min_overlap, min, [0.0, 0.0, 0.0], scale, limits=(5.0, 0.02 * size))
    return load


@functools.lru_cache(maxsize=None)
def simulate(program, folder, seed):
    target = pathlib.Path(folder) / f"object{seed}"
    zorvan(program, "simulate", "-o", target, "--views", 6, "--seed", seed, "--quiet")
    return target


def teeth(args, folder):
    pairs = []
    for seed in range(1, args.objects + 1):
        target = simulate(args.program, folder, seed)
        fix, flt = (f"view{seed % 5 + k:02}.ply" for k in range(2))
        truth = truth_of(target)
        pairs.append(Pair(target / fix, target / flt, truth=product(inverse(truth[fix]), truth[flt]), limits=(1.0, 1.0)))
    return pairs


def strangers(args, folder):
    pairs = []
    for k in range(50 * args.objects // 30):
        a, b = k % args.objects, (k * 7 + 3 + k // args.objects) % args.objects
        fix, flt = (simulate(args.program, folder, 1 + n) / f"view{n % 6:02}.ply" for n in (a, b if a != b else b - 1))
        pairs.append(Pair(fix, flt))
    return pairs


def median_ms(pairs):
    stages = " / ".join(f"{statistics.median(s):.0f}" for s in zip(*(p.stages for p in pairs)))
    return f"{statistics.median(sum(p.stages) for p in pairs):.0f} ms a pair in the median ({stages})"


def verdict_table(name, pairs):
    classes = [("> 0.3", 0.3, 2.0), ("0.1 to 0.3", 0.1, 0.3), ("below", -1.0, 0.1)]
    cells = []
    for title, low, high in classes:
        group = [p for p in pairs if low < p.overlap <= high]
        found = sum(p.is_found for p in group)
        listed = sum(p.verdict == "ambiguous" and p.is_listed for p in group)
        cells.append(f"{title}: {found}/{len(group)} found, {listed} ambiguous with the right pose")
    counts = {v: sum(p.verdict == v for p in pairs) for v in ("aligned", "ambiguous", "not aligned", "too little to go on")}
    wrong = sum(p.is_success and not p.is_found for p in pairs)
    print(f"{name}: " + "; ".join(cells))
    print(f"{name}: {wrong} wrong of {counts['aligned']} called aligned; " +
          ", ".join(f"{n} {v}" for v, n in counts.items()), flush=True)


def report(name, pairs, minimum):
    if pairs and all(p.overlap is not None for p in pairs):
        verdict_table(name, pairs)
    wrong = [p for p in pairs if p.is_success and not p.is_found]
    for p in wrong:
        print(f"wrong: {p.flt.stem} on {p.fix.stem}")
    groups = [(f"overlap above {o}", [p for p in pairs if p.overlap > o]) for o in (0.3, 0.1)] if name == "bunny" else []
    groups = groups or ([("all", [p for p in pairs if p.truth])] if name == "teeth" else [])
    is_enough = True
    for title, group in groups:
        found = [p for p in group if p.is_found]
        is_enough = is_enough and len(found) >= minimum * len(group)
        print(f"{name}, {title}: {len(found)} of {len(group)} found")
        for p in group:
            if not p.is_found:
                print(f"    not found: {p.flt.stem} on {p.fix.stem}" + (f", overlap {p.overlap}" if p.overlap else ""))
        if found:
            degrees, mm = (statistics.median(e) for e in zip(*(p.errors for p in found)))
            print(f"    median errors {degrees:.3f} degrees, {mm:.3f} mm")
    if stopped := [p.polygons for p in pairs if p.polygons]:
        print(f"{name}: {len(stopped)} searches ended by the quorum, after {statistics.median(stopped):.0f} polygons in "
              f"the median, {max(stopped)} at most")
    print(f"{name}: {len(wrong)} of {len(pairs)} wrong; {median_ms(pairs)}")
    return not wrong and is_enough


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("sets", nargs="*", metavar="SET")
    parser.add_argument("--program", default="build/release/bin/zorvan")
    parser.add_argument("--min-overlap", type=float, default=0.0)
    parser.add_argument("--min-found", type=float, default=0.0)
    parser.add_argument("--objects", type=int, default=30, help="virtual objects to scan")
    parser.add_argument("--polygons", action="store_true", help="print when the quorum ended searches; costs some time")
    parser.add_argument("--jobs", type=int, default=1, help="pairs at the same time; for tests, where time does not count")
    args = parser.parse_args()
    sets = {"bunny": bunny, "teeth": teeth, "strangers": strangers}
    usual = list(sets)
    data = pathlib.Path(os.environ.get("ZORVAN_DATA", "."))
    for name in args.sets:
        if name not in sets and (data / name / "truth.json").is_file():
            sets[name] = folder_of_scans(name)
    if wrong := [name for name in args.sets if name not in sets]:
        parser.error(f"{wrong[0]} is none of {', '.join(sets)}, and no folder of ZORVAN_DATA with a truth.json")
    good = True
    for name in args.sets or usual:
        if name == "bunny" and "ZORVAN_DATA" not in os.environ:
            print("skipped: ZORVAN_DATA does not name the folder of the real scans")
            continue
        with tempfile.TemporaryDirectory() as folder, concurrent.futures.ThreadPoolExecutor(args.jobs) as pool:
            pairs = sets[name](args, folder)
            list(pool.map(lambda pair: pair.align(args, folder), pairs))
            good = report(name, pairs, args.min_found) and good
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
