// Takes the settings that a command needs.
#include "tools/plc_host/settings/use_settings.h"

#include <unistd.h>

#include "base/near_names.h"
#include "profile/profile_use.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/target/controller_address.h"
#include "tools/usage/usage.h"

namespace plc_host {
namespace {

uint32_t number_of(const Setting& setting) {
  return plc_usage::number_within(setting.value, 0, UINT32_MAX).value_or(0);
}

// Without a slash the loader looks the name up, and no library is called like a misspelt word.
void check_driver(const Setting& driver) {
  const std::string& choice = driver.value;
  const bool is_word = choice.empty() || choice == "guarded" || choice == "contract";
  const bool may_be_file = choice.find('/') != std::string::npos || choice.find(".so") != std::string::npos;
  if (is_word || may_be_file || access(choice.c_str(), F_OK) == 0) return;
  const std::string meant = plc_base::did_you_mean(choice, {"guarded", "contract"});
  // What is no name of a file is a wrong option.
  const ExitCode code = choice.find('.') == std::string::npos ? kExitUsage : kExitLibrary;
  throw HostError(code, driver.from + " " + choice + ": there is no such driver" +
                            (meant.empty() ? "." : ", " + meant) +
                            " A driver is guarded, contract, or the path of a library");
}

// What no other setting can say: how many names are asked for at a time. What speaks against a driver is told, also
// where the user names one.
void use_profile(HostOptions& options) {
  const Setting& setting = options.settings.at("profile");
  const std::string& path = setting.value;
  if (path.empty()) return;
  const plc_profile::Profile profile = read_profile_setting(setting);
  options.most_names = plc_profile::names_at_a_time(profile, true);
  options.most_names_of_contract = plc_profile::names_at_a_time(profile, false);
  const std::string loaded = plc_profile::loaded_contract_word(profile);
  options.word_on_contract = loaded.empty() ? "" : path + ": " + loaded;
  options.program_names = {{}, profile.program_name_units, profile.longest_name_units};
  options.absent_to_guarded = plc_profile::absent_names(profile, true);
  options.absent_to_contract = plc_profile::absent_names(profile, false);
  const Setting& driver = options.settings.at("driver");
  const std::string word = plc_profile::contract_word(profile, driver.from != path);
  if (!word.empty() && !options.quiet) show_message(path + ": " + word);
}

// What the command line says in vain beside something else on it.
void refuse_typed(const HostOptions& options, const char* beside, const std::vector<const char*>& names) {
  for (const char* name : names) {
    const std::string typed = std::string("--") + name;
    if (options.settings.at(name).is_typed()) {
      throw HostError(kExitUsage, typed + " and " + beside + " exclude each other");
    }
  }
}

}  // namespace

std::string take_port_of_address(Settings& settings) {
  const Setting& address = settings["address"];
  Setting& port = settings["port"];
  if (!address.is_said()) return {};
  const plc_base::HostPort controller = split_controller_address(address.value, address.from);
  if (!controller.port || port.rank < address.rank) return controller.host;
  const std::string text = std::to_string(*controller.port);
  if (port.is_said() && port.rank == address.rank && port.value != text) {
    throw HostError(kExitUsage, address.from + " " + address.value + " and " + port.from + " " + port.value +
                                    " name two ports: leave one out");
  }
  port = {text, address.from, address.rank};
  return controller.host;
}

void use_settings(HostOptions& options, bool asks_controller) {
  options.settings = choose_settings(options.given);
  const Settings& settings = options.settings;
  check_driver(settings.at("driver"));
  options.driver = settings.at("driver").value;
  options.area = static_cast<uint16_t>(number_of(settings.at("area")));
  options.timeout_s = number_of(settings.at("timeout"));
  options.delay_ms = number_of(settings.at("delay"));
  use_profile(options);
  if (!asks_controller) return;
  const Setting& tags = settings.at("tags");
  if (!options.sim_tag_file.empty()) return refuse_typed(options, "--sim", {"address", "port", "tags"});
  if (!options.capture.empty()) {
    refuse_typed(options, "--capture", {"address", "port"});
    if (tags.is_typed()) options.tag_file = tags.value;
    return;
  }
  if (settings.at("address").is_said()) options.address = take_port_of_address(options.settings);
  options.port = static_cast<uint16_t>(number_of(settings.at("port")));
  options.tag_file = tags.value;
}

}  // namespace plc_host
