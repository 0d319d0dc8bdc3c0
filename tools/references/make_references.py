#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Fits the splines of the reference features to measured ideal shapes and prints them as a header.

    measure_shapes | tools/references/make_references.py > zorvan/features/cpointfeaturehistogram_referencetables.h

    measure_shapes | tools/references/make_references.py leave-out

Each bin is a chain of cubics over equal intervals of the radius that join in their values only: over the radius most
bins have kinks, where the farthest pair enters the next bin, and a smooth spline would swing about them. What hosts
have compared against (below) is met exactly. It lies off what we measure, more for small radii, so each measured curve
is first scaled by the factor between the two, which runs linearly from one given radius to the next. The second command
leaves out one given radius at a time and prints how far the fit then misses it, with and without the scaling.
"""
import sys
import textwrap

LOW, HIGH = 0.8, 5.2
INTERVALS = {  # by bin
    "sphere": {11: 15, 12: 15, 13: 14, 14: 13, 15: 13, 16: 13, 27: 12, 28: 15, 29: 15, 30: 15, 31: 15},
    "cylinder": {1: 15, 2: 15, 3: 15, 4: 14, 5: 14, 6: 14, 7: 15, 8: 14, 9: 15, 11: 15, 12: 14, 13: 15, 14: 12, 15: 15,
                 16: 12, 27: 12, 28: 11, 29: 15, 30: 15, 31: 15},
}
# Values that hosts have compared against since the first release: the finished bins at these radii, and the first cubic
# of two bins as it is stored.
RADII = [0.8, 1.0, 1.5, 2.0, 3.0, 4.0, 5.2]
FINISHED = {
    "sphere": {
        11: [0.0805, 0.0027, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
        12: [0.3791, 0.1549, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
        13: [0.2817, 0.4593, 0.0213, 0.0000, 0.0000, 0.0000, 0.0000],
        14: [0.1686, 0.2677, 0.6573, 0.3623, 0.0001, 0.0000, 0.0000],
        15: [0.0871, 0.1076, 0.2939, 0.5773, 0.8562, 0.7217, 0.5243],
        16: [0.0030, 0.0077, 0.0274, 0.0604, 0.1437, 0.2783, 0.4757],
        27: [0.0201, 0.0298, 0.0838, 0.1651, 0.4057, 0.7145, 1.0000],
        28: [0.2254, 0.3213, 0.8259, 0.8349, 0.5943, 0.2855, 0.0000],
        29: [0.3144, 0.5084, 0.0902, 0.0000, 0.0000, 0.0000, 0.0000],
        30: [0.1881, 0.1404, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
        31: [0.2519, 0.0000, 0.0001, 0.0000, 0.0000, 0.0000, 0.0000],
    },
    "cylinder": {
        1: [0.0116, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
        2: [0.1103, 0.0777, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
        3: [0.1409, 0.1507, 0.1219, 0.0394, 0.0000, 0.0000, 0.0000],
        4: [0.1576, 0.1814, 0.2400, 0.2850, 0.2444, 0.1725, 0.0882],
        5: [0.1660, 0.1845, 0.2761, 0.3515, 0.5114, 0.6551, 0.8235],
        6: [0.1563, 0.1788, 0.2398, 0.2848, 0.2443, 0.1724, 0.0882],
        7: [0.1386, 0.1507, 0.1221, 0.0393, 0.0000, 0.0000, 0.0000],
        8: [0.1073, 0.0763, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
        9: [0.0113, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
        11: [0.0147, 0.0007, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
        12: [0.1816, 0.0260, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
        13: [0.1939, 0.2010, 0.0009, 0.0000, 0.0000, 0.0000, 0.0000],
        14: [0.1928, 0.2394, 0.2312, 0.0832, 0.0000, 0.0000, 0.0000],
        15: [0.2097, 0.2730, 0.3857, 0.4515, 0.3920, 0.2772, 0.1488],
        16: [0.2074, 0.2601, 0.3822, 0.4653, 0.6080, 0.7228, 0.8512],
        27: [0.2632, 0.3363, 0.4994, 0.6187, 0.8018, 0.9475, 1.0000],
        28: [0.2797, 0.3791, 0.4911, 0.3813, 0.1982, 0.0525, 0.0000],
        29: [0.2135, 0.2545, 0.0095, 0.0000, 0.0000, 0.0000, 0.0000],
        30: [0.1366, 0.0301, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
        31: [0.1070, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000, 0.0000],
    },
}
FIRST_CUBIC = {
    ("sphere", 11): [0.0809087, -1.75341, 10.7798, -19.8379],
    ("cylinder", 5): [0.165998, -0.00512669, 0.742238, -1.26484],
}
ROUNDING = 0.5e-4  # of the finished values
DISTINCT = 0.01  # bins below have no factor of their own
THIRDS = [0, 1 / 3, 2 / 3, 1]  # of an interval: where a cubic is given by its values


def solve(matrix, right):
    """Gaussian elimination with pivoting."""
    n = len(matrix)
    rows = [[*row, value] for row, value in zip(matrix, right)]
    for k in range(n):
        p = max(range(k, n), key=lambda i: abs(rows[i][k]))
        rows[k], rows[p] = rows[p], rows[k]
        for row in rows[k + 1:]:
            factor = row[k] / rows[k][k]
            if factor:
                row[k:] = [a - factor * b for a, b in zip(row[k:], rows[k][k:])]
    x = [0.0] * n
    for k in reversed(range(n)):
        x[k] = (rows[k][n] - sum(rows[k][j] * x[j] for j in range(k + 1, n))) / rows[k][k]
    return x


def least_squares(rows, values, fixed):
    """x that minimises |rows x - values|, where row x = value exactly for each (row, value) of `fixed`."""
    n, m = len(rows[0]), len(fixed)
    matrix = [[sum(r[i] * r[j] for r in rows) for j in range(n)] + [row[i] for row, _ in fixed] for i in range(n)]
    matrix += [row + [0.0] * m for row, _ in fixed]
    right = [sum(r[i] * v for r, v in zip(rows, values)) for i in range(n)] + [v for _, v in fixed]
    return solve(matrix, right)[:n]


def six_digits(value):
    return float(f"{value:.6g}")


def cubic_at(c, x):
    return ((x * c[3] + c[2]) * x + c[1]) * x + c[0]


class Spline:
    """Knots and cubics as they are stored."""

    def __init__(self, intervals):
        self.knots = [six_digits(LOW + (HIGH - LOW) * i / intervals) for i in range(intervals + 1)]
        self.cubics = []

    def interval(self, radius):
        return sum(1 for knot in self.knots[1:-1] if knot <= radius)

    def __call__(self, radius):
        i = self.interval(radius)
        return cubic_at(self.cubics[i], radius - self.knots[i])

    def row(self, radius):
        """The weights of the values at the thirds of all intervals; neighbours share their end."""
        i = self.interval(radius)
        t = (radius - self.knots[i]) / (self.knots[i + 1] - self.knots[i])
        row = [0.0] * (3 * len(self.knots) - 2)
        for a, at in enumerate(THIRDS):
            weight = 1.0
            for other in THIRDS:
                if other != at:
                    weight *= (t - other) / (at - other)
            row[3 * i + a] = weight
        return row

    def fit(self, radii, values, exact, first_cubic=None):
        """@param exact  pairs of radius and value, those in the interval of `first_cubic` passed over"""
        width = self.knots[1] - self.knots[0]
        if first_cubic:
            exact = [(r, v) for r, v in exact if r > self.knots[1]]
            exact += [(LOW + t * width, cubic_at(first_cubic, t * width)) for t in THIRDS[:3]]
        fixed = [(self.row(r), v) for r, v in exact]
        if first_cubic:
            end = [0.0] * len(self.row(LOW))
            end[3] = 1.0
            fixed.append((end, cubic_at(first_cubic, width)))
        x = [v if abs(v) > 1e-7 else 0.0 for v in least_squares([self.row(r) for r in radii], values, fixed)]
        self.cubics = [self.cubic(i, *x[3 * i:3 * i + 4]) for i in range(len(self.knots) - 1)]
        if first_cubic:
            self.cubics[0] = first_cubic
        return self

    def cubic(self, i, v0, v1, v2, v3):
        h = self.knots[i + 1] - self.knots[i]
        c = [v0, (-11 * v0 + 18 * v1 - 9 * v2 + 2 * v3) / 2, 9 * (2 * v0 - 5 * v1 + 4 * v2 - v3) / 2,
             9 * (-v0 + 3 * v1 - 3 * v2 + v3) / 2]
        return [six_digits(value / h ** p) for p, value in enumerate(c)]


def parts(shape):
    """The bins of each of the three parts that have splines."""
    bins = [[b for b in INTERVALS[shape] if b // 11 == part] for part in range(3)]
    return [part for part in bins if part]


def unscaled_targets(shape):
    """What the splines have to give at RADII, so that the finished bins round to FINISHED: the rounding errors of a
    part are shared out, and a part with a given first cubic has the sum that this leads to."""
    targets = {}
    for part in parts(shape):
        for k, radius in enumerate(RADII):
            values = {b: FINISHED[shape][b][k] for b in part}
            nonzero = [b for b in part if values[b] > 0]
            share = (1 - sum(values.values())) / len(nonzero)
            assert abs(share) < ROUNDING
            total = 1.0
            for b in part:
                knots = Spline(INTERVALS[shape][b]).knots
                if (shape, b) in FIRST_CUBIC and radius < knots[1]:
                    total = cubic_at(FIRST_CUBIC[shape, b], radius - LOW) / (values[b] + share)
            for b in part:
                targets[b, radius] = (values[b] + share) * total if b in nonzero else 0.0
    return targets


def interpolate(nodes, x):
    """Piecewise linear through (x, y) pairs, constant outside; 1 without any."""
    if not nodes:
        return 1.0
    if x <= nodes[0][0]:
        return nodes[0][1]
    for (x0, y0), (x1, y1) in zip(nodes, nodes[1:]):
        if x <= x1:
            return y0 + (y1 - y0) * (x - x0) / (x1 - x0)
    return nodes[-1][1]


def fit_bin(shape, b, radii, values, targets, scaling=True):
    spline = Spline(INTERVALS[shape][b]).fit(radii, values, [])
    given = [(r, targets[b, r]) for r in RADII if (b, r) in targets]
    if scaling:
        factors = [(r, v / spline(r)) for r, v in given if min(v, spline(r)) > DISTINCT]
        values = [value * interpolate(factors, r) for r, value in zip(radii, values)]
    exact = [(r, v) for r, v in given if v > 0]
    # Below 0 is as good as 0, since bins are clamped.
    while True:
        spline.fit(radii, values, exact, FIRST_CUBIC.get((shape, b)))
        above = [(r, v) for r, v in given if v == 0 and (r, v) not in exact and spline(r) > ROUNDING / 4]
        if not above:
            return spline
        exact += above


def misses(shape, splines, radius):
    """How far each finished bin lies off the value that hosts know."""
    for part in parts(shape):
        clamped = {b: min(1.0, max(0.0, splines[b](radius))) for b in part}
        for b, value in clamped.items():
            yield b, abs(value / sum(clamped.values()) - FINISHED[shape][b][RADII.index(radius)])


def check(shape, splines):
    for radius in RADII:
        for b, miss in misses(shape, splines, radius):
            if miss > ROUNDING:
                sys.exit(f"{shape}, bin {b}, {radius} mm: misses by {miss:.6f}")


def print_misses_when_left_out(shape, radii, curves):
    for radius in RADII[1:-1]:
        targets = {key: v for key, v in unscaled_targets(shape).items() if key[1] != radius}
        for scaling in (True, False):
            splines = {b: fit_bin(shape, b, radii, curves[b], targets, scaling) for b in curves}
            worst = max(miss for _, miss in misses(shape, splines, radius))
            print(f"{shape} {radius} mm, {'scaled' if scaling else 'not scaled'}: off by {worst:.4f} at most")


def numbers(values):
    return ", ".join(f"{v:.6g}" for v in values)


def print_header(tables):
    print("""\
