#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Draws how contradictions and counts are distributed over right poses, wrong ones and strangers.

    build/release/bin/verdict_rates bunny spot ... --csv poses.csv
    benchmarks/verdict_picture.py poses.csv -o verdict.svg

Right: the refined truth, within 2 degrees and 1 % of the object, with an overlap of at least --min-overlap. Wrong: over
5 degrees or 2 % off. Each panel shows the share of the poses that lie at a value or below; values are shares too, of a
count over itself and the matches, and drawn by their logarithm from 0.001 on.
"""
import argparse
import collections
import csv
import math
import pathlib

TRUTH, STRANGER = 2, 3  # sources of poses
OVERLAP, SOURCE, DEGREES, SIZE, MATCHED = 3, 4, 18, 19, 21
COUNTS = {"seen through": 22, "missing": 23, "opposed": 24, "tail": 25}
COLOURS = {"right": "#2a7f3f", "wrong": "#c0392b", "strangers": "#34618f"}
WIDTH, HEIGHT, GAP, LEAST = 240, 180, 50, 0.001


def kind_of(row, min_overlap):
    source, degrees, size = int(row[SOURCE]), float(row[DEGREES]), float(row[SIZE])
    if source == STRANGER:
        return "strangers"
    if degrees > 5 or size > 0.02:
        return "wrong"
    is_shown = source == TRUTH and degrees < 2 and size < 0.01 and float(row[OVERLAP]) >= min_overlap
    return "right" if is_shown else None


def share(row, columns):
    """Of the counts in these columns, over them and the matches; 0 where nothing can be compared."""
    counted = sum(int(row[c]) for c in columns)
    return counted / max(1, counted + int(row[MATCHED]))


def across(value):
    return WIDTH * (1 - math.log(max(value, LEAST)) / math.log(LEAST))


def curve(values, colour):
    """One step per pixel at most, however many the values are."""
    steps = collections.Counter(round(across(value)) for value in values)
    points = [(0, float(HEIGHT))]
    below = 0
    for x, count in sorted(steps.items()):
        below += count
        points += [(x, points[-1][1]), (x, HEIGHT * (1 - below / len(values)))]
    points.append((WIDTH, points[-1][1]))
    text = " ".join(f"{x},{y:.1f}" for x, y in points)
    return f'<polyline points="{text}" fill="none" stroke="{colour}" stroke-width="1.5"/>'


def panel(left, title, groups, columns):
    parts = [f'<g transform="translate({left},{GAP})">',
             f'<rect width="{WIDTH}" height="{HEIGHT}" fill="none" stroke="#888"/>',
             f'<text x="0" y="-8">{title}</text>']
    for value in (0.001, 0.01, 0.1, 1):
        x = across(value)
        parts.append(f'<line x1="{x:.0f}" x2="{x:.0f}" y1="0" y2="{HEIGHT}" stroke="#ddd"/>'
                     f'<text x="{x:.0f}" y="{HEIGHT + 16}" text-anchor="middle">{value:g}</text>')
    parts += [curve([share(row, columns) for row in rows], COLOURS[kind]) for kind, rows in groups.items() if rows]
    return "\n".join([*parts, "</g>"])


def picture(groups):
    contradictions = [COUNTS[name] for name in ("seen through", "missing", "opposed")]
    panels = {"contradictions": contradictions} | {name: [column] for name, column in COUNTS.items()}
    width = GAP + len(panels) * (WIDTH + GAP)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{HEIGHT + 2 * GAP}" font-family="sans-serif" '
             'font-size="12">', '<rect width="100%" height="100%" fill="white"/>']
    for i, (title, columns) in enumerate(panels.items()):
        parts.append(panel(GAP + i * (WIDTH + GAP), title, groups, columns))
    for i, (kind, rows) in enumerate(groups.items()):
        parts.append(f'<text x="{GAP + 160 * i}" y="20" fill="{COLOURS[kind]}">{kind}: {len(rows)} poses</text>')
    return "\n".join([*parts, "</svg>\n"])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("csv", help="what verdict_rates --csv has written")
    parser.add_argument("-o", "--output", default="verdict.svg")
    parser.add_argument("--min-overlap", type=float, default=0.1)
    args = parser.parse_args()
    groups = {kind: [] for kind in COLOURS}
    with open(args.csv, encoding="utf8") as file:
        for row in csv.reader(file):
            if kind := kind_of(row, args.min_overlap):
                groups[kind].append(row)
    pathlib.Path(args.output).write_text(picture(groups), encoding="utf8")


if __name__ == "__main__":
    main()
