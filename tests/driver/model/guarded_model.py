"""The guarded build of the reference model: what counts as a reply, and what is refused before anything is sent."""

import itertools
import re

import link_model
from link_model import FINISH, RESET, Directory, Exchange, Link, directory_request
from transfer_model import FAILED, NO_CONNECT, Driver, Stop

NOWHERE = "nowhere"  # a connect for which the system knows no route
PIECES = "pieces"    # the peer sends pieces, then ends the connection or not

MOST_WAITING = 65536
MOST_PROGRAMS = 255  # all that a directory can announce are kept: the exact name may be the last one
LEAST_FRAME, MOST_FRAME = 14, 4096
CONNECTION_RESET, BAD_DESCRIPTOR = 104, 9
TIMEOUT = b"--timeout--\r\n"
SEND_ERROR = b"send error\n"


def line(text):
    return b"[PLC] guard: " + text + b"\r\n"


CLOSED = line(b"connection closed by the controller")
NOT_A_REPLY = line(b"not a reply of this protocol")
OTHER_REQUEST = line(b"reply to another request")
BYTES_BEHIND = line(b"bytes behind the reply")
TOO_MUCH_WAITED = line(b"more than 65536 bytes waited before the request")
NO_DIRECTORY = line(b"no connection without the directory of programs")
AMBIGUOUS = line(b"program of the variable is ambiguous")
REFUSED_CONNECT = line(b"connect refused")
NO_ROUTE = line(b"no route to the controller")


def lost(error):
    return line(b"connection lost, error %d" % error)


class Either:
    """Console output of which one form appears; what is not fixed, such as the order of two lines, has several."""

    def __init__(self, *forms):
        self.forms = forms
        self.pattern = b"(?:" + b"|".join(form if isinstance(form, Wild) else re.escape(form) for form in forms) + b")"

    def __repr__(self):
        return "either " + " or ".join(repr(bytes(form)) for form in self.forms)


class Wild(bytes):
    """A pattern of console output."""


def in_any_order(*sets):
    """Console output of one form of each set, the sets in any order."""
    forms = []
    for order in itertools.permutations(sets):
        for choice in itertools.product(*order):
            if any(isinstance(form, Wild) for form in choice):
                forms.append(Wild(b"".join(form if isinstance(form, Wild) else re.escape(form) for form in choice)))
            else:
                forms.append(b"".join(choice))
    return Either(*dict.fromkeys(forms))


class Answer(Exchange):
    """What the peer does with a request: pieces, then an end of the connection or none; a dripping one never ends."""

    def __init__(self, request, pieces, ending=None, drips=False):
        super().__init__(request, PIECES, b"".join(pieces))
        self.pieces, self.ending, self.drips = pieces, ending, drips


def head_is_good(head):
    length = int.from_bytes(head[0:4], "big")
    complement = int.from_bytes(head[4:8], "big")
    return length ^ complement == 0xFFFFFFFF and LEAST_FRAME <= length + 10 <= MOST_FRAME


class GuardedLink(Link):
    """The connection of the guarded build."""

    def __init__(self):
        super().__init__()
        self.ended_now = False  # the end of the connection came with a reply of this very call
        self.seen_behind = False  # the driver may have looked for bytes behind the reply, and found the end

    def begin_call(self):
        super().begin_call()
        self.ended_now = False

    def close(self):
        super().close()
        self.ending = None

    def connect(self, address):
        stored = super().connect(address)
        if stored:
            self.ending = None
        if self.connect_mode == NOWHERE:
            self.state = link_model.BROKEN
        if stored and self.connect_mode in (link_model.REFUSE, NOWHERE):
            self.print_text(REFUSED_CONNECT if self.connect_mode == link_model.REFUSE else NO_ROUTE)
            self.close()
        return stored

    def fail(self, *alternatives, dropped=0):
        sets = [alternatives]
        if dropped:
            sets.append((line(b"%d late replies dropped" % dropped),))
        self.print_text(in_any_order(*sets))
        self.close()

    def exchange(self, request):
        """The frame that answers the request, None after a failed exchange."""
        if self.state == link_model.NONE:
            return self.fail(SEND_ERROR, lost(BAD_DESCRIPTOR))
        if self.state == link_model.BROKEN:
            return self.fail(SEND_ERROR)
        if len(self.queue) > MOST_WAITING:
            return self.fail(TOO_MUCH_WAITED)
        if self.ending == FINISH:
            return self.fail(CLOSED)
        if self.ending == RESET:
            # The reset may overtake the request when it came behind a reply of this call.
            return self.fail(lost(CONNECTION_RESET), *[SEND_ERROR] * self.ended_now, *[CLOSED] * self.seen_behind)
        self.queue = b""
        step = self.oracle.decide(request)
        self.exchanges.append(step)
        return self.take_answer(step, request)

    def take_answer(self, step, request):
        at = dropped = 0
        while True:
            rest = step.data[at:]
            length = int.from_bytes(rest[0:4], "big") + 10
            if len(rest) >= 8 and not head_is_good(rest):
                early = self.no_more(step, len(rest), len(step.data)) if len(rest) < LEAST_FRAME else ()
                return self.fail(NOT_A_REPLY, *early, dropped=dropped)
            is_own = rest[8:10] == request[8:10]
            is_other = len(rest) >= 12 and is_own and rest[10:12] != request[10:12]
            if len(rest) < LEAST_FRAME or len(rest) < length:
                early = (OTHER_REQUEST,) if is_other else ()
                return self.fail(*self.no_more(step, len(rest), len(step.data)), *early, dropped=dropped)
            if not is_own:
                dropped += 1
                at += length
                continue
            if is_other or len(rest) > length:
                return self.fail(*[OTHER_REQUEST] * is_other, *[BYTES_BEHIND] * (len(rest) > length), dropped=dropped)
            if dropped:
                self.print_text(line(b"%d late replies dropped" % dropped))
            self.ending = step.ending
            self.ended_now = step.ending is not None
            self.seen_behind = len(step.data) >= MOST_FRAME
            return rest

    def no_more(self, step, part, total):
        """What is printed when the rest of a frame does not come."""
        if step.ending == FINISH:
            return (CLOSED,)
        if step.ending == RESET:
            return (lost(CONNECTION_RESET),)
        self.timeouts += 1
        if step.drips:
            return (Wild(rb"\[PLC\] guard: reply cut off, [1-9]\d* bytes in time\r\n"),)
        if part == 0:
            return (TIMEOUT,)
        return tuple(line(b"reply cut off, %d bytes in time" % number) for number in sorted({part, total}))


