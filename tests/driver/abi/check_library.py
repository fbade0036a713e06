"""Checks one promise of the built library against what is checked in here.

check_library.py CHECK LIBRARY   (a check per function below; the library of any target, read with binutils)
"""
import pathlib
import re
import subprocess
import sys

FOLDER = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(FOLDER.parent.parent.parent / "packaging"))
from check_hardening import dynamic_entries, readelf, segment_problems  # noqa: E402
SONAME = "libplc_driver.so.1"
# Panels with a C library of 2012 load the driver.
NEWEST_GLIBC = (2, 17)
VERSION_NODES = ("PLC_DRIVER_1", "PLC_DRIVER_1_1", "PLC_DRIVER_1_2", "PLC_DRIVER_PRIVATE")


def dynamic_symbols(library):
    """(type, binding, defined, name with version) of every dynamic symbol."""
    for line in readelf("--dyn-syms", library).split("\n"):
        fields = line.split()
        if len(fields) >= 8 and fields[0].rstrip(":").isdigit():
            name = next((field for field in fields[7:] if not field.startswith(("[", "("))), "")
            yield fields[3], fields[4], fields[6] != "UND", name


def soname_problems(library, soname):
    found = dynamic_entries(library, "SONAME")
    return [] if len(found) == 1 and f"[{soname}]" in found[0] else [f"soname: {found}"]


def check_exports(library):
    """The exported names, each in its version node, are the checked-in ones."""
    expected = set((FOLDER / "exports.txt").read_text(encoding="ascii").split("\n")) - {""}
    found = set()
    for kind, _, defined, name in dynamic_symbols(library):
        if defined and "@@" in name and name.split("@@")[0] not in VERSION_NODES:
            symbol, node = name.split("@@")
            found.add(f"{node} {'object' if kind == 'OBJECT' else 'function'} {symbol}")
        elif defined and kind != "SECTION" and "@" not in name and not name.startswith("PLC_DRIVER_"):
            found.add(f"(no version) {name}")
    return [f"missing: {line}" for line in sorted(expected - found)] + \
           [f"not in exports.txt: {line}" for line in sorted(found - expected)]


def check_soname(library):
    """The library's own name carries its ABI version."""
    return soname_problems(library, SONAME)


def check_needed(library):
    """The C library is all that the driver needs."""
    found = re.findall(r"\[(.*?)\]", " ".join(dynamic_entries(library, "NEEDED")))
    return [] if found == ["libc.so.6"] else [f"needed libraries: {found}"]


def check_hardening(library):
    """What programs promise holds for the library, and a host cannot capture its calls."""
    problems = list(segment_problems(library))
    if not any("SYMBOLIC" in flags for flags in dynamic_entries(library, "FLAGS")) and \
            not dynamic_entries(library, "SYMBOLIC"):
        problems.append("the library's own calls can be captured by a host")
    return problems


def check_glibc(library):
    """No symbol of the C library is newer than the oldest panel's."""
    problems = []
    versions = 0
    for _, _, defined, name in dynamic_symbols(library):
        match = re.search(r"@GLIBC_([\d.]+)", name)
        if not defined and match:
            versions += 1
            if tuple(int(part) for part in match[1].split(".")) > NEWEST_GLIBC:
                problems.append(f"{name} is newer than GLIBC_{'.'.join(map(str, NEWEST_GLIBC))}")
    return problems if versions else ["no versioned symbol at all"]


def check_abi(library):
    """The types and functions of the public headers equal the recorded description (abi.xml)."""
    headers = FOLDER.parent.parent.parent / "include"
    done = subprocess.run(["abidiff", "--headers-dir2", str(headers), "--drop-private-types", "--no-architecture",
                           str(FOLDER / "abi.xml"), library], text=True, check=False, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT)
    return [] if done.returncode == 0 else done.stdout.strip().split("\n")


def run_check(checks, usage, arguments):
    """Runs the check_NAME of checks on a library, both named by the arguments; returns the exit code."""
    if len(arguments) != 2 or f"check_{arguments[0]}" not in checks:
        print(usage, file=sys.stderr)
        return 2
    problems = checks[f"check_{arguments[0]}"](arguments[1])
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(run_check(globals(), __doc__, sys.argv[1:]))
