#!/usr/bin/env python3
"""Compares an installed tree with contents.txt: prints every file that is missing or too many.

check_contents.py PREFIX LIBRARY_FOLDER BUILD_TYPE COMPONENT...
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def expected_files(library_folder, build_type, components):
    files = set()
    for line in (ROOT / "packaging" / "contents.txt").read_text(encoding="utf-8").split("\n"):
        if not line or line.startswith("#"):
            continue
        component, path = line.split(" ")
        path = path.replace("@LIB@", library_folder).replace("@TYPE@", build_type.lower())
        pattern = re.fullmatch(r"(.*)\{(.*)\}", path)
        names = [pattern[1] + file.name for file in ROOT.glob(pattern[2])] if pattern else [path]
        if component in components:
            files |= set(names)
    return files


def main():
    prefix, what, components = pathlib.Path(sys.argv[1]), sys.argv[2:4], sys.argv[4:]
    expected = expected_files(*what, components)
    found = {str(path.relative_to(prefix)) for path in prefix.rglob("*") if path.is_symlink() or not path.is_dir()}
    problems = [f"missing: {name}" for name in sorted(expected - found)]
    problems += [f"not expected: {name}" for name in sorted(found - expected)]
    problems += [] if expected else ["no file is expected"]
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
