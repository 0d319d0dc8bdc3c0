# SPDX-License-Identifier: MIT
"""Scans some frames live, without a clock, sets the scanner down elsewhere in between, and follows on the page: as a client, and
in Chromium where there is one.

    tests/examples/live_scan_test.py build/release/bin/live_scan
"""
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import urllib.request
import xml.etree.ElementTree

FRAMES, JUMP = 24, 12  # ten a patch, and a new one after the jump
PATCHES = 4
STAGES = {"placing", "features", "update", "latency"}


def get(address):
    with urllib.request.urlopen(address, timeout=60) as answer:
        return answer.read().decode()


def in_browser(address, folder):
    flags = "--headless --no-sandbox --disable-gpu --no-first-run --disable-background-networking --virtual-time-budget=20000 --dump-dom"
    run = subprocess.run(["chromium", *flags.split(), f"--user-data-dir={folder}/profile", address], check=False, capture_output=True,
                         text=True, timeout=300)
    return run.stdout


def main(program):
    with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
        picture = pathlib.Path(folder, "latency.svg")
        host = subprocess.Popen([program, "--frames", str(FRAMES), "--jump", str(JUMP), "--fps", "0", "--picture", picture, "--stay"], stdin=subprocess.PIPE,
                                stdout=subprocess.PIPE, text=True)
        words = host.stdout.readline()
        address = re.fullmatch(r"follow at (http://127\.0\.0\.1:\d+/)\n", words)[1]
        state, counts = {"done": False}, []
        while not state["done"]:
            state = json.loads(get(address + "state"))
            counts.append(state["frames"])
        assert counts == sorted(counts) and counts[-1] == FRAMES, counts
        assert len(state["patches"]) == PATCHES and state["waiting"] == 0, (len(state["patches"]), state["waiting"])
        assert all(points and len(points) % 3 == 0 for points in state["patches"])
        assert {line.split()[0] for line in state["table"].splitlines()[1:]} == STAGES, state["table"]
        assert "</html>" in get(address)
        port = address.rstrip("/").rsplit(":", 1)[1]
        taken = subprocess.run([program, "--frames", "0", "--port", port], check=False, capture_output=True, text=True)
        assert taken.returncode == 2 and "is in use" in taken.stderr, taken
        if shutil.which("chromium"):
            dom = in_browser(address, folder)
            assert f"{FRAMES} frames, " in dom and f"{PATCHES} patches in the model, 0 waiting; done" in dom and "<rect" in dom, dom[:3000]
        out, _ = host.communicate()  # ends its input
        assert host.returncode == 0, out
        assert re.search(rf"% of {FRAMES} frames done within 50 ms; 1 lost; none more than 0\.0\d+ mm off\n", out), out
        assert re.search(rf"model: \d+ points in {PATCHES} patches, of {PATCHES} that came", out), out
        bars = xml.etree.ElementTree.parse(picture).findall("{http://www.w3.org/2000/svg}rect")
        assert len(bars) == len(STAGES) * FRAMES, len(bars)


main(sys.argv[1])
