"""Compares the driver's tag-file functions and its pure functions with the reference model, one by one."""

import ctypes
import hashlib
import os
import struct

import tag_model
import text_model
from case_runner import RECORD, Mismatch, compare_bytes, compare_console
from draws import Draws
from loaded_driver import libc
from tag_generator import hostile_line, random_file, random_line
from tag_model import TagRecord, pase_str
from transfer_model import Driver, size_code
from write_model import copy_bits, doubled, hex_to_dec, index_of_sign

ENTRY_BYTES = 560
_BYTES, _POINTER, _I32, _U32 = ctypes.c_char_p, ctypes.c_void_p, ctypes.c_int32, ctypes.c_uint32


def record_from(raw):
    """A record as it stands in memory, texts with everything behind their end."""
    record = TagRecord()
    for field, value in zip(TagRecord.FIELDS, RECORD.unpack(raw)):
        setattr(record, field, value)
    return record


def compare_record(what, model, raw, scope_before=None):
    """Every field of a record; scope_before are the bytes of a scope name that the line did not set."""
    driver = record_from(raw)
    compare_bytes(f"{what}, name", model.name.ljust(256, b"\0"), driver.name)
    if model.scope_name is scope_before:
        compare_bytes(f"{what}, scope_name", scope_before, driver.scope_name)
    else:
        compare_bytes(f"{what}, scope_name", model.scope_name, driver.scope_name.partition(b"\0")[0])
    for field in TagRecord.FIELDS:
        if field not in ("name", "scope_name") and getattr(model, field) != getattr(driver, field):
            raise Mismatch(f"{what}, {field}: model {getattr(model, field)}, driver {getattr(driver, field)}")


def expect(what, model, driver):
    if model != driver:
        raise Mismatch(f"{what}: model {model!r}, driver {driver!r}")


