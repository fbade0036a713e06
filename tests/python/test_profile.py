"""A profile sets what the program leaves as usual."""
import plc_client
import pytest
from conftest import TAGS

WORD = ("{}: the guarded driver cannot be used with this controller: the contract build is taken. It may take a late "
        "reply for that of another variable: keep delay_ms above the answer times, and read back what you write")


@pytest.fixture
def profile(tmp_path):
    def write(text, name="press1.toml"):
        path = tmp_path / name
        path.write_text(text, encoding="utf-8")
        return path
    return write


def test_the_contract_build_is_taken_with_a_word_where_the_guarded_one_cannot_be_used(machine, profile):
    path = profile('[guarded]\nusable = "no"\n')
    said = []
    with machine.controller(profile=path, log=said.append) as press:
        assert press.driver_build.endswith("contract")
        assert said[0] == WORD.format(path)
        assert press.read("Motor.Speed").value == machine.get("Motor.Speed")


def test_without_a_log_the_contract_build_is_a_warning_of_the_line_that_makes_the_controller(machine, profile):
    path = profile('[guarded]\nusable = "no"\n')
    with pytest.warns(RuntimeWarning) as caught:
        machine.controller(profile=path).close()
    assert [str(one.message) for one in caught] == [WORD.format(path)]


PROBLEM = ("{}: the guarded driver cannot be used with this controller, and the contract build does not read it: "
           "replies come in pieces of 30 bytes. ")
PIECES = '[guarded]\nusable = "no"\n[contract]\nproblem = "replies come in pieces of 30 bytes"\n'


def test_the_guarded_build_is_kept_with_a_word_where_the_contract_build_has_a_problem(machine, profile):
    path = profile(PIECES)
    said = []
    with machine.controller(profile=path, log=said.append) as press:
        assert press.driver_build.endswith("guarded")
    assert said[0] == PROBLEM.format(path) + ("The guarded build is kept: it fails where the contract build would give "
                                              "wrong values")
    assert [line for line in said if "guarded driver" in line] == said[:1]


def test_without_a_log_the_problem_of_the_contract_build_is_a_warning(machine, profile):
    path = profile(PIECES)
    with pytest.warns(RuntimeWarning) as caught:
        machine.controller(profile=path).close()
    assert [str(one.message) for one in caught] == [
        PROBLEM.format(path) + "The guarded build is kept: it fails where the contract build would give wrong values"]


def test_a_driver_that_is_named_is_kept_and_the_problem_is_said_once(machine, profile):
    path = profile(PIECES)
    said = []
    with machine.controller(profile=path, driver="contract", log=said.append) as press:
        assert press.driver_build.endswith("contract")
    assert [line for line in said if "guarded driver" in line] == [
        PROBLEM.format(path) + "The driver that is named is kept"]


LOADED = ('[guarded]\nusable = "yes"\n[replies]\npiece_bytes = 536\n[contract]\nnames = 14\n',
          "{}: the contract build is loaded. It takes the first piece of a reply alone, 536 bytes here: ask for no "
          "more than 14 names at a time")


def test_a_contract_build_that_is_loaded_where_replies_come_in_pieces_is_said(machine, profile):
    path = profile(LOADED[0])
    said = []
    machine.controller(profile=path, driver="contract", log=said.append).close()
    assert said[0] == LOADED[1].format(path)
    with pytest.warns(RuntimeWarning) as caught:
        machine.controller(profile=path, driver="contract").close()
    assert [str(one.message) for one in caught] == [LOADED[1].format(path)]


def test_the_guarded_build_stays_where_it_can_be_used(machine, profile):
    said = []
    with machine.controller(profile=profile('[guarded]\nusable = "yes"\n'), log=said.append) as press:
        assert press.driver_build.endswith("guarded")
        assert not any("contract" in line for line in said)


def test_a_controller_with_a_limit_of_names_gives_every_value(profile):
    limits = profile("[limits]\nnames = 4\n")
    with plc_client.Simulator(TAGS / "PLC7F000001_0.csv", sentinel=True,
                              options=["--profile", str(limits)]) as machine:
        with machine.controller() as press:
            assert not press.read("Table").ok
        with machine.controller(profile=limits) as press:
            assert list(press.read("Table").value) == [machine.get(f"Table[{i}]") for i in range(10)]


def test_mistakes_of_a_profile_have_their_place(machine, profile):
    path = profile("[settings]\ntimeout = 3\n")
    with pytest.raises(plc_client.Error) as caught:
        machine.controller(profile=path)
    assert str(caught.value) == f"{path}:2:1: unknown key 'timeout' in [settings]; did you mean timeout_s?"
