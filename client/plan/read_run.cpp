// Runs a read plan: makes its calls and puts the values together.
#include <algorithm>
#include <chrono>
#include <cstring>

#include "client/driver/failure.h"
#include "client/plan/program_check.h"
#include "client/plan/read_plan.h"
#include "client/plan/tag_transfer.h"
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

constexpr size_t kBytesPerTextSlot = 2;
constexpr size_t kExchangesPerCall = 2;  // names, then values
constexpr size_t kBytesPerUnit = 2;      // of a string

class PlanRun {
 public:
  PlanRun(DriverSession& session, ReadPlan& plan) : session_(session), plan_(plan) {}

  size_t run();

 private:
  bool make_call(ReadStep& step, Failure& failure, WallTime& time);
  CallResult call(ReadStep& step);
  bool fail_of_another(const ReadStep& step, const Failure& failure, WallTime time);
  void run_step(ReadStep& step);
  void fail_step(const ReadStep& step, const Failure& failure, WallTime time, bool spoils);
  void take_step(const ReadStep& step, WallTime time);
  void take_slot(const BatchSlot& slot, uint32_t bits);
  void take_text(PlannedVariable& variable, uint32_t address) const;
  void take_single(const ReadStep& step);
  void read_alone(PlannedVariable& variable);
  void read_spoilt();
  void fail_cut();

  DriverSession& session_;
  ReadPlan& plan_;
  Patience patience_;
  bool may_repeat_ = true;
  size_t exchanges_ = 0;
};

void fail(PlannedVariable& variable, const Failure& failure, WallTime time) {
  if (variable.has_failed) return;
  variable.has_failed = true;
  variable.failure = failure;
  variable.time = time;
}

CallResult PlanRun::call(ReadStep& step) {
  if (!step.is_batch()) {
    const uint32_t id = *plan_.variables[step.variable].reference.tag->register_id;
    plan_.buffer.clear();
    return session_.read(id, step.offset, step.count, plan_.buffer);
  }
  for (size_t i = 0; i < step.requests.size(); ++i) step.requests[i].value = 0;
  return session_.read_batch(step.requests);
}

// A connection that nobody used for a while may have ended without anybody noticing: the first call tells.
bool PlanRun::make_call(ReadStep& step, Failure& failure, WallTime& time) {
  const bool was_connected = session_.is_connected();
  session_.set_area(step.area);
  CallResult result = call(step);
  time = result.time;
  if (!result.ok()) failure = explain_failure(result, session_.target());
  if (!result.ok() && failure.quality == Quality::kLost && was_connected && may_repeat_) {
    may_repeat_ = false;
    result = call(step);
    time = result.time;
    if (!result.ok()) failure = explain_failure(result, session_.target());
  }
  may_repeat_ = false;
  if (result.ok()) {
    patience_.take(Reading(TagValue(), session_.quality_of_success(), time));
  } else {
    patience_.take(Reading(failure, time));
  }
  return result.ok();
}

void PlanRun::fail_step(const ReadStep& step, const Failure& failure, WallTime time, bool spoils) {
  if (!step.is_batch()) return fail(plan_.variables[step.variable], failure, time);
  for (const BatchSlot& slot : step.slots) {
    PlannedVariable& variable = plan_.variables[slot.reference];
    if (spoils) {
      variable.is_spoilt = true;
    } else {
      fail(variable, failure, time);
    }
  }
}

void PlanRun::take_text(PlannedVariable& variable, uint32_t address) const {
  if (address == 0) {
    variable.is_spoilt = true;  // there was no memory to keep the text where 32 bits reach it
    return;
  }
  std::string& text = variable.value.text;
  // As many elements as pieces so far: a shorter one has ended the text.
  if (variable.value.elements.size() * kBytesPerTextSlot > text.size()) return;
  const auto declared = static_cast<size_t>(std::max(variable.reference.tag->entry.string_length, 1));
  const auto* bytes = reinterpret_cast<const char*>(static_cast<uintptr_t>(address));
  const size_t room = std::min(kBytesPerTextSlot, declared - std::min(declared, text.size()));
  text.append(bytes, strnlen(bytes, room));
  variable.value.elements.push_back(0);
}

void PlanRun::take_slot(const BatchSlot& slot, uint32_t bits) {
  PlannedVariable& variable = plan_.variables[slot.reference];
  switch (slot.part) {
    case SlotPart::kElement:
    case SlotPart::kLowHalf:
      variable.value.elements.push_back(bits);
      break;
    case SlotPart::kHighHalf:
      variable.value.elements.back() |= uint64_t{bits} << 32;
      break;
    case SlotPart::kText:
      take_text(variable, bits);
      break;
  }
}

void PlanRun::take_single(const ReadStep& step) {
  PlannedVariable& variable = plan_.variables[step.variable];
  const TagEntry& entry = variable.reference.tag->entry;
  if (step.elements > 0) {
    append_elements(entry, plan_.buffer.data(), step.elements, variable.value.elements);
    return;
  }
  const bool is_text = value_kind(entry) == ValueKind::kText;
  // A text that ended in an earlier piece has nothing behind its end.
  if (is_text && variable.value.text.size() < kBytesPerUnit * size_t{step.offset}) return;
  const size_t limit = is_text ? kBytesPerUnit * size_t{step.count} : plan_.buffer.size();
  const auto* bytes = reinterpret_cast<const char*>(plan_.buffer.data());
  variable.value.text.append(bytes, strnlen(bytes, std::min(limit, plan_.buffer.size())));
  if (is_text && goes_on_out_of_reach(entry, variable.value.text)) {
    fail(variable, text_out_of_reach(reachable_text_bytes(entry)), variable.time);
  }
}

