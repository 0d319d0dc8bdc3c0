# SPDX-License-Identifier: MIT
"""Coordinates of a map in metres: the answers near the origin, and those of the program."""
import unittest

from support import folder, main, np, program, scans, sphere

import zorvan

FAR = np.array([450000.0, 5300000.0, 120.0])  # metres
NEAR = [zorvan.read_clouds(file)[0] for file in scans()]
FILES = [folder() / f"far{i}.ply" for i in range(len(NEAR))]


def scan_of(i, shift=FAR):
    return zorvan.Scan(NEAR[i]["points"] / 1000.0 + shift, faces=NEAR[i]["faces"], mesh="scan", name=FILES[i].name, mm_per_unit=1000.0)


def moved(pose, points):
    return points @ pose[:3, :3].T + pose[:3, 3]


class FarCoordinates(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for i, file in enumerate(FILES):
            zorvan.write_cloud(file, NEAR[i]["points"] / 1000.0 + FAR, faces=NEAR[i]["faces"])
        program("align", *FILES[:2], "--scale", 1000, "--all", "-o", folder() / "pair.json")
        cls.near = zorvan.align(scan_of(0, 0.0), scan_of(1, 0.0))
        cls.points = NEAR[1]["points"] / 1000.0

    def assert_right(self, pose, fix=FAR, flt=FAR):
        """To twice the noise of a point where the pose near the origin puts the points."""
        wanted = moved(self.near.pose, self.points)
        np.testing.assert_allclose(moved(pose, self.points + flt) - fix, wanted, rtol=0.0, atol=2e-5)

    def test_arrays_and_files_give_the_poses_file_of_the_program(self):
        for name, pair in {"arrays": (scan_of(0), scan_of(1)), "files": FILES[:2]}.items():
            result = zorvan.align(*pair, mm_per_unit=1000.0)
            result.save(folder() / "mine.json", all=True)
            self.assertEqual((folder() / "mine.json").read_bytes(), (folder() / "pair.json").read_bytes(), name)
            self.assertEqual(result.verdict, "aligned")
            self.assert_right(result.pose)
            self.assertLess(np.abs(result.centre - FAR).max(), 1.0)

    def test_poses_of_the_caller_are_for_the_coordinates_of_the_caller(self):
        for fix, flt in (FAR, FAR), (np.zeros(3), FAR), (FAR, np.zeros(3)), (FAR, FAR + 0.0625), (FAR, FAR * 1.5):
            given = self.near.pose.copy()
            given[:3, 3] += fix - given[:3, :3] @ flt
            rough = given.copy()
            rough[:3, 3] += 0.0002
            pair = scan_of(0, fix), scan_of(1, flt)
            with self.subTest(fix=fix, flt=flt):
                self.assertEqual(zorvan.judge(*pair, given).verdict, "aligned")
                self.assert_right(zorvan.judge(*pair, [given]).pose, fix, flt)
                self.assert_right(zorvan.align(*pair, start=rough).pose, fix, flt)
                self.assertNotEqual(zorvan.judge(*pair, np.eye(4)).verdict, "aligned")

    def test_a_sensor_stands_where_the_points_do(self):
        with_sensor = [zorvan.align(scan_of(0, at), scan_of(1, at), fix_sensor=at + [0, 0, 0.5]) for at in (np.zeros(3), FAR)]
        wrong = zorvan.align(scan_of(0), scan_of(1), fix_sensor=FAR + [0.5, 0, 0])
        near, far, off = (r.candidates[0]["counts"] for r in (*with_sensor, wrong))
        differences = [max(abs(near[name] - counts[name]) for name in near) for counts in (far, off)]
        self.assertLess(differences[0], 5, "of thousands of samples, some lie at a limit")
        self.assertGreater(differences[1], 50)

    def test_many_scans_and_a_session_come_out_as_from_the_program(self):
        program("register", *FILES[:2], "--scale", 1000, "-o", folder() / "out")
        program("register", FILES[2], "--session", folder() / "out" / "session.zdoc", "-o", folder() / "more")
        first = zorvan.register([scan_of(0), scan_of(1)])
        more = zorvan.register([scan_of(2)], session=folder() / "out" / "session.zdoc")
        for result, name in (first, "out"), (more, "more"):
            result.write(folder() / ("my" + name))
            for file in "poses.json", "merged.ply":
                self.assertEqual((folder() / ("my" + name) / file).read_bytes(), (folder() / name / file).read_bytes(), (name, file))
        self.assertEqual(len(more.clusters[0]), 3)
        self.assert_right(np.linalg.inv(more.poses["far0.ply"]) @ more.poses["far1.ply"])
        again = zorvan.register([scan_of(i) for i in range(3)], start=more.poses)
        self.assertEqual(len(again.clusters[0]), 3)
        self.assert_right(np.linalg.inv(again.poses["far0.ply"]) @ again.poses["far1.ply"])
        surface = more.surface("far1.ply")[0] / 1000.0 - FAR
        self.assertLess(np.abs(surface - self.points.mean(axis=0)).max(), 0.1)

    def test_fits_and_features_lie_where_the_points_do(self):
        points, normals = sphere()
        for at in 0.0, 1000.0 * FAR:
            found = zorvan.fit("sphere", (points + at, normals))
            np.testing.assert_allclose(found["centre"] - at, [1.0, 2.0, 3.0], atol=1e-3)
            self.assertLess(np.abs(np.linalg.norm(zorvan.features((points + at, normals))[0] - at - [1, 2, 3], axis=1) - 5.0).max(), 0.2)


if __name__ == "__main__":
    main()
