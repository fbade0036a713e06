"""A simulated controller for tests: plc-sim as a child, on a free port, told what to do on its standard input."""
from __future__ import annotations

import json
import os
import re
import select
import struct
import subprocess
import tempfile
import threading
from typing import Any, Dict, IO, Iterator, List, Optional, Sequence, Tuple, Type, Union

from ._controller import Controller
from ._errors import Error, Lines, OutOfRange, TypeMismatch, UnknownVariable
from ._files import simulator_path

Path = Union[str, "os.PathLike[str]"]

# plc-sim takes no longer lines.
_MOST_LINE_BYTES = 65536
# It answers at once, whatever else it does.
_LONGEST_WAIT_S = 10.0
_REMEDY = "Try: Close this Simulator and make a new one."
# Of what it says when it does not start: a file of another kind gets a complaint about each line.
_MOST_ERROR_LINES = 12  # as many as plc-sim says of one file
_ESCAPES = {b"n": b"\n", b"r": b"\r", b"t": b"\t"}
_TAG_FILE = re.compile(r"PLC([0-9A-F]+)_([0-9]+)\.csv")


class Simulator:
    """A simulated controller that declares the variables of tag files: plc-sim, on a free port of this machine.

        with plc_client.Simulator("tags/") as machine:
            machine.set("Motor.Speed", 5)
            with machine.controller() as press:
                assert press.read("Motor.Speed").value == 5

    It runs from here to close() or to the end of a with statement. Every value is 0, false or empty at first.

    tags      a folder, of which the files PLC<address>_<area>.csv are taken, or one tag file of any name, or a list of
              these. Files for several controllers are too many: name those of one.
    sentinel  gives every element a value of its own, so that one that was swapped with another shows
    port      to listen on; 0 for a free one
    options   further words for plc-sim's command line: ["--program", "Main=3"]
    program   the plc-sim to start; else that of this package, or the one on the PATH

    Attributes: address ("127.0.0.1"), port, tag_files (those that it declares).

    Raises Error when there is no plc-sim, no such file, or a tag file that cannot be declared.
    """

    address = "127.0.0.1"

    def __init__(
        self,
        tags: Union[Path, Sequence[Path]],
        *,
        sentinel: bool = False,
        port: int = 0,
        options: Sequence[str] = (),
        program: Optional[Path] = None,
    ) -> None:
        self.tag_files = _tag_files(tags)
        self._lock = threading.Lock()
        self._process = os.getpid()
        # A command went out, and not all of its answer was read.
        self._is_amid = False
        self._said = b""
        self._elements: Dict[str, Dict[str, Any]] = {}
        self._errors: IO[bytes] = tempfile.TemporaryFile()
        words = [os.fspath(program) if program is not None else simulator_path(), "--listen", f"{self.address}:{port}"]
        words += ["--sentinel"] * bool(sentinel) + [*options, *self.tag_files]
        try:
            self._child = subprocess.Popen(words, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self._errors,
                                           bufsize=0)
        except OSError as error:
            self._errors.close()
            raise Error(f"{words[0]}: it cannot be started: {error.strerror}; "
                        "program is the path of plc-sim, of the package plc-tools") from None
        listening = re.fullmatch(r"listening on .*:(\d+)", self._line())
        if listening is None:
            said = self.messages().strip().splitlines() or ["it said nothing"]
            said = [line[len("plc-sim: "):] if line.startswith("plc-sim: ") else line for line in said]
            self._end()
            if len(said) > _MOST_ERROR_LINES:
                said[_MOST_ERROR_LINES:] = [f"and {len(said) - _MOST_ERROR_LINES} lines more"]
            raise Error(Lines("plc-sim did not start: " + "\n".join(said)))
        self.port = int(listening[1])

    def __enter__(self) -> Simulator:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: object) -> None:
        self.close()

    def __del__(self) -> None:
        if hasattr(self, "_child"):
            self.close()

    def __repr__(self) -> str:
        return f"<plc_client.Simulator {self.address}:{self.port}>"

    def controller(self, area: int = 0, **options: Any) -> Controller:
        """A Controller for this machine, with its tag files of an area; further options as Controller has them.

        Files that are not named PLC<address>_<area>.csv belong to any area.
        """
        matches = [(name, _TAG_FILE.fullmatch(os.path.basename(name))) for name in self.tag_files]
        files = [name for name, match in matches if match is None or int(match[2]) == area]
        if not files:
            raise Error(f"area {area}: none of the tag files {', '.join(self.tag_files)} belongs to it")
        return Controller(self.address, port=self.port, tags=files, area=area, **options)

    def set(self, name: str, value: Any) -> None:
        """Gives a variable of the machine a value: bool, int, float, str; for an array a (nested) list of its length.

        "Motor.Speed", "Table[3]", "Main/Step". Raises Error when the machine has no such variable or it cannot have the
        value, OutOfRange for a list of another length.
        """
        if isinstance(value, (list, tuple)) or hasattr(value, "tolist"):
            elements = list(_flat(value.tolist() if hasattr(value, "tolist") else value))
            shown = self._show(name)
            if len(shown) != len(elements):
                raise OutOfRange(f"{name}: it has {len(shown)} elements, and {len(elements)} values were given")
            for (element, _), one in zip(shown, elements):
                self.command(f"set {element} {_value_text(name, one)}")
            return
        self.command(f"set {name} {_value_text(name, value)}")

    def get(self, name: str) -> Any:
        """What the machine's memory contains: bool, int, float, str; for an array (nested) lists.

        Texts are UTF-8, other bytes surrogates. Dates and times are the number that their 64 bits are. Raises Error
        when the machine has no such variable.
        """
        shown = self._show(name)
        first = shown[0][0]
        if len(shown) == 1 and _bare(first) == _bare(name):
            return self._value(first, shown[0][1])
        nested: List[Any] = []
        for element, text in shown:
            *outer, _ = (at - low for at, low in zip(_subscripts(element), _subscripts(first)))
            place = nested
            for step in outer:
                if step == len(place):
                    place.append([])
                place = place[step]
            place.append(self._value(element, text))
        return nested

    def fault(self, fault: str) -> None:
        """Arms a fault: "close times=1", "no-reply on=read", "delay 500 times=always", "gone".

        NAME [ARGUMENTS] [times=N|always] [on=REQUEST] [after=N] [every=N]; command("faults") lists them.
        """
        self.command(f"fault {fault}")

    def clear_faults(self) -> None:
        """Disarms all faults, and takes connections again."""
        self.command("fault clear")

    def counts(self) -> Dict[str, int]:
        """Connections, requests, violations and so on so far; how often each fault has happened, as "fault.close"."""
        counts: Dict[str, int] = json.loads(self.command("counts --json")[0])
        return counts

    def command(self, line: str) -> List[str]:
        """Gives plc-sim a line of its console and returns its answer, without the last line "ok".

        Raises Error with plc-sim's own words when it refuses, and when it has ended, also when no answer comes within
        10 seconds. After that, and after an exception like KeyboardInterrupt inside a command, each further one raises
        Error. So does each in a process that was forked from the one that made it.
        """
        sent = line.encode("utf-8", "surrogateescape")
        if b"\n" in sent or b"\r" in sent or len(sent) >= _MOST_LINE_BYTES or not sent.strip(b" "):
            raise Error(f"plc-sim takes one line of 1 to {_MOST_LINE_BYTES - 1} bytes, not {line[:100]!r}")
        if self._is_copy():
            raise Error(f"the simulator belongs to process {self._process}, from which this one was forked: make a "
                        "Simulator of its own in the child")
        with self._lock:
            if self._child.poll() is not None or self._child.stdin is None or self._child.stdin.closed:
                raise Error(self._gone())
            if self._is_amid:
                raise Error(f"plc-sim: {line[:100]}: not sent: the answer of a command before it is missing, and would "
                            f"be taken for this one's. {_REMEDY}")
            self._is_amid = True
            answer = self._exchange(sent)
            if answer is None:
                raise Error(self._gone())
            self._is_amid = False
        last = answer.pop()
        if last == "ok":
            return answer
        words = f"plc-sim: {line[:100]}: {last[len('error: '):]}"
        raise UnknownVariable(words) if last.startswith("error: no variable") else Error(words)

    def _exchange(self, sent: bytes) -> Optional[List[str]]:
        """All lines of the answer to a command, the last of them "ok" or an error; None when plc-sim has ended."""
        answer: List[str] = []
        try:
            self._send(sent + b"\n")
        except OSError:
            return None
        while True:
            said = self._line(_LONGEST_WAIT_S)
            if not said:
                return None
            answer.append(said)
            if said == "ok" or said.startswith("error: "):
                return answer

    def messages(self) -> str:
        """What plc-sim has printed on standard error so far: what its judge found wrong with requests, and notes."""
        self._errors.seek(0)
        return self._errors.read().decode("utf-8", "replace")

    def close(self) -> None:
        """Ends it. Hosts that are connected lose the connection. Calling it again does nothing.

        In a process that was forked from the one that made it, it goes on for that one.
        """
        if self._errors.closed:
            return
        if self._is_copy():
            self._child.poll()  # finds that it is no child of this process
            self._leave()
        else:
            self._end()

    def _is_copy(self) -> bool:
        return os.getpid() != self._process

    def _leave(self) -> None:
        """Closes this process's ends."""
        for end in (self._child.stdin, self._child.stdout, self._errors):
            if end is not None:
                end.close()

    def _end(self) -> None:
        if self._child.stdin is not None:
            self._child.stdin.close()
        try:
            self._child.wait(10)
        except subprocess.TimeoutExpired:
            self._child.kill()
            self._child.wait()
        self._leave()

    def _send(self, line: bytes) -> None:
        assert self._child.stdin is not None
        while line:
            line = line[os.write(self._child.stdin.fileno(), line):]

    def _line(self, wait_s: Optional[float] = None) -> str:
        """The next line of its output; "" at the end. Raises Error when none comes in so many seconds."""
        assert self._child.stdout is not None
        output = self._child.stdout.fileno()
        coming = select.poll()
        coming.register(output, select.POLLIN)
        while b"\n" not in self._said:
            if not coming.poll(None if wait_s is None else wait_s * 1000):
                raise Error(f"plc-sim has not answered within {wait_s:g} s; it may be stopped. {_REMEDY}")
            more = os.read(output, _MOST_LINE_BYTES)
            if not more:
                return ""
            self._said += more
        line, _, self._said = self._said.partition(b"\n")
        return line.decode("utf-8", "surrogateescape")

    def _gone(self) -> str:
        if self._errors.closed:
            return "the simulator was closed"
        return f"plc-sim has ended: {self.messages().strip()[-300:] or 'it said nothing'}"

    def _show(self, name: str) -> List[Tuple[str, str]]:
        """The elements of a variable by name, with their values as plc-sim shows them."""
        lines = self.command(f"show {name}") if name else []
        pairs = [line.partition(" = ")[::2] for line in lines]
        if not pairs:
            raise UnknownVariable("a variable of the machine wants a name")
        if len(pairs) == 1:
            return pairs
        # Behind them stand those outside the declared bounds that somebody has asked for.
        return [(element, text) for element, text in pairs if self._element(element)["declared"]]

    def _value(self, element: str, text: str) -> Any:
        if text in ("true", "false"):
            return text == "true"
        if text.startswith('"'):
            return _unescaped(text[1:-1])
        kind = self._element(element)["type"]
        if kind == "REAL":
            single: float = struct.unpack("<f", struct.pack("<f", float(text)))[0]
            return single
        return float(text) if kind == "LREAL" else int(text, 0)

    def _element(self, name: str) -> Dict[str, Any]:
        """What plc-sim tells of an element: its type, and whether it is declared."""
        if name not in self._elements:
            listed = json.loads(self.command("dump --json")[0])["elements"]
            self._elements = {_bare(element["name"]): element for element in listed}
            self._elements.update((_full_name(element), element) for element in listed)
        return self._elements[name]


