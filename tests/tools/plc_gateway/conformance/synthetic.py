"""A session as a faultless gateway would leave it, made without one: two outages of the broker, a dead controller, a
host that goes and comes, commands, history, and more than 256 messages. It is made of forms that can still be changed
before they become packets, which is how violations are planted."""
import json
import struct

import encoder
import mqtt
from datatypes import BOOLEAN, STRING, INT64, UINT64

START_MS = 1700000000000
GROUP, NODE, DEVICE, HOST = "Plant", "press1", "press1", "scada"
STATE = f"spBv1.0/STATE/{HOST}"
FENCE = f"plc-gateway/{GROUP}/{NODE}/fence"

# Of the device: name, datatype, the field of its value, a value.
VARIABLES = [
    ("Counter", 3, "int_value", 0), ("Signed8", 1, "int_value", 0xFE), ("Signed16", 2, "int_value", 0xFFFFFFFE),
    ("Signed64", 4, "long_value", 2 ** 64 - 5), ("Byte", 5, "int_value", 255), ("Word", 6, "int_value", 65535),
    ("Double word", 7, "int_value", 2 ** 32 - 1), ("Long word", 8, "long_value", 2 ** 64 - 1),
    ("Real", 9, "float_value", 1.5), ("Long real", 10, "double_value", -2.25), ("Bit", 11, "boolean_value", True),
    ("Text", 12, "string_value", "M\u00fcller"), ("Date", 17, "bytes_value", b"\1\2\3"),
    ("Array8", 22, "bytes_value", b"\1\2"), ("Array32", 24, "bytes_value", struct.pack("<2i", 1, -2)),
    ("Array64", 29, "bytes_value", struct.pack("<2Q", 1, 2)), ("Reals", 30, "bytes_value", struct.pack("<f", 1)),
    ("Bits", 32, "bytes_value", b"\3\0\0\0\xA0"), ("Texts", 33, "bytes_value", b"a\0b\0")]
FIRST_ALIAS = 10
GOOD, BAD = [("Quality", {"type": 3, "int_value": 192})], [("Quality", {"type": 3, "int_value": 0})]
COMMAND_ALIASES = {"Name": 1, "Result": 2, "Reason": 3, "Time": 4}
POLLS_ALIAS = 5


def topic(kind, device=""):
    return "/".join(["spBv1.0", GROUP, kind, NODE] + ([device] if device else []))


