// How many names and values the controller takes in one request, and how long its answers take by that number.
#include <algorithm>
#include <array>
#include <map>

#include "base/text.h"
#include "tools/plc_host/survey_steps/ask_variables.h"
#include "tools/plc_host/survey_steps/survey_steps.h"

namespace plc_host::survey {
namespace {

constexpr std::array<uint32_t, 8> kLadder = {1, 2, 4, 8, 16, 32, 64, 128};
constexpr uint32_t kRepeats = 10;
constexpr uint32_t kGentleRepeats = 3;
constexpr unsigned kFailsAgain = 2;       // what fails that often, and before, is beyond a limit
constexpr size_t kMostFrameBytes = 4000;  // what the driver sends and takes, with room for a head
constexpr size_t kNameReplyBytes = 36;    // of a name in the reply

// What many of can be asked for at a time.
bool is_small(const Declared& declared) {
  constexpr uint8_t kMostSmallUnits = 4;
  return declared.is_good && declared.units <= kMostSmallUnits;
}

class TimesStep {
 public:
  TimesStep(Conversation& conversation, const Declarations& declared) : conversation_(conversation) {
    choose_pool(declared);
  }

  void run();

 private:
  using Try = Asked (TimesStep::*)(uint32_t count, bool& is_complete);

  void choose_pool(const Declarations& declared);
  std::vector<const Declared*> variables(uint32_t count) const;
  uint32_t most_names() const;
  uint32_t most_values() const;
  Asked try_many_names(uint32_t count, bool& is_complete);
  Asked try_many_values(uint32_t count, bool& is_complete);
  bool attempt(Try way, uint32_t count);
  bool fails_again(Try way, uint32_t count);
  void climb(Try way, uint32_t most, Reach& reach, uint32_t& tried);
  std::optional<uint32_t> find_limit(Try way, uint32_t most, Reach& reach, uint32_t& tried);
  void repeat(Try way, uint32_t most, std::optional<uint32_t> limit);
  void take_beyond(const Asked& asked);

