# SPDX-License-Identifier: MIT
"""What a registration says of spots where scans of an object differ from those of its twin."""
import json
import unittest

from support import folder, main, np, program

import zorvan

HOLE, RADIUS = np.array([-4.34, 2.16, 3.31]), 2.0  # mm, on a tooth that all frames show
FAR = np.array([450000.0, 5300000.0, 120.0])  # metres


def moved(pose, points):
    return points @ pose[:3, :3].T + pose[:3, 3]


class Disputes(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        """Views in metres on a map, every second one with the hole."""
        program("simulate", "-o", folder() / "twins", "--video", "--views", 8, "--field", 28, "--points", 8000, "--seed", 4)
        truth = json.loads((folder() / "twins" / "truth.json").read_text())["clusters"][0]["scans"]
        cls.truth = {scan["file"]: np.array(scan["pose"]) for scan in truth}
        cls.scans = []
        for k, (name, pose) in enumerate(cls.truth.items()):
            points = zorvan.read_clouds(folder() / "twins" / name)[0]["points"]
            if k % 2 == 1:
                points = points[np.linalg.norm(moved(pose, points) - HOLE, axis=1) >= RADIUS]
            cls.scans.append(zorvan.Scan(points / 1000.0 + FAR, name=name, mm_per_unit=1000.0))

    def assert_is_the_hole(self, at, pose, name):
        """In the coordinates of the scan, and from there to those of the object."""
        near = (moved(np.linalg.inv(pose), at) - FAR) * 1000.0
        self.assertLess(np.linalg.norm(moved(self.truth[name], near) - HOLE), 0.5)

    def test_spots_are_where_each_cluster_has_them(self):
        result = zorvan.register(self.scans, threads=2)
        sides = list(self.truth)[::2], list(self.truth)[1::2]
        (spot,) = result.disputes
        self.assertEqual([spot[side] for side in ("showing", "lacking", "unclear", "left_out")], [*sides, [], []])
        self.assertAlmostEqual(spot["width"], 2.0 * RADIUS / 1000.0, delta=0.0005)
        self.assertIn(spot["words"], str(result))
        for side in "showing", "lacking":
            self.assert_is_the_hole(spot["at"][side], result.poses[spot[side][0]], spot[side][0])
        clusters = {row["name"]: row["cluster"] for row in result.table}
        self.assertEqual([sight["name"] for sight in spot["sights"]], list(self.truth))
        for sight in spot["sights"]:
            name = sight["name"]
            self.assertEqual((sight["shows"], sight["cluster"], sight["placed"], sight["verdict"]),
                             ("surface" if name in sides[0] else "hole", clusters[name], True, "registered"))
            self.assert_is_the_hole(sight["at"], result.poses[name], name)
            seen, other = (sight["surface"], sight["open"])[:: 1 if name in sides[0] else -1]
            self.assertGreater(seen, 0.9 * spot["samples"])
            self.assertLessEqual(other + seen, spot["samples"])

    def test_there_are_none_among_scans_of_one_object(self):
        self.assertEqual(zorvan.register(self.scans[::2]).disputes, [])


if __name__ == "__main__":
    main()
