"""A recorded session as the rules see it: edge nodes with their connections, packets and messages, each with what was
known when it came: the metrics of the births before it, and which devices were alive."""
import collections
from dataclasses import dataclass, field

import mqtt
import payload as payloads

NAMESPACE = "spBv1.0"
NODE_KINDS = ("NBIRTH", "NDEATH", "NDATA", "NCMD")
DEVICE_KINDS = ("DBIRTH", "DDEATH", "DDATA", "DCMD")
NULL = "null"


@dataclass
class Message:
    """A publication, or a will."""
    n: int
    t: float
    topic: str
    qos: int
    retain: bool
    body: bytes
    kind: str = ""  # of the standard's namespace; empty for other topics, and for those that are not formed well
    group: str = ""
    node: str = ""
    device: str = ""
    payload: payloads.Payload | None = None
    findings: list = field(default_factory=list)
    born: bool = False          # NBIRTH was sent before it in its connection, and no NDEATH behind that
    alive: frozenset = frozenset()  # the devices that were born then
    known: list = field(default_factory=list)  # of DATA: the birth's metric for each of its metrics, or nothing

    def sequence(self):
        return self.payload.seq if self.payload else None

    def metrics(self):
        return self.payload.metrics if self.payload else []

    def is_birth(self):
        return self.kind in ("NBIRTH", "DBIRTH")

    def is_data(self):
        return self.kind in ("NDATA", "DDATA")


@dataclass
class Step:
    """A packet of a connection, or its end."""
    n: int
    t: float
    from_edge: bool = False
    packet: mqtt.Packet | None = None  # nothing: the end
    message: Message | None = None     # of a PUBLISH
    problem: str = ""                  # bytes that are no packet


@dataclass
class Connection:
    number: int
    opened: float
    steps: list = field(default_factory=list)
    connect: Step | None = None
    will: Message | None = None
    closed: Step | None = None
    closed_by: str = ""

    def messages(self, *kinds):
        """What the edge node published, all of it or that of some kinds."""
        return [step.message for step in self.steps
                if step.from_edge and step.message and (not kinds or step.message.kind in kinds)]

    def delivered(self):
        """What the broker published to it."""
        return [step.message for step in self.steps if step.message and not step.from_edge]

    def packets(self, kind, from_edge=True):
        return [step for step in self.steps if step.packet and step.packet.kind == kind and step.from_edge == from_edge]

    def subscriptions(self):
        return [(step, text, qos) for step in self.packets(mqtt.SUBSCRIBE) for text, qos in step.packet.filters]

    def bd_seq(self):
        metric = self.will.payload.get("bdSeq") if self.will and self.will.payload else None
        return metric.value if metric else None


@dataclass
class Node:
    group: str
    name: str
    connections: list = field(default_factory=list)
    notes: list = field(default_factory=list)  # entries of the record
    last_t: float = 0                          # of the record's last entry
    others: list = field(default_factory=list)  # the other nodes of the record

    def messages(self, *kinds):
        return [message for connection in self.connections for message in connection.messages(*kinds)]

    def topic(self, kind, device=""):
        return "/".join([NAMESPACE, self.group, kind, self.name] + ([device] if device else []))

    def notes_of(self, *events):
        return [note for note in self.notes if note["event"] in events]

    def label(self):
        return f"{self.group}/{self.name}"


def value_of(metric):
    """What can be compared: null, or the field and its value, in which NaN equals itself."""
    return NULL if metric.is_null or metric.value_field is None else (metric.value_field, repr(metric.value))


def classify(message):
    """Fills in what the topic says, when it is one of the standard's for nodes and devices."""
    parts = message.topic.split("/")
    if len(parts) < 4 or parts[0] != NAMESPACE or parts[2] not in NODE_KINDS + DEVICE_KINDS:
        return message
    if len(parts) == (5 if parts[2] in DEVICE_KINDS else 4) and all(parts):
        message.kind, message.group, message.node = parts[2], parts[1], parts[3]
        message.device = parts[4] if len(parts) == 5 else ""
        message.payload, message.findings = payloads.decode(message.body)
    return message


