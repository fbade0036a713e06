#!/usr/bin/env python3
"""Writes the sample captures of dissector/samples/ from the literal frames of vectors/, the same bytes on every run.

make_samples.py [FOLDER]    FOLDER: where to write, by default dissector/samples beside this file
"""

import json
import pathlib
import struct
import sys

HERE = pathlib.Path(__file__).resolve().parent
CLIENT, SERVER = bytes([192, 0, 2, 20]), bytes([192, 0, 2, 10])
CLIENT_PORT, SERVER_PORT = 40000, 9500
START_S = 1767225600  # 2026-01-01, so that no capture depends on when it was made
STEP_US = 1500
PORTS_OF_A_CAPTURE = 100
SYN, ACK, PSH, FIN, RST = 0x02, 0x10, 0x08, 0x01, 0x04


def checksum(data):
    if len(data) % 2:
        data += b"\0"
    total = sum(struct.unpack(">%dH" % (len(data) // 2), data))
    while total > 0xFFFF:
        total = (total & 0xFFFF) + (total >> 16)
    return total ^ 0xFFFF


class Capture:
    """A capture of TCP connections between one client and one server, Ethernet framing, microsecond stamps.

    Captures of different numbers have no connection in common, so that they can be joined.
    """

    def __init__(self, number=0):
        self.packets = []
        self.time_us = 0
        self.port = CLIENT_PORT + number * PORTS_OF_A_CAPTURE - 1

    def connect(self, first_byte=1000):
        self.port += 1
        self.next = {True: first_byte, False: first_byte + 4000}
        self.segment(True, b"", SYN)
        self.segment(False, b"", SYN | ACK)
        self.segment(True, b"", ACK)

    def segment(self, from_client, payload, flags=PSH | ACK):
        self.time_us += STEP_US
        source, target = (CLIENT, SERVER) if from_client else (SERVER, CLIENT)
        ports = (self.port, SERVER_PORT) if from_client else (SERVER_PORT, self.port)
        acknowledged = self.next[not from_client] if flags & ACK else 0
        head = struct.pack(">HHIIBBHHH", *ports, self.next[from_client], acknowledged, 5 << 4, flags, 8192, 0, 0)
        pseudo = source + target + struct.pack(">BBH", 0, 6, len(head) + len(payload))
        tcp = head[:16] + struct.pack(">H", checksum(pseudo + head + payload)) + head[18:] + payload
        ip = struct.pack(">BBHHHBBH", 0x45, 0, 20 + len(tcp), len(self.packets), 0x4000, 64, 6, 0) + source + target
        ip = ip[:10] + struct.pack(">H", checksum(ip)) + ip[12:]
        ethernet = bytes([2, 0, 0, 0, 0, 2 - from_client, 2, 0, 0, 0, 0, 1 + from_client]) + b"\x08\x00"
        self.packets.append((self.time_us, ethernet + ip + tcp))
        self.next[from_client] = (self.next[from_client] + len(payload) + (1 if flags & (SYN | FIN) else 0)) % 2**32

    def request(self, payload):
        self.segment(True, payload)

    def reply(self, payload):
        self.segment(False, payload)

    def close(self):
        self.segment(True, b"", RST | ACK)

    def write(self, path):
        out = struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, 1)
        for time_us, data in self.packets:
            out += struct.pack("<IIII", START_S + time_us // 1000000, time_us % 1000000, len(data), len(data)) + data
        path.write_bytes(out)


def load_vectors():
    vectors = {}
    for path in sorted((HERE.parent / "vectors").glob("*.json")):
        vectors[path.stem] = json.loads(path.read_text(encoding="utf-8"))["vectors"]
    return vectors


def frames_of(vector):
    """The request and the reply bytes of each exchange."""
    def join(fields):
        return bytes.fromhex("".join(text for _, text in fields))
    return [(join(exchange["request"]), join(exchange["reply"])) for exchange in vector["exchanges"]]


def named(vectors, start):
    found = [vector for group in vectors.values() for vector in group if vector["name"].startswith(start)]
    if len(found) != 1:
        raise SystemExit("%d vectors start with '%s'" % (len(found), start))
    return frames_of(found[0])


def play(capture, exchanges):
    for request, reply in exchanges:
        capture.request(request)
        if reply:
            capture.reply(reply)


def renumbered(exchanges, first):
    """The exchanges under sequence numbers from `first` on."""
    for index, (request, reply) in enumerate(exchanges):
        stamp = struct.pack(">H", first + index)
        yield request[:8] + stamp + request[10:], reply[:8] + stamp + reply[10:]


def write_subjects(vectors, folder):
    """One capture for each vector file, one connection for each vector."""
    for number, (subject, group) in enumerate(vectors.items()):
        capture = Capture(number)
        for vector in group:
            capture.connect()
            play(capture, frames_of(vector))
            capture.close()
        capture.write(folder / (subject + ".pcap"))


def write_session(vectors, folder):
    """A connection as the driver makes it: the directory, a local read, a write, a bit."""
    capture = Capture(len(vectors))
    capture.connect()
    play(capture, named(vectors, "the directory frames carry 0 and 1"))
    exchanges = []
    for start in ("a local variable carries the number", "ev_plc_write_array_words_local", "ev_plc_write_bits_local"):
        exchanges += named(vectors, start)
    play(capture, renumbered(exchanges, 0))
    capture.close()
    capture.write(folder / "session.pcap")


def write_degenerate(vectors, folder):
    """Every request that is not what its head says, on one connection, and a read behind them."""
    exchanges = []
    for group in vectors.values():
        for vector in group:
            if any("quirks" in exchange for exchange in vector["exchanges"]):
                exchanges += frames_of(vector)
    exchanges += named(vectors, "a global plain variable is resolved under its bare name")
    capture = Capture(len(vectors) + 1)
    capture.connect()
    play(capture, renumbered(exchanges, 0))
    capture.close()
    capture.write(folder / "degenerate.pcap")


def with_head(sequence, function, body):
    """A frame with this number, class and command."""
    length = 2 + len(body)
    return struct.pack(">IIHH", length, length ^ 0xFFFFFFFF, sequence, function) + body


def write_hostile_names(vectors, folder, number):
    """Names that a terminal would obey: of variables and of programs, with the request and the reply that hold them."""
    names = ["x\nviolation: forged", "x\r\t\x1b[2J\x7f", "x\x9b2J\x85", "x\u202edegrof\u2066", "x\u2028y\u2029z",
             "\ufeff\u200b\xad", "\U000e0041x", "Temperatur \xe4\u4e2d\U0001f600",
             "\u2800x\u3000\ue000\uf8ff\U000f0000\U0010fffd"]
    capture = Capture(number)
    for index, name in enumerate(names):
        units = name.encode("utf-16-be")
        capture.connect()
        play(capture, [(with_head(0, 0x0C2C, bytes(4)), with_head(0, 0x0C2C, bytes(4)))])
        record = bytes([0, 0, len(units) + 2, 0, index + 1]) + units + b"\0"
        play(capture, [(with_head(1, 0x0C25, bytes(4)), with_head(1, 0x0C25, b"\0\0\1" + record))])
        block = b"\0\1\0\0\0\1" + struct.pack(">H", len(units) // 2) + units
        handle = bytes([0, 16, 0, 0, 6, 1, 2, 0, index]) + bytes(15)
        play(capture, [(with_head(0, 0x0C28, block), with_head(0, 0x0C28, b"\0\0\1\0\1" + handle))])
        reference = b"\0\0\1\0\0\0" + bytes([0, 6, 0, 1, 1, 2, 0, index])
        play(capture, [(with_head(1, 0x1E09, reference), with_head(1, 0x1E09, b"\0\0\x12\x34"))])
        capture.close()
    capture.write(folder / "hostile_names.pcap")


def with_status(frame, status):
    """A reply with this status; of 14 bytes at least, as the status ends there."""
    return frame[:12] + struct.pack(">H", status) + frame[14:]


def as_answer_of(frame, function):
    """A reply under this class and command."""
    return frame[:10] + struct.pack(">H", function) + frame[12:]


def write_refusals(vectors, folder, number):
    """Replies with a status that is not 0, and replies that bear another request's class or command. Most hold what was
    asked for as well, as a controller may leave old bytes there."""
    directory = named(vectors, "the directory frames carry 0 and 1")
    resolve, value = named(vectors, "a global plain variable is resolved under its bare name")
    start, records = directory
    bare = with_head(1, 0x1E09, b"\0\0")
    writes = [with_head(1, 0x1E01, bytes([0, 6, 0, 0, 0, 1]) + value[0][22:] + b"\x12\x34"),
              with_head(1, 0x1E03, bytes([0, 1, 6]) + value[0][22:] + b"\1\0\x10"),
              with_head(1, 0x3200, b"\1\6" + value[0][24:]), with_head(1, 0x3300, b"\1\6" + value[0][24:])]
    answers = [(request, with_head(1, struct.unpack(">H", request[10:12])[0], b"\0\0")) for request in writes]
    connections = [
        [start, records, resolve, value], [(start[0], with_status(start[1], 0x0013))],
        [start, (records[0], with_status(records[1], 0x0013))], [resolve, (value[0], with_status(value[1], 0x1300))],
        [resolve, (value[0], with_status(bare, 0x0011))], [resolve, (value[0], bare)],
        [(resolve[0], with_status(resolve[1], 0x0004)), value],
        [(resolve[0], as_answer_of(resolve[1], 0x0C25)), value],
        [resolve, (value[0], as_answer_of(value[1], 0x1E01))],
        [resolve, (value[0], with_status(as_answer_of(value[1], 0x3209), 0x0013))]]
    connections += [[resolve, answer] for answer in answers]
    connections += [[resolve, (request, with_status(reply, 0x0013))] for request, reply in answers]
    capture = Capture(number)
    for exchanges in connections:
        capture.connect()
        play(capture, exchanges)
        capture.close()
    capture.connect()
    play(capture, [resolve, value])
    capture.reply(with_status(value[1], 0x0013))
    capture.close()
    capture.write(folder / "refusals.pcap")


def fault_bad_complement(capture, resolve, value):
    capture.request(resolve[0][:7] + b"\x00" + resolve[0][8:])
    capture.reply(resolve[1])
    play(capture, [value])


def fault_bad_reply_complement(capture, resolve, value):
    capture.request(resolve[0])
    capture.reply(resolve[1][:4] + bytes(4) + resolve[1][8:])
    play(capture, [value])


def fault_cut_request(capture, resolve, value):
    play(capture, [(resolve[0][:-2], resolve[1]), value])


def fault_cut_reply(capture, resolve, value):
    play(capture, [(resolve[0], resolve[1][:30]), value])


def fault_surplus(capture, resolve, value):
    play(capture, [(resolve[0], resolve[1] + b"\xde\xad\xbe\xef"), value])


def fault_split_request(capture, resolve, value):
    capture.request(resolve[0][:9])
    capture.request(resolve[0][9:])
    capture.reply(resolve[1])
    play(capture, [value])


def fault_split_reply(capture, resolve, value):
    capture.request(resolve[0])
    for start in range(0, len(resolve[1]), 15):
        capture.reply(resolve[1][start:start + 15])
    play(capture, [value])


def fault_merged(capture, resolve, value):
    capture.request(resolve[0] + value[0])
    capture.reply(resolve[1] + value[1])


def fault_missing_reply(capture, resolve, value):
    """The driver gives a connection up whose reply does not come, and makes the next call on a new one."""
    play(capture, [(resolve[0], b"")])
    capture.close()
    capture.connect()
    play(capture, renumbered([resolve, value], 1))


def fault_unanswered(capture, resolve, value):
    play(capture, [(resolve[0], b"")])
    play(capture, renumbered([resolve, value], 1))


def fault_unknown_handle(capture, resolve, value):
    play(capture, [resolve, (value[0][:-1] + b"\xee", value[1])])


def fault_wrong_sequence(capture, resolve, value):
    play(capture, [(resolve[0], resolve[1][:9] + b"\x77" + resolve[1][10:])])
    play(capture, [(value[0][:9] + b"\x09" + value[0][10:], value[1][:9] + b"\x09" + value[1][10:])])


def fault_unsolicited_reply(capture, resolve, value):
    play(capture, [resolve])
    capture.reply(resolve[1])
    play(capture, [value])


def fault_garbage_reply(capture, resolve, value):
    play(capture, [(resolve[0], bytes(range(0x80, 0xA0))), value])


def fault_wrong_count(capture, resolve, value):
    play(capture, [(resolve[0][:17] + b"\x05" + resolve[0][18:], resolve[1])])
    play(capture, [(value[0][:14] + b"\x03" + value[0][15:], value[1])])


def fault_short_value(capture, resolve, value):
    head = struct.pack(">II", 3, 0xFFFFFFFC)
    play(capture, [resolve, (value[0], head + value[1][8:13])])


def fault_unknown_function(capture, resolve, value):
    play(capture, [resolve, (value[0][:10] + b"\x4d\x4d" + value[0][12:], value[1])])


def fault_reserved(capture, resolve, value):
    play(capture, [resolve, (value[0][:16] + b"\x5a" + value[0][17:], value[1])])


def write_faults(vectors, folder):
    """One capture for each fault: a plain read with one thing wrong."""
    resolve, value = named(vectors, "a global plain variable is resolved under its bare name")
    faults = {name: function for name, function in globals().items() if name.startswith("fault_")}
    write_hostile_names(vectors, folder, len(vectors) + 2 + len(faults))
    write_refusals(vectors, folder, len(vectors) + 3 + len(faults))
    for number, (name, function) in enumerate(sorted(faults.items()), len(vectors) + 2):
        capture = Capture(number)
        capture.connect()
        function(capture, resolve, value)
        capture.close()
        capture.write(folder / (name + ".pcap"))


def main():
    folder = pathlib.Path(sys.argv[1]) if len(sys.argv) > 1 else HERE / "samples"
    folder.mkdir(parents=True, exist_ok=True)
    vectors = load_vectors()
    write_subjects(vectors, folder)
    write_session(vectors, folder)
    write_degenerate(vectors, folder)
    write_faults(vectors, folder)
    return 0


if __name__ == "__main__":
    sys.exit(main())
