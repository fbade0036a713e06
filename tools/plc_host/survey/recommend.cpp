// Works settings out of the figures.
#include "tools/plc_host/survey/recommend.h"

#include <algorithm>
#include <cmath>

#include "base/text.h"
#include "profile/profile_use.h"

namespace plc_host::survey {
namespace {

using Usability = Verdict::Usable;

constexpr double kTimeoutFactor = 5;  // of the longest answer
constexpr uint64_t kUsualBatchNames = 32;
constexpr double kPollFactor = 2;  // of the time that all answers of a round take
constexpr double kShortestPollMs = 100;
constexpr double kPollStepMs = 10;
constexpr double kLongestDelayMs = 1000;  // that the driver pauses

std::string ms_text(double ms) { return plc_base::milliseconds_text(static_cast<int64_t>(ms * 1e6), 1); }

const Times* longest_of(const SurveyRecord& record) {
  const Times* longest = nullptr;
  double largest = -1;
  for (const Times& times : record.times) {
    if (times.kind == "connect" || times.ms.empty()) continue;
    const double own = *std::max_element(times.ms.begin(), times.ms.end());
    if (own > largest) longest = &times;
    largest = std::max(largest, own);
  }
  return longest;
}

uint64_t answers_of(const SurveyRecord& record) {
  uint64_t count = 0;
  for (const Times& times : record.times) count += times.kind == "connect" ? 0 : times.ms.size();
  return count;
}

bool has_reads(const SurveyRecord& record) {
  return std::any_of(record.times.begin(), record.times.end(),
                     [](const Times& times) { return times.kind == "read" && !times.ms.empty(); });
}

// "the longest of 120 answers took 4.1 ms (read, 1 name)"
std::string longest_text(const SurveyRecord& record, const Times& longest) {
  return "the longest of " + plc_base::plural(answers_of(record), "answer") + " took " +
         ms_text(spread_of(longest.ms).largest) + " (" + longest.kind + ", " + plc_base::plural(longest.names, "name") +
         ")";
}

// "3 requests had no answer within 2.0 s"
std::string silent_text(const SurveyRecord& record, uint64_t silent) {
  return plc_base::plural(silent, "request") + " had " + no_answer_words(record) + " within " +
         plc_base::milliseconds_text(int64_t{record.wait_ms} * 1000000, 0);
}

// How long the answers take that hosts wait for is known once values were read. What never came took longer than the
// survey waited.
void recommend_timeout(const SurveyRecord& record, std::vector<Recommendation>& all) {
  const Times* longest = longest_of(record);
  if (longest == nullptr || !has_reads(record)) return;
  const uint64_t silent = unanswered_of(record).silent;
  const double answered = spread_of(longest->ms).largest;
  const double largest = silent == 0 ? answered : std::max<double>(answered, record.wait_ms);
  const auto seconds = static_cast<uint32_t>(std::max(1.0, std::ceil(largest * kTimeoutFactor / 1000)));
  std::string because = longest_text(record, *longest);
  if (silent == 0) {
    because += ": five times that, in whole seconds";
  } else {
    because += ", and " + silent_text(record, silent) + ": five times " +
               (largest > answered ? "that wait" : "the longest") +
               ", in whole seconds. A survey with a longer --timeout tells whether their answers come later, or never";
  }
  all.push_back({"timeout_s", std::to_string(seconds), because});
}

// Why no pause is recommended; where requests had no answer, nobody knows whether one helps.
std::string no_pause_text(const SurveyRecord& record) {
  const std::string counts = std::to_string(record.heads.replies) +
                             " requests were answered, one following the other, at most " +
                             std::to_string(record.rate) + " a second";
  const Unanswered unanswered = unanswered_of(record);
  if (unanswered.all() == 0) return counts + ": no further pause was needed between them";
  const char* words = unanswered.damaged > 0 ? "no whole answer" : no_answer_words(record);
  std::string text = counts + "; " + plc_base::plural(unanswered.all(), "request") + " had " + words;
  if (unanswered.lost > 0) text += " (" + plc_base::plural(unanswered.lost, "connection") + " ended in place of it)";
  return text + ". Whether a pause helps against that was not tried";
}

void recommend_delay(const SurveyRecord& record, std::vector<Recommendation>& all) {
  const Times* longest = longest_of(record);
  if (longest == nullptr || !has_reads(record)) return;
  if (!takes_contract_build(record)) {
    all.push_back({"delay_ms", "0", no_pause_text(record)});
    return;
  }
  const double longer = std::ceil(spread_of(longest->ms).largest) + 1;
  std::string because = longest_text(record, *longest);
  because += ": the pause of the contract build has to be longer, so that no late reply meets the next request";
  if (longer > kLongestDelayMs) because += "; no pause is longer than 1000 ms";
  all.push_back({"delay_ms", std::to_string(static_cast<uint32_t>(std::min(longer, kLongestDelayMs))), because});
}

// Names for which the reply to the contract build is one piece; nothing where hosts take the guarded one.
std::optional<uint32_t> piece_limit(const SurveyRecord& record) {
  return takes_contract_build(record) ? names_in_a_piece(record) : std::nullopt;
}

void recommend_batch(const SurveyRecord& record, std::vector<Recommendation>& all) {
  if (const std::string fault = batches_fault(record.variables); !fault.empty()) {
    all.push_back({"batch_names", "1", fault + ". Singly they came alike each time"});
    return;
  }
  const Limits& limits = record.limits;
  const uint32_t met =
      std::min(limits.names_per_request.value_or(UINT32_MAX), limits.values_per_request.value_or(UINT32_MAX));
  const std::optional<uint32_t> in_piece = piece_limit(record);
  if (in_piece && *in_piece <= met) {
    all.push_back({"batch_names", std::to_string(*in_piece),
                   pieces_words(record) +
                       ", and the contract build takes the first one alone: the reply to so many names is one piece. "
                       "A BOOL in a batch is two names"});
    return;
  }
  if (limits.step.state != Step::State::kDone) return;
  if (!limits.names_per_request && !limits.values_per_request) return;
  const uint32_t most = std::min(limits.names_per_request.value_or(limits.names_tried),
                                 limits.values_per_request.value_or(limits.values_tried));
  const char* what = !limits.values_per_request ? "name" : !limits.names_per_request ? "value" : "name and value";
  std::string because = "requests of up to " + std::to_string(most) + " ";
  because += most == 1                    ? what
             : !limits.values_per_request ? "names"
             : !limits.names_per_request  ? "values"
                                          : "names and values";
  because += " are answered";
  because += "; one more is not (" + limits.beyond + "), nor are more elements of an array in one read";
  all.push_back({"batch_names", std::to_string(most), because});
}

const Times* times_near(const SurveyRecord& record, const std::string& kind, uint32_t names) {
  const Times* nearest = nullptr;
  for (const Times& times : record.times) {
    if (times.kind != kind || times.ms.empty() || times.names > names) continue;
    if (nearest == nullptr || times.names > nearest->names) nearest = &times;
  }
  return nearest;
}

// "" where it is not recommended.
std::string value_of(const std::vector<Recommendation>& all, const std::string& setting) {
  for (const Recommendation& one : all) {
    if (one.setting == setting) return one.value;
  }
  return {};
}

// What is refused today takes its time too.
bool is_polled(const VariableFinding& one) { return one.state != VariableFinding::State::kNotTried; }

// Of all elements of arrays.
uint64_t names_of(const std::vector<VariableFinding>& findings) {
  uint64_t names = 0;
  for (const VariableFinding& one : findings) names += is_polled(one) ? one.names : 0;
  return names;
}

void recommend_poll(const SurveyRecord& record, std::vector<Recommendation>& all) {
  const Limits& limits = record.limits;
  const uint64_t usual = batches_fault(record.variables).empty() ? kUsualBatchNames : 1;
  const auto names = static_cast<uint32_t>(std::min<uint64_t>(
      {usual, limits.names_per_request.value_or(kUsualBatchNames), limits.values_per_request.value_or(kUsualBatchNames),
       piece_limit(record).value_or(kUsualBatchNames)}));
  const Times* resolve = times_near(record, "resolve", names);
  const Times* read = times_near(record, "read", names);
  const auto& findings = record.variables.findings;
  const auto polled = static_cast<uint64_t>(std::count_if(findings.begin(), findings.end(), is_polled));
  const uint64_t asked = names_of(findings);
  if (resolve == nullptr || read == nullptr || polled == 0 || limits.step.state != Step::State::kDone) return;
  const uint64_t rounds = (asked + names - 1) / std::max<uint32_t>(names, 1);
  const std::string pause = value_of(all, "delay_ms");
  const double pause_ms = pause.empty() ? 0 : std::stod(pause);
  const double each = spread_of(resolve->ms).p99 + spread_of(read->ms).p99 + pause_ms;
  const double round_ms = each * static_cast<double>(rounds);
  const double wanted = std::max(kShortestPollMs, std::ceil(round_ms * kPollFactor / kPollStepMs) * kPollStepMs);
  all.push_back({"poll_ms", std::to_string(static_cast<uint32_t>(wanted)),
                 plc_base::plural(polled, "variable") + ", " + plc_base::plural(asked, "name") + " in " +
                     std::to_string(rounds) + (rounds == 1 ? " batch" : " batches") + " of up to " +
                     plc_base::plural(names, "name") +
                     (pause_ms > 0 ? ", with a pause of " + pause + " ms before each: " : ": ") + ms_text(round_ms) +
                     " for all of them when each answer is as slow as the slowest in a hundred; " +
                     (round_ms * kPollFactor < kShortestPollMs ? "twice that is less than 100 ms, the shortest advised"
                                                               : "twice that")});
}

// What hosts see of requests without an answer; "" where there were none.
std::string unanswered_note(const SurveyRecord& record) {
  const Unanswered unanswered = unanswered_of(record);
  const std::string of_all =
      " of " + plc_base::plural(record.heads.replies + record.heads.replies_unanswered, "request");
  std::string note;
  if (unanswered.silent > 0) {
    note += " " + std::to_string(unanswered.silent) + of_all + " had " + no_answer_words(record) +
            ": a call that waits for one of them fails, and plc-host ends its list of variables there.";
  }
  if (unanswered.lost > 0) {
    note += " " + std::to_string(unanswered.lost) + of_all +
            " met the end of the connection: a call that meets this fails, and after two in a row plc-host ends its "
            "list of variables.";
  }
  if (unanswered.damaged > 0) {
    note += " " + std::to_string(unanswered.damaged) + of_all +
            " got bytes in place of an answer: a call that meets this fails.";
  }
  if (record.heads.names_refused_for_once.refused + record.heads.reads_refused_for_once.refused > 0) {
    note += " The controller refuses at one time what it answers at another one: a call that meets this fails.";
  }
  return note;
}

void recommend_driver(const SurveyRecord& record, std::vector<Recommendation>& all) {
  const std::string lacking = lacking_note(record);
  const std::string because = (record.is_whole ? "" : "so far: ") + record.verdict.because + unanswered_note(record) +
                              (lacking.empty() ? "" : " ") + lacking;
  switch (record.verdict.usable) {
    case Usability::kYes:
      return all.push_back({"driver", "guarded", because});
    case Usability::kWithoutStatus:
    case Usability::kWithoutValueEnd:
    case Usability::kWithoutBoth: {
      const std::string better = plc_profile::better_driver(guarded_of(record.verdict.usable));
      if (!takes_contract_build(record)) return all.push_back({"driver", better, because});
      return all.push_back({"driver", "contract, better " + better, because + pieces_warning(record)});
    }
    case Usability::kNotUsable:
      if (takes_contract_build(record)) all.push_back({"driver", "contract", because + pieces_warning(record)});
      return;
    case Usability::kUnknown:
      break;
  }
}

// "names: answered up to 32; more was not tried"
std::string found_text(const char* what, const std::optional<uint32_t>& limit, const Reach& reach) {
  if (limit) return std::string(what) + ": " + std::to_string(*limit);
  if (!reach.is_whole) return std::string(what) + ": " + reach_text(reach);
  return std::string(what) + ": no limit met, " + std::to_string(reach.answered) + " tried";
}

std::string limits_reason(const SurveyRecord& record) {
  const Limits& limits = record.limits;
  if (limits.step.state == Step::State::kDone) return {};
  const std::string why = limits.step.why.empty() ? "" : ": " + limits.step.why;
  const std::string what = "how many names and values a request may have was ";
  if (!limits.names_per_request && limits.names_reach.asked == 0) {
    return what + "not measured" + why;
  }
  return what + "measured in part (" + found_text("names", limits.names_per_request, limits.names_reach) + ". " +
         found_text("values", limits.values_per_request, limits.values_reach) + ")" + why;
}

std::string batch_reason(const SurveyRecord& record) {
  std::string reason = limits_reason(record);
  if (!reason.empty()) return reason;
  const Limits& limits = record.limits;
  return "no limit was met, up to " + plc_base::plural(limits.names_tried, "name") + " and " +
         plc_base::plural(limits.values_tried, "value") + " in a request";
}

std::string poll_reason(const SurveyRecord& record) {
  const auto& findings = record.variables.findings;
  if (std::none_of(findings.begin(), findings.end(), is_polled)) return "no variable was asked for";
  if (!has_reads(record)) return "no time of a read was measured";
  const std::string reason = limits_reason(record);
  return reason.empty() ? "no time of a request for names was measured" : reason;
}

}  // namespace

std::vector<LeftOut> left_out(const SurveyRecord& record) {
  if (is_foreign(record.heads)) return {};
  const bool is_none = record.verdict.usable == Usability::kNotUsable && !takes_contract_build(record);
  std::vector<LeftOut> all;
  for (const auto& [setting, reason] :
       {std::pair("batch_names", batch_reason(record)), std::pair("poll_ms", poll_reason(record))}) {
    if (!value_of(record.recommendations, setting).empty()) continue;
    all.push_back({setting, is_none ? "neither installed build reads this controller" : reason});
  }
  return all;
}

std::vector<Recommendation> recommend(const SurveyRecord& record) {
  std::vector<Recommendation> all;
  if (is_foreign(record.heads)) return all;
  recommend_driver(record, all);
  recommend_timeout(record, all);
  if (record.verdict.usable == Usability::kNotUsable && !takes_contract_build(record)) return all;  // nobody polls
  recommend_delay(record, all);
  recommend_batch(record, all);
  recommend_poll(record, all);
  return all;
}

}  // namespace plc_host::survey
