// What the guarded build wants of a reply that is whole and answers its request: no refusal, and nothing missing.
#pragma once

#include <cstdint>

namespace plc {

enum class ReplyVerdict {
  kGood,
  kRefused,    // the status is not 0
  kIncomplete  // names, values or programs are missing, or there are more values than were asked for
};

// Judges a frame of at least 14 bytes by the driver's own request that it answers; prints a line unless it is good.
// What was asked for is read from the request's bytes, so that no caller has to say it again.
ReplyVerdict judge_reply(const uint8_t* request, uint32_t request_length, const uint8_t* reply, uint32_t reply_length);

}  // namespace plc
