"""Faults planted in the programs: a copy of the project with one of them at a time, built with the sanitizers.

Used by scripts/planted_faults for the patches that change no file of the driver.
"""

import os
import pathlib
import re
import shutil

from driver_variants import ROOT, BuildError, demand, run

# In the order in which they are asked: what the fuzzers have found before, then the tests of the rooms.
REPLAYS = ("shown_text", "wire_names", "judgement", "capture", "tag_check", "client_tags", "client_values",
           "client_names", "driver_lines", "sim_tags", "console", "page", "controller", "why", "simulator",
           "profile", "gateway_command")
TESTS = {"base/": ("base",), "profile/": ("profile",), "wire/": ("wire", "simulator"),
         "tag_check/": ("tag_check",), "client/": ("client",), "tools/plc_sim/": ("simulator",),
         "tools/plc_host/": ("host",), "tools/plc_gateway/": ("gateway",)}
TEST_SECONDS = 240
FUZZ_SECONDS = 60
SETTINGS = {"ASAN_OPTIONS": "strict_string_checks=1"}


class ProgramFaults:
    """A copy of the project's files and its builds; one fault at a time."""

    def __init__(self, work, fuzzers_alone, symptom):
        self.tree = work / "tree"
        self.build_dir = work / ("program-fuzzers" if fuzzers_alone else "program-tests")
        self.fuzzers_alone = fuzzers_alone
        self.symptom = symptom
        self.copy_files()
        flags = [] if fuzzers_alone else ["-DPLC_SANITIZE=address,undefined"]
        demand(["cmake", "-S", str(self.tree), "-B", str(self.build_dir), "-G", "Ninja", "-Wno-dev",
                "-DCMAKE_C_COMPILER=clang", "-DCMAKE_CXX_COMPILER=clang++", "-DCMAKE_BUILD_TYPE=Debug",
                "-DCMAKE_CXX_FLAGS_DEBUG=-O1 -g1", "-DPLC_BUILD_TOOLS=ON",
                f"-DPLC_BUILD_FUZZ={'ON' if fuzzers_alone else 'OFF'}",
                f"-DPLC_BUILD_TESTS={'OFF' if fuzzers_alone else 'ON'}", *flags])
        self.build(self.fuzzers())

    @staticmethod
    def fuzzers():
        return [f"{target}_fuzz" for target in REPLAYS]

    def copy_files(self):
        for name in demand(["git", "ls-files", "--cached", "--others", "--exclude-standard"]).splitlines():
            source, copy = ROOT / name, self.tree / name
            if source.is_file() and not (copy.is_file() and copy.read_bytes() == source.read_bytes()):
                copy.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(source, copy)

    def build(self, targets):
        demand(["cmake", "--build", str(self.build_dir), f"-j{os.cpu_count()}", "--target", *targets])

    def by_replay(self):
        for target in REPLAYS:
            code, output = run([str(self.build_dir / "fuzz" / f"{target}_fuzz"),
                                str(ROOT / "fuzz" / "corpus" / target)], seconds=TEST_SECONDS, settings=SETTINGS)
            if code != 0:
                return f"replay of {target}: {self.symptom(code, output)}"
        return None

    def by_tests(self, name):
        kinds = next(kinds for room, kinds in TESTS.items() if name.startswith(room))
        self.build([f"{kind}_tests" for kind in kinds])
        for kind in kinds:
            program = next(self.build_dir.glob(f"tests/**/{kind}_tests"))
            code, output = run([str(program), "--gtest_fail_fast"], seconds=TEST_SECONDS, settings=SETTINGS)
            if code != 0:
                failed = (re.findall(r"\[  FAILED  \] ([\w./]+)", output) or
                          re.findall(r"\[ RUN      \] ([\w./]+)", output))
                return f"{program.name} {failed[-1] if failed else ''}: {self.symptom(code, output)}"
        return None

    def by_fuzzers(self):
        scratch = self.build_dir / "scratch"
        for target in REPLAYS:
            shutil.rmtree(scratch, ignore_errors=True)
            scratch.mkdir()
            code, output = run([str(self.build_dir / "fuzz" / f"{target}_fuzz"), "-seed=1", "-timeout=10",
                                "-entropic=0", f"-max_total_time={FUZZ_SECONDS}", "-max_len=64", "-print_final_stats=1",
                                f"-artifact_prefix={scratch}/", str(scratch)], seconds=2 * FUZZ_SECONDS)
            if code != 0:
                runs = re.findall(r"number_of_executed_units: (\d+)", output) or ["?"]
                return f"fuzzer {target}, {runs[0]} runs: {self.symptom(code, output)}"
        return None

    def find(self, patch):
        """What finds this fault, or None."""
        name = re.search(r"^\+\+\+ b/(\S+)$", patch.read_text(), re.M)[1]
        copy = pathlib.Path(self.tree / name)
        demand(["patch", "-p1", "--fuzz=0", "--no-backup-if-mismatch", "-i", str(patch)], self.tree)
        try:
            self.build(self.fuzzers())
            return self.by_fuzzers() if self.fuzzers_alone else self.by_replay() or self.by_tests(name)
        except BuildError as error:
            raise BuildError(f"{patch.name}: {error}") from error
        finally:
            shutil.copy(ROOT / name, copy)
            os.utime(copy)


def is_of_programs(patch):
    return not re.search(r"^\+\+\+ b/src/", patch.read_text(), re.M)
