#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Registers many scans without start poses, and says how many find their place, how far off they are before and after
the optimisation, and what it costs.

    benchmarks/many_scans.py [--program build/release/bin/zorvan] [bunny] [arch] [mixed] [sizes] [sessions]

bunny   the ten real views in the folder that the environment variable ZORVAN_DATA names, in the order of their names and
        in --orders random ones. Errors are those of a view's middle, once against the first view and once with the whole
        laid on the truth
arch    24 small patches around a virtual row of teeth, where the truth is exact: the error of the last patch against
        the first, before and after, and how many scans have an error within one, two and three times their slip; then
        --orders random orders
mixed   patches of two objects in one call, in random orders: nothing of one may end in a cluster of the other
sizes   5 to 80 patches of one jaw: time and memory, and the exponent by which they grow from size to size. Twice the
        patches mean four times the pairs that overlap; with --object wall each overlaps as many others as before:
        sizes --object wall --views 25 50 100 200 400 1000 --seed 9761 --threads 2 --repeats 1
sessions  a session of a hundred scans, the bunny's views ten times over and patches of one object: the time to load it,
        beside the time to register two of its scans

Without a name, all. Automatic settings, one thread unless --threads says more. Exit code 1 when a scan is put in a
wrong place (over 1 degree or 2 mm for the bunny, over 0.5 degrees or 0.5 mm for the patches), or fewer than --min-placed
(a share of the scans) are placed, or the optimisation does not lower the errors (the closing error: where it is more than
three times the slip).
"""
import argparse
import json
import math
import os
import pathlib
import random
import re
import statistics
import subprocess
import sys
import tempfile
import time

from posemath import apply, errors, fit, inverse, product

BUNNY_MIDDLE = [-0.024, 0.097, 0.036]  # in the frame of its truth (m)


def run(command):
    """What it said, with the processor time in seconds and the peak of the memory in MiB."""
    with tempfile.TemporaryFile("w+") as out, tempfile.TemporaryFile("w+") as err:
        process = subprocess.Popen([*map(str, command)], stdout=out, stderr=err)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        out.seek(0)
        err.seek(0)
        done = subprocess.CompletedProcess(command, process.returncode, out.read(), err.read())
    if done.returncode not in (0, 1):
        sys.exit(done.stderr)
    return done, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def clusters_of(file):
    return [{scan["file"]: scan for scan in cluster["scans"]} for cluster in json.loads(file.read_text())["clusters"]]


class Run:
    """One call of `zorvan register`."""

    def __init__(self, args, folder, scans, *more):
        start = time.monotonic()
        self.process, self.seconds, self.peak = run([args.program, "register", *scans, "-o", folder / "out",
                                                     "--threads", args.threads, *more])
        self.clock = time.monotonic() - start
        self.clusters = clusters_of(folder / "out" / "poses.json")
        self.stages = {name: float(s) for name, s in re.findall(r"(\w+) (\S+) s(?:,|\n|$)", self.process.stderr)}
        self.bytes = (folder / "out" / "session.zdoc").stat().st_size

    def placed(self):
        return sum(len(cluster) for cluster in self.clusters if len(cluster) > 1)


class Truth:
    def __init__(self, file, middle_of, mm_per_unit):
        self.poses = {name: scan["pose"] for name, scan in clusters_of(file)[0].items()}
        self.middle = {name: middle_of(pose) for name, pose in self.poses.items()}
        self.mm_per_unit = mm_per_unit

    def errors(self, cluster, reference=None):
        """(degrees, mm) of each scan, against one of them, or with the whole laid on the truth."""
        if reference:
            onto = product(self.poses[reference], inverse(cluster[reference]["pose"]))
        else:
            onto = fit([apply(scan["pose"], p) for name, scan in cluster.items() for p in self.tripod(name)],
                       [apply(self.poses[name], p) for name in cluster for p in self.tripod(name)])
        return {name: errors(product(onto, scan["pose"]), self.poses[name], self.middle[name], self.mm_per_unit)
                for name, scan in cluster.items() if name != reference}

    def tripod(self, name):
        size = 20 / self.mm_per_unit
        return [[c + (size if k == axis else 0) for k, c in enumerate(self.middle[name])] for axis in range(3)]


def worst(pairs):
    return max(e[0] for e in pairs), max(e[1] for e in pairs)


def words(pairs):
    return "{:.3f} degrees, {:.4f} mm".format(*worst(pairs))


def shuffled(scans, seed):
    scans = list(scans)
    random.Random(seed).shuffle(scans)
    return scans


def is_right(truth, run_, limits):
    for cluster in run_.clusters:
        if len(cluster) > 1 and not all(e < limit for e, limit in zip(worst(truth.errors(cluster).values()), limits)):
            return False
    return True


def random_orders(args, name, folder, scans, truth, limits, *more):
    good, placed, seconds = True, [], []
    for seed in range(args.orders):
        done = Run(args, folder, shuffled(scans, seed), "--optimize", *more)
        placed.append(done.placed())
        seconds.append(done.seconds)
        if not is_right(truth, done, limits):
            print(f"{name}: WRONG in random order {seed}")
            good = False
    if placed:
        print(f"{name}, {args.orders} random orders: {min(placed)} to {max(placed)} of {len(scans)} placed, "
              f"{statistics.median(seconds):.2f} s of processor time in the median, {max(seconds):.2f} s at most")
        good = good and min(placed) >= args.min_placed * len(scans)
    return good


def before_and_after(args, name, folder, scans, truth, limits, *more):
    plain, optimized = (Run(args, folder, scans, *more, *option) for option in ((), ("--optimize",)))
    first = pathlib.Path(scans[0]).name
    good = True
    print(f"{name}: {optimized.placed()} of {len(scans)} placed, {optimized.seconds:.2f} s of processor time in all; "
          + ", ".join(f"{stage} {s:.3f} s" for stage, s in optimized.stages.items()))
    for title, done in (("before", plain), ("after", optimized)):
        cluster = max(done.clusters, key=len)
        if first not in cluster:
            return False
        print(f"    {title} the optimisation, worst: {words(truth.errors(cluster, first).values())} against {first}; "
              f"{words(truth.errors(cluster).values())} laid on the truth")
        good = good and is_right(truth, done, limits)
    if args.scans:
        before, after = (truth.errors(max(done.clusters, key=len), first) for done in (plain, optimized))
        for scan in after:
            print("    {:14} {:.3f} degrees, {:.4f} mm -> {:.3f} degrees, {:.4f} mm".format(
                scan, *before[scan], *after[scan]))
    good = good and optimized.placed() >= args.min_placed * len(scans)
    return good, plain, optimized


def bunny(args, folder):
    if "ZORVAN_DATA" not in os.environ:
        print("skipped: ZORVAN_DATA does not name the folder of the real scans")
        return True
    data = pathlib.Path(os.environ["ZORVAN_DATA"]) / "bunny"
    truth = Truth(data / "truth.json", lambda pose: apply(inverse(pose), BUNNY_MIDDLE), 1000.0)
    scans, limits = sorted(data.glob("*.ply")), (1.0, 2.0)
    good, plain, optimized = before_and_after(args, "bunny", folder, scans, truth, limits, "--scale", 1000)
    errors_before, errors_after = (worst(truth.errors(max(r.clusters, key=len)).values()) for r in (plain, optimized))
    return (good and all(a < b for a, b in zip(errors_after, errors_before))
            and random_orders(args, "bunny", folder, scans, truth, limits, "--scale", 1000))


def simulate(args, folder, views, seed, kind="jaw"):
    run([args.program, "simulate", "-o", folder, "--object", kind, "--views", views, "--field", 16, "--seed", seed,
         "--threads", args.threads, "--quiet"])
    truth = Truth(folder / "truth.json", lambda _: [0, 0, 0], 1.0)  # the sensor's frame begins at the surface
    # By number, as the views follow each other: by name view100 would come before view11.
    return sorted(folder.glob("view*.ply"), key=lambda file: int(file.stem[4:])), truth


def arch(args, folder):
    scans, truth = simulate(args, folder, 24, 1)
    limits = (0.5, 0.5)
    good, plain, optimized = before_and_after(args, "arch", folder, scans, truth, limits)
    first, last = scans[0].name, scans[-1].name
    closing = [truth.errors(max(r.clusters, key=len), first)[last] for r in (plain, optimized)]
    print("    closing error, last patch against the first: {:.3f} degrees, {:.4f} mm -> {:.3f} degrees, {:.4f} mm".format(
        *closing[0], *closing[1]))
    cluster = max(optimized.clusters, key=len)
    found = truth.errors(cluster, first)
    covered = {k: sum(e[1] <= k * cluster[name]["result"]["slip"] for name, e in found.items()) for k in (1, 2, 3)}
    print(f"    errors within 1 / 2 / 3 times the slip: {' / '.join(map(str, covered.values()))} of {len(found)}")
    # By luck, which is another one on another processor, a merge may leave less than what noise lets anybody know.
    is_closed = closing[1][1] < max(closing[0][1], 3 * cluster[last]["result"]["slip"])
    return (good and is_closed and covered[3] >= 0.9 * len(found)
            and random_orders(args, "arch", folder, scans, truth, limits))


def mixed(args, folder):
    objects = [simulate(args, folder / f"object{seed}", views, seed) for seed, views in ((2, 12), (3, 5))]
    # Poses and files are matched by name, and both objects have a view00.
    owner = {}
    for number, (scans, _) in enumerate(objects):
        for scan in scans:
            renamed = folder / f"{'ab'[number]}_{scan.name}"
            scan.rename(renamed)
            owner[renamed.name] = number
    scans = sorted(folder.glob("?_view*.ply"))
    good = True
    for seed in range(args.orders):
        done = Run(args, folder, shuffled(scans, seed), "--optimize")
        mixtures = [c for c in done.clusters if len({owner[name] for name in c}) > 1]
        print(f"mixed, order {seed}: clusters of {', '.join(str(len(c)) for c in done.clusters)} scans (12 and 5 wanted), "
              f"{len(mixtures)} with scans of both objects, {done.seconds:.2f} s of processor time")
        good = good and not mixtures and done.placed() >= args.min_placed * len(scans)
    return good


def size(args, folder, views):
    scans, truth = simulate(args, folder / f"views{views}", views, args.seed, args.object)
    if args.shuffle is not None:
        scans = shuffled(scans, args.shuffle)
    done = min((Run(args, folder, scans, "--optimize") for _ in range(args.repeats)),
               key=lambda r: r.seconds)
    cluster = max(done.clusters, key=len)
    print(f"{views}: " + ", ".join(f"{stage} {s:.2f} s" for stage, s in done.stages.items())
          + f"; clusters of {', '.join(str(len(c)) for c in done.clusters)}; worst, laid on the truth: "
          + words(truth.errors(cluster).values()), flush=True)
    row = [views, done.stages["registration"], done.stages["optimization"], done.seconds, done.clock, done.peak,
           done.bytes / 2**20, done.placed()]
    return row, is_right(truth, done, (0.5, 0.5))


def sizes(args, folder):
    rows, good = [], True
    for views in args.views:
        row, is_good = size(args, folder, views)
        rows.append(row)
        if not is_good:
            print(f"sizes: WRONG at {views}")
            good = False
    print("scans  Run / s  optimisation / s  all / s  clock / s  memory / MiB  session / MiB  placed   "
          "exponents: Run, opt., all, memory")
    for row, last in zip(rows, [None, *rows]):
        grown = "" if last is None else "  ".join(
            f"{math.log(row[k] / last[k]) / math.log(row[0] / last[0]):.2f}" for k in (1, 2, 3, 5))
        print("{:5}  {:7.3f}  {:16.3f}  {:7.2f}  {:9.2f}  {:12.0f}  {:13.1f}  {:6}   ".format(*row) + grown)
    return good


def a_hundred_bunny_views(folder):
    data = pathlib.Path(os.environ["ZORVAN_DATA"]) / "bunny"
    poses, repeats = json.loads((data / "truth.json").read_text()), 10
    views = poses["clusters"][0]["scans"]
    poses["clusters"][0]["scans"] = [{**view, "file": f"{k}_{view['file']}"} for k in range(repeats) for view in views]
    for view in views:
        for k in range(repeats):
            (folder / f"{k}_{view['file']}").symlink_to(data / view["file"])
    (folder / "truth.json").write_text(json.dumps(poses))
    return [folder / scan["file"] for scan in poses["clusters"][0]["scans"]]


def load_beside_registering(args, name, folder, scans, pair, *scale):
    """Takes turns, so that both meet the same machine."""
    saved = Run(args, folder, scans, "--initial", folder / "truth.json", *scale)
    session = (folder / "out" / "session.zdoc").rename(folder / "session.zdoc")
    loads, pairs = [], []
    for _ in range(args.turns):
        loads.append(Run(args, folder, [], "--session", session).stages["session"])
        stages = Run(args, folder, pair, *scale).stages
        pairs.append(stages["reading"] + stages["features"] + stages["registration"])
    load, both = statistics.median(loads), statistics.median(pairs)
    print(f"sessions, {name}: {len(scans)} scans, {saved.bytes / 2**20:.0f} MiB loaded in {1000 * load:.1f} ms; reading and "
          f"registering {' and '.join(scan.name for scan in pair)} takes {1000 * both:.1f} ms (medians of {args.turns})")
    return load < both


def sessions(args, folder):
    patches, _ = simulate(args, folder / "patches", 100, 1)
    good = load_beside_registering(args, "patches", folder / "patches", patches, patches[:2])
    if "ZORVAN_DATA" not in os.environ:
        print("skipped: ZORVAN_DATA does not name the folder of the real scans")
        return good
    (folder / "bunny").mkdir()
    views = {view.name: view for view in a_hundred_bunny_views(folder / "bunny")}
    pair = [views["0_bun000.ply"], views["0_bun045.ply"]]
    return load_beside_registering(args, "bunny", folder / "bunny", views.values(), pair, "--scale", 1000) and good


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("sets", nargs="*", metavar="SET")
    parser.add_argument("--program", default="build/release/bin/zorvan")
    parser.add_argument("--orders", type=int, default=5, help="random orders of the same scans")
    parser.add_argument("--min-placed", type=float, default=0.0)
    parser.add_argument("--views", type=int, nargs="+", default=[5, 10, 20, 40, 80], help="of sizes")
    parser.add_argument("--repeats", type=int, default=3, help="of sizes; the fastest counts")
    parser.add_argument("--seed", type=int, default=1, help="of sizes")
    parser.add_argument("--object", choices=["jaw", "wall"], default="jaw", help="of sizes")
    parser.add_argument("--shuffle", type=int, metavar="SEED", help="of sizes: a random order instead of that of the views")
    parser.add_argument("--threads", type=int, default=1)
    parser.add_argument("--turns", type=int, default=15, help="of sessions")
    parser.add_argument("--scans", action="store_true", help="print the errors of every scan")
    args = parser.parse_args()
    sets = {"bunny": bunny, "arch": arch, "mixed": mixed, "sizes": sizes, "sessions": sessions}
    if wrong := [name for name in args.sets if name not in sets]:
        parser.error(f"{wrong[0]} is none of {', '.join(sets)}")
    good = True
    for name in args.sets or sets:
        with tempfile.TemporaryDirectory() as folder:
            good = sets[name](args, pathlib.Path(folder)) and good
    sys.exit(0 if good else 1)


if __name__ == "__main__":
    main()
