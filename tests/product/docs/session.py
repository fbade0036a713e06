"""Runs the commands of one document as a reader would: in one folder, one after the other, simulators beside them."""
import os
import pathlib
import re
import select
import shutil
import signal
import socket
import subprocess
import tempfile
import time

from document import Failure, Mismatch, same_output

RUN_LIMIT_S = 240
ANSWER_LIMIT_S = 20
# Commands that plc-sim takes on standard input: a line that begins with one of them is typed, not printed.
SIM_COMMANDS = ("set", "show", "dump", "counts", "fault", "faults", "report", "help", "quit")

# Programs that go on until they are ended, and what such a command is called.
SERVICES = r"(/usr/sbin/mosquitto -c|plc-gateway run) "

# What differs between two runs, or between the reader's machine and this one: pattern, what it becomes, why.
VARYING = [
    (r"127\.0\.0\.1:\d+", "127.0.0.1:PORT", "the system gives out a free port"),
    (r"\d+\.\d+ / \d+\.\d+ / \d+\.\d+ ms", "T / T / T ms", "round-trip times"),
    (r"\b\d+\.\d\d ms\b *", "T ms ", "the time of an exchange"),
    (r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z", "TIME", "the time of day"),
    (r"\b\d\d:\d\d:\d\d\.\d{3}\b", "TIME", "the time of day"),
    (r"^TIME,good,,\d+$", "TIME,good,,VALUE", "what moves is at another place each time"),
    (r'"value":\d+,"quality"', '"value":VALUE,"quality"', "what moves is at another place each time"),
]


class Session:
    """A folder with the project's example files, the installed programs on the PATH, and the simulators started."""

    def __init__(self, prefix, root, substitutions=(), with_plugins=True):
        self.prefix = prefix
        self.substitutions = list(substitutions)
        self.ports = {}
        self.simulators = []
        self.services = []
        self.held = []
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="examples-"))
        for name in ("examples", "dissector", "vectors"):
            shutil.copytree(root / name, self.folder / name)
        # Only read by commands, and too large to copy.
        for name in ("src", "include", "cmake", "packaging", "tests", "tools", "scripts", "CMakeLists.txt",
                     "LICENSE", "README.md", "CHANGELOG.md", "SECURITY.md", "docs"):
            (self.folder / name).symlink_to(root / name)
        self.at = self.folder
        self.home = self.folder / "home"
        plugins = self.home / ".local" / "lib" / "wireshark"
        plugins.mkdir(parents=True)
        # Where the prefix is not the system's, the user's own folder stands for the system's.
        if with_plugins:
            (plugins / "plugins").symlink_to(prefix / "lib" / "wireshark" / "plugins")
        self.environment = {
            "PATH": f"{prefix}/bin:{self.folder}:{os.environ['PATH']}", "HOME": str(self.home), "LC_ALL": "C.UTF-8",
            "TZ": "UTC", "TERM": "dumb", "PKG_CONFIG_LIBDIR": f"{prefix}/lib/pkgconfig",
            "MANPATH": f"{prefix}/share/man",
            **{name: value for name, value in os.environ.items() if name.startswith(("CCACHE_", "CMAKE_"))}}
        # As in folders of the system, programs find libraries there behind the folder that they were linked with.
        self.linking = {**self.environment, "LD_RUN_PATH": f"{prefix}/lib"}

    def close(self):
        problems = [problem for service in reversed(self.services) for problem in service.end()]
        problems += [problem for simulator in self.simulators for problem in simulator.end()]
        shutil.rmtree(self.folder)
        return problems

    def give_port(self, text):
        """A port that a configuration shows becomes one that nobody else is given while this session lasts."""
        shown = re.search(r"listener (\d+) ", text)
        if shown and shown[1] not in self.ports:
            self.held.append(socket.socket())
            self.held[-1].setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)  # as who listens on it does
            self.held[-1].bind(("127.0.0.1", 0))
            self.ports[shown[1]] = str(self.held[-1].getsockname()[1])

    def write(self, block):
        """A file that is shown; its first line is its name as a comment."""
        name = re.fullmatch(r"# (\S+)", block.lines[0])
        if not name:
            raise Failure(f"line {block.line}: the block does not begin with the name of its file")
        (self.at / name[1]).write_text(self.as_run("\n".join(block.lines) + "\n"), encoding="utf-8")

    def as_run(self, command):
        """The command with the ports of this run, and with what a reader puts in for a placeholder."""
        for shown, meant in self.substitutions:
            command = command.replace(shown, meant)
        for shown, port in self.ports.items():
            command = re.sub(rf"\b{shown}\b", port, command)
        return command

    def as_here(self, lines):
        """Output as a reader sees it who installed the programs in /usr, with the ports that the document shows."""
        # tshark's warning to a test that runs as root.
        lines = [line for line in lines if not line.startswith('Running as user "root" and group "root"')]
        text = "\n".join(lines).replace(str(self.prefix), "/usr").replace(str(self.folder), "/tmp/here")
        for shown, port in self.ports.items():
            text = re.sub(rf"(--port |:){port}\b", rf"\g<1>{shown}", text)
        return text.split("\n") if text else []

    def as_shown(self, lines):
        """Output with everything that varies replaced by words."""
        text = "\n".join(self.as_here(lines))
        for pattern, word, _ in VARYING:
            text = re.sub(pattern, word, text, flags=re.M)
        return text.split("\n") if text else []

    def compare(self, step, lines, code):
        if not same_output(self.as_shown(step.output), self.as_shown(lines)):
            raise Mismatch(step, self.as_here(lines),
                           f"line {step.line}: $ {step.command}\nshown:\n" + "\n".join(self.as_shown(step.output)) +
                           f"\nprinted (exit code {code}):\n" + "\n".join(self.as_shown(lines)))

    def run(self, step, compare):
        """Runs a command; its output must be what is shown, or without a transcript it must end with 0."""
        command = step.command
        match = re.match(r"cd (\S+)(?: && (.*))?$", command)
        if match:
            self.at = (self.at / match[1]).resolve()
            command = match[2]
        if not command:
            return
        if re.match(r"plc-sim (?!--help|--version)", command):
            self.start_simulator(command, step)
            return
        self.give_port(command)
        if re.match(SERVICES, command):
            self.services.append(Service(self.as_run(command), self.at, self.environment))
            if "mosquitto" in command:
                self.services[-1].wait_for(int(self.held[-1].getsockname()[1]))
            return
        code, lines = self.output_of(self.as_run(command), len(step.output))
        if code != 0 and not (compare and lines):
            raise Failure(f"line {step.line}: $ {step.command}\nexit code {code}\n" + "\n".join(lines))
        if compare:
            self.compare(step, lines, code)

    def output_of(self, command, shown_lines):
        """Exit code and printed lines. A command that goes on until it is interrupted is, behind what is shown."""
        endless = re.search(r"\bplc-host watch\b(?!.*--(?:rounds|help)\b)", command)
        environment = self.linking if re.match(r"(cc|g\+\+) ", command) else self.environment
        child = subprocess.Popen(["bash", "-c", command], cwd=self.at, env=environment, text=True, encoding="utf-8",
                                 stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                 start_new_session=True)
        try:
            lines = []
            if endless:
                lines = [child.stdout.readline().rstrip("\n") for _ in range(max(1, shown_lines - 1))]
                os.killpg(child.pid, signal.SIGINT)
            out, _ = child.communicate(timeout=RUN_LIMIT_S)
        except subprocess.TimeoutExpired as error:
            os.killpg(child.pid, signal.SIGKILL)
            raise Failure(f"$ {command}\ndoes not end within {RUN_LIMIT_S} s") from error
        lines += out.rstrip("\n").split("\n") if out.strip("\n") else []
        # 130: interrupted, as meant.
        return (0 if endless and child.returncode == 130 else child.returncode), lines

    def start_simulator(self, command, step):
        """Starts plc-sim on a free port and plays the dialogue that is shown."""
        command = self.as_run(command)
        wanted = re.search(r"--listen 127\.0\.0\.1:(\d+)", command)
        if wanted:
            command = command.replace(wanted[0], "--listen 127.0.0.1:0")
        command = re.sub(r"--web 127\.0\.0\.1:\d+", "--web 127.0.0.1:0", command)
        simulator = Simulator(command, self.at, self.environment)
        self.simulators.append(simulator)
        lines = [simulator.line()]
        port = re.fullmatch(r"listening on 127\.0\.0\.1:(\d+)", lines[0])
        if not port:
            raise Failure(f"line {step.line}: $ {step.command}\n" + "\n".join(lines + simulator.rest()))
        for shown in step.output[:1]:
            number = re.fullmatch(r"listening on 127\.0\.0\.1:(\d+)", shown)
            if number:
                self.ports[number[1]] = port[1]
        if wanted:
            self.ports[wanted[1]] = port[1]
        for shown in step.output[1:]:
            if shown.split(" ")[0] in SIM_COMMANDS:
                simulator.type(shown)
                lines.append(shown)
            else:
                lines.append(simulator.line())
        if step.output:
            self.compare(step, lines, "none yet")


