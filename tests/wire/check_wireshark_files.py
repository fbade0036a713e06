#!/usr/bin/env python3
"""Rewrites a sample capture with tshark, editcap and mergecap and holds plc-host and plc-sim to the same answers: what
plc-host why says of a value, and what plc-sim --replay sends for each captured request.

check_wireshark_files.py --host PLC_HOST --sim PLC_SIM --sample SESSION_PCAP
"""

import argparse
import json
import pathlib
import socket
import struct
import subprocess
import sys
import tempfile

RUN_LIMIT_S = 60
HEAD_BYTES = 54  # Ethernet, IPv4 and TCP in the samples
MAGIC = {"pcapng": bytes.fromhex("0A0D0D0A"), "nanoseconds": bytes.fromhex("4D3CB2A1")}


class Failure(Exception):
    pass


def run(*command):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=RUN_LIMIT_S,
                          stdin=subprocess.DEVNULL, check=False)
    if done.returncode != 0:
        raise Failure("%s ended with %d: %s" % (" ".join(command), done.returncode, done.stderr))
    return done.stdout


def rewritten(sample, folder):
    """The sample in each form that people have captures in, by name."""
    files = {name: str(folder / name) for name in ("tshark.pcapng", "editcap.pcapng", "nanoseconds.pcap", "two.pcapng")}
    run("tshark", "-n", "-r", sample, "-w", files["tshark.pcapng"])
    run("editcap", "-F", "pcapng", sample, files["editcap.pcapng"])
    run("editcap", "-F", "nsecpcap", sample, files["nanoseconds.pcap"])
    # Two interfaces in one file.
    run("mergecap", "-a", "-w", files["two.pcapng"], sample, str(pathlib.Path(sample).with_name("fault_merged.pcap")))
    for name, path in files.items():
        kind = "pcapng" if name.endswith("pcapng") else "nanoseconds"
        if pathlib.Path(path).read_bytes()[:4] != MAGIC[kind]:
            raise Failure("%s is no %s file" % (name, kind))
    return files


def exchanges_of(sample):
    """Requests and replies as they stand in the sample, read without the code under test."""
    content, at, exchanges = pathlib.Path(sample).read_bytes(), 24, []
    while at < len(content):
        size = struct.unpack_from("<I", content, at + 8)[0]
        packet = content[at + 16:at + 16 + size]
        at += 16 + size
        from_port, to_port = struct.unpack_from(">HH", packet, 34)
        if size <= HEAD_BYTES:
            continue
        if from_port > to_port:
            exchanges.append([packet[HEAD_BYTES:], b""])
        else:
            exchanges[-1][1] += packet[HEAD_BYTES:]
    if len(exchanges) < 5:
        raise Failure("the sample holds %d exchanges" % len(exchanges))
    return exchanges


def receive(connection, size):
    received = b""
    while len(received) < size:
        piece = connection.recv(size - len(received))
        if not piece:
            raise Failure("the connection ended after %d of %d bytes" % (len(received), size))
        received += piece
    return received


def check_replay(sim, path, exchanges):
    process = subprocess.Popen([sim, "--replay", path], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True)
    try:
        line = process.stdout.readline()
        if "listening on" not in line:
            raise Failure("plc-sim --replay %s says: %s%s" % (path, line, process.stderr.read()))
        port = int(line.rsplit(":", 1)[1])
        with socket.create_connection(("127.0.0.1", port), timeout=RUN_LIMIT_S) as connection:
            for request, reply in exchanges:
                connection.sendall(request)
                answer = receive(connection, len(reply))
                if answer != reply:
                    raise Failure("%s: %s is answered with %s" % (path, request.hex(), answer.hex()))
    finally:
        process.communicate(timeout=RUN_LIMIT_S)


def main():
    parser = argparse.ArgumentParser()
    for name in ("--host", "--sim", "--sample"):
        parser.add_argument(name, required=True)
    options = parser.parse_args()

    def road(path):
        found = json.loads(run(options.host, "why", "--capture", path, "--json", "D"))
        if found.pop("from") != path:
            raise Failure("%s: the report is of another file" % path)
        return found

    exchanges = exchanges_of(options.sample)
    expected = road(options.sample)
    if not expected["exchanges"] or expected["wrong"]:
        raise Failure("nothing good is found in the sample: %s" % expected)
    with tempfile.TemporaryDirectory() as name:
        files = rewritten(options.sample, pathlib.Path(name))
        for kind, path in files.items():
            found = road(path)
            if kind == "two.pcapng":  # the other connection asks for the value once more
                found["times_asked"] -= 1
            if found != expected:
                raise Failure("%s: %s instead of %s" % (kind, found, expected))
            check_replay(options.sim, path, exchanges)
    print("%d files read as the sample is" % len(files))


if __name__ == "__main__":
    try:
        main()
    except Failure as failure:
        sys.exit("check_wireshark_files: %s" % failure)
