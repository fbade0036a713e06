// Tests of replies that arrive in two segments, cut at every byte, and of resets behind each byte.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>

#include "plc_driver/driver_state.h"
#include "tests/support/driver_fixture.h"
#include "tests/support/guarded_buffer.h"

namespace {

using plc_test::answer;
using plc_test::answer_and_reset;
using plc_test::answer_raw;
using plc_test::Bytes;
using plc_test::from_hex;
using plc_test::GuardedBuffer;
using plc_test::PeerStep;
using plc_test::prefix_of;
using plc_test::ReplyForm;
using plc_test::resolve_reply;
using plc_test::to_hex;
using plc_test::value_reply;
using plc_test::wait_for_end;
using plc_test::wait_for_input;
using plc_test::wrapped_calls;
using plc_test::operator+;
using testing::EndsWith;

// Calls of the driver, counted from the connect: its select, then four for each exchange, two of them the directory's.
constexpr size_t kConnectCalls = 1;
constexpr size_t kExchangeCalls = 4;
constexpr size_t kCallsBeforeResolve = kConnectCalls + 2 * kExchangeCalls;
constexpr size_t kCallsBeforeValues = kCallsBeforeResolve + kExchangeCalls;

Bytes rest_of(const Bytes& bytes, size_t begin) {
  return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(begin), bytes.end());
}

class ReadSegments : public plc_test::DriverFixture {
 protected:
  ReadSegments() { write_tags(0, "A,INT,,,a,b,c,0,1\n"); }

  uint32_t read_word() { return read_id(0, 0, 1, data_.data()); }

  // Before the driver's call number `call` (counted from the connect, from 1), sends the bytes and waits until they lie
  // in front of the driver.
  void deliver_before(size_t call, const Bytes& bytes, size_t waiting) {
    const auto deliver = [this, call, bytes, waiting] {
      if (wrapped_calls().exchange_calls.size() == call) {
        peer_->send_now(bytes);
        EXPECT_TRUE(wait_for_input(conn_.socket_fd, waiting));
        ++deliveries_;
      }
    };
    wrapped_calls().before_select = deliver;
    wrapped_calls().before_send = deliver;
    wrapped_calls().before_recv = deliver;
  }

  // Before the driver's call number `call`, waits until the controller has ended the connection.
  void wait_for_end_before(size_t call) {
    const auto wait = [this, call] {
      if (wrapped_calls().exchange_calls.size() == call) {
        EXPECT_TRUE(wait_for_end(conn_.socket_fd));
        ++deliveries_;
      }
    };
    wrapped_calls().before_select = wait;
    wrapped_calls().before_send = wait;
  }

  void begin(const std::vector<PeerStep>& script) {
    start_connected(script);
    wrapped_calls().reset();
    deliveries_ = 0;
  }

  // With the heads that the first read's replies have.
  const Bytes resolve_ = plc_test::form_reply(from_hex("00 00 00 00 00 00 00 00 00 00 0C 28"),
                                              resolve_reply({{0x40, {0x11, 0x22, 0x33, 0x44}}}), ReplyForm::kExact);
  const Bytes value_ = plc_test::form_reply(from_hex("00 00 00 00 00 00 00 00 00 01 1E 09"),
                                            value_reply(from_hex("12 34")), ReplyForm::kExact);
  GuardedBuffer data_{4, 0xEE};
  int deliveries_ = 0;
};

// The reference that the driver sends when this many bytes of the resolve reply came first.
std::string reference_after(size_t received) {
  static const char* const kReferences[] = {"00 00 00 01 00 00 00 00", "00 40 00 01 00 00 00 00",
                                            "00 40 00 01 11 00 00 00", "00 40 00 01 11 22 00 00",
                                            "00 40 00 01 11 22 33 00", "00 40 00 01 11 22 33 44"};
  return kReferences[received <= 21 ? 0 : received >= 26 ? 5 : received - 21];
}

