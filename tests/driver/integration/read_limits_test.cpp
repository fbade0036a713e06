// Tests of single reads that do not fit a buffer, and of exchanges that fail: the result, the records of the host, what
// was sent.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>

#include "plc_driver/driver_state.h"
#include "tests/support/driver_fixture.h"
#include "tests/support/guarded_buffer.h"

namespace {

using plc_test::answer;
using plc_test::Bytes;
using plc_test::from_hex;
using plc_test::GuardedBuffer;
using plc_test::PeerStep;
using plc_test::resolve_reply;
using plc_test::ResolvedName;
using plc_test::to_hex;
using plc_test::value_reply;
using plc_test::wait_for_input;
using plc_test::wrapped_calls;
using plc_test::operator+;
using testing::EndsWith;

class ReadLimits : public plc_test::DriverFixture {
 protected:
  // Expects 3 with this many requests sent, the connection kept, and one sequence number taken for each.
  void expect_too_large(uint32_t id, uint32_t count, const std::vector<PeerStep>& script) {
    start_connected(script);
    plc::sid = 100;
    GuardedBuffer data(4, 0xEE);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(read_id(id, 0, count, data.data()), 3U) << count;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2)) << count;
    EXPECT_EQ(finish().size(), script.size()) << count;
    EXPECT_EQ(plc::sid, 100 + script.size()) << count;
    EXPECT_EQ(plc::init, 1U) << count;
    EXPECT_TRUE(data.holds_only(0xEE)) << count;
  }
};

TEST_F(ReadLimits, ResolveRequestOfExactly4096Bytes_IsSent) {
  write_tags(0, "ABC,INT,,,a,b,c,0,0,0,9,P\n");
  start_connected({answer(from_hex("01")), answer(value_reply(Bytes(2 * 509, 0x77)))});
  GuardedBuffer data(2 * 509);
  EXPECT_EQ(read_id(0, 0, 509, data.data()), 0U);
  const std::vector<Bytes> requests = finish();
  ASSERT_EQ(requests.at(0).size(), 4096U);
  EXPECT_EQ(to_hex(plc_test::prefix_of(requests[0], 32)),
            "00 00 0F F6 FF FF F0 09 00 00 0C 28 00 01 01 01 00 09 00 00 00 00 01 FD 00 03 00 41 00 42 00 43");
  ASSERT_EQ(requests.at(1).size(), 4090U);
  EXPECT_EQ(to_hex(plc_test::prefix_of(requests[1], 20)),
            "00 00 0F F0 FF FF F0 0F 00 01 1E 09 00 01 FD 00 00 00 00 00");
  EXPECT_TRUE(data.holds_only(0x77));
  EXPECT_TRUE(data.guards_intact());
}

