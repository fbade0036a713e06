#!/usr/bin/env python3
"""Opens plc-sim's page and its report at the widths of a telephone, a tablet and a desk, in the light and in the dark:
nothing sticks out, what matters stays in sight, the keyboard reaches everything, axe-core finds nothing. Leaves a
picture of each.

page_looks.py --browser CHROMIUM --sim PLC-SIM --host PLC-HOST --library LIBPLC_DRIVER --axe FOLDER --pictures FOLDER
"""
import argparse
import json
import pathlib
import re
import socket
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
import axe  # noqa: E402
from chromium import Browser, WAIT_S  # noqa: E402

ROOT = pathlib.Path(__file__).resolve().parents[4]
# Width and height of the window.
WINDOWS = ((390, 844), (768, 1024), (1280, 800))
SCHEMES = ("light", "dark")
MOST_PICTURED = 1600
# A directory request with a sequence number that no host begins with, which is a violation behind the first request.
DIRECTORY_TWICE = bytes.fromhex("00000006FFFFFFF900070C2C00000000")
# What hosts and tag files may name; none of it may be an element of a page.
ODD_TAGS = """<img src=x onerror=window.wasRun=1>,INT,,,,,,90,1,0,0,,
</table><script>window.wasRun=1</script>,INT,,,,,,91,1,0,0,,
AVeryLongNameOfAVariableThatNobodyWouldTypeTwice.ButSomebodyDeclared.InAStructure.OfStructures,INT,,,,,,92,1,0,0,,
"""


def expect(found, expected, what):
    if found != expected:
        raise SystemExit(f"{what}: {found!r}, expected {expected!r}")


def command(sim, line):
    sim.stdin.write(line + "\n")
    sim.stdin.flush()
    answer = sim.stdout.readline().rstrip("\n")
    expect(answer, "ok", line)


def ask(options, tags, port, *words):
    subprocess.run([options.host, *words, "--address", "127.0.0.1", "--port", str(port), "--tags", tags, "--library",
                    options.library], stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                   timeout=WAIT_S, check=False)


def live_through_something(options, sim, tags, port):
    """A life with everything that the page and the report have a place for."""
    command(sim, "set Recipe.Name Lemonade")
    command(sim, "set Motor.Speed 1450")
    command(sim, "fault delay 20 times=2 on=read")
    for _ in range(3):
        ask(options, tags, port, "read", "Motor.Speed", "Table", "Limit", "Recipe.Name")
    ask(options, tags, port, "write", "Limit=5")
    command(sim, "fault short 2 on=read")
    ask(options, tags, port, "read", "Motor.Current")
    other = tags.replace("tags.csv", "other.csv")
    pathlib.Path(other).write_text("Nobody<b>,INT,,,,,,0,1,0,0,,\n", encoding="utf-8")
    ask(options, other, port, "read", "Nobody<b>")
    with socket.create_connection(("127.0.0.1", port), WAIT_S) as host:
        for _ in range(2):
            host.sendall(DIRECTORY_TWICE)
            host.recv(4096)
    command(sim, "fault delay 200 times=always on=write")
    command(sim, "fault cut 13 after=1000")


def expect_whole(browser, what):
    """Nothing of the page is beyond the window's right edge, but for what scrolls by itself."""
    expect(browser.evaluate("document.documentElement.scrollWidth <= innerWidth"), True, f"{what}: fits the window")
    expect(browser.evaluate("window.wasRun ?? false"), False, f"{what}: a script in a name was run")
    expect(browser.evaluate("document.querySelectorAll('img').length"), 0, f"{what}: pictures made of a name")


def expect_in_sight(browser, selector, what):
    """Within the window, and nothing lies over it."""
    expect(browser.evaluate(
        f"(() => {{ const box = document.querySelector({json.dumps(selector)}).getBoundingClientRect();"
        "const over = document.elementFromPoint(box.left + box.width / 2, box.top + box.height / 2);"
        "return box.top >= 0 && box.bottom <= innerHeight && box.left >= 0 && box.right <= innerWidth &&"
        f"over !== null && over.closest({json.dumps(selector)}) !== null; }})()"), True, f"{what}: {selector} in sight")


def expect_accessible(browser, source, what):
    found = axe.findings(browser, source)
    if found:
        raise SystemExit(f"{what}: axe-core found {len(found)}:\n" + "\n".join(found))


def look_at_page(browser, source, pictures, live_on):
    browser.wait_for("document.querySelectorAll('#rows tr').length > 20 &&"
                     "document.querySelectorAll('#armed li').length", 2)
    for width, height in WINDOWS:
        for scheme in SCHEMES:
            what = f"page-{width}-{scheme}"
            live_on()
            browser.look_as(width, height, scheme)
            browser.evaluate("scrollTo(0, 0); document.getElementById('panel').open = innerWidth >= 960")
            expect_whole(browser, what)
            expect_accessible(browser, source, what)
            browser.picture(pictures / f"{what}.png", MOST_PICTURED)
            browser.evaluate("scrollTo(0, document.documentElement.scrollHeight)")
            for selector in ("#armed", "#violations", "#message"):
                expect_in_sight(browser, selector, what)
            expect(browser.evaluate("[...document.querySelectorAll('#rows tr')].every(row =>"
                                    "row.querySelector('button').getBoundingClientRect().right <= innerWidth)"), True,
                   f"{what}: a button per value")


