#!/usr/bin/env python3
"""Records and checks a session of plc-gateway with mosquitto over TLS, with a name and a password, under a supervisor.

secure_session.py --gateway PLC_GATEWAY --sim PLC_SIM --record FILE [--driver NAME_OR_PATH] [--mqtt5]

The session: births, commands, a lost connection, a new configuration, one with a mistake, the controller gone, the end;
the supervisor hears of each as its unit expects. Then what is wrong with a certificate or a password is told in one
message that says what to do. Exit code 0: no failure; 1: failures; 2: the session could not be recorded.
"""
import argparse
import pathlib
import signal
import sys
import tempfile
import time

import check_session
import encoder
import processes
import recording
import secure_broker
import supervisor
from processes import DEVICE, GROUP, NODE
from record_session import BIRTH_LIMIT_S, is_from_node
from session import NAMESPACE

KEYS = """username = "press1"
password_file = "{folder}/password"
ca_file = "{folder}/authority.pem"
"""


class Stage:
    def __init__(self, options, folder):
        self.folder, self.options = folder, options
        self.recording = recording.Recording(options.record)
        self.broker = secure_broker.Mosquitto(folder)
        self.relay = secure_broker.Relay(self.recording, folder, self.broker.ports["good"])
        self.supervisor = supervisor.Supervisor(folder)
        self.sim = processes.Simulator(options.sim, folder)
        pathlib.Path(folder, "password").write_text(secure_broker.USERS["press1"] + "\n", encoding="utf-8")
        pathlib.Path(folder, "password").chmod(0o600)
        self.config = self.write_config(self.relay.port)
        self.gateway = processes.Gateway(options.gateway, self.config, options.record + ".log", self.recording,
                                         self.supervisor.environment())

    def write_config(self, port, host="localhost", keys=KEYS, changes=()):
        version = "5" if self.options.mqtt5 else "3.1.1"
        path = processes.write_files(self.folder, self.sim.port, port, self.options.driver, version, False)
        plain = f'url = "mqtt://127.0.0.1:{port}"\n'
        text = path.read_text(encoding="utf-8")
        for old, new in [(plain, f'url = "mqtts://{host}:{port}"\n' + keys.format(folder=self.folder)), *changes]:
            if old not in text:
                raise ValueError(f"the configuration has no {old}")
            text = text.replace(old, new)
        path.write_text(text, encoding="utf-8")
        return path

    def last(self):
        return len(self.recording.entries)

    def wait_for(self, kind, after):
        if self.recording.wait_for(lambda entry: is_from_node(entry, kind), BIRTH_LIMIT_S, after) is None:
            raise TimeoutError(f"no {kind} in {BIRTH_LIMIT_S} s")

    def command(self, kind, device, metric):
        now = int(time.time() * 1000)
        topic = "/".join([NAMESPACE, GROUP, kind, NODE] + ([device] if device else []))
        self.broker.publish(topic, encoder.encode({"timestamp": now, "metrics": [{"timestamp": now, **metric}]}))

    def close(self):
        self.gateway.close()
        self.sim.stop()
        self.relay.stop()
        self.broker.stop()
        self.supervisor.close()
        self.recording.close()


def wait_for_line(path, text):
    end = time.monotonic() + BIRTH_LIMIT_S
    while text not in pathlib.Path(path).read_text(encoding="utf-8"):
        if time.monotonic() > end:
            raise TimeoutError(f"the log {path} does not say: {text}")
        time.sleep(0.02)


def reload(stage):
    """First a configuration with a mistake, with which the old one goes on; then a right one."""
    heard = len(stage.supervisor.heard)
    stage.write_config(stage.relay.port, changes=[('names = ["*"]', 'names = ["Nobody"]')])
    at = stage.last()
    stage.gateway.process.send_signal(signal.SIGHUP)
    heard = stage.supervisor.wait_for("READY=1", stage.supervisor.wait_for("RELOADING=1", heard))
    wait_for_line(stage.options.record + ".log", "event=reload_refused")
    if any(is_from_node(entry, "NDEATH") for entry in stage.recording.entries[at:]):
        raise ValueError("a configuration that was refused ended the node")
    stage.write_config(stage.relay.port, changes=[("every_ms = 500", "every_ms = 400")])
    at = stage.last()
    stage.gateway.reload()
    stage.wait_for("NDEATH", at)
    stage.wait_for("DBIRTH", at)
    stage.supervisor.wait_for("READY=1", stage.supervisor.wait_for("RELOADING=1", heard))


