"""Element names of the reference model: every subscript rule, written from the driver's contract alone."""

from tag_model import ARRAY1, ARRAY2, ARRAY3, STRING

U32 = 0xFFFFFFFF
LONGEST_STRING_SUBSCRIPT = 1024


class ZeroExtent(Exception):
    """A subscript needs a divisor that is zero."""


def signed(value):
    value &= U32
    return value - 2**32 if value & 0x80000000 else value


def subscript(*values):
    return b"[" + b",".join(b"#%d" % signed(value) for value in values) + b"]"


def divide(value, divisor):
    """Unsigned 32-bit quotient and remainder."""
    divisor &= U32
    if divisor == 0:
        raise ZeroExtent
    return divmod(value & U32, divisor)


def divide_signed(value, divisor):
    """Signed 32-bit quotient and remainder, truncated toward zero."""
    value, divisor = signed(value), signed(divisor)
    if divisor == 0:
        raise ZeroExtent
    quotient = abs(value) // abs(divisor)
    if (value < 0) != (divisor < 0):
        quotient = -quotient
    return quotient, value - quotient * divisor


def extent1(tag):
    return tag.dim1_high + 1 - tag.dim1_low


def extent2(tag):
    return tag.dim2_high + 1 - tag.dim2_low


def crossed2(tag, k):
    quotient, remainder = divide(k, extent1(tag))
    return subscript(tag.dim1_low + quotient, tag.dim2_low + remainder)


def crossed3(tag, k, divider=divide):
    quotient, remainder = divider(k, extent1(tag))
    outer, middle = divider(quotient, extent2(tag))
    return subscript(tag.dim1_low + outer, tag.dim2_low + middle, tag.dim3_low + remainder)


def read_name(tag, k, string_position):
    """Element text of a single or batch read; None when nothing at all is written for the element."""
    if tag.shape == ARRAY1:
        return tag.name + subscript(k)
    if tag.shape == STRING:
        if string_position is None:
            return None
        return tag.name + subscript(string_position)
    if tag.shape == ARRAY2:
        return tag.name + crossed2(tag, k)
    if tag.shape == ARRAY3:
        return tag.name + crossed3(tag, k)
    return tag.name


def word_write_name(tag, e):
    """Element text of a word write; scalars have none."""
    if tag.shape == ARRAY1:
        return tag.name + subscript(e)
    if tag.shape == ARRAY2:
        return tag.name + subscript(*divide(e, tag.dim1_high + 1))
    return tag.name + crossed3(tag, e, divide_signed)


def bit_write_name(tag, e):
    """Element text of a bit-array write."""
    if tag.shape == ARRAY1:
        return tag.name + subscript(e)
    if tag.shape == ARRAY2:
        return tag.name + crossed2(tag, e)
    return tag.name + crossed3(tag, e, divide_signed)


def structure_bit_name(tag, e):
    """The name formed for a bit of an EM device."""
    if tag.shape == ARRAY1:
        return tag.name + subscript(e)
    if tag.shape == ARRAY2:
        return tag.name + crossed2(tag, e)
    if tag.shape == ARRAY3:
        return tag.name + crossed3(tag, e)
    return b""
