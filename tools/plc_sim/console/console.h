// The commands that people and tests give on standard input.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "tools/plc_sim/controller/faults.h"
#include "tools/plc_sim/controller/tally.h"
#include "tools/plc_sim/variables/variables.h"

namespace plc_sim {

class Console {
 public:
  struct Hooks {
    std::function<bool(const Fault&)> arm;  // false: too many are armed
    std::function<void()> clear_faults;
    std::function<void()> quit;
    std::function<std::string(const std::string& format)> report;  // throws Mistake
    bool has_variables = true;                                     // false: a capture answers
  };

  Console(VariableStore& store, const FaultBook& faults, const Tally& tally, Hooks hooks)
      : store_(store), faults_(faults), tally_(tally), hooks_(std::move(hooks)) {}

  // One command line; its answer, whose last line is "ok" or starts with "error: ". An empty line answers nothing.
  std::string run(std::string_view line);

  // The commands, a line or more each.
  static std::string help();

 private:
  std::string answer(const std::string& command, const std::string& rest);
  std::string set(const std::string& rest);
  [[noreturn]] void refuse_name(const std::string& name, const std::string& rest) const;
  std::string set_array(Variable& variable, const std::string& list);
  std::string show(const std::string& rest);
  std::string dump(const std::string& rest) const;
  std::string counts(const std::string& rest) const;
  std::string fault(const std::string& rest);
  std::string list_faults() const;

  VariableStore& store_;
  const FaultBook& faults_;
  const Tally& tally_;
  Hooks hooks_;
};

}  // namespace plc_sim
