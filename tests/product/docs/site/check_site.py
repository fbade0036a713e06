#!/usr/bin/env python3
"""Holds the site of the pages to what its readers need.

check_site.py build FOLDER                            scripts/site makes it, without a warning
check_site.py links FOLDER                            every link of it leads to a file and a place that are there, and
                                                      no page loads anything from a network
check_site.py looks FOLDER --browser CHROMIUM --axe FOLDER --pictures FOLDER
                                                      opened from the disk at two widths, in the light and in the dark:
                                                      nothing sticks out, everybody can use it, the search finds
"""
import argparse
import html.parser
import pathlib
import re
import subprocess
import sys
import tempfile
import urllib.parse

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parents[4]
sys.path.insert(0, str(ROOT / "tests" / "tools" / "plc_sim" / "browser"))
import axe  # noqa: E402
from chromium import Browser  # noqa: E402

RUN_LIMIT_S = 120
WINDOWS = ((390, 844), (1280, 800))
MOST_PICTURED = 1600
# The first page, the page map, pages with wide tables, long blocks and drawings, and one that is made of a header.
LOOKED_AT = ("index.html", "docs/README.html", "docs/how_it_works.html", "docs/tag_files.html", "docs/plc_host.html",
             "reference/c.html")
LOADED = {"img": "src", "script": "src", "link": "href", "source": "src", "iframe": "src"}


class Page(html.parser.HTMLParser):
    """The links of a page, what it loads, and the places in it."""

    def __init__(self, text):
        super().__init__()
        self.links, self.loaded, self.places = [], [], set()
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        found = dict(attributes)
        self.places |= {found[name] for name in ("id", "name") if found.get(name)}
        if tag == "a" and found.get("href"):
            self.links.append(found["href"])
        if tag in LOADED and found.get(LOADED[tag]):
            self.loaded.append(found[LOADED[tag]])


def files_of(folder):
    return {str(file.relative_to(folder)): file.read_bytes() for file in sorted(folder.rglob("*")) if file.is_file()}


def make(folder):
    done = subprocess.run([ROOT / "scripts" / "site", folder], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, timeout=RUN_LIMIT_S, check=False)
    return [f"scripts/site ended with {done.returncode}:\n{done.stdout}"] if done.returncode or done.stdout else []


def check_build(options):
    """Made in a new folder, or over an earlier site, and not over what is somebody's."""
    problems = make(options.folder)
    with tempfile.TemporaryDirectory() as name:
        (pathlib.Path(name) / "mine").write_text("mine", encoding="utf-8")
        if not make(name) or files_of(pathlib.Path(name)) != {"mine": b"mine"}:
            problems.append("a folder with files of somebody's was taken")
    return problems


def target_of(page, link):
    """The file and the place in it that a link of a page means."""
    path, _, place = link.partition("#")
    path = urllib.parse.unquote(path.partition("?")[0])
    return (page.parent / path).resolve() if path else page.resolve(), urllib.parse.unquote(place)


def check_links(options):
    folder = options.folder.resolve()
    pages = {file: Page(file.read_text(encoding="utf-8")) for file in sorted(folder.rglob("*.html"))}
    problems = [] if len(pages) > 20 else [f"only {len(pages)} pages"]
    for file, page in pages.items():
        name = file.relative_to(folder)
        problems += [f"{name} loads {loaded}" for loaded in page.loaded if re.match(r"[a-z]+:|//", loaded)]
        inside = [link for link in (*page.links, *page.loaded) if not re.match(r"[a-z]+:|//", link)]
        for link in inside:
            target, place = target_of(file, link)
            if not target.is_file() or folder not in target.parents:
                problems.append(f"{name}: {link} leads nowhere")
            elif place and target in pages and place not in pages[target].places:
                problems.append(f"{name}: {link} names a place that is not there")
    for file in sorted(folder.rglob("*.css")):
        asked = re.findall(r"@import[^;]*|url\(['\"]?(?!data:)(?:[a-z]+:|/)[^)]*\)", file.read_text(encoding="utf-8"))
        problems += [f"{file.relative_to(folder)} asks for {what}" for what in asked]
    return problems


def expect(found, expected, what):
    if found != expected:
        raise SystemExit(f"{what}: {found!r}, expected {expected!r}")


def look_at(browser, source, options, name):
    browser.session = None
    browser.open((options.folder / name).resolve().as_uri())
    browser.wait_for("location.protocol + document.readyState", "file:complete")
    for width, height in WINDOWS:
        for scheme in ("light", "dark"):
            what = f"{name.replace('/', '-').removesuffix('.html')}-{width}-{scheme}"
            browser.look_as(width, height, scheme)
            browser.wait_for("getComputedStyle(document.body).backgroundColor.match(/\\d+/g)"
                             ".every(part => part > 127)", scheme == "light")
            browser.picture(options.pictures / f"{what}.png", MOST_PICTURED)
            expect(browser.evaluate("document.documentElement.scrollWidth <= innerWidth"), True, f"{what} fits")
            found = axe.findings(browser, source)
            if found:
                raise SystemExit(f"{what}: axe-core found {len(found)}:\n" + "\n".join(found))


def toggle(browser, options):
    """The button makes a page dark for who has it light, and keeps it so."""
    browser.session = None
    browser.open((options.folder / "index.html").resolve().as_uri())
    browser.wait_for("location.protocol + document.readyState", "file:complete")
    browser.look_as(*WINDOWS[1], "light")
    browser.evaluate("[...document.querySelectorAll('.theme-toggle')].find(button => button.offsetWidth).click()")
    browser.wait_for("document.body.dataset.theme + localStorage.getItem('theme') +"
                     "getComputedStyle(document.body).backgroundColor", "darkdarkrgb(21, 23, 26)")
    browser.evaluate("localStorage.clear()")


def search(browser, options, words, expected):
    """What the search finds in pages that are files of a disk."""
    browser.session = None
    browser.open((options.folder / "search.html").resolve().as_uri() + f"?q={words}")
    browser.wait_for("[...document.querySelectorAll('#search-results li a')].some(link =>"
                     f"link.getAttribute('href').includes('{expected}'))", True)


def check_looks(options):
    options.pictures.mkdir(parents=True, exist_ok=True)
    source = axe.install(options.axe)
    with tempfile.TemporaryDirectory() as folder:
        browser = Browser(options.browser, str(pathlib.Path(folder) / "profile"))
        try:
            for name in LOOKED_AT:
                look_at(browser, source, options, name)
            toggle(browser, options)
            search(browser, options, "spreadsheet", "docs/tag_files.html")
            search(browser, options, "ev_plc_read", "reference/c.html")
        finally:
            browser.end()
    return []


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("check", choices=("build", "links", "looks"))
    parser.add_argument("folder", type=pathlib.Path)
    parser.add_argument("--browser")
    parser.add_argument("--axe")
    parser.add_argument("--pictures", type=pathlib.Path)
    options = parser.parse_args()
    problems = {"build": check_build, "links": check_links, "looks": check_looks}[options.check](options)
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
