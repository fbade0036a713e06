// Record -> named write function; the tables are laid out like the one in docs/write_functions.md.
#include "plc_driver/protocol/writes/write_dispatch.h"

#include <cstring>

#include "plc_driver/build_kind.h"
#include "plc_driver/diagnostics.h"
#include "plc_driver/guard_lines.h"
#include "plc_driver/protocol/handles/resolve_request.h"
#include "plc_driver/protocol/writes/write_core.h"
#include "plc_driver/protocol/writes/write_functions.h"
#include "plc_driver/text/bounded_text.h"

namespace plc {
namespace {

constexpr uint16_t kTypeBool = 0xC1;
constexpr uint8_t kDeviceEm = 23;

// The writes of one width, global and local, by shape.
struct WordFamily {
  uint8_t bit_width;
  PlcWrite* scalar;
  PlcWriteLocal* scalar_local;
  PlcWrite* array;
  PlcWriteLocal* array_local;
  PlcWrite2* array2;
  PlcWrite2Local* array2_local;
  PlcWrite3* array3;
  PlcWrite3* array3_local;
};

const WordFamily kWordFamilies[] = {
    {16, ev_plc_write_words, ev_plc_write_words_local, ev_plc_write_array_words, ev_plc_write_array_words_local,
     ev_plc_write_array2_words, ev_plc_write_array2_words_local, ev_plc_write_array3_words,
     ev_plc_write_array3_words_local},
    {32, ev_plc_write_dwords, ev_plc_write_dwords_local, ev_plc_write_array_dwords, ev_plc_write_array_dwords_local,
     ev_plc_write_array2_dwords, ev_plc_write_array2_dwords_local, ev_plc_write_array3_dwords,
     ev_plc_write_array3_dwords_local},
    {64, ev_plc_write_4words, ev_plc_write_4words_local, ev_plc_write_array_4words, ev_plc_write_array_4words_local,
     ev_plc_write_array2_4words, ev_plc_write_array2_4words_local, ev_plc_write_array3_4words,
     ev_plc_write_array3_4words_local},
};

// What every write function is given.
struct WriteCall {
  RegRequest* request;
  RegValue* value;
  ConnContext* conn;
  TagEntry* tag;

