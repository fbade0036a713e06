"""Kills and freezes a broker and a gateway at random and counts what a subscriber has of a variable that counts up.

The gateway waits for a primary host, which is online when the subscriber is there again: what a broker takes while
nobody listens is not the gateway's to keep.
"""
import collections
import random
import signal
import time

import sparkplug_fields as sparkplug
from fleet import Subscriber, wait_until

TROUBLES = 100
COUNT_MS = 100  # the variable goes up by one so often
POLL_MS = 20
KEEP_ALIVE_S = 5
# Between the last value that came and a kill: one that was read and not yet in the journal, on a busy machine.
MOST_BEFORE_KILL_MS = 2 * COUNT_MS
HOST = "scada"
OPTIONS = {"animate_ms": COUNT_MS, "primary_host": HOST, "keep_alive_s": KEEP_ALIVE_S}
TAGS = "V0,DINT,,,,,,0,1,0,0,,DM\n"
POLLS = [(POLL_MS, ["*"])]
# Gateways are killed twice as often as brokers are frozen or killed.
KINDS = ("gateway killed",) * 2 + ("broker killed", "broker stopped", "broker frozen")


def now_ms():
    return int(time.time() * 1000)


class Ledger:
    """Of each value of the variable its time in the controller, and the messages that brought it."""

    def __init__(self):
        self.times = {}
        self.data = collections.defaultdict(list)  # of each value: whether it was marked as history
        self.births = 0

    def on_message(self, topic, payload):
        kind = topic.split("/")[2]
        self.births += kind == "DBIRTH"
        if kind not in ("DBIRTH", "DDATA"):
            return
        for metric in sparkplug.metrics(payload):
            if sparkplug.INT_VALUE not in metric:
                continue
            value = metric[sparkplug.INT_VALUE]
            self.times.setdefault(value, metric[sparkplug.TIMESTAMP])
            if kind == "DDATA":
                self.data[value].append(bool(metric.get(sparkplug.IS_HISTORICAL)))

    def lost(self, kills):
        """Values that did not come, though the gateway lived, or was killed more than a poll later."""
        values = sorted(self.times)
        count = 0
        for before, after in zip(values, values[1:]):
            if after == before + 1:
                continue
            from_ms, to_ms = self.times[before], self.times[after]
            inside = [begin for begin, end in kills if end >= from_ms and begin <= to_ms]
            if not inside or inside[0] - from_ms > MOST_BEFORE_KILL_MS:
                count += after - before - 1
        return count

    def doubled(self):
        """How many values came more than once as data, and how many of them without the mark of history."""
        again = [marks[1:] for marks in self.data.values() if len(marks) > 1]
        return len(again), sum(not all(marks) for marks in again)


class Chaos:
    def __init__(self, fleet, seed):
        self.fleet = fleet
        self.random = random.Random(seed)
        self.machine = fleet.add(TAGS, POLLS, **OPTIONS)
        self.ledger = Ledger()
        self.kills = []  # when each began and ended
        fleet.subscriber = Subscriber(fleet.broker, self.ledger.on_message)
        fleet.broker.host_is_online(HOST)
        self.machine.start_gateway()
        self.wait_for_birth(0)

    def wait_for_birth(self, births):
        wait_until(lambda: self.ledger.births > births, "a birth of the device", 60)

    def kill_gateway(self):
        begin = now_ms()
        self.machine.gateway.kill()
        self.machine.gateway.wait()
        self.kills.append((begin, now_ms()))
        self.machine.start_gateway()

    def restart_broker(self, how):
        self.fleet.broker.end(how)
        time.sleep(self.random.uniform(0, 1))
        self.fleet.broker.start()
        self.fleet.subscriber.wait_for_broker(self.fleet.broker)
        self.fleet.broker.host_is_online(HOST)

    def freeze_broker(self):
        self.fleet.broker.process.send_signal(signal.SIGSTOP)
        time.sleep(self.random.uniform(0, 1.5 * KEEP_ALIVE_S))
        self.fleet.broker.process.send_signal(signal.SIGCONT)

    def trouble(self):
        kind = self.random.choice(KINDS)
        if kind == "gateway killed":
            self.kill_gateway()
        elif kind == "broker frozen":
            self.freeze_broker()
        else:
            self.restart_broker(signal.SIGKILL if kind == "broker killed" else signal.SIGTERM)
        time.sleep(self.random.expovariate(2))
        return kind

    def end(self):
        births = self.ledger.births
        self.kill_gateway()
        self.wait_for_birth(births)
        wait_until(lambda: self.machine.metrics().get("plc_gateway_journal_values", 1) == 0, "the last history", 60)


def measure(fleet, seed):
    """The number of values, of those lost, of those that came twice, and of those that did unmarked."""
    chaos = Chaos(fleet, seed)
    for _ in range(TROUBLES):
        chaos.trouble()
    chaos.end()
    return (len(chaos.ledger.times), chaos.ledger.lost(chaos.kills), *chaos.ledger.doubled())
