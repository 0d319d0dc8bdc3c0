# SPDX-License-Identifier: MIT
"""Frozen documents of sessions, for the scripts that make seeds."""

import struct


def element(code, name, value=b""):
    return bytes([code]) + name.encode() + b"\0" + value


def document(*elements):
    content = b"".join(elements)
    return struct.pack("<I", len(content)) + content + b"\0"


def child(name, *elements):
    return element(4, name, document(*elements))


def binary(name, payload, kind=0):
    return element(5, name, struct.pack("<IB", len(payload), kind) + payload)


def uuid(name, value):
    return binary(name, value, 4)


def floats(name, values):
    return binary(name, struct.pack(f"<{len(values)}f", *values))


def keyed(name, **values):
    return child(name, *(element(128, key, struct.pack("<f", value)) for key, value in values.items()))


def pose(name, w=1.0, x=0.0, y=0.0, z=0.0, shift=0.0):
    return child(name, keyed("Rotation", w=w, x=x, y=y, z=z), keyed("Translation", x=shift, y=2 * shift, z=-shift))


def cluster(name, primary, pre_trafo, *entities):
    return child("cluster", uuid("cluster_id", name), uuid("primary_entity_id", primary), pre_trafo,
                 child("entities", *(child("entity", uuid("entity_id", entity), trafo) for entity, trafo in entities)))


def session(config, clusters, primary, surfaces):
    return document(config, child("clustering", *clusters), uuid("primary_cluster_id", primary),
                    child("events", uuid("optimize", primary)), child("point_sets", *surfaces))
