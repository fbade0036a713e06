"""Fields of the standard's payloads, as far as measurements look into them."""

# Of a metric.
NAME, ALIAS, TIMESTAMP, DATATYPE, IS_HISTORICAL, IS_NULL, INT_VALUE = 1, 2, 3, 4, 5, 7, 10
METRICS = 2  # of a payload


def varint(data, place):
    value = shift = 0
    while True:
        byte = data[place]
        place += 1
        value |= (byte & 0x7F) << shift
        shift += 7
        if byte < 0x80:
            return value, place


def fields(data):
    """Number and value of each field of a message."""
    place = 0
    while place < len(data):
        tag, place = varint(data, place)
        kind = tag & 7
        if kind == 0:
            value, place = varint(data, place)
        elif kind == 2:
            length, place = varint(data, place)
            value, place = data[place:place + length], place + length
        else:
            length = 8 if kind == 1 else 4
            value, place = data[place:place + length], place + length
        yield tag >> 3, value


def metrics(payload):
    """The fields of each metric by their numbers."""
    for number, metric in fields(payload):
        if number == METRICS:
            yield dict(fields(metric))


def field(number, value):
    def encoded(rest):
        out = bytearray()
        while rest > 0x7F:
            out.append(rest & 0x7F | 0x80)
            rest >>= 7
        out.append(rest)
        return bytes(out)

    if isinstance(value, bytes):
        return encoded(number << 3 | 2) + encoded(len(value)) + value
    return encoded(number << 3) + encoded(value)
