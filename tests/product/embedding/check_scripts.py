#!/usr/bin/env python3
"""Calls the project's scripts as somebody does who does not know them, in copies where programs that would do something
are stand-ins: what cannot be done is said, and nothing is done then.

check_scripts.py CHECK --work FOLDER

CHECK is one of:
  format    scripts/format formats sources of the project, named from anywhere, and no other file
  folder    scripts/package makes its output folder before it builds, and takes whole lists of architectures
  jobs      the jobs of scripts/test and scripts/test-long are those of docs/testing.md; others are refused
  checks    scripts/check lists its checks, and with --changed looks at changed files; scripts/pre-commit takes no words
"""
import os
import re
import shutil
import sys

sys.dont_write_bytecode = True
from check_embedding import ROOT, attempt, clean_folder, demand, run, run_check  # noqa: E402

GIT = ["git", "-c", "user.name=somebody", "-c", "user.email=somebody@localhost", "-c", "commit.gpgsign=false"]


def make_project(work):
    """A copy of the scripts in a repository of its own, with a source, and a header that git ignores."""
    project = clean_folder(work) / "project"
    shutil.copytree(ROOT / "scripts", project / "scripts", ignore=shutil.ignore_patterns("__pycache__"))
    for name, text in (("CMakeLists.txt", "project(plc_driver VERSION 1.2.3)\n"),
                       (".gitignore", "/build/\n__pycache__/\n"), ("src/one.cpp", "int one;\n"),
                       ("src/two.h", "int two;\n"),
                       ("src/page.md", "A page.\n"), ("build/made.h", "int made;\n")):
        (project / name).parent.mkdir(parents=True, exist_ok=True)
        (project / name).write_text(text, encoding="utf-8")
    stand_in(project / "scripts/setup", work)
    run([*GIT, "init", "-q", "."], cwd=project)
    run([*GIT, "add", "."], cwd=project)
    run([*GIT, "commit", "-q", "-m", "Everything"], cwd=project)
    return project


def stand_in(path, work):
    """A program that notes the words of its call and does nothing else."""
    path.parent.mkdir(exist_ok=True)
    path.write_text(f'#!/bin/sh\necho "$(basename "$0") $*" >>"{work}/calls"\n', encoding="utf-8")
    path.chmod(0o755)


def calls(work):
    """What the stand-ins were called with since this was asked."""
    path = work / "calls"
    lines = path.read_text(encoding="utf-8").split("\n")[:-1] if path.exists() else []
    path.unlink(missing_ok=True)
    return lines


def demand_refused(work, command, code, text, **options):
    """The call ends with the code and the text, and nothing was called."""
    calls(work)
    ended, said = attempt(command, **options)
    shown = " ".join(map(str, command))
    demand(ended == code and text in said, f"{shown}: exit code {ended}, not {code} with '{text}':\n{said}")
    done = calls(work)
    demand(not done, f"{shown}: it called {done}")


def check_format(work):
    project = make_project(work)
    stand_in(work / "tools/clang-format", work)
    environment = {**os.environ, "PATH": f"{work}/tools:{os.environ['PATH']}"}
    script = project / "scripts/format"

    def formatted(folder, *names):
        calls(work)
        run([script, *names], cwd=folder, env=environment)
        return calls(work)

    demand(formatted(project / "src", "two.h", "../src/one.cpp") ==
           [f"clang-format -i -- {project}/src/two.h {project}/src/one.cpp"], "names are those of the caller's folder")
    demand(formatted(project) == [], "nothing has changed")
    (project / "src/one.cpp").write_text("int  one;\n", encoding="utf-8")
    (project / "src/new.c").write_text("int  new;\n", encoding="utf-8")
    (project / "src/page.md").write_text("Another page.\n", encoding="utf-8")
    demand(formatted(work) == ["clang-format -i -- src/one.cpp src/new.c"], "changed and new sources")
    (work / "outside.cpp").write_text("int outside;\n", encoding="utf-8")
    (project / "src/link.cpp").symlink_to(work / "outside.cpp")
    for name, why in ((f"{work}/outside.cpp", "it is not below"), ("src/link.cpp", "it is not below"),
                      ("src/page.md", "sources end in"), ("src/absent.cpp", "there is no such file"),
                      ("src", "there is no such file"), ("build/made.h", "git ignores it")):
        demand_refused(work, [script, "src/one.cpp", name], 2, f"scripts/format: {name}: {why}", cwd=project,
                       env=environment)


