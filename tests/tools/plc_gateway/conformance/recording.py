"""The record of a session: every packet of every connection with its bytes and time, and what happened beside them, as
lines of JSON.

{"n": 7, "t": 1700000000123.4, "conn": 2, "dir": "in", "hex": "3012..."}    in: from a client to the broker
{"n": 8, "t": 1700000000125.0, "event": "close", "conn": 2, "by": "client", "why": "..."}

Entries are numbered from 1, `t` is milliseconds since 1970 UTC. Connections are numbered in the order in which the
broker accepted them. Events without a connection are notes of whoever ran the session; the checker knows these, each
with the `edge` ("group/node") that it is about, or without for all of them:
  fresh         the journal is empty: the next CONNECT is the node's first
  started, killed, stopping        the gateway's process: started, ended without a word, asked to end
  device-lost, device-back         the controller no longer answers, or answers again
  changes       `metric` changes so often that a value of it comes at least every `limit_ms`
  reloaded      the gateway was told to read its configuration again
  frozen, thawed, down, up         the broker itself
  released      acknowledgments that were held back are sent from now on
"""
import json
import threading
import time


class Recording:
    def __init__(self, path=None):
        self.entries = []
        self.changed = threading.Condition()
        self.file = open(path, "w", encoding="ascii") if path else None

    def add(self, **entry):
        with self.changed:
            entry = {"n": len(self.entries) + 1, "t": round(time.time() * 1000, 3), **entry}
            self.entries.append(entry)
            if self.file:
                self.file.write(json.dumps(entry) + "\n")
                self.file.flush()
            self.changed.notify_all()
        return entry["n"]

    def wait_for(self, find, timeout_s, after=0):
        """The first entry behind number `after` for which find(entry) is true; nothing when none came in time."""
        end = time.monotonic() + timeout_s
        at = after
        with self.changed:
            while True:
                while at < len(self.entries):
                    at += 1
                    if find(self.entries[at - 1]):
                        return self.entries[at - 1]
                left = end - time.monotonic()
                if left <= 0:
                    return None
                self.changed.wait(left)

    def close(self):
        if self.file:
            self.file.close()
            self.file = None


def load(path):
    """The entries of a file; ValueError when it is no record."""
    entries = []
    with open(path, encoding="utf-8") as lines:
        for number, line in enumerate(lines, 1):
            try:
                entry = json.loads(line)
                entries.append({"n": int(entry["n"]), "t": float(entry["t"]), **entry})
            except (ValueError, KeyError, TypeError) as problem:
                raise ValueError(f"line {number} is no entry of a record: {problem}") from problem
    return entries
