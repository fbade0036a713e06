"""What the controller answers in a comparison of the guarded build: whole answers, and everything that its rules tell
apart, each drawn from a seed."""


from draws import Draws
from guarded_model import LEAST_FRAME, MOST_FRAME, Answer, units_asked
from link_model import FINISH, RESET
from tag_generator import SCOPES, choose
from text_model import utf8_to_units

# A call that asks for more exchanges than this finds its connection reset.
MOST_EXCHANGES = 40
DIRECTORY_COMMANDS = (b"\x0c\x2c", b"\x0c\x25")
# Bytes that a dripping controller sends at most.
MOST_DRIPS = 20
# The last piece is to arrive as a whole: what lies behind an answer is seen with it or not at all.
LONGEST_PIECE = 20000
PROGRAMS = SCOPES + [b"MA", b"MAIN", b"MAIN2", b"SU"]


def frame(head, body, status=0):
    """A reply under the sequence number, class and command of these four bytes."""
    length = 4 + len(body)
    return (length.to_bytes(4, "big") + (length ^ 0xFFFFFFFF).to_bytes(4, "big") + bytes(head) +
            status.to_bytes(2, "big") + body)


class GuardedOracle:
    """Decides, from the seed of one operation, what the controller does with each request of it."""

    FAULTS = ("refuse", "cut", "head", "length", "other", "behind", "end", "garbage", "wrong_size", "tight")

    def __init__(self, operation):
        self.rng = rng = Draws(operation.seed)
        self.silent = operation.timeout_s == 0
        self.waits = operation.timeout_s == 1
        self.in_pieces = rng.random() < 0.3
        self.foreign = rng.random() < 0.25
        self.is_tidy = rng.random() < 0.7
        faulty = self.waits or rng.random() < 0.45
        self.fault_at = choose(rng, [(1, 5), (2, 6), (rng.randrange(3, 9), 4)]) if faulty else 0
        self.directory_fault = rng.random() < 0.12
        self.requests = 0
        self.least_last = 0  # bytes that belong together at the end of the stream

    def decide(self, request):
        rng = self.rng
        if self.silent:
            return Answer(request, [])
        is_directory = request[10:12] in DIRECTORY_COMMANDS
        self.requests += not is_directory
        if self.requests > MOST_EXCHANGES:
            return Answer(request, [], RESET)
        stream = self.answer(request)
        ending = None
        self.least_last = 0
        if self.foreign and rng.random() < 0.7:
            stream = self.foreign_frames(request) + stream
        if self.requests == self.fault_at if not is_directory else self.directory_fault and rng.random() < 0.5:
            if self.waits and not is_directory:
                return self.wait(request, stream)
            stream, ending = self.fault(request, stream)
        elif rng.random() < 0.02:
            ending = rng.choice((FINISH, RESET))  # a good answer, and the end behind it
        return Answer(request, self.cut(stream), ending)

    # Whole answers.

    def answer(self, request):
        return frame(request[8:12], self.body(request))

    def body(self, request):
        rng, command = self.rng, bytes(request[10:12])
        if command == b"\x0c\x25":
            return self.programs()
        if command == b"\x0c\x28":
            return self.records(announced_names(request))
        if command == b"\x1e\x09":
            return self.values(2 * units_asked(request))
        return rng.randbytes(choose(rng, [(0, 5), (1, 2), (rng.randrange(60), 2)]))

    def values(self, size):
        rng = self.rng
        size = min(size, MOST_FRAME - LEAST_FRAME)
        if rng.random() < 0.2:
            return bytes(rng.choice(b"ABCabc\xff\0") for _ in range(size))
        return rng.randbytes(size)

    def records(self, names):
        """The names' records behind the head's 14 bytes, as many as fit."""
        rng = self.rng
        reply = bytearray(rng.randbytes(17))
        far = rng.random() < 0.1
        for number in range(names):
            record = bytearray(rng.randbytes(24))
            record[23] = rng.randrange(256) if far else rng.choice((0, 0, 0, 1))
            for bit_at in (8, 12, 13):
                record[bit_at] = choose(rng, [(0, 4), (rng.randrange(16), 8), (rng.randrange(256), 1)])
            reply += record + rng.randbytes(4 * record[23])
        if names == 0:
            reply = reply[:rng.choice((14, 14, 17))]
        else:
            reply += rng.randbytes(rng.choice((0, 0, 0, 1, 24)))
        return bytes(reply[14:MOST_FRAME])

    def programs(self):
        rng = self.rng
        scopes = rng.sample(PROGRAMS, rng.randrange(0, len(PROGRAMS) + 1))
        if self.is_tidy:
            scopes = [scope for scope in (b"MAIN", b"MAIN2", b"SUB", b"Pump\xc3\xa9") if rng.random() < 0.8]
        elif rng.random() < 0.1:
            scopes = (scopes + [b"P%d" % number for number in range(255)])[:rng.choice((49, 50, 51, 128, 254, 255))]
        records = b""
        for scope in scopes:
            wire = b"".join(unit.to_bytes(2, "big") for unit in utf8_to_units(scope)[1])
            if not self.is_tidy and rng.random() < 0.1:
                wire = bytes(rng.choice(b"\0\0ABM\xe9") for _ in range(choose(rng, [(rng.randrange(6), 1), (253, 1)])))
            size = len(wire) + 2 if wire else rng.randrange(3)
            records += rng.randbytes(2) + bytes((size, rng.randrange(256), rng.randrange(256))) + wire + b"\0"
        missing = choose(rng, [(0, 20), (1, 2), (2, 1), (rng.randrange(0, len(records) + 1), 1)])
        more = rng.randbytes(rng.choice((0, 0, 0, 3)))
        return bytes((len(scopes),)) + (records[:len(records) - missing] if missing else records + more)

    # What comes before an answer, and in how many pieces.

    def foreign_frames(self, request):
        rng = self.rng
        own = int.from_bytes(request[8:10], "big")
        frames = b""
        for _ in range(choose(rng, [(1, 8), (2, 3), (rng.randrange(3, 8), 2)])):
            number = own ^ rng.choice((1, 0x100, 0x8000, 0xFFFF, rng.randrange(1, 0x10000)))
            if rng.random() < 0.4:
                number = (own + rng.choice((-2, -1, 1))) & 0xFFFF
            head = number.to_bytes(2, "big") + (request[10:12] if rng.random() < 0.6 else rng.randbytes(2))
            size = choose(rng, [(0, 4), (rng.randrange(90), 8), (rng.randrange(4083), 2), (4082, 1)])
            frames += frame(head, rng.randbytes(size), rng.choice((0, 0, 0xFFFF, 0x0100)))
        return frames

    def cut(self, stream):
        """The stream in one or several pieces."""
        rng = self.rng
        if not stream or not self.in_pieces or rng.random() < 0.3:
            return [stream]
        if len(stream) <= 60 and not self.least_last and rng.random() < 0.3:
            return [stream[at:at + 1] for at in range(len(stream))]
        at = {choose(rng, [(rng.randrange(len(stream)), 3), (rng.randrange(min(len(stream), 16)), 2),
                           (len(stream) - 1, 1), (0, 1)]) for _ in range(rng.randrange(1, 6))}
        at = sorted(min(place, len(stream) - self.least_last) for place in at)
        pieces = [stream[a:b] for a, b in zip([0] + at, at + [len(stream)])]
        return [piece for piece in pieces if piece]

    # Faults.

    def fault(self, request, stream):
        """The bytes that go out instead, and how the connection ends."""
        stream, ending = getattr(self, "fault_" + self.rng.choice(self.FAULTS))(request, stream)
        if ending is None and len(stream) < LEAST_FRAME:
            ending = FINISH
        return stream, ending

    def before(self, request, stream):
        """The foreign frames of a stream, without the answer."""
        at = 0
        while stream[at + 8:at + 10] != request[8:10]:
            at += int.from_bytes(stream[at:at + 4], "big") + 10
        return stream[:at], stream[at:]

    def fault_refuse(self, request, stream):
        rng = self.rng
        first, own = self.before(request, stream)
        status = rng.choice((1, 0x100, 0xFFFF, 0x0A0B, 0x8000))
        body = own[14:]
        if rng.random() < 0.5:
            body = body[:rng.randrange(len(body) + 1)]
        return first + frame(request[8:12], body, status), None

    def fault_cut(self, request, stream):
        """A whole frame with a good head and too little in it, at times too much."""
        rng = self.rng
        first, own = self.before(request, stream)
        body = own[14:]
        more = rng.randrange(1, 30)
        size = choose(rng, [(rng.randrange(len(body) + 1), 4), (max(0, len(body) - more), 4),
                            (max(0, len(body) - 1), 2), (len(body) + more, 3), (len(body) + 2, 1)])
        return first + frame(request[8:12], (body + rng.randbytes(more))[:size][:MOST_FRAME - LEAST_FRAME]), None

    def fault_wrong_size(self, request, stream):
        """Values wider or narrower than asked for."""
        first, own = self.before(request, stream)
        body = own[14:] * 2 if self.rng.random() < 0.5 else own[14:14 + len(own[14:]) // 2]
        return first + frame(request[8:12], body[:MOST_FRAME - LEAST_FRAME]), None

    def fault_head(self, request, stream):
        """A bit of the length or of its complement is wrong."""
        rng = self.rng
        first, own = self.before(request, stream)
        own = bytearray(own)
        own[rng.randrange(8)] ^= 1 << rng.randrange(8)
        return first + bytes(own), None

    def fault_length(self, request, stream):
        """A good complement under a length that no reply has."""
        rng = self.rng
        first, own = self.before(request, stream)
        length = rng.choice((0, 1, 2, 3, 4087, 4088, 4096, 0xFFFF, 0x7FFFFFFF, 0x80000000, 0xFFFFFFF5, 0xFFFFFFF6,
                             0xFFFFFFFA, 0xFFFFFFFF))
        shown = length.to_bytes(4, "big") + (length ^ 0xFFFFFFFF).to_bytes(4, "big")
        own = shown + own[8:]
        if rng.random() < 0.3:
            own += bytes(4097)
        return first + own, None

    def fault_other(self, request, stream):
        """The request's own number, another class or command."""
        rng = self.rng
        first, own = self.before(request, stream)
        own = bytearray(own)
        own[rng.choice((10, 11))] ^= rng.choice((1, 0x80, 0x10, rng.randrange(1, 256)))
        return first + bytes(own), None

    def fault_behind(self, request, stream):
        rng = self.rng
        first, own = self.before(request, stream)
        behind = rng.choice((rng.randbytes(rng.randrange(1, 40)), own, frame(rng.randbytes(4), b""), b"\0",
                             rng.randbytes(5000)))
        first = b"" if len(first) > LONGEST_PIECE else first
        self.least_last = len(behind) + 1
        return first + own + behind, None

    def fault_end(self, request, stream):
        """The end of the connection before, inside or behind an answer."""
        rng = self.rng
        ending = rng.choice((FINISH, RESET))
        at = choose(rng, [(0, 3), (len(stream), 2), (rng.randrange(len(stream)), 4), (len(stream) - 1, 1),
                          (rng.randrange(15), 2)])
        return stream[:at], ending

    def fault_garbage(self, request, stream):
        rng = self.rng
        first, _ = self.before(request, stream)
        size = choose(rng, [(rng.randrange(1, 14), 1), (14, 1), (rng.randrange(14, 4200), 2)])
        garbage = rng.choice((rng.randbytes(size), bytes(size), b"\xff" * size))
        return first + garbage, rng.choice((FINISH, RESET)) if size < 14 else None

    def fault_tight(self, request, stream):
        """A frame of the greatest length that a reply may have, or one byte more."""
        rng = self.rng
        first, own = self.before(request, stream)
        size = rng.choice((4082, 4082, 4083, 4081))
        return first + frame(request[8:12], (own[14:] + rng.randbytes(size))[:size]), None

    def wait(self, request, stream):
        """A controller that stops before its answer is whole: at once, inside it, or byte by byte."""
        rng = self.rng
        first, own = self.before(request, stream)
        if rng.random() < 0.2:
            return Answer(request, [frame(request[8:12], bytes(4082))[:MOST_DRIPS]], drips=True)
        if rng.random() < 0.3:
            return Answer(request, self.cut(first) if first else [])
        part = own[:choose(rng, [(rng.randrange(1, len(own)), 3), (rng.randrange(1, 14), 2), (13, 1), (14, 1)])]
        return Answer(request, self.cut(first + part[:len(own) - 1]))


def announced_names(request):
    """The number of names in the block that a resolve request opens with; a batch has its count there too."""
    at = 16 if request[14:16] == b"\0\0" else 22
    return int.from_bytes(request[at:at + 2], "big")
