#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Draws the pictures of docs/model-cases.md, from the scans that its snippets are run on.

    PYTHONPATH=build/release/python PATH=build/release/bin:$PATH docs/model_cases.py     # into docs/model-cases
"""
from __future__ import annotations

import json
import pathlib
import subprocess
import sys
import tempfile

import numpy as np
import zorvan

sys.path.append(str(pathlib.Path(__file__).parents[1] / "benchmarks"))
import pairpicture  # noqa: E402

FOLDER = pathlib.Path(__file__).parent / "model-cases"
SCENES = {"scans": "--views 4", "part": "--object bracket --seed 3 --views 3 --mesh", "disc": "--object flange --views 2 --spacing 0.5",
          "arch": "--views 8 --field 20"}


def draw(name: str, fix: str, flt: str, poses: dict[str, np.ndarray]) -> None:
    pairpicture.draw(FOLDER / f"{name}.svg", fix, flt, poses)


def main() -> None:
    FOLDER.mkdir(exist_ok=True)
    with tempfile.TemporaryDirectory() as folder:
        for scene, options in SCENES.items():
            subprocess.run(["zorvan", "simulate", "--quiet", "-o", f"{folder}/{scene}", *options.split()], check=True, stdout=subprocess.DEVNULL)
        pair = [f"{folder}/scans/view0{i}.ply" for i in range(2)]
        draw("aligned", *pair, {"the pose": zorvan.align(*pair).pose})
        pair = [f"{folder}/disc/view0{i}.ply" for i in range(2)]
        several = zorvan.align(*pair).poses
        draw("ambiguous", *pair, {"the best": several[0], "another one": several[1]})
        pair = [f"{folder}/part/view0{i}.ply" for i in (0, 2)]
        draw("not-aligned", *pair, {"the nearest miss": zorvan.align(*pair).candidates[0]["pose"]})
        truth = json.loads(pathlib.Path(folder, "arch", "truth.json").read_text())["clusters"][0]["scans"]
        draw("too-little", f"{folder}/arch/view00.ply", f"{folder}/arch/view04.ply", {"where they were taken": np.array(truth[4]["pose"])})


if __name__ == "__main__":
    main()
