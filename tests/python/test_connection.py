"""Connections: made when first used, lost, made again; threads; what the program is told of it."""
import gc
import os
import signal
import threading
import weakref

import plc_client
import pytest
from conftest import TAGS


def wait_for(machine, count, wanted):
    """Until the machine has counted so many: an event that another thread brings about."""
    while machine.counts()[count] < wanted:
        pass


def test_connects_when_first_used_and_not_before(machine, press):
    made = press.state
    assert made.connected is False
    assert machine.counts()["connections"] == 0
    assert press.read("Motor.Speed").ok
    assert press.state.connected is True
    assert press.state.since > made.since
    assert press.state.connects == machine.counts()["connections"] == 1


def test_close_ends_the_connection_and_the_next_use_makes_one(press):
    assert press.read("Motor.Speed").ok
    press.close()
    assert not press.state.connected
    press.close()
    assert press.read("Motor.Speed").ok
    assert press.state.connects == 2


def test_end_of_with_closes(machine):
    with machine.controller() as press:
        press.connect()
        assert press.state.connected
    assert not press.state.connected


def test_connect_raises_when_nobody_listens(machine, press):
    machine.fault("gone")
    with pytest.raises(plc_client.ConnectionFailed, match=f"127.0.0.1:{machine.port}"):
        press.connect()
    machine.clear_faults()
    press.connect()
    assert press.state.connected


def test_readings_of_a_controller_that_is_gone_are_not_ok(machine, press):
    assert press.read("Motor.Speed").ok
    machine.fault("gone")
    for reading in press.read(["Motor.Speed", "Table"]):
        assert reading.ok is False and reading.value is None
        assert reading.error and reading.error.strip()
    result = press.write("Motor.Speed", 5)
    assert result.ok is False and result.outcome == "not done" and result.error
    assert press.state.last_error and press.state.last_error_time.tzinfo
    assert sum(press.state.failures.values()) >= 1
    machine.clear_faults()
    press.connect()
    assert press.read("Motor.Speed").ok


def test_a_lost_connection_is_made_again_by_the_next_use(machine, press):
    assert press.read("Motor.Speed").ok
    machine.fault("close on=read times=1")
    assert press.read("Motor.Speed").ok
    assert machine.counts()["fault.close"] == 1
    assert press.state.connects == 2


def test_a_write_whose_reply_is_lost_is_unknown_and_not_made_twice(machine, press):
    press.connect()
    machine.fault("close-after 5 on=write times=1")
    result = press.write("Motor.Steps", 77)
    assert machine.counts()["fault.close-after"] == 1
    assert not result.ok and result.outcome == "unknown" and result.error
    assert machine.get("Motor.Steps") == 77


def test_a_write_that_nobody_could_read_back_is_not_ok(machine, press):
    press.connect()
    machine.fault("refuse on=read times=1")
    result = press.write("Motor.Steps", 78, verify=True)
    assert machine.counts()["fault.refuse"] == 1
    assert not result.ok and not result.verified and result.error


def test_exchanges_are_counted_as_the_machine_counts_them(machine, press):
    press.read("Motor.Speed")
    before = press.state.exchanges, machine.counts()["requests"]
    for _ in range(5):
        press.read(["Motor.Speed", "Table", "Main/Step"])
    after = press.state.exchanges, machine.counts()["requests"]
    assert after[0] - before[0] == after[1] - before[1] > 0


def test_other_threads_run_python_while_one_waits_for_a_reply(machine):
    with machine.controller(reply_timeout=20) as press:
        assert press.read("Motor.Speed").ok
        machine.fault("no-reply on=read times=1")
        results = []
        thread = threading.Thread(target=lambda: results.append(press.read("Motor.Speed")))
        thread.start()
        wait_for(machine, "fault.no-reply", 1)
        # Its plan is its own meanwhile: another thread that reads the same would write over what it reads.
        assert "Motor.Speed" not in press._plans
        # Nothing but this ends its wait before the time-out.
        machine.fault("gone")
        thread.join()
        assert len(results) == 1 and not results[0].ok
        assert "no-answer" not in press.state.failures


