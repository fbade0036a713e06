#!/usr/bin/env python3
"""The driver in one network namespace, the simulated controller in another: links, addresses and routes that vanish.

namespaces.py PLC_SIM PACED_HOST   needs root; ends with the line "N passed, N failed"
"""
import contextlib
import os
import pathlib
import subprocess
import sys
import tempfile

CONTROLLER = f"plc-controller-{os.getpid()}"
PANEL = f"plc-panel-{os.getpid()}"
CONTROLLER_ADDRESS = "10.77.0.2"
PANEL_ADDRESS = "10.77.0.1"
TAG_FILE = "PLCA4D0002_0.csv"
TAGS = "Word,INT,,,a,b,c,0,1,0,0,,DM\n"
REPLY_WAIT_MS = 1000
CONNECT_WAIT_MS = 30
ALLOWANCE_MS = 100
SERVER = r"server ip = 10.77.0.2\r\n"
LOST_CONNECT = SERVER + r"select time out \r\nsend error\nev_plc_read init fail\r\n"


def ip(*words):
    subprocess.run(["ip", *words], check=True, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)


def inside(namespace, *words, check=True):
    return subprocess.run(["ip", "netns", "exec", namespace, *words], check=check, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True).returncode == 0


def plug_cable():
    ip("link", "add", "panel0", "netns", PANEL, "type", "veth", "peer", "name", "plc0", "netns", CONTROLLER)
    for name, device, address in ((CONTROLLER, "plc0", CONTROLLER_ADDRESS), (PANEL, "panel0", PANEL_ADDRESS)):
        inside(name, "ip", "address", "add", f"{address}/24", "dev", device)
        inside(name, "ip", "link", "set", device, "up")
        inside(name, "ip", "link", "set", "lo", "up")


@contextlib.contextmanager
def two_namespaces():
    """Two namespaces and a cable between them; gone again at the end."""
    made = []
    try:
        for name in (CONTROLLER, PANEL):
            ip("netns", "add", name)
            made.append(name)
        plug_cable()
        yield
    finally:
        for name in made:
            ip("netns", "delete", name)


class Child:
    """A program in a namespace, spoken to in lines."""

    def __init__(self, namespace, *words):
        self.process = subprocess.Popen(["ip", "netns", "exec", namespace, *words], stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, text=True, bufsize=1)

    def line(self):
        return self.process.stdout.readline().rstrip("\n")

    def ask(self, text):
        self.process.stdin.write(text + "\n")
        self.process.stdin.flush()
        return self.line()

    def end(self):
        self.process.stdin.close()
        self.process.wait(timeout=20)


