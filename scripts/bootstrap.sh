#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the packages that building, testing and benchmarking need; does nothing when all are there.
# Debian 12 or a system with the same package names. Needs root or sudo only when something is missing.
set -euo pipefail

packages=(
    build-essential cmake ninja-build ccache pkg-config python3  # tools of the build
    libfmt-dev libspdlog-dev libtbb-dev libutfcpp-dev            # the library
    libeigen3-dev libpng-dev                                     # the library
    liblapack-dev liblapacke-dev                                 # the library; LAPACK's declarations
    ocl-icd-opencl-dev opencl-headers pocl-opencl-icd            # the library; the processor as a compute device
    libcli11-dev nlohmann-json3-dev libpugixml-dev               # the program; headers of E57 files
    libcpp-httplib-dev                                           # the example live_scan
    pybind11-dev python3-dev python3-numpy python3-joblib        # the Python module; worker processes in its tests
    python3-mypy python3-build python3-wheel python3-setuptools  # its tests, its wheel
    lintian                                                      # packages
    doxygen python3-sphinx python3-breathe python3-myst-parser   # the manual
    libgtest-dev libgmock-dev chromium chromium-driver           # tests; the browser looks at the report
    libassimp-dev                                                # tests and benchmarks: meshes beside ours
    libbenchmark-dev libnanoflann-dev                            # benchmarks
    clang-format clang-tidy                                      # checks of CI
    clang libclang-rt-14-dev libomp-dev                          # fuzzing; clang's OpenMP, for its checks too
)

missing=()
for package in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
root=()
[ "$(id -u)" -eq 0 ] || root=(sudo)
export DEBIAN_FRONTEND=noninteractive
"${root[@]}" apt-get update -qq
"${root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
