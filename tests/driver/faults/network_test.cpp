// The driver against a controller that is absent, slow, cut off or confused: every call returns within its time-outs
// and 100 ms with the stated code, and the driver finds back to a controller that is there again.
#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "plc_driver.h"
#include "tests/driver/faults/lateness_watch.h"
#include "tests/support/captured_output.h"
#include "tests/support/driver_build.h"
#include "tests/support/sim_process.h"
#include "tests/support/temp_dir.h"

namespace plc_test {
namespace {

constexpr uint32_t kLoopback = 0x7F000001;
constexpr uint32_t kReplyWaitS = 1;
constexpr long kReplyWaitMs = 1000 * kReplyWaitS;
constexpr long kConnectWaitMs = 30;
constexpr long kAllowanceMs = 100;
constexpr int kAttempts = 3;
constexpr uint16_t kWordValue = 4660;
constexpr int kReplyBytes = 48;       // a resolve reply of one name has 41 bytes, all others fewer
constexpr int kLeastValueReply = 14;  // of a single read
constexpr int kValueReplyBytes = 16;
constexpr int kBatchReplyBytes = 18;
constexpr int kAcknowledgmentBytes = 14;
constexpr const char* kClosed = "[PLC] guard: connection closed by the controller\r\n";
constexpr const char* kLost = "[PLC] guard: connection lost, error 104\r\n";
constexpr const char* kTags = "Word,INT,,,a,b,c,0,1,0,0,,DM\nNext,INT,,,a,b,c,1,1,0,0,,DM\n";

enum class Transfer { kRead, kWrite, kBatch };

// What a call may give, and how long it may take apart from the allowance.
struct Stated {
  uint32_t result;
  std::string lines;
  long shortest_ms = 0;
  long longest_ms = 0;
  // Calls that fail at most once the controller is back: the one that notices a dead connection.
  int failures_behind = 0;
  // The rest of a reply comes behind the call, however busy the machine is.
  bool has_rest = false;
};

// What the guarded build says of a connect whose directory ended with this line.
std::string no_connection(const std::string& line) {
  return "server ip = 127.0.0.1\r\n" + line +
         "[PLC] guard: no connection without the directory of programs\r\nev_plc_read init fail\r\n";
}

// What it says of a reply of which this many bytes came.
Stated cut_off(int bytes) {
  return {PLC_FAILED, "[PLC] guard: reply cut off, " + std::to_string(bytes) + " bytes in time\r\n", kReplyWaitMs,
          kReplyWaitMs};
}

class Network : public ::testing::Test {
 protected:
  Network() {
    folder_.write("PLC7F000001_0.csv", kTags);
    sim_.tell("set Word " + std::to_string(kWordValue));
    settings_.ip_address = kLoopback;
    settings_.tcp_port = sim_.port();
    conn_.recv_timeout_s = kReplyWaitS;
  }
  ~Network() override { close(conn_.socket_fd); }

  // Begins anew, without a connection, or with one and a loaded tag file.
  void start() {
    if (conn_.socket_fd >= 0) close(conn_.socket_fd);
    conn_.socket_fd = -1;
    capture_output([&] { ev_plc_init(&settings_); });
  }
  void connect() {
    uint32_t result = PLC_FAILED;
    for (int i = 0; i < kAttempts && result != PLC_OK; ++i) {
      start();
      result = call(Transfer::kRead);
    }
    EXPECT_EQ(result, uint32_t{PLC_OK}) << lines_;
  }

  uint32_t call(Transfer transfer);

  // A call with this fault armed, then calls without it until one works. A busy machine may keep plc-sim from running
  // for a second, which this process does not see: the driver does what it does each time.
  void try_fault(Transfer transfer, const std::string& fault, const Stated& stated);
  std::string attempt(Transfer transfer, const std::string& fault, const Stated& stated);

  // What is not as it has to be; empty where all is.
  std::string deviation(const Stated& stated, uint32_t result) const;
  std::string recovery_deviation(const Stated& stated);
  void expect_stated(const Stated& stated, uint32_t result) const { EXPECT_EQ(deviation(stated, result), ""); }
  void expect_recovery(const Stated& stated) { EXPECT_EQ(recovery_deviation(stated), ""); }

