// Replies as a controller sends them: the head answers the request, and nothing that was asked for is missing. What a
// test does not state of a reply is zero.
#pragma once

#include "tests/support/bytes.h"

namespace plc_test {

constexpr size_t kReplyHeadBytes = 14;  // with the status, which stays as the reply has it

// What a scripted controller makes of the bytes that a test gives it.
enum class ReplyForm {
  kComplete,  // head stamped, missing names or values added
  kExact,     // as long as it is, the head stamped unless it is shorter than one
  kRaw        // sent as it is
};

// The reply in that form; no reply stays none.
Bytes form_reply(const Bytes& request, Bytes reply, ReplyForm form);

// How long a whole reply to this request is; the groups of its names are those that the reply announces.
size_t asked_bytes(const Bytes& request, const Bytes& reply);

}  // namespace plc_test
