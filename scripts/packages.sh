#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Makes the Debian packages in build/package/packages: libzorvan, libzorvan-dev, zorvan, python3-zorvan. Ends when lintian
# has something to say, or a root with the packages and what they depend on cannot run them (asked as root only).
# tests/package/first_ten_minutes.py installs them in a clean Debian and does the first page of the manual there.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset package >/dev/null
cmake --build build/package
rm -rf build/package/packages
(cd build/package && cpack -G DEB >cpack.log 2>&1) || { cat build/package/cpack.log; exit 1; }
if command -v lintian >/dev/null; then
    lintian --fail-on error,warning build/package/packages/*.deb
fi
[ "$(id -u)" -ne 0 ] || tests/package/clean_root.py build/package/root build/package/packages/*.deb
ls -l build/package/packages/*.deb
