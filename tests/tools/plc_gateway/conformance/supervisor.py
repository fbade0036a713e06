"""What a supervisor that speaks systemd's protocol hears of a service, and whether its watchdog would have bitten."""
import configparser
import os
import pathlib
import socket
import threading
import time

UNIT = pathlib.Path(__file__).resolve().parents[4] / "packaging" / "gateway" / "plc-gateway@.service"
WAIT_LIMIT_S = 30


class Supervisor:
    def __init__(self, folder):
        unit = configparser.ConfigParser(strict=False, interpolation=None)
        unit.optionxform = str
        unit.read(UNIT, encoding="utf-8")
        if unit["Service"]["Type"] != "notify":
            raise ValueError("the unit does not wait for its service's word")
        self.watchdog_s = float(unit["Service"]["WatchdogSec"])
        self.path = os.path.join(folder, "notify")
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.bind(self.path)
        self.heard = []  # (steady time, line)
        self.changed = threading.Condition()
        self.thread = threading.Thread(target=self.hear, daemon=True)
        self.thread.start()

    def environment(self):
        return {"NOTIFY_SOCKET": self.path, "WATCHDOG_USEC": str(int(self.watchdog_s * 1000000))}

    def hear(self):
        while True:
            message = self.socket.recv(4096)
            if not message:
                return
            with self.changed:
                self.heard += [(time.monotonic(), line) for line in message.decode().splitlines()]
                self.changed.notify_all()

    def wait_for(self, line, after=0):
        """The number behind the first such line behind number `after`."""
        end = time.monotonic() + WAIT_LIMIT_S
        with self.changed:
            while True:
                for at in range(after, len(self.heard)):
                    if self.heard[at][1] == line:
                        return at + 1
                if not self.changed.wait(end - time.monotonic()):
                    raise TimeoutError(f"the supervisor does not hear {line}")

    def longest_silence_s(self):
        """Between the service's READY and its STOPPING."""
        times = [when for when, line in self.heard if line in ("READY=1", "WATCHDOG=1", "STOPPING=1")]
        return max(after - before for before, after in zip(times, times[1:]))

    def close(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as own:
            own.sendto(b"", self.path)
        self.thread.join(WAIT_LIMIT_S)
        self.socket.close()
