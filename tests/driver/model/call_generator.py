"""Random cases: tag files, host calls and the controller's behaviour, each drawn from a seed of its own."""

import functools
from dataclasses import dataclass, field

from draws import Draws
from link_model import FINISH, FINISHED, REPLY, RESET, SILENT, Exchange
from tag_generator import SCOPES, choose, random_file
from tag_model import FIRST_INDEXED_ID, Rejected, build_tagtable
from text_model import utf8_to_units

AREAS = (0, 1, 65535)
# A call that asks for more exchanges than this finds its connection reset.
MOST_EXCHANGES = 30
SHORT_LENGTHS = (1, 2, 12, 13, 14, 15, 16, 17, 18, 21, 22, 23, 24, 25, 26, 29, 30, 31, 40, 41, 42)
STYLES = ("tidy", "tidy", "tidy", "short", "wild", "zero", "ones", "long")


@dataclass
class Operation:
    """One step of a case: a host call, or something that happens between two calls."""
    kind: str
    seed: int
    timeout_s: int = 20
    settings: dict = field(default_factory=dict)

    def show(self):
        return f"{self.kind} seed={self.seed} timeout={self.timeout_s} {self.settings}"


class Oracle:
    """Decides, from the seed of one operation, what the controller does with each request of it."""

    def __init__(self, operation):
        self.rng = Draws(operation.seed)
        self.silent = operation.timeout_s < 2
        self.style = self.rng.choice(STYLES)
        self.fault_at = self.rng.randrange(1, 5) if self.rng.random() < 0.12 else 0
        self.directory_fault = self.rng.random() < 0.05
        self.requests = 0

    def decide(self, request, leftover, state):
        if leftover or self.silent:
            return Exchange(request, SILENT)
        if state == FINISHED:
            return Exchange(request, self.rng.choice((SILENT, RESET)))
        is_directory = request[10:12] in (b"\x0c\x2c", b"\x0c\x25")
        if is_directory:
            if self.directory_fault and self.rng.random() < 0.5:
                return self.fault(request)
        else:
            self.requests += 1
            if self.requests == self.fault_at:
                return self.fault(request)
            if self.requests > MOST_EXCHANGES:
                return Exchange(request, RESET)
        if is_directory:
            return Exchange(request, REPLY, self.directory_reply(request[11]))
        return Exchange(request, REPLY, self.reply(request))

    def fault(self, request):
        return Exchange(request, self.rng.choice((FINISH, RESET)))

    def directory_reply(self, command):
        rng = self.rng
        if rng.random() < 0.08:
            return self.raw(rng.randrange(1, 200))
        if command == 0x2C:
            return self.raw(rng.choice((1, 12, 16, 40)))
        records = b""
        scopes = rng.sample(SCOPES, rng.randrange(0, len(SCOPES) + 1))
        if rng.random() < 0.05:
            scopes = scopes * 12
        for scope in scopes:
            wire = b"".join(unit.to_bytes(2, "big") for unit in utf8_to_units(scope)[1])
            if rng.random() < 0.1:
                wire = bytes(rng.choice(b"\0\0ABM\xe9") for _ in range(choose(rng, [(rng.randrange(6), 1), (253, 1)])))
            if rng.random() < 0.03:
                wire = rng.randbytes(rng.randrange(0, 254))
            size = len(wire) + 2 if wire else rng.randrange(3)
            records += rng.randbytes(2) + bytes((size, rng.randrange(256), rng.randrange(256))) + wire + b"\0"
        count = len(scopes) if rng.random() < 0.9 else rng.randrange(256)
        whole = rng.randbytes(14) + bytes((count,)) + records
        missing = choose(rng, [(0, 8), (1, 1), (2, 1), (rng.randrange(1, len(whole)), 1)])
        return whole[:len(whole) - missing]

    def raw(self, length):
        if self.style == "zero":
            return bytes(length)
        if self.style == "ones":
            return b"\xff" * length
        return self.rng.randbytes(length)

    def reply(self, request):
        rng = self.rng
        if self.style == "short":
            return self.raw(rng.choice(SHORT_LENGTHS + (rng.randrange(1, 120),)))
        if self.style == "wild":
            return self.raw(rng.randrange(1, 4097))
        if self.style in ("zero", "ones"):
            return self.raw(rng.choice((13, 14, 24, 25, 400, 4096)))
        if self.style == "long":
            return self.raw(rng.choice((4095, 4096, 4097, 4500, 4608, 4609, 5000, 6000)))
        return self.tidy(request)

    def tidy(self, request):
        rng = self.rng
        if request[10:12] == b"\x0c\x28":
            reply = bytearray(rng.randbytes(45 + 24 * rng.choice((1, 2, 8, 50))))
            far = rng.random() < 0.1
            for at in range(40, len(reply), 24):
                reply[at] = rng.randrange(256) if far else rng.choice((0, 0, 0, 1))
                for bit_at in (at - 11, at - 10, at - 15):
                    reply[bit_at] = choose(rng, [(0, 4), (rng.randrange(16), 8), (rng.randrange(256), 1)])
            return bytes(reply)
        names = int.from_bytes(request[13:15], "big")
        unit = rng.choice((2, 4, 4, 8, 8))
        length = 14 + max(0, names * unit + choose(rng, [(0, 8), (1, 1), (-1, 1), (rng.randrange(-5, 9), 1)]))
        if rng.random() < 0.2:
            return rng.randbytes(14) + bytes(rng.choice(b"ABCabc\xff\0") for _ in range(rng.randrange(0, 60)))
        return self.raw(min(length, 4096))


