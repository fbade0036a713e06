"""Writes payloads of the standard from plain records, also such as the standard does not allow.

A payload is {"timestamp": .., "seq": .., "metrics": [..], "raw": bytes}, a metric has the schema's names as keys, its
properties as a list of (name, property). What is None or absent is left out; "raw" is appended as it stands.
"""
import struct

import payload as schema

NUMBERS = {name: number for number, (name, *_) in schema.METRIC_FIELDS.items()}
PROPERTY_NUMBERS = {name: number for number, (name, *_) in schema.PROPERTY_FIELDS.items()}


def varint(value):
    result = bytearray()
    while value > 0x7F:
        result.append(value & 0x7F | 0x80)
        value >>= 7
    return bytes(result) + bytes([value])


def number_field(number, value):
    return varint(number << 3 | schema.VARINT) + varint(int(value))


def bytes_field(number, value):
    data = value.encode("utf-8") if isinstance(value, str) else value
    return varint(number << 3 | schema.BYTES) + varint(len(data)) + data


def value_field(number, name, value):
    if name == "float_value":
        return varint(number << 3 | schema.FIXED32) + struct.pack("<f", value)
    if name == "double_value":
        return varint(number << 3 | schema.FIXED64) + struct.pack("<d", value)
    return bytes_field(number, value) if isinstance(value, (str, bytes)) else number_field(number, value)


def encode_record(record, numbers):
    return b"".join(value_field(numbers[name], name, value) for name, value in record.items()
                    if value is not None and name in numbers)


def encode_metric(metric):
    data = encode_record({name: value for name, value in metric.items() if name != "properties"}, NUMBERS)
    properties = metric.get("properties")
    if properties:
        keys = b"".join(bytes_field(1, key) for key, _ in properties if key is not None)
        values = b"".join(bytes_field(2, encode_record(value, PROPERTY_NUMBERS) + value.get("raw", b""))
                          for _, value in properties if value is not None)
        data += bytes_field(9, keys + values)
    return data + metric.get("raw", b"")


def encode(payload):
    data = b"" if payload.get("timestamp") is None else number_field(1, payload["timestamp"])
    data += b"".join(bytes_field(2, encode_metric(metric)) for metric in payload.get("metrics", ()))
    if payload.get("seq") is not None:
        data += number_field(3, payload["seq"])
    return data + payload.get("raw", b"")
