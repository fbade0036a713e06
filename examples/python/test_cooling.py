"""Tries cooling.py against a simulated controller, under pytest: no machine, no network, a free port.

    python3 -m pytest examples/python/test_cooling.py
"""
from __future__ import annotations

import pathlib
from typing import Iterator

import cooling
import plc_client
import pytest

TAGS = pathlib.Path(__file__).resolve().parent.parent / "tags"


@pytest.fixture
def machine() -> Iterator[plc_client.Simulator]:
    with plc_client.Simulator(TAGS) as simulator:
        yield simulator


@pytest.fixture
def program(machine: plc_client.Simulator) -> Iterator[cooling.Cooling]:
    with machine.controller() as controller:
        yield cooling.Cooling(controller)


def test_runs_while_the_current_is_low(machine: plc_client.Simulator, program: cooling.Cooling) -> None:
    machine.set("Motor.Current", 2.5)
    assert program.step() == "running"
    assert machine.get("Motor.Speed") == cooling.RUN_SPEED


def test_rests_until_it_is_cool(machine: plc_client.Simulator, program: cooling.Cooling) -> None:
    speeds = []
    for current in (7.0, 9.0, 7.0, 4.0):
        machine.set("Motor.Current", current)
        program.step()
        speeds.append(machine.get("Motor.Speed"))
    assert speeds == [1500, 0, 0, 1500]


def test_decides_nothing_without_a_value(machine: plc_client.Simulator, program: cooling.Cooling) -> None:
    machine.set("Motor.Current", 9.0)
    assert program.step() == "resting"
    machine.set("Motor.Current", 1.0)
    machine.fault("refuse on=read times=1")
    assert program.step().startswith("not known: ")
    assert machine.get("Motor.Speed") == 0


def test_reports_a_write_that_was_refused(machine: plc_client.Simulator, program: cooling.Cooling) -> None:
    machine.set("Motor.Current", 2.5)
    machine.fault("refuse on=write times=1")
    assert program.step().startswith("not known: ")
    assert machine.get("Motor.Speed") == 0
