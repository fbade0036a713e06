#!/usr/bin/env python3
"""Runs the examples of a document, or of the programs' help, with the installed programs and compares what they print.

check_examples.py install PREFIX --build FOLDER     installs the build into PREFIX, where the others find it
check_examples.py document PREFIX DOCUMENT          every fenced block of a document
check_examples.py update PREFIX DOCUMENT            writes the outputs anew that differ, after a change that was meant
check_examples.py help PREFIX                       every example of the help texts
check_examples.py self PREFIX                       changed and unknown blocks are found

Blocks: `console` shows commands behind "$ " and their output; `sh` shows commands alone; `csv` is a tag file that the
checker finds nothing wrong with; `toml` is a file with its name in the first line; `c` is a file of examples/, `cpp` a
part of one; `python` is one of examples/, or in docs/python.md, whose blocks the package's own tests run; `text` is a
drawing or a list and holds no command. A block of any other kind fails.
"""
import argparse
import pathlib
import re
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True
from document import Block, Failure, Mismatch, blocks_of, console_steps, same_output, shell_steps  # noqa: E402
from session import RUN_LIMIT_S, Session  # noqa: E402

TESTS = pathlib.Path(__file__).resolve().parent
ROOT = TESTS.parent.parent.parent

# Commands that no test can run: document, how the command begins, why.
NOT_RUN = [
    ("README.md", "scripts/package", "builds for two targets; scripts/package-test tries what comes out"),
    ("README.md", "sudo apt-get install", "changes the machine; scripts/test-long does it in a root of its own"),
    ("SECURITY.md", "gpg --verify", "needs a release with its signature; scripts/package --sign was tried with a key"),
    ("SECURITY.md", "sha256sum --check", "needs a release"),
    ("docs/capture_and_why.md", "plc-host why --address 192.168.0.10", "needs a controller in the reader's network"),
    ("docs/capture_and_why.md", "sudo tcpdump", "records the reader's network"),
    ("docs/capture_and_why.md", "plc-host why --capture field.pcap --tags PLCC0A8000A_0.csv", "needs that record"),
    ("docs/dissector.md", "wireshark ", "opens a window; tshark loads the same dissector"),
    ("docs/gateway.md", "sudo ", "changes the machine"),
    ("docs/gateway.md", "journalctl ", "shows a service of the reader's machine"),
    ("docs/releasing.md", "scripts/", "takes hours; what a release needs is tested by itself"),
    ("docs/releasing.md", "git ", "changes the sources"),
    ("docs/releasing.md", "PLC_PACKAGES=", "needs the packages of a release"),
    ("docs/upgrade.md", "dpkg-query", "asks for packages that a machine with the sources need not have"),
    ("docs/upgrade.md", "sudo apt-get", "changes the machine"),
    ("docs/performance.md", "scripts/bench", "measures for minutes; its results are checked where it runs"),
    ("docs/performance.md", "build/bench/", "measures for minutes; its results are checked where it runs"),
]

# What a reader replaces by something of his own: document, what is shown, what it stands for here, why.
PLACEHOLDERS = [
    ("docs/gateway.md", "password_file plant/passwords", "password_file plant/passwords\\nuser root",
     "the reader: started by root, mosquitto becomes a user who cannot read this folder"),
    ("docs/porting.md", "/path/to/panel.cmake", "native.cmake", "the toolchain of the reader's panel"),
    ("docs/porting.md", "/path/to/staging", "staging", "a folder of the reader's choice"),
    ("help", "--address 192.168.0.10 --port 8500", "--address 127.0.0.1 --port 8500", "a controller on the network"),
    ("help", "--address 192.168.0.10 Motor", "--address 127.0.0.1 Motor", "the same"),
    ("help", "--address 192.168.0.10 'Name", "--address 127.0.0.1 'Name", "the same"),
    ("help", "--address 192.168.0.10 MAIN", "--address 127.0.0.1 MAIN", "the same"),
    ("help", "survey --address 192.168.0.10", "survey --address 127.0.0.1", "the same"),
    ("help", "--live --address 192.168.0.10", "--live --address 127.0.0.1", "the same"),
    ("help", "--rounds 600", "--rounds 3", "five minutes"),
]

# Documents whose reader has not installed the dissector.
WITHOUT_PLUGINS = ("docs/dissector.md",)

# Blocks that are a file of examples/, but for those of a document that tests/python runs.
FILE_SUFFIXES = {"c": ".c", "python": ".py"}
PYTHON_DOCUMENT = "docs/python.md"

# Files that examples of the help texts take for granted: name and where its content comes from.
HELP_FILES = {"PLC7F000001_0.csv": "examples/tags/PLC7F000001_0.csv",
              "PLC7F000001_1.csv": "examples/tags/PLC7F000001_1.csv",
              "list.csv": "tests/product/docs/list.csv",
              "PLCC0A8000A_0.csv": "tests/product/docs/machine.csv", "machine.csv": "tests/product/docs/machine.csv"}
