"""Decodes the standard's protobuf payloads by hand, and tells of everything in them that the standard's schema does not
have: unknown fields, wrong wire types, numbers that do not fit, text that is not UTF-8, fields that stand twice."""
import struct
from dataclasses import dataclass, field

VARINT, FIXED64, BYTES, FIXED32 = 0, 1, 2, 5
WIRE_NAMES = {VARINT: "varint", FIXED64: "64 bits", BYTES: "length-delimited", FIXED32: "32 bits"}

# Field number: name, how it travels, what it is, whether it may stand several times.
PAYLOAD_FIELDS = {1: ("timestamp", VARINT, "uint64", False), 2: ("metrics", BYTES, "metric", True),
                  3: ("seq", VARINT, "uint64", False), 4: ("uuid", BYTES, "string", False),
                  5: ("body", BYTES, "bytes", False)}
METRIC_FIELDS = {1: ("name", BYTES, "string", False), 2: ("alias", VARINT, "uint64", False),
                 3: ("timestamp", VARINT, "uint64", False), 4: ("datatype", VARINT, "uint32", False),
                 5: ("is_historical", VARINT, "bool", False), 6: ("is_transient", VARINT, "bool", False),
                 7: ("is_null", VARINT, "bool", False), 8: ("metadata", BYTES, "bytes", False),
                 9: ("properties", BYTES, "properties", False), 10: ("int_value", VARINT, "uint32", False),
                 11: ("long_value", VARINT, "uint64", False), 12: ("float_value", FIXED32, "float", False),
                 13: ("double_value", FIXED64, "double", False), 14: ("boolean_value", VARINT, "bool", False),
                 15: ("string_value", BYTES, "string", False), 16: ("bytes_value", BYTES, "bytes", False),
                 17: ("dataset_value", BYTES, "bytes", False), 18: ("template_value", BYTES, "bytes", False),
                 19: ("extension_value", BYTES, "bytes", False)}
PROPERTIES_FIELDS = {1: ("keys", BYTES, "string", True), 2: ("values", BYTES, "property", True)}
PROPERTY_FIELDS = {1: ("type", VARINT, "uint32", False), 2: ("is_null", VARINT, "bool", False),
                   3: ("int_value", VARINT, "uint32", False), 4: ("long_value", VARINT, "uint64", False),
                   5: ("float_value", FIXED32, "float", False), 6: ("double_value", FIXED64, "double", False),
                   7: ("boolean_value", VARINT, "bool", False), 8: ("string_value", BYTES, "string", False),
                   9: ("propertyset_value", BYTES, "bytes", False), 10: ("propertysets_value", BYTES, "bytes", False),
                   11: ("extension_value", BYTES, "bytes", False)}
UNSIGNED_LIMITS = {"uint32": 1 << 32, "uint64": 1 << 64, "bool": 2}


@dataclass
class Property:
    type: int | None = None
    is_null: bool | None = None
    value_field: str | None = None
    value: object = None


@dataclass
class Properties:
    keys: list = field(default_factory=list)
    values: list = field(default_factory=list)

    def get(self, key):
        """The first property of that name, nothing when there is none."""
        return next((value for name, value in zip(self.keys, self.values) if name == key), None)


@dataclass
class Metric:
    name: str | None = None
    alias: int | None = None
    timestamp: int | None = None
    datatype: int | None = None
    is_historical: bool | None = None
    is_transient: bool | None = None
    is_null: bool | None = None
    metadata: bytes | None = None
    properties: Properties | None = None
    value_field: str | None = None
    value: object = None

    def label(self):
        return f"'{self.name}'" if self.name is not None else f"alias {self.alias}"


@dataclass
class Payload:
    timestamp: int | None = None
    seq: int | None = None
    uuid: str | None = None
    body: bytes | None = None
    metrics: list = field(default_factory=list)

    def get(self, name):
        """The first metric of that name, nothing when there is none."""
        return next((metric for metric in self.metrics if metric.name == name), None)


