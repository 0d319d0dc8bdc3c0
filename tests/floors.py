#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Fails when a file of the library includes a folder that stands beside or below its own, when two files include
each other in a loop, or when an example includes a header of the library that is not installed.

    tests/floors.py ROOT
"""
import pathlib
import re
import sys

# Each folder with the folders it may include, besides itself.
MAY_INCLUDE = {
    "platform": "",
    "util": "platform",
    "numerics": "platform",
    "graphs": "util numerics",
    "documents": "platform util",
    "runtime": "platform documents",
    "core": "platform numerics graphs runtime",
    "features": "platform numerics core",
    "verdict": "platform numerics graphs runtime core features",
    "preregistration": "platform util numerics graphs documents runtime core features verdict",
    "persistence": "platform util numerics graphs documents runtime core features verdict preregistration",
    "clusterregistration":
        "platform util numerics graphs documents runtime core features verdict preregistration persistence",
    "colour": "platform util numerics",
    "raster": "platform util",
    "exchange": "platform util colour",
    "scans": "platform util documents runtime core exchange",
}
MAY_INCLUDE["workflow"] = " ".join(MAY_INCLUDE)
# The export macro belongs to no room: every class that a host may call needs it.
ANYWHERE = {"zorvan/platform/export.h"}
# The rooms that keep intrinsics: everything else of the library goes through them.
INTRINSICS = re.compile(r"#include <(?:[a-z]mmintrin|immintrin|x86intrin)\.h>")
MAY_USE_INTRINSICS = re.compile(r"platform/simd(_avx)?\.h$")
LICENSED = "// SPDX-License-Identifier: MIT\n"
INCLUDE = re.compile(r'^#include "(zorvan/[^"]+)"', re.MULTILINE)


def wrong_arrows(root, includes):
    for file, targets in includes.items():
        folder = file.split("/")[1]
        if folder not in MAY_INCLUDE:
            yield f"{file}: folder '{folder}' has no floor; add it to {pathlib.Path(__file__).name}"
            continue
        allowed = {folder, *MAY_INCLUDE[folder].split()}
        for target in targets:
            if target not in ANYWHERE and target.split("/")[1] not in allowed:
                yield f"{file}: includes {target}, which stands on a floor that '{folder}' may not see"
            if not (root / target).is_file():
                yield f"{file}: includes {target}, which does not exist"


def installed(root):
    """The headers that a host may include, as it includes them."""
    for file in sorted(root.glob("zorvan/*/CMakeLists.txt")):
        for names in re.findall(r"FILE_SET HEADERS[^)]*? FILES\s([^)A-Z]*)", file.read_text()):
            yield from (f"zorvan/{file.parent.name}/{name}" for name in names.split())


def unseen_by_hosts(root, headers):
    for file in sorted({*root.glob("examples/*.cpp"), *root.glob("examples/*/*.cpp"), *root.glob("examples/*/*.h")}):
        for target in INCLUDE.findall(file.read_text()):
            if target not in headers:
                yield f"{file.relative_to(root)}: includes {target}, which is not installed"


def loops(includes):
    state = {}

    def visit(file, path):
        if state.get(file) == "done":
            return
        if file in path:
            yield "include loop: " + " -> ".join(path[path.index(file):] + [file])
            return
        for target in includes.get(file, []):
            yield from visit(target, path + [file])
        state[file] = "done"

    for file in includes:
        yield from visit(file, [])


def main():
    root = pathlib.Path(sys.argv[1])
    texts = {str(p.relative_to(root)): p.read_text() for p in sorted(root.glob("zorvan/*/*")) if p.suffix in (".h", ".cpp", ".inl")}
    includes = {file: INCLUDE.findall(text) for file, text in texts.items()}
    if not includes:
        sys.exit(f"no sources under {root}/zorvan")
    faults = [*wrong_arrows(root, includes), *loops(includes), *unseen_by_hosts(root, set(installed(root)))]
    faults += [f"{file}: intrinsics outside simd.h and simd_avx.h" for file, text in texts.items()
               if INTRINSICS.search(text) and not MAY_USE_INTRINSICS.search(file)]
    faults += [f"{file}: does not begin with {LICENSED.strip()}" for file, text in texts.items()
               if not text.startswith(LICENSED)]
    print("\n".join(faults) or f"{len(includes)} files, every include points upward")
    sys.exit(bool(faults))


if __name__ == "__main__":
    main()
