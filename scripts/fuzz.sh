#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs every fuzz target over its seeds and on from there. New inputs go to build/fuzz/found; a crash leaves its input in
# build/fuzz and ends with an exit code that is not 0.
#
#   scripts/fuzz.sh                        60 seconds a target
#   FUZZ_SEED=7 scripts/fuzz.sh 3600       an hour a target, another way than last time
#
# The seed is the same unless FUZZ_SEED is set: a change is not to fail for what another one did.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}

scripts/bootstrap.sh
cmake --preset asan >/dev/null
targets=()
for corpus in fuzz/*/corpus/*/; do targets+=("$(basename "$corpus")"); done
cmake --build --preset asan --target "${targets[@]}"

fuzz_one() {
    local corpus=$1 target found log
    target=$(basename "$corpus")
    found=build/fuzz/found/$target
    log=build/fuzz/$target.log
    mkdir -p "$found"
    if ! build/asan/bin/"$target" -max_total_time="$seconds" -seed="${FUZZ_SEED:-1}" -print_final_stats=1 -artifact_prefix=build/fuzz/ \
        -rss_limit_mb=1024 -timeout=60 "$found" "$corpus" >"$log" 2>&1; then
        tail -n 40 "$log"
        echo "$target failed; its input is in build/fuzz"
        return 1
    fi
    echo "$target, $seconds s: $(grep 'stat::number_of_executed_units' "$log")"
}
if [[ -d /dev/shm ]]; then export TMPDIR=/dev/shm; fi # register_session writes and reads files
export -f fuzz_one
export seconds
# Four times as many as processors: each has its time by the clock, though not the whole of a processor.
printf '%s\0' fuzz/*/corpus/*/ | xargs -0 -n 1 -P "$((4 * $(nproc)))" bash -c 'fuzz_one "$1"' fuzz_one
