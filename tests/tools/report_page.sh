#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Registers patches of a virtual row of teeth, one of them with a hostile name, beside a stranger, and then some of a row
# and of its twin with one more hole, and has a browser look at the reports.
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
look()
{
    "$(dirname "$0")/report_test.py" "$1/report.html" --poses "$1/poses.json" --record "$1/run.json"
}
"$program" register "$folder"/*.ply -o "$folder/out" --optimize --quiet >/dev/null || [ $? -eq 1 ]
look "$folder/out"

"$program" simulate -o "$folder/twins" --video --views 8 --field 28 --points 8000 --seed 4 --quiet >/dev/null
python3 - "$folder/twins" <<'END'
import json, pathlib, struct, sys
folder = pathlib.Path(sys.argv[1])
hole = -4.34, 2.16, 3.31  # on a tooth that all frames show
for scan in json.loads((folder / "truth.json").read_text())["clusters"][0]["scans"][1::2]:
    head, body = (folder / scan["file"]).read_bytes().split(b"end_header\n", 1)
    count = int(head.split(b"element vertex ")[1].split()[0])
    points = struct.iter_unpack("<3f", body[:12 * count])
    apart = lambda p: sum((sum(r * x for r, x in zip(row, (*p, 1))) - h) ** 2 for row, h in zip(scan["pose"], hole))
    kept = [struct.pack("<3f", *p) for p in points if apart(p) >= 2.0 ** 2]
    head = (f"ply\nformat binary_little_endian 1.0\nelement vertex {len(kept)}\n"
            "property float x\nproperty float y\nproperty float z\nend_header\n")
    (folder / scan["file"]).write_bytes(head.encode() + b"".join(kept))
END
"$program" register "$folder"/twins/*.ply -o "$folder/twins/out" --optimize --quiet >"$folder/twins/out.txt" || [ $? -eq 1 ]
grep -q "they are of objects that differ" "$folder/twins/out.txt"
look "$folder/twins/out"