def known_tables(files):
    tables = {}
    for area, content in files.items():
        if content is None:
            continue
        try:
            table = build_tagtable(b"", content, [0] * 2048)
        except Rejected:
            continue
        tables[area] = table
    return tables


def random_area(rng, files):
    if rng.random() < 0.03:
        return rng.choice((7, 65535))
    return rng.choice(list(files))


def random_id(rng, table):
    """A register id, mostly one that the table knows."""
    plain = len(table.plain) if table else 0
    indexed, beyond = [], []
    if table:
        for group in table.groups:
            if group.records and group.count:
                first = group.records[0].tag_id
                indexed += [first + at for at in range(min(group.count, 5))] + [first + group.count - 1]
                beyond += [first + group.count, first - 1, first + 8192]
    pick = rng.random()
    if pick < 0.05:
        limit = (table.max_indexed_id if table else 0) & 0xFFFFFF
        return rng.choice((plain, plain + 1, 0xFFFF, FIRST_INDEXED_ID, limit, rng.randrange(0x40000, 0x1000000),
                           rng.randrange(0x10000)))
    if beyond and pick < 0.08:
        return rng.choice(beyond) & 0xFFFFFF
    if indexed and (pick < 0.35 or not plain):
        return rng.choice(indexed) & 0xFFFFFF
    return rng.randrange(plain) if plain else 0


def address_of(rng, identifier, offset):
    """reg_type and address that select an id and an element."""
    high = identifier >> 16
    reg_type = high if high > 3 else rng.choice((0, 0, 1, 2, 3))
    return reg_type, (identifier & 0xFFFF) << 16 | offset & 0xFFFF


def random_offset(rng):
    return choose(rng, [(0, 6), (rng.randrange(12), 12), (rng.randrange(150), 3), (512, 1), (513, 1),
                        (rng.randrange(65536), 1), (65535, 0.5)])


def random_count(rng, writes):
    huge = rng.choice((0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 0xFFFFFFFE, rng.randrange(2**32), 65536, 1 << 30))
    edges = (63, 64, 65, 100, 120, 121, 122, 126, 127, 128, 129, 255, 256, 257, 500, 501, 502, 509, 510, 511, 1019,
             1020, 2040)
    return choose(rng, [(1, 8), (rng.randrange(0, 9), 10), (0, 1), (rng.randrange(9, 41), 4), (rng.choice(edges), 3),
                        (rng.randrange(40, 1100), 1),
                        (huge, 1 if not writes else 0.7)])


def random_single(rng, kind, files, tables):
    area = random_area(rng, files)
    table = tables.get(area)
    identifier = random_id(rng, table)
    reg_type, address = address_of(rng, identifier, random_offset(rng))
    settings = {"area": area, "reg_type": reg_type, "address": address, "count": random_count(rng, kind != "read")}
    if kind != "read":
        settings["first"] = choose(rng, [(0, 4), (1, 5), (0xFF, 2), (rng.randrange(256), 2)])
    if kind != "named" and rng.random() < 0.01:
        settings["null"] = rng.choice(("request", "value", "conn", "data"))
    return settings


