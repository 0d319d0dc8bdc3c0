# SPDX-License-Identifier: MIT
"""How far two poses (4x4, row by row) lie apart; for the scripts of this folder."""
import math


def apply(pose, point):
    return [sum(pose[i][k] * point[k] for k in range(3)) + pose[i][3] for i in range(3)]


def inverse(pose):
    turn = [[pose[k][i] for k in range(3)] for i in range(3)]
    shift = [-sum(turn[i][k] * pose[k][3] for k in range(3)) for i in range(3)]
    return [turn[i] + [shift[i]] for i in range(3)] + [[0, 0, 0, 1]]


def product(a, b):
    return [[sum(a[i][k] * b[k][j] for k in range(4)) for j in range(4)] for i in range(4)]


def errors(pose, truth, middle=None, mm_per_unit=1.0):
    """Angle in degrees, and the distance in mm of the two images of `middle`, a point of the moved scan."""
    turn = [[sum(pose[i][k] * truth[j][k] for k in range(3)) for j in range(3)] for i in range(3)]
    skew = math.hypot(*(turn[i][j] - turn[j][i] for i, j in ((2, 1), (0, 2), (1, 0))))
    a, b = (apply(p, middle or [0, 0, 0]) for p in (pose, truth))
    return math.degrees(math.atan2(skew, turn[0][0] + turn[1][1] + turn[2][2] - 1)), math.dist(a, b) * mm_per_unit


def fit(source, target):
    """The rigid pose that carries `source` onto `target` with the least sum of squares (Horn 1987): the quaternion is the
    eigenvector of the largest eigenvalue, found by repeated squaring of the shifted matrix."""
    n = len(source)
    a, b = ([sum(p[k] for p in points) / n for k in range(3)] for points in (source, target))
    s = [[sum((p[i] - a[i]) * (q[j] - b[j]) for p, q in zip(source, target)) for j in range(3)] for i in range(3)]
    m = [[s[0][0] + s[1][1] + s[2][2], s[1][2] - s[2][1], s[2][0] - s[0][2], s[0][1] - s[1][0]],
         [s[1][2] - s[2][1], s[0][0] - s[1][1] - s[2][2], s[0][1] + s[1][0], s[2][0] + s[0][2]],
         [s[2][0] - s[0][2], s[0][1] + s[1][0], s[1][1] - s[0][0] - s[2][2], s[1][2] + s[2][1]],
         [s[0][1] - s[1][0], s[2][0] + s[0][2], s[1][2] + s[2][1], s[2][2] - s[0][0] - s[1][1]]]
    bound = max(sum(abs(x) for x in row) for row in m)
    m = [[x + (bound if i == j else 0) for j, x in enumerate(row)] for i, row in enumerate(m)]
    for _ in range(60):
        m = product(m, m)
        size = max(abs(x) for row in m for x in row)
        m = [[x / size for x in row] for row in m]
    column = max(zip(*m), key=lambda c: sum(x * x for x in c))
    length = math.sqrt(sum(x * x for x in column))
    w, x, y, z = (c / length for c in column)
    turn = [[1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y)],
            [2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x)],
            [2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)]]
    return [turn[i] + [b[i] - sum(turn[i][k] * a[k] for k in range(3))] for i in range(3)] + [[0, 0, 0, 1]]
