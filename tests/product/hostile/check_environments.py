#!/usr/bin/env python3
"""Runs the roads of plc-host and plc-sim where memory, descriptors, standard streams or room for files are out.

check_environments.py memory|descriptors|streams|disk [--all] --library L --host H --sim S
                      --scarce-host H --scarce-sim S

Every run must end with an exit code that the documents list and, when it did not do what it was asked, with a line on
standard error that says who speaks. What stands in its output stands in the output of a run without want too; a file is
whole or not there, and nothing is left in the folder for temporary files. Memory fails once, at a sample of the places
where the program asks for it; the programs that end with _scarce do that. With --all, or PLC_HOSTILE_ALL=1, at each
place, and with each number of descriptors.
"""

import argparse
import contextlib
import os
import pathlib
import re
import resource
import signal
import socket
import subprocess
import sys
import tempfile
import threading

TAGS = ("Speed,INT,,,,,,0,1,0,0,,DM\nTable,INT,[0..9],,,,,1,1,0,0,,DM\nText,STRING,,20,,,,2,1,0,0,,DM\n"
        "Bits,BOOL,[0..15],,,,,3,1,0,0,,MR\nCount,DINT,,,,,,4,0,0,1,MAIN,DM\n")
FIXED_TAGS = TAGS.replace("INT,,,", "int,,,", 1)[:-1]  # what can be corrected: a type's case, a line end
HOST_CODES = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 130}
SIM_CODES = {0, 1, 2}
RUN_LIMIT_S = 60
SAMPLED_PLACES = 10
STREAMS = ((0,), (1,), (2,), (0, 1, 2))
TIMES = re.compile(r"\d\d:\d\d:\d\d(\.\d+)?|\d+(\.\d+)? (ms|s)\b|:\d{4,5}\b|0x[0-9a-f]+")


class Failure(Exception):
    """A run that did not end as it must."""


class Outcome:
    def __init__(self, code, out, err):
        self.code = code
        self.out = out
        self.err = err


def tidied(text):
    """Without what differs from run to run, and without the driver's lines: a file in memory holds them, which a limit
    of files concerns and a full disk does not."""
    return re.sub(" +", " ", TIMES.sub("#", re.sub("^printed .*\n", "", text, flags=re.M)))


