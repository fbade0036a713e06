#!/usr/bin/env python3
"""Checks a recorded session against every assertion of the standard that an edge node has to keep, and against what the
gateway promises beyond it.

check_session.py RECORD [--edge GROUP/NODE]... [--all] [--json]

Of each identifier that the session touched it tells how often it was checked and each failure with the number of its
packet; an identifier that nothing in the session touched was not seen, which is not the same as passed. Exit code 0:
no failure; 1: failures; 2: the record cannot be checked.
"""
import argparse
import json
import sys
from dataclasses import dataclass, field

import assertions
import recording
import rules_answers
import rules_births
import rules_gateway
import rules_metrics
import rules_session
import session
from rulebook import RULES

MODULES = (rules_session, rules_births, rules_metrics, rules_answers, rules_gateway)
FAILURES_SHOWN = 5


@dataclass
class Outcome:
    """Of one identifier."""
    seen: int = 0
    failures: list = field(default_factory=list)  # (node, packet, sentence)


def run_rules(node):
    """Of each rule that the tables name, with its arguments: how often it applied, and its failures."""
    results = {}
    for entry in {**assertions.CHECKED, **assertions.PROMISES}.values():
        for call in entry.split("; "):
            if call not in results:
                name, *arguments = call.split()
                found = list(RULES[name](node, *arguments))
                failures = [(node.label(), n, sentence) for n, fine, sentence in found if not fine]
                results[call] = len(found), failures
    return results


def check(nodes):
    """The outcome of each identifier that is checked at all, over those nodes."""
    outcomes = {name: Outcome() for name in {**assertions.CHECKED, **assertions.PROMISES}}
    for node in nodes:
        results = run_rules(node)
        for name, entry in {**assertions.CHECKED, **assertions.PROMISES}.items():
            calls = [results[call] for call in entry.split("; ")]
            outcomes[name].seen += min(seen for seen, _ in calls)
            for _, failures in calls:
                outcomes[name].failures += failures
    return outcomes


def check_entries(entries, edges=()):
    """The same for the entries of a record. ValueError when nothing in it can be checked."""
    nodes = session.read_nodes(entries)
    missing = set(edges) - {node.label() for node in nodes}
    if missing or not nodes:
        raise ValueError(f"the record has no edge node {', '.join(sorted(missing))}".rstrip())
    return check([node for node in nodes if not edges or node.label() in edges])


def counts(outcomes):
    names = {"checked": assertions.CHECKED, "promises": assertions.PROMISES}
    result = {"identifiers": len(assertions.CHECKED) + len(assertions.REASONS),
              "not the node's": len(assertions.REASONS)}
    for what, table in names.items():
        chosen = [outcomes[name] for name in table]
        result[what] = {"seen": sum(bool(outcome.seen) for outcome in chosen),
                        "not seen": sum(not outcome.seen and not outcome.failures for outcome in chosen),
                        "failed": sum(bool(outcome.failures) for outcome in chosen)}
    return result


def print_outcomes(outcomes, show_all):
    for name, outcome in outcomes.items():
        if outcome.failures:
            print(f"FAILED    {name}: {len(outcome.failures)} of {outcome.seen}")
            for edge, n, sentence in outcome.failures[:FAILURES_SHOWN]:
                print(f"            {edge}, packet {n}: {sentence}")
        elif outcome.seen == 0:
            print(f"not seen  {name}")
        elif show_all:
            print(f"passed    {name}: {outcome.seen}")
    if show_all:
        for name, reason in assertions.REASONS.items():
            print(f"left out  {name}: {reason}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("record")
    parser.add_argument("--edge", action="append", default=[], metavar="GROUP/NODE")
    parser.add_argument("--all", action="store_true", help="name also what passed and what is not the node's")
    parser.add_argument("--json", action="store_true", help="the same for programs")
    options = parser.parse_args()
    try:
        outcomes = check_entries(recording.load(options.record), options.edge)
    except (OSError, ValueError) as problem:
        print(f"check_session: {options.record}: {problem}", file=sys.stderr)
        return 2
    if options.json:
        print(json.dumps({"counts": counts(outcomes), "identifiers": {
            name: {"seen": outcome.seen, "failures": outcome.failures} for name, outcome in outcomes.items()}}))
    else:
        print_outcomes(outcomes, options.all)
        for what, numbers in counts(outcomes).items():
            print(f"{what}: {numbers}" if isinstance(numbers, int) else
                  f"{what}: " + ", ".join(f"{number} {word}" for word, number in numbers.items()))
    return 1 if any(outcome.failures for outcome in outcomes.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
