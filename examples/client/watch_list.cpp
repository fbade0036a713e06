// Reads one list again and again and prints what has changed:  watch_list ADDRESS PORT TAGS ROUNDS NAME...
#include <plc_client.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "number_argument.h"

namespace {

void watch(plc_client::Controller& machine, int rounds, const std::vector<std::string>& names) {
  plc_client::Plan plan = machine.plan(names);
  std::printf("%zu variables, %zu exchanges a round\n", names.size(), plan.exchanges());
  std::vector<std::string> shown(names.size());
  for (int round = 0; round < rounds; ++round) {
    if (round > 0) std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const std::vector<plc_client::Reading>& readings = machine.read(plan);
    for (size_t i = 0; i < readings.size(); ++i) {
      const std::string now = readings[i].ok() ? readings[i].value.to_string() : readings[i].error.text;
      if (now != shown[i]) std::printf("%s: %s\n", readings[i].name.c_str(), now.c_str());
      shown[i] = now;
    }
  }
}

}  // namespace

int main(int count, char** words) {
  if (count < 6) {
    std::fprintf(stderr, "usage: watch_list ADDRESS PORT TAGS ROUNDS NAME...\n");
    return 2;
  }
  try {
    plc_client::Options options;
    options.address = words[1];
    options.port = port_argument(words[2]);
    options.tags = {words[3]};
    options.on_state = [](const plc_client::State& state) {
      std::printf(state.connected ? "connected\n" : "not connected any more\n");
    };
    plc_client::Controller machine(options);
    watch(machine, number_argument("ROUNDS", words[4], 0, INT32_MAX),
          std::vector<std::string>(words + 5, words + count));
    const plc_client::State state = machine.state();
    std::printf("%llu exchanges, %llu connections\n", static_cast<unsigned long long>(state.exchanges),
                static_cast<unsigned long long>(state.connects));
    return 0;
  } catch (const plc_client::Error& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
  }
}
