// The named write functions: one per width or kind, shape and scope. All return 0 or 3 and share what write_core.h and
// bit_core.h say; docs/write_functions.md tells which serves what.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/private_api.h"

extern "C" {

// Scalars and one dimension, global; local twins also take what they do not use, name_kind, and the program's number.
using PlcWrite = int32_t(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag);
using PlcWriteLocal = int32_t(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag, uint8_t name_kind,
                              uint8_t local_index);
// Two dimensions.
using PlcWrite2 = int32_t(RegRequest* request, RegValue* value, ConnContext* conn, uint32_t dim1_high, TagEntry* tag);
using PlcWrite2Local = int32_t(RegRequest* request, RegValue* value, ConnContext* conn, uint32_t dim1_high,
                               TagEntry* tag, uint8_t name_kind, uint8_t local_index);
// Three dimensions, global and local: the whole record.
using PlcWrite3 = int32_t(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry tag);

PLC_PRIVATE_API PlcWrite ev_plc_write_words, ev_plc_write_dwords, ev_plc_write_4words;
PLC_PRIVATE_API PlcWrite ev_plc_write_array_words, ev_plc_write_array_dwords, ev_plc_write_array_4words;
PLC_PRIVATE_API PlcWriteLocal ev_plc_write_words_local, ev_plc_write_dwords_local, ev_plc_write_4words_local;
PLC_PRIVATE_API PlcWriteLocal ev_plc_write_array_words_local, ev_plc_write_array_dwords_local;
PLC_PRIVATE_API PlcWriteLocal ev_plc_write_array_4words_local;
PLC_PRIVATE_API PlcWrite2 ev_plc_write_array2_words, ev_plc_write_array2_dwords, ev_plc_write_array2_4words;
PLC_PRIVATE_API PlcWrite2Local ev_plc_write_array2_words_local, ev_plc_write_array2_dwords_local;
PLC_PRIVATE_API PlcWrite2Local ev_plc_write_array2_4words_local;
PLC_PRIVATE_API PlcWrite3 ev_plc_write_array3_words, ev_plc_write_array3_dwords, ev_plc_write_array3_4words;
PLC_PRIVATE_API PlcWrite3 ev_plc_write_array3_words_local, ev_plc_write_array3_dwords_local;
PLC_PRIVATE_API PlcWrite3 ev_plc_write_array3_4words_local;

PLC_PRIVATE_API PlcWrite ev_plc_write_string;
PLC_PRIVATE_API PlcWriteLocal ev_plc_write_string_local;

// One bit that has a name of its own.
using PlcWriteBitLocal = int32_t(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag,
                                 uint8_t local_index);
PLC_PRIVATE_API PlcWrite ev_plc_write_bits;
PLC_PRIVATE_API PlcWriteBitLocal ev_plc_write_bits_local;

// A bit of a structure, by its full name (at most 255 bytes and one element's subscripts).
PLC_PRIVATE_API int32_t ev_plc_write_bits_struct(RegRequest* request, RegValue* value, ConnContext* conn,
                                                 const char* name, uint8_t device_kind);
PLC_PRIVATE_API int32_t ev_plc_write_bits_struct_local(RegRequest* request, RegValue* value, ConnContext* conn,
                                                       const char* name, uint8_t local_index);

// A bit of an array of structures.
PLC_PRIVATE_API int32_t ev_plc_write_array_struct_bits(RegRequest* request, RegValue* value, ConnContext* conn,
                                                       TagEntry* tag, uint8_t device_kind);
PLC_PRIVATE_API PlcWriteBitLocal ev_plc_write_array_struct_bits_local;

// Bit arrays; aux_flag and comma_flag are carried and change nothing.
PLC_PRIVATE_API int32_t ev_plc_write_array_bits(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag,
                                                uint8_t aux_flag, uint8_t name_kind);
PLC_PRIVATE_API PlcWriteLocal ev_plc_write_array_bits_local;
PLC_PRIVATE_API int32_t ev_plc_write_array2_bits(RegRequest* request, RegValue* value, ConnContext* conn,
                                                 uint32_t dim1_high, TagEntry* tag, uint8_t aux_flag, uint8_t name_kind,
                                                 uint8_t comma_flag);
PLC_PRIVATE_API PlcWrite2Local ev_plc_write_array2_bits_local;
PLC_PRIVATE_API PlcWrite3 ev_plc_write_array3_bits, ev_plc_write_array3_bits_local;
}
