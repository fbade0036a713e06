// Hostile replies at every byte of every reply of a batch, and what batches of each size cost.
#include <iostream>
#include <random>

#include "plc_driver/driver_state.h"
#include "tests/driver/protocol/batch/batch_fixture.h"

namespace plc_test {
namespace {

// A batch of two frames: words, double words, a bit, a string and a quad word, 18 slots in each.
class HostileBatch : public BatchTest {
 protected:
  static constexpr size_t kReplies = 4;
  static constexpr size_t kNames = 19;  // of a frame: the bit is named twice
  static constexpr size_t kValueBytes = 10 * 2 + 4 * 4 + 4 + 2 * 2 + 8;

  HostileBatch() {
    use_tags({make_tag("W", 16), make_tag("D", 32), make_bit("B", kMr), make_string("S", 80), make_tag("L", 64)});
    for (int frame = 0; frame < 2; ++frame) {
      for (const uint32_t id : {0U, 0U, 0U, 0U, 0U, 1U, 1U, 2U, 3U, 3U, 1U, 1U, 0U, 0U, 0U, 0U, 0U, 4U}) {
        elements_.push_back({id});
      }
      good_.push_back(resolve_many(kNames));
      good_.push_back(value_reply(Bytes(kValueBytes, 0x11)));
    }
    // Two neighbours of the string at one element are no run.
    elements_[8].element = elements_[26].element = 4;
  }

  // The code that goes with the lengths of the four replies.
  static uint32_t stated_code(const std::vector<Bytes>& replies) {
    for (size_t i = 0; i < kReplies; ++i) {
      const size_t least = i % 2 == 0 ? 25 : 14 + kValueBytes;
      if (replies[i].size() < least) return 2;
    }
    return 0;
  }

  void expect_stated(const std::vector<Bytes>& replies) {
    peer_.forget();
    for (const Bytes& reply : replies) peer_.answer(reply_raw(reply));
    ASSERT_EQ(read(elements_), stated_code(replies));
    ASSERT_TRUE(batch_.guards_intact());
    ASSERT_EQ(plc::init, 1U);
    for (size_t i = 0; i < elements_.size(); ++i) {
      ASSERT_EQ(batch()[i].count, elements_[i].count);
      ASSERT_EQ(batch()[i].address, elements_[i].id << 16 | elements_[i].element);
    }
  }

  std::vector<BatchElement> elements_;
  std::vector<Bytes> good_;
};

TEST_F(HostileBatch, GoodReplies_ReadAllElements) {
  expect_stated(good_);
  EXPECT_EQ(peer_.requests().size(), kReplies);
  for (const uint32_t value : values()) EXPECT_NE(value, kUntouched);
}

TEST_F(HostileBatch, EveryPrefixOfEveryReply_GivesTheStatedCode) {
  for (size_t hostile = 0; hostile < kReplies; ++hostile) {
    for (size_t length = 0; length <= good_[hostile].size(); ++length) {
      SCOPED_TRACE(std::to_string(hostile) + ": " + std::to_string(length));
      std::vector<Bytes> replies = good_;
      replies[hostile] = prefix_of(good_[hostile], length);
      expect_stated(replies);
      ASSERT_FALSE(HasFatalFailure());
    }
  }
}

TEST_F(HostileBatch, EveryByteOfEveryReply_MayHoldAnything) {
  for (size_t hostile = 0; hostile < kReplies; ++hostile) {
    for (size_t at = 0; at < good_[hostile].size(); ++at) {
      SCOPED_TRACE(std::to_string(hostile) + ": " + std::to_string(at));
      for (const uint8_t byte : {uint8_t{0x01}, uint8_t{0x7F}, uint8_t{0x80}, uint8_t{0xFF}}) {
        std::vector<Bytes> replies = good_;
        replies[hostile][at] = byte;
        expect_stated(replies);
        ASSERT_FALSE(HasFatalFailure());
      }
    }
  }
}

TEST_F(HostileBatch, RandomRepliesOfRandomLengths_GiveTheStatedCode) {
  std::mt19937 random(20261121);
  for (int round = 0; round < 2000; ++round) {
    SCOPED_TRACE(round);
    std::vector<Bytes> replies;
    for (size_t i = 0; i < kReplies; ++i) {
      Bytes reply(random() % 4 == 0 ? random() % 80 : random() % 4097);
      for (uint8_t& byte : reply) byte = static_cast<uint8_t>(random());
      replies.push_back(reply);
    }
    expect_stated(replies);
    ASSERT_FALSE(HasFatalFailure());
  }
}

TEST_F(HostileBatch, LongestStepsBetweenNames_EndAtTheReply) {
  std::vector<Bytes> replies = good_;
  replies[0] = Bytes(4096, 0xFF);  // each name says that the next is 1044 bytes on
  expect_stated(replies);
  const Bytes& request = peer_.requests().at(1);
  EXPECT_EQ(request[18 + 8 * 3 + 1], 0xFF);
  EXPECT_EQ(request[18 + 8 * 4 + 1], 0);
}

// What a page of a panel costs. The figures stand in the test so that a change of them is seen.
class BatchCost : public BatchTest {
 protected:
  struct Cost {
    size_t pairs;
    size_t sent_bytes;
    size_t received_bytes;
    size_t calls;
  };

