#!/usr/bin/env python3
"""Records what the loaded driver and the simulated controller say to each other, and holds the dissector to it: no
expert item on healthy traffic, every value that the host was given stands in the dissection under its name, and the
simulator's own capture shows the same frames.

check_live.py --host PLC_HOST --library LIBPLC_DRIVER --sim PLC_SIM
"""

import argparse
import difflib
import json
import pathlib
import re
import select
import socket
import subprocess
import sys
import tempfile
import threading

import check_dissector
from check_dissector import Failure, make_samples

TAGS = """Speed,UINT,,,a,b,c,0,1,0,0,,DM
Count,UDINT,,,a,b,c,1,1,0,0,,EM
Long,ULINT,,,a,b,c,2,1,0,0,,DM
Text,STRING,,20,a,b,c,3,1,0,0,,DM
Flag,BOOL,,,a,b,c,4,1,0,0,,MR
M.Word,UINT,,,a,b,c,5,0,0,3,MAIN,DM
M.Flag,BOOL,,,a,b,c,6,0,0,3,MAIN,DM
Table,UINT,[0..4],,a,b,c,7,1,0,0,,DM
Long2,ULINT,[0..3],,a,b,c,8,0,0,4,SECOND,DM
Bits,BOOL,[0..15],,a,b,c,9,1,0,0,,MR
S.Flag,BOOL,,,a,b,c,10,1,0,0,,EM
L[1].Flag,BOOL,,,a,b,c,11,1,0,0,,DM
"""
WRITES = ["Speed=4660", "Count=287454020", "Long=1234605616436508552", 'Text="ABCDEFGH"', "Flag=true",
          "Table=[1,2,3,4,5]", "MAIN/M.Flag=false", "S.Flag=true", "L[1].Flag=true", "Bits[3]=true"]
RUN_LIMIT_S = 60


class Recorder:
    """Passes bytes between the host and the simulator, and keeps each receive as one segment of a capture."""

    def __init__(self, port):
        self.port = port
        self.capture = make_samples.Capture()
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.own_port = self.listener.getsockname()[1]
        threading.Thread(target=self.serve, daemon=True).start()

    def serve(self):
        while True:
            client, _ = self.listener.accept()
            with client, socket.create_connection(("127.0.0.1", self.port)) as server:
                self.capture.connect()
                self.relay(client, server)
                self.capture.close()

    def relay(self, client, server):
        while True:
            for ready in select.select([client, server], [], [])[0]:
                try:
                    data = ready.recv(65536)
                except ConnectionResetError:
                    return
                if not data:
                    return
                self.capture.segment(ready is client, data)
                (server if ready is client else client).sendall(data)


def run_host(options, recorder, tags, *arguments):
    """The JSON records that plc-host prints."""
    command = [options.host, arguments[0], "--library", options.library, "--address", "127.0.0.1", "--port",
               str(recorder.own_port), "--tags", str(tags), "--json", *arguments[1:]]
    done = subprocess.run(command, text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                          timeout=RUN_LIMIT_S, cwd=tags.parent, check=False)
    if done.returncode != 0:
        raise Failure("%s: exit code %d\n%s%s" % (" ".join(command), done.returncode, done.stdout, done.stderr))
    return [json.loads(line) for line in done.stdout.splitlines()]


def record_session(options, folder, path, own_path):
    tags = folder / "PLC7F000001_0.csv"
    tags.write_text(TAGS, encoding="ascii")
    command = [options.sim, "--sentinel", "--pcap", str(own_path), str(tags)]
    with subprocess.Popen(command, text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as simulator:
        port = int(re.match(r"listening on 127\.0\.0\.1:(\d+)$", simulator.stdout.readline().strip())[1])
        recorder = Recorder(port)
        records = run_host(options, recorder, tags, "read", "--all")
        run_host(options, recorder, tags, "write", "--verify", *WRITES)
        run_host(options, recorder, tags, "batch", "Speed", "Count", "Table")
        simulator.stdin.close()
        verdict = simulator.stdout.read()
    if simulator.returncode != 0:
        raise Failure("plc-sim ends with %d:\n%s" % (simulator.returncode, verdict))
    recorder.capture.write(path)
    return records


def dissected_values(path):
    """The first reading of each name's value in a read."""
    tree = check_dissector.tshark(["-r", str(path), "-V", "-O", "plckv", "-Y", "plckv.reply"] + check_dissector.PORT)
    values = {}
    for name, reading in re.findall(r"Value: \S+ \((.+?) = (.+)\)\n", tree):
        values.setdefault(name, reading)
    return values


def frame_lines(path):
    """What the dissector says of each frame, on whatever port it was captured."""
    lines = check_dissector.tshark(["-r", str(path), "-Y", "plckv", "-T", "fields", "-e", "_ws.col.Info"])
    if lines.count("\n") < 20:
        raise Failure("%s shows %d frames" % (path.name, lines.count("\n")))
    return lines


def wanted_values(records):
    """What the dissector must show for each record: by element where the driver names elements."""
    for record in records:
        name, value = record["name"].split("/")[-1], record["value"]
        if record["type"].startswith("BOOL"):
            continue
        if isinstance(value, list):
            for index, element in enumerate(value):
                yield "%s[#%d]" % (name, index), str(element)
        elif isinstance(value, str):
            yield name + "[#0]", '"%s"' % value
        else:
            yield name, str(value)


def check_live(options):
    with tempfile.TemporaryDirectory() as name:
        path, own_path = pathlib.Path(name) / "live.pcap", pathlib.Path(name) / "own.pcap"
        records = record_session(options, pathlib.Path(name), path, own_path)
        recorded, own = frame_lines(path), frame_lines(own_path)
        if recorded != own:
            raise Failure("the simulator's capture shows other frames than the recorder's:\n" + "\n".join(
                difflib.unified_diff(recorded.split("\n"), own.split("\n"), "recorder", "simulator", lineterm="")))
        arguments = ["-r", str(path), "-Y", "plckv && _ws.expert", "-T", "fields"]
        items = check_dissector.tshark(arguments + ["-e", "frame.number", "-e", "_ws.col.Info", "-e",
                                                    "_ws.expert.message"] + check_dissector.PORT)
        if items.strip():
            raise Failure("expert items on healthy traffic:\n" + items)
        values, compared = dissected_values(path), 0
        for name, value in wanted_values(records):
            if not values.get(name, "").startswith(value):
                raise Failure("%s: the host was given %s, the dissector shows %s" % (name, value, values.get(name)))
            compared += 1
        if compared < 14:
            raise Failure("%d values compared" % compared)


def main():
    parser = argparse.ArgumentParser()
    for name in ("--host", "--library", "--sim"):
        parser.add_argument(name, required=True)
    try:
        check_live(parser.parse_args())
    except Failure as failure:
        print(failure)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
