#!/usr/bin/env python3
"""Checks that every vector of this folder is consistent in itself; prints each fault and fails if there is one."""

import json
import pathlib
import sys

FUNCTIONS = {"connect", "ev_plc_read", "ev_plc_write", "ev_OMRON_plc_read"}
VECTOR_KEYS = {"name", "write_function", "tag_lines", "sid", "directory", "call", "exchanges", "result", "data_after",
               "count_after", "sid_after", "values_after", "directory_after", "printed"}
QUIRKS = {"length", "count", "units"}


def write_functions():
    """The names of all 38 write functions that a vector must show."""
    names = ["ev_plc_write_string"]
    for shape in ("", "array_", "array2_", "array3_"):
        names += ["ev_plc_write_%s%s" % (shape, width) for width in ("words", "dwords", "4words", "bits")]
    names += ["ev_plc_write_bits_struct", "ev_plc_write_array_struct_bits"]
    return {name + twin for name in names for twin in ("", "_local")}


class Frame:
    """One frame: its fields in order, and its bytes."""

    def __init__(self, fields):
        self.fields = [(name, bytes.fromhex(text)) for name, text in fields]
        self.data = b"".join(value for _, value in self.fields)

    def numbers(self, wanted):
        return [int.from_bytes(value, "big") for name, value in self.fields if name == wanted]

    def number(self, wanted):
        found = self.numbers(wanted)
        return found[0] if found else None

    def bytes_of(self, *wanted):
        return sum(len(value) for name, value in self.fields if name in wanted)

    def count_of(self, wanted):
        return sum(1 for name, _ in self.fields if name == wanted)


def decode_units(data):
    return "".join(chr(int.from_bytes(data[i:i + 2], "big")) for i in range(0, len(data), 2))


def check_head(frame, quirks, report):
    length, complement = frame.number("length"), frame.number("complement")
    if length is None:
        return
    if length ^ complement != 0xFFFFFFFF:
        report("complement %08x does not belong to length %08x" % (complement, length))
    if (length != len(frame.data) - 10) != ("length" in quirks):
        report("length %d, frame of %d bytes" % (length, len(frame.data)))


def check_names(frame, report):
    units = None
    for name, value in frame.fields:
        if name == "units":
            units = int.from_bytes(value, "big")
        elif name.startswith("name "):
            if decode_units(value) != name[5:]:
                report("field '%s' holds '%s'" % (name, decode_units(value)))
            if units != len(value) // 2:
                report("field '%s' has %d units, announced %s" % (name, len(value) // 2, units))


def check_request(frame, quirks, report):
    check_head(frame, quirks, report)
    check_names(frame, report)
    kind = (frame.number("class"), frame.number("command"))
    if kind == (0x0C, 0x28):
        named = sum(1 for name, _ in frame.fields if name.startswith("name "))
        odd = (sum(frame.numbers("count")) != named or frame.number("blocks") != frame.count_of("scope")
               or frame.count_of("overwriting_count") > 0)
    else:
        odd = sum(frame.numbers("count")) != frame.count_of("size")
    if odd != ("count" in quirks):
        report("count of names or references")
    if frame.number("value_units") is not None:
        odd = frame.number("value_units") * 2 != frame.bytes_of("value", "text")
        if odd != ("units" in quirks):
            report("units against the value bytes")


def check_reply(frame, request, report):
    check_head(frame, (), report)
    sequence = frame.number("sequence")
    if sequence is not None and sequence != request.number("sequence"):
        report("sequence %04x answers %04x" % (sequence, request.number("sequence")))
    groups = 0
    size = None
    for name, value in frame.fields:
        if groups and len(value) != 4 * groups:
            report("%d groups are followed by %d bytes" % (groups, len(value)))
        groups = int.from_bytes(value, "big") if name == "groups" else 0
        if name == "name_size":
            size = int.from_bytes(value, "big")
        if name == "scope_name" and len(value) != size - 2:
            report("name size %d, name of %d bytes" % (size, len(value)))
    if frame.number("records") is not None and frame.number("records") != frame.count_of("number"):
        report("count of directory records")
    # The byte behind a name is part of its record; behind the last name it may be missing.
    records = sum(size + 4 if size > 2 else 6 for size in frame.numbers("name_size"))
    if frame.number("records") and len(frame.data) > 15 + records:
        report("bytes behind the last directory record")


def check_call(vector, report):
    call = vector["call"]
    if call["function"] not in FUNCTIONS:
        report("unknown function %s" % call["function"])
    if "elements" in call and len(vector["values_after"]) != len(call["elements"]):
        report("as many values as elements")
    if "data" in call and len(vector["data_after"]) != len(call["data"]):
        report("host data changes its size")


def check_vector(vector, report):
    for key in set(vector) - VECTOR_KEYS:
        report("unknown key '%s'" % key)
    check_call(vector, report)
    first = 0 if vector["call"]["function"] == "connect" else vector["sid"]
    for index, exchange in enumerate(vector["exchanges"]):
        def at(text, index=index):
            report("exchange %d: %s" % (index, text))
        quirks = exchange.get("quirks", [])
        if set(quirks) - QUIRKS:
            at("unknown quirk")
        request = Frame(exchange["request"])
        check_request(request, quirks, at)
        if request.number("sequence") != (first + index) % 65536:
            at("sequence number")
        check_reply(Frame(exchange["reply"]), request, at)


def main():
    folder = pathlib.Path(__file__).resolve().parent
    faults = []
    names = set()
    shown = set()
    files = sorted(folder.glob("*.json"))
    for path in files:
        for vector in json.loads(path.read_text(encoding="utf-8"))["vectors"]:
            def report(text, path=path, vector=vector):
                faults.append("%s: %s: %s" % (path.name, vector["name"], text))
            if vector["name"] in names:
                report("name is used twice")
            names.add(vector["name"])
            shown.add(vector.get("write_function"))
            check_vector(vector, report)
    for missing in sorted(write_functions() - shown):
        faults.append("no vector for %s" % missing)
    for fault in faults:
        print(fault)
    print("%d vectors in %d files, %d faults" % (len(names), len(files), len(faults)))
    return 1 if faults or not names else 0


if __name__ == "__main__":
    sys.exit(main())
