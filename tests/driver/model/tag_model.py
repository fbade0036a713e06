"""Tag lines, tag files and type codes of the reference model, written from the driver's contract alone."""

import re

from text_model import cut_to_whole_characters

TYPES = [
    (b"BOOL", 1, 0xC1), (b"SINT", 8, 0xC2), (b"INT", 16, 0xC3), (b"DINT", 32, 0xC4), (b"LINT", 64, 0xC5),
    (b"USINT", 8, 0xC6), (b"UINT", 16, 0xC7), (b"UDINT", 32, 0xC8), (b"ULINT", 64, 0xC9), (b"REAL", 32, 0xCA),
    (b"LREAL", 64, 0xCB), (b"STIME", 0, 0xCC), (b"DATE", 0, 0xCD), (b"STRING", 0, 0xD0), (b"BYTE", 8, 0xD1),
    (b"WORD", 16, 0xD2), (b"DWORD", 32, 0xD3), (b"LWORD", 64, 0xD4), (b"STRING2", 0, 0xD5),
    (b"TIME_OF_DAY", 0, 0xCE), (b"DATE_AND_TIME", 0, 0xCF), (b"", 0, 0xFFFF),
]
DEVICES = [(b"EM", 23), (b"MR", 17), (b"LR", 18), (b"DM", 6), (b"TM", 8), (b"FM", 25), (b"CM", 7), (b"ZF", 44)]
NO_DEVICE = 30
FIRST_INDEXED_ID = 0x40000
BLOCKS = 2048
MAX_RUN = 100
MAX_GROUPS = 100
PIECE_BYTES = 255
SCALAR, ARRAY1, STRING, ARRAY2, ARRAY3 = 0, 1, 3, 4, 5

_STRTOL = re.compile(rb"[ \t\n\v\f\r]*([+-]?)([0-9]+)")


def parse_decimal(text):
    """Base-10 strtol with the range of a 32-bit long: value and end position, None when there is no number."""
    match = _STRTOL.match(text)
    if not match:
        return None, 0
    value = int(match.group(2))
    if match.group(1) == b"-":
        value = -value
    return max(-2**31, min(2**31 - 1, value)), match.end()


def to_long(text):
    """The number at the start of text, 0 when there is none."""
    return parse_decimal(text)[0] or 0


def name_kind_of(name):
    """varParse: 1 no dot, 2 a dot but no closing bracket, 3 both."""
    if b"." not in name:
        return 1
    return 3 if b"]" in name else 2


class TagRecord:
    """One declared variable."""

    FIELDS = ("name", "type_code", "bit_width", "dim1_low", "dim1_high", "dim2_low", "dim2_high", "dim3_low",
              "dim3_high", "string_length", "shape", "is_global", "name_kind", "aux_flag", "tag_id", "scope_name",
              "local_index", "device_kind")
    __slots__ = FIELDS

    def __init__(self):
        self.name = self.scope_name = b""
        self.type_code = self.bit_width = self.string_length = self.shape = 0
        self.dim1_low = self.dim1_high = self.dim2_low = self.dim2_high = self.dim3_low = self.dim3_high = 0
        self.is_global = self.name_kind = self.aux_flag = self.tag_id = self.local_index = self.device_kind = 0

    def copy(self):
        other = TagRecord()
        for field in self.FIELDS:
            setattr(other, field, getattr(self, field))
        return other

    def values(self):
        return tuple(getattr(self, field) for field in self.FIELDS)


class LineEnded(Exception):
    """The line ended before the field that a step needs."""


class FieldReader:
    """Takes the fields of a line from its start."""

    def __init__(self, line):
        self.rest = line

    def take_closed(self):
        """The next field; it must be ended by a comma."""
        field, comma, rest = self.rest.partition(b",")
        if not comma:
            raise LineEnded
        self.rest = rest
        return field

    def take_open(self):
        """The next field; it may be the last one of the line. Returns the field and whether a comma followed."""
        field, comma, rest = self.rest.partition(b",")
        self.rest = rest
        return field, bool(comma)


