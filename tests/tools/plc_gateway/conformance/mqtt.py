"""Packets of MQTT 3.1.1 and 5 from bytes and to bytes, as the broker of these tests and the checker need them."""
import struct
from dataclasses import dataclass, field

(CONNECT, CONNACK, PUBLISH, PUBACK, PUBREC, PUBREL, PUBCOMP, SUBSCRIBE, SUBACK, UNSUBSCRIBE, UNSUBACK, PINGREQ,
 PINGRESP, DISCONNECT) = range(1, 15)
NAMES = dict(enumerate("CONNECT CONNACK PUBLISH PUBACK PUBREC PUBREL PUBCOMP SUBSCRIBE SUBACK UNSUBSCRIBE UNSUBACK "
                       "PINGREQ PINGRESP DISCONNECT".split(), 1))
SESSION_EXPIRY = 0x11
WITH_WILL = 0x04  # the reason of a DISCONNECT after which the broker publishes the will

# How each property of MQTT 5 is laid out.
PROPERTY_KINDS = {**dict.fromkeys((0x01, 0x17, 0x19, 0x24, 0x25, 0x28, 0x29, 0x2A), "byte"),
                  **dict.fromkeys((0x13, 0x21, 0x22, 0x23), "two"), **dict.fromkeys((0x02, 0x11, 0x18, 0x27), "four"),
                  **dict.fromkeys((0x03, 0x08, 0x12, 0x15, 0x1A, 0x1C, 0x1F), "text"),
                  **dict.fromkeys((0x09, 0x16), "bytes"), 0x0B: "varint", 0x26: "pair"}


class MalformedPacket(Exception):
    """Bytes that are no packet of MQTT."""


@dataclass
class Packet:
    """What each kind of packet does not have keeps its default."""
    kind: int
    version: int = 4
    identifier: int = 0
    topic: str = ""
    payload: bytes = b""
    qos: int = 0
    retain: bool = False
    duplicate: bool = False
    reason: int = 0
    properties: dict = field(default_factory=dict)
    filters: list = field(default_factory=list)  # of (text, QoS); of UNSUBSCRIBE with QoS 0
    client: str = ""
    clean: bool = False
    keep_alive_s: int = 0
    will: "Packet | None" = None  # a PUBLISH that was not sent


class Reader:
    def __init__(self, data):
        self.data, self.at = data, 0

    def take(self, count):
        if self.at + count > len(self.data):
            raise MalformedPacket("a packet is shorter than it says")
        self.at += count
        return self.data[self.at - count:self.at]

    def left(self):
        return len(self.data) - self.at

    def byte(self):
        return self.take(1)[0]

    def two(self):
        return struct.unpack(">H", self.take(2))[0]

    def four(self):
        return struct.unpack(">I", self.take(4))[0]

    def bytes(self):
        return self.take(self.two())

    def text(self):
        try:
            return self.bytes().decode("utf-8")
        except UnicodeDecodeError as problem:
            raise MalformedPacket("a text is not UTF-8") from problem

    def pair(self):
        return self.text(), self.text()

    def varint(self):
        value = shift = 0
        while True:
            byte = self.byte()
            value |= (byte & 0x7F) << shift
            if not byte & 0x80:
                return value
            shift += 7
            if shift > 21:
                raise MalformedPacket("a length has more than four bytes")

    def properties(self):
        """Of properties that may stand several times the last one."""
        end, result = self.varint(), {}
        end += self.at
        while self.at < end:
            number = self.varint()
            if number not in PROPERTY_KINDS:
                raise MalformedPacket(f"property {number} does not exist")
            result[number] = getattr(self, PROPERTY_KINDS[number])()
        return result


def split(buffer):
    """The first packet's bytes, nothing when it is not whole yet."""
    length = shift = 0
    for at in range(1, 5):
        if at >= len(buffer):
            return None
        length |= (buffer[at] & 0x7F) << shift
        shift += 7
        if not buffer[at] & 0x80:
            return bytes(buffer[:at + 1 + length]) if len(buffer) >= at + 1 + length else None
    raise MalformedPacket("a length has more than four bytes")


def parse_connect(reader):
    if reader.text() != "MQTT":
        raise MalformedPacket("the protocol is not MQTT")
    packet = Packet(CONNECT, version=reader.byte())
    if packet.version not in (4, 5):
        raise MalformedPacket(f"protocol level {packet.version}")
    flags = reader.byte()
    packet.clean, packet.keep_alive_s = bool(flags & 2), reader.two()
    if packet.version == 5:
        packet.properties = reader.properties()
    packet.client = reader.text()
    if flags & 4:
        properties = reader.properties() if packet.version == 5 else {}
        packet.will = Packet(PUBLISH, packet.version, topic=reader.text(), payload=reader.bytes(), qos=flags >> 3 & 3,
                             retain=bool(flags & 0x20), properties=properties)
    if flags & 0x80:
        reader.text()  # the user's name
    if flags & 0x40:
        reader.bytes()  # the password
    return packet


