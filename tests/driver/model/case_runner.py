"""Runs a case through the reference model and the loaded driver and reports the first difference."""

import ctypes
import fcntl
import os
import re
import resource
import socket
import struct
import termios
import time

import link_model
import loaded_driver as loaded
import named_writes
from batch_model import BatchRead, TextReference
from call_generator import Oracle
from draws import Draws
from guarded_model import NOWHERE, Either, GuardedDriver
from guarded_replies import GuardedOracle
from loaded_driver import libc
from transfer_model import REJECTED_LINE, Driver, Request, Value
from write_model import write

DATA_BYTES = 2 * loaded.PAGE
MODEL_IP = 0x7F000001
_LINE_NUMBER = re.compile(rb", at line: \d+\r\n")
_POINTER = ctypes.c_void_p
_NOWHERE_IP = 0xFFFFFFFF
# What the driver's socket must be able to hold for the greatest stale input.
_ROOM_BYTES = 1 << 20
_TCP_CLOSE, _TCP_CLOSE_WAIT = 7, 8
# A TagEntry; its fields stand in the order of TagRecord.FIELDS.
RECORD = struct.Struct("<256sHBx6iiIBBBxI256sBB2x")


class Mismatch(Exception):
    """The driver did something else than the model."""


def show_bytes(data):
    return data.hex() if len(data) <= 600 else data[:600].hex() + f"... ({len(data)} bytes)"


def compare_bytes(what, expected, got):
    if expected == got:
        return
    at = next((i for i, (a, b) in enumerate(zip(expected, got)) if a != b), min(len(expected), len(got)))
    raise Mismatch(f"{what}: first difference at byte {at}\n"
                   f"  model  {show_bytes(expected)}\n  driver {show_bytes(got)}")


def console_pattern(part):
    """What one piece of expected output may look like."""
    if isinstance(part, Either):
        return part.pattern
    if part.startswith(REJECTED_LINE):
        return rb"[^\n]*" + re.escape(part[len(REJECTED_LINE):-1]) + rb"[^\n]*[0-9#][^\n]*\n"
    return re.escape(part)


def compare_console(expected, got):
    """Lines of source numbers and the free text about a rejected file are not part of the contract."""
    got = _LINE_NUMBER.sub(b", at line: #\r\n", got)
    if not re.fullmatch(b"".join(map(console_pattern, expected)), got, re.DOTALL):
        raise Mismatch(f"console:\n  model  {' '.join(map(repr, expected))}\n  driver {got!r}")


def select_limit():
    """FD_SETSIZE of the C library; the process may open more descriptors than that."""
    resource.setrlimit(resource.RLIMIT_NOFILE, (resource.getrlimit(resource.RLIMIT_NOFILE)[1],) * 2)
    return 1024


def tcp_state(descriptor):
    with socket.socket(fileno=os.dup(descriptor)) as view:
        return view.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 1)[0]


def is_dead(descriptor):
    """Whether the kernel has taken note that the peer reset this connection."""
    return tcp_state(descriptor) == _TCP_CLOSE


def set_room(descriptor):
    with socket.socket(fileno=os.dup(descriptor)) as view:
        view.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, _ROOM_BYTES)


def bytes_waiting(descriptor):
    return struct.unpack("i", fcntl.ioctl(descriptor, termios.FIONREAD, b"\0\0\0\0"))[0]


def inode_of(descriptor):
    try:
        return os.fstat(descriptor).st_ino
    except OSError:
        return None


def clear_folder(folder):
    for name in os.listdir(folder):
        path = os.path.join(folder, name)
        if os.path.isdir(path):
            os.rmdir(path)
        else:
            os.unlink(path)


def pack_record(tag):
    """A record as the driver holds it."""
    return RECORD.pack(*(getattr(tag, field) for field in tag.FIELDS))


