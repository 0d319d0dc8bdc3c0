# SPDX-License-Identifier: MIT
"""Runs the cells of a notebook in their order, each with the value of its last line shown as a notebook shows it.

    tests/docs/notebook_test.py examples/notebook.ipynb
"""
import ast
import json
import os
import pathlib
import sys
import tempfile

try:
    import numpy  # noqa: F401
except ImportError:
    print("skipped: numpy is not there")
    sys.exit()


def shown(source, names):
    """What a cell shows below itself."""
    tree = ast.parse(source)
    last = tree.body.pop() if isinstance(tree.body[-1], ast.Expr) else None
    exec(compile(tree, "cell", "exec"), names)
    value = None if last is None else eval(compile(ast.Expression(last.value), "cell", "eval"), names)
    return value._repr_html_() if hasattr(value, "_repr_html_") else repr(value)


cells = [cell for cell in json.loads(pathlib.Path(sys.argv[1]).read_text())["cells"] if cell["cell_type"] == "code"]
assert all(cell["outputs"] == [] and cell["execution_count"] is None for cell in cells), "strip the outputs"
with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    names = {}
    scan, pose, report, arrays = (shown("".join(cell["source"]), names) for cell in cells)
    os.chdir("/")
assert scan.startswith("<svg") and scan.count("h0") > 2000, scan[:200]
assert "array([[" in pose, pose
assert report.startswith("<iframe srcdoc=") and "&lt;canvas" in report and "view02.ply" in report, report[:200]
assert arrays.count("array(") == 2, arrays
