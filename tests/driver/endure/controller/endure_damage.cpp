// Frames and parts of frames that a controller should not send, made from those that it should.
#include "tests/driver/endure/controller/endure_damage.h"

#include <algorithm>

#include "tests/driver/endure/controller/endure_controller.h"
#include "wire/wire.h"

namespace plc_endure {

namespace wire = plc_sim::wire;

bool is_of_directory(const Bytes& frame) {
  return kind_of(frame) == Kind::kDirectoryStart || kind_of(frame) == Kind::kDirectory;
}

void set_length(Bytes* frame) {
  const auto length = static_cast<uint32_t>(frame->size() - wire::kLengthExcludes);
  store32(frame->data(), length);
  store32(frame->data() + 4, ~length);
}

Bytes part(const Bytes& bytes, size_t from, size_t to) {
  return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from), bytes.begin() + static_cast<std::ptrdiff_t>(to));
}

Bytes joined(Bytes first, const Bytes& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

uint32_t likeness(const Bytes& earlier, const Bytes& reply) {
  if (earlier.size() < wire::kReplyHeadBytes || earlier[wire::kClassAt] != reply[wire::kClassAt] ||
      earlier[wire::kCommandAt] != reply[wire::kCommandAt]) {
    return 0;
  }
  return earlier[wire::kSequenceAt + 1] == reply[wire::kSequenceAt + 1] ? 2 : 1;
}

void break_head(Random& random, Bytes* reply) {
  switch (random.below(4)) {
    case 0:
      (*reply)[4 + random.below(4)] ^= static_cast<uint8_t>(1 + random.below(255));
      return;
    case 1: {
      const uint32_t length = random.once_in(2) ? random.below(4) : 4087 + random.next() % 100000;
      store32(reply->data(), length);
      store32(reply->data() + 4, ~length);
      return;
    }
    case 2:
      reply->resize(wire::kLengthExcludes + random.below(4));  // shorter than any frame, and says so
      set_length(reply);
      return;
    default:
      (*reply)[random.below(4)] ^= static_cast<uint8_t>(1U << random.below(8));
      return;
  }
}

void set_status(Random& random, Bytes* reply) {
  const uint32_t status = 1 + random.below(0xFFFF);
  const uint32_t byte = 1 + random.below(0xFF);
  const uint32_t kind = random.below(4);
  store16(reply->data() + wire::kStatusAt, kind == 0 ? byte << 8U : kind == 1 ? byte : status);
}

void refuse(Random& random, Bytes* reply) {
  set_status(random, reply);
  const size_t body = reply->size() - wire::kReplyHeadBytes;
  switch (random.below(4)) {
    case 0:
      reply->resize(wire::kReplyHeadBytes);
      break;
    case 1:
      std::fill(reply->begin() + wire::kReplyHeadBytes, reply->end(), uint8_t{0});
      break;
    case 2:
      for (size_t i = 0; i < body; ++i) (*reply)[wire::kReplyHeadBytes + i] = static_cast<uint8_t>(random.next());
      break;
    default:
      reply->resize(wire::kReplyHeadBytes + random.below(static_cast<uint32_t>(body) + 1));
      break;
  }
  set_length(reply);
}

void shorten(Random& random, Bytes* reply) {
  const auto body = static_cast<uint32_t>(reply->size() - wire::kReplyHeadBytes);
  const uint32_t missing = body == 0 ? 0 : 1 + random.below(random.once_in(2) ? std::min(body, 30U) : body);
  reply->resize(reply->size() - missing);
  set_length(reply);
}

}  // namespace plc_endure
