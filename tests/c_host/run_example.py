"""Runs an example host against plc-sim and checks the values that it prints.

run_example.py --sim "PLC_SIM" --tags FILE -- COMMAND...   (PLC_SIM may be a command with arguments, an emulator's)
"""
import argparse
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

# What is set in the simulator, how the host asks for it (area, id, element), and the value that it must print.
CASES = (
    ("set Motor.Speed 120", ("0", "2", "0"), 120),
    ("set Table[3] -7", ("0", "9", "3"), 0xFFF9),
)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--sim", required=True)
    parser.add_argument("--tags", required=True)
    parser.add_argument("command", nargs="+")
    options = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        shutil.copy(options.tags, folder)
        with subprocess.Popen([*shlex.split(options.sim), options.tags], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              text=True) as simulator:
            failed = run_cases(simulator, options.command, folder)
            simulator.stdin.close()
            simulator.stdout.read()
        if simulator.returncode != 0:
            print(f"plc-sim ended with {simulator.returncode}")
            failed += 1
    return 1 if failed else 0


def run_cases(simulator, command, folder):
    port = re.match(r"listening on 127\.0\.0\.1:(\d+)$", simulator.stdout.readline().strip())[1]
    failed = 0
    for line, (area, number, element), value in CASES:
        simulator.stdin.write(line + "\n")
        simulator.stdin.flush()
        if simulator.stdout.readline() != "ok\n":
            print(f"plc-sim does not take '{line}'")
            return 1
        done = subprocess.run([*command, "127.0.0.1", port, area, number, element], cwd=folder, text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60,
                              check=False)
        expected = f"variable {number} element {element} = {value}"
        if done.returncode != 0 or expected not in done.stdout.split("\n"):
            print(f"{line}: expected '{expected}', got {done.returncode}:\n{done.stdout}")
            failed += 1
    return failed


if __name__ == "__main__":
    sys.exit(main())
