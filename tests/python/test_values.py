"""Every type, shape, scope and kind of id, read and written: values against the memory of the simulated controller."""
import datetime
import math
import random
import struct

import numpy
import plc_client
import pytest

# The driver declares these and does not transfer them.
EIGHT_BITS = ("SINT", "USINT", "BYTE")
INTEGERS = {"INT": (-(1 << 15), (1 << 15) - 1), "DINT": (-(1 << 31), (1 << 31) - 1),
            "LINT": (-(1 << 63), (1 << 63) - 1), "UINT": (0, (1 << 16) - 1), "UDINT": (0, (1 << 32) - 1),
            "ULINT": (0, (1 << 64) - 1), "WORD": (0, (1 << 16) - 1), "DWORD": (0, (1 << 32) - 1),
            "LWORD": (0, (1 << 64) - 1)}
NUMPY = {"BOOL": numpy.bool_, "INT": numpy.int16, "DINT": numpy.int32, "LINT": numpy.int64, "REAL": numpy.float32,
         "LREAL": numpy.float64}


def plain_type(declaration):
    return declaration.type.partition("[")[0].partition("(")[0]


def readable(press):
    """Declarations of what the driver transfers, but for dates and times, which a memory holds as numbers."""
    chosen = [declaration for declaration in press.tags.values() if declaration.unreachable is None
              and plain_type(declaration) not in EIGHT_BITS
              and (plain_type(declaration) in (*INTEGERS, "BOOL", "REAL", "LREAL") or declaration.length)]
    assert len(chosen) > 40
    return chosen


def shape_of(declaration):
    return [high - low + 1 for low, high in declaration.bounds]


def value_for(declaration, dice, shape=None):
    """A value of the declared type and shape."""
    shape = shape_of(declaration) if shape is None else shape
    if shape:
        return [value_for(declaration, dice, shape[1:]) for _ in range(shape[0])]
    kind = plain_type(declaration)
    if kind == "BOOL":
        return dice.random() < 0.5
    if kind == "REAL":
        return struct.unpack("<f", struct.pack("<f", dice.uniform(-1e9, 1e9)))[0]
    if kind == "LREAL":
        return dice.uniform(-1e300, 1e300)
    if kind == "STRING":
        length = dice.randrange(1, declaration.length)
        return "".join(dice.choice("abcXYZ019_-.") for _ in range(length))
    low, high = INTEGERS[kind]
    return dice.choice((low, high, 0, dice.randint(low, high)))


def same_type(value, kind):
    if isinstance(value, list):
        return all(same_type(one, kind) for one in value)
    wanted = {"BOOL": bool, "REAL": float, "LREAL": float, "STRING": str}.get(kind, int)
    return type(value) is wanted


def test_every_variable_read_is_what_the_machine_has(machine, press):
    declarations = readable(press)
    for declaration, reading in zip(declarations, press.read([one.name for one in declarations])):
        assert reading.ok, reading
        assert reading.name == declaration.name
        assert reading.type == declaration.type
        assert reading.value == machine.get(declaration.name), declaration.name
        assert same_type(reading.value, plain_type(declaration)), reading


def test_every_variable_written_is_what_the_machine_has(machine, press):
    dice = random.Random(1)
    for declaration in readable(press):
        for _ in range(3):
            value = value_for(declaration, dice)
            result = press.write(declaration.name, value, verify=True)
            assert result.ok and result.verified and result.outcome == "done" and result.error is None, result
            assert machine.get(declaration.name) == value, declaration.name


def test_values_that_the_machine_sets_are_read(machine, press):
    dice = random.Random(2)
    for declaration in readable(press):
        value = value_for(declaration, dice)
        machine.set(declaration.name, value)
        assert press.read(declaration.name).value == value, declaration.name


def test_elements_and_ranges_are_part_of_the_whole(press):
    grid = press.read("Grid").value
    assert press.read("Grid[1,2]").value == grid[1][2]
    assert press.read("Grid[1,0..3]").value == grid[1]
    assert press.read("Grid[0..2,1]").value == [row[1] for row in grid]
    assert press.read("Cube[1,0..1,2..3]").value == [row[2:4] for row in press.read("Cube").value[1][:2]]


def test_elements_and_ranges_are_written_alone(machine, press):
    before = machine.get("Table")
    assert press.write("Table[2..4]", [1, 2, 3]).ok
    assert press.write("Table[9]", -9).ok
    assert machine.get("Table") == [*before[:2], 1, 2, 3, *before[5:9], -9]


@pytest.mark.parametrize("name, dtype", [("Table", "int16"), ("Levels", "int32"), ("Totals", "int64"),
                                         ("Weights", "float32"), ("Curve", "float64"), ("Grid", "int16"),
                                         ("Cube", "int32"), ("Outputs", "bool")])
def test_arrays_as_numpy_have_declared_type_shape_and_values(press, name, dtype):
    array = press.read(name, as_numpy=True).value
    assert array.dtype == numpy.dtype(dtype)
    assert list(array.shape) == shape_of(press.tags[name])
    assert array.tolist() == press.read(name).value


def test_as_numpy_leaves_single_values_alone(press):
    speed, name = press.read(["Motor.Speed", "Recipe.Name"], as_numpy=True)
    assert type(speed.value) is int
    assert type(name.value) is str


