#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Makes the wheel from a clean clone of what is committed, installs it by pip in new virtual environments, and runs there what
users run; prints how long each step took.

    /usr/bin/python3 tests/package/clean_venv.py [--work build/clean_venv] [--wheel FILE] [--program build/release/bin/zorvan]

One environment is empty, and pip brings the numpy that the wheel asks for; where no index can be reached, the system's numpy is copied
there, and nothing else. The other one sees the packages of the system: numpy 1 of Debian. The program makes the scans; without it only arrays are tried.
"""
from __future__ import annotations

import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
TESTS = ROOT / "tests" / "python"


def step(words: str, *command: object, environment: dict[str, str] | None = None) -> bool:
    begun = time.monotonic()
    run = subprocess.run([*map(str, command)], check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, env=environment)
    print(f"{time.monotonic() - begun:6.1f} s  {'  ' if run.returncode == 0 else '!!'} {words}", flush=True)
    if run.returncode != 0:
        print("\n".join(run.stdout.splitlines()[-15:]))
    return run.returncode == 0


def make_wheel(work: pathlib.Path) -> pathlib.Path | None:
    clone = work / "clone"
    made = step("clean clone", "git", "clone", "--quiet", "--no-hardlinks", ROOT, clone) and step(
        "wheel from nothing", sys.executable, "-m", "build", "--no-isolation", "--wheel", "--outdir", work / "dist", clone / "bindings" / "python")
    return next((work / "dist").glob("*.whl")) if made else None


def tests_run(python: pathlib.Path, program: pathlib.Path) -> bool:
    """The tests of the module, from a folder where nothing of the tree can be imported."""
    environment = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "LD_LIBRARY_PATH")}
    environment |= {"ZORVAN_PROGRAM": str(program), "PYTHONDONTWRITEBYTECODE": "1"}
    names = ("arrays", "module", "process") if program.is_file() else ("arrays",)
    return all([step(f"{name}_test.py", python, TESTS / f"{name}_test.py", environment=environment) for name in names])


def copy_numpy(place: pathlib.Path) -> None:
    """The system's numpy alone, with what says that it is installed."""
    import numpy
    source = pathlib.Path(numpy.__file__).parent
    packages = next(place.glob("lib/python3*/site-packages"))
    for part in (source, *source.parent.glob("numpy-*info")):
        copy = shutil.copytree if part.is_dir() else shutil.copy
        copy(part, packages / part.name)
    print(f"           no index: numpy {numpy.__version__} is copied from {source.parent}")


def try_environment(place: pathlib.Path, wheel: pathlib.Path, program: pathlib.Path, *, of_system: bool) -> bool:
    """pip has no network in the one that sees the packages of the system: nothing is missing there."""
    python = place / "bin" / "python3"
    venv = [sys.executable, "-m", "venv", *(["--system-site-packages"] if of_system else []), place]
    pip = [python, "-m", "pip", "install", "--quiet", "--retries", "0", "--timeout", "15", *(["--no-index"] if of_system else [])]
    if not step("environment " + ("with the system's packages" if of_system else "without any"), *venv):
        return False
    if not of_system and not step("pip install numpy, from the index", *pip, "numpy<2"):
        copy_numpy(place)
    show = "import numpy, zorvan; print(numpy.__version__, zorvan.__file__)"
    if not step("pip install the wheel", *pip, wheel):
        return False
    print("          ", subprocess.run([python, "-c", show], check=True, capture_output=True, text=True, cwd=place).stdout.strip())
    return tests_run(python, program)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--work", type=pathlib.Path, default=ROOT / "build" / "clean_venv")
    parser.add_argument("--wheel", type=pathlib.Path, help="one that is there already")
    parser.add_argument("--program", type=pathlib.Path, default=ROOT / "build" / "release" / "bin" / "zorvan")
    options = parser.parse_args()
    work = options.work.resolve()
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    wheel = options.wheel.resolve() if options.wheel else make_wheel(work)
    if wheel is None:
        return 1
    print(f"           {wheel.name}: {wheel.stat().st_size / 1e6:.1f} MB")
    return 0 if all([try_environment(work / "system", wheel, options.program.resolve(), of_system=True),
                     try_environment(work / "empty", wheel, options.program.resolve(), of_system=False)]) else 1


if __name__ == "__main__":
    sys.exit(main())
