# SPDX-License-Identifier: MIT
"""Draws two scans as the sensor of the first sees them, with the second at one pose a panel; for scripts of this folder and of the
manual. Red is what lies before the surface of the first: its sensor would have seen that instead. Needs numpy and the Python module."""
from __future__ import annotations

import pathlib

import numpy as np
import zorvan

SIZE, SHOWN = 300.0, 1500  # pixels of a panel; points of a scan
FIXED, FLOATING, AGAINST = "#34618f", "#c08a2b", "#c0392b"


def points_of(file: str | pathlib.Path) -> np.ndarray:
    points = zorvan.read_clouds(str(file))[0]["points"].astype(float)
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


def draw(picture: pathlib.Path, fix: str | pathlib.Path, flt: str | pathlib.Path, poses: dict[str, np.ndarray]) -> None:
    """Writes an SVG; `poses` (4, 4) by the words over their panels."""
    points, moving = points_of(fix), points_of(flt)
    panels = "".join(panel(points, moving @ pose[:3, :3].T + pose[:3, 3], i * (SIZE + 20), words)
                     for i, (words, pose) in enumerate(poses.items()))
    width = len(poses) * (SIZE + 20) - 20
    picture.write_text(f"<svg xmlns='http://www.w3.org/2000/svg' viewBox='0 0 {width:.0f} {SIZE + 30:.0f}' width='{width:.0f}' "
                       f"font-family='sans-serif' font-size='13'>\n{panels}</svg>\n")
