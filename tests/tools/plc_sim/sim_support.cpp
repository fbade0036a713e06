// What the simulator's tests share.
#include "tests/tools/plc_sim/sim_support.h"

#include <gtest/gtest.h>

#include "tests/support/frames.h"
#include "tools/plc_sim/variables/values.h"

namespace plc_sim::test {

Bench::Bench(const std::string& tag_lines, const std::map<std::string, uint8_t>& programs) {
  const TagFile file = read_tag_text("tags.csv", tag_lines);
  for (const TagProblem& problem : file.problems) ADD_FAILURE() << "line " << problem.line << ": " << problem.text;
  for (const StoreProblem& problem : store.declare(file.tags, programs, DirectoryOrder::kLongestFirst)) {
    ADD_FAILURE() << "line " << problem.line << ": " << problem.text;
  }
  session.number = 1;
  ask(plc_test::kDirectoryStart);
  const Answer directory = ask(plc_test::kDirectoryRead);
  if (!directory.findings.violations.empty()) {
    ADD_FAILURE() << directory.findings.violations[0];
  }
}

std::string Bench::value(const std::string& name) {
  const auto element = store.find_typed(name);
  return element ? value_text(store.memory(), *element) : "no such variable";
}

}  // namespace plc_sim::test
