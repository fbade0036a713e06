// Puts what is typed aside until all who say something of it are asked.
#include "tools/plc_host/commands/setting_options.h"

namespace plc_host {

CLI::Option* add_setting(CLI::App& command, const std::string& name, HostOptions& options, const std::string& help) {
  const auto keep = [&options, name](const std::string& text) { options.given[name] = text; };
  CLI::Option* option = command.add_option_function<std::string>("--" + name, keep, help);
  for (const SettingRule& rule : setting_rules()) {
    if (rule.name != name || rule.high == 0) continue;
    option->type_name("UINT:INT in [" + std::to_string(rule.low) + " - " + std::to_string(rule.high) + "]");
    option->default_str(rule.usual);
  }
  return option;
}

CLI::Option* add_library_option(CLI::App& command, HostOptions& options) {
  const auto keep = [&options](const std::string& text) { options.given["driver"] = text; };
  return command.add_option_function<std::string>("--library", keep, "Load this driver library, like --driver PATH");
}

}  // namespace plc_host
