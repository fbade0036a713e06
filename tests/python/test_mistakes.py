"""Every mistake of a new user gets an exception that names the thing and the remedy, before anything is sent."""
import plc_client
import pytest
from conftest import TAGS


def message_of(error, call):
    """The text of the exception, which must be of just this class."""
    with pytest.raises(plc_client.Error) as caught:
        call()
    assert type(caught.value) is error
    return str(caught.value)


@pytest.fixture
def unsent(machine, press):
    """A controller that must have sent nothing at the test's end."""
    press.connect()
    before = machine.counts()["requests"]
    yield press
    assert machine.counts()["requests"] == before


def test_unknown_name_names_those_that_are_spelt_almost_like_it(unsent):
    with pytest.raises(plc_client.UnknownVariable) as caught:
        unsent.read("Motor.Sped")
    assert "Motor.Sped" in str(caught.value) and "Motor.Speed" in str(caught.value)
    assert "Motor.Speed" in caught.value.near


def test_one_unknown_name_in_a_list_refuses_the_list(unsent):
    assert "Tabel" in message_of(plc_client.UnknownVariable, lambda: unsent.read(["Motor.Speed", "Tabel"]))


def test_unknown_local_name_names_those_of_its_scope(unsent):
    assert "Main/Step" in message_of(plc_client.UnknownVariable, lambda: unsent.read("Main/Stepp"))


def test_subscripts_out_of_bounds(unsent):
    assert "Table[10]" in message_of(plc_client.OutOfRange, lambda: unsent.read("Table[10]"))
    assert "Table[1,2]" in message_of(plc_client.TypeMismatch, lambda: unsent.read("Table[1,2]"))
    assert "Motor.Speed[1]" in message_of(plc_client.TypeMismatch, lambda: unsent.read("Motor.Speed[1]"))


@pytest.mark.parametrize("error, name, value, words", [
    (plc_client.OutOfRange, "Motor.Steps", 70000, ["Motor.Steps", "70000", "INT"]),
    (plc_client.OutOfRange, "Limit", -1, ["Limit", "-1", "UINT"]),
    (plc_client.OutOfRange, "Motor.Serial", 1 << 64, ["Motor.Serial", str(1 << 64)]),
    (plc_client.OutOfRange, "Motor.Turns", -(1 << 63) - 1, ["Motor.Turns"]),
    (plc_client.OutOfRange, "Motor.Turns", 1 << 63, ["Motor.Turns", "LINT"]),
    (plc_client.OutOfRange, "Recipe.Name", "x" * 41, ["Recipe.Name", "STRING(20)"]),
    (plc_client.TypeMismatch, "Recipe.Name", 5, ["Recipe.Name", "STRING(20)"]),
    (plc_client.TypeMismatch, "Motor.Speed", "5", ["Motor.Speed", "DINT"]),
    (plc_client.TypeMismatch, "Motor.Speed", 5.5, ["Motor.Speed", "DINT"]),
    (plc_client.TypeMismatch, "Running", "true", ["Running", "BOOL"]),
    (plc_client.TypeMismatch, "Motor.Speed", None, ["Motor.Speed", "NoneType"]),
    (plc_client.TypeMismatch, "Motor.Speed", [1], ["Motor.Speed"]),
    (plc_client.TypeMismatch, "Table", 5, ["Table", "INT[0..9]"]),
    (plc_client.TypeMismatch, "Table", [[1, 2], [3, 4]], ["Table", "INT[0..9]"]),
    (plc_client.TypeMismatch, "Table", [[[[1]]]], ["Table"]),
    (plc_client.TypeMismatch, "Motor.Speed", {"a": 1}, ["Motor.Speed", "dict"]),
    (plc_client.OutOfRange, "Recipe.Name", "a\ud800b", [r"'a\ud800b'", "half a surrogate pair"]),
])
def test_value_that_the_variable_cannot_have(unsent, error, name, value, words):
    text = message_of(error, lambda: unsent.write(name, value))
    assert [word for word in words if word not in text] == [], text


def test_list_of_another_length(unsent):
    with pytest.raises((plc_client.TypeMismatch, plc_client.OutOfRange), match="Table.*10"):
        unsent.write("Table", [1, 2, 3])


