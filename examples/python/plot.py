#!/usr/bin/env python3
"""Draws a variable's value over time as a picture.

    plot.py --address 192.168.0.10 --tags tags/ --seconds 60 --picture speed.png Motor.Speed

Where the variable could not be read the line has a gap.
"""
from __future__ import annotations

import argparse
import itertools
import math
import sys
from datetime import datetime
from typing import List, Optional, Tuple

import matplotlib

matplotlib.use("Agg")  # draws files, opens no window
import matplotlib.dates  # noqa: E402
import matplotlib.pyplot as pyplot  # noqa: E402

import plc_client  # noqa: E402


def collect(
    machine: plc_client.Controller, name: str, period: float, count: int
) -> Tuple[List[datetime], List[float], Optional[str]]:
    """Times and values, and the last error; what was not read is not a number."""
    times, values, problem = [], [], None
    for [reading] in itertools.islice(machine.watch([name], period), count):
        if reading.ok and not isinstance(reading.value, (bool, int, float)):
            raise plc_client.TypeMismatch(f"{name} is declared {reading.type}: a BOOL, an integer or a real is drawn")
        times.append(reading.time.astimezone())
        values.append(float(reading.value) if reading.ok else math.nan)
        problem = reading.error or problem
    return times, values, problem


def draw(name: str, times: List[datetime], values: List[float], picture: str) -> None:
    figure, axes = pyplot.subplots(figsize=(8, 4), layout="constrained")
    axes.step(times, values, where="post", marker=".", linewidth=1.5)
    axes.set_title(name)
    axes.set_xlabel("time of day")
    axes.set_ylabel("value")
    axes.grid(alpha=0.3)
    axes.xaxis.set_major_formatter(matplotlib.dates.ConciseDateFormatter(axes.xaxis.get_major_locator(),
                                                                         tz=times[0].tzinfo))
    figure.savefig(picture, dpi=120)
    pyplot.close(figure)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--address", required=True)
    parser.add_argument("--port", type=int, default=8500)
    parser.add_argument("--tags", required=True, help="a folder of tag files, or one file")
    parser.add_argument("--seconds", type=float, default=60.0, help="how long (60)")
    parser.add_argument("--period", type=float, default=0.5, help="seconds between two values (0.5)")
    parser.add_argument("--picture", default="plot.png", metavar="FILE")
    parser.add_argument("name", metavar="NAME", help="a BOOL, an integer or a real, no array")
    options = parser.parse_args()
    if not options.period > 0 or not math.isfinite(options.seconds):
        parser.error("--seconds is a number of seconds, and --period one above 0")
    try:
        with plc_client.Controller(options.address, port=options.port, tags=options.tags) as machine:
            count = max(1, math.ceil(options.seconds / options.period))
            times, values, problem = collect(machine, options.name, options.period, count)
        if all(map(math.isnan, values)):
            raise plc_client.Error(f"{options.name} was not read a single time: {problem}")
        draw(options.name, times, values, options.picture)
    except (plc_client.Error, OSError) as error:
        print(f"plot.py: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
