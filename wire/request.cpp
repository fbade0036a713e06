// One request frame taken apart and judged by its form.
#include "wire/request.h"

#include <array>
#include <cstdio>

#include "wire/big_endian.h"

namespace plc_sim {
namespace {

std::string hex(uint64_t value, int digits) {
  std::array<char, 20> text{};
  std::snprintf(text.data(), text.size(), "%0*llX", digits, static_cast<unsigned long long>(value));
  return text.data();
}

void expect_bytes(const ByteView& frame, size_t at, std::initializer_list<uint8_t> expected, Findings& findings) {
  for (const uint8_t value : expected) {
    if (frame.u8(at) != value) {
      findings.violation("byte " + std::to_string(at) + " is " + hex(frame.u8(at), 2) + ", expected " + hex(value, 2));
    }
    ++at;
  }
}

void expect_size(const ByteView& frame, size_t size, Findings& findings) {
  if (frame.size() != size) {
    findings.violation("the request has " + std::to_string(frame.size()) + " bytes, expected " + std::to_string(size));
  }
}

void expect_length_field(const ByteView& frame, size_t length, Findings& findings) {
  if (frame.u32(0) != length) {
    findings.violation("bytes 0-3 give a length of " + std::to_string(frame.u32(0)) + ", expected " +
                       std::to_string(length));
  }
}

// Length field of requests without an oddity of their own.
void expect_plain_length(const ByteView& frame, Findings& findings) {
  expect_length_field(frame, frame.size() - wire::kLengthExcludes, findings);
}

bool is_block_header(const ByteView& frame, size_t at) {
  if (frame.u8(at) == 0 && frame.u8(at + 1) == 0) return at + wire::kGlobalBlockBytes <= frame.size();
  return frame.u8(at) == 1 && frame.u8(at + 1) == 1 && at + wire::kLocalBlockBytes <= frame.size();
}

size_t parse_block_header(const ByteView& frame, size_t at, Request& request, Findings& findings) {
  NameBlock block;
  if (frame.u8(at) == 0) {
    block.count = frame.u16(at + 2);
    request.blocks.push_back(block);
    return at + wire::kGlobalBlockBytes;
  }
  block.is_local = true;
  block.program = frame.u8(at + 3);
  block.count = frame.u16(at + 8);
  const bool count_may_lie_over_program = frame.u8(wire::kBlocksAt - 1) > 1 && at == wire::kBlocksAt;
  if (!count_may_lie_over_program) expect_bytes(frame, at + 2, {0}, findings);
  expect_bytes(frame, at + 4, {0, 0, 0, 0}, findings);
  request.blocks.push_back(block);
  return at + wire::kLocalBlockBytes;
}

// One name; its end, or the frame's end when it does not fit.
size_t parse_name(const ByteView& frame, size_t at, Request& request, Findings& findings) {
  size_t units = frame.u16(at);
  const size_t room = at + 2 <= frame.size() ? (frame.size() - at - 2) / 2 : 0;
  NameBlock& block = request.blocks.back();
  // Some writes announce the low byte of the name's length only; they carry one name.
  const bool low_byte_only =
      units < room && units == room % 256 && request.blocks.size() == 1 && block.names.empty() && block.count == 1;
  if (low_byte_only) units = room;
  if (at + 2 > frame.size() || units > room) {
    findings.violation("the name at byte " + std::to_string(at) + " does not end inside the request");
    request.ends_inside_names = true;
    return frame.size();
  }
  std::u16string name;
  for (size_t i = 0; i < units; ++i) name += static_cast<char16_t>(frame.u16(at + 2 + 2 * i));
  block.names.push_back(std::move(name));
  return at + 2 + 2 * units;
}

void judge_single_block(Request& request, Findings& findings) {
  const NameBlock& block = request.blocks.front();
  request.announces_missing_name = block.count == 1 && block.names.empty();
  if (block.count != block.names.size() && !request.announces_missing_name) {
    findings.violation("the request announces " + std::to_string(block.count) + " names and carries " +
                       std::to_string(block.names.size()));
  }
}

// With several blocks the total stands in the first block's count when the last block is of the same scope, and over
// other bytes at a fixed place when it is not; the other blocks' counts say how their first register ran on.
void judge_several_blocks(const ByteView& frame, const Request& request, Findings& findings) {
  constexpr size_t kTotalOfGlobalAt = 16;
  constexpr size_t kTotalOfLocalAt = 22;
  size_t total = 0;
  for (const NameBlock& block : request.blocks) total += block.names.size();
  const size_t at = request.blocks.back().is_local ? kTotalOfLocalAt : kTotalOfGlobalAt;
  if (frame.u16(at) != total) {
    findings.violation("bytes " + std::to_string(at) + "-" + std::to_string(at + 1) + " give " +
                       std::to_string(frame.u16(at)) + " names in all blocks, the request carries " +
                       std::to_string(total));
  }
  if (request.blocks.front().is_local != request.blocks.back().is_local) {
    findings.notes.emplace_back("a batch over both scopes: its name count lies over other bytes of the first block");
  }
}

// A batch over both scopes whose last block is local has its total over bytes 22-23. Behind a first name of one unit
// that is the length of the next name or the start of the next block: nothing behind it can be told apart any more.
bool is_unreadable_batch(const ByteView& frame) {
  constexpr unsigned kMaxBatchNames = 200;  // two for each of a hundred registers
  const unsigned total = frame.u16(22);
  return frame.u8(13) > 1 && frame.u8(14) == 0 && frame.u16(18) == 1 && total >= 2 && total <= kMaxBatchNames;
}

void parse_blocks(const ByteView& frame, Request& request, Findings& findings) {
  const size_t announced = frame.u8(13);
  if (announced == 0 || !is_block_header(frame, wire::kBlocksAt)) {
    findings.violation("no block of names at byte 14");
    request.ends_inside_names = true;
    return;
  }
  size_t at = wire::kBlocksAt;
  while (at < frame.size()) {
    if (request.blocks.size() < announced && is_block_header(frame, at)) {
      at = parse_block_header(frame, at, request, findings);
    } else {
      at = parse_name(frame, at, request, findings);
    }
  }
  if (request.blocks.size() != announced) {
    findings.violation("byte 13 announces " + std::to_string(announced) + " blocks, the request carries " +
                       std::to_string(request.blocks.size()));
  }
  if (request.ends_inside_names) return;
  if (request.blocks.size() == 1) {
    judge_single_block(request, findings);
  } else {
    judge_several_blocks(frame, request, findings);
  }
}

void parse_resolve(const ByteView& frame, Request& request, Findings& findings) {
  expect_bytes(frame, 12, {0}, findings);
  expect_plain_length(frame, findings);
  Findings in_blocks;
  parse_blocks(frame, request, in_blocks);
  request.is_unreadable = !in_blocks.violations.empty() && is_unreadable_batch(frame);
  if (request.is_unreadable) {
    in_blocks = {};
    in_blocks.notes.emplace_back("a batch over both scopes: its name count lies over a length, its names are lost");
  }
  for (std::string& text : in_blocks.violations) findings.violation(std::move(text));
  findings.notes.insert(findings.notes.end(), in_blocks.notes.begin(), in_blocks.notes.end());
}

void parse_read(const ByteView& frame, Request& request, Findings& findings) {
  expect_plain_length(frame, findings);
  expect_bytes(frame, 12, {0}, findings);
  expect_bytes(frame, 15, {0, 0, 0}, findings);
  const size_t count = frame.u16(13);
  expect_size(frame, wire::kReadHeadBytes + count * wire::kReferenceBytes, findings);
  size_t at = wire::kReadHeadBytes;
  for (; at + wire::kReferenceBytes <= frame.size(); at += wire::kReferenceBytes) {
    expect_bytes(frame, at, {0}, findings);
    expect_bytes(frame, at + 2, {0}, findings);
    request.references.push_back({{frame.u8(at + 1), frame.u32(at + 4)}, frame.u8(at + 3)});
  }
}

void parse_write(const ByteView& frame, Request& request, Findings& findings) {
  constexpr size_t kNoValueDeclared = 14;  // of a word that is written back without a value
  expect_bytes(frame, 12, {0}, findings);
  expect_bytes(frame, 14, {0, 0, 0}, findings);
  request.handle = {frame.u8(13), frame.u32(18)};
  request.units = frame.u8(17);
  if (frame.size() < wire::kWriteHeadBytes) {
    findings.violation("a write of " + std::to_string(frame.size()) + " bytes ends inside its handle");
    return;
  }
  request.values = frame.part(wire::kWriteHeadBytes, frame.size()).bytes();
  const size_t length = frame.size() - wire::kLengthExcludes;
  const bool has_no_value = request.values.empty() && request.units == 1 && frame.u32(0) == kNoValueDeclared;
  request.has_one_byte_length = length > 0xFF && frame.u32(0) == (length & 0xFF);
  if (!has_no_value && !request.has_one_byte_length) expect_length_field(frame, length, findings);
}

void parse_masked_write(const ByteView& frame, Request& request, Findings& findings) {
  expect_bytes(frame, 12, {0, 1}, findings);
  expect_length_field(frame, wire::kMaskedWriteBytes - wire::kLengthExcludes, findings);
  request.handle = {frame.u8(14), frame.u32(15)};
  if (frame.size() == wire::kMaskedNoMaskBytes) {
    findings.notes.emplace_back("a masked write without a mask: the host's value was neither 0 nor 1");
    return;
  }
  expect_size(frame, wire::kMaskedWriteBytes, findings);
  if (frame.u8(19) > 1) findings.violation("byte 19 is " + hex(frame.u8(19), 2) + ", expected 00 or 01");
  request.is_or_mask = frame.u8(19) == 1;
  request.mask = frame.u16(20);
}

void parse_bit(const ByteView& frame, Request& request, Findings& findings) {
  expect_length_field(frame, wire::kBitRequestBytes - wire::kLengthExcludes, findings);
  const uint8_t first = frame.u8(wire::kClassAt);
  size_t area_at = 13;
  if (first == wire::kClassSet || first == wire::kClassReset) {
    expect_bytes(frame, 11, {0, 1}, findings);
    expect_size(frame, wire::kBitRequestBytes, findings);
    request.bit_value = first == wire::kClassSet;
  } else {
    findings.notes.emplace_back("a bit request without a command: the host's value was neither 0 nor 1");
    area_at = first == 0 ? 12 : 11;
  }
  request.area = frame.u8(area_at);
  request.low_address = frame.u16(area_at + 1);
}

}  // namespace

const char* name_of(RequestKind kind) {
  switch (kind) {
    case RequestKind::kDirectoryStart:
      return "directory start";
    case RequestKind::kDirectory:
      return "directory";
    case RequestKind::kResolve:
      return "resolve";
    case RequestKind::kRead:
      return "read";
    case RequestKind::kWrite:
      return "write";
    case RequestKind::kMaskedWrite:
      return "masked write";
    case RequestKind::kBit:
      return "bit";
    case RequestKind::kUnknown:
      break;
  }
  return "unknown";
}

RequestKind kind_of(const Bytes& frame) {
  const ByteView view(frame);
  const unsigned both = view.u16(wire::kClassAt);
  const auto pair = [](uint8_t first, uint8_t second) { return (static_cast<unsigned>(first) << 8U) | second; };
  if (both == pair(wire::kClassNames, wire::kDirectoryStart)) return RequestKind::kDirectoryStart;
  if (both == pair(wire::kClassNames, wire::kDirectory)) return RequestKind::kDirectory;
  if (both == pair(wire::kClassNames, wire::kResolve)) return RequestKind::kResolve;
  if (both == pair(wire::kClassValues, wire::kRead)) return RequestKind::kRead;
  if (both == pair(wire::kClassValues, wire::kWrite)) return RequestKind::kWrite;
  if (both == pair(wire::kClassValues, wire::kMaskedWrite)) return RequestKind::kMaskedWrite;
  const uint8_t first = view.u8(wire::kClassAt);
  const bool no_command = (frame.size() == wire::kBitNoCommandBytes && both == pair(0, 1)) ||
                          (frame.size() == wire::kBitNoCommandDeviceBytes && first == 1);
  const bool command = first == wire::kClassSet || first == wire::kClassReset;
  return command || no_command ? RequestKind::kBit : RequestKind::kUnknown;
}

Request parse_request(const Bytes& frame, Findings& findings) {
  const ByteView view(frame);
  Request request;
  if (frame.size() < wire::kHeadBytes) {
    findings.violation("a request of " + std::to_string(frame.size()) + " bytes has no complete head");
    return request;
  }
  request.kind = kind_of(frame);
  request.sequence = view.u16(wire::kSequenceAt);
  if (view.u32(4) != ~view.u32(0)) {
    findings.violation("bytes 4-7 are " + hex(view.u32(4), 8) + ", not the complement of the length " +
                       hex(view.u32(0), 8));
  }
  switch (request.kind) {
    case RequestKind::kDirectoryStart:
    case RequestKind::kDirectory:
      expect_plain_length(view, findings);
      expect_size(view, wire::kDirectoryRequestBytes, findings);
      expect_bytes(view, wire::kHeadBytes, {0, 0, 0, 0}, findings);
      break;
    case RequestKind::kResolve:
      parse_resolve(view, request, findings);
      break;
    case RequestKind::kRead:
      parse_read(view, request, findings);
      break;
    case RequestKind::kWrite:
      parse_write(view, request, findings);
      break;
    case RequestKind::kMaskedWrite:
      parse_masked_write(view, request, findings);
      break;
    case RequestKind::kBit:
      parse_bit(view, request, findings);
      break;
    case RequestKind::kUnknown:
      findings.violation("bytes 10-11 are " + hex(view.u16(wire::kClassAt), 4) + ": no such class and command");
      break;
  }
  return request;
}

}  // namespace plc_sim
