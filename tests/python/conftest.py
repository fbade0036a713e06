"""What the tests of the Python package share: a simulated controller with the example tags, and what talks to it."""
import pathlib

import plc_client
import pytest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
TAGS = ROOT / "examples" / "tags"


@pytest.fixture
def machine():
    with plc_client.Simulator(TAGS, sentinel=True) as simulator:
        yield simulator
        assert simulator.counts()["violations"] == 0, simulator.messages()


@pytest.fixture
def press(machine):
    with plc_client.Controller(machine.address, port=machine.port, tags=TAGS) as controller:
        yield controller
