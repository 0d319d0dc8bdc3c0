#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes the binary seeds of the corpus; run it after adding one. The texts beside them are written by hand."""

import pathlib
import struct

CORPUS = pathlib.Path(__file__).parent / "corpus"


def element(code, name, value=b""):
    return bytes([code]) + name.encode() + b"\0" + value


def document(*elements):
    content = b"".join(elements)
    return struct.pack("<I", len(content)) + content + b"\0"


def string(text):
    return struct.pack("<I", len(text) + 1) + text.encode() + b"\0"


def binary(payload, kind=0):
    return struct.pack("<IB", len(payload), kind) + payload


NUMBERS = [(1, "<d", -2.75), (128, "<f", 3.5), (16, "<i", -5), (17, "<Q", 1 << 40), (18, "<q", -5000000000),
           (129, "<I", 4294967295), (130, "<h", -300), (131, "<H", 65535), (132, "<B", 200), (133, "<b", -7),
           (8, "<B", 1), (9, "<q", 1500)]
SCALARS = [element(code, f"n{code}", struct.pack(form, value)) for code, form, value in NUMBERS]
OTHERS = [element(2, "s", string("7")), element(5, "b", binary(b"abc")), element(5, "u", binary(bytes(range(16)), 4)),
          element(10, "z"), element(11, "r", b"a+\0i\0")]
EVERYTHING = document(*SCALARS, *OTHERS, element(4, "o", document(*OTHERS)))
SETTINGS = document(element(1, "d", struct.pack("<d", 0)), element(16, "i", struct.pack("<i", 0)),
                    element(4, "o", document(element(128, "f", struct.pack("<f", 1)))))
LOOSE = document(element(2, "d", string("1.5")), element(1, "i", struct.pack("<d", 3.9)),
                 element(4, "o", document(element(2, "f", string("2")), element(16, "new", struct.pack("<i", 2)))))
NESTED_REGEX = document(element(4, "o", document(element(11, "f", b"\0\0"))))
NESTED_TEXT = document(element(4, "o", document(element(2, "f", string("a+")))))
NESTED = b"\0\0\0\0\4\0" * 8 + bytes(5 + 8)
DEEP = b"\0\0\0\0\4\0" * 300 + bytes(5 + 300)


def pair(pattern, given):
    return bytes([len(pattern)]) + pattern + given


SEEDS = {
    "bson_unfreeze": {
        "empty": document(), "everything": EVERYTHING, "truncated": EVERYTHING[:-40], "nested": NESTED,
        "deep": DEEP,
        "huge_length": b"\xff\xff\xff\xff\2s\0\xff\xff\xff\xfftext", "unknown_type": document(element(3, "a")),
        "read_regex": document(element(11, "r", b"a\0b\0\xff\xff"), element(10, "z")),
        "cut_document": document(element(4, "o", b"\1\0")),
    },
    "bson_coerce": {
        "settings": pair(SETTINGS, LOOSE), "no_object": pair(SETTINGS, document(element(10, "o"))),
        "same": pair(SETTINGS, SETTINGS), "both_cut": pair(SETTINGS[:-1], LOOSE[:-1]),
        "nested_regex": pair(NESTED_REGEX, NESTED_TEXT),
        "no_number": pair(SETTINGS, document(element(2, "i", string("x")))),
        **{f"all_to_{code}": pair(document(element(code, "x", struct.pack(form, 0))),
                                  document(*[b"%cx\0" % e[0] + e[e.index(0) + 1:] for e in SCALARS + OTHERS]))
           for code, form, _ in NUMBERS if code in (17, 129)},
    },
}

for target, seeds in SEEDS.items():
    folder = CORPUS / target
    folder.mkdir(parents=True, exist_ok=True)
    for name, content in seeds.items():
        (folder / name).write_bytes(content)
