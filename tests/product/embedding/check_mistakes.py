#!/usr/bin/env python3
"""Configures the driver in ways that cannot work, or not as they were meant: each gets one clear sentence. Nothing is
built, but what is installed is real but for its libraries.

check_mistakes.py CHECK --work FOLDER

CHECK is one of:
  twice      the sources and an installed package in one project, either first, and the sources twice
  builds     both builds of the driver linked into one program
  words      options take the words that they are documented with
  sources    a build among the sources; git ignores what it makes, and strange files of these folders are not installed
"""
import pathlib
import re
import shutil
import subprocess
import sys

sys.dont_write_bytecode = True
from check_embedding import (BUILT, NO_DRIVER_ELSEWHERE, ROOT, attempt, clean_folder,  # noqa: E402
                             demand, run, run_check)

HOST = """cmake_minimum_required(VERSION 3.16)
project(host LANGUAGES C)
add_executable(host main.c)
"""
FROM_SOURCES = f"add_subdirectory({ROOT} driver)\n"
FROM_PACKAGE = "find_package(plc_driver 1.0 REQUIRED PATHS {prefix} NO_DEFAULT_PATH)\n"


def configure(folder, text):
    """Exit code and output, its line breaks taken out, for a project with this text behind its first lines."""
    clean_folder(folder)
    (folder / "CMakeLists.txt").write_text(HOST + text, encoding="utf-8")
    (folder / "main.c").write_text("int main(void) { return 0; }\n", encoding="utf-8")
    code, said = attempt(["cmake", "-S", folder, "-B", folder / "build"])
    return code, re.sub(r"\s+", " ", said)


def demand_one_error(folder, text, sentence):
    code, said = configure(folder, text)
    demand(code != 0 and sentence in said and said.count("CMake Error") == 1, f"{text}exit code {code}\n{said}")


def install_driver(work):
    """The driver alone, installed; files stand for the libraries, which are not looked into."""
    run(["cmake", "-S", ROOT, "-B", work / "driver", *NO_DRIVER_ELSEWHERE, "-DCMAKE_INSTALL_LIBDIR=lib"])
    version = re.search(r"^CMAKE_PROJECT_VERSION:STATIC=(.*)$",
                        (work / "driver/CMakeCache.txt").read_text(encoding="utf-8"), re.M)[1]
    for name in BUILT:
        names = [name] if name.endswith(".a") else [name, f"{name}.1", f"{name}.{version}"]
        for path in (work / "driver/src" / one for one in names):
            path.parent.mkdir(exist_ok=True)
            path.write_text("", encoding="utf-8")
    run(["cmake", "--install", work / "driver", "--prefix", work / "prefix"])
    return work / "prefix"


def check_twice(work):
    prefix = install_driver(clean_folder(work))
    folders = sorted(path.name for path in (prefix / "share/doc").iterdir())
    demand(folders == ["libplc-driver-dev", "libplc-driver1"], f"the driver alone installs {folders}")
    package = FROM_PACKAGE.format(prefix=prefix)
    # The sources are there already: they are what find_package finds.
    code, said = configure(work / "package", FROM_SOURCES + package + """
get_target_property(imported plc_driver::plc_driver IMPORTED)
message(STATUS "found ${plc_driver_FOUND}, imported ${imported}")
target_link_libraries(host PRIVATE plc_driver::plc_driver plc_driver::plc_driver_static)
""")
    demand(code == 0 and re.search(r"found (1|TRUE), imported FALSE", said), said)
    demand_one_error(work / "sources", package + FROM_SOURCES,
                     "this project has the target plc_driver::plc_driver already")
    demand_one_error(work / "again", FROM_SOURCES + FROM_SOURCES.replace(" driver)", " second)"),
                     "this project has the target plc_driver already")
    # Asked for twice, the package is the same one.
    code, said = configure(work / "asked", package + package)
    demand(code == 0, said)
    check_builds_of(work, package)


def check_builds_of(work, how):
    for first, second in (("plc_driver_static", "plc_driver_guarded_static"), ("plc_driver", "plc_driver_guarded")):
        link = f"target_link_libraries(host PRIVATE plc_driver::{first} plc_driver::{second})\n"
        code, said = configure(work / "both", how + link)
        demand(code != 0 and re.search(rf'PLC_DRIVER_BUILD property of "[:\w]*{second}" does not agree', said), said)


def check_builds(work):
    check_builds_of(clean_folder(work), FROM_SOURCES)


def check_words(work):
    clean_folder(work)
    for name in ("PLC_BUILD_TOOLS", "PLC_BUILD_TESTS"):
        for word in ("YES", "on", "1", "AUTOMATIC", ""):
            code, said = attempt(["cmake", "-S", ROOT, "-B", work / "build", *NO_DRIVER_ELSEWHERE, f"-D{name}={word}"])
            said = re.sub(r"\s+", " ", said)
            demand(code != 0 and f"{name} is ON, OFF or AUTO, not '{word}'." in said, said)


def check_sources(work):
    project = clean_folder(work) / "project"
    for name in run(["git", "ls-files", "-co", "--exclude-standard"], cwd=ROOT).split("\n"):
        if (ROOT / name).is_file():
            (project / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy2(ROOT / name, project / name)
    git = ["git", "-C", project, "-c", "user.name=somebody", "-c", "user.email=somebody@localhost"]
    run([*git, "init", "-q"])
    run([*git, "add", "."])
    run([*git, "commit", "-q", "-m", "Everything"])
    strange = ["dissector/plc_kv/strange.lua", "dissector/samples/strange.pcap", "docs/strange.md",
               "examples/faulty/strange.md", "examples/tags/strange.csv"]
    for name in strange:
        (project / name).write_text("strange\n", encoding="utf-8")
    said = run(["cmake", "-G", "Ninja", "."], cwd=project)
    demand("this build lies among the sources" in said, f"no warning:\n{said}")
    left = [line[3:] for line in run([*git, "status", "--porcelain", "-uall"]).split("\n") if line]
    demand(left == strange, f"git sees what the configuration made: {left}")
    made = [line.rsplit(": ", 1)[0] for line in run(["ninja", "-t", "targets", "all"], cwd=project).strip().split("\n")
            if not line.endswith((": phony", ": CLEAN", ": HELP"))]
    names = sorted({name.removeprefix(f"{project}/") for name in made})
    seen = subprocess.run([*git, "check-ignore", "--stdin", "--non-matching", "--verbose"], input="\n".join(names),
                          text=True, stdout=subprocess.PIPE, check=True).stdout
    seen = [line.split("\t")[1] for line in seen.strip().split("\n") if line.startswith("::")]
    demand(len(names) > 100 and not seen, f"git sees what the build makes: {seen}")
    installs = (project / "packaging/cmake_install.cmake").read_text(encoding="utf-8")
    for name in strange:
        beside = next((project / name).parent.glob(f"[!s]*{pathlib.PurePath(name).suffix}"))
        demand(str(beside) in installs and name not in installs, f"what is installed of {name}'s folder")


CHECKS = {"twice": check_twice, "builds": check_builds, "words": check_words, "sources": check_sources}


if __name__ == "__main__":
    sys.exit(run_check(CHECKS))
