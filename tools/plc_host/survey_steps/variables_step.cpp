// Each declared variable: named and read by itself, then in batches, and what it is refused with.
#include <algorithm>
#include <map>

#include "base/near_names.h"
#include "base/text.h"
#include "client/driver/failure.h"
#include "client/plan/transfer_plan.h"
#include "client/values/value_text.h"
#include "client/values/value_type.h"
#include "tools/plc_host/survey/refusal_tally.h"
#include "tools/plc_host/survey_steps/ask_variables.h"
#include "tools/plc_host/survey_steps/survey_steps.h"

namespace plc_host::survey {
namespace {

using VariableState = VariableFinding::State;

constexpr size_t kMostNearSearches = 200;  // each is compared with all names
constexpr size_t kFirstBatch = 16;         // names: the limits are not known yet
constexpr size_t kMostBatchBytes = 1400;   // of its requests and replies
constexpr size_t kNameBytesBeside = 2;
constexpr size_t kRecordBytes = 36;       // of a resolved name with three dimensions
constexpr unsigned kRereads = 8;          // each way
constexpr unsigned kSameRefusals = 2;     // behind the first
constexpr unsigned kMostRefusalAsks = 6;  // until so many in a row are the same
constexpr char kDamaged[] = "not told: replies were damaged, and no three in a row refuse it alike";

// That a host asks for in its batches, to read all of it.
uint64_t names_of_all(const TagEntry& entry) {
  constexpr uint64_t kNamesPerBool = 2;
  if (value_kind(entry) == ValueKind::kText) return plan_string_read(entry).size();
  uint64_t elements = 1;
  for (const SubscriptRange& range : declared_ranges(entry)) {
    elements *= static_cast<uint64_t>(int64_t{range.high} - int64_t{range.low} + 1);
  }
  return value_kind(entry) == ValueKind::kBool ? elements * kNamesPerBool : elements;
}

VariableFinding finding_of(const Declared& declared) {
  VariableFinding finding;
  finding.name = declared.tag->qualified_name;
  finding.own_name = declared.tag->name;
  if (declared.tag->entry.is_global != 1) finding.program = declared.tag->entry.scope_name;
  finding.element = declared.element;
  finding.type = declared_type(declared.tag->entry);
  finding.names = names_of_all(declared.tag->entry);
  finding.file = declared.file;
  finding.line = declared.line;
  finding.area = declared.area;
  return finding;
}

void take_refusal(const Asked& asked, const std::string& why, VariableFinding& finding) {
  finding.state = VariableState::kRefused;
  finding.refusal = asked.answer.bytes;
  finding.status = status_of(asked.answer.bytes);
  finding.why = why + ", status " + plc_base::hexadecimal(finding.status, 4);
}

// With the same words: a damaged reply looks like a refusal too.
bool is_same_refusal(const RuleBook& rules, const Asked& one, const Asked& other) {
  return one.answer.bytes.size() == other.answer.bytes.size() && rules.has_usual_head(one) &&
         rules.has_usual_head(other) && status_of(one.answer.bytes) == status_of(other.answer.bytes);
}

// Of a type without a width plc-host read shows nothing, whatever the driver stores of it.
void take_value(const Declared& declared, VariableFinding& finding) {
  finding.has_no_value = value_kind(declared.tag->entry) == ValueKind::kRaw;
  if (!finding.has_no_value) finding.value = value_text(declared, declared.value);
  const TagEntry& entry = declared.tag->entry;
  const auto end = std::find(declared.value.begin(), declared.value.end(), uint8_t{0});
  const bool is_full = end == declared.value.end() || end - declared.value.begin() >= entry.string_length;
  finding.may_go_on = value_kind(entry) == ValueKind::kText && is_full;
}

// It lacks something that was asked for, has more than values mostly have, or a status that may refuse it.
bool is_doubtful(const RuleBook& rules, const Asked& asked) {
  if (!asked.is_answered()) return false;
  return asked.is_open || !asked.shape.is_complete ||
         (asked.shape.behind > 0 && !rules.is_usual_surplus(asked.shape.behind));
}

class VariableStep {
 public:
  VariableStep(Conversation& conversation, Declarations& declared)
      : conversation_(conversation), variables_(declared.variables), record_(conversation.record().variables) {}

  void run() {
    for (const Declared& declared : variables_) record_.findings.push_back(finding_of(declared));
    for (size_t i = 0; i < variables_.size(); ++i) ask_singly(i);
    ask_unknown();
    take_refusals_without_status();
    ask_in_batches();
    take_common_surplus();
    find_near_names();
  }