def test_one_wrong_value_of_a_dict_refuses_the_dict(unsent):
    message_of(plc_client.OutOfRange, lambda: unsent.write({"Motor.Speed": 1, "Motor.Steps": 70000}))


def test_a_list_within_itself_is_no_value(unsent):
    endless = []
    endless.append(endless)
    message_of(plc_client.TypeMismatch, lambda: unsent.write("Table", endless))


@pytest.mark.parametrize("names", [5, None, [5], ["Motor.Speed", None]])
def test_names_that_are_no_texts(unsent, names):
    assert "name is a str" in message_of(plc_client.TypeMismatch, lambda: unsent.read(names))
    assert "name is a str" in message_of(plc_client.TypeMismatch, lambda: unsent.watch(names))


def test_write_without_a_value(unsent):
    assert "a name and its value" in message_of(plc_client.TypeMismatch, lambda: unsent.write("Motor.Speed"))
    assert "a name and its value" in message_of(plc_client.TypeMismatch, lambda: unsent.write({"Motor.Speed": 1}, 2))
    assert "name is a str" in message_of(plc_client.TypeMismatch, lambda: unsent.write({5: 1}))


def test_exceptions_are_pythons_own_kinds_too():
    assert issubclass(plc_client.UnknownVariable, KeyError)
    assert issubclass(plc_client.TypeMismatch, TypeError)
    assert issubclass(plc_client.OutOfRange, ValueError)
    assert issubclass(plc_client.ConnectionFailed, ConnectionError)
    assert str(plc_client.UnknownVariable("a 'name'")) == "a 'name'"


@pytest.mark.parametrize("error, options, words", [
    (plc_client.OutOfRange, {"port": 70000}, ["port", "1 to 65535", "70000"]),
    (plc_client.OutOfRange, {"port": 0}, ["port", "1 to 65535"]),
    (plc_client.TypeMismatch, {"port": "8500"}, ["port", "'8500'"]),
    (plc_client.TypeMismatch, {"port": True}, ["port", "True"]),
    (plc_client.TypeMismatch, {"reply_timeout": 0.5}, ["reply_timeout", "0.5"]),
    (plc_client.OutOfRange, {"area": -1}, ["area", "-1"]),
    (plc_client.OutOfRange, {"delay_ms": 5000}, ["delay_ms", "0 to 1000"]),
    (plc_client.TypeMismatch, {"tags": 5}, ["tags", "folder", "5"]),
    (plc_client.TypeMismatch, {"tags": None}, ["tags", "folder", "None"]),
    (plc_client.Error, {"tags": "no/such/folder"}, ["no/such/folder"]),
    (plc_client.Error, {"tags": []}, ["tag"]),
    (plc_client.Error, {"driver": "no/such/driver.so"}, ["no/such/driver.so"]),
    (plc_client.Error, {"address": ""}, ["address"]),
    (plc_client.TypeMismatch, {"address": 5}, ["address", "5"]),
    (plc_client.TypeMismatch, {"log": "log.txt"}, ["log", "function", "'log.txt'"]),
])
def test_controller_that_cannot_be(error, options, words):
    settings = {"address": "127.0.0.1", "tags": TAGS, **options}
    text = message_of(error, lambda: plc_client.Controller(settings.pop("address"), **settings))
    assert [word for word in words if word not in text] == [], text


def test_folder_with_files_of_other_controllers_says_which_name_is_missing():
    text = message_of(plc_client.Error, lambda: plc_client.Controller("192.168.0.10", tags=TAGS))
    assert str(TAGS) in text and "PLCC0A8000A" in text


def test_wrong_port_is_said_by_connect_and_by_readings():
    with plc_client.Simulator(TAGS) as machine:
        port = machine.port
    with plc_client.Controller("127.0.0.1", port=port, tags=TAGS) as press:
        text = message_of(plc_client.ConnectionFailed, press.connect)
        assert f"127.0.0.1:{port}" in text
        reading = press.read("Motor.Speed")
        assert not reading.ok and reading.value is None and reading.error
        assert not press.write("Motor.Speed", 5).ok