class PureChecks:
    """One round checks every function once with arguments drawn from one seed."""

    def __init__(self, driver, console, folder, progress):
        self.driver, self.console, self.folder, self.progress = driver, console, folder, progress
        self.count = 0
        self.rng = Draws(0)
        self.checks = (self.check_line, self.check_file, self.check_names, self.check_to_units, self.check_to_utf8,
                       self.check_types, self.check_bits, self.check_insert, self.check_csv_names, self.check_list,
                       self.check_utilities)

    def run(self, first, count, most_reports):
        differences = 0
        for seed in range(first, first + count):
            os.pwrite(self.progress, f"tags {seed}\n".ljust(64).encode(), 0)
            for check in self.checks:
                self.rng = Draws(f"{check.__name__}:{seed}")
                self.count += 1
                try:
                    check()
                except Mismatch as mismatch:
                    self.console.take()
                    differences += 1
                    print(f"MISMATCH --kind tags --seed {seed} --cases 1: {check.__name__}\n{mismatch}",
                          file=self.console.own)
                    if differences >= most_reports:
                        return differences
        return differences

    def function(self, name, *argtypes, result=_I32):
        return self.driver.function(name, *argtypes, result=result)

    def check_line(self):
        rng = self.rng
        number = rng.randrange(0x50000)
        line = hostile_line(rng) if rng.random() < 0.2 else random_line(rng, number % 100, number, rng.random() < 0.3)
        line = line.partition(b"\0")[0][:rng.choice((255, 255, rng.randrange(256)))]
        pattern = rng.choice((bytes(ENTRY_BYTES), rng.randbytes(ENTRY_BYTES)))
        model = record_from(pattern)
        before = model.scope_name
        pase_str(line, model)
        entry = ctypes.create_string_buffer(pattern + b"\xC7" * 64, ENTRY_BYTES + 64)
        expect("pase_str result", 0, self.function("pase_str", _BYTES, _POINTER)(line, ctypes.addressof(entry)))
        try:
            compare_record("pase_str", model, entry.raw[:ENTRY_BYTES], before)
        except Mismatch as mismatch:
            raise Mismatch(f"line {line!r}\n{mismatch}") from None
        compare_bytes("bytes behind the record", b"\xC7" * 64, entry.raw[ENTRY_BYTES:])
        compare_bytes("pase_str console", b"", self.console.take())

    def check_file(self):
        rng = self.rng
        hostility = rng.choice((0, 0, 0.05, 0.5))
        content = random_file(rng, hostility) if rng.random() < 0.95 else rng.randbytes(rng.randrange(3000))
        name = b"tags.csv" if rng.random() < 0.98 else b"missing.csv"
        with open(os.path.join(self.folder, "tags.csv"), "wb") as file:
            file.write(content)
        ids = [rng.randrange(300) for _ in range(tag_model.BLOCKS)]
        model = Driver({b"tags.csv": content})
        model.group_ids = list(ids)
        table = model.load_table(name)
        group_ids = (ctypes.c_uint32 * (tag_model.BLOCKS + 16))(*ids, *[0xC7C7C7C7] * 16)
        entries, groups = ctypes.c_void_p(), ctypes.c_void_p()
        build = self.function("build_tagtable", _POINTER, _POINTER, _BYTES, _POINTER, result=_POINTER)
        counts = build(ctypes.addressof(entries), ctypes.addressof(groups), name, ctypes.addressof(group_ids))
        try:
            compare_console(model.link.out, self.console.take())
            expect("group ids", model.group_ids + [0xC7C7C7C7] * 16, list(group_ids))
            expect("file accepted", table is not None, counts is not None)
            if table:
                expect("temp_count", (len(table.plain), table.max_indexed_id),
                       struct.unpack("<II", ctypes.string_at(counts, 8)))
                self.compare_table(table, entries.value, groups.value)
        except Mismatch as mismatch:
            lines = "\n".join(repr(line) for line in content.splitlines(True))
            raise Mismatch(f"{mismatch}\nfile:\n{lines}") from None

    def compare_table(self, table, entries, groups):
        expect("groups present", bool(table.groups), bool(groups))
        for index, record in enumerate(table.plain):
            raw = ctypes.string_at(entries + ENTRY_BYTES * index, ENTRY_BYTES)
            compare_record(f"plain record {index}", record, raw)
        libc.free(ctypes.c_void_p(entries))
        if not groups:
            return
        for number, group in enumerate(table.groups):
            count, first = struct.unpack("<B7xQ", ctypes.string_at(groups + 16 * number, 16))
            expect(f"count of group {number}", group.count, count)
            for index, record in enumerate(group.records):
                compare_record(f"group {number} record {index}", record,
                               ctypes.string_at(first + ENTRY_BYTES * index, ENTRY_BYTES))
            libc.free(ctypes.c_void_p(first))
        expect("entries behind the last group", 0,
               struct.unpack("<Q", ctypes.string_at(groups + 16 * len(table.groups) + 8, 8))[0])
        libc.free(ctypes.c_void_p(groups))

    def random_text(self, most):
        rng = self.rng
        alphabet = rng.choice((b"ab.[]#,", bytes(range(1, 256)), b"\xc3\xa9\xe4\xb8\xad\xf0\x9f\x98\x80A",
                               bytes(range(0xC0, 0x100))))
        return bytes(rng.choice(alphabet) for _ in range(rng.randrange(most)))

    def check_names(self):
        text = self.random_text(12)
        expect(f"varParse of {text!r}", tag_model.name_kind_of(text), self.function("varParse", _BYTES)(text))

    def check_to_units(self):
        text = self.random_text(self.rng.choice((4, 20, 700)))
        capacity = self.rng.choice((512, 512, 1, 2, 3, 10, 0, -1))
        out = (ctypes.c_uint16 * 800)(*[0xC7C7] * 800)
        count, units = text_model.utf8_to_units(text, capacity)
        got = self.function("utf8ToUnicode", _BYTES, _POINTER, _I32)(text + bytes(6), ctypes.addressof(out), capacity)
        expect(f"utf8ToUnicode of {text!r}, capacity {capacity}", count, got)
        # Nothing is written, not even a terminator, when no unit is stored.
        wanted = units + ([0] if units else [])
        expect(f"units of {text!r}", wanted + [0xC7C7] * (800 - len(wanted)), list(out))
        value = ctypes.c_uint32(0xC7C7C7C7)
        padded = text + bytes(6)
        length = self.function("utf8ToUnicodeChar", _BYTES, _POINTER, result=_U32)(padded, ctypes.addressof(value))
        expect(f"utf8ToUnicodeChar of {text!r}", text_model.decode_char(padded, 0), (value.value, length))

    def check_to_utf8(self):
        wire = self.rng.randbytes(self.rng.randrange(256))
        if self.rng.random() < 0.3:
            wire = bytes(byte & self.rng.choice((0, 0x7F, 0xFF)) for byte in wire)
        size = self.rng.choice((len(wire), len(wire) // 2, 0, 1))
        size = min(size, len(wire))
        out = ctypes.create_string_buffer(b"\xC7" * 600, 600)
        self.function("unicodeToUtf8", _BYTES, _I32, _POINTER)(wire + b"\xEE", size, ctypes.addressof(out))
        wanted = text_model.units_to_utf8(wire, size) + b"\0"
        compare_bytes(f"unicodeToUtf8 of {wire.hex()}, {size}", wanted + b"\xC7" * (600 - len(wanted)), out.raw)

    def check_types(self):
        rng = self.rng
        code = rng.choice((rng.randrange(0xB8, 0xDC), 0xFFFF, 0x1C1, 0xFFFFFFFF, 0x10000))
        found = next((row for row in tag_model.TYPES[:21] if row[2] == code), None)
        said = b"" if found else b"don't find this type id"
        expect(f"type2str {code:#x}", found and found[0], self.function("type2str", _U32, result=_BYTES)(code))
        compare_bytes("type2str console", said, self.console.take())
        expect(f"type2bits {code:#x}", found[1] if found else 0, self.function("type2bits", _U32, result=_U32)(code))
        compare_bytes("type2bits console", said, self.console.take())
        bits = rng.choice((0, 1, 8, 16, 32, 64, -1, 12, 2**31 - 1))
        count = rng.randrange(-2**31, 2**31) >> rng.randrange(32)
        expect(f"keyence_gettype {bits}, {count}", size_code(bits, count),
               self.function("keyence_gettype", _I32, _I32)(bits, count))
        number = {0: 1, 1: count, 8: count, 16: int(count / 2), 32: int(count / 4), 64: int(count / 8)}.get(bits, bits)
        expect(f"keyence_getnum {bits}, {count}", number, self.function("keyence_getnum", _I32, _I32)(bits, count))

    def check_bits(self):
        rng = self.rng
        text = bytes(rng.choice(b"0123456789abcdefABCDEFgG xyz") for _ in range(7))
        digits = rng.randrange(-1, 8)
        expect(f"hexToDec {text!r}, {digits}", hex_to_dec(text, digits),
               self.function("hexToDec", _BYTES, _I32)(text, digits))
        char = rng.choice((rng.randrange(256), rng.randrange(-2**31, 2**31)))
        expect(f"getIndexOfSigns {char}", index_of_sign(char), self.function("getIndexOfSigns", _I32)(char))
        base, times = rng.randrange(2**32), rng.randrange(-3, 40)
        expect(f"mathN {base}, {times}", doubled(base, times),
               self.function("mathN", _U32, _I32, result=_U32)(base, times))
        words = (ctypes.c_uint16 * 8)(*[rng.randrange(65536) for _ in range(8)])
        bit, count = rng.choice((rng.randrange(16), rng.randrange(48))), rng.randrange(40)
        out = bytearray(rng.randbytes(32))
        memory = (ctypes.c_ubyte * 32)(*out)
        copy_bits(lambda at: words[at], out, bit % 16, max(0, bit + count - bit % 16))
        got = self.function("BatchReadWord", _POINTER, _POINTER, _I32, _U32, result=_POINTER)(
            ctypes.addressof(words), ctypes.addressof(memory), bit, count)
        expect("BatchReadWord result", ctypes.addressof(memory), got)
        compare_bytes(f"BatchReadWord {list(words)}, {bit}, {count}", bytes(out), bytes(memory))

    def check_insert(self):
        text = self.random_text(20)
        position = self.rng.randrange(len(text) + 1)
        memory = ctypes.create_string_buffer(text + b"\0" + b"\xC7" * 40, 64)
        wanted = text[:position] + b"#" + text[position:] + b"\0"
        rest = memory.raw[len(wanted):]
        self.function("insert", _POINTER, _BYTES, _I32)(ctypes.addressof(memory), b"#", position)
        compare_bytes(f"insert into {text!r} at {position}", wanted + rest, memory.raw)

    def check_csv_names(self):
        ip, area = self.rng.choice((self.rng.randrange(2**32), 0, 0x0A000001)), self.rng.randrange(65536)
        settings = struct.pack("<IIHBB", 1, ip, 2, 3, 4)
        wanted = b"PLC%X_%d.csv" % (ip, area)
        for name, request in (("get_csv_name", struct.pack("<HBBI", area, 1, 2, 3)),
                              ("get_csv_name_batch", struct.pack("<HBBIH6sI", area, 1, 2, 3, 4, b"", 5))):
            memory = ctypes.create_string_buffer(b"\xC7" * 40, 40)
            length = self.function(name, _BYTES, _BYTES, _POINTER)(settings, request, ctypes.addressof(memory))
            expect(f"{name} length", len(wanted), length)
            compare_bytes(name, (wanted + b"\0").ljust(40, b"\xC7"), memory.raw)

    def check_list(self):
        """The list of loaded files, newest first; a later file of the same name hides an earlier one."""
        head = ctypes.create_string_buffer(b"\xC7" * 48, 48)
        at = ctypes.addressof(head)
        self.function("init_tag", _POINTER)(at)
        expect("links of an empty list", (at + 32, at + 32), struct.unpack_from("<QQ", head.raw, 32))
        add = self.function("add_tagtable", _POINTER, _BYTES, _POINTER, _POINTER, _POINTER)
        find = self.function("get_tagtable", _POINTER, _BYTES, result=_POINTER)
        held = {}
        for number in range(self.rng.randrange(6)):
            name = b"F%d" % self.rng.randrange(4)
            counts = struct.pack("<II", self.rng.randrange(2**32), self.rng.randrange(2**32))
            result = add(at, name, 0x1000 + number, 0x2000 + number, ctypes.create_string_buffer(counts, 8))
            expect("add_tagtable", 1, result)
            held[name] = (0x1000 + number, 0x2000 + number, *struct.unpack("<II", counts))
        for name in (b"F0", b"F1", b"F2", b"F3", b"F"):
            node = find(at, name)
            fields = struct.unpack("<QQQII", ctypes.string_at(node, 32)) if node else None
            expect(f"table {name!r}", held.get(name), fields and fields[1:])
            if fields:
                expect("name of the table", name, ctypes.string_at(fields[0]))

    def check_utilities(self):
        rng = self.rng
        data = rng.randbytes(rng.choice((0, 1, 9, 255, 256, 257, 300, rng.randrange(600))))
        crc = 0xFFFF
        for byte in data[:(len(data) - 1) % 256 + 1]:
            crc ^= byte
            for _ in range(8):
                crc = crc >> 1 ^ (0xA001 if crc & 1 else 0)
        wanted = (crc & 0xFF) << 8 | crc >> 8 if data else 0xFFFF
        expect(f"crc16 of {data.hex()}", wanted,
               self.function("crc16", _BYTES, _U32, result=ctypes.c_uint16)(data, len(data)))
        bits = rng.choice((rng.randrange(100), rng.randrange(2**32)))
        expect(f"bit2byte_len {bits}", (bits + 7) // 8, self.function("bit2byte_len", _U32, result=_U32)(bits))
        expect(f"bit2word_len {bits}", (bits + 15) // 16, self.function("bit2word_len", _U32, result=_U32)(bits))
        with open(os.path.join(self.folder, "tags.csv"), "wb") as file:
            file.write(data)
        out = ctypes.create_string_buffer(b"\xC7" * 40, 40)
        path = ctypes.create_string_buffer(b'"tags.csv"' if rng.random() < 0.5 else b"tags.csv")
        expect("CalcFileMD5", 1, self.function("CalcFileMD5", _POINTER, _POINTER)(path, out))
        compare_bytes("digest", hashlib.md5(data).hexdigest().encode() + b"\0" + b"\xC7" * 7, out.raw)
