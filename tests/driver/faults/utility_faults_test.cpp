// The utilities and wrappers when the system refuses: the result and the errno pass through, nothing is lost.
#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <vector>

#include "plc_ethernet.h"
#include "tests/driver/faults/fault_fixture.h"
#include "tests/driver/faults/transfer_faults.h"
#include "universal_api.h"

namespace plc_test {
namespace {

const std::vector<int> kSocketErrors = {EACCES, EAGAIN,  EBADF,  ECONNABORTED, EFAULT,   EINTR,      EINVAL, EMFILE,
                                        ENFILE, ENOBUFS, ENOMEM, ENOTCONN,     ENOTSOCK, EOPNOTSUPP, EPIPE,  ETIMEDOUT};
const std::vector<int> kNewSocketErrors = {EACCES, EAFNOSUPPORT, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT};
const std::vector<int> kFileErrors = {EACCES, EAGAIN, EBADF, EFBIG, EINTR, EINVAL, EIO, EISDIR, ENOENT, ENOSPC, EPERM};

// One use of a utility, the call that fails in it, and what the host is told.
struct Refusal {
  const char* name;
  Call call;
  int nth;
  const std::vector<int>* errors;
  std::function<long()> use;
  long result;
  const char* lines = "";
  bool passes_errno = false;
};

class UtilityFaults : public FaultFixture {
 protected:
  void try_refusal(const Refusal& refusal, bool from_then_on);