# A capture of the reader's machine, which examples of the help texts take for granted.
CAPTURE = "plc-host read --sim machine.csv --sim-arg=--pcap=field.pcap Motor.Speed"
# The largest indexed id of a file can never be asked for, so --all would fail with indexed ids in it.
INDEXED_FILES = {"machine.csv": "tests/product/docs/machine_indexed.csv"}
NATIVE_TOOLCHAIN = "set(CMAKE_C_COMPILER cc)\nset(CMAKE_CXX_COMPILER c++)\n"


def placeholders(document):
    return [(shown, meant) for name, shown, meant, _ in PLACEHOLDERS if name == document]


def run_steps(session, document, steps, compare, mismatches=None):
    """Runs commands; what they print otherwise than shown fails, or is collected."""
    for step in steps:
        if any(name == document and step.command.startswith(start) for name, start, _ in NOT_RUN):
            continue
        try:
            session.run(step, compare)
        except Mismatch as mismatch:
            if mismatches is None:
                raise
            mismatches.append(mismatch)


def check_csv(session, block):
    """A tag file that is shown is one that the driver understands, and the checker has nothing to say."""
    (session.folder / "PLC7F000001_0.csv").write_text("\n".join(block.lines) + "\n", encoding="utf-8")
    code, lines = session.output_of(f"plc-host check {session.folder}/PLC7F000001_0.csv", 0)
    if code != 0 or any(re.search(r": (error|warning): ", line) for line in lines):
        raise Failure(f"line {block.line}: the tag file:\n" + "\n".join(lines))


def check_text(block):
    """Text is no hiding place for commands."""
    for number, line in enumerate(block.lines, block.line):
        if re.match(r"\$ |plc-(host|sim) |scripts/|tshark ", line):
            raise Failure(f"line {number}: a command in a text block: {line}")


def check_block(session, document, block, mismatches=None):
    if block.kind == "console":
        run_steps(session, document, console_steps(block), True, mismatches)
    elif block.kind == "sh":
        run_steps(session, document, shell_steps(block), False)
    elif block.kind == "csv":
        check_csv(session, block)
    elif block.kind == "toml":
        session.write(block)
    elif block.kind == "cpp":
        shown = "\n".join(block.lines) + "\n"
        if not any(shown in file.read_text(encoding="utf-8") for file in (ROOT / "examples").rglob("*.cpp")):
            raise Failure(f"line {block.line}: no file of examples/ has these lines")
    elif block.kind in FILE_SUFFIXES:
        shown = "\n".join(block.lines) + "\n"
        files = (ROOT / "examples").rglob(f"*{FILE_SUFFIXES[block.kind]}")
        if document != PYTHON_DOCUMENT and shown not in [file.read_text(encoding="utf-8") for file in files]:
            raise Failure(f"line {block.line}: no file of examples/ is as shown")
    elif block.kind == "text":
        check_text(block)
    else:
        raise Failure(f"line {block.line}: a block of the unknown kind '{block.kind}'")


def check_document(prefix, name, text=None):
    """The problems of one document."""
    session = Session(prefix, ROOT, placeholders(name), name not in WITHOUT_PLUGINS)
    (session.folder / "native.cmake").write_text(NATIVE_TOOLCHAIN, encoding="utf-8")
    problems = []
    try:
        for block in blocks_of((ROOT / name).read_text(encoding="utf-8") if text is None else text):
            check_block(session, name, block)
    except Failure as failure:
        problems.append(f"{name}: {failure}")
    return problems + session.close()


def update_document(prefix, name):
    """Writes what commands print into the document."""
    file = ROOT / name
    lines = file.read_text(encoding="utf-8").split("\n")
    session = Session(prefix, ROOT, placeholders(name), name not in WITHOUT_PLUGINS)
    (session.folder / "native.cmake").write_text(NATIVE_TOOLCHAIN, encoding="utf-8")
    mismatches = []
    for block in blocks_of("\n".join(lines)):
        check_block(session, name, block, mismatches)
    for mismatch in reversed(mismatches):
        start = mismatch.step.output_line - 1
        indent = re.match(r"\s*", lines[mismatch.step.line - 1])[0]
        lines[start:start + len(mismatch.step.output)] = [indent + line for line in mismatch.found]
    file.write_text("\n".join(lines), encoding="utf-8")
    return session.close()


def help_examples(session, program):
    """Every example of a program's help and of its commands' help."""
    code, lines = session.output_of(f"{program} --help", 0)
    commands = re.findall(r"^  (\w[\w-]*)", "\n".join(lines).partition("Subcommands:\n")[2].partition("\n\n")[0], re.M)
    for command in commands:
        more_code, more = session.output_of(f"{program} {command} --help", 0)
        code, lines = code or more_code, lines + more
    if code != 0:
        raise Failure("\n".join(lines))
    return list(dict.fromkeys(line.strip() for line in lines if line.startswith(f"  {program} ")))


