"""Batch read of the reference model: classification, frames and decoding, from the contract alone."""

from link_model import ReplyBuffer, frame_head
from name_model import U32, ZeroExtent, divide, extent1, extent2, read_name
from tag_model import ARRAY1, ARRAY2, ARRAY3, FIRST_INDEXED_ID, find_record
from text_model import name_element
from transfer_model import EM, FAILED, NO_CONNECT, OK, REQUEST_BYTES, Stop, size_code

MAX_ELEMENTS = 100
NAMES_PER_FRAME = 35
LONGEST_RUN = 50
SHORT_REPLY = NO_CONNECT
SEVERAL_PROGRAMS = b"batch over several programs or scopes"
UNFIT_WIDTH = b"batch with an 8-bit or 64-bit variable"
BOOLS_IN_EM = b"batch with a BOOL array in EM memory"
BOOLS_AMONG_OTHERS = b"batch of several elements with a BOOL count above 1"


class Slot:
    """One element of the batch."""

    def __init__(self, reg_id, element, run):
        self.reg_id = reg_id
        self.element = element
        self.run = run


class TextReference:
    """What a string element receives: any address at which these bytes and a zero byte stand."""

    def __init__(self, text):
        self.text = text


class OutOfRange(Exception):
    """The classification met an element outside its bounds or its group."""


class Unclassifiable(Exception):
    """The classification cannot go on and says nothing."""


class BatchRead:
    """One ev_OMRON_plc_read."""

    def __init__(self, driver, elements, count, conn):
        self.driver = driver
        self.elements = elements
        self.count = count
        self.conn = conn
        self.slots = []
        self.table = None
        self.reply = ReplyBuffer()

    def run(self):
        try:
            self.driver.check_host_records(self.elements, self.conn)
            self.driver.connect_and_pause(b"ev_plc_read init fail\r")
            if self.count <= 0:
                return OK
            if self.count > MAX_ELEMENTS:
                return FAILED
            return self.transfer()
        except Stop as stop:
            return stop.result

    def transfer(self):
        driver = self.driver
        total = 0
        for element in self.elements:
            identifier = driver.register_id(element)
            self.slots.append(Slot(identifier, element.address & 0xFFFF, element.count))
            total += element.count
        self.table = driver.table_for(self.elements[0].area, False)
        for slot in self.slots:
            driver.check_range(slot.reg_id, self.table)
        driver.refuse(self.reasons_against())
        self.classify()
        frames = total // NAMES_PER_FRAME
        span = self.count // (frames + 1)
        if span == 0:
            return FAILED
        if self.walk_meets_empty_run(frames, span):
            return FAILED
        start = 0
        for _ in self.shares(frames):
            if start >= self.count:
                break
            start = Frame(self, start, min(start + span, self.count)).transfer()
        return OK

    def shares(self, frames):
        """One for each frame pair that may be needed."""
        return range(self.count if self.driver.reads_leftovers else frames + 1)

    def reasons_against(self):
        """Why the values of this batch cannot be right, whatever the controller answers."""
        reasons = []
        tags = [(slot, self.record_of(slot)) for slot in self.slots]
        tags = [(slot, tag) for slot, tag in tags if tag is not None]
        if len({self.program_of(tag) for _, tag in tags}) > 1:
            reasons.append(SEVERAL_PROGRAMS)
        if any(tag.bit_width in (8, 64) for _, tag in tags):
            reasons.append(UNFIT_WIDTH)
        bools = [(slot, tag) for slot, tag in tags if tag.bit_width == 1]
        if any(tag.shape in (ARRAY1, ARRAY2, ARRAY3) and tag.device_kind == EM for _, tag in bools):
            reasons.append(BOOLS_IN_EM)
        if self.count > 1 and any(slot.run > 1 for slot, _ in bools):
            reasons.append(BOOLS_AMONG_OTHERS)
        return reasons

    def program_of(self, tag):
        """What a block of names belongs to: the global scope, or a program by its name and number."""
        if tag.is_global == 1:
            return None
        number = self.driver.directory.number_by_equality(tag.scope_name)
        return tag.scope_name, tag.local_index if number is None else number

    def record_of(self, slot):
        return find_record(self.table, slot.reg_id, self.driver.group_ids)

    def slot_at(self, index):
        return self.slots[index] if index < self.count else Slot(0, 0, 0)

    def step_over(self, index):
        """Slots that the walk advances after this one; None without a record."""
        tag = self.record_of(self.slots[index])
        if tag is None:
            return None
        return 1 if tag.bit_width == 1 else self.slots[index].run

    def walk_meets_empty_run(self, frames, span):
        """Whether the walk over all frames would stand on a slot with a run of 0."""
        index = 0
        for _ in self.shares(frames):
            end = min(index + span, self.count)
            while index < end:
                if self.slots[index].run == 0:
                    return True
                step = self.step_over(index)
                if step is None:
                    return False
                index += step
        return False

    def classify(self):
        """Reg_Classify_Sort as far as the frames depend on it: the runs of the heads and the printed line."""
        try:
            self.scan_neighbours()
            self.merge_runs()
        except (OutOfRange, ZeroExtent):
            self.driver.link.puts(b"Index out of range!\r")
        except Unclassifiable:
            return

    def scan_neighbours(self):
        for slot, following in zip(self.slots, self.slots[1:]):
            if slot.reg_id >= FIRST_INDEXED_ID:
                self.classified_record(slot)
            if slot.reg_id == following.reg_id:
                return

    def classified_record(self, slot):
        tag = self.record_of(slot)
        if tag is not None:
            return tag
        if slot.reg_id < FIRST_INDEXED_ID:
            raise Unclassifiable
        raise OutOfRange

    def merge_runs(self):
        index = 0
        while index < self.count:
            slot = self.slots[index]
            tag = self.classified_record(slot)
            if tag.dim1_high == 0 and tag.string_length == 0:
                index += 1
            elif tag.bit_width == 1:
                check_bool_bounds(tag, slot.element)
                index += 1
            else:
                self.merge_run_at(index)
                if slot.run == 0:
                    raise Unclassifiable
                index += slot.run

    def merge_run_at(self, index):
        head = self.slots[index]
        while index < self.count and head.run < LONGEST_RUN:
            here, following = self.slots[index], self.slot_at(index + 1)
            if following.reg_id != here.reg_id or following.element != here.element + 1:
                return
            head.run += 1
            index += 1


