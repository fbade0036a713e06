#!/usr/bin/env python3
"""Pushes every character that a terminal obeys or hides through every output of the programs, as names, program names,
values, file names and words of the command line, and finds none of them raw in what comes out.

check_outputs.py --library LIBPLC_DRIVER PROGRAM=PATH...   A row of ROWS is a command; another program is more rows.
"""

import argparse
import csv
import io
import json
import os
import pathlib
import pty
import re
import subprocess
import sys
import tempfile
import unicodedata
from concurrent.futures import ThreadPoolExecutor
from typing import NamedTuple

RUN_LIMIT_S = 60
AT_ONCE = 4
FORGED = "FORGED"  # behind what would begin a line
# Written out, and not taken from the programs.
CONTROLS = [*range(0x01, 0x20), *range(0x7F, 0xA0)]
UNSEEN = [0xAD, 0x34F, 0x61C, 0x115F, 0x1160, 0x17B4, 0x17B5, *range(0x180B, 0x1810), *range(0x200B, 0x2010),
          *range(0x2028, 0x202F), *range(0x2060, 0x2070), 0x3164, 0xFE00, 0xFE0F, 0xFEFF, 0xFFA0, 0xFFF9, 0xFFFB,
          0xFFFE, 0xFFFF]
BEYOND = [0x1BCA0, 0x1D173, 0x1D17A, 0xE0001, 0xE0041, 0xE007F, 0xE0100, 0x1FFFE, 0x10FFFF]
BROKEN = [b"\x80", b"\x9b", b"\xff", b"\xc0\x9b", b"\xe2\x80", b"\xed\xa0\x80", b"\xf4\x90\x80\x80"]
FORMULAS = ["=cmd|' /C calc'!A0", "+1", "-1", "@SUM(1)", " =1", "\"=1\"", "\uff1d1", "\uff0b1", "\uff0d1", "\uff201",
            "x;=1"]
NAME_BYTES = 60  # of a variable
FILE_BYTES = 200  # of a file

# Words of a command that stand for something hostile.
TAGS = "{tags}"  # a tag file whose names, program names and own name are hostile
NAME = "{name}"  # one of its names
TEXT = "{text}"  # all characters at once, as a word
FILE = "{file}"  # the name of a file that is not there
PORT = "{port}"  # of a simulated controller with such variables
CAPTURE = "{capture}"  # traffic about such names
LOG = "{log}"  # where a log of watch goes, a folder of its own for each run
SURVEY = "{survey}"  # where a survey goes
CONFIG = "{config}"  # a configuration of plc-gateway that takes every name of TAGS
# Kinds of standard output.
LINES, JSON, CSV, SARIF, TERMINAL = "lines", "json", "csv", "sarif", "terminal"
LOGGED = "lines, and a log with every name"
SURVEYED = "lines, and a survey's files"

COMMANDS = ("tags", "check", "read", "write", "batch", "watch", "why")  # of plc-host, that load the driver
LIVE = ("--address", "127.0.0.1", "--port", PORT, "--tags", TAGS)


class Row(NamedTuple):
    program: str
    words: tuple
    kind: str = LINES


def option_rows():
    """Every option that takes a word, with a hostile one."""
    target = ("--address", "--port", "--area", "--tags", "--sim", "--simulator", "--sim-arg", "--timeout", "--delay")
    of_command = {
        "info": (), "tags": (), "check": ("--address", "--fix"), "read": ("--id", "--offset", "--count", *target),
        "write": target, "batch": target,
        "watch": ("--interval", "--rounds", "--chart", "--log", "--rotate", "--deadband", "--keep", *target),
        "why": ("--id", "--offset", "--count", "--capture", "--capture-port", "--pcap", *target)}
    goes_with = {"--port": ("--address", "127.0.0.1"), "--simulator": ("--sim", TAGS),
                 "--sim-arg": ("--sim", TAGS),
                 "--tags": ("--address", "127.0.0.1", "--port", "1"), "--chart": LIVE,
                 "--pcap": LIVE, "--log": LIVE, "--rotate": ("--log", LOG), "--deadband": ("--log", LOG),
                 "--keep": ("--log", LOG, "--rotate", "1kB"), "--offset": ("--id", "1"), "--count": ("--id", "1"),
                 "--capture-port": ("--capture", FILE)}
    names = {"info": (), "tags": (TAGS,), "check": (TAGS,), "write": (NAME + "=1",),
             "watch": (NAME, "--rounds", "1")}
    for command, options in of_command.items():
        for option in ("--driver", "--library", *options):
            for hostile in (TEXT, FILE):
                words = (*names.get(command, (NAME,)), *goes_with.get(option, ()))
                yield Row("plc-host", (command, *words, option + "=" + hostile))


