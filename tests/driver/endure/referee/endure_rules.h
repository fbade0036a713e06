// The rules that no fault excuses, and the count of what broke them.
//
// A write that the controller carries out belongs to the call that sent it, now or later: it may give the elements of
// that call the values of that call, and nothing else. The other bits of a word that is read, changed and given back
// may be given values that they had between the call's beginning and the sending.
#pragma once

#include <array>
#include <memory>

#include "tests/driver/endure/referee/endure_memory.h"

namespace plc_endure {

enum class Rule { kReadWrong, kWriteMissing, kWriteAstray, kWriteTwice, kWriteDenied, kHarm, kFailedWithoutFault };
constexpr size_t kRules = 7;
const char* name_of(Rule rule);

// A word, or bits of one, that a call writes.
struct Target {
  uint32_t cell = 0;
  uint16_t mask = 0xFFFF;
  uint16_t value = 0;
  bool is_done = false;    // carried out while the call was under way
  uint32_t part = 0;       // of the call: which of its writes
  uint32_t times = 0;      // carried out in all
  bool is_denied = false;  // whoever made the call was told that it was not carried out
};

// A call that writes; without targets one that reads.
struct WriteCall {
  uint64_t number = 0;
  bool is_over = false;
  bool rewrites_word = false;   // the one target's word is read and given back
  std::vector<Target> targets;  // by cell
  // The target of a write to this cell, marked as carried out once more; null when there is none with this value.
  Target* take(uint32_t cell, uint16_t mask, uint16_t value);
};

// What the host meant when it sent a request.
struct Meaning {
  std::shared_ptr<WriteCall> call;
  uint16_t seen_ones = 0;  // of the word that is given back: bits that were 1, and that were 0, during the call
  uint16_t seen_zeros = 0;
};

class Rules {
 public:
  explicit Rules(const Memory& memory) : memory_(memory) {}

  void begin_call(std::shared_ptr<WriteCall> call) { call_ = std::move(call); }
  std::shared_ptr<const void> meaning_now() const;
  // The bits of the word that the mask has are given this value for a request of that meaning.
  void carried_out(const Meaning& meaning, uint32_t cell, uint16_t mask, uint16_t value);
  // The call that writes returned 0.
  void end_write();
  // The call is over, whatever it returned.
  void end_call();

  void count(Rule rule, const std::string& text);
  unsigned long count_of(Rule rule) const { return counts_[static_cast<size_t>(rule)]; }
  unsigned long total() const;
  // The first that was counted, empty if none.
  const std::string& first() const { return first_; }
  unsigned long late_writes() const { return late_writes_; }
  unsigned long writes_carried_out() const { return carried_out_; }

 private:
  const Memory& memory_;
  std::shared_ptr<WriteCall> call_;
  std::array<unsigned long, kRules> counts_{};
  unsigned long late_writes_ = 0;  // words that were written when their call was over
  unsigned long carried_out_ = 0;
  std::string first_;
};

}  // namespace plc_endure
