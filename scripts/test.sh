#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs what is missing, builds and runs every test.
#
#   scripts/test.sh            the release preset
#   scripts/test.sh asan       another preset: debug, asan, tsan
#   scripts/test.sh tsan runtime_test core_test     only these test programs
#
# Tests on real scans run when ZORVAN_DATA names the folder that holds them, and say so when they are skipped.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}

scripts/bootstrap.sh
cmake --preset "$preset" >/dev/null
if [ $# -gt 1 ]; then
    shift
    cmake --build --preset "$preset" --target "$@"
    for program in "$@"; do "build/$preset/bin/$program" --gtest_brief=1; done
    exit
fi
cmake --build --preset "$preset"
ctest --preset "$preset" -j "$(nproc)"