ROWS = [
    Row("plc-host", (TEXT,)),
    Row("plc-host", ("--" + TEXT,)),
    Row("plc-host", ("read", "--" + TEXT)),
    *option_rows(),
    Row("plc-host", ("tags", TAGS)),
    Row("plc-host", ("tags", TAGS, "--names")),
    Row("plc-host", ("tags", TAGS, "--json"), JSON),
    Row("plc-host", ("tags", TAGS, "--format", "csv"), CSV),
    Row("plc-host", ("tags", FILE)),
    Row("plc-host", ("check", TAGS)),
    Row("plc-host", ("check", TAGS, "--json"), JSON),
    Row("plc-host", ("check", TAGS, "--sarif"), SARIF),
    Row("plc-host", ("check", FILE)),
    *(Row("plc-host", (command, *words, *LIVE, *form), kind)
      for command, words in (("read", ("--all",)), ("read", (NAME, TEXT)), ("batch", ("--all",)),
                             ("write", (NAME + "=x\n" + FORGED,)), ("write", (TEXT + "=1",)), ("write", (TEXT,)),
                             ("why", (NAME,)), ("why", (TEXT,)))
      for form, kind in (((), LINES), (("--json",), JSON))),
    Row("plc-host", ("read", "--all", *LIVE, "--format", "csv"), CSV),
    *(Row("plc-host", ("read", NAME, *LIVE, "--profile=" + profile)) for profile in (TEXT, FILE, TAGS)),
    Row("plc-host", ("survey", *LIVE, "--rate", "1000", "--output", SURVEY), SURVEYED),
    *(Row("plc-host", ("survey", *LIVE, "--output=" + SURVEY, "--write=" + name)) for name in (TEXT, NAME)),
    *(Row("plc-host", ("watch", "--all", "--rounds", "2", "--interval", "1", *LIVE, *form), kind)
      for form, kind in (((), LINES), (("--json",), JSON), (("--csv",), CSV), ((), TERMINAL))),
    Row("plc-host", ("watch", TEXT, *LIVE)),
    *(Row("plc-host", ("watch", "--all", "--rounds", "3", "--interval", "1", *LIVE, "--log", LOG, *more), LOGGED)
      for more in ((), ("--log-rounds",), ("--rotate", "2kB", "--keep", "100"),
                   ("--rotate", "daily", "--deadband", "1"))),
    *(Row("plc-host", ("why", "--capture", CAPTURE, *tags, name, *form), kind)
      for tags in ((), ("--tags", TAGS)) for name in (NAME, TEXT)
      for form, kind in (((), LINES), (("--json",), JSON))),
    Row("plc-host", ("why", "--capture", TAGS, NAME)),
    Row("plc-host", ("read", "--all", "--sim", TAGS, "--sim-arg=" + TEXT)),
    Row("plc-host", ("read", "--all", "--sim", TAGS, "--sim-arg=--skip-bad-lines")),
    Row("plc-sim", (TAGS,)),
    Row("plc-sim", (TEXT,)),
    Row("plc-sim", ("--listen", "127.0.0.1:0", "--skip-bad-lines", "--report", "-", TAGS)),
    *(Row("plc-sim", (option + "=" + hostile, "--listen", "127.0.0.1:0", "--skip-bad-lines", TAGS))
      for option in ("--" + TEXT, "--listen", "--fault", "--program", "--directory-order", "--animate-ms", "--pcap",
                     "--report", "--web")
      for hostile in (TEXT, FILE)),
    *(Row("plc-sim", ("--replay", file)) for file in (TEXT, FILE, TAGS)),
    *(Row("plc-gateway", words) for command in ("check", "run", "journal")
      for words in ((command, TEXT), (command, FILE), (command, TAGS), (command, "--" + TEXT))),
    Row("plc-gateway", (TEXT,)),
    Row("plc-gateway", ("check", CONFIG)),
]


