"""A controller on 127.0.0.1 that records every request and does with it what its script says."""

import select
import socket
import struct
import threading

from link_model import FINISH, REPLY, RESET

_LINGER_RESET = struct.pack("ii", 1, 0)


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

    def take(self, conn):
        try:
            data = conn.recv(65536)
        except OSError:
            data = b""
        if not data:
            self.drop(conn)
            self.lost = conn
            return
        index = len(self.log)
        step = self.script[index] if index < len(self.script) else None
        try:
            if step is None or step.action == RESET:
                self.drop(conn, resets=True)
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
        self.log.append(data)


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
