// plc-gateway check: everything that is wrong with a configuration, at once.
#include <cstdio>

#include "base/shown_text.h"
#include "base/text.h"
#include "tools/plc_gateway/service/checked_config.h"
#include "tools/plc_gateway/service/commands.h"
#include "tools/plc_gateway/service/exit_codes.h"
#include "tools/plc_gateway/service/findings_text.h"

namespace plc_gateway {

int check_config(const std::string& file) {
  const ConfigResult result = load_checked_config(file);
  require_ok(result, file);
  const Config& config = result.config;
  const std::string left_out = config.left_out > 0 ? ", " + std::to_string(config.left_out) + " left out" : "";
  const std::string line = plc_base::shown_first(file) + ": " + plc_base::plural(config.variables.size(), "variable") +
                           " in " + plc_base::plural(config.polls.size(), "poll") + left_out + ", " +
                           plc_base::plural(config.commands.size(), "command") + ": no mistakes\n";
  std::fputs(line.c_str(), stdout);
  demand_written();
  return kExitOk;
}

}  // namespace plc_gateway
