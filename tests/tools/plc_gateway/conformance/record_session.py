#!/usr/bin/env python3
"""Records and checks a session of plc-gateway between plc-sim and a broker that misbehaves.

record_session.py --gateway PLC_GATEWAY --sim PLC_SIM --record FILE [--driver NAME_OR_PATH] [--seconds N] [--seed N]
                  [--mqtt5] [--without-host] [--brief]

First a tour of everything that a session can go through, then random troubles for N seconds: connections dropped, the
broker down, frozen, or without acknowledgments, the controller gone, the gateway killed or stopped, hosts that come and
go, commands of every kind. The record can be checked again with check_session.py. Exit code 0: no failure; 1: failures;
2: the session could not be recorded.
"""
import argparse
import collections
import json
import pathlib
import random
import sys
import tempfile
import time

import broker
import check_session
import encoder
import mqtt
import payload
import processes
import recording
import rules_gateway
import session
from processes import DEVICE, GROUP, HOST, NODE
from rulebook import ANSWER_LIMIT_MS

BIRTH_LIMIT_S = 20
CALM_S = ANSWER_LIMIT_MS / 1000 + 1
KEEP_ALIVE_S = 5
MOST_TOPIC_BYTES = 80
CHANGE_LIMIT_MS = 2000  # a value changes every 200 ms and is polled every 100 ms, also on a busy machine


def now_ms():
    return int(time.time() * 1000)


def is_from_node(entry, kind):
    topic = f"/{kind}/{NODE}".encode().hex()
    return entry.get("dir") == "in" and entry["hex"].startswith("3") and topic in entry["hex"][:2 * MOST_TOPIC_BYTES]


class Stage:
    """The broker with a host on it, the controller, the gateway."""

    def __init__(self, options, folder):
        self.recording = recording.Recording(options.record)
        self.broker = broker.Broker(self.recording)
        self.sim = processes.Simulator(options.sim, folder)
        config = processes.write_files(folder, self.sim.port, self.broker.port, options.driver,
                                       "5" if options.mqtt5 else "3.1.1", not options.without_host)
        self.gateway = processes.Gateway(options.gateway, config, options.record + ".log", self.recording)
        self.with_host = not options.without_host
        self.version = 5 if options.mqtt5 else 4
        self.host_time = now_ms()
        self.host_online = False
        self.stamp = self.sim_exit = 0

    def close(self):
        self.gateway.close()
        self.sim_exit = self.sim.stop()
        self.broker.stop()
        self.recording.close()

    def note(self, event, **more):
        self.recording.add(event=event, **more)

    def last(self):
        return len(self.recording.entries)

    def wait_for(self, kind, after):
        """Until the node publishes a message of that kind."""
        if self.recording.wait_for(lambda entry: is_from_node(entry, kind), BIRTH_LIMIT_S, after) is None:
            raise TimeoutError(f"no {kind} in {BIRTH_LIMIT_S} s")

    def wait_for_subscription(self):
        def found(entry):
            return entry.get("dir") == "in" and entry["hex"].startswith("82")
        if self.recording.wait_for(found, BIRTH_LIMIT_S) is None:
            raise TimeoutError(f"no subscription in {BIRTH_LIMIT_S} s")

    # A host.

    def state(self, online, age_ms=0, host=HOST, again=False):
        """Of a host: as of so long before its current connection, of that connection again, or of a new one."""
        if host == HOST and online and not age_ms and not again:
            self.host_time = max(now_ms(), self.host_time + 1)
        body = json.dumps({"online": online, "timestamp": self.host_time - age_ms}).encode()
        topic = f"{session.NAMESPACE}/STATE/{host}"
        if host == HOST:
            self.broker.publish(topic, body, 1, retain=True)
            if age_ms and self.host_online:
                self.state(True, again=True)  # a host does not let the death of an earlier connection stand
            self.host_online = self.host_online if age_ms else online
        else:
            self.broker.deliver(topic, body, 1)

    def command(self, kind, metrics, device="", age_ms=0, retain=False, times=1):
        self.stamp = max(now_ms(), self.stamp + 1)
        stamped = [{"timestamp": self.stamp - age_ms, **metric} for metric in metrics]
        topic = "/".join([session.NAMESPACE, GROUP, kind, NODE] + ([device] if device else []))
        body = encoder.encode({"timestamp": now_ms() - age_ms, "metrics": stamped})
        for _ in range(times):
            self.broker.publish(topic, body, 0, retain)

    def rebirth(self):
        self.command("NCMD", [{"name": "Node Control/Rebirth", "datatype": 11, "boolean_value": True}])

    def write(self, name, field, value, **more):
        self.command("DCMD", [{"name": name, field: value}], DEVICE, **more)

    def write_by_alias(self, name, field, value):
        """As the last birth of the device gives it."""
        births = [entry for entry in self.recording.entries if is_from_node(entry, "DBIRTH")]
        if births:
            birth, _ = payload.decode(mqtt.parse(bytes.fromhex(births[-1]["hex"]), self.version).payload)
            self.command("DCMD", [{"alias": birth.get(name).alias, field: value}], DEVICE)

    # Troubles.

    def device_gone(self, seconds):
        self.note("device-lost")
        self.sim.tell("fault gone")
        time.sleep(seconds)
        self.note("device-back")
        self.sim.tell("fault clear")

    def broker_down(self, seconds):
        self.broker.go_down()
        time.sleep(seconds)
        self.broker.come_up()
        if self.with_host:
            self.state(True)

    def broker_frozen(self, seconds):
        self.broker.freeze()
        time.sleep(seconds)
        self.broker.thaw()

    def no_acknowledgments(self, seconds):
        self.broker.set_pubacks("swallow")
        time.sleep(seconds)
        self.broker.release_pubacks()

    def late_acknowledgments(self, seconds):
        self.broker.set_pubacks("hold")
        time.sleep(seconds)
        self.broker.release_pubacks()

    def kill(self):
        self.gateway.kill()
        self.gateway.start()

    def stop_and_start(self):
        if self.gateway.stop() != 0:
            raise ValueError("the gateway did not end with 0")
        self.gateway.start()

    def host_leaves(self, seconds):
        self.state(False)
        time.sleep(seconds)
        self.state(True)


