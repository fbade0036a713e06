// Commands of hosts that mean harm, against a list of rules: what is taken is on the list, of its type, within its
// range, in time, not too soon and never taken twice; what is refused says why.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "base/utf8.h"
#include "fuzz_input.h"
#include "judge.h"
#include "tools/plc_gateway/commands/command_desk.h"

namespace {

using fuzz::demand;
using plc_client::Input;
using plc_gateway::CommandDesk;
using plc_gateway::CommandMessage;
using plc_gateway::CommandMetric;
using plc_gateway::CommandRule;
using plc_gateway::DataType;
using plc_gateway::Ms;
using plc_gateway::Refusal;
using plc_gateway::WriteJob;
using Form = CommandMetric::Form;

CommandRule rule(const char* name, DataType type, const char* declared, std::vector<size_t> shape = {}) {
  CommandRule made;
  made.name = name;
  made.declared_type = declared;
  made.type = type;
  made.shape = std::move(shape);
  made.max_age_ms = 500;
  return made;
}

CommandRule within(CommandRule made, double min, double max, Ms every_ms = 0) {
  made.min = min;
  made.max = max;
  made.every_ms = every_ms;
  return made;
}

std::vector<CommandRule> rules() {
  return {
      within(rule("A", DataType::kInt16, "INT"), -5, 3000, 100),
      within(rule("B", DataType::kInt64, "LINT"), -9007199254740993.0, 9007199254740992.0),
      within(rule("C", DataType::kFloat, "REAL"), 0, 0.1),
      rule("D", DataType::kBoolean, "BOOL"),
      rule("E", DataType::kString, "STRING(4)"),
      within(rule("F", DataType::kInt8Array, "SINT[0..1,0..1]", {2, 2}), -1, 5),
      rule("G", DataType::kBooleanArray, "BOOL[0..2]", {3}),
      within(rule("H", DataType::kUInt64, "ULINT"), 0.5, 18446744073709549568.0, 7),
      rule("I", DataType::kDouble, "LREAL"),
      rule("J", DataType::kBytes, "DATE"),
      rule("K", DataType::kUInt8, "BYTE"),
      rule("L", DataType::kFloatArray, "REAL[0..1]", {2}),
      within(rule("M", DataType::kDoubleArray, "LREAL[0..1]", {2}), -1.5, 1.5),
      rule("N", DataType::kStringArray, "STRING(2)", {2}),
      within(rule("Motor.Speed", DataType::kInt32, "DINT"), -2147483648.0, 100.5),
      within(rule("P", DataType::kUInt16Array, "UINT[0..1]", {2}), 1, 2),
  };
}

const std::map<uint64_t, std::string>& aliases() {
  static const std::map<uint64_t, std::string> all = {{1, "A"}, {2, "B"},   {3, "C"}, {4, "Node Control/Rebirth"},
                                                      {5, "F"}, {300, "H"}, {6, "Z"}, {7, "Motor.Speed"}};
  return all;
}

// ------------------------------------------------------------------------------------------------- what is demanded

// An element of a job as a number of more digits than any type has.
long double number_of(const Input& value, DataType type) {
  switch (value.form()) {
    case Input::Form::kSigned:
      return static_cast<long double>(static_cast<int64_t>(value.bits()));
    case Input::Form::kUnsigned:
      return static_cast<long double>(value.bits());
    case Input::Form::kReal:
      demand(type == DataType::kFloat || type == DataType::kFloatArray || type == DataType::kDouble ||
                 type == DataType::kDoubleArray,
             "a real number goes to a variable with a point");
      return static_cast<long double>(value.real());
    default:
      demand(false, "an element is a number");
      return 0;
  }
}

struct Bounds {
  long double low = 0, high = 0;
};

Bounds bounds_of(DataType type) {
  switch (type) {
    case DataType::kInt8Array:
      return {-128, 127};
    case DataType::kInt16:
      return {-32768, 32767};
    case DataType::kInt32:
      return {-2147483648.0L, 2147483647.0L};
    case DataType::kInt64:
      return {-9223372036854775808.0L, 9223372036854775807.0L};
    case DataType::kUInt8:
      return {0, 255};
    case DataType::kUInt16Array:
      return {0, 65535};
    case DataType::kUInt64:
      return {0, 18446744073709551615.0L};
    case DataType::kFloat:
    case DataType::kFloatArray:
      return {-3.5e38L, 3.5e38L};
    default:
      return {-1.8e308L, 1.8e308L};
  }
}

bool is_narrow_real(DataType type) { return type == DataType::kFloat || type == DataType::kFloatArray; }

void judge_number(const CommandRule& rule, const Input& value) {
  const long double number = number_of(value, rule.type);
  const Bounds bounds = bounds_of(rule.type);
  demand(std::isfinite(number), "what is no number is not written");
  demand(number >= bounds.low && number <= bounds.high, "the type holds the number");
  if (is_narrow_real(rule.type)) {
    demand(static_cast<double>(static_cast<float>(value.real())) == value.real(), "a REAL is written as it is");
  }
  const auto limit = [&](double end) {
    return static_cast<long double>(is_narrow_real(rule.type) ? static_cast<double>(static_cast<float>(end)) : end);
  };
  demand(!rule.min || number >= limit(*rule.min), "the number is not below the least");
  demand(!rule.max || number <= limit(*rule.max), "the number is not above the most");
}

// The elements, the last subscript fastest.
void flatten(const Input& value, const std::vector<size_t>& shape, size_t depth, std::vector<Input>& elements) {
  if (depth == shape.size()) {
    demand(value.form() != Input::Form::kList, "no deeper than its dimensions");
    elements.push_back(value);
    return;
  }
  demand(value.form() == Input::Form::kList && value.items().size() == shape[depth], "as long as its dimension");
  for (const Input& item : value.items()) flatten(item, shape, depth + 1, elements);
}

template <typename Number>
void append_raw(std::string& out, Number number) {
  out.append(reinterpret_cast<const char*>(&number), sizeof number);
}

// The elements once more as the standard packs them.
std::string packed(DataType type, const std::vector<Input>& elements) {
  std::string out;
  for (const Input& element : elements) {
    if (type == DataType::kInt8Array) append_raw(out, static_cast<int8_t>(element.bits()));
    if (type == DataType::kUInt16Array) append_raw(out, static_cast<uint16_t>(element.bits()));
    if (type == DataType::kFloatArray) append_raw(out, static_cast<float>(element.real()));
    if (type == DataType::kDoubleArray) append_raw(out, element.real());
  }
  return out;
}

void judge_array(const CommandRule& rule, const CommandMetric& metric, const std::vector<Input>& elements) {
  const auto unpacked = plc_gateway::unpack_array(rule.type, metric.text);
  demand(unpacked && plc_gateway::unpack_array(rule.type, plc_gateway::pack_array(rule.type, *unpacked)) == unpacked,
         "an array that is packed again is the same");
  if (rule.type != DataType::kBooleanArray) {
    demand(packed(rule.type, elements) == metric.text, "an array is written as it came");
    return;
  }
  demand(metric.text.size() == 5 && metric.text.substr(0, 4) == std::string("\3\0\0\0", 4), "three BOOLs are three");
  for (size_t i = 0; i < elements.size(); ++i) {
    const bool is_set = (static_cast<uint8_t>(metric.text[4]) & 0x80U >> i) != 0;
    demand((elements[i].bits() != 0) == is_set, "a BOOL of an array is written as it came");
  }
}

void judge_value(const CommandRule& rule, const CommandMetric& metric, const Input& value) {
  demand(rule.type != DataType::kBytes && rule.type != DataType::kStringArray, "what cannot be written is not written");
  if (rule.type == DataType::kString) {
    demand(metric.form == Form::kString && value.form() == Input::Form::kText && value.text() == metric.text,
           "a text is written as it came");
    demand(value.text().size() <= 4 && plc_base::is_utf8(value.text()) && value.text().find('\0') == std::string::npos,
           "a text fits its variable");
    return;
  }
  demand(metric.form != Form::kString, "no text for what is none");
  std::vector<Input> elements;
  flatten(value, rule.shape, 0, elements);
  demand(rule.shape.empty() == (metric.form != Form::kBytes), "bytes are for arrays");
  for (const Input& element : elements) {
    if (rule.type == DataType::kBoolean || rule.type == DataType::kBooleanArray) {
      demand(element.form() == Input::Form::kBool, "a BOOL is a bool");
    } else {
      judge_number(rule, element);
    }
  }
  if (!rule.shape.empty()) judge_array(rule, metric, elements);
  if (metric.form == Form::kInt && (rule.type == DataType::kInt64 || rule.type == DataType::kDouble)) {
    demand(metric.number < 0x80000000, "what could be negative is not guessed");
  }
  if (metric.form == Form::kInt && value.form() != Input::Form::kReal) {
    demand(static_cast<uint32_t>(value.bits()) == static_cast<uint32_t>(metric.number), "an integer stays the same");
  }
  if (metric.form == Form::kLong && value.form() != Input::Form::kReal) {
    demand(value.bits() == metric.number, "a long integer stays the same");
  }
  if (value.form() == Input::Form::kReal && (metric.form == Form::kInt || metric.form == Form::kLong)) {
    demand(static_cast<long double>(value.real()) == static_cast<long double>(metric.number), "it is not rounded");
  }
  if (metric.form == Form::kFloat || metric.form == Form::kDouble) {
    demand(value.real() == metric.real, "a real number stays the same");
  }
}

// What was taken so far, by the name of the variable; it forgets nothing.
struct Taken {
  std::set<Ms> stamps;
  Ms last_steady = 0;
};

class Referee {
 public:
  Referee() : desk_(rules()) {}

