"""Checks the table of differences between the two builds: each row's tests and counterpart exist, and the tests that
fail when they expect of the guarded build what the contract does are the table's, no more and no fewer."""
import argparse
import concurrent.futures
import fnmatch
import os
import re
import subprocess
import sys

PARALLEL = 12  # most of what fails waits for a reply that does not come
RESULT = re.compile(r"^\[ +(OK|FAILED) +\] ([^ ,]+)")
STARTED = re.compile(r"^\[ RUN +\] (\S+)")
PATIENCE_S = 100


def read_rows(path):
    with open(path, encoding="utf-8") as file:
        lines = [line.strip() for line in file if not line.startswith("#")]
    if any(character in line for line in lines for character in ";[]"):
        sys.exit(f"{path}: ; and brackets mean something else to CMake")
    rows = [line.split(",", 2) for line in lines]
    for row in rows:
        if len(row) != 3 or not all(row):
            sys.exit(f"{path}: not a test, its counterpart and a reason: {','.join(row)}")
    return rows


def tests_of(program):
    listing = subprocess.run([program, "--gtest_list_tests"], check=True, capture_output=True, text=True).stdout
    names, suite = [], ""
    for line in listing.splitlines():
        if line.startswith(" "):
            names.append(suite + line.split("#")[0].strip())
        elif line.split("#")[0].strip().endswith("."):
            suite = line.split("#")[0].strip()
    return names


def failures_among(program, names):
    """The tests that fail; one that ends the process has failed, and those behind it are run anew."""
    failed, left = set(), list(names)
    # Nobody reads what a sanitizer says of a test that ends the process: it need not look up names for it.
    speechless = {name: ":".join(filter(None, (os.environ.get(name), "symbolize=0")))
                  for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS")}
    environment = dict(os.environ, PLC_EXPECT_CONTRACT="1", **speechless)
    while left:
        try:
            run = subprocess.run([program, "--gtest_filter=" + ":".join(left)], env=environment, errors="replace",
                                 timeout=PATIENCE_S, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        except subprocess.TimeoutExpired:
            sys.exit(f"{program}: not done within {PATIENCE_S} s, with the tests {' '.join(left)}")
        done, running = set(), None
        for line in run.stdout.splitlines():
            if match := STARTED.match(line):
                running = match[1]
            elif (match := RESULT.match(line)) and match[2] == running:
                done.add(running)
                if match[1] == "FAILED":
                    failed.add(running)
                running = None
        if running is not None:
            done.add(running)
            failed.add(running)
        if not done:
            sys.exit(f"{program}: ran none of {' '.join(left)}")
        left = [name for name in left if name not in done]
    return failed


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("table")
    parser.add_argument("--programs", nargs="+", required=True, help="run against the guarded build")
    parser.add_argument("--long", nargs="*", default=[], help="those of them of which only the listed tests are run")
    parser.add_argument("--whole", nargs="*", default=[], help="those of them that run once: they read much")
    parser.add_argument("--counterparts", nargs="+", required=True, help="tests of the guarded build alone")
    arguments = parser.parse_args()

    rows = read_rows(arguments.table)
    tests = {program: tests_of(program) for program in arguments.programs}
    known = {name for program in arguments.counterparts for name in tests_of(program)}
    everything = {name for names in tests.values() for name in names}
    listed = {name for row in rows for name in fnmatch.filter(everything, row[0])}

    with concurrent.futures.ThreadPoolExecutor(PARALLEL) as pool:
        parts = []
        for program, names in tests.items():
            wanted = [name for name in names if name in listed or program not in arguments.long]
            count = 1 if program in arguments.whole else PARALLEL
            parts += [pool.submit(failures_among, program, wanted[part::count])
                      for part in range(count) if wanted[part::count]]
        failed = set().union(*(part.result() for part in parts))

    problems = [f"{test}: no such test" for test, _, _ in rows if not fnmatch.filter(everything, test)]
    problems += [f"{test}: its counterpart {counterpart} does not exist" for test, counterpart, _ in rows
                 if counterpart != "itself" and counterpart not in known]
    problems += [f"{name}: the guarded build does what the contract does, its row is stale"
                 for name in sorted(listed - failed)]
    problems += [f"{name}: the guarded build does something else, and there is no row for it"
                 for name in sorted(failed - listed)]
    print("\n".join(problems) or f"{len(rows)} rows, {len(listed)} of {len(everything)} tests")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
