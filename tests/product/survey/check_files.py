#!/usr/bin/env python3
"""Surveys plc-sim, and reads the files of the survey with other programs: report.json against its schema, survey.pcapng
with tshark, which finds the commented replies, and the packets that the report shows as evidence. The tables of
report.html have the figures of report.json.

check_files.py --host PLC_HOST --sim PLC_SIM --library LIBPLC_DRIVER --tags TAGFILE --schema SURVEY_REPORT_SCHEMA
"""
import argparse
import html.parser
import json
import pathlib
import subprocess
import sys
import tempfile

import jsonschema

RUN_LIMIT_S = 120


def run(words):
    done = subprocess.run([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, timeout=RUN_LIMIT_S, check=False)
    if done.returncode != 0:
        raise SystemExit(f"{words[0]} ended with {done.returncode}: {done.stderr}")
    return done.stdout


def packets_of(capture):
    """Of each packet its number, its bytes of TCP and its comment, as tshark reads them."""
    fields = ("frame.number", "tcp.payload", "frame.comment")
    options = [word for field in fields for word in ("-e", field)]
    lines = run(("tshark", "-n", "-r", capture, "-T", "fields", *options)).splitlines()
    return {int(number): (payload, comment) for number, payload, comment in (line.split("\t") for line in lines)}


def problems_of(report, packets):
    problems = []
    if not any(comment.startswith("status 0x0004") for _, comment in packets.values()):
        problems.append("no comment on the refusal")
    shown = 0
    for status in report["heads"]["statuses"]:
        frame = status["first"]
        if frame["packet"] is None:
            continue
        shown += 1
        payload, _ = packets[frame["packet"]]
        if payload != frame["request"].replace(" ", "").lower():
            problems.append(f"packet {frame['packet']} is {payload}, the report shows {frame['request']}")
    return problems if shown >= 3 else problems + [f"only {shown} frames are shown"]


class Tables(html.parser.HTMLParser):
    """The cells of each table of a page, row by row, by the label of the table."""

    def __init__(self, page):
        super().__init__()
        self.rows = {}
        self.label = ""
        self.cell = None
        self.feed(page)

    def handle_starttag(self, tag, attrs):
        self.label = dict(attrs).get("aria-label", self.label)
        if tag == "tr":
            self.rows.setdefault(self.label, []).append([])
        elif tag in ("td", "th"):
            self.cell = ""

    def handle_data(self, data):
        if self.cell is not None:
            self.cell += data

    def handle_endtag(self, tag):
        if tag in ("td", "th"):
            self.rows[self.label][-1].append(self.cell)
            self.cell = None


def shown_ms(text):
    number, unit = text.split()
    return float(number) * {"ms": 1, "s": 1000}[unit]


def is_shown_as(value, text):
    """To what the page rounds it to."""
    return abs(shown_ms(text) - value) <= max(value * 0.01, 0.0051)


def wrong_times(report, rows):
    found = {(row[0], int(row[1])): row[2:] for row in rows}
    wanted = {(one["kind"], one["names"]): one for one in report["times"]["measured"]}
    if found.keys() != wanted.keys():
        return [f"answer times are of {found.keys()} and {wanted.keys()}"]
    problems = []
    for key, one in wanted.items():
        cells = found[key]
        if int(cells[0].split()[0]) != one["measured"] or int(cells[4]) != one["silent"] + one["lost"]:
            problems.append(f"{key}: {cells} and {one}")
        problems += [f"{key}: {cell} and {one[name]} ms ({name})"
                     for cell, name in zip(cells[1:4], ("p50", "p99", "largest"))
                     if not is_shown_as(one[name], cell)]
    return problems


def wrong_figures(report, page):
    """Where a table of the page has other figures than report.json."""
    rows = {label: cells[1:] for label, cells in Tables(page).rows.items()}
    pairs = {
        "Rules of the guarded build": [[one["rule"], "holds" if one["holds"] else "does not hold", str(one["kept"]),
                                        str(one["broken"])] for one in report["guarded"]["rules"]],
        "Statuses": [[one["status"], one["request"], str(one["count"])] for one in report["heads"]["statuses"]],
        "Heads of replies": [[str(field[name]) for name in ("right", "zero", "other")]
                             for field in report["heads"]["fields"].values()],
    }
    found = {label: rows.get(label, []) for label in pairs}
    found["Heads of replies"] = [row[1:] for row in found["Heads of replies"]]
    problems = [f"{label}: the page has {found[label]}, report.json {wanted}"
                for label, wanted in pairs.items() if found[label] != wanted]
    if f"<p>{report['heads']['replies']} replies" not in page:
        problems.append(f"{report['heads']['replies']} replies are not on the page")
    return problems + wrong_times(report, rows["Answer times"])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("host", "sim", "library", "tags", "schema"):
        parser.add_argument("--" + name, required=True)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name) / "found"
        run((options.host, "survey", "--sim", options.tags, "--simulator", options.sim, "--library", options.library,
             "--output", folder, "--rate", "1000"))
        report = json.loads((folder / "report.json").read_text(encoding="utf-8"))
        schema = json.loads(pathlib.Path(options.schema).read_text(encoding="utf-8"))
        problems = [f"{error.json_path}: {error.message[:200]}"
                    for error in jsonschema.Draft202012Validator(schema).iter_errors(report)]
        problems += wrong_figures(report, (folder / "report.html").read_text(encoding="utf-8"))
        packets = packets_of(folder / "survey.pcapng")
        problems += problems_of(report, packets)
        if run(("tshark", "-n", "-r", folder / "survey.pcapng", "-Y", "_ws.malformed || tcp.analysis.lost_segment")):
            problems.append("tshark finds packets that are not right")
    print("\n".join(problems) or f"the report is as its schema; tshark reads {len(packets)} packets")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
