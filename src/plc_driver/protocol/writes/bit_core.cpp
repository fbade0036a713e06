// The one mechanism under the named bit writes.
//
//   set, reset:  10      11   12   13     14
//               | 32/33 | 00 | 01 | lead | last two bytes of the reference
//   mask:        10   11   12   13   14       19          20
//               | 1E | 03 | 00 | 01 | handle | 01 OR 00 AND | mask
#include "plc_driver/protocol/writes/bit_core.h"

#include "plc_driver/protocol/writes/word_bits.h"
#include "plc_driver/protocol/writes/write_core.h"

namespace plc {
namespace {

constexpr uint32_t kWordBits = 16;
// What the length fields say, also of requests that a value other than 0 and 1 leaves shorter (D27).
constexpr uint32_t kSetResetLength = 6;
constexpr uint32_t kMaskLength = 12;
constexpr uint32_t kWordWriteLength = 14;
constexpr uint8_t kOneWord = 1;

bool is_bit(uint8_t desired) { return desired <= 1; }

bool send_set_reset(WriteExchange* writing, uint8_t desired, bool of_device, uint8_t device_kind) {
  const NameHandle handle = resolved_handle(*writing);
  WriteRequest request;
  if (is_bit(desired)) request.put(desired == 1 ? kBitSet : kBitReset);
  // Without its command the request's fields move down, by two places for a device and by one otherwise.
  if (is_bit(desired) || !of_device) request.put(0);
  request.put(1);
  request.put(of_device ? device_kind : handle.lead);
  request.put_bytes(handle.reference + 2, 2);
  return exchange(&request, kSetResetLength, &writing->reply, kLeastReplyBytes, writing->conn);
}

bool send_mask(WriteExchange* writing, uint8_t desired) {
  const NameHandle handle = resolved_handle(*writing);
  const uint32_t mask = mathN(1, writing->reply.at(kBitNumberOffset));
  WriteRequest request;
  request.put_command(kClassData, kCommandMask);
  request.put(0);
  request.put(1);
  request.put(handle.lead);
  request.put_bytes(handle.reference, sizeof handle.reference);
  if (is_bit(desired)) {
    request.put(desired);
    request.put16(desired == 1 ? mask : 0xFFFFU - mask);
  }
  return exchange(&request, kMaskLength, &writing->reply, kLeastReplyBytes, writing->conn);
}

bool read_word(WriteExchange* writing, const NameHandle& handle, int32_t least_bytes) {
  WriteRequest request;
  begin_value_request(&request, 1);
  append_reference(&request, handle, kOneWord);
  return exchange(&request, &writing->reply, least_bytes, writing->conn);
}

// Writes a word back; without has_word the request ends before its value.
bool write_word(WriteExchange* writing, const NameHandle& handle, uint32_t word, bool has_word) {
  WriteRequest request;
  begin_write_request(&request, handle, kOneWord);
  if (has_word) request.put16(word);
  return exchange(&request, kWordWriteLength, &writing->reply, kLeastReplyBytes, writing->conn);
}

// Stores the bits of the word from this bit on into the host's buffer, at most value->count, and returns its first
// byte.
uint8_t show_current_bits(uint32_t word, uint32_t bit, const RegValue* value) {
  const uint16_t words[1] = {static_cast<uint16_t>(word)};
  const uint32_t first = bit % kWordBits;
  const uint32_t count = value->count < kWordBits - first ? value->count : kWordBits - first;
  return BatchReadWord(words, value->data, static_cast<int32_t>(first), count)[0];
}

bool read_modify_write(WriteExchange* writing, const RegValue* value, uint32_t bit) {
  const NameHandle handle = resolved_handle(*writing);
  const uint8_t desired = value->data[0];
  if (!read_word(writing, handle, kLeastReplyBytes)) return false;
  uint32_t word = writing->reply.unit_at(kValueOffset);
  const uint32_t mask = mathN(1, static_cast<int32_t>(bit));
  const uint8_t current = show_current_bits(word, bit, value);
  // Compares the whole byte: a byte that shows further bits of the word changes nothing (D28).
  if (desired == 1 && current == 0) word += mask;
  if (desired == 0 && current == 1) word -= mask;
  return write_word(writing, handle, word, is_bit(desired));
}

// One element of a bit array whose elements live inside words. The bit comes from the first element's index, for every
// element (D29); of the reference only the last two bytes are sent.
bool rewrite_word_bit(WriteExchange* writing, uint32_t first_element, bool desired) {
  NameHandle handle = resolved_handle(*writing);
  handle.reference[0] = 0;
  handle.reference[1] = 0;
  constexpr int32_t kWordBytes = 2;
  if (!read_word(writing, handle, kWordBytes)) return false;
  uint32_t word = writing->reply.unit_at(static_cast<uint32_t>(writing->reply.length - kWordBytes));
  const uint32_t mask = 1U << first_element % kWordBits;
  word = desired ? word | mask : word & ~mask;
  return write_word(writing, handle, word, true);
}

}  // namespace

int32_t write_bit(const RegValue* value, ConnContext* conn, const BitWrite& write) {
  WriteExchange writing(conn);
  if (!resolve_name(&writing, write.scope, NameEncoder(write.name), {}, write.unit_count)) return PLC_FAILED;
  bool done = false;
  switch (write.means) {
    case BitMeans::kSetReset:
    case BitMeans::kDeviceSetReset:
      done = send_set_reset(&writing, value->data[0], write.means == BitMeans::kDeviceSetReset, write.device_kind);
      break;
    case BitMeans::kMask:
      done = send_mask(&writing, value->data[0]);
      break;
    case BitMeans::kReadModifyWrite:
      done = read_modify_write(&writing, value, writing.reply.at(kBitNumberOffset));
      break;
    case BitMeans::kReadModifyWrite2:
      done = read_modify_write(&writing, value, writing.reply.unit_at(kBitNumberHighOffset));
      break;
  }
  return done ? PLC_OK : PLC_FAILED;
}

int32_t write_bit_array(const RegRequest* request, const RegValue* value, ConnContext* conn,
                        const BitArrayWrite& write) {
  WriteExchange writing(conn);
  const NameEncoder name(write.tag->name);
  const uint32_t first = element_index(request);
  for (uint32_t i = 0; i < value->count; ++i) {
    const bool desired = i < 8 && (value->data[0] >> i & 1) != 0;
    Subscripts subscripts;
    if (!form_bit_write_subscripts(*write.tag, write.shape, write.dim1_high, first + i, &subscripts)) return PLC_FAILED;
    if (!resolve_name(&writing, write.scope, name, subscripts, UnitCount::kBothBytes)) return PLC_FAILED;
    const bool done = write.inside_words ? rewrite_word_bit(&writing, first, desired)
                                         : send_set_reset(&writing, desired ? 1 : 0, false, 0);
    if (!done) return PLC_FAILED;
  }
  return PLC_OK;
}

}  // namespace plc
