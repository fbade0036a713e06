"""Runs the example that reads variables by name against plc-sim and checks what it prints.

run_example.py --sim "PLC_SIM" --tags FOLDER -- COMMAND...   (PLC_SIM may be a command with arguments, an emulator's)
"""
import argparse
import pathlib
import re
import shlex
import subprocess
import sys

# What is set in the simulator, the name that is asked for, and the line that must come.
CASES = (
    ("set Motor.Speed -120", "Motor.Speed", "Motor.Speed DINT = -120"),
    ("set Motor.Current 2.5", "Motor.Current", "Motor.Current REAL = 2.5"),
    ("set Table[2] 7", "Table[1..3]", "Table[1..3] INT[0..9] = [0, 7, 0]"),
    ("set Recipe.Name Lemon tart", "Recipe.Name", 'Recipe.Name STRING(20) = "Lemon tart"'),
    ("set Main/Busy true", "Main/Busy", "Main/Busy BOOL = true"),
    ("set Motor.Serial 18446744073709551615", "Motor.Serial", "Motor.Serial ULINT = 18446744073709551615"),
)


def run_cases(simulator, command, tags):
    """The number of cases that went wrong."""
    port = re.match(r"listening on 127\.0\.0\.1:(\d+)$", simulator.stdout.readline().strip())[1]
    for line, _, _ in CASES:
        simulator.stdin.write(line + "\n")
        simulator.stdin.flush()
        if simulator.stdout.readline() != "ok\n":
            print(f"plc-sim does not take '{line}'")
            return 1
    done = subprocess.run([*command, "127.0.0.1", port, tags, *(name for _, name, _ in CASES)], text=True, check=False,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60)
    expected = "".join(f"{shown}\n" for _, _, shown in CASES)
    if done.returncode == 0 and done.stdout == expected:
        return 0
    print(f"expected:\n{expected}printed (exit code {done.returncode}):\n{done.stdout}")
    return 1


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--sim", required=True)
    parser.add_argument("--tags", required=True, type=pathlib.Path)
    parser.add_argument("command", nargs="+")
    options = parser.parse_args()
    with subprocess.Popen([*shlex.split(options.sim), *sorted(options.tags.glob("*.csv"))], stdin=subprocess.PIPE,
                          stdout=subprocess.PIPE, text=True) as simulator:
        failed = run_cases(simulator, options.command, options.tags)
        simulator.stdin.close()
        simulator.stdout.read()
    if simulator.returncode != 0:
        print(f"plc-sim ended with {simulator.returncode}")
        failed += 1
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
