"""A small broker for tests: MQTT 3.1.1 and 5, QoS 0 and 1, wills, retained messages, keep-alive. It records every
packet and misbehaves when it is told to: freezes, drops its clients, goes down and comes up, holds or swallows PUBACKs.

It runs in a thread of its own; its methods may be called from any other one and return when they have been done.
"""
import queue
import select
import selectors
import socket
import struct
import threading
import time

import mqtt
from mqtt import Packet

CONTROL_LIMIT_S = 10
TICK_S = 0.2
RESET_ON_CLOSE = struct.pack("ii", 1, 0)


class Client:
    def __init__(self, number, connection):
        self.number, self.connection = number, connection
        self.incoming, self.outgoing = bytearray(), bytearray()
        self.connected = None  # its CONNECT
        self.filters = {}
        self.seen = time.monotonic()
        self.identifier = 0
        self.gone = False  # takes nothing any more; what it sent before is still to be read

    def version(self):
        return self.connected.version if self.connected else 4


class Broker:
    def __init__(self, recording):
        self.recording = recording
        self.clients, self.retained, self.held = {}, {}, []
        self.pubacks = "now"  # "now", "hold" or "swallow"
        self.frozen = self.ended = False
        self.accepted = 0
        # Bound all the time and never listening: while the broker is down nobody else gets its port.
        self.holder = socket.socket()
        self.holder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.holder.bind(("127.0.0.1", 0))
        self.listener, self.port = None, self.holder.getsockname()[1]
        self.selector = selectors.DefaultSelector()
        self.wake_reader, self.wake_writer = socket.socketpair()
        self.jobs = queue.Queue()
        self.selector.register(self.wake_reader, selectors.EVENT_READ, self.run_jobs)
        self.start_listening()
        self.thread = threading.Thread(target=self.run, daemon=True)
        self.thread.start()

    # What tests call.

    def publish(self, topic, payload, qos=0, retain=False):
        """As if a client of the broker had published it."""
        self.call(lambda: self.route(Packet(mqtt.PUBLISH, topic=topic, payload=payload, qos=qos, retain=retain)))

    def deliver(self, topic, payload, qos=0, retain=False):
        """To every client, whether it subscribed or not: what no honest broker does."""
        message = Packet(mqtt.PUBLISH, topic=topic, payload=payload, qos=qos, retain=retain)
        self.call(lambda: [self.send_publish(client, message, qos, retain) for client in list(self.clients.values())])

    def freeze(self):
        """Nothing is read, answered or accepted; connections stay, and the system below goes on accepting bytes."""
        self.call(lambda: self.set_frozen(True))

    def thaw(self):
        self.call(lambda: self.set_frozen(False))

    def drop(self):
        """Every client loses its connection at once; the broker publishes their wills."""
        self.call(lambda: [self.close(client, "broker", "dropped", abort=True)
                           for client in list(self.clients.values())])

    def go_down(self):
        """No connection, no listener, and what was retained is gone."""
        self.call(self.stop_listening)

    def come_up(self):
        """On the same port."""
        self.call(self.listen)

    def set_pubacks(self, mode):
        self.call(lambda: setattr(self, "pubacks", mode))

    def release_pubacks(self):
        self.call(self.send_held)

    def stop(self):
        self.call(lambda: setattr(self, "ended", True))
        self.thread.join(CONTROL_LIMIT_S)
        for client in list(self.clients.values()):
            client.connection.close()
        for each in (self.listener, self.wake_reader, self.wake_writer, self.selector):
            if each:
                each.close()

    # What runs in the thread.

    def call(self, job):
        """Runs it in the thread and waits for its end; what it raises is raised here."""
        done, failures = threading.Event(), []

        def run():
            try:
                job()
            except Exception as failure:  # handed on to the caller
                failures.append(failure)
            done.set()

        self.jobs.put(run)
        self.wake_writer.send(b"\0")
        if not done.wait(CONTROL_LIMIT_S):
            raise TimeoutError("the broker's thread does not answer")
        if failures:
            raise failures[0]

    def run_jobs(self, _events):
        self.wake_reader.recv(4096)
        while not self.jobs.empty():
            self.jobs.get()()

    def run(self):
        while not self.ended:
            for key, events in self.selector.select(TICK_S):
                if key.data == self.run_jobs or not self.frozen and key.fileobj.fileno() >= 0:
                    key.data(events)
            self.end_silent_clients()

    def set_frozen(self, frozen):
        if frozen == self.frozen:
            return
        self.frozen = frozen
        self.recording.add(event="frozen" if frozen else "thawed")
        watched = [self.listener] if self.listener else []
        watched += [client.connection for client in self.clients.values()]
        for each in watched:
            if frozen:
                self.selector.unregister(each)
        if not frozen:
            if self.listener:
                self.selector.register(self.listener, selectors.EVENT_READ, self.accept)
            for client in self.clients.values():
                client.seen = time.monotonic()
                self.watch(client, new=True)

    def listen(self):
        self.start_listening()
        self.recording.add(event="up")

    def start_listening(self):
        self.listener = socket.socket()
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.listener.bind(("127.0.0.1", self.port))
        self.listener.listen(64)
        self.listener.setblocking(False)
        self.selector.register(self.listener, selectors.EVENT_READ, self.accept)

    def stop_listening(self):
        self.set_frozen(False)
        # A CONNECT that was sent is recorded, also when it never gets an answer: the node's numbers go on behind it.
        while select.select([self.listener], [], [], 0)[0]:
            self.accept(0)
        self.selector.unregister(self.listener)
        self.listener.close()
        self.listener = None
        for client in list(self.clients.values()):
            if client.connected is None:
                self.read(client)
        for client in list(self.clients.values()):
            self.close(client, "broker", "the broker goes down", abort=True, with_will=False)
        self.retained, self.held = {}, []
        self.recording.add(event="down")

    def accept(self, _events):
        try:
            connection, _ = self.listener.accept()
        except (BlockingIOError, ConnectionError):
            return
        connection.setblocking(False)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.accepted += 1
        client = Client(self.accepted, connection)
        self.clients[client.number] = client
        self.recording.add(event="open", conn=client.number)
        self.watch(client, new=True)

    def watch(self, client, new=False):
        events = selectors.EVENT_READ | (selectors.EVENT_WRITE if client.outgoing else 0)
        change = self.selector.register if new else self.selector.modify
        change(client.connection, events, lambda happened: self.serve(client, happened))

    def serve(self, client, events):
        if events & selectors.EVENT_WRITE:
            self.flush(client)
        if events & selectors.EVENT_READ and client.number in self.clients:
            self.read(client)

    def read(self, client):
        try:
            data = client.connection.recv(1 << 20)
        except BlockingIOError:
            return
        except OSError as problem:
            self.close(client, "client", problem.strerror)
            return
        client.incoming += data
        client.seen = time.monotonic()
        try:
            while client.number in self.clients:
                whole = mqtt.split(client.incoming)
                if whole is None:
                    break
                del client.incoming[:len(whole)]
                self.recording.add(conn=client.number, dir="in", hex=whole.hex())
                self.take(client, mqtt.parse(whole, client.version()))
        except mqtt.MalformedPacket as problem:
            self.close(client, "broker", str(problem))
        if not data and client.number in self.clients:
            self.close(client, "client", "end of stream")

    def send(self, client, data):
        if client.number in self.clients and not client.gone:
            self.recording.add(conn=client.number, dir="out", hex=data.hex())
            client.outgoing += data
            self.flush(client)

    def flush(self, client):
        if self.frozen:
            return
        try:
            while client.outgoing:
                del client.outgoing[:client.connection.send(client.outgoing)]
        except BlockingIOError:
            pass
        except OSError:
            client.gone = True
            client.outgoing.clear()
        self.watch(client)

    def close(self, client, by, why, abort=False, with_will=True):
        if self.clients.pop(client.number, None) is None:
            return
        if not self.frozen:
            self.selector.unregister(client.connection)
        if abort:
            client.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, RESET_ON_CLOSE)
        client.connection.close()
        self.recording.add(event="close", conn=client.number, by=by, why=why)
        if with_will and client.connected and client.connected.will:
            self.recording.add(event="will", conn=client.number)
            self.route(client.connected.will)

    def end_silent_clients(self):
        for client in list(self.clients.values()) if not self.frozen else []:
            limit = client.connected.keep_alive_s * 1.5 if client.connected else CONTROL_LIMIT_S
            if limit and time.monotonic() - client.seen > limit:
                self.close(client, "broker", "silent for longer than its keep-alive")

    def take(self, client, packet):
        if (packet.kind == mqtt.CONNECT) == (client.connected is not None):
            raise mqtt.MalformedPacket("a packet before CONNECT, or a second CONNECT")
        if packet.kind == mqtt.CONNECT:
            for other in list(self.clients.values()):
                if other.connected and other.connected.client == packet.client:
                    self.close(other, "broker", "another connection has the same client id")
            client.connected = packet
            self.send(client, mqtt.connack(packet.version))
        elif packet.kind == mqtt.PUBLISH:
            self.route(packet)
            if packet.qos:
                self.answer_publish(client, packet)
        elif packet.kind == mqtt.PUBREL:
            self.send(client, mqtt.acknowledge(mqtt.PUBCOMP, packet.identifier))
        elif packet.kind == mqtt.SUBSCRIBE:
            self.subscribe(client, packet)
        elif packet.kind == mqtt.UNSUBSCRIBE:
            for text, _ in packet.filters:
                client.filters.pop(text, None)
            self.send(client, mqtt.suback(mqtt.UNSUBACK, packet.identifier, [0] * len(packet.filters), packet.version))
        elif packet.kind == mqtt.PINGREQ:
            self.send(client, mqtt.build(mqtt.PINGRESP, 0, b""))
        elif packet.kind == mqtt.DISCONNECT:
            self.close(client, "client", "DISCONNECT", with_will=packet.reason == mqtt.WITH_WILL)

    def answer_publish(self, client, packet):
        if packet.qos == 2:
            self.send(client, mqtt.acknowledge(mqtt.PUBREC, packet.identifier))
        elif self.pubacks == "now":
            self.send(client, mqtt.acknowledge(mqtt.PUBACK, packet.identifier))
        elif self.pubacks == "hold":
            self.held.append((client, packet.identifier))

    def send_held(self):
        self.pubacks = "now"
        self.recording.add(event="released")
        for client, identifier in self.held:
            self.send(client, mqtt.acknowledge(mqtt.PUBACK, identifier))
        self.held = []

    def subscribe(self, client, packet):
        granted = [min(qos, 1) for _, qos in packet.filters]
        self.send(client, mqtt.suback(mqtt.SUBACK, packet.identifier, granted, packet.version))
        for (text, _), qos in zip(packet.filters, granted):
            client.filters[text] = qos
            for message in list(self.retained.values()):
                if mqtt.matches(text, message.topic):
                    self.send_publish(client, message, qos, retain=True)

    def route(self, message):
        if message.retain:
            self.retained.pop(message.topic, None)
            if message.payload:
                self.retained[message.topic] = message
        for client in list(self.clients.values()):
            qualities = [qos for text, qos in client.filters.items() if mqtt.matches(text, message.topic)]
            if qualities:
                self.send_publish(client, message, max(qualities), retain=False)

    def send_publish(self, client, message, qos, retain):
        qos = min(qos, message.qos)
        if qos:
            client.identifier = client.identifier % 0xFFFF + 1
        self.send(client, mqtt.publish(Packet(mqtt.PUBLISH, client.version(), client.identifier if qos else 0,
                                              message.topic, message.payload, qos, retain)))