TEST_F(ReadSegments, SecondSegmentBeforeTheNextDrain_IsDropped) {
  for (size_t cut = 1; cut < resolve_.size() && !HasFailure(); ++cut) {
    begin({answer_raw(prefix_of(resolve_, cut)), answer(value_)});
    deliver_before(kCallsBeforeValues + 1, rest_of(resolve_, cut), resolve_.size() - cut);
    EXPECT_EQ(read_word(), 0U) << cut;
    EXPECT_EQ(deliveries_, 1) << cut;
    EXPECT_THAT(to_hex(finish()[1]), EndsWith(reference_after(cut))) << cut;
    EXPECT_EQ(to_hex(data_.bytes()), "34 12 00 00") << cut;
  }
}

TEST_F(ReadSegments, SecondSegmentBehindTheDrain_IsTakenForTheNextReply_D17) {
  for (size_t cut = 1; cut < resolve_.size() && !HasFailure(); ++cut) {
    begin({answer_raw(prefix_of(resolve_, cut)), plc_test::stay_silent()});
    const Bytes rest = rest_of(resolve_, cut);
    deliver_before(kCallsBeforeValues + 2, rest, rest.size());
    take_output();
    EXPECT_EQ(read_word(), rest.size() < 14 ? 3U : 0U) << cut;
    EXPECT_EQ(deliveries_, 1) << cut;
    EXPECT_THAT(to_hex(finish()[1]), EndsWith(reference_after(cut))) << cut;
    if (rest.size() < 14) {
      EXPECT_THAT(take_output(), EndsWith("read data err!\r\n")) << cut;
    } else {
      // The value is what stands 14 bytes into the rest, or what the first segment left there.
      const auto byte_at = [&](size_t offset) {
        return offset < rest.size() ? rest[offset] : offset < cut ? resolve_[offset] : uint8_t{0};
      };
      EXPECT_EQ(to_hex(data_.bytes()), to_hex({byte_at(15), byte_at(14), 0, 0})) << cut;
    }
  }
}

TEST_F(ReadSegments, BothSegmentsBeforeTheReceive_AreOneReply) {
  for (size_t cut = 1; cut < resolve_.size() && !HasFailure(); ++cut) {
    begin({answer_raw(prefix_of(resolve_, cut)), answer(value_)});
    deliver_before(kCallsBeforeResolve + 4, rest_of(resolve_, cut), resolve_.size());
    EXPECT_EQ(read_word(), 0U) << cut;
    EXPECT_EQ(deliveries_, 1) << cut;
    EXPECT_THAT(to_hex(finish()[1]), EndsWith(reference_after(resolve_.size()))) << cut;
    EXPECT_EQ(to_hex(data_.bytes()), "34 12 00 00") << cut;
  }
}

TEST_F(ReadSegments, SecondSegmentOfAValueReply_IsDroppedByTheNextCall) {
  for (size_t cut = 14; cut < value_.size() && !HasFailure(); ++cut) {
    begin({answer(resolve_), answer_raw(prefix_of(value_, cut)), answer(resolve_), answer(value_)});
    EXPECT_EQ(read_word(), 0U) << cut;
    EXPECT_EQ(to_hex(data_.bytes()), cut == 14 ? "00 00 00 00" : "00 12 00 00") << cut;
    peer_->send_now(rest_of(value_, cut));
    ASSERT_TRUE(wait_for_input(conn_.socket_fd, value_.size() - cut));
    EXPECT_EQ(read_word(), 0U) << cut;
    EXPECT_EQ(to_hex(data_.bytes()), "34 12 00 00") << cut;
    finish();
  }
}