class References:
    """String references of the last batch read: valid until the next one."""

    def __init__(self):
        self.memory = os.open("/proc/self/mem", os.O_RDONLY)
        self.held = []

    def check(self):
        for index, address, text in self.held:
            try:
                got = os.pread(self.memory, len(text) + 1, address) if address else b""
            except OSError:
                got = b"(not readable)"
            compare_bytes(f"string of element {index} at {address:#x}", text + b"\0", got)


class CaseRunner:
    """One case; every case loads the library afresh."""

    def __init__(self, library, peer, console, memory, folder, guarded=False):
        self.guarded = guarded
        self.library, self.peer, self.console, self.memory, self.folder = library, peer, console, memory, folder
        self.references = References()
        self.calls = 0
        self.connects = 0  # connections that the peer has accepted or is about to accept

    def run(self, case):
        clear_folder(self.folder)
        self.model = GuardedDriver({}) if self.guarded else Driver({})
        self.files = case.files
        for area, content in case.files.items():
            self.put_file(area, content)
        self.driver = loaded.LoadedDriver(self.library)
        self.descriptors = len(os.listdir("/proc/self/fd"))
        self.crowd = []
        self.references.held = []
        self.memory.fill(case.seed & 0xFF)
        self.memory.set_socket_fd(case.first_fd)
        self.fd = case.first_fd
        self.owned = None  # the descriptor that the driver has stored and not closed
        try:
            for number, operation in enumerate(case.operations):
                try:
                    self.perform(operation)
                except Mismatch as mismatch:
                    raise Mismatch(f"operation {number}: {operation.show()}\n{mismatch}") from None
            self.finish()
        except Mismatch:
            self.release()
            self.count_anew()
            raise
        self.release()

    def finish(self):
        """Nothing may have been sent beyond what was expected, and no descriptor may be left."""
        expected = len(self.peer.script)
        self.release_descriptor()
        self.end_crowd()
        self.wait_for(lambda: self.peer.accepted >= self.connects and not self.peer.connections and
                      len(os.listdir("/proc/self/fd")) == self.descriptors)
        if len(self.peer.log) != expected:
            raise Mismatch(f"{len(self.peer.log)} requests in the last call, {expected} expected")
        left = len(os.listdir("/proc/self/fd"))
        if left != self.descriptors:
            raise Mismatch(f"{left} descriptors are open, {self.descriptors} before the case")

    def count_anew(self):
        """After a difference nobody knows how many connections the driver has made."""
        time.sleep(0.2)
        self.wait_for(lambda: not self.peer.connections)
        self.connects = self.peer.accepted

    def release_descriptor(self):
        if self.owned is not None:
            try:
                os.close(self.owned)
            except OSError as error:
                raise Mismatch(f"descriptor {self.owned} was already closed: {error}") from None
            finally:
                self.owned = None

    @staticmethod
    def wait_for(condition):
        deadline = time.monotonic() + 2
        while not condition() and time.monotonic() < deadline:
            time.sleep(0)

    def put_file(self, area, content):
        """A tag file; no content stands for a folder of that name."""
        name = b"PLC%X_%d.csv" % (MODEL_IP, area)
        path = os.path.join(self.folder.encode(), name)
        self.model.files[name] = content
        if content is None:
            os.mkdir(path)
            return
        with open(path, "wb") as file:
            file.write(content)

    def fill_crowd(self):
        """Takes every descriptor that select can take, once the peer has closed what it is about to close."""
        self.wait_for(lambda: len(self.peer.connections) <= (self.owned is not None))
        limit = select_limit()
        self.crowd.append(os.dup(0))
        while self.crowd[-1] < limit:
            self.crowd.append(os.dup(0))

    def end_crowd(self):
        for number in self.crowd:
            os.close(number)
        self.crowd = []

    def release(self):
        self.end_crowd()
        if self.owned is not None:
            libc.close(self.owned)
            self.owned = None
        self.driver.unload()

    def perform(self, operation):
        getattr(self, "do_" + operation.kind)(operation)

    # What happens between two calls.

    def do_stale(self, operation):
        """Bytes that nobody asked for and, in a comparison of the guarded build, the end of the connection."""
        link = self.model.link
        if link.state != link_model.OPEN or not self.model.connected or link.ending:
            return
        data = Draws(operation.seed).randbytes(operation.settings["size"])
        if self.guarded:
            set_room(self.owned)
        self.peer.latest.sendall(data)
        link.queue += data
        self.wait_for(lambda: bytes_waiting(self.owned) >= len(link.queue))
        waiting = bytes_waiting(self.owned)
        if waiting < len(link.queue):
            raise Mismatch(f"{waiting} bytes wait in the driver's socket, {len(link.queue)} expected")
        self.end_connection(operation.settings.get("ending"))

    def end_connection(self, ending):
        """The controller ends the connection between two calls; the driver's side knows of it when this returns."""
        self.model.link.ending = ending
        if ending == link_model.RESET:
            self.peer.reset_latest()
            self.wait_for(lambda: is_dead(self.owned))
        elif ending == link_model.FINISH:
            self.peer.latest.shutdown(socket.SHUT_WR)
            self.wait_for(lambda: tcp_state(self.owned) == _TCP_CLOSE_WAIT)

    def do_rewrite(self, operation):
        """A tag file gets other content; only a table that is not loaded yet shows it."""
        target, source = (self.files[operation.settings[key]] for key in ("area", "from"))
        if target is not None and source is not None:
            self.put_file(operation.settings["area"], source)

    def do_address(self, operation):
        """The host changes the settings record behind the driver's back."""
        if self.model.configured:
            self.model.settings_ip = operation.settings["ip"]
            self.memory.put(loaded.SETTINGS_AT + 4, struct.pack("<I", operation.settings["ip"]))

    def do_forget(self, operation):
        """The host loses the number of the connected socket."""
        link = self.model.link
        if self.owned is None or not self.model.connected:
            return
        self.release_descriptor()
        link.state, link.queue, link.ending = link_model.NONE, b"", None
        self.fd = operation.settings["socket_fd"]
        self.memory.set_socket_fd(self.fd)

    # Host calls.

    def do_init(self, operation):
        mode = operation.settings["mode"]
        port = {"accept": self.peer.port, "refuse": self.peer.refusing_port}.get(mode, self.peer.holding_port)
        ip = _NOWHERE_IP if mode == NOWHERE else MODEL_IP
        self.end_crowd()
        self.memory.put(loaded.SETTINGS_AT + 4, struct.pack("<IH", ip, port))
        self.begin(operation)
        expected = self.model.init(ip, port)
        self.model.link.connect_mode = mode
        image = self.memory.image()
        got = self.call("ev_plc_init", [self.memory.address(loaded.SETTINGS_AT)], _POINTER)
        self.compare_call(expected, got, image)
        # The tag files bear the address of the peer.
        self.model.settings_ip = MODEL_IP
        self.memory.put(loaded.SETTINGS_AT + 4, struct.pack("<I", MODEL_IP))

    def do_read(self, operation):
        self.single(operation, "ev_plc_read")

    def do_write(self, operation):
        self.single(operation, "ev_plc_write")

    def do_named(self, operation):
        """One of the named write functions, called without the dispatcher on a connection that stands."""
        if self.model.connected and self.model.link.state in (link_model.OPEN, link_model.FINISHED):
            if any(table.plain for table in self.model.tables.values()):
                self.single(operation, "named")

    def named_write(self, operation, value):
        """The function's name with its further arguments, and the model's result."""
        rng = Draws(operation.seed ^ 2)
        tag = rng.choice([tag for table in self.model.tables.values() for tag in table.plain])
        name = rng.choice(list(named_writes.FUNCTIONS))
        road, width, shape, form = named_writes.FUNCTIONS[name]
        is_global = rng.random() < 0.5
        self.entry = ctypes.create_string_buffer(pack_record(tag), named_writes.ENTRY_BYTES)
        further = named_writes.arguments_of(form, is_global, tag, ctypes.addressof(self.entry))
        expected = named_writes.perform(self.model, road, width, shape, is_global, tag,
                                        operation.settings["address"] & 0xFFFF, value)
        return (name + ("" if is_global else "_local"), further), expected

    def begin(self, operation):
        self.model.link.begin_call()
        self.model.link.oracle = (GuardedOracle if self.guarded else Oracle)(operation)

    def put_conn(self, operation):
        """Everything but socket_fd."""
        self.memory.put(loaded.CONN_AT + 8, struct.pack("<III", operation.timeout_s, 0xDEADBEEF,
                                                        operation.settings["delay"]))

    def single(self, operation, entry):
        chosen, memory = operation.settings, self.memory
        data = Draws(operation.seed ^ 1).randbytes(DATA_BYTES)
        if "first" in chosen:
            data = bytes((chosen["first"],)) + data[1:]
        elif operation.seed % 4:
            data = data[:4] + bytes(DATA_BYTES - 4)
        request = Request(chosen["area"], chosen["reg_type"], chosen["address"])
        value = Value(chosen["count"], bytearray(data))
        null = chosen.get("null")
        memory.put(loaded.REQUEST_AT, loaded.pack_request(request))
        self.put_conn(operation)
        self.begin(operation)
        given = [None if null == name else record
                 for name, record in (("request", request), ("value", value), ("conn", True))]
        if null == "data":
            value.data = None
        named = None
        if entry == "ev_plc_read":
            expected = self.model.read(*given)
        elif entry == "ev_plc_write":
            expected = write(self.model, *given)
        else:
            named, expected = self.named_write(operation, value)
            entry = named[0]
        extent = max(4 if entry == "ev_plc_read" else 1, value.extent)
        address = memory.data.place(data[:extent], b"\xC7")
        memory.put(loaded.VALUE_AT, struct.pack("<I", chosen["count"]))
        memory.put(loaded.VALUE_POINTER_AT, struct.pack("<Q" if loaded.POINTER_BYTES == 8 else "<I",
                                                        0 if null == "data" else address))
        image = bytearray(memory.image())
        image[loaded.REQUEST_AT:loaded.REQUEST_AT + 8] = loaded.pack_request(request)
        image[loaded.VALUE_AT:loaded.VALUE_AT + 4] = struct.pack("<I", value.count)
        places = {"request": loaded.REQUEST_AT, "value": loaded.VALUE_AT, "conn": loaded.CONN_AT}
        pointers = [None if null == name else memory.address(at) for name, at in places.items()]
        further = named[1] if named else []
        got = self.call(entry, pointers + [argument for argument, _ in further], _POINTER, _POINTER, _POINTER,
                        *[kind for _, kind in further])
        self.compare_call(expected, got, image)
        self.compare_time(operation)
        final = data[:extent] if value.data is None else bytes(value.data[:extent])
        compare_bytes("data with the bytes before it", b"\xC7" * (DATA_BYTES - extent) + final, memory.data.read())

    def do_batch(self, operation):
        chosen, memory = operation.settings, self.memory
        null = chosen.get("null")
        self.references.check()
        elements = [Request(chosen["area"], e["reg_type"], e["address"], e["count"], operation.seed & 0xFFFFFFFF)
                    for e in chosen["elements"]]
        before = b"".join(loaded.pack_element(element, element.value) for element in elements)
        address = memory.elements.place(before, b"\xC7")
        self.put_conn(operation)
        self.begin(operation)
        size = chosen["size"]
        expected = BatchRead(self.model, None if null == "elements" else elements, size,
                             None if null == "conn" else True).run()
        image = memory.image()
        got = self.call("ev_OMRON_plc_read", [None if null == "elements" else _POINTER(address), size,
                                              None if null == "conn" else memory.address(loaded.CONN_AT)],
                        _POINTER, ctypes.c_int32, _POINTER)
        self.compare_call(expected, got, image)
        self.compare_time(operation)
        if null is None and self.model.configured:
            self.references.held = []
        self.compare_elements(elements, before)

    def compare_elements(self, elements, before):
        got = self.memory.elements.read()
        start = len(got) - len(before)
        wanted = b""
        for index, element in enumerate(elements):
            value = element.value
            if isinstance(value, TextReference):
                stored = struct.unpack_from("<I", got, start + 20 * index + 16)[0]
                self.references.held.append((index, stored, value.text))
                value = stored
            wanted += loaded.pack_element(element, value)
        compare_bytes("elements with the bytes before them", b"\xC7" * start + wanted, got)
        self.references.check()

    def call(self, entry, arguments, *argtypes):
        if self.model.link.connect_mode == link_model.CROWD:
            self.fill_crowd()
        self.peer.load(self.model.link.exchanges)
        self.calls += 1
        function = self.driver.function(entry, *argtypes)
        started = time.monotonic()
        result = function(*arguments)
        self.elapsed_s = time.monotonic() - started
        return result

    def compare_time(self, operation):
        """Pauses and time-outs may take longer than asked for on a busy machine, but never less."""
        least = 0.0
        delay = operation.settings["delay"]
        if delay not in (0, 3) and self.model.link.paused:
            least += delay / 1000
        least += operation.timeout_s * self.model.link.timeouts
        if self.elapsed_s < least * 0.98:
            raise Mismatch(f"the call took {self.elapsed_s:.4f} s, {least:.4f} s expected")

    # Comparison.

    def compare_call(self, expected, got, image):
        link = self.model.link
        text = self.console.take()
        requests = [step.request for step in link.exchanges]
        if link.connected_now and link.connect_mode == link_model.ACCEPT:
            self.connects += 1
        self.wait_for(lambda: len(self.peer.log) >= len(requests) or
                      (link.closed_now and self.peer.has_seen_close_of(self.connects)))
        for number, (ours, theirs) in enumerate(zip(requests, self.peer.log)):
            compare_bytes(f"request {number}", ours, theirs)
        if requests and link.closed_now and len(self.peer.log) == len(requests) - 1:
            # A time-out of zero seconds closes, and so resets, before the peer has read the request.
            self.peer.log.append(requests[-1])
        if len(self.peer.log) != len(requests):
            surplus = [show_bytes(r) for r in requests[len(self.peer.log):] + self.peer.log[len(requests):]]
            raise Mismatch(f"model sends {len(requests)} requests, driver {len(self.peer.log)}: {surplus}; "
                           f"result {expected} and {got}; console {text!r}")
        compare_console(link.out, text)
        if expected != got:
            raise Mismatch(f"result: model {expected}, driver {got}; console {text!r}")
        self.compare_descriptor()
        image = bytearray(image)
        image[loaded.CONN_AT:loaded.CONN_AT + 4] = struct.pack("<i", self.memory.socket_fd())
        compare_bytes("host records", bytes(image), self.memory.image())
        if link.state == link_model.BROKEN and link.connect_mode == link_model.ACCEPT and self.owned is not None:
            self.wait_for(lambda: is_dead(self.owned))
        if self.guarded and link.ending == link_model.RESET:
            self.wait_for(lambda: is_dead(self.owned))

    def compare_descriptor(self):
        """socket_fd: a new socket after a connect, -1 after a close, else what it was."""
        link, fd = self.model.link, self.memory.socket_fd()
        if link.connected_now:
            self.release_descriptor()
        if link.closed_now:
            if fd != -1:
                raise Mismatch(f"socket_fd is {fd} after the driver closed the connection")
            if self.owned is not None and inode_of(self.owned) == self.owned_inode:
                raise Mismatch(f"descriptor {self.owned} is still open after the driver closed the connection")
            self.owned = None
        elif link.connected_now:
            if fd < 0 or not os.path.realpath(f"/proc/self/fd/{fd}").split("/")[-1].startswith("socket:"):
                raise Mismatch(f"socket_fd is {fd} after a connect")
            self.owned, self.owned_inode = fd, inode_of(fd)
        elif fd != self.fd:
            raise Mismatch(f"socket_fd changed from {self.fd} to {fd}")
        self.fd = fd