def parse_publish(flags, reader, version):
    packet = Packet(PUBLISH, version, qos=flags >> 1 & 3, retain=bool(flags & 1), duplicate=bool(flags & 8))
    packet.topic = reader.text()
    if packet.qos:
        packet.identifier = reader.two()
    if version == 5:
        packet.properties = reader.properties()
    packet.payload = reader.take(reader.left())
    return packet


def parse(data, version):
    """A whole packet from its bytes. A CONNECT tells its version itself."""
    reader = Reader(data)
    first = reader.byte()
    kind = first >> 4
    reader.varint()
    if kind == CONNECT:
        return parse_connect(reader)
    if kind == PUBLISH:
        return parse_publish(first & 15, reader, version)
    packet = Packet(kind, version)
    if kind in (SUBSCRIBE, UNSUBSCRIBE, SUBACK, UNSUBACK, PUBACK, PUBREC, PUBREL, PUBCOMP):
        packet.identifier = reader.two()
    if kind in (SUBSCRIBE, UNSUBSCRIBE):
        if version == 5:
            packet.properties = reader.properties()
        while reader.left():
            packet.filters.append((reader.text(), reader.byte() & 3 if kind == SUBSCRIBE else 0))
    elif kind == CONNACK:
        reader.byte()
        packet.reason = reader.byte()
    elif kind == DISCONNECT and reader.left():
        packet.reason = reader.byte()
    elif kind not in NAMES:
        raise MalformedPacket(f"packets of kind {kind} do not exist")
    return packet


def text_bytes(text):
    data = text.encode("utf-8") if isinstance(text, str) else text
    return struct.pack(">H", len(data)) + data


def build(kind, flags, body):
    length, head = len(body), bytearray([kind << 4 | flags])
    while True:
        length, digit = length >> 7, length & 0x7F
        head.append(digit | (0x80 if length else 0))
        if not length:
            return bytes(head) + body


def connect(client, version=4, will=None, keep_alive_s=10, clean=True, session_expiry_s=0):
    flags = 2 if clean else 0
    body = text_bytes(client)
    if will is not None:
        flags |= 4 | will.qos << 3 | (0x20 if will.retain else 0)
        body += (b"\0" if version == 5 else b"") + text_bytes(will.topic) + text_bytes(will.payload)
    properties = b""
    if version == 5:
        expiry = struct.pack(">BI", SESSION_EXPIRY, session_expiry_s) if session_expiry_s else b""
        properties = bytes([len(expiry)]) + expiry
    return build(CONNECT, 0, text_bytes("MQTT") + struct.pack(">BBH", version, flags, keep_alive_s) + properties + body)


def publish(packet):
    """Of a PUBLISH."""
    body = text_bytes(packet.topic)
    if packet.qos:
        body += struct.pack(">H", packet.identifier)
    if packet.version == 5:
        body += b"\0"
    flags = packet.qos << 1 | (1 if packet.retain else 0) | (8 if packet.duplicate else 0)
    return build(PUBLISH, flags, body + packet.payload)


def subscribe(identifier, filters, version=4):
    body = struct.pack(">H", identifier) + (b"\0" if version == 5 else b"")
    return build(SUBSCRIBE, 2, body + b"".join(text_bytes(text) + bytes([qos]) for text, qos in filters))


def acknowledge(kind, identifier):
    """PUBACK, PUBREC, PUBREL or PUBCOMP."""
    return build(kind, 2 if kind == PUBREL else 0, struct.pack(">H", identifier))


def connack(version, reason=0):
    return build(CONNACK, 0, bytes([0, reason]) + (b"\0" if version == 5 else b""))


def suback(kind, identifier, codes, version):
    body = struct.pack(">H", identifier) + (b"\0" if version == 5 else b"")
    return build(kind, 0, body + (bytes(codes) if kind == SUBACK or version == 5 else b""))


def disconnect(version=4, reason=0):
    return build(DISCONNECT, 0, bytes([reason, 0]) if version == 5 and reason else b"")


def matches(text, topic):
    """Whether a filter with its wildcards takes a topic."""
    parts, levels = text.split("/"), topic.split("/")
    if topic.startswith("$") and parts[0] in ("+", "#"):
        return False
    for index, part in enumerate(parts):
        if part == "#":
            return True
        if index >= len(levels) or part not in ("+", levels[index]):
            return False
    return len(parts) == len(levels)
