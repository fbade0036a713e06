#!/usr/bin/env python3
"""Runs plc-gateway where memory, descriptors, standard streams, address space or room for files are out.

check_gateway.py memory|descriptors|streams|disk|space [--all] --library L --sim S --gateway G --scarce-gateway G

The gateway checks its configuration, polls a simulated controller, publishes on a broker that this program plays, is
told to stop, and shows its journal. Every run must end with an exit code that the documents list and, when it did not
do what it was asked, with a line on standard error that says who speaks. No value is published that the controller
does not have. What is left of the journal can be read. Memory fails as check_environments.py describes.
"""

import argparse
import contextlib
import os
import re
import resource
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading

from check_environments import (Bench, Failure, Outcome, RUN_LIMIT_S, STREAMS, demand, is_not_begun, places,
                                running_simulator, without)

CODES = {0, 1, 2, 3, 4, 8, 9}
VALUE = 4711
STOP_AFTER_S = 10  # a gateway that does not come to publish is told to stop as well
TALKS = re.compile(r"^(plc-gateway: |\S+: error: |time=\S+ level=(error|warning) )\S", re.M)
CONNECT, PUBLISH, SUBSCRIBE, PING, DISCONNECT = 1, 3, 8, 12, 14


class Broker:
    """MQTT 3.1.1 as far as a gateway needs it: everything is taken and acknowledged."""

    def __init__(self):
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.published = []
        self.is_confirmed = threading.Event()
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        with contextlib.suppress(OSError):
            while True:
                connection, _ = self.listener.accept()
                threading.Thread(target=self.talk, args=(connection,), daemon=True).start()

    def talk(self, connection):
        with connection, connection.makefile("rb") as stream, contextlib.suppress(OSError, IndexError, struct.error):
            while True:
                head = stream.read(1)[0]
                length = shift = 0
                more = True
                while more:
                    byte = stream.read(1)[0]
                    length |= (byte & 0x7F) << shift
                    shift += 7
                    more = byte & 0x80 != 0
                answer = self.answer(head, stream.read(length))
                if answer is None:
                    return
                connection.sendall(answer)

    def answer(self, head, body):
        kind = head >> 4
        if kind == CONNECT:
            return b"\x20\x02\x00\x00"
        if kind == SUBSCRIBE:
            return b"\x90\x03" + body[:2] + b"\x01"
        if kind == PING:
            return b"\xd0\x00"
        if kind == DISCONNECT:
            return None
        if kind != PUBLISH:
            return b""
        end = 2 + struct.unpack(">H", body[:2])[0]
        topic = body[2:end].decode()
        has_number = head & 6 != 0
        self.published.append((topic, body[end + (2 if has_number else 0):]))
        if topic.endswith("/fence"):
            self.is_confirmed.set()
        return b"\x40\x02" + body[end:end + 2] if has_number else b""

    def close(self):
        self.listener.close()


class GatewayBench(Bench):
    def prepare(self, broker, number):
        """A configuration with a journal that nobody has had."""
        journal = self.folder / f"journal{number}"
        shutil.rmtree(journal, ignore_errors=True)
        journal.mkdir(mode=0o700)
        config = self.folder / f"gateway{number}.toml"
        config.write_text(f"""[controller]
name = "device"
address = "127.0.0.1"
port = {self.port}
tags = "{self.tags}"
reply_timeout_s = 1
driver = "{self.options.library}"
[broker]
url = "mqtt://127.0.0.1:{broker.port}"
[sparkplug]
group = "Plant"
edge_node = "node"
[json]
topic = "json/{{name}}"
[[poll]]
every_ms = 50
names = ["Speed", "Text"]
[journal]
folder = "{journal}"
[metrics]
listen = "127.0.0.1:0"
""")
        return config

    def publish(self, program, limit=None, fail_at=None, out=subprocess.PIPE, err=subprocess.PIPE, number=0):
        """From the start to the signal that ends it, which comes when the broker has confirmed values."""
        with contextlib.suppress(FileNotFoundError):
            self.log.unlink()
        broker = Broker()
        config = self.prepare(broker, number)
        with subprocess.Popen([program, "run", config], stdin=subprocess.DEVNULL, stdout=out, stderr=err,
                              env=self.environment(fail_at), preexec_fn=limit) as child:
            ended = threading.Event()

            def stop():
                broker.is_confirmed.wait(STOP_AFTER_S)
                if not ended.is_set():
                    child.terminate()

            threading.Thread(target=stop, daemon=True).start()
            try:
                output, errors = child.communicate(timeout=RUN_LIMIT_S)
            except subprocess.TimeoutExpired as expired:
                child.kill()
                raise Failure("plc-gateway does not end") from expired
            finally:
                ended.set()
                broker.is_confirmed.set()
                broker.close()
        outcome = Outcome(child.returncode, (output or b"").decode(errors="replace"),
                          (errors or b"").decode(errors="replace"))
        outcome.published = broker.published
        outcome.config = config
        outcome.has_failed = self.has_failed()
        outcome.places = [] if outcome.has_failed or not self.log.exists() else places(self, 0)
        return outcome


def ends_in_a_library(outcome):
    """Before the program begins: behind that it speaks itself, where nothing else does."""
    return outcome.code == -signal.SIGABRT and outcome.err.startswith("terminate called ")