 private:
  // A value that came otherwise in a batch.
  struct Other {
    size_t place;  // in the batch
    size_t at;     // in the variables
    plc_sim::Bytes singly;
    plc_sim::Bytes batched;
  };

  void ask_singly(size_t at);
  bool read_singly(size_t at);
  void take_answer(const ValuesAnswer& values, bool is_told, size_t at);
  template <typename Ask>
  auto settled(const Ask& ask, bool& is_told) -> decltype(ask());
  void ask_unknown();
  void ask_often(const std::vector<const Declared*>& names);
  void ask_in_batches();
  void ask_batch(const std::vector<size_t>& batch);
  ValuesAnswer values_of(const std::vector<size_t>& batch);
  void compare(const std::vector<size_t>& batch, const std::vector<plc_sim::Bytes>& values);
  bool is_moving(Other& other);
  void look_again(const std::vector<size_t>& batch, std::vector<Other>& others);
  void take_common_surplus();
  bool is_empty_success(const Asked& asked) const;
  void take_refusals_without_status();
  void find_near_names();

  Conversation& conversation_;
  std::vector<Declared>& variables_;
  Variables& record_;
  size_t batch_names_ = kFirstBatch;
  std::map<size_t, Asked> empty_;  // replies without a value and with the status of success, by their variables
};

// What lacks something, or has too much, is asked for again until it is as declared, or until the same reply came three
// times.
template <typename Ask>
auto VariableStep::settled(const Ask& ask, bool& is_told) -> decltype(ask()) {
  const RuleBook& rules = conversation_.rules();
  auto answer = ask();
  unsigned same = 0;
  for (unsigned i = 0; i < kMostRefusalAsks && same < kSameRefusals && is_doubtful(rules, answer.asked); ++i) {
    const auto again = ask();
    same = is_same_refusal(rules, answer.asked, again.asked) ? same + 1 : 0;
    answer = again;
  }
  is_told = !is_doubtful(rules, answer.asked) || same >= kSameRefusals;
  return answer;
}

void VariableStep::ask_singly(size_t at) {
  Declared& declared = variables_[at];
  VariableFinding& finding = record_.findings[at];
  if (!declared.is_asked) {
    const std::string scope = quote_text(declared.tag->entry.scope_name);
    finding.why = (declared.is_program_known ? "the controller has no program " + scope
                                             : "whether the controller has a program " + scope + " is not known") +
                  ": what answers could be another program's variable";
    return;
  }
  bool is_told = false;
  NamesAnswer names = settled([&] { return ask_names(conversation_, {&declared}); }, is_told);
  if (!names.asked.is_answered()) names = settled([&] { return ask_names(conversation_, {&declared}); }, is_told);
  if (!names.asked.is_answered()) {
    finding.state = VariableState::kNotNamed;
    finding.why = "no answer to its name, asked for twice";
    return;
  }
  if (!is_told) {
    finding.state = VariableState::kNotNamed;
    finding.why = kDamaged;
    return;
  }
  if (names.asked.shape.is_refused) return take_refusal(names.asked, "its name is refused", finding);
  if (!names.is_complete) {
    finding.state = VariableState::kNotNamed;
    finding.why = "the reply to its name has " + plc_base::plural(names.asked.answer.bytes.size(), "byte") +
                  ", which is too few for its place";
    return;
  }
  finding.is_named = true;
  finding.name_reply_bytes = names.asked.answer.bytes.size();
  declared.handle = names.records.front().handle;
  declared.bit_number = names.records.front().bit_number;
  if (declared.units == 0) {
    finding.why = "its name is known; the driver transfers no values of its type";
    return;
  }
  if (read_singly(at)) return;
  // One reply that is lost says nothing of the variable.
  names = ask_names(conversation_, {&declared});
  if (names.is_complete && read_singly(at)) return;
  finding.state = VariableState::kNotNamed;
  finding.why = "its name is known, its value is not answered, asked for twice";
}

// False without an answer.
bool VariableStep::read_singly(size_t at) {
  Declared& declared = variables_[at];
  VariableFinding& finding = record_.findings[at];
  bool is_first = true;
  bool is_told = false;
  // The name is asked for right before each value.
  const auto ask = [&] {
    if (!is_first) ask_names(conversation_, {&declared});
    is_first = false;
    return ask_values(conversation_, {&declared});
  };
  const ValuesAnswer values = settled(ask, is_told);
  if (!values.asked.is_answered()) return false;
  finding.value_reply_bytes = values.asked.answer.bytes.size();
  take_answer(values, is_told, at);
  return true;
}

// Told: what it lacks came so each time.
void VariableStep::take_answer(const ValuesAnswer& values, bool is_told, size_t at) {
  Declared& declared = variables_[at];
  VariableFinding& finding = record_.findings[at];
  if (!is_told && !values.asked.shape.is_complete) {
    finding.state = VariableState::kNotNamed;
    finding.why = kDamaged;
  } else if (values.asked.shape.is_refused && !is_empty_success(values.asked)) {
    take_refusal(values.asked, "its name is known, its value is refused", finding);
  } else if (!values.asked.shape.is_complete) {
    finding.state = VariableState::kShort;
    finding.why = "the reply has " + plc_base::plural(values.asked.answer.bytes.size() - 14, "byte") + " where " +
                  finding.type + " takes " + std::to_string(size_t{2} * declared.units);
    if (is_empty_success(values.asked)) empty_[at] = values.asked;
  } else {
    declared.value = values.values.front();
    declared.is_good = true;
    take_value(declared, finding);
    finding.state = values.asked.shape.behind == 0 ? VariableState::kGood : VariableState::kLong;
    if (finding.has_no_value) finding.why = std::string(kNoValueShown) + kCutAtZero;
    if (values.asked.shape.behind > 0) {
      finding.why = plc_base::plural(values.asked.shape.behind, "byte") + " behind the value";
    }
  }
}

bool VariableStep::is_empty_success(const Asked& asked) const {
  const bool is_empty = asked.answer.bytes.size() <= plc_sim::wire::kReplyHeadBytes;
  return is_empty && status_of(asked.answer.bytes) == conversation_.rules().status_of_success();
}

// Of a controller that refuses names with a head and the status of success, the same form refuses a value.
void VariableStep::take_refusals_without_status() {
  const HeadCounts& heads = conversation_.record().heads;
  for (const auto& [at, asked] : empty_) {
    if (heads.is_refusal_full != false || heads.refusal_status != status_of(asked.answer.bytes)) continue;
    take_refusal(asked, "its name is known, its value is refused", record_.findings[at]);
  }
}

// What a name gets that no controller has, by itself and beside one that it has. One reply may have been damaged.
void VariableStep::ask_unknown() {
  Tag tag;
  tag.name = tag.qualified_name = kUnknownName;
  Declared unknown;
  unknown.tag = &tag;
  unknown.wire_name = kUnknownName;
  ask_often({&unknown});
  for (const Declared& declared : variables_) {
    if (!declared.is_good || declared.program) continue;
    ask_often({&declared, &unknown});
    break;
  }
}

void VariableStep::ask_often(const std::vector<const Declared*>& names) {
  NamesAnswer last;
  unsigned answered = 0;
  for (unsigned i = 0; i < 1 + kSameRefusals; ++i) {
    NamesAnswer answer = ask_names(conversation_, names);
    if (!answer.is_complete) continue;
    ++answered;
    last = std::move(answer);
  }
  if (answered > 1) conversation_.rules().take_false_answer(last.asked);
}

void VariableStep::ask_in_batches() {
  std::vector<size_t> batch;
  size_t bytes = 0;
  const auto flush = [&] {
    if (!batch.empty()) ask_batch(batch);
    batch.clear();
    bytes = 0;
  };
  for (size_t i = 0; i < variables_.size(); ++i) {
    const Declared& declared = variables_[i];
    if (!declared.is_good) continue;
    const size_t own =
        std::max({kRecordBytes, size_t{2} * declared.units, 2 * declared.wire_name.size()}) + kNameBytesBeside;
    const bool is_other = !batch.empty() && variables_[batch.back()].program != declared.program;
    if (is_other || batch.size() >= batch_names_ || bytes + own > kMostBatchBytes) flush();
    batch.push_back(i);
    bytes += own;
  }
  flush();
}

// By the places that the batch's own reply gives the names, as the driver reads them. Without values where the names or
// the values are not answered.
ValuesAnswer VariableStep::values_of(const std::vector<size_t>& batch) {
  std::vector<Declared> variables;
  variables.reserve(batch.size());
  for (const size_t at : batch) variables.push_back(variables_[at]);
  std::vector<const Declared*> asked;
  asked.reserve(batch.size());
  for (const Declared& variable : variables) asked.push_back(&variable);
  const NamesAnswer names = ask_names(conversation_, asked);
  for (size_t i = 0; names.is_complete && i < variables.size(); ++i) {
    variables[i].handle = names.records[i].handle;
    variables[i].bit_number = names.records[i].bit_number;
  }
  ValuesAnswer none;
  none.asked.answer = names.asked.answer;
  if (!names.is_complete) return none;
  const unsigned connections = conversation_.connections();
  const ValuesAnswer values = ask_values(conversation_, asked);
  // A controller may know the names of its own connection only: nothing is said of them over another one.
  return conversation_.connections() == connections ? values : ValuesAnswer{};
}

// A batch that fails is asked for in halves: either a variable cannot be read in one, or there were too many names. A
// reply that is lost says neither.
void VariableStep::ask_batch(const std::vector<size_t>& batch) {
  ValuesAnswer values = values_of(batch);
  if (!values.asked.is_answered()) values = values_of(batch);
  if (values.is_complete()) return compare(batch, values.values);
  if (batch.size() == 1) {
    if (!values.asked.is_answered()) return;
    VariableFinding& finding = record_.findings[batch.front()];
    finding.state = VariableState::kDifferent;
    finding.why = "read once, and not when it was asked for again, twice";
    return;
  }
  const auto middle = batch.begin() + static_cast<std::ptrdiff_t>(batch.size() / 2);
  batch_names_ = std::max<size_t>(1, std::min(batch_names_, batch.size() / 2));
  ask_batch({batch.begin(), middle});
  ask_batch({middle, batch.end()});
}

void VariableStep::compare(const std::vector<size_t>& batch, const std::vector<plc_sim::Bytes>& values) {
  std::vector<Other> others;
  for (size_t i = 0; i < batch.size(); ++i) {
    const Declared& declared = variables_[batch[i]];
    record_.findings[batch[i]].is_batched = true;
    if (!is_same_value(declared, declared.value, values[i])) others.push_back({i, batch[i], declared.value, values[i]});
  }
  look_again(batch, others);
}

// Read singly it has another value than before.
bool VariableStep::is_moving(Other& other) {
  Declared& declared = variables_[other.at];
  const std::optional<plc_sim::Bytes> again = read_again(conversation_, declared);
  if (!again || is_same_value(declared, *again, other.singly)) return false;
  declared.value = *again;
  take_value(declared, record_.findings[other.at]);
  return true;
}

// A variable that changes has two values read the same way. Different is what is always one value singly and another
// one in a batch.
void VariableStep::look_again(const std::vector<size_t>& batch, std::vector<Other>& others) {
  for (unsigned i = 0; i < kRereads && !others.empty(); ++i) {
    const ValuesAnswer batched = values_of(batch);
    const auto changes = [&](Other& other) {
      const bool is_other =
          batched.is_complete() && !is_same_value(variables_[other.at], batched.values[other.place], other.batched);
      if (!is_moving(other) && !is_other) return false;
      record_.findings[other.at].changes = true;
      return true;
    };
    others.erase(std::remove_if(others.begin(), others.end(), changes), others.end());
  }
  for (const Other& other : others) {
    const Declared& declared = variables_[other.at];
    VariableFinding& finding = record_.findings[other.at];
    finding.state = VariableState::kDifferent;
    finding.is_other_in_batch = true;
    finding.why = "read singly " + value_text(declared, other.singly) + ", in a batch " +
                  value_text(declared, other.batched) + ", " + std::to_string(kRereads + 1) + " times each";
  }
}

// Bytes that every value reply has behind its values are the controller's way, and say nothing of a variable.
void VariableStep::take_common_surplus() {
  conversation_.finish();
  const std::optional<uint32_t> behind = conversation_.record().heads.bytes_behind_values;
  for (VariableFinding& finding : record_.findings) {
    if (finding.state != VariableState::kLong || !behind) continue;
    finding.state = VariableState::kGood;
    finding.why = finding.has_no_value ? std::string(kNoValueShown) + kCutAtZero : "";
  }
}

void VariableStep::find_near_names() {
  std::vector<std::string> answered;
  for (const VariableFinding& finding : record_.findings) {
    if (finding.state == VariableState::kGood) answered.push_back(finding.name);
  }
  size_t left = kMostNearSearches;
  for (VariableFinding& finding : record_.findings) {
    if (finding.state != VariableState::kRefused || left == 0) continue;
    finding.near = plc_base::near_names(finding.name, answered);
    --left;
  }
}

}  // namespace

uint64_t variable_requests(const Declarations& declared) {
  constexpr uint64_t kNamedAndRead = 2;
  return declared.variables.size() * kNamedAndRead + declared.variables.size() / 4;
}

void survey_variables(Conversation& conversation, Declarations& declared) {
  run_step(conversation.record().variables.step, [&] { VariableStep(conversation, declared).run(); });
}

}  // namespace plc_host::survey
