#!/usr/bin/env python3
"""Writes down what variables are, again and again, as CSV or into an SQLite database.

    logger.py --address 192.168.0.10 --tags tags/ --csv speed.csv --period 0.5 Motor.Speed "Axis*"
    logger.py --address 192.168.0.10 --tags tags/ --sqlite press.db --count 100 Motor.Speed

A variable that could not be read has a line too, with its reason and no value. In CSV a text that a
spreadsheet would read as a formula gets an apostrophe in front, and characters that are not drawn are written out.
Ctrl-C ends it.
"""
from __future__ import annotations

import argparse
import contextlib
import itertools
import json
import math
import pathlib
import sqlite3
import sys
from typing import Callable, Iterable, List, Optional, Tuple, Union

import plc_client

Item = Optional[Union[int, float, str]]
Row = Tuple[str, str, str, Item, Item]
COLUMNS = ("time", "name", "type", "value", "error")


def row(reading: plc_client.Reading) -> Row:
    """A line of the log: numbers and texts as they are, lists and bytes as JSON."""
    value = reading.value
    if isinstance(value, bool):
        value = int(value)
    elif isinstance(value, bytes):
        value = value.hex()
    elif isinstance(value, int) and not -(2**63) <= value < 2**63:
        value = str(value)  # SQLite has no integers above
    elif isinstance(value, list):
        value = json.dumps(value)
    return reading.time.isoformat(), reading.name, reading.type, value, reading.error


def cell(item: Item) -> str:
    """Numbers as they are, texts so that no spreadsheet takes them for formulas."""
    if item is None:
        return ""
    if isinstance(item, int) or (isinstance(item, float) and math.isfinite(item)):
        return str(item)
    return plc_client.csv_cell(str(item))


def open_csv(path: pathlib.Path, ends: contextlib.ExitStack) -> Callable[[List[Row]], None]:
    """Appends to a CSV file; a new one begins with the names of the columns."""
    file = ends.enter_context(path.open("a", newline="", encoding="utf-8"))

    def write(rows: Iterable[Iterable[Item]]) -> None:
        file.writelines(",".join(map(cell, row)) + "\r\n" for row in rows)
        file.flush()

    if file.tell() == 0:
        write([COLUMNS])
    return write


def stored(item: Item) -> Union[Item, bytes]:
    """As it is; a text that is not UTF-8 as its bytes, which SQLite makes a blob."""
    if isinstance(item, str) and any("\udc80" <= character <= "\udcff" for character in item):
        return item.encode("utf-8", "surrogateescape")
    return item


def open_sqlite(path: pathlib.Path, ends: contextlib.ExitStack) -> Callable[[List[Row]], None]:
    """Appends to the table readings, all of a time or nothing."""
    database = ends.enter_context(contextlib.closing(sqlite3.connect(path)))
    with database:
        database.execute(f"CREATE TABLE IF NOT EXISTS readings ({', '.join(COLUMNS)})")

    def write(rows: List[Row]) -> None:
        with database:
            database.executemany("INSERT INTO readings VALUES (?, ?, ?, ?, ?)", [[*map(stored, row)] for row in rows])

    return write


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--address", required=True)
    parser.add_argument("--port", type=int, default=8500)
    parser.add_argument("--tags", required=True, help="a folder of tag files, or one file")
    parser.add_argument("--period", type=float, default=1.0, help="seconds (1)")
    parser.add_argument("--count", type=int, help="so many times, then end")
    place = parser.add_mutually_exclusive_group(required=True)
    place.add_argument("--csv", type=pathlib.Path, metavar="FILE")
    place.add_argument("--sqlite", type=pathlib.Path, metavar="FILE")
    parser.add_argument("names", nargs="+", metavar="NAME", help="a variable, or a pattern with * and ?")
    options = parser.parse_args()
    if options.count is not None and options.count < 0:
        parser.error("--count is 0 or more")
    try:
        with contextlib.ExitStack() as ends:
            machine = ends.enter_context(
                plc_client.Controller(options.address, port=options.port, tags=options.tags))
            watched = machine.watch(options.names, options.period)
            log = open_csv(options.csv, ends) if options.csv else open_sqlite(options.sqlite, ends)
            for readings in itertools.islice(watched, options.count):
                log([row(reading) for reading in readings])
    except (plc_client.Error, OSError, sqlite3.Error) as error:
        print(f"logger.py: {error}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        pass
    return 0


if __name__ == "__main__":
    sys.exit(main())