class Failure(Exception):
    """What came out is not fit for where it goes."""


def packs(most_bytes):
    """The characters in texts of so many bytes."""
    wanted = [chr(value).encode("utf-8", "surrogatepass") for value in CONTROLS + UNSEEN + BEYOND] + BROKEN
    pack = b""
    for character in wanted:
        if len(pack) + len(character) > most_bytes:
            yield pack
            pack = b""
        pack += character + b"a"
    yield pack


def is_hidden(character):
    """By the database of characters, and by what is drawn as nothing though it is called a letter or a sign."""
    value = ord(character)
    drawn_as_nothing = (0x34F, 0x115F, 0x1160, 0x17B4, 0x17B5, 0x3164, 0xFFA0, *range(0x180B, 0x180E), 0x180F)
    seen_formats = (*range(0x600, 0x606), 0x6DD, 0x70F, 0x890, 0x891, 0x8E2, 0x110BD, 0x110CD)
    return ((unicodedata.category(character) in ("Cc", "Cf", "Zl", "Zp") and value not in seen_formats)
            or value in drawn_as_nothing or 0xFE00 <= value <= 0xFE0F or 0xE0000 <= value <= 0xE0FFF
            or value & 0xFFFE == 0xFFFE or 0xFDD0 <= value <= 0xFDEF)


def is_utf8(data):
    try:
        data.decode("utf-8", "strict")
    except UnicodeDecodeError:
        return False
    return True


def look_at_text(where, data):
    try:
        text = data.decode("utf-8", "strict")
    except UnicodeDecodeError as error:
        raise Failure(f"{where}: no UTF-8: {error}") from error
    for line in text.split("\n"):
        for character in set(line):
            if is_hidden(character):
                raise Failure(f"{where}: U+{ord(character):04X} in {line!r}")
        if re.match(r"\s*([\w-]+: )*" + FORGED, line):
            raise Failure(f"{where}: a line that somebody else wrote: {line!r}")
    return text


def look_at_json(text):
    for line in text.splitlines():
        json.loads(line)


def look_at_sarif(text):
    if not text:
        return  # of a file that was refused
    for result in json.loads(text)["runs"][0]["results"]:
        address = result["locations"][0]["physicalLocation"]["artifactLocation"]["uri"]
        if not re.fullmatch(r"(?:[\w.~/-]|%[0-9A-F]{2})+", address, re.ASCII):
            raise Failure(f"an address that is not encoded: {address!r}")
        look_at_text("message", result["message"]["text"].encode())


def look_at_csv(text):
    if not text:
        return  # of a file that was refused
    rows = list(csv.reader(io.StringIO(text)))
    if len(rows) != text.count("\n") or len({len(row) for row in rows}) != 1:
        raise Failure("rows of different lengths")
    for cell in (part for row in rows for cell in row for part in cell.split(";")):
        # What spreadsheets look past at a cell's beginning; a number may have a sign.
        begun = cell.lstrip(" \u00a0\u3000\"'")
        if re.match("[=+\\-@\uff1d\uff0b\uff0d\uff20]", begun) and not cell.lstrip(" ").startswith("'"):
            if not re.fullmatch(r"-[0-9.e+-]+", cell):
                raise Failure(f"a formula: {cell!r}")
    if not any(cell.startswith("'=") for row in rows for cell in row):
        raise Failure("no formula came as far as here")


LOOK_AT = {LINES: lambda text: None, JSON: look_at_json, CSV: look_at_csv, SARIF: look_at_sarif,
           TERMINAL: lambda text: None, LOGGED: lambda text: None, SURVEYED: lambda text: None}


def escaped(data):
    return "".join(f"\\x{byte:02X}" for byte in data)


