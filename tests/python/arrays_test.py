# SPDX-License-Identifier: MIT
"""Arrays of all kinds on their way in and out."""
import gc
import unittest

from support import main, np, sphere

import zorvan

POINTS, NORMALS = sphere()


def wide(array, fourth=0.0):
    """(N, 4) float32 with something in the fourth column."""
    return np.concatenate([array, np.full((len(array), 1), fourth)], axis=1).astype(np.float32)


def read_only(array):
    array = array.copy()
    array.flags.writeable = False
    return array


def unaligned(array):
    """The same float32 values, one byte off every boundary."""
    raw = np.zeros(array.nbytes + 1, np.uint8)
    view = raw[1:].view(np.float32).reshape(array.shape)
    view[...] = array
    return view


SINGLE = POINTS.astype(np.float32)
GOOD = {"float32": SINGLE, "float64 of floats": SINGLE.astype(np.float64), "wide": wide(POINTS), "wide, NaN": wide(POINTS, np.nan),
        "wide, huge": wide(POINTS, 3e38), "read-only": read_only(SINGLE), "column order": np.asfortranarray(SINGLE),
        "every other": np.repeat(SINGLE, 2, axis=0)[::2], "backwards": np.ascontiguousarray(SINGLE[::-1])[::-1],
        "columns of more": np.concatenate([wide(POINTS), wide(POINTS)], axis=1)[:, :3],
        "wide of wider": np.concatenate([wide(POINTS), wide(POINTS)], axis=1)[:, :4], "unaligned": unaligned(SINGLE),
        "unaligned wide": unaligned(wide(POINTS))}

WRONG_ANYWHERE = [None, 3, 2.5, "points", b"points", [], [[1.0, 2.0, 3.0]], ((1.0, 2.0, 3.0),), {}, set(), object(), np, range(3),
                  memoryview(b"123"), np.float32(3), np.datetime64("2026-01-01"), np.array(3.0), np.zeros(3), np.zeros((3, 2)),
                  np.zeros((3, 5)), np.zeros((3, 4)), np.zeros((3, 3, 3)), np.zeros((3, 0)), np.zeros((1, 3, 4), np.float32),
                  np.zeros((4, 3), np.int32), np.zeros((4, 3), np.uint8), np.zeros((4, 3), np.int64), np.zeros((4, 3), bool),
                  np.zeros((4, 3), complex), np.zeros((4, 3), np.float16), np.zeros((4, 3), np.longdouble), np.zeros((4, 3), object),
                  np.zeros((4, 3), "U4"), np.zeros((4, 3), "S4"), np.zeros((4, 3), "V8"), np.zeros((4, 3), ">f4"),
                  np.zeros((4, 3), ">f8"), np.zeros((4, 3), "M8[s]"), np.zeros((4, 3), "m8[s]"),
                  np.zeros(4, [("x", "f4"), ("y", "f4"), ("z", "f4")]), np.ma.masked_array(np.zeros((4, 3))),
                  np.broadcast_to(np.float32(0), (2**31, 3)), np.zeros((4, 3)).T, np.zeros((3, 4)).T[:, :2]]
BAD_SCANS = [np.zeros((0, 3)), np.zeros((0, 4), np.float32), np.zeros((2, 3)), np.zeros((9, 3)), np.full((9, 3), np.nan),
             np.full((9, 3), np.inf), np.full((9, 3), 1e30), np.full((9, 3), 1e300), np.diag([1e39] * 3),
             np.arange(27.0).reshape(9, 3)]


