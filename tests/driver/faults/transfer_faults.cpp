// The expectations of transfer_faults.h.
#include "tests/driver/faults/transfer_faults.h"

#include "tests/support/driver_build.h"

#include <algorithm>
#include <cerrno>
#include <regex>

namespace plc_test {
namespace {

constexpr const char* kServer = "server ip = 127.0.0.1\r\n";
constexpr const char* kBuild = "build tag table for PLC7F000001_0.csv\r\n";
constexpr const char* kOpenFailed = "[PLC] open PLC7F000001_0.csv file failed, at line: N\r\n";
constexpr const char* kSendError = "send error\n";

bool is_write(Transfer transfer) { return transfer == Transfer::kWrite || transfer == Transfer::kBitWrite; }

std::string init_fail(Transfer transfer) {
  return is_write(transfer) ? "ev_plc_write init fail\r\n" : "ev_plc_read init fail\r\n";
}

std::string text(std::initializer_list<std::string> parts) {
  std::string all;
  for (const std::string& part : parts) all += part;
  return all;
}

Expected unharmed() { return {PLC_OK, text({kServer, kBuild})}; }

// The connect reports this line; the directory is tried on no socket at all.
Expected no_connection(Transfer transfer, const char* line) {
  return {PLC_NO_CONNECT, text({kServer, line, kSendError, init_fail(transfer)})};
}

// The directory ends with this line and closes the socket; the transfer then has none.
Expected lost_in_directory(const char* line) { return {PLC_FAILED, text({kServer, line, kBuild, kSendError})}; }

Expected lost_in_transfer(const char* line) { return {PLC_FAILED, text({kServer, kBuild, line})}; }

Expected not_loaded(Transfer transfer, const std::string& line) {
  const std::string end = is_write(transfer) ? "build tag table failed!\n" : "build tag table failed!";
  return {PLC_FAILED, text({kServer, kBuild, line, end})};
}

Expected not_kept(Transfer transfer, const std::string& line) {
  const std::string end = is_write(transfer) ? "add_tagtable failed!\r\n" : "add_tagtable failed!";
  return {PLC_FAILED, text({kServer, kBuild, line, end})};
}

Expected lost_exchange(int nth, const char* line) {
  return nth < kDirectoryExchanges ? lost_in_directory(line) : lost_in_transfer(line);
}

// The least length of a reply to each exchange of a transfer: the single read looks at its values alone, a scalar word
// wants 13 bytes of acknowledgment, a batch a handle for each name and all its values.
std::vector<int> least_replies(Transfer transfer) {
  switch (transfer) {
    case Transfer::kRead:
      return {1, 14};
    case Transfer::kWrite:
      return {1, 13};
    case Transfer::kBitWrite:
      return {1, 1, 1};
    case Transfer::kBatch:
      return {25, 18};
  }
  return {};
}

// Replies of this many bytes from the nth exchange on, or for the nth alone.
Expected short_replies(Transfer transfer, const Fault& fault) {
  const std::vector<int> least = least_replies(transfer);
  const int last = fault.from_then_on ? static_cast<int>(least.size()) - 1 : fault.nth - kDirectoryExchanges;
  for (int i = std::max(0, fault.nth - kDirectoryExchanges); i <= last; ++i) {
    if (fault.outcome.number < least[static_cast<size_t>(i)]) {
      const bool says_so = transfer == Transfer::kRead && i == 1;
      return {transfer == Transfer::kBatch ? uint32_t{PLC_NO_CONNECT} : uint32_t{PLC_FAILED},
              text({kServer, kBuild, says_so ? "read data err!\r\n" : ""})};
    }
  }
  return unharmed();
}

Expected failing_receive(Transfer transfer, const Fault& fault) {
  if (fault.outcome.kind != Outcome::Kind::kFails) return short_replies(transfer, fault);
  // A directory that could not be received leaves a connection with an old one.
  if (fault.nth < kDirectoryExchanges && !fault.from_then_on) return unharmed();
  return {PLC_FAILED, text({kServer, kBuild}), 1};
}

Expected failing_calloc(Transfer transfer, int nth) {
  constexpr const char* kLines[] = {"malloc tag_str failed", "malloc indexedtag_table failed",
                                    "malloc indextag failed"};
  return nth < 3 ? not_loaded(transfer, kLines[nth]) : not_kept(transfer, "malloc plc_tag failed");
}

// A file is read in pieces. One that gives nothing has no lines; one that breaks off is not kept.
Expected failing_file_read(Transfer transfer, const Fault& fault) {
  if (fault.outcome.kind == Outcome::Kind::kShort) return unharmed();
  if (fault.nth == 0) return not_loaded(transfer, "");
  if (fault.outcome.kind == Outcome::Kind::kReturns) return unharmed();
  return not_loaded(transfer, "[PLC] tag file PLC7F000001_0.csv rejected, line 0: it cannot be read to its end\r\n");
}

Expected expect_of_contract(Transfer transfer, const Fault& fault) {
  switch (fault.call) {
    case Call::kSocket:
    case Call::kConnect:
      return lost_in_directory(kSendError);
    case Call::kSelectConnect:
      return no_connection(transfer,
                           fault.outcome.kind == Outcome::Kind::kFails ? "select error\r\n" : "select time out \r\n");
    case Call::kGetsockopt:
      return no_connection(transfer, "getsockopt error\r\n");
    case Call::kSend:
      return fault.outcome.kind == Outcome::Kind::kShort ? unharmed() : lost_exchange(fault.nth, kSendError);
    case Call::kSelectReply:
      return lost_exchange(fault.nth, fault.outcome.kind == Outcome::Kind::kFails ? "--err--\r\n" : "--timeout--\r\n");
    case Call::kRecv:
      return failing_receive(transfer, fault);
    case Call::kOpen:
    case Call::kFstat:
      return not_loaded(transfer, kOpenFailed);
    case Call::kRead:
      return failing_file_read(transfer, fault);
    case Call::kClose:
      return not_loaded(transfer, "Close csv file error!!!\r\n");
    case Call::kRealloc:
      return not_loaded(transfer, "malloc tag_str failed");
    case Call::kCalloc:
      return failing_calloc(transfer, fault.nth);
    case Call::kMalloc:
      return not_kept(transfer, "malloc name failed");
    case Call::kFcntl:
    case Call::kSetsockopt:
    case Call::kSelectDrain:
    case Call::kUsleep:
    case Call::kPrintf:
    case Call::kPuts:
    case Call::kFputs:
    case Call::kFwrite:
    case Call::kMadvise:
      return unharmed();
    default:
      ADD_FAILURE() << "no expectation for " << name_of(fault.call);
      return unharmed();
  }
}

constexpr const char* kNoDirectory = "[PLC] guard: no connection without the directory of programs\r\n";

// What a connect that fails at once says, and the first send on its socket.
std::string refused_connect(int error) {
  switch (error) {
    case EINPROGRESS:  // looks like one that is under way, and its socket like one whose other end has gone
      return "[PLC] guard: connection lost, error 107\r\n";
    case ECONNREFUSED:
      return std::string("[PLC] guard: connect refused\r\n") + kSendError;
    case EHOSTUNREACH:
    case ENETUNREACH:
      return std::string("[PLC] guard: no route to the controller\r\n") + kSendError;
    default:
      return "[PLC] guard: connect failed, error " + std::to_string(error) + "\r\n" + kSendError;
  }
}

// Without a whole directory there is no connection.
Expected guarded_connect(Transfer transfer, const std::string& lines) {
  return {PLC_NO_CONNECT, text({kServer, lines, kNoDirectory, init_fail(transfer)})};
}

Expected guarded_exchange(Transfer transfer, int nth, const std::string& line) {
  if (nth < kDirectoryExchanges) return guarded_connect(transfer, line);
  return {PLC_FAILED, text({kServer, kBuild, line})};
}

// A receive that gives less than there is costs another one.
Expected guarded_receive(Transfer transfer, const Fault& fault) {
  switch (fault.outcome.kind) {
    case Outcome::Kind::kFails:
      return guarded_exchange(transfer, fault.nth,
                              "[PLC] guard: connection lost, error " + std::to_string(fault.outcome.number) + "\r\n");
    case Outcome::Kind::kReturns:
      return guarded_exchange(transfer, fault.nth, "[PLC] guard: connection closed by the controller\r\n");
    default:
      return unharmed();
  }
}

Expected expect_of_guarded(Transfer transfer, const Fault& fault) {
  switch (fault.call) {
    case Call::kSocket:
      return guarded_connect(transfer, text({"[PLC] guard: connect failed, error 9\r\n", kSendError}));
    case Call::kConnect:
      return guarded_connect(transfer, refused_connect(fault.outcome.number));
    case Call::kSend:
      // The controller answers what it was sent, which lacks the command.
      return guarded_exchange(
          transfer, fault.nth,
          fault.outcome.kind == Outcome::Kind::kShort ? "[PLC] guard: reply to another request\r\n" : kSendError);
    case Call::kSelectReply:
      return guarded_exchange(transfer, fault.nth,
                              fault.outcome.kind == Outcome::Kind::kFails ? "--err--\r\n" : "--timeout--\r\n");
    case Call::kRecv:
      return guarded_receive(transfer, fault);
    default:
      return expect_of_contract(transfer, fault);
  }
}

std::vector<Outcome> failures(std::initializer_list<int> errors) {
  std::vector<Outcome> outcomes;
  for (const int error : errors) outcomes.push_back(fails_with(error));
  return outcomes;
}

std::vector<Outcome> operator+(std::vector<Outcome> all, const std::vector<Outcome>& more) {
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

std::vector<Outcome> network_outcomes(Call call) {
  switch (call) {
    case Call::kSocket:
      return failures({EACCES, EAFNOSUPPORT, EINVAL, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPROTONOSUPPORT});
    case Call::kConnect:
      return failures({EACCES, EPERM, EADDRINUSE, EADDRNOTAVAIL, EAFNOSUPPORT, EAGAIN, EALREADY, EBADF, ECONNREFUSED,
                       ECONNRESET, EFAULT, EHOSTUNREACH, EINPROGRESS, EINTR, EISCONN, ENETUNREACH, ENOTSOCK, EPROTOTYPE,
                       ETIMEDOUT});
    case Call::kFcntl:
      return failures({EACCES, EAGAIN, EBADF, EINTR, EINVAL, EPERM});
    case Call::kSetsockopt:
    case Call::kGetsockopt:
      return failures({EBADF, EDOM, EFAULT, EINVAL, ENOBUFS, ENOMEM, ENOPROTOOPT, ENOTSOCK});
    case Call::kSelectConnect:
    case Call::kSelectDrain:
    case Call::kSelectReply:
      return failures({EBADF, EINTR, EINVAL, ENOMEM}) + std::vector<Outcome>{returns(0)};
    case Call::kSend:
      return failures({EACCES, EAGAIN, EBADF, ECONNRESET, EDESTADDRREQ, EFAULT, EHOSTUNREACH, EINTR, EINVAL, EISCONN,
                       EMSGSIZE, ENETUNREACH, ENOBUFS, ENOMEM, ENOTCONN, ENOTSOCK, EOPNOTSUPP, EPIPE, ETIMEDOUT}) +
             by_build(std::vector<Outcome>{stops_after(1)}, {}) + std::vector<Outcome>{stops_after(11)};
    case Call::kRecv:
      return failures({EAGAIN, EBADF, ECONNREFUSED, ECONNRESET, EFAULT, EHOSTUNREACH, EINTR, EINVAL, ENOMEM, ENOTCONN,
                       ENOTSOCK, ETIMEDOUT}) +
             std::vector<Outcome>{returns(0),      stops_after(1),  stops_after(12), stops_after(13), stops_after(14),
                                  stops_after(17), stops_after(18), stops_after(24), stops_after(25)};
    default:
      return {};
  }
}

}  // namespace

std::vector<Outcome> outcomes_of(Call call) {
  switch (call) {
    case Call::kOpen:
      return failures({EACCES, EAGAIN, EINTR, EINVAL, EIO, EISDIR, ELOOP, EMFILE, ENAMETOOLONG, ENFILE, ENOENT, ENOMEM,
                       ENOTDIR, ENXIO, EOVERFLOW, EPERM, ETXTBSY});
    case Call::kFstat:
      return failures({EACCES, EBADF, EFAULT, EIO, ENOMEM, EOVERFLOW});
    case Call::kRead:
      return failures({EAGAIN, EBADF, EINTR, EIO, EISDIR, ENOMEM, ENXIO}) +
             std::vector<Outcome>{returns(0), stops_after(1)};
    case Call::kClose:
      return failures({EBADF, EDQUOT, EFBIG, EINTR, EIO, ENOSPC});
    case Call::kCalloc:
    case Call::kMalloc:
    case Call::kRealloc:
      return failures({ENOMEM});
    case Call::kMadvise:
      return failures({EACCES, EAGAIN, EBADF, EINVAL, EIO, ENOMEM, EPERM});
    case Call::kUsleep:
      return failures({EINTR, EINVAL});
    case Call::kPrintf:
    case Call::kPuts:
    case Call::kFputs:
    case Call::kFwrite:
      return failures({EAGAIN, EBADF, EFBIG, EINTR, EIO, ENOMEM, ENOSPC, EPIPE});
    default:
      return network_outcomes(call);
  }
}

bool can_fail(Call call) { return call != Call::kFree && call != Call::kFerror; }

bool prints(Call call) {
  return call == Call::kPrintf || call == Call::kPuts || call == Call::kFputs || call == Call::kFwrite;
}

bool is_socket_without_flags(const Fault& fault) {
  return fault.call == Call::kSocket && fault.outcome.number == EINVAL && !fault.from_then_on;
}

Expected expect_fresh(Transfer transfer, const Fault& fault) {
  if (is_socket_without_flags(fault)) return unharmed();
  return expects_contract() ? expect_of_contract(transfer, fault) : expect_of_guarded(transfer, fault);
}

std::string without_source_lines(std::string text) {
  return std::regex_replace(text, std::regex("at line: [0-9]+"), "at line: N");
}

}  // namespace plc_test
