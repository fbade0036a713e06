"""What reads, writes, declarations and connections are told as: tuples with names."""
from __future__ import annotations

from datetime import datetime
from typing import Any, Mapping, NamedTuple, Optional, Tuple


class Reading(NamedTuple):
    """What became of reading one variable.

    name     with its scope, and the subscripts as they were asked for
    type     as declared: "INT", "INT[0..9]", "STRING(20)"
    value    None unless ok; else by type: bool, int, float, str, bytes, or (nested) lists or a numpy array of them
    ok       whether there is a value
    error    None when ok; else one sentence that describes what happened and what to try
    time     when its exchange with the controller ended, or when it was found not to be possible; with the zone UTC
    quality  "good": the guarded driver received the controller's own, whole reply. "unguarded": the contract build gave
             the value, and nobody checked the reply. "bad": no value
    """

    name: str
    type: str
    value: Any
    ok: bool
    error: Optional[str]
    time: datetime
    quality: str


class WriteResult(NamedTuple):
    """What became of writing one variable.

    name         with its scope, and the subscripts as they were written
    type         as declared: "INT", "INT[0..9]", "STRING(20)"
    ok          whether the driver reported no failure, and with verify=True read the same value back
    outcome     "done": the controller acknowledged it. "unguarded": the contract build reported no failure. It reports
                none for a refusal either. "not done": nothing of it was written. "unknown": nobody knows what the
                controller has now. A part may have been written, or all, or with verify=True it could not be read back
    verified    whether it was read back the same
    error       None when ok; else one sentence that describes what happened and what to try
    time        when its exchange with the controller ended; with the zone UTC
    """

    name: str
    type: str
    ok: bool
    outcome: str
    verified: bool
    error: Optional[str]
    time: datetime


class Declaration(NamedTuple):
    """What a tag file declares of a variable.

    name         with its scope: "Motor.Speed", "Main/Step"
    type         "INT", "INT[0..9,1..3]", "STRING(20)"
    bounds       (low, high) of each dimension of an array, both included, the first subscript first; else ()
    length       of a STRING, in bytes; else 0
    scope        the program that owns it; None for a global variable
    device       where the controller places it: "DM", "EM"...; None when that is not declared
    file, line   where it is declared; the first line is 1, and 0 means that the file has changed since it was loaded
    area         of its tag file
    number       by which a host asks the driver for it; None when none can
    unreachable  why no request can ask for it; None when one can
    """

    name: str
    type: str
    bounds: Tuple[Tuple[int, int], ...]
    length: int
    scope: Optional[str]
    device: Optional[str]
    file: str
    line: int
    area: int
    number: Optional[int]
    unreachable: Optional[str]


class State(NamedTuple):
    """How the connection is, and what went over it so far.

    connected        whether there is one
    since            of the last change of connected; at first, of the Controller's making
    last_error       of the last call that failed: a sentence; None when none has
    last_error_time  of that; None when none has
    connects         connections that were made
    calls            of the driver
    exchanges        requests with their replies; a call that failed counts as one
    failures         calls that failed, by reason: {"no-answer": 2}
    drops            late replies that the guarded driver threw away
    """

    connected: bool
    since: datetime
    last_error: Optional[str]
    last_error_time: Optional[datetime]
    connects: int
    calls: int
    exchanges: int
    failures: Mapping[str, int]
    drops: int
