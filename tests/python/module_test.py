# SPDX-License-Identifier: MIT
"""The module gives what the program gives, and each of its parts what an independent way gives."""
import json
import pathlib
import struct
import unittest

from support import folder, main, np, program, scans, sphere

import zorvan


def poses_of(file):
    """By name, as float32: the file has nine digits, all that a float has."""
    clusters = json.loads(pathlib.Path(file).read_text())["clusters"]
    return {s["file"]: s["pose"] and np.float32(s["pose"]) for c in clusters for s in c["scans"]}


def arrays_of(file):
    cloud = zorvan.read_clouds(file)[0]
    return zorvan.Scan(cloud["points"], cloud.get("normals"), faces=cloud.get("faces"), mesh="scan", name=file.name)


class Registering(unittest.TestCase):
    def test_align_is_the_programs_to_the_bit(self):
        fix, flt = scans()[:2]
        program("align", fix, flt, "--all", "-o", folder() / "pair.json")
        result = zorvan.align(arrays_of(fix), arrays_of(flt), threads=2)
        self.assertTrue(result)
        np.testing.assert_array_equal(np.float32(result.pose), poses_of(folder() / "pair.json")[flt.name])
        result.save(folder() / "mine.json", all=True)
        self.assertEqual((folder() / "mine.json").read_bytes(), (folder() / "pair.json").read_bytes())
        again = zorvan.judge(str(fix), flt, [candidate["pose"] for candidate in result.candidates])
        self.assertEqual(again.verdict, "aligned")
        self.assertGreater(min(np.linalg.eigvalsh(result.covariance)), 0.0)

    def test_metres_come_out_as_metres(self):
        fix, flt = (zorvan.read_clouds(file)[0] for file in scans()[:2])
        mm = zorvan.align(*(zorvan.Scan(c["points"], faces=c["faces"], mesh="scan") for c in (fix, flt)))
        metres = zorvan.align(*(zorvan.Scan(c["points"] / 1000, faces=c["faces"], mesh="scan", mm_per_unit=1000.0) for c in (fix, flt)))
        np.testing.assert_allclose(metres.pose[:3, 3] * 1000, mm.pose[:3, 3], atol=0.01)
        ratio = np.diag(mm.covariance) / np.diag(metres.covariance)
        np.testing.assert_allclose(ratio, [1, 1, 1, 1e6, 1e6, 1e6], rtol=0.3)

    def test_no_pose_of_what_is_not_aligned(self):
        result = zorvan.align(sphere(), sphere(seed=2))
        self.assertFalse(result)
        self.assertNotEqual(result.verdict, "aligned")
        self.assertEqual((result.pose, result.covariance), (None, None))

    def test_register_writes_what_the_program_writes(self):
        program("register", *scans(), "--optimize", "-o", folder() / "out")
        result = zorvan.register({file.name: arrays_of(file) for file in scans()}, optimize=True)
        self.assertTrue(result)
        result.write(folder() / "mine")
        for name in "poses.json", "merged.ply", "report.html":
            self.assertEqual((folder() / "mine" / name).read_bytes(), (folder() / "out" / name).read_bytes(), name)
        mine, other = (zorvan.read_document(folder() / of / "session.zdoc") for of in ("mine", "out"))
        for told in "files", "journal":  # where the scans lie, who registered them, and when
            self.assertNotEqual(mine.pop(told), other.pop(told))
        self.assertEqual(zorvan.document_to_bytes(mine), zorvan.document_to_bytes(other))
        self.assertEqual(result.clusters, [[file.name for file in scans()]])

    def test_a_session_goes_on_and_stays_as_it_was(self):
        first = zorvan.register(scans()[:2])
        first.save(folder() / "s.zdoc")
        before = zorvan.document_to_bytes(zorvan.read_document(folder() / "s.zdoc"))
        session = first.session
        for known in session, folder() / "s.zdoc":
            self.assertEqual(len(zorvan.register([scans()[2]], session=known).clusters[0]), 3)
        self.assertEqual(session.names, [file.name for file in scans()[:2]])
        session.save(folder() / "s.zdoc")
        self.assertEqual(zorvan.document_to_bytes(zorvan.read_document(folder() / "s.zdoc")), before)
        with self.assertRaisesRegex(ValueError, "two scans are named"):
            zorvan.register([scans()[1]], session=session)