def tour(stage):
    stage.recording.add(event="changes", metric="Counter", limit_ms=2000)
    stage.recording.add(event="fresh")
    stage.gateway.start()
    heard = stage.supervisor.wait_for("READY=1")
    stage.wait_for("DBIRTH", 0)
    stage.command("DCMD", DEVICE, {"name": "Motor.Speed", "int_value": 1200})
    stage.wait_for("NDATA", 0)
    at = stage.last()
    stage.command("NCMD", "", {"name": "Node Control/Rebirth", "datatype": 11, "boolean_value": True})
    stage.wait_for("DBIRTH", at)
    at = stage.last()
    stage.relay.drop()
    stage.wait_for("DBIRTH", at)
    reload(stage)
    stage.recording.add(event="device-lost")
    at = stage.last()
    stage.sim.tell("fault gone")
    stage.wait_for("DDEATH", at)
    stage.recording.add(event="device-back")
    stage.sim.tell("fault clear")
    stage.wait_for("DBIRTH", at)
    stage.supervisor.wait_for("WATCHDOG=1", heard)
    at = stage.last()
    if stage.gateway.stop() != 0:
        raise ValueError("the gateway did not end with 0")
    stage.wait_for("NDEATH", at)
    stage.supervisor.wait_for("STOPPING=1", heard)
    stage.recording.add(event="end")
    if stage.sim.written() != ["Motor.Speed"]:
        raise ValueError(f"{stage.sim.written()} were written, and Motor.Speed alone was to be")
    if stage.supervisor.longest_silence_s() > stage.supervisor.watchdog_s:
        raise ValueError("the watchdog would have ended the gateway")


def problems(stage):
    """What is wrong, as the configuration's changes, and what the log says of it."""
    ports, folder = stage.broker.ports, stage.folder
    unnamed = 'ca_file = "{folder}/authority.pem"\n'
    wrong = KEYS.replace("/password", "/wrong")
    pathlib.Path(folder, "wrong").write_text("wrong\n", encoding="utf-8")
    yield {"port": ports["expired"]}, (f"the certificate of localhost:{ports['expired']} has expired: renew it, or set "
                                       "this machine's clock")
    yield {"port": ports["foreign"]}, (f"the certificate of localhost:{ports['foreign']} is not signed by '{folder}/"
                                       "authority.pem' (ca_file): put the certificate of its authority there")
    yield {"port": ports["good"], "host": "127.0.0.1"}, (
        f"the certificate of 127.0.0.1:{ports['good']} is not for '127.0.0.1': the url must have a name that it is for")
    yield {"port": ports["good"], "keys": wrong}, (
        "not authorised: the broker does not take this user name with this password: see username, password_file and "
        "the broker's own list")
    yield {"port": ports["good"], "keys": unnamed}, (
        "not authorised: the broker wants a user name and a password: set username and password_file")


def tell_problems(stage):
    log = stage.options.record + ".problems.log"
    for changes, text in problems(stage):
        pathlib.Path(log).unlink(missing_ok=True)
        gateway = processes.Gateway(stage.options.gateway, stage.write_config(**changes), log, recording.Recording())
        try:
            gateway.start()
            wait_for_line(log, f'event=broker_away reason="{text}"\n')
            if gateway.stop() != 0:
                raise ValueError(f"the gateway did not end with 0 after: {text}")
        finally:
            gateway.close()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--gateway", required=True)
    parser.add_argument("--sim", required=True)
    parser.add_argument("--record", required=True, help="the gateway's own lines go to FILE.log")
    parser.add_argument("--driver", default="guarded")
    parser.add_argument("--mqtt5", action="store_true")
    options = parser.parse_args()
    for path in (options.record, options.record + ".log"):
        pathlib.Path(path).unlink(missing_ok=True)
    with tempfile.TemporaryDirectory(prefix="gateway-session-") as folder:
        try:
            stage = Stage(options, folder)
            try:
                tour(stage)
                tell_problems(stage)
            finally:
                stage.close()
        except (OSError, ValueError, EOFError) as problem:
            print(f"secure_session: {problem}; the gateway's lines are in {options.record}.log", file=sys.stderr)
            return 2
    outcomes = check_session.check_entries(recording.load(options.record), [f"{GROUP}/{NODE}"])
    check_session.print_outcomes(outcomes, False)
    print(check_session.counts(outcomes))
    return 1 if any(outcome.failures for outcome in outcomes.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