def test_numpy_values_are_written(machine, press):
    assert press.write("Grid", numpy.arange(12, dtype=numpy.int16).reshape(3, 4)).ok
    assert machine.get("Grid") == [[0, 1, 2, 3], [4, 5, 6, 7], [8, 9, 10, 11]]
    assert press.write({"Motor.Speed": numpy.int64(-7), "Motor.Current": numpy.float32(2.5),
                        "Running": numpy.bool_(True)})[2].ok
    assert [machine.get(name) for name in ("Motor.Speed", "Motor.Current", "Running")] == [-7, 2.5, True]


def test_reals_that_are_no_numbers_are_read(machine, press):
    machine.set("Weights", [float("inf"), float("-inf"), float("nan"), -0.0])
    value = press.read("Weights").value
    assert value[:2] == [math.inf, -math.inf]
    assert math.isnan(value[2])
    assert math.copysign(1, value[3]) == -1


def test_texts_are_utf8_and_other_bytes_come_back_as_they_were(machine, press):
    assert press.write("Recipe.Name", "Käse Größe ¾").ok
    assert machine.get("Recipe.Name") == "Käse Größe ¾"
    assert press.write("Recipe.Name", b"\xff\xfeab").ok
    text = press.read("Recipe.Name").value
    assert text.encode("utf-8", "surrogateescape") == b"\xff\xfeab"
    assert press.write("Recipe.Name", text, verify=True).verified


def test_empty_text_is_a_value(machine, press):
    machine.set("Recipe.Name", "")
    reading = press.read("Recipe.Name")
    assert reading.ok and reading.value == ""


def test_dates_and_times_have_no_value(press):
    for name in ("Clock.Stime", "Clock.Date", "Clock.TimeOfDay", "Clock.DateAndTime"):
        reading = press.read(name)
        assert not reading.ok and reading.value is None, reading
        assert "up to its first zero byte, and what follows is not known; stored: " in str(reading.error), reading


def test_times_are_aware_and_now(press):
    before = datetime.datetime.now(datetime.timezone.utc)
    reading = press.read("Motor.Speed")
    after = datetime.datetime.now(datetime.timezone.utc)
    assert reading.time.utcoffset() == datetime.timedelta(0)
    assert before.replace(microsecond=0) <= reading.time <= after


def test_a_list_of_names_keeps_its_order_and_repeats(press):
    names = ["Main/Step", "Motor.Speed", "Motor.Speed", "Table[3]", "Zone[2].Temperature", "Filling/Trend"]
    readings = press.read(names)
    assert [reading.name for reading in readings] == names
    assert [reading.value for reading in readings] == [press.read(name).value for name in names]


def test_lists_of_names_read_what_single_reads_read(machine, press):
    names = [declaration.name for declaration in readable(press)]
    alone = {name: press.read(name).value for name in names}
    dice = random.Random(3)
    for _ in range(300):
        chosen = dice.choices(names, k=dice.randrange(1, 40))
        assert [reading.value for reading in press.read(chosen)] == [alone[name] for name in chosen]


def test_plans_are_kept_for_the_names_used_last_alone(press):
    for i in range(300):
        press.read(["Motor.Speed"] * (i + 1))
    assert len(press._plans) == 256
    assert ("Motor.Speed",) * 300 in press._plans and ("Motor.Speed",) not in press._plans


def test_an_empty_list_is_read_as_one(press):
    assert press.read([]) == []
    assert press.write({}) == []


def test_a_variable_that_cannot_be_read_spoils_no_other(press):
    good, bad, other = press.read(["Motor.Speed", "Raw.Sint", "Table"])
    assert good.ok and other.ok
    assert not bad.ok and bad.value is None and bad.error


def test_the_contract_driver_reads_too(machine):
    with machine.controller(driver="contract") as press:
        assert press.driver_build.endswith("contract")
        assert press.read("Motor.Speed").value == machine.get("Motor.Speed")


def test_the_guarded_driver_is_the_usual_one(press):
    assert press.driver_build.endswith("guarded")
    good, bad = press.read(["Motor.Speed", "Raw.Sint"])
    assert (good.ok, good.quality, bad.ok, bad.quality) == (True, "good", False, "bad")


@pytest.mark.parametrize("as_numpy", [False, True])
def test_readings_of_the_contract_build_say_that_nobody_checked_them(machine, as_numpy):
    with machine.controller(driver="contract") as press:
        single = press.read("Motor.Speed", as_numpy=as_numpy)
        assert single.ok and single.quality == "unguarded" and "quality='unguarded'" in repr(single)
        several = press.read(["Table", "Motor.Speed"], as_numpy=as_numpy)
        assert [reading.quality for reading in several] == ["unguarded"] * 2


def test_a_refused_write_of_the_contract_build_is_no_acknowledged_one(machine):
    with machine.controller(driver="contract") as press:
        machine.fault("refuse on=write times=1")
        refused = press.write("Motor.Speed", 11)
        assert machine.get("Motor.Speed") != 11
        assert refused.ok and refused.outcome == "unguarded" and "outcome='unguarded'" in repr(refused)
        back = press.write("Motor.Speed", 11, verify=True)
        assert (back.ok, back.outcome, back.verified) == (True, "unguarded", True)
        assert machine.get("Motor.Speed") == 11
        machine.fault("refuse on=write times=1")
        assert press.write("Motor.Speed", 12, verify=True).outcome == "unknown"


def test_names_of_other_letters_are_read_and_written(machine, press):
    assert press.write("Größe", 5, verify=True).ok
    assert press.read("Größe")[:3] == ("Größe", "INT", 5)
    assert isinstance(press.read("Größe"), plc_client.Reading)
