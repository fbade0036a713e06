"""Changed copies of the driver's files, compiled one at a time and linked with the test objects of a build.

Used by scripts/mutants and scripts/planted_faults: neither touches the project's files nor the build's objects.
"""

import json
import os
import pathlib
import re
import shlex
import subprocess
from concurrent.futures import ThreadPoolExecutor

ROOT = pathlib.Path(__file__).resolve().parent.parent
# The two builds of the driver by their archives, and the object libraries that each is made of: the first is shared.
BUILDS = {
    "src/libplc_driver.a": ("plc_driver_objects", "plc_driver_by_order_objects"),
    "src/guarded/libplc_driver.a": ("plc_driver_objects", "plc_driver_guarded_objects",
                                    "plc_driver_guarded_small_objects"),
}
OBJECT_LIBRARIES = sorted({library for libraries in BUILDS.values() for library in libraries})
# Where the guarded exchange lies.
GUARDED_FILES = re.compile(r"src/plc_driver/(protocol/\w+/(transaction_guarded|reply_rules|exchange|directory)"
                           r"|host/(batch_limits|program_choice)|guard_lines)\.(cpp|h)")
# The slow tests of files that are not the driver's.
LEFT_OUT = "CalcFileMd5.*:EvSleep*"


def differing_tests():
    """Tests that the guarded build has others for, as a filter of test programs names them."""
    rows = (ROOT / "tests" / "driver" / "guarded_differences.csv").read_text().split("\n")
    columns = [row.split(",") for row in rows if row and not row.startswith("#")]
    return "".join(f":{test}" for test, counterpart, *_ in columns if counterpart != "itself")


def whole_run(program):
    """Arguments of a test program for all of its tests that concern the driver; of a replay, its corpus."""
    if str(program).startswith("fuzz/"):
        return [str(ROOT / "fuzz" / "corpus" / pathlib.Path(program).name.removesuffix("_fuzz"))]
    others = differing_tests() if str(program).endswith("_guarded") else ""
    return ["--gtest_fail_fast", f"--gtest_filter=-{LEFT_OUT}{others}"]


def test_runs(name, programs):
    """Program and arguments of all runs: the tests of this source file in each program, then all of the driver's."""
    stem = pathlib.Path(name).stem
    suites = {suite for path in (ROOT / "tests").rglob(f"*{stem}*_test.cpp")
              for suite in re.findall(r"^TEST(?:_F|_P)?\((\w+),", path.read_text(), re.M)}
    wanted = ":".join(f"{suite}.*" for suite in sorted(suites))
    near = []
    for program in programs if suites else ():
        if program.startswith("fuzz/"):
            continue
        others = "-" + differing_tests()[1:] if str(program).endswith("_guarded") else ""
        near.append((program, ["--gtest_fail_fast", f"--gtest_filter={wanted}{others}"]))
    return near + [(program, whole_run(program)) for program in programs]


class BuildError(Exception):
    """A file that does not compile or a program that does not link."""


def run(command, folder=ROOT, seconds=None, settings=None):
    """Exit code and output; None in place of the code when the time ran out."""
    try:
        done = subprocess.run(command, cwd=folder, env={**os.environ, **(settings or {})}, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=seconds, check=False)
        return done.returncode, done.stdout.decode(errors="replace")
    except subprocess.TimeoutExpired as expired:
        return None, (expired.stdout or b"").decode(errors="replace")


def demand(command, folder=ROOT):
    code, output = run(command, folder)
    if code != 0:
        raise BuildError(f"{shlex.join(map(str, command))[:200]}\n{output[-3000:]}")
    return output


