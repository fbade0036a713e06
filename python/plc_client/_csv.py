"""Texts as cells of CSV files."""
from __future__ import annotations

from . import _core
from ._errors import TypeMismatch


def csv_cell(text: str) -> str:
    r"""A text of any content as a cell of a CSV file whose columns are separated by commas; quoted where needed.

    Characters that are not drawn are written out, \n or \x1b or \u{202e}, and bytes of no UTF-8 as \xff. A text that a
    spreadsheet would read as a formula gets an apostrophe in front. Numbers need none of this: write str(number).
    """
    if not isinstance(text, str):
        raise TypeMismatch(f"csv_cell: a str, not {text!r}")
    return _core.csv_cell(text)
