// Replies that come late: what the driver, which matches replies by their order alone, makes of them, and what ends it.
#include <algorithm>
#include <deque>
#include <string>

#include "plc_driver.h"
#include "tests/driver/protocol/protocol_fixture.h"

namespace plc_test {
namespace {

constexpr size_t kClassAt = 10;
constexpr size_t kLastHandleByteOfRead = 25;
constexpr size_t kLastHandleByteOfWrite = 21;
constexpr size_t kFirstPiece = 9;
constexpr uint8_t kClassNames = 0x0C;
constexpr uint8_t kCommandRead = 0x09;

// The variables A, B and C: the last byte of a handle is the name, a value is that byte twice.
enum Id : uint32_t { kA, kB, kC };
// What a reply to names holds where a value reply has its value: 01, and the high byte of the number of names.
constexpr uint32_t kFromNames = 0x0100;

constexpr uint32_t value_of(char name) { return static_cast<uint32_t>(name) << 8U | static_cast<uint32_t>(name); }

Bytes reply_of_controller(const Bytes& request) {
  Bytes reply(kReplyHeadBytes, 0);
  if (request[kClassAt] == kClassNames) {
    const auto name = static_cast<uint8_t>(names_in(request).front().front());
    return reply + from_hex("01 00 01  00 10 00 00 06 01 02 00") + Bytes{name} + Bytes(15, 0);
  }
  if (request[kClassAt + 1] == kCommandRead) {
    const uint8_t name = request[kLastHandleByteOfRead];
    return reply + Bytes{name, name};
  }
  return reply;
}

class LateReplies : public ProtocolTest {
 protected:
  LateReplies() {
    use_tags({make_tag("A", 16), make_tag("B", 16), make_tag("C", 16)});
    peer_.answer_each([this](const Bytes& request) { return answer(request); });
  }

  // A read whose first reply comes in two pieces: nine bytes now, the rest when the driver has gone on.
  void read_torn(Id id) {
    is_torn_ = true;
    uint8_t data[4] = {};
    RegValue wanted = {1, data};
    ev_plc_read(element(0, id), &wanted, &conn_);
  }

  uint32_t read(Id id) {
    uint8_t data[4] = {};
    RegValue wanted = {1, data};
    EXPECT_EQ(ev_plc_read(element(0, id), &wanted, &conn_), uint32_t{PLC_OK});
    return static_cast<uint32_t>(data[1]) << 8U | data[0];
  }

  // The host waits: this many of the pieces that the controller owes have come before the driver looks.
  void wait_for(size_t pieces) {
    for (; pieces > 0; --pieces) {
      peer_.leave_stale(owed_.front());
      owed_.pop_front();
    }
  }

  // The reply to the next request comes when the driver has gone on.
  void hold_next_reply() { is_held_ = true; }

  size_t owed() const { return owed_.size(); }

 private:
  // Each request makes the controller owe one reply more, and brings the piece that it has owed longest.
  SocketAnswer answer(const Bytes& request) {
    Bytes reply = form_reply(request, reply_of_controller(request), ReplyForm::kExact);
    if (is_torn_) {
      is_torn_ = false;
      owed_.push_back(prefix_of(reply, kFirstPiece));
      reply.erase(reply.begin(), reply.begin() + kFirstPiece);
    }
    owed_.push_back(reply);
    if (is_held_) {
      is_held_ = false;
      return reply_raw({});
    }
    const Bytes next = owed_.front();
    owed_.pop_front();
    return reply_raw(next);
  }

  bool is_torn_ = false;
  bool is_held_ = false;
  std::deque<Bytes> owed_;
};

TEST_F(LateReplies, RepliesInStep_ReadRight) {
  EXPECT_EQ(read(kA), value_of('A'));
  EXPECT_EQ(read(kB), value_of('B'));
  EXPECT_EQ(owed(), 0U);
}

// The reply to the names is taken for the one to the values.
TEST_F(LateReplies, OnePieceOwed_EveryFurtherReadReturnsZeroWithAnotherRepliesBytes) {
  read_torn(kA);
  for (int call = 0; call < 1000; ++call) {
    ASSERT_EQ(read(call % 2 == 0 ? kB : kC), kFromNames) << "call " << call;
    ASSERT_EQ(owed(), 1U);
  }
}

TEST_F(LateReplies, TwoPiecesOwed_EveryFurtherReadReturnsTheVariableOfTwoCallsBefore) {
  read_torn(kA);
  read_torn(kA);
  read(kA);
  read(kB);
  constexpr Id kIds[] = {kC, kA, kB};
  for (size_t call = 0; call < 1000; ++call) {
    const Id id = kIds[call % 3];
    ASSERT_EQ(read(id), value_of(id == kC ? 'A' : id == kA ? 'B' : 'C')) << "call " << call;
    ASSERT_EQ(owed(), 2U);
  }
}

TEST_F(LateReplies, TwoPiecesOwed_WriteGoesToTheVariableOfTheCallBefore) {
  read_torn(kA);
  read_torn(kA);
  read(kB);
  EXPECT_EQ(write(kC, 0, "34 12", 1), uint32_t{PLC_OK});
  const Bytes& request = peer_.requests().back();
  EXPECT_EQ(static_cast<char>(request[kLastHandleByteOfWrite]), 'B') << to_hex(request);
}

TEST_F(LateReplies, DrainThatFindsAllThatIsOwed_PutsTheConnectionInStep) {
  read_torn(kA);
  read_torn(kA);
  ASSERT_EQ(owed(), 2U);
  wait_for(2);
  EXPECT_EQ(read(kB), value_of('B'));
  EXPECT_EQ(read(kC), value_of('C'));
}

TEST_F(LateReplies, DrainThatFindsMoreThan512Bytes_LeavesThisCallBehindAndTheNextOneInStep) {
  peer_.leave_stale(Bytes(600, 0xEE));
  hold_next_reply();
  EXPECT_EQ(read(kB), kFromNames);
  ASSERT_EQ(owed(), 1U);
  wait_for(1);
  EXPECT_EQ(read(kC), value_of('C'));
}

TEST_F(LateReplies, DrainThatFindsOneOfTwo_LeavesTheOther) {
  read_torn(kA);
  read_torn(kA);
  wait_for(1);
  EXPECT_EQ(read(kB), kFromNames);
  EXPECT_EQ(read(kC), kFromNames);
  EXPECT_EQ(owed(), 1U);
}

}  // namespace
}  // namespace plc_test
