#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Registers patches of a virtual row of teeth, one of them with a hostile name, beside a stranger, and has a browser look
# at the report.
#
#   report_page.sh PROGRAM FOLDER
set -euo pipefail
program=$1
folder=$2
rm -rf "$folder"
"$program" simulate -o "$folder" --views 4 --field 28 --points 8000 --quiet >/dev/null
"$program" simulate -o "$folder/other" --views 1 --field 28 --points 8000 --seed 9 --quiet >/dev/null
mv "$folder/view01.ply" "$folder/<img src=x onerror=alert(1)>.ply"
mv "$folder/other/view00.ply" "$folder/stranger.ply"
"$program" register "$folder"/*.ply -o "$folder/out" --optimize --quiet >/dev/null || [ $? -eq 1 ]
"$(dirname "$0")/report_test.py" "$folder/out/report.html" --poses "$folder/out/poses.json"
