"""What a program says of itself with --help, as data: the one source of its manual page and its completions."""
import dataclasses
import re
import subprocess

RUN_LIMIT_S = 120
# Where the explanations of an option list begin; a longer head has its explanation in the next line.
TEXT_COLUMN = 30


@dataclasses.dataclass
class Option:
    """One line of an option list: an option with its names, or a positional argument."""
    names: list
    value: str = ""
    text: str = ""
    default: str = ""
    bounds: tuple = ()
    choices: list = dataclasses.field(default_factory=list)
    needs: list = dataclasses.field(default_factory=list)
    excludes: list = dataclasses.field(default_factory=list)
    repeated: bool = False
    required: bool = False


@dataclasses.dataclass
class Block:
    """A part of the text behind the options: prose, or indented lines that stand as they are; perhaps with a title."""
    title: str
    prose: bool
    lines: list


@dataclasses.dataclass
class Help:
    """The help text of a program, or of one of its commands."""
    name: str
    description: str
    usage: str
    positionals: list
    groups: list  # of (title, options)
    blocks: list
    commands: list = dataclasses.field(default_factory=list)  # of (Help, short text)

    def options(self):
        return [option for _, options in self.groups for option in options]


def parse_option(head, text):
    """An entry such as '--count UINT=1 Needs: --id' with its explanation."""
    first, _, rest = head.partition(" ")
    option = Option(names=first.split(","), text=text)
    match = re.fullmatch(r"(.*?)(?: ?Needs: (.*?))?(?: ?Excludes: (.*))?", rest)
    rest = match[1]
    option.needs = (match[2] or "").split()
    option.excludes = (match[3] or "").split()
    words = rest.split(" ")
    option.repeated = "..." in words
    option.required = "REQUIRED" in words
    rest = " ".join(word for word in words if word not in ("...", "REQUIRED"))
    match = re.fullmatch(r"(?P<rest>(?:UINT|INT|FLOAT|TEXT)\b.*)=(?P<default>\S+)", rest)
    if match:
        rest, option.default = match["rest"], match["default"]
    match = re.fullmatch(r"(?P<rest>.*):INT in \[(?P<low>-?\d+) - (?P<high>-?\d+)\]", rest)
    if match:
        rest, option.bounds = match["rest"], (match["low"], match["high"])
    match = re.fullmatch(r"(?P<rest>.*):\{(?P<choices>[^}]*)\}", rest)
    if match:
        rest, option.choices = match["rest"], match["choices"].split(",")
    option.value = rest
    return option


def parse_entries(lines):
    """The entries of an option list, each one or two lines."""
    entries = []
    for line in lines:
        if not line.startswith(" " * TEXT_COLUMN):
            entries.append([line, ""])
        elif entries:
            entries[-1][1] += (" " if entries[-1][1] else "") + line.strip()
    return [(head.strip(), text) if text else (head[:TEXT_COLUMN].strip(), head[TEXT_COLUMN:].strip())
            for head, text in entries]


def parse_blocks(lines):
    """The text behind the options."""
    blocks = []
    title = ""
    for line in lines:
        titled = re.fullmatch(r"([A-Z][a-z ]*): ?(.*)", line)
        if not line.strip():
            blocks.append(None)
        elif titled and (not titled[2] or titled[1] == "Exit codes"):
            title = titled[1]
            blocks.append(None)
            if titled[2]:
                blocks.append(Block(title, True, [titled[2]]))
        else:
            prose = not line.startswith(" ")
            if prose and title in ("Example", "Examples"):
                title = ""
            if blocks and blocks[-1] and blocks[-1].prose == prose and blocks[-1].title == title:
                blocks[-1].lines.append(line.strip())
            else:
                blocks.append(Block(title, prose, [line.strip()]))
    return [block for block in blocks if block]


def parse_help(name, text):
    """The help text of one command (or of the program itself), without its commands' own help."""
    lines = text.rstrip().split("\n")
    usage = next(number for number, line in enumerate(lines) if line.startswith("Usage: "))
    parsed = Help(name, " ".join(" ".join(lines[:usage]).split()), lines[usage][len("Usage: "):], [], [], [])
    at = usage + 1
    while at < len(lines):
        title = re.fullmatch(r"([A-Z]\w*(?: \w+)*):", lines[at])
        entries = at + 1 < len(lines) and lines[at + 1].startswith("  ")
        known = title and entries and (title[1] in ("Positionals", "Subcommands") or lines[at + 1].startswith("  -"))
        if lines[at].strip() and not known:
            break
        at += 1
        if not known:
            continue
        end = next((number for number in range(at, len(lines)) if not lines[number].startswith("  ")), len(lines))
        found = parse_entries(lines[at:end])
        if title[1] == "Subcommands":
            parsed.commands = found
        elif title[1] == "Positionals":
            parsed.positionals = [parse_option(*entry) for entry in found]
        else:
            parsed.groups.append((title[1], [parse_option(*entry) for entry in found]))
        at = end
    parsed.blocks = parse_blocks(lines[at:])
    return parsed


def output_of(command):
    return subprocess.run(command, check=True, text=True, encoding="utf-8", stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, timeout=RUN_LIMIT_S).stdout


def help_of(name, program):
    """The help of a program (its command line, an emulator before it perhaps) and of each of its commands."""
    parsed = parse_help(name, output_of([*program, "--help"]))
    parsed.commands = [(parse_help(command, output_of([*program, command, "--help"])), text)
                       for command, text in parsed.commands]
    return parsed
