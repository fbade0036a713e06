"""One controller: its variables read and written by name."""
from __future__ import annotations

import fnmatch
import operator
import os
import re
import time
import warnings
import weakref
from collections import OrderedDict
from typing import (Any, Callable, Dict, Iterable, Iterator, List, Mapping, Optional, Sequence, Tuple, Type, Union,
                    overload)

from . import _core
from ._errors import OutOfRange, TypeMismatch, UnknownVariable
from ._files import driver_path
from ._records import Declaration, Reading, State, WriteResult

Path = Union[str, "os.PathLike[str]"]
Names = Union[List[str], Tuple[str, ...]]

# Lists of names whose plans are kept; the one unused for longest goes first.
_MOST_PLANS = 256


class _NotGiven:
    def __repr__(self) -> str:
        return "..."


_NOT_GIVEN = _NotGiven()


def _whole_number(what: str, value: Any, low: int, high: int) -> int:
    """value as an int, when it is a whole number from low to high."""
    wanted = f"{what}: a whole number from {low} to {high}, not {value!r}"
    if isinstance(value, bool) or not hasattr(value, "__index__"):
        raise TypeMismatch(wanted)
    number = operator.index(value)
    if not low <= number <= high:
        raise OutOfRange(wanted)
    return number


def _paths(tags: Union[Path, Sequence[Path]]) -> List[str]:
    paths = [tags] if isinstance(tags, (str, os.PathLike)) else tags
    if not isinstance(paths, (list, tuple)) or not all(isinstance(path, (str, os.PathLike)) for path in paths):
        raise TypeMismatch(f"tags: a folder, a tag file or a list of these, not {tags!r}")
    return [os.fspath(path) for path in paths]


def _checked(names: Iterable[str]) -> Tuple[str, ...]:
    checked = tuple(names) if isinstance(names, Iterable) else ()
    if not isinstance(names, Iterable) or not all(isinstance(name, str) for name in checked):
        raise TypeMismatch(f"a variable's name is a str, and several are a list of them; this is {names!r}")
    return checked


class Tags(Mapping[str, Declaration]):
    """The declared variables: tags["Motor.Speed"] is a Declaration, list(tags) all names in the order of the files.

    A name that is not declared raises UnknownVariable, which is a KeyError and names those that are spelt almost like
    it.
    """

    def __init__(self, core: _core.Controller) -> None:
        self._core = core
        self._names: Dict[str, None] = dict.fromkeys(core.names())

    def __getitem__(self, name: str) -> Declaration:
        _checked((name,))
        return self._core.tag(name)

    def __iter__(self) -> Iterator[str]:
        return iter(self._names)

    def __len__(self) -> int:
        return len(self._names)

    def __repr__(self) -> str:
        return f"<{len(self)} declared variables>"


def _driver_for(choice: str, profile: str, log: Optional[Callable[[str], object]]) -> str:
    """The driver that is asked for; "guarded" with a word the contract build, where that one alone can be used."""
    is_named = choice != "guarded"
    word = _core.contract_word(profile, is_named) if profile else ""
    if not word:
        return choice
    if log is not None:
        log(f"{profile}: {word}")
    else:
        # Of the caller of Controller, two calls above.
        warnings.warn(f"{profile}: {word}", RuntimeWarning, stacklevel=3)
    return choice if is_named else _core.driver_choice(profile)


def _lines_for(controller: Controller) -> Callable[[str], None]:
    """Gives lines to the log of a controller, and keeps neither alive.

    The compiled half, which has this function, takes no part in garbage collection: a log that is a method of the
    controller's owner would keep all of them for ever.
    """
    known = weakref.ref(controller)

    def give(line: str) -> None:
        alive = known()
        if alive is not None and alive._log is not None:
            alive._log(line)

    return give


