// What the guarded build takes for a reply, byte by byte: whole, its own, and nothing behind it; what it drops, what it
// discards, and that every failure closes the connection.
#include <cerrno>

#include "plc_driver/protocol/link/connection.h"
#include "plc_driver/protocol/link/transaction.h"
#include "tests/driver/guarded/guarded_fixture.h"
#include "tests/support/captured_output.h"

namespace plc_test {
namespace {

constexpr int64_t kWaitMs = 2000;

class GuardedReply : public GuardedTest {
 protected:
  GuardedReply() { connect(); }

  // A read that fails: 3, its lines, the buffer as it was, the connection closed, and the next read connects anew.
  void expect_failed_read(const std::string& lines) {
    EXPECT_EQ(read(0), kFailed);
    EXPECT_EQ(take_output(), lines);
    EXPECT_TRUE(buffer_.holds_only(0x77));
    EXPECT_EQ(conn_.socket_fd, -1);
    EXPECT_FALSE(socket_.is_open());
    const int connects = socket_.connects();
    heal();
    EXPECT_EQ(read(0), kOk) << output_;
    EXPECT_EQ(socket_.connects(), connects + 1);
  }

  // A read that gets its value, on the same connection.
  void expect_good_read(const std::string& lines = "") {
    EXPECT_EQ(read(0), kOk);
    EXPECT_EQ(take_output(), lines);
    EXPECT_EQ(to_hex(prefix_of(data(), 4)), "34 12 00 00");
    EXPECT_EQ(socket_.connects(), 1);
    EXPECT_EQ(socket_.closes(), 0);
  }

  void heal() {
    for (const unsigned kind : {kResolve, kValues, kWrite}) {
      answer(kind, [this](const Bytes& request) { return std::vector<Arrival>{piece(healthy_reply(request))}; });
    }
  }

