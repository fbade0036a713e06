#!/usr/bin/env python3
"""The reference of the interfaces: what has no text is found, and pages show what the headers and the package have."""
import pathlib
import sys
import tempfile

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT / "scripts"))
import reference  # noqa: E402
import reference_c  # noqa: E402
import reference_python  # noqa: E402

C_HEADER = """/* What a host sees. */
#include <stdint.h>

/* A record. */
typedef struct Record {
  uint32_t told;   /*  0: has a text */
  uint32_t untold; /*  4 */
} Record;

uint32_t undescribed(Record* record);

/* Described, with <angles> & 100 %. */
uint32_t described(const Record* record, const char* name);
"""
CPP_HEADER = """// What a program sees.
#pragma once
namespace names {

// A class.
class Thing {
 public:
  Thing(const Thing&) = delete;
  ~Thing();
  bool untold() const;  // NOLINT(a-check)
  int told = 0;  // has a text
                 // of two lines
  // Has one too.
  int counted() const;
  int silent = 0;

 private:
  int hidden_ = 0;
};

}  // namespace names
"""


def expect(found, expected, what):
    if found != expected:
        raise SystemExit(f"{what}: {found!r}, expected {expected!r}")


def expect_in(words, page, what):
    if words not in page:
        raise SystemExit(f"{what}: {words!r} is not there")


def check_headers():
    with tempfile.TemporaryDirectory() as name:
        headers = [pathlib.Path(name) / "host.h", pathlib.Path(name) / "program.h"]
        headers[0].write_text(C_HEADER, encoding="utf-8")
        headers[1].write_text(CPP_HEADER, encoding="utf-8")
        found = reference_c.read_headers([str(header) for header in headers])
        problems = [problem.removeprefix(f"{name}/") for problem in reference_c.undocumented(found)]
        expect(problems, ["host.h:7: Record::untold has no text", "host.h:10: undescribed has no text",
                          "program.h:10: names::Thing::untold has no text",
                          "program.h:15: names::Thing::silent has no text"], "what has no text")
        page = "\n".join(reference.header_lines("host.h", *found[str(headers[0])], "c"))
        expect_in("uint32_t described(const Record* record, const char* name);", page, "a function")
        expect_in(r"Described, with \<angles\> & 100 %.", page, "its text")
        expect_in("| 0 | `uint32_t told` | has a text |", page, "a field")
        page = "\n".join(reference.header_lines("program.h", *found[str(headers[1])], "cpp"))
        expect_in("| `int told = 0` | has a text of two lines |", page, "a member")


PACKAGE = {"__init__.py": '"""The package.\n\nThing   a thing\nmeasured   its size\n"""\n'
           '__all__ = ["Lost", "Thing", "measured"]\n',
           "_thing.py": '''class Thing:
    """A thing.

    size  how large it is
    """
    colour: str

    def __init__(self, size: int, *, weight: int = 0) -> None:
        self.size = size

    def told(self) -> int:
        """Has a text."""

    def untold(self) -> int:
        return 0


def measured(thing: Thing, unit: str) -> int:
    """How large a thing is."""
    return thing.size
'''}


def check_package():
    known = reference_python.PACKAGE, reference_python.ROOT
    with tempfile.TemporaryDirectory() as name:
        for file, text in PACKAGE.items():
            (pathlib.Path(name) / file).write_text(text, encoding="utf-8")
        reference_python.PACKAGE = reference_python.ROOT = pathlib.Path(name)
        expect(reference_python.undocumented(),
               ["python/plc_client/__init__.py: Lost is nowhere to be found", "_thing.py:1: Thing: weight has no text",
                "_thing.py:6: Thing.colour has no text", "_thing.py:14: Thing.untold has no text",
                "_thing.py:18: measured: unit has no text"], "what has no text")
    reference_python.PACKAGE, reference_python.ROOT = known


def check_pages():
    pages = reference.pages()
    expect(list(pages), ["c.md", "cpp.md", "python.md"], "the pages")
    expect_in("### `ev_plc_read`", pages["c.md"], "C")
    expect_in("| 4 | `uint32_t ip_address` |", pages["c.md"], "C")
    expect_in("#### `Controller::read`", pages["cpp.md"], "C++")
    expect_in("### `Controller.watch`", pages["python.md"], "Python")
    expect_in("csv_cell(text: str) -> str", pages["python.md"], "a function of Python")
    expect_in("| `reply_timeout` |", pages["python.md"], "Python")


def main():
    for check in (check_headers, check_package, check_pages):
        check()


if __name__ == "__main__":
    main()
