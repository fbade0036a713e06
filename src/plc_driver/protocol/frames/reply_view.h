// Total reader of replies: every offset answers; nothing else indexes a reply.
#pragma once

#include <cstdint>
#include <cstring>

#include "plc_driver/protocol/frames/wire_format.h"

namespace plc {

// The replies of one entry call. Each reply is received over the beginning and nothing is cleared in between: an offset
// past a reply's length yields what an earlier reply of the call left there, else 0.
struct ReplyBuffer {
  uint8_t bytes[kReplyBytes + kNameRecordBytes];  // what is filled, then a name's record of zeros
  uint32_t filled = 0;                            // length of the longest reply so far
  int32_t length = 0;                             // of the last reply

  ReplyBuffer() { memset(bytes, 0, kNameRecordBytes); }

  // Takes in a reply that was received into bytes.
  void accept(int32_t received) {
    length = received;
    if (static_cast<uint32_t>(received) <= filled) return;
    filled = static_cast<uint32_t>(received);
    memset(bytes + filled, 0, kNameRecordBytes);
  }

  uint8_t at(uint32_t offset) const { return offset < filled ? bytes[offset] : uint8_t{0}; }

  // Big-endian unit.
  uint32_t unit_at(uint32_t offset) const { return static_cast<uint32_t>(at(offset)) << 8 | at(offset + 1); }

  // Two units, low unit first.
  uint32_t double_unit_at(uint32_t offset) const { return unit_at(offset) | unit_at(offset + 2) << 16; }
};

// Walks the names of a resolve reply; at most to where it ends, where every field is 0.
struct NameCursor {
  const ReplyBuffer* reply;
  uint32_t position = 0;

  explicit NameCursor(const ReplyBuffer& resolve_reply) : reply(&resolve_reply) {}

  // The name's record, kNameRecordBytes.
  const uint8_t* record() const { return reply->bytes + position; }

  void advance() {
    position += kNameStepBytes + kNameStepWordBytes * record()[kNameStepOffset];
    if (position > reply->filled) position = reply->filled;
  }
};

}  // namespace plc
