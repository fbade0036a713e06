#!/usr/bin/env python3
"""Opens plc-sim's page in headless Chromium, sets a value and a fault there, and reads the value through the driver.
Then pages of somebody else try to use it: under a name of theirs, by forms and scripts, in a frame.

page_in_browser.py --browser CHROMIUM --sim PLC-SIM --host PLC-HOST --library LIBPLC_DRIVER
"""
import argparse
import http.server
import json
import pathlib
import subprocess
import sys
import tempfile
import threading

sys.dont_write_bytecode = True
from chromium import Browser, WAIT_S  # noqa: E402

TAGS = """Speed,INT,,,a,b,c,0,1,0,0,,DM1
Table,DINT,[0..2],,a,b,c,1,0,0,5,MAIN,
<i>Odd</i>,BOOL,,,a,b,c,2,1,0,0,,
Text,STRING,,40,a,b,c,3,1,0,0,,
<img src=x onerror=window.wasRun=1>,INT,,,a,b,c,4,1,0,0,,
turned\u202egnp,INT,,,a,b,c,5,1,0,0,,
A,INT,,,a,b,c,6,0,0,6,Blank,
A,INT,,,a,b,c,7,0,0,7, Blank,
A,INT,,,a,b,c,8,0,0,8,Blank ,
say "it's" \\n,INT,,,a,b,c,9,1,0,0,,
"""
# Somebody else's name, which points to this machine for the browser alone.
EVIL_HOST = "evil.example"
MESSAGE = "document.getElementById('message').textContent"


def value_of(name):
    return f"document.querySelector('tr[data-name={json.dumps(name)}] td.value')?.textContent ?? null"


def command(sim, line):
    sim.stdin.write(line + "\n")
    sim.stdin.flush()
    answer = []
    while True:
        answer.append(sim.stdout.readline().rstrip("\n"))
        if answer[-1] in ("ok", "") or answer[-1].startswith("error: "):
            return answer


def expect(found, expected, what):
    if found != expected:
        raise SystemExit(f"{what}: {found!r}, expected {expected!r}")


def read_through_driver(options, tags, port, name):
    done = subprocess.run([options.host, "read", name, "--address", "127.0.0.1", "--port", str(port), "--tags", tags,
                           "--library", options.library, "--json", "--quiet"],
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, check=True, timeout=WAIT_S)
    return json.loads(done.stdout)["value"]


def use_markup(browser, sim):
    """Markup in a value, in what is typed and in the page itself is text, or at least nothing that runs."""
    markup = "<b onclick=alert(1)>x</b>"
    expect(command(sim, "set Text " + markup), ["ok"], "setting a text")
    browser.wait_for(value_of("Text"), f'"{markup}"')
    expect(browser.evaluate("document.querySelectorAll('#rows b').length"), 0, "elements made of a value")

    browser.evaluate("{ const row = document.querySelector('tr[data-name=\"Speed\"]');"
                     "row.querySelector('input').value = '<u>7</u>'; row.querySelector('form').requestSubmit(); }")
    browser.wait_for(MESSAGE, "error: '<u>7</u>' is no INT value: write 120, -5, 0xFF or 0b101")
    expect(browser.evaluate("document.querySelectorAll('#message u').length"), 0, "elements made of what was typed")

    # Scripts in names; a name that turns the reading direction is shown with its number.
    expect(browser.evaluate("document.querySelectorAll('#rows img').length"), 0, "pictures made of a name")
    expect(browser.evaluate("document.querySelector('tr[data-name^=turned] td').textContent"), "turned\\u{202e}gnp",
           "a name with a sign of direction")
    browser.evaluate("const foreign = document.createElement('script'); foreign.textContent = 'window.wasRun = true';"
                     "document.body.append(foreign)")
    expect(browser.evaluate("window.wasRun ?? false"), False, "a script that is none of the page's files was run")