  void send(const CommandMessage& message, bool retained, Ms wall, Ms steady) {
    const auto decisions = desk_.decide(message, retained, wall, steady, aliases());
    demand(decisions.size() == message.metrics.size(), "each metric is decided on");
    for (size_t i = 0; i < decisions.size(); ++i) {
      if (const auto* refusal = std::get_if<Refusal>(&decisions[i])) {
        judge_refusal(*refusal);
      } else {
        demand(!retained, "nothing retained is written");
        judge_job(message, message.metrics[i], std::get<WriteJob>(decisions[i]), wall, steady);
      }
    }
  }

  void read_again() { desk_.replace_rules(rules()); }

 private:
  static void judge_refusal(const Refusal& refusal) {
    constexpr std::array<const char*, 9> kKinds = {"not-listed", "null",     "retained", "type",     "range",
                                                   "old",        "repeated", "rate",     "malformed"};
    const bool is_known = std::any_of(kKinds.begin(), kKinds.end(), [&](auto kind) { return refusal.kind == kind; });
    demand(is_known, "a refusal is of a known kind");
    demand(!refusal.reason.empty() && plc_base::is_utf8(refusal.reason), "a refusal has a reason");
    demand(refusal.name.size() <= 203 && plc_base::is_utf8(refusal.name), "a refused name can be published");
  }

