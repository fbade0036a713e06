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
LITERAL = r'"((?:[^"\\\n]|\\.)*)"'
# Of the driver's literals: its name, which no line holds.
NO_LINES = (" contract", " guarded")
# A memory dump that hosts ask for, a separate function.
DUMP = ("%p (%04d) :\t", "%02x ")


def documented_texts(page, heading):
    """The first column of the tables under a heading; several texts can share a row."""
    section = page.split(f"\n## {heading}\n")[1].split("\n## ")[0]
    return [text for row in re.findall(r"^\| (`.*?) \|", section, re.M) for text in re.findall(r"`(.*?)`", row)]


def literals_of(code):
    return [literal.encode().decode("unicode_escape") for literal in re.findall(LITERAL, code)]


def printed_pieces(code):
    """The lines that functions print in several pieces: the text with %s for each variable, and its literals."""
    for body in re.findall(r"^void print_\w+\([^)]*\) \{([^{}]*)\}", code, re.M):
        pieces = re.findall(rf"print_(?:text|line|numbers)\((?:{LITERAL}|\w+)", body)
        if len(pieces) > 1:
            literals = literals_of(body)
            yield "".join(literals_of(f'"{piece}"')[0] if piece else "%s" for piece in pieces), literals


def driver_texts():
    """Literals of the driver's sources that could be lines or parts of lines, put together where one function prints
    them one behind the other; each with the literals that it is made of."""
    for source in sorted((ROOT / "src" / "plc_driver").rglob("*.[ch]*")):
        code = source.read_text(encoding="utf-8")
        together = list(printed_pieces(code))
        parts = {literal for _, literals in together for literal in literals}
        single = [(text, [text]) for text in literals_of(code) if text not in parts]
        for text, literals in together + single:
            if (" " in text.strip() or "--" in text) and text not in NO_LINES + DUMP:
                yield text, literals


def is_stored(literals, library):
    return all(literal.encode() + b"\0" in library for literal in literals)


def pattern_of(text):
    return "".join(PLACES.get(part, re.escape(part)) for part in re.split(r"(%u|%d|%04X|%s)", text))


def guarded_problems(lines, contract, guarded):
    lines = [line.removeprefix(PREFIX) for line in lines]
    own_texts = [text for text, literals in driver_texts()
                 if is_stored(literals, guarded) and not is_stored(literals, contract)]
    patterns = {pattern_of(text.removeprefix(PREFIX).removesuffix("\r\n"))
                for text in own_texts if text not in (PREFIX, PREFIX + "%s")}
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
                for text, literals in driver_texts() if is_stored(literals, contract)}
    problems = [f"printed and not documented: {pattern}" for pattern in sorted(patterns)
                if not any(re.fullmatch(pattern.rstrip("\\ "), line.rstrip()) for line in lines)]
    return problems if len(patterns) >= LEAST_LINES else problems + [f"only {len(patterns)} texts found"]


def main():
    contract, guarded = (pathlib.Path(name).read_bytes() for name in sys.argv[1:3])
    page = (ROOT / "docs" / "diagnostics.md").read_text(encoding="utf-8")
    problems = guarded_problems(documented_texts(page, "Lines of the guarded build"), contract, guarded)
    problems += contract_problems(documented_texts(page, "Lines of both builds") +
                                  documented_texts(page, "Why a tag file is rejected"), contract)
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