  // A late reply: the same frame under another sequence number.
  static Bytes foreign(const Bytes& frame) { return with_byte(frame, 9, static_cast<uint8_t>(frame[9] + 1)); }
};

TEST_F(GuardedReply, WholeAtOnce_CostsFourCallsAnExchange) {
  expect_good_read();
  EXPECT_EQ(socket_.calls(), "select send select recv select send select recv");
}

TEST_F(GuardedReply, CutAtEveryByte_IsPutTogether) {
  const size_t length = healthy_reply(from_hex("00 00 00 00 00 00 00 00 00 00 0C 28 00 01 00 00 00 01")).size();
  for (size_t cut = 1; cut < length; ++cut) {
    answer(kResolve, [&](const Bytes& request) {
      const Bytes reply = healthy_reply(request);
      return std::vector<Arrival>{piece(prefix_of(reply, cut)),
                                  piece(Bytes(reply.begin() + static_cast<std::ptrdiff_t>(cut), reply.end()), 300)};
    });
    expect_good_read();
  }
}

TEST_F(GuardedReply, ByteByByte_IsPutTogether) {
  answer(kValues, [&](const Bytes& request) {
    std::vector<Arrival> pieces;
    for (const uint8_t byte : healthy_reply(request)) {
      pieces.push_back(piece({byte}, static_cast<int64_t>(pieces.size())));
    }
    return pieces;
  });
  expect_good_read();
}

TEST_F(GuardedReply, PiecesWithinTheWait_ShareOneWaitFromTheSend) {
  answer(kResolve, [&](const Bytes& request) {
    const Bytes reply = healthy_reply(request);
    return std::vector<Arrival>{piece(prefix_of(reply, 20), kWaitMs - 10),
                                piece(Bytes(reply.begin() + 20, reply.end()), kWaitMs - 1)};
  });
  expect_good_read();
}

TEST_F(GuardedReply, LastPieceBehindTheWait_IsCutOff) {
  const int64_t start = socket_.now_ms();
  answer(kResolve, [&](const Bytes& request) {
    const Bytes reply = healthy_reply(request);
    return std::vector<Arrival>{piece(prefix_of(reply, 20), kWaitMs - 1),
                                piece(Bytes(reply.begin() + 20, reply.end()), kWaitMs + 1)};
  });
  EXPECT_EQ(read(0), kFailed);
  EXPECT_EQ(take_output(), "[PLC] guard: reply cut off, 20 bytes in time\r\n");
  EXPECT_EQ(socket_.now_ms() - start, kWaitMs);
  EXPECT_EQ(conn_.socket_fd, -1);
}

// The clock's parts of a second at the send and at the look behind the piece: less, more, the same.
TEST_F(GuardedReply, WaitAcrossTheSecondsOfTheClock_IsNeitherLongerNorShorter) {
  for (const int64_t start_us : {5000000, 5000001, 5600000, 5999999}) {
    for (const int64_t piece_ms : {1, 400, 500, 1000, 1400, 1999}) {
      if (!socket_.is_open()) {
        heal();
        ASSERT_EQ(read(0), kOk) << output_;
        output_.clear();
      }
      socket_.set_now_us(start_us);
      answer(kResolve, [&](const Bytes& request) {
        return std::vector<Arrival>{piece(prefix_of(healthy_reply(request), 1), piece_ms)};
      });
      EXPECT_EQ(read(0), kFailed);
      EXPECT_EQ(socket_.now_us() - start_us, kWaitMs * 1000) << start_us << " " << piece_ms;
      EXPECT_EQ(take_output(), "[PLC] guard: reply cut off, 1 bytes in time\r\n");
    }
  }
}

TEST_F(GuardedReply, WaitInNanoseconds_IsCutToWholeMicroseconds) {
  socket_.look_takes_ns = 1;
  const int64_t start_us = socket_.now_us();
  answer(kResolve,
         [&](const Bytes& request) { return std::vector<Arrival>{piece(prefix_of(healthy_reply(request), 20))}; });
  EXPECT_EQ(read(0), kFailed);
  EXPECT_EQ(socket_.now_us() - start_us, kWaitMs * 1000 - 1);
}

TEST_F(GuardedReply, ReceiveThatOutlastsTheWait_IsFollowedByOneLook) {
  for (const int64_t takes_ms : {kWaitMs, kWaitMs + 1, kWaitMs + 999, kWaitMs + 1000, kWaitMs + 1001, 3 * kWaitMs}) {
    buffer_ = GuardedBuffer(16, 0x77);
    answer(kResolve, [&](const Bytes& request) {
      socket_.receive_takes_ms = takes_ms;
      return std::vector<Arrival>{piece(prefix_of(healthy_reply(request), 20))};
    });
    const int64_t start_us = socket_.now_us();
    EXPECT_EQ(read(0), kFailed);
    socket_.receive_takes_ms = 0;
    EXPECT_EQ(socket_.now_us() - start_us, takes_ms * 1000);
    EXPECT_EQ(take_output(), "[PLC] guard: reply cut off, 20 bytes in time\r\n");
    EXPECT_EQ(socket_.calls(), "select send select recv select close");
    heal();
    connect();
  }
}

TEST_F(GuardedReply, RestThatHasComeWhenTheTimeIsUp_IsTaken) {
  answer(kResolve, [&](const Bytes& request) {
    socket_.receive_takes_ms = kWaitMs;
    const Bytes reply = healthy_reply(request);
    return std::vector<Arrival>{piece(prefix_of(reply, 20)), piece(Bytes(reply.begin() + 20, reply.end()), 1)};
  });
  answer(kValues, [&](const Bytes& request) {
    socket_.receive_takes_ms = 0;
    return std::vector<Arrival>{piece(healthy_reply(request))};
  });
  expect_good_read();
}

TEST_F(GuardedReply, Missing_TimesOut) {
  const int64_t start = socket_.now_ms();
  answer(kValues, [](const Bytes&) { return std::vector<Arrival>{}; });
  EXPECT_EQ(read(0), kFailed);
  EXPECT_EQ(socket_.now_ms() - start, kWaitMs);
  EXPECT_EQ(take_output(), "--timeout--\r\n");
  EXPECT_FALSE(socket_.is_open());
}

TEST_F(GuardedReply, WaitOfZero_TakesWhatHasCome) {
  conn_.recv_timeout_s = 0;
  expect_good_read();
}

TEST_F(GuardedReply, WaitOfZero_DoesNotWaitForTheRest) {
  conn_.recv_timeout_s = 0;
  answer(kResolve, [&](const Bytes& request) {
    const Bytes reply = healthy_reply(request);
    return std::vector<Arrival>{piece(prefix_of(reply, 14)), piece(Bytes(reply.begin() + 14, reply.end()))};
  });
  expect_failed_read("[PLC] guard: reply cut off, 14 bytes in time\r\n");
}

TEST_F(GuardedReply, LongestWait_IsNotNegative) {
  conn_.recv_timeout_s = UINT32_MAX;
  answer(kValues, [&](const Bytes& request) { return std::vector<Arrival>{piece(healthy_reply(request), 3600000)}; });
  expect_good_read();
}

TEST_F(GuardedReply, ForeignFramesThatNeverEnd_EndWithTheWait) {
  const int64_t start = socket_.now_ms();
  answer(kValues, [&](const Bytes& request) {
    std::vector<Arrival> frames;
    for (int64_t at = 0; at < 4 * kWaitMs; at += 100) frames.push_back(piece(foreign(healthy_reply(request)), at));
    return frames;
  });
  EXPECT_EQ(read(0), kFailed);
  EXPECT_EQ(socket_.now_ms() - start, kWaitMs);
  EXPECT_EQ(take_output(), "--timeout--\r\n[PLC] guard: 21 late replies dropped\r\n");
}

TEST_F(GuardedReply, LateOnesBeforeIt_AreDroppedAndTold) {
  answer(kValues, [&](const Bytes& request) {
    const Bytes late = foreign(healthy_reply(request));
    return std::vector<Arrival>{piece(late), piece(late + late + healthy_reply(request))};
  });
  expect_good_read("[PLC] guard: 3 late replies dropped\r\n");
}

TEST_F(GuardedReply, LateOneCutAtEveryByte_IsDroppedWhole) {
  const Bytes request_like = from_hex("00 00 00 00 00 00 00 00 00 00 1E 09 00 00 01 00 00 00 00 06 00 01 00 00 00 00");
  const size_t length = 2 * healthy_reply(request_like).size();
  for (size_t cut = 1; cut < length; ++cut) {
    answer(kValues, [&](const Bytes& request) {
      const Bytes both = foreign(healthy_reply(request)) + healthy_reply(request);
      return std::vector<Arrival>{piece(prefix_of(both, cut)),
                                  piece(Bytes(both.begin() + static_cast<std::ptrdiff_t>(cut), both.end()), 1)};
    });
    expect_good_read("[PLC] guard: 1 late replies dropped\r\n");
  }
}

TEST_F(GuardedReply, LateOneOfTheLargestSize_IsDropped) {
  answer(kValues, [&](const Bytes& request) {
    return std::vector<Arrival>{piece(foreign(reply_to(request, Bytes(4082, 0xEE))) + healthy_reply(request))};
  });
  expect_good_read("[PLC] guard: 1 late replies dropped\r\n");
}

TEST_F(GuardedReply, LateOnesThatFillTheBufferTwice_LeaveRoomForItsEnd) {
  answer(kValues, [&](const Bytes& request) {
    const Bytes late = foreign(reply_to(request, Bytes(4082, 0xEE)));
    const Bytes all = late + late + late + healthy_reply(request);
    return std::vector<Arrival>{piece(prefix_of(all, 2000)), piece(Bytes(all.begin() + 2000, all.end()), 1)};
  });
  expect_good_read("[PLC] guard: 3 late replies dropped\r\n");
}

TEST_F(GuardedReply, SequenceOneBitApart_IsLate) {
  for (const size_t bit : {0U, 7U, 8U, 15U}) {
    answer(kValues, [&](const Bytes& request) {
      Bytes late = healthy_reply(request);
      late[9 - bit / 8] = static_cast<uint8_t>(late[9 - bit / 8] ^ 1U << bit % 8);
      return std::vector<Arrival>{piece(late + healthy_reply(request))};
    });
    expect_good_read("[PLC] guard: 1 late replies dropped\r\n");
  }
}

TEST_F(GuardedReply, OtherHighByteOfTheSequence_IsLateToo) {
  answer(kValues, [&](const Bytes& request) {
    return std::vector<Arrival>{piece(with_byte(healthy_reply(request), 8, 1) + healthy_reply(request))};
  });
  expect_good_read("[PLC] guard: 1 late replies dropped\r\n");
}

TEST_F(GuardedReply, LateOneAlone_TimesOutAndIsTold) {
  answer(kValues, [&](const Bytes& request) { return std::vector<Arrival>{piece(foreign(healthy_reply(request)))}; });
  expect_failed_read("--timeout--\r\n[PLC] guard: 1 late replies dropped\r\n");
}

TEST_F(GuardedReply, OtherClass_Fails) {
  answer(kValues, [&](const Bytes& request) {
    return std::vector<Arrival>{piece(with_byte(healthy_reply(request), 10, 0x0C))};
  });
  expect_failed_read("[PLC] guard: reply to another request\r\n");
}

TEST_F(GuardedReply, OtherCommand_Fails) {
  answer(kValues, [&](const Bytes& request) {
    return std::vector<Arrival>{piece(with_byte(healthy_reply(request), 11, 0x01))};
  });
  expect_failed_read("[PLC] guard: reply to another request\r\n");
}

TEST_F(GuardedReply, EveryBitOfLengthAndComplement_IsLookedAt) {
  for (size_t bit = 0; bit < 64; ++bit) {
    answer(kResolve, [&](const Bytes& request) {
      Bytes reply = healthy_reply(request);
      reply[bit / 8] = static_cast<uint8_t>(reply[bit / 8] ^ 1U << bit % 8);
      return std::vector<Arrival>{piece(reply)};
    });
    EXPECT_EQ(read(0), kFailed) << "bit " << bit;
    EXPECT_EQ(take_output(), bit == 0 ? "[PLC] guard: not a reply of this protocol\r\n"
                                      : "server ip = 127.0.0.1\r\n[PLC] guard: not a reply of this protocol\r\n");
  }
}

TEST_F(GuardedReply, WrongComplement_FailsBeforeTheFrameIsWhole) {
  answer(kResolve, [&](const Bytes&) { return std::vector<Arrival>{piece(from_hex("00 00 00 06 FF FF FF F8"))}; });
  const int64_t start = socket_.now_ms();
  expect_failed_read("[PLC] guard: not a reply of this protocol\r\n");
  EXPECT_EQ(socket_.now_ms(), start);
}

TEST_F(GuardedReply, SevenBytes_AreWaitedOn) {
  answer(kResolve, [&](const Bytes&) { return std::vector<Arrival>{piece(from_hex("FF FF FF FF FF FF FF"))}; });
  expect_failed_read("[PLC] guard: reply cut off, 7 bytes in time\r\n");
}

TEST_F(GuardedReply, Of13Bytes_IsTooShort) {
  answer(kWrite,
         [&](const Bytes&) { return std::vector<Arrival>{piece(from_hex("00 00 00 03 FF FF FF FC 00 03 1E 01 00"))}; });
  EXPECT_EQ(write(0, from_hex("34 12")), kFailed);
  EXPECT_EQ(take_output(), "[PLC] guard: not a reply of this protocol\r\n");
}

TEST_F(GuardedReply, Of14Bytes_Acknowledges) {
  EXPECT_EQ(write(0, from_hex("34 12")), kOk);
  EXPECT_EQ(take_output(), "");
}

TEST_F(GuardedReply, Of4096Bytes_IsTaken) {
  answer(kWrite, [](const Bytes& request) { return std::vector<Arrival>{piece(reply_to(request, Bytes(4082, 0)))}; });
  EXPECT_EQ(write(0, from_hex("34 12")), kOk);
  EXPECT_EQ(socket_.calls(), "select send select recv select send select recv peek");
}

TEST_F(GuardedReply, Of4096BytesBeforeTheEndOfTheConnection_IsTaken) {
  answer(kWrite, [](const Bytes& request) {
    return std::vector<Arrival>{piece(reply_to(request, Bytes(4082, 0))), orderly_close()};
  });
  EXPECT_EQ(write(0, from_hex("34 12")), kOk);
  EXPECT_EQ(take_output(), "");
  expect_failed_read("[PLC] guard: connection closed by the controller\r\n");
}

TEST_F(GuardedReply, Of4097Bytes_IsTooLong) {
  answer(kWrite, [](const Bytes& request) { return std::vector<Arrival>{piece(reply_to(request, Bytes(4083, 0)))}; });
  EXPECT_EQ(write(0, from_hex("34 12")), kFailed);
  EXPECT_EQ(take_output(), "[PLC] guard: not a reply of this protocol\r\n");
}

TEST_F(GuardedReply, OneByteBehindIt_Fails) {
  answer(kValues, [&](const Bytes& request) { return std::vector<Arrival>{piece(healthy_reply(request) + Bytes{0})}; });
  expect_failed_read("[PLC] guard: bytes behind the reply\r\n");
}

TEST_F(GuardedReply, OneByteBehind4096_Fails) {
  answer(kWrite, [](const Bytes& request) {
    return std::vector<Arrival>{piece(reply_to(request, Bytes(4082, 0)) + Bytes{0})};
  });
  EXPECT_EQ(write(0, from_hex("34 12")), kFailed);
  EXPECT_EQ(take_output(), "[PLC] guard: bytes behind the reply\r\n");
  EXPECT_FALSE(socket_.is_open());
}

TEST_F(GuardedReply, SentTwiceAtOnce_Fails) {
  answer(kValues, [&](const Bytes& request) {
    return std::vector<Arrival>{piece(healthy_reply(request) + healthy_reply(request))};
  });
  expect_failed_read("[PLC] guard: bytes behind the reply\r\n");
}

TEST_F(GuardedReply, SentAgainBeforeTheNextRequest_IsDiscarded) {
  answer(kResolve, [&](const Bytes& request) {
    return std::vector<Arrival>{piece(healthy_reply(request)), piece(healthy_reply(request))};
  });
  expect_good_read();
  EXPECT_EQ(socket_.calls(), "select send select recv select recv select send select recv");
}

TEST_F(GuardedReply, ControllerCloses_Fails) {
  answer(kValues, [](const Bytes&) { return std::vector<Arrival>{orderly_close()}; });
  expect_failed_read("[PLC] guard: connection closed by the controller\r\n");
}

TEST_F(GuardedReply, ControllerClosesInsideIt_Fails) {
  answer(kValues, [&](const Bytes& request) {
    return std::vector<Arrival>{piece(prefix_of(healthy_reply(request), 15)), orderly_close()};
  });
  expect_failed_read("[PLC] guard: connection closed by the controller\r\n");
}

TEST_F(GuardedReply, ReceiveFails_TellsTheError) {
  answer(kValues, [](const Bytes&) { return std::vector<Arrival>{receive_error(ECONNRESET)}; });
  expect_failed_read("[PLC] guard: connection lost, error " + std::to_string(ECONNRESET) + "\r\n");
}

TEST_F(GuardedReply, WaitFails_ClosesTheConnection) {
  answer(kValues, [this](const Bytes& request) {
    socket_.fail_select = true;
    return std::vector<Arrival>{piece(healthy_reply(request))};
  });
  expect_failed_read("--err--\r\n");
}

TEST_F(GuardedReply, SendFails_ClosesTheConnection) {
  socket_.fail_send = true;
  expect_failed_read("send error\n");
}

using GuardedDrain = GuardedReply;

TEST_F(GuardedDrain, EverythingThatWaits_IsDiscarded) {
  for (const size_t count : {1U, 511U, 512U, 513U, 600U, 4096U, 65535U, 65536U}) {
    socket_.leave_waiting(piece(Bytes(count, 0x5A)));
    expect_good_read();
  }
}

TEST_F(GuardedDrain, OfNothing_TakesNoTime) {
  const int64_t start_us = socket_.now_us();
  EXPECT_EQ(EmptyBuffer(TimedSocket::kDescriptor), 0);
  EXPECT_EQ(socket_.now_us(), start_us);
}

TEST_F(GuardedDrain, MoreThan65536Bytes_Fail) {
  socket_.leave_waiting(piece(Bytes(65537, 0x5A)));
  expect_failed_read("[PLC] guard: more than 65536 bytes waited before the request\r\n");
}

TEST_F(GuardedDrain, EndOfTheConnection_FailsAndNothingIsSent) {
  socket_.leave_waiting(orderly_close());
  EXPECT_EQ(read(0), kFailed);
  EXPECT_EQ(take_output(), "[PLC] guard: connection closed by the controller\r\n");
  EXPECT_TRUE(take_requests().empty());
  EXPECT_FALSE(socket_.is_open());
}

TEST_F(GuardedDrain, EndBehindBytes_Fails) {
  socket_.leave_waiting(piece(Bytes(700, 0x5A)));
  socket_.leave_waiting(orderly_close());
  expect_failed_read("[PLC] guard: connection closed by the controller\r\n");
}

TEST_F(GuardedDrain, ErrorOfTheConnection_Fails) {
  socket_.leave_waiting(receive_error(ECONNRESET));
  expect_failed_read("[PLC] guard: connection lost, error " + std::to_string(ECONNRESET) + "\r\n");
}

TEST_F(GuardedDrain, RequestThatWasNotSent_HasTakenItsSequenceNumber) {
  socket_.leave_waiting(orderly_close());
  EXPECT_EQ(read(0), kFailed);
  EXPECT_EQ(read(0), kOk);
  const std::vector<Bytes> requests = take_requests();
  ASSERT_EQ(requests.size(), 4U);
  // The first read took 0 and 1, the one that failed 2.
  EXPECT_EQ(requests[2][9], 3);
  EXPECT_EQ(requests[3][9], 4);
}

TEST_F(GuardedDrain, ByItself_ReturnsZeroOrMinusOne) {
  socket_.leave_waiting(piece(Bytes(600, 0x5A)));
  EXPECT_EQ(EmptyBuffer(TimedSocket::kDescriptor), 0);
  EXPECT_EQ(EmptyBuffer(TimedSocket::kDescriptor), 0);
  socket_.leave_waiting(piece(Bytes(65537, 0x5A)));
  std::string lines = capture_output([] { EXPECT_EQ(EmptyBuffer(TimedSocket::kDescriptor), -1); });
  EXPECT_EQ(lines, "[PLC] guard: more than 65536 bytes waited before the request\r\n");
  EXPECT_EQ(EmptyBuffer(TimedSocket::kDescriptor), 0);
  socket_.leave_waiting(orderly_close());
  lines = capture_output([] { EXPECT_EQ(EmptyBuffer(TimedSocket::kDescriptor), -1); });
  EXPECT_EQ(lines, "[PLC] guard: connection closed by the controller\r\n");
}

}  // namespace
}  // namespace plc_test