class Bench:
    def __init__(self, options, folder):
        for program in ("library", "host", "sim", "scarce_host", "scarce_sim", "gateway", "scarce_gateway"):
            if hasattr(options, program):
                setattr(options, program, os.path.abspath(getattr(options, program)))
        self.options = options
        self.folder = pathlib.Path(folder)
        self.temporary = self.folder / "tmp"
        self.out = self.folder / "out"
        self.temporary.mkdir()
        self.out.mkdir()
        self.tags = self.folder / "PLC7F000001_0.csv"
        self.tags.write_text(TAGS)
        self.broken = self.folder / "broken.csv"
        self.broken.write_text(FIXED_TAGS)
        self.log = self.folder / "memory.log"
        self.port = None

    def environment(self, fail_at=None):
        settings = {**os.environ, "TMPDIR": str(self.temporary), "PLC_MEMORY_LOG": str(self.log),
                    "PLC_GIVEN_REACH": "0"}
        leaks = "detect_leaks=0:allocator_may_return_null=1"  # a program that ends for want of memory frees nothing
        settings["ASAN_OPTIONS"] = ":".join(filter(None, (settings.get("ASAN_OPTIONS"), leaks)))
        if fail_at is not None:
            settings["PLC_FAIL_AT"] = str(fail_at)
        return settings

    def run(self, words, limit=None, fail_at=None, out=subprocess.PIPE):
        """The outcome of a program; limit is called in the child before it is begun."""
        with contextlib.suppress(FileNotFoundError):
            self.log.unlink()
        try:
            done = subprocess.run([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=out, cwd=self.folder,
                                  stderr=subprocess.PIPE, env=self.environment(fail_at), timeout=RUN_LIMIT_S,
                                  preexec_fn=limit, check=False)
        except subprocess.TimeoutExpired as expired:
            raise Failure(f"does not end: {words}") from expired
        return Outcome(done.returncode, (done.stdout or b"").decode(errors="replace"),
                       done.stderr.decode(errors="replace"))

    def has_failed(self):
        return self.log.exists() and self.log.read_text() == "failed"

    def clear(self):
        """Of what runs before this one have left."""
        for path in (*self.out.iterdir(), *self.temporary.glob("*/*")):
            path.unlink()
        for path in self.temporary.iterdir():
            path.rmdir()


def host_roads(bench):
    """Each by its name: the words behind the program."""
    live = ("--address", "127.0.0.1", "--port", bench.port, "--tags", bench.tags, "--driver", bench.options.library)
    return {
        "tags": ("tags", bench.tags, "--driver", bench.options.library),
        "read": ("read", *live, "Speed", "Table[0..3]", "Text"),
        "write": ("write", *live, "Speed=5", "Count=-7"),
        "watch": ("watch", *live, "--rounds", "2", "--interval", "1", "Speed"),
        "check": ("check", bench.tags, "--driver", bench.options.library),
        "fix": ("check", bench.broken, "--fix", bench.out / "fixed.csv", "--driver", bench.options.library),
        "why": ("why", *live, "Speed"),
    }


def demand(holds, what, outcome):
    if not holds:
        raise Failure(f"{what}\nexit code {outcome.code}\nstandard output:\n{outcome.out}\n"
                      f"standard error:\n{outcome.err}")


def look_at_host(bench, outcome, good):
    demand(outcome.code in HOST_CODES, "the exit code is none of plc-host's", outcome)
    demand("Sanitizer" not in outcome.err, "a sanitizer speaks", outcome)
    if outcome.code == good.code:
        different = set(tidied(outcome.out).splitlines()) ^ set(tidied(good.out).splitlines())
        demand(not different, f"the output differs though the exit code does not: {different}", outcome)
    else:
        is_told = re.search(r"^plc-host: \S", outcome.err, re.M) or "What went wrong\n  1. " in outcome.out
        demand(is_told, "plc-host does not say why", outcome)
    lines = set(tidied(good.out).splitlines())
    for line in tidied(outcome.out).splitlines():
        reading = re.match(r"(\S+) = ", line)
        demand(not reading or line in lines, f"a value that was not read: {line}", outcome)
    left = [str(path) for path in bench.temporary.iterdir()]
    demand(not left, f"left behind: {left}", outcome)


def look_at_files(bench, outcome, whole):
    """Each file of the folder for output is one of these, whole."""
    for path in bench.out.iterdir():
        demand(path.name in whole and path.read_bytes() == whole[path.name], f"{path.name} is not whole", outcome)


def good_runs(bench, program):
    """Of each road, its words, its outcome, and the files that it wrote."""
    for name, words in host_roads(bench).items():
        bench.clear()
        good = bench.run((program, *words))
        demand(good.code in (0, 1), f"{name} does not work at all", good)
        yield name, words, good, {path.name: path.read_bytes() for path in bench.out.iterdir()}


def places(bench, seen):
    """Requests to fail: of the run before, the first one of each place, told by its callers, or a sample of them."""
    found = [int(line) for line in bench.log.read_text().splitlines()]
    if bench.options.all:
        return found
    count = SAMPLED_PLACES
    return sorted({found[number * len(found) // count + seen % max(len(found) // count, 1)] for number in range(count)})


def host_memory(bench):
    program = bench.options.scarce_host
    tried = 0
    for name, words, good, whole in good_runs(bench, program):
        for place in places(bench, tried):
            bench.clear()
            outcome = bench.run((program, *words), fail_at=place)
            tried += bench.has_failed()
            try:
                look_at_host(bench, outcome, good)
                look_at_files(bench, outcome, whole)
            except Failure as failure:
                raise Failure(f"{name}, request {place}: {failure}") from failure
    return tried


def is_not_begun(outcome):
    """What is needed before the program begins is not there: the system's libraries, the sanitizers' look around."""
    return (outcome.code == 127 and "shared libraries" in outcome.err) or "memory cannot be printed" in outcome.err


def host_descriptors(bench):
    tried = 0
    for name, words, good, whole in good_runs(bench, bench.options.host):
        for most in range(4, 14, 1 if bench.options.all else 3):
            bench.clear()
            outcome = bench.run((bench.options.host, *words),
                                lambda count=most: resource.setrlimit(resource.RLIMIT_NOFILE, (count, count)))
            if is_not_begun(outcome):
                continue
            tried += 1
            try:
                look_at_host(bench, outcome, good)
                look_at_files(bench, outcome, whole)
            except Failure as failure:
                raise Failure(f"{name} with {most} descriptors: {failure}") from failure
    return tried


def without(streams):
    for stream in streams:
        os.close(stream)


def host_streams(bench):
    """What has nowhere to go is lost, and goes into no file and no connection."""
    tried = 0
    for name, words, good, whole in good_runs(bench, bench.options.host):
        for closed in STREAMS:
            bench.clear()
            outcome = bench.run((bench.options.host, *words), lambda streams=closed: without(streams))
            tried += 1
            demand(outcome.code == (8 if 1 in closed and good.out else good.code), f"{name} without {closed}", outcome)
            look_at_files(bench, outcome, whole)
    return tried


def limit_files(size):
    resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))


def host_disk(bench):
    tried = 0
    for name, words, good, whole in good_runs(bench, bench.options.host):
        bench.clear()
        with open("/dev/full", "wb") as full:
            outcome = bench.run((bench.options.host, *words), out=full)
        tried += 1
        demand(good.out == "" or outcome.code == 8, f"{name} on a full device", outcome)
        demand(good.out == "" or re.search(r"^plc-host: \S", outcome.err, re.M), f"{name} is silent", outcome)
        look_at_files(bench, outcome, whole)
        for size in (0, 1, 100):
            bench.clear()
            outcome = bench.run((bench.options.host, *words), lambda most=size: limit_files(most))
            tried += 1
            demand(outcome.code == (8 if whole else good.code), f"{name} with files of {size} bytes", outcome)
            look_at_host(bench, outcome, good)
            look_at_files(bench, outcome, whole)
    return tried


def frame(sequence, request_class, command, body):
    length = 2 + len(body)
    return (length.to_bytes(4, "big") + (length ^ 0xFFFFFFFF).to_bytes(4, "big") + sequence.to_bytes(2, "big")
            + bytes([request_class, command]) + body)


def ask_controller(port):
    """The directory, a name, a value, and a write to it; what comes back is the judge's own matter."""
    name = "Speed".encode("utf-16-be")
    requests = [(0x0C, 0x2C, bytes(4)), (0x0C, 0x25, bytes(4)),
                (0x0C, 0x28, bytes([0, 1, 0, 0, 0, 1, 0, 5]) + name)]
    with socket.create_connection(("127.0.0.1", port), 10) as connection:
        reply = b""
        for number, (request_class, command, body) in enumerate(requests):
            connection.sendall(frame(number, request_class, command, body))
            reply = connection.recv(4096)
        handle = reply[21:26].ljust(5, b"\0")
        connection.sendall(frame(3, 0x1E, 0x09, bytes([0, 0, 1, 0, 0, 0, 0, handle[0], 0, 1]) + handle[1:]))
        connection.recv(4096)
        connection.sendall(frame(4, 0x1E, 0x01, bytes([0, handle[0], 0, 0, 0, 1]) + handle[1:] + b"\x12\x34"))
        connection.recv(4096)


def ask_page(port):
    with socket.create_connection(("127.0.0.1", port), 10) as connection:
        connection.sendall(f"GET /state HTTP/1.1\r\nHost: 127.0.0.1:{port}\r\nConnection: close\r\n\r\n".encode())
        while connection.recv(65536):
            pass


def run_simulator(bench, program, limit=None, fail_at=None, extra=(), out=None):
    """From its start to its end, with a read, a write, a request of the page, commands and a report."""
    with contextlib.suppress(FileNotFoundError):
        bench.log.unlink()
    words = [program, "--listen", "127.0.0.1:0", "--web", "127.0.0.1:0", *extra, bench.tags]
    with subprocess.Popen([str(word) for word in words], stdin=subprocess.PIPE, stdout=out or subprocess.PIPE,
                          stderr=subprocess.PIPE, env=bench.environment(fail_at), preexec_fn=limit) as child:
        stopper = threading.Timer(RUN_LIMIT_S, child.kill)
        stopper.start()
        seen = b""
        ports = []
        while out is None and len(ports) < 2:
            line = child.stdout.readline()
            if not line:
                break
            seen += line
            ports += [int(port) for port in re.findall(rb"127\.0\.0\.1:(\d+)", line)]
        for ask, port in zip((ask_controller, ask_page), ports):
            with contextlib.suppress(OSError):
                ask(port)
        try:
            rest, err = child.communicate(b"show\nset Speed 7\nreport json\nfaults\nquit\n")
        finally:
            stopper.cancel()
    return Outcome(child.returncode, (seen + (rest or b"")).decode(errors="replace"), err.decode(errors="replace"))


def look_at_simulator(outcome, good_code):
    demand(outcome.code in SIM_CODES, "the exit code is none of plc-sim's", outcome)
    demand("Sanitizer" not in outcome.err, "a sanitizer speaks", outcome)
    demand(outcome.code == good_code or re.search(r"^(plc-sim: |\S+:\d+: )\S", outcome.err, re.M),
           "plc-sim does not say why", outcome)


def simulator_memory(bench):
    report = bench.out / "report.json"
    bench.clear()
    good = run_simulator(bench, bench.options.scarce_sim, extra=("--report", report))
    demand(good.code in (0, 1) and report.exists(), "plc-sim does not work at all", good)
    tried = 0
    for place in places(bench, tried):
        bench.clear()
        outcome = run_simulator(bench, bench.options.scarce_sim, fail_at=place, extra=("--report", report))
        tried += bench.has_failed()
        try:
            look_at_simulator(outcome, good.code)
            left = [path.name for path in bench.out.iterdir()]
            demand(left == ([report.name] if outcome.code == good.code else []), f"left behind: {left}", outcome)
        except Failure as failure:
            raise Failure(f"plc-sim, request {place}: {failure}") from failure
    return tried


def simulator_descriptors(bench):
    tried = 0
    good = run_simulator(bench, bench.options.sim)
    for most in range(5, 24, 1 if bench.options.all else 5):
        outcome = run_simulator(bench, bench.options.sim,
                                lambda count=most: resource.setrlimit(resource.RLIMIT_NOFILE, (count, count)))
        if is_not_begun(outcome):
            continue
        tried += 1
        try:
            look_at_simulator(outcome, good.code)
        except Failure as failure:
            raise Failure(f"plc-sim with {most} descriptors: {failure}") from failure
    return tried


def simulator_streams(bench):
    """Without standard error only the exit code says that it went wrong."""
    tried = 0
    report = bench.out / "report.txt"
    capture = bench.out / "capture.pcap"
    for closed in STREAMS:
        bench.clear()
        outcome = run_simulator(bench, bench.options.sim, lambda streams=closed: without(streams),
                                extra=("--report", report, "--pcap", capture), out=subprocess.DEVNULL)
        tried += 1
        demand(outcome.code == (2 if 1 in closed else 0), f"plc-sim without {closed}", outcome)
        demand(capture.read_bytes()[:4] == b"\xd4\xc3\xb2\xa1", f"no capture without {closed}", outcome)
        demand(b"asked" in report.read_bytes(), f"no report without {closed}", outcome)
    return tried


def simulator_disk(bench):
    tried = 0
    for option in ("--pcap", "--report"):
        for size in (0, 1, 100):
            bench.clear()
            path = bench.out / "written"
            outcome = run_simulator(bench, bench.options.sim, lambda most=size: limit_files(most), extra=(option, path))
            tried += 1
            look_at_simulator(outcome, None)
            demand(outcome.code == 2, f"{option} with files of {size} bytes", outcome)
            demand(option == "--pcap" or not list(bench.out.iterdir()), "a report is whole or not there", outcome)
    with open("/dev/full", "wb") as full:
        outcome = run_simulator(bench, bench.options.sim, out=full)
    tried += 1
    look_at_simulator(outcome, None)
    demand(outcome.code == 2, "plc-sim on a full device", outcome)
    return tried


CHECKS = {"memory": (host_memory, simulator_memory), "descriptors": (host_descriptors, simulator_descriptors),
          "streams": (host_streams, simulator_streams), "disk": (host_disk, simulator_disk)}


@contextlib.contextmanager
def running_simulator(bench):
    """A simulated controller of the bench's tag file, whose port the bench has from then on."""
    with subprocess.Popen([bench.options.sim, "--listen", "127.0.0.1:0", str(bench.tags)], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as simulator:
        try:
            bench.port = simulator.stdout.readline().decode().strip().rsplit(":", 1)[1]
            yield simulator
        finally:
            simulator.stdin.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=CHECKS)
    parser.add_argument("--all", action="store_true")
    for option in ("library", "host", "sim", "scarce-host", "scarce-sim"):
        parser.add_argument("--" + option, required=True)
    options = parser.parse_args()
    options.all = options.all or os.environ.get("PLC_HOSTILE_ALL") == "1"
    signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(options, folder)
        with running_simulator(bench):
            try:
                for check in CHECKS[options.what]:
                    print(f"{check.__name__}: {check(bench)} runs", flush=True)
            except Failure as failure:
                print(failure, file=sys.stderr)
                return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