class Parts(unittest.TestCase):
    def test_settings_are_those_of_the_program(self):
        (folder() / "mine.txt").write_text(program("settings", "--grid", "0.2").stdout)
        self.assertEqual(zorvan.read_settings(folder() / "mine.txt"), zorvan.settings(0.2))
        self.assertEqual(zorvan.settings(0.2, {"dMaxRMSE": 1})["icpConfig"]["dMaxRMSE"], 1.0)
        with self.assertRaisesRegex(zorvan.InputError, "perhaps dGridSize is meant"):
            zorvan.settings(0.2, {"dGridSizes": 1.0})

    def test_documents_come_back(self):
        document = {"a": 1, "b": 2**40, "c": -2.5, "d": "täxt", "e": b"\0\1", "f": None, "g": True, "h": {"i": {"j": 1}}, "k": [1, 2]}
        data = zorvan.document_to_bytes(document)
        self.assertEqual(zorvan.document_from_bytes(data), document)
        for wrong in data[:-1], data + b"\0", b"", bytes(100):
            with self.assertRaises(ValueError):
                zorvan.document_from_bytes(wrong)
        nested = {}
        for _ in range(1000):
            nested = {"n": nested}
        for wrong in {"a": object()}, {"a": 2**64}, {1: 1}, {"a\0b": 1}, nested:
            with self.assertRaises((TypeError, ValueError)):
                zorvan.document_to_bytes(wrong)

    def test_every_type_of_a_document_comes_back(self):
        wire = {1: struct.pack("<d", -2.5), 2: struct.pack("<I", 3) + b"\xc3\xa4\0", 8: b"\1", 9: struct.pack("<q", -86399999), 10: b"",
                11: b"^a+\0i\0", 16: struct.pack("<i", -7), 17: struct.pack("<Q", 2**64 - 1), 18: struct.pack("<q", -2**40),
                128: struct.pack("<f", 0.5), 129: struct.pack("<I", 2**32 - 1), 130: struct.pack("<h", -300), 131: struct.pack("<H", 65535),
                132: b"\xff", 133: b"\x80"}
        body = b"".join(bytes([code]) + b"t%d\0" % code + value for code, value in wire.items())
        data = struct.pack("<I", len(body) + 5) + body + b"\0"
        document = zorvan.document_from_bytes(data)
        self.assertEqual(document, {"t1": -2.5, "t2": "ä", "t8": True, "t9": -86399999, "t10": None, "t11": ("^a+", "i"), "t16": -7,
                                    "t17": 2**64 - 1, "t18": -2**40, "t128": 0.5, "t129": 2**32 - 1, "t130": -300, "t131": 65535, "t132": 255,
                                    "t133": -128})
        again = zorvan.document_from_bytes(zorvan.document_to_bytes(document))
        self.assertEqual(again, document)
        for name, kind in ("t9", zorvan.DateTime), ("t11", zorvan.Regex):
            self.assertIs(type(document[name]), kind)
            self.assertIs(type(again[name]), kind)
        self.assertEqual(document["t9"].moment.isoformat(), "1969-12-31T00:00:00.001000+00:00")
        self.assertEqual(zorvan.DateTime.of(document["t9"].moment), document["t9"])
        for wrong in zorvan.DateTime(2**63), zorvan.DateTime(-2**63), zorvan.Regex("a\0b"), zorvan.Regex(1, 2):
            with self.assertRaises((TypeError, ValueError, RuntimeError)):
                zorvan.document_to_bytes({"a": wrong})

    def test_trees_find_what_looking_at_all_finds(self):
        points, queries = (np.random.default_rng(seed).normal(size=(500, 3)).astype(np.float32) for seed in (1, 2))
        tree = zorvan.KdTree(points)
        distances = np.linalg.norm(queries[:, None] - points, axis=2)
        index, distance = tree.nearest(queries, 0.3)
        near = distances.min(axis=1) < 0.3
        self.assertTrue(near.any() and not near.all())
        np.testing.assert_array_equal(index, np.where(near, distances.argmin(axis=1), -1))
        np.testing.assert_allclose(distance[near], distances.min(axis=1)[near], rtol=1e-5)
        self.assertEqual(set(tree.in_ball(queries[0], 1.0)), set(np.flatnonzero(distances[0] <= 1.0)))

    def test_icp_finds_a_small_motion(self):
        points, normals = (zorvan.Scan.read(scans()[0]).__getattribute__(name) for name in ("points", "normals"))
        start = np.eye(4)
        start[:3, 3] = 0.05
        result = zorvan.icp(zorvan.PointSet(points, normals), zorvan.PointSet(points, normals), start)
        self.assertTrue(result["success"])
        np.testing.assert_allclose(result["pose"], np.eye(4), atol=1e-3)

    def test_fits_find_the_sphere(self):
        for radius in None, 5.0, (4.0, 6.0):
            found = zorvan.fit("sphere", sphere(), radius=radius)
            self.assertTrue(found["found"])
            np.testing.assert_allclose(found["centre"], [1, 2, 3], atol=1e-5)
            self.assertEqual(found["residuals"].shape, (3000,))
        distance = zorvan.PointSet(*sphere()).signed_distance(np.array([[1.0, 2.0, 9.0]]), 2.0)
        np.testing.assert_allclose(distance, 1.0, atol=0.02)
        for wrong in ("egg", None), ("cone", 3.0), ("sphere", (3.0, 2.0)), ("sphere", -1.0):
            with self.assertRaises(ValueError):
                zorvan.fit(wrong[0], sphere(), radius=wrong[1])

    def test_colours_and_meshes(self):
        lab = zorvan.rgb_to_lab(np.array([[[255, 255, 255], [255, 0, 0]]], np.uint8))
        np.testing.assert_allclose(lab[0], [[100, 0, 0], [53.24, 80.09, 67.20]], atol=0.05)
        pixels = np.random.default_rng(1).integers(30, 220, (8, 9, 3)).astype(np.uint8)
        np.testing.assert_array_equal(zorvan.lab_to_rgb(zorvan.rgb_to_lab(pixels)), pixels)
        self.assertAlmostEqual(zorvan.colour_distance(np.array([50, 2.6772, -79.7751]), np.array([50, 0, -82.7485])).item(), 2.0425, 4)
        corners, faces = np.array([[0.0, 0, 0], [2, 0, 0], [2, 1, 0], [0, 1, 0]]), np.array([[0, 1, 2], [0, 2, 3]])
        points, normals = zorvan.sample_mesh(corners, faces, 0.1)
        self.assertEqual(len(points), 200)
        np.testing.assert_allclose(normals, np.tile([0, 0, 1], (200, 1)), atol=1e-6)
        zorvan.write_cloud(folder() / "c.ply", corners, faces=faces, colours=np.full((4, 3), 7, np.uint8))
        back = zorvan.read_clouds(folder() / "c.ply")[0]
        np.testing.assert_array_equal(back["faces"], faces)
        np.testing.assert_array_equal(back["colours"], 7)


if __name__ == "__main__":
    main()
