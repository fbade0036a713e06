"""Connection, exchange and directory of the reference model, written from the driver's contract alone.

The model knows the socket by what the driver can see of it: the bytes that wait in it and whether its peer has gone.
What the peer does with a request is decided by an oracle and recorded, so that a real peer can do the same."""

from text_model import cut_to_whole_characters, units_to_utf8

REPLY_BYTES = 4096
DRAIN_BYTES = 512
DIRECTORY_ENTRIES = 50

# What the peer does with one request.
REPLY = "reply"    # sends bytes
SILENT = "silent"  # sends nothing
FINISH = "finish"  # ends its sending side, goes on reading
RESET = "reset"    # resets the connection

# What the driver's socket is.
NONE = "none"          # no descriptor: -1 or whatever the host left in the record
OPEN = "open"
FINISHED = "finished"  # the peer has ended its side: every receive gives 0
BROKEN = "broken"      # reset or never connected: every send fails

# How the next connection goes.
ACCEPT = "accept"
REFUSE = "refuse"
HOLD = "hold"          # no answer within the connect wait
CROWD = "crowd"        # the socket's number is beyond what select can take


class Exchange:
    """A request that reached the peer and what the peer did with it."""

    def __init__(self, request, action, data=b""):
        self.request = request
        self.action = action
        self.data = data


class Link:
    """The driver's connection as seen from its side."""

    def __init__(self):
        self.state = NONE
        self.queue = b""
        self.out = []        # console output, byte strings in order
        self.exchanges = []  # Exchange records in order
        self.oracle = None
        self.connect_mode = ACCEPT
        self.connected_now = False
        self.closed_now = False
        self.paused = False  # whether the call came as far as its pause
        self.timeouts = 0    # reply waits of the call that ran out
        self.ending = None   # an end of the connection that waits behind the queue; the contract knows FINISHED

    def print_text(self, text):
        self.out.append(text)

    def puts(self, text):
        self.out.append(text + b"\n")

    def begin_call(self):
        self.out = []
        self.exchanges = []
        self.connected_now = False
        self.closed_now = False
        self.paused = False
        self.timeouts = 0

    def close(self):
        self.state = NONE
        self.queue = b""
        self.closed_now = True

    def connect(self, address):
        """SetupTCPComm: True when a socket was stored."""
        dotted = ".".join(str(address >> shift & 255) for shift in (24, 16, 8, 0))
        self.print_text(b"server ip = " + dotted.encode() + b"\r\n")
        if self.connect_mode in (HOLD, CROWD):
            self.puts(b"select time out \r" if self.connect_mode == HOLD else b"select error\r")
            return False
        self.state = OPEN if self.connect_mode == ACCEPT else BROKEN
        self.queue = b""
        self.connected_now = True
        return True

    def exchange(self, request):
        """TransRecvSockBuff: the reply, or None on failure."""
        if self.queue:
            self.queue = self.queue[DRAIN_BYTES:]
        if self.state in (NONE, BROKEN):
            self.puts(b"send error")
            self.close()
            return None
        step = self.oracle.decide(request, bool(self.queue), self.state)
        self.exchanges.append(step)
        if step.action == REPLY:
            self.queue += step.data
        elif step.action == FINISH:
            self.state = FINISHED
        if self.queue:
            reply, self.queue = self.queue[:REPLY_BYTES], self.queue[REPLY_BYTES:]
            return reply
        if step.action == RESET:
            # A reset that comes after the peer's end is seen by the next send only.
            ended = self.state == FINISHED
            self.state = BROKEN
            return b"" if ended else None
        if self.state == FINISHED:
            return b""
        self.puts(b"--timeout--\r")
        self.timeouts += 1
        self.close()
        return None


class ReplyBuffer:
    """The reply bytes of one entry call: nothing is cleared between replies, past its end every byte is 0."""

    def __init__(self):
        self.bytes = bytearray(REPLY_BYTES)

    def take(self, reply):
        self.bytes[:len(reply)] = reply

    def __getitem__(self, offset):
        return self.bytes[offset] if offset < REPLY_BYTES else 0

    def span(self, offset, length):
        part = bytes(self.bytes[offset:offset + length])
        return part + bytes(length - len(part))


class Directory:
    """The local-variable directory: entries stay until overwritten, count tells how many are current."""

    def __init__(self, capacity=DIRECTORY_ENTRIES):
        self.entries = [(0, b"")] * capacity
        self.count = 0

    def current(self):
        return self.entries[:self.count]

    def take(self, reply):
        """Stores the complete records of a directory reply."""
        announced = reply[14] if len(reply) > 14 else 0
        pos = 15
        stored = 0
        while stored < min(announced, len(self.entries)):
            size = reply[pos + 2] if pos + 2 < len(reply) else 0
            needed = pos + 3 + size if size > 2 else pos + 5
            if needed > len(reply):
                break
            name = b""
            if size > 2:
                name = self.text_of(reply[pos + 5:pos + 3 + size])
            self.entries[stored] = (reply[pos + 4], name)
            stored += 1
            pos += size + 4 if size > 2 else 6
        self.count = stored

    @staticmethod
    def text_of(wire):
        text = units_to_utf8(wire, len(wire))
        return cut_to_whole_characters(text, 255).partition(b"\0")[0]

    def number_by_prefix(self, scope):
        for number, name in self.current():
            if scope.startswith(name):
                return number
        return None

    def number_by_equality(self, scope):
        for number, name in self.current():
            if scope == name:
                return number
        return None


def directory_request(sequence, command):
    return bytes.fromhex("00000006FFFFFFF9") + bytes((0, sequence, 0x0C, command, 0, 0, 0, 0))


def frame_head(length, sid, first, second):
    """The 12 bytes that open a request of this total length."""
    rest = length - 10
    return (rest.to_bytes(4, "big") + (rest ^ 0xFFFFFFFF).to_bytes(4, "big") + sid.to_bytes(2, "big") +
            bytes((first, second)))
