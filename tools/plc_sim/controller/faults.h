// Faults by name: when one is due, what it does to a reply, and how often each has happened.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/plc_sim/controller/session.h"
#include "wire/request.h"

namespace plc_sim {

enum class FaultKind {
  kDelay,
  kNoReply,
  kClose,
  kReset,
  kCut,
  kCloseAfter,
  kResetAfter,
  kSplit,
  kDrip,
  kStale,
  kTrailing,
  kDuplicate,
  kOversize,
  kGarbage,
  kWrongSequence,
  kForeign,
  kRefuse,
  kStatus,
  kShort,
  kSlowAccept,
  kRefuseAccept,
  kGone,
};

struct Fault {
  FaultKind kind = FaultKind::kDelay;
  std::vector<unsigned> arguments;
  unsigned times = 1;  // 0: always
  unsigned after = 0;  // matching replies that pass first
  unsigned every = 1;  // then each one of so many
  std::optional<RequestKind> on;
  unsigned seen = 0;

  bool concerns_accept() const;
};

struct FaultInfo {
  FaultKind kind;
  const char* name;
  const char* arguments;  // as help shows them
  size_t min_arguments;
  size_t max_arguments;
  const char* help;
};

const std::vector<FaultInfo>& known_faults();
const char* name_of(FaultKind kind);

// "split 20 50 times=3 on=read after=1 every=2"; throws Mistake with the reason.
Fault parse_fault(std::string_view text);

// "split 20 50": what happens each time.
std::string describe_once(const Fault& fault);

// "split 20 50, 3 times more, on read".
std::string describe(const Fault& fault);

enum class AfterDelivery { kKeepOpen, kClose, kReset };

// What is sent for one request: pieces, each after a wait, and what then becomes of the connection.
struct Delivery {
  struct Piece {
    unsigned wait_ms;
    Bytes bytes;
  };
  std::vector<Piece> pieces;
  AfterDelivery then = AfterDelivery::kKeepOpen;
  ReplyDamage damage = ReplyDamage::kNone;
};

// The status of a refusal.
uint16_t refusal_of(const Fault& fault);

Delivery deliver_whole(Bytes reply);
Delivery deliver_with(const Fault& fault, Bytes reply);

constexpr size_t kMostArmedFaults = 1000;

// The faults that are armed, in the order in which they were, and the counts of those that happened.
class FaultBook {
 public:
  // False when as many as there is room for are armed already.
  bool arm(Fault fault);
  void clear() { armed_.clear(); }
  const std::vector<Fault>& armed() const { return armed_; }

  // The fault that is due for a reply of this kind, if any; counts it as happened.
  std::optional<Fault> take(RequestKind kind);

  void count(FaultKind kind) { ++counts_[kind]; }
  unsigned count_of(FaultKind kind) const;

 private:
  std::vector<Fault> armed_;
  std::map<FaultKind, unsigned> counts_;
};

}  // namespace plc_sim
