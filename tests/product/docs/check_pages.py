#!/usr/bin/env python3
"""Holds the manual pages and the completions that are made at build time to what the programs say with --help.

check_pages.py CHECK --pages FOLDER --host PLC_HOST --sim PLC_SIM --library LIBPLC_DRIVER

CHECK is one of: lint, options, examples, format, reproducible, bash, bash-names, zsh
"""
import argparse
import os
import pathlib
import re
import subprocess
import sys
import tempfile

TESTS = pathlib.Path(__file__).resolve().parent
ROOT = TESTS.parent.parent.parent
GENERATOR = ROOT / "packaging" / "pages" / "make_pages.py"
RUN_LIMIT_S = 120
VERSION = re.search(r"^project\(plc_driver VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"),
                    re.M)[1]
FORMAT_PAGE = "plc-tags.5"
# What a page made without a date lacks on purpose.
NO_DATE = 'WARNING: missing date, using "": TH'


def run(command, environment=None, folder=None):
    done = subprocess.run([str(word) for word in command], text=True, encoding="utf-8", stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=RUN_LIMIT_S, cwd=folder, check=False,
                          env={"PATH": os.environ["PATH"], "HOME": "/nonexistent", "LC_ALL": "C.UTF-8",
                               "MANWIDTH": "300", "TERM": "dumb", **(environment or {})})
    return done.returncode, done.stdout, done.stderr


def output_of(command, **more):
    code, out, err = run(command, **more)
    if code != 0:
        raise SystemExit(f"{command}: exit code {code}\n{out}{err}")
    return out


class Program:
    """A program, its commands and options, read from its help without the generator's parser."""

    def __init__(self, name, file):
        self.name = name
        self.file = file
        self.help = output_of([file, "--help"])
        listed = re.search(r"^Subcommands:\n((?:  .*\n)+)", self.help, re.M)
        self.commands = re.findall(r"^  (\w[\w-]*)", listed[1], re.M) if listed else []
        self.command_help = {command: output_of([file, command, "--help"]) for command in self.commands}

    def options(self, command=None):
        """Every name of every option, in the help's order."""
        lines = (self.command_help[command] if command else self.help).split("\n")
        return [name for line in lines if re.match(r"  -", line)
                for name in re.match(r"  (\S+)", line)[1].split(",")]


def rendered(page):
    return output_of(["man", "-l", page])


def section(text, title):
    """The lines of a page's section or subsection."""
    match = re.search(rf"^( *){re.escape(title)}\n((?:(?:\1 +.*)?\n)*)", text, re.M)
    return match[2] if match else ""


def check_lint(options, programs):
    """groff and mandoc have nothing to say."""
    problems = []
    for page in [*(options.pages / f"{program.name}.1" for program in programs), options.pages / FORMAT_PAGE]:
        code, _, err = run(["man", "--warnings=w", "-l", page])
        if code != 0 or err:
            problems.append(f"man {page}: {code}\n{err}")
        _, out, err = run(["mandoc", "-T", "lint", "-W", "style", page])
        problems += [line for line in (out + err).split("\n") if line and not line.endswith(NO_DATE)]
    return problems


def check_options(options, programs):
    """Every option of the help stands in the page, a command's in the command's section or in a shared one."""
    problems = []
    checked = 0
    for program in programs:
        text = rendered(options.pages / f"{program.name}.1")
        shared = "".join(section(text, title) for title in re.findall(r"^[A-Z][A-Z ]+$", text, re.M)
                         if title not in ("COMMANDS", "OPTIONS", "EXAMPLES"))
        for command in [None, *program.commands]:
            place = section(text, command) + shared if command else section(text, "OPTIONS")
            for name in program.options(command):
                checked += 1
                if not re.search(rf"^ +(-\w, )?{name}\b(?!-)", place, re.M):
                    problems.append(f"{program.name}.1: {command or ''} {name} is missing")
            arguments = program.command_help.get(command, program.help).split("Options:")[0]
            words = re.findall(r"^  ([A-Z=]+) .*", arguments, re.M)
            problems += [f"{program.name}.1: {command} {word} is missing" for word in words if word not in place]
    if checked < 60:
        problems.append(f"only {checked} options found")
    return problems


def check_examples(options, programs):
    """Every page and every command of it shows at least one example, and the examples of the help unchanged."""
    problems = []
    for program in programs:
        text = rendered(options.pages / f"{program.name}.1")
        if f"  {program.name} " not in section(text, "EXAMPLES"):
            problems.append(f"{program.name}.1: no examples")
        for command in [None, *program.commands]:
            place = section(text, command) if command else section(text, "EXAMPLES")
            examples = [line.strip() for line in (program.command_help.get(command, program.help)).split("\n")
                        if line.startswith(f"  {program.name} ")]
            if not examples:
                problems.append(f"{program.name} {command}: the help has no example")
            problems += [f"{program.name}.1: '{line}' is missing" for line in examples if line not in place]
        for title in ("NAME", "SYNOPSIS", "DESCRIPTION", "EXIT STATUS", "SEE ALSO"):
            if not section(text, title).strip():
                problems.append(f"{program.name}.1: no {title}")
    return problems


