// Names and values of declared variables, asked for in one request each.
#pragma once

#include <vector>

#include "tools/plc_host/survey/conversation.h"
#include "tools/plc_host/survey/declared.h"

namespace plc_host::survey {

struct NamesAnswer {
  Asked asked;
  std::vector<wire_trace::NameRecord> records;  // one for each name
  bool is_complete = false;                     // each has a handle
};

// All are of one program, or of none.
NamesAnswer ask_names(Conversation& conversation, const std::vector<const Declared*>& variables);

// The names are asked for right before, as the driver does it.
struct ValuesAnswer {
  Asked asked;
  std::vector<plc_sim::Bytes> values;  // one for each reference, as they came
  bool is_complete() const { return asked.shape.is_complete; }
};

ValuesAnswer ask_values(Conversation& conversation, const std::vector<const Declared*>& variables);

// The same where silence, too, is an answer.
NamesAnswer try_names(Conversation& conversation, const std::vector<const Declared*>& variables);
ValuesAnswer try_values(Conversation& conversation, const std::vector<const Declared*>& variables);

// Name and value of one variable, which takes its handle from the reply; nothing where one of them is not answered.
std::optional<plc_sim::Bytes> read_again(Conversation& conversation, Declared& variable);

}  // namespace plc_host::survey
