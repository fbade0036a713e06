#!/usr/bin/env python3
"""Counts what a run of ctest did, every test inside of a program of tests by itself.

scripts/count_tests.py JUNIT BUILD   prints "N M": tests that passed, and failures

JUNIT is ctest's own report. test-programs.txt in the folder BUILD names the tests of ctest that are programs of tests;
each leaves its report in test-reports/NAME.xml there. A test that is skipped, disabled or not run is a failure, and so
is a program that failed otherwise or left no report.
"""
import pathlib
import sys
import xml.etree.ElementTree as ElementTree


def count_report(path):
    """Tests that passed and failed in a program of tests; pytest names no status and no result."""
    passed = failed = 0
    for case in ElementTree.parse(path).getroot().iter("testcase"):
        done = case.get("status", "run") == "run" and case.get("result", "completed") == "completed"
        if done and all(case.find(problem) is None for problem in ("failure", "error", "skipped")):
            passed += 1
        else:
            failed += 1
    return passed, failed


def main(arguments):
    if len(arguments) != 2 or arguments[0] in ("-h", "--help"):
        print(__doc__.strip())
        return 0 if arguments and arguments[0] in ("-h", "--help") else 2
    junit, build = (pathlib.Path(argument) for argument in arguments)
    programs = set((build / "test-programs.txt").read_text(encoding="utf-8").split())
    passed = failed = 0
    for test in ElementTree.parse(junit).getroot().iter("testcase"):
        succeeded = test.get("status") == "run" and test.find("failure") is None and test.find("skipped") is None
        report = build / "test-reports" / f"{test.get('name')}.xml"
        if test.get("name") not in programs:
            passed, failed = passed + succeeded, failed + (not succeeded)
            continue
        inside = count_report(report) if report.exists() else (0, 0)
        passed, failed = passed + inside[0], failed + inside[1]
        # Ended by a signal, by its time limit, or with a code of its own; or nothing was in it.
        if (not succeeded and inside[1] == 0) or inside == (0, 0):
            failed += 1
    print(passed, failed)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
