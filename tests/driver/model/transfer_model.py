"""The driver's state, its lazy connection and the single read of the reference model, from the contract alone."""

import tag_model
from link_model import Directory, Link, ReplyBuffer, directory_request, frame_head
from name_model import LONGEST_STRING_SUBSCRIPT, U32, ZeroExtent, read_name
from tag_model import FIRST_INDEXED_ID, STRING, Rejected, build_tagtable, find_record
from text_model import name_element

OK, NO_CONNECT, FAILED, NO_WRITER = 0, 2, 3, 0xFFFFFFFF
REQUEST_BYTES = 4096
MAX_BOOLS = 64
DEVICES_WITH_WORD_BITS = (6, 23, 30)
READABLE_WIDTHS = (0, 1, 16, 32, 64)
EM = 23
REJECTED_LINE = b"\0rejected "  # stands for the one line of free text about a rejected file


class Request:
    """RegRequest, and a BatchReadRequest with its two further fields."""

    def __init__(self, area, reg_type, address, count=0, value=0):
        self.area, self.reg_type, self.address = area, reg_type, address
        self.count, self.value = count, value


class Value:
    """RegValue; extent is how many bytes of data the call needs, beside the four that a read clears."""

    def __init__(self, count, data):
        self.count, self.data = count, data
        self.extent = 0


class Stop(Exception):
    """Ends an entry call with a result."""

    def __init__(self, result):
        super().__init__(result)
        self.result = result


def size_code(bits, fallback):
    """keyence_gettype."""
    return {1: 1, 16: 1, 32: 2, 64: 4, 0: fallback}.get(bits, bits)


class Driver:
    """Everything that one loaded driver keeps between calls; the contract build."""

    reads_leftovers = False         # elements that the equal shares of a batch leave over
    clears_before_failure = True    # whether a single read of a width that it cannot read clears four bytes first

    def __init__(self, files, link=None):
        self.files = files      # file name -> bytes, what the working directory holds
        self.link = link or Link()
        self.directory = Directory()
        self.group_ids = [0] * tag_model.BLOCKS
        self.settings_ip = None  # the address in the host's settings record, read on every transfer
        self.configured = False
        self.connected = False
        self.sid = 0
        self.ip = 0
        self.port = 0
        self.tables = {}

    def init(self, ip, port):
        """ev_plc_init."""
        self.ip, self.port, self.settings_ip = ip, port, ip
        self.sid = 0
        self.connected = False
        self.configured = True
        self.tables = {}
        self.link.puts(b"ev_plc_init ok\r")
        return OK

    def next_sid(self):
        sid = self.sid
        self.sid = (sid + 1) & 0xFFFF
        return sid

    def exchange(self, request, names=0):
        """One exchange of a transfer, which asks for so many names; a failed one loses the connection."""
        reply = self.link.exchange(request)
        if reply is None:
            self.connected = False
            raise Stop(FAILED)
        return reply

    def fetch_directory(self):
        for sequence, command in ((0, 0x2C), (1, 0x25)):
            reply = self.link.exchange(directory_request(sequence, command))
            if reply is None:
                self.connected = False
                return
            if not reply:
                return
        self.directory.take(reply)

    def connect_and_pause(self, failure_line):
        """The connection, when there is none, and the pause."""
        if not self.connected:
            self.connect(failure_line)
        self.link.paused = True

    def connect(self, failure_line):
        stored = self.link.connect(self.ip)
        self.fetch_directory()
        if not stored:
            self.connected = False
            self.link.puts(failure_line)
            raise Stop(NO_CONNECT)
        self.connected = True

    def register_id(self, request):
        """The id of a request, whose reg_type is rewritten."""
        if request.reg_type <= 3:
            request.reg_type = 0
        return request.reg_type << 16 | request.address >> 16

    def table_for(self, area, ends_line):
        """The table of the area's tag file, loaded on first use."""
        name = b"PLC%X_%d.csv" % (self.settings_ip, area)
        if name in self.tables:
            return self.tables[name]
        table = self.load_table(name)
        if table is None or not (table.plain or table.max_indexed_id):
            self.link.print_text(b"build tag table failed!" + (b"\n" if ends_line else b""))
            raise Stop(FAILED)
        self.tables[name] = table
        return table

    def load_table(self, name):
        self.link.print_text(b"build tag table for " + name + b"\r\n")
        if name not in self.files:
            self.link.print_text(b"[PLC] open " + name + b" file failed, at line: #\r\n")
            return None
        try:
            if self.files[name] is None:
                raise Rejected
            return build_tagtable(name, self.files[name], self.group_ids)
        except Rejected:
            self.link.print_text(REJECTED_LINE + name + b"\0")
            return None

    def refuse_id(self, identifier, table, limit):
        self.link.print_text(b"[PLC] tag id %d is not exist in this tag list %s, max:%d, at line: #\r\n" %
                             (identifier, table.name, limit))
        raise Stop(FAILED)

    def check_range(self, identifier, table):
        if len(table.plain) <= identifier <= 0x3FFFE:
            self.refuse_id(identifier, table, len(table.plain))
        if identifier >= FIRST_INDEXED_ID and identifier >= table.max_indexed_id:
            self.refuse_id(identifier, table, table.max_indexed_id)

    def program_by_prefix(self, scope_name):
        """The number of a local variable's program where a beginning of its name will do, None when unknown."""
        return self.directory.number_by_prefix(scope_name)

    def check_places(self, slots):
        """The contract stores what a frame brought wherever that is."""

    def refuse(self, reasons):
        """The contract carries out whatever is asked for."""

    def check_host_records(self, *records):
        if not self.configured or any(record is None for record in records):
            raise Stop(FAILED)

    def read(self, request, value, conn):
        """ev_plc_read."""
        try:
            self.check_host_records(request, value, conn)
            if value.data is None:
                return FAILED
            self.connect_and_pause(b"ev_plc_read init fail\r")
            identifier = self.register_id(request)
            table = self.table_for(request.area, False)
            self.check_range(identifier, table)
            tag = find_record(table, identifier, self.group_ids)
            if tag is None:
                return FAILED
            tag = tag.copy()
            if tag.is_global != 1:
                scope_number = (self.program_by_prefix if identifier < FIRST_INDEXED_ID else
                                self.directory.number_by_equality)(tag.scope_name)
                if scope_number is not None:
                    tag.local_index = scope_number
            return SingleRead(self, tag, request.address & 0xFFFF, value).run()
        except Stop as stop:
            return stop.result


