// Shares a list of variables out to single and batch reads.
#include "client/plan/read_plan.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <utility>

#include "client/plan/tag_transfer.h"
#include "client/plan/transfer_plan.h"
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

constexpr size_t kExchangesPerRead = 2;     // names, then values
constexpr double kRoundingErrors = 1.0e-6;  // of the sum of many shares

// A variable that a batch could read as well.
struct Choice {
  size_t variable;
  double load;       // share of a frame that it takes
  size_t exchanges;  // of reading it by itself
};

std::vector<ReadStep> single_steps(const PlannedVariable& variable, size_t number, const RequestRules& rules) {
  const TagEntry& entry = variable.reference.tag->entry;
  std::vector<ReadStep> steps;
  const auto add = [&](uint32_t offset, uint32_t count, uint32_t elements) {
    ReadStep step;
    step.area = variable.area;
    step.exchanges = kExchangesPerRead;
    step.variable = number;
    step.offset = offset;
    step.count = count;
    step.elements = elements;
    steps.push_back(std::move(step));
  };
  const ValueKind kind = value_kind(entry);
  if (kind == ValueKind::kText) {
    for (const StringPiece& piece : plan_string_read(entry)) add(piece.offset, piece.units, 0);
    return steps;
  }
  const uint32_t units = host_units_per_element(entry);
  for (const ElementRun& run : plan_elements(variable.reference, Direction::kRead, rules)) {
    add(run.offset * units, run.count * units, kind == ValueKind::kRaw ? 0 : run.count);
  }
  return steps;
}

// The share of a frame that the variable takes; nothing when no batch can have it.
std::optional<double> batch_load(const PlannedVariable& variable, const RequestRules& rules) {
  if (variable.is_alone || why_not_batched(variable.reference, rules.is_guarded)) return std::nullopt;
  try {
    double load = 0;
    for (const Batch& batch : plan_batches({variable.reference}, {0}, rules)) {
      load += frame_load(batch, rules);
    }
    return load;
  } catch (const PlanError&) {
    return std::nullopt;
  }
}

// A frame of a batch costs what a single read does: those that fill most of it are read singly as long as that
// makes it fewer. Returns those that stay for the batches.
std::vector<size_t> cheapest_batch(std::vector<Choice> choices) {
  std::stable_sort(choices.begin(), choices.end(), [](const Choice& a, const Choice& b) { return a.load > b.load; });
  double load = 0;
  for (const Choice& choice : choices) load += choice.load;
  const auto frames = [](double sum) { return static_cast<size_t>(std::ceil(sum - kRoundingErrors)); };
  size_t best = kExchangesPerRead * frames(load);
  size_t best_singles = 0;
  size_t single_cost = 0;
  for (size_t singles = 1; singles <= choices.size(); ++singles) {
    single_cost += choices[singles - 1].exchanges;
    load -= choices[singles - 1].load;
    const size_t cost = single_cost + kExchangesPerRead * frames(std::max(load, 0.0));
    // A variable alone in its scope is read singly: one that is refused then costs nothing further.
    if (cost < best || (cost == best && choices.size() == 1)) {
      best = cost;
      best_singles = singles;
    }
  }
  std::vector<size_t> batched;
  for (size_t i = best_singles; i < choices.size(); ++i) batched.push_back(choices[i].variable);
  std::sort(batched.begin(), batched.end());
  return batched;
}

// False, and nothing is added, where the frames take more exchanges than reading each variable singly: their shares
// are an estimate.
bool add_batches(ReadPlan& plan, const std::vector<TagReference>& references, const std::vector<size_t>& batched,
                 uint16_t area, size_t single_cost) {
  std::vector<Batch> batches = plan_batches(references, batched, plan.rules);
  size_t cost = 0;
  for (const Batch& slots : batches) cost += kExchangesPerRead * frame_count(slots, plan.rules);
  if (cost > single_cost) return false;
  for (Batch& slots : batches) {
    ReadStep step;
    step.area = area;
    step.exchanges = kExchangesPerRead * frame_count(slots, plan.rules);
    step.requests.reserve(slots.size() + 1);  // the session puts a guard behind them
    for (const BatchSlot& slot : slots) {
      BatchReadRequest request{};
      request.area = area;
      request.reg_type = request_reg_type(slot.register_id);
      request.address = request_address(slot.register_id, slot.element);
      request.count = slot.count;
      step.requests.push_back(request);
    }
    step.slots = std::move(slots);
    plan.steps.push_back(std::move(step));
  }
  return true;
}

// Room for whatever a run can read.
void reserve_values(PlannedVariable& variable) {
  const TagEntry& entry = variable.reference.tag->entry;
  const ValueKind kind = value_kind(entry);
  if (kind == ValueKind::kText || kind == ValueKind::kRaw) {
    variable.value.text.reserve(static_cast<size_t>(std::max(entry.string_length, 0)) + 2 * sizeof(uint64_t));
    variable.value.elements.reserve(slot_count(variable.reference));
  } else {
    variable.value.elements.reserve(chosen_elements(variable.reference).size());
  }
}

using SingleSteps = std::map<size_t, std::vector<ReadStep>>;

// False when nothing can ask for the variable, which then says why.
bool plan_singly(PlannedVariable& variable, size_t number, const RequestRules& rules, SingleSteps& singles) {
  if (!variable.impossible.empty()) return false;
  reserve_values(variable);
  try {
    singles[number] = single_steps(variable, number, rules);
    return true;
  } catch (const PlanError& error) {
    variable.impossible = error.what();
    return false;
  }
}

void add_singles(ReadPlan& plan, SingleSteps& singles) {
  uint32_t most = 0;
  for (auto& [variable, steps] : singles) {
    for (ReadStep& step : steps) {
      most = std::max(most, step.count);
      plan.steps.push_back(std::move(step));
    }
  }
  plan.buffer = GuardedBuffer(singles.empty() ? 0 : read_buffer_bytes(most));
}

}  // namespace

void plan_steps(ReadPlan& plan) {
  plan.steps.clear();
  plan.is_stale = false;
  std::vector<TagReference> references;
  std::map<std::pair<uint16_t, std::string>, std::vector<Choice>> groups;
  SingleSteps singles;
  for (size_t i = 0; i < plan.variables.size(); ++i) {
    PlannedVariable& variable = plan.variables[i];
    references.push_back(variable.reference);
    if (!plan_singly(variable, i, plan.rules, singles)) continue;
    const std::optional<double> load = batch_load(variable, plan.rules);
    if (!load) continue;
    groups[{variable.area, scope_key(variable.reference)}].push_back({i, *load, kExchangesPerRead * singles[i].size()});
  }
  for (const auto& [key, choices] : groups) {
    const std::vector<size_t> batched = cheapest_batch(choices);
    size_t single_cost = 0;
    for (const size_t variable : batched) single_cost += kExchangesPerRead * singles[variable].size();
    if (!add_batches(plan, references, batched, key.first, single_cost)) continue;
    for (const size_t variable : batched) singles.erase(variable);
  }
  add_singles(plan, singles);
}

size_t exchange_count(const ReadPlan& plan) {
  size_t count = 0;
  for (const ReadStep& step : plan.steps) count += step.exchanges;
  return count;
}

}  // namespace plc_client::core
