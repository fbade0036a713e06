// plc-gateway's simulation as a program: many lives, or one of them told line by line.
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>

#include "tests/tools/plc_gateway/simulation/life.h"
#include "tests/tools/plc_gateway/simulation/simulation.h"

namespace {

using plc_gateway::simulation::Life;
using plc_gateway::simulation::Report;
using plc_gateway::simulation::simulate;
using plc_gateway::simulation::Violation;

int usage() {
  std::cerr << "gateway_simulation [--hours N] [--first SEED] | --seed SEED [--trace]\n"
               "Lives of the edge node: until N hours are simulated (1000), from a seed on (1); or one of them.\n";
  return 2;
}

int one(uint64_t seed, bool trace) {
  try {
    Report report;
    report.totals = Life(seed, trace ? &std::cout : nullptr).live();
    std::cout << plc_gateway::simulation::told(report);
    return 0;
  } catch (const Violation& violation) {
    std::cout << "FAILED: " << violation.what() << "\n";
    return 1;
  }
}

}  // namespace

int main(int argc, char** argv) {
  uint64_t hours = 1000;
  uint64_t first = 1;
  uint64_t seed = 0;
  bool trace = false;
  for (int i = 1; i < argc; ++i) {
    const std::string word = argv[i];
    uint64_t* number = word == "--hours" ? &hours : word == "--first" ? &first : word == "--seed" ? &seed : nullptr;
    if (word == "--trace") {
      trace = true;
    } else if (number != nullptr && i + 1 < argc) {
      *number = std::strtoull(argv[++i], nullptr, 10);
    } else {
      return usage();
    }
  }
  if (seed != 0) return one(seed, trace);
  const auto began = std::chrono::steady_clock::now();
  const Report report = simulate(first, hours);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  std::cout << plc_gateway::simulation::told(report) << took.count() << " seconds\n";
  if (report.violation.empty()) return 0;
  std::cout << "FAILED: " << report.violation << "\nagain: gateway_simulation --seed " << report.failed_seed
            << " --trace\n";
  return 1;
}