def _unescaped(text: str) -> str:
    """What plc-sim writes between double quotes. Bytes of no UTF-8 are surrogates."""
    def character(escape: "re.Match[bytes]") -> bytes:
        return bytes([int(escape[1], 16)]) if escape[1] else _ESCAPES.get(escape[2], escape[2])
    raw = re.sub(rb"\\(?:x([0-9A-F]{2})|(.))", character, text.encode("utf-8", "surrogateescape"))
    return raw.decode("utf-8", "surrogateescape")


def _tag_files(tags: Union[Path, Sequence[Path]]) -> List[str]:
    """The files of folders and files; of a folder, those that are named for one controller."""
    paths = [tags] if isinstance(tags, (str, os.PathLike)) else tags
    if not isinstance(paths, (list, tuple)) or not paths:
        raise TypeMismatch(f"tags: a folder, a tag file or a list of these, not {tags!r}")
    files: List[str] = []
    for path in map(os.fspath, paths):
        if not os.path.exists(path):
            raise Error(f"cannot open the tag file or folder {path}: it is not there; "
                        f"the program runs in {os.getcwd()}")
        if not os.path.isdir(path):
            files.append(path)
            continue
        found = [(_TAG_FILE.fullmatch(name), name) for name in os.listdir(path)]
        named = sorted((int(match[2]), name) for match, name in found if match is not None)
        if not named:
            raise Error(f"{path}: no tag file is in this folder; one is named like PLC7F000001_0.csv")
        controllers = sorted({name.split("_")[0] for _, name in named})
        if len(controllers) > 1:
            raise Error(f"{path}: these are tag files of {len(controllers)} controllers ({', '.join(controllers)}); "
                        "name those of one")
        files += [os.path.join(path, name) for _, name in named]
    return files