FOCUSED = ("(document.activeElement.getAttribute('aria-label') || document.activeElement.id ||"
           "document.activeElement.textContent)")


def use_keyboard(browser):
    """Without a mouse: from the top to the field of a variable, a wrong value, a right one; all of it in sight."""
    browser.look_as(*WINDOWS[0], "light")
    browser.evaluate("scrollTo(0, 0); document.activeElement.blur()")
    wanted = "new value of Motor.Speed"
    way = []
    while len(way) < 60 and (not way or way[-1] != wanted):
        browser.press("Tab")
        way.append(browser.evaluate(FOCUSED))
        expect(browser.evaluate("getComputedStyle(document.activeElement).outlineStyle"), "solid",
               f"outline of {way[-1]}")
        expect(browser.evaluate("(() => { const box = document.activeElement.getBoundingClientRect();"
                                "return box.top >= 0 && box.bottom <= innerHeight; })()"), True, f"{way[-1]} in sight")
    expect(way[-1], wanted, f"the way of the focus, {way}")
    browser.type("70000")
    browser.press("Enter", "\r")
    browser.wait_for("document.getElementById('message').textContent", "written: Motor.Speed = 70000")
    browser.type("fast")
    browser.press("Enter", "\r")
    browser.wait_for("document.getElementById('message').textContent",
                     "error: 'fast' is no DINT value: write 120, -5, 0xFF or 0b101")
    browser.wait_for(f"{FOCUSED} + ' ' + document.activeElement.value + ' ' +"
                     "document.activeElement.getAttribute('aria-invalid')", f"{wanted} fast true")
    browser.press("Tab")
    expect(browser.evaluate(FOCUSED), "write Motor.Speed", "the focus behind the field")


def look_at_report(browser, source, pictures):
    for width, height in WINDOWS:
        for scheme in SCHEMES:
            what = f"report-{width}-{scheme}"
            browser.look_as(width, height, scheme)
            expect_whole(browser, what)
            expect_accessible(browser, source, what)
            browser.picture(pictures / f"{what}.png", MOST_PICTURED)
    browser.look_as(794, 1123, "dark", media="print")
    expect(browser.evaluate("getComputedStyle(document.body).color"), "rgb(28, 39, 51)", "the colour of text on paper")
    browser.picture(pictures / "report-paper.png", MOST_PICTURED)


def expect_report(browser, path):
    """What needs attention comes first, and nothing is asked of a network."""
    text = path.read_text(encoding="utf-8")
    expect(re.findall(r"<[^>]*\s(?:src|href|srcset)\s*=|url\(|@import|<script", text), [], "links of the report")
    heads = browser.evaluate("[...document.querySelectorAll('h2')].map(head => head.textContent)")
    expect(heads, ["Violations", "Requests", "Faults that happened", "Refused names", "Served", "Never asked for",
                   "Programs"], "parts of the report")
    expect(browser.evaluate("document.querySelector('section code').textContent.slice(0, 47)"),
           "00 00 00 06 FF FF FF F9 00 07 0C 2C 00 00 00 00", "the bytes of the first violation")
    expect(browser.evaluate("document.querySelectorAll('.chart rect:not(.grid)').length > 2"), True, "bars")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("browser", "sim", "host", "library", "axe", "pictures"):
        parser.add_argument("--" + name, required=True)
    options = parser.parse_args()
    pictures = pathlib.Path(options.pictures)
    pictures.mkdir(parents=True, exist_ok=True)
    source = axe.install(options.axe)
    with tempfile.TemporaryDirectory() as folder:
        tags = str(pathlib.Path(folder) / "tags.csv")
        example = (ROOT / "examples" / "tags" / "PLC7F000001_0.csv").read_text(encoding="utf-8")
        pathlib.Path(tags).write_text(example + ODD_TAGS, encoding="utf-8")
        report = pathlib.Path(folder) / "report.html"
        sim = subprocess.Popen([options.sim, "--quiet", "--web", "127.0.0.1:0", "--report", str(report), tags],
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        browser = Browser(options.browser, str(pathlib.Path(folder) / "profile"))
        try:
            port = int(sim.stdout.readline().rsplit(":", 1)[1])
            url = sim.stdout.readline().split()[2]
            live_through_something(options, sim, tags, port)
            browser.open(url)
            look_at_page(browser, source, pictures,
                         lambda: ask(options, tags, port, "read", "Motor.Speed", "Table"))
            use_keyboard(browser)
            sim.stdin.close()
            expect(sim.wait(WAIT_S), 1, "exit code of plc-sim")
            browser.wait_for("document.body.className", "ended")
            browser.session = None
            browser.open(report.as_uri())
            browser.wait_for("document.readyState === 'complete' && document.querySelector('footer') !== null", True)
            expect_report(browser, report)
            look_at_report(browser, source, pictures)
        finally:
            browser.end()
            sim.stdin.close()
            sim.wait(WAIT_S)
    print(f"everybody can use the page and the report; pictures are in {pictures}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
