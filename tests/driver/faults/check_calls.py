#!/usr/bin/env python3
"""Checks that every function the library takes from the C library either is made to fail by the tests or cannot fail.

check_calls.py LIBRARY CALLS_FILE --nm NM
"""
import argparse
import pathlib
import subprocess
import sys

# Functions without a failure that the driver could meet: they work on memory and text alone, end the process, or only
# report what was asked for before.
CANNOT_FAIL = {
    "__errno_location": "address of errno",
    "__stack_chk_fail": "ends the process",
    "__cxa_finalize": "called by the loader's hooks",
    "clock_gettime": "of a clock that every system has, into a variable",
    "exit": "ends the process",
    "fflush": "its result is not looked at, output already failed or not",
    "getauxval": "reads what the kernel gave at the start",
    "inet_addr": "text to number; the driver forms the text",
    "inet_ntoa": "number to text",
    "raise": "of the compiler's division on ARM; every divisor is tested before",
    "rewind": "has no result; a stream that cannot seek was refused before",
    "snprintf": "into an array", "vsnprintf": "into an array",
    "srand": "sets a number",
    "stdout": "a variable",
    "bcmp": "", "memchr": "", "memcmp": "", "memcpy": "", "memmove": "", "memrchr": "", "memset": "",
    "strchr": "", "strcmp": "", "strlen": "", "strncmp": "", "strnlen": "", "strncpy": "", "strrchr": "", "strtol": "",
    "putchar": "output of one character, as fputs",
}
# Another name of the same call, as the compiler or the width of the target chooses.
SAME = {"lseek": "lseek64", "open": "open64", "fseeko": "fseeko64", "ftello": "ftello64", "fcntl64": "fcntl"}
# What sanitizers, profilers and compilers put in.
FOREIGN_PREFIXES = ("_ITM_", "__gmon_start__", "__asan", "__ubsan", "__aeabi", "__gnu_", "__llvm", "__tsan", "__gcov")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("library")
    parser.add_argument("calls")
    parser.add_argument("--nm", default="nm")
    arguments = parser.parse_args()
    listed = subprocess.run([arguments.nm, "-D", "--undefined-only", arguments.library], check=True, text=True,
                            stdout=subprocess.PIPE).stdout
    taken = {line.split()[-1].split("@")[0] for line in listed.splitlines() if line.split()}
    made_to_fail = set(pathlib.Path(arguments.calls).read_text(encoding="utf-8").split())
    unknown = sorted(name for name in taken
                     if SAME.get(name, name) not in made_to_fail and name not in CANNOT_FAIL
                     and not name.startswith(FOREIGN_PREFIXES))
    for name in unknown:
        print(f"{name}: the library calls it; make it fail in tests/driver/faults or say why it cannot")
    if len(taken & made_to_fail) < 30:
        print(f"only {len(taken & made_to_fail)} known calls found in {arguments.library}: is this the library?")
        return 1
    return 1 if unknown else 0


if __name__ == "__main__":
    sys.exit(main())