class Bench:
    """The folder with the hostile files, and the simulated controller."""

    def __init__(self, folder, programs, library):
        self.folder = pathlib.Path(folder)
        self.programs = programs
        self.library = library
        self.packs = list(packs(NAME_BYTES))
        # What begins a tag file's line would end it, and a slash a file's name.
        self.names = [b"N" + pack.replace(b"\n", b"").replace(b"\r", b"") for pack in self.packs]
        self.names += [formula.encode() for formula in FORMULAS if "," not in formula]
        forged = FORGED.encode()
        self.text = b"x\nplc-host: " + forged + b"\nviolation: " + forged + b"\r" + b"".join(self.packs)
        self.tag_files = [self.write_tags(pack.replace(b"\n", b"")) for pack in packs(FILE_BYTES)]
        self.tag_files.append(self.write_tags(b"x\nplc-host: " + FORGED.encode()))
        self.machine = self.folder / "machine.csv"
        self.machine.write_bytes(b"".join(line + b"\n" for line in self.good_lines() if is_utf8(line)))
        self.port = None
        self.capture = self.folder / "traffic.pcap"

    def good_lines(self):
        texts = [name + b",STRING,,200,,,,%d,1,0,0,,DM" % number for number, name in enumerate(self.names)]
        return texts + [b"I" + name + b",INT,,,,,,%d,0,0,1,S" % number + name for number, name in
                        enumerate(self.names, start=len(texts))]

    def write_tags(self, pack):
        wrong = [b"W" + name + b",T" + name + b"," + name + b"," + name + b",,,," + name + b"," + name + b",," + name
                 for name in self.names if len(name) < 40]
        path = os.fsencode(self.folder) + b"/" + pack.replace(b"/", b"")
        with open(path, "wb") as file:
            file.write(b"\n".join(self.good_lines() + wrong) + b"\n")
        return path

    def write_config(self, path, tags):
        """Names that cannot be a text of TOML are in the tag file alone."""
        (path.parent / "tags").mkdir()
        os.symlink(tags, path.parent / "tags" / "PLC7F000001_0.csv")
        path.write_text(f"""[controller]
name = "{FORGED}"
address = "127.0.0.1"
tags = "tags/PLC7F000001_0.csv"
driver = "{self.library}"
[broker]
url = "mqtt://127.0.0.1"
[sparkplug]
group = "x\\nplc-gateway: {FORGED}\\u202E"
edge_node = "\\u009B"
[[poll]]
every_ms = 50
names = ["*", "N\\u001B[2J*", "\\u202Eplc-gateway: {FORGED}"]
[journal]
folder = "."
[json]
topic = "{{name}}"
["x\\nplc-gateway: {FORGED}"]
""")

    def words(self, row, tags, name, log):
        there = {TAGS: tags, NAME: name, TEXT: self.text, FILE: tags + b"\nplc-host: " + FORGED.encode(),
                 PORT: str(self.port).encode(), CAPTURE: os.fsencode(self.capture), LOG: os.fsencode(log),
                 SURVEY: os.fsencode(log.parent / "survey"), CONFIG: os.fsencode(log.parent / "gateway.toml")}
        if CONFIG in row.words:
            self.write_config(log.parent / "gateway.toml", tags)
        words = [os.fsencode(self.programs[row.program])]
        for word in row.words:
            data = word.encode()
            for placeholder, meant in there.items():
                data = data.replace(placeholder.encode(), meant)
            words.append(data)

        def has(*options):
            return any(word.startswith(options) for word in row.words)

        if row.program == "plc-host" and row.words[0] in COMMANDS and not has("--driver", "--library"):
            words[2:2] = [b"--driver", os.fsencode(self.library)]
        if has("--sim") and not has("--simulator"):
            words += [b"--simulator", os.fsencode(self.programs["plc-sim"])]
        return words

    def run(self, words):
        return subprocess.run(words, cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, timeout=RUN_LIMIT_S, check=False)

    def run_on_terminal(self, words):
        """What the program draws, without the sequences that are its own."""
        ours, theirs = pty.openpty()
        with subprocess.Popen(words, cwd=self.folder, stdin=subprocess.DEVNULL, stdout=theirs,
                              stderr=subprocess.PIPE) as child:
            os.close(theirs)
            drawn = b""
            while True:
                try:
                    piece = os.read(ours, 65536)
                except OSError:  # how a terminal tells that nobody writes to it any more
                    break
                drawn += piece
            errors = child.stderr.read()
        os.close(ours)
        drawn = re.sub(rb"\x1b\[(\?25[lh]|\d+A|J|0m|1m|31m)", b"", drawn).replace(b"\r\n", b"\n")
        return drawn, errors

    def fill(self):
        """Gives every text a hostile value, and records traffic about the names."""
        live = [b"--address", b"127.0.0.1", b"--port", str(self.port).encode(), b"--tags", self.tag_files[0],
                b"--driver", os.fsencode(self.library)]
        values = self.packs + [formula.encode() for formula in FORMULAS]
        for number, name in enumerate(self.names):
            value = values[number % len(values)]
            self.run([os.fsencode(self.programs["plc-host"]), b"write", *live,
                      name + b'="' + escaped(value).encode() + b'"'])
        self.run([os.fsencode(self.programs["plc-host"]), b"why", *live, self.names[0], b"--pcap",
                  os.fsencode(self.capture)])
        if not self.capture.is_file():
            raise Failure("there is no traffic to look at")

    def check(self, row):
        """With every file's name, where there is one in the row; every character, and a formula, in a variable's."""
        has_files = any(FILE in word or word in (TAGS, CAPTURE, CONFIG) for word in row.words)
        has_names = any(NAME in word for word in row.words)
        rounds = max(len(self.tag_files), len(self.packs) + 1 if has_names else 0) if has_files else 1
        logged = ""
        for number in range(rounds):
            log_folder = pathlib.Path(tempfile.mkdtemp(prefix="log.", dir=self.folder))
            words = self.words(row, self.tag_files[number % len(self.tag_files)], self.names[number],
                               log_folder / "log.csv")
            if row.kind == TERMINAL:
                out, err = self.run_on_terminal(words)
            else:
                done = self.run(words)
                out, err = done.stdout, done.stderr
                if done.returncode < 0 or done.returncode > 100:
                    raise Failure(f"ended with {done.returncode}")
            look_at_text("standard error", err)
            LOOK_AT[row.kind](look_at_text("standard output", out))
            leaves_files = row.kind in (LOGGED, SURVEYED)
            look_at_files = [file for file in log_folder.rglob("*") if leaves_files and file.is_file()]
            logged += "".join(look_at_text(file.name, file.read_bytes()) for file in look_at_files
                              if file.suffix != ".pcapng")
        # Not every tag file has a name that is taken.
        if row.kind == SURVEYED and "<html" not in logged:
            raise Failure("there is no report")
        if row.kind == LOGGED:
            if not logged:
                raise Failure("there is no log")
            look_at_csv(logged)


