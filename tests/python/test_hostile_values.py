"""Whatever Python has may be handed over as a value, name or pattern: it is written as it is, or refused in words."""
import re
import unicodedata

import numpy
import plc_client
import pytest
from conftest import TAGS
from hypothesis import given, settings, strategies

# The same inputs in every run, however slow the machine is.
settings.register_profile("plain", derandomize=True, deadline=None, database=None, max_examples=250)
settings.load_profile("plain")


class Endless:
    """Gives itself as Python's own, again and again."""

    def tolist(self):
        return self


class Deep:
    """Gives a list with itself in it."""

    def tolist(self):
        return [self]


class Nameless(int):
    """A number that cannot be written out."""

    def __str__(self):
        raise RuntimeError("no text")


def own_list():
    endless = []
    endless.append(endless)
    return endless


NUMBERS = strategies.one_of(
    strategies.integers(), strategies.integers(-(1 << 63), 1 << 64), strategies.booleans(), strategies.floats(),
    strategies.sampled_from([numpy.longdouble(1.5), numpy.float16(1.5),
                             numpy.float32("nan"), numpy.int64(-1), numpy.uint64((1 << 64) - 1), numpy.bool_(True),
                             numpy.complex64(1), numpy.datetime64("2026-01-01"), numpy.str_("x"), numpy.bytes_(b"x")]))
TEXTS = strategies.one_of(strategies.text(strategies.characters(), max_size=24), strategies.binary(max_size=24))
ODD = strategies.sampled_from([None, 1j, {}, {1: 2}, set(), object(), int, Endless(), Deep(), own_list(), range(3),
                               bytearray(b"x"), memoryview(b"x"), numpy.zeros((2, 3, 4)), numpy.zeros((1, 1, 1, 1)),
                               numpy.array([1.5], dtype=numpy.longdouble), numpy.array([None, [1]], dtype=object),
                               numpy.arange(5), numpy.ones(16, dtype=bool), numpy.zeros(0), (i for i in range(3))])
LEAVES = strategies.one_of(NUMBERS, TEXTS, ODD)
VALUES = strategies.recursive(LEAVES, lambda inner: strategies.one_of(
    strategies.lists(inner, max_size=5), strategies.tuples(inner, inner)), max_leaves=16)


def lists_of(inner, length):
    return strategies.lists(inner, min_size=length, max_size=length)


# What may fit each of these variables.
FITTING = {
    "Running": strategies.booleans(), "Motor.Speed": strategies.integers(-(1 << 31), 1 << 31),
    "Motor.Serial": strategies.integers(0, 1 << 64), "Motor.Turns": strategies.integers(-(1 << 63), 1 << 63),
    "Motor.Current": strategies.floats(width=32), "Motor.Torque": strategies.floats(),
    "Status.Word": strategies.integers(0, 1 << 16), "Recipe.Name": TEXTS, "Levels": lists_of(strategies.integers(), 5),
    "Curve": lists_of(NUMBERS, 4), "Grid": lists_of(lists_of(strategies.integers(-9, 9), 4), 3),
    "Inputs": lists_of(strategies.booleans(), 16), "Cube[0..1,1,2]": lists_of(strategies.integers(0, 9), 2)}
ASSIGNMENTS = strategies.sampled_from(sorted(FITTING)).flatmap(
    lambda name: strategies.tuples(strategies.just(name), strategies.one_of(FITTING[name], VALUES)))
SIGNS = strategies.sampled_from(["*", "?", "[", "]", "Motor", ".", "Speed", "e", "0", "[1,2]", "ö", "\x1b[2J"])
PATTERNS = strategies.one_of(strategies.lists(SIGNS, max_size=9).map("".join), strategies.text(max_size=9))


def is_shown(text):
    """Nothing in it that a terminal obeys or hides."""
    return not any(unicodedata.category(character) in ("Cc", "Cf", "Cs", "Zl", "Zp") for character in text)


@pytest.fixture(scope="module")
def machine():
    with plc_client.Simulator(TAGS) as simulator:
        yield simulator
        assert simulator.counts()["violations"] == 0, simulator.messages()


