"""The named write functions: their arguments, and what the model does when one is called without the dispatcher."""

import ctypes

from name_model import ZeroExtent
from tag_model import ARRAY1, ARRAY2, ARRAY3, SCALAR, STRING
from transfer_model import FAILED, Stop
from write_model import Write

ENTRY_BYTES = 560
_POINTER, _U8, _U32 = ctypes.c_void_p, ctypes.c_uint8, ctypes.c_uint32


class EntryByValue(ctypes.Structure):
    """A TagEntry as an argument that is copied; words, so that it is aligned as the record is."""
    _fields_ = [("words", ctypes.c_uint32 * (ENTRY_BYTES // 4))]


def word_functions():
    """Name -> (road, width, shape, argument form)."""
    table = {}
    for width, noun in ((16, "words"), (32, "dwords"), (64, "4words")):
        for shape, part, form in ((SCALAR, "", "pointer"), (ARRAY1, "array_", "pointer"), (ARRAY2, "array2_", "bound"),
                                  (ARRAY3, "array3_", "copy")):
            table[f"ev_plc_write_{part}{noun}"] = ("words", width, shape, form)
    return table


FUNCTIONS = {
    **word_functions(),
    "ev_plc_write_string": ("string", 0, STRING, "pointer"),
    "ev_plc_write_bits": ("plain", 1, SCALAR, "plain"),
    "ev_plc_write_bits_struct": ("structure", 1, SCALAR, "device"),
    "ev_plc_write_array_struct_bits": ("structures", 1, SCALAR, "device"),
    "ev_plc_write_array_bits": ("array", 1, ARRAY1, "flags"),
    "ev_plc_write_array2_bits": ("array", 1, ARRAY2, "bound flags"),
    "ev_plc_write_array3_bits": ("array", 1, ARRAY3, "copy"),
}


def arguments_of(form, is_global, tag, address):
    """What follows the three host records: values and their types."""
    bound, entry = (tag.dim1_high & 0xFFFFFFFF, _U32), (address, _POINTER)
    kind, index, aux = (tag.name_kind, _U8), (tag.local_index, _U8), (tag.aux_flag, _U8)
    device, comma = (tag.device_kind, _U8), (int(b"," in tag.name), _U8)
    if form == "copy":
        return [(EntryByValue.from_buffer_copy(ctypes.string_at(address, ENTRY_BYTES)), EntryByValue)]
    if is_global:
        return {"pointer": [entry], "bound": [bound, entry], "plain": [entry], "device": [entry, device],
                "flags": [entry, aux, kind], "bound flags": [bound, entry, aux, kind, comma]}[form]
    return {"pointer": [entry, kind, index], "bound": [bound, entry, kind, index], "plain": [entry, index],
            "device": [entry, index], "flags": [entry, kind, index], "bound flags": [bound, entry, kind, index]}[form]


def perform(driver, road, width, shape, is_global, tag, index, value):
    """The model's side: the function, not the record, says width, shape and scope."""
    tag = tag.copy()
    tag.bit_width, tag.shape = width, shape
    call = Write(driver, tag, index, value)
    call.is_global = is_global
    roads = {"words": call.write_words, "string": call.write_string, "plain": call.write_plain_bit,
             "structure": lambda: call.write_structure_bit(tag.name), "structures": call.write_array_structure_bit,
             "array": call.write_bit_array}
    try:
        return roads[road]()
    except Stop as stop:
        return stop.result
    except ZeroExtent:
        return FAILED