def commands(stage, generator):
    """One of many kinds, most of which must be refused."""
    kinds = [lambda: stage.write("Motor.Speed", "int_value", generator.randrange(3001)),
             lambda: stage.write("Motor.Run", "boolean_value", generator.random() < 0.5),
             lambda: stage.write("Motor.Speed", "int_value", 99999),
             lambda: stage.write("Motor.Speed", "string_value", "fast"),
             lambda: stage.write("Counter", "int_value", 1),
             lambda: stage.write("No Such Name", "int_value", 1),
             lambda: stage.write("Motor.Run", "boolean_value", True, age_ms=3600000),
             lambda: stage.write("Motor.Run", "boolean_value", True, retain=True),
             lambda: stage.write_by_alias("Motor.Speed", "int_value", generator.randrange(3001)),
             lambda: stage.write_by_alias("Level", "float_value", 1.5),
             lambda: stage.write("Motor.Speed", "int_value", 7, times=2),
             lambda: stage.command("DCMD", [{"alias": 987654, "int_value": 1}], DEVICE),
             lambda: stage.broker.publish(f"{session.NAMESPACE}/{GROUP}/DCMD/{NODE}/{DEVICE}", b"\xFF\x00\x12"),
             lambda: stage.broker.publish(f"{session.NAMESPACE}/{GROUP}/NCMD/{NODE}", b"")]
    generator.choice(kinds)()


def births_of_host(stage):
    """What the primary host says first, and what does not count."""
    if not stage.with_host:
        stage.gateway.start()
        return
    stage.note("primary-host", host=HOST)
    stage.state(False)
    stage.gateway.start()
    stage.wait_for_subscription()
    stage.state(True, host="other")
    stage.state(True, age_ms=60000)
    time.sleep(2)
    stage.state(True)


def tour(stage, brief):
    """Everything once. In a brief one nobody waits until what did not come would have had to."""
    calm = 0.5 if brief else CALM_S
    stage.note("changes", metric="Counter", limit_ms=CHANGE_LIMIT_MS)
    stage.note("fresh")
    births_of_host(stage)
    stage.wait_for("DBIRTH", 0)
    time.sleep(1)
    at = stage.last()
    stage.rebirth()
    stage.wait_for("DBIRTH", at)
    stage.write("Motor.Speed", "int_value", 1200)
    time.sleep(1)
    stage.write("Motor.Speed", "int_value", 99999)
    time.sleep(calm)
    troubles = [lambda: stage.device_gone(3 if brief else CALM_S), stage.broker.drop, lambda: stage.broker_down(1),
                stage.kill, stage.stop_and_start]
    troubles += [] if brief else [lambda: stage.no_acknowledgments(2 * KEEP_ALIVE_S),
                                  lambda: stage.broker_frozen(2 * KEEP_ALIVE_S)]
    for trouble in troubles:
        at = stage.last()
        trouble()
        stage.wait_for("DBIRTH", at)
        time.sleep(1)
    if stage.with_host:
        stage.state(False, age_ms=60000)
        time.sleep(calm)
        at = stage.last()
        stage.host_leaves(1)
        stage.wait_for("DBIRTH", at)


