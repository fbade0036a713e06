// The named bit writes: one statement each, and the choice of means that belongs to the device.
#include "plc_driver/protocol/writes/bit_core.h"
#include "plc_driver/protocol/writes/write_core.h"
#include "plc_driver/protocol/writes/write_functions.h"

using namespace plc;

namespace {

BitMeans structure_bit_means(uint8_t device_kind) {
  const bool has_bit_address = device_kind == kBitDeviceLr || device_kind == kBitDeviceMr;
  return has_bit_address ? BitMeans::kDeviceSetReset : BitMeans::kReadModifyWrite;
}

BitMeans array_member_means(uint8_t device_kind) {
  if (device_kind == kBitDeviceMr) return BitMeans::kDeviceSetReset;
  return device_kind == kBitDeviceDm ? BitMeans::kMask : BitMeans::kReadModifyWrite2;
}

// Members of structures live inside words.
bool is_inside_words(uint8_t name_kind) { return name_kind == 2 || name_kind == 3; }

}  // namespace

extern "C" {

int32_t ev_plc_write_bits(RegRequest*, RegValue* value, ConnContext* conn, TagEntry* tag) {
  return write_bit(value, conn, {tag->name, kGlobal, BitMeans::kSetReset, UnitCount::kLowByte});
}

int32_t ev_plc_write_bits_local(RegRequest*, RegValue* value, ConnContext* conn, TagEntry* tag, uint8_t local_index) {
  return write_bit(value, conn, {tag->name, local_scope(local_index), BitMeans::kSetReset, UnitCount::kLowByte});
}

int32_t ev_plc_write_bits_struct(RegRequest*, RegValue* value, ConnContext* conn, const char* name,
                                 uint8_t device_kind) {
  return write_bit(value, conn, {name, kGlobal, structure_bit_means(device_kind), UnitCount::kLowByte, device_kind});
}

// Local structure bits are always read, modified and written, whatever their device (D30).
int32_t ev_plc_write_bits_struct_local(RegRequest*, RegValue* value, ConnContext* conn, const char* name,
                                       uint8_t local_index) {
  return write_bit(value, conn, {name, local_scope(local_index), BitMeans::kReadModifyWrite, UnitCount::kLowByte});
}

int32_t ev_plc_write_array_struct_bits(RegRequest*, RegValue* value, ConnContext* conn, TagEntry* tag,
                                       uint8_t device_kind) {
  return write_bit(value, conn,
                   {tag->name, kGlobal, array_member_means(device_kind), UnitCount::kBothBytes, device_kind});
}

int32_t ev_plc_write_array_struct_bits_local(RegRequest*, RegValue* value, ConnContext* conn, TagEntry* tag,
                                             uint8_t local_index) {
  return write_bit(value, conn,
                   {tag->name, local_scope(local_index), BitMeans::kReadModifyWrite2, UnitCount::kBothBytes});
}

int32_t ev_plc_write_array_bits(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag, uint8_t,
                                uint8_t name_kind) {
  return write_bit_array(request, value, conn, {tag, PLC_ARRAY1, 0, kGlobal, is_inside_words(name_kind)});
}

int32_t ev_plc_write_array_bits_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag,
                                      uint8_t name_kind, uint8_t local_index) {
  return write_bit_array(request, value, conn,
                         {tag, PLC_ARRAY1, 0, local_scope(local_index), is_inside_words(name_kind)});
}

int32_t ev_plc_write_array2_bits(RegRequest* request, RegValue* value, ConnContext* conn, uint32_t dim1_high,
                                 TagEntry* tag, uint8_t, uint8_t name_kind, uint8_t) {
  return write_bit_array(request, value, conn, {tag, PLC_ARRAY2, dim1_high, kGlobal, is_inside_words(name_kind)});
}

int32_t ev_plc_write_array2_bits_local(RegRequest* request, RegValue* value, ConnContext* conn, uint32_t dim1_high,
                                       TagEntry* tag, uint8_t name_kind, uint8_t local_index) {
  return write_bit_array(request, value, conn,
                         {tag, PLC_ARRAY2, dim1_high, local_scope(local_index), is_inside_words(name_kind)});
}

// Three dimensions set and reset every bit, members of structures too (D31).
int32_t ev_plc_write_array3_bits(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry tag) {
  return write_bit_array(request, value, conn, {&tag, PLC_ARRAY3, 0, kGlobal, false});
}

int32_t ev_plc_write_array3_bits_local(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry tag) {
  return write_bit_array(request, value, conn, {&tag, PLC_ARRAY3, 0, local_scope(tag.local_index), false});
}
}
