#!/usr/bin/env python3
"""Holds the help texts of the programs to the style of the pages: short sentences, plain words, options that begin with
a verb.

check_help_prose.py PROGRAM...
"""
import pathlib
import re
import sys

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path[:0] = [str(ROOT / "scripts"), str(ROOT / "packaging" / "pages")]
import prose_rules  # noqa: E402
from program_help import help_of  # noqa: E402

# What an option does, or asks its program to do.
VERBS = """add allow answer arm ask begin change check colour connect continue display draw end fill give imitate keep
let list listen load look make pass pause print read replace search send serve set show start stop take use wait watch
write""".split()


def problems_of(help_text, place):
    """What is wrong with the words of a program's help, or of a command's."""
    texts = [help_text.description, *(" ".join(block.lines) for block in help_text.blocks if block.prose)]
    options = help_text.options()
    texts += [option.text for option in options]
    problems = [problem for text in texts for problem in prose_rules.hard_to_read(place, text)]
    for option in options:
        first = re.sub(r"^With [^:]*: ", "", option.text).split(" ")[0].rstrip(",.:;")
        if first.lower() not in VERBS:
            problems.append(f"{place} {option.names[-1]}: '{option.text}' begins with no verb that is known")
    return problems


def main():
    problems = []
    checked = 0
    for program in sys.argv[1:]:
        help_text = help_of(pathlib.Path(program).name, [program])
        for command, _ in [(help_text, ""), *help_text.commands]:
            problems += problems_of(command, f"{pathlib.Path(program).name} {command.name}")
            checked += len(command.options())
    problems += [] if checked > 60 else [f"only {checked} options found"]
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
