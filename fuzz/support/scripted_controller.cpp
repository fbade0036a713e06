// The controller behind the scripted link.
#include "scripted_controller.h"

#include <errno.h>

#include <algorithm>
#include <cstring>

#include "exchange_referee.h"
#include "scripted_link.h"

namespace fuzz {
namespace {

constexpr size_t kHeadBytes = 14;
constexpr size_t kBodyLimit = 4096 - kHeadBytes;
constexpr size_t kWaitingLimit = 66000;

// Bytes of replies: never the same in two replies, so that a value of another reply is another value.
struct Noise {
  uint8_t bytes[kWaitingLimit + 8192];
  size_t next = 0;

  Noise() {
    uint32_t state = 0x9E3779B9;
    for (uint8_t& byte : bytes) {
      state ^= state << 13;
      state ^= state >> 17;
      state ^= state << 5;
      byte = static_cast<uint8_t>(state >> 11);
    }
  }

  const uint8_t* take() {
    next = (next + 61) % 4096;
    return bytes + next;
  }
};

Noise noise;
Input* input;
uint8_t directory;

void store16(uint8_t* at, size_t value) {
  at[0] = static_cast<uint8_t>(value >> 8);
  at[1] = static_cast<uint8_t>(value);
}

void store_head(uint8_t* frame, uint32_t counted, const uint8_t* identity) {
  store16(frame, counted >> 16);
  store16(frame + 2, counted);
  store16(frame + 4, ~counted >> 16);
  store16(frame + 6, ~counted);
  memcpy(frame + 8, identity, 4);
  store16(frame + 12, 0);
}

struct Request {
  const uint8_t* bytes;
  size_t length;

  unsigned kind() const { return unsigned{bytes[10]} << 8 | bytes[11]; }
};

size_t fill_directory(uint8_t* body) {
  Program programs[kMostPrograms];
  directory = input->byte();
  const size_t count = choose_programs(directory, programs);
  uint8_t* at = body;
  *at++ = static_cast<uint8_t>(count);
  for (size_t i = 0; i < count; ++i) {
    const size_t length = strlen(programs[i].name);
    memset(at, 0, 2 * length + 6);
    at[2] = static_cast<uint8_t>(2 * length + 2);
    at[4] = programs[i].number;
    for (size_t k = 0; k < length; ++k) at[6 + 2 * k] = static_cast<uint8_t>(programs[i].name[k]);
    at += 2 * length + 6;
  }
  return static_cast<size_t>(at - body);
}

// Whole records only; groups behind each as the noise has them when the input wants some.
size_t fill_names(const Request& request, bool with_groups, uint8_t* body) {
  const size_t names = names_asked(request.bytes);
  const size_t least = 3 + 24 * names;
  memcpy(body, noise.take(), with_groups || least > kBodyLimit ? kBodyLimit : least);
  size_t at = 3;
  for (size_t i = 0; i < names; ++i) {
    if (at + 24 > kBodyLimit) return at;
    uint8_t& groups = body[at + 23];
    groups = static_cast<uint8_t>(with_groups ? groups % 4 : 0);
    if (at + 24 + 4U * groups > kBodyLimit) return at;
    at += 24 + 4U * groups;
  }
  return at;
}

size_t fill_body(const Request& request, bool with_groups, uint8_t* body) {
  switch (request.kind()) {
    case 0x0C25:
      return fill_directory(body);
    case 0x0C28:
      return fill_names(request, with_groups, body);
    case 0x1E09: {
      size_t bytes = 0;
      for (size_t at = 18; at < request.length; at += 8) bytes += 2U * request.bytes[at + 3];
      if (bytes > kBodyLimit) bytes = kBodyLimit;
      memcpy(body, noise.take(), bytes);
      return bytes;
    }
    default:
      return 0;
  }
}

// An own reply in the making.
struct Reply {
  uint8_t* frame;
  size_t length;

  void set_length(size_t bytes) {
    length = bytes;
    store_head(frame, static_cast<uint32_t>(bytes - 10), frame + 8);
  }
};

// What an item of the input makes come.
enum Item : uint8_t {
  kWhole,
  kCut,
  kStatus,
  kOtherLength,
  kOtherHead,
  kForeign,
  kForeignTwin,
  kPause,
  kClose,
  kError,
  kNothing,
  kGarbage,
  kOnceMore,
  kLargest,
  kFailedCall,
  kAnyLength,
  kItems
};

int64_t pause_ns(uint8_t choice) {
  constexpr int64_t kPauses[] = {1,       999,       1000,      1001,       500000,     1000000,   250000000,
                                 1000000, 999999000, 999999999, 1000000000, 1000000001, 2000000000};
  return kPauses[choice % (sizeof kPauses / sizeof kPauses[0])];
}

// Adds one item at a time; false when the reply is over.
class Script {
 public:
  Script(const Request& request, const Reply& reply)
      : request_(request), reply_(reply), at_ns_(scripted_link.now_ns()) {}

