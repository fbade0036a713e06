"""Variables of a program that the controller does not have: their names would be answered by another program."""
import plc_client

MISSING = "the controller has no program \"Filing\": what answers may be another program's variable"
ADVICE = "Try: Correct column 12 of its line: plc-host check FILE --live names similar programs."


def test_a_variable_of_a_missing_program_has_no_value_and_is_not_written(tmp_path, machine):
    own = tmp_path / "host.csv"
    own.write_text("Step,INT,,,,,,0,0,0,1,Filing\nStep,INT,,,,,,1,0,0,1,Main\n", encoding="utf-8")
    machine.set("Main/Step", 7)
    with plc_client.Controller(machine.address, port=machine.port, tags=own) as press:
        missing, present = press.read(["Filing/Step", "Main/Step"])
        assert (missing.ok, missing.value) == (False, None)
        assert missing.error == f"{MISSING}. {ADVICE}"
        assert present.value == 7
        for verify in (False, True):
            done = press.write("Filing/Step", 9, verify=verify)
            assert (done.ok, done.outcome, done.verified) == (False, "not done", False)
            assert done.error == f"{MISSING}; nothing was written. {ADVICE}"
        assert press.read("Main/Step").value == 7
        assert press.state.failures == {}


def test_a_program_whose_name_begins_with_that_of_another_one_is_not_taken_for_it(tmp_path, machine):
    own = tmp_path / "host.csv"
    own.write_text("Step,INT,,,,,,0,0,0,1,Main2\nStep,INT,,,,,,1,0,0,1,Main\n", encoding="utf-8")
    machine.set("Main/Step", 7)
    missing = MISSING.replace("Filing", "Main2")
    with plc_client.Controller(machine.address, port=machine.port, tags=own) as press:
        assert [reading.value for reading in press.read(["Main2/Step", "Main/Step"])] == [None, 7]
        assert press.read("Main2/Step").error == f"{missing}. {ADVICE}"
        assert press.write("Main2/Step", 9).error == f"{missing}; nothing was written. {ADVICE}"
        assert press.read("Main/Step").value == 7


def test_a_name_that_two_programs_would_be_cut_to_is_none_of_them(tmp_path):
    controller_file = tmp_path / "controller.csv"
    controller_file.write_text("Step,INT,,,,,,0,0,0,1,PackagingLineNor\n", encoding="utf-8")
    own = tmp_path / "host.csv"
    own.write_text("Step,INT,,,,,,0,0,0,1,PackagingLineNorth\nStep,INT,,,,,,1,0,0,1,PackagingLineNorway\n",
                   encoding="utf-8")
    words = ('the controller\'s program "PackagingLineNor" may be "PackagingLineNorth" or "PackagingLineNorway", each '
             "cut short: nobody knows which")
    advice = 'Try: Write "PackagingLineNor" in column 12 of the lines of the one that it is.'
    with plc_client.Simulator(controller_file) as simulator, \
            plc_client.Controller(simulator.address, port=simulator.port, tags=own) as line:
        assert line.read("PackagingLineNorth/Step").error == f"{words}. {advice}"
        assert line.write("PackagingLineNorth/Step", 9).error == f"{words}; nothing was written. {advice}"
        assert simulator.counts()["violations"] == 0
