"""Writes of the reference model: words, bits and strings, from the contract alone."""

from link_model import ReplyBuffer, frame_head
from name_model import U32, ZeroExtent, bit_write_name, structure_bit_name, word_write_name
from tag_model import ARRAY1, ARRAY2, ARRAY3, FIRST_INDEXED_ID, SCALAR, STRING, find_record
from text_model import name_element
from transfer_model import EM, FAILED, NO_WRITER, OK, Stop

REQUEST_BYTES = 1024
MAX_UNITS = 255
SCALAR_WORD_ACK = 13
BOOL_CODE = 0xC1
MR, LR, DM = 17, 18, 6
SEVERAL_IN_WORDS = b"write of several bits inside words or in EM memory"
MANY_OF_ARRAY = b"write of more than 8 bits of an array"


def hex_to_dec(text, digits):
    """hexToDec: an invalid digit counts as -1."""
    value = 0
    for at in range(max(0, digits)):
        value = value * 16 + index_of_sign(text[at])
    return value


def index_of_sign(char):
    """getIndexOfSigns."""
    at = b"0123456789abcdef".find(bytes((char,)).lower()) if 0 <= char < 128 else -1
    return at


def doubled(base, times):
    """mathN."""
    return base << max(0, times) & U32


def copy_bits(word_at, out, first, count):
    """Puts count bits from bit position first on into out, lowest bit of byte 0 first."""
    for j in range(count):
        position = first + j
        bit = word_at(position // 16) >> position % 16 & 1
        out[j // 8] = out[j // 8] & ~(1 << j % 8) & 0xFF | bit << j % 8


def refuse_write_id(driver, identifier, table):
    driver.link.print_text(b"tag id %d is not exist in this tag list %s, id_max:%d\n" %
                           (identifier, table.name, len(table.plain)))
    raise Stop(FAILED)


def find_tag(driver, request):
    """The copied record of a write, its program number already replaced."""
    identifier = driver.register_id(request)
    table = driver.table_for(request.area, True)
    if len(table.plain) <= identifier <= 0x3FFFE:
        refuse_write_id(driver, identifier, table)
    if identifier >= FIRST_INDEXED_ID and identifier >= table.max_indexed_id:
        refuse_write_id(driver, identifier, table)
    tag = find_record(table, identifier, driver.group_ids)
    if tag is None:
        raise Stop(FAILED)
    tag = tag.copy()
    if tag.is_global != 1:
        number = driver.program_by_prefix(tag.scope_name)
        if number is not None:
            tag.local_index = number
    return tag


def write(driver, request, value, conn):
    """ev_plc_write."""
    try:
        driver.check_host_records(request, value, conn)
        if value.data is None:
            return FAILED
        driver.connect_and_pause(b"ev_plc_write init fail\r")
        tag = find_tag(driver, request)
        return Write(driver, tag, request.address & 0xFFFF, value).dispatch()
    except Stop as stop:
        return stop.result
    except ZeroExtent:
        return FAILED


class Write:
    """One write after its record is known."""

    def __init__(self, driver, tag, index, value):
        self.driver = driver
        self.tag = tag
        self.index = index
        self.value = value
        self.is_global = tag.is_global == 1
        self.reply = ReplyBuffer()

    def dispatch(self):
        tag = self.tag
        if tag.bit_width == 0 and tag.shape == STRING:
            if self.value.count > tag.string_length & U32:
                self.value.count = int(tag.string_length / 2) & U32
            return self.write_string()
        if tag.bit_width in (16, 32, 64):
            return self.write_words()
        if tag.bit_width in (0, 1, 8):
            self.driver.refuse(self.reasons_against())
            return self.write_bits()
        return NO_WRITER

    def reasons_against(self):
        """Why these bits cannot all be written right in one call."""
        tag, count = self.tag, self.value.count
        is_array = tag.shape in (ARRAY1, ARRAY2, ARRAY3)
        in_em = tag.device_kind == EM
        in_words = tag.name_kind in (2, 3)
        return [SEVERAL_IN_WORDS] * ((in_em or in_words) and count > 1) + [MANY_OF_ARRAY] * (is_array and count > 8)

    def send(self, request, least=1, names=0):
        """One exchange; the reply goes into the call's buffer. Returns the received length."""
        reply = self.driver.exchange(request, names)
        if len(reply) < least:
            raise Stop(FAILED)
        self.reply.take(reply)
        return len(reply)

    def head(self, length, first, second):
        return frame_head(length, self.driver.next_sid(), first, second)

    def resolve(self, names, count):
        """The resolve exchange. Returns the handle: reply bytes 21 to 25."""
        if self.is_global:
            body = bytes((0, 1, 0, 0, 0, count & 0xFF))
        else:
            body = bytes((0, 1, 1, 1, 0, self.tag.local_index, 0, 0, 0, 0, 0, count & 0xFF))
        length = 12 + len(body) + len(names)
        if length > REQUEST_BYTES:
            raise Stop(FAILED)
        self.send(self.head(length, 0x0C, 0x28) + body + names, names=count)
        return self.reply.span(21, 5)

    def write_words(self):
        tag, value = self.tag, self.value
        if tag.shape not in (SCALAR, ARRAY1, ARRAY2, ARRAY3):
            return FAILED
        units_each = tag.bit_width // 16
        if tag.shape == SCALAR:
            count, shown = 1, units_each
            names = name_element(tag.name, True)
        else:
            count, first = value.count, self.index
            if tag.bit_width == 64:
                count, first = count // 2, first // 2
            if count * units_each > MAX_UNITS:
                return FAILED
            shown = value.count * (2 if tag.bit_width == 64 else units_each)
            names = b"".join(name_element(word_write_name(tag, first + i)) for i in range(count))
        size = value.extent = count * units_each * 2
        handle = self.resolve(names, count)
        data = bytes(value.data[0:size])
        block = b"".join(data[at + 1:at + 2] + data[at:at + 1] for at in range(0, len(data), 2))
        least = SCALAR_WORD_ACK if tag.shape == SCALAR and tag.bit_width == 16 else 1
        self.send(self.write_frame(handle, shown, block), least)
        return OK

    def write_frame(self, handle, units, block):
        body = bytes((0, handle[0], 0, 0, 0, units & 0xFF)) + handle[1:] + block
        return self.head(12 + len(body), 0x1E, 0x01) + body

    def write_string(self):
        tag, value = self.tag, self.value
        if 22 + 2 * value.count > REQUEST_BYTES:
            return FAILED
        value.extent = 2 * value.count
        name = tag.name + b"[#%d]" % (2 * self.index)
        handle = self.resolve(name_element(name, True), 1)
        frame = bytearray(self.write_frame(handle, value.count, bytes(value.data[0:2 * value.count])))
        low = 2 * value.count + 12 & 0xFF
        frame[0:8] = bytes((0, 0, 0, low, 0xFF, 0xFF, 0xFF, low ^ 0xFF))
        self.send(bytes(frame))
        return OK

    def write_bits(self):
        tag = self.tag
        if tag.type_code == BOOL_CODE and tag.dim1_high != 0 and tag.device_kind == EM:
            name = structure_bit_name(tag, self.index)
            self.driver.link.print_text(b"tagName:" + name + b"\r\n")
            return self.write_structure_bit(name)
        if tag.shape in (ARRAY1, ARRAY2, ARRAY3):
            return self.write_bit_array()
        if tag.shape != SCALAR:
            return FAILED
        if tag.name_kind == 1:
            return self.write_plain_bit()
        if tag.name_kind == 2:
            return self.write_structure_bit(tag.name)
        if tag.name_kind == 3:
            return self.write_array_structure_bit()
        return NO_WRITER

    def write_plain_bit(self):
        handle = self.resolve(name_element(self.tag.name, True), 1)
        return self.set_or_reset(handle, self.value.data[0], handle[0], True)

    def write_structure_bit(self, name):
        handle = self.resolve(name_element(name, True), 1)
        if self.is_global and self.tag.device_kind in (MR, LR):
            return self.set_or_reset(handle, self.value.data[0], self.tag.device_kind, False)
        return self.change_word(handle, self.reply[30])

    def write_array_structure_bit(self):
        handle = self.resolve(name_element(self.tag.name, True), 1)
        if self.is_global and self.tag.device_kind == MR:
            return self.set_or_reset(handle, self.value.data[0], MR, False)
        if self.is_global and self.tag.device_kind == DM:
            return self.write_masked(handle, self.reply[30])
        return self.change_word(handle, self.reply[29] << 8 | self.reply[30])

    def set_or_reset(self, handle, wanted, place, keeps_leading_zero):
        """Set/reset request; a value other than 0 and 1 leaves out the command byte and moves the rest down."""
        tail = bytes((0x01, place)) + handle[3:5]
        if wanted in (0, 1):
            body = bytes((0x32 if wanted else 0x33, 0)) + tail
        else:
            body = (b"\0" if keeps_leading_zero else b"") + tail
        head = self.head(16, 0, 0)[:10]
        self.send(head + body)
        return OK

    def change_word(self, handle, bit):
        """Read-modify-write of the word that holds the bit."""
        wanted = self.value.data[0]
        body = bytes((0, 0, 1, 0, 0, 0, 0, handle[0], 0, 1)) + handle[1:]
        self.send(self.head(26, 0x1E, 0x09) + body)
        word = self.reply[14] << 8 | self.reply[15]
        first = bit % 16
        copied = min(self.value.count, 16 - first)
        self.value.extent = copied // 8 + (copied % 8 > 0)
        copy_bits(lambda _: word, self.value.data, first, copied)
        current = self.value.data[0]
        mask = doubled(1, bit)
        if wanted == 1 and current == 0:
            word = word + mask & 0xFFFF
        elif wanted == 0 and current == 1:
            word = word - mask & 0xFFFF
        frame = self.head(24, 0x1E, 0x01) + bytes((0, handle[0], 0, 0, 0, 1)) + handle[1:]
        if wanted in (0, 1):
            frame += word.to_bytes(2, "big")
        self.send(frame)
        return OK

    def write_masked(self, handle, bit):
        wanted = self.value.data[0]
        mask = doubled(1, bit)
        frame = self.head(22, 0x1E, 0x03) + bytes((0, 1)) + handle
        if wanted == 1:
            frame += b"\x01" + (mask & 0xFFFF).to_bytes(2, "big")
        elif wanted == 0:
            frame += b"\x00" + (0xFFFF - mask & 0xFFFF).to_bytes(2, "big")
        self.send(frame)
        return OK

    def write_bit_array(self):
        tag = self.tag
        whole_words = tag.name_kind in (2, 3) and tag.shape != ARRAY3
        for i in range(self.value.count):
            wanted = self.value.data[0] >> i & 1 if i < 8 else 0
            handle = self.resolve(name_element(bit_write_name(tag, self.index + i & U32)), 1)
            if whole_words:
                self.rewrite_last_word(handle, wanted)
            else:
                self.set_or_reset(handle, wanted, handle[0], True)
        return OK

    def rewrite_last_word(self, handle, wanted):
        """Bit array inside a structure: the last two bytes of the read reply, bit by the first element's index."""
        last = handle[3:5]
        body = bytes((0, 0, 1, 0, 0, 0, 0, handle[0], 0, 1, 0, 0)) + last
        received = self.send(self.head(26, 0x1E, 0x09) + body, 2)
        word = int.from_bytes(self.reply.span(received - 2, 2), "big")
        bit = 1 << (self.index & 15)
        word = word | bit if wanted else word & ~bit
        self.send(self.head(24, 0x1E, 0x01) + bytes((0, handle[0], 0, 0, 0, 1, 0, 0)) + last +
                  word.to_bytes(2, "big"))
