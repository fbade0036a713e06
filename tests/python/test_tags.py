"""Declarations by name."""
import plc_client
import pytest
from conftest import TAGS


def test_a_declaration_says_what_its_line_says(press):
    grid = press.tags["Grid"]
    assert grid.name == "Grid"
    assert grid.type == "INT[0..2,0..3]"
    assert grid.bounds == ((0, 2), (0, 3))
    assert grid.scope is None
    assert grid.device == "DM"
    assert grid.file == str(TAGS / "PLC7F000001_0.csv")
    assert (TAGS / "PLC7F000001_0.csv").read_text(encoding="utf-8").split("\n")[grid.line - 1].startswith("Grid,INT,")
    assert (grid.area, grid.number, grid.unreachable) == (0, 20, None)


def test_single_string_local_and_indexed_ones(press):
    assert press.tags["Motor.Speed"].bounds == ()
    assert (press.tags["Recipe.Name"].type, press.tags["Recipe.Name"].length) == ("STRING(20)", 20)
    assert press.tags["Main/Step"].scope == "Main"
    assert press.tags["Main/Step"].device is None
    zone = press.tags["Zone[3].Temperature"]
    assert (zone.area, zone.number, zone.type) == (2, 262147, "REAL")


def test_the_last_indexed_id_is_unreachable_and_says_why(press):
    reserved = press.tags["Filling/Reserved"]
    assert reserved.number is None
    assert reserved.unreachable


def test_all_names_in_the_order_of_the_files(press):
    lines = [line.split(",") for name in sorted(TAGS.glob("*.csv"))
             for line in name.read_text(encoding="utf-8").split("\n") if line]
    assert len(press.tags) == len(list(press.tags)) == len(lines)
    assert list(press.tags)[:4] == ["Running", "Motor.Fault", "Motor.Speed", "Motor.Steps"]
    assert {name for name in press.tags} == set(dict(press.tags))


def test_an_unknown_name_is_a_key_error_with_near_names(press):
    with pytest.raises(KeyError, match="Motor.Speed"):
        press.tags["Motor.Sped"]
    assert "Motor.Sped" not in press.tags
    assert press.tags.get("Motor.Sped") is None
    assert "Motor.Speed" in press.tags


def test_names_that_are_no_texts_are_told(press):
    with pytest.raises(plc_client.TypeMismatch, match="name is a str"):
        press.tags[5]


def test_one_file_of_any_name_belongs_to_the_area_given(machine, tmp_path):
    file = tmp_path / "machine.csv"
    file.write_bytes((TAGS / "PLC7F000001_2.csv").read_bytes())
    with plc_client.Controller(machine.address, port=machine.port, tags=file, area=7) as press:
        assert press.tags["Mode"].area == 7
        assert press.read("Zone[3].Temperature").value == machine.get("Zone[3].Temperature")


def test_files_and_folders_in_one_list(machine, tmp_path):
    file = tmp_path / "more.csv"
    file.write_text("Extra,INT,,,,,,0,1,0,0,\n", encoding="utf-8")
    with plc_client.Controller(machine.address, port=machine.port, tags=[TAGS, str(file)], area=9) as press:
        assert press.tags["Extra"].file == str(file)
        assert press.read("Motor.Speed").ok


SWAPPED = ("Second,INT,,,,,,0,1,0,0,,\n", "First,INT,,,,,,0,1,0,0,,\n")


@pytest.fixture
def two_variables(tmp_path):
    """A simulator of First and Second, and the tag file."""
    file = tmp_path / "machine.csv"
    file.write_text("".join(reversed(SWAPPED)))
    with plc_client.Simulator(file, sentinel=True) as simulator:
        simulator.set("First", 11)
        simulator.set("Second", 22)
        yield simulator, file


def changed(file):
    return (f"the tag file {file} has changed since it was loaded: make a new Controller, or restart the program, "
            "which loads it again")


def test_a_file_that_changes_before_the_first_use_is_refused(two_variables):
    machine, file = two_variables
    press = plc_client.Controller(machine.address, port=machine.port, tags=file)
    file.write_text("".join(SWAPPED))
    requests = machine.counts()["requests"]
    for use in (lambda: press.read("First"), lambda: press.write("First", 5, verify=True), press.connect):
        with pytest.raises(plc_client.Error) as refused:
            use()
        assert str(refused.value) == changed(file)
    assert machine.counts()["requests"] == requests
    assert machine.get("First") == 11 and machine.get("Second") == 22


def test_a_file_that_changes_behind_with_is_refused(two_variables):
    machine, file = two_variables
    with plc_client.Controller(machine.address, port=machine.port, tags=file) as press:
        assert press.read("First").value == 11
    file.write_text("".join(SWAPPED))
    with pytest.raises(plc_client.Error) as refused:
        press.read("First")
    assert str(refused.value) == changed(file)
    file.write_text("".join(reversed(SWAPPED)))
    assert press.read("First").value == 11
    file.write_text("".join(SWAPPED))
    with plc_client.Controller(machine.address, port=machine.port, tags=file) as anew:
        assert anew.read("First").value == 11
