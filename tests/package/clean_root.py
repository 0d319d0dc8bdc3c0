#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs packages in a root that holds them and what they depend on, nothing else: the files of the installed packages that
their Depends name, directly or not.

    tests/package/clean_root.py ROOT PACKAGE.deb...     # as root; ROOT is made anew
"""
import pathlib
import re
import shutil
import subprocess
import sys

RUN = """
import zorvan
pair = zorvan.align("/tmp/scans/view00.ply", "/tmp/scans/view01.ply")
print("Python:", pair.verdict, len(zorvan.settings()), "settings")
assert pair
"""


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def names(depends):
    """The first of alternatives, without versions and architectures."""
    return {re.split(r"[ |(:]", part.strip())[0] for part in depends.split(",") if part.strip()}


def closure(wanted, own):
    known = {}
    for line in output("dpkg-query", "-W", "-f", "${Package}\t${Provides}\t${Pre-Depends}, ${Depends}\n").splitlines():
        package, provides, depends = line.split("\t")
        for name in {package, *names(provides)}:
            known.setdefault(name, (package, names(depends)))
    found, queue = set(), set(wanted) - own
    while queue:
        package, depends = known[queue.pop()]  # one that is not installed has no entry, and ends this
        if package not in found:
            found.add(package)
            queue |= depends
    return found


def copy(file, root):
    target = root / str(file).lstrip("/")
    target.parent.mkdir(parents=True, exist_ok=True)
    if not target.is_symlink() and not target.exists():
        shutil.copy2(file, target, follow_symlinks=False)


def main():
    root, debs = pathlib.Path(sys.argv[1]), sys.argv[2:]
    shutil.rmtree(root, ignore_errors=True)
    (root / "tmp").mkdir(parents=True)
    for name in "bin", "lib", "lib64", "sbin":
        (root / "usr" / name).mkdir(parents=True, exist_ok=True)
        (root / name).symlink_to(f"usr/{name}")
    own = {output("dpkg-deb", "-f", deb, "Package").strip() for deb in debs}
    packages = closure(set().union(*(names(output("dpkg-deb", "-f", deb, "Depends")) for deb in debs)) | {"dash", "libc-bin"}, own)
    for file in map(pathlib.Path, output("dpkg-query", "-L", *packages).split("\n")):
        if file.is_symlink() or file.is_file():
            copy(file, root)
    for link in output("find", "/usr/lib", "-lname", "/etc/alternatives/*").split() + [*map(str, pathlib.Path("/etc/alternatives").iterdir())]:
        copy(link, root)
    for name in "blas", "lapack":  # those that the packages ask for, whatever the system has chosen
        link = root / f"etc/alternatives/lib{name}.so.3-x86_64-linux-gnu"
        link.unlink(missing_ok=True)
        link.symlink_to(f"/usr/lib/x86_64-linux-gnu/{name}/lib{name}.so.3")
    for deb in debs:
        subprocess.run(["dpkg-deb", "-x", deb, root], check=True)
    subprocess.run(["ldconfig", "-r", root], check=True)
    print(f"{len(packages)} packages below {', '.join(sorted(own))}")
    for command in ["zorvan", "simulate", "-o", "/tmp/scans", "--views", "2"], ["zorvan", "align", "/tmp/scans/view00.ply",
                    "/tmp/scans/view01.ply", "-o", "/tmp/pose.json", "--quiet"], ["python3", "-c", RUN]:
        subprocess.run(["chroot", root, *command], check=True, env={"PATH": "/usr/sbin:/usr/bin"})


if __name__ == "__main__":
    main()
