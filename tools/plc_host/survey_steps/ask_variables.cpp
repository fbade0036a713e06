// Requests of several variables, and their replies taken apart.
#include "tools/plc_host/survey_steps/ask_variables.h"

#include "wire/request_writer.h"

namespace plc_host::survey {
namespace {

using AskFunction = Asked (Conversation::*)(const std::string&, uint32_t, const plc_sim::Bytes&);

NamesAnswer ask_for_names(Conversation& conversation, const std::vector<const Declared*>& variables, AskFunction ask) {
  std::vector<std::string> names;
  names.reserve(variables.size());
  for (const Declared* declared : variables) names.push_back(declared->wire_name);
  const std::optional<uint8_t> program = variables.empty() ? std::nullopt : variables.front()->program;
  NamesAnswer answer;
  answer.asked = (conversation.*ask)("resolve", static_cast<uint32_t>(names.size()),
                                     plc_sim::resolve_request(conversation.next_sequence(), program, names));
  if (!answer.asked.is_answered()) return answer;
  answer.is_complete = answer.asked.shape.is_complete;
  answer.records = wire_trace::records_of(answer.asked.answer.bytes, names.size());
  return answer;
}

ValuesAnswer ask_for_values(Conversation& conversation, const std::vector<const Declared*>& variables,
                            AskFunction ask) {
  std::vector<plc_sim::Reference> references;
  references.reserve(variables.size());
  for (const Declared* declared : variables) references.push_back(reference_to(*declared));
  ValuesAnswer answer;
  answer.asked = (conversation.*ask)("read", static_cast<uint32_t>(references.size()),
                                     plc_sim::value_request(conversation.next_sequence(), references));
  if (!answer.asked.is_answered()) return answer;
  plc_sim::Findings ignored;
  const plc_sim::Request request = plc_sim::parse_request(answer.asked.request, ignored);
  for (size_t i = 0; i < references.size(); ++i) {
    answer.values.push_back(wire_trace::value_of(request, answer.asked.answer.bytes, i));
  }
  return answer;
}

}  // namespace

NamesAnswer ask_names(Conversation& conversation, const std::vector<const Declared*>& variables) {
  return ask_for_names(conversation, variables, &Conversation::ask);
}

ValuesAnswer ask_values(Conversation& conversation, const std::vector<const Declared*>& variables) {
  return ask_for_values(conversation, variables, &Conversation::ask);
}

NamesAnswer try_names(Conversation& conversation, const std::vector<const Declared*>& variables) {
  return ask_for_names(conversation, variables, &Conversation::try_asking);
}

std::optional<plc_sim::Bytes> read_again(Conversation& conversation, Declared& variable) {
  const NamesAnswer names = ask_names(conversation, {&variable});
  if (!names.is_complete) return std::nullopt;
  variable.handle = names.records.front().handle;
  variable.bit_number = names.records.front().bit_number;
  const ValuesAnswer values = ask_values(conversation, {&variable});
  if (!values.is_complete()) return std::nullopt;
  return values.values.front();
}

ValuesAnswer try_values(Conversation& conversation, const std::vector<const Declared*>& variables) {
  return ask_for_values(conversation, variables, &Conversation::try_asking);
}

}  // namespace plc_host::survey
