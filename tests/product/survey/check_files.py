#!/usr/bin/env python3
"""Surveys plc-sim, and reads the files of the survey with other programs: report.json against its schema, survey.pcapng
with tshark, which finds the commented replies, and the packets that the report shows as evidence.

check_files.py --host PLC_HOST --sim PLC_SIM --library LIBPLC_DRIVER --tags TAGFILE --schema SURVEY_REPORT_SCHEMA
"""
import argparse
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
        packets = packets_of(folder / "survey.pcapng")
        problems += problems_of(report, packets)
        if run(("tshark", "-n", "-r", folder / "survey.pcapng", "-Y", "_ws.malformed || tcp.analysis.lost_segment")):
            problems.append("tshark finds packets that are not right")
    print("\n".join(problems) or f"the report is as its schema; tshark reads {len(packets)} packets")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
