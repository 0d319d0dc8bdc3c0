#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Originals larger than memory: registers a scan of hundreds of millions of points with one of ordinary size, and moves
one, and says what each takes in time and memory.

    benchmarks/huge_originals.py [--program build/release/bin/zorvan] [--folder FOLDER] [register] [apply]

register  a view of the virtual scanner, sampled to --points points, in each of --formats (ply of 16 bytes a point, las of
          20, e57 of 12, ptx of 28; of the last two a fifth of the points), with the next view as an ordinary PLY: the error
          of the pose against the truth, processor time, and the largest memory
apply     the same view with --apply-points points as ply and las: time beside that of `cp`, each with the file in the
          cache and the copy forced to the disk, and the largest memory

Without a name, both. Files are made in a folder inside FOLDER, one at a time, and go at the end: 10 GB at the default of
500 million points. Needs numpy. Exit code 1 when a scan is not placed within 0.1 degrees and 0.1 mm, or memory passes
--most-mb for a registration or 200 MB for a move.
"""
import argparse
import json
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import time

import numpy as np

from posemath import errors, inverse, product

CHUNK = 1 << 21
OFFSET = 100  # mm; of the coordinates in PTX, which have no sign
NOISE = 0.005  # mm


class Surface:
    """Points on the triangles of a simulated view, by area."""

    def __init__(self, file, seed):
        with open(file, "rb") as stream:
            lines = iter(stream.readline, b"end_header\n")
            counts = [int(line.split()[2]) for line in lines if line.startswith(b"element")]
            points = np.fromfile(stream, "<3f4", counts[0])
            faces = np.fromfile(stream, [("n", "u1"), ("corners", "<3i4")], counts[1])["corners"]
        self.corner = points[faces[:, 0]]
        self.along = points[faces[:, 1]] - self.corner, points[faces[:, 2]] - self.corner
        area = np.linalg.norm(np.cross(*self.along), axis=1)
        self.faces = np.repeat(np.arange(len(faces)), np.ceil(area / area.sum() * (1 << 20)).astype(int))
        self.rng = np.random.default_rng(seed)

    def chunks(self, total):
        for begin in range(0, total, CHUNK):
            count = min(CHUNK, total - begin)
            face = self.faces[self.rng.integers(0, len(self.faces), count)]
            u, v = self.rng.random((2, count, 1), np.float32)
            fold = u + v > 1
            u, v = np.where(fold, 1 - u, u), np.where(fold, 1 - v, v)
            noise = self.rng.standard_normal((count, 3), np.float32) * np.float32(NOISE)
            yield self.corner[face] + u * self.along[0][face] + v * self.along[1][face] + noise


def write_ply(stream, surface, total):
    stream.write(b"ply\nformat binary_little_endian 1.0\nelement vertex %d\nproperty float x\nproperty float y\n"
                 b"property float z\nproperty float intensity\nend_header\n" % total)
    for points in surface.chunks(total):
        rows = np.ones((len(points), 4), "<f4")
        rows[:, :3] = points
        stream.write(rows.data)


def write_las(stream, surface, total):
    header = bytearray(227)
    header[:4] = b"LASF"
    struct.pack_into("<BB", header, 24, 1, 2)
    struct.pack_into("<HII", header, 94, 227, 227, 0)
    struct.pack_into("<BHI", header, 104, 0, 20, total)
    struct.pack_into("<6d", header, 131, *[1e-5] * 3, 0, 0, 0)
    stream.write(header)
    for points in surface.chunks(total):
        rows = np.zeros(len(points), [("place", "<3i4"), ("rest", "V8")])
        rows["place"] = np.rint(points * 1e5)
        stream.write(rows.data)


class Pages:
    """The pages of an E57 file: 1020 bytes of content and their CRC-32C, four bytes at a time in all pages at once."""

    def __init__(self, stream):
        self.stream, self.rest = stream, b""
        table = np.arange(256, dtype=np.uint32)
        for _ in range(8):
            table = (table >> 1) ^ np.where(table & 1, np.uint32(0x82F63B78), np.uint32(0))
        self.tables = [table]
        for _ in range(3):
            self.tables.append((self.tables[-1] >> 8) ^ table[self.tables[-1] & 0xFF])

    def write(self, content, is_last=False):
        content = self.rest + content
        whole = len(content) // 1020 * 1020
        self.rest = content[whole:]
        if is_last and self.rest:
            content, whole, self.rest = content + bytes(1020 - len(self.rest)), whole + 1020, b""
        words = np.frombuffer(content, "<u4", whole // 4).reshape(-1, 255)
        crc = np.full(len(words), 0xFFFFFFFF, np.uint32)
        for word in np.ascontiguousarray(words.T):
            crc ^= word
            crc = (self.tables[3][crc & 0xFF] ^ self.tables[2][crc >> 8 & 0xFF] ^ self.tables[1][crc >> 16 & 0xFF] ^
                   self.tables[0][crc >> 24])
        pages = np.empty((len(words), 256), "<u4")
        pages[:, :255] = words
        pages[:, 255] = (~crc).byteswap()
        self.stream.write(pages.data)


def write_e57(stream, surface, total):
    each = 5460  # points of a packet, the most that its 64 KiB hold
    place = lambda content: content // 1020 * 1024 + content % 1020
    total = total // each * each
    packets = np.dtype([("head", "V12"), ("streams", "<f4", (3, each))])
    head = np.void(struct.pack("<BBHH3H", 1, 0, packets.itemsize - 1, 3, *[4 * each] * 3))
    section = 32 + total // each * packets.itemsize
    xml = ("<?xml version='1.0'?><e57Root type='Structure'><data3D type='Vector'><vectorChild type='Structure'>"
           f"<points type='CompressedVector' fileOffset='48' recordCount='{total}'><prototype type='Structure'>" +
           "".join(f"<cartesian{axis} type='Float' precision='single'/>" for axis in "XYZ") +
           "</prototype></points></vectorChild></data3D></e57Root>").encode()
    end = 48 + section
    pages = Pages(stream)
    pages.write(b"ASTM-E57" + struct.pack("<IIQQQQ", 1, 0, (end + len(xml) + 1019) // 1020 * 1024, place(end), len(xml),
                                          1024) +
                struct.pack("<B7xQQQ", 1, section, place(80), 0))
    left = np.empty((0, 3), np.float32)
    for points in surface.chunks(total):
        points = np.concatenate([left, points])
        count = len(points) // each
        rows = np.empty(count, packets)
        rows["head"] = head
        rows["streams"] = points[:count * each].reshape(count, each, 3).transpose(0, 2, 1)
        left = points[count * each:]
        pages.write(rows.tobytes())
    pages.write(xml, is_last=True)


def write_ptx(stream, surface, total):
    stream.write(f"{total}\n1\n0 0 1000\n1 0 0\n0 1 0\n0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n{-OFFSET} {-OFFSET} {-OFFSET} 1\n"
                 .encode())
    for points in surface.chunks(total):
        values = np.rint((points + OFFSET) * 1e5).astype(np.int64)  # "012.34567 " each, no intensity
        text = np.full((len(points), 3, 10), ord(" "), np.uint8)
        text[:, :, 3] = ord(".")
        for column in (8, 7, 6, 5, 4, 2, 1, 0):
            text[:, :, column] = ord("0") + values % 10
            values //= 10
        text[:, 2, 9] = ord("\n")
        stream.write(text.data)


WRITERS = {"ply": (write_ply, 1), "las": (write_las, 1), "e57": (write_e57, 5), "ptx": (write_ptx, 5)}


def make(file, view, seed, total):
    """In a process of its own: the memory of a child begins with that of its parent."""
    child = os.fork()
    if child == 0:
        with open(file, "wb") as stream:
            WRITERS[file.suffix[1:]][0](stream, Surface(view, seed), total)
        os._exit(0)
    if os.waitpid(child, 0)[1] != 0:
        sys.exit(f"{file} cannot be made")
    return file.stat().st_size


def run(*command):
    """Exit code, seconds of processor time, and the largest memory in MB."""
    process = subprocess.Popen([*map(str, command)], stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    return process.returncode, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def poses_of(file):
    return {scan["file"]: scan["pose"] for cluster in json.loads(file.read_text())["clusters"]
            for scan in cluster["scans"]}


def register(args, folder):
    failed = 0
    truth = poses_of(folder / "truth.json")["view01.ply"]
    make(folder / "next.ply", folder / "view01.ply", 2, args.next_points)
    for ending in args.formats:
        huge = folder / f"huge.{ending}"
        total = args.points // WRITERS[ending][1]
        size = make(huge, folder / "view00.ply", 1, total)
        code, seconds, memory = run(args.program, "register", huge, folder / "next.ply", "-o", folder / "out",
                                    "--threads", "1", "--quiet")
        huge.unlink()
        poses = poses_of(folder / "out" / "poses.json") if code == 0 else {}
        found = product(inverse(poses[huge.name]), poses["next.ply"]) if len(poses) == 2 and None not in poses.values() else None
        off = errors(found, truth) if found else (float("inf"), float("inf"))
        failed |= not off[0] < 0.1 or not off[1] < 0.1 or memory > args.most_mb
        print(f"register {ending}: {total:,} points, {size / 1e9:.2f} GB: {seconds:.0f} s of processor time, {memory:.0f} MB, off by "
              f"{off[0]:.4f} degrees, {off[1]:.4f} mm", flush=True)
    return failed


def apply(args, folder):
    failed = 0
    out = folder / "moved"
    out.mkdir()
    pose = poses_of(folder / "truth.json")["view01.ply"]
    for ending in ("ply", "las"):
        huge = folder / f"huge.{ending}"
        size = make(huge, folder / "view00.ply", 1, args.apply_points)
        (folder / "poses.json").write_text(json.dumps({"clusters": [{"scans": [{"file": huge.name, "pose": pose}]}]}))
        times = {"cp": [], "apply": []}
        memory = 0
        for _ in range(args.rounds):  # in turn
            for name, command in (("cp", ["cp", huge, out]),
                                  ("apply", [args.program, "apply", folder / "poses.json", huge, "-o", out, "--quiet"])):
                shutil.rmtree(out)
                out.mkdir()
                os.sync()
                begin = time.monotonic()
                code, _, peak = run(*command)
                os.sync()
                times[name].append(time.monotonic() - begin)
                memory = max(memory, peak) if name == "apply" else memory
                failed |= code != 0
        huge.unlink()
        failed |= memory > 200
        copy, moved = (sorted(times[name])[args.rounds // 2] for name in ("cp", "apply"))
        print(f"apply {ending}: {args.apply_points:,} points, {size / 1e9:.2f} GB: {moved:.1f} s, cp {copy:.1f} s, "
              f"{memory:.0f} MB", flush=True)
    return failed


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", nargs="*", choices=["register", "apply", []], default=[])
    parser.add_argument("--program", default="build/release/bin/zorvan", type=pathlib.Path)
    parser.add_argument("--folder", default=None)
    parser.add_argument("--points", type=int, default=500_000_000)
    parser.add_argument("--next-points", type=int, default=2_000_000)
    parser.add_argument("--apply-points", type=int, default=100_000_000)
    parser.add_argument("--rounds", type=int, default=3)
    parser.add_argument("--most-mb", type=float, default=2048)
    parser.add_argument("--formats", nargs="+", choices=WRITERS, default=list(WRITERS))
    args = parser.parse_args()
    args.program = args.program.resolve()
    failed = 0
    with tempfile.TemporaryDirectory(dir=args.folder) as name:
        folder = pathlib.Path(name)
        subprocess.run([args.program, "simulate", "-o", folder, "--views", "2", "--field", "28", "--points", "6000", "--seed",
                        "4", "--quiet"], check=True, stdout=subprocess.DEVNULL)
        for part in (register, apply):
            if not args.what or part.__name__ in args.what:
                failed |= part(args, folder)
    return int(failed)


if __name__ == "__main__":
    sys.exit(main())
