#!/usr/bin/env python3
"""Compares the loaded driver with the reference model on random tag files, host calls and replies."""

import argparse
import os
import sys
import tempfile
import time

import loaded_driver
from call_generator import Case
from case_runner import CaseRunner, Mismatch, clear_folder
from guarded_calls import GuardedCase
from scripted_peer import ScriptedPeer

KINDS = ("read", "write", "batch", "mixed")


class Suite:
    """Runs cases one after the other in this process."""

    def __init__(self, library, progress, build, waiting, minimises=True):
        self.is_guarded, self.waiting = build == "guarded", waiting
        self.minimises = minimises
        self.console = loaded_driver.Console()
        self.out = self.console.own
        self.library = os.path.abspath(library)
        self.progress = progress
        self.folder = tempfile.mkdtemp(prefix="plc_model_", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
        os.chdir(self.folder)
        self.runner = CaseRunner(self.library, ScriptedPeer(), self.console, loaded_driver.HostMemory(), self.folder,
                                 self.is_guarded)

    def differs(self, case):
        """The difference that a case shows, None when there is none."""
        try:
            self.runner.run(case)
        except Mismatch as mismatch:
            self.console.take()
            return str(mismatch)
        return None

    def minimise(self, case):
        """Leaves out operations and tag lines as long as a difference remains."""
        def still_differs(shorter):
            self.out.flush()
            return self.differs(shorter) is not None

        at = len(case.operations)
        while at > 0:
            at -= 1
            removed = case.operations.pop(at)
            if not still_differs(case):
                case.operations.insert(at, removed)
        for area in list(case.files):
            lines = (case.files[area] or b"").splitlines(True)
            at = len(lines) if len(lines) < 200 else 0
            while at > 0:
                at -= 1
                kept = lines[:at] + lines[at + 1:]
                case.files[area] = b"".join(kept)
                if still_differs(case):
                    lines = kept
            if lines:
                case.files[area] = b"".join(lines)
        return case

    def report(self, case, found):
        waiting = f" --waiting {self.waiting}" if self.is_guarded else ""
        print(f"MISMATCH --kind {case.kind} --seed {case.seed} --cases 1{waiting}\n{found}", file=self.out)
        if not self.minimises:
            return
        case = self.minimise(case)
        found = self.differs(case)
        print("minimised:", file=self.out)
        for area, content in case.files.items():
            print(f"  tag file of area {area}:", file=self.out)
            for line in (content or b"").splitlines(True):
                print(f"    {line!r}", file=self.out)
        print(f"  socket_fd before: {case.first_fd}", file=self.out)
        for operation in case.operations:
            print(f"  {operation.show()}", file=self.out)
        print(found, file=self.out)

    def run(self, kind, first, count, most_reports):
        """Runs the cases of one kind. Returns the number of differences."""
        differences = 0
        for seed in range(first, first + count):
            os.pwrite(self.progress, f"{kind} {seed}\n".ljust(64).encode(), 0)
            case = GuardedCase(seed, kind, self.waiting) if self.is_guarded else Case(seed, kind)
            found = self.differs(case)
            if found:
                differences += 1
                self.report(case, found)
                if differences >= most_reports:
                    break
        return differences


def run_child(arguments, progress):
    from pure_checks import PureChecks
    build = arguments.build or loaded_driver.build_of(os.path.abspath(arguments.library))
    suite = Suite(arguments.library, progress, build, arguments.waiting, not arguments.brief)
    out = suite.out
    print(f"compared with the rules of the {build} build", file=out)
    differences = 0
    if arguments.tags_only or arguments.kind in ("tags", "all"):
        driver = loaded_driver.LoadedDriver(suite.library)
        started = time.monotonic()
        checks = PureChecks(driver, suite.console, suite.folder, progress)
        differences += checks.run(arguments.seed, arguments.cases, arguments.reports)
        driver.unload()
        print(f"tags: {arguments.cases} cases from seed {arguments.seed}, {checks.count} checks, "
              f"{time.monotonic() - started:.1f} s", file=out)
    kinds = () if arguments.tags_only or arguments.kind == "tags" else (arguments.kind,)
    for kind in KINDS if arguments.kind == "all" and not arguments.tags_only else kinds:
        started, before = time.monotonic(), suite.runner.calls
        differences += suite.run(kind, arguments.seed, arguments.cases, arguments.reports)
        seconds, calls = time.monotonic() - started, suite.runner.calls - before
        print(f"{kind}: {arguments.cases} cases from seed {arguments.seed}, {calls} calls, {seconds:.1f} s, "
              f"{calls / max(seconds, 0.001):.0f} calls/s", file=out)
    clear_folder(suite.folder)
    os.rmdir(suite.folder)
    print(f"{differences} differences", file=out)
    out.flush()
    return 1 if differences else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("library", help="path of libplc_driver.so.1")
    parser.add_argument("--cases", type=int, default=1000)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--kind", choices=KINDS + ("tags", "all"), default="mixed")
    parser.add_argument("--build", choices=("contract", "guarded"), help="whose rules hold; else the library is asked")
    parser.add_argument("--waiting", type=float, default=0.001,
                        help="share of the transfers that wait a second for a reply, guarded build")
    parser.add_argument("--tags-only", action="store_true", help="only the tag-file and pure functions")
    parser.add_argument("--reports", type=int, default=5, help="differences after which a kind ends")
    parser.add_argument("--brief", action="store_true", help="do not minimise what differs")
    arguments = parser.parse_args()
    progress = os.memfd_create("progress")
    child = os.fork()
    if child == 0:
        code = 3
        try:
            code = run_child(arguments, progress)
        except Exception:
            import traceback
            traceback.print_exc()
        finally:
            os._exit(code)
    _, status = os.waitpid(child, 0)
    if os.WIFSIGNALED(status):
        at = os.pread(progress, 64, 0).decode().split()
        print(f"CRASH with signal {os.WTERMSIG(status)}: --kind {at[0]} --seed {at[1]} --cases 1")
        return 2
    return os.WEXITSTATUS(status)


if __name__ == "__main__":
    sys.exit(main())
