#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Draws the pictures of docs/model-cases.md, from the scans that its snippets are run on.

    PYTHONPATH=build/release/python PATH=build/release/bin:$PATH docs/model_cases.py     # into docs/model-cases
"""
from __future__ import annotations

import json
import pathlib
import subprocess
import tempfile

import numpy as np
import zorvan

FOLDER = pathlib.Path(__file__).parent / "model-cases"
SIZE, SHOWN = 300.0, 1500  # pixels of a panel; points of a scan
FIXED, FLOATING, AGAINST = "#34618f", "#c08a2b", "#c0392b"
SCENES = {"scans": "--views 4", "part": "--object bracket --seed 3 --views 3 --mesh", "disc": "--object flange --views 2 --spacing 0.5",
          "arch": "--views 8 --field 20"}


def points_of(file: str) -> np.ndarray:
    points = zorvan.read_clouds(file)[0]["points"].astype(float)
    return points[np.random.default_rng(1).permutation(len(points))]


def looked_through(fix: np.ndarray, flt: np.ndarray, cell: float = 0.5, depth: float = 0.5) -> np.ndarray:
    """Which floating points lie before the fixed surface, as seen by the fixed sensor, which looks along -z."""
    top: dict[tuple[int, int], float] = {}
    for x, y, z in fix:
        key = int(x // cell), int(y // cell)
        top[key] = max(top.get(key, -np.inf), z)
    return np.array([z > top.get((int(x // cell), int(y // cell)), np.inf) + depth for x, y, z in flt])


def dots(points: np.ndarray, colour: str) -> str:
    path = "".join(f"M{x:.0f},{y:.0f}h0" for x, y in points[:, :2])
    return f"<path d='{path}' stroke='{colour}' stroke-width='2' stroke-linecap='round' fill='none'/>"


def panel(fix: np.ndarray, flt: np.ndarray, left: float, words: str) -> str:
    both = np.vstack([fix, flt])[:, :2]
    middle, scale = (both.min(axis=0) + both.max(axis=0)) / 2, 0.95 * SIZE / np.ptp(both, axis=0).max()
    against = looked_through(fix, flt)
    shown = np.arange(len(flt)) < SHOWN
    layers = [(fix[:SHOWN], FIXED), (flt[shown & ~against], FLOATING), (flt[shown & against], AGAINST)]
    drawn = "".join(dots((points[:, :2] - middle) * scale * [1, -1] + SIZE / 2, colour) for points, colour in layers)
    return f"<g transform='translate({left},24)'>{drawn}<text x='0' y='-8'>{words}</text></g>\n"


def draw(name: str, fix: str, flt: str, poses: dict[str, np.ndarray]) -> None:
    points, moving = points_of(fix), points_of(flt)
    panels = "".join(panel(points, moving @ pose[:3, :3].T + pose[:3, 3], i * (SIZE + 20), words)
                     for i, (words, pose) in enumerate(poses.items()))
    width = len(poses) * (SIZE + 20) - 20
    (FOLDER / f"{name}.svg").write_text(f"<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 {width:.0f} {SIZE + 30:.0f}' width='{width:.0f}' "
                                        f"font-family='sans-serif' font-size='13'>\n{panels}</svg>\n")


def main() -> None:
    FOLDER.mkdir(exist_ok=True)
    with tempfile.TemporaryDirectory() as folder:
        for scene, options in SCENES.items():
            subprocess.run(["zorvan", "simulate", "--quiet", "-o", f"{folder}/{scene}", *options.split()], check=True, stdout=subprocess.DEVNULL)
        pair = [f"{folder}/scans/view0{i}.ply" for i in range(2)]
        draw("aligned", *pair, {"the pose": zorvan.align(*pair).pose})
        pair = [f"{folder}/disc/view0{i}.ply" for i in range(2)]
        several = zorvan.align(*pair).poses
        draw("ambiguous", *pair, {"the best": several[0], "another one": several[1]})
        pair = [f"{folder}/part/view0{i}.ply" for i in (0, 2)]
        draw("not-aligned", *pair, {"the nearest miss": zorvan.align(*pair).candidates[0]["pose"]})
        truth = json.loads(pathlib.Path(folder, "arch", "truth.json").read_text())["clusters"][0]["scans"]
        draw("too-little", f"{folder}/arch/view00.ply", f"{folder}/arch/view04.ply", {"where they were taken": np.array(truth[4]["pose"])})


if __name__ == "__main__":
    main()
