#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""What Python costs: zorvan.align on arrays against the same call in C++, turn by turn in one run; processor time,
so that a busy machine matters little: what is left of it is shown as the spread of the ratio.

    benchmarks/python/overhead.py [--build build/release] [--rounds 30] FIX FLT
"""
from __future__ import annotations

import argparse
import random
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("fix")
    parser.add_argument("flt")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build" / "release")
    parser.add_argument("--rounds", type=int, default=30)
    options = parser.parse_args()
    sys.path.insert(0, str(options.build / "python"))
    import numpy as np
    import zorvan

    scans = [zorvan.Scan.read(file, mesh="scan") for file in (options.fix, options.flt)]
    arrays = [(np.ascontiguousarray(s.points), np.ascontiguousarray(s.normals)) for s in scans]
    with tempfile.TemporaryDirectory() as folder:
        files = [f"{folder}/{i}" for i in range(2)]
        for file, both in zip(files, arrays):
            np.hstack(both).tofile(file)
        host = subprocess.Popen([options.build / "bin" / "align_host", *files], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                text=True)
        assert host.stdin is not None and host.stdout is not None
        times: dict[str, list[float]] = {"python": [], "c++": []}

        def in_python() -> str:
            zorvan.align(*arrays)  # each warms up after the other's turn
            start = time.process_time()
            pose = zorvan.align(*arrays).candidates[0]["pose"]
            times["python"].append(time.process_time() - start)
            return f"{pose[0, 3]:.9g}"

        def in_cpp() -> str:
            host.stdin.write("\n")
            host.stdin.flush()
            seconds, x = host.stdout.readline().split()
            times["c++"].append(float(seconds))
            return x

        for i in range(options.rounds):
            turns = (in_python, in_cpp) if i % 2 == 0 else (in_cpp, in_python)
            a, b = (turn() for turn in turns)
            assert float(a) == float(b), "the two do not agree"
        host.stdin.close()
        host.wait()
    for name, values in times.items():
        print(f"{name:7} median {1000 * statistics.median(values):8.2f} ms   least {1000 * min(values):8.2f} ms")
    ratios = sorted(p / c for p, c in zip(times["python"], times["c++"]))
    print(f"ratio   median {statistics.median(ratios):8.4f}      of the least {min(times['python']) / min(times['c++']):8.4f}")
    rng = random.Random(1)
    medians = sorted(statistics.median(rng.choices(ratios, k=len(ratios))) for _ in range(2000))
    print(f"        half of the rounds lie within {ratios[len(ratios) // 4]:.4f} to {ratios[3 * len(ratios) // 4]:.4f}; "
          f"95 % interval of the median {medians[50]:.4f} to {medians[1949]:.4f}")


if __name__ == "__main__":
    main()