def chaos(stage, generator, seconds):
    end = time.monotonic() + seconds
    troubles = [stage.rebirth, stage.broker.drop, stage.kill, stage.stop_and_start,
                lambda: stage.broker_down(generator.uniform(0, 4)),
                lambda: stage.broker_frozen(generator.uniform(0, 2.5 * KEEP_ALIVE_S)),
                lambda: stage.no_acknowledgments(generator.uniform(1, 2 * KEEP_ALIVE_S)),
                lambda: stage.late_acknowledgments(generator.uniform(0, KEEP_ALIVE_S)),
                lambda: stage.device_gone(generator.uniform(0, 8))]
    troubles += [lambda: stage.host_leaves(generator.uniform(0, 3)), lambda: stage.state(True, host="other"),
                 lambda: stage.state(False, age_ms=60000)] if stage.with_host else []
    while time.monotonic() < end:
        if generator.random() < 0.4:
            commands(stage, generator)
        else:
            generator.choice(troubles)()
        time.sleep(generator.expovariate(0.7))
        if not stage.gateway.running():
            raise ValueError("the gateway ended by itself")


def record(options, folder):
    stage = Stage(options, folder)
    try:
        tour(stage, options.brief)
        chaos(stage, random.Random(options.seed), options.seconds)
        at = stage.last()
        stage.rebirth()
        stage.wait_for("DBIRTH", at)
        time.sleep(0 if options.brief else CALM_S)
        stage.gateway.stop()
        written = stage.sim.written()
    finally:
        stage.note("end")
        stage.close()
    if not set(written) <= set(processes.WRITABLE):
        raise ValueError(f"{written} were written, of which only {processes.WRITABLE} may be")
    if stage.sim_exit != 0:
        raise ValueError("the simulated controller found fault with a request")


def left_out(node):
    """Values of Counter, which counts up by one with each change: how many came, and how many of those in between did
    not, though gateway and controller were there. A poll that came late on a busy machine leaves one out too."""
    times = {}
    for message in node.messages("DBIRTH", "DDATA"):
        for metric, known in zip(message.metrics(), message.known or message.metrics()):
            if known is not None and known.name == "Counter" and metric.value is not None:
                times.setdefault(metric.value, []).append(metric.timestamp)
    values, spans, missing = sorted(times), list(rules_gateway.pauses(node)), 0
    for before, after in zip(values, values[1:]):
        start, end = max(times[before]), min(times[after])
        if not any(first <= end and last >= start for first, last in spans):
            missing += after - before - 1
    return len(values), missing


def print_figures(entries, node):
    data = node.messages("DDATA")
    metrics = [metric for message in data for metric in message.metrics()]
    longest = max((gap for _, gap in rules_gateway.gaps(node, "Counter")), default=0)
    troubles = collections.Counter(entry["event"] for entry in entries if "event" in entry and "conn" not in entry)
    print(f"packets {sum('hex' in entry for entry in entries)}, connections {len(node.connections)}, "
          f"NBIRTH {len(node.messages('NBIRTH'))}, DBIRTH {len(node.messages('DBIRTH'))}, "
          f"DDEATH {len(node.messages('DDEATH'))}, DDATA {len(data)}, values {len(metrics)}, "
          f"historical {sum(bool(metric.is_historical) for metric in metrics)}")
    print("values of Counter: {}, left out: {}".format(*left_out(node)))
    print(f"longest time without a value of Counter while all was well with gateway and controller: {longest:.0f} ms")
    print("notes: " + ", ".join(f"{count} {event}" for event, count in sorted(troubles.items())))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--gateway", required=True)
    parser.add_argument("--sim", required=True)
    parser.add_argument("--record", required=True, help="the gateway's own lines go to FILE.log")
    parser.add_argument("--driver", default="guarded")
    parser.add_argument("--seconds", type=float, default=60)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--mqtt5", action="store_true")
    parser.add_argument("--without-host", action="store_true")
    parser.add_argument("--brief", action="store_true", help="a tour without its long waits")
    options = parser.parse_args()
    pathlib.Path(options.record).unlink(missing_ok=True)
    with tempfile.TemporaryDirectory(prefix="gateway-session-") as folder:
        try:
            record(options, folder)
        except (OSError, ValueError, EOFError) as problem:
            print(f"record_session: {problem}; the gateway's lines are in {options.record}.log", file=sys.stderr)
            return 2
    entries = recording.load(options.record)
    outcomes = check_session.check_entries(entries, [f"{GROUP}/{NODE}"])
    check_session.print_outcomes(outcomes, False)
    print(check_session.counts(outcomes))
    print_figures(entries, session.read_nodes(entries)[0])
    return 1 if any(outcome.failures for outcome in outcomes.values()) else 0


if __name__ == "__main__":
    sys.exit(main())
