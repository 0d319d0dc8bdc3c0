#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Does in Python what scripts/demo.sh does, with the same poses: virtual scans, alignment, comparison with the truth.

    scripts/demo.py [FOLDER]     # after scripts/demo.sh, or where the module is installed and zorvan is on the PATH
"""
from __future__ import annotations

import json
import math
import os
import pathlib
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
BUILD = ROOT / "build" / "release"
if (BUILD / "python").is_dir():
    sys.path.insert(0, str(BUILD / "python"))
    os.environ["PATH"] = f"{BUILD / 'bin'}{os.pathsep}{os.environ['PATH']}"

import numpy as np  # noqa: E402
import zorvan  # noqa: E402


def main() -> int:
    program = shutil.which("zorvan")
    if program is None:
        print("the program zorvan is not there; build it with scripts/demo.sh", file=sys.stderr)
        return 2
    folder = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else ROOT / "build" / "demo"
    print("== Scanning a virtual row of teeth from two sides; the noise of a point is 0.01 mm")
    subprocess.run([program, "simulate", "-o", folder, "--views", "2"], check=True)

    print("== Finding the place of the second scan on the first, without a start pose")
    pair = zorvan.align(folder / "view00.ply", folder / "view01.ply", progress=sys.stderr.isatty())
    print(*pair.words, pair.reason, sep="\n")
    print(f"view01.ply is {pair.verdict}, RMSE {pair.rmse:.4g} mm, overlap {pair.overlap:.3g}, slip {pair.slip:.4g} mm")
    if pair.pose is None:
        return 1
    pair.save(folder / "poses.json")

    print("== Comparing the pose found with the true one; more than 0.1 degrees or 0.05 mm would be a failure")
    scans = json.loads((folder / "truth.json").read_text())["clusters"][0]["scans"]
    truth = [np.array(scan["pose"]) for scan in scans]
    right = np.linalg.inv(truth[0]) @ truth[1]
    chord = float(np.linalg.norm(pair.pose[:3, :3] - right[:3, :3]))
    degrees = math.degrees(2.0 * math.asin(chord / math.sqrt(8.0)))
    shift = float(np.linalg.norm(pair.pose[:3, 3] - right[:3, 3]))
    print(f"off by {degrees:.2g} degrees and {shift:.2g} mm")
    return 0 if degrees < 0.1 and shift < 0.05 else 1


if __name__ == "__main__":
    sys.exit(main())