def use_names_with_blanks(browser, sim):
    """A button writes its row, also where other rows have the name but for its blanks."""
    names = ("Blank/A", " Blank/A", "Blank /A", "say \"it's\" \\n")
    for value, name in enumerate(names, 11):
        row = f"document.querySelector('tr[data-name=' + CSS.escape({json.dumps(name)}) + ']')"
        browser.evaluate(f"{row}.querySelector('input').value = '{value}'; {row}.querySelector('form').requestSubmit()")
        browser.wait_for(MESSAGE, f"written: {name} = {value}")
    shown = command(sim, "show")
    expect([line for line in shown if "lank" in line or "say" in line],
           [f"{name} = {value}" for value, name in enumerate(names, 11)], "names with blanks")


def use_page(browser, sim, options, tags, port):
    browser.wait_for(value_of("Speed"), "0")
    browser.wait_for("document.getElementById('violations').textContent", "no violation")
    browser.wait_for(value_of("<i>Odd</i>"), "false")
    expect(browser.evaluate("document.querySelectorAll('#rows i').length"), 0, "elements made of a variable's name")
    use_markup(browser, sim)

    for name, value in (("Speed", "1234"), ("MAIN/Table[2]", "-70000")):
        row = f"document.querySelector('tr[data-name={json.dumps(name)}]')"
        browser.evaluate(f"{row}.querySelector('input').value = '{value}'; {row}.querySelector('form').requestSubmit()")
        browser.wait_for(value_of(name), value)
        expect(read_through_driver(options, tags, port, name), int(value), f"{name} through the driver")
    use_names_with_blanks(browser, sim)

    browser.evaluate("const row = document.querySelector('tr[data-name=\"Speed\"]');"
                     "row.querySelector('input').value = '99999'; row.querySelector('form').requestSubmit()")
    browser.wait_for(MESSAGE, "error: '99999' is no INT value: outside -32768 to 32767")

    browser.evaluate("document.getElementById('fault-name').value = 'delay';"
                     "document.getElementById('fault-arguments').value = '20 on=read';"
                     "document.getElementById('fault').requestSubmit()")
    browser.wait_for("document.getElementById('armed').textContent", "delay 20, 1 time more, on read")
    expect(read_through_driver(options, tags, port, "Speed"), 1234, "Speed after a delayed reply")
    expect("fault.delay 1" in command(sim, "counts"), True, "the delay happened")

    browser.evaluate("const filter = document.getElementById('filter'); filter.value = 'Table';"
                     "filter.dispatchEvent(new Event('input'))")
    browser.wait_for("document.querySelectorAll('#rows tr').length", 3)


class EvilPages(http.server.BaseHTTPRequestHandler):
    """Pages of a site that the page knows nothing of; `body` is what they hold."""
    body = ""

    def do_GET(self):  # noqa: N802  (the name that the server calls)
        content = ("<!doctype html><meta charset=utf-8>" + self.body).encode()
        self.send_response(200)
        self.send_header("Content-Type", "text/html; charset=utf-8")
        self.send_header("Content-Length", str(len(content)))
        self.end_headers()
        self.wfile.write(content)

    def log_message(self, *_):
        pass


def evil_address(browser, server, host, body):
    """Opens a page of somebody else that holds this."""
    EvilPages.body = body
    browser.session = None
    browser.open(f"http://{host}:{server.server_port}/")
    # A new page is an empty one first, and complete.
    browser.wait_for(f"document.readyState === 'complete' && document.body !== null && "
                     f"location.port === '{server.server_port}'", True)


def expect_unchanged(sim, what):
    expect(command(sim, "show Speed"), ["Speed = 1234", "ok"], what)


def attack_under_other_name(browser, sim, url):
    """The page's own address under a name that somebody else let point here: not even its script comes."""
    evil_url = url.replace("127.0.0.1", EVIL_HOST)
    browser.session = None
    browser.open(evil_url)
    answer = "is not served under the host name"
    browser.wait_for(f"document.body !== null && document.body.textContent.includes('{answer}')", True)
    status = browser.evaluate(f"fetch('{evil_url}command', {{method: 'POST', headers: {{'X-Plc-Sim': '1'}}, "
                              "body: 'set Speed 1'}).then(answer => answer.status, () => 'refused')")
    expect(status in (403, "refused"), True, f"a command under another name: {status}")
    expect_unchanged(sim, "after a command under another name")


