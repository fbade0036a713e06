"""Random cases for the guarded build: the calls of the contract's cases, and those that its rules tell apart."""


from call_generator import Case, Operation, address_of, random_batch, random_offset, random_operation, random_single
from draws import Draws
from guarded_model import NOWHERE
from link_model import FINISH, RESET
from tag_generator import choose
from tag_model import ARRAY1, ARRAY2, ARRAY3, FIRST_INDEXED_ID
from transfer_model import EM

ARRAYS = (ARRAY1, ARRAY2, ARRAY3)


def known_records(table):
    """Ids of a table with their records; those that the range check takes."""
    records = list(enumerate(table.plain))
    for group in table.groups:
        records += [(record.tag_id, record) for record in group.records[:min(group.count, 8)]
                    if FIRST_INDEXED_ID <= record.tag_id < min(table.max_indexed_id, 0x1000000)]
    return records


def program_of(record):
    return None if record.is_global == 1 else record.scope_name


def steps_of(rng, record):
    """How many neighbouring elements of one variable a batch takes."""
    if record.shape not in ARRAYS or record.bit_width == 1 or record.dim1_high == 0:
        return choose(rng, [(1, 6), (2, 1)])
    return choose(rng, [(1, 3), (2, 2), (rng.randrange(1, 20), 3), (51, 0.3)])


def sound_batch(rng, files, tables):
    """A batch that the guarded build carries out: one program or the global scope, widths that a batch can read."""
    area = rng.choice(list(files))
    in_em_fails = rng.random() < 0.8
    records = [(identifier, record) for identifier, record in known_records(tables[area])
               if record.bit_width in (0, 1, 16, 32) and
               not (record.bit_width == 1 and record.shape in ARRAYS and record.device_kind == EM and in_em_fails)]
    if not records:
        return random_batch(rng, files, tables)
    program = program_of(rng.choice(records)[1])
    records = [pair for pair in records if program_of(pair[1]) == program]
    size = choose(rng, [(1, 2), (rng.randrange(2, 12), 8), (rng.choice((34, 35, 36, 37, 69, 70, 71, 72, 99, 100)), 6),
                        (rng.randrange(12, 101), 5)])
    elements = []
    while len(elements) < size:
        identifier, record = rng.choice(records)
        offset = choose(rng, [(rng.randrange(4), 10), (0, 4), (random_offset(rng), 1)])
        for step in range(steps_of(rng, record)):
            count = 1 if size > 1 or rng.random() < 0.5 else rng.choice((1, 2, 7, 16, 17, 34))
            reg_type, address = address_of(rng, identifier, offset + step)
            elements.append({"reg_type": reg_type, "address": address, "count": count})
    elements = elements[:size]
    if rng.random() < 0.15:
        # One element that is read another way, at times among those that the equal shares leave over.
        at = choose(rng, [(len(elements) - 1, 2), (rng.randrange(len(elements)), 1)])
        elements[at] = dict(elements[at], count=rng.choice((0, 0, 2, 3, 36)))
    elif rng.random() < 0.1:
        # A great count at the end makes the shares so small that what they leave over takes several.
        elements = elements[:rng.choice((5, 7, 8, 11))]
        elements[-1] = dict(elements[-1], count=rng.choice((70, 71, 105)))
    return {"area": area, "size": len(elements), "elements": elements}


def bit_write(rng, files, tables):
    """A write of bits: of one, of a byte, of more."""
    area = rng.choice(list(files))
    records = [pair for pair in known_records(tables[area]) if pair[1].bit_width in (1, 8)]
    if not records:
        return random_single(rng, "write", files, tables)
    identifier, _ = rng.choice(records)
    offset = choose(rng, [(rng.randrange(12), 4), (0, 2), (random_offset(rng), 1)])
    reg_type, address = address_of(rng, identifier, offset)
    return {"area": area, "reg_type": reg_type, "address": address,
            "count": choose(rng, [(1, 6), (2, 2), (rng.randrange(2, 9), 4), (8, 2), (9, 2), (0, 1), (16, 1)]),
            "first": choose(rng, [(0, 3), (1, 4), (0xFF, 2), (rng.randrange(256), 2)])}


def guarded_operation(rng, kind, files, tables, waiting):
    seed, pick = rng.getrandbits(40), rng.random()
    if pick < 0.03:
        mode = choose(rng, [("accept", 8), ("refuse", 2), (NOWHERE, 2), ("hold", 0.5), ("crowd", 1)])
        return Operation("init", seed, settings={"mode": mode})
    if pick < 0.09:
        size = choose(rng, [(0, 3), (1, 2), (rng.randrange(2, 600), 4), (512, 2), (513, 1), (600, 2),
                            (rng.randrange(4096, 30000), 2), (65535, 1), (65536, 2), (65537, 2),
                            (rng.randrange(65538, 200000), 1)])
        ending = choose(rng, [(None, 4 if size else 0), (FINISH, 1), (RESET, 1)])
        return Operation("stale", seed, settings={"size": size, "ending": ending})
    chosen = rng.choice(("read", "write", "batch")) if kind == "mixed" else kind
    if pick < 0.7 and chosen in ("batch", "write") and all(tables.get(area) for area in files):
        settings = (sound_batch if chosen == "batch" else bit_write)(rng, files, tables)
        settings["delay"] = choose(rng, [(0, 30), (3, 10)])
        operation = Operation(chosen, seed, choose(rng, [(20, 60), (0, 1), (0xFFFFFFFF, 0.5)]), settings)
    else:
        operation = random_operation(rng, chosen, files, tables)
    if operation.timeout_s == 1:
        operation.timeout_s = 20
    if operation.kind in ("read", "write", "batch") and rng.random() < waiting:
        operation.timeout_s = 1
    return operation


class GuardedCase(Case):
    """Tag files and a list of operations; of so many transfers of all one waits for a second."""

    def __init__(self, seed, kind, waiting=0.001):
        super().__init__(seed, kind)
        rng = Draws(f"guarded {kind}:{seed}")
        for at in range(1, len(self.operations)):
            operation = guarded_operation(rng, kind, self.files, self.tables, waiting)
            if self.is_cut_off(at) and rng.random() < 0.4:
                operation = Operation("init", rng.getrandbits(40), settings={"mode": "accept"})
            self.operations[at] = operation

    def is_cut_off(self, at):
        """Whether no connection can come about before this operation."""
        inits = [operation for operation in self.operations[:at] if operation.kind == "init"]
        return bool(inits) and inits[-1].settings["mode"] != "accept"