def random_batch(rng, files, tables):
    area = random_area(rng, files)
    table = tables.get(area)
    size = choose(rng, [(1, 4), (rng.randrange(2, 12), 10), (rng.randrange(12, 101), 5), (35, 1), (36, 1), (100, 1),
                        (101, 0.2), (0, 0.2), (-3, 0.2), (0x7FFFFFFF, 0.1)])
    elements = []
    stray = rng.random() < 0.1
    count_one = rng.random() < 0.7
    while len(elements) < min(max(size, 1), 100):
        identifier = random_id(rng, table)
        if not stray and table and not (identifier < len(table.plain) or FIRST_INDEXED_ID <= identifier <
                                        table.max_indexed_id):
            identifier = 0
        offset = choose(rng, [(rng.randrange(12), 10), (0, 4), (random_offset(rng), 1)])
        for step in range(choose(rng, [(1, 5), (2, 2), (rng.randrange(1, 20), 3), (60, 0.3)])):
            count = 1 if count_one else choose(rng, [(1, 10), (2, 2), (0, 0.3), (3, 1), (20, 0.5), (50, 0.2),
                                                     (rng.randrange(1, 70), 0.5), (600, 0.05), (65535, 0.02)])
            if size == 1 and rng.random() < 0.5:
                count = rng.choice((1, 2, 7, 16, 17, 31, 32, 33, 34, 35))
            reg_type, address = address_of(rng, identifier, offset + step)
            elements.append({"reg_type": reg_type, "address": address, "count": count})
    settings = {"area": area, "size": size, "elements": elements[:min(max(size, 1), 100)]}
    if rng.random() < 0.01:
        settings["null"] = rng.choice(("elements", "conn"))
    return settings


def random_operation(rng, kind, files, tables):
    seed = rng.getrandbits(40)
    pick = rng.random()
    if pick < 0.02:
        mode = choose(rng, [("accept", 8), ("refuse", 3), ("hold", 0.4), ("crowd", 1)])
        return Operation("init", seed, settings={"mode": mode})
    if pick < 0.025:
        return Operation("rewrite", seed, settings={"area": rng.choice(list(files)), "from": rng.choice(list(files))})
    if pick < 0.05:
        return Operation("stale", seed, settings={"size": choose(rng, [
            (rng.randrange(1, 600), 5), (512, 1), (513, 1), (rng.randrange(513, 2000), 2)])})
    if pick < 0.053:
        return Operation("forget", seed, settings={"socket_fd": rng.choice((-1, -2, -2**31, 999999, 5000, 2**31 - 1))})
    if pick < 0.058:
        return Operation("address", seed, settings={"ip": rng.choice((0x7F000001, 0x0A000001, 0xFFFFFFFF))})
    if kind == "mixed":
        kind = rng.choice(("read", "write", "batch"))
    if kind == "write" and rng.random() < 0.3:
        kind = "named"
    timeout = choose(rng, [(20, 60), (0, 1), (1, 0.02), (86400, 1), (0xFFFFFFFF, 0.3)])
    settings = random_batch(rng, files, tables) if kind == "batch" else random_single(rng, kind, files, tables)
    settings["delay"] = choose(rng, [(0, 30), (3, 10), (1, 0.2), (12, 0.1)])
    return Operation(kind, seed, timeout, settings)


@functools.lru_cache(2)
def random_files(seed):
    """Tag files by area, and what the generator of calls knows of their tables."""
    rng = Draws(seed)
    areas = rng.sample(AREAS, choose(rng, [(1, 5), (2, 2), (3, 1)]))
    hostility = choose(rng, [(0.0, 6), (0.05, 3), (0.4, 1)])
    files = {area: random_file(rng, hostility) for area in areas}
    for area in areas:
        for _ in range(4):
            # Few calls get anywhere with a file that is rejected or holds nothing.
            if known_tables({area: files[area]}).get(area) or rng.random() < 0.3:
                break
            files[area] = random_file(rng, hostility)
    if rng.random() < 0.02:
        files[areas[0]] = None  # a folder of that name
    return files, known_tables(files)


class Case:
    """Tag files and a list of operations."""

    def __init__(self, seed, kind):
        rng = Draws(f"{kind}:{seed}")
        self.seed, self.kind = seed, kind
        # Drawing the files costs more than drawing the calls: neighbouring cases share them.
        files, tables = random_files(f"{kind}:files:{seed // 4}")
        self.files, self.tables = dict(files), tables
        self.first_fd = choose(rng, [(-1, 4), (0, 1), (999999, 1), (-2**31, 1)])
        mode = choose(rng, [("accept", 60), ("refuse", 1), ("hold", 0.3), ("crowd", 0.5)])
        self.operations = [Operation("init", rng.getrandbits(40), settings={"mode": mode})]
        if rng.random() < 0.01:
            self.operations = []
        for _ in range(choose(rng, [(8, 2), (25, 4), (40, 2)])):
            self.operations.append(random_operation(rng, kind, self.files, tables))
