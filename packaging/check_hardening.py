#!/usr/bin/env python3
"""Checks that programs are built so that a slip in reading what strangers wrote does not become their code.

check_hardening.py [--fortified] PROGRAM...               programs and libraries of any target, read with binutils
check_hardening.py [--fortified] --sources BUILD_FOLDER   how each of their sources is compiled there

--fortified: also that calls which name the size of an array are checked, as optimised builds have it. Libraries that
are linked in can hide in a program that its own sources lack it.
"""
import json
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
ROOMS = {"base", "profile", "wire", "client", "tag_check", "tools"}


def readelf(*arguments):
    return subprocess.run(["readelf", "-W", *arguments], check=True, text=True, stdout=subprocess.PIPE).stdout


def dynamic_entries(file, tag):
    return re.findall(rf"\({tag}\)\s+(.*)", readelf("-d", file))


def imported_names(file):
    rows = (line.split() for line in readelf("--dyn-syms", file).split("\n"))
    return {row[7].split("@")[0] for row in rows if len(row) >= 8 and row[6] == "UND"}


def segment_problems(file):
    """What holds for programs and libraries alike."""
    headers = readelf("-l", file)
    if "GNU_RELRO" not in headers:
        yield "no RELRO segment"
    if not any("NOW" in flags for flags in dynamic_entries(file, "FLAGS") + dynamic_entries(file, "FLAGS_1")):
        yield "symbols are not bound at load"
    stack = re.search(r"GNU_STACK.*", headers)
    if stack is None or "E" in stack[0].split()[-2]:
        yield "the stack would be executable"
    if dynamic_entries(file, "TEXTREL"):
        yield "the text would be written at load"
    if any(re.search(r"\sRWE\s", line) for line in headers.split("\n") if "LOAD" in line):
        yield "a segment is writable and executable"
    if not any(name.startswith("__stack_chk_fail") for name in imported_names(file)):
        yield "no stack protector"
    if dynamic_entries(file, "RPATH") or dynamic_entries(file, "RUNPATH"):
        yield "it names folders of the machine that built it"


def program_problems(file, is_fortified):
    yield from segment_problems(file)
    is_library = bool(dynamic_entries(file, "SONAME"))
    if not is_library and not any("PIE" in flags for flags in dynamic_entries(file, "FLAGS_1")):
        yield "it lies where it was linked: no position-independent program"
    if is_fortified and not any(re.fullmatch(r"__\w+_chk", name) for name in imported_names(file)):
        yield "no call is checked against the size of its array"


def room_of(source, build):
    """The first folder of a source of the project, or of one that the build makes for it."""
    for folder in (build, ROOT):
        if folder in source.parents:
            return source.relative_to(folder).parts[0]
    return ""


def source_problems(build, is_fortified):
    wanted = {"stack protector": r"-fstack-protector-strong", "code for any address": r"-fPI[CE]"}
    if is_fortified:
        wanted["checks of array sizes"] = r"(-Wp,)?-D_FORTIFY_SOURCE=[23]"
    found = 0
    for entry in json.loads((build / "compile_commands.json").read_text(encoding="utf-8")):
        source = pathlib.Path(entry["directory"], entry["file"])
        if room_of(source, build) not in ROOMS:
            continue
        found += 1
        words = shlex.split(entry["command"])
        yield from (f"{source}: compiled without {what}" for what, pattern in wanted.items()
                    if not any(re.fullmatch(pattern, word) for word in words))
    if found == 0:
        yield f"{build}: no source of a program is compiled there"


def main():
    is_fortified = "--fortified" in sys.argv
    words = [word for word in sys.argv[1:] if word != "--fortified"]
    if not words:
        print(__doc__, file=sys.stderr)
        return 2
    if words[0] == "--sources":
        problems = list(source_problems(pathlib.Path(words[1]).resolve(), is_fortified))
    else:
        problems = [f"{program}: {problem}" for program in words
                    for problem in program_problems(program, is_fortified)]
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
