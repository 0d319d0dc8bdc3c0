#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Formatting and static checks of our own code.
#
#   scripts/check.sh           clang-format on everything; clang-tidy on the library and the program
#   scripts/check.sh format    clang-format only
set -euo pipefail
cd "$(dirname "$0")/.."

sources=$(git ls-files '*.cpp' '*.h')
# shellcheck disable=SC2086  # our file names hold no blanks
clang-format --dry-run --Werror $sources
echo "formatting: $(wc -w <<<"$sources") files as .clang-format wants them"
[ "${1:-all}" = format ] && exit 0

cmake --preset release >/dev/null
git ls-files 'zorvan/*.cpp' 'tools/*.cpp' | xargs -P "$(nproc)" -n 4 clang-tidy -p build/release --quiet 2>/dev/null
echo "clang-tidy: nothing found"