TEST_F(ReadLimits, ResolveRequestAbove4096Bytes_FailsWithNothingSent) {
  write_tags(0, std::string(200, 'n') + ",INT,,,a,b,c,0,1\n" + "A,LINT,[0..9],,a,b,c,1,1\n");
  start_connected({answer(from_hex("01")), answer(value_reply({}))});
  GuardedBuffer data(20);
  EXPECT_EQ(read_id(0, 0, 10, data.data()), 0U) << "ten names of 402 bytes fit";
  finish();
  for (const uint32_t count : {11U, 1000U, 0x10000U, 0x10001U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
    expect_too_large(0, count, {});
  }
  expect_too_large(1, 0xFFFFFFFF, {});
}

TEST_F(ReadLimits, ValueRequestAbove4096Bytes_FailsBehindTheResolve) {
  write_tags(0, "A,INT,,,a,b,c,0,1\n");
  expect_too_large(0, 510, {answer(from_hex("01"))});
  expect_too_large(0, 1019, {answer(from_hex("01"))});
  expect_too_large(0, 1020, {});
}

TEST_F(ReadLimits, HugeCountOfTheShortestNames_FailsAtOnce) {
  write_tags(0, ",INT,,,a,b,c,0,1\n");
  expect_too_large(0, 0xFFFFFFFF, {});
}

TEST_F(ReadLimits, SixtyFourBools_AreRead) {
  write_tags(0, "A,BOOL,[0..99],,a,b,c,0,1\n");
  start_connected({answer(from_hex("01")), answer(value_reply(Bytes(128)))});
  GuardedBuffer data(8);
  EXPECT_EQ(read_id(0, 0, 64, data.data()), 0U);
  EXPECT_EQ(finish().size(), 2U);
  EXPECT_TRUE(data.guards_intact());
}

TEST_F(ReadLimits, MoreThan64Bools_FailBehindTheRewritesWithNothingSent) {
  write_tags(0, "A,BOOL,[0..99],,a,b,c,0,1\n");
  for (const uint32_t count : {65U, 0x10000U, 0xFFFFFFFFU}) expect_too_large(0, count, {});
  start_connected({});
  uint8_t data[4] = {};
  RegRequest request = {0, 0, 2, 0};
  RegValue value = {65, data};
  EXPECT_EQ(read(&request, &value), 3U);
  EXPECT_EQ(request.reg_type, 0);
  EXPECT_EQ(value.count, 65U);
}

class ReadFailures : public plc_test::DriverFixture {
 protected:
  ReadFailures() { write_tags(0, "A,INT,,,a,b,c,0,1\n"); }

  // The result of one read of a word; the two directory replies are always there.
  uint32_t read_word(const std::vector<PeerStep>& script) {
    start_connected(script);
    const uint32_t result = read_id(0, 0, 1, data_.data());
    finish();
    EXPECT_TRUE(data_.guards_intact());
    return result;
  }

  // Does not wait for the reply to request number `number`, counted from 1 behind the directory.
  void poll_for_reply(size_t number) {
    wrapped_calls().before_send = [this, number] {
      if (peer_->requests().size() == 2 + number - 1) conn_.recv_timeout_s = 0;
    };
  }

  GuardedBuffer data_{4, 0xEE};
  const Bytes resolve_ = resolve_reply({{0x40, {0x11, 0x22, 0x33, 0x44}}});
};

TEST_F(ReadFailures, NoResolveReply_ClearsInit) {
  poll_for_reply(1);
  EXPECT_EQ(read_word({plc_test::stay_silent()}), 3U);
  EXPECT_EQ(plc::init, 0U);
  EXPECT_EQ(conn_.socket_fd, -1);
  EXPECT_THAT(take_output(), EndsWith(".csv\r\n--timeout--\r\n"));
  EXPECT_TRUE(data_.holds_only(0xEE));
}

TEST_F(ReadFailures, NoValueReply_ClearsInit) {
  poll_for_reply(2);
  EXPECT_EQ(read_word({answer(resolve_), plc_test::stay_silent()}), 3U);
  EXPECT_EQ(plc::init, 0U);
  EXPECT_EQ(conn_.socket_fd, -1);
  EXPECT_THAT(take_output(), EndsWith(".csv\r\n--timeout--\r\n"));
  EXPECT_TRUE(data_.holds_only(0xEE));
}

TEST_F(ReadFailures, ResetInsteadOfAReply_ClearsInitAndKeepsTheSocket) {
  EXPECT_EQ(read_word({plc_test::reset_connection()}), 3U);
  EXPECT_EQ(plc::init, 0U);
  EXPECT_GE(conn_.socket_fd, 0);
  EXPECT_EQ(read_word({answer(resolve_), plc_test::reset_connection()}), 3U);
  EXPECT_EQ(plc::init, 0U);
  EXPECT_GE(conn_.socket_fd, 0);
  EXPECT_TRUE(data_.holds_only(0xEE));
}

TEST_F(ReadFailures, EmptyResolveReply_KeepsInit) {
  EXPECT_EQ(read_word({plc_test::close_orderly()}), 3U);
  EXPECT_EQ(plc::init, 1U);
  EXPECT_GE(conn_.socket_fd, 0);
  EXPECT_THAT(take_output(), EndsWith(".csv\r\n"));
}

TEST_F(ReadFailures, EmptyValueReply_PrintsAndKeepsInit) {
  EXPECT_EQ(read_word({answer(resolve_), plc_test::close_orderly()}), 3U);
  EXPECT_EQ(plc::init, 1U);
  EXPECT_THAT(take_output(), EndsWith(".csv\r\nread data err!\r\n"));
  EXPECT_TRUE(data_.holds_only(0xEE));
}

TEST_F(ReadFailures, ValueReplyOf13Bytes_PrintsAndKeepsInit) {
  EXPECT_EQ(read_word({answer(resolve_), plc_test::answer_exactly(Bytes(13))}), 3U);
  EXPECT_EQ(plc::init, 1U);
  EXPECT_THAT(take_output(), EndsWith(".csv\r\nread data err!\r\n"));
  EXPECT_TRUE(data_.holds_only(0xEE));
}

TEST_F(ReadFailures, RewritesOfTheHostsRecords_StayWhateverTheOutcome) {
  write_tags(0, "A,LINT,,,a,b,c,0,1\nB,STRING,,20,a,b,c,1,1\n");
  for (uint32_t id = 0; id < 2; ++id) {
    start_connected({plc_test::reset_connection()});
    RegRequest request = {0, 0, 3, id << 16};
    RegValue value = {8, data_.data()};
    EXPECT_EQ(read(&request, &value), 3U);
    EXPECT_EQ(request.reg_type, 0);
    EXPECT_EQ(value.count, id == 0 ? 4U : 1U);
  }
}

TEST_F(ReadFailures, LostConnection_IsNotRetriedWithinTheCall) {
  EXPECT_EQ(read_word({plc_test::reset_connection()}), 3U);
  EXPECT_EQ(peer_->connections(), 1U);
}

}  // namespace
