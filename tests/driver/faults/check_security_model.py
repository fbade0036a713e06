#!/usr/bin/env python3
"""Checks docs/security_model.md: every invariant names code, tests and fuzz targets that exist.

check_security_model.py PROJECT_FOLDER
"""
import pathlib
import re
import sys


def problems_of(root):
    text = (root / "docs/security_model.md").read_text(encoding="utf-8")
    sections = [section for section in re.split(r"^### ", text, flags=re.M)[1:] if re.match(r"[SP]\d", section)]
    numbers = [section.split(" ")[0] for section in sections]
    of_driver = sum(number.startswith("S") for number in numbers)
    expected = [f"S{number}" for number in range(1, of_driver + 1)]
    expected += [f"P{number}" for number in range(1, len(numbers) - of_driver + 1)]
    if numbers != expected:
        yield f"the invariants are numbered {' '.join(numbers)}"
    if of_driver < 10 or of_driver == len(numbers):
        yield "too few invariants: has the layout of the page changed?"
    for number, section in zip(numbers, sections):
        for kind in ("Held by", "Checked by"):
            line = re.search(rf"^{kind}: (.*?)(\n\n|\Z)", section, re.M | re.S)
            names = re.findall(r"`([^`]+/[^`]+)`", line[1]) if line else []
            if not names:
                yield f"{number}: '{kind}:' names no file"
            for name in names:
                if not (root / name).exists():
                    yield f"{number}: {name} does not exist"


def main():
    problems = list(problems_of(pathlib.Path(sys.argv[1])))
    for problem in problems:
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
