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
                       // "null", "malformed", "device-lost", "busy", "disk"
  std::optional<std::string> value = std::nullopt;  // of the command, as a text
  std::optional<Ms> sent = std::nullopt;            // the command's own time
};

class CommandDesk {
 public:
  CommandDesk() = default;
  explicit CommandDesk(std::vector<CommandRule> rules);

  // From a configuration that was read again: what was taken before stays known.
  void replace_rules(std::vector<CommandRule> rules);

  // `name_of_alias` tells the name of a metric of the births. Each metric of the message is decided on its own, in its
  // order: a job, or a refusal. `wall_now` is compared with the time of the message and of its metric, one of which
  // there must be; the metric's, or else the message's, must be newer than that of the last one taken for the variable.
  // `steady_now` is for rates.
  using Decision = std::variant<WriteJob, Refusal>;
  std::vector<Decision> decide(const CommandMessage& message, bool retained, Ms wall_now, Ms steady_now,
                               const std::map<uint64_t, std::string>& name_of_alias);

  // A command of before this moment of the steady clock may have been taken by a process before this one, and is too
  // old. Without a call none is for that.
  void remembers_from(Ms steady) { remembers_from_ = steady; }

  // Of each variable the newest time of a command that a process before this one took: no older one is taken.
  void remembers(const std::map<std::string, Ms>& times);

  const std::vector<CommandRule>& rules() const { return rules_; }

 private:
  struct Arrival {
    std::optional<Ms> time;  // of the message
    bool retained = false;
    Ms wall_now = 0;
    Ms steady_now = 0;
  };
  struct Refused {
    const char* kind = nullptr;
    std::string reason;
  };
  struct Last {
    std::optional<Ms> accepted;  // steady
    // The newest of accepted commands by their own times, maybe by a process before this one. What is not behind it may
    // have been accepted too, and what it overtook must not undo it.
    std::optional<Ms> newest;
  };
  const CommandRule* rule_named(const std::string& name) const;
  Decision decide_one(const CommandMetric& metric, const Arrival& arrival,
                      const std::map<uint64_t, std::string>& name_of_alias);
  Refused time_problem(const CommandRule& rule, const CommandMetric& metric, const Arrival& arrival);

  std::vector<CommandRule> rules_;
  std::optional<Ms> remembers_from_;
  std::map<std::string, size_t> rule_of_;
  std::map<std::string, Last> last_;  // by the name of the variable
};

}  // namespace plc_gateway
