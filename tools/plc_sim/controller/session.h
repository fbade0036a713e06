// What the controller remembers of one connection: where it stands and which names it answered last.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/plc_sim/variables/memory.h"
#include "tools/plc_sim/variables/variables.h"

namespace plc_sim {

struct ResolvedName {
  std::string name;                // as it travels, behind its program
  std::string shown;               // the same for messages
  std::optional<Element> element;  // empty for a refused name
  Handle handle;                   // null for a refused name
};

// What became of a reply on its way to the host.
enum class ReplyDamage {
  kNone,
  kThisReply,  // its content, or part of it, did not arrive: what the host sends next may rest on nothing
  kTheStream   // bytes were added or held back: any later reply may be taken for another one
};

struct Session {
  unsigned number = 0;
  unsigned requests = 0;
  bool is_served = true;  // else one more than the controller serves: nothing is answered
  bool directory_started = false;
  bool directory_sent = false;
  bool has_resolved = false;
  std::optional<uint16_t> next_sequence;
  std::vector<ResolvedName> names;    // of the last resolve request, in its order
  bool names_end_in_missing = false;  // that request announced a name and carried none
  std::optional<uint16_t> word_read;  // of the last read of one flag, for the write that gives it back
  ReplyDamage damage = ReplyDamage::kNone;
  std::optional<uint16_t> refusal;  // the status with which the next request is refused, whatever it asks for
};

}  // namespace plc_sim
