# SPDX-License-Identifier: MIT
"""The stubs name what the compiled part has, and hold under mypy."""
import ast
import inspect
import pathlib
import subprocess
import sys

try:
    import numpy  # noqa: F401
    import mypy  # noqa: F401
except ImportError as error:
    print(f"skipped: {error.name} is not there")
    sys.exit()

import zorvan
from zorvan import _core

HOST = """
import zorvan
pair = zorvan.align("a.ply", "b.ply", threads=2)
if pair.pose is not None: print(pair.pose.shape, pair.covariance)
all = zorvan.register({"a": "a.ply"}, progress=lambda stage, fraction: None)
for name, pose in all.poses.items(): print(name.upper(), pose)
points, normals, histograms = zorvan.features("a.ply")
"""
SECOND = 'import zorvan\nzorvan.align(3, "b.ply")\nzorvan.register([], optimise=True)\nzorvan.align("a", "b").pose.shape\n'


def names(body):
    return {n.name for n in body if isinstance(n, (ast.FunctionDef, ast.ClassDef))}


def mypy_errors(*arguments):
    run = subprocess.run([sys.executable, "-m", "mypy", "--strict", "--cache-dir", "/dev/null", *arguments], check=False,
                         capture_output=True, text=True, cwd=pathlib.Path(zorvan.__file__).parents[1])
    return [line for line in run.stdout.splitlines() if ": error:" in line] + run.stderr.splitlines()


declared = ast.parse(pathlib.Path(_core.__file__).parent.joinpath("_core.pyi").read_text())
PLUMBING = {"__doc__", "__file__", "__loader__", "__name__", "__package__", "__spec__", "__version__"}
assert names(declared.body) == set(dir(_core)) - PLUMBING, names(declared.body) ^ (set(dir(_core)) - PLUMBING)
for kind in (n for n in declared.body if isinstance(n, ast.ClassDef) and n.body and names(n.body)):
    real = {n for n in vars(getattr(_core, kind.name)) if not n.startswith("_")}
    assert {n for n in names(kind.body) if not n.startswith("_")} == real, (kind.name, names(kind.body) ^ real)
    for function in (n for n in kind.body if isinstance(n, ast.FunctionDef) and n.name in real):
        doc = inspect.getdoc(getattr(getattr(_core, kind.name), function.name)) or ""
        given = {a.arg for a in function.args.args + function.args.kwonlyargs} - {"self"}
        assert all(a + ":" in doc for a in given), (kind.name, function.name, given)
assert all(getattr(zorvan, n).__doc__ for n in zorvan.__all__ if n != "__version__")
assert mypy_errors("-p", "zorvan") == [], mypy_errors("-p", "zorvan")
assert mypy_errors("-c", HOST) == [], mypy_errors("-c", HOST)
assert len(mypy_errors("-c", SECOND)) == 3, mypy_errors("-c", SECOND)
