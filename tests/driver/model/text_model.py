"""UTF-8 and UTF-16 conversion of the reference model, written from the driver's contract alone."""

import functools

NAME_CAPACITY_UNITS = 512


def sequence_length(lead):
    """Bytes that a sequence with this lead byte takes; a stray continuation byte stands for itself."""
    if lead < 0xC0:
        return 1
    if lead < 0xE0:
        return 2
    if lead < 0xF0:
        return 3
    if lead < 0xF8:
        return 4
    if lead < 0xFC:
        return 5
    return 6


_LEAD_MASK = {2: 0x1F, 3: 0x0F, 4: 0x07, 5: 0x03, 6: 0x01}


def decode_char(text, pos):
    """Value and length of the sequence at pos; every byte past the end of text is zero."""
    lead = text[pos] if pos < len(text) else 0
    length = sequence_length(lead)
    if length == 1:
        return lead, 1
    value = lead & _LEAD_MASK[length]
    for step in range(1, length):
        at = pos + step
        value = value << 6 | ((text[at] if at < len(text) else 0) & 0x3F)
    return value, length


def utf8_to_units(text, capacity=NAME_CAPACITY_UNITS):
    """What utf8ToUnicode returns and the units that it stored, without the terminating zero unit."""
    if not text or text[0] == 0:
        return 0, []
    units = []
    count = 0
    pos = 0
    while True:
        value, length = decode_char(text, pos)
        pos += length
        count += 1
        if count >= capacity:
            return count, units
        units.append(value & 0xFFFF)
        if pos >= len(text) or text[pos] == 0:
            return count, units


def unit_to_utf8(unit):
    """One 16-bit unit as one to three bytes; halves of surrogate pairs stay apart."""
    if unit <= 0x7F:
        return bytes((unit,))
    if unit < 0x800:
        return bytes((0xC0 | unit >> 6, 0x80 | unit & 0x3F))
    return bytes((0xE0 | unit >> 12, 0x80 | unit >> 6 & 0x3F, 0x80 | unit & 0x3F))


def units_to_utf8(wire, byte_count):
    """What unicodeToUtf8 writes before its terminator."""
    units = byte_count // 2 if byte_count > 0 else 0
    return b"".join(unit_to_utf8(wire[2 * k] << 8 | wire[2 * k + 1]) for k in range(units))


def cut_to_whole_characters(text, limit):
    """The longest run of whole characters from the start of text that fits into limit bytes."""
    if len(text) <= limit:
        return text
    pos = 0
    while True:
        step = sequence_length(text[pos])
        if pos + step > limit:
            return text[:pos]
        pos += step


@functools.lru_cache(4096)
def name_element(text, low_byte_only=False):
    """A name as it stands in a request: unit count, then the units, all big-endian."""
    count, units = utf8_to_units(text)
    shown = count & 0xFF if low_byte_only else count
    stored = units + [0] * (count - len(units))
    return shown.to_bytes(2, "big") + b"".join(unit.to_bytes(2, "big") for unit in stored)
