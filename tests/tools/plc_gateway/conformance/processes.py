"""plc-sim and plc-gateway as children of a session that is recorded, with the files that they need."""
import json
import os
import pathlib
import select
import signal
import subprocess
import time

GROUP, NODE, DEVICE, HOST = "Plant", "press1", "machine", "scada"
START_LIMIT_S = 20
# A variable of every type that is published: name, type, range, length.
TAGS = [
    ("Counter", "DINT", "", ""), ("Flag", "BOOL", "", ""), ("Small", "SINT", "", ""), ("Short", "INT", "", ""),
    ("Big", "LINT", "", ""), ("USmall", "USINT", "", ""), ("UShort", "UINT", "", ""), ("ULong", "UDINT", "", ""),
    ("UBig", "ULINT", "", ""), ("Bits8", "BYTE", "", ""), ("Bits16", "WORD", "", ""), ("Bits32", "DWORD", "", ""),
    ("Bits64", "LWORD", "", ""), ("Level", "REAL", "", ""), ("Exact", "LREAL", "", ""), ("Text", "STRING", "", "20"),
    ("Day", "DATE", "", ""), ("Table", "INT", "[0..9]", ""), ("Flags", "BOOL", "[0..15]", ""),
    ("Levels", "REAL", "[0..3]", ""), ("Motor.Speed", "DINT", "", ""), ("Motor.Run", "BOOL", "", "")]
WRITABLE = ["Motor.Run", "Motor.Speed"]
# More than twelve hours from UTC, and not by whole hours: local time in a message would show.
FOREIGN_ZONE = "Pacific/Chatham"

CONFIG = """[controller]
name = "{device}"
address = "127.0.0.1"
port = {sim_port}
tags = "{folder}/tags"
reply_timeout_s = 1
driver = "{driver}"

[broker]
url = "mqtt://127.0.0.1:{broker_port}"
keep_alive_s = 5
mqtt_version = "{mqtt_version}"

[sparkplug]
group = "{group}"
edge_node = "{node}"
{primary_host}
[json]
topic = "plant/press1/{{name}}"

[[poll]]
every_ms = 100
names = ["Counter", "Flag", "Motor.*"]

[[poll]]
every_ms = 500
names = ["*"]

[[command]]
name = "Motor.Speed"
min = 0
max = 3000
verify = true

[[command]]
name = "Motor.Run"

[journal]
folder = "{folder}/journal"
"""


def write_files(folder, sim_port, broker_port, driver, mqtt_version, with_host):
    """The path of the configuration."""
    for name in ("tags", "journal"):
        pathlib.Path(folder, name).mkdir(exist_ok=True)
    path = pathlib.Path(folder, "gateway.toml")
    host = f'primary_host = "{HOST}"\n' if with_host else ""
    text = CONFIG.format(device=DEVICE, sim_port=sim_port, folder=folder, driver=driver, group=GROUP, node=NODE,
                         broker_port=broker_port, mqtt_version=mqtt_version, primary_host=host)
    path.write_text(text, encoding="utf-8")
    return path


class Simulator:
    def __init__(self, program, folder):
        path = pathlib.Path(folder, "tags")
        path.mkdir(exist_ok=True)
        lines = [f"{name},{kind},{bounds},{length},,,,0,1,0,0,\n" for name, kind, bounds, length in TAGS]
        tag_file = path / "PLC7F000001_0.csv"
        tag_file.write_text("".join(lines), encoding="utf-8")
        command = [program, "--animate", "--animate-ms", "200", str(tag_file)]
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL)
        self.unread = b""
        self.port = int(self.line().rpartition(":")[2])

    def line(self):
        end = time.monotonic() + START_LIMIT_S
        while b"\n" not in self.unread:
            if not select.select([self.process.stdout], [], [], max(0, end - time.monotonic()))[0]:
                raise TimeoutError("plc-sim says nothing")
            data = os.read(self.process.stdout.fileno(), 65536)
            if not data:
                raise EOFError("plc-sim ended")
            self.unread += data
        first, _, self.unread = self.unread.partition(b"\n")
        return first.decode()

    def tell(self, command):
        """The lines of the answer."""
        self.process.stdin.write(command.encode() + b"\n")
        self.process.stdin.flush()
        lines = [self.line()]
        while lines[-1] != "ok":
            if lines[-1].startswith("error"):
                raise ValueError(f"plc-sim: {command}: {lines[-1]}")
            lines.append(self.line())
        return lines[:-1]

    def written(self):
        """The names of the variables that were written."""
        report = json.loads("\n".join(self.tell("report json")))
        return sorted(asked["name"] for asked in report["asked"] if asked["written"])

    def stop(self):
        """The exit code: not 0 when the simulated controller found fault with a request."""
        self.process.stdin.close()
        self.process.stdout.close()
        return self.process.wait(START_LIMIT_S)


class Gateway:
    """The program, which may be killed and started again; what it says goes to a file."""

    def __init__(self, program, config, log, recording, environment=None):
        self.command, self.recording = [program, "run", str(config)], recording
        self.environment = {**os.environ, "TZ": FOREIGN_ZONE, **(environment or {})}
        self.log = open(log, "ab")
        self.process = None

    def start(self):
        self.recording.add(event="started")
        self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log,
                                        env=self.environment)

    def running(self):
        return self.process is not None and self.process.poll() is None

    def kill(self):
        self.recording.add(event="killed")
        self.process.kill()
        self.process.wait()

    def reload(self):
        self.recording.add(event="reloaded")
        self.process.send_signal(signal.SIGHUP)

    def stop(self):
        """The exit code."""
        self.recording.add(event="stopping")
        self.process.terminate()
        return self.process.wait(START_LIMIT_S)

    def close(self):
        if self.running():
            self.process.kill()
            self.process.wait()
        self.log.close()