def message_of(packet, n, t):
    return classify(Message(n, t, packet.topic, packet.qos, packet.retain, packet.payload))


def take_packet(connection, entry):
    step = Step(entry["n"], entry["t"], entry["dir"] == "in")
    connection.steps.append(step)
    version = connection.connect.packet.version if connection.connect else 4
    try:
        step.packet = mqtt.parse(bytes.fromhex(entry["hex"]), version)
    except (mqtt.MalformedPacket, ValueError) as problem:
        step.problem = str(problem)
        return
    if step.packet.kind == mqtt.PUBLISH:
        step.message = message_of(step.packet, step.n, step.t)
    if step.packet.kind == mqtt.CONNECT and step.from_edge:
        connection.connect = step
        if step.packet.will:
            connection.will = message_of(step.packet.will, step.n, step.t)


def owner_of(connection):
    """Group and node that a connection speaks for most of the time; nothing for hosts and others."""
    spoken = [(message.group, message.node) for message in [connection.will, *connection.messages()]
              if message and message.kind and message.kind not in ("NCMD", "DCMD")]
    for _, text, _ in connection.subscriptions():
        parts = text.split("/")
        if len(parts) >= 4 and parts[0] == NAMESPACE and parts[2] in ("NCMD", "DCMD"):
            spoken.append((parts[1], parts[3]))
    return collections.Counter(spoken).most_common(1)[0][0] if spoken else None


class Births:
    """What the births of one connection have told so far."""

    def __init__(self):
        self.born, self.alive = False, set()
        self.tables = {}  # of the node under "", of devices under their names: metrics by name and by alias

    def take(self, message):
        message.born, message.alive = self.born, frozenset(self.alive)
        if message.is_birth():
            if message.kind == "NBIRTH":
                self.born, self.alive, self.tables = True, set(), {}
            else:
                self.alive.add(message.device)
            by_name = {metric.name: metric for metric in message.metrics() if metric.name is not None}
            by_alias = {metric.alias: metric for metric in message.metrics() if metric.alias is not None}
            self.tables[message.device] = by_name, by_alias
        elif message.is_data():
            by_name, by_alias = self.tables.get(message.device, ({}, {}))
            message.known = [by_alias.get(metric.alias) if metric.name is None else by_name.get(metric.name)
                             for metric in message.metrics()]
        elif message.kind == "DDEATH":
            self.alive.discard(message.device)
        elif message.kind == "NDEATH":
            self.born, self.alive = False, set()


def read_connections(entries):
    connections = {}
    for entry in entries:
        if "conn" not in entry:
            continue
        number = entry["conn"]
        if entry.get("event") == "open" or number not in connections:
            connections[number] = Connection(number, entry["t"])
        connection = connections[number]
        if "hex" in entry:
            take_packet(connection, entry)
        elif entry.get("event") == "close":
            connection.closed = Step(entry["n"], entry["t"])
            connection.closed_by = entry.get("by", "")
    return connections


def read_nodes(entries):
    """The edge nodes of a record, in the order in which they came."""
    nodes, unread = {}, []
    connections = read_connections(entries)
    for number in sorted(connections):
        connection = connections[number]
        owner = owner_of(connection)
        if owner is None:
            # It may have been a node's, whose CONNECT nobody read.
            unread += [] if connection.connect else [{"n": 0, "t": connection.opened, "event": "unread"}]
            continue
        births = Births()
        for message in connection.messages():
            births.take(message)
        nodes.setdefault(owner, Node(*owner)).connections.append(connection)
    for node in nodes.values():
        node.notes = sorted([entry for entry in entries if "conn" not in entry and "event" in entry
                             and entry.get("edge", node.label()) == node.label()] + unread, key=lambda note: note["t"])
        node.last_t = entries[-1]["t"]
        node.others = [other for other in nodes.values() if other is not node]
    return list(nodes.values())