def mark_subscripts(name, commas):
    """Puts '#' after each '[' and, for each of them, after the next commas that follow it."""
    pos = 0
    while True:
        pos = name.find(b"[", pos)
        if pos < 0:
            return name
        pos += 1
        name = name[:pos] + b"#" + name[pos:]
        comma = pos
        for _ in range(commas):
            comma = name.find(b",", comma) + 1
            if comma == 0:
                break
            name = name[:comma] + b"#" + name[comma:]


def read_name(reader):
    """Column 1, joined with the next one or two when a subscript was split by commas."""
    first = reader.take_closed()
    if b"[" in first and b"]" not in first:
        second = reader.take_closed()
        joined = first + b"," + second
        if b"]" in second:
            return mark_subscripts(joined, 1)
        return mark_subscripts(joined + b"," + reader.take_closed(), 2)
    return first[:1] + mark_subscripts(first[1:], 0)


def scan_ranges(text, record):
    """What sscanf leaves in the bounds: unmatched targets keep their value."""
    underscores = text.count(b"_")
    if underscores == 2:
        record.shape = ARRAY3
        fields = ("dim3_low", "dim3_high", "dim2_low", "dim2_high", "dim1_low", "dim1_high")
    elif underscores == 1:
        record.shape = ARRAY2
        fields = ("dim2_low", "dim2_high", "dim1_low", "dim1_high")
    else:
        record.shape = ARRAY1
        fields = ("dim1_low", "dim1_high")
    for index, field in enumerate(fields):
        before = b"[" if index == 0 else (b".." if index % 2 else b"_")
        if not text.startswith(before):
            return
        text = text[len(before):]
        value, end = parse_decimal(text)
        if value is None:
            return
        setattr(record, field, value)
        text = text[end:]


def device_of(column):
    """Device code of column 13."""
    column = column.partition(b",")[0]
    if len(column) < 3:
        return NO_DEVICE
    examined = column[:23]
    for text, code in DEVICES:
        if text in examined:
            return code
    return NO_DEVICE


def parse_declaration(reader, record):
    """Columns 1 to 7."""
    name = cut_to_whole_characters(read_name(reader), 255)
    record.name = name
    record.name_kind = name_kind_of(name)
    type_text = reader.take_closed()
    if type_text:
        for text, bits, code in TYPES:
            if text == type_text[:99]:
                record.shape, record.bit_width, record.type_code = SCALAR, bits, code
                break
    ranges = reader.take_closed()
    if ranges:
        scan_ranges(ranges[:99], record)
    length = reader.take_closed()
    if length and type_text == b"STRING":
        value, _ = parse_decimal(length[:7])
        if value is not None:
            record.string_length = value
        record.shape = STRING
    for _ in range(3):
        reader.take_closed()


def parse_ownership(reader, record):
    """Columns 9 to 13; ends where the line ends."""
    for flag in ("is_global", "aux_flag"):
        column, more = reader.take_open()
        if column[:1] in (b"0", b"1"):
            setattr(record, flag, int(column[:1]))
        if not more:
            return
    column, more = reader.take_open()
    if column:
        record.local_index = to_long(column) & 0xFF
    if not more:
        return
    column, more = reader.take_open()
    if column:
        record.scope_name = column.partition(b"\n")[0]
    if more:
        record.device_kind = device_of(reader.rest)


def pase_str(line, record):
    """One line, with its line end, into a record; fields that the line does not set keep their values."""
    record.name = b""
    record.device_kind = NO_DEVICE
    reader = FieldReader(line)
    try:
        parse_declaration(reader, record)
    except LineEnded:
        record.tag_id = 0
        return
    column, more = reader.take_open()
    record.tag_id = to_long(column) & 0xFFFFFFFF
    if more:
        parse_ownership(reader, record)


