// Writes the options of a survey again.
#include "tools/plc_host/survey_steps/survey_command.h"

#include <nlohmann/json.hpp>

#include "tools/plc_host/shell_word.h"

namespace plc_host {
namespace {

class CommandLine {
 public:
  void add(const char* option, const std::string& value) { text_.append(option).append(shell_word(value)); }
  void add_flag(const char* option, bool is_given) { text_.append(is_given ? option : ""); }
  // What the command line, the environment or a file says.
  void add_setting(const HostOptions& options, const char* name, const char* option) {
    const auto setting = options.settings.find(name);
    if (setting != options.settings.end() && setting->second.is_said()) add(option, setting->second.value);
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_ = "plc-host survey";
};

}  // namespace

std::string survey_command(const HostOptions& options, const std::vector<std::string>& tag_files) {
  const SurveyOptions& survey = options.survey;
  CommandLine line;
  const bool is_simulated = !options.sim_tag_file.empty();
  if (!is_simulated) line.add(" --address ", options.address + ":" + std::to_string(options.port));
  if (is_simulated) line.add(" --sim ", options.sim_tag_file);
  if (!options.simulator.empty()) line.add(" --simulator ", options.simulator);
  for (const std::string& argument : options.sim_arguments) line.add(" --sim-arg=", argument);
  if (!is_simulated || !survey.tag_files.empty()) {
    for (const std::string& file : tag_files) line.add(" --tags ", file);
  }
  line.add(" --output ", survey.folder);
  line.add_flag(" --replace", survey.replaces);
  if (survey.has_rate) line.add(" --rate ", std::to_string(survey.rate));
  line.add_setting(options, "timeout", " --timeout ");
  line.add_setting(options, "area", " --area ");
  line.add_setting(options, "driver", " --driver ");
  for (const std::string& name : survey.written) line.add(" --write ", name);
  if (survey.hours > 0) line.add(" --hours ", nlohmann::json(survey.hours).dump());
  if (survey.has_period) line.add(" --period ", std::to_string(survey.period_ms));
  line.add_flag(" --gentle", survey.is_gentle);
  return line.text();
}

}  // namespace plc_host