  Conversation& conversation_;
  bool is_late_ = false;               // the last that failed came in part
  std::vector<const Declared*> pool_;  // of one program or of none, those with the shortest names first
};

// Of the programs, and of the global ones, those with the most variables.
void TimesStep::choose_pool(const Declarations& declared) {
  std::map<std::optional<uint8_t>, std::vector<const Declared*>> by_program;
  for (const Declared& variable : declared.variables) {
    if (is_small(variable)) by_program[variable.program].push_back(&variable);
  }
  for (auto& [program, variables] : by_program) {
    if (variables.size() > pool_.size()) pool_ = std::move(variables);
  }
  std::stable_sort(pool_.begin(), pool_.end(), [](const Declared* one, const Declared* other) {
    return one->wire_name.size() < other->wire_name.size();
  });
}

std::vector<const Declared*> TimesStep::variables(uint32_t count) const {
  std::vector<const Declared*> chosen;
  for (size_t i = 0; i < count; ++i) chosen.push_back(pool_[i % pool_.size()]);
  return chosen;
}

uint32_t TimesStep::most_names() const {
  uint32_t count = 0;
  size_t request = 0;
  while (count < kLadder.back()) {
    request += 2 + 2 * pool_[count % pool_.size()]->wire_name.size();
    if (request > kMostFrameBytes || (count + 1) * kNameReplyBytes > kMostFrameBytes) break;
    ++count;
  }
  return count;
}

uint32_t TimesStep::most_values() const {
  uint32_t count = 0;
  size_t reply = 0;
  while (count < kLadder.back()) {
    reply += size_t{2} * pool_[count % pool_.size()]->units;
    if (reply > kMostFrameBytes) break;
    ++count;
  }
  return count;
}

Asked TimesStep::try_many_names(uint32_t count, bool& is_complete) {
  NamesAnswer answer = try_names(conversation_, variables(count));
  is_complete = answer.is_complete;
  return answer.asked;
}

// The names of the values come before them, as the driver does it.
Asked TimesStep::try_many_values(uint32_t count, bool& is_complete) {
  NamesAnswer names = try_names(conversation_, variables(count));
  is_complete = names.is_complete;
  if (!is_complete) return names.asked;
  ValuesAnswer answer = try_values(conversation_, variables(count));
  is_complete = answer.is_complete();
  return answer.asked;
}

void TimesStep::take_beyond(const Asked& asked) {
  Limits& limits = conversation_.record().limits;
  if (limits.reaction != Reaction::kNotTried) return;
  limits.reaction = asked.is_answered()      ? Reaction::kRefused
                    : asked.answer.is_lost() ? Reaction::kClosed
                                             : Reaction::kSilent;
  limits.beyond = limits.reaction == Reaction::kClosed   ? "the connection is closed"
                  : limits.reaction == Reaction::kSilent ? "never answered"
                                                         : "refused";
  if (!asked.is_answered()) return;
  limits.beyond_status = status_of(asked.answer.bytes);
  limits.beyond += ", status " + plc_base::hexadecimal(*limits.beyond_status, 4);
}

bool TimesStep::attempt(Try way, uint32_t count) {
  bool is_complete = false;
  (this->*way)(count, is_complete);
  return is_complete;
}

// Of one more than what is answered. A reply of which a part came in time is no limit of the controller, but of the
// time that the survey waits.
bool TimesStep::fails_again(Try way, uint32_t count) {
  Asked asked;
  for (unsigned i = 0; i < kFailsAgain; ++i) {
    bool is_complete = false;
    asked = (this->*way)(count, is_complete);
    if (is_complete) return false;
  }
  is_late_ = asked.answer.has_come() && !asked.is_answered();
  if (!is_late_) {
    take_beyond(asked);
    return true;
  }
  conversation_.record().limits.step.why = "the replies to " + std::to_string(count) +
                                           " names or values did not come to their end within " +
                                           std::to_string(conversation_.plan().timeout_ms) +
                                           " ms, which is no limit of the controller: survey with a longer "
                                           "--timeout";
  return true;
}

// By the numbers of the ladder above what is answered, up to the first that is not.
void TimesStep::climb(Try way, uint32_t most, Reach& reach, uint32_t& tried) {
  for (const uint32_t step : kLadder) {
    const uint32_t count = std::min(step, most);
    if (count <= reach.answered) continue;
    tried = std::max(tried, count);
    reach.asked = count;
    if (!attempt(way, count)) {
      reach.failed = count;
      return;
    }
    reach.answered = count;
  }
}

// The most that are answered, when more are not; tried: the most that were asked for, or are answered. One reply that
// is lost by chance is no limit: one more than the limit has to fail three times.
std::optional<uint32_t> TimesStep::find_limit(Try way, uint32_t most, Reach& reach, uint32_t& tried) {
  for (;;) {
    climb(way, most, reach, tried);
    while (reach.answered + 1 < reach.failed) {
      const uint32_t middle = (reach.answered + reach.failed) / 2;
      (attempt(way, middle) ? reach.answered : reach.failed) = middle;
    }
    reach.is_whole = reach.failed == 0;
    if (reach.is_whole) return std::nullopt;
    if (fails_again(way, reach.failed)) {
      reach.is_whole = !is_late_;
      return is_late_ ? std::nullopt : std::optional<uint32_t>(reach.answered);
    }
    reach.answered = reach.failed;
    reach.failed = 0;
  }
}

void TimesStep::repeat(Try way, uint32_t most, std::optional<uint32_t> limit) {
  const uint32_t times = conversation_.plan().is_gentle ? kGentleRepeats : kRepeats;
  const uint32_t last = limit.value_or(most);
  std::vector<uint32_t> counts;
  for (const uint32_t count : kLadder) {
    if (count < last) counts.push_back(count);
  }
  counts.push_back(last);
  // Large and small ones by turns, so that a busy moment of the controller does not meet one size alone.
  for (uint32_t i = 1; i < times; ++i) {
    for (const uint32_t count : counts) {
      bool is_complete = false;
      if (count > 0) (this->*way)(count, is_complete);
    }
  }
}

void TimesStep::run() {
  Limits& limits = conversation_.record().limits;
  // Where not even one is answered, there is no limit to go by.
  const auto above_zero = [](std::optional<uint32_t> limit) { return limit == 0U ? std::nullopt : limit; };
  limits.names_per_request =
      above_zero(find_limit(&TimesStep::try_many_names, most_names(), limits.names_reach, limits.names_tried));
  const uint32_t names = limits.names_reach.answered == 0 ? most_names() : limits.names_reach.answered;
  const uint32_t most = std::min(names, most_values());
  limits.values_per_request =
      above_zero(find_limit(&TimesStep::try_many_values, most, limits.values_reach, limits.values_tried));
  const uint32_t values = limits.values_reach.answered == 0 ? most : limits.values_reach.answered;
  limits.step.state = limits.step.why.empty() ? Step::State::kDone : Step::State::kPartly;
  repeat(&TimesStep::try_many_values, values, limits.values_per_request);
  repeat(&TimesStep::try_many_names, names, limits.names_per_request);
}

}  // namespace

uint64_t time_requests(const SurveyPlan& plan) {
  return 2 * kLadder.size() * ((plan.is_gentle ? kGentleRepeats : kRepeats) + 1);
}

void survey_times(Conversation& conversation, const Declarations& declared) {
  SurveyRecord& record = conversation.record();
  if (std::none_of(declared.variables.begin(), declared.variables.end(), is_small)) {
    record.limits.step.why = record.times_step.why = "no variable has a value";
    return;
  }
  run_step(record.times_step, [&] {
    try {
      TimesStep(conversation, declared).run();
    } catch (const SurveyEnded& ended) {
      if (record.limits.step.state != Step::State::kDone) record.limits.step = {Step::State::kPartly, ended.what()};
      throw;
    }
  });
}

}  // namespace plc_host::survey
