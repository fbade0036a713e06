// Total reader of replies: every offset answers; nothing else indexes a reply.
#pragma once

#include <cstdint>

#include "plc_driver/protocol/wire_format.h"

namespace plc {

// The replies of one entry call. Each reply is received over the beginning and nothing is cleared in between: an offset
// past a reply's length yields what an earlier reply of the call left there, else 0; an offset past the buffer, 0.
struct ReplyBuffer {
  uint8_t bytes[kReplyBytes] = {};
  int32_t length = 0;  // of the last reply

  uint8_t at(uint32_t offset) const { return offset < kReplyBytes ? bytes[offset] : uint8_t{0}; }

  // Big-endian unit.
  uint32_t unit_at(uint32_t offset) const { return static_cast<uint32_t>(at(offset)) << 8 | at(offset + 1); }

  // Two units, low unit first.
  uint32_t double_unit_at(uint32_t offset) const { return unit_at(offset) | unit_at(offset + 2) << 16; }
};

// Walks the names of a resolve reply.
struct NameCursor {
  const ReplyBuffer* reply;
  uint32_t position = 0;

  explicit NameCursor(const ReplyBuffer& resolve_reply) : reply(&resolve_reply) {}

  uint8_t at(uint32_t offset) const { return reply->at(position + offset); }

  void advance() { position += kNameStepBytes + kNameStepWordBytes * at(kNameStepOffset); }
};

}  // namespace plc