def test_threads_share_a_controller_and_each_gets_its_own_values(machine, press):
    wanted = {name: machine.get(name) for name in ("Motor.Speed", "Table", "Grid", "Recipe.Name")}
    wrong = []

    def read_often(name):
        for _ in range(50):
            reading = press.read(name)
            wrong.extend([reading] if reading.value != wanted[name] else [])
            both = press.read(["Motor.Speed", name])
            wrong.extend([both] if [one.value for one in both] != [wanted["Motor.Speed"], wanted[name]] else [])

    threads = [threading.Thread(target=read_often, args=(name,)) for name in (*wanted, *wanted)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert wrong == []
    assert press.state.connects == 1


def test_controllers_are_independent_of_each_other(machine):
    with plc_client.Simulator(TAGS) as other:
        other.set("Motor.Speed", 4711)
        presses = [(one, one.controller()) for one in (machine, other) * 8]
        for one, press in presses:
            assert press.read("Motor.Speed").value == one.get("Motor.Speed")
        assert other.counts()["connections"] == 8
        for _, press in presses:
            press.close()


def test_a_controller_that_is_let_go_closes_its_connection(machine):
    press = machine.controller()
    press.connect()
    del press
    gc.collect()
    with machine.controller() as press:
        assert press.read("Motor.Speed").ok


class Lines:
    def __init__(self, lines):
        self.lines = lines

    def note(self, line):
        self.lines.append(line)


class Machine(Lines):
    """Owns a controller whose log is a method of its own."""

    def __init__(self, simulator, lines):
        super().__init__(lines)
        self.press = simulator.controller(log=self.note)


def test_a_controller_whose_log_is_its_owners_method_is_let_go_with_its_owner(machine):
    owner = Machine(machine, [])
    assert owner.press.read("Motor.Speed").ok
    assert owner.lines
    owners = weakref.ref(owner)
    descriptors = len(os.listdir("/proc/self/fd"))
    del owner
    gc.collect()
    assert owners() is None
    assert len(os.listdir("/proc/self/fd")) < descriptors


@pytest.mark.parametrize("log_of", [lambda lines: lambda line: lines.append(line), lambda lines: Lines(lines).note],
                         ids=["lambda", "method of an object that nobody else has"])
def test_a_controller_keeps_its_log(machine, log_of):
    lines = []
    with machine.controller(log=log_of(lines)) as press:
        gc.collect()
        lines.clear()
        assert press.read("Motor.Speed").ok
        assert lines


def test_log_is_given_the_drivers_lines(machine):
    lines = []
    with machine.controller(log=lines.append) as press:
        machine.fault("no-reply on=read times=1")
        assert not press.read("Motor.Speed").ok
    assert lines and all(isinstance(line, str) and "\n" not in line for line in lines)


def test_a_log_that_raises_spoils_no_transfer(machine, monkeypatch):
    raised = []
    monkeypatch.setattr("sys.unraisablehook", lambda unraisable: raised.append(unraisable.exc_value))

    def log(line):
        raise RuntimeError(line)

    with machine.controller(log=log) as press:
        machine.fault("no-reply on=read times=1")
        assert not press.read("Motor.Speed").ok
        press.connect()
        assert press.read("Motor.Speed").ok
    assert raised and isinstance(raised[0], RuntimeError)


class Ending(BaseException):
    """What ends a program, and is no Exception."""


@pytest.mark.parametrize("ending", [KeyboardInterrupt, SystemExit, Ending])
def test_what_ends_a_program_comes_out_of_the_call_whose_log_raised_it(machine, ending):
    told = ["before the first use"]

    def log(line):
        told.append(line)
        if len(told) == 1:
            raise ending(line)

    with machine.controller(log=log) as press:
        for use in (lambda: press.read("Motor.Speed"), lambda: press.write("Motor.Speed", 5), press.connect):
            press.close()
            told.clear()
            with pytest.raises(ending) as caught:
                use()
            assert caught.value.args == (told[0],)
        assert press.read("Motor.Speed").value == 5


def test_of_what_ends_a_program_the_first_is_raised_and_the_others_are_reported(machine, monkeypatch):
    reported = []
    monkeypatch.setattr("sys.unraisablehook", lambda unraisable: reported.append(unraisable.exc_value.args[0]))
    told = []

    def log(line):
        told.append(line)
        raise Ending(line)

    machine.fault("gone")
    with pytest.raises(Ending) as caught:
        machine.controller(log=log)
    assert caught.value.args == (told[0],)
    assert reported == told[1:]


def test_what_ends_a_program_comes_in_place_of_the_error_of_its_call(machine):
    told = ["before the first use"]

    def log(line):
        told.append(line)
        if len(told) == 1:
            raise Ending(line)

    machine.fault("gone")
    with machine.controller(log=log) as press:
        told.clear()
        with pytest.raises(Ending):
            press.connect()
        with pytest.raises(plc_client.ConnectionFailed):
            press.connect()


def test_timers_do_not_cut_a_wait_short(machine, press):
    press.connect()
    machine.fault("delay 30 times=always")
    before = signal.signal(signal.SIGALRM, lambda number, frame: None)
    try:
        signal.setitimer(signal.ITIMER_REAL, 0.001, 0.001)
        readings = [press.read("Motor.Speed") for _ in range(5)]
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, before)
    assert [reading.error for reading in readings] == [None] * 5


