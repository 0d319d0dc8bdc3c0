#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Latency of live scanning by the size of the model: a table and a picture of examples/live_scan.

    benchmarks/live_scan.py [--program build/release/bin/live_scan] [--frames 200] [--picture docs/tasks/live-scan-model.svg]

On a busy machine start it with `chrt -r 1`, as root: then all else waits.
"""
from __future__ import annotations

import argparse
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[1]
SIZES = [0, 500_000, 1_000_000, 2_000_000]
COLUMNS = {"placing": "#34618f", "features": "#2a7f3f", "update": "#c08a2b", "latency": "#888888"}


def measure(program: str, frames: int, size: int) -> dict[str, list[float]]:
    """Median, 95 % and largest of each stage in ms; what the model says."""
    out = subprocess.run([program, "--frames", str(frames), "--model-points", str(size)], check=True, capture_output=True, text=True).stdout
    row = {name: [float(n) for n in numbers.split()] for name, numbers in re.findall(r"^(\w+) +([\d.]+ +[\d.]+ +[\d.]+)$", out, re.M)}
    row["share"] = [float(n) for n in re.findall(r"([\d.]+) % of", out)]
    row["model"] = [float(n) for n in re.search(r"model: (\d+) points.* took ([\d.]+) s, the slowest ([\d.]+) s", out).groups()]
    return row


def picture(rows: list[dict[str, list[float]]]) -> str:
    """Bars: the medians of the stages on top of each other, beside them 95 % and the largest of the latency."""
    parts = ["<svg xmlns='http://www.w3.org/2000/svg' viewBox='-60 -40 560 320' font-family='sans-serif' font-size='13'>"]

    def bar(x: float, below: float, height: float, colour: str, opacity: float = 1.0) -> None:
        parts.append(f"<rect x='{x}' y='{240 - 4 * (below + height):.1f}' width='34' height='{4 * height:.1f}' fill='{colour}' "
                     f"fill-opacity='{opacity}'/>")

    for i, row in enumerate(rows):
        x, below = 20.0 + 120 * i, 0.0
        for name in ("placing", "features", "update"):
            bar(x, below, row[name][0], COLUMNS[name])
            below += row[name][0]
        bar(x + 40, 0.0, min(row["latency"][1], 60.0), COLUMNS["latency"])
        bar(x + 40, row["latency"][1], max(0.0, min(row["latency"][2], 60.0) - row["latency"][1]), COLUMNS["latency"], 0.35)
        parts.append(f"<text x='{x}' y='258'>{row['model'][0] / 1e6:.1f} M points</text>")
    for ms in (0, 25, 50):
        parts.append(f"<path d='M0 {240 - 4 * ms} H480' stroke='#444' stroke-dasharray='4'/><text x='-50' y='{244 - 4 * ms}'>{ms} ms</text>")
    for i, name in enumerate(COLUMNS):
        words = "latency: 95 %, largest" if name == "latency" else name
        parts.append(f"<text x='{90 * i}' y='-16' fill='{COLUMNS[name]}'>{words}</text>")
    return "\n".join(parts + ["</svg>", ""])


def main() -> None:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--program", default=str(ROOT / "build" / "release" / "bin" / "live_scan"))
    parser.add_argument("--frames", type=int, default=200)
    parser.add_argument("--picture", type=pathlib.Path)
    options = parser.parse_args()
    rows = []
    print("| points at the end | placing | features | update | latency 95 % | largest | within 50 ms | model a patch | slowest |")
    print("|---|---|---|---|---|---|---|---|---|")
    for size in SIZES:
        row = measure(options.program, options.frames, size)
        rows.append(row)
        stages = " | ".join(f"{row[name][0]:.1f}" for name in ("placing", "features", "update"))
        print(f"| {row['model'][0] / 1e6:.2f} M | {stages} | {row['latency'][1]:.1f} ms | {row['latency'][2]:.1f} ms | {row['share'][0]:.1f} % | "
              f"{row['model'][1]:.2f} s | {row['model'][2]:.2f} s |", flush=True)
    if options.picture is not None:
        options.picture.write_text(picture(rows))


if __name__ == "__main__":
    main()