class Controller:
    """A controller, by its address and the tag files that declare its variables. It connects when first used.

    address        "192.168.0.10", or a name that the system resolves
    port           its TCP port, 1 to 65535
    tags           a folder, one tag file of any name, or a list of these. Of a folder, the files
                   PLC<address>_<area>.csv of this controller are taken, those of all areas
    area           of files that are named themselves
    driver         "guarded": a value is the controller's own, or there is none. "contract": any reply counts, as older
                   panels expect. Or the path of a driver library
    reply_timeout  seconds to wait for each reply, whole ones
    delay_ms       milliseconds of rest before each call, 0 to 1000, for controllers that need it
    log            is called with each line of the driver, a str without its newline. The thread that uses the
                   controller calls it. What it calls of the controller itself raises Error. An Exception that it
                   raises is reported and spoils no transfer. KeyboardInterrupt and SystemExit come out of the call
                   when it is over, in place of its result
    profile        a file with what was learnt of the controller. It sets reply_timeout, delay_ms and driver if they
                   have their defaults, and how many names are asked for at a time. If "guarded" cannot be used there,
                   log is called with a line about that, whatever driver is named; without log it is a RuntimeWarning.
                   So is a contract build that is loaded where replies come in pieces

    In a process that was forked from the one that made it, all but close() raises Error: make a Controller there.

    Raises Error when the address, a file or folder of tags, the driver or the profile is not there, or the profile has
    mistakes.

    A with statement closes the connection at its end. After close() the next use connects again. So does the next use
    after a connection was lost. The first use, and the one after close(), raise Error when a tag file has changed since
    the Controller was made: make a new one. While the controller cannot be reached, the pause between two tries grows
    from 0.1 to 10 seconds.
    """

    def __init__(
        self,
        address: str,
        *,
        port: int = 8500,
        tags: Union[Path, Sequence[Path]],
        area: int = 0,
        driver: Path = "guarded",
        reply_timeout: int = 2,
        delay_ms: int = 0,
        log: Optional[Callable[[str], object]] = None,
        profile: Optional[Path] = None,
    ) -> None:
        if not isinstance(address, str):
            raise TypeMismatch(f'address: a str like "192.168.0.10", not {address!r}')
        if log is not None and not callable(log):
            raise TypeMismatch(f"log: a function that takes a line, like print, not {log!r}")
        learnt = "" if profile is None else os.fspath(profile)
        self._address = address
        self._port = _whole_number("port", port, 1, 65535)
        self._log = log
        self._core = _core.Controller(
            address,
            self._port,
            _paths(tags),
            _whole_number("area", area, 0, 65535),
            driver_path(_driver_for(os.fspath(driver), learnt, log)),
            _whole_number("reply_timeout", reply_timeout, 1, 86400),
            _whole_number("delay_ms", delay_ms, 0, 1000),
            None if log is None else _lines_for(self),
            learnt,
        )
        remark = self._core.driver_remark()
        # What only the driver that was loaded shows; _driver_for has said the rest.
        if log is None and remark and not _core.contract_word(learnt, True):
            warnings.warn(remark, RuntimeWarning, stacklevel=2)
        self._tags = Tags(self._core)
        self._plans: OrderedDict[Union[str, Tuple[str, ...]], _core.Plan] = OrderedDict()

    def __enter__(self) -> Controller:
        return self

    def __exit__(self, kind: Optional[Type[BaseException]], error: Optional[BaseException], trace: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<plc_client.Controller {self._address}:{self._port}, {len(self._tags)} declared variables>"

    def connect(self) -> None:
        """Connects now. Raises ConnectionFailed when that fails. Reads and writes connect by themselves."""
        self._core.connect()

    def close(self) -> None:
        """Closes the connection; the next use connects again."""
        self._core.close()

    @property
    def state(self) -> State:
        """How the connection is, and what went over it so far."""
        return self._core.state()

    @property
    def tags(self) -> Tags:
        """The declared variables by name: tags["Motor.Speed"] is a Declaration."""
        return self._tags

    @property
    def driver_build(self) -> str:
        """What the driver calls itself: "1.1.0 guarded"."""
        return self._core.driver_build()

    @overload
    def read(self, names: str, *, as_numpy: bool = False) -> Reading: ...

    @overload
    def read(self, names: Names, *, as_numpy: bool = False) -> List[Reading]: ...

    def read(self, names: Union[str, Names], *, as_numpy: bool = False) -> Union[Reading, List[Reading]]:
        """Reads a variable, or all of a list of names in the fewest exchanges.

        One name gives a Reading, a list or tuple of names a list of Readings in the same order. One variable that
        cannot be read never spoils the others: its Reading is not ok. When the controller is gone, none is.

        as_numpy  arrays as numpy arrays of the declared type and shape instead of lists

        Before anything is sent, it raises UnknownVariable for a name that no tag file declares. For a subscript outside
        the declared bounds it raises OutOfRange, and for another number of subscripts TypeMismatch. It plans once how
        to read a list of names: read the same list again rather than new ones.
        """
        key: Union[str, Tuple[str, ...]] = names if isinstance(names, str) else _checked(names)
        # Whoever uses a plan has it to himself: its readings are its own until its next read.
        plan = self._plans.pop(key, None)
        if plan is None:
            plan = self._core.plan((key,) if isinstance(key, str) else key)
        readings = self._core.read(plan, as_numpy)
        self._plans[key] = plan
        if len(self._plans) > _MOST_PLANS:
            self._plans.popitem(last=False)
        return readings[0] if isinstance(key, str) else readings

    @overload
    def write(self, name: str, value: Any, verify: bool = False) -> WriteResult: ...

    @overload
    def write(self, name: Mapping[str, Any], *, verify: bool = False) -> List[WriteResult]: ...

    def write(
        self, name: Union[str, Mapping[str, Any]], value: Any = _NOT_GIVEN, verify: bool = False
    ) -> Union[WriteResult, List[WriteResult]]:
        """Writes a variable, write("Motor.Speed", 1500), or several, write({"Motor.Speed": 1500, "Main/Busy": True}).

        A name and its value give a WriteResult, a dict a list of them in its order. Values are those that read() gives:
        bool, int, float (an int does too), str, bytes, (nested) lists or numpy arrays. The result reports what went
        wrong in the world: look at its ok. No write is made twice.

        verify  reads each variable back; a result is ok only when it is the same

        Raises UnknownVariable, TypeMismatch or OutOfRange before anything is sent: of a dict, either all values are
        checked or none is written. They are written one after the other; one that fails does not keep back the next
        ones unless the connection is gone.
        """
        if isinstance(name, str) and value is not _NOT_GIVEN:
            return self._core.write([(name, value)], verify)[0]
        if isinstance(name, Mapping) and value is _NOT_GIVEN:
            _checked(name)
            return self._core.write(list(name.items()), verify)
        raise TypeMismatch("write() takes a name and its value, or a dict of names and values")

    def watch(
        self, names: Union[str, Names], period: float = 1.0, *, as_numpy: bool = False
    ) -> Iterator[List[Reading]]:
        """Reads again and again: for readings in press.watch(["Motor.*"], period=0.5): ...

        Gives a list of Readings in the order of the names each time, for as long as it is asked. In a pattern, * is
        any characters and ? is one; brackets are subscripts. A read that was due while the last one took longer is
        left out.

        names   a name or pattern, or a list of them
        period  seconds from the beginning of one read to that of the next; 0 for no pause

        Raises UnknownVariable, before the first read, for a name that no tag file declares and for a pattern that fits
        none.
        """
        if isinstance(period, bool) or not isinstance(period, (int, float)):
            raise TypeMismatch(f"period: a number of seconds, not {period!r}")
        if not 0 <= period <= 86400:
            raise OutOfRange(f"period: from 0 to 86400 seconds, not {period!r}")
        wanted = self._expand((names,) if isinstance(names, str) else _checked(names))
        self._core.plan(wanted)  # says now what is no name
        return self._watch(wanted, period, as_numpy)

    def _watch(self, names: Tuple[str, ...], period: float, as_numpy: bool) -> Iterator[List[Reading]]:
        due = time.monotonic()
        while True:
            yield self.read(names, as_numpy=as_numpy)
            now = time.monotonic()
            due = max(due + period, now)
            time.sleep(due - now)

    def _expand(self, names: Iterable[str]) -> Tuple[str, ...]:
        """The names, with all that fit in the place of a pattern; each once."""
        expanded: Dict[str, None] = {}
        for name in names:
            if "*" not in name and "?" not in name:
                expanded[name] = None
                continue
            # What it makes of many stars is as fast as of one.
            fits = re.compile(fnmatch.translate(name.replace("[", "[[]")))
            found = [tag for tag in self._tags if fits.match(tag)]
            if not found:
                raise UnknownVariable(f"{name}: no declared variable has such a name; list(controller.tags) shows all")
            expanded.update(dict.fromkeys(found))
        return tuple(expanded)
