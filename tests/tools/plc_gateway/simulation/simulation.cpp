// Lives in a row, and their sums as text.
#include "tests/tools/plc_gateway/simulation/simulation.h"

#include <sstream>

#include "tests/tools/plc_gateway/simulation/life.h"

namespace plc_gateway::simulation {

Report simulate(uint64_t first_seed, uint64_t hours) {
  Report report;
  const Ms wanted = static_cast<Ms>(hours) * 3600000;
  for (uint64_t seed = first_seed; report.totals.simulated_ms < wanted; ++seed) {
    try {
      report.totals.add(Life(seed, nullptr).live());
    } catch (const Violation& violation) {
      report.violation = violation.what();
      report.failed_seed = seed;
      return report;
    }
  }
  return report;
}

std::string told(const Report& report) {
  const Totals& totals = report.totals;
  std::ostringstream text;
  text << totals.simulated_ms / 3600000 << " simulated hours in " << totals.lives << " lives: " << totals.events
       << " events, " << totals.steps << " steps of the edge node\n"
       << totals.kills << " kills, " << totals.power_cuts << " power cuts, " << totals.broker_losses
       << " losses of the broker, " << totals.controller_losses << " losses of the controller\n"
       << totals.readings << " reads, " << totals.rows << " rows with " << totals.values << " values in the journal, "
       << totals.dropped << " dropped and counted, " << totals.died_in_memory
       << " lost with a kill while the disk refused them\n"
       << totals.accepted << " values accepted by the broker, " << totals.historical << " as history, "
       << totals.duplicates << " of them for the second time, " << totals.births << " births\n"
       << totals.commands << " commands of hosts, " << totals.writes << " writes\n";
  return text.str();
}

}  // namespace plc_gateway::simulation