def attack_from_other_pages(browser, sim, server, url):
    """Forms, scripts and pictures of a page of another site, and of another port of this machine."""
    for host in (EVIL_HOST, "127.0.0.1"):
        evil_address(browser, server, host,
                     f"<form id=form method=post enctype=text/plain target=frame action='{url}command'>"
                     "<input name='set Speed 2' value=''></form><iframe name=frame></iframe>")
        browser.evaluate("new Promise(done => { document.querySelector('iframe').onload = done;"
                         "document.getElementById('form').submit(); }).then(() => 1)")
        expect_unchanged(sim, f"after a form of {host}")
        for headers in ("", "headers: {'X-Plc-Sim': '1'},"):
            for mode in ("cors", "no-cors"):
                asked = f"fetch('{url}command', {{method: 'POST', mode: '{mode}', {headers} body: 'set Speed 3'}})"
                seen = browser.evaluate(asked + ".then(answer => answer.type === 'opaque' ? 'nothing' : answer.text(),"
                                        "() => 'nothing')")
                expect(seen, "nothing", f"what {host} sees of its command ({mode})")
                expect_unchanged(sim, f"after a script of {host} ({mode})")
        seen = browser.evaluate(f"fetch('{url}state').then(answer => answer.text(), () => 'nothing')")
        expect(seen, "nothing", f"what {host} reads of the variables")
        seen = browser.evaluate(f"new Promise(done => {{ const script = document.createElement('script');"
                                f"script.src = '{url}page.js'; script.onload = () => done('run');"
                                "script.onerror = () => done('not run'); document.body.append(script); })")
        expect(seen, "not run", f"the page's script in a page of {host}")


def attack_by_frame(browser, server, url):
    """A page of somebody else around the page: it is not there to be clicked on."""
    for host in (EVIL_HOST, "127.0.0.1"):
        evil_address(browser, server, host, "")
        browser.evaluate("new Promise(done => { const frame = document.createElement('iframe'); frame.onload = done;"
                         f"frame.src = '{url}'; document.body.append(frame); }}).then(() => 1)")
        frames = browser.call("Page.getFrameTree")["frameTree"].get("childFrames", [])
        expect([frame["frame"]["url"] for frame in frames if frame["frame"]["url"].startswith(url)
                and not frame["frame"].get("unreachableUrl")], [], f"the page in a frame of {host}")


def attack_page(browser, sim, url):
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), EvilPages)
    thread = threading.Thread(target=server.serve_forever)
    thread.start()
    try:
        attack_under_other_name(browser, sim, url)
        attack_from_other_pages(browser, sim, server, url)
        attack_by_frame(browser, server, url)
    finally:
        server.shutdown()
        thread.join()
        server.server_close()
    expect_unchanged(sim, "after everything")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("browser", "sim", "host", "library"):
        parser.add_argument("--" + name, required=True)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        tags = str(pathlib.Path(folder) / "tags.csv")
        pathlib.Path(tags).write_text(TAGS, encoding="utf-8")
        sim = subprocess.Popen([options.sim, "--web", "127.0.0.1:0", tags], stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE, text=True)
        port = int(sim.stdout.readline().rsplit(":", 1)[1])
        url = sim.stdout.readline().split()[2]
        browser = Browser(options.browser, str(pathlib.Path(folder) / "profile"),
                          [f"--host-resolver-rules=MAP {EVIL_HOST} 127.0.0.1"])
        try:
            browser.open(url)
            use_page(browser, sim, options, tags, port)
            attack_page(browser, sim, url)
        finally:
            browser.end()
            sim.stdin.close()
        expect(sim.wait(WAIT_S), 0, "exit code of plc-sim")
    print("the page shows, sets and switches what the driver reads, and nobody else does")
    return 0


if __name__ == "__main__":
    sys.exit(main())