def _flat(values: Any) -> Iterator[Any]:
    for value in values:
        if isinstance(value, (list, tuple)):
            yield from _flat(value)
        else:
            yield value


def _value_text(name: str, value: Any) -> str:
    """A value as plc-sim's console takes it."""
    if hasattr(value, "tolist"):
        value = value.tolist()
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, int):
        return str(int(value))
    if isinstance(value, float):
        return float.__repr__(value)
    if not isinstance(value, str):
        raise TypeMismatch(f"{name}: a bool, int, float or str, or a list of them, not {value!r}")
    if "\0" in value:
        raise OutOfRange(f"{name}: a text ends at its first zero byte, none can be in it: {value!r}")
    escapes = {"\\": "\\\\", '"': '\\"', "\n": "\\n", "\r": "\\r"}
    return '"' + "".join(escapes.get(character, character) for character in value) + '"'


def _bare(name: str) -> str:
    """The name without its program."""
    return name.rpartition("/")[2]


def _subscripts(element: str) -> List[int]:
    return [int(part) for part in element[element.rindex("[") + 1:-1].split(",")]


def _full_name(element: Dict[str, Any]) -> str:
    """The name as plc-sim shows it."""
    name, program = str(element["name"]), element["program"]
    return name if program is None else f"{program}/{name}"
