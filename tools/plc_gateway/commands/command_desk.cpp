// Holds each metric of a command against the list, one question after the other; the first that is answered no refuses.
#include "tools/plc_gateway/commands/command_desk.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "base/text.h"
#include "tools/plc_gateway/commands/command_text.h"
#include "tools/plc_gateway/commands/command_value.h"

namespace plc_gateway {
namespace {

// Of a number of any size and another one.
uint64_t ms_apart(Ms a, Ms b) {
  return a > b ? static_cast<uint64_t>(a) - static_cast<uint64_t>(b)
               : static_cast<uint64_t>(b) - static_cast<uint64_t>(a);
}

Ms later_by(Ms time, Ms by) {
  constexpr Ms kLeast = std::numeric_limits<Ms>::min();
  constexpr Ms kMost = std::numeric_limits<Ms>::max();
  if (by < 0) return time < kLeast - by ? kLeast : time + by;
  return time > kMost - by ? kMost : time + by;
}

// What the command names: by its name, by its alias, or by both when they agree.
struct NamedVariable {
  std::string name;
  const char* kind = nullptr;
  std::string problem;
};

NamedVariable variable_named(const CommandMetric& metric, const std::map<uint64_t, std::string>& name_of_alias) {
  if (!metric.alias) {
    if (!metric.name.empty()) return {metric.name, nullptr, {}};
    return {{}, "malformed", "the command has neither a name nor an alias"};
  }
  const std::string alias = "alias " + std::to_string(*metric.alias);
  const auto found = name_of_alias.find(*metric.alias);
  if (found == name_of_alias.end()) {
    return {metric.name.empty() ? alias : metric.name, "not-listed",
            alias + " is nobody's; use those of the last births, or ask for new ones with Node Control/Rebirth"};
  }
  if (metric.name.empty() || metric.name == found->second) return {found->second, nullptr, {}};
  return {metric.name, "malformed", alias + " is another variable's; leave out the name or the alias"};
}

bool is_young_enough(const CommandRule& rule, Ms stamp, Ms wall_now) {
  return rule.max_age_ms >= 0 && ms_apart(stamp, wall_now) <= static_cast<uint64_t>(rule.max_age_ms);
}

std::string age_problem(const CommandRule& rule, Ms stamp, Ms wall_now) {
  const uint64_t age = ms_apart(stamp, wall_now);
  const std::string limit = "; at most " + std::to_string(rule.max_age_ms) + " ms are allowed";
  if (stamp > wall_now) return "its time is " + std::to_string(age) + " ms ahead of this clock" + limit;
  return "it is " + std::to_string(age) + " ms old" + limit;
}

}  // namespace

CommandDesk::CommandDesk(std::vector<CommandRule> rules) { replace_rules(std::move(rules)); }

void CommandDesk::remembers(const std::map<std::string, Ms>& times) {
  for (const auto& [name, time] : times) last_[name].newest = time;
}

void CommandDesk::replace_rules(std::vector<CommandRule> rules) {
  rules_ = std::move(rules);
  rule_of_.clear();
  for (size_t i = 0; i < rules_.size(); ++i) rule_of_.emplace(rules_[i].name, i);
}

std::vector<CommandDesk::Decision> CommandDesk::decide(const CommandMessage& message, bool retained, Ms wall_now,
                                                       Ms steady_now,
                                                       const std::map<uint64_t, std::string>& name_of_alias) {
  std::vector<Decision> decisions;
  decisions.reserve(message.metrics.size());
  for (const CommandMetric& metric : message.metrics) {
    decisions.push_back(decide_one(metric, {message.time, retained, wall_now, steady_now}, name_of_alias));
  }
  return decisions;
}

const CommandRule* CommandDesk::rule_named(const std::string& name) const {
  const auto found = rule_of_.find(name);
  return found == rule_of_.end() ? nullptr : &rules_[found->second];
}

CommandDesk::Decision CommandDesk::decide_one(const CommandMetric& metric, const Arrival& arrival,
                                              const std::map<uint64_t, std::string>& name_of_alias) {
  const NamedVariable what = variable_named(metric, name_of_alias);
  const CommandRule* const listed = rule_named(what.name);
  const std::optional<std::string> said =
      value_text(metric, listed == nullptr ? std::nullopt : std::optional(listed->type));
  const std::optional<Ms> sent = metric.time ? metric.time : arrival.time;
  const auto refuse = [&](const char* kind, const std::string& reason) {
    return Refusal{shortened(what.name), reason, kind, said, sent};
  };
  if (what.kind != nullptr) return refuse(what.kind, what.problem);
  if (listed == nullptr) {
    return refuse("not-listed", "no [[command]] of the configuration allows it to be written");
  }
  const CommandRule& rule = *listed;
  if (metric.is_null || metric.form == CommandMetric::Form::kNone) {
    return refuse("null", "the command has no value; nothing is written for null");
  }
  if (arrival.retained) {
    return refuse("retained", "a retained command comes again with every new connection; publish it without retain");
  }
  if (metric.is_historical) {
    return refuse("old", "it is marked as historical, and only a new command is carried out; send it without the mark");
  }
  CommandValue value = command_value(rule, metric);
  if (!value.input) return refuse(value.kind.c_str(), value.reason);
  const Refused late = time_problem(rule, metric, arrival);
  if (late.kind != nullptr) return refuse(late.kind, late.reason);
  Last& last = last_[rule.name];
  last.accepted = arrival.steady_now;
  const Ms stamp = sent.value_or(0);
  last.newest = stamp;
  return WriteJob{rule_of_.at(rule.name),
                  std::move(*value.input),
                  stamp,
                  said.value_or(std::string()),
                  later_by(std::max(stamp, arrival.time.value_or(stamp)), -rule.max_age_ms),
                  later_by(std::min(stamp, arrival.time.value_or(stamp)), rule.max_age_ms)};
}

CommandDesk::Refused CommandDesk::time_problem(const CommandRule& rule, const CommandMetric& metric,
                                               const Arrival& arrival) {
  if (!metric.time && !arrival.time) return {"old", "it says no time, and nobody knows how old it is"};
  for (const std::optional<Ms>& time : {arrival.time, metric.time}) {
    if (!time || is_young_enough(rule, *time, arrival.wall_now)) continue;
    return {"old", age_problem(rule, *time, arrival.wall_now)};
  }
  const Ms stamp = metric.time ? *metric.time : *arrival.time;
  const bool is_from_before = remembers_from_ && stamp < arrival.wall_now &&
                              ms_apart(stamp, arrival.wall_now) > ms_apart(arrival.steady_now, *remembers_from_);
  if (is_from_before) return {"old", "it is from before this gateway was started, and may have been carried out then"};
  const Last& last = last_[rule.name];
  if (last.newest && stamp == *last.newest) {
    return {"repeated", "a command for it with the same time was taken already"};
  }
  if (last.newest && stamp < *last.newest) {
    return {"repeated", "a command for it was taken that is " + std::to_string(ms_apart(*last.newest, stamp)) +
                            " ms newer, and this one may have been carried out before: send a new one; when clocks "
                            "were set back, it can be taken as soon as they are past that time"};
  }
  const bool is_early = last.accepted && rule.every_ms > 0 &&
                        ms_apart(arrival.steady_now, *last.accepted) < static_cast<uint64_t>(rule.every_ms);
  if (is_early) {
    return {"rate", "the last one was taken " + std::to_string(ms_apart(arrival.steady_now, *last.accepted)) +
                        " ms ago; one in " + std::to_string(rule.every_ms) + " ms is allowed"};
  }
  return {};
}

}  // namespace plc_gateway
