#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Puts faults into the code, one after another, and says which of them the tests let pass.

    scripts/inject_faults.py tests/faults/core.txt                  every fault of the list
    scripts/inject_faults.py tests/faults/core.txt --only 3 7       these two
    scripts/inject_faults.py tests/faults/core.txt --only quantile  those whose place or description holds the word
    scripts/inject_faults.py tests/faults/*.txt --check             only whether each list still fits the code

It works on a copy of the working tree in build/faults/LIST, with a build folder of its own, so you may go on editing;
what you edit later is not seen until the next call. A second call builds only what changed. Lists can run at the same
time. On a busy machine put `nice` before it.

A list is a text file:

    # a comment
    suite: core_test

    zorvan/core/ctrafo.cpp: the inverse forgets to turn the shift
    - return CTrafo(turn, -(turn * shift));
    + return CTrafo(turn, -shift);

`suite:` names the test programs that are built and run, as often as you like; a line holds for the faults below it. A
fault is a line with file and description, the old text in lines with "- ", and the new text in lines with "+ " (none:
the old text is dropped). The old text must be found exactly once; it may be a piece of a line or several lines, and
blanks and line ends count alike, so that formatting does not matter. Prefer faults in .cpp files: they build in
seconds.

For each fault: "caught" with the first test that fails (or that it crashed, ran over the limit, or was refused by the
compiler, warnings included: look at the message, the fault may be misspelt), or "MISSED". Exit code 0: all caught; 1:
some missed; 2: a list does not fit the code, or the clean code fails.
"""
import argparse
import dataclasses
import os
import pathlib
import re
import resource
import signal
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
PRESET = "release"
# A fault that lets the suite run this much longer than the clean code has changed what it does.
LIMIT_FACTOR, LIMIT_LEAST_S = 20, 300
MEMORY_BYTES = 16 << 30  # a fault may ask for memory without end


class ListError(Exception):
    pass


@dataclasses.dataclass
class Fault:
    number: int
    file: str
    text: str
    suites: list
    old: list = dataclasses.field(default_factory=list)
    new: list = dataclasses.field(default_factory=list)

    def targets(self):
        """The shared library can be replaced under the test programs, without linking them again."""
        is_in_library = self.file.startswith("zorvan/") and self.file.endswith(".cpp")
        return ["zorvan"] if is_in_library else self.suites

    def apply(self, source):
        pattern = r"\s+".join(re.escape(word) for word in " ".join(self.old).split())
        if not pattern:
            raise ListError(f"fault {self.number} ({self.file}) has no old text")
        places = list(re.finditer(pattern, source))
        if len(places) != 1:
            raise ListError(f"fault {self.number}: its old text is {len(places)} times in {self.file}, not once")
        place = places[0]
        return source[:place.start()] + "\n".join(self.new) + source[place.end():]


def read_list(path):
    faults, suites, last_was_suite = [], [], False
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        if line.startswith("suite:"):
            suites = (suites if last_was_suite else []) + line.split()[1:]
        elif line.startswith(("- ", "+ ")) and faults:
            (faults[-1].old if line[0] == "-" else faults[-1].new).append(line[2:])
        elif ": " in line and suites:
            file, text = line.split(": ", 1)
            faults.append(Fault(len(faults) + 1, file, text, suites))
        else:
            raise ListError(f"{path}:{number}: not a fault, a suite or a comment: {line}")
        last_was_suite = line.startswith("suite:")
    return faults


def selected(faults, only):
    if not only:
        return faults
    return [f for f in faults if any(str(f.number) == o if o.isdigit() else o in f"{f.file} {f.text}" for o in only)]


def copy_tree(tree):
    """Brings the copy up to the working tree; untouched files keep their times, so that ninja rebuilds little."""
    listed = subprocess.run(["git", "ls-files", "-co", "--exclude-standard", "-z"], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout
    wanted = {name for name in listed.split("\0") if name and (ROOT / name).is_file()}
    for path in [p for p in tree.rglob("*") if p.is_file() and tree / "build" not in p.parents]:
        if str(path.relative_to(tree)) not in wanted:
            path.unlink()
    for name in wanted:
        source, target = ROOT / name, tree / name
        if not target.is_file() or target.read_bytes() != source.read_bytes():
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(source.read_bytes())
            target.chmod(source.stat().st_mode)


def build(tree, suites, jobs):
    return subprocess.run(["ninja", "-C", f"build/{PRESET}", f"-j{jobs}", *suites], cwd=tree, capture_output=True,
                          text=True, check=False)


def run_suite(program, limit_s):
    """Runs one test program. Returns None when all tests pass, otherwise what went wrong."""
    process = subprocess.Popen([program, "--gtest_fail_fast", "--gtest_brief=1"], stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True, errors="replace", start_new_session=True,
                               preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_AS, (MEMORY_BYTES, MEMORY_BYTES)))
    try:
        output, _ = process.communicate(timeout=limit_s)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        return "over the limit of time"
    if process.returncode == 0:
        return None
    failed = re.findall(r"^\[  FAILED  \] (\S+?)(?:,| \()", output, re.MULTILINE)
    return f"by {failed[0]}" if failed else f"by a crash ({process.returncode})"


def run_suites(tree, suites, limits):
    for suite in suites:
        outcome = run_suite(tree / "build" / PRESET / "bin" / suite, limits.get(suite))
        if outcome:
            return outcome
    return None


def measure_clean(tree, suites, jobs):
    """Builds and runs the code as it is. Returns how long each suite may take with a fault in."""
    result = build(tree, suites, jobs)
    if result.returncode:
        raise ListError("the clean code does not build:\n" + result.stdout[-4000:])
    limits = {}
    for suite in suites:
        start = time.monotonic()
        outcome = run_suites(tree, [suite], {})
        if outcome:
            raise ListError(f"the clean code fails: {outcome}")
        limits[suite] = max(LIMIT_LEAST_S, LIMIT_FACTOR * (time.monotonic() - start))
    return limits


def try_fault(fault, tree, limits, jobs):
    path = tree / fault.file
    clean = path.read_text()
    path.write_text(fault.apply(clean))
    try:
        result = build(tree, fault.targets(), jobs)
        if result.returncode:
            error = re.search(r"error: .*", result.stdout)
            return f"by the compiler: {error[0] if error else result.stdout[-500:]}"
        return run_suites(tree, fault.suites, limits)
    finally:
        path.write_text(clean)


def run_list(path, args):
    faults = selected(read_list(path), args.only)
    for fault in faults:
        fault.apply((ROOT / fault.file).read_text())
    print(f"{path}: {len(faults)} faults", flush=True)
    if args.check:
        return 0
    tree = ROOT / "build" / "faults" / path.stem
    copy_tree(tree)
    subprocess.run(["cmake", "--preset", PRESET], cwd=tree, check=True, stdout=subprocess.DEVNULL)
    limits = measure_clean(tree, sorted({suite for fault in faults for suite in fault.suites}), args.jobs)
    missed = 0
    for fault in faults:
        outcome = try_fault(fault, tree, limits, args.jobs)
        missed += outcome is None
        print(f"{fault.number:3} {fault.file}: {fault.text}: {f'caught {outcome}' if outcome else 'MISSED'}", flush=True)
    print(f"{path}: {len(faults) - missed} caught, {missed} missed", flush=True)
    return 1 if missed else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("lists", nargs="+", type=pathlib.Path, metavar="LIST")
    parser.add_argument("--only", nargs="+", default=[], metavar="N|WORD", help="numbers of faults, or words")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), metavar="N", help="for the build")
    parser.add_argument("--check", action="store_true", help="only whether the old texts are found")
    args = parser.parse_args()
    try:
        sys.exit(max(run_list(path, args) for path in args.lists))
    except (ListError, OSError) as error:
        print(f"{parser.prog}: {error}", file=sys.stderr)
        sys.exit(2)


if __name__ == "__main__":
    main()
