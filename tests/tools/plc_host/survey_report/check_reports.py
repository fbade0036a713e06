#!/usr/bin/env python3
"""Holds the reports of sample surveys to the schema, and the schema to reports that are wrong.

check_reports.py --samples WRITE_SURVEY_SAMPLES --schema SURVEY_REPORT_SCHEMA
"""
import argparse
import copy
import json
import pathlib
import subprocess
import sys
import tempfile

import jsonschema

RUN_LIMIT_S = 60
SAMPLES = ("full", "interrupted", "empty", "hostile", "large")


def changed(report, change):
    other = copy.deepcopy(report)
    change(other)
    return other


def wrong_ones(report):
    """Reports that no survey writes, by what is wrong with them."""
    return {
        "another format": changed(report, lambda one: one.update(format=2)),
        "a member more": changed(report, lambda one: one.update(more=1)),
        "a member less": changed(report, lambda one: one["link"].pop("connect")),
        "a negative time": changed(report, lambda one: one["times"]["measured"][0].update(p50=-1)),
        "bytes that are none": changed(report, lambda one: one["heads"]["statuses"][2]["first"].update(reply="0G")),
        "a state that is none": changed(report, lambda one: one["variables"]["findings"][0].update(state="fine")),
        "an unknown verdict": changed(report, lambda one: one["guarded"].update(usable="perhaps")),
    }


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--samples", required=True)
    parser.add_argument("--schema", required=True)
    options = parser.parse_args()
    schema = json.loads(pathlib.Path(options.schema).read_text(encoding="utf-8"))
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    problems = []
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([options.samples, folder], check=True, timeout=RUN_LIMIT_S)
        for name in SAMPLES:
            report = json.loads((pathlib.Path(folder) / name / "report.json").read_text(encoding="utf-8"))
            problems += [f"{name}: {error.json_path}: {error.message[:200]}" for error in validator.iter_errors(report)]
            if name == "full":
                problems += [f"taken: {what}" for what, wrong in wrong_ones(report).items()
                             if validator.is_valid(wrong)]
    print("\n".join(problems) or f"{len(SAMPLES)} reports are as the schema says")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
