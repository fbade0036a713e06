// Rules, commands and decisions of the tests of commands, made and shown in few words.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "tools/plc_gateway/commands/command_desk.h"

namespace plc_gateway::command_desk_test {

using plc_client::Input;
using Form = CommandMetric::Form;

constexpr Ms kNow = 1700000000000;

inline CommandRule rule_of(DataType type, const char* declared, std::vector<size_t> shape = {}) {
  CommandRule rule;
  rule.name = "V";
  rule.declared_type = declared;
  rule.type = type;
  rule.shape = std::move(shape);
  return rule;
}

inline CommandMetric numbered(Form form, uint64_t number) {
  CommandMetric metric;
  metric.name = "V";
  metric.form = form;
  metric.number = number;
  return metric;
}

inline CommandMetric real(Form form, double number) {
  CommandMetric metric = numbered(form, 0);
  metric.real = number;
  return metric;
}

inline CommandMetric with_bytes(Form form, std::string bytes) {
  CommandMetric metric = numbered(form, 0);
  metric.text = std::move(bytes);
  return metric;
}

inline CommandDesk::Decision decide(CommandDesk& desk, const CommandMetric& metric, Ms wall = kNow, Ms steady = 0,
                                    bool retained = false, std::optional<Ms> sent = kNow) {
  const auto decisions = desk.decide({sent, {metric}}, retained, wall, steady, {{7, "V"}, {8, "Other"}});
  EXPECT_EQ(decisions.size(), 1U);
  return decisions.at(0);
}

// An input as text: "5i" signed, "5u" unsigned, "1.5r", "true", "'text'", "[...]".
inline std::string shown(const Input& input) {
  switch (input.form()) {
    case Input::Form::kBool:
      return input.bits() != 0 ? "true" : "false";
    case Input::Form::kSigned:
      return std::to_string(static_cast<int64_t>(input.bits())) + "i";
    case Input::Form::kUnsigned:
      return std::to_string(input.bits()) + "u";
    case Input::Form::kReal: {
      char text[40];
      std::snprintf(text, sizeof text, "%.17gr", input.real());
      return text;
    }
    case Input::Form::kText:
    case Input::Form::kBytes:
      return "'" + input.text() + "'";
    case Input::Form::kList:
      break;
  }
  std::string text = "[";
  for (const Input& item : input.items()) text += shown(item) + " ";
  return text + "]";
}

// The value of the job, or "kind: reason".
inline std::string shown(const CommandDesk::Decision& decision) {
  if (const auto* job = std::get_if<WriteJob>(&decision)) return shown(job->value);
  const auto& refusal = std::get<Refusal>(decision);
  return refusal.kind + ": " + refusal.reason;
}

// What becomes of one command for one rule.
inline std::string decided(const CommandRule& rule, const CommandMetric& metric) {
  CommandDesk desk({rule});
  return shown(decide(desk, metric));
}

inline std::string decided_in_range(CommandRule rule, double min, double max, const CommandMetric& metric) {
  rule.min = min;
  rule.max = max;
  return decided(rule, metric);
}

}  // namespace plc_gateway::command_desk_test