  bool is_global() const { return tag->is_global == 1; }
  uint32_t dim1_high() const { return static_cast<uint32_t>(tag->dim1_high); }
};

int32_t run(const WriteCall& call, PlcWrite* global, PlcWriteLocal* local) {
  if (call.is_global()) return global(call.request, call.value, call.conn, call.tag);
  return local(call.request, call.value, call.conn, call.tag, call.tag->name_kind, call.tag->local_index);
}

int32_t write_words(const WriteCall& call, const WordFamily& family) {
  switch (call.tag->shape) {
    case PLC_SCALAR:
      return run(call, family.scalar, family.scalar_local);
    case PLC_ARRAY1:
      return run(call, family.array, family.array_local);
    case PLC_ARRAY2:
      if (call.is_global()) return family.array2(call.request, call.value, call.conn, call.dim1_high(), call.tag);
      return family.array2_local(call.request, call.value, call.conn, call.dim1_high(), call.tag, call.tag->name_kind,
                                 call.tag->local_index);
    case PLC_ARRAY3:
      return (call.is_global() ? family.array3 : family.array3_local)(call.request, call.value, call.conn, *call.tag);
    default:
      return PLC_FAILED;
  }
}

int32_t write_string(const WriteCall& call) {
  // Clips to half the declared length only what exceeds the whole of it (D32).
  const uint32_t declared = static_cast<uint32_t>(call.tag->string_length);
  if (call.value->count > declared) call.value->count = static_cast<uint32_t>(call.tag->string_length / 2);
  return run(call, ev_plc_write_string, ev_plc_write_string_local);
}

int32_t write_structure_bit(const WriteCall& call, const char* name) {
  if (call.is_global()) {
    return ev_plc_write_bits_struct(call.request, call.value, call.conn, name, call.tag->device_kind);
  }
  return ev_plc_write_bits_struct_local(call.request, call.value, call.conn, name, call.tag->local_index);
}

// An element of a BOOL array in EM memory is written as a structure bit under its full name.
int32_t write_em_array_bit(const WriteCall& call) {
  const uint32_t shape = call.tag->shape;
  BoundedText<kElementNameBytes> name;
  if (shape == PLC_ARRAY1 || shape == PLC_ARRAY2 || shape == PLC_ARRAY3) {
    Subscripts subscripts;
    if (!form_read_subscripts(*call.tag, element_index(call.request), &subscripts)) return PLC_FAILED;
    const SubscriptText text(subscripts, true);
    name.append(call.tag->name);
    name.append(reinterpret_cast<const char*>(text.data()), text.length());
  }
  print_structure_bit_name(name.bytes);
  return write_structure_bit(call, name.bytes);
}

int32_t write_scalar_bit(const WriteCall& call) {
  switch (call.tag->name_kind) {
    case 1:
      if (call.is_global()) return ev_plc_write_bits(call.request, call.value, call.conn, call.tag);
      return ev_plc_write_bits_local(call.request, call.value, call.conn, call.tag, call.tag->local_index);
    case 2:
      return write_structure_bit(call, call.tag->name);
    case 3:
      if (call.is_global()) {
        return ev_plc_write_array_struct_bits(call.request, call.value, call.conn, call.tag, call.tag->device_kind);
      }
      return ev_plc_write_array_struct_bits_local(call.request, call.value, call.conn, call.tag, call.tag->local_index);
    default:
      return kNoWriter;
  }
}

// Guarded: why a call cannot write its bits as it says, or null.
[[maybe_unused]] const char* bit_write_hindrance(const TagEntry& tag, uint32_t count) {
  constexpr uint32_t kBitsGiven = 8;  // of the one byte of values that is looked at
  const bool is_inside_words = tag.name_kind == 2 || tag.name_kind == 3;
  if (count > 1 && (is_inside_words || tag.device_kind == kDeviceEm)) {
    return "write of several bits inside words or in EM memory";
  }
  return count > kBitsGiven && tag.shape != PLC_SCALAR ? "write of more than 8 bits of an array" : nullptr;
}

int32_t write_bits(const WriteCall& call) {
  TagEntry* tag = call.tag;
  if constexpr (kGuarded) {
    const char* hindrance = bit_write_hindrance(*tag, call.value->count);
    if (hindrance != nullptr) {
      print_guard(hindrance);
      return PLC_FAILED;
    }
  }
  if (tag->type_code == kTypeBool && tag->dim1_high != 0 && tag->device_kind == kDeviceEm) {
    return write_em_array_bit(call);
  }
  switch (tag->shape) {
    case PLC_SCALAR:
      return write_scalar_bit(call);
    case PLC_ARRAY1:
      if (call.is_global()) {
        return ev_plc_write_array_bits(call.request, call.value, call.conn, tag, tag->aux_flag, tag->name_kind);
      }
      return ev_plc_write_array_bits_local(call.request, call.value, call.conn, tag, tag->name_kind, tag->local_index);
    case PLC_ARRAY2:
      if (call.is_global()) {
        const uint8_t comma_flag = strchr(tag->name, ',') != nullptr;
        return ev_plc_write_array2_bits(call.request, call.value, call.conn, call.dim1_high(), tag, tag->aux_flag,
                                        tag->name_kind, comma_flag);
      }
      return ev_plc_write_array2_bits_local(call.request, call.value, call.conn, call.dim1_high(), tag, tag->name_kind,
                                            tag->local_index);
    case PLC_ARRAY3:
      return (call.is_global() ? ev_plc_write_array3_bits : ev_plc_write_array3_bits_local)(call.request, call.value,
                                                                                            call.conn, *tag);
    default:
      return PLC_FAILED;
  }
}

}  // namespace

int32_t dispatch_write(RegRequest* request, RegValue* value, ConnContext* conn, TagEntry* tag) {
  const WriteCall call = {request, value, conn, tag};
  if (tag->bit_width == 0 && tag->shape == PLC_STRING) return write_string(call);
  for (const WordFamily& family : kWordFamilies) {
    if (family.bit_width == tag->bit_width) return write_words(call, family);
  }
  if (tag->bit_width == 0 || tag->bit_width == 1 || tag->bit_width == 8) return write_bits(call);
  return kNoWriter;
}

}  // namespace plc
