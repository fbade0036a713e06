// Judges a rule by who breaks it.
#include "tools/plc_host/survey/rule_tally.h"

#include <algorithm>

#include "wire/names.h"

namespace plc_host::survey {
namespace {

constexpr uint64_t kRareAmong = 10;    // more than one of so many is no chance
constexpr uint64_t kFewVariables = 2;  // of which one cannot be told from the controller

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

// Of the replies that no culprit explains.
RuleTally::Word RuleTally::word_of_others(const OfKind& kind) {
  constexpr uint64_t kEnoughKept = 2;
  uint64_t broken = 0;
  for (const auto& [name, count] : kind.parts) broken += is_culprit(count) ? 0 : count.broken_alone;
  for (const auto& [parts, count] : kind.broken_together) {
    const bool is_explained = std::any_of(parts.begin(), parts.end(),
                                          [&kind](const std::string& part) { return is_culprit(kind.parts.at(part)); });
    broken += is_explained ? 0 : count;
  }
  if (broken == 0) return Word::kKept;
  if (broken * kRareAmong <= kind.kept + broken) return Word::kRarely;
  if (broken > 1) return Word::kBroken;
  return kind.kept >= kEnoughKept ? Word::kRarely : Word::kNotKnown;
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
  if (is_broken_everywhere()) return Word::kBroken;
  Word worst = Word::kKept;
  for (const auto& [kind, counts] : kinds_) worst = std::max({worst, word_of_parts(counts), word_of_others(counts)});
  return worst;
}

}  // namespace plc_host::survey
