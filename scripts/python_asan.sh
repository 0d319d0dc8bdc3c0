#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Runs the tests of the Python module with libraries and module under the address and undefined-behaviour sanitizers
# (clang), whose runtime is loaded before the interpreter. Ends at the first finding. Not in CI, for its time.
#
#   scripts/python_asan.sh               # all that say something under it
#   scripts/python_asan.sh arrays        # only tests/python/arrays_test.py
#
# Leaks are not looked for, since CPython keeps much until it ends; process_test.py measures memory without sanitizers,
# and its test of that is left out here: the sanitizer's heap does not say what is in use.
set -euo pipefail
cd "$(dirname "$0")/.."

build=build/asan-python
cmake --preset release >/dev/null
cmake --build build/release --target zorvan_program # makes the scans
cmake --preset asan -B $build -DZORVAN_PYTHON=ON -DZORVAN_FUZZ=OFF -DZORVAN_BUILD_TESTS=OFF -DZORVAN_BUILD_TOOLS=OFF \
    -DZORVAN_BUILD_EXAMPLES=OFF >/dev/null
cmake --build $build --target zorvan_python

export ZORVAN_PROGRAM=$PWD/build/release/bin/zorvan PYTHONPATH=$PWD/$build/python PYTHONDONTWRITEBYTECODE=1
export PYTHONMALLOC=malloc # every object of Python is one of the sanitizer's
export ASAN_OPTIONS=detect_leaks=0:halt_on_error=1 UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
for name in "${@:-arrays}" $([ $# -gt 0 ] || echo far module process); do
    only=()
    [ "$name" != process ] || only=(-k threads -k child -k stops -k messages -k ends)
    echo "== $name"
    LD_PRELOAD=$(clang++ -print-file-name=libclang_rt.asan-x86_64.so) \
        /usr/bin/python3 "tests/python/${name}_test.py" "${only[@]}"
done