def check_help(prefix):
    """The examples of the help texts run, and end with 0."""
    problems = []
    examples = [example for program in ("plc-host", "plc-sim")
                for example in examples_and_close(prefix, program)]
    for example in examples:
        session = Session(prefix, ROOT, placeholders("help"))
        for name, source in {**HELP_FILES, **(INDEXED_FILES if "--id " in example else {})}.items():
            shutil.copy(ROOT / source, session.folder / name)
        shutil.copy(prefix / "lib" / "libplc_driver.so.1", session.folder / "libplc_driver.so.1")
        try:
            steps = [f"$ {CAPTURE}", f"$ {example}"] if "field.pcap" in example else [f"$ {example}"]
            if " --address " in example and (" check " not in example or " --live " in example):
                # Who gives no port means the usual one.
                steps = ["$ plc-sim --listen 127.0.0.1:8500 PLCC0A8000A_0.csv", f"$ PLC_HOST_PORT=8500 {example}"]
                shutil.copy(ROOT / HELP_FILES["machine.csv"], session.folder / "PLC7F000001_0.csv")
            for step in console_steps(Block("console", steps, 1)):
                session.run(step, False)
        except Failure as failure:
            problems.append(f"{example}: {failure}")
        problems += session.close()
    if len(examples) < 15:
        problems.append(f"only {len(examples)} examples found")
    return problems


def examples_and_close(prefix, program):
    session = Session(prefix, ROOT)
    try:
        return help_examples(session, program)
    finally:
        session.close()


VERSION = re.search(r"^project\(plc_driver VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"),
                    re.M)[1]
SOUND = f"```console\n$ plc-host --version\nplc-host {VERSION}\n```\n"
INDENTED = "1. A step:\n\n" + re.sub("(?m)^(?=.)", "   ", SOUND)
FAULTY = {
    "a changed output": SOUND.replace(VERSION, VERSION + "1"),
    "a changed output in a list": INDENTED.replace(VERSION, VERSION + "1"),
    "output that is not shown": "```console\n$ plc-host --version\n```\n",
    "a line too many": SOUND.replace(VERSION, VERSION + "\nmore"),
    "a command that fails": "```sh\nplc-host no-such-command\n```\n",
    "a block of an unknown kind": "```bash\nplc-host --version\n```\n",
    "a block without a kind": "```\nplc-host --version\n```\n",
    "a command in a text": "```text\n$ plc-host --version\n```\n",
    "a block without an end": SOUND.removesuffix("```\n"),
    "a program that is no example": "```c\nint main(void) { return 0; }\n```\n",
    "lines of no example": "```cpp\nplc_client::Options options(8500);\n```\n",
    "a program in Python that is no example": "```python\nprint(5)\n```\n",
    "a faulty tag file": "```csv\nSpeed,Int,,,,,,0,1,0,0,\n```\n",
    "another value": "```console\n$ plc-sim --listen 127.0.0.1:8500 examples/tags/PLC7F000001_0.csv\n"
                     "listening on 127.0.0.1:8500\nset Motor.Speed 120\nok\n"
                     "$ plc-host read --quiet --address 127.0.0.1 --port 8500 --tags examples/tags/PLC7F000001_0.csv "
                     "Motor.Speed\nMotor.Speed  DINT  good           20:53:02.236  121\n```\n",
}


def check_self(prefix):
    """What is sound passes, what is not is found, and every exception is of a command that a document has."""
    problems = check_document(prefix, "README.md", SOUND)
    problems += check_document(prefix, "README.md", INDENTED)
    problems += check_document(prefix, "README.md", FAULTY["another value"].replace("121", "120"))
    for what, text in FAULTY.items():
        if not check_document(prefix, "README.md", text):
            problems.append(f"{what} is not found")
    for name, start, reason in NOT_RUN:
        steps = [step.command for block in blocks_of((ROOT / name).read_text(encoding="utf-8"))
                 for step in (console_steps(block) if block.kind == "console" else
                              shell_steps(block) if block.kind == "sh" else [])]
        if not reason or not any(command.startswith(start) for command in steps):
            problems.append(f"{name} has no command '{start}...'")
    for expected, found, same in ((["a", "...", "d"], ["a", "b", "c", "d"], True), (["a", "..."], ["a"], True),
                                  (["...", "d"], ["a"], False), (["a"], [], False)):
        if same_output(expected, found) != same:
            problems.append(f"{expected} and {found}")
    return problems


def install(prefix, build):
    shutil.rmtree(prefix, ignore_errors=True)
    subprocess.run(["cmake", "--install", build, "--prefix", prefix], check=True, stdin=subprocess.DEVNULL,
                   stdout=subprocess.PIPE, timeout=RUN_LIMIT_S)
    return []


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("check", choices=("install", "document", "update", "help", "self"))
    parser.add_argument("prefix", type=lambda text: pathlib.Path(text).resolve())
    parser.add_argument("document", nargs="?")
    parser.add_argument("--build")
    options = parser.parse_args()
    problems = {"install": lambda: install(options.prefix, options.build),
                "document": lambda: check_document(options.prefix, options.document),
                "update": lambda: update_document(options.prefix, options.document),
                "help": lambda: check_help(options.prefix),
                "self": lambda: check_self(options.prefix)}[options.check]()
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
