// Builds replies.
//
// A resolve reply is walked by hosts with a position P that starts at 0 and moves on by 24 + 4 x n: the record of a
// name starts at P + 17, its handle stands at P + 21, its bit number at P + 29 and n, the number of groups of four
// bytes that follow the record, in its last byte P + 40.
#include "tools/plc_sim/controller/reply.h"

#include <algorithm>

#include "wire/names.h"

namespace plc_sim {
namespace {

constexpr size_t kGroupBytes = 4;
constexpr size_t kMaxBodyBytes = wire::kMaxFrameBytes - wire::kReplyHeadBytes;

uint16_t bit_number_of(const Element& element) {
  constexpr uint32_t kLowFourBits = 0x0F;
  if (!element.variable->is_flag()) return 0;
  // A bit with an address of its own has no number in a word: what stands here must not be taken for it.
  const uint32_t bit = element.variable->road == BitRoad::kBit ? element.place.bit ^ kLowFourBits : element.place.bit;
  return static_cast<uint16_t>(bit);
}

size_t dimensions_of(const ResolvedName& name) { return name.element ? name.element->variable->tag.ranges.size() : 0; }

Bytes resolve_record(const ResolvedName& name, bool with_dimensions) {
  Bytes record(wire::kResolveRecordBytes, 0);
  if (!name.element) {
    record[0] = 0xFF;
    return record;
  }
  const TagDeclaration& tag = name.element->variable->tag;
  record[1] = static_cast<uint8_t>(tag.type->bits);
  size_t at = wire::kRecordHandleAt;
  record[at++] = name.handle.area;
  for (unsigned shift = 32; shift > 0;) {
    shift -= 8;
    record[at++] = static_cast<uint8_t>(name.handle.address >> shift);
  }
  const uint16_t bit = bit_number_of(*name.element);
  record[wire::kRecordBitNumberAt] = static_cast<uint8_t>(bit >> 8U);
  record[wire::kRecordBitNumberAt + 1] = static_cast<uint8_t>(bit);
  if (with_dimensions) {
    record[wire::kRecordDimensionsAt] = static_cast<uint8_t>(tag.ranges.size());
    for (const Range& range : tag.ranges) {
      append_u16(record, static_cast<uint16_t>(range.low));
      append_u16(record, static_cast<uint16_t>(range.high));
    }
  }
  return record;
}

}  // namespace

Bytes make_reply(const Bytes& request, uint16_t status, const Bytes& body) {
  const size_t body_bytes = std::min(body.size(), kMaxBodyBytes);
  const auto length = static_cast<uint32_t>(wire::kReplyHeadBytes - wire::kLengthExcludes + body_bytes);
  Bytes reply;
  append_u32(reply, length);
  append_u32(reply, ~length);
  for (size_t at = wire::kSequenceAt; at < wire::kHeadBytes; ++at) {
    reply.push_back(at < request.size() ? request[at] : uint8_t{0});
  }
  append_u16(reply, status);
  reply.insert(reply.end(), body.begin(), body.begin() + static_cast<std::ptrdiff_t>(body_bytes));
  return reply;
}

Bytes directory_body(const std::vector<Program>& programs) {
  Bytes body(1, 0);
  for (const Program& program : programs) {
    const auto units = utf16_from_utf8(program.name);
    Bytes record{0, body[0]};
    record.push_back(static_cast<uint8_t>(2 * units->size() + 2));
    record.push_back(0);
    record.push_back(program.number);
    for (const char16_t unit : *units) append_u16(record, unit);
    record.push_back(0);
    if (body.size() + record.size() > kMaxBodyBytes) break;
    body.insert(body.end(), record.begin(), record.end());
    ++body[0];
  }
  return body;
}

Bytes resolve_body(const std::vector<ResolvedName>& names) {
  const size_t records = std::min(names.size(), wire::kMaxResolveRecords);
  size_t total = wire::kResolveHeadBytes;
  for (size_t i = 0; i < records; ++i) total += wire::kResolveRecordBytes + kGroupBytes * dimensions_of(names[i]);
  Bytes body{1};
  append_u16(body, static_cast<uint16_t>(names.size()));
  for (size_t i = 0; i < records; ++i) {
    const Bytes record = resolve_record(names[i], total <= wire::kMaxFrameBytes);
    body.insert(body.end(), record.begin(), record.end());
  }
  return body;
}

}  // namespace plc_sim
