"""Checks one promise of the built client library against what is checked in here.

check_client_library.py CHECK LIBRARY    (a check per function below; the library of any target, read with binutils)
check_client_library.py record LIBRARY   writes exports.txt anew, for changes that are meant
"""
import pathlib
import re
import subprocess
import sys

FOLDER = pathlib.Path(__file__).resolve().parent
TESTS = FOLDER.parent.parent
sys.path[:0] = [str(TESTS / "driver" / "abi"), str(TESTS.parent / "packaging")]
from check_hardening import dynamic_entries, segment_problems  # noqa: E402
from check_library import dynamic_symbols, run_check, soname_problems  # noqa: E402

EXPORTS = FOLDER / "exports.txt"
SONAME = "libplc_client.so.1"
NEEDED = {"libstdc++.so.6", "libgcc_s.so.1", "libc.so.6", "libm.so.6"}
LOADERS = re.compile(r"ld-linux[\w-]*\.so\.\d")
# What the package's dependencies promise.
NEWEST = {"GLIBC": (2, 34), "GLIBCXX": (3, 4, 30), "CXXABI": (1, 3, 13)}


def exported_names(library):
    mangled = {name for _, _, defined, name in dynamic_symbols(library) if defined and name != "PLC_CLIENT_1"}
    shown = subprocess.run(["c++filt"], input="\n".join(sorted(mangled)), check=True, text=True,
                           stdout=subprocess.PIPE).stdout
    return set(shown.split("\n")) - {""}


def check_exports(library):
    """The exported names, written out, are the checked-in ones."""
    found = exported_names(library)
    expected = set(EXPORTS.read_text(encoding="ascii").split("\n")) - {""}
    return [f"missing: {line}" for line in sorted(expected - found)] + \
           [f"not in exports.txt: {line}" for line in sorted(found - expected)]


def check_soname(library):
    """The library's own name carries its ABI version."""
    return soname_problems(library, SONAME)


def check_needed(library):
    """The libraries of C and C++ are all that it needs."""
    found = set(re.findall(r"\[(.*?)\]", " ".join(dynamic_entries(library, "NEEDED"))))
    others = {name for name in found - NEEDED if not LOADERS.fullmatch(name)}
    return [f"needed libraries: {sorted(others)}"] if others or "libstdc++.so.6" not in found else []


def check_hardening(library):
    """What programs promise holds for the library."""
    return list(segment_problems(library))


def check_versions(library):
    """No symbol of the libraries of C and C++ is newer than the oldest that the packages ask for."""
    problems = []
    versions = 0
    for _, _, defined, name in dynamic_symbols(library):
        match = re.search(r"@(GLIBC|GLIBCXX|CXXABI)_([\d.]+)", name)
        if not defined and match:
            versions += 1
            if tuple(int(part) for part in match[2].split(".")) > NEWEST[match[1]]:
                problems.append(f"{name} is newer than {match[1]}_{'.'.join(map(str, NEWEST[match[1]]))}")
    return problems if versions else ["no versioned symbol at all"]


def main():
    if len(sys.argv) == 3 and sys.argv[1] == "record":
        EXPORTS.write_text("".join(f"{name}\n" for name in sorted(exported_names(sys.argv[2]))), encoding="ascii")
        return 0
    return run_check(globals(), __doc__, sys.argv[1:])


if __name__ == "__main__":
    sys.exit(main())
