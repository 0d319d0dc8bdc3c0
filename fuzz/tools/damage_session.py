#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Damages a session at each of its keys and values, one at a time, and goes on with each damaged one.

    fuzz/tools/damage_session.py PROGRAM session.zdoc

Renames, removes, doubles, empties and retypes each element, exchanges it with the next one of its kind, cuts and fills
arrays, and sets numbers to what is huge, negative or not finite. Prints how the program ended; a damaged session that
ends in anything but one line with exit code 2, or results, is kept beside the folder of results. Exit code 1 when there
was one.
"""

import collections
import math
import pathlib
import re
import struct
import subprocess
import sys
import tempfile

SIZES = {1: 8, 8: 1, 9: 8, 10: 0, 16: 4, 17: 8, 18: 8, 128: 4, 129: 4, 130: 2, 131: 2, 132: 1, 133: 1}
NUMBERS = {1: ("<d", (math.nan, math.inf, 1e300, -1.0, 0.0)), 128: ("<f", (math.nan, -math.inf, 1e38, -1.0, 0.0)),
           129: ("<I", (0, 1, 1000000, 0xFFFFFFFF))}
OBJECT, BINARY = 4, 5


def read(data, at, end):
    """Elements as [code, name, value], the value of an object as a list of elements."""
    elements = []
    while at < end:
        code, zero = data[at], data.index(0, at + 1)
        name, at = data[at + 1:zero], zero + 1
        if code == OBJECT:
            size = struct.unpack_from("<I", data, at)[0]
            value, at = read(data, at + 4, at + 4 + size), at + 5 + size
        else:
            more = {2: 4, BINARY: 5}.get(code)
            size = SIZES[code] if more is None else more + struct.unpack_from("<I", data, at)[0]
            value, at = data[at:at + size], at + size
        elements.append([code, name, value])
    return elements


def frozen(elements):
    content = b"".join(bytes([code]) + name + b"\0" + (frozen(value) if code == OBJECT else value)
                       for code, name, value in elements)
    return struct.pack("<I", len(content)) + content + b"\0"


def lists(elements, path=""):
    yield path, elements
    for code, name, value in elements:
        if code == OBJECT:
            yield from lists(value, f"{path}/{name.decode()}")


def binary(payload, kind):
    return struct.pack("<IB", len(payload), kind) + payload


def other_values(code, value):
    if code == OBJECT:
        yield "emptied", [OBJECT, []]
    if code in NUMBERS:
        form, numbers = NUMBERS[code]
        yield from ((str(number), [code, struct.pack(form, number)]) for number in numbers)
    if code == BINARY:
        payload, kind = value[5:], value[4]
        for name, changed in (("emptied", b""), ("cut", payload[:-5]), ("halved", payload[:len(payload) // 2]),
                              ("zeroed", bytes(len(payload))), ("of NaN", b"\0\0\xc0\x7f" * (len(payload) // 4)),
                              ("at 1e38", struct.pack("<f", 1e38) * (len(payload) // 4)),
                              ("doubled", payload + payload)):
            yield name, [BINARY, binary(changed, kind)]
    yield "null", [10, b""]
    yield "a number", [1, struct.pack("<d", 1.0)]
    yield "an object", [OBJECT, [[1, b"x", bytes(8)]]]


def damages(elements):
    """(what, list, list with the damage) for each damage inside `elements`."""
    for path, inner in lists(elements):
        for i, (code, name, value) in enumerate(inner):
            where = f"{path}/{name.decode()}"
            before, after = inner[:i], inner[i + 1:]
            yield f"{where} removed", inner, before + after
            yield f"{where} renamed", inner, [*before, [code, name + b"_", value], *after]
            yield f"{where} twice", inner, [*before, [code, name, value], [code, name, value], *after]
            for what, changed in other_values(code, value):
                yield f"{where} {what}", inner, [*before, [changed[0], name, changed[1]], *after]
            twins = [k for k in range(i + 1, len(inner)) if inner[k][0] == code]
            if twins:
                swapped = [list(e) for e in inner]
                swapped[i][2], swapped[twins[0]][2] = swapped[twins[0]][2], swapped[i][2]
                yield f"{where} exchanged with the next", inner, swapped


def main():
    program, session = sys.argv[1:]
    data = pathlib.Path(session).read_bytes()
    elements = read(data, 4, len(data) - 1)
    ends = collections.Counter()
    bad = 0
    folder = pathlib.Path(tempfile.mkdtemp())
    for what, inner, changed in damages(elements):
        kept, inner[:] = list(inner), changed
        (folder / "damaged.zdoc").write_bytes(frozen(elements))
        inner[:] = kept
        call = [program, "register", "--session", folder / "damaged.zdoc", "-o", folder / "out", "--quiet", "--optimize"]
        done = subprocess.run(call, capture_output=True, text=True, errors="replace", timeout=120, check=False)
        is_refused = done.returncode == 2 and re.fullmatch(r"zorvan: .*damaged.zdoc: .*; .*\n", done.stderr)
        if done.returncode in (0, 1) and not done.stderr:
            print(f"{what}: {done.stdout.splitlines()[-1]}")
            ends["results"] += 1
        elif is_refused:
            ends["refused"] += 1
        else:
            bad += 1
            (folder / "damaged.zdoc").rename(folder / f"bad{bad}.zdoc")
            print(f"{what}: exit code {done.returncode}, {done.stderr[:200]!r}, kept as {folder}/bad{bad}.zdoc")
    print(f"{sum(ends.values()) + bad} damages: {ends['refused']} refused, {ends['results']} with results, {bad} bad")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main())