class Script:
    """Forms of packets and notes, in order. Time goes on by a millisecond for each."""

    def __init__(self):
        self.forms, self.now = [], START_MS
        self.number = self.seq = self.polls = self.counter = self.identifier = 0
        self.version = 4

    def add(self, what, **form):
        self.now += 1
        self.forms.append({"what": what, "t": self.now, "conn": self.number, **form})
        return self.forms[-1]

    def note(self, event, **more):
        self.add("note", event=event, **more)

    def wait(self, ms):
        self.now += ms

    # From the node.

    def publish(self, kind, metrics, device="", with_seq=True):
        payload = {"timestamp": self.now, "metrics": metrics}
        if with_seq:
            payload["seq"] = self.seq
            self.seq = (self.seq + 1) % 256
        return self.add("PUBLISH", dir="in", topic=topic(kind, device), qos=0, retain=False, payload=payload)

    def connect(self, bd_seq, version=4):
        self.number += 1
        self.version, self.bd_seq = version, bd_seq
        self.add("open")
        payload = {"timestamp": self.now, "metrics": [self.bd_seq_metric()]}
        self.add("CONNECT", dir="in", version=version, client="press1", clean=True, keep_alive_s=10,
                 will={"topic": topic("NDEATH"), "qos": 1, "retain": False, "payload": payload})
        self.add("CONNACK", dir="out")
        filters = [(topic("NCMD"), 1), (topic("DCMD", DEVICE), 1), (STATE, 1)]
        self.add("SUBSCRIBE", dir="in", filters=filters)
        self.add("SUBACK", dir="out")

    def bd_seq_metric(self):
        return {"name": "bdSeq", "timestamp": self.now, "datatype": INT64, "long_value": self.bd_seq}

    def node_birth(self):
        self.seq = 0
        texts = [{"name": f"Last Command/{name}", "alias": COMMAND_ALIASES[name], "timestamp": self.now,
                  "datatype": STRING, "string_value": text}
                 for name, text in (("Name", ""), ("Result", "done"), ("Reason", ""))]
        self.publish("NBIRTH", [self.bd_seq_metric(), {"name": "Node Control/Rebirth", "timestamp": self.now,
                                                       "datatype": BOOLEAN, "boolean_value": False}, *texts,
                                {"name": "Last Command/Time", "alias": COMMAND_ALIASES["Time"], "timestamp": self.now,
                                 "datatype": INT64, "is_null": True},
                                {"name": "Polls", "alias": POLLS_ALIAS, "timestamp": self.now, "datatype": UINT64,
                                 "long_value": self.polls}])

    def device_birth(self):
        metrics = [{"name": name, "alias": FIRST_ALIAS + index, "timestamp": self.now, "datatype": datatype,
                    "properties": GOOD, field: self.counter if name == "Counter" else value}
                   for index, (name, datatype, field, value) in enumerate(VARIABLES)]
        self.publish("DBIRTH", metrics, DEVICE)

    def births(self):
        self.node_birth()
        self.device_birth()

    def data(self):
        self.counter += 1
        self.publish("DDATA", [{"alias": FIRST_ALIAS, "timestamp": self.now, "int_value": self.counter}], DEVICE)

    def bad_and_good(self):
        self.publish("DDATA", [{"alias": FIRST_ALIAS, "timestamp": self.now, "properties": BAD,
                                "is_null": True}], DEVICE)
        self.counter += 1
        self.publish("DDATA", [{"alias": FIRST_ALIAS, "timestamp": self.now, "properties": GOOD,
                                "int_value": self.counter}], DEVICE)

    def history(self, age):
        self.publish("DDATA", [{"alias": FIRST_ALIAS, "timestamp": self.now - age, "is_historical": True,
                                "int_value": self.counter}], DEVICE)

    def node_data(self):
        self.polls += 1
        self.publish("NDATA", [{"alias": POLLS_ALIAS, "timestamp": self.now, "long_value": self.polls}])

    def json(self):
        form = {"value": self.counter, "quality": "good", "time": "2023-11-14T22:13:20.000Z"}
        self.identifier += 1
        self.add("PUBLISH", dir="in", topic="plant/press1/Counter", qos=1, retain=False, identifier=self.identifier,
                 body=json.dumps(form).encode())
        self.add("PUBACK", dir="out", identifier=self.identifier)

    def fence(self, answered=True):
        self.identifier += 1
        self.add("PUBLISH", dir="in", topic=FENCE, qos=1, retain=False, identifier=self.identifier, body=b"")
        if answered:
            self.add("PUBACK", dir="out", identifier=self.identifier)

    def end(self, by):
        self.add("close", by=by)

    def goodbye(self):
        self.publish("NDEATH", [self.bd_seq_metric()], with_seq=False)
        self.add("DISCONNECT", dir="in", reason=mqtt.WITH_WILL if self.version == 5 else 0)
        self.end("client")

    # From hosts.

    def state(self, online, time, host=HOST):
        body = json.dumps({"online": online, "timestamp": time}).encode()
        self.add("PUBLISH", dir="out", topic=f"spBv1.0/STATE/{host}", qos=1, retain=True, identifier=1, body=body)
        self.wait(2000)

    def command(self, kind, metrics, device=""):
        self.add("PUBLISH", dir="out", topic=topic(kind, device), qos=0, retain=False,
                 payload={"timestamp": self.now, "metrics": metrics})

    def write(self):
        self.command("DCMD", [{"alias": FIRST_ALIAS, "timestamp": self.now, "int_value": 7}], DEVICE)
        self.publish("NDATA", [{"alias": COMMAND_ALIASES["Name"], "timestamp": self.now, "string_value": "Counter"},
                               {"alias": COMMAND_ALIASES["Result"], "timestamp": self.now, "string_value": "refused"},
                               {"alias": COMMAND_ALIASES["Reason"], "timestamp": self.now, "string_value": "busy"},
                               {"alias": COMMAND_ALIASES["Time"], "timestamp": self.now, "long_value": self.now}])


