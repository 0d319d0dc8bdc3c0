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
    trace = sum(pose[i][j] * truth[i][j] for i in range(3) for j in range(3))
    skew = math.sqrt(max(0.0, (3 - trace) * (1 + trace)))  # atan2 keeps its digits where acos of the trace does not
    a, b = (apply(p, middle or [0, 0, 0]) for p in (pose, truth))
    return math.degrees(math.atan2(skew, trace - 1)), math.dist(a, b) * mm_per_unit
