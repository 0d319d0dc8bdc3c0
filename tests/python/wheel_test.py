# SPDX-License-Identifier: MIT
"""A wheel of the present build works alone in a virtual environment, with libraries of its own but for the runtime."""
import os
import pathlib
import re
import subprocess
import sys
import venv
import zipfile

from support import folder, scans

try:
    import build  # noqa: F401
except ImportError:
    print("skipped: python3-build is not there")
    sys.exit()

CODE = """
import sys, zorvan
assert zorvan.align(*sys.argv[1:])
print(*{line.split()[-1] for line in open("/proc/self/maps") if ".so" in line}, sep="\\n")
"""
ROOT, dist = pathlib.Path(sys.argv[1]), folder() / "dist"
subprocess.run([sys.executable, "-m", "build", "--no-isolation", "--wheel", "--outdir", dist, ROOT / "bindings" / "python"],
               check=True, stdout=subprocess.DEVNULL)
venv.create(folder() / "env", system_site_packages=True)
site = next((folder() / "env" / "lib").glob("python3*")) / "site-packages"
(wheel,) = dist.glob("zorvan-*.whl")
zipfile.ZipFile(wheel).extractall(site)
environment = {k: v for k, v in os.environ.items() if k not in ("PYTHONPATH", "LD_LIBRARY_PATH")}
loaded = subprocess.run([folder() / "env" / "bin" / "python3", "-c", CODE, *map(str, scans(2))], check=True, capture_output=True,
                        text=True, env=environment, cwd=folder()).stdout.split()
ours = [file for file in loaded if file.startswith(str(folder()))]
others = [file for file in loaded if file not in ours and not re.search(
    r"python3|/(ld-linux|lib(c|m|dl|rt|pthread|gcc_s|stdc\+\+|blas|lapack|gfortran|quadmath|z|expat)[.-])", file)]
assert others == [], others
assert any("libtbb" in file for file in ours), ours
assert {"libfmt.so.9.txt"} <= {path.name for path in (site / "zorvan" / "licences").iterdir()} or not pathlib.Path("/usr/bin/dpkg").exists()
print(f"{wheel.name}: {wheel.stat().st_size / 1e6:.1f} MB, {len(ours)} libraries of its own")
