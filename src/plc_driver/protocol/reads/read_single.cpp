// Reads one register.
#include "plc_driver/protocol/reads/read_single.h"

#include <cstring>

#include "plc_driver/build_kind.h"
#include "plc_driver/diagnostics.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/frames/value_order.h"
#include "plc_driver/protocol/handles/value_request.h"
#include "plc_driver/protocol/link/exchange.h"

namespace plc {
namespace {

constexpr uint32_t kLastStringPosition = 1024;  // characters; a read beyond carries no name
constexpr uint8_t kStringReceived = 2;
constexpr uint32_t kClearedBytes = 4;  // of the host's buffer, before values are stored
constexpr uint8_t kDeviceDm = 6;
constexpr uint8_t kDeviceEm = 23;
constexpr uint8_t kDeviceNone = 30;

// One read under way.
struct SingleRead {
  const TagEntry* entry;
  NameScope scope;
  uint32_t element;        // of the first value; of strings: position in characters
  uint32_t string_length;  // as the host asked, 16-bit units; strings only
  RegValue* value;
  uint8_t bit_positions[kBitReadLimit];
};

bool is_string(const TagEntry& entry) { return entry.shape == PLC_STRING; }

// Notes a string read from its beginning, unless one of this id has already received its value.
void note_string_request(uint32_t reg_id, uint32_t length) {
  for (uint32_t i = 0; i < string_id; ++i) {
    if (StringInfo[i].reg_id == reg_id && StringInfo[i].state == kStringReceived) return;
  }
  if (string_id >= kStringRecords) string_id = 0;
  StringInfo[string_id++] = {reg_id, 0, static_cast<uint16_t>(length), 0};
}

// Compares with the id that the file gives, while records are made with the host's: they differ when a file's ids are
// not its record numbers (D20).
void note_string_received(uint32_t tag_id) {
  for (uint32_t i = 0; i < string_id; ++i) {
    if (StringInfo[i].reg_id == tag_id) StringInfo[i].state = kStringReceived;
  }
}

// Element offset and count as the wire counts them; the count goes back to the host.
void scale_request(SingleRead* read, uint32_t reg_id) {
  RegValue* value = read->value;
  if (read->entry->bit_width == 64) {  // the host counts 64-bit variables in 32-bit units (D21)
    read->element /= 2;
    value->count /= 2;
  }
  if (!is_string(*read->entry)) return;
  read->string_length = value->count;
  read->element *= 2;
  if (read->element == 0) note_string_request(reg_id, read->string_length);
  value->count = 1;
}

// False when an extent is zero or the names do not fit.
bool build_resolve(const SingleRead& read, FrameWriter* request) {
  const TagEntry& entry = *read.entry;
  const uint32_t count = read.value->count;
  begin_resolve(request, read.scope, count);
  const NameEncoder name(entry.name);
  if (is_string(entry)) {
    // Beyond the limit the request announces one name and carries none (D22).
    if (read.element <= kLastStringPosition) name.append(form_single_subscript(read.element), request);
    return !request->failed;
  }
  for (uint32_t i = 0; i < count && !request->failed; ++i) {
    Subscripts subscripts;
    if (!form_read_subscripts(entry, read.element + i, &subscripts)) return false;
    name.append(subscripts, request);
  }
  return !request->failed;
}

// Whether a BOOL lives inside a word, where the reply tells its bit, or has an address of its own.
bool is_word_addressed(const TagEntry& entry) {
  const uint8_t device = entry.device_kind;
  const bool in_structure =
      entry.name_kind != 1 && (device == kDeviceDm || device == kDeviceEm || device == kDeviceNone);
  const bool in_em_array = entry.dim1_high != 0 && device == kDeviceEm;
  return in_structure || in_em_array;
}

void build_value_request(SingleRead* read, const ReplyBuffer& resolved, FrameWriter* request) {
  const TagEntry& entry = *read->entry;
  const uint32_t count = read->value->count;
  const uint32_t size = is_string(entry)
                            ? read->string_length
                            : static_cast<uint32_t>(keyence_gettype(entry.bit_width, static_cast<int32_t>(count)));
  begin_value_request(request, count);
  NameCursor name(resolved);
  for (uint32_t i = 0; i < count && !request->failed; ++i, name.advance()) {
    NameHandle handle = handle_at(name);
    if (entry.bit_width == 1) {
      read->bit_positions[i] = is_word_addressed(entry) ? locate_word_bit(name) : take_address_bit(&handle);
    }
    append_reference(request, handle, static_cast<uint8_t>(size));
  }
}

bool resolve_elements(const SingleRead& read, ReplyBuffer* reply, ConnContext* conn) {
  ReadRequest request;
  return build_resolve(read, &request) && exchange(&request, reply, kLeastReplyBytes, conn);
}

bool request_values(SingleRead* read, ReplyBuffer* reply, ConnContext* conn) {
  ReadRequest request;
  build_value_request(read, *reply, &request);
  return exchange(&request, reply, 0, conn);
}

// Copies a string up to and with its terminator. Without one within the reply it stays unterminated, and is not counted
// as received.
void decode_string(const ReplyBuffer& reply, const TagEntry& entry, uint8_t* data) {
  const uint32_t limit = static_cast<uint32_t>(reply.length) - kValueOffset;
  for (uint32_t k = 0; k < limit; ++k) {
    data[k] = reply.at(kValueOffset + k);
    if (data[k] == 0) {
      note_string_received(entry.tag_id);
      return;
    }
  }
}

// Adds each bit into its byte: bytes behind the cleared ones keep what the host left in them.
void decode_bits(const SingleRead& read, const ReplyBuffer& reply) {
  for (uint32_t i = 0; i < read.value->count; ++i) {
    const uint32_t bit = reply.unit_at(kValueOffset + 2 * i) >> read.bit_positions[i] & 1;
    read.value->data[i / 8] = static_cast<uint8_t>(read.value->data[i / 8] + (bit << i % 8));
  }
}

// Of the widths that a tag file can declare, 8 bits have none.
[[maybe_unused]] constexpr bool has_decoding(uint8_t bit_width) { return bit_width != 8; }

uint32_t decode_values(const SingleRead& read, const ReplyBuffer& reply) {
  const TagEntry& entry = *read.entry;
  const RegValue& value = *read.value;
  if (reply.length < kLeastValueBytes) {
    print_line("read data err!");
    return PLC_FAILED;
  }
  if constexpr (kGuarded) {
    if (!has_decoding(entry.bit_width)) return PLC_FAILED;  // a read that fails leaves the host's buffer alone
  }
  memset(value.data, 0, kClearedBytes);
  switch (entry.bit_width) {
    case 16:
    case 32:
    case 64:
      copy_units_to_host(reply, kValueOffset, value.count * (entry.bit_width / 16U), value.data);
      return PLC_OK;
    case 0:
      if (value.count > 0) decode_string(reply, entry, value.data);
      return PLC_OK;
    case 1:
      decode_bits(read, reply);
      return PLC_OK;
    default:
      return PLC_FAILED;
  }
}

}  // namespace

uint32_t read_register(const TagEntry& entry, NameScope scope, uint32_t reg_id, uint32_t element, RegValue* value,
                       ConnContext* conn) {
  SingleRead read = {&entry, scope, element, 0, value, {}};
  scale_request(&read, reg_id);
  if (entry.bit_width == 1 && value->count > kBitReadLimit) return PLC_FAILED;
  ReplyBuffer reply;
  if (!resolve_elements(read, &reply, conn) || !request_values(&read, &reply, conn)) return PLC_FAILED;
  return decode_values(read, reply);
}

}  // namespace plc
