// The guarded build's rules for the content of replies.
#include "plc_driver/protocol/frames/reply_rules.h"

#include "plc_driver/guard_lines.h"
#include "plc_driver/protocol/frames/wire_format.h"
#include "plc_driver/protocol/frames/wire_load.h"

namespace plc {
namespace {

// What a status looks like on every controller is not known, nor whether every one ends a value reply where the values
// end: each check can be left out of the build.
constexpr bool kChecksStatus = PLC_GUARD_STATUS != 0;
constexpr bool kChecksValueEnd = PLC_GUARD_VALUE_END != 0;

constexpr uint32_t kScopeOffset = 14;
constexpr uint32_t kGlobalNamesOffset = 16;
constexpr uint32_t kLocalNamesOffset = 22;
constexpr uint32_t kSizeCodeOffset = 3;
constexpr uint32_t kUnitBytes = 2;
// Names' records lie behind each other from here on.
constexpr uint32_t kRecordsOffset = kNameRecordBytes - kNameStepBytes;

// Class and command as one number.
constexpr uint32_t request_kind(uint8_t request_class, uint8_t command) {
  return static_cast<uint32_t>(request_class) << 8 | command;
}
constexpr uint32_t kDirectoryOpen = request_kind(kClassName, kCommandDirectoryOpen);
constexpr uint32_t kDirectoryRead = request_kind(kClassName, kCommandDirectoryRead);
constexpr uint32_t kResolve = request_kind(kClassName, kCommandResolve);
constexpr uint32_t kRead = request_kind(kClassData, kCommandRead);

const char* name_request(uint32_t kind) {
  if (kind == kResolve) return "the names";
  if (kind == kRead) return "the read";
  return kind == kDirectoryOpen || kind == kDirectoryRead ? "the directory" : "the write";
}

struct Frame {
  const uint8_t* bytes;
  uint32_t length;
};

// A whole record for each name: its fixed part and the groups that it announces.
bool has_all_names(const Frame& request, const Frame& reply) {
  const bool is_local = request.bytes[kScopeOffset] != 0;
  const uint32_t asked = load16(request.bytes + (is_local ? kLocalNamesOffset : kGlobalNamesOffset));
  uint32_t end = kRecordsOffset;
  for (uint32_t whole = 0; whole < asked; ++whole) {
    end += kNameStepBytes;
    if (end <= reply.length) end += kNameStepWordBytes * reply.bytes[end - 1];
    if (end > reply.length) {
      print_incomplete_names(whole, asked);
      return false;
    }
  }
  return true;
}

bool has_asked_values(const Frame& request, const Frame& reply) {
  uint32_t asked = 0;
  for (uint32_t at = kReferencesOffset + kSizeCodeOffset; at < request.length; at += kReferenceBytes) {
    asked += kUnitBytes * request.bytes[at];
  }
  const uint32_t received = reply.length - kValueOffset;
  if (received == asked || (received > asked && !kChecksValueEnd)) return true;
  print_wrong_values(received, asked);
  return false;
}

// Number and name of every program that is announced, also of those that are not kept.
bool has_all_programs(const Frame& reply) {
  uint32_t position = kDirectoryRecordsOffset;
  bool is_whole = position <= reply.length;
  const uint32_t announced = is_whole ? reply.bytes[kDirectoryCountOffset] : 0U;
  uint32_t whole = 0;
  while (is_whole && whole < announced) {
    is_whole = position + kDirectoryNameOffset <= reply.length;
    if (!is_whole) break;
    const uint32_t size = reply.bytes[position + kDirectorySizeOffset];
    const uint32_t name_bytes = size > kDirectorySizeExtra ? size - kDirectorySizeExtra : 0;
    is_whole = position + kDirectoryNameOffset + name_bytes <= reply.length;
    position += name_bytes > 0 ? size + kDirectoryStepBytes : kDirectoryEmptyStepBytes;
    whole += is_whole ? 1 : 0;
  }
  if (!is_whole) print_incomplete_directory(whole, announced);
  return is_whole;
}

bool is_complete(uint32_t kind, const Frame& request, const Frame& reply) {
  if (kind == kRead) return has_asked_values(request, reply);
  if (kind == kResolve) return has_all_names(request, reply);
  return kind != kDirectoryRead || has_all_programs(reply);
}

}  // namespace

ReplyVerdict judge_reply(const uint8_t* request_bytes, uint32_t request_length, const uint8_t* reply_bytes,
                         uint32_t reply_length) {
  const Frame request = {request_bytes, request_length};
  const Frame reply = {reply_bytes, reply_length};
  const uint32_t kind = load16(request_bytes + kClassOffset);
  [[maybe_unused]] const uint32_t status = load16(reply_bytes + kStatusOffset);
  // First, since a refusal need not hold what was asked for.
  if (kChecksStatus && status != 0) {
    print_refused(name_request(kind), status);
    return ReplyVerdict::kRefused;
  }
  return is_complete(kind, request, reply) ? ReplyVerdict::kGood : ReplyVerdict::kIncomplete;
}

}  // namespace plc
