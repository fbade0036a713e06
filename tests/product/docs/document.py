"""The examples of a document: its fenced blocks, and the commands with their output that a block shows."""
import dataclasses
import re


class Failure(Exception):
    """What is wrong, as text."""


class Mismatch(Failure):
    """A command printed something else than is shown."""

    def __init__(self, step, found, text):
        super().__init__(text)
        self.step = step
        self.found = found


@dataclasses.dataclass
class Block:
    """A fenced block: the word behind its fence, its lines without the fence's indentation, and the line of the
    document that it begins at."""
    kind: str
    lines: list
    line: int


@dataclasses.dataclass
class Step:
    """A command and the output that is shown for it."""
    command: str
    output: list
    line: int
    output_line: int = 0


def blocks_of(text):
    blocks = []
    fence, indent = None, ""
    for number, line in enumerate(text.split("\n"), 1):
        match = re.match(r"(\s*)(```+|~~~+)\s*(.*)$", line)
        if fence is None and match:
            indent, fence = match[1], match[2]
            blocks.append(Block(match[3].strip(), [], number + 1))
        elif fence is not None and line.strip() == fence:
            fence = None
        elif fence is not None:
            blocks[-1].lines.append(line.removeprefix(indent))
    if fence is not None:
        raise Failure(f"line {blocks[-1].line}: the block has no end")
    return blocks


def console_steps(block):
    """The commands of a transcript: behind '$ ', a backslash at the line's end continues it, the rest is output."""
    steps = []
    for number, line in enumerate(block.lines, block.line):
        if steps and not steps[-1].output and steps[-1].command.endswith("\\"):
            steps[-1].command = steps[-1].command[:-1] + line.strip()
        elif line.startswith("$ "):
            steps.append(Step(line[2:], [], number))
        elif steps:
            steps[-1].output.append(line)
        else:
            raise Failure(f"line {number}: output before the first command")
        if not steps[-1].output:
            steps[-1].output_line = number + 1
    if not steps:
        raise Failure(f"line {block.line}: a transcript without a command")
    for step in steps:
        # An empty line before the next command is for the reader's eye.
        while step.output and not step.output[-1]:
            step.output.pop()
    return steps


def shell_steps(block):
    """The commands of a block that shows no output: one in each line, comments left out."""
    steps = []
    for number, line in enumerate(block.lines, block.line):
        line = re.sub(r"(^|\s+)# .*$", "", line)
        if steps and steps[-1].command.endswith("\\"):
            steps[-1].command = steps[-1].command[:-1] + line.strip()
        elif line.strip():
            steps.append(Step(line, [], number))
    return steps


def same_output(expected, found):
    """Whether output is as shown; a line '...' stands for any number of lines."""
    if not expected:
        return not found
    if expected[0] == "...":
        return any(same_output(expected[1:], found[start:]) for start in range(len(found) + 1))
    return bool(found) and expected[0] == found[0] and same_output(expected[1:], found[1:])
