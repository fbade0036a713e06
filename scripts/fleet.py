"""Starts a plant on this machine: a broker, simulated controllers, a gateway for each, and a subscriber."""
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import threading
import time
import urllib.error
import urllib.request

START_S = 30


def free_port():
    """A port that nobody has now. Somebody may take it before it is used: whoever uses it tries again."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait_until(condition, what, seconds=START_S):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise RuntimeError(f"{what}: not within {seconds} s")
        time.sleep(0.02)


class Broker:
    """mosquitto on loopback, without persistence."""

    def __init__(self, folder, lines=()):
        self.folder = pathlib.Path(folder)
        self.lines = list(lines)
        self.process = None
        self.port = None
        self.start()

    def start(self):
        program = shutil.which("mosquitto", path=os.environ["PATH"] + ":/usr/sbin")
        if program is None:
            raise RuntimeError("mosquitto is missing: scripts/setup installs it")
        wanted = self.port
        for _ in range(20):
            self.port = wanted or free_port()
            config = self.folder / "mosquitto.conf"
            config.write_text("\n".join([f"listener {self.port} 127.0.0.1", "allow_anonymous true",
                                         "max_queued_messages 0", "set_tcp_nodelay true", *self.lines]) + "\n")
            self.process = subprocess.Popen([program, "-c", config], stdout=subprocess.DEVNULL,
                                            stderr=(self.folder / "mosquitto.log").open("a"))
            if self.listens():
                return
        raise RuntimeError(f"mosquitto does not start: see {self.folder / 'mosquitto.log'}")

    def listens(self):
        while self.process.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", self.port), timeout=1).close()
                return True
            except OSError:
                time.sleep(0.02)
        return False

    def host_is_online(self, host):
        """Says so for a primary host."""
        state = json.dumps({"online": True, "timestamp": int(time.time() * 1000)})
        subprocess.run(["mosquitto_pub", "-p", str(self.port), "-q", "1", "-r", "-t", f"spBv1.0/STATE/{host}", "-m",
                        state], check=True)

    def end(self, how=signal.SIGTERM):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGCONT)
            self.process.send_signal(how)
        self.process.wait()


class Machine:
    """A simulated controller and its gateway."""

    def __init__(self, fleet, number, tags, polls, *, animate_ms=None, primary_host=None, keep_alive_s=10, more=""):
        self.name = f"press{number}"
        self.fleet = fleet
        self.folder = fleet.folder / self.name
        self.animate_ms = animate_ms
        self.port = 0
        self.metrics_url = None  # as the gateway's log tells it
        (self.folder / "tags").mkdir(parents=True)
        (self.folder / "journal").mkdir()
        self.tag_file = self.folder / "tags" / "PLC7F000001_0.csv"
        self.tag_file.write_text(tags)
        self.polls = polls
        self.primary_host = primary_host
        self.keep_alive_s = keep_alive_s
        self.more = more
        self.sim = None
        self.gateway = None
        self.log = self.folder / "gateway.log"
        self.log_from = 0  # where it begins of the one that runs
        self.start_sim()
        self.config = self.folder / "gateway.toml"
        self.write_config()

    def start_sim(self):
        words = [self.fleet.sim_program, "--quiet", "--listen", f"127.0.0.1:{self.port}"]
        if self.animate_ms:
            words += ["--animate", "--animate-ms", str(self.animate_ms)]
        self.sim = subprocess.Popen([*words, self.tag_file], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                                    stderr=(self.folder / "plc-sim.log").open("a"))
        line = self.sim.stdout.readline()
        if not line:
            raise RuntimeError(f"plc-sim of {self.name} does not start: see {self.folder / 'plc-sim.log'}")
        self.port = int(line.rsplit(":", 1)[1])

    def kill_sim(self):
        self.sim.kill()
        self.sim.wait()

    def tell(self, command):
        """A command of plc-sim's console; its answer."""
        self.sim.stdin.write(command + "\n")
        self.sim.stdin.flush()
        return self.sim.stdout.readline().strip()

    def write_config(self):
        polls = "".join(f"[[poll]]\nevery_ms = {every_ms}\nnames = {json.dumps(names)}\n"
                        for every_ms, names in self.polls)
        host = f'primary_host = "{self.primary_host}"\n' if self.primary_host else ""
        self.config.write_text(f"""[controller]
name = "{self.name}"
address = "127.0.0.1"
port = {self.port}
tags = "tags"
[broker]
url = "mqtt://127.0.0.1:{self.fleet.broker.port}"
keep_alive_s = {self.keep_alive_s}
[sparkplug]
group = "Plant1"
edge_node = "{self.name}"
{host}[journal]
folder = "journal"
max_mb = 64
[metrics]
listen = "127.0.0.1:0"
{polls}{self.more}""")

    def start_gateway(self):
        self.metrics_url = None
        self.log_from = self.log.stat().st_size if self.log.exists() else 0
        self.gateway = subprocess.Popen([self.fleet.gateway_program, "run", self.config], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=self.log.open("a"))

    def find_metrics(self):
        with self.log.open() as log:
            log.seek(self.log_from)
            found = re.search(r" event=metrics url=(\S+)\n", log.read())
        self.metrics_url = found[1] if found else None

    def metrics(self):
        """The gateway's figures by name with labels; empty when it does not answer."""
        if self.metrics_url is None:
            self.find_metrics()
        if self.metrics_url is None:
            return {}
        try:
            with urllib.request.urlopen(self.metrics_url, timeout=1) as answer:
                lines = answer.read().decode().splitlines()
        except (OSError, urllib.error.URLError):
            return {}
        return {name: float(value) for name, value in
                (line.rsplit(" ", 1) for line in lines if line and not line.startswith("#"))}

    def end(self):
        for process in (self.gateway, self.sim):
            if process is not None and process.poll() is None:
                process.terminate()
        for process in (self.gateway, self.sim):
            if process is not None:
                process.wait()


