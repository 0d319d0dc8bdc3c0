#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Reads what the program writes with programs and libraries of others, and what they write with the program.

    scripts/check_interchange.py [--program build/release/bin/zorvan] [--install]

LAS is read by loaders.gl and E57 by web-e57, a build of the Rust library e57 (both from npm: no Debian package reads either
format, CloudCompare's has neither plugin), PCD by the tools of PCL, which write it in all three forms again, and PLY by
CloudCompare, which writes it again. Counts and extents have to be those of the export as plain Python reads it. With
ZORVAN_DATA set, the LAS, E57 and PCD files in its folder formats are read by both as well.

--install fetches the Debian packages cloudcompare, pcl-tools, nodejs and npm, and the npm packages. Exit code 1 when a
file is read otherwise, or not at all.
"""
import argparse
import json
import math
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile

SCRIPTS = pathlib.Path(__file__).resolve().parent
DEBIAN = {"cloudcompare": "CloudCompare", "pcl-tools": "pcl_ply2pcd", "nodejs": "node", "npm": "npm"}  # and a program of each
NPM = ["web-e57@1.2.0", "@loaders.gl/core@4.5.1", "@loaders.gl/las@4.5.1"]


def run(*command, **more):
    return subprocess.run([*map(str, command)], capture_output=True, text=True, check=True, **more).stdout


def box_of(points):
    points = [p for p in points if all(map(math.isfinite, p))]
    return {"points": len(points), "low": [min(c) for c in zip(*points)], "high": [max(c) for c in zip(*points)]}


def read_ply(file):
    """Of our own writer: binary, little endian, x y z first."""
    header, body = file.read_bytes().split(b"end_header\n", 1)
    sizes = {"float": 4, "double": 8, "uchar": 1}
    vertices = header.decode().split("element face")[0].split("element vertex ")[1].splitlines()
    types = [line.split()[1] for line in vertices[1:] if line.startswith("property ")]
    form = "<" + "".join({4: "f", 8: "d"}[sizes[t]] for t in types[:3])
    stride = sum(sizes[t] for t in types)
    return box_of([struct.unpack_from(form, body, at) for at in range(0, int(vertices[0]) * stride, stride)])


def read_text_pcd(file):
    """As PCL writes it."""
    header, body = file.read_text().split("DATA ascii\n", 1)
    names = header.split("FIELDS ")[1].split("\n")[0].split()
    counts = map(int, header.split("COUNT ")[1].split("\n")[0].split())
    names = [name for name, count in zip(names, counts) for _ in range(count)]
    rows = [line.split() for line in body.splitlines()]
    return box_of([[float(row[names.index(axis)]) for axis in "xyz"] for row in rows]) | {"points": len(rows)}


class Check:
    def __init__(self, program):
        self.program, self.failed = program, False

    def box(self, file):
        """As the program reads it: of one scan, in its frame; of several, their number of points."""
        scans = json.loads(run(self.program, "info", "--json", file))[0]["scans"]
        found = {"points": sum(scan["points"] for scan in scans)}
        if len(scans) == 1 and not scans[0]["pose"]:
            found |= {"low": scans[0]["low"], "high": scans[0]["high"]}
        return found

    def compare(self, what, found, expected, tolerance=1e-4):
        same = found.get("points") == expected["points"]
        for corner in ("low", "high"):
            if corner in expected and corner in found:
                same = same and all(abs(a - b) <= tolerance for a, b in zip(found[corner], expected[corner]))
        self.failed |= not same
        print(f"{what}: {found.get('points', found.get('error'))} points of {expected['points']}, "
              f"{'the same box' if same else 'ANOTHER BOX: ' + str(found) + ' for ' + str(expected)}")


def read_by_others(folder, files):
    shutil.copy(SCRIPTS / "read_points.mjs", folder)
    lines = run("node", "--no-warnings", "--experimental-wasm-modules", "read_points.mjs", *files, cwd=folder)
    return {pathlib.Path(entry["file"]): entry for entry in map(json.loads, lines.splitlines())}


def check(args, folder):
    checks = Check(args.program)
    run(args.program, "simulate", "-o", folder, "--views", "3", "--field", "28", "--points", "6000", "--seed", "4")
    exports = {}
    for ending in ("ply", "pcd", "las", "e57"):
        out = folder / ending
        run(args.program, "register", *sorted(folder.glob("view0?.ply")), "-o", out, "--export", ending, "--quiet")
        exports[ending] = out / f"scans.{ending}"
    expected = read_ply(exports["ply"])

    others = read_by_others(args.node_modules, [exports["las"], exports["e57"]])
    checks.compare("LAS of ours, read by loaders.gl", others[exports["las"]], expected)
    checks.compare("E57 of ours, read by web-e57", others[exports["e57"]], expected)

    for name, form in (("text", 0), ("binary", 1), ("compressed", 2)):
        again = folder / f"{name}.pcd"
        run("pcl_convert_pcd_ascii_binary", exports["pcd"], again, form)
        checks.compare(f"PCD of ours, written by PCL as {name}", checks.box(again), expected)
    merged = exports["ply"].with_name("merged.ply")  # without faces, which make it a mesh to CloudCompare
    run("CloudCompare", "-SILENT", "-AUTO_SAVE", "OFF", "-C_EXPORT_FMT", "PLY", "-NO_TIMESTAMP", "-O", merged, "-SAVE_CLOUDS",
        "FILE", folder / "again.ply", env={**os.environ, "QT_QPA_PLATFORM": "offscreen"})
    checks.compare("PLY of ours, written by CloudCompare", checks.box(folder / "again.ply"), read_ply(merged))

    data = os.environ.get("ZORVAN_DATA")
    files = sorted(pathlib.Path(data, "formats").glob("*.[le][a5][s7]")) if data else []
    for file, other in (read_by_others(args.node_modules, files) if files else {}).items():
        if "error" in other:  # LAS 1.4, and what is damaged
            print(f"{file.name}: the other does not read it: {other['error']}")
            continue
        checks.compare(f"{file.name}, read by both", other, checks.box(file), 1e-3)
    for file in sorted(pathlib.Path(data, "formats").glob("*.pcd")) if data else []:
        run("pcl_convert_pcd_ascii_binary", file, folder / "text.pcd", 0)
        checks.compare(f"{file.name}, read by both", read_text_pcd(folder / "text.pcd"), checks.box(file), 1e-5)
    return int(checks.failed)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", default="build/release/bin/zorvan", type=pathlib.Path)
    parser.add_argument("--node-modules", default=pathlib.Path("build/interchange"), type=pathlib.Path,
                        help="folder with the npm packages")
    parser.add_argument("--install", action="store_true")
    args = parser.parse_args()
    args.program, args.node_modules = args.program.resolve(), args.node_modules.resolve()
    if args.install:
        missing = [package for package, program in DEBIAN.items() if not shutil.which(program)]
        if missing:
            run("apt-get", "install", "-y", "-qq", "--no-install-recommends", *missing)
        args.node_modules.mkdir(parents=True, exist_ok=True)
        run("npm", "install", "--no-audit", "--no-fund", "--ignore-scripts", "--legacy-peer-deps", "--prefix", args.node_modules, *NPM)
    with tempfile.TemporaryDirectory() as name:
        return check(args, pathlib.Path(name))


if __name__ == "__main__":
    sys.exit(main())
