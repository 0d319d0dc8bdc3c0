# SPDX-License-Identifier: MIT
"""The demo in Python ends well, with the poses file of the program."""
import subprocess
import sys

from support import folder, program

subprocess.run([sys.executable, sys.argv[1], folder()], check=True)
program("align", folder() / "view00.ply", folder() / "view01.ply", "-o", folder() / "program.json")
assert (folder() / "poses.json").read_bytes() == (folder() / "program.json").read_bytes()
