"""Gives an example host texts that are not numbers or its types. Checks that it names them and calls no driver.

refuse_numbers.py LAST... -- COMMAND...   (LAST: what the host takes after ADDRESS PORT AREA ID)
"""
import subprocess
import sys

# What the host takes at each place, with what is in its range but not such a number, or out of its range.
PLACES = {
    "PORT": ("1 to 65535", ("0", "65536", "-1", "85oo", "", " 8500", "+8500", "8500 ", "1e3", "0x", "0xg", "0x10000")),
    "AREA": ("0 to 65535", ("-1", "65536", "x", "", "0.5", "99999999999999999999")),
    "ID": ("0 to 16777215", ("Motor.Speed", "-1", "2,", "", "16777216", "0x1000000", "--2", "-")),
    "ELEMENT": ("0 to 65535", ("-1", "65536", "[1]", "")),
    "VALUE": ("-2147483648 to 2147483647", ("12a", "", "1.5", "2147483648", "-2147483649", "9223372036854775808", "- 5",
                                            "0x-5", "true")),
}
# Numbers that lie between records and indexed ids: the driver would take their low half.
BETWEEN = ("65536", "65538", "262143", "0x10000", "0x3FFFF")


def refusal_of(command, arguments):
    done = subprocess.run([*command, *arguments], text=True, stdin=subprocess.DEVNULL, capture_output=True, timeout=60,
                          check=False)
    return done.returncode, done.stdout, done.stderr


def main():
    split = sys.argv.index("--")
    last, command = sys.argv[1:split], sys.argv[split + 1:]
    names = ["PORT", "AREA", "ID", *last]
    right = {"PORT": "1", "AREA": "0", "ID": "2", "TYPE": "DINT", "ELEMENT": "0", "VALUE": "1"}
    cases = [(name, text, f"{name}: '{text}' is not a whole number from {PLACES[name][0]}\n")
             for name in names if name in PLACES for text in PLACES[name][1]]
    cases += [("ID", text, f"ID: no variable has the number {text}: records have 0 to 65535, indexed ids begin at "
               "262144\n") for text in BETWEEN]
    cases += [("TYPE", text, f"{text} is not a type of 16 or 32 bits\n") for text in ("LINT", "BOOL", "dint", "")
              if "TYPE" in last]
    failed = 0
    for name, text, message in cases:
        arguments = ["127.0.0.1", *(text if place == name else right[place] for place in names)]
        if refusal_of(command, arguments) != (2, "", message):
            print(f"{name} '{text}': expected 2 and '{message}', got {refusal_of(command, arguments)}")
            failed += 1
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