class SingleRead:
    """One read after its record is known."""

    def __init__(self, driver, tag, offset, value):
        self.driver = driver
        self.tag = tag
        self.offset = offset
        self.value = value
        self.requested_length = 0
        self.buffer = ReplyBuffer()
        self.bit_positions = []

    def run(self):
        tag, value = self.tag, self.value
        if tag.bit_width == 64:
            self.offset //= 2
            value.count //= 2
        if tag.shape == STRING:
            self.requested_length = value.count
            self.offset *= 2
            value.count = 1
        if tag.bit_width == 1 and value.count > MAX_BOOLS:
            return FAILED
        try:
            names = self.element_names()
        except ZeroExtent:
            return FAILED
        if names is None:
            return FAILED
        reply = self.driver.exchange(self.resolve_request(names), value.count)
        if not reply:
            return FAILED
        self.buffer.take(reply)
        if 18 + 8 * value.count > REQUEST_BYTES:
            return FAILED
        reply = self.driver.exchange(self.value_request())
        self.buffer.take(reply)
        return self.decode(len(reply))

    def element_names(self):
        """The packed names, None when they do not fit the request."""
        room = REQUEST_BYTES - (18 if self.tag.is_global == 1 else 24)
        packed = b""
        if self.value.count * 2 > REQUEST_BYTES and self.tag.shape != STRING:
            return None
        position = self.offset if self.offset <= LONGEST_STRING_SUBSCRIPT else None
        for i in range(self.value.count):
            name = read_name(self.tag, (self.offset + i) & U32, position)
            if name is not None:
                packed += name_element(name)
            if len(packed) > room:
                return None
        return packed

    def resolve_request(self, names):
        count = self.value.count.to_bytes(2, "big")
        if self.tag.is_global == 1:
            body = bytes((0, 1, 0, 0)) + count
        else:
            body = bytes((0, 1, 1, 1, 0, self.tag.local_index, 0, 0, 0, 0)) + count
        length = 12 + len(body) + len(names)
        return frame_head(length, self.driver.next_sid(), 0x0C, 0x28) + body + names

    def value_request(self):
        tag, reply, count = self.tag, self.buffer, self.value.count
        body = bytes((0,)) + count.to_bytes(2, "big") + bytes(3)
        size = self.requested_length if tag.shape == STRING else size_code(tag.bit_width, count)
        pos = 0
        for _ in range(count):
            last = reply[pos + 25]
            if tag.bit_width == 1:
                if (tag.name_kind != 1 and tag.device_kind in DEVICES_WITH_WORD_BITS) or \
                        (tag.dim1_high != 0 and tag.device_kind == EM):
                    self.bit_positions.append(reply[pos + 30] & 0x0F)
                else:
                    self.bit_positions.append(last & 0x0F)
                    last &= 0xF0
            body += bytes((0, reply[pos + 21], 0, size & 0xFF, reply[pos + 22], reply[pos + 23], reply[pos + 24],
                           last))
            pos += 24 + 4 * reply[pos + 40]
        return frame_head(12 + len(body), self.driver.next_sid(), 0x1E, 0x09) + body

    def decode(self, received):
        tag, data, reply, count = self.tag, self.value.data, self.buffer, self.value.count
        if received < 14:
            self.driver.link.puts(b"read data err!\r")
            return FAILED
        if tag.bit_width in READABLE_WIDTHS or self.driver.clears_before_failure:
            data[0:4] = bytes(4)
        if tag.bit_width in (16, 32, 64):
            size = tag.bit_width // 8 * count
            self.value.extent = size
            raw = reply.span(14, size)
            for at in range(0, size, 2):
                data[at], data[at + 1] = raw[at + 1], raw[at]
            return OK
        if tag.bit_width == 0:
            if count:
                self.decode_text(received)
            return OK
        if tag.bit_width == 1:
            self.decode_bits()
            return OK
        return FAILED

    def decode_text(self, received):
        for k in range(received - 14):
            byte = self.buffer[14 + k]
            self.value.data[k] = byte
            self.value.extent = k + 1
            if byte == 0:
                return

    def decode_bits(self):
        data, reply = self.value.data, self.buffer
        self.value.extent = (len(self.bit_positions) + 7) // 8
        for i, position in enumerate(self.bit_positions):
            byte = reply[15 + 2 * i] >> position if position < 8 else reply[14 + 2 * i] >> (position - 8)
            data[i // 8] = data[i // 8] + ((byte & 1) << i % 8) & 0xFF
