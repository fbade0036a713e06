"""The simulated controller of tests."""
import os
import signal
import socket
import sys

import plc_client
import pytest
from conftest import TAGS


def test_ports_are_free_ones_and_given_ones():
    with plc_client.Simulator(TAGS) as one, plc_client.Simulator(TAGS) as other:
        assert one.port != other.port
        port = other.port
        other.close()
        with plc_client.Simulator(TAGS, port=port) as again:
            assert again.port == port
            assert str(port) in repr(again)


def test_set_and_get_every_kind(machine):
    for name, value in (("Running", True), ("Motor.Speed", -5), ("Motor.Serial", (1 << 64) - 1), ("Motor.Current", 2.5),
                        ("Motor.Torque", 1e300), ("Recipe.Name", 'Käse "x" \\n'), ("Recipe.Name", "a\n\t\\x41"),
                        ("Recipe.Name", "\udcff"), ("Recipe.Name", ""),
                        ("Table", list(range(10))), ("Table[3]", 99), ("Cube[1,2,3]", 7), ("Main/Step", 3), ("Step", 4),
                        ("Weights", [1.0, 2.5, -3.0, 4.0]), ("Grid", [[1, 2, 3, 4], [5, 6, 7, 8], [9, 10, 11, 12]]),
                        ("Outputs", [[True, False] * 4, [False, True] * 4]), ("Cell[1,2]", 8)):
        machine.set(name, value)
        assert machine.get(name) == value, name
        assert type(machine.get(name)) is type(value)


def test_elements_outside_their_bounds_are_not_part_of_an_array(machine, tmp_path):
    file = tmp_path / "longer.csv"
    file.write_text("Table,INT,[0..12],,,,,0,1,0,0,\n", encoding="utf-8")
    with plc_client.Controller(machine.address, port=machine.port, tags=file) as press:
        assert press.write("Table[12]", 5, verify=True).ok
    assert machine.counts()["outside"] > 0
    assert len(machine.get("Table")) == 10
    machine.set("Table", list(range(10)))
    assert machine.get("Table") == list(range(10))


@pytest.mark.parametrize("error, name, value, words", [
    (plc_client.UnknownVariable, "Nothing", 1, "Nothing"),
    (plc_client.Error, "Motor.Steps", 70000, "'70000' is no INT value: outside -32768 to 32767"),
    (plc_client.OutOfRange, "Table", [1], "10 elements"),
    (plc_client.TypeMismatch, "Motor.Speed", None, "not None"),
    (plc_client.OutOfRange, "Recipe.Name", "a\0b", "zero byte"),
])
def test_values_that_it_cannot_have(machine, error, name, value, words):
    with pytest.raises(plc_client.Error, match=words) as caught:
        machine.set(name, value)
    assert type(caught.value) is error


def test_names_with_line_ends_are_no_commands(machine):
    with pytest.raises(plc_client.Error, match="one line"):
        machine.get("Table\nquit")
    assert machine.get("Table[0]") is not None


def test_faults_happen_and_are_cleared(machine, press):
    machine.fault("refuse on=read times=always")
    assert not press.read("Motor.Speed").ok
    machine.clear_faults()
    assert press.read("Motor.Speed").ok
    assert machine.counts()["fault.refuse"] >= 1
    with pytest.raises(plc_client.Error, match="no fault is called 'fire'"):
        machine.fault("fire")


def test_commands_are_answered(machine):
    assert machine.command("show Motor.Speed") == [f"Motor.Speed = {machine.get('Motor.Speed')}"]
    with pytest.raises(plc_client.Error, match="no command is called 'shw'"):
        machine.command("shw")


@pytest.mark.parametrize("line", ["", "  ", "a\rb", "x" * 65536])
def test_lines_that_are_none(machine, line):
    with pytest.raises(plc_client.Error, match="one line"):
        machine.command(line)


def test_closed_it_listens_no_more_and_says_so():
    machine = plc_client.Simulator(TAGS)
    machine.close()
    machine.close()
    with pytest.raises(ConnectionRefusedError):
        socket.create_connection((machine.address, machine.port))
    with pytest.raises(plc_client.Error, match="was closed"):
        machine.get("Motor.Speed")


def test_ended_by_itself_it_says_so():
    with plc_client.Simulator(TAGS) as machine:
        machine.command("quit")
        with pytest.raises(plc_client.Error, match="has ended"):
            while True:
                machine.get("Motor.Speed")


def owed(line):
    return (f"plc-sim: {line}: not sent: the answer of a command before it is missing, and would be taken for this "
            "one's. Try: Close this Simulator and make a new one.")


# It answers the first command when the test's process has its signal, and the others at once.
SIGNALLING = """
import os, signal, sys
print("listening on 127.0.0.1:1", flush=True)
for number, line in enumerate(sys.stdin):
    if number == 0:
        os.kill(os.getppid(), signal.SIGUSR1)
    print("Motor.Speed = " + str(number) + "\\nok", flush=True)
"""