def check_bool_bounds(tag, e):
    """Bounds of a BOOL array element, in unsigned arithmetic."""
    def exceeds(value, bound):
        return value & U32 > bound & U32

    if tag.shape == ARRAY2:
        outer, inner = divide(e, extent1(tag))
        if exceeds(tag.dim1_low + inner, tag.dim1_high) or exceeds(tag.dim2_low + outer, tag.dim2_high):
            raise OutOfRange
    elif tag.shape == ARRAY3:
        rest, inner = divide(e, extent1(tag))
        outer, middle = divide(rest, extent2(tag))
        if (exceeds(tag.dim1_low + inner, tag.dim1_high) or exceeds(tag.dim2_low + middle, tag.dim2_high) or
                exceeds(tag.dim3_low + outer, tag.dim3_high)):
            raise OutOfRange
    elif tag.shape == ARRAY1 and exceeds(e, tag.dim1_high):
        raise OutOfRange


class Frame:
    """One frame pair of a batch."""

    def __init__(self, batch, start, end):
        self.batch = batch
        self.driver = batch.driver
        self.start = start
        self.end = end
        self.body = b""
        self.names = []       # (head slot index, head record) per name
        self.walked = []      # (slot index, record, number of names)
        self.sub_blocks = 0
        self.last_is_global = True
        self.bit_positions = {}

    def transfer(self):
        """Both exchanges. Returns the slot at which the walk stopped."""
        reply = self.batch.reply
        stop = self.build_names()
        request = self.resolve_request()
        if len(request) > REQUEST_BYTES or 18 + 8 * len(self.names) > REQUEST_BYTES:
            raise Stop(FAILED)
        self.driver.next_sid()
        received = self.exchange(request, len(self.names))
        if received <= 24:
            raise Stop(SHORT_REPLY)
        received = self.exchange(self.value_request())
        if received <= 13:
            raise Stop(SHORT_REPLY)
        self.decode(received, reply)
        return stop

    def exchange(self, request, names=0):
        data = self.driver.exchange(request, names)
        self.batch.reply.take(data)
        return len(data)

    def build_names(self):
        index = self.start
        while index < self.end:
            slot = self.batch.slots[index]
            tag = self.batch.record_of(slot)
            if tag is None:
                raise Stop(FAILED)
            if tag.is_global != 1:
                number = self.driver.directory.number_by_equality(tag.scope_name)
                if number is not None:
                    tag.local_index = number
            self.open_sub_block(index, slot, tag)
            before = len(self.names)
            self.append_names(index, slot, tag)
            self.walked.append((index, tag, len(self.names) - before))
            index += 1 if tag.bit_width == 1 else slot.run
        return index

    def open_sub_block(self, index, slot, tag):
        is_global = tag.is_global == 1
        if index != 0 and self.body:
            previous = self.batch.record_of(self.batch.slots[index - 1])
            if previous is not None and previous.is_global == tag.is_global:
                return
        count = slot.run.to_bytes(2, "big")
        if is_global:
            self.body += b"\0\0" + count
        else:
            self.body += bytes((1, 1, 0, tag.local_index, 0, 0, 0, 0)) + count
        self.sub_blocks += 1
        self.last_is_global = is_global

    def append_names(self, index, slot, tag):
        is_bool = tag.bit_width == 1
        places = range(slot.run)
        if is_bool and self.batch.count > 1:
            places = (0, slot.run - 1)
        try:
            for j in places:
                source, named = slot, tag
                if not is_bool:
                    source = self.batch.slot_at(index + j)
                    named = self.batch.record_of(source)
                    if named is None:
                        raise Stop(FAILED)
                text = read_name(named, slot.element + j & U32, source.element)
                self.body += name_element(text)
                self.names.append((index, tag))
                if len(self.body) > REQUEST_BYTES:
                    raise Stop(FAILED)
        except ZeroExtent:
            raise Stop(FAILED) from None

    def resolve_request(self):
        body = bytearray(self.body)
        at = 2 if self.last_is_global else 8
        body[at:at + 2] = (len(self.names) & 0xFFFF).to_bytes(2, "big")
        return (frame_head(14 + len(body), self.driver.sid, 0x0C, 0x28) + bytes((0, self.sub_blocks & 0xFF)) +
                bytes(body))

    def value_request(self):
        reply = self.batch.reply
        body = b"\0" + len(self.names).to_bytes(2, "big") + bytes(3)
        pos = 0
        for index, tag in self.names:
            last = reply[pos + 25]
            if tag.bit_width == 1:
                if tag.name_kind != 1:
                    position = reply[pos + 30] & 0x0F
                else:
                    position = last & 0x0F
                    last &= 0xF0
                self.bit_positions.setdefault(index, []).append(position)
            size = size_code(tag.bit_width, self.batch.slots[index].run) & 0xFF
            body += bytes((0, reply[pos + 21], 0, size, reply[pos + 22], reply[pos + 23], reply[pos + 24], last))
            pos += 24 + 4 * reply[pos + 40]
        return frame_head(12 + len(body), self.driver.next_sid(), 0x1E, 0x09) + body

    def store(self, index, value):
        if index < self.batch.count:
            self.batch.elements[index].value = value

    def decode(self, received, reply):
        self.driver.check_places([(tag, self.batch.slots[index].run) for index, tag, _ in self.walked])
        offset = 0
        for index, tag, _ in self.walked:
            offset = self.decode_slot(index, tag, 14 + offset, reply) - 14
            if received <= offset + 13:
                raise Stop(SHORT_REPLY)

    def decode_slot(self, index, tag, at, reply):
        """Stores the values of one slot. Returns the reply offset behind them."""
        run = self.batch.slots[index].run

        def low_word_first(offset):
            return reply[offset + 2] << 24 | reply[offset + 3] << 16 | reply[offset] << 8 | reply[offset + 1]

        if tag.bit_width == 1:
            return self.decode_bools(index, run, at, reply)
        if tag.bit_width == 0:
            text = TextReference(reply.span(at, 2 * run))
            for j in range(run):
                self.store(index + j, text)
            return at + 2 * run
        for j in range(run):
            if tag.bit_width == 16:
                self.store(index + j, reply[at] << 8 | reply[at + 1])
                at += 2
            elif tag.bit_width == 32:
                self.store(index + j, low_word_first(at))
                at += 4
            elif tag.bit_width == 64:
                self.store(index + 2 * j, low_word_first(at))
                self.store(index + 2 * j + 1, low_word_first(at + 4))
                at += 8
        return at

    def decode_bools(self, index, run, at, reply):
        positions = self.bit_positions[index]
        several = self.batch.count > 1
        head = self.batch.elements[index]
        for j in range(run):
            position = positions[0] + j if several else positions[j]
            word = reply[at] << 8 | reply[at + 1]
            bit = word >> position & 1 if position < 16 else 0
            self.store(index + j, bit)
            if j:
                head.value = head.value + (bit << j) & U32
            if not several:
                at += 2
        return at + 4 if several else at