  bool add(uint8_t choice) {
    const uint8_t more = choice / kItems;
    switch (choice % kItems) {
      case kPause:
        at_ns_ += pause_ns(input->byte());
        return true;
      case kForeign:
        add_foreign(more);
        return true;
      case kForeignTwin:
        add_twin(more);
        return true;
      case kGarbage:
        scripted_link.add_bytes(at_ns_, noise.take(), input->byte());
        return true;
      case kOnceMore:
        add_own(reply_.length);
        return true;
      case kFailedCall:
        (more % 2 == 0 ? scripted_link.fail_next_wait : scripted_link.fail_next_send) = true;
        return true;
      case kClose:
        scripted_link.add_end(at_ns_, 0);
        return false;
      case kError:
        scripted_link.add_end(at_ns_, more % 2 == 0 ? ECONNRESET : ETIMEDOUT);
        return false;
      case kNothing:
        return false;
      default:
        change(choice % kItems, more);
        return false;
    }
  }

 private:
  void add_own(size_t bytes) { scripted_link.add_bytes(at_ns_, reply_.frame, bytes); }

  // The own reply, other than it should be.
  void change(uint8_t item, uint8_t more) {
    switch (item) {
      case kCut: {
        const size_t first = input->word() % (reply_.length + 1);
        add_own(first);
        at_ns_ += pause_ns(more);
        scripted_link.add_bytes(at_ns_, reply_.frame + first, reply_.length - first);
        return;
      }
      case kStatus:
        store16(reply_.frame + 12, input->word());
        break;
      case kOtherLength: {
        const size_t length = reply_.length + input->byte() - 128;
        if (length >= kHeadBytes && length <= kHeadBytes + kBodyLimit) reply_.set_length(length);
        break;
      }
      case kOtherHead: {
        const size_t place = input->byte() % kHeadBytes;
        reply_.frame[place] = static_cast<uint8_t>(reply_.frame[place] ^ input->byte());
        break;
      }
      case kLargest:
        reply_.set_length(kHeadBytes + kBodyLimit);
        add_own(reply_.length);
        scripted_link.add_bytes(at_ns_, noise.take(), more % 4);
        return;
      case kAnyLength: {
        constexpr uint32_t kEdges[] = {3, 4, 4086, 4087, 4096, 0, 0xFFFFFFFF};
        const uint32_t counted = more < sizeof kEdges / sizeof kEdges[0] ? kEdges[more] : input->double_word();
        store_head(reply_.frame, counted, reply_.frame + 8);
        reply_.length = counted + 10 < reply_.length ? counted + 10 : reply_.length;
        break;
      }
      default:
        break;
    }
    add_own(reply_.length);
  }

  // A whole frame with another sequence number.
  void add_foreign(uint8_t more) {
    const size_t body = more == 0 ? input->word() % (kBodyLimit + 1) : more - 1U;
    uint8_t* const frame = scripted_link.room(kHeadBytes + body);
    if (frame == nullptr) return;
    store_head(frame, static_cast<uint32_t>(kHeadBytes + body - 10), request_.bytes + 8);
    frame[9] = static_cast<uint8_t>(frame[9] + 1 + input->byte() % 255);
    memcpy(frame + kHeadBytes, noise.take(), body);
    scripted_link.add_bytes(at_ns_, frame, kHeadBytes + body);
  }

  // The reply to a request of the same kind.
  void add_twin(uint8_t more) {
    uint8_t* const frame = scripted_link.room(reply_.length);
    if (frame == nullptr) return;
    memcpy(frame, reply_.frame, reply_.length);
    frame[8 + more % 2] = static_cast<uint8_t>(frame[8 + more % 2] + 1 + more / 2);
    for (size_t i = kHeadBytes; i < reply_.length; ++i) frame[i] = static_cast<uint8_t>(frame[i] ^ 0x11);
    scripted_link.add_bytes(at_ns_, frame, reply_.length);
  }

  Request request_;
  Reply reply_;
  int64_t at_ns_;
};

}  // namespace

size_t choose_programs(uint8_t choice, Program* programs) {
  constexpr const char* kNames[] = {"MAIN", "MAIN2", "M", "SUB", ""};
  constexpr size_t kManyOthers = 55;
  size_t others = 0;
  while ((choice & 0xC0) == 0xC0 && others < kManyOthers) programs[others++] = {"X", 99};
  size_t count = others;
  for (unsigned i = 0; i < 5; ++i) {
    if ((choice >> i & 1) != 0) programs[count++] = {kNames[i], static_cast<uint8_t>(11 + i)};
  }
  if ((choice & 0x20) != 0) std::reverse(programs + others, programs + count);
  return count;
}

void controller_follows(Input* next) { input = next; }

void controller_answers(const uint8_t* bytes, size_t length) {
  const Request request = {bytes, length};
  const uint8_t first = input->byte();
  uint8_t* const frame = scripted_link.room(kHeadBytes + kBodyLimit);
  if (frame == nullptr) return;
  const size_t body = fill_body(request, first >= 0xF0, frame + kHeadBytes);
  store_head(frame, static_cast<uint32_t>(kHeadBytes + body - 10), bytes + 8);
  Script script(request, {frame, kHeadBytes + body});
  uint8_t item = first;
  for (int items = 0; items < 8; ++items) {
    if (!script.add(item)) return;
    item = input->byte();
  }
}

void controller_leaves(size_t count) {
  if (count > kWaitingLimit) count = kWaitingLimit;
  scripted_link.add_bytes(scripted_link.now_ns(), noise.take(), count);
}

uint8_t last_directory() { return directory; }

}  // namespace fuzz