class Arrays(unittest.TestCase):
    def test_all_that_hold_the_same_points_give_the_same(self):
        nearest, distance = zorvan.KdTree(SINGLE).nearest(POINTS + 0.01, 1.0)
        for name, points in GOOD.items():
            with self.subTest(name):
                scan = zorvan.Scan(points, NORMALS)
                np.testing.assert_array_equal(scan.points, SINGLE)
                for answer in zorvan.KdTree(points).nearest(POINTS + 0.01, 1.0), zorvan.KdTree(SINGLE).nearest(points + 0.01, 1.0):
                    np.testing.assert_array_equal(answer[0], nearest)
                spacing = zorvan.PointSet(points, wide(NORMALS, np.nan)).sampling
                self.assertEqual(spacing, zorvan.PointSet(SINGLE, NORMALS).sampling)

    def test_wrong_ones_end_in_an_exception(self):
        calls = [zorvan.Scan, zorvan.KdTree, lambda a: zorvan.Scan(POINTS, a, faces=a), lambda a: zorvan.PointSet(POINTS, a),
                 lambda a: zorvan.align((POINTS, NORMALS), (POINTS, NORMALS), start=a), lambda a: zorvan.Scan(POINTS, faces=a),
                 lambda a: zorvan.write_cloud("/dev/null.ply", POINTS, colours=a)]
        taken_as_absent = {2: 0, 4: 0, 5: 0, 6: 0}
        self.assertGreaterEqual(len(WRONG_ANYWHERE) + len(BAD_SCANS), 50)
        for k, call in enumerate(calls):
            for i, array in enumerate(WRONG_ANYWHERE):
                if array is None and k in taken_as_absent:
                    continue
                if k == 5 and getattr(array, "dtype", None) in (np.int32, np.int64, np.uint8) and array.ndim == 2:
                    continue  # all its faces name point 0, which is there
                with self.subTest(call=k, array=i), self.assertRaises((TypeError, ValueError)):
                    call(array)
        for i, array in enumerate(BAD_SCANS):
            with self.subTest(scan=i), self.assertRaisesRegex(zorvan.InputError, "fewer than|only|normal"):
                zorvan.align(array, array)
        for faces in np.array([[0, 1, 3000]]), np.array([[-1, 0, 1]]), np.array([[2**63, 0, 1]], np.uint64):
            with self.assertRaisesRegex(ValueError, "row 0 names a point"):
                zorvan.Scan(POINTS, faces=faces)

    def test_wrong_poses_and_numbers_end_in_an_exception(self):
        scan = zorvan.Scan(POINTS, NORMALS)
        mirror, sheared, bottom, hole = np.diag([1.0, 1, -1, 1]), np.eye(4), np.eye(4), np.eye(4)
        sheared[0, 1], bottom[3, 0], hole[0, 3] = 0.1, 1.0, np.nan
        for pose in mirror, sheared, bottom, hole, np.zeros((4, 4)), np.eye(4) * 2, np.eye(3), np.eye(4, dtype=int):
            with self.assertRaisesRegex((TypeError, ValueError), "poses"):
                zorvan.judge(scan, scan, [np.eye(4), pose])
        for wrong in ({"threads": 0}, {"threads": 10**6}, {"threads": "2"}, {"grid": -1.0}, {"grid": np.nan}, {"fix_ray": (0, 0, 0)},
                      {"fix_sensor": "here"}, {"flt_sensor": (1, 2)}, {"settings": 3}, {"settings": {"uiNumPolygons": 1.5}},
                      {"settings": {3: 3}}, {"settings": {"dGridSize": float("nan")}}, {"mesh": "maybe"}, {"mm_per_unit": 0.0}):
            with self.subTest(wrong), self.assertRaises((TypeError, ValueError)):
                zorvan.align((POINTS, NORMALS), (POINTS, NORMALS), **wrong)

    def test_results_keep_what_they_show_alive(self):
        views = [zorvan.Scan(POINTS, NORMALS).points, zorvan.PointSet(POINTS, NORMALS).points, zorvan.features((POINTS, NORMALS))[0]]
        before = [view.copy() for view in views]
        gc.collect()
        [zorvan.Scan(POINTS + 1, NORMALS) for _ in range(50)]
        for view, copy in zip(views, before):
            np.testing.assert_array_equal(view, copy)
            self.assertFalse(view.flags.writeable or view.flags.owndata)


if __name__ == "__main__":
    main()