def accepted_lines(content):
    """The pieces of at most 255 bytes that end in a line feed; a zero byte ends a piece early, so it has none."""
    pos = 0
    while pos < len(content):
        end = content.find(b"\n", pos, pos + PIECE_BYTES)
        if end < 0:
            pos += PIECE_BYTES
            continue
        piece = content[pos:end + 1]
        pos = end + 1
        if b"\0" not in piece:
            yield piece


def classification_id(line):
    """Id by the fifth field from the end, None when the line has fewer than five commas."""
    parts = line.rsplit(b",", 5)
    if len(parts) < 6:
        return None
    text = b",".join(parts[1:5])
    # The copy ends five characters before the last comma, counted from the fifth-last one.
    return to_long(text[:max(0, len(text) - 4)]) & 0xFFFFFFFF


class Group:
    """One group of indexed records; only count of them are valid."""

    def __init__(self, size):
        self.count = size & 0xFF
        self.records = [TagRecord() for _ in range(size)]


class Rejected(Exception):
    """The file breaks a limit of the tables."""


def block_of(identifier):
    """Block of 8192 ids in which a group starts; a block outside the table rejects the file."""
    block = (identifier >> 13) - 32
    if block >= BLOCKS:
        raise Rejected
    return block


def count_records(lines, group_ids):
    """First pass: number of plain records, largest indexed id and the sizes of the groups."""
    plain = max_id = run = 0
    run_ids = []
    sizes = []
    groups = 0
    for line in lines:
        identifier = classification_id(line)
        if identifier is None or identifier < FIRST_INDEXED_ID:
            plain += 1
            continue
        max_id = max(max_id, identifier)
        if groups == 0:
            block_of(identifier)
            groups = 1
        if run == 0 or run_ids[run - 1] == identifier - 1:
            if run == MAX_RUN:
                raise Rejected
            run_ids[run:] = [identifier]
            run += 1
            continue
        block = block_of(identifier)
        if groups == MAX_GROUPS:
            raise Rejected
        sizes.append(run + 1)
        run = 0
        group_ids[block] = groups
        groups += 1
    if groups:
        sizes.append(run + 1)
    return plain, max_id, sizes


def fill_records(lines, groups):
    """Second pass: the plain records and the records of the groups. Returns the plain ones and whether a group was
    filled."""
    plain = []
    current = filled = 0
    for line in lines:
        identifier = classification_id(line)
        if identifier is None or identifier < FIRST_INDEXED_ID:
            record = TagRecord()
            pase_str(line, record)
            plain.append(record)
            continue
        if filled and groups[current].records[filled - 1].tag_id != identifier - 1:
            groups[current].count = filled & 0xFF
            current += 1
            filled = 0
        if current >= len(groups) or filled >= len(groups[current].records):
            raise Rejected
        pase_str(line, groups[current].records[filled])
        filled += 1
    if filled:
        groups[current].count = filled & 0xFF
    return plain, filled > 0


class TagTable:
    """One loaded tag file."""

    def __init__(self, name, plain, groups, max_indexed_id):
        self.name = name
        self.plain = plain
        self.groups = groups
        self.max_indexed_id = max_indexed_id


def build_tagtable(name, content, group_ids):
    """The table of a file's bytes; entries of group_ids written before a rejection stay. Raises Rejected."""
    lines = list(accepted_lines(content))
    _, max_id, sizes = count_records(lines, group_ids)
    groups = [Group(size) for size in sizes]
    plain, any_group = fill_records(lines, groups)
    return TagTable(name, plain, groups, max_id if any_group else 0)


def find_record(table, identifier, group_ids):
    """The record of a register id, None when there is none; range checks with messages come before this."""
    if identifier < FIRST_INDEXED_ID:
        return table.plain[identifier] if identifier < len(table.plain) else None
    number = group_ids[(identifier >> 13) - 32]
    if number >= len(table.groups):
        return None
    group = table.groups[number]
    index = (identifier - group.records[0].tag_id) & 0xFFFFFFFF
    return group.records[index] if index < group.count else None
