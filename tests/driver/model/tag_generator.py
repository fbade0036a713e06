"""Random tag files, well-formed and hostile."""

from bisect import bisect
from itertools import accumulate
from operator import itemgetter

import tag_model

TYPE_NAMES = [name for name, _, _ in tag_model.TYPES[:21]]
COMMON_TYPES = [b"BOOL", b"INT", b"DINT", b"REAL", b"LINT", b"LREAL", b"WORD", b"STRING", b"UINT"]
ODD_TYPES = [b"", b"bool", b"STRING ", b"Int", b"X" * 120, b"SINT", b"DATE", b"STRING2", b" INT"]
SCOPES = [b"MAIN", b"MAIN2", b"SUB", b"", b"Pump\xc3\xa9", b"\xe4\xb8\xad", b"M", b"MAIN\r"]
DEVICES = [b"DM", b"EM", b"MR", b"LR", b"TM", b"FM", b"CM", b"ZF", b"DM100", b"@EM", b"", b"D", b"xx", b"EMDM",
           b"0123456789012345678901DM", b"012345678901234567890DM"]
ODD_NUMBERS = [b"", b"-1", b"4294967295", b"99999999999999999999", b"+7", b" 12", b"0x10", b"12abc", b"-2147483649",
               b"262143", b"262144", b"65536", b"abc", b"1.5", b"\t3"]


def choose(rng, weighted, weight_of=itemgetter(1)):
    """What choices of the standard library would choose, at half of its price."""
    bounds = list(accumulate(map(weight_of, weighted)))
    return weighted[bisect(bounds, rng.random() * bounds[-1], 0, len(bounds) - 1)][0]


def random_name(rng, number):
    stem = choose(rng, [(b"T%d" % number, 12), (b"S.m%d" % number, 6), (b"L[2].v%d" % number, 4), (b"A[3]", 3),
                        (b"G%d[1,2]" % number, 3), (b"C[1,2,3].x", 2), (b"\xc3\xa4\xe4\xb8\xad%d" % number, 3),
                        (b"\xf0\x9f\x98\x80", 1), (b"p%%d%s%n", 1), (b"", 1), (b"odd", 2)])
    if stem != b"odd":
        return stem
    return choose(rng, [(b"x" * rng.randrange(1, 200), 2), (b"[" * rng.randrange(1, 150), 2), (b"a[b", 1),
                        (b"a[1[2,3]", 1), (b"a[1,2", 1), (b"a[1,,3]", 1), (b"a[1,2,].b[c,d]", 1), (b"]a[", 1),
                        (b"[4]", 1), (b"a[1,b[2,3]]", 1), (b"\xff\xfe\xc3", 1), (b"\xc3" * rng.randrange(1, 9), 1),
                        (bytes(rng.randrange(128, 256) for _ in range(rng.randrange(1, 120))), 2),
                        (b"\xe4\xb8\xad" * rng.randrange(1, 70), 1), (b"a[[" * 70, 1), (b"\xf0\x9f\x98\x80[" * 40, 1)])


def random_bound_pair(rng):
    low = choose(rng, [(0, 10), (1, 4), (rng.randrange(-8, 9), 4)])
    return low, low + choose(rng, [(rng.randrange(0, 12), 20), (-1, 2), (rng.randrange(-5, 0), 1), (70, 1),
                                   (rng.randrange(-2**31, 2**31), 1)])


def random_ranges(rng, dims):
    if rng.random() < 0.05:
        return rng.choice([b"[0..9", b"0..9", b"[ 1 .. 2]", b"[1..x]", b"[1..2_3", b"[1..2_3..4_", b"[_]", b"____",
                           b"[0..9]]", b"[1...2]", b"[-5..5]x", b"[" + b"0" * 105 + b"..5]", b"[+1..+4]",
                           b"[99999999999..-99999999999]", b"[1..2_3..4_5..6_7..8]", b"[\t2..\v4]", b"[0..3_ 1..2]"])
    pairs = [b"%d..%d" % random_bound_pair(rng) for _ in range(dims)]
    return b"[" + b"_".join(pairs) + b"]"


def random_text(rng, most):
    return bytes(rng.choice(b"abcXYZ019 .[]#_%") for _ in range(rng.randrange(most)))


def random_line(rng, number, identifier, indexed):
    """One declaration; an indexed one ends with column 12, so that both rules find its id."""
    kind = rng.choice(COMMON_TYPES) if rng.random() < 0.85 else rng.choice(TYPE_NAMES)
    if rng.random() < 0.04:
        kind = rng.choice(ODD_TYPES)
    dims = choose(rng, [(0, 5), (1, 4), (2, 3), (3, 3)])
    ranges = random_ranges(rng, dims) if dims else b""
    length = b""
    if kind == b"STRING" and rng.random() < 0.8:
        length = b"%d" % rng.choice([0, 1, 2, 10, 20, 80, 100, 500, 1000])
        ranges = ranges if rng.random() < 0.2 else b""
    if rng.random() < 0.03:
        length = rng.choice([b"5", b"-5", b"12345678", b"000000012", b"x", b" 9"])
    name, device = random_name(rng, number), rng.choice(DEVICES)
    if rng.random() < 0.2:
        # The roads of single bits depend on the kind of name and on the device.
        kind, length = b"BOOL", b""
        ranges = ranges if rng.random() < 0.4 else b""
        name = rng.choice((b"b%d", b"s.b%d", b"l[1].b%d", b"l[1].m.b%d")) % number
        device = rng.choice((b"DM0", b"EM0", b"EM0", b"MR0", b"LR0", b"TM0", b""))
    text = b"%d" % identifier
    flag = choose(rng, [(b"1", 6), (b"0", 6), (b"", 1), (b"10", 1), (b"x", 1)])
    columns = [name, kind, ranges, length, random_text(rng, 4), random_text(rng, 3), b"c", text,
               flag, choose(rng, [(b"1", 1), (b"0", 3), (b"", 1)]),
               choose(rng, [(b"%d" % rng.randrange(300), 6), (b"", 1)]), rng.choice(SCOPES)]
    if not indexed and rng.random() < 0.75:
        columns.append(device)
        if rng.random() < 0.1:
            columns.append(b"more")
    elif not indexed and rng.random() < 0.2:
        columns = columns[:rng.randrange(0, 13)]
    return b",".join(columns) + choose(rng, [(b"\n", 12), (b"\r\n", 1)])


