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

# What is set in the simulator, how the host asks for it (area, id, type, element), and the value that it must print.
CASES = (
    ("set Motor.Speed 120", ("0", "2", "DINT"), "120"),
    ("set Motor.Speed -120", ("0", "2", "DINT", "0"), "-120"),
    ("set Table[3] -7", ("0", "9", "INT", "3"), "-7"),
    ("set Limit 65529", ("0", "10", "UINT"), "65529"),
    ("set Status.Word 65535", ("0", "11", "WORD"), "65535"),
    ("set Motor.Position 4294967289", ("0", "7", "UDINT"), "4294967289"),
    ("set Motor.Current -1.5", ("0", "4", "REAL"), "-1.5"),
    ("set Table[9] 7", ("0x0", "0x9", "INT", "0x9"), "7"),
)
# Types that the hosts do not show: none of them may be taken for another.
OTHER_TYPES = ("LINT", "BOOL", "STRING", "int", "")


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
    for line, (area, number, kind, *element), value in CASES:
        simulator.stdin.write(line + "\n")
        simulator.stdin.flush()
        if simulator.stdout.readline() != "ok\n":
            print(f"plc-sim does not take '{line}'")
            return 1
        code, out = run_host(command, port, folder, area, number, kind, *element)
        expected = f"variable {int(number, 0)} element {int(element[0], 0) if element else 0} = {value}"
        if code != 0 or expected not in out.split("\n"):
            print(f"{line}: expected '{expected}', got {code}:\n{out}")
            failed += 1
    for kind in OTHER_TYPES:
        code, out = run_host(command, port, folder, "0", "2", kind)
        if code != 2 or " = " in out:
            print(f"type '{kind}': expected 2, got {code}:\n{out}")
            failed += 1
    return failed


def run_host(command, port, folder, *arguments):
    done = subprocess.run([*command, "127.0.0.1", port, *arguments], cwd=folder, text=True, stdin=subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60, check=False)
    return done.returncode, done.stdout


if __name__ == "__main__":
    sys.exit(main())
