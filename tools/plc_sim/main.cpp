// plc-sim: a simulated controller for trying and testing hosts.
#include "base/no_memory.h"
#include "base/standard_streams.h"
#include "tools/plc_sim/application.h"
#include "tools/plc_sim/options.h"

namespace {

// Before anything of the program's own takes memory.
[[gnu::constructor(101)]] void prepare() {
  constexpr int kNoMemory = 2;
  plc_base::end_without_memory("plc-sim: there is no memory left\n", kNoMemory);
}

}  // namespace

int main(int argc, char** argv) {
  plc_base::prepare_standard_streams();
  const plc_sim::ParsedOptions parsed = plc_sim::parse_options(argc, argv);
  return parsed.options ? plc_sim::run_simulator(*parsed.options) : parsed.exit_code;
}
