"""The standard's data types: which field a value of each travels in, and whether a value is one of that type."""
import struct

INT8, INT16, INT32, INT64, UINT8, UINT16, UINT32, UINT64, FLOAT, DOUBLE, BOOLEAN, STRING = range(1, 13)
DATETIME, TEXT, UUID, DATASET, BYTES, FILE, TEMPLATE, PROPERTY_SET, PROPERTY_SET_LIST = range(13, 22)
INT8_ARRAY, BOOLEAN_ARRAY, STRING_ARRAY, DATETIME_ARRAY = 22, 32, 33, 34

METRIC_TYPES = {*range(INT8, TEMPLATE + 1), *range(INT8_ARRAY, DATETIME_ARRAY + 1)}
PROPERTY_TYPES = {*range(INT8, TEXT + 1), PROPERTY_SET, PROPERTY_SET_LIST}
VALUE_FIELDS = {**{code: "int_value" for code in (INT8, INT16, INT32, UINT8, UINT16, UINT32)},
                **{code: "long_value" for code in (INT64, UINT64, DATETIME)},
                **{code: "string_value" for code in (STRING, TEXT, UUID)},
                **{code: "bytes_value" for code in (BYTES, FILE, *range(INT8_ARRAY, DATETIME_ARRAY + 1))},
                FLOAT: "float_value", DOUBLE: "double_value", BOOLEAN: "boolean_value",
                DATASET: "dataset_value", TEMPLATE: "template_value"}
UNSIGNED_BITS = {UINT8: 8, UINT16: 16, UINT32: 32, UINT64: 64}
SIGNED_BITS = {INT8: 8, INT16: 16, INT32: 32, INT64: 64}
# Elements of an array, as `struct` names them.
ELEMENTS = dict(zip(range(INT8_ARRAY, BOOLEAN_ARRAY), "bhiqBHIQfd")) | {DATETIME_ARRAY: "Q"}


def unpack_array(code, data):
    """The elements; ValueError, with what is wrong, when the bytes are not an array of that type."""
    if code == BOOLEAN_ARRAY:
        if len(data) < 4:
            raise ValueError("an array of Boolean has no count")
        count = struct.unpack_from("<I", data)[0]
        if len(data) != 4 + (count + 7) // 8:
            raise ValueError(f"an array of {count} Boolean has {len(data) - 4} bytes of bits")
        return [bool(data[4 + index // 8] & 0x80 >> index % 8) for index in range(count)]
    if code == STRING_ARRAY:
        if data and data[-1]:
            raise ValueError("the last text of an array has no zero byte behind it")
        return [text.decode("utf-8") for text in data.split(b"\0")[:-1]]
    size = struct.calcsize("<" + ELEMENTS[code])
    if len(data) % size:
        raise ValueError(f"{len(data)} bytes are not an array of elements of {size} bytes")
    return list(struct.unpack(f"<{len(data) // size}{ELEMENTS[code]}", data))


def value_problem(code, value_field, value):
    """Empty when the value is one of that type in its field, else what is wrong."""
    wanted = VALUE_FIELDS.get(code)
    if value_field != wanted:
        return f"datatype {code} travels in {wanted}, not in {value_field}"
    if code in UNSIGNED_BITS and value >= 1 << UNSIGNED_BITS[code]:
        return f"{value} is out of the range of datatype {code}"
    if code in SIGNED_BITS:
        bits, travelling = SIGNED_BITS[code], 64 if code == INT64 else 32
        # Two's complement in the type's own width, or with its sign extended to all that travels.
        if value >= 1 << bits and value < (1 << travelling) - (1 << bits - 1):
            return f"{value} is out of the range of datatype {code}"
    if code in ELEMENTS or code in (BOOLEAN_ARRAY, STRING_ARRAY):
        try:
            unpack_array(code, value)
        except (ValueError, UnicodeDecodeError) as problem:
            return str(problem)
    return ""
