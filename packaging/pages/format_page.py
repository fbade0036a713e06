#!/usr/bin/env python3
"""Writes the manual page of a file format from the document that describes it.

format_page.py --version VERSION [--date DATE] --name NAME --summary SUMMARY [--others PAGE...] --output FOLDER DOCUMENT

FOLDER/NAME.5, FOLDER/NAME.5.gz. The document's first paragraph is the description, its headings are the sections.
"""
import argparse
import gzip
import pathlib
import re
import sys

sys.dont_write_bytecode = True
from manual_page import plain, prose, quoted, verbatim  # noqa: E402  (no byte code beside the sources)


def shown(text):
    """Text without the marks of links and code."""
    text = re.sub(r"\[([^\]]*)\]\([^)]*\)", r"\1", text)
    return text.replace("`", "").replace("**", "")


def table_lines(rows):
    """A table as a list: its first column names what the others say, the second what the rest is about."""
    _, _, *body = [[shown(cell.strip()) for cell in row.strip().strip("|").split(" | ")] for row in rows]
    lines = []
    for term, *cells in body:
        about, *said = [cell for cell in cells if cell]
        if len(cells) > 2:
            about = "%s: %s" % (about, said.pop(0))
        sentences = [text[:1].upper() + text[1:].rstrip(".") + "." for text in (about, *said)]
        lines += [".TP", "\\fB%s\\fR" % plain(term), *prose(" ".join(sentences))]
    return lines


def list_lines(text):
    """The items of a list, each of which may take several lines."""
    lines = []
    for item in re.split(r"^- ", text, flags=re.M)[1:]:
        lines += [".IP \\(bu 2", *prose(shown(" ".join(item.split())))]
    return lines


def blocks_of(text):
    """Code, tables, lists and paragraphs in their order."""
    for part in re.split(r"(^```.*?^```$)", text, flags=re.M | re.S):
        if part.startswith("```"):
            yield "code", part.split("\n")[1:-1]
            continue
        for block in re.split(r"\n{2,}", part.strip()):
            rows = block.split("\n")
            if block.startswith("|"):
                yield "table", rows
            elif block.startswith("- "):
                yield "list", block
            elif block:
                yield "prose", block


def section_lines(text):
    lines = []
    for kind, block in blocks_of(text):
        if kind == "code":
            lines += verbatim(block)
        elif kind == "table":
            lines += table_lines(block)
        elif kind == "list":
            lines += list_lines(block)
        else:
            lines += [*([".PP"] if lines else []), *prose(shown(" ".join(block.split())))]
    return lines


def format_page(document, options):
    """The page in roff."""
    first, *sections = re.split(r"^## ", document.split("\n", 1)[1], flags=re.M)
    lines = [".\\\" Made from the document that describes the format.",
             ".TH %s 5 %s %s %s" % (quoted(options.name.upper()), '"%s"' % options.date,
                                    quoted("plc_driver " + options.version), quoted("File Formats")),
             ".SH NAME", "%s \\- %s" % (plain(options.name), plain(options.summary)),
             ".SH DESCRIPTION", *section_lines(first)]
    for section in sections:
        title, text = section.split("\n", 1)
        lines += [".SH " + quoted(title.upper()), *section_lines(text)]
    lines += [".SH SEE ALSO"]
    references = [re.fullmatch(r"(.+)\((\d)\)", page).groups() for page in options.others]
    lines += [".BR %s (%s)%s" % (plain(name), number, "," if at < len(references) - 1 else "")
              for at, (name, number) in enumerate(references)]
    return "\n".join(lines) + "\n"


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--version", required=True)
    parser.add_argument("--date", default="")
    parser.add_argument("--name", required=True)
    parser.add_argument("--summary", required=True)
    parser.add_argument("--others", nargs="*", default=[])
    parser.add_argument("--output", required=True, type=pathlib.Path)
    parser.add_argument("document", type=pathlib.Path)
    options = parser.parse_args()

    page = format_page(options.document.read_text(encoding="utf-8"), options).encode()
    options.output.mkdir(parents=True, exist_ok=True)
    (options.output / f"{options.name}.5").write_bytes(page)
    (options.output / f"{options.name}.5.gz").write_bytes(gzip.compress(page, 9, mtime=0))


if __name__ == "__main__":
    main()