def build(folder, options, targets):
    """Configures and builds targets of the project, with the compiler cache where there is one."""
    settings = {"CCACHE_BASEDIR": str(ROOT), "CCACHE_NOHASHDIR": "1"}
    run(["cmake", "-E", "make_directory", str(folder)])
    launchers = []
    if run(["ccache", "--version"])[0] == 0:
        launchers = ["-DCMAKE_C_COMPILER_LAUNCHER=ccache", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
    for command in (["cmake", "-S", str(ROOT), "-B", str(folder), "-G", "Ninja", "-Wno-dev",
                     "-DPLC_BUILD_TOOLS=ON", "-DPLC_BUILD_TESTS=ON", "-DPLC_UNOPTIMIZED_TOOLS=ON",
                     "-DPLC_UNOPTIMIZED_TESTS=ON", *options, *launchers],
                    ["cmake", "--build", str(folder), f"-j{os.cpu_count()}", "--target", *targets]):
        code, output = run(command, settings=settings)
        if code != 0:
            raise BuildError(output[-4000:])


class Variant:
    """The driver with other compiler flags, and with changed files laid over the project's."""

    def __init__(self, build_dir, work_dir, flags=(), without=(), base=None):
        self.build = build_dir
        self.work = work_dir
        self.base = base or work_dir / "base"  # where the unchanged driver's objects lie
        self.flags = list(flags)
        self.without = set(without) | {"-Werror", "ccache", "/usr/bin/ccache"}
        self.overlay = work_dir / "overlay"
        self.commands = {}
        self.link_lines = {}
        for entry in json.loads((build_dir / "compile_commands.json").read_text()):
            command = shlex.split(entry["command"])
            output = command[command.index("-o") + 1]
            self.commands[output] = (command, pathlib.Path(entry["file"]))
        self.users = self._read_dependencies()
        self.library_objects = {library: sorted(output for output in self.commands
                                                if output.startswith(f"src/CMakeFiles/{library}.dir/"))
                                for library in OBJECT_LIBRARIES}
        self.driver_objects = sorted(output for outputs in self.library_objects.values() for output in outputs)

    def _read_dependencies(self):
        """For each of the project's files the objects that are made of it."""
        users = {}
        output = ""
        for line in demand(["ninja", "-t", "deps"], self.build).split("\n"):
            match = re.match(r"(\S+): #deps", line)
            if match:
                output = match[1]
            elif line.startswith(" "):
                path = os.path.normpath(self.build / line.strip())
                users.setdefault(path, set()).add(output)
        return users

    def _read_link_line(self, program):
        line = shlex.split(demand(["ninja", "-t", "commands", program], self.build).rstrip().split("\n")[-1])
        return line[2:line.index("&&", 2)]  # ": && link && what CMake does with the program"

    def compile(self, output, folder, overlay=None):
        """Compiles one object of the build into a folder, with the overlay's files in front of the project's."""
        command, source = self.commands[output]
        target = folder / output
        target.parent.mkdir(parents=True, exist_ok=True)
        line = [word for word in command if word not in self.without]
        if output in self.driver_objects:
            line += self.flags
        if overlay is not None:
            changed = overlay / source.relative_to(ROOT)
            line.insert(1, f"-I{overlay / 'src'}")
            line[line.index("-c") + 1] = str(changed if changed.exists() else source)
        line[line.index("-o") + 1] = str(target)
        demand(line, self.build)
        return target

    def compile_driver(self):
        """All objects of the unchanged driver that are older than what they are made of."""
        def is_old(output):
            made = self.base / output
            files = [path for path, users in self.users.items() if output in users]
            return not made.exists() or any(os.path.getmtime(path) > made.stat().st_mtime for path in files)

        with ThreadPoolExecutor(os.cpu_count()) as pool:
            list(pool.map(lambda output: self.compile(output, self.base), filter(is_old, self.driver_objects)))

    def change(self, name, text):
        """Lays a changed file over the project's and compiles what the driver makes of it, and a header's own tests.

        Returns the objects by their names. Other tests keep what they took from an unchanged header.
        """
        own_tests = f"/{pathlib.Path(name).stem}_test.cpp.o"
        changed = self.overlay / name
        changed.parent.mkdir(parents=True, exist_ok=True)
        changed.write_text(text)
        try:
            outputs = sorted(output for output in self.users.get(str(ROOT / name), ())
                             if output in self.driver_objects or output.endswith(own_tests))
            with ThreadPoolExecutor(os.cpu_count()) as pool:
                objects = pool.map(lambda output: self.compile(output, self.work / "changed", self.overlay), outputs)
                return dict(zip(outputs, objects))
        finally:
            changed.unlink()

    def _link_line(self, program):
        if program not in self.link_lines:
            self.link_lines[program] = self._read_link_line(program)
        return self.link_lines[program]

    def objects_of(self, program):
        """The driver's objects that a program holds: those of the build whose archive it is linked with."""
        return [output for archive in BUILDS if archive in self._link_line(program)
                for library in BUILDS[archive] for output in self.library_objects[library]]

    def concerns(self, name, program):
        """Whether a program holds anything that is made of this file of the project."""
        return not self.users.get(str(ROOT / name), set()).isdisjoint(self.objects_of(program))

    def link(self, program, changed, link_flags):
        """Links a program of the build with the driver's objects of this variant, changed ones in place of the base."""
        line = [word for word in self._link_line(program) if word not in BUILDS and word not in self.without]
        objects = [str(changed.get(output, self.base / output)) for output in self.objects_of(program)]
        line = [str(changed.get(word, word)) for word in line]
        target = self.work / pathlib.Path(program).name
        line[line.index("-o") + 1] = str(target)
        demand([line[0], *link_flags, *objects, *line[1:]], self.build)
        return target
