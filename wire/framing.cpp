// Finds where a request ends: by its length field, and by content where the length field is known not to say it.
#include "wire/framing.h"

#include <optional>

#include "wire/big_endian.h"
#include "wire/request.h"

namespace plc_sim {
namespace {

constexpr size_t kUnitsAt = 17;
constexpr size_t kCountsOfOneByte = 256;  // counts that one byte can tell apart
constexpr size_t kMaxWriteBytes = 1024;
constexpr size_t kLengthOfOneWord = 14;

// Whether a head starts there: its length and the complement of it.
bool has_head_at(const Bytes& received, size_t at) {
  constexpr size_t kLengthBytes = 4;
  const ByteView head = ByteView(received).part(at, 2 * kLengthBytes);
  return head.size() == 2 * kLengthBytes && head.u32(kLengthBytes) == ~head.u32(0);
}

bool ends_at(const Bytes& received, size_t at) { return received.size() == at || has_head_at(received, at); }

// Long texts are written with the low byte of their length and of their count.
std::optional<FrameEnd> text_write_end(const Bytes& received, size_t declared) {
  if (received.size() <= kUnitsAt || declared > 0xFF || kind_of(received) != RequestKind::kWrite) return std::nullopt;
  const auto bytes_of = [&](size_t count) { return wire::kWriteHeadBytes + 2 * count; };
  const size_t count = ByteView(received).u8(kUnitsAt);
  if (((bytes_of(count) - wire::kLengthExcludes) & 0xFFU) != declared) return std::nullopt;
  // A text holds no head. What looks like a longer text may be a request with the next ones of a host that runs ahead.
  if (has_head_at(received, bytes_of(count))) return FrameEnd{true, bytes_of(count)};
  for (size_t more = count + kCountsOfOneByte; bytes_of(more) <= kMaxWriteBytes; more += kCountsOfOneByte) {
    if (ends_at(received, bytes_of(more))) return FrameEnd{true, bytes_of(more)};
  }
  return FrameEnd{received.size() >= bytes_of(count), bytes_of(count)};
}

// Requests whose host value was neither 0 nor 1 say a length that they do not have.
std::optional<size_t> shortened_end(const Bytes& received, size_t declared) {
  const uint8_t first = ByteView(received).u8(wire::kClassAt);
  const uint8_t second = ByteView(received).u8(wire::kCommandAt);
  if (declared + wire::kLengthExcludes == wire::kBitRequestBytes && first == 0 && second == 1) {
    return wire::kBitNoCommandBytes;
  }
  if (declared + wire::kLengthExcludes == wire::kBitRequestBytes && first == 1) return wire::kBitNoCommandDeviceBytes;
  const RequestKind kind = kind_of(received);
  if (kind == RequestKind::kMaskedWrite && has_head_at(received, wire::kMaskedNoMaskBytes)) {
    return wire::kMaskedNoMaskBytes;
  }
  const bool is_word = kind == RequestKind::kWrite && declared == kLengthOfOneWord;
  return is_word && has_head_at(received, wire::kWriteHeadBytes) ? std::optional<size_t>(wire::kWriteHeadBytes)
                                                                 : std::nullopt;
}

}  // namespace

FrameEnd find_frame_end(const Bytes& received, bool is_quiet) {
  const FrameEnd everything{is_quiet && !received.empty(), received.size()};
  if (received.size() < wire::kHeadBytes) return everything;
  const size_t declared = ByteView(received).u32(0);
  if (const auto bytes = shortened_end(received, declared)) {
    return received.size() >= *bytes ? FrameEnd{true, *bytes} : everything;
  }
  if (const auto text_end = text_write_end(received, declared)) return text_end->is_complete ? *text_end : everything;
  const size_t bytes = declared + wire::kLengthExcludes;
  if (bytes < wire::kHeadBytes || bytes > wire::kMaxFrameBytes) return {true, received.size()};
  return received.size() >= bytes ? FrameEnd{true, bytes} : everything;
}

}  // namespace plc_sim