  // The same fault with each number in place of its "#": the number of bytes that still arrive. A reply that is cut
  // short costs the guarded build its whole wait: then only some of the numbers.
  void try_every_byte(Transfer transfer, const std::string& fault, const std::function<Stated(int)>& stated);

  // Waits for what the controller may still be sending, but not long.
  void settle(bool has_rest) const {
    constexpr int kQuietMs = 30;
    constexpr int kRestMs = 2000;
    pollfd wait = {conn_.socket_fd, POLLIN, 0};
    poll(&wait, 1, has_rest ? kRestMs : kQuietMs);
  }

  TempDir folder_;
  ScopedWorkingDirectory inside_{folder_.path()};
  RunningSim sim_{PLC_SIM_PROGRAM, {folder_.write("tags.csv", kTags)}};
  LatenessWatch lateness_;
  CommSettings settings_{};
  ConnContext conn_{-1, 0, 0, 0, 0};
  std::string lines_;
  long elapsed_ms_ = 0;
  uint32_t value_ = 0;
};

uint32_t Network::call(Transfer transfer) {
  uint8_t data[4] = {kWordValue & 0xFF, kWordValue >> 8};
  RegRequest request = {};
  RegValue value = {1, data};
  BatchReadRequest elements[2] = {};
  elements[0].count = elements[1].count = 1;
  elements[1].address = 1U << 16;
  uint32_t result = 0;
  lateness_.start();
  const auto begin = std::chrono::steady_clock::now();
  lines_ = capture_output([&] {
    if (transfer == Transfer::kRead) {
      result = ev_plc_read(&request, &value, &conn_);
      value_ = static_cast<uint32_t>(data[0] | data[1] << 8);
    } else if (transfer == Transfer::kWrite) {
      result = ev_plc_write(&request, &value, &conn_);
    } else {
      result = ev_OMRON_plc_read(elements, 2, &conn_);
      value_ = elements[0].value;
    }
  });
  const auto taken = std::chrono::steady_clock::now() - begin;
  elapsed_ms_ = static_cast<long>(std::chrono::duration_cast<std::chrono::milliseconds>(taken).count());
  return result;
}

std::string Network::deviation(const Stated& stated, uint32_t result) const {
  std::ostringstream told;
  if (result != stated.result) told << "code " << result << ", not " << stated.result << "; ";
  if (lines_ != stated.lines) told << "printed '" << lines_ << "', not '" << stated.lines << "'; ";
  if (elapsed_ms_ < stated.shortest_ms - 1) told << elapsed_ms_ << " ms, less than " << stated.shortest_ms << "; ";
  // What other processes took from this one was taken from plc-sim too.
  // A call that waits for replies must not wait for one more.
  const long allowance_ms = stated.longest_ms >= kReplyWaitMs ? kReplyWaitMs - kAllowanceMs : kAllowanceMs;
  const long longest_ms = stated.longest_ms + allowance_ms + 4 * lateness_.lost_ms();
  if (elapsed_ms_ > longest_ms) told << elapsed_ms_ << " ms, more than " << longest_ms << "; ";
  return told.str();
}

std::string Network::recovery_deviation(const Stated& stated) {
  uint32_t result = PLC_FAILED;
  int failures = -1;
  while (result != PLC_OK && failures < stated.failures_behind) {
    ++failures;
    settle(stated.has_rest && failures == 0);
    result = call(Transfer::kRead);
  }
  if (result != PLC_OK) return "still failing behind the controller's return: " + lines_;
  return value_ == kWordValue ? "" : "the value is " + std::to_string(value_);
}

std::string Network::attempt(Transfer transfer, const std::string& fault, const Stated& stated) {
  const std::string counted = "fault." + fault.substr(0, fault.find(' '));
  const unsigned long before = sim_.count(counted);
  sim_.tell("fault " + fault);
  std::string told = deviation(stated, call(transfer));
  if (sim_.count(counted) <= before) told += "the fault did not happen; ";
  sim_.tell("fault clear");
  return told + recovery_deviation(stated);
}

void Network::try_fault(Transfer transfer, const std::string& fault, const Stated& stated) {
  SCOPED_TRACE(fault);
  const bool is_connected = conn_.socket_fd >= 0;
  std::string told = attempt(transfer, fault, stated);
  for (int i = 1; i < kAttempts && !told.empty(); ++i) {
    if (is_connected) {
      connect();
    } else {
      start();
    }
    told = attempt(transfer, fault, stated);
  }
  EXPECT_EQ(told, "");
}

void Network::try_every_byte(Transfer transfer, const std::string& fault, const std::function<Stated(int)>& stated) {
  const bool takes_long = is_guarded() && fault.rfind("cut", 0) == 0;
  for (int bytes = 0; bytes <= kReplyBytes && !HasFailure(); bytes += takes_long && bytes < 12 ? 12 : 1) {
    connect();
    std::string numbered = fault;
    numbered.replace(numbered.find('#'), 1, std::to_string(bytes));
    try_fault(transfer, numbered, stated(bytes));
  }
}

TEST_F(Network, BlackHole_CostsOneTimeoutAndTheNextCallWorks) {
  const Stated lost = {PLC_FAILED, "--timeout--\r\n", kReplyWaitMs, kReplyWaitMs};
  connect();
  try_fault(Transfer::kRead, "no-reply times=always", lost);
  try_fault(Transfer::kRead, "no-reply on=read", lost);
  try_fault(Transfer::kWrite, "no-reply on=write", lost);
  try_fault(Transfer::kBatch, "no-reply on=read", lost);
}

TEST_F(Network, BlackHoleWhileTheDirectoryIsFetched_CostsOneTimeoutAndTheNextCallWorks) {
  start();
  const std::string lines =
      "server ip = 127.0.0.1\r\n--timeout--\r\nbuild tag table for PLC7F000001_0.csv\r\nsend error\n";
  try_fault(Transfer::kRead, "no-reply times=always",
            {by_build<uint32_t>(PLC_FAILED, PLC_NO_CONNECT), by_build(lines, no_connection("--timeout--\r\n")),
             kReplyWaitMs, kReplyWaitMs});
}

TEST_F(Network, ZeroTimeout_PollsOnce) {
  connect();
  conn_.recv_timeout_s = 0;
  sim_.tell("fault no-reply times=always");
  expect_stated({PLC_FAILED, "--timeout--\r\n"}, call(Transfer::kRead));
  sim_.tell("fault clear");
  conn_.recv_timeout_s = kReplyWaitS;
  expect_recovery({});
}

TEST_F(Network, DelayedReply_CountsWhenItComesInTime) {
  connect();
  try_fault(Transfer::kRead, "delay 400 on=read", {PLC_OK, "", 400, 400});
  EXPECT_EQ(value_, kWordValue);
  try_fault(Transfer::kRead, "delay 1300 on=read", {PLC_FAILED, "--timeout--\r\n", kReplyWaitMs, kReplyWaitMs});
}

TEST_F(Network, FullBacklog_EndsAfter30Milliseconds) {
  for (const char* fault : {"refuse-accept", "slow-accept 60000"}) {
    start();
    try_fault(Transfer::kRead, fault,
              {PLC_NO_CONNECT, "server ip = 127.0.0.1\r\nselect time out \r\nsend error\nev_plc_read init fail\r\n",
               kConnectWaitMs, kConnectWaitMs});
  }
}

TEST_F(Network, RefusedConnect_IsReportedByTheFirstExchange) {
  start();
  const std::string with_table =
      "server ip = 127.0.0.1\r\nsend error\nbuild tag table for PLC7F000001_0.csv\r\nsend error\n";
  const std::string refused = no_connection("[PLC] guard: connect refused\r\nsend error\n");
  try_fault(Transfer::kRead, "gone", {by_build<uint32_t>(PLC_FAILED, PLC_NO_CONNECT), by_build(with_table, refused)});
  EXPECT_EQ(call(Transfer::kWrite), uint32_t{PLC_OK});
}

// The controller was switched off and on: the call that notices fails, the next one works.
TEST_F(Network, ControllerThatRestarted_CostsTheCallThatNotices) {
  for (const Transfer transfer : {Transfer::kRead, Transfer::kWrite, Transfer::kBatch}) {
    connect();
    sim_.tell("fault gone");
    sim_.tell("fault clear");
    expect_stated({PLC_FAILED, by_build("send error\n", kLost)}, call(transfer));
    expect_stated({PLC_OK, "server ip = 127.0.0.1\r\n", 0, kReplyWaitMs}, call(transfer));
  }
}

TEST_F(Network, ControllerThatStaysAway_CostsEveryCallLittleTime) {
  connect();
  sim_.tell("fault gone");
  expect_stated({PLC_FAILED, by_build("send error\n", kLost)}, call(Transfer::kRead));
  const std::string lines = "server ip = 127.0.0.1\r\nsend error\nsend error\n";
  const std::string refused = no_connection("[PLC] guard: connect refused\r\nsend error\n");
  for (int i = 0; i < 20 && !HasFailure(); ++i) {
    expect_stated({by_build<uint32_t>(PLC_FAILED, PLC_NO_CONNECT), by_build(lines, refused)}, call(Transfer::kRead));
  }
  sim_.tell("fault clear");
  expect_recovery({});
}

// A short reply keeps the connection: the next call finds it dead. A reset without a byte is a failed exchange.
TEST_F(Network, ResetAtEveryByteOfAValueReply_GivesTheStatedCode) {
  try_every_byte(Transfer::kRead, "reset-after # on=read", [](int bytes) -> Stated {
    if (!expects_contract()) {
      return bytes < kValueReplyBytes ? Stated{PLC_FAILED, kLost} : Stated{PLC_OK, "", 0, 0, 1};
    }
    if (bytes == 0) return {PLC_FAILED, ""};
    return bytes < kLeastValueReply ? Stated{PLC_FAILED, "read data err!\r\n", 0, 0, 1} : Stated{PLC_OK, "", 0, 0, 1};
  });
}

TEST_F(Network, CloseAtEveryByteOfAValueReply_GivesTheStatedCode) {
  try_every_byte(Transfer::kRead, "close-after # on=read", [](int bytes) -> Stated {
    if (!expects_contract()) {
      return bytes < kValueReplyBytes ? Stated{PLC_FAILED, kClosed} : Stated{PLC_OK, "", 0, 0, 1};
    }
    return bytes < kLeastValueReply ? Stated{PLC_FAILED, "read data err!\r\n", 0, 0, 2} : Stated{PLC_OK, "", 0, 0, 2};
  });
}

TEST_F(Network, ValueReplyCutAtEveryByte_GivesTheStatedCode) {
  try_every_byte(Transfer::kRead, "cut # on=read", [](int bytes) -> Stated {
    if (bytes == 0) return {PLC_FAILED, "--timeout--\r\n", kReplyWaitMs, kReplyWaitMs};
    if (!expects_contract()) return bytes < kValueReplyBytes ? cut_off(bytes) : Stated{PLC_OK, ""};
    return bytes < kLeastValueReply ? Stated{PLC_FAILED, "read data err!\r\n"} : Stated{PLC_OK, ""};
  });
}

// A batch of two words wants 18 bytes; one that gets fewer says 2.
TEST_F(Network, BatchReplyCutAtEveryByte_GivesTheStatedCode) {
  try_every_byte(Transfer::kBatch, "cut # on=read", [](int bytes) -> Stated {
    if (bytes == 0) return {PLC_FAILED, "--timeout--\r\n", kReplyWaitMs, kReplyWaitMs};
    if (!expects_contract()) return bytes < kBatchReplyBytes ? cut_off(bytes) : Stated{PLC_OK, ""};
    return bytes < kBatchReplyBytes ? Stated{PLC_NO_CONNECT, ""} : Stated{PLC_OK, ""};
  });
}

TEST_F(Network, WriteAcknowledgmentCutAtEveryByte_GivesTheStatedCode) {
  try_every_byte(Transfer::kWrite, "cut # on=write", [](int bytes) -> Stated {
    if (bytes == 0) return {PLC_FAILED, "--timeout--\r\n", kReplyWaitMs, kReplyWaitMs};
    if (!expects_contract()) return bytes < kAcknowledgmentBytes ? cut_off(bytes) : Stated{PLC_OK, ""};
    return bytes < 13 ? Stated{PLC_FAILED, ""} : Stated{PLC_OK, ""};
  });
}

// One receive takes what has come; the rest is dropped before the next request. The guarded build waits for the rest.
TEST_F(Network, ValueReplySplitAtEveryByte_IsTakenAsFarAsTheFirstPieceGoes) {
  try_every_byte(Transfer::kRead, "split # 20 on=read", [](int bytes) -> Stated {
    const bool is_short = expects_contract() && bytes > 0 && bytes < kLeastValueReply;
    Stated stated = is_short ? Stated{PLC_FAILED, "read data err!\r\n", 0, 20} : Stated{PLC_OK, "", 0, 20};
    stated.has_rest = expects_contract() && bytes > 0 && bytes < kValueReplyBytes;
    return stated;
  });
}

// Handles out of half a reply name nothing, or something else: whatever the controller makes of them, the call ends in
// time and the connection can be used on. Replies are matched by their order alone.
TEST_F(Network, ResolveReplySplitOrResetAtEveryByte_EndsInTimeAndRecovers) {
  for (const char* fault : {"split # 5 on=resolve", "reset-after # on=resolve", "close-after # on=resolve"}) {
    for (int bytes = 0; bytes <= kReplyBytes; ++bytes) {
      connect();
      std::string numbered = fault;
      numbered.replace(numbered.find('#'), 1, std::to_string(bytes));
      SCOPED_TRACE(numbered);
      sim_.tell("fault " + numbered);
      const uint32_t result = call(Transfer::kRead);
      EXPECT_TRUE(result == PLC_OK || result == PLC_FAILED) << result;
      EXPECT_LE(elapsed_ms_, 2 * kReplyWaitMs + kAllowanceMs);
      sim_.tell("fault clear");
      expect_recovery({PLC_OK, "", 0, 0, 2});
    }
  }
}

TEST_F(Network, DirectoryReplyCutAtEveryByte_LeavesAConnection) {
  constexpr int kDirectoryBytes = 15;
  for (int bytes = 1; bytes <= kReplyBytes && !HasFailure(); bytes += is_guarded() && bytes < 13 ? 12 : 1) {
    Stated stated = {PLC_OK, "server ip = 127.0.0.1\r\nbuild tag table for PLC7F000001_0.csv\r\n"};
    if (!expects_contract() && bytes < kDirectoryBytes) {
      stated = {PLC_NO_CONNECT, no_connection(cut_off(bytes).lines), kReplyWaitMs, kReplyWaitMs};
    }
    start();
    try_fault(Transfer::kRead, "cut " + std::to_string(bytes) + " on=directory", stated);
  }
}

// A byte every 300 ms: each call takes a byte for a reply. The connection lives until the controller ends it.
TEST_F(Network, ReplyByteByByte_NeverHoldsACallLongerThanItsTimeouts) {
  connect();
  sim_.tell("fault drip 300 on=read");
  expect_stated({PLC_FAILED, "read data err!\r\n"}, call(Transfer::kRead));
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(call(Transfer::kRead), uint32_t{PLC_FAILED});
    EXPECT_LE(elapsed_ms_, 2 * kReplyWaitMs + kAllowanceMs + 4 * lateness_.lost_ms());
  }
  sim_.tell("fault gone");
  sim_.tell("fault clear");
  expect_recovery({PLC_OK, "", 0, 0, 1});
}

// What came too much before is dropped before the next request, up to 512 bytes.
TEST_F(Network, RepliesTwiceTooLongOrBehindForeignBytes_SpoilTheirOwnCallAlone) {
  connect();
  for (const char* fault : {"duplicate on=read", "stale 100 on=read", "stale 400 on=read", "trailing 400 on=read",
                            "oversize 600 on=read", "garbage 64 on=read", "garbage 300 on=resolve",
                            "wrong-sequence on=read", "wrong-sequence on=resolve", "duplicate on=write"}) {
    const bool writes = std::string(fault).find("write") != std::string::npos;
    try_fault(writes ? Transfer::kWrite : Transfer::kRead, fault, {PLC_OK, ""});
  }
}

}  // namespace
}  // namespace plc_test
