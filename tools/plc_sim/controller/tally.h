// Counts and prints what the judge finds.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "wire/findings.h"

namespace plc_sim {

class Tally {
 public:
  // `print` gets whole lines without their line end.
  explicit Tally(std::function<void(const std::string&)> print) : print_(std::move(print)) {}

  // `where` names the connection and the request.
  void add(const std::string& where, const Findings& findings);

  // With where it was; empty when there was none.
  const std::string& last_violation() const { return last_violation_; }

  struct Counts {
    uint64_t connections = 0;
    uint64_t requests = 0;
    uint64_t violations = 0;
    uint64_t excused = 0;
    uint64_t refused = 0;
    uint64_t outside = 0;
    uint64_t notes = 0;
  };
  Counts counts;

 private:
  void add_list(const std::vector<std::string>& texts, const std::string& label, uint64_t& count);
  void print_once(const std::string& line);

  std::function<void(const std::string&)> print_;
  std::set<std::string> printed_;
  std::string last_violation_;
};

}  // namespace plc_sim