def check_format(options, programs):
    """The page of the file format has the document's sections, and its examples are files without a finding."""
    text = rendered(options.pages / FORMAT_PAGE)
    document = (ROOT / "docs" / "tag_files.md").read_text(encoding="utf-8")
    titles = [title.upper() for title in re.findall(r"^## (.*)", document, re.M)]
    problems = [f"{FORMAT_PAGE}: no {title}" for title in ["NAME", "DESCRIPTION", *titles, "SEE ALSO"]
                if not section(text, title).strip()]
    problems += [f"{FORMAT_PAGE}: no {rule}" for rule in re.findall(r"^\| (T\d+) ", document, re.M)
                 if not re.search(rf"^ +{rule}\b", text, re.M)]
    # Blocks of lines that stand further in than the words around them.
    examples = re.findall(r"(?:^ {11}\S*,.*\n)+", section(text, "EXAMPLES"), re.M)
    if len(examples) < 2:
        problems.append(f"{FORMAT_PAGE}: only {len(examples)} examples")
    with tempfile.TemporaryDirectory() as name:
        file = pathlib.Path(name) / "PLCC0A8000A_0.csv"
        for example in examples:
            file.write_text("".join(line[11:] + "\n" for line in example.splitlines()))
            host = next(program for program in programs if program.name == "plc-host")
            _, out, _ = run([host.file, "check", file])
            if not re.fullmatch(rf"{file}: the driver reads .*\n", out):
                problems.append(f"{FORMAT_PAGE}: the example\n{example}{out}")
    return problems


def check_reproducible(options, programs):
    """Made twice, in different folders, the files are the same, and they are those of the build."""
    problems = []
    for program in programs:
        seen = {}
        for place in ("first", "second/deeper"):
            with tempfile.TemporaryDirectory() as folder:
                output = pathlib.Path(folder) / place
                others = [other.name for other in programs if other is not program] + ["tshark"]
                output_of([sys.executable, GENERATOR, "--version", VERSION, "--others", *others, "--output", output,
                           "--name", program.name, "--", program.file], environment={"TZ": place, "HOME": folder})
                seen[place] = {str(file.relative_to(output)): file.read_bytes()
                               for file in sorted(output.rglob("*")) if file.is_file()}
        if seen["first"] != seen["second/deeper"]:
            problems.append(f"{program.name}: two runs differ")
        for name, content in seen["first"].items():
            built = (options.pages / name).read_bytes()
            # A build of a known commit carries its date.
            if not name.endswith(".gz") and re.sub(rb'" 1 "[-0-9]*"', b'" 1 ""', built) != content:
                problems.append(f"{name}: the build's file is not what the help makes")
    return problems


def bash_offers(script, function, words, folder, **environment):
    """What bash offers for the last of the words."""
    quoted = ". \"$1\"\nshift\n" \
             f"COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); {function}; printf '%s\\n' \"${{COMPREPLY[@]}}\""
    out = output_of(["bash", "--norc", "-u", "-c", quoted, "bash", script, *words], folder=folder,
                    environment=environment)
    return [line for line in out.split("\n") if line]


def check_bash(options, programs):
    """bash offers every command and every option, files where files belong, choices where there are some."""
    problems = []
    checked = 0
    with tempfile.TemporaryDirectory() as folder:
        (pathlib.Path(folder) / "machine.csv").write_text("Speed,INT,,,,,,0,1,0,0,\n")
        for program in programs:
            script = options.pages / "bash" / program.name
            function = "_" + program.name.replace("-", "_")

            def offers(*words):
                return bash_offers(script, function, [program.name, *words], folder)

            for command in [None, *program.commands]:
                before = [command] if command else []
                offered = set(offers(*before, "--"))
                missing = {name for name in program.options(command) if name.startswith("--")} - offered
                checked += len(offered)
                problems += [f"bash: {program.name} {command or ''} {name} is not offered" for name in sorted(missing)]
            if program.commands:
                missing = set(program.commands) - set(offers(""))
                problems += [f"bash: {program.name} {command} is not offered" for command in sorted(missing)]
            for words, expected in BASH_CASES[program.name]:
                if offers(*words) != expected:
                    problems.append(f"bash: {program.name} {words}: {offers(*words)} instead of {expected}")
    if checked < 60:
        problems.append(f"only {checked} options offered")
    return problems


BASH_CASES = {
    "plc-host": [(["wa"], ["watch"]), (["watch", "--ch"], ["--chart"]), (["check", "mach"], ["machine.csv"]),
                 (["read", "--sim", "mach"], ["machine.csv"]), (["read", "--sim", "=", "mach"], ["machine.csv"]),
                 (["read", "--sim", "="], ["machine.csv"]), (["read", "--port", ""], []), (["info", "mach"], [])],
    "plc-sim": [(["--directory-order", "l"], ["longest-first"]), (["mach"], ["machine.csv"]),
                (["--pcap", "mach"], ["machine.csv"]), (["--listen", ""], [])],
}


