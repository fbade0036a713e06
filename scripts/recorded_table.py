"""Tables of measurements in the documents: between their marks, with command, commit, day and machine above them."""
import datetime
import os
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent


def output_of(*command):
    """The first line that the command prints; nothing where there is no such command."""
    try:
        done = subprocess.run(command, cwd=ROOT, text=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    except OSError:
        return ""
    return done.stdout.strip().split("\n")[0]


def machine():
    """Processors and system, for instance: 2 processors (AMD EPYC, x86_64), Debian GNU/Linux 12 (bookworm)."""
    models = re.findall(r"^model name\s*: (.+)$", pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8"), re.M)
    system = re.search(r'^PRETTY_NAME="?([^"\n]+)', pathlib.Path("/etc/os-release").read_text(encoding="utf-8"), re.M)
    named = ", ".join(([models[0].strip()] if models else []) + [os.uname().machine])
    return f"{os.cpu_count()} processors ({named}), {system[1] if system else os.uname().sysname}"


def heading(command):
    """The line above a table: what made it, of which commit, when and where."""
    commit = output_of("git", "rev-parse", "--short=7", "HEAD") or "unknown"
    changed = " and changes" if output_of("git", "status", "--porcelain", "--untracked-files=no") else ""
    return f"Measured on {datetime.date.today()} with `{command}`, commit `{commit}`{changed}: {machine()}."


def record_table(page, name, command, rows):
    """Puts the table in the place of the one between the marks of this name."""
    text = page.read_text(encoding="utf-8")
    begin, end = f"<!-- {name} -->\n", f"<!-- end of {name} -->"
    if begin not in text or end not in text:
        sys.exit(f"{page.relative_to(ROOT)} has no place for {name}")
    head, _, rest = text.partition(begin)
    table = "\n".join([heading(command), "", *rows])
    page.write_text(f"{head}{begin}\n{table}\n\n{end}{rest.partition(end)[2]}", encoding="utf-8")
