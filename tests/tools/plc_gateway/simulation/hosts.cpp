// Commands with and without flaws, and the judgement on what comes of them.
#include "tests/tools/plc_gateway/simulation/hosts.h"

#include <algorithm>
#include <cstring>

namespace plc_gateway::simulation {
namespace {

// What a metric asks to be written, when it may be.
std::optional<plc_client::Input> value_of(const CommandRule& rule, const Metric& metric) {
  if (metric.null || (metric.datatype && *metric.datatype != static_cast<uint64_t>(rule.type))) return std::nullopt;
  const auto in_range = [&](double number) {
    return number >= rule.min.value_or(number) && number <= rule.max.value_or(number);
  };
  if (rule.type == DataType::kBoolean && metric.value_field == 14) return plc_client::Input(metric.number != 0);
  if (rule.type == DataType::kString && metric.value_field == 15) return plc_client::Input(metric.bytes);
  if (rule.type == DataType::kDouble && metric.value_field == 13) {
    double number = 0;
    std::memcpy(&number, &metric.number, sizeof number);
    if (in_range(number)) return plc_client::Input(number);
  }
  if ((rule.type == DataType::kInt16 || rule.type == DataType::kInt32) && metric.value_field == 10) {
    const auto number = static_cast<int32_t>(metric.number);
    const bool fits = rule.type == DataType::kInt32 || (number >= -32768 && number <= 32767);
    if (fits && in_range(number)) return plc_client::Input(int64_t{number});
  }
  return std::nullopt;
}

bool is_same(const plc_client::Input& a, const plc_client::Input& b) {
  return a.form() == b.form() && a.bits() == b.bits() && a.text() == b.text() &&
         std::memcmp(std::array{a.real()}.data(), std::array{b.real()}.data(), sizeof(double)) == 0;
}

}  // namespace

void Hosts::serve(const Configuration* configuration, const Ledger* ledger) {
  configuration_ = configuration;
  ledger_ = ledger;
  last_written_.clear();
}

Message Hosts::make() {
  ++totals_.commands;
  const uint64_t kind = random_.below(20);
  if (kind == 0) return node_command();
  if (kind == 1 && last_) return *last_;
  Message message = device_command();
  if (kind == 2) message.retained = true;
  if (kind == 3) message.payload.resize(random_.below(message.payload.size()));
  if (kind == 4) {
    message.payload.clear();
    for (uint64_t left = random_.below(60); left > 0; --left) message.payload += static_cast<char>(random_.below(256));
  }
  if (kind > 4) {
    last_ = message;
    last_made_ = clock_.wall_ms();
  }
  return message;
}

Message Hosts::node_command() {
  PayloadMaker maker;
  maker.begin_metric();
  const uint64_t kind = random_.below(6);
  maker.text(1, kind == 0 ? "Node Control/Reboot" : "Node Control/Rebirth");
  if (kind == 1) maker.number(7, 1);
  if (kind != 1) maker.number(14, kind == 2 ? 0 : 1);
  maker.end_metric();
  return {Observer::kNodeCommandTopic, maker.finish(static_cast<uint64_t>(clock_.wall_ms())), 0, kind == 3};
}

Message Hosts::device_command() {
  CommandRule rule;
  rule.name = "Nobody";
  if (!configuration_->rules.empty()) rule = configuration_->rules[random_.below(configuration_->rules.size())];
  const Flaw flaw = random_.percent(50) ? Flaw::kNone : static_cast<Flaw>(random_.below(10));
  return {Observer::kCommandTopic, command_payload(rule, flaw), 0, false};
}

void Hosts::put_value(PayloadMaker& maker, const CommandRule& rule, Flaw flaw) {
  const auto least = static_cast<int64_t>(rule.min.value_or(-100));
  const auto most = static_cast<int64_t>(rule.max.value_or(100));
  const int64_t number = flaw == Flaw::kRange ? most + random_.between(1, 100) : random_.between(least, most);
  if (flaw == Flaw::kType) {
    maker.text(16, "four");
  } else if (rule.type == DataType::kString) {
    maker.text(15, "text " + std::to_string(number));
  } else if (rule.type == DataType::kBoolean) {
    maker.number(14, static_cast<uint64_t>(number) & 1U);
  } else if (rule.type == DataType::kDouble) {
    const auto real = static_cast<double>(number);
    uint64_t bits = 0;
    std::memcpy(&bits, &real, sizeof bits);
    maker.fixed64(13, bits);
  } else {
    maker.number(10, static_cast<uint32_t>(number));
  }
}

std::string Hosts::command_payload(const CommandRule& rule, Flaw flaw) {
  PayloadMaker maker;
  const Ms now = clock_.wall_ms();
  Ms time = now - random_.between(0, 30);
  if (flaw == Flaw::kOld) time = now - rule.max_age_ms - random_.between(1, 100000);
  if (flaw == Flaw::kFuture) time = now + rule.max_age_ms + random_.between(20000, 100000);
  maker.begin_metric();
  size_t index = 0;
  while (index < configuration_->variables.size() && configuration_->variables[index].name != rule.name) ++index;
  const bool by_alias = random_.percent(50) && index < configuration_->variables.size();
  if (flaw == Flaw::kUnknownName) {
    maker.text(1, "Nobody");
  } else if (flaw == Flaw::kUnknownAlias) {
    maker.number(2, 4000000 + random_.below(10));
  } else if (by_alias) {
    maker.number(2, ledger_->alias(index));
  } else {
    maker.text(1, rule.name);
  }
  if (flaw != Flaw::kNoTime) maker.number(3, static_cast<uint64_t>(time));
  if (flaw == Flaw::kDatatype) maker.number(4, 33);
  if (flaw == Flaw::kNull) {
    maker.number(7, 1);
  } else {
    put_value(maker, rule, flaw);
  }
  maker.end_metric();
  // Without a time of its own a metric has that of the message.
  return maker.finish(static_cast<uint64_t>(flaw == Flaw::kNoTime ? 0 : time));
}

bool Hosts::arrives(const Message& message) {
  Payload payload;
  try {
    read_payload(message.payload, payload);
  } catch (const Violation&) {
    return false;
  }
  if (message.retained) return false;
  bool rebirth = false;
  for (const Metric& metric : payload.metrics) {
    if (message.topic == Observer::kCommandTopic) arrives_for(metric, payload.time);
    if (message.topic != Observer::kNodeCommandTopic) continue;
    rebirth = rebirth || (metric.name == "Node Control/Rebirth" && metric.value_field == 14 && metric.number == 1);
  }
  return rebirth;
}

std::optional<size_t> Hosts::rule_of(const Metric& metric) const {
  std::string name;
  if (metric.name) name = std::string(*metric.name);
  if (metric.alias) {
    for (size_t i = 0; i < configuration_->variables.size(); ++i) {
      if (ledger_->alias(i) == *metric.alias) name = configuration_->variables[i].name;
    }
  }
  for (size_t i = 0; i < configuration_->rules.size(); ++i) {
    if (configuration_->rules[i].name == name) return i;
  }
  return std::nullopt;
}

void Hosts::arrives_for(const Metric& metric, std::optional<uint64_t> time) {
  const std::optional<size_t> found = rule_of(metric);
  if (!found) return;
  const CommandRule& rule = configuration_->rules[*found];
  const std::optional<plc_client::Input> value = value_of(rule, metric);
  const std::optional<uint64_t> stamped = metric.time ? metric.time : time;
  if (!value || !stamped) return;
  const auto stamp = static_cast<Ms>(*stamped);
  if (std::abs(clock_.wall_ms() - stamp) > rule.max_age_ms) return;
  std::vector<Allowed>& allowed = allowed_[rule.name];
  for (Allowed& before : allowed) {
    // Of two with the same time that differ, one is carried out.
    if (before.stamp != stamp || (!before.is_written && !is_same(before.value, *value))) continue;
    // The first one may have been refused: too soon behind another.
    if (!before.is_written) before = {stamp, clock_.steady_ms(), *value};
    return;
  }
  allowed.push_back({stamp, clock_.steady_ms(), *value});
}

void Hosts::write_begins(const WriteJob& job) {
  const CommandRule& rule = configuration_->rules.at(job.rule);
  std::vector<Allowed>& allowed = allowed_[rule.name];
  const auto last = last_written_.find(rule.name);
  const auto found = std::find_if(allowed.begin(), allowed.end(), [&](const Allowed& command) {
    return !command.is_written && is_same(command.value, job.value) &&
           std::abs(clock_.wall_ms() - command.stamp) <= rule.max_age_ms &&
           (last == last_written_.end() || command.arrived - last->second >= rule.every_ms);
  });
  if (found == allowed.end()) throw Violation("a write of " + rule.name + " that no command allows");
  const bool is_twice = std::any_of(allowed.begin(), allowed.end(), [&](const Allowed& command) {
    return command.is_written && command.stamp == found->stamp;
  });
  if (is_twice) throw Violation("a command for " + rule.name + " is carried out twice");
  last_written_[rule.name] = found->arrived;
  found->is_written = true;
  ++writes_;
  ++totals_.writes;
}

}  // namespace plc_gateway::simulation