void PlanRun::take_step(const ReadStep& step, WallTime time) {
  if (!step.is_batch()) {
    plan_.variables[step.variable].time = time;
    take_single(step);
    return;
  }
  for (size_t i = 0; i < step.slots.size(); ++i) {
    take_slot(step.slots[i], step.requests[i].value);
    plan_.variables[step.slots[i].reference].time = time;
  }
}

// Whether the step reaches another program, or none for sure. The variables of a batch are all of one scope.
bool PlanRun::fail_of_another(const ReadStep& step, const Failure& failure, WallTime time) {
  const size_t first = step.is_batch() ? step.slots.front().reference : step.variable;
  const Tag& tag = *plan_.variables[first].reference.tag;
  const ProgramRule rule = step.is_batch() ? kRuleOfBatches : rule_of_singles(tag);
  std::optional<Failure> hindrance = program_hindrance(session_, tag, rule);
  if (!hindrance && failure.is_unclear) hindrance = missing_program(tag.entry);
  // Single reads may reach what the batch does not.
  if (hindrance) fail_step(step, *hindrance, time, !program_hindrance(session_, tag, ProgramRule::kBeginning));
  return hindrance.has_value();
}

void PlanRun::run_step(ReadStep& step) {
  if (!step.is_batch() && plan_.variables[step.variable].has_failed) return;
  Failure failure;
  WallTime time{};
  if (patience_.is_over()) {
    return fail_step(step, end_of(patience_, session_.target()), std::chrono::system_clock::now(), false);
  }
  const bool is_answered = make_call(step, failure, time);
  if (is_answered) exchanges_ += step.exchanges;
  const bool may_be_of_another = failure.quality == Quality::kRefused || failure.is_unclear;
  if ((is_answered || (may_be_of_another && session_.is_connected())) && fail_of_another(step, failure, time)) return;
  if (is_answered) {
    take_step(step, time);
  } else {
    fail_step(step, failure, time, !failure.connection_lost);
  }
}

// What a batch was refused with may be the fault of one of its variables: each is asked for by itself.
void PlanRun::read_alone(PlannedVariable& variable) {
  if (patience_.is_over()) {
    return fail(variable, end_of(patience_, session_.target()), std::chrono::system_clock::now());
  }
  session_.set_area(variable.area);
  const uint64_t answered = session_.figures().calls - session_.figures().failures;
  const TagResult result = read_tag(session_, variable.reference);
  patience_.take(result.reading);
  const auto more = static_cast<size_t>(session_.figures().calls - session_.figures().failures - answered);
  exchanges_ += kExchangesPerCall * more;
  if (!result.ok()) return fail(variable, result.reading.failure(), result.reading.time());
  variable.value = *result.reading.value();
  variable.time = result.reading.time();
}

// Those that are refused by themselves too stay out of the batches of later runs. Where none is, the controller may
// have been busy: only the second time in a row they all stay out.
void PlanRun::read_spoilt() {
  constexpr unsigned kMostRiddles = 2;
  bool is_spoilt = false;
  bool is_explained = false;
  for (PlannedVariable& variable : plan_.variables) {
    if (!variable.is_spoilt || variable.has_failed) continue;
    is_spoilt = true;
    read_alone(variable);
    variable.is_alone = variable.has_failed;
    is_explained = is_explained || variable.has_failed;
  }
  plan_.riddles = is_spoilt && !is_explained ? plan_.riddles + 1 : 0;
  for (PlannedVariable& variable : plan_.variables) {
    if (variable.is_spoilt && plan_.riddles >= kMostRiddles) variable.is_alone = true;
    plan_.is_stale = plan_.is_stale || (variable.is_spoilt && variable.is_alone);
  }
}

void PlanRun::fail_cut() {
  for (PlannedVariable& variable : plan_.variables) {
    if (value_kind(variable.reference.tag->entry) != ValueKind::kRaw) continue;
    const bool is_one = variable.reference.extents.empty();
    fail(variable, is_one ? cut_at_zero(variable.value.text) : cut_at_zeros(), variable.time);
  }
}

size_t PlanRun::run() {
  for (PlannedVariable& variable : plan_.variables) {
    variable.value.elements.clear();
    variable.value.text.clear();
    variable.has_failed = false;
    variable.is_spoilt = false;
    if (!variable.impossible.empty()) fail(variable, impossible(variable.impossible), std::chrono::system_clock::now());
  }
  for (ReadStep& step : plan_.steps) run_step(step);
  read_spoilt();
  fail_cut();
  return exchanges_;
}

}  // namespace

size_t run_plan(DriverSession& session, ReadPlan& plan) {
  if (plan.is_stale) plan_steps(plan);
  return PlanRun(session, plan).run();
}

void leave_unread(ReadPlan& plan, const Failure& failure) {
  const WallTime now = std::chrono::system_clock::now();
  for (PlannedVariable& variable : plan.variables) {
    variable.has_failed = false;
    fail(variable, variable.impossible.empty() ? failure : impossible(variable.impossible), now);
  }
}

}  // namespace plc_client::core