def check_bash_names(options, programs):
    """Variables of the tag file are offered, quoted, and nothing in their names is executed."""
    host = next(program for program in programs if program.name == "plc-host")
    with tempfile.TemporaryDirectory() as folder:
        hostile = "$(touch executed)"
        (pathlib.Path(folder) / "machine.csv").write_text(
            f"Speed,INT,,,,,,0,1,0,0,\nSpeed limit,INT,,,,,,1,1,0,0,\n{hostile},INT,,,,,,2,1,0,0,\n"
            "`touch executed`,INT,,,,,,3,1,0,0,\n")
        program = pathlib.Path(folder) / "plc-host"
        program.write_text(f'#!/bin/sh\nexec "{host.file}" "$@" --library "{options.library}"\n')
        program.chmod(0o755)
        found = bash_offers(options.pages / "bash" / "plc-host", "_plc_host",
                            [program, "read", "--sim", "machine.csv", ""], folder)
        joined = bash_offers(options.pages / "bash" / "plc-host", "_plc_host",
                             [program, "read", "--sim", "=", "machine.csv", "Speed"], folder)
        missing = bash_offers(options.pages / "bash" / "plc-host", "_plc_host",
                              [program, "read", "--sim", "missing.csv", ""], folder)
        expected = ["Speed", "Speed\\ limit", "\\$\\(touch\\ executed\\)", "\\`touch\\ executed\\`"]
        problems = [] if found == expected else [f"offered: {found}, expected: {expected}"]
        problems += [] if joined == expected[:2] else [f"offered behind --sim=machine.csv: {joined}"]
        problems += [f"offered of a file that is not there: {missing}"] if missing else []
        problems += ["a name was executed"] if (pathlib.Path(folder) / "executed").exists() else []
    return problems


# A shell of its own on a pseudo-terminal: a widget completes each line of a file and writes what became of it.
ZSH_SETUP = r"""
fpath=($PAGES/zsh $fpath)
path=($FOLDER $path)
autoload -Uz compinit && compinit -u -D
zstyle ':completion:*' accept-exact true
complete_all() {
  local line
  for line in ${(f)"$(<lines)"}; do
    BUFFER=$line
    CURSOR=$#BUFFER
    zle complete-word
    print -r -- $BUFFER >>completed
  done
  exit 0
}
zle -N complete_all
bindkey '^X' complete_all
"""
ZSH_DRIVER = r"""
zmodload zsh/zpty
export ZDOTDIR=$FOLDER
zpty shell zsh -i
zpty -w -n shell $'\x18'
while zpty -r shell chunk; do :; done
"""


def check_zsh(options, programs):
    """zsh completes commands, every option, files, choices and variables; nothing in a name is executed."""
    expected = {}
    for program in programs:
        for command in [None, *program.commands]:
            before = program.name + (" " + command if command else "")
            for name in program.options(command):
                if name.startswith("--"):
                    expected[f"{before} {name}"] = f"{before} {name} "
        for command in program.commands:
            expected[f"{program.name} {command}"] = f"{program.name} {command} "
    expected.update({"plc-host wa": "plc-host watch ", "plc-host watch --ch": "plc-host watch --chart ",
                     "plc-host check mach": "plc-host check machine.csv ",
                     "plc-host read --sim mach": "plc-host read --sim machine.csv ",
                     "plc-host read --sim machine.csv Sp": "plc-host read --sim machine.csv Speed\\ limit ",
                     "plc-sim --directory-order l": "plc-sim --directory-order longest-first "})
    host = next(program for program in programs if program.name == "plc-host")
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        (folder / "machine.csv").write_text("Speed limit,INT,,,,,,0,1,0,0,\n$(touch executed),INT,,,,,,1,1,0,0,\n")
        (folder / "plc-host").write_text(f'#!/bin/sh\nexec "{host.file}" "$@" --library "{options.library}"\n')
        (folder / "plc-host").chmod(0o755)
        (folder / ".zshrc").write_text(ZSH_SETUP)
        (folder / "lines").write_text("\n".join(expected) + "\n")
        output_of(["zsh", "-f", "-c", ZSH_DRIVER], folder=folder,
                  environment={"PAGES": str(options.pages), "FOLDER": name, "HOME": name})
        completed = (folder / "completed").read_text().split("\n")[:-1]
        problems = [f"zsh: '{line}' became '{became}'" for line, became in zip(expected, completed)
                    if became != expected[line]]
        if len(completed) != len(expected) or len(expected) < 60:
            problems.append(f"zsh: {len(completed)} of {len(expected)} lines")
        problems += ["a name was executed"] if (folder / "executed").exists() else []
    return problems


CHECKS = {"lint": check_lint, "options": check_options, "examples": check_examples, "format": check_format,
          "reproducible": check_reproducible, "bash": check_bash, "bash-names": check_bash_names, "zsh": check_zsh}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("check", choices=CHECKS)
    for name in ("pages", "host", "sim", "library"):
        parser.add_argument("--" + name, required=True, type=lambda text: pathlib.Path(text).resolve())
    options = parser.parse_args()
    problems = CHECKS[options.check](options, [Program("plc-host", options.host), Program("plc-sim", options.sim)])
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
