#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Formatting and static checks of our own code.
#
#   scripts/check.sh                    clang-format and clang-tidy on everything: library, program, tests, benchmarks
#   scripts/check.sh format             clang-format only
#   scripts/check.sh changed COMMIT     and clang-tidy on the sources that differ from COMMIT, without its static analyser,
#                                       which takes as long again
set -euo pipefail
cd "$(dirname "$0")/.."

sources=$(git ls-files '*.cpp' '*.h')
# shellcheck disable=SC2086  # our file names hold no blanks
clang-format --dry-run --Werror $sources
echo "formatting: $(wc -w <<<"$sources") files as .clang-format wants them"

folders=('zorvan/*.cpp' 'tools/*.cpp' 'tests/*.cpp' 'benchmarks/*.cpp')
checks=''
case ${1:-all} in
format) exit 0 ;;
all) wanted=$(git ls-files "${folders[@]}") ;;
changed)
    checks='-clang-analyzer-*'
    wanted=$(git diff --name-only --diff-filter=d "${2:?give a commit}" -- "${folders[@]}")
    ;;
*) sed -n '3,8s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
esac

cmake --preset tidy >/dev/null
# What clang-tidy counts on standard error is shown only when it has found something.
log=$(mktemp)
trap 'rm -f "$log"' EXIT
xargs -r -P "$(nproc)" -n 4 clang-tidy -p build/tidy --quiet --checks="$checks" <<<"$wanted" 2>"$log" || { cat "$log" >&2; exit 1; }
echo "clang-tidy: nothing found in $(wc -w <<<"$wanted") sources"
