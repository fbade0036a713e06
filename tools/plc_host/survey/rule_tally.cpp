// Judges a rule by who breaks it.
#include "tools/plc_host/survey/rule_tally.h"

#include <algorithm>
#include <cmath>

#include "wire/names.h"

namespace plc_host::survey {
namespace {

constexpr uint64_t kRareAmong = 10;        // variables: more than one of so many is no chance
constexpr uint64_t kFewVariables = 2;      // of which one cannot be told from the controller
constexpr uint64_t kShareAlone = 5;        // more than a fifth of the replies of the only kind that breaks
constexpr uint64_t kLeastAlone = 2;        // and at least so many
constexpr uint64_t kShareAmongOthers = 2;  // more than half of them, where other kinds break too
constexpr uint64_t kLeastAmongOthers = 3;

std::string place_text(const plc_sim::Reference& reference) {
  return std::to_string(reference.handle.area) + "/" + std::to_string(reference.handle.address) + "/" +
         std::to_string(reference.size);
}

}  // namespace

Subject subject_of(const plc_sim::Request& request) {
  Subject subject;
  subject.kind = request.kind;
  for (const plc_sim::NameBlock& block : request.blocks) {
    const std::string scope = block.is_local ? std::to_string(block.program) + "/" : "";
    for (const std::u16string& name : block.names) subject.parts.insert(scope + plc_sim::utf8_from_utf16(name));
  }
  for (const plc_sim::Reference& reference : request.references) subject.parts.insert(place_text(reference));
  return subject;
}

// The lower bound of the fraction's score interval.
bool is_surely_often(uint64_t broken, uint64_t all) {
  constexpr double kOften = 0.1;
  constexpr double kSigmas = 1.96;
  if (all == 0) return false;
  const auto count = static_cast<double>(all);
  const double seen = static_cast<double>(broken) / count;
  const double squared = kSigmas * kSigmas / count;
  const double width = kSigmas * std::sqrt((seen * (1 - seen) + squared / 4) / count);
  return (seen + squared / 2 - width) / (1 + squared) > kOften;
}

void RuleTally::note(const Subject& subject, bool is_kept) {
  OfKind& kind = kinds_[subject.kind];
  ++(is_kept ? kind.kept : kind.broken);
  const bool is_alone = subject.parts.size() == 1;
  for (const std::string& part : subject.parts) {
    Count& count = kind.parts[part];
    ++(is_kept ? count.kept : count.broken);
    if (!is_alone) continue;
    count.is_asked_alone = true;
    if (!is_kept) ++count.broken_alone;
  }
  if (!is_kept && !is_alone) ++kind.broken_together[subject.parts];
}

void RuleTally::turn(const Subject& subject) {
  OfKind& kind = kinds_[subject.kind];
  --kind.kept;
  for (const std::string& part : subject.parts) --kind.parts[part].kept;
  note(subject, false);
}

// It breaks the rule each time, and by itself too.
bool RuleTally::is_culprit(const Count& count) {
  constexpr uint64_t kTwice = 2;
  return count.kept == 0 && count.broken_alone > 0 && count.broken >= kTwice;
}

uint64_t RuleTally::culprits_of(const OfKind& kind) {
  const auto breaks = [](const auto& part) { return is_culprit(part.second); };
  return static_cast<uint64_t>(std::count_if(kind.parts.begin(), kind.parts.end(), breaks));
}

uint64_t RuleTally::culprits() const {
  uint64_t most = 0;
  for (const auto& [kind, counts] : kinds_) most = std::max(most, culprits_of(counts));
  return most;
}

RuleTally::Word RuleTally::word_of_parts(const OfKind& kind) {
  const auto is_alone = [](const auto& part) { return part.second.is_asked_alone; };
  const auto asked = static_cast<uint64_t>(std::count_if(kind.parts.begin(), kind.parts.end(), is_alone));
  const uint64_t culprits = culprits_of(kind);
  if (culprits == 0) return Word::kKept;
  if (asked <= kFewVariables) return Word::kNotKnown;
  return culprits > 1 && culprits * kRareAmong > asked ? Word::kBroken : Word::kByVariables;
}

// Broken replies that no culprit explains.
uint64_t RuleTally::unexplained_of(const OfKind& kind) {
  uint64_t broken = 0;
  for (const auto& [name, count] : kind.parts) broken += is_culprit(count) ? 0 : count.broken_alone;
  for (const auto& [parts, count] : kind.broken_together) {
    const bool is_explained = std::any_of(parts.begin(), parts.end(),
                                          [&kind](const std::string& part) { return is_culprit(kind.parts.at(part)); });
    broken += is_explained ? 0 : count;
  }
  return broken;
}

// What happens now and then meets one kind of request more often than another, as requests follow one another.
RuleTally::Word RuleTally::word_of_others(const OfKind& kind, bool others_break) {
  constexpr uint64_t kEnoughKept = 2;
  const uint64_t broken = unexplained_of(kind);
  const uint64_t all = kind.kept + broken;
  if (broken == 0) return Word::kKept;
  const uint64_t least = others_break ? kLeastAmongOthers : kLeastAlone;
  const uint64_t share = others_break ? kShareAmongOthers : kShareAlone;
  if (broken >= least && broken * share > all && is_surely_often(broken, all)) return Word::kBroken;
  return others_break || kind.kept >= kEnoughKept ? Word::kRarely : Word::kNotKnown;
}

bool RuleTally::others_break(plc_sim::RequestKind but) const {
  return std::any_of(kinds_.begin(), kinds_.end(),
                     [but](const auto& one) { return one.first != but && unexplained_of(one.second) > 0; });
}

bool RuleTally::is_mostly_unexplained() const {
  uint64_t unexplained = 0;
  uint64_t broken = 0;
  for (const auto& [kind, counts] : kinds_) {
    unexplained += unexplained_of(counts);
    broken += counts.broken;
  }
  return unexplained * 2 > broken;
}

// Of all replies that no culprit explains.
bool RuleTally::is_often_broken() const {
  uint64_t broken = 0;
  uint64_t all = 0;
  for (const auto& [kind, counts] : kinds_) {
    broken += unexplained_of(counts);
    all += counts.kept + unexplained_of(counts);
  }
  return broken >= kLeastAmongOthers && is_surely_often(broken, all);
}

// More than half of all replies, to requests of several kinds: however few variables there are.
bool RuleTally::is_broken_everywhere() const {
  uint64_t kept = 0;
  uint64_t broken = 0;
  uint64_t kinds = 0;
  for (const auto& [kind, counts] : kinds_) {
    kept += counts.kept;
    broken += counts.broken;
    kinds += counts.broken > 0 ? 1 : 0;
  }
  return kinds > 1 && broken > kept;
}

RuleTally::Word RuleTally::judge() const {
  if (is_broken_everywhere() || is_often_broken()) return Word::kBroken;
  Word worst = Word::kKept;
  for (const auto& [kind, counts] : kinds_) {
    worst = std::max({worst, word_of_parts(counts), word_of_others(counts, others_break(kind))});
  }
  // One that was asked for twice may have met by chance what others meet too.
  return worst == Word::kByVariables && is_mostly_unexplained() ? Word::kRarely : worst;
}

}  // namespace plc_host::survey
