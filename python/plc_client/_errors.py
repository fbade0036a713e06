"""What is raised: mistakes of the program, and a connection that connect() did not get."""
from __future__ import annotations

import unicodedata
from typing import Tuple

# Controls, signs of direction and other marks that are not drawn, separators of lines, bytes of no UTF-8.
_HIDDEN = ("Cc", "Cf", "Cs", "Zl", "Zp")
_SHORT = {"\n": r"\n", "\r": r"\r", "\t": r"\t"}


def _shown(character: str) -> str:
    if unicodedata.category(character) not in _HIDDEN:
        return character
    code = ord(character)
    if 0xDC80 <= code <= 0xDCFF:
        return f"\\x{code - 0xDC00:02x}"
    return _SHORT.get(character) or (f"\\x{code:02x}" if code < 0x80 else f"\\u{{{code:x}}}")


class Lines(str):
    """A text of several lines that are the package's own or plc-sim's; names have no line end in them."""


class Error(Exception):
    """The base of all of them: its text is a sentence that names the thing and the remedy.

    Raised itself for what none of the others describes: no such folder, tag file, driver or simulator. The text is one
    line, whatever the names contain: characters that a terminal obeys or hides are written out.
    """

    def __str__(self) -> str:
        text = self.args[0] if self.args else ""
        lines = text.split("\n") if isinstance(text, Lines) else [str(text)]
        return "\n".join("".join(map(_shown, line)) for line in lines)


class UnknownVariable(Error, KeyError):
    """No tag file declares the name, or several do, or its subscripts cannot be read; a KeyError too.

    near has the declared names that are spelt almost like it, the nearest first, at most five.
    """

    near: Tuple[str, ...]

    def __init__(self, text: str = "", near: Tuple[str, ...] = ()) -> None:
        super().__init__(text)
        self.near = near


class TypeMismatch(Error, TypeError):
    """A value or subscripts of another type or shape than the variable's; a TypeError too."""


class OutOfRange(Error, ValueError):
    """A value outside the range of its type, a subscript outside its bounds, a text too long; a ValueError too."""


class ConnectionFailed(Error, ConnectionError):
    """Controller.connect() could not connect; a ConnectionError too."""
