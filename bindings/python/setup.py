# SPDX-License-Identifier: MIT
"""Makes the wheel: builds the module with CMake, and puts beside it every library that it needs but those of the C and
C++ runtime (libc and its kin, libgcc_s, libstdc++), which are the system's, as every Python on Linux has them.

    /usr/bin/python3 -m build --no-isolation --wheel --outdir build/dist bindings/python

CMAKE_ARGS holds more arguments for CMake. ZORVAN_BUILD_DIR, a whole path, names a build tree to take the module from
instead of building one.
"""
from __future__ import annotations

import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py

ROOT = pathlib.Path(__file__).resolve().parents[2]
RUNTIME = re.compile(r"^(linux-vdso|ld-linux.*|lib(c|m|dl|rt|pthread|gcc_s|stdc\+\+))\.so")


def build() -> pathlib.Path:
    if "ZORVAN_BUILD_DIR" in os.environ:
        return pathlib.Path(os.environ["ZORVAN_BUILD_DIR"]).resolve()
    tree = ROOT / "build" / "wheel" / "cmake"
    launcher = ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"] if shutil.which("ccache") else []
    off = [f"-DZORVAN_BUILD_{part}=OFF" for part in ("TOOLS", "TESTS", "EXAMPLES")]
    subprocess.run(["cmake", "-S", ROOT, "-B", tree, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DZORVAN_PYTHON=ON",
                    f"-DZORVAN_PYTHON_EXECUTABLE={sys.executable}", *launcher, *off,
                    *shlex.split(os.environ.get("CMAKE_ARGS", ""))], check=True)
    subprocess.run(["cmake", "--build", tree, "--target", "zorvan_python"], check=True)
    return tree


def needed(file: pathlib.Path) -> dict[str, pathlib.Path]:
    """What a library loads, directly or not, by the name that it asks for."""
    lines = subprocess.run(["ldd", file], check=True, capture_output=True, text=True).stdout.splitlines()
    found = (re.match(r"\s*(\S+) => (/\S+)", line) for line in lines)
    missing = [line for line in lines if "not found" in line]
    if missing:
        raise RuntimeError(f"{file}: {missing}")
    return {match[1]: pathlib.Path(match[2]) for match in found if match}


def licence(library: pathlib.Path) -> pathlib.Path | None:
    """What the distribution says of it."""
    owner = subprocess.run(["dpkg-query", "-S", library.resolve()], check=False, capture_output=True, text=True).stdout
    text = pathlib.Path("/usr/share/doc", owner.split(":")[0], "copyright") if owner else None
    return text if text is not None and text.is_file() else None


class BuildWithCMake(build_py):
    def run(self) -> None:
        super().run()
        tree, package = build(), pathlib.Path(self.build_lib).resolve() / "zorvan"
        stage = package.parents[1] / "stage"
        shutil.rmtree(stage, ignore_errors=True)
        for component in "python", "library":
            subprocess.run(["cmake", "--install", tree, "--prefix", stage, "--component", component, "--strip"], check=True)
        (module,) = stage.rglob("_core*.so")
        shutil.copy(module, package)
        for name, path in needed(module).items():
            if RUNTIME.match(name):
                continue
            shutil.copy(path, package / name)
            text = None if stage in path.parents else licence(path)
            if text is not None:
                (package / "licences").mkdir(exist_ok=True)
                shutil.copy(text, package / "licences" / f"{name}.txt")


class BinaryDistribution(Distribution):
    def has_ext_modules(self) -> bool:
        return True


(ROOT / "build").mkdir(exist_ok=True)
setup(version=re.search(r"VERSION (\S+)", (ROOT / "CMakeLists.txt").read_text().split("project(")[1])[1], packages=["zorvan"],
      package_data={"zorvan": ["py.typed", "*.pyi"]}, cmdclass={"build_py": BuildWithCMake}, distclass=BinaryDistribution)