  void judge_job(const CommandMessage& message, const CommandMetric& metric, const WriteJob& job, Ms wall, Ms steady) {
    demand(job.rule < desk_.rules().size(), "a job is on the list");
    const CommandRule& rule = desk_.rules()[job.rule];
    demand(metric.name.empty() || metric.name == rule.name, "a job is for the variable that was named");
    demand(!metric.name.empty() || metric.alias, "a job is for a variable");
    if (metric.alias) {
      const auto found = aliases().find(*metric.alias);
      demand(found != aliases().end() && found->second == rule.name, "a job is for the alias's variable");
    }
    demand(!metric.is_null && metric.form != Form::kNone && metric.form != Form::kOther, "a job has a value");
    demand(!metric.datatype || *metric.datatype == static_cast<uint32_t>(rule.type), "a job is of its data type");
    demand(metric.time || message.time, "a job has a time");
    for (const auto& time : {metric.time, message.time}) {
      demand(!time || std::fabs(static_cast<long double>(*time) - static_cast<long double>(wall)) <= 500,
             "a job is young");
    }
    Taken& taken = taken_[rule.name];
    demand(taken.stamps.empty() ||
               static_cast<long double>(steady) - static_cast<long double>(taken.last_steady) >= rule.every_ms,
           "a job is not too soon");
    demand(taken.stamps.insert(metric.time ? *metric.time : *message.time).second, "a job is not taken twice");
    taken.last_steady = steady;
    judge_value(rule, metric, job.value);
  }

