"""What is raised: mistakes of the program, and a connection that connect() did not get."""
from __future__ import annotations

from typing import Tuple


class Error(Exception):
    """The base of all of them: its text is a sentence that names the thing and the remedy.

    Raised itself for what none of the others says: no such folder, tag file, driver or simulator.
    """

    def __str__(self) -> str:
        return str(self.args[0]) if self.args else ""


class UnknownVariable(Error, KeyError):
    """No tag file declares the name, or several do, or its subscripts cannot be read; a KeyError too.

    near holds declared names that are spelt almost like it, the nearest first, at most five.
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
