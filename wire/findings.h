// What the judge found in one request: violations, and notes on things that are odd but allowed.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace plc_sim {

struct Findings {
  std::vector<std::string> violations;
  std::vector<std::string> excused;  // would be violations, but a fault spoiled the replies they rest on
  std::vector<std::string> refused;  // names that no variable has, and what follows from them
  std::vector<std::string> outside;  // elements outside their variable's declared bounds
  std::vector<std::string> notes;

  void violation(std::string text) { violations.push_back(std::move(text)); }
};

}  // namespace plc_sim
