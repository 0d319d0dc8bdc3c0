#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Installs the build into a scratch folder, builds a host against it with find_package, and runs the host.
#   run.sh BUILD_DIR CONSUMER_DIR COMPILER SANITIZERS
set -euo pipefail
build=$1 consumer=$2 compiler=$3 sanitize=$4
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

cmake --install "$build" --prefix "$scratch/install" >"$scratch/install.log" || { cat "$scratch/install.log"; exit 1; }
cmake -S "$consumer" -B "$scratch/build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DSANITIZE="$sanitize" \
    -DCMAKE_PREFIX_PATH="$scratch/install" >"$scratch/configure.log" || { cat "$scratch/configure.log"; exit 1; }
cmake --build "$scratch/build"
"$scratch/build/consumer"
