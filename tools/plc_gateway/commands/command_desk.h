// Decides on commands: which of them may be written, and as what. It writes nothing itself.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tools/plc_gateway/model/variable.h"
#include "tools/plc_gateway/sparkplug/payload.h"

namespace plc_gateway {

struct Refusal {
  std::string name;    // as far as the command named something
  std::string reason;  // a sentence
  std::string kind;    // a word for the counters: "not-listed", "type", "range", "rate", "old", "repeated", "retained",
                       // "null", "malformed", "device-lost", "busy"
};

class CommandDesk {
 public:
  CommandDesk() = default;
  explicit CommandDesk(std::vector<CommandRule> rules);

  // `name_of_alias` tells the name of a metric of the births. Each metric of the message is decided on its own, in its
  // order: a job, or a refusal. `wall_now` is compared with the message's own time stamps, `steady_now` is for rates.
  using Decision = std::variant<WriteJob, Refusal>;
  std::vector<Decision> decide(const CommandMessage& message, bool retained, Ms wall_now, Ms steady_now,
                               const std::map<uint64_t, std::string>& name_of_alias);

  const std::vector<CommandRule>& rules() const { return rules_; }

 private:
  std::vector<CommandRule> rules_;
  struct Last {
    std::optional<Ms> accepted;  // steady
    std::optional<Ms> stamp;     // of the last accepted command's own time
  };
  std::map<std::string, size_t> rule_of_;
  std::vector<Last> last_;
};

}  // namespace plc_gateway