  std::string file_ = folder_.write("data.bin", std::string(100, 'x'));
  sockaddr_in address_{};
  uint8_t bytes_[64] = {};
  char digest_[33] = {};
};

void UtilityFaults::try_refusal(const Refusal& refusal, bool from_then_on) {
  for (const int error : *refusal.errors) {
    SCOPED_TRACE(testing::Message() << refusal.name << ": " << name_of(refusal.call) << " with " << error);
    CapturedOutput captured;
    WatchedCalls watched(Fault{refusal.call, refusal.nth, from_then_on, fails_with(error)});
    errno = 0;
    const long result = refusal.use();
    const int seen_error = errno;
    const CallWatch calls = watched.end();
    EXPECT_EQ(captured.take(), refusal.lines);
    EXPECT_GE(calls.faults_met, 1);
    EXPECT_EQ(result, refusal.result);
    EXPECT_EQ(calls.open_files, 0);
    EXPECT_EQ(calls.live_blocks, 0);
    EXPECT_EQ(calls.open_descriptors, 0);
    EXPECT_EQ(calls.inheritable, 0);
    if (refusal.passes_errno) {
      EXPECT_EQ(seen_error, error);
    }
  }
}

TEST_F(UtilityFaults, SocketWrappers_PassFailuresThrough) {
  auto* const address = reinterpret_cast<sockaddr*>(&address_);
  socklen_t length = sizeof address_;
  ConnContext conn = {0, 0, 1, 0, 0};
  const std::vector<Refusal> refusals = {
      {"ev_recv", Call::kRecv, 0, &kSocketErrors, [&] { return ev_recv(0, bytes_, 4); }, -1, "", true},
      {"ev_send", Call::kSend, 0, &kSocketErrors, [&] { return ev_send(0, bytes_, 4); }, -1, "", true},
      {"ev_recvfrom", Call::kRecvfrom, 0, &kSocketErrors,
       [&] { return ev_recvfrom(0, bytes_, 4, 0, address, &length); }, -1, "", true},
      {"ev_sendto", Call::kSendto, 0, &kSocketErrors, [&] { return ev_sendto(0, bytes_, 4, 0, address, length); }, -1,
       "", true},
      {"ev_socket", Call::kSocket, 0, &kNewSocketErrors, [] { return ev_socket(AF_INET, SOCK_STREAM, 0); }, -1, "",
       true},
      {"ev_connect", Call::kConnect, 0, &kSocketErrors, [&] { return ev_connect(0, address, length); }, -1, "", true},
      {"ev_setsockopt", Call::kSetsockopt, 0, &kSocketErrors,
       [&] { return ev_setsockopt(0, SOL_SOCKET, SO_REUSEADDR, bytes_, 4); }, -1, "", true},
      {"ev_bind", Call::kBind, 0, &kSocketErrors, [&] { return ev_bind(0, address, length); }, -1, "", true},
      {"ev_listen", Call::kListen, 0, &kSocketErrors, [] { return ev_listen(0, 1); }, -1, "", true},
      {"ev_accept", Call::kAccept, 0, &kSocketErrors, [&] { return ev_accept(0, address, &length); }, -1, "", true},
      {"ev_time_set", Call::kSelectReply, 0, &kSocketErrors, [&] { return ev_time_set(&conn, 0); }, -1, "", true},
      {"ev_sleep", Call::kUsleep, 0, &kSocketErrors, [] { return ev_sleep(1); }, -1, "", true},
      {"ev_sleep_ms", Call::kUsleep, 0, &kSocketErrors, [] { return ev_sleep_ms(1); }, -1, "", true},
  };
  for (const Refusal& refusal : refusals) {
    try_refusal(refusal, false);
    try_refusal(refusal, true);
  }
}

// Linux before 2.6.27 knows no flags in the type of a socket, before 2.6.28 no accept4.
TEST_F(UtilityFaults, SystemWithoutTheFlagForANewSocket_GetsItSetAfterwards) {
  WatchedCalls watched(Fault{Call::kSocket, 0, false, fails_with(EINVAL)});
  const int opened = ev_socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(watched.end().count(Call::kSocket), 2);
  EXPECT_EQ(fcntl(opened, F_GETFD), FD_CLOEXEC);
  const LoopbackSocket server(SOCK_STREAM, 1);
  sockaddr_in to = server.address();
  ASSERT_EQ(ev_connect(opened, reinterpret_cast<const sockaddr*>(&to), sizeof to), 0);
  WatchedCalls watched_accept(Fault{Call::kAccept, 0, false, fails_with(ENOSYS)});
  const int accepted = ev_accept(server.fd(), nullptr, nullptr);
  EXPECT_EQ(watched_accept.end().count(Call::kAccept), 2);
  EXPECT_EQ(fcntl(accepted, F_GETFD), FD_CLOEXEC);
  for (const int descriptor : {opened, accepted}) EXPECT_EQ(close(descriptor), 0);
}

TEST_F(UtilityFaults, FlagThatNoSystemTakes_GivesTheSystemsError) {
  WatchedCalls watched(Fault{Call::kSocket, 0, true, fails_with(EINVAL)});
  EXPECT_EQ(ev_socket(AF_INET, SOCK_STREAM, 0), -1);
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(watched.end().faults_met, 2);
}

TEST_F(UtilityFaults, Files_CloseInProgramsThatTheHostStarts) {
  WatchedCalls watched;
  EXPECT_EQ(CalcFileMD5(file_.data(), digest_), 1);
  EXPECT_EQ(Read_File(file_.c_str(), bytes_, 0, 4), 4);
  EXPECT_EQ(Write_File(file_.c_str(), bytes_, 0, 4), 4);
  ev_log(file_.c_str(), "%d", 1);
  const CallWatch calls = watched.end();
  EXPECT_EQ(calls.count(Call::kFopen) + calls.count(Call::kOpen), 4);
  EXPECT_EQ(calls.inheritable, 0);
}

TEST_F(UtilityFaults, Closes_PassFailuresThrough) {
  for (const int error : {EBADF, EINTR, EIO}) {
    for (const bool other : {false, true}) {
      const int descriptor = dup(0);
      WatchedCalls watched(Fault{Call::kClose, 0, false, fails_with(error)});
      const int result = other ? ev_closesocket(descriptor) : ev_close_handel(descriptor);
      EXPECT_EQ(errno, error);
      EXPECT_EQ(watched.end().faults_met, 1);
      EXPECT_EQ(result, -1);
    }
  }
}

TEST_F(UtilityFaults, AlternativeSetUp_PrintsAndLosesNoSocket) {
  settings_.socket_kind = 'U';
  ConnContext conn = {-9, 0, 1, 0, 0};
  int32_t out = -9;
  const auto set_up = [&] { return CommunicationSet(&settings_, &conn); };
  const auto set_up_again = [&] { return ReCommunicationSet(&settings_, &conn); };
  const std::vector<Refusal> refusals = {
      {"CommunicationSet", Call::kGethostbyname, 0, &kSocketErrors, set_up, -1, "error resolving local host\r\n"},
      {"CommunicationSet", Call::kSocket, 0, &kNewSocketErrors, set_up, -1, "socket error\r\n"},
      {"CommunicationSet", Call::kConnect, 0, &kSocketErrors, set_up, -1, "connect to 127.0.0.1 failed\r\n"},
      {"ReCommunicationSet", Call::kConnect, 0, &kSocketErrors, set_up_again, -1, "connect to 127.0.0.1 failed\r\n"},
      {"init_udp_comm", Call::kSocket, 0, &kNewSocketErrors, [&] { return init_udp_comm(&settings_, &out, &address_); },
       -1, "socket error\r\n"},
  };
  for (const Refusal& refusal : refusals) {
    try_refusal(refusal, false);
    try_refusal(refusal, true);
  }
  EXPECT_EQ(conn.socket_fd, -9);
  EXPECT_EQ(out, -9);
  // Options that cannot be set do not matter; an address that does not resolve leaves the socket to the caller.
  for (const int nth : {0, 1}) {
    WatchedCalls watched(Fault{Call::kSetsockopt, nth, false, fails_with(EINVAL)});
    EXPECT_EQ(set_up(), 0);
    EXPECT_EQ(watched.end().faults_met, 1);
    ev_closesocket(conn.socket_fd);
  }
  CapturedOutput captured;
  WatchedCalls watched(Fault{Call::kGethostbyname, 0, false, fails_with(0)});
  EXPECT_EQ(init_udp_comm(&settings_, &out, &address_), 0);
  EXPECT_EQ(watched.end().faults_met, 1);
  EXPECT_EQ(captured.take(), "error resolving local host\r\n");
  EXPECT_EQ(ev_closesocket(out), 0);
}

TEST_F(UtilityFaults, FileUtilities_ReportAndCloseWhatTheyOpened) {
  constexpr const char* kNotOpen = "Can not open this file!\n";
  constexpr const char* kTooLarge = "Sorry! Can not calculate files which larger than 2 GB!\n";
  const auto digest = [&] { return CalcFileMD5(file_.data(), digest_); };
  const auto read = [&] { return Read_File(file_.c_str(), bytes_, 0, 4); };
  const auto write = [&] { return Write_File(file_.c_str(), bytes_, 0, 4); };
  const auto log = [&] {
    ev_log(file_.c_str(), "%d", 1);
    return 0;
  };
  const std::vector<Refusal> refusals = {
      {"CalcFileMD5", Call::kFopen, 0, &kFileErrors, digest, 0, kNotOpen},
      {"CalcFileMD5", Call::kFseek, 0, &kFileErrors, digest, 0, kTooLarge},
      {"CalcFileMD5", Call::kFtell, 0, &kFileErrors, digest, 0, kTooLarge},
      {"CalcFileMD5", Call::kFerror, 0, &kFileErrors, digest, 0, kNotOpen},
      {"CalcFileMD5", Call::kFclose, 0, &kFileErrors, digest, 1},
      {"Read_File", Call::kOpen, 0, &kFileErrors, read, -1},
      {"Read_File", Call::kLseek, 0, &kFileErrors, read, -1},
      {"Read_File", Call::kRead, 0, &kFileErrors, read, -1},
      {"Read_File", Call::kClose, 0, &kFileErrors, read, 4},
      {"Write_File", Call::kOpen, 0, &kFileErrors, write, -1},
      {"Write_File", Call::kLseek, 0, &kFileErrors, write, -1},
      {"Write_File", Call::kWrite, 0, &kFileErrors, write, -1},
      {"Write_File", Call::kClose, 0, &kFileErrors, write, 4},
      {"ev_log", Call::kFopen, 0, &kFileErrors, log, 0},
      {"ev_log", Call::kFputs, 0, &kFileErrors, log, 0},
      {"ev_log", Call::kFclose, 0, &kFileErrors, log, 0},
  };
  for (const Refusal& refusal : refusals) {
    try_refusal(refusal, false);
    try_refusal(refusal, true);
  }
}

TEST_F(UtilityFaults, ShortCounts_AreReturnedAsTheyAre) {
  WatchedCalls watched(Fault{Call::kRead, 0, false, stops_after(3)});
  EXPECT_EQ(Read_File(file_.c_str(), bytes_, 0, 10), 3);
  EXPECT_EQ(watched.end().faults_met, 1);
  WatchedCalls watched_write(Fault{Call::kWrite, 0, false, stops_after(2)});
  EXPECT_EQ(Write_File(file_.c_str(), bytes_, 0, 10), 2);
  EXPECT_EQ(watched_write.end().faults_met, 1);
}

TEST_F(UtilityFaults, OutputThatFails_StopsNothing) {
  for (const Outcome& outcome : outcomes_of(Call::kPuts)) {
    for (const Call call : {Call::kPuts, Call::kPrintf, Call::kFputs, Call::kFwrite}) {
      CapturedOutput captured;
      WatchedCalls watched(Fault{call, 0, true, outcome});
      const int32_t dumped = dump_b(bytes_, 12);
      const int32_t titled = _dump("title", bytes_, 12);
      const int met = watched.end().faults_met;
      captured.take();
      const bool shows = call == Call::kPuts;
      EXPECT_EQ(dumped < 0, shows) << name_of(call);
      EXPECT_EQ(titled < 0, shows) << name_of(call);
      EXPECT_EQ(met > 0, shows || call == Call::kPrintf);
    }
  }
}

TEST_F(UtilityFaults, ClockThatCannotBeRead_StillSeeds) {
  WatchedCalls watched(Fault{Call::kGettimeofday, 0, true, fails_with(EFAULT)});
  ev_srand();
  EXPECT_EQ(watched.end().faults_met, 1);
}

}  // namespace
}  // namespace plc_test
