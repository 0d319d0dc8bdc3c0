#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# From a fresh clone to two aligned scans: packages, build, virtual scans, alignment, comparison with the truth.
set -euo pipefail
cd "$(dirname "$0")/.."

say() { printf '\n== %s\n' "$*"; }

say "Installing the packages that the build needs (only those that are missing)"
scripts/bootstrap.sh

say "Building the program (build/release)"
cmake --preset release >/dev/null
cmake --build --preset release --target zorvan_program

zorvan=build/release/bin/zorvan
demo=build/demo

say "Scanning a virtual row of teeth from two sides; the noise of a point is 0.01 mm"
"$zorvan" simulate -o "$demo" --views 2

say "Finding the place of the second scan on the first, without a start pose"
"$zorvan" align "$demo/view00.ply" "$demo/view01.ply" -o "$demo/poses.json"

say "Comparing the pose found with the true one; more than 0.1 degrees or 0.05 mm would be a failure"
"$zorvan" evaluate "$demo/poses.json" "$demo/truth.json" --max-degrees 0.1 --max-mm 0.05

say "Done: the scans, the poses and the truth are in $demo"
