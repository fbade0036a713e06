#!/usr/bin/env python3
"""Holds the tables of docs/diagnostics.md to the texts in the two builds of the driver.

check_driver_lines.py CONTRACT_LIBRARY GUARDED_LIBRARY
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent.parent
PREFIX = "[PLC] guard: "
# What stands in the page for what is printed.
PLACES = {"%u": "[NM]", "%d": "[NM]", "%04X": "XXXX", "%s": ".+"}
LEAST_LINES = 20
# Of the driver's literals: its name, which no line holds.
NO_LINES = (" contract", " guarded")
# A memory dump that hosts ask for, a separate function.
DUMP = ("%p (%04d) :\t", "%02x ")


def documented_texts(page, heading):
    """The first column of the tables under a heading; several texts can share a row."""
    section = page.split(f"\n## {heading}\n")[1].split("\n## ")[0] if heading else page.split("\n## ")[0]
    return [text for row in re.findall(r"^\| (`.*?) \|", section, re.M) for text in re.findall(r"`(.*?)`", row)]


def driver_texts():
    """Literals of the driver's sources that could be lines or parts of lines."""
    for source in sorted((ROOT / "src" / "plc_driver").rglob("*.[ch]*")):
        for literal in re.findall(r'"((?:[^"\\\n]|\\.)*)"', source.read_text(encoding="utf-8")):
            text = literal.encode().decode("unicode_escape")
            if (" " in text.strip() or "--" in text) and text not in NO_LINES + DUMP:
                yield text


def is_stored(text, library):
    return text.encode() + b"\0" in library


def pattern_of(text):
    return "".join(PLACES.get(part, re.escape(part)) for part in re.split(r"(%u|%d|%04X|%s)", text))


def guarded_problems(lines, contract, guarded):
    lines = [line.removeprefix(PREFIX) for line in lines]
    patterns = {pattern_of(text.removeprefix(PREFIX).removesuffix("\r\n")) for text in driver_texts()
                if is_stored(text, guarded) and not is_stored(text, contract) and text != PREFIX}
    problems = [f"documented and not printed: {line}" for line in lines
                if not any(re.fullmatch(pattern, line) for pattern in patterns)]
    problems += [f"printed and not documented: {pattern}" for pattern in sorted(patterns)
                 if not any(re.search(pattern, PREFIX + line) for line in lines)]
    if len(lines) < LEAST_LINES:
        problems.append(f"only {len(lines)} lines of the guarded build documented")
    return problems


def contract_problems(lines, contract):
    """Compilers share the end of a text with that of a longer one: a text is looked for with its zero alone."""
    patterns = {re.sub(r"%d|%u", "[0-9N]+", re.sub(r"%s", ".+", re.escape(text.rstrip("\r\n"))))
                for text in driver_texts() if is_stored(text, contract)}
    problems = [f"printed and not documented: {pattern}" for pattern in sorted(patterns)
                if not any(re.fullmatch(pattern.rstrip("\\ "), line.rstrip()) for line in lines)]
    return problems if len(patterns) >= LEAST_LINES else problems + [f"only {len(patterns)} texts found"]


def main():
    contract, guarded = (pathlib.Path(name).read_bytes() for name in sys.argv[1:3])
    page = (ROOT / "docs" / "diagnostics.md").read_text(encoding="utf-8")
    problems = guarded_problems(documented_texts(page, "Lines of the guarded build"), contract, guarded)
    problems += contract_problems(documented_texts(page, "") + documented_texts(page, "Why a tag file is rejected"),
                                  contract)
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
