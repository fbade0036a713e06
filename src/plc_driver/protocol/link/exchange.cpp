// One exchange.
#include "plc_driver/protocol/link/exchange.h"

#include "plc_driver/build_kind.h"
#include "plc_driver/driver_state.h"
#include "plc_driver/protocol/frames/reply_rules.h"
#include "plc_driver/protocol/link/transaction.h"

namespace plc {

bool exchange_bytes(const uint8_t* request, uint32_t length, ReplyBuffer* reply, ConnContext* conn) {
  int32_t received = 0;
  if (TransRecvSockBuff(request, length, reply->bytes, &received, conn) != 0) {
    init = 0;
    return false;
  }
  reply->accept(received);
  if constexpr (kGuarded) {
    const ReplyVerdict verdict = judge_reply(request, length, reply->bytes, static_cast<uint32_t>(received));
    // A reply that lacks something counts as an empty one, which every caller refuses.
    if (verdict == ReplyVerdict::kIncomplete) reply->accept(0);
    return verdict != ReplyVerdict::kRefused;
  }
  return true;
}

bool exchange(FrameWriter* request, uint32_t length_field, ReplyBuffer* reply, int32_t least_bytes, ConnContext* conn) {
  if (request->failed) return false;
  store32(request->bytes + kLengthOffset, length_field);
  store32(request->bytes + kComplementOffset, ~length_field);
  store16(request->bytes + kSequenceOffset, sid++);
  return exchange_bytes(request->bytes, request->length, reply, conn) && reply->length >= least_bytes;
}

bool exchange(FrameWriter* request, ReplyBuffer* reply, int32_t least_bytes, ConnContext* conn) {
  return exchange(request, request->counted_bytes(), reply, least_bytes, conn);
}

}  // namespace plc
