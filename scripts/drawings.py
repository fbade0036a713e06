"""The diagrams of docs/how_it_works.md as SVG: boxes, lanes and arrows, readable in light and dark."""
import html

STYLE = """
text { font: 13px sans-serif; fill: #1f2328 }
.head { font-weight: bold }
.small { font-size: 12px; fill: #57606a }
.good { fill: #1a7f37 }
.bad { fill: #cf222e }
.back { fill: #ffffff }
.box { fill: #f0f3f6; stroke: #8c959f }
.lane { stroke: #8c959f; stroke-dasharray: 4 4 }
.arrow { stroke: #57606a; fill: none }
.tip { fill: #57606a }
@media (prefers-color-scheme: dark) {
  text { fill: #e6edf3 }
  .small { fill: #9da7b3 }
  .good { fill: #57ab5a }
  .bad { fill: #f47067 }
  .back { fill: #0d1117 }
  .box { fill: #1c2430; stroke: #6e7681 }
  .lane { stroke: #6e7681 }
  .arrow { stroke: #9da7b3 }
  .tip { fill: #9da7b3 }
}
"""
LINE = 17
TIP = 7


class Drawing:
    """A picture of a fixed size; places are pixels from its upper left corner."""

    def __init__(self, width, height, title):
        self.size = f'viewBox="0 0 {width} {height}" width="{width}" height="{height}"'
        self.title = title
        self.parts = [f'<rect class="back" width="{width}" height="{height}"/>']

    def text(self, x, y, text, kind="", anchor="middle"):
        self.parts.append(f'<text x="{x}" y="{y}" class="{kind}" text-anchor="{anchor}">{html.escape(text)}</text>')

    def box(self, x, y, width, height, *lines):
        """A box with its lines in the middle, the first one bold."""
        self.parts.append(f'<rect class="box" x="{x}" y="{y}" width="{width}" height="{height}" rx="5"/>')
        first = y + height / 2 - (len(lines) - 1) * LINE / 2 + 4
        for number, line in enumerate(lines):
            self.text(x + width / 2, first + number * LINE, line, "small" if number else "head")

    def lane(self, x, top, bottom, name):
        self.text(x, top - 8, name, "head")
        self.parts.append(f'<line class="lane" x1="{x}" y1="{top}" x2="{x}" y2="{bottom}"/>')

    def arrow(self, start, end, label="", kind=""):
        """A line from one place to another, which lie side by side or above each other; the label stands on it."""
        (x1, y1), (x2, y2) = start, end
        across = y1 == y2
        step = TIP if (x2 > x1 if across else y2 > y1) else -TIP
        tip = [(x2, y2), (x2 - step, y2 - 4), (x2 - step, y2 + 4)] if across else \
            [(x2, y2), (x2 - 4, y2 - step), (x2 + 4, y2 - step)]
        points = " ".join(f"{x},{y}" for x, y in tip)
        self.parts.append(f'<line class="arrow" x1="{x1}" y1="{y1}" x2="{x2}" y2="{y2}"/>')
        self.parts.append(f'<polygon class="tip" points="{points}"/>')
        if label:
            self.text((x1 + x2) / 2, y1 - 5, label, f"small {kind}")

    def svg(self):
        """The picture as a file's text."""
        body = "\n".join(self.parts)
        return (f'<svg xmlns="http://www.w3.org/2000/svg" {self.size} role="img">\n<title>{html.escape(self.title)}'
                f'</title>\n<style>{STYLE}</style>\n{body}\n</svg>\n')


def transfer():
    """One read, from the host's call to the value in its buffer."""
    drawing = Drawing(760, 330, "One read: the panel asks by number, the driver resolves the name and asks for a value")
    panel, driver, controller = 90, 350, 660
    for x, name in ((panel, "panel"), (driver, "driver"), (controller, "controller")):
        drawing.lane(x, 34, 320, name)
    drawing.arrow((panel, 70), (driver, 70), "read number 2, one element")
    drawing.text(driver + 12, 100, "line 2 of the tag file: Motor.Speed, DINT", "small", "start")
    drawing.arrow((driver, 140), (controller, 140), "resolve: Motor.Speed")
    drawing.arrow((controller, 170), (driver, 170), "handle: five bytes")
    drawing.arrow((driver, 215), (controller, 215), "value of this handle, 2 words")
    drawing.arrow((controller, 245), (driver, 245), "value: 00 78 00 00")
    drawing.text(driver + 12, 272, "words and bytes into the host's order", "small", "start")
    drawing.arrow((driver, 300), (panel, 300), "result 0, the value 120")
    return drawing


def late_reply():
    """The same write on a connection that owes replies, with either build."""
    drawing = Drawing(880, 350, "A late reply: the contract build writes to another variable, the guarded one does not")
    for left, build in ((0, "contract build"), (440, "guarded build")):
        drawing.text(left + 220, 22, f"{build}: the panel writes A = 5", "head")
        drawing.lane(left + 70, 60, 290, "driver")
        drawing.lane(left + 370, 60, 290, "controller")

    def message(left, y, to_controller, label, kind=""):
        ends = ((left + 70, y), (left + 370, y))
        drawing.arrow(*(ends if to_controller else ends[::-1]), label, kind)

    message(0, 100, True, "resolve: A")
    message(0, 140, False, "late: handle of B", "bad")
    message(0, 180, True, "write 5 to this handle", "bad")
    message(0, 220, False, "late: value of B, taken for \"done\"", "bad")
    message(0, 260, False, "handle of A: the next call takes it", "bad")
    drawing.text(220, 315, "The call returns 0.", "small")
    drawing.text(220, 334, "B is 5, A is unchanged.", "bad")

    message(440, 100, True, "number 12, resolve: A")
    message(440, 140, False, "number 10, handle of B: dropped")
    message(440, 180, False, "number 12, handle of A", "good")
    message(440, 220, True, "number 13, write 5 to this handle", "good")
    message(440, 260, False, "number 13, done", "good")
    drawing.text(660, 315, "The call returns 0.", "small")
    drawing.text(660, 334, "A is 5.", "good")
    return drawing


def rooms():
    """What is built on what."""
    drawing = Drawing(880, 356,
                      "Programs use the client library, which loads the driver; the driver speaks to a controller")
    top = (("your panel", "C, by number"), ("your program", "C++"), ("your script", "Python"),
           ("plc-host", "command line"), ("plc-gateway", "to MQTT"))
    for number, (name, what) in enumerate(top):
        x = 10 + number * 130
        drawing.box(x, 10, 120, 50, name, what)
        drawing.arrow((x + 60, 60), (x + 60, 188 if number == 0 else 100))
    drawing.box(140, 100, 510, 50, "libplc_client: variables by name", "client/, python/")
    drawing.arrow((395, 150), (395, 188))
    drawing.box(10, 188, 640, 50, "libplc_driver: variables by number, contract build or guarded build",
                "include/, src/")
    drawing.arrow((330, 238), (330, 290))
    drawing.text(340, 268, "TCP", "small", "start")
    drawing.box(10, 290, 640, 50, "a controller, or plc-sim in its place", "tools/plc_sim")
    drawing.box(690, 10, 180, 140, "wire/", "traffic seen from outside:", "plc-host why,", "plc-sim's judge,",
                "captures")
    drawing.box(690, 188, 180, 60, "tag_check/", "plc-host check")
    drawing.box(690, 290, 180, 50, "dissector/", "Wireshark, tshark")
    return drawing


DRAWINGS = {drawing.__name__: drawing for drawing in (transfer, late_reply, rooms)}