def first_connection(script):
    script.connect(0)
    script.state(True, 500, host="other")
    script.state(False, 100)
    script.state(True, 90)
    script.state(True, 200)
    script.births()
    script.fence()
    for _ in range(3):
        script.data()
        script.node_data()
    script.fence()
    script.bad_and_good()
    script.json()
    script.fence()
    script.note("device-lost")
    script.wait(2000)
    script.publish("DDEATH", [], DEVICE)
    script.node_data()
    script.wait(15000)
    script.note("device-back")
    script.device_birth()
    script.data()
    script.fence()
    script.wait(12000)
    script.write()
    script.state(False, 150)
    script.command("NCMD", [{"name": "Node Control/Rebirth", "timestamp": script.now, "boolean_value": True}])
    script.births()
    for _ in range(300):
        script.data()
    script.fence()
    script.wait(12000)
    script.data()
    script.fence(answered=False)
    script.end("broker")


def make_session():
    """The forms; the same each time."""
    script = Script()
    script.note("fresh")
    script.note("changes", metric="Counter", limit_ms=30000)
    script.note("started")
    script.note("primary-host", host=HOST)
    first_connection(script)
    script.wait(5000)
    script.connect(1)
    script.state(True, 200)
    script.births()
    script.history(6000)
    script.data()
    script.history(5000)
    script.fence()
    script.wait(12000)
    script.state(False, 300)
    script.goodbye()
    script.wait(12000)
    script.connect(2, version=5)
    script.state(True, 400)
    script.births()
    script.data()
    script.fence(answered=False)
    script.wait(15000)
    script.end("client")
    script.connect(3, version=5)
    script.state(True, 400)
    script.births()
    script.history(16000)
    script.fence()
    script.wait(12000)
    script.note("stopping")
    script.goodbye()
    script.wait(60000)
    script.note("up")
    return script.forms


def packet_of(form, version):
    what = form["what"]
    if what == "raw":
        return form["bytes"]
    if what == "CONNECT":
        will = form["will"] and mqtt.Packet(mqtt.PUBLISH, topic=form["will"]["topic"], qos=form["will"]["qos"],
                                            retain=form["will"]["retain"],
                                            payload=encoder.encode(form["will"]["payload"]))
        return mqtt.connect(form["client"], version, will, form["keep_alive_s"], form["clean"])
    if what == "PUBLISH":
        body = form["body"] if "body" in form else encoder.encode(form["payload"])
        return mqtt.publish(mqtt.Packet(mqtt.PUBLISH, version, form.get("identifier", 1), form["topic"], body,
                                        form["qos"], form["retain"]))
    if what == "SUBSCRIBE":
        return mqtt.subscribe(1, form["filters"], version)
    if what == "SUBACK":
        return mqtt.suback(mqtt.SUBACK, 1, [1, 1, 1], version)
    if what == "PUBACK":
        return mqtt.acknowledge(mqtt.PUBACK, form["identifier"])
    return mqtt.connack(version) if what == "CONNACK" else mqtt.disconnect(version, form["reason"])


def entries_of(forms):
    """The record of these forms."""
    entries, versions = [], {}
    for n, form in enumerate(forms, 1):
        entry = {"n": n, "t": float(form["t"])}
        if form["what"] == "note":
            entries.append({**{key: value for key, value in form.items() if key not in ("what", "conn")}, **entry})
            continue
        entry["conn"] = form["conn"]
        if form["what"] in ("open", "close"):
            entries.append({**entry, "event": form["what"], "by": form.get("by", "")})
            continue
        if form["what"] == "CONNECT":
            versions[form["conn"]] = form["version"]
        entries.append({**entry, "dir": form["dir"], "hex": packet_of(form, versions[form["conn"]]).hex()})
    return entries
