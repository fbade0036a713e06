// What the guarded build would say of a controller, by all of its replies.
#include <algorithm>

#include "base/text.h"
#include "tools/plc_host/survey/rule_book.h"

namespace plc_host::survey {
namespace {

using Usability = Verdict::Usable;

constexpr char kWholeLength[] = "length and complement are right in replies that come to their end";
constexpr const char* kRuleWords[] = {"length and complement are right, and all of the reply comes",
                                      "the sequence number is the request's",
                                      "class and command are the request's",
                                      "nothing comes behind a reply",
                                      "the status of what is not refused is 0",
                                      "value replies end with their values",
                                      "a refused name is told from an answered one",
                                      "replies have all that was asked for"};

std::string counted_replies(uint64_t count) { return std::to_string(count) + (count == 1 ? " reply" : " replies"); }

Usability usable_without(bool status, bool value_end) {
  if (!status && !value_end) return Usability::kWithoutBoth;
  if (!status) return Usability::kWithoutStatus;
  return value_end ? Usability::kYes : Usability::kWithoutValueEnd;
}

constexpr char kNothingRead[] = "No variable was both named and read: nothing can be said.";
constexpr char kTooFew[] = "Too few replies came to tell whether this holds: ";
constexpr char kTooFewRemedy[] =
    ". Either the controller answers so, or the tag file declares a variable with another size than the controller "
    "has. "
    "Survey again, with the tag files of more variables.";
constexpr char kAllKeep[] = "Every reply keeps the rules of the guarded build.";

std::string words_of(Usability usable) {
  switch (usable) {
    case Usability::kYes:
      return kAllKeep;
    case Usability::kWithoutStatus:
      return "Answers that are no refusal have another status than 0: the guarded build has to be built without its "
             "check of the status. A write that the controller refuses at its end is then taken for done: read it "
             "back.";
    case Usability::kWithoutValueEnd:
      return "Bytes follow the values: the guarded build has to be built without its check of where value replies end. "
             "It "
             "then takes these bytes for a part of dates, times, and texts without a zero at their end.";
    case Usability::kWithoutBoth:
      return "Answers that are no refusal have another status than 0, and bytes follow the values: the guarded build "
             "has to be built without these two checks. A write that the controller refuses at its end is then taken "
             "for done: read it back; and the bytes are taken for a part of dates, times, and texts without a zero at "
             "their end.";
    default:
      break;
  }
  return {};
}

constexpr char kUntoldRefusal[] =
    "A refused name gets a record of zeros that nothing tells from an answer: the guarded build would take area 00, "
    "address 00000000 for the variable, read what answers there and write there.";

constexpr char kUntoldByStatus[] =
    ": the guarded build has to be built without its check of the status. A refused name gets a record of zeros here, "
    "which nothing but the status tells from an answer: that build would read and write area 00, address 00000000.";

// "12 replies to read have status 0005, and refuse nothing"
std::string other_statuses(const HeadCounts& counts) {
  std::string text;
  for (const HeadCounts::Status& one : counts.statuses) {
    if (!is_odd_answer(one)) continue;
    text.append(text.empty() ? "" : "; ").append(counted_replies(one.count)).append(" to ").append(one.request);
    text.append(" with status ").append(plc_base::hexadecimal(one.status, 4).substr(2));
  }
  return text + ", and these refuse nothing";
}

}  // namespace

bool RuleBook::tells_refusals(bool looks_at_status) const {
  return full_refusals_unmarked_ == 0 && (looks_at_status || full_refusals_ == 0);
}

// " 1 of 526 replies was none of ours. 1 reply was not whole within 1000 ms." Only where the wait was over it is told.
std::string RuleBook::told_strays() const {
  const auto was = [](uint64_t count) { return count == 1 ? " was " : " were "; };
  std::string told;
  if (counts_.foreign > 0) {
    const uint64_t strays = counts_.foreign + strays_taken(counts_);
    told += " " + std::to_string(strays) + " of " +
            counted_replies(counts_.replies + counts_.unfinished + counts_.foreign) + was(strays) + "none of ours.";
  }
  if (counts_.late() > 0) {
    told += " " + counted_replies(counts_.late()) + was(counts_.late()) + "not whole within " +
            std::to_string(wait_ms_) + " ms.";
  }
  if (counts_.headless > 0) {
    told +=
        " " + counted_replies(counts_.headless) +
        (counts_.headless == 1 ? " has no head that tells where it ends" : " have no head that tells where they end") +
        ", and nothing followed within " + std::to_string(kQuietMs) + " ms.";
  }
  if (counts_.cut_off > 0) {
    told += " " + counted_replies(counts_.cut_off) + was(counts_.cut_off) + "cut off by the end of the connection.";
  }
  return told;
}

// What is no verdict on the controller, where it is usable or was found to be something else by other replies.
std::string RuleBook::told_exceptions() const {
  std::string told;
  uint64_t rare = 0;
  uint64_t variables = 0;
  for (size_t id = 0; id < kRuleCount; ++id) {
    if (word_of(id) == RuleTally::Word::kRarely) rare = std::max(rare, rules_[id].broken);
    if (word_of(id) == RuleTally::Word::kByVariables) variables = std::max(variables, tallies_[id].culprits());
  }
  if (rare > 0) {
    told += " " + std::to_string(rare) + " of " + counted_replies(counts_.replies) +
            (rare == 1 ? " does not keep this: " : " do not keep this: ") + rules_with(RuleTally::Word::kRarely) +
            ". A call of the guarded build that meets such a reply fails, and gives no value.";
  }
  if (counts_.directories_refused > 0 && !is_directory_refused(counts_)) {
    told += " The directory of programs was refused " + directory_refusals(counts_) + ", status " +
            plc_base::hexadecimal(counts_.directory_status.value_or(0), 4) +
            ": the guarded build does not connect when it meets this.";
  }
  if (variables > 0) {
    told += " The replies for " + plc_base::plural(variables, "variable") +
            " do not keep this: " + rules_with(RuleTally::Word::kByVariables) + ".";
  }
  return told;
}

Verdict RuleBook::verdict() const {
  Verdict verdict = judged();
  const std::string strays = is_foreign(counts_) ? "" : told_exceptions() + told_strays();
  if (!strays.empty() && verdict.because == kAllKeep) {
    verdict.because = "Every other reply keeps the rules of the guarded build.";
  }
  verdict.because += strays;
  return verdict;
}

Verdict::Rule RuleBook::judged_rule(size_t id) const {
  Verdict::Rule rule = rules_[id];
  rule.rule = kRuleWords[id];
  if (id == kLength && doubts_[id].broken > 0) rule.rule = kWholeLength;
  // A few unfinished replies make the rule one on those that came to their end.
  if (id != kLength || !is_rare(kLength)) {
    rule.broken += doubts_[id].broken;
    rule.evidence.insert(rule.evidence.end(), doubts_[id].evidence.begin(), doubts_[id].evidence.end());
    rule.rule = kRuleWords[id];
  }
  const RuleTally::Word word = word_of(id);
  rule.is_known = word != RuleTally::Word::kNotKnown;
  rule.holds = rule.is_known && word != RuleTally::Word::kBroken && rule.kept > 0;
  return rule;
}

RuleTally::Word RuleBook::word_of(size_t id) const {
  const auto rule = static_cast<Id>(id);
  if (!is_rare(rule)) return RuleTally::Word::kBroken;
  const bool is_counted_otherwise = id == kSequence || id == kRefusal;
  if (!is_counted_otherwise) {
    const RuleTally::Word word = tallies_[id].judge();
    // What lacks something is no verdict on the form of replies.
    return id == kWhole && word == RuleTally::Word::kNotKnown ? RuleTally::Word::kRarely : word;
  }
  return rules_[id].broken == 0 ? RuleTally::Word::kKept : RuleTally::Word::kBroken;
}

std::string RuleBook::rules_with(RuleTally::Word word) const {
  std::string rules;
  for (size_t id = 0; id < kRuleCount; ++id) {
    if (word_of(id) == word) rules.append(rules.empty() ? "" : "; ").append(kRuleWords[id]);
  }
  return rules;
}

// Those that every build demands; "" where all of them hold.
std::string RuleBook::broken_rules() const {
  std::string broken;
  for (const Id id : {kLength, kSequence, kFunction, kEnd}) {
    if (is_broken(id)) broken.append(broken.empty() ? "" : "; ").append(kRuleWords[id]);
  }
  return broken;
}

Verdict RuleBook::judged() const {
  Verdict verdict;
  for (size_t id = 0; id < kRuleCount; ++id) verdict.rules.push_back(judged_rule(id));
  if (is_foreign(counts_)) {
    verdict.because = "What answers there does not speak this protocol: no reply has the form of one.";
    return verdict;
  }
  if (counts_.replies == 0) {
    verdict.because = kNothingRead;
    return verdict;
  }
  if (const std::string broken = broken_rules(); !broken.empty()) {
    verdict.usable = Usability::kNotUsable;
    verdict.because = "Does not hold: " + broken + ". The guarded build would fail where this does not hold.";
    return verdict;
  }
  if (is_directory_refused(counts_)) {
    verdict.usable = Usability::kNotUsable;
    verdict.because = "The directory of programs is refused, status " +
                      plc_base::hexadecimal(counts_.directory_status.value_or(0), 4) +
                      ": the guarded build does not connect then.";
    return verdict;
  }
  if (!tells_refusals(!is_broken(kStatus))) {
    verdict.usable = Usability::kNotUsable;
    verdict.because = full_refusals_unmarked_ > 0 ? kUntoldRefusal : other_statuses(counts_) + kUntoldByStatus;
    return verdict;
  }
  if (handles_seen_ == 0 || values_seen_ == 0) {
    verdict.because = kNothingRead;
    return verdict;
  }
  if (const std::string unknown = rules_with(RuleTally::Word::kNotKnown); !unknown.empty()) {
    verdict.because = kTooFew + unknown + kTooFewRemedy;
    return verdict;
  }
  verdict.usable = usable_without(!is_broken(kStatus), !is_broken(kValueEnd));
  verdict.because = !is_broken(kWhole) || verdict.usable != Usability::kYes
                        ? words_of(verdict.usable)
                        : "Replies keep the form that the guarded build demands, but " +
                              std::to_string(rules_[kWhole].broken) +
                              " of them lacked something that was asked for: such a transfer fails.";
  return verdict;
}

}  // namespace plc_host::survey