def test_interrupting_the_program_ends_the_wait(machine, press):
    press.connect()
    machine.fault("no-reply on=read times=1")

    def interrupt():
        wait_for(machine, "fault.no-reply", 1)
        signal.pthread_kill(threading.main_thread().ident, signal.SIGINT)

    thread = threading.Thread(target=interrupt)
    thread.start()
    with pytest.raises(KeyboardInterrupt):
        press.read("Motor.Speed")
    thread.join()
    press.connect()
    assert press.read("Motor.Speed").ok


@pytest.mark.parametrize("number, ending", [(signal.SIGINT, KeyboardInterrupt), (signal.SIGTERM, SystemExit)])
def test_interrupting_the_program_ends_it_also_with_a_log(machine, number, ending):
    def end(number, frame):
        raise ending(3)

    def interrupt():
        wait_for(machine, "fault.no-reply", 1)
        signal.pthread_kill(threading.main_thread().ident, number)

    before = signal.signal(number, end)
    try:
        with machine.controller(log=lambda line: None) as press:
            press.connect()
            machine.fault("no-reply on=write times=1")
            thread = threading.Thread(target=interrupt)
            thread.start()
            with pytest.raises(ending) as caught:
                press.write("Motor.Speed", 5)
            thread.join()
    finally:
        signal.signal(number, before)
    assert caught.value.args == (3,)


def test_signals_that_the_program_blocks_do_not_end_a_wait(machine, press):
    """A write under way is finished, as the document tells."""
    stops = []
    before = signal.signal(signal.SIGTERM, lambda number, frame: stops.append(number))
    try:
        press.connect()
        machine.fault("delay 50 on=write times=1")
        blocked = signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGINT, signal.SIGTERM})
        signal.pthread_kill(threading.main_thread().ident, signal.SIGTERM)
        done = press.write("Motor.Speed", 5)
        assert stops == []
        signal.pthread_sigmask(signal.SIG_SETMASK, blocked)
    finally:
        signal.signal(signal.SIGTERM, before)
    assert (done.ok, done.error, stops) == (True, None, [signal.SIGTERM])


def test_a_signal_that_only_sets_a_flag_ends_the_wait_of_a_write_too(machine, press):
    stops = []
    before = signal.signal(signal.SIGTERM, lambda number, frame: stops.append(number))

    def interrupt():
        wait_for(machine, "fault.no-reply", 1)
        signal.pthread_kill(threading.main_thread().ident, signal.SIGTERM)

    try:
        press.connect()
        machine.fault("no-reply on=write times=1")
        thread = threading.Thread(target=interrupt)
        thread.start()
        done = press.write("Motor.Speed", 5)
        thread.join()
    finally:
        signal.signal(signal.SIGTERM, before)
    assert (done.ok, done.outcome, stops) == (False, "unknown", [signal.SIGTERM])


def test_nothing_is_printed(machine, press, capfd):
    machine.fault("cut 20 times=1")
    press.read("Motor.Speed")
    press.read(["Motor.Speed", "Table"])
    assert capfd.readouterr() == ("", "")


def test_a_log_that_uses_its_controller_is_refused(machine):
    told = []

    def log(line):
        for use in (lambda: press.state, lambda: press.read("Motor.Speed"), lambda: press.tags["Motor.Speed"]):
            with pytest.raises(plc_client.Error) as refused:
                use()
            told.append(str(refused.value))

    press = None  # the constructor's lines come before there is a controller
    with machine.controller(log=lambda line: press and log(line)) as press:
        assert press.read("Motor.Speed").ok
        assert press.state.connected
    assert len(told) >= 3
    assert set(told) == {"a function that a controller calls, log or on_state, may not use this controller, which "
                         "waits for it: note what there is to do, and do it after the call"}


def test_other_threads_plan_while_a_log_runs(machine):
    """None of them waits for the controller with the interpreter's lock, which the log function needs."""
    lines = []
    with machine.controller(log=lines.append) as press:
        def work():
            for number in range(30):
                press.close()
                assert press.read(["Motor.Speed", f"Table[{number % 10}]"])[0].ok
                assert press.tags["Motor.Speed"].type == "DINT"

        threads = [threading.Thread(target=work) for _ in range(4)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
    assert lines


def test_a_forked_process_makes_a_controller_of_its_own(machine, press):
    assert press.read("Motor.Speed").ok
    child = os.fork()
    if child == 0:
        code = 1
        try:
            for use in (lambda: press.read("Motor.Speed"), lambda: press.state, press.connect):
                with pytest.raises(plc_client.Error, match=f"^the controller belongs to process {os.getppid()}, "):
                    use()
            press.close()
            with machine.controller() as own:
                code = 0 if own.read("Motor.Speed").ok else 1
        finally:
            os._exit(code)
    assert os.waitpid(child, 0)[1] == 0
    assert press.read("Motor.Speed").ok
    assert press.state.connects == 1