@pytest.mark.parametrize("ending", [KeyboardInterrupt, ValueError])
def test_behind_an_interrupted_command_no_other_gets_its_answer(tmp_path, ending):
    program = tmp_path / "plc-sim"
    program.write_text(f"#!{sys.executable}\n{SIGNALLING}", encoding="utf-8")
    program.chmod(0o755)

    def interrupt(number, frame):
        raise ending

    before = signal.signal(signal.SIGUSR1, interrupt)
    try:
        with plc_client.Simulator(TAGS, program=program) as machine:
            with pytest.raises(ending):
                machine.command("show Motor.Speed")
            for _ in range(2):
                with pytest.raises(plc_client.Error) as refused:
                    machine.command("show Motor.Steps")
                assert str(refused.value) == owed("show Motor.Steps")
    finally:
        signal.signal(signal.SIGUSR1, before)


def test_a_stopped_plc_sim_is_not_waited_for_without_end(monkeypatch):
    assert plc_client._simulator._LONGEST_WAIT_S == 10
    monkeypatch.setattr(plc_client._simulator, "_LONGEST_WAIT_S", 0.01)
    with plc_client.Simulator(TAGS) as machine:
        child = machine._child.pid
        os.kill(child, signal.SIGSTOP)
        os.waitpid(child, os.WUNTRACED)
        with pytest.raises(plc_client.Error) as silent:
            machine.get("Motor.Speed")
        os.kill(child, signal.SIGCONT)
        assert str(silent.value) == ("plc-sim has not answered within 0.01 s; it may be stopped. "
                                     "Try: Close this Simulator and make a new one.")
        with pytest.raises(plc_client.Error) as refused:
            machine.set("Motor.Speed", 5)
        assert str(refused.value) == owed("set Motor.Speed 5")


def test_a_forked_process_makes_a_simulator_of_its_own(machine):
    machine.set("Motor.Speed", 5)
    child = os.fork()
    if child == 0:
        code = 1
        try:
            with pytest.raises(plc_client.Error) as refused:
                machine.get("Motor.Speed")
            assert str(refused.value) == (f"the simulator belongs to process {os.getppid()}, from which this one was "
                                          "forked: make a Simulator of its own in the child")
            machine.close()
            code = 0
        finally:
            os._exit(code)
    assert os.waitpid(child, 0)[1] == 0
    assert machine.get("Motor.Speed") == 5


def test_a_folder_for_several_controllers_is_too_much(tmp_path):
    for name in ("PLC7F000001_0.csv", "PLCC0A8000A_0.csv"):
        (tmp_path / name).write_text("Speed,INT,,,,,,0,1,0,0,\n", encoding="utf-8")
    with pytest.raises(plc_client.Error, match="2 controllers"):
        plc_client.Simulator(tmp_path)
    with plc_client.Simulator(tmp_path / "PLCC0A8000A_0.csv") as machine:
        machine.set("Speed", 5)
        with machine.controller() as press:
            assert press.read("Speed").value == 5


@pytest.mark.parametrize("tags, words", [("no/such.csv", "folder no/such.csv: .*runs in /"), ([], "tags"), (5, "tags")])
def test_tags_that_are_not_there(tags, words):
    with pytest.raises(plc_client.Error, match=words):
        plc_client.Simulator(tags)


def test_a_folder_without_tag_files_and_files_that_cannot_be_declared(tmp_path):
    with pytest.raises(plc_client.Error, match="no tag file"):
        plc_client.Simulator(tmp_path)
    (tmp_path / "PLC7F000001_0.csv").write_text("Speed,Int,,,,,,0,1,0,0,\n", encoding="utf-8")
    with pytest.raises(plc_client.Error, match="unknown type 'Int'"):
        plc_client.Simulator(tmp_path)


def test_a_file_of_another_kind_gets_its_first_complaints_alone(tmp_path):
    letter = tmp_path / "letter.txt"
    letter.write_text("Dear Sir\n" * 100)
    with pytest.raises(plc_client.Error) as caught:
        plc_client.Simulator(letter)
    said = str(caught.value).splitlines()
    assert len(said) == 12 and f"{letter}:1: " in said[0] and said[-2] == f"{letter}: and 90 more errors", said


def test_a_program_that_is_not_there(tmp_path):
    with pytest.raises(plc_client.Error, match="nothing.*plc-tools"):
        plc_client.Simulator(TAGS, program=tmp_path / "nothing")


def test_areas_have_their_files(machine):
    with machine.controller(area=2) as press:
        assert "Mode" in press.tags and "Motor.Speed" not in press.tags
    with pytest.raises(plc_client.Error, match="area 5"):
        machine.controller(area=5)