// Made by: measure_shapes | tools/references/make_references.py
#pragma once

#include <cstddef>
#include <span>

// clang-format off

namespace prereg::detail {

/// ((x c3 + c2) x + c1) x + c0, with x from the knot at its left
struct ReferenceCubic
{
    double c0, c1, c2, c3;
};

/// One bin over the radius in mm.
struct ReferenceSpline
{
    std::size_t bin;
    std::span<const double> knots; ///< one more than cubics
    std::span<const ReferenceCubic> cubics;
};
""")
    for n in sorted({n for by_bin in INTERVALS.values() for n in by_bin.values()}):
        line = f"inline constexpr double knots{n}[] = {{{numbers(Spline(n).knots)}}};"
        print(textwrap.fill(line, 120, subsequent_indent="    "))
    for shape, splines in tables.items():
        for b, spline in splines.items():
            print(f"inline constexpr ReferenceCubic {shape}{b}[] = {{")
            print("".join(f"    {{{numbers(c)}}},\n" for c in spline.cubics) + "};")
        print(f"inline constexpr ReferenceSpline {shape}Splines[] = {{")
        print("".join(f"    {{{b}, knots{n}, {shape}{b}}},\n" for b, n in INTERVALS[shape].items()) + "};")
    print("\n} // namespace prereg::detail")


def main():
    lines = [line.split() for line in sys.stdin]
    tables = {}
    for shape, intervals in INTERVALS.items():
        rows = [[float(word) for word in line[1:]] for line in lines if line[0] == shape]
        if not rows:
            sys.exit(f"no {shape} in the input; it comes from measure_shapes")
        radii = [row[0] for row in rows]
        curves = {b: [row[1 + b] for row in rows] for b in intervals}
        if sys.argv[1:] == ["leave-out"]:
            print_misses_when_left_out(shape, radii, curves)
            continue
        targets = unscaled_targets(shape)
        tables[shape] = {b: fit_bin(shape, b, radii, curves[b], targets) for b in curves}
        check(shape, tables[shape])
    if tables:
        print_header(tables)


if __name__ == "__main__":
    main()
