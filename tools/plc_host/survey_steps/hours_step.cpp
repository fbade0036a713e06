// Reads the good variables again and again for hours, and counts what is lost, slow or late.
#include <algorithm>

#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/survey_steps/ask_variables.h"
#include "tools/plc_host/survey_steps/survey_steps.h"

namespace plc_host::survey {
namespace {

using SteadyClock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr size_t kMostNames = 32;
constexpr size_t kMostListBytes = 1400;  // of the values of a request
constexpr size_t kRecordReplyBytes = 36;
constexpr int64_t kSlices = 120;
constexpr int64_t kShortestSliceMs = 1000;
constexpr char kNoRound[] = "no round was made, for --hours was over before the first one";
constexpr double kMsPerHour = 3600000;

using Part = std::vector<const Declared*>;

struct Round {
  bool is_whole = false;
  size_t missing = 0;  // variables that were not read
  double took_ms = 0;  // of the answers, without the waits between requests
};

std::vector<Part> poll_list(const Declarations& declared, const Limits& limits) {
  const size_t most = std::min<size_t>(
      {kMostNames, limits.names_per_request.value_or(kMostNames), limits.values_per_request.value_or(kMostNames)});
  std::vector<Part> parts;
  size_t bytes = 0;
  for (const Declared& variable : declared.variables) {
    if (!variable.is_good) continue;
    const size_t own = std::max({size_t{2} * variable.units, 2 * variable.wire_name.size(), kRecordReplyBytes});
    const bool fits = !parts.empty() && parts.back().size() < most && bytes + own <= kMostListBytes &&
                      parts.back().front()->program == variable.program;
    if (!fits) {
      parts.emplace_back();
      bytes = 0;
    }
    parts.back().push_back(&variable);
    bytes += own;
  }
  return parts;
}

class HoursStep {
 public:
  HoursStep(Conversation& conversation, const Declarations& declared)
      : conversation_(conversation),
        record_(conversation.record().endurance),
        parts_(poll_list(declared, conversation.record().limits)) {}

  void run();

 private:
  void read_all(Round& round);
  void take_loss(size_t missing);
  void take_gap();
  bool is_over() const { return SteadyClock::now() >= end_; }
  void take_round(int64_t at_ms, const Round& round);
  void finish_slice();
  void leave_out(bool is_turn) { record_.left_out += is_turn ? 1 : 0; }

  Conversation& conversation_;
  Endurance& record_;
  std::vector<Part> parts_;
  std::vector<double> slice_ms_;
  int64_t slice_length_ms_ = 0;
  SteadyClock::time_point end_{};
  SteadyClock::time_point whole_{};  // the end of the last whole round, or the beginning of the hours
  bool has_gap_ = false;             // rounds were lost since then
};

// A round that the end of the hours meets is no loss.
void HoursStep::read_all(Round& round) {
  for (const Part& part : parts_) round.missing += part.size();
  for (const Part& part : parts_) {
    if (is_over()) break;
    const NamesAnswer names = try_names(conversation_, part);
    round.took_ms += names.asked.answer.took_ms();
    if (!names.is_complete) return;
    const ValuesAnswer values = try_values(conversation_, part);
    round.took_ms += values.asked.answer.took_ms();
    if (!values.is_complete()) return;
    round.missing -= part.size();
  }
  round.is_whole = true;
}

void HoursStep::take_loss(size_t missing) {
  ++record_.losses;
  ++record_.slices.back().losses;
  record_.lost_values += missing;
  has_gap_ = true;
}

// Up to now, when losses are over or the hours are.
void HoursStep::take_gap() {
  const SteadyClock::time_point now = SteadyClock::now();
  if (has_gap_) record_.longest_gap_ms = std::max(record_.longest_gap_ms, Milliseconds(now - whole_).count());
  whole_ = now;
  has_gap_ = false;
}

void HoursStep::finish_slice() {
  if (record_.slices.empty()) return;
  const Spread spread = spread_of(slice_ms_);
  Endurance::Slice& slice = record_.slices.back();
  slice.p50 = spread.p50;
  slice.p99 = spread.p99;
  slice.largest = spread.largest;
}

void HoursStep::take_round(int64_t at_ms, const Round& round) {
  const int64_t slice = at_ms / slice_length_ms_ * slice_length_ms_;
  if (record_.slices.empty() || record_.slices.back().from_ms != slice) {
    finish_slice();
    slice_ms_.clear();
    record_.slices.emplace_back();
    record_.slices.back().from_ms = slice;
  }
  ++record_.rounds;
  ++record_.slices.back().rounds;
  if (!round.is_whole) return take_loss(round.missing);
  take_gap();
  slice_ms_.push_back(round.took_ms);
  if (round.took_ms > record_.period_ms) ++record_.slow;
}

void HoursStep::run() {
  const double whole_ms = record_.hours_asked * kMsPerHour;
  slice_length_ms_ = std::max(kShortestSliceMs, static_cast<int64_t>(whole_ms) / kSlices);
  const SteadyClock::time_point start = whole_ = SteadyClock::now();
  end_ = start + std::chrono::milliseconds(static_cast<int64_t>(whole_ms));
  const auto passed_ms = [start] { return Milliseconds(SteadyClock::now() - start).count(); };
  double turn_ms = 0;
  while (turn_ms < whole_ms && !is_over()) {
    wait_for_stop(std::chrono::milliseconds(static_cast<int64_t>(std::max(0.0, turn_ms - passed_ms()))));
    record_.drift_ms = std::max(0.0, passed_ms() - turn_ms);
    conversation_.progress().set_part(turn_ms / whole_ms, (whole_ms - turn_ms) / 1000);
    Round round;
    try {
      read_all(round);
    } catch (const SurveyEnded& ended) {
      // A controller that is away for a while is what these hours are there to see.
      if (ended.is_interrupted()) {
        take_gap();
        finish_slice();
        throw;
      }
    }
    if (round.is_whole && is_over() && record_.rounds > 0) break;
    take_round(static_cast<int64_t>(turn_ms), round);
    // Turns that are over by now are left out.
    turn_ms += record_.period_ms;
    while (turn_ms + record_.period_ms < passed_ms()) {
      leave_out(turn_ms < whole_ms);
      turn_ms += record_.period_ms;
    }
  }
  const bool was_late = turn_ms < whole_ms && turn_ms + record_.period_ms < passed_ms();
  leave_out(was_late);
  take_gap();
  finish_slice();
}

}  // namespace

void survey_hours(Conversation& conversation, const Declarations& declared) {
  Endurance& record = conversation.record().endurance;
  const SurveyPlan& plan = conversation.plan();
  record.hours_asked = plan.hours;
  record.period_ms = plan.period_ms;
  if (plan.hours <= 0) {
    record.step.why = "--hours is not given";
    return;
  }
  const bool has_good = std::any_of(declared.variables.begin(), declared.variables.end(),
                                    [](const Declared& variable) { return variable.is_good; });
  if (!has_good) {
    record.step.why = "no variable has a value";
    return;
  }
  run_step(record.step, [&] { HoursStep(conversation, declared).run(); });
  if (record.rounds == 0) record.step = {Step::State::kNotDone, kNoRound};
}

}  // namespace plc_host::survey
