#!/usr/bin/env python3
"""What reading through the Python package costs more than the driver's own calls with a plan made by hand.

bench/python_reads.py [ROUNDS]   with the folder python/ of an optimised build in PYTHONPATH

Both read the same variables of one simulated controller, a round of each in turn; the median of the rounds' ratios
counts. Ends with 1 when a goal is missed.
"""
import ctypes
import pathlib
import random
import statistics
import sys
import tempfile
import time

import plc_client

CALLS = 400
WORDS = 1000
# Of a hand-made plan: names of one frame, so that a batch takes one exchange for its names and one for its values.
FRAME_WORDS = 34
# What is read, and how many times as long as the driver's own calls it may take.
GOALS = {100: 1.5, 1: 1.3}
LOCALHOST = 0x7F000001


class Settings(ctypes.Structure):
    _fields_ = [("host_word", ctypes.c_uint32), ("ip_address", ctypes.c_uint32), ("tcp_port", ctypes.c_uint16),
                ("host_byte", ctypes.c_uint8), ("socket_kind", ctypes.c_uint8)]


class Connection(ctypes.Structure):
    _fields_ = [("socket_fd", ctypes.c_int32), ("host_word", ctypes.c_uint32), ("recv_timeout_s", ctypes.c_uint32),
                ("timeout_ms", ctypes.c_uint32), ("delay_ms", ctypes.c_uint32)]


class Request(ctypes.Structure):
    _fields_ = [("area", ctypes.c_uint16), ("host_byte", ctypes.c_uint8), ("reg_type", ctypes.c_uint8),
                ("address", ctypes.c_uint32)]


class Value(ctypes.Structure):
    _fields_ = [("count", ctypes.c_uint32), ("data", ctypes.c_void_p)]


class BatchElement(ctypes.Structure):
    _fields_ = [("area", ctypes.c_uint16), ("host_byte", ctypes.c_uint8), ("reg_type", ctypes.c_uint8),
                ("address", ctypes.c_uint32), ("count", ctypes.c_uint16), ("host_area", ctypes.c_uint8 * 6),
                ("value", ctypes.c_uint32)]


class Driver:
    """The guarded library of the package, called as a host calls it."""

    def __init__(self, port, tag_file):
        folder = pathlib.Path(plc_client.__file__).parent / "programs" / "guarded"
        self.library = ctypes.CDLL(str(folder / "libplc_driver.so.1"))
        self.sink = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_void_p, ctypes.c_uint32)(lambda *line: None)
        self.library.plc_driver_set_line_sink(self.sink, None)
        self.settings = Settings(0, LOCALHOST, port, 0, 0)
        self.connection = Connection(-1, 0, 2, 0, 0)
        self.library.ev_plc_init(ctypes.byref(self.settings))
        self.demand(self.library.plc_driver_load_tags(LOCALHOST, 0, str(tag_file).encode()))

    @staticmethod
    def demand(code):
        if code != 0:
            sys.exit(f"python_reads.py: the driver returned {code}")

    def reader(self, numbers):
        """A call that reads these words: one alone, or all in batches of a frame each."""
        connection = ctypes.byref(self.connection)
        if len(numbers) == 1:
            data = ctypes.create_string_buffer(4096)
            request, value = Request(0, 0, 0, numbers[0] << 16), Value(1, ctypes.addressof(data))

            def read_one():
                value.count = 1
                self.demand(self.library.ev_plc_read(ctypes.byref(request), ctypes.byref(value), connection))
                return [int.from_bytes(data[:2], "little", signed=True)]
            return read_one
        parts = [numbers[at:at + FRAME_WORDS] for at in range(0, len(numbers), FRAME_WORDS)]
        batches = [(BatchElement * len(part))(*(BatchElement(0, 0, 0, number << 16, 1) for number in part))
                   for part in parts]

        def read_all():
            for batch in batches:
                self.demand(self.library.ev_OMRON_plc_read(batch, len(batch), connection))
            return batches
        return read_all


def seconds(read):
    begin = time.perf_counter()
    for _ in range(CALLS):
        read()
    return time.perf_counter() - begin


def measure(machine, driver, press, numbers, rounds):
    """Microseconds of the driver and of Python, and the ratio of the rounds; both ask for as much."""
    names = [f"W{number}" for number in numbers]
    read_driver = driver.reader(numbers)
    asked = names if len(names) > 1 else names[0]
    counts = []
    for read in (read_driver, lambda: press.read(asked)):
        read()
        before = machine.counts()["requests"]
        read()
        counts.append(machine.counts()["requests"] - before)
    times = [(seconds(read_driver), seconds(lambda: press.read(asked))) for _ in range(rounds)]
    own, ours = (statistics.median(column) / CALLS * 1e6 for column in zip(*times))
    return own, ours, statistics.median(python / plain for plain, python in times), counts


def main():
    rounds = int(sys.argv[1]) if len(sys.argv) > 1 else 15
    chosen = random.Random(1).sample(range(WORDS), max(GOALS))
    missed = False
    with tempfile.TemporaryDirectory() as folder:
        tag_file = pathlib.Path(folder) / "words.csv"
        tag_file.write_text("".join(f"W{i},INT,,,,,,{i},1,0,0,,DM\n" for i in range(WORDS)), encoding="utf-8")
        with plc_client.Simulator(tag_file, sentinel=True) as machine, machine.controller() as press:
            driver = Driver(machine.port, tag_file)
            print("| words | exchanges | the driver's own calls | Python | ratio | goal |\n|---|---|---|---|---|---|")
            for words, goal in GOALS.items():
                own, ours, ratio, counts = measure(machine, driver, press, chosen[:words], rounds)
                missed |= ratio > goal
                print(f"| {words} | {counts[0]}, {counts[1]} | {own:.1f} us | {ours:.1f} us | {ratio:.2f} | {goal} |")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