def start_controller(bench):
    """A simulated controller with the hostile variables; its port is in its first line."""
    controller = subprocess.Popen([bench.programs["plc-sim"], "--listen", "127.0.0.1:0", bench.machine],
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    for line in controller.stdout:
        found = re.fullmatch(rb"listening on 127\.0\.0\.1:(\d+)\n", line)
        if found:
            bench.port = int(found[1])
            return controller
    raise Failure("the simulated controller does not listen")


def failure_of(bench, row):
    try:
        bench.check(row)
    except (Failure, subprocess.TimeoutExpired, ValueError) as error:
        return f"{row.program} {' '.join(row.words)} ({row.kind}): {error}"
    return None


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--library", required=True)
    parser.add_argument("programs", nargs="+", metavar="PROGRAM=PATH")
    options = parser.parse_args()
    programs = dict(word.split("=", 1) for word in options.programs)
    with tempfile.TemporaryDirectory(prefix="hostile.") as folder:
        bench = Bench(folder, programs, options.library)
        with start_controller(bench) as controller:
            bench.fill()
            rows = [row for row in ROWS if row.program in programs]
            with ThreadPoolExecutor(AT_ONCE) as pool:
                failures = [failure for failure in pool.map(lambda row: failure_of(bench, row), rows) if failure]
            controller.stdin.close()
            controller.stdout.read()
    for failure in failures:
        print(failure)
    print(f"{len(rows)} commands, {len(failures)} with something raw in their output")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