@pytest.fixture(scope="module")
def press(machine):
    with plc_client.Controller(machine.address, port=machine.port, tags=TAGS) as controller:
        controller.connect()
        yield controller


def plain(value):
    """As it is read: bytes as text, numpy's as Python's own, NaN equal to itself."""
    if hasattr(value, "tolist"):
        value = value.tolist()
    if isinstance(value, (list, tuple)):
        return [plain(item) for item in value]
    if isinstance(value, bytes):
        return value.decode(errors="surrogateescape")
    return "NaN" if value != value else value


def narrowed(value, declared):
    """A REAL holds the nearest number of 32 bits."""
    if isinstance(value, list):
        return [narrowed(item, declared) for item in value]
    if declared.startswith("REAL") and isinstance(value, float):
        return float(numpy.float32(value))
    return value


@given(assignment=ASSIGNMENTS)
def test_value_is_written_as_it_is_or_refused_before_anything_is_sent(machine, press, assignment):
    name, value = assignment
    before = machine.counts()["requests"]
    try:
        result = press.write(name, value)
    except (plc_client.TypeMismatch, plc_client.OutOfRange) as error:
        assert machine.counts()["requests"] == before
        assert str(error) and is_shown(str(error))
        return
    assert result.ok, result
    read = press.read(name)
    assert plain(read.value) == narrowed(plain(value), read.type)


@given(name=strategies.one_of(strategies.text(max_size=24), PATTERNS))
def test_name_is_read_or_refused_in_words(press, name):
    try:
        assert press.read(name).ok
    except plc_client.Error as error:
        assert type(error) in (plc_client.UnknownVariable, plc_client.TypeMismatch, plc_client.OutOfRange)
        assert str(error) and is_shown(str(error))


@given(pattern=PATTERNS)
def test_pattern_stands_for_the_names_that_fit(press, pattern):
    signs = {"*": ".*", "?": "."}
    fits = re.compile("".join(signs.get(character) or re.escape(character) for character in pattern), re.DOTALL)
    wanted = [name for name in press.tags if fits.fullmatch(name)]
    try:
        readings = next(press.watch(pattern, period=0))
    except plc_client.Error:
        assert not wanted or "*" not in pattern and "?" not in pattern
        return
    if "*" in pattern or "?" in pattern:
        assert [reading.name for reading in readings] == wanted


def test_pattern_of_many_stars_is_answered(tmp_path):
    tags = tmp_path / "long.csv"
    tags.write_text("e" * 200 + ",INT,,,,,,0,1,0,0,,DM\n")
    with plc_client.Controller("127.0.0.1", port=1, tags=tags) as controller:
        with pytest.raises(plc_client.UnknownVariable):
            controller.watch("*e" * 50 + "*x")


def test_number_of_more_bits_than_any_variable_is_refused(press):
    for number in (numpy.longdouble(1.5), numpy.array([1.5], dtype=numpy.longdouble), Endless()):
        with pytest.raises(plc_client.TypeMismatch):
            press.write("Motor.Torque", number)


def test_number_too_long_to_be_written_out_is_refused_as_any_other(press):
    for number in (10 ** 5000, -10 ** 5000, Nameless(1 << 70)):
        with pytest.raises(plc_client.OutOfRange, match="Motor.Turns: .+ is more than 64 bits hold"):
            press.write("Motor.Turns", number)


def test_texts_of_errors_are_one_shown_line(machine):
    name = "\x1b[2J\n\u202eplc\x9b\udcff\xa0\u00e4"
    shown = r"\x1b[2J\n\u{202e}plc\u{9b}\xff" + "\xa0\u00e4"
    for attempt in (lambda: machine.get(name), lambda: machine.set(name, 1), lambda: machine.set("Motor.Speed", name),
                    lambda: plc_client.Simulator(name)):
        with pytest.raises(plc_client.Error) as raised:
            attempt()
        assert "\n" not in str(raised.value) and "\x1b" not in str(raised.value) and "\u202e" not in str(raised.value)
    assert str(plc_client.Error(name)) == str(plc_client.OutOfRange(name)) == shown
    assert str(plc_client.UnknownVariable(name)) == str(plc_client.UnknownVariable(shown)) == shown
