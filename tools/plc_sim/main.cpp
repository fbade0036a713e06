// plc-sim: a simulated controller for trying and testing hosts.
#include "tools/plc_sim/application.h"
#include "tools/plc_sim/options.h"

int main(int argc, char** argv) {
  const plc_sim::ParsedOptions parsed = plc_sim::parse_options(argc, argv);
  return parsed.options ? plc_sim::run_simulator(*parsed.options) : parsed.exit_code;
}