def look_at(bench, outcome, is_silent=False):
    demand(outcome.code in CODES, "the exit code is none of plc-gateway's", outcome)
    demand("Sanitizer" not in outcome.err, "a sanitizer speaks", outcome)
    demand(outcome.code == 0 or is_silent or TALKS.search(outcome.err), "plc-gateway does not say why", outcome)
    for topic, content in outcome.published:
        if topic == "json/Speed":
            is_true = b'"value":%d,' % VALUE in content or b'"value":null,' in content
            demand(is_true, f"a value that was not read: {content}", outcome)
    left = [str(path) for path in bench.temporary.iterdir()]
    demand(not left, f"left behind: {left}", outcome)
    look_at_journal(bench, outcome)


def look_at_journal(bench, outcome):
    """Another start finds it whole, or finds none."""
    shown = bench.run((bench.options.gateway, "journal", outcome.config))
    has_none = shown.code == 8 and "there is no journal yet" in shown.err
    demand(has_none or (shown.code == 0 and shown.out.startswith("rows ")), f"the journal is damaged: {shown.err}",
           outcome)


def works(bench, program):
    good = bench.publish(program)
    demand(good.code == 0, "plc-gateway does not work at all", good)
    topics = {topic for topic, _ in good.published}
    expected = {"json/Speed", "spBv1.0/Plant/NBIRTH/node", "spBv1.0/Plant/DBIRTH/node/device"}
    demand(expected <= topics, f"not published: {expected - topics}", good)
    look_at(bench, good)
    return good


def memory(bench):
    program = bench.options.scarce_gateway
    found = works(bench, program).places
    demand(found, "no request for memory is counted", Outcome(0, "", ""))
    tried = 0
    for place in found:
        bench.clear()
        outcome = bench.publish(program, fail_at=place)
        if ends_in_a_library(outcome):
            continue
        tried += outcome.has_failed
        try:
            look_at(bench, outcome)
        except Failure as failure:
            raise Failure(f"request {place}: {failure}") from failure
    return tried


def limited(kind, most):
    return lambda: resource.setrlimit(kind, (most, most))


def descriptors(bench):
    works(bench, bench.options.gateway)
    tried = 0
    for most in range(4, 60, 1 if bench.options.all else 9):
        bench.clear()
        outcome = bench.publish(bench.options.gateway, limited(resource.RLIMIT_NOFILE, most))
        if is_not_begun(outcome):
            continue
        tried += 1
        look_at(bench, outcome)
        demand(outcome.code == 0 or "it needs 40 descriptors besides those that are open" in outcome.err,
               f"{most} descriptors", outcome)
    return tried


def streams(bench):
    works(bench, bench.options.gateway)
    for closed in STREAMS:
        bench.clear()
        outcome = bench.publish(bench.options.gateway, lambda streams=closed: without(streams))
        demand(outcome.code == 0, f"plc-gateway without {closed}", outcome)
        look_at(bench, outcome, is_silent=True)
    return len(STREAMS)


def disk(bench):
    good = works(bench, bench.options.gateway)
    tried = 0
    least = 3 << 20
    for size in (0, 1, 4096, 100000, least - 1, least):
        bench.clear()
        outcome = bench.publish(bench.options.gateway, limited(resource.RLIMIT_FSIZE, size))
        tried += 1
        if size < least:
            demand(outcome.code == 1 and "it needs files of 3 MiB" in outcome.err, f"files of {size} bytes", outcome)
        else:
            demand(outcome.code == 0, f"files of {size} bytes", outcome)
        look_at(bench, outcome)
    with open("/dev/full", "wb") as full:
        outcome = bench.publish(bench.options.gateway, err=full)
        demand(outcome.code == 0, "a log on a full device", outcome)
        look_at(bench, outcome)
        for command in ("check", "journal"):
            outcome = bench.run((bench.options.gateway, command, good.config), out=full)
            demand(outcome.code == 8 and TALKS.search(outcome.err), f"{command} on a full device", outcome)
            tried += 1
    return tried + 1


def space(bench):
    """Addresses run out, so that a thread has no room, nor anything that libraries ask for."""
    works(bench, bench.options.gateway)
    tried = 0
    for megabytes in range(32, 256, 4 if bench.options.all else 32):
        bench.clear()
        outcome = bench.publish(bench.options.gateway, limited(resource.RLIMIT_AS, megabytes << 20))
        if is_not_begun(outcome):
            continue
        tried += 1
        try:
            look_at(bench, outcome)
        except Failure as failure:
            raise Failure(f"{megabytes} MiB: {failure}") from failure
    demand(outcome.code == 0, "256 MiB are not enough", outcome)
    return tried


CHECKS = {check.__name__: check for check in (memory, descriptors, streams, disk, space)}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("what", choices=CHECKS)
    parser.add_argument("--all", action="store_true")
    for option in ("library", "sim", "gateway", "scarce-gateway"):
        parser.add_argument("--" + option, required=True)
    options = parser.parse_args()
    options.all = options.all or os.environ.get("PLC_HOSTILE_ALL") == "1"
    signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
    with tempfile.TemporaryDirectory() as folder:
        bench = GatewayBench(options, folder)
        with running_simulator(bench) as simulator:
            try:
                simulator.stdin.write(f"set Speed {VALUE}\n".encode())
                simulator.stdin.flush()
                simulator.stdout.readline()
                print(f"{options.what}: {CHECKS[options.what](bench)} runs", flush=True)
            except Failure as failure:
                print(failure, file=sys.stderr)
                return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
