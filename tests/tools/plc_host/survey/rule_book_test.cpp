// What the rule book makes of replies to names of which a part came.
#include "tools/plc_host/survey/rule_book.h"

#include <gtest/gtest.h>

#include "wire/request_writer.h"

namespace {

using plc_host::survey::Asked;
using plc_host::survey::HeadCounts;
using plc_host::survey::ProbeReply;
using plc_host::survey::RuleBook;
using plc_sim::Bytes;

constexpr uint32_t kWaitMs = 1000;
constexpr size_t kHead = 14;
constexpr size_t kPart = 39;
constexpr size_t kWhole = 41;

// The reply to one name, of so many bytes.
Bytes reply_to_name(uint8_t status, size_t bytes, uint8_t handle = 1) {
  Bytes reply = {0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0, 0, 7, 0x0C, 0x28, 0, status, 0, 0, 1};
  reply.resize(kWhole, handle);
  reply.resize(bytes);
  reply[3] = static_cast<uint8_t>(bytes - 10);
  reply[7] = static_cast<uint8_t>(~reply[3]);
  return reply;
}

class RuleBookTest : public testing::Test {
 protected:
  bool refuses(const Bytes& reply) {
    Asked asked;
    asked.request = plc_sim::resolve_request(7, std::nullopt, {"Speed"});
    asked.answer.end = ProbeReply::End::kWhole;
    asked.answer.bytes = reply;
    rules_.take(asked);
    return asked.shape.is_refused;
  }
  void refuse_three_times(const Bytes& reply) {
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(refuses(reply));
  }

  HeadCounts counts_;
  RuleBook rules_{counts_, kWaitMs};
};

// What has come behind the values of each of so many variables, each asked for so many times.
std::optional<uint32_t> surplus_of(size_t variables, size_t times, uint8_t behind) {
  HeadCounts counts;
  RuleBook rules(counts, kWaitMs);
  for (size_t i = 0; i < variables * times; ++i) {
    Asked asked;
    plc_sim::Reference reference;
    reference.handle.address = static_cast<uint32_t>(i % variables);
    reference.size = 1;
    asked.request = plc_sim::value_request(7, {reference});
    asked.answer.end = ProbeReply::End::kWhole;
    asked.answer.bytes = {0, 0, 0, 6, 0xFF, 0xFF, 0xFF, 0xF9, 0, 7, 0x1E, 0x09, 0, 0, 1, 2};
    asked.answer.bytes.resize(asked.answer.bytes.size() + behind);
    rules.take(asked);
  }
  rules.finish();
  return counts.bytes_behind_values;
}

TEST(CommonSurplus, IsKnownFromThreeVariablesOnAndNoneFromThreeReplies) {
  EXPECT_EQ(surplus_of(1, 9, 2), std::nullopt);
  EXPECT_EQ(surplus_of(2, 9, 2), std::nullopt);
  EXPECT_EQ(surplus_of(3, 3, 2), 2U);
  EXPECT_EQ(surplus_of(1, 2, 0), std::nullopt);
  EXPECT_EQ(surplus_of(1, 3, 0), 0U);
}

TEST_F(RuleBookTest, PartWithTheStatusOfAnswers_RefusesNothing) {
  EXPECT_FALSE(refuses(reply_to_name(5, kWhole)));
  EXPECT_FALSE(refuses(reply_to_name(5, kPart)));
  EXPECT_FALSE(refuses(reply_to_name(0, kPart)));
  EXPECT_TRUE(refuses(reply_to_name(4, kPart)));
}

TEST_F(RuleBookTest, PartOfARefusalWithRecords_RefusesNothing) {
  refuse_three_times(reply_to_name(4, kWhole, 0));
  EXPECT_EQ(counts_.is_refusal_full, true);
  EXPECT_FALSE(refuses(reply_to_name(4, kPart, 0)));
  EXPECT_TRUE(refuses(reply_to_name(4, kHead)));
  EXPECT_TRUE(refuses(reply_to_name(4, kWhole, 0)));
}

TEST_F(RuleBookTest, PartWithAnotherStatusThanRefusals_RefusesNothing) {
  refuse_three_times(reply_to_name(4, kHead));
  EXPECT_EQ(counts_.is_refusal_full, false);
  EXPECT_FALSE(refuses(reply_to_name(6, kPart)));
  EXPECT_TRUE(refuses(reply_to_name(4, kPart)));
  EXPECT_TRUE(refuses(reply_to_name(6, kHead)));
}

// Once most replies have the right ones.
TEST_F(RuleBookTest, HeadWithAnotherClassOrCommand_IsNotUsual) {
  for (int i = 0; i < 3; ++i) EXPECT_FALSE(refuses(reply_to_name(0, kWhole)));
  Asked asked;
  asked.request = plc_sim::resolve_request(7, std::nullopt, {"Speed"});
  asked.answer.bytes = reply_to_name(0, kWhole);
  EXPECT_TRUE(rules_.has_usual_head(asked));
  for (const size_t at : {10U, 11U}) {
    asked.answer.bytes = reply_to_name(0, kWhole);
    asked.answer.bytes[at] ^= 0x80U;
    EXPECT_FALSE(rules_.has_usual_head(asked)) << at;
  }
}

}  // namespace
