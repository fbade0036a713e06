#!/usr/bin/env python3
"""Opens reports of surveys at the widths of a telephone and a desk, in the light, in the dark and on paper: nothing
sticks out, what matters comes first, nothing from outside became an element, axe-core finds nothing. Leaves a picture
of each, and each printed.

report_looks.py --browser CHROMIUM --samples WRITE_SURVEY_SAMPLES --axe FOLDER --pictures FOLDER
"""
import argparse
import base64
import pathlib
import re
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parents[1] / "plc_sim" / "browser"))
import axe  # noqa: E402
from chromium import Browser  # noqa: E402

RUN_LIMIT_S = 60
WINDOWS = ((390, 844), (1280, 800))
SCHEMES = ("light", "dark")
MOST_PICTURED = 6000
PAPER = (794, 1123)
BLACK_ON_WHITE = "rgb(0, 0, 0) on rgb(255, 255, 255)"
SAMPLES = ("full", "interrupted", "empty", "hostile", "large")
HEADS = ["What was found", "What to set", "What to ask the controller's programmer", "The guarded build",
         "The way to it", "Programs", "Variables", "Heads of replies", "Answer times", "Splitting of replies",
         "Limits", "Writes", "Over hours", "What was not done, and why", "How it was made"]


def expect(found, expected, what):
    if found != expected:
        raise SystemExit(f"{what}: {found!r}, expected {expected!r}")


def every(browser, which, is_so):
    return browser.evaluate(f"[...document.querySelectorAll('{which}')].every(one => {is_so})")


def look_at(browser, source, name, pictures):
    for width, height in WINDOWS:
        for scheme in SCHEMES:
            what = f"survey-{name}-{width}-{scheme}"
            browser.look_as(width, height, scheme)
            expect(browser.evaluate("document.documentElement.scrollWidth <= innerWidth"), True, f"{what}: fits")
            # Nobody on a telephone looks for columns that lie outside.
            hidden = browser.evaluate("[...document.querySelectorAll('.wide')].filter(one => one.scrollWidth > "
                                      "one.clientWidth).map(one => one.getAttribute('aria-label'))")
            if width == WINDOWS[0][0]:
                expect(hidden, [], f"{what}: tables that hide columns")
                expect(every(browser, ".wide[style] td:empty", "one.offsetHeight === 0"), True,
                       f"{what}: no head of an empty cell")
            expect(every(browser, "svg.chart text", "one.getBoundingClientRect().right <= "
                         "one.closest('svg').getBoundingClientRect().right + 0.5"), True, f"{what}: texts of charts")
            expect(browser.evaluate("window.wasRun ?? false"), False, f"{what}: a script from outside was run")
            if name != "large":
                found = axe.findings(browser, source)
                expect(found, [], f"{what}: axe-core")
            browser.picture(pictures / f"{what}.png", MOST_PICTURED)
    browser.look_as(*PAPER, "dark", media="print")
    expect(browser.evaluate("(() => { const style = getComputedStyle(document.body);"
                            "return style.color + ' on ' + style.backgroundColor; })()"), BLACK_ON_WHITE, "on paper")
    expect(browser.evaluate("[...document.querySelectorAll('details')].every(one => one.offsetHeight > "
                            "one.querySelector('summary').offsetHeight * 1.5)"), True, f"{name}: lists on paper")
    expect(every(browser, "[aria-label=Writes] td:last-child", "one.offsetWidth >= 150"), True,
           f"{name}: room for notes on paper")
    # Else the head of the next part stays behind at the end of a page.
    expect(every(browser, "h2 + p:last-child", "getComputedStyle(one).breakAfter === 'auto'"), True,
           f"{name}: breaks between parts")
    printed = browser.call("Page.printToPDF", printBackground=False, preferCSSPageSize=True)["data"]
    (pictures / f"survey-{name}.pdf").write_bytes(base64.b64decode(printed))


def expect_report(browser, path, name):
    """Its parts are in their order, and nothing is asked of a network."""
    text = path.read_text(encoding="utf-8")
    expect(re.findall(r"<[^>]*\s(?:src|href|srcset)\s*=|url\(|@import|<script", text), [], f"{name}: links")
    expect(browser.evaluate("[...document.querySelectorAll('h2')].map(head => head.textContent)"), HEADS,
           f"{name}: parts")
    if name == "full":
        expect(browser.evaluate("document.querySelectorAll('svg.chart').length"), 5, "charts")
        expect(browser.evaluate("document.querySelector('.frame .wrong').textContent"),
               "00 00 00 1F the reply has 32 bytes", "what is marked first in the evidence")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for option in ("browser", "samples", "axe", "pictures"):
        parser.add_argument("--" + option, required=True)
    options = parser.parse_args()
    pictures = pathlib.Path(options.pictures)
    pictures.mkdir(parents=True, exist_ok=True)
    source = axe.install(options.axe)
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([options.samples, folder], check=True, timeout=RUN_LIMIT_S)
        browser = Browser(options.browser, str(pathlib.Path(folder) / "profile"))
        try:
            for name in SAMPLES:
                report = pathlib.Path(folder) / name / "report.html"
                browser.session = None
                browser.open(report.as_uri())
                browser.wait_for("document.readyState === 'complete' && document.querySelector('footer') !== null",
                                 True)
                expect_report(browser, report, name)
                look_at(browser, source, name, pictures)
        finally:
            browser.end()
    print(f"everybody can read the reports; pictures are in {pictures}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
