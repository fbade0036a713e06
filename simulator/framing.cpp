// Finds where a request ends: by its length field, and by content where the length field is known not to say it.
#include "simulator/framing.h"

#include <optional>

#include "simulator/request.h"

namespace plc_sim {
namespace {

constexpr size_t kUnitsAt = 17;
constexpr size_t kCountsOfOneByte = 256;  // counts that one byte can tell apart
constexpr size_t kMaxWriteBytes = 1024;

// Long texts are written with the low byte of their length and of their count.
std::optional<FrameEnd> text_write_end(const Bytes& received, size_t declared) {
  if (received.size() <= kUnitsAt || declared > 0xFF || kind_of(received) != RequestKind::kWrite) {
    return std::nullopt;
  }
  const auto bytes_of = [&](size_t count) { return wire::kWriteHeadBytes + 2 * count; };
  const size_t count = received[kUnitsAt];
  if (((bytes_of(count) - wire::kLengthExcludes) & 0xFFU) != declared) {
    return std::nullopt;
  }
  for (size_t more = count + kCountsOfOneByte; bytes_of(more) <= kMaxWriteBytes; more += kCountsOfOneByte) {
    if (received.size() == bytes_of(more)) {
      return FrameEnd{true, bytes_of(more)};
    }
  }
  return FrameEnd{received.size() >= bytes_of(count), bytes_of(count)};
}

}  // namespace

FrameEnd find_frame_end(const Bytes& received, bool is_quiet) {
  const FrameEnd everything{is_quiet && !received.empty(), received.size()};
  if (received.size() < wire::kHeadBytes) {
    return everything;
  }
  size_t declared = 0;
  for (size_t i = 0; i < 4; ++i) {
    declared = (declared << 8U) | received[i];
  }
  const bool short_form = received.size() < wire::kBitRequestBytes && kind_of(received) == RequestKind::kBit &&
                          received[wire::kClassAt] < 2;
  if (short_form) {
    return {true, received.size()};
  }
  if (const auto text_end = text_write_end(received, declared)) {
    return text_end->is_complete ? *text_end : everything;
  }
  const size_t bytes = declared + wire::kLengthExcludes;
  if (bytes < wire::kHeadBytes || bytes > wire::kMaxFrameBytes) {
    return {true, received.size()};
  }
  return received.size() >= bytes ? FrameEnd{true, bytes} : everything;
}

}  // namespace plc_sim
