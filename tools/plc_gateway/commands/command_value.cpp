// Checks the value of a command against the variable's type, its shape, and the range of the rule.
#include "tools/plc_gateway/commands/command_value.h"

#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

#include "base/text.h"
#include "base/utf8.h"
#include "tools/plc_gateway/commands/exact_range.h"
#include "tools/plc_gateway/model/data_types.h"

namespace plc_gateway {
namespace {

using Form = CommandMetric::Form;

constexpr unsigned kLongBits = 64;
constexpr uint64_t kNegativeInt = uint64_t{1} << 31;
constexpr uint64_t kNegativeLong = uint64_t{1} << 63;

struct ValueProblem {
  const char* kind = nullptr;
  std::string reason;
};

// The bits of one element, or what is wrong with it.
struct TakenNumber {
  uint64_t bits = 0;
  ValueProblem wrong;
};

TakenNumber wrong_type(const std::string& reason) { return {0, {"type", reason}}; }
TakenNumber out_of_range(const std::string& reason) { return {0, {"range", reason}}; }

const char* form_name(Form form) {
  switch (form) {
    case Form::kInt:
    case Form::kLong:
      return "an integer";
    case Form::kFloat:
    case Form::kDouble:
      return "a real number";
    case Form::kBool:
      return "a Boolean";
    case Form::kString:
      return "a text";
    case Form::kBytes:
      return "bytes";
    case Form::kNone:
    case Form::kOther:
      break;
  }
  return "a value of another kind";
}

std::string limit_text(double number) {
  char text[32];
  std::snprintf(text, sizeof text, "%.17g", number);
  return text;
}

std::string type_text(const CommandRule& rule) {
  return std::string(facts_of(rule.type).name) + " (" + rule.declared_type + ")";
}

TakenNumber signed_element(const TypeFacts& facts, const CommandMetric& metric) {
  int64_t number = 0;
  if (metric.form == Form::kLong) {
    number = static_cast<int64_t>(metric.number);
  } else if (facts.bits < kLongBits || metric.number < kNegativeInt) {
    number = sign_extended(metric.number, 32);
  } else {
    return wrong_type("could be a negative number or one of " + std::to_string(metric.number) +
                      "; send it as a number of 64 bits");
  }
  const auto high = static_cast<int64_t>(low_bits(~uint64_t{0}, facts.bits) >> 1U);
  const int64_t low = -high - 1;
  if (number < low || number > high) {
    return out_of_range(std::to_string(number) + " is outside " + std::to_string(low) + " to " + std::to_string(high));
  }
  return {low_bits(static_cast<uint64_t>(number), facts.bits), {}};
}

TakenNumber unsigned_element(const TypeFacts& facts, const CommandMetric& metric) {
  const uint64_t high = low_bits(~uint64_t{0}, facts.bits);
  if (metric.number <= high) return {metric.number, {}};
  return out_of_range(std::to_string(metric.number) + " is outside 0 to " + std::to_string(high));
}

// An integer for a variable with a point: only where it cannot be a negative one and is the same behind.
TakenNumber real_of_integer(const TypeFacts& facts, const CommandMetric& metric) {
  if (metric.number >= (metric.form == Form::kInt ? kNegativeInt : kNegativeLong)) {
    return wrong_type("an integer that could be negative stands for no real number; send it as a real number");
  }
  const double number =
      facts.bits == 32 ? static_cast<double>(static_cast<float>(metric.number)) : static_cast<double>(metric.number);
  if (number >= static_cast<double>(kNegativeLong) || static_cast<uint64_t>(number) != metric.number) {
    return wrong_type(std::string("a ") + facts.name + " does not hold " + std::to_string(metric.number) +
                      " exactly; send it as a real number, as it shall be");
  }
  return {bits_of_real(number, facts.bits), {}};
}

TakenNumber real_element(const TypeFacts& facts, const CommandMetric& metric) {
  if (metric.form == Form::kInt || metric.form == Form::kLong) return real_of_integer(facts, metric);
  if (!std::isfinite(metric.real)) return out_of_range(limit_text(metric.real) + " is not a number to write");
  if (facts.bits != 32) return {bits_of_real(metric.real, facts.bits), {}};
  if (std::fabs(metric.real) > static_cast<double>(std::numeric_limits<float>::max())) {
    return out_of_range(limit_text(metric.real) + " is more than a Float holds");
  }
  if (metric.real != 0 && static_cast<float>(metric.real) == 0) {
    return out_of_range(limit_text(metric.real) + " is nearer to zero than what a Float holds, and is not zero");
  }
  if (static_cast<double>(static_cast<float>(metric.real)) != metric.real) {
    return wrong_type("a Float does not hold " + limit_text(metric.real) + " exactly; send it as a float");
  }
  return {bits_of_real(metric.real, facts.bits), {}};
}

TakenNumber single_element(const CommandRule& rule, const CommandMetric& metric) {
  const TypeFacts& facts = facts_of(rule.type);
  const bool is_integer = metric.form == Form::kInt || metric.form == Form::kLong;
  const bool is_real = metric.form == Form::kFloat || metric.form == Form::kDouble;
  if (facts.kind == ElementKind::kBool && metric.form == Form::kBool) return {metric.number != 0 ? 1U : 0U, {}};
  if (facts.kind == ElementKind::kSigned && is_integer) return signed_element(facts, metric);
  if (facts.kind == ElementKind::kUnsigned && is_integer) return unsigned_element(facts, metric);
  if (facts.kind == ElementKind::kReal && (is_integer || is_real)) return real_element(facts, metric);
  return wrong_type(std::string(form_name(metric.form)) + " is not a value of the type " + type_text(rule));
}

// With the range of the rule; reals of an array come as they are.
ValueProblem range_problem(const CommandRule& rule, uint64_t bits) {
  const TypeFacts& facts = facts_of(rule.type);
  if (facts.kind == ElementKind::kBool) return {};
  const bool is_real = facts.kind == ElementKind::kReal;
  std::string text;
  if (is_real) {
    text = limit_text(real_of_bits(bits, facts.bits));
    if (!std::isfinite(real_of_bits(bits, facts.bits))) return {"range", text + " is not a number to write"};
  } else {
    text = facts.kind == ElementKind::kSigned ? std::to_string(sign_extended(bits, facts.bits)) : std::to_string(bits);
  }
  if (rule.min && !is_at_least(facts, bits, *rule.min)) {
    return {"range", text + " is below " + limit_text(*rule.min) + ", the least that is allowed"};
  }
  if (rule.max && !is_at_most(facts, bits, *rule.max)) {
    return {"range", text + " is above " + limit_text(*rule.max) + ", the most that is allowed"};
  }
  return {};
}

ValueProblem datatype_problem(const CommandRule& rule, const CommandMetric& metric) {
  if (!metric.datatype || *metric.datatype == static_cast<uint32_t>(rule.type)) return {};
  return {"type", "the command says data type " + std::to_string(*metric.datatype) + ", the variable has " +
                      std::to_string(static_cast<unsigned>(rule.type)) + ", " + type_text(rule)};
}

plc_client::Input input_of(const TypeFacts& facts, uint64_t bits) {
  switch (facts.kind) {
    case ElementKind::kBool:
      return bits != 0;
    case ElementKind::kSigned:
      return sign_extended(bits, facts.bits);
    case ElementKind::kReal:
      return real_of_bits(bits, facts.bits);
    default:
      return bits;
  }
}

// Lists of lists, as the dimensions from depth on are.
plc_client::Input list_of(const CommandRule& rule, size_t depth, const std::vector<uint64_t>& elements, size_t& next) {
  if (depth == rule.shape.size()) return input_of(facts_of(rule.type), elements[next++]);
  std::vector<plc_client::Input> list;
  list.reserve(rule.shape[depth]);
  for (size_t i = 0; i < rule.shape[depth]; ++i) list.push_back(list_of(rule, depth + 1, elements, next));
  return list;
}

CommandValue refused(const ValueProblem& wrong) { return {std::nullopt, wrong.kind, wrong.reason}; }

CommandValue text_value(const CommandRule& rule, const CommandMetric& metric) {
  if (metric.form != Form::kString) {
    return refused({"type", std::string(form_name(metric.form)) + " is not a value of the type " + type_text(rule)});
  }
  if (!plc_base::is_utf8(metric.text)) return refused({"type", "the text is not UTF-8"});
  if (metric.text.find('\0') != std::string::npos) {
    return refused({"type", "a zero byte ends a text and cannot stand in it"});
  }
  if (const ValueProblem wrong = datatype_problem(rule, metric); wrong.kind != nullptr) return refused(wrong);
  const size_t most = text_bytes(rule.declared_type);
  if (metric.text.size() > most) {
    return refused({"range", "the text has " + plc_base::plural(metric.text.size(), "byte") + ", at most " +
                                 std::to_string(most) + " fit"});
  }
  return {plc_client::Input(metric.text), {}, {}};
}

CommandValue array_value(const CommandRule& rule, const CommandMetric& metric) {
  size_t wanted = 1;
  for (const size_t length : rule.shape) wanted *= length;
  if (metric.form != Form::kBytes) {
    return refused({"type", std::string(form_name(metric.form)) + " is not an array of the type " + type_text(rule)});
  }
  const auto elements = unpack_array(rule.type, metric.text);
  if (!elements || elements->size() != wanted) {
    return refused({"type", plc_base::plural(metric.text.size(), "byte") + " are not an array of " +
                                plc_base::plural(wanted, "element") + " of the type " + type_text(rule)});
  }
  if (const ValueProblem wrong = datatype_problem(rule, metric); wrong.kind != nullptr) return refused(wrong);
  for (size_t i = 0; i < elements->size(); ++i) {
    ValueProblem wrong = range_problem(rule, (*elements)[i]);
    if (wrong.kind == nullptr) continue;
    wrong.reason = "element " + std::to_string(i + 1) + ": " + wrong.reason;
    return refused(wrong);
  }
  size_t next = 0;
  return {list_of(rule, 0, *elements, next), {}, {}};
}

CommandValue number_value(const CommandRule& rule, const CommandMetric& metric) {
  const TakenNumber element = single_element(rule, metric);
  if (element.wrong.kind != nullptr) return refused(element.wrong);
  if (const ValueProblem wrong = datatype_problem(rule, metric); wrong.kind != nullptr) return refused(wrong);
  if (const ValueProblem wrong = range_problem(rule, element.bits); wrong.kind != nullptr) return refused(wrong);
  return {input_of(facts_of(rule.type), element.bits), {}, {}};
}

}  // namespace

CommandValue command_value(const CommandRule& rule, const CommandMetric& metric) {
  const TypeFacts& facts = facts_of(rule.type);
  if (facts.bits == 0 && (facts.is_array || facts.kind != ElementKind::kText)) {
    return refused({"type", "no value of the type " + type_text(rule) + " can be written"});
  }
  if (facts.is_array) return array_value(rule, metric);
  return facts.kind == ElementKind::kText ? text_value(rule, metric) : number_value(rule, metric);
}

}  // namespace plc_gateway