def check_folder(work):
    project = make_project(work)
    for name in ("cmake", "cpack"):
        stand_in(work / "tools" / name, work)
    options = {"cwd": work, "env": {**os.environ, "PATH": f"{work}/tools:{os.environ['PATH']}"}}
    script = project / "scripts/package"
    (work / "file").write_text("kept\n", encoding="utf-8")
    for folder in ("file", "file/below", "/proc/packages"):
        demand_refused(work, [script, "--only", "amd64", folder], 1, f"packages cannot be written to '{folder}'",
                       **options)
    demand((work / "file").read_text(encoding="utf-8") == "kept\n", "the file in the folder's place is another one")
    for words in (["--only"], ["--only", ""], ["--only", "amd64,"], ["--only", ",amd64"], ["--only", "amd64,,armhf"],
                  ["--only", "amd64 armhf"], ["--only", "mips"]):
        demand_refused(work, [script, *words, "output"], 2, "packages are made for amd64, armhf and arm64", **options)
    demand_refused(work, [script, ""], 2, "the output folder has no name", **options)
    demand_refused(work, [script, "one", "two"], 2, "too many words: 'two'", **options)
    demand(not (work / "output").exists() and not (project / "build/packages").exists(), "a folder was made")


def check_jobs(work):
    project = make_project(work)
    page = (ROOT / "docs/testing.md").read_text(encoding="utf-8")
    tables = [re.findall(r"^\| (`.*?`) \|", table.split("\n\n")[0], re.M) for table in page.split("\n| job | ")[1:]]
    documented = {name: [job for row in rows for job in re.findall(r"[\w-]+", row)]
                  for name, rows in zip(("test", "test-long"), tables)}
    demand(len(tables) == 2, f"the page has {len(tables)} tables of jobs")
    for name, jobs in documented.items():
        script = project / "scripts" / name
        listed = re.search(r"^jobs: (.*)$", run([script, "--help"], cwd=work), re.M)
        demand(listed, f"scripts/{name} --help lists no jobs")
        demand(sorted(listed[1].split()) == sorted(jobs), f"scripts/{name}: {listed[1]}; the page has {jobs}")
        for word in ("release", "nothing", "", "dev lint"):
            demand_refused(work, [script, word], 2, f"unknown job '{word}'", cwd=work)
            demand_refused(work, [script, listed[1].split()[0], word], 2, f"jobs: {listed[1]}", cwd=work)


def check_checks(work):
    project = make_project(work)
    script = project / "scripts/check"
    names = re.findall(r"^  ([a-z]+) +\S", run([script, "--help"], cwd=work).split("\nchecks:\n")[1], re.M)
    source = "\n".join(path.read_text(encoding="utf-8")
                       for path in [ROOT / "scripts/check", *sorted((ROOT / "scripts").glob("*.py"))])
    demand(sorted(names) == sorted(re.findall(r"^def check_(\w+)", source, re.M)), f"listed: {names}")
    demand_refused(work, [script, "nothing"], 2, "unknown check: nothing", cwd=work)
    demand_refused(work, [project / "scripts/pre-commit", "words"], 2, "unknown word 'words'", cwd=work)
    # A mark of unfinished work in a committed file, and another in a new one.
    mark = "TO" + "DO"
    (project / "src/one.cpp").write_text(f"int one;  // {mark}\n", encoding="utf-8")
    run([*GIT, "commit", "-q", "-a", "-m", "A mark"], cwd=project)
    (project / "src/new.c").write_text(f"int new;  // {mark}\n", encoding="utf-8")
    found = {}
    for words in (("words",), ("--changed", "words")):
        code, said = attempt([script, *words], cwd=work)
        demand(code == 1, f"scripts/check {' '.join(words)}: exit code {code}\n{said}")
        found[words] = re.findall(r"^  ([\w/.]+):1: unfinished work", said, re.M)
    demand([sorted(names) for names in found.values()] == [["src/new.c", "src/one.cpp"], ["src/new.c"]], f"{found}")


CHECKS = {"format": check_format, "folder": check_folder, "jobs": check_jobs, "checks": check_checks}


if __name__ == "__main__":
    sys.exit(run_check(CHECKS))
