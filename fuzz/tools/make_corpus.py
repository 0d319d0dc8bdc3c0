#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the seeds of the corpus; run it after adding one."""

import math
import pathlib
import random
import struct
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
from sessions import child, cluster, document, element, floats, keyed, pose, session, uuid  # noqa: E402

CORPUS = pathlib.Path(__file__).parent / "corpus" / "register_session"
NONE = bytes(16)
FLOATING = pose("pre_trafo", *[math.nan] * 5)  # how an invalid pose is saved
STILL = pose("trafo")
A, B, C, X, Y = (bytes([i] * 16) for i in (0xA1, 0xB2, 0xC3, 0x11, 0x22))
SIZE = 49


def bumps(from_x):
    """Points and normals of a part of one bumpy surface, 7 by 7 mm."""
    points, normals = [], []
    for x, y in ((from_x + i % 7, i // 7) for i in range(SIZE)):
        points += [x, y, 0.4 * math.sin(x) + 0.4 * math.cos(1.3 * y)]
        slope = (-0.4 * math.cos(x), 0.52 * math.sin(1.3 * y), 1.0)
        normals += [s / math.hypot(*slope) for s in slope]
    return points, normals


def histogram(point):
    rng = random.Random(str(point))  # of the place on the surface, so that a search finds it again
    return [rng.random() for _ in range(33)]


def surface(entity, from_x=0, features=4, names=("Points", "FeaturePoints"), scale=1.0, shift=0.0, size=SIZE):
    points, normals = bumps(from_x)
    points = [p * scale for p in points]
    own = [p - shift * (1, 2, -1)[i % 3] for i, p in enumerate(points)]  # in the frame of the scan
    return child("point_set", uuid("entity_id", entity),
                 child("fpfh_point_set",
                       floats(names[0], own[:3 * size]), floats("Normals", normals[:3 * size]),
                       floats(names[1], own[:3 * features]), floats("FeatureNormals", normals[:3 * features]),
                       floats("Features", sum((histogram(points[3 * i:3 * i + 3]) for i in range(features)), []))),
                 element(10, "pre_trafo"))


def number(key, value):
    if key.startswith("ui"):
        return element(129, key, struct.pack("<I", value))
    return element(1, key, struct.pack("<d", value))


SETTINGS = dict(uiNumPolygons=20, uiNumPolygonVertices=3, uiNumNeighbors=2, dMaxPolygonDiameter=9.0,
                dMaxPolygonVertexError=0.5, dFeatureRadius=3.0, dGridSize=0.9, dFeatureGridSize=0.9,
                dTrafoPositionClusteringBandwidth=1.0, uiTrafoClusteringQuorum=2)
ICP = dict(uiMaxNumIterations=3, dMinQueryRadius=0.8, dInitialQueryRadiusScaling=2.0, uiNumSamples=40, dMinOverlapRatio=0.1,
           dMaxRMSE=0.3, dMinSmallBigRatio=0.2, dSmallBigQueryRadiusScaling=3.0, dInlierScaling=3.0, dMaxStdDev=0.5)


def settings(icp=(), **values):
    return child("configuration", *(number(*item) for item in (SETTINGS | values).items()),
                 child("icpConfig", *(number(*item) for item in (ICP | dict(icp)).items())))


def files(*scans):
    return child("files", *(child("file", uuid("entity_id", entity),
                                  element(2, "name", struct.pack("<I", len(name) + 1) + name + b"\0"))
                            for entity, name in scans))


def program_session(clusters, primary, surfaces, scans, config=None, unit=1.0, more=()):
    whole = session(config or settings(), clusters, primary, surfaces)
    # The length in front and the zero behind go round all elements.
    return document(whole[4:-1], element(1, "mm_per_unit", struct.pack("<d", unit)), files(*scans), *more)


NAMES = (A, b"a.ply"), (B, b"b.ply")
PAIR = cluster(X, A, pose("pre_trafo", 0.8, 0.6, shift=7), (A, STILL), (B, pose("trafo", shift=1.5)))


def pair(clusters=(PAIR,), primary=X, second=surface(B, 2, shift=1.5), scans=NAMES, **more):
    return program_session(clusters, primary, [surface(A), second], scans, **more)


def placed(trafo):
    return pair([cluster(X, A, FLOATING, (A, STILL), (B, trafo))])


def text(name, value):
    return element(2, name, struct.pack("<I", len(value) + 1) + value.encode() + b"\0")


def known_pair():
    """With the same place twice."""
    rows = ("row_x", 1, 0, 0, -1.5), ("row_y", 0, 1, 0, -3), ("row_z", 0, 0, 1, 1.5)
    place = child("place", element(8, "held", b"\1"), element(8, "open", b"\0"),
                  child("pose", *(keyed(name, x=x, y=y, z=z, shift=shift) for name, x, y, z, shift in rows)),
                  child("counts", element(129, "matched", struct.pack("<I", 700))))
    return child("known_pairs", text("version", "0.1.0"),
                 child("pairs", child("pair", uuid("first", A), uuid("second", B), text("verdict", "ambiguous"),
                                      element(8, "settled", b"\1"), child("places", place, place))))


SEEDS = {
    "known_pair": pair(more=[known_pair()]),
    "pair": pair(),
    "pair_cut": pair()[:-100],
    "no_scan": program_session([], NONE, [], []),
    "one_scan": program_session([cluster(X, A, FLOATING, (A, STILL))], X, [surface(A)], NAMES[:1]),
    "to_search": program_session([cluster(X, A, FLOATING, (A, STILL)), cluster(Y, B, FLOATING, (B, STILL))], Y,
                                 [surface(A, 0, 42), surface(B, 1, 42, shift=2)], NAMES),
    "misspelt_features": pair(second=surface(B, 2, names=("Points", "FeaturePoint"))),
    "misspelt_points": pair(second=surface(B, 2, names=("points", "FeaturePoints"))),
    "empty_surface": pair(second=surface(B, features=0, size=0)),
    "exchanged_surfaces": pair(second=surface(B, 40)),
    "far_points": pair(second=surface(B, 2, scale=1e37)),
    "far_pose": placed(pose("trafo", shift=1e38)),
    "pose_elsewhere": placed(pose("trafo", shift=3)),
    "pose_that_scales": placed(pose("trafo", w=2)),
    "pose_that_is_none": placed(pose("trafo", w=math.nan)),
    "many_samples": pair(config=settings({"uiNumSamples": 0xFFFFFFFF})),
    "many_neighbors": pair(config=settings(uiNumNeighbors=1000000)),
    "not_finite_setting": pair(config=settings({"dMinQueryRadius": math.inf})),
    "no_unit": pair(unit=math.nan),
    "unknown_primary": pair(primary=Y),
    "unnamed_cluster": pair([cluster(NONE, A, FLOATING, (A, STILL), (B, pose("trafo", shift=1.5)))], NONE),
    "primary_entity_elsewhere": pair([cluster(X, C, FLOATING, (A, STILL), (B, STILL))]),
    "name_twice": pair(scans=[(A, b"a.ply"), (B, b"a.ply")]),
    "scan_twice": pair(scans=[(A, b"a.ply"), (A, b"b.ply")]),
    "name_of_no_file": pair(scans=[(A, b"a.ply"), (B, b"../b.ply")]),
    "name_in_no_code": pair(scans=[(A, b"a.ply"), (B, b"\xff\x1b[31m")]),
    "unlisted_scan": pair(scans=NAMES[:1]),
}

CORPUS.mkdir(parents=True, exist_ok=True)
for name, content in SEEDS.items():
    (CORPUS / name).write_bytes(content)
