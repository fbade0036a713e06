#!/usr/bin/env python3
"""Holds the table of the guarded build's lines in docs/diagnostics.md to the texts that the guarded library alone has.

check_guard_lines.py CONTRACT_LIBRARY GUARDED_LIBRARY
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent.parent
PREFIX = "[PLC] guard: "
# What stands in the page for what is printed.
PLACES = {"%u": "[NM]", "%d": "[NM]", "%04X": "XXXX", "%s": ".+"}
LEAST_LINES = 20


def documented_lines():
    page = (ROOT / "docs" / "diagnostics.md").read_text(encoding="utf-8")
    section = page.split("\n## Lines of the guarded build\n")[1]
    return [line[len(PREFIX):] for line in re.findall(r"^\| `(.*?)` \|", section, re.M)]


def guarded_texts(contract, guarded):
    """Literals of the driver's sources that the guarded library holds and the other does not, as patterns."""
    texts = set()
    for source in sorted((ROOT / "src" / "plc_driver").rglob("*.[ch]*")):
        for literal in re.findall(r'"((?:[^"\\\n]|\\.)*)"', source.read_text(encoding="utf-8")):
            text = literal.encode().decode("unicode_escape")
            stored = text.encode() + b"\0"
            if " " in text.strip() and stored in guarded and stored not in contract and text != PREFIX:
                texts.add(text.removeprefix(PREFIX).removesuffix("\r\n"))
    return {"".join(PLACES.get(part, re.escape(part)) for part in re.split(r"(%u|%d|%04X|%s)", text)) for text in texts}


def main():
    contract, guarded = (pathlib.Path(name).read_bytes() for name in sys.argv[1:3])
    lines, patterns = documented_lines(), guarded_texts(contract, guarded)
    problems = [f"documented and not printed: {line}" for line in lines
                if not any(re.fullmatch(pattern, line) for pattern in patterns)]
    problems += [f"printed and not documented: {pattern}" for pattern in sorted(patterns)
                 if not any(re.search(pattern, PREFIX + line) for line in lines)]
    if len(lines) < LEAST_LINES:
        problems.append(f"only {len(lines)} lines documented")
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
