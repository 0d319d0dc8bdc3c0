#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the seeds of the corpus; run it after adding one."""

import pathlib
import struct

CORPUS = pathlib.Path(__file__).parent / "corpus" / "pointset_from_object"


def element(code, name, value=b""):
    return bytes([code]) + name.encode() + b"\0" + value


def document(*elements):
    content = b"".join(elements)
    return struct.pack("<I", len(content)) + content + b"\0"


def floats(name, *values):
    payload = struct.pack(f"<{len(values)}f", *values)
    return element(5, name, struct.pack("<IB", len(payload), 0) + payload)


POINTS = floats("Points", 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3)
NORMALS = floats("Normals", *[0, 0, 1] * 4)
FEATURE_POINTS = floats("FeaturePoints", 0, 0, 0, 1, 0, 0)
FEATURE_NORMALS = floats("FeatureNormals", *[0, 0, 1] * 2)
FEATURES = floats("Features", *range(66))
REST = (NORMALS, FEATURE_POINTS, FEATURE_NORMALS, FEATURES)

SEEDS = {
    "whole": document(POINTS, *REST),
    "odd_lengths": document(POINTS, NORMALS, FEATURE_POINTS, floats("FeatureNormals", *[1] * 7),
                            floats("Features", *range(67))),
    "not_finite": document(floats("Points", *[float("nan")] * 12), *REST),
    "no_binary": document(element(1, "Points", struct.pack("<d", 1)), *REST),
    "fewer_normals": document(POINTS, floats("Normals", 0, 0, 1), *REST[1:]),
}

CORPUS.mkdir(parents=True, exist_ok=True)
for name, content in SEEDS.items():
    (CORPUS / name).write_bytes(content)
