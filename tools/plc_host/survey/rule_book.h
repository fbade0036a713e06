// Counts what the heads of replies hold, and what the guarded build would say of each reply.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/plc_host/survey/probe.h"
#include "tools/plc_host/survey/reply_shape.h"
#include "tools/plc_host/survey/rule_tally.h"
#include "tools/plc_host/survey/survey_record.h"
#include "wire/request.h"

namespace plc_host::survey {

// A request that was sent, and what became of it.
struct Asked {
  plc_sim::Bytes request;
  ProbeReply answer;
  size_t packet = 0;           // the request's first one in the capture
  ReplyShape shape;            // once it is in the rule book
  bool is_unfinished = false;  // so is this: a part of a reply came, where most come whole
  bool is_open = false;        // its status is that of an answer or of a refusal: what follows tells
  bool is_answered() const { return answer.has_come() && !is_unfinished; }
};

class RuleBook {
 public:
  // wait_ms: for each answer.
  RuleBook(HeadCounts& counts, uint32_t wait_ms) : counts_(counts), wait_ms_(wait_ms) {}

  // For the next reply, by what those before it have shown of sequence numbers.
  ReplyWait wait_for(const plc_sim::Bytes& request) const;

  // Gives it its shape. Returns what it shows for the first time in words, for the capture; empty for what was seen
  // before.
  std::string take(Asked& asked);

  // Value replies mostly have so many bytes behind their values.
  bool is_usual_surplus(size_t behind) const;

  // Its head is like that of most replies: a reply that was damaged on its way has another one.
  bool has_usual_head(const Asked& asked) const;

  // A write whose effect is known by now: its status belongs to an answer, or to a refusal.
  void judge_write(const Asked& asked, bool is_done);

  // Bytes 12 and 13 of most answers so far that are no refusal.
  uint16_t status_of_success() const;

  // A name that the controller cannot have got an answer as if it had it.
  void take_false_answer(const Asked& asked);

  // Bytes that came behind the last reply.
  void take_unasked(plc_sim::Bytes bytes);

  // Of everything so far.
  Verdict verdict() const;

  // Replies that were open, as what followed told them.
  std::vector<Asked> take_settled();

  // Puts what several replies show together into the counts. What is open by then is an answer.
  void finish();

 private:
  enum Id { kLength, kSequence, kFunction, kEnd, kStatus, kValueEnd, kRefusal, kWhole, kRuleCount };

  // Of requests that have another number than 0: a reply without a number has that one.
  struct Numbers {
    uint64_t own = 0;
    uint64_t other = 0;
  };

  void note(Id rule, bool holds, const Asked& asked, const std::string& title);
  void note_in(Verdict::Rule& entry, bool holds, const Asked& asked, const std::string& title);
  void note_doubt(Id rule, const Asked& asked, const std::string& title);
  void take_number(const Asked& asked, const plc_sim::Bytes& reply);
  void take_foreign(const Asked& asked);
  void take_behind(const plc_sim::Bytes& bytes);
  bool is_open(plc_sim::RequestKind kind, const Asked& asked) const;
  void settle(bool are_refusals);
  bool take_unfinished(Asked& asked);
  bool is_rare(Id rule) const;
  std::string told_strays() const;
  std::string broken_rules() const;
  Verdict judged() const;
  Verdict::Rule judged_rule(size_t id) const;
  void take_head(const Asked& asked);
  void refuse_by_status(plc_sim::RequestKind kind, Asked& asked) const;
  void judge_part(Asked& asked) const;
  void take_shape(const Asked& asked, const plc_sim::Request& request);
  void take_refusal(const Asked& asked, plc_sim::RequestKind kind);
  void learn_refusal(uint16_t status, bool is_full);
  std::optional<uint32_t> common_surplus() const;
  void take_values(const Asked& asked, const plc_sim::Request& request);
  void note_status(const Asked& asked, const std::string& words);
  RuleTally::Word word_of(size_t id) const;
  bool is_broken(Id rule) const { return word_of(rule) == RuleTally::Word::kBroken; }
  std::string rules_with(RuleTally::Word word) const;
  std::string told_exceptions() const;
  bool tells_refusals(bool looks_at_status) const;

  HeadCounts& counts_;
  uint32_t wait_ms_;
  std::array<Verdict::Rule, kRuleCount> rules_{};
  std::array<Verdict::Rule, kRuleCount> doubts_{};  // replies that break a rule once they are more than a few
  std::array<RuleTally, kRuleCount> tallies_{};
  Subject subject_;               // of the last request
  std::optional<Asked> last_;     // the last reply that was one
  bool has_more_behind_ = false;  // it has
  std::vector<Asked> open_;
  std::vector<Asked> settled_;
  Numbers numbers_;
  std::map<plc_sim::RequestKind, Numbers> numbers_by_kind_;
  std::map<std::pair<uint16_t, std::string>, size_t> statuses_;
  std::map<uint16_t, uint64_t> statuses_done_;
  std::map<plc_sim::RequestKind, std::map<uint16_t, uint64_t>> statuses_by_kind_;  // of what was answered
  std::map<size_t, uint64_t> bytes_behind_;
  std::optional<std::pair<uint16_t, bool>> last_refusal_;  // of a name: its status, and whether it is full
  unsigned refusals_alike_ = 0;                            // in a row
  uint64_t full_refusals_ = 0;                             // with a status
  uint64_t full_refusals_unmarked_ = 0;                    // without
  uint64_t handles_seen_ = 0;                              // resolves and value replies that brought what was asked for
  uint64_t values_seen_ = 0;
  std::string first_seen_;
};

}  // namespace plc_host::survey