class Service:
    """A program that goes on beside what follows."""

    def __init__(self, command, folder, environment):
        self.command = command
        self.out = tempfile.TemporaryFile(mode="w+")
        self.child = subprocess.Popen(["bash", "-c", "exec " + command], cwd=folder, env=environment,
                                      stdin=subprocess.DEVNULL, stdout=self.out, stderr=subprocess.STDOUT)

    def wait_for(self, port):
        """Until it listens there, as a reader sees from its lines."""
        deadline = time.monotonic() + ANSWER_LIMIT_S
        while time.monotonic() < deadline and self.child.poll() is None:
            try:
                socket.create_connection(("127.0.0.1", port), 1).close()
                return
            except OSError:
                time.sleep(0.02)
        raise Failure(f"{self.command}: does not listen")

    def end(self):
        """Ends it as a reader does; it must not have ended before."""
        self.child.send_signal(signal.SIGINT)
        code = self.child.wait(timeout=ANSWER_LIMIT_S)
        self.out.seek(0)
        return [] if code == 0 else [f"{self.command}: exit code {code}", self.out.read()]


class Simulator:
    """A plc-sim whose standard input stays open until the end."""

    def __init__(self, command, folder, environment):
        self.command = command
        self.child = subprocess.Popen(["bash", "-c", "exec " + command], cwd=folder, env=environment, bufsize=0,
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.pending = b""

    def line(self):
        """The next line that it prints."""
        deadline = time.monotonic() + ANSWER_LIMIT_S
        while b"\n" not in self.pending:
            ready, _, _ = select.select([self.child.stdout], [], [], max(0, deadline - time.monotonic()))
            chunk = os.read(self.child.stdout.fileno(), 65536) if ready else b""
            if not chunk:
                return self.pending.decode()
            self.pending += chunk
        line, self.pending = self.pending.split(b"\n", 1)
        return line.decode()

    def type(self, line):
        self.child.stdin.write(line.encode() + b"\n")

    def rest(self):
        self.child.stdin.close()
        out = self.pending + self.child.stdout.read()
        self.child.wait(timeout=ANSWER_LIMIT_S)
        return out.decode().split("\n")

    def end(self):
        """Ends it as a reader does, by closing its input; it must not have seen a wrong request."""
        if self.child.returncode is None:
            lines = self.rest()
            if self.child.returncode != 0:
                return [f"{self.command}: exit code {self.child.returncode}"] + lines
        return []
