// Puts library, simulator, tag file and session together, and what the commands share.
#include "tools/plc_host/host.h"

#include <netinet/in.h>

#include <filesystem>
#include <system_error>

#include "client/driver/failure.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/target/controller_address.h"
#include "tools/plc_host/target/wanted_names.h"

namespace plc_host {

DriverSession::LineSink usual_line_sink(const HostOptions& options) {
  if (options.verbosity > 0) return show_driver_line;
  return [](const std::string&) {};
}

Host::Host(const HostOptions& options, CommandOutput& output, const Reroute& reroute)
    : output_(output), library_(load_driver_library(options.driver)) {
  const Target controller = choose_target(options);
  if (!reroute && options.verbosity > 1) route_ = std::make_unique<RelayRoute>();
  const Target target = reroute ? reroute(controller) : route_ ? route_->choose(controller) : controller;
  tag_file_ = choose_tag_file(options, controller, target);
  std::string bytes;
  tags_ = read_tag_list(library_, output_, tag_file_, options.verbosity > 0, &bytes);
  leave_absent(tags_, library_.is_guarded ? options.absent_to_guarded : options.absent_to_contract);
  session_ = std::make_unique<DriverSession>(
      library_, [this] { return output_.take_lines(); }, target, usual_line_sink(options));
  session_->set_stop(stop_requested);
  load_now(library_, target, tag_file_, bytes);
  ProgramNames programs = options.program_names;
  programs.declared = program_names(tags_);
  session_->know_programs(std::move(programs));
  if (route_) trace_frames(*route_);
  if (!library_.is_guarded && !options.quiet) {
    if (!options.word_on_contract.empty()) show_message(options.word_on_contract);
    show_message(library_.path + " is not the guarded build (" + library_.build +
                 "): it takes any reply for the right one, so values and writes are shown as unguarded");
  }
}

// The relay has seen the end of a call's reply before the driver has.
void Host::trace_frames(RelayRoute& route) {
  if (route.relay() == nullptr) {
    const std::string reason = route.has_failed()
                                   ? route.reach().problem
                                   : "it takes connections later than the driver waits for, which is 30 ms";
    show_message(target_text(route.controller()) + ": frames cannot be shown: " + reason);
    return;
  }
  session_->add_observer([&route](const CallResult&) {
    for (const std::string& line : frame_lines(*route.relay())) show_frame_line(line);
  });
}

Target Host::choose_target(const HostOptions& options) {
  Target target;
  target.area = options.area;
  target.recv_timeout_s = options.timeout_s;
  target.delay_ms = options.delay_ms;
  target.most_names = library_.is_guarded ? options.most_names : options.most_names_of_contract;
  if (options.sim_tag_file.empty()) {
    target.ip_address = find_controller(options.address);
    target.tcp_port = options.port;
    return target;
  }
  simulator_ = std::make_unique<SimProcess>(options.simulator, options.sim_tag_file, options.sim_arguments);
  target.ip_address = INADDR_LOOPBACK;
  target.tcp_port = simulator_->port();
  return target;
}

TagFilePath Host::choose_tag_file(const HostOptions& options, const Target& controller, const Target& target) {
  const std::string given = options.tag_file.empty() ? options.sim_tag_file : tag_file_at(options.tag_file, controller);
  const std::string name = tag_file_name(target);
  const std::string own = tag_file_name(controller);
  if (given.empty()) {
    demand_own_tag_file(controller);
  } else {
    demand_tag_file(given);
  }
  // The driver looks for the file by the address that it connects to.
  const std::string shown = given.empty() ? own : given;
  std::error_code unknown;
  const std::string folder = std::filesystem::current_path(unknown).string();
  if (shown != name) folder_ = std::make_unique<WorkFolder>(shown, name, "plc-host", show_message);
  return {name, shown, folder};
}

void Host::show_simulator_lines() {
  if (!simulator_) return;
  for (const std::string& line : simulator_->take_lines()) show_simulator_line(line);
}

int Host::finish(int code) {
  if (!simulator_) return code;
  const int simulator_code = simulator_->finish();
  show_simulator_lines();
  if (simulator_code == 0) return code;
  show_message("the simulator ended with code " + std::to_string(simulator_code));
  return code == kExitOk ? kExitSimulator : code;
}

std::vector<TagResult> look_up_names(const HostOptions& options, const Host& host) {
  const TagList& tags = host.tags();
  std::vector<TagResult> named;
  const auto add = [&named](const std::string& name, const auto& find) {
    TagResult entry;
    entry.name = name;
    try {
      entry.reference = find();
      entry.name = entry.reference.text;
    } catch (const ReferenceError& error) {
      entry.reading = {impossible(error.what()), std::chrono::system_clock::now()};
    }
    named.push_back(entry);
  };
  if (options.all) {
    for (const Tag& tag : tags.tags) add(tag.qualified_name, [&tag] { return whole_tag(tag); });
  }
  for (const std::string& name : options.names) {
    if (add_fitting(tags, host.tag_file().shown, name, named)) continue;
    add(name, [&] { return find_variable(tags, host.tag_file(), name); });
  }
  return named;
}

int exit_code_of(const std::vector<TagResult>& results, bool interrupted) {
  if (interrupted) return kExitInterrupted;
  bool all_succeeded = true;
  bool all_unconnected = true;
  for (const TagResult& result : results) {
    if (result.ok()) {
      all_unconnected = false;
      all_succeeded = all_succeeded && result.reading.quality() != Quality::kIncomplete;
      continue;
    }
    all_succeeded = false;
    // What was left out tells of no failure of its own.
    if (result.reading.is_taken() && !result.reading.failure().connection_lost) all_unconnected = false;
  }
  if (all_succeeded) return kExitOk;
  return all_unconnected ? kExitNoConnection : kExitTagFailed;
}

}  // namespace plc_host
