// Every call of a transfer fails once, and from then on: the code and the lines of the contract, nothing lost, and the
// next transfer works.
#include <fcntl.h>

#include <cerrno>

#include "tests/driver/faults/transfer_faults.h"
#include "tests/support/descriptors.h"
#include "tests/support/driver_build.h"

namespace plc_test {
namespace {

class TransferFaults : public FaultFixture {
 protected:
  // One transfer of a fresh driver with this fault, then one without.
  void try_fault(Transfer transfer, const Fault& fault);

  // All faults of all calls that a fresh transfer makes, once or for good.
  void try_all(Transfer transfer, bool from_then_on);

  int cases_ = 0;
};

void TransferFaults::try_fault(Transfer transfer, const Fault& fault) {
  start_over();
  conn_.delay_ms = 1;
  const Expected expected = expect_fresh(transfer, fault);
  const Seen seen = run(transfer, fault);
  EXPECT_GE(seen.calls.faults_met, 1) << "the fault did not happen";
  EXPECT_EQ(seen.result, expected.result);
  if (!prints(fault.call)) {
    EXPECT_EQ(without_source_lines(seen.lines), expected.lines);
  }
  EXPECT_EQ(seen.calls.inheritable, is_socket_without_flags(fault) ? 1 : 0) << "open in programs that the host starts";
  EXPECT_TRUE(conn_.socket_fd < 0 || fcntl(conn_.socket_fd, F_GETFD) == FD_CLOEXEC);
  EXPECT_EQ(seen.calls.open_files, 0);
  EXPECT_EQ(seen.calls.open_descriptors, stored_sockets()) << "descriptors that the driver no longer knows";

  const Seen next = run(transfer);
  EXPECT_EQ(next.result, uint32_t{PLC_OK}) << "the next call: " << next.lines;
  if (transfer == Transfer::kRead || transfer == Transfer::kBatch) {
    EXPECT_EQ(value_, kPeerValue);
  }
  EXPECT_EQ(stored_sockets(), 1 + expected.left_open) << "sockets open after the next call";
  EXPECT_EQ(seen.calls.open_descriptors + next.calls.open_descriptors, stored_sockets());
  EXPECT_EQ(seen.calls.live_blocks + next.calls.live_blocks, free_tables()) << "blocks that no table holds";
  ++cases_;
}

void TransferFaults::try_all(Transfer transfer, bool from_then_on) {
  const int open_before = count_open_descriptors();
  start_over();
  conn_.delay_ms = 1;
  const Seen plain = run(transfer);
  ASSERT_EQ(plain.result, uint32_t{PLC_OK}) << plain.lines;
  for (size_t kind = 0; kind < kCallKinds; ++kind) {
    const Call call = static_cast<Call>(kind);
    if (!can_fail(call) || plain.calls.counts[kind] == 0) continue;
    const std::vector<Outcome> outcomes = outcomes_of(call);
    EXPECT_FALSE(outcomes.empty()) << "no outcomes for " << name_of(call);
    for (int nth = 0; nth < plain.calls.counts[kind]; ++nth) {
      for (const Outcome& outcome : outcomes) {
        SCOPED_TRACE(testing::Message() << name_of(transfer) << ": " << name_of(call) << " number " << nth
                                        << (from_then_on ? " and all behind it" : "") << ", outcome "
                                        << static_cast<int>(outcome.kind) << " " << outcome.number);
        try_fault(transfer, {call, nth, from_then_on, outcome});
        if (HasFailure()) return;
      }
    }
  }
  RecordProperty("cases", cases_);
  std::fprintf(stderr, "%s, %s: %d cases\n", name_of(transfer), from_then_on ? "from then on" : "once", cases_);
  EXPECT_GT(cases_, 300);
  start_over();
  EXPECT_LE(count_open_descriptors(), open_before + 1) << "one of them may be the controller's";
}

TEST_F(TransferFaults, ReadWithAnyCallFailingOnce_GivesTheStatedCode) { try_all(Transfer::kRead, false); }
TEST_F(TransferFaults, ReadWithAnyCallFailingFromThenOn_GivesTheStatedCode) { try_all(Transfer::kRead, true); }
TEST_F(TransferFaults, WriteWithAnyCallFailingOnce_GivesTheStatedCode) { try_all(Transfer::kWrite, false); }
TEST_F(TransferFaults, WriteWithAnyCallFailingFromThenOn_GivesTheStatedCode) { try_all(Transfer::kWrite, true); }
TEST_F(TransferFaults, BitWriteWithAnyCallFailingOnce_GivesTheStatedCode) { try_all(Transfer::kBitWrite, false); }
TEST_F(TransferFaults, BitWriteWithAnyCallFailingFromThenOn_GivesTheStatedCode) { try_all(Transfer::kBitWrite, true); }
TEST_F(TransferFaults, BatchWithAnyCallFailingOnce_GivesTheStatedCode) { try_all(Transfer::kBatch, false); }
TEST_F(TransferFaults, BatchWithAnyCallFailingFromThenOn_GivesTheStatedCode) { try_all(Transfer::kBatch, true); }

// A socket is closed where something else failed before.
TEST_F(TransferFaults, CloseThatFailsToo_ChangesNothing) {
  for (const int error : {EBADF, EDQUOT, EINTR, EIO, ENOSPC}) {
    for (const Call call : {Call::kSelectConnect, Call::kGetsockopt, Call::kSend, Call::kSelectReply}) {
      SCOPED_TRACE(testing::Message() << name_of(call) << ", close with " << error);
      start_over();
      const Fault faults[] = {{call, 0, false, fails_with(EINTR)}, {Call::kClose, 0, false, fails_with(error)}};
      const Expected expected = expect_fresh(Transfer::kRead, faults[0]);
      const Seen seen = run(Transfer::kRead, faults, 2);
      EXPECT_EQ(seen.calls.faults_met, 2);
      EXPECT_EQ(seen.result, expected.result);
      EXPECT_EQ(seen.lines, expected.lines);
      EXPECT_EQ(conn_.socket_fd, -1);
      EXPECT_EQ(seen.calls.open_descriptors, 0);
      EXPECT_EQ(run(Transfer::kRead).result, uint32_t{PLC_OK});
    }
  }
}

// A drain happens where something stale waits, here the reply of a directory request whose receive failed. Whatever it
// gives, the request is sent; what it leaves is taken for the reply.
TEST_F(TransferFaults, DrainThatFails_IsIgnored) {
  for (const int error : {EAGAIN, EBADF, ECONNRESET, EINTR, EIO, ENOMEM, ENOTCONN, ETIMEDOUT}) {
    for (const Outcome& outcome : {fails_with(error), returns(0), stops_after(1)}) {
      start_over();
      const Fault faults[] = {{Call::kRecv, 1, false, fails_with(EINTR)}, {Call::kRecvDrain, 0, false, outcome}};
      const Seen seen = run(Transfer::kRead, faults, 2);
      EXPECT_EQ(seen.calls.faults_met, 2);
      EXPECT_EQ(seen.result, uint32_t{PLC_OK});
      EXPECT_EQ(seen.lines, "server ip = 127.0.0.1\r\nbuild tag table for PLC7F000001_0.csv\r\n");
      EXPECT_EQ(seen.calls.open_descriptors, 1);
      EXPECT_EQ(run(Transfer::kRead).result, uint32_t{PLC_OK});
    }
  }
}

// A request that leaves in part is not continued: a controller that waits for the rest costs the reply's time-out.
TEST_F(TransferFaults, ShortSendThatNobodyAnswers_EndsWithTheTimeout) {
  const LoopbackSocket silent(SOCK_STREAM, 4);
  settings_.tcp_port = silent.port();
  start_over();
  conn_.recv_timeout_s = 0;
  const Seen seen = run(Transfer::kRead, Fault{Call::kSend, 0, false, stops_after(3)});
  EXPECT_EQ(seen.calls.faults_met, 1);
  EXPECT_EQ(seen.result, by_build<uint32_t>(PLC_FAILED, PLC_NO_CONNECT));
  EXPECT_EQ(seen.lines, std::string("server ip = 127.0.0.1\r\n--timeout--\r\n") +
                            by_build("build tag table for PLC7F000001_0.csv\r\nsend error\n",
                                     "[PLC] guard: no connection without the directory of programs\r\n"
                                     "ev_plc_read init fail\r\n"));
  EXPECT_EQ(conn_.socket_fd, -1);
}

TEST_F(TransferFaults, SignalActionThatCannotBeAskedForOrSet_DoesNotFailTheInit) {
  for (const int error : {EFAULT, EINVAL}) {
    for (const int nth : {0, 1}) {
      signal(SIGPIPE, SIG_DFL);
      CapturedOutput captured;
      WatchedCalls watched(Fault{Call::kSigaction, nth, false, fails_with(error)});
      const uint32_t result = ev_plc_init(&settings_);
      const int met = watched.end().faults_met;
      EXPECT_EQ(captured.take(), "ev_plc_init ok\r\n");
      EXPECT_EQ(met, 1);
      EXPECT_EQ(result, uint32_t{PLC_OK});
    }
  }
  start_over();
}

}  // namespace
}  // namespace plc_test
