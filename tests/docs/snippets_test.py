# SPDX-License-Identifier: MIT
"""Runs the snippets of a page of the manual in a folder of its own, in their order, and compares what they print: lines
behind "$ " in a console block, ">>> " in a python block. "..." in the manual stands for any text.

    tests/docs/snippets_test.py PAGE.md...
"""
import doctest
import os
import pathlib
import re
import subprocess
import sys
import tempfile

try:
    import numpy as np
except ImportError:
    print("skipped: numpy is not there")
    sys.exit()

import zorvan

FLAGS = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE
BLOCK = re.compile(r"^```(console|python)\n(.*?)^```$", re.MULTILINE | re.DOTALL)


def prepare():
    """The scans that the pages speak of."""
    for command in "-o scans --views 4", "-o part --object bracket --seed 3 --views 3 --mesh":
        subprocess.run(["zorvan", "simulate", "--quiet", *command.split()], check=True)
    os.mkdir("metres")
    for name in "view00.ply", "view01.ply":
        cloud = zorvan.read_clouds(f"scans/{name}")[0]
        zorvan.write_cloud(f"metres/{name}", np.float32(cloud["points"] / 1000.0), faces=cloud["faces"])


def console_faults(text, page):
    for command, wanted in re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", text, re.MULTILINE):
        run = subprocess.run(command, shell=True, check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if not doctest.OutputChecker().check_output(wanted, run.stdout, FLAGS):
            yield f"{page}: $ {command}\nthe manual says\n{wanted}and it is\n{run.stdout}"


def python_faults(text, page, names):
    test = doctest.DocTestParser().get_doctest(text, names, page, page, 0)
    out = []
    doctest.DocTestRunner(verbose=False, optionflags=FLAGS).run(test, out=out.append, clear_globs=False)
    names.update(test.globs)
    return ["".join(out)] if out else []


def main(pages):
    root, count, faults = pathlib.Path.cwd(), 0, []
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        prepare()
        for page in pages:
            names = {}
            for kind, text in BLOCK.findall((root / page).read_text()):
                count += 1
                faults += console_faults(text, page) if kind == "console" else python_faults(text, page, names)
        os.chdir(root)
    print("\n".join(faults) or f"{count} snippets print what the manual says")
    return bool(faults) or count == 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