  CommandDesk desk_;
  std::map<std::string, Taken> taken_;
};

// ------------------------------------------------------------------------------------------------- what hosts send

void append_varint(std::string& out, uint64_t value) {
  for (; value > 0x7F; value >>= 7U) out += static_cast<char>(static_cast<uint8_t>(value | 0x80U));
  out += static_cast<char>(static_cast<uint8_t>(value));
}

void append_number(std::string& out, unsigned field, uint64_t value) {
  append_varint(out, uint64_t{field} << 3U);
  append_varint(out, value);
}

void append_bytes(std::string& out, unsigned field, const std::string& bytes) {
  append_varint(out, uint64_t{field} << 3U | 2U);
  append_varint(out, bytes.size());
  out += bytes;
}

void append_fixed(std::string& out, unsigned field, uint64_t bits, unsigned bytes) {
  append_varint(out, uint64_t{field} << 3U | (bytes == 4 ? 5U : 1U));
  for (unsigned i = 0; i < bytes; ++i) out += static_cast<char>(static_cast<uint8_t>(bits >> (8 * i)));
}

std::string name_from(fuzz::Input& input) {
  constexpr const char* kNames[] = {
      "A", "B", "C", "D", "E", "F",           "G", "H",           "I",  "J",
      "K", "L", "M", "N", "P", "Motor.Speed", "Z", "motor.speed", "A ", "Node Control/Rebirth",
      ""};
  const uint8_t choice = input.byte();
  if (choice < std::size(kNames)) return kNames[choice];
  std::string name(choice == 0xFF ? 300 : choice % 8, '\0');
  input.copy_bytes(reinterpret_cast<uint8_t*>(name.data()), name.size());
  return name;
}

uint64_t number_from(fuzz::Input& input) {
  constexpr uint64_t kNumbers[] = {0,
                                   1,
                                   5,
                                   6,
                                   100,
                                   101,
                                   255,
                                   256,
                                   3000,
                                   3001,
                                   32767,
                                   32768,
                                   65535,
                                   0x7FFFFFFF,
                                   0x80000000,
                                   0xFFFFFFFB,
                                   0xFFFFFFFF,
                                   0x100000000,
                                   16777217,
                                   uint64_t{1} << 53,
                                   (uint64_t{1} << 53) + 1,
                                   ~uint64_t{1} << 52,
                                   0xFFFFFFFFFFFFFFFB,
                                   0xFFFFFFFFFFFFF800,
                                   0xFFFFFFFFFFFFF801,
                                   ~uint64_t{0},
                                   uint64_t{1} << 63,
                                   0x3DCCCCCD,
                                   0x3DCCCCCE,
                                   0x7F800000,
                                   0x7FC00000,
                                   0x3FB99999A0000000,
                                   0x3FF8000000000000,
                                   0x3FF8000000000001,
                                   0x7FF0000000000000,
                                   0x47F0000000000000};
  const uint8_t choice = input.byte();
  if (choice < std::size(kNumbers)) return kNumbers[choice];
  if (choice < 0x80) return static_cast<uint64_t>(static_cast<int64_t>(static_cast<int16_t>(input.word())));
  return uint64_t{input.double_word()} << 32U | input.double_word();
}

// A time at or near the clock, or any.
uint64_t time_from(fuzz::Input& input, Ms wall) {
  const uint8_t choice = input.byte();
  if (choice < 0xF0) return static_cast<uint64_t>(wall + choice % 16 - 8);
  constexpr Ms kEdges[] = {-501, -500, -499, 499, 500, 501};
  if (choice - 0xF0U < std::size(kEdges)) return static_cast<uint64_t>(wall + kEdges[choice - 0xF0U]);
  return number_from(input);
}

void append_value(std::string& metric, fuzz::Input& input) {
  const uint8_t form = input.byte() % 12;
  std::string bytes;
  if (form >= 6) {
    bytes.resize(input.byte() % 20);
    input.copy_bytes(reinterpret_cast<uint8_t*>(bytes.data()), bytes.size());
  }
  switch (form) {
    case 0:
      return append_number(metric, 10, static_cast<uint32_t>(number_from(input)));
    case 1:
      return append_number(metric, 11, number_from(input));
    case 2:
      return append_fixed(metric, 12, number_from(input), 4);
    case 3:
      return append_fixed(metric, 13, number_from(input), 8);
    case 4:
      return append_number(metric, 14, input.byte() % 2);
    case 5:
      return;
    case 6:
    case 7:
      return append_bytes(metric, 15, bytes);
    case 8:
      return append_bytes(metric, bytes.size() % 2 == 0 ? 17 : 18, bytes);
    default:
      return append_bytes(metric, 16, bytes);
  }
}

std::string metric_from(fuzz::Input& input, Ms wall) {
  std::string metric;
  const uint8_t fields = input.byte();
  if ((fields & 3U) != 1) append_bytes(metric, 1, name_from(input));
  if ((fields & 3U) == 1 || (fields & 0x1CU) == 0x1C) append_number(metric, 2, input.byte() % 10);
  if ((fields & 0xC0U) == 0xC0) append_number(metric, 3, time_from(input, wall));
  if ((fields & 0x38U) == 0x30) append_number(metric, 4, input.byte() % 40);
  if ((fields & 0xECU) == 0x44) append_number(metric, 7, input.byte() % 2);
  append_value(metric, input);
  return metric;
}

std::string payload_from(fuzz::Input& input, Ms wall) {
  std::string payload;
  const uint8_t choice = input.byte();
  if ((choice & 7U) != 0) append_number(payload, 1, time_from(input, wall));
  for (unsigned i = 0; i <= choice >> 6U; ++i) append_bytes(payload, 2, metric_from(input, wall));
  if ((choice & 0x38U) == 0x38 && !payload.empty())
    payload[input.byte() % payload.size()] = static_cast<char>(input.byte());
  return payload;
}

// Messages at times of the fuzzer's, put together of fields.
void play(fuzz::Input& input) {
  Referee referee;
  Ms wall = 1000;
  Ms steady = 1000;
  while (!input.empty()) {
    const uint8_t step = input.byte();
    if ((step & 0xE0U) == 0x20) wall += static_cast<int16_t>(input.word());
    if ((step & 0xE0U) == 0x40) steady += input.byte();
    if ((step & 0xE0U) == 0x60) referee.read_again();
    const auto message = plc_gateway::read_command(payload_from(input, wall));
    if (message) referee.send(*message, (step & 0x1FU) == 0x1F, wall, steady);
    wall += step % 8;
    steady += step % 8;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  if (input.byte() % 4 != 0) {
    play(input);
    return 0;
  }
  const std::string payload = input.text();
  plc_gateway::read_host_state(payload);
  const auto message = plc_gateway::read_command(payload);
  if (!message) return 0;
  Referee referee;
  referee.send(*message, false, 1000, 0);
  referee.send(*message, false, 1100, 100);
  return 0;
}
