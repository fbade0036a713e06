// The replies of controller_reply.h.
#include "tests/support/peer/controller_reply.h"

#include <algorithm>

namespace plc_test {
namespace {

constexpr size_t kUncountedBytes = 10;
constexpr size_t kSequenceAt = 8;
constexpr size_t kClassAt = 10;
constexpr size_t kCommandAt = 11;
constexpr size_t kLargestReply = 4096;

uint8_t byte_at(const Bytes& frame, size_t at) { return at < frame.size() ? frame[at] : uint8_t{0}; }

size_t unit_at(const Bytes& frame, size_t at) {
  return static_cast<size_t>(byte_at(frame, at)) << 8 | byte_at(frame, at + 1);
}

void stamp_head(const Bytes& request, Bytes* reply) {
  const size_t counted = reply->size() - kUncountedBytes;
  for (size_t i = 0; i < 4; ++i) {
    (*reply)[i] = static_cast<uint8_t>(counted >> (24 - 8 * i));
    (*reply)[4 + i] = static_cast<uint8_t>(~(*reply)[i]);
  }
  for (size_t i = kSequenceAt; i <= kCommandAt; ++i) (*reply)[i] = byte_at(request, i);
}

// A record begins at 17; its last fixed byte says how many groups of four bytes follow.
size_t resolve_reply_bytes(const Bytes& request, const Bytes& reply) {
  constexpr size_t kRecordsAt = 17;
  constexpr size_t kRecordBytes = 24;
  constexpr size_t kGroupBytes = 4;
  const bool is_local = byte_at(request, 14) != 0;
  size_t end = kRecordsAt;
  for (size_t names = unit_at(request, is_local ? 22 : 16); names > 0; --names) {
    end += kRecordBytes;
    end += kGroupBytes * byte_at(reply, end - 1);
  }
  return end;
}

size_t value_reply_bytes(const Bytes& request) {
  constexpr size_t kCountAt = 13;
  constexpr size_t kSizesAt = 21;
  constexpr size_t kReferenceBytes = 8;
  size_t end = kReplyHeadBytes;
  for (size_t i = 0; i < unit_at(request, kCountAt); ++i) {
    end += size_t{2} * byte_at(request, kSizesAt + kReferenceBytes * i);
  }
  return end;
}

}  // namespace

size_t asked_bytes(const Bytes& request, const Bytes& reply) {
  const size_t kind = unit_at(request, kClassAt);
  constexpr size_t kResolve = 0x0C28;
  constexpr size_t kRead = 0x1E09;
  if (kind == kResolve) return resolve_reply_bytes(request, reply);
  return kind == kRead ? value_reply_bytes(request) : kReplyHeadBytes;
}

Bytes form_reply(const Bytes& request, Bytes reply, ReplyForm form) {
  if (form == ReplyForm::kRaw || reply.empty()) return reply;
  if (form == ReplyForm::kComplete) {
    reply.resize(std::max(reply.size(), std::min(asked_bytes(request, reply), kLargestReply)));
  }
  if (reply.size() >= kReplyHeadBytes) stamp_head(request, &reply);
  return reply;
}

}  // namespace plc_test
