"""Reading again and again."""
import itertools

import plc_client
import pytest


def names_of(readings):
    return [reading.name for reading in readings]


def test_gives_what_the_machine_has_each_time(machine, press):
    watched = press.watch(["Motor.Speed", "Main/Step"], period=0)
    for value in (5, -6, 7):
        machine.set("Motor.Speed", value)
        readings = next(watched)
        assert names_of(readings) == ["Motor.Speed", "Main/Step"]
        assert readings[0].value == value


def test_patterns_stand_for_names_and_brackets_for_themselves(press):
    motor = [name for name in press.tags if name.startswith("Motor.")]
    assert names_of(next(press.watch("Motor.*", period=0))) == motor
    assert names_of(next(press.watch("Zone[?].Temperature"))) == [f"Zone[{i}].Temperature" for i in range(5)]
    assert names_of(next(press.watch(["Main/*", "Main/Step", "Motor.Spee?", "Table[0..4]"]))) == \
        ["Main/Step", "Main/Timer.Left", "Main/Busy", "Main/Batch", "Motor.Speed", "Table[0..4]"]


def test_a_pattern_that_fits_nothing_is_told_at_once(press):
    with pytest.raises(plc_client.UnknownVariable, match=r"Nothing\*"):
        press.watch("Nothing*")
    with pytest.raises(plc_client.UnknownVariable, match="Motor.Sped"):
        press.watch(["Motor.Speed", "Motor.Sped"])


@pytest.mark.parametrize("error, period", [(plc_client.OutOfRange, -1), (plc_client.OutOfRange, float("nan")),
                                           (plc_client.TypeMismatch, "1"), (plc_client.TypeMismatch, None)])
def test_a_period_that_is_none(press, error, period):
    with pytest.raises(error, match="period"):
        press.watch("Motor.Speed", period=period)


def test_goes_on_while_the_machine_is_gone(machine, press):
    watched = press.watch("Motor.Speed", period=0)
    assert next(watched)[0].ok
    machine.fault("gone")
    assert not next(watched)[0].ok
    machine.clear_faults()
    press.connect()
    assert next(watched)[0].ok


def test_keeps_to_its_period_and_leaves_out_what_it_is_late_for(press, monkeypatch):
    now = [100.0]
    slept = []

    def sleep(seconds):
        slept.append(round(seconds, 3))
        now[0] += seconds

    monkeypatch.setattr("plc_client._controller.time.monotonic", lambda: now[0])
    monkeypatch.setattr("plc_client._controller.time.sleep", sleep)
    for took, _ in zip((0.25, 0.25, 2.0, 0.25), press.watch("Motor.Speed", period=1.0)):
        now[0] += took
    assert slept == [0.75, 0.75, 0.0]


def test_arrays_as_numpy(press):
    [reading] = next(press.watch("Table", as_numpy=True))
    assert reading.value.shape == (10,)


def test_ends_when_nobody_asks_any_more(press):
    assert len(list(itertools.islice(press.watch("Motor.Speed", period=0), 3))) == 3