TEST_F(ReadSegments, SegmentsOfTheDirectory_AreDroppedTheSameWay) {
  const Bytes directory = Bytes(14) + from_hex("01 00 00 04 00 07 00 41 00");
  for (size_t cut = 1; cut < directory.size() && !HasFailure(); ++cut) {
    plc::localNum = 9;
    start({answer(from_hex("01")), answer_raw(prefix_of(directory, cut)), answer(resolve_), answer(value_)});
    wrapped_calls().reset();
    deliver_before(kCallsBeforeResolve + 1, rest_of(directory, cut), directory.size() - cut);
    EXPECT_EQ(read_word(), 0U) << cut;
    EXPECT_EQ(plc::localNum, cut < 22 ? 0U : 1U) << cut;
    EXPECT_EQ(to_hex(data_.bytes()), "34 12 00 00") << cut;
    finish();
  }
}

TEST_F(ReadSegments, ResetBehindEachByteOfTheResolveReply_FailsAtTheNextSend) {
  for (size_t cut = 1; cut <= resolve_.size() && !HasFailure(); ++cut) {
    begin({answer_and_reset(prefix_of(resolve_, cut), ReplyForm::kRaw)});
    wait_for_end_before(kCallsBeforeValues + 1);
    take_output();
    EXPECT_EQ(read_word(), 3U) << cut;
    EXPECT_EQ(deliveries_, 1) << cut;
    EXPECT_THAT(take_output(), EndsWith(".csv\r\nsend error\n")) << cut;
    EXPECT_EQ(plc::init, 0U) << cut;
    EXPECT_EQ(conn_.socket_fd, -1) << cut;
  }
}

TEST_F(ReadSegments, ResetBehindEachByteOfTheValueReply_IsSeenByTheNextCallWhichTheOneBehindItMends) {
  for (size_t cut = 1; cut <= value_.size() && !HasFailure(); ++cut) {
    begin({answer(resolve_), answer_and_reset(prefix_of(value_, cut), ReplyForm::kRaw)});
    EXPECT_EQ(read_word(), cut < 14 ? 3U : 0U) << cut;
    ASSERT_TRUE(wait_for_end(conn_.socket_fd)) << cut;
    peer_->extend(plc_test::empty_directory() + std::vector<PeerStep>{answer(resolve_), answer(value_)});
    take_output();
    EXPECT_EQ(read_word(), 3U) << cut;
    EXPECT_EQ(take_output(), "send error\n") << cut;
    EXPECT_EQ(read_word(), 0U) << cut;
    EXPECT_EQ(to_hex(data_.bytes()), "34 12 00 00") << cut;
    finish();
  }
}

TEST_F(ReadSegments, ReplyOf5000Bytes_LeavesItsEndInFrontOfTheNextReply_D17) {
  begin({answer_raw(Bytes(5000, 0x55)), answer(value_)});
  const auto wait = [this] {
    const size_t calls = wrapped_calls().exchange_calls.size();
    if (calls == kCallsBeforeResolve + 4) {
      EXPECT_TRUE(wait_for_input(conn_.socket_fd, 5000));
    } else if (calls == kCallsBeforeValues + 5) {  // behind the drain's select and receive
      EXPECT_TRUE(wait_for_input(conn_.socket_fd, 5000 - 4096 - 512 + value_.size()));
    }
  };
  wrapped_calls().before_recv = wait;
  EXPECT_EQ(read_word(), 0U);
  EXPECT_EQ(to_hex(data_.bytes()), "55 55 00 00");
}

TEST_F(ReadSegments, StaleBytesBeforeARead_AreDropped) {
  begin({answer(resolve_), answer(value_), answer(resolve_), answer(value_)});
  EXPECT_EQ(read_word(), 0U);
  peer_->send_now(Bytes(512, 0x55));
  ASSERT_TRUE(wait_for_input(conn_.socket_fd, 512));
  EXPECT_EQ(read_word(), 0U);
  EXPECT_EQ(to_hex(data_.bytes()), "34 12 00 00");
  EXPECT_THAT(to_hex(finish()[3]), EndsWith("00 40 00 01 11 22 33 44"));
}

}  // namespace
