// Counts and prints what the judge finds: violations each time, everything else the first time only.
#include "tools/plc_sim/controller/tally.h"

namespace plc_sim {
namespace {

// A host that goes wrong does so thousands of times a second; the counts go on when the printing ends.
constexpr uint64_t kMaxViolationLines = 1000;
constexpr size_t kMaxDifferentLines = 1000;

}  // namespace

void Tally::add(const std::string& where, const Findings& findings) {
  for (const std::string& text : findings.violations) {
    ++counts.violations;
    last_violation_ = std::string(where).append(": ").append(text);
    if (counts.violations <= kMaxViolationLines) print_("violation: " + last_violation_);
  }
  add_list(findings.excused, "excused after a fault: ", counts.excused);
  add_list(findings.refused, "refused: ", counts.refused);
  add_list(findings.outside, "outside: ", counts.outside);
  add_list(findings.notes, "note: ", counts.notes);
}

void Tally::add_list(const std::vector<std::string>& texts, const std::string& label, uint64_t& count) {
  for (const std::string& text : texts) {
    ++count;
    std::string line = label;
    line += text;
    print_once(line);
  }
}

void Tally::print_once(const std::string& line) {
  if (printed_.size() < kMaxDifferentLines && printed_.insert(line).second) print_(line);
}

}  // namespace plc_sim
