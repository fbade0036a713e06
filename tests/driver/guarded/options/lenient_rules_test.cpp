// The rules for the content of replies in a guarded build that leaves out the checks which not every controller may
// bear: PLC_GUARD_STATUS and PLC_GUARD_VALUE_END off.
#include <gtest/gtest.h>

#include "plc_driver/protocol/frames/reply_rules.h"
#include "tests/support/bytes.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

using plc::ReplyVerdict;

// A value request for one unit, and the head of its reply with a status.
const Bytes kRequest = from_hex("00 00 00 10 FF FF FF EF 00 01 1E 09 00 00 01 00 00 00 00 06 00 01 01 02 03 04");
const Bytes kHead = from_hex("00 00 00 06 FF FF FF F9 00 01 1E 09 12 34");

struct Judged {
  ReplyVerdict verdict;
  std::string lines;
};

Judged judge(const Bytes& reply) {
  Judged judged = {};
  judged.lines = capture_output([&] {
    judged.verdict = plc::judge_reply(kRequest.data(), static_cast<uint32_t>(kRequest.size()), reply.data(),
                                      static_cast<uint32_t>(reply.size()));
  });
  return judged;
}

TEST(LenientRules, Status_IsNotLookedAt) {
  const Judged judged = judge(kHead + from_hex("00 07"));
  EXPECT_EQ(judged.verdict, ReplyVerdict::kGood);
  EXPECT_EQ(judged.lines, "");
}

TEST(LenientRules, BytesBehindTheValues_AreNoHarm) {
  EXPECT_EQ(judge(kHead + from_hex("00 07 00")).verdict, ReplyVerdict::kGood);
  EXPECT_EQ(judge(kHead + Bytes(4082, 0)).verdict, ReplyVerdict::kGood);
}

TEST(LenientRules, ValuesMissing_StillFail) {
  const Judged judged = judge(kHead + from_hex("00"));
  EXPECT_EQ(judged.verdict, ReplyVerdict::kIncomplete);
  EXPECT_EQ(judged.lines, "[PLC] guard: 1 bytes of values, 2 were asked for\r\n");
}

}  // namespace
}  // namespace plc_test
