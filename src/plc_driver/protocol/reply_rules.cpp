// The guarded build's rules for the content of replies.
#include "plc_driver/protocol/reply_rules.h"

#include "plc_driver/guard_lines.h"
#include "plc_driver/protocol/frame_view.h"
#include "plc_driver/protocol/wire_format.h"

namespace plc {
namespace {

// What a status looks like on every controller is not known, nor whether every one ends a value reply where the values
// end: each check can be left out of the build.
constexpr bool kChecksStatus = PLC_GUARD_STATUS != 0;
constexpr bool kChecksValueEnd = PLC_GUARD_VALUE_END != 0;

constexpr uint32_t kGlobalNamesOffset = 16;
constexpr uint32_t kLocalNamesOffset = 22;
constexpr uint32_t kScopeOffset = 14;
constexpr uint32_t kReferenceCountOffset = 13;
constexpr uint32_t kSizeCodeOffset = 3;
constexpr uint32_t kUnitBytes = 2;
// A record begins behind the part of the reply that its first offset passes over.
constexpr uint32_t kRecordBytes = kNameStepBytes;
constexpr uint32_t kRecordsOffset = kNameRecordBytes - kRecordBytes;

bool is_data_request(uint8_t request_class, uint8_t command) {
  return request_class == kClassData && command == kCommandRead;
}

const char* name_request(const FrameView& request) {
  if (request.at(kClassOffset) == kClassName) {
    return request.at(kCommandOffset) == kCommandResolve ? "the names" : "the directory";
  }
  return is_data_request(request.at(kClassOffset), request.at(kCommandOffset)) ? "the read" : "the write";
}

// A whole record for each name: its fixed part and the groups that it announces.
bool has_all_names(const FrameView& request, const FrameView& reply) {
  const bool is_local = request.at(kScopeOffset) != 0;
  const uint32_t asked = request.unit_at(is_local ? kLocalNamesOffset : kGlobalNamesOffset);
  uint32_t end = kRecordsOffset;
  for (uint32_t whole = 0; whole < asked; ++whole) {
    const uint32_t groups = reply.at(end + kRecordBytes - 1);
    end += kRecordBytes + kNameStepWordBytes * groups;
    if (end > reply.length) {
      print_incomplete_names(whole, asked);
      return false;
    }
  }
  return true;
}

bool has_asked_values(const FrameView& request, const FrameView& reply) {
  const uint32_t references = request.unit_at(kReferenceCountOffset);
  uint32_t asked = 0;
  for (uint32_t i = 0; i < references; ++i) {
    asked += kUnitBytes * request.at(kReferencesOffset + kReferenceBytes * i + kSizeCodeOffset);
  }
  const uint32_t received = reply.length - kValueOffset;
  if (received == asked || (received > asked && !kChecksValueEnd)) return true;
  print_wrong_values(received, asked);
  return false;
}

// Number and name of every program that is announced, also of those that are not kept.
bool has_all_programs(const FrameView& reply) {
  const uint32_t announced = reply.at(kDirectoryCountOffset);
  uint32_t position = kDirectoryRecordsOffset;
  for (uint32_t whole = 0; whole < announced; ++whole) {
    const uint32_t size = reply.at(position + kDirectorySizeOffset);
    const uint32_t name_bytes = size > kDirectorySizeExtra ? size - kDirectorySizeExtra : 0;
    if (position + kDirectoryNameOffset + name_bytes > reply.length) {
      print_incomplete_directory(whole, announced);
      return false;
    }
    position += name_bytes > 0 ? size + kDirectoryStepBytes : kDirectoryEmptyStepBytes;
  }
  if (reply.length > kDirectoryCountOffset) return true;
  print_incomplete_directory(0, announced);
  return false;
}

bool is_complete(const FrameView& request, const FrameView& reply) {
  const uint8_t request_class = request.at(kClassOffset);
  const uint8_t command = request.at(kCommandOffset);
  if (is_data_request(request_class, command)) return has_asked_values(request, reply);
  if (request_class != kClassName) return true;
  if (command == kCommandResolve) return has_all_names(request, reply);
  return command != kCommandDirectoryRead || has_all_programs(reply);
}

}  // namespace

ReplyVerdict judge_reply(const uint8_t* request_bytes, uint32_t request_length, const uint8_t* reply_bytes,
                         uint32_t reply_length) {
  const FrameView request = {request_bytes, request_length};
  const FrameView reply = {reply_bytes, reply_length};
  const uint32_t status = reply.unit_at(kStatusOffset);
  // First, since a refusal need not hold what was asked for.
  if (kChecksStatus && status != 0) {
    print_refused(name_request(request), status);
    return ReplyVerdict::kRefused;
  }
  return is_complete(request, reply) ? ReplyVerdict::kGood : ReplyVerdict::kIncomplete;
}

}  // namespace plc
