// Reads the parts of replies.
#include "wire/reply_parts.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "wire/big_endian.h"
#include "wire/names.h"

namespace wire_trace {

namespace wire = plc_sim::wire;
using plc_sim::ByteView;

ReplyHead head_of(const Bytes& reply) {
  const ByteView view(reply);
  ReplyHead head;
  head.is_reply = view.size() >= wire::kHeadBytes && view.u32(4) == ~view.u32(0);
  head.announced = uint64_t{view.u32(0)} + wire::kLengthExcludes;
  head.sequence = view.u16(wire::kSequenceAt);
  head.request_class = view.u8(wire::kClassAt);
  head.command = view.u8(wire::kCommandAt);
  if (view.size() >= wire::kReplyHeadBytes) head.status = view.u16(wire::kStatusAt);
  return head;
}

bool answers(const ReplyHead& head, const Bytes& request) {
  const ByteView asked(request);
  return head.sequence == asked.u16(wire::kSequenceAt) && head.request_class == asked.u8(wire::kClassAt) &&
         head.command == asked.u8(wire::kCommandAt);
}

namespace {

constexpr size_t kCountAt = 14;  // of programs, in a directory

}  // namespace

std::optional<std::vector<Program>> whole_directory(const Bytes& reply) {
  std::vector<Program> programs = programs_of(reply);
  if (reply.size() <= kCountAt || programs.size() != reply[kCountAt]) return std::nullopt;
  return programs;
}

std::vector<Program> programs_of(const Bytes& reply) {
  constexpr size_t kRecordHeadBytes = 5;
  const ByteView view(reply);
  std::vector<Program> programs;
  size_t at = kCountAt + 1;
  for (unsigned left = view.u8(kCountAt); left > 0; --left) {
    const size_t stated = view.u8(at + 2);
    const size_t name_bytes = stated > 2 ? stated - 2 : 0;
    if (at + kRecordHeadBytes + name_bytes > view.size()) break;
    std::u16string name;
    for (size_t i = 0; i + 1 < name_bytes; i += 2) name += static_cast<char16_t>(view.u16(at + kRecordHeadBytes + i));
    programs.push_back({view.u8(at + 4), plc_sim::utf8_from_utf16(name)});
    at += name_bytes + kRecordHeadBytes + 1;
  }
  return programs;
}

std::vector<NameRecord> records_of(const Bytes& reply, size_t names) {
  constexpr size_t kGroupBytes = 4;
  const ByteView view(reply);
  std::vector<NameRecord> records;
  size_t at = wire::kResolveHeadBytes;
  for (size_t i = 0; i < names; ++i) {
    NameRecord record;
    record.handle = {view.u8(at + wire::kRecordHandleAt), view.u32(at + wire::kRecordHandleAt + 1)};
    record.bit_number = view.u16(at + wire::kRecordBitNumberAt);
    record.is_received = at + wire::kResolveRecordBytes <= view.size();
    records.push_back(record);
    at += wire::kResolveRecordBytes + kGroupBytes * view.u8(at + wire::kRecordDimensionsAt);
  }
  return records;
}

size_t values_bytes(const plc_sim::Request& request) {
  size_t bytes = 0;
  for (const plc_sim::Reference& reference : request.references) bytes += size_t{2} * reference.size;
  return bytes;
}

Bytes value_of(const plc_sim::Request& request, const Bytes& reply, size_t reference) {
  const auto& references = request.references;
  size_t at = wire::kReplyHeadBytes;
  for (size_t i = 0; i < reference && i < references.size(); ++i) at += size_t{2} * references[i].size;
  const size_t count = reference < references.size() ? size_t{2} * references[reference].size : 0;
  return ByteView(reply).part(at, count).bytes();
}

Bytes in_host_order(Bytes value) {
  for (size_t i = 0; i + 1 < value.size(); i += 2) std::swap(value[i], value[i + 1]);
  return value;
}

std::string handle_text(const plc_sim::Handle& handle) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "area %02X, address %08X", static_cast<unsigned>(handle.area),
                static_cast<unsigned>(handle.address));
  return text.data();
}

std::string hex_text(const Bytes& bytes, size_t most) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text;
  for (size_t i = 0; i < std::min(bytes.size(), most); ++i) {
    if (i > 0) text += ' ';
    text += kDigits[bytes[i] >> 4U];
    text += kDigits[bytes[i] & 0x0FU];
  }
  if (bytes.size() > most) text += " and " + std::to_string(bytes.size() - most) + " more";
  return text;
}

}  // namespace wire_trace
