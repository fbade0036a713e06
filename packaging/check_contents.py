#!/usr/bin/env python3
"""Compares an installed tree with contents.txt: prints every file that is missing or too many, and every document that
an installed header, example or page leads to and its package does not hold.

check_contents.py PREFIX LIBRARY_FOLDER BUILD_TYPE COMPONENT...
check_contents.py PREFIX --of BUILD_FOLDER COMPONENT...          folder of libraries and type are those of a build
"""
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "scripts"))
import pages  # noqa: E402

# Packages with all pages, and the pages that are for those who have the sources.
WITH_PAGES = {"dev": "libplc-driver-dev", "tools": "plc-tools"}
OF_SOURCES = ("CONTRIBUTING.md", "vectors/README.md", "examples/faulty/README.md")


def names_in_project(pattern):
    """The names of the project's files that match: those that git knows, or without it all."""
    listed = subprocess.run(["git", "ls-files", "--", f":(glob){pattern}"], cwd=ROOT, text=True, check=False,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout.split()
    paths = [ROOT / name for name in listed] or ROOT.glob(pattern)
    return [path.name for path in paths if path.is_file()]


def module_suffix():
    """What compiled modules of the system's Python end in."""
    return subprocess.run(["/usr/bin/python3", "-c", "import sysconfig; print(sysconfig.get_config_var('EXT_SUFFIX'))"],
                          check=True, text=True, stdout=subprocess.PIPE).stdout.strip()


def expected_files(library_folder, build_type, components):
    files = set()
    suffix = module_suffix() if "python" in components else ""
    for line in (ROOT / "packaging" / "contents.txt").read_text(encoding="utf-8").split("\n"):
        if not line or line.startswith("#"):
            continue
        component, path = line.split(" ")
        path = path.replace("@LIB@", library_folder).replace("@TYPE@", build_type.lower()).replace("@PYTHON@", suffix)
        pattern = re.fullmatch(r"(.*)\{(.*)\}", path)
        names = [pattern[1] + name for name in names_in_project(pattern[2])] if pattern else [path]
        if component in components:
            files |= set(names)
    return files


def missing_documents(prefix):
    """Documents that the headers and examples of the package libplc-driver-dev name and that it does not hold."""
    folder = prefix / "share" / "doc" / "libplc-driver-dev"
    sources = sorted(prefix.glob("include/*.h")) + sorted(folder.glob("examples/*"))
    named = {(source.name, name) for source in sources
             for name in re.findall(r"[\w./-]+\.md\b", source.read_text(encoding="utf-8"))}
    return [f"{source} names {name}, which is not installed" for source, name in sorted(named)
            if not (folder / name).is_file()]


def dead_links(folder):
    """Links of a package's pages to pages that it does not hold."""
    links = {((page.parent / target.partition("#")[0]).resolve(), page)
             for page in folder.rglob("*.md") for _, target in pages.links_of(page.read_text(encoding="utf-8"))
             if re.search(r"\.md(#|$)", target) and not re.match(r"[a-z]+:", target)}
    of_sources = {(folder / name).resolve() for name in OF_SOURCES}
    return [f"{page} leads to {target}, which is not installed" for target, page in sorted(links)
            if not target.is_file() and target not in of_sources]


def settings_of(build):
    """The folder of libraries and the type that a build was configured with."""
    cache = (pathlib.Path(build) / "CMakeCache.txt").read_text(encoding="utf-8")
    return [re.search(rf"^{name}:\w+=(.*)$", cache, re.M)[1] for name in ("CMAKE_INSTALL_LIBDIR", "CMAKE_BUILD_TYPE")]


def main():
    prefix, what, components = pathlib.Path(sys.argv[1]), sys.argv[2:4], sys.argv[4:]
    if what[0] == "--of":
        what = settings_of(what[1])
    expected = expected_files(*what, components)
    found = {str(path.relative_to(prefix)) for path in prefix.rglob("*") if path.is_symlink() or not path.is_dir()}
    for folder in [name.removesuffix("**") for name in expected if name.endswith("/**")]:
        below = {name for name in found if name.startswith(folder)}
        if below:
            expected.remove(f"{folder}**")
        found -= below
    problems = [f"missing: {name}" for name in sorted(expected - found)]
    problems += [f"not expected: {name}" for name in sorted(found - expected)]
    problems += [] if expected else ["no file is expected"]
    problems += missing_documents(prefix) if "dev" in components else []
    for name in [WITH_PAGES[component] for component in components if component in WITH_PAGES]:
        problems += dead_links(prefix / "share" / "doc" / name)
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
