// The program of the endurance of controllers.
#include "tests/client/endure/endure_user.h"

#include <algorithm>
#include <exception>

namespace plc_endure {
namespace {

using plc_client::Outcome;
using plc_client::Reading;
using plc_client::Reason;
using plc_client::WriteResult;

constexpr size_t kPlans = 8;
constexpr uint32_t kLongestList = 40;
constexpr uint32_t kMostWrites = 4;
constexpr int64_t kSecondUs = 1000000;

// Bytes that wait and are thrown away before a request.
constexpr uint64_t kDrainBytes = 65536;

std::vector<std::string> names_of(const std::vector<Chosen>& chosen) {
  std::vector<std::string> names;
  names.reserve(chosen.size());
  for (const Chosen& one : chosen) names.push_back(one.name);
  return names;
}

}  // namespace

void Machine::serve(Link& link, const Pending& request) {
  while (random_.once_in(4)) {
    change(book_.variables()[random_.below(static_cast<uint32_t>(book_.variables().size()))], *memory_, random_);
    ++changes_;
  }
  Faults::serve(link, request);
}

plc_client::Options User::with_pauses(plc_client::Options options, unsigned number) {
  constexpr uint32_t kTimeouts[] = {1, 1, 2, 1, 1, 30, 1, 3};
  constexpr int kFirstPauseMs[] = {0, 1, 0, 5, 0, 1, 20, 0};
  constexpr uint32_t kDelays[] = {0, 0, 0, 0, 0, 0, 0, 7};
  options.reply_timeout_s = kTimeouts[number % 8];
  options.first_pause = std::chrono::milliseconds(kFirstPauseMs[number % 8]);
  options.longest_pause = 4 * options.first_pause;
  options.delay_ms = kDelays[number % 8];
  return options;
}

User::User(const plc_client::Options& options, const VariableBook& book, unsigned number, uint64_t seed,
           bool has_faults)
    : book_(book),
      random_(seed),
      memory_(book.cell_count()),
      rules_(memory_),
      controller_(book, &memory_, &rules_),
      network_(Network::instance()),
      machine_(book, &network_, &controller_, &memory_, seed, has_faults),
      options_(with_pauses(options, number)),
      client_(options_) {
  network_.set_peer(&machine_);
  machine_.set_wait_us(options_.reply_timeout_s * kSecondUs);
  for (uint32_t cell = 0; cell < memory_.size(); ++cell) memory_.set(cell, static_cast<uint16_t>(random_.next()));
}

// --- choice

const Variable& User::any_variable() {
  return book_.variables()[random_.below(static_cast<uint32_t>(book_.variables().size()))];
}

Chosen User::choose_one(bool is_single) {
  const Variable& variable = any_variable();
  return choose(variable, client_.tag(variable.name), random_, is_single);
}

std::vector<Chosen> User::choose_list() {
  const uint32_t most = random_.once_in(3) ? kLongestList : 12;
  const bool is_scattered = random_.once_in(2);
  std::vector<Chosen> chosen(1 + random_.below(most));
  for (Chosen& one : chosen) one = choose_one(is_scattered);
  return chosen;
}

// --- calls

template <typename Call>
void User::make_call(std::shared_ptr<WriteCall> call, const std::string& what, const Call& function) {
  constexpr uint32_t kLongestIdleUs = 10000;
  network_.pass(random_.once_in(10) ? random_.below(kLongestIdleUs) : random_.below(400));
  what_ = "call " + std::to_string(++figures_.calls) + ", " + what;
  call->number = figures_.calls;
  call_ = std::move(call);
  rules_.begin_call(call_);
  memory_.begin_call();
  const bool may_pause = has_failed_ && options_.first_pause.count() > 0;
  was_clean_ = network_.is_quiet(kDrainBytes) && !may_pause;
  has_failed_ = false;
  trouble_before_ = machine_.trouble();
  exchanges_before_ = network_.exchanges();
  began_us_ = network_.now_us();
  network_.journal().add_note(began_us_, what_);
  network_.begin_call([](void* rules) { return static_cast<const Rules*>(rules)->meaning_now(); }, &rules_);
  try {
    function();
  } catch (const std::exception& error) {
    rules_.count(Rule::kHarm, what_ + ": " + error.what());
  }
  network_.end_call();
  network_.journal().add_note(network_.now_us(), "call " + std::to_string(figures_.calls) + " is over");
  rules_.end_call();
  figures_.changed_meanwhile += memory_.moments() > 1 ? 1U : 0U;
  figures_.clean_calls += may_fail() ? 0U : 1U;
  if (network_.left_open() > left_open_) rules_.count(Rule::kHarm, what_ + ": a descriptor left open");
  if (network_.stuck() > stuck_) rules_.count(Rule::kHarm, what_ + ": a receive that would have waited for ever");
  left_open_ = network_.left_open();
  stuck_ = network_.stuck();
}

void User::read_plan() {
  if (plans_.size() < kPlans || random_.once_in(50)) {
    if (plans_.size() >= kPlans) plans_.pop_front();
    std::vector<Chosen> chosen = choose_list();
    plc_client::Plan plan = client_.plan(names_of(chosen));
    plans_.push_back({std::move(chosen), std::move(plan)});
    ++figures_.plans;
  }
  PlannedList& list = plans_[random_.below(static_cast<uint32_t>(plans_.size()))];
  const uint64_t connects_before = client_.state().connects;
  make_call(std::make_shared<WriteCall>(), "plan of " + std::to_string(list.chosen.size()),
            [this, &list] { client_.read(list.plan); });
  judge(list.chosen, list.plan.readings());
  judge_exchanges(list.plan, connects_before);
}

void User::read_one() {
  const std::vector<Chosen> chosen = {choose_one(false)};
  std::vector<Reading> readings;
  make_call(std::make_shared<WriteCall>(), "read of " + chosen.front().name,
            [this, &chosen, &readings] { readings.push_back(client_.read(chosen.front().name)); });
  judge(chosen, readings);
}

void User::read_list() {
  const std::vector<Chosen> chosen = choose_list();
  std::vector<Reading> readings;
  make_call(std::make_shared<WriteCall>(), "list of " + std::to_string(chosen.size()),
            [this, &chosen, &readings] { readings = client_.read(names_of(chosen)); });
  judge(chosen, readings);
}

void User::reconnect() {
  const bool is_closed_before = random_.once_in(2);
  make_call(std::make_shared<WriteCall>(), "connect", [this, is_closed_before] {
    if (is_closed_before) {
      client_.close();
      machine_.forget_replies();
    }
    try {
      client_.connect();
    } catch (const plc_client::ConnectionFailed& error) {
      has_failed_ = true;
      if (!may_fail()) rules_.count(Rule::kFailedWithoutFault, what_ + ": " + error.what());
    }
  });
}

// One value, or several in one call; bits that are written by way of their word only one at a time.
User::Values User::draw_values(WriteCall* call) {
  Values values;
  std::vector<const Variable*> used;
  const uint32_t wanted = random_.once_in(3) ? 1 + random_.below(kMostWrites) : 1;
  while (values.size() < wanted) {
    const Variable& variable = any_variable();
    const bool is_used = std::find(used.begin(), used.end(), &variable) != used.end();
    if (!variable.is_written || is_used || (variable.rewrites_words && wanted > 1)) continue;
    const Chosen chosen =
        choose(variable, client_.tag(variable.name), random_, variable.rewrites_words || random_.once_in(2));
    call->rewrites_word = variable.rewrites_words;
    plc_client::Input value = draw_value(chosen, random_, static_cast<uint32_t>(values.size()), call->targets);
    values.emplace_back(chosen.name, std::move(value));
    used.push_back(&variable);
  }
  std::stable_sort(call->targets.begin(), call->targets.end(),
                   [](const Target& a, const Target& b) { return a.cell < b.cell; });
  return values;
}

void User::write_some() {
  auto call = std::make_shared<WriteCall>();
  const Values values = draw_values(call.get());
  const plc_client::Verify verify = random_.once_in(2) ? plc_client::Verify::kReadBack : plc_client::Verify::kNone;
  std::vector<WriteResult> results;
  bool was_refused = false;
  make_call(call, "write to " + values.front().first, [&] {
    try {
      if (values.size() == 1) {
        results.push_back(client_.write(values.front().first, values.front().second, verify));
      } else {
        results = client_.write(values, verify);
      }
    } catch (const plc_client::Error& error) {
      was_refused = true;
      if (network_.exchanges() != exchanges_before_) rules_.count(Rule::kHarm, what_ + ": " + error.what());
    }
  });
  figures_.refused += was_refused ? 1U : 0U;
  if (!was_refused && results.size() != values.size()) rules_.count(Rule::kHarm, what_ + ": results are missing");
  for (size_t i = 0; i < results.size(); ++i) {
    if (results[i].name != values[i].first) rules_.count(Rule::kHarm, what_ + ": results in another order");
    judge_write(results[i], static_cast<uint32_t>(i));
  }
}

// --- rules

bool User::is_in_call_time(plc_client::TimePoint time) const {
  const auto us = std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count();
  return us >= began_us_ && us <= network_.now_us();
}

void User::judge(const std::vector<Chosen>& chosen, const std::vector<Reading>& readings) {
  if (chosen.size() != readings.size()) return rules_.count(Rule::kHarm, what_ + ": readings are missing");
  for (size_t i = 0; i < chosen.size(); ++i) {
    try {
      judge_reading(chosen[i], readings[i]);
    } catch (const std::exception& error) {
      rules_.count(Rule::kReadWrong, what_ + ": " + chosen[i].name + " cannot be shown: " + error.what());
    }
  }
}

void User::judge_reading(const Chosen& chosen, const Reading& reading) {
  ++figures_.readings;
  const std::string what = what_ + ": " + chosen.name;
  if (reading.name != chosen.name) rules_.count(Rule::kHarm, what + " stands as " + reading.name);
  if (!is_in_call_time(reading.time)) rules_.count(Rule::kHarm, what + " has a time outside the call");
  if (!reading.ok()) {
    ++figures_.bad[static_cast<size_t>(reading.error.reason)];
    has_failed_ = true;
    if (reading.value.has_value()) rules_.count(Rule::kHarm, what + " is bad and has a value");
    if (reading.error.reason == Reason::kNone || reading.error.text.empty()) {
      rules_.count(Rule::kHarm, what + " is bad for no reason");
    }
    if (!may_fail()) rules_.count(Rule::kFailedWithoutFault, what + ": " + reading.error.text);
    return;
  }
  ++figures_.good;
  if (!had_value(memory_, chosen, reading.value)) {
    rules_.count(Rule::kReadWrong, what + " is shown as " + reading.value.to_string());
  }
}

// What a plan says it takes, where nothing went wrong; a connect asks for the directory.
void User::judge_exchanges(const plc_client::Plan& plan, uint64_t connects_before) {
  if (may_fail()) return;
  constexpr uint64_t kExchangesOfConnect = 2;
  const uint64_t connects = client_.state().connects - connects_before;
  const uint64_t expected = plan.exchanges() + kExchangesOfConnect * connects;
  const uint64_t made = network_.exchanges() - exchanges_before_;
  if (made != expected) {
    rules_.count(Rule::kHarm,
                 what_ + ": " + std::to_string(made) + " exchanges instead of " + std::to_string(expected));
  }
}

void User::judge_write(const WriteResult& result, uint32_t part) {
  ++figures_.writes;
  ++figures_.outcomes[static_cast<size_t>(result.outcome)];
  figures_.verified += result.verified ? 1U : 0U;
  has_failed_ = has_failed_ || !result.ok();
  const std::string what = what_ + ": " + result.name;
  if (!is_in_call_time(result.time)) rules_.count(Rule::kHarm, what + " has a time outside the call");
  if (result.ok() != (result.error.reason == Reason::kNone)) rules_.count(Rule::kHarm, what + " fails for no reason");
  judge_targets(result, part, what);
  const bool was_changed = result.error.reason == Reason::kDifferent && memory_.moments() > 1;
  if (!result.ok() && !was_changed && !may_fail()) {
    rules_.count(Rule::kFailedWithoutFault, what + ": " + result.error.text);
  }
}

void User::judge_targets(const WriteResult& result, uint32_t part, const std::string& what) {
  for (Target& target : call_->targets) {
    if (target.part != part) continue;
    if (result.ok() && !target.is_done) {
      rules_.count(Rule::kWriteMissing, what + ", cell " + std::to_string(target.cell));
    }
    if (result.outcome != Outcome::kNotDone) continue;
    target.is_denied = true;
    if (target.times > 0) {
      rules_.count(Rule::kWriteDenied, what + ", cell " + std::to_string(target.cell) + ": " + result.error.text);
    }
  }
}

void User::run_one() {
  const uint32_t kind = random_.below(12);
  if (random_.once_in(300)) {
    reconnect();
  } else if (kind < 6) {
    read_plan();
  } else if (kind < 8) {
    read_one();
  } else if (kind < 9) {
    read_list();
  } else {
    write_some();
  }
}

}  // namespace plc_endure