def records_resolved(frame, names):
    """How many of the names have a whole record in the reply."""
    at = 0
    for number in range(names):
        if at + 41 > len(frame) or at + 41 + 4 * frame[at + 40] > len(frame):
            return number
        at += 24 + 4 * frame[at + 40]
    return names


def units_asked(request):
    """16-bit units that a value request asks for."""
    return sum(request[at + 3] for at in range(18, len(request), 8))


def programs_listed(frame):
    """Programs that a directory reply lists whole; a name may lack the byte behind it."""
    at = 15
    for number in range(frame[14]):
        size = frame[at + 2] if at + 2 < len(frame) else 0
        if at + (3 + size if size > 2 else 5) > len(frame):
            return number
        at += size + 4 if size > 2 else 6
    return frame[14]


def noun_of(request):
    """What a controller that answers with a status refuses."""
    return {b"\x0c\x2c": b"directory", b"\x0c\x25": b"directory", b"\x0c\x28": b"names",
            b"\x1e\x09": b"read"}.get(bytes(request[10:12]), b"write")


class GuardedDriver(Driver):
    """Everything that one loaded driver of the guarded build keeps between calls."""

    reads_leftovers = True
    clears_before_failure = False

    def __init__(self, files):
        super().__init__(files, GuardedLink())
        self.directory = Directory(MOST_PROGRAMS)

    def say(self, text):
        self.link.print_text(line(text))

    def is_refusal(self, request, frame):
        if frame[12:14] == b"\0\0":
            return False
        self.say(b"controller refused the %s, status %04X" % (noun_of(request), int.from_bytes(frame[12:14], "big")))
        return True

    def is_incomplete(self, request, frame, names):
        command = bytes(request[10:12])
        if command == b"\x0c\x28" and records_resolved(frame, names) < names:
            self.say(b"%d of %d names resolved" % (records_resolved(frame, names), names))
            return True
        if command == b"\x1e\x09" and len(frame) != 14 + 2 * units_asked(request):
            self.say(b"%d bytes of values, %d were asked for" % (len(frame) - 14, 2 * units_asked(request)))
            return True
        return False

    def exchange(self, request, names=0):
        """A whole reply; one that lacks something counts as an empty one."""
        frame = self.link.exchange(request)
        if frame is None:
            self.connected = False
            raise Stop(FAILED)
        if self.is_refusal(request, frame):
            raise Stop(FAILED)
        return b"" if self.is_incomplete(request, frame, names) else frame

    def fetch_directory(self):
        """Whether the whole directory came."""
        for sequence, command in ((0, 0x2C), (1, 0x25)):
            request = directory_request(sequence, command)
            frame = self.link.exchange(request)
            if frame is None or self.is_refusal(request, frame):
                return False
        if len(frame) < 15:
            self.link.print_text(Either(Wild(rb"\[PLC\] guard: \d+ of \d+ programs in the directory\r\n")))
            return False
        if programs_listed(frame) < frame[14]:
            self.say(b"%d of %d programs in the directory" % (programs_listed(frame), frame[14]))
            return False
        self.directory.take(frame)
        return True

    def connect(self, failure_line):
        stored = self.link.connect(self.ip)
        if not self.fetch_directory() or not stored:
            self.connected = False
            if stored:
                self.link.close()
                self.link.print_text(NO_DIRECTORY)
            self.link.puts(failure_line)
            raise Stop(NO_CONNECT)
        self.connected = True

    def program_by_prefix(self, scope_name):
        exact = self.directory.number_by_equality(scope_name)
        if exact is not None:
            return exact
        beginnings = [number for number, name in self.directory.current() if scope_name.startswith(name)]
        if len(beginnings) > 1:
            self.link.print_text(AMBIGUOUS)
            raise Stop(FAILED)
        return beginnings[0] if beginnings else None

    def check_places(self, slots):
        """Each name of a run of texts is asked for with the length of the run: what follows would be out of place."""
        for (tag, run), _ in zip(slots, slots[1:]):
            if tag.bit_width == 0 and run > 1:
                self.say(b"%d bytes of values, %d were asked for" % (2 * run * run, 2 * run))
                raise Stop(NO_CONNECT)

    def refuse(self, reasons):
        if reasons:
            self.link.print_text(Either(*map(line, reasons)))
            raise Stop(FAILED)
