"""A controller on 127.0.0.1 that records every request and does with it what its script says."""

import ctypes
import fcntl
import os
import select
import socket
import struct
import termios
import threading
import time

from guarded_model import PIECES
from link_model import FINISH, REPLY, RESET

_LINGER_RESET = struct.pack("ii", 1, 0)
_ADDRESS_BYTES = 16
_DRIP_SECONDS = 0.2
_libc = ctypes.CDLL(None, use_errno=True)


class ScriptedPeer:
    """Serves one driver; the script and the log are exchanged between calls only."""

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0), backlog=64)
        self.port = self.listener.getsockname()[1]
        self.script = []
        self.log = []
        self.connections = {}
        self.latest = None
        self.lost = None
        self.accepted = 0
        self.poll = select.poll()
        self.poll.register(self.listener, select.POLLIN)
        self.refusing = socket.socket()
        self.refusing.bind(("127.0.0.1", 0))
        self.refusing_port = self.refusing.getsockname()[1]
        self.holding, self.fillers = hold_connections()
        self.holding_port = self.holding.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()

    def load(self, script):
        self.log = []
        self.script = script

    def serve(self):
        while True:
            for descriptor, _ in self.poll.poll():
                if descriptor == self.listener.fileno():
                    self.accept()
                elif descriptor in self.connections:
                    self.take(self.connections[descriptor])

    def accept(self):
        conn, _ = self.listener.accept()
        conn.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.latest = conn
        self.accepted += 1
        self.connections[conn.fileno()] = conn
        self.poll.register(conn, select.POLLIN)

    def has_seen_close_of(self, number):
        """Whether the connection that was made as the one of this number was found closed by the driver."""
        return self.accepted >= number and self.latest is self.lost

    def drop(self, conn, resets=False):
        """Closes a connection; whoever sees it gone from the table finds its descriptor closed."""
        number = conn.fileno()
        self.poll.unregister(conn)
        if resets:
            conn.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, _LINGER_RESET)
        conn.close()
        del self.connections[number]

    def reset_latest(self):
        """Resets the latest connection, from the thread that makes the calls: a close would wait for the other one."""
        _libc.connect(self.latest.fileno(), bytes(_ADDRESS_BYTES), _ADDRESS_BYTES)

    def take(self, conn):
        try:
            data = conn.recv(65536)
        except OSError:
            data = b""
        if not data:
            self.drop(conn)
            self.lost = conn
            return
        # The driver goes on at once where stale bytes stood for a reply: one receive can take several requests.
        while data:
            index = len(self.log)
            size = len(self.script[index].request) if index + 1 < len(self.script) else len(data)
            request, data = data[:size], data[size:]
            if conn.fileno() >= 0:
                self.serve_request(conn, request)
            else:
                self.log.append(request)

    def serve_request(self, conn, request):
        index = len(self.log)
        step = self.script[index] if index < len(self.script) else None
        try:
            if step is None or step.action == RESET:
                self.drop(conn, resets=True)
            elif step.action == PIECES:
                self.answer(conn, step)
            elif step.action == REPLY:
                conn.sendall(step.data)
            else:
                # A request that is not answered is acknowledged at once: the driver's next one would wait for that.
                conn.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)
                if step.action == FINISH:
                    conn.shutdown(socket.SHUT_WR)
        except OSError:
            pass  # the driver has closed meanwhile
        # Whoever finds a request in the log finds done what the script says about it.
        self.log.append(request)

    def answer(self, conn, step):
        """Sends the pieces, each after the driver has taken the one before, and ends the connection if asked to."""
        if step.drips:
            return self.drip(conn, step.data)
        other_end = find_other_end(conn) if len(step.pieces) > 1 else None
        for number, piece in enumerate(step.pieces):
            is_last = number == len(step.pieces) - 1
            if is_last and step.ending == FINISH:
                # Held back until the end of the connection goes out with it.
                conn.setsockopt(socket.IPPROTO_TCP, socket.TCP_CORK, 1)
            conn.sendall(piece)
            if not is_last:
                wait_until_taken(other_end)
        if step.ending == FINISH:
            conn.shutdown(socket.SHUT_WR)
        elif step.ending == RESET:
            self.drop(conn, resets=True)
        elif not step.data:
            conn.setsockopt(socket.IPPROTO_TCP, socket.TCP_QUICKACK, 1)

    @staticmethod
    def drip(conn, data):
        """One byte after the other until the driver has had enough."""
        for byte in data:
            conn.sendall(bytes((byte,)))
            if select.select([conn], [], [], _DRIP_SECONDS)[0]:
                return


def name_of(descriptor):
    """The local address of a socket, None for anything else; the descriptor stays its owner's."""
    room = ctypes.create_string_buffer(_ADDRESS_BYTES)
    size = ctypes.c_uint32(_ADDRESS_BYTES)
    if _libc.getsockname(descriptor, room, ctypes.byref(size)) != 0:
        return None
    family, port = struct.unpack_from("=H", room.raw)[0], struct.unpack_from(">H", room.raw, 2)[0]
    return (socket.inet_ntoa(room.raw[4:8]), port) if family == socket.AF_INET else None


def find_other_end(conn):
    """The driver's descriptor of this connection: both ends are in this process."""
    try:
        wanted = conn.getpeername()
    except OSError:
        return None
    return next((int(number) for number in os.listdir("/proc/self/fd") if name_of(int(number)) == wanted), None)


def wait_until_taken(descriptor):
    """Lets the driver receive what it was sent, for a while; it may have closed the connection."""
    deadline = time.monotonic() + 0.05
    while descriptor is not None and time.monotonic() < deadline:
        try:
            if struct.unpack("i", fcntl.ioctl(descriptor, termios.FIONREAD, b"\0\0\0\0"))[0] == 0:
                return
        except OSError:
            return
        time.sleep(0)


def hold_connections():
    """A listener whose queue is full, so that a further connection gets no answer."""
    listener = socket.create_server(("127.0.0.1", 0), backlog=0)
    fillers = []
    while True:
        filler = socket.socket()
        filler.settimeout(0.1)
        fillers.append(filler)
        try:
            filler.connect(listener.getsockname())
        except OSError:
            return listener, fillers
