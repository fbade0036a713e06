"""Headless Chromium for tests: pages opened, asked, typed into and pictured through its debugging protocol."""
import base64
import json
import os
import pathlib
import select
import signal
import subprocess
import time

WAIT_S = 30


class Browser:
    """Chromium, spoken to through the pipe of its debugging protocol: one JSON text per message, ended by a NUL."""

    def __init__(self, program, profile, more_arguments=()):
        to_browser, self.write_end = os.pipe()
        self.read_end, from_browser = os.pipe()

        def give_pipes():
            # The protocol's descriptors are 3 and 4; the originals may be among them, so they are moved away first.
            spare_in, spare_out = os.dup(to_browser), os.dup(from_browser)
            while spare_in in (3, 4):
                spare_in = os.dup(spare_in)
            while spare_out in (3, 4):
                spare_out = os.dup(spare_out)
            os.dup2(spare_in, 3)
            os.dup2(spare_out, 4)

        arguments = [program, "--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--no-first-run", "--disable-extensions", f"--user-data-dir={profile}", *more_arguments,
                     "--remote-debugging-pipe", "about:blank"]
        self.process = subprocess.Popen(arguments, preexec_fn=give_pipes, close_fds=False, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                                        start_new_session=True)
        os.close(to_browser)
        os.close(from_browser)
        self.received = b""
        self.number = 0
        self.session = None

    def message(self):
        until = time.monotonic() + WAIT_S
        while b"\0" not in self.received:
            ready, _, _ = select.select([self.read_end], [], [], max(0, until - time.monotonic()))
            piece = os.read(self.read_end, 65536) if ready else b""
            if not piece:
                raise SystemExit("the browser says nothing")
            self.received += piece
        text, self.received = self.received.split(b"\0", 1)
        return json.loads(text)

    def call(self, method, **parameters):
        self.number += 1
        request = {"id": self.number, "method": method, "params": parameters}
        if self.session:
            request["sessionId"] = self.session
        os.write(self.write_end, json.dumps(request).encode() + b"\0")
        while True:
            answer = self.message()
            if answer.get("id") == self.number:
                if "error" in answer:
                    raise SystemExit(f"{method}: {answer['error']}")
                return answer["result"]

    def open(self, url):
        target = self.call("Target.createTarget", url=url)["targetId"]
        self.session = self.call("Target.attachToTarget", targetId=target, flatten=True)["sessionId"]

    def evaluate(self, expression):
        result = self.call("Runtime.evaluate", expression=expression, awaitPromise=True, returnByValue=True)
        if "exceptionDetails" in result:
            raise SystemExit(f"{expression}: {result['exceptionDetails']}")
        return result["result"].get("value")

    def wait_for(self, expression, expected):
        until = time.monotonic() + WAIT_S
        value = None
        while time.monotonic() < until:
            value = self.evaluate(expression)
            if value == expected:
                return
        raise SystemExit(f"{expression} is {value!r}, expected {expected!r}")

    def end(self):
        os.close(self.write_end)
        self.process.terminate()
        self.process.wait(WAIT_S)
        self.end_helpers()

    def end_helpers(self):
        """The browser's other processes outlive it for a moment, and write into its profile meanwhile."""
        until = time.monotonic() + WAIT_S
        try:
            while time.monotonic() < until:
                os.killpg(self.process.pid, signal.SIGKILL)
                time.sleep(0.01)
        except ProcessLookupError:
            return
        raise SystemExit("processes of the browser do not end")

    def look_as(self, width, height, scheme, media="screen"):
        """The window of this size, in the visitor's choice of light or dark, or on paper."""
        self.call("Emulation.setScrollbarsHidden", hidden=True)
        self.call("Emulation.setDeviceMetricsOverride", width=width, height=height, deviceScaleFactor=1, mobile=False)
        self.call("Emulation.setEmulatedMedia", media=media,
                  features=[{"name": "prefers-color-scheme", "value": scheme}])

    def press(self, key, text=""):
        """A key of the keyboard, as a visitor without a mouse presses it."""
        codes = {"Tab": 9, "Enter": 13}
        down = {"key": key, "code": key, "windowsVirtualKeyCode": codes[key]}
        self.call("Input.dispatchKeyEvent", type="keyDown", text=text, **down)
        self.call("Input.dispatchKeyEvent", type="keyUp", **down)

    def type(self, text):
        self.call("Input.insertText", text=text)

    def picture(self, path, height):
        """Of the page from its top, at most so high."""
        size = self.call("Page.getLayoutMetrics")["cssContentSize"]
        clip = {"x": 0, "y": 0, "width": size["width"], "height": min(size["height"], height), "scale": 1}
        png = self.call("Page.captureScreenshot", format="png", clip=clip, captureBeyondViewport=True)["data"]
        pathlib.Path(path).write_bytes(base64.b64decode(png))
