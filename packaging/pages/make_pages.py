#!/usr/bin/env python3
"""Writes the manual page of a program and its completions for bash and zsh from what it says with --help.

make_pages.py --version VERSION [--date DATE] [--others PROGRAM...] --output FOLDER --name NAME -- [EMULATOR...] PROGRAM

FOLDER/NAME.1, FOLDER/NAME.1.gz, FOLDER/bash/NAME, FOLDER/zsh/_NAME
"""
import argparse
import gzip
import pathlib
import sys

sys.dont_write_bytecode = True
import completion  # noqa: E402  (no byte code beside the sources)
import manual_page  # noqa: E402
import program_help  # noqa: E402


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--version", required=True)
    parser.add_argument("--date", default="")
    parser.add_argument("--others", nargs="*", default=[])
    parser.add_argument("--output", required=True, type=pathlib.Path)
    parser.add_argument("--name", required=True)
    parser.add_argument("program", nargs="+")
    options = parser.parse_args()

    page = program_help.help_of(options.name, options.program)
    manual = manual_page.manual_page(page, options.version, options.date, options.others).encode()
    written = {f"{options.name}.1": manual, f"{options.name}.1.gz": gzip.compress(manual, 9, mtime=0),
               f"bash/{options.name}": completion.bash_completion(page).encode(),
               f"zsh/_{options.name}": completion.zsh_completion(page).encode()}
    for name, content in written.items():
        file = options.output / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(content)


if __name__ == "__main__":
    main()