class Fleet:
    """All of it, in one folder; ended with its `with` block."""

    def __init__(self, folder, programs):
        self.folder = pathlib.Path(folder)
        self.sim_program = programs / "tools" / "plc_sim" / "plc-sim"
        self.gateway_program = programs / "tools" / "plc_gateway" / "plc-gateway"
        self.broker = Broker(self.folder)
        self.machines = []
        self.subscriber = None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.subscriber is not None:
            self.subscriber.end()
        for machine in self.machines:
            machine.end()
        self.broker.end()

    def add(self, tags, polls, **options):
        self.machines.append(Machine(self, len(self.machines) + 1, tags, polls, **options))
        return self.machines[-1]


class Subscriber:
    """mosquitto_sub; counts what arrives, by edge node and kind of message."""

    def __init__(self, broker, on_message=None):
        self.lock = threading.Lock()
        self.counts = {}
        self.alive = {}
        self.on_message = on_message
        words = ["mosquitto_sub", "-p", str(broker.port), "-t", "spBv1.0/#", "-t", "hello", "-F", "%t %x"]
        self.process = subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self.greetings = 0
        self.listens = threading.Event()
        self.thread = threading.Thread(target=self.read)
        self.thread.start()
        self.wait_for_broker(broker)

    def wait_for_broker(self, broker):
        """What is published before its subscription, also that to a broker that has begun again, is never seen."""
        self.greetings += 1
        self.listens.clear()
        while not self.listens.wait(0.05):
            subprocess.run(["mosquitto_pub", "-p", str(broker.port), "-t", "hello", "-m", str(self.greetings)],
                           check=True)

    def read(self):
        for line in self.process.stdout:
            topic, _, payload = line.rstrip("\n").rpartition(" ")
            if topic == "hello":
                if bytes.fromhex(payload).decode() == str(self.greetings):
                    self.listens.set()
                continue
            self.take(topic)
            if self.on_message:
                self.on_message(topic, bytes.fromhex(payload))

    def take(self, topic):
        parts = topic.split("/")
        if len(parts) < 4:
            return
        kind, node = parts[2], parts[3]
        with self.lock:
            counts = self.counts.setdefault(node, {})
            counts[kind] = counts.get(kind, 0) + 1
            if kind in ("DBIRTH", "DDEATH", "NDEATH"):
                self.alive[node] = kind == "DBIRTH"

    def end(self):
        self.process.terminate()
        self.process.wait()
        self.thread.join()