class Bench:
    def __init__(self, sim, host, folder):
        self.sim_program = sim
        self.host_program = host
        self.folder = pathlib.Path(folder)
        self.passed = 0
        self.failed = 0
        (self.folder / TAG_FILE).write_text(TAGS, encoding="ascii")
        os.chdir(folder)
        self.sim = Child(CONTROLLER, sim, "--quiet", "--allow-remote", "--listen", f"{CONTROLLER_ADDRESS}:0", TAG_FILE)
        self.port = self.sim.line().rsplit(":", 1)[1]
        self.host = Child(PANEL, host, CONTROLLER_ADDRESS, self.port, str(REPLY_WAIT_MS // 1000))

    def restart_controller(self):
        """A power cut: nobody is told, and the kernel of the new one has no trace of a connection."""
        inside(PANEL, "ip", "link", "delete", "panel0")
        self.sim.process.kill()
        self.sim.process.wait()
        ip("netns", "delete", CONTROLLER)
        ip("netns", "add", CONTROLLER)
        plug_cable()
        self.sim = Child(CONTROLLER, self.sim_program, "--quiet", "--allow-remote", "--listen",
                         f"{CONTROLLER_ADDRESS}:{self.port}", TAG_FILE)
        self.sim.line()

    def expect(self, what, result, lines, least_ms=0, most_ms=0):
        """One read: its code, its lines ("|" between alternatives), its time within its time-outs and the allowance."""
        answer = self.host.ask("read").split(" ", 3)
        got_result, took_ms, lost_ms = (int(word) for word in answer[:3])
        got_lines = answer[3] if len(answer) > 3 else ""
        longest_ms = most_ms + ALLOWANCE_MS + 4 * lost_ms
        good = got_result == result and got_lines in lines.split("|") and least_ms - 1 <= took_ms <= longest_ms
        self.passed += good
        self.failed += not good
        print(f"{'ok    ' if good else 'FAILED'} {what}: {got_result} after {took_ms} ms {got_lines}", flush=True)
        if not good:
            print(f"       expected {result} after {least_ms} to {longest_ms} ms {lines}")

    def expect_recovery(self, what):
        self.expect(f"{what}: the first call behind it", 0, SERVER)

    def end(self):
        self.host.end()
        self.sim.end()


def reachable_again():
    """Tells the panel's kernel where the controller is, so that no old answer to that question counts."""
    if not inside(PANEL, "ip", "neighbour", "replace", CONTROLLER_ADDRESS, "lladdr", controller_mac(), "dev", "panel0",
                  "nud", "reachable", check=False):
        raise OSError("the panel's kernel takes no neighbour")


def controller_mac():
    shown = subprocess.run(["ip", "netns", "exec", CONTROLLER, "cat", "/sys/class/net/plc0/address"],
                           stdout=subprocess.PIPE, text=True, check=False).stdout.strip()
    if shown:
        return shown
    words = subprocess.run(["ip", "netns", "exec", CONTROLLER, "ip", "-o", "link", "show", "plc0"], check=True,
                           stdout=subprocess.PIPE, text=True).stdout.split()
    return words[words.index("link/ether") + 1]


def silence(bench, what, begin, finish):
    """Something that swallows packets: a running connection times out, a connect ends after 30 ms."""
    begin()
    bench.expect(f"{what}: a connection that is open", 3, r"--timeout--\r\n", REPLY_WAIT_MS, REPLY_WAIT_MS)
    bench.expect(f"{what}: a connect", 2, LOST_CONNECT, CONNECT_WAIT_MS, CONNECT_WAIT_MS)
    finish()
    reachable_again()
    bench.expect_recovery(what)


def run_silences(bench):
    link = ("ip", "link", "set", "plc0")
    silence(bench, "cable of the controller pulled", lambda: inside(CONTROLLER, *link, "down"),
            lambda: inside(CONTROLLER, *link, "up"))
    hole = ("blackhole", f"{PANEL_ADDRESS}/32")
    silence(bench, "replies into a black hole", lambda: inside(CONTROLLER, "ip", "route", "add", *hole),
            lambda: inside(CONTROLLER, "ip", "route", "delete", *hole))
    address = (f"{CONTROLLER_ADDRESS}/24", "dev", "plc0")
    silence(bench, "address of the controller gone", lambda: inside(CONTROLLER, "ip", "address", "delete", *address),
            lambda: inside(CONTROLLER, "ip", "address", "add", *address))


def run_half_open(bench):
    """The controller restarts while nobody can tell the panel: the call that notices fails at once."""
    bench.restart_controller()
    reachable_again()
    # The refusal meets the send or the receive.
    bench.expect("half-open connection: the call that notices", 3, r"|send error\n")
    bench.expect_recovery("half-open connection")


def run_no_route(bench):
    inside(PANEL, "ip", "address", "delete", f"{PANEL_ADDRESS}/24", "dev", "panel0")
    bench.expect("no address of its own: a connection that is open", 3, r"--timeout--\r\n", REPLY_WAIT_MS,
                 REPLY_WAIT_MS)
    bench.expect("no address of its own: a connect", 3, SERVER + r"send error\nsend error\n")
    inside(PANEL, "ip", "address", "add", f"{PANEL_ADDRESS}/24", "dev", "panel0")
    reachable_again()
    bench.expect_recovery("no address of its own")


def run_connect_limit(bench):
    """A controller 10 ms away connects, one 60 ms away does not."""
    delay = ("tc", "qdisc", "add", "dev", "plc0", "root", "netem", "delay")
    if not inside(CONTROLLER, *delay, "10ms", check=False):
        print("this kernel has no netem: the connect limit was not tried with a distant controller")
        return
    inside(CONTROLLER, "tc", "qdisc", "delete", "dev", "plc0", "root")
    inside(CONTROLLER, "ip", "link", "set", "plc0", "down")
    bench.expect("before the distance", 3, r"--timeout--\r\n", REPLY_WAIT_MS, REPLY_WAIT_MS)
    inside(CONTROLLER, "ip", "link", "set", "plc0", "up")
    reachable_again()
    inside(CONTROLLER, *delay, "60ms")
    bench.expect("a controller 60 ms away", 2, LOST_CONNECT, CONNECT_WAIT_MS, CONNECT_WAIT_MS)
    inside(CONTROLLER, "tc", "qdisc", "delete", "dev", "plc0", "root")
    inside(CONTROLLER, *delay, "10ms")
    bench.expect("a controller 10 ms away", 0, SERVER, 5 * 10, 5 * 10)
    inside(CONTROLLER, "tc", "qdisc", "delete", "dev", "plc0", "root")


def main():
    if os.geteuid() != 0:
        print("network namespaces need root", file=sys.stderr)
        return 1
    sim, host = (str(pathlib.Path(word).resolve()) for word in sys.argv[1:3])
    try:
        with two_namespaces(), tempfile.TemporaryDirectory() as folder:
            bench = Bench(sim, host, folder)
            bench.expect("the first call", 0, SERVER + rf"build tag table for {TAG_FILE}\r\n")
            run_silences(bench)
            run_half_open(bench)
            run_no_route(bench)
            run_connect_limit(bench)
            bench.end()
            os.chdir("/")
    except (OSError, subprocess.CalledProcessError) as problem:
        print(f"network namespaces cannot be used here: {problem} {getattr(problem, 'stderr', '') or ''}",
              file=sys.stderr)
        return 1
    print(f"{bench.passed} passed, {bench.failed} failed")
    return 1 if bench.failed else 0


if __name__ == "__main__":
    sys.exit(main())
