"""mosquitto with TLS and passwords, with certificates that openssl makes for it, and a relay in front of it that
records what passes."""
import os
import pathlib
import select
import shutil
import socket
import ssl
import subprocess
import threading
import time

import mqtt

START_LIMIT_S = 20
SEND_LIMIT_S = 10
USERS = {"press1": "secret", "scada": "hidden"}
KEY = ["-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes"]
# The broker's certificates by their names: who signed it, and for how many days from now.
CERTIFICATES = {"good": ("authority", 2), "expired": ("authority", -1), "foreign": ("other", 2)}


def program(name):
    """Of a program of the system's, which a user's search path may lack."""
    found = shutil.which(name, path=os.environ.get("PATH", "") + ":/usr/sbin")
    if found is None:
        raise OSError(f"there is no {name}: install mosquitto, mosquitto-clients and openssl")
    return found


def run(*words):
    done = subprocess.run(words, check=False, capture_output=True, text=True, timeout=START_LIMIT_S)
    if done.returncode != 0:
        raise OSError(f"{words[0]} {words[1]}: {done.stderr.strip()}")


def make_certificates(folder):
    openssl = program("openssl")
    for authority in ("authority", "other"):
        run(openssl, "req", "-x509", *KEY, "-keyout", f"{folder}/{authority}.key", "-out", f"{folder}/{authority}.pem",
            "-subj", f"/CN={authority}", "-days", "2")
    names = pathlib.Path(folder, "names")
    names.write_text("subjectAltName=DNS:localhost", encoding="ascii")
    for name, (authority, days) in CERTIFICATES.items():
        run(openssl, "req", *KEY, "-keyout", f"{folder}/{name}.key", "-out", f"{folder}/{name}.csr", "-subj",
            "/CN=localhost")
        run(openssl, "x509", "-req", "-in", f"{folder}/{name}.csr", "-CA", f"{folder}/{authority}.pem", "-CAkey",
            f"{folder}/{authority}.key", "-CAcreateserial", "-out", f"{folder}/{name}.pem", "-days", str(days),
            "-extfile", str(names))


def held_port():
    """Bound and never listening: nobody else gets the port, and a listener with the same option may have it."""
    holder = socket.socket()
    holder.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    holder.bind(("127.0.0.1", 0))
    return holder


class Mosquitto:
    """A listener for each certificate; all of them want a name and a password."""

    def __init__(self, folder):
        self.folder = folder
        self.holders = {name: held_port() for name in CERTIFICATES}
        self.ports = {name: holder.getsockname()[1] for name, holder in self.holders.items()}
        make_certificates(folder)
        passwords = pathlib.Path(folder, "passwords")
        passwords.touch(mode=0o700)
        for user, password in USERS.items():
            run(program("mosquitto_passwd"), "-b", str(passwords), user, password)
        lines = ["per_listener_settings false", "allow_anonymous false", f"password_file {passwords}"]
        for name, port in self.ports.items():
            lines += [f"listener {port} 127.0.0.1", f"certfile {folder}/{name}.pem", f"keyfile {folder}/{name}.key"]
        config = pathlib.Path(folder, "broker.conf")
        config.write_text("\n".join(lines) + "\n", encoding="utf-8")
        # Started by root it goes on as a user of its own.
        os.chmod(folder, 0o755)
        for path in (passwords, *pathlib.Path(folder).glob("*.key")):
            path.chmod(0o644)
        self.log = open(pathlib.Path(folder, "broker.log"), "wb")
        self.process = subprocess.Popen([program("mosquitto"), "-c", str(config)], stdin=subprocess.DEVNULL,
                                        stdout=self.log, stderr=self.log)
        self.wait_until_there()

    def wait_until_there(self):
        end = time.monotonic() + START_LIMIT_S
        for port in self.ports.values():
            while True:
                try:
                    socket.create_connection(("127.0.0.1", port), timeout=1).close()
                    break
                except ConnectionRefusedError as refused:
                    if self.process.poll() is not None or time.monotonic() > end:
                        raise OSError("mosquitto does not start; its lines are in broker.log") from refused
                    time.sleep(0.02)

    def publish(self, topic, payload):
        """As a host that has a name and a password."""
        subprocess.run([program("mosquitto_pub"), "-h", "localhost", "-p", str(self.ports["good"]), "--cafile",
                        f"{self.folder}/authority.pem", "-u", "scada", "-P", USERS["scada"], "-t", topic, "-s"],
                       input=payload, check=True, timeout=START_LIMIT_S)

    def stop(self):
        self.process.terminate()
        self.process.wait(START_LIMIT_S)
        self.log.close()
        for holder in self.holders.values():
            holder.close()


class Relay:
    """Takes connections with TLS, records every packet, and hands them on to the broker, with TLS too."""

    def __init__(self, recording, folder, port):
        self.recording, self.port_behind = recording, port
        self.front = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.front.load_cert_chain(f"{folder}/good.pem", f"{folder}/good.key")
        self.behind = ssl.create_default_context(cafile=f"{folder}/authority.pem")
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.connections, self.dropped = {}, set()
        self.threads = []
        self.accepter = threading.Thread(target=self.accept, daemon=True)
        self.accepter.start()

    def accept(self):
        for number in range(1, 1 << 30):
            try:
                connection, _ = self.listener.accept()
            except OSError:
                return
            self.connections[number] = connection
            thread = threading.Thread(target=self.serve, args=(number, connection), daemon=True)
            self.threads.append(thread)
            thread.start()

    def serve(self, number, connection):
        self.recording.add(event="open", conn=number)
        by, why = "broker", "the handshake failed"
        try:
            connection.settimeout(SEND_LIMIT_S)
            with self.front.wrap_socket(connection, server_side=True) as front:
                self.connections[number] = front
                raw = socket.create_connection(("127.0.0.1", self.port_behind), timeout=SEND_LIMIT_S)
                with self.behind.wrap_socket(raw, server_hostname="localhost") as back:
                    by, why = self.carry(number, front, back)
        except (OSError, mqtt.MalformedPacket) as problem:
            why = str(problem)
        if number in self.dropped:
            by, why = "broker", "dropped"
        self.recording.add(event="close", conn=number, by=by, why=why)

    def carry(self, number, front, back):
        """Who ended it, and how."""
        unread = {front: bytearray(), back: bytearray()}
        other, direction = {front: back, back: front}, {front: "in", back: "out"}
        while True:
            ready = [side for side in unread if side.pending()] or select.select([front, back], [], [], 1)[0]
            for side in ready:
                side.setblocking(False)
                try:
                    data = side.recv(65536)
                except ssl.SSLWantReadError:
                    continue
                finally:
                    side.settimeout(SEND_LIMIT_S)
                if not data:
                    return ("client" if side is front else "broker"), "end of stream"
                unread[side] += data
                while (whole := mqtt.split(unread[side])) is not None:
                    del unread[side][:len(whole)]
                    self.recording.add(conn=number, dir=direction[side], hex=whole.hex())
                other[side].sendall(data)

    def drop(self):
        """Every connection ends without a word, on both sides."""
        for number, connection in list(self.connections.items()):
            self.dropped.add(number)
            try:
                # That of the connection below: with its own, what still comes would be taken for plain text.
                socket.socket.shutdown(connection, socket.SHUT_RDWR)
            except OSError:
                pass

    def stop(self):
        self.listener.shutdown(socket.SHUT_RDWR)
        self.listener.close()
        self.drop()
        for thread in [self.accepter, *self.threads]:
            thread.join(SEND_LIMIT_S)
