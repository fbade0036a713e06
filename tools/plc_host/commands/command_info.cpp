// The command that shows what plc-host would work with: driver, settings, tag files.
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/host.h"
#include "tools/plc_host/results/result_writer.h"
#include "tools/plc_host/settings/use_settings.h"

namespace plc_host {
namespace {

using Json = nlohmann::ordered_json;
using Rows = std::vector<std::vector<std::string>>;

struct DriverFacts {
  DriverLibrary library;
  std::string file;  // the library's, without links in its path
  DriverInfo info{};
};

std::string file_without_links(const std::string& choice) {
  std::string found = find_driver_file(choice);
  char* resolved = realpath(found.c_str(), nullptr);
  if (resolved == nullptr) return found;
  std::string file = resolved;
  std::free(resolved);
  return file;
}

DriverFacts ask_driver(const HostOptions& options, CommandOutput& output) {
  DriverFacts facts;
  facts.library = load_driver_library(options.driver);
  facts.file = file_without_links(options.driver);
  const uint32_t info_code = facts.library.driver_info(&facts.info);
  const uint32_t register_code = facts.library.register_host();
  for (const std::string& line : output.take_lines()) usual_line_sink(options)(line);
  if (info_code != PLC_OK || register_code != PLC_OK) throw HostError(kExitLibrary, "the driver refuses to tell");
  return facts;
}

std::string value_text(const Setting& setting) {
  return setting.value.empty() ? "-" : plc_base::told_name(setting.value);
}

std::string origin_text(const Setting& setting) {
  if (setting.is_said()) return setting.from;
  return setting.value.empty() ? "not set" : "usual";
}

Json settings_json(const Settings& settings) {
  Json object;
  for (const SettingRule& rule : setting_rules()) {
    const Setting& setting = settings.at(rule.name);
    Json shown;
    shown["value"] = setting.value.empty() ? Json() : Json(setting.value);
    shown["from"] = origin_text(setting);
    object[rule.name] = shown;
  }
  return object;
}

Rows settings_rows(const Settings& settings) {
  Rows rows = {{"SETTING", "VALUE", "FROM"}};
  for (const SettingRule& rule : setting_rules()) {
    const Setting& setting = settings.at(rule.name);
    rows.push_back({rule.name, value_text(setting), origin_text(setting)});
  }
  return rows;
}

void write_json(const Settings& settings, const DriverFacts& facts, CommandOutput& output) {
  Json object;
  object["plc_host"] = PLC_HOST_VERSION;
  object["library"] = facts.library.path;
  object["file"] = facts.file;
  object["build"] = facts.library.build;
  object["guarded"] = facts.library.is_guarded;
  object["driver_code"] = facts.info.driver_code;
  object["driver_param"] = facts.info.driver_param;
  object["reads_tag_files"] = facts.library.build_tagtable != nullptr;
  object["settings"] = settings_json(settings);
  object["tag_files"] = own_tag_files();
  write_json_line(output.results(), object);
}

}  // namespace

int run_info(const HostOptions& options, CommandOutput& output) {
  Settings settings = options.settings;
  take_port_of_address(settings);
  const DriverFacts facts = ask_driver(options, output);
  if (options.json) {
    write_json(settings, facts, output);
    return kExitOk;
  }
  const bool has_names = facts.library.build_tagtable != nullptr;
  Rows rows = {{"plc-host", PLC_HOST_VERSION},
               {"library", facts.file},
               {"build", facts.library.build},
               {"driver code", std::to_string(facts.info.driver_code)},
               {"driver param", std::to_string(facts.info.driver_param)},
               {"names", has_names ? "can be looked up in tag files" : "cannot be looked up"}};
  const std::vector<std::string> files = own_tag_files();
  for (const std::string& file : files) rows.push_back({rows.size() == 6 ? "tag files here" : "", file});
  if (files.empty()) rows.push_back({"tag files here", "none"});
  write_table(output.results(), rows);
  std::fputs("\n", output.results());
  write_table(output.results(), settings_rows(settings));
  return kExitOk;
}

}  // namespace plc_host
