#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the seeds of the corpus; run it after adding one."""

import math
import pathlib
import struct
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
from sessions import child, cluster, document, element, floats, pose, session, binary, uuid  # noqa: E402

CORPUS = pathlib.Path(__file__).parent / "corpus" / "session_from_object"
NONE = bytes(16)


def surface(entity, pre_trafo, points=4, features=2, scale=1.0):
    return child("point_set", uuid("entity_id", entity),
                 child("fpfh_point_set",
                       floats("Points", [scale * (i % 5) for i in range(3 * points)]), floats("Normals", [0, 0, 1] * points),
                       floats("FeaturePoints", [scale * (i % 5) for i in range(3 * features)]),
                       floats("FeatureNormals", [0, 0, 1] * features),
                       floats("Features", [i % 7 for i in range(33 * features)])),
                 pre_trafo)


def settings(**values):
    numbers = (element(129, key, struct.pack("<I", value)) if key.startswith("ui") else
               element(1, key, struct.pack("<d", value)) for key, value in values.items())
    return child("configuration", *numbers, child("icpConfig", element(129, "uiNumSamples", struct.pack("<I", 4))))


A, B, C, X, Y = (bytes([i] * 16) for i in (0xA1, 0xB2, 0xC3, 0x11, 0x22))
TURNED = pose("trafo", 0.8, 0.6, 0, 0, 1.5)
STILL = pose("trafo")
NO_POSE = element(10, "pre_trafo")
FLOATS = pose("pre_trafo", *[math.nan] * 5)  # how an invalid pose is saved
GRIDS = settings(dGridSize=0.5, dFeatureGridSize=1.0, dFeatureRadius=2.0)
SURFACES = [surface(A, NO_POSE), surface(B, pose("pre_trafo", shift=3)), surface(C, NO_POSE, 3, 3)]
PAIR = cluster(X, A, pose("pre_trafo", 0, 1, 0, 0, 7), (A, STILL), (B, TURNED))
SINGLE = cluster(Y, C, FLOATS, (C, STILL))
WHOLE = session(GRIDS, [PAIR, SINGLE], X, SURFACES)


def alone(config, trafo=STILL, **shape):
    return session(config, [cluster(X, A, pose("pre_trafo"), (A, trafo))], X, [surface(A, NO_POSE, **shape)])


SEEDS = {
    "whole": WHOLE,
    "cut": WHOLE[:-200],
    "nothing": document(),
    "no_clusters": session(settings(), [], NONE, []),
    "cluster_of_none": session(GRIDS, [cluster(X, A, FLOATS)], X, []),
    "without_surface": session(GRIDS, [PAIR, SINGLE], X, SURFACES[:2]),
    "entity_twice": session(GRIDS, [cluster(X, A, FLOATS, (A, STILL), (A, TURNED)), SINGLE], X, SURFACES),
    "entity_in_two_clusters": session(GRIDS, [PAIR, cluster(Y, B, FLOATS, (B, STILL))], X, SURFACES),
    "same_cluster_twice": session(GRIDS, [SINGLE, SINGLE], Y, SURFACES),
    "no_primary": session(GRIDS, [PAIR, SINGLE], NONE, SURFACES),
    "unknown_primary": session(GRIDS, [PAIR, SINGLE], C, SURFACES),
    "primary_entity_elsewhere": session(GRIDS, [cluster(X, C, FLOATS, (A, STILL), (B, TURNED)), SINGLE], X, SURFACES),
    "invalid_identifiers": session(GRIDS, [cluster(NONE, NONE, FLOATS, (NONE, STILL))], NONE, [surface(NONE, NO_POSE)]),
    "invalid_identifier_beside_primary": session(GRIDS, [cluster(NONE, A, FLOATS, (A, STILL)), SINGLE], Y, SURFACES),
    "wrong_types": document(element(1, "configuration", bytes(8)), child("clustering"), binary("primary_cluster_id", A),
                            child("point_sets")),
    "short_identifier": document(GRIDS, child("clustering"), uuid("primary_cluster_id", A[:8]), child("point_sets")),
    "no_grid": alone(settings(dGridSize=math.nan, dFeatureGridSize=-1.0)),
    "huge_grid": alone(settings(dGridSize=1e300, dFeatureGridSize=1e300, dFeatureRadius=1e300)),
    "tiny_grid": alone(settings(dGridSize=1e-300, dFeatureGridSize=1e-40, dFeatureRadius=-1.0)),
    "huge_counts": alone(settings(uiNumPolygons=0xFFFFFFFF, uiNumPolygonVertices=0xFFFFFFFF)),
    "far_points": alone(GRIDS, scale=1e37),
    "far_pose": alone(GRIDS, trafo=pose("trafo", shift=1e38)),
    "no_rotation": alone(GRIDS, trafo=pose("trafo", 1e19, -3, 0, 1e-30)),
    "not_finite_rotation": alone(GRIDS, trafo=pose("trafo", *[math.nan] * 4)),
    "infinite_rotation": alone(GRIDS, trafo=pose("trafo", 1, 0, -4e25)),
}

CORPUS.mkdir(parents=True, exist_ok=True)
for name, content in SEEDS.items():
    (CORPUS / name).write_bytes(content)
