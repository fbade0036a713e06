#!/usr/bin/env python3
"""A machine program: stops the motor while it draws too much current, and lets it run again once it has cooled.

    cooling.py --address 192.168.0.10 --tags tags/

test_cooling.py tries it against a simulated controller.
"""
from __future__ import annotations

import argparse
import sys

import plc_client

TOO_MUCH = 8.0  # amperes
COOL = 5.0
RUN_SPEED = 1500


class Cooling:
    """Knows whether the motor has to rest. Without a value of the current nothing is decided anew."""

    def __init__(self, machine: plc_client.Controller) -> None:
        self.machine = machine
        self.is_resting = False

    def step(self) -> str:
        """Looks once and acts: "running", "resting", or why neither is known."""
        current = self.machine.read("Motor.Current")
        if not current.ok:
            return f"not known: {current.error}"
        if current.value > TOO_MUCH:
            self.is_resting = True
        elif current.value < COOL:
            self.is_resting = False
        done = self.machine.write("Motor.Speed", 0 if self.is_resting else RUN_SPEED, verify=True)
        if not done.ok:
            return f"not known: {done.error}"
        return "resting" if self.is_resting else "running"


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--address", required=True)
    parser.add_argument("--port", type=int, default=8500)
    parser.add_argument("--tags", required=True, help="a folder of tag files, or one file")
    options = parser.parse_args()
    with plc_client.Controller(options.address, port=options.port, tags=options.tags) as machine:
        cooling = Cooling(machine)
        for _ in machine.watch("Motor.Current", period=0.5):
            print(cooling.step(), flush=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
