// Every call of the driver that the system can refuse, counted and made to fail on demand: the linker sends the
// driver's calls here first (calls.txt names them).
#pragma once

#include <cstddef>
#include <cstdint>

namespace plc_test {

// One kind of call. Waits and receives of the driver are told apart by what they are for.
enum class Call {
  kAccept,
  kBind,
  kCalloc,
  kClose,
  kConnect,
  kFclose,
  kFcntl,
  kFerror,
  kFopen,
  kFputs,
  kFread,
  kFree,
  kFseek,
  kFstat,
  kFtell,
  kFwrite,
  kGethostbyname,
  kGetsockopt,
  kGettimeofday,
  kListen,
  kLseek,
  kMadvise,
  kMalloc,
  kMmap,
  kMunmap,
  kOpen,
  kPrintf,
  kPuts,
  kRead,
  kRealloc,
  kRecv,
  kRecvDrain,  // of stale input
  kRecvfrom,
  kSelectConnect,  // for a connect to be done
  kSelectDrain,    // not at all
  kSelectReply,    // for a reply
  kSend,
  kSendto,
  kSetsockopt,
  kSigaction,
  kSocket,
  kUsleep,
  kWrite,
};
constexpr size_t kCallKinds = static_cast<size_t>(Call::kWrite) + 1;

const char* name_of(Call call);

// What a call does instead of its work.
struct Outcome {
  enum class Kind {
    kFails,    // its failure value, and this errno; what a failing close would close is closed
    kReturns,  // this value, and nothing is done
    kShort,    // its work for at most this many bytes
  };
  Kind kind;
  int number;
};

inline Outcome fails_with(int error) { return {Outcome::Kind::kFails, error}; }
inline Outcome returns(int value) { return {Outcome::Kind::kReturns, value}; }
inline Outcome stops_after(int bytes) { return {Outcome::Kind::kShort, bytes}; }

// The nth call of a kind (from 0) goes wrong, or all from the nth on.
struct Fault {
  Call call;
  int nth;
  bool from_then_on;
  Outcome outcome;
};

// What the watched thread's calls did. Calls of other threads, and between watches, pass by uncounted.
struct CallWatch {
  int counts[kCallKinds] = {};  // calls by kind
  int faults_met = 0;           // how often a fault happened
  long live_blocks = 0;         // memory taken and not given back
  long open_files = 0;          // streams taken and not given back
  long open_descriptors = 0;    // sockets and descriptors of files taken and not given back
  int inheritable = 0;          // sockets and files that a program started by the host would have, when they were taken

  int count(Call call) const { return counts[static_cast<size_t>(call)]; }
};

// What the last madvise was asked.
struct Advice {
  uintptr_t first;
  uintptr_t end;
  int advice;
};
Advice& last_advice();

// Counts this thread's calls from here to its end, and makes these faults happen. One at a time.
class WatchedCalls {
 public:
  WatchedCalls() : WatchedCalls(nullptr, 0) {}
  explicit WatchedCalls(const Fault& fault) : WatchedCalls(&fault, 1) {}
  WatchedCalls(const Fault* faults, size_t count);
  WatchedCalls(const WatchedCalls&) = delete;
  WatchedCalls& operator=(const WatchedCalls&) = delete;
  ~WatchedCalls() { end(); }

  // Ends the watch; what it saw.
  const CallWatch& end();

 private:
  static constexpr size_t kMostFaults = 2;

 public:
  // The fault that is due for this call, or null. Counts the call.
  const Outcome* note(Call call);

 private:
  friend CallWatch* current_watch();
  CallWatch seen_;
  Fault faults_[kMostFaults] = {};
  size_t fault_count_ = 0;
};

}  // namespace plc_test