def long_name_line(rng):
    """A name that grows beyond its field when its subscripts are marked."""
    part = rng.choice((b"[x", b"[", b"[\xc3\xa9", b"[\xe4\xb8\xad", b"[\xf0\x9f\x98\x80", b"[\xfb"))
    name = (b"x" * rng.randrange(8) + part * 120)[:rng.randrange(180, 221)]
    kind = rng.choice((b"BOOL,[0..3],,,,,5,1,,,,EM", b"BOOL,[0..3_0..2],,,,,5,0,,,,EM", b"STRING,,9,,,,5,1,,,,DM",
                       b"INT,[0..9],,,,,5,1,,,,DM", b"REAL,[0..9_0..9],,,,,5,1", b"BOOL,,,,,,5,1,,,,MR"))
    # Without a closing bracket the next columns belong to the name.
    return name + rng.choice((b"]", b"]", b"")) + b"," + kind + b"\n"


def hostile_line(rng):
    return choose(rng, [
        (long_name_line(rng), 6),
        (b"\n", 2), (b",,,,,\n", 1), (b"," * rng.randrange(30) + b"\n", 1), (b"plain text\n", 1),
        (rng.randbytes(rng.randrange(1, 300)) + b"\n", 2),
        (b"T,INT,,,a,b,c," + rng.choice(ODD_NUMBERS) + b",1,0,0,X\n", 3),
        (b"T,INT,,,a,b,c," + rng.choice(ODD_NUMBERS) + b",1,0,,X\n", 1),
        (b"T,INT,,,a,b,c," + rng.choice(ODD_NUMBERS) + b",,,,X\n", 1),
        (b"y" * rng.randrange(240, 260) + b"\n", 1), (b"y" * rng.randrange(500, 530) + b",INT,,,,,,5,1,1,1,M\n", 1),
        (b"T,INT,,,a,b,c,5", 1), (b"T,INT,,,a,b,c,5\n", 1), (b"T,INT,,,a,b\n", 1), (b"T\n", 1),
        (b"T,INT,,,a,b,c,5,1,0,0,,\n", 1), (b"T,INT,,,a,b,c,5,1,0,0,,DM,EM\n", 1), (b"T,INT,,,a\0b,c,5,1,0,0,X\n", 1),
        (b"x" * 230 + b",INT,,,,,,7,1,0,0,M\n", 1)])


def indexed_ids(rng):
    """Ids of a file's groups: runs in blocks of their own, at times with the faults that a writer could make."""
    ids = []
    block = rng.choice([0, 0, 0, 1, 5, 2045])
    for _ in range(choose(rng, [(1, 4), (2, 4), (3, 3), (6, 1), (110, 1)])):
        start = 0x40000 + block * 8192 + rng.choice([0, 0, 0, 3, 8100])
        length = choose(rng, [(1, 1), (2, 3), (3, 3), (6, 3), (20, 1), (99, 0.3), (100, 0.3), (101, 0.3), (102, 0.3)])
        ids += range(start, start + length)
        block += choose(rng, [(1, 20), (2, 3), (0, 1)])
    if rng.random() < 0.1 and ids:
        ids[rng.randrange(len(ids))] += rng.choice([1, -1, 8192, 100000])
    return ids


def random_file(rng, hostility):
    """The bytes of one tag file."""
    plain = [None] * choose(rng, [(rng.randrange(1, 20), 12), (0, 1), (rng.randrange(20, 60), 2)])
    indexed = indexed_ids(rng) if rng.random() < 0.5 else []
    order = plain + indexed
    if rng.random() < 0.3 and plain:
        cuts = sorted(rng.randrange(len(indexed) + 1) for _ in plain)
        order = []
        for at, identifier in enumerate(indexed + [None]):
            order += [None] * cuts.count(at)
            if at < len(indexed):
                order.append(identifier)
    lines = []
    count = 0
    for identifier in order:
        if rng.random() < hostility:
            lines.append(hostile_line(rng))
        elif rng.random() < 0.01:
            lines.append(long_name_line(rng))
        shown = count if identifier is None else identifier
        lines.append(random_line(rng, count, shown, identifier is not None))
        count += 1
    if rng.random() < 0.03:
        lines.append(b"Last,INT,,,a,b,c,5,1,0,0,X")
    return b"".join(lines)
