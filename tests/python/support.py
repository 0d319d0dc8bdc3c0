# SPDX-License-Identifier: MIT
"""What the tests of the module share: virtual scans, and a word when numpy is not there."""
import atexit
import functools
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

try:
    import numpy as np
except ImportError:
    print("skipped: numpy is not there")
    sys.exit()


@functools.lru_cache(maxsize=None)
def folder():
    path = pathlib.Path(tempfile.mkdtemp())
    atexit.register(shutil.rmtree, path)
    return path


def program(*arguments):
    return subprocess.run([os.environ["ZORVAN_PROGRAM"], *map(str, arguments)], check=False, capture_output=True, text=True)


@functools.lru_cache(maxsize=None)
def scans(count=3):
    """Files of a row of teeth, seen from several sides."""
    program("simulate", "-o", folder() / "views", "--views", count)
    return sorted((folder() / "views").glob("view*.ply"))


def sphere(radius=5.0, count=3000, seed=1):
    """Points and normals of a sphere about (1, 2, 3), float64."""
    normals = np.random.default_rng(seed).normal(size=(count, 3))
    normals /= np.linalg.norm(normals, axis=1)[:, None]
    return np.array([1.0, 2.0, 3.0]) + radius * normals, normals


def main():
    unittest.main(module="__main__")
