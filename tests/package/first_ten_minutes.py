#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Does what docs/first-ten-minutes.md says, to the letter, in a clean Debian 12 with nothing but the packages: their installation,
each command, each line of Python. Compares what is printed, and says how long each step took.

    tests/package/first_ten_minutes.py ROOT PACKAGE.deb...     # as root; debootstrap fills ROOT where it is not there yet
"""
import doctest
import pathlib
import re
import shutil
import subprocess
import sys
import time

PAGE = pathlib.Path(__file__).resolve().parents[2] / "docs" / "first-ten-minutes.md"
FLAGS = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE
STEP = re.compile(r"^    (?P<install>apt install [^\n]*)$|^```(?P<kind>console|python)\n(?P<text>.*?)^```$", re.MULTILINE | re.DOTALL)


def steps(page):
    """A command each, and what it prints; None: anything. Python comes as one step."""
    for found in STEP.finditer(page):
        if found["install"]:
            yield "apt-get update", None
            yield "yes | " + found["install"], None
        elif found["kind"] == "console":
            yield from re.findall(r"^\$ (.*)\n((?:(?!\$ ).*\n)*)", found["text"], re.MULTILINE)
        else:
            lines = found["text"].replace("'", "'\\''")
            yield f"printf '%s' '{lines}' > page.txt && python3 -m doctest -o ELLIPSIS -o NORMALIZE_WHITESPACE page.txt", ""


def main():
    root, debs = pathlib.Path(sys.argv[1]), sys.argv[2:]
    if not (root / "etc" / "debian_version").exists():
        subprocess.run(["debootstrap", "--variant=minbase", "bookworm", root], check=True, stdout=subprocess.DEVNULL)
    folder = root / "root"
    for deb in debs:
        shutil.copy(deb, folder)
    environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "DEBIAN_FRONTEND": "noninteractive", "LC_ALL": "C.UTF-8"}
    faults, begun = 0, time.monotonic()
    for command, wanted in steps(PAGE.read_text()):
        start = time.monotonic()
        run = subprocess.run(["chroot", root, "sh", "-c", f"cd /root && {command}"], check=False, env=environment, text=True,
                             stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        is_right = run.returncode == 0 if wanted is None else doctest.OutputChecker().check_output(wanted, run.stdout, FLAGS)
        print(f"{time.monotonic() - start:6.1f} s  {'  ' if is_right else '!!'} {command.splitlines()[0][:100]}", flush=True)
        if not is_right:
            faults += 1
            print(f"the page says\n{wanted}\nand it is\n{run.stdout}")
    print(f"{time.monotonic() - begun:6.1f} s  in all")
    return faults > 0


if __name__ == "__main__":
    sys.exit(main())