class Malformed(Exception):
    """Bytes that end too early or that no field can begin with: what follows them cannot be read."""


def read_varint(data, at):
    value = shift = 0
    for count in range(10):
        if at >= len(data):
            raise Malformed("a number is cut off")
        byte = data[at]
        at += 1
        value |= (byte & 0x7F) << shift
        shift += 7
        if not byte & 0x80:
            if count and not byte:
                raise Malformed("a number is longer than it need be")
            if value >= 1 << 64:
                raise Malformed("a number has more than 64 bits")
            return value, at
    raise Malformed("a number has more than ten bytes")


def read_raw(data, at, wire):
    if wire == VARINT:
        return read_varint(data, at)
    if wire == BYTES:
        size, at = read_varint(data, at)
    elif wire in (FIXED64, FIXED32):
        size = 8 if wire == FIXED64 else 4
    else:
        raise Malformed(f"wire type {wire} does not occur in the schema")
    if at + size > len(data):
        raise Malformed("a field is cut off")
    return data[at:at + size], at + size


class Decoder:
    """One payload; `findings` are sentences, empty for a payload that the schema has word by word."""

    def __init__(self):
        self.findings = []

    def payload(self, data):
        result = Payload()
        for name, value in self.fields(data, PAYLOAD_FIELDS, "the payload"):
            if name == "metrics":
                result.metrics.append(value)
            else:
                setattr(result, name, value)
        return result

    def fields(self, data, schema, where):
        """Name and value of each field that the schema has and that has the right form."""
        at, seen = 0, set()
        while at < len(data):
            key, at = read_varint(data, at)
            number, wire = key >> 3, key & 7
            raw, at = read_raw(data, at, wire)
            if number not in schema:
                self.findings.append(f"{where} has a field {number}, which the schema does not have")
                continue
            name, wanted, kind, repeated = schema[number]
            if wire != wanted:
                self.findings.append(f"{name} of {where} has wire type {wire}, not {WIRE_NAMES[wanted]}")
                continue
            if name in seen and not repeated:
                self.findings.append(f"{name} of {where} stands twice")
            seen.add(name)
            value = self.value(raw, kind, f"{name} of {where}")
            if value is not None:
                yield name, value

    def value(self, raw, kind, where):
        """Nothing, with a finding, when it is no such value."""
        if kind in UNSIGNED_LIMITS:
            if raw >= UNSIGNED_LIMITS[kind]:
                self.findings.append(f"{where} is {raw}, which no {kind} is")
                return None
            return bool(raw) if kind == "bool" else raw
        if kind == "float":
            return struct.unpack("<f", raw)[0]
        if kind == "double":
            return struct.unpack("<d", raw)[0]
        if kind == "string":
            try:
                return raw.decode("utf-8")
            except UnicodeDecodeError:
                self.findings.append(f"{where} is not UTF-8")
                return None
        if kind == "metric":
            return self.with_value(raw, METRIC_FIELDS, Metric(), where)
        if kind == "property":
            return self.with_value(raw, PROPERTY_FIELDS, Property(), where)
        if kind == "properties":
            result = Properties()
            for name, value in self.fields(raw, PROPERTIES_FIELDS, where):
                getattr(result, name).append(value)
            return result
        return bytes(raw)

    def with_value(self, data, schema, result, where):
        """A metric or a property: both have one value at most, in a field that tells its form."""
        for name, value in self.fields(data, schema, where):
            if not name.endswith("_value"):
                setattr(result, name, value)
                continue
            if result.value_field is not None and result.value_field != name:
                self.findings.append(f"{where} has two values, {result.value_field} and {name}")
            result.value_field, result.value = name, value
        return result


def decode(data):
    """The payload and the findings; no payload at all when the bytes cannot be followed to their end."""
    decoder = Decoder()
    try:
        return decoder.payload(data), decoder.findings
    except Malformed as problem:
        return None, decoder.findings + [f"the payload is malformed: {problem}"]
