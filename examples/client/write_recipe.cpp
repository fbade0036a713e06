// Writes a recipe, reads it back and computes with values:  write_recipe ADDRESS PORT TAGS
#include <plc_client.h>

#include <cstdio>
#include <numeric>
#include <string>
#include <vector>

#include "number_argument.h"

namespace {

const char* outcome_word(plc_client::Outcome outcome) {
  switch (outcome) {
    case plc_client::Outcome::kDone:
      return "done";
    case plc_client::Outcome::kNotDone:
      return "not done";
    case plc_client::Outcome::kUnknown:
      return "unknown";
  }
  return "";
}

int write_recipe(plc_client::Controller& machine) {
  const std::vector<plc_client::WriteResult> results = machine.write(
      {
          {"Recipe.Name", "Lemon tart"},
          {"Motor.Speed", 1500},
          {"Motor.Current", 2.5},
          {"Main/Busy", true},
          {"Levels", std::vector<int>{10, 20, 30, 40, 50}},
          {"Grid[1,2]", -42},
      },
      plc_client::Verify::kReadBack);
  int failed = 0;
  for (const plc_client::WriteResult& result : results) {
    std::printf("%s: %s%s%s\n", result.name.c_str(), outcome_word(result.outcome), result.verified ? ", read back" : "",
                (result.ok() ? "" : ": " + result.error.text).c_str());
    failed += result.ok() ? 0 : 1;
  }
  return failed;
}

void show_sums(plc_client::Controller& machine) {
  const plc_client::Reading levels = machine.read("Levels");
  const plc_client::Reading current = machine.read("Motor.Current");
  if (!levels.ok() || !current.ok()) return;
  const std::vector<int32_t> heights = levels.value.as_vector<int32_t>();
  std::printf("%zu levels, together %d\n", heights.size(), std::accumulate(heights.begin(), heights.end(), 0));
  std::printf("twice the current: %.1f\n", 2 * current.value.as<double>());
}

}  // namespace

int main(int count, char** words) {
  if (count != 4) {
    std::fprintf(stderr, "usage: write_recipe ADDRESS PORT TAGS\n");
    return 2;
  }
  try {
    plc_client::Options options;
    options.address = words[1];
    options.port = port_argument(words[2]);
    options.tags = {words[3]};
    plc_client::Controller machine(options);
    const int failed = write_recipe(machine);
    show_sums(machine);
    return failed == 0 ? 0 : 1;
  } catch (const plc_client::Error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