  Cost measure(const char* what, const std::vector<BatchElement>& elements) {
    use_tags({make_tag("Page.Item", 16), with_ranges(make_tag("Page.Table", 16), {0, 199})});
    size_t received = 0;
    peer_.forget();
    peer_.answer_each([&received](const Bytes& request) {
      Bytes reply = request[10] == 0x0C ? resolve_many(names_in(request).size())
                                        : value_reply(Bytes(2 * static_cast<size_t>(request[14])));
      received += reply.size();
      return reply_with(reply);
    });
    EXPECT_EQ(read(elements), 0U);
    Cost cost = {peer_.requests().size() / 2, 0, received, peer_.call_count()};
    for (const Bytes& request : peer_.requests()) cost.sent_bytes += request.size();
    std::cout << elements.size() << " " << what << ": " << cost.pairs << " frame pairs, " << cost.sent_bytes
              << " bytes sent, " << cost.received_bytes << " received, " << cost.calls << " system calls\n";
    EXPECT_EQ(cost.calls, 8 * cost.pairs);
    return cost;
  }
};

TEST_F(BatchCost, PlainVariables_TakeAFramePairForEach35) {
  // One pair more where an equal share leaves elements over, which the guarded build reads too.
  const size_t further = by_build<size_t>(0, 1);
  const size_t kPairs[][2] = {{1, 1}, {10, 1}, {34, 1}, {35, 2 + further}, {36, 2}, {100, 3 + further}};
  for (const auto& expected : kPairs) {
    const Cost cost = measure("variables", repeated(0, static_cast<uint32_t>(expected[0])));
    EXPECT_EQ(cost.pairs, expected[1]);
  }
}

TEST_F(BatchCost, NeighboursOfAnArray_TakeNoMoreFramesThanVariables) {
  static constexpr size_t kPairs[][2] = {{1, 1}, {10, 1}, {34, 1}, {35, 1}, {36, 1}, {50, 1}, {100, 2}};
  for (const auto& expected : kPairs) {
    const Cost cost = measure("neighbours", consecutive(1, 0, static_cast<uint32_t>(expected[0])));
    EXPECT_EQ(cost.pairs, expected[1]);
  }
}

TEST_F(BatchCost, OneVariable_CostsAsManyBytesAsItsTwoFrames) {
  const Cost cost = measure("variable", repeated(0, 1));
  EXPECT_EQ(cost.sent_bytes, (18U + 2U + 2U * 9U) + (18U + 8U));
  EXPECT_EQ(cost.received_bytes, 41U + 16U);
}

class TransferHeap : public BatchTest {};

TEST_F(TransferHeap, TransfersOfALoadedFile_TakeNothingFromTheHeap) {
  use_tags({make_tag("W", 16), make_string("S", 80), make_bit("B", kMr), with_ranges(make_tag("A", 64), {0, 9})});
  EXPECT_GT(peer_.heap_calls(), 0U);  // the table came from the heap
  peer_.forget();
  answer_frame(4, "12 34 41 42 00 01 00 00");
  EXPECT_EQ(read({{0}, {1}, {2}}), 0U);
  const uint32_t reference = values()[1];
  EXPECT_NE(reference, 0U);
  answer_writes(2);
  EXPECT_EQ(write(0, 0, "34 12", 1), 0U);
  EXPECT_EQ(write(3, 2, "01 02 03 04 05 06 07 08", 2), 0U);
  peer_.answer(resolve_reply());
  peer_.answer(value_reply("12 34"));
  EXPECT_EQ(ev_plc_read(element(0), value("00 00 00 00", 1), &conn_), 0U);
  EXPECT_EQ(peer_.heap_calls(), 0U);
}

}  // namespace
}  // namespace plc_test
