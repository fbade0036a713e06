// One exchange: a request gets its head, goes out, and its reply comes back.
#pragma once

#include <cstdint>

#include "plc_driver.h"
#include "plc_driver/protocol/frames/frame_writer.h"
#include "plc_driver/protocol/frames/reply_view.h"

namespace plc {

// Completes the request's head (length_field is what it says of the request's length), takes a sequence number and
// exchanges it for a reply. False with nothing sent and no sequence number taken when the request did not fit its
// buffer; false with the connection flag cleared when the exchange failed; false when the reply is shorter than
// least_bytes.
bool exchange(FrameWriter* request, uint32_t length_field, ReplyBuffer* reply, int32_t least_bytes, ConnContext* conn);

// The same with the request's own length in the head.
bool exchange(FrameWriter* request, ReplyBuffer* reply, int32_t least_bytes, ConnContext* conn);

// The exchange alone, for requests with a head of their own. False, with the connection flag cleared, when it failed.
bool exchange_bytes(const uint8_t* request, uint32_t length, ReplyBuffer* reply, ConnContext* conn);

}  // namespace plc
