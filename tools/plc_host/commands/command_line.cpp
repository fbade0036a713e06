// Parses the command line with the table of commands and turns exceptions into exit codes.
#include "tools/plc_host/commands/command_line.h"

#include <unistd.h>
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cstdio>
#include <functional>
#include <iostream>
#include <new>
#include <sstream>

#include "tools/plc_host/colors.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/commands/setting_options.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/result_file.h"
#include "tools/plc_host/settings/use_settings.h"
#include "tools/plc_host/stop_signal.h"
#include "tools/plc_host/target/wanted_names.h"
#include "tools/usage/usage.h"

namespace plc_host {
namespace {

constexpr char kDescription[] = "A command-line host that loads the PLC driver like a panel.";

constexpr char kExamples[] =
    "Examples:\n"
    "  plc-host read --address 192.168.0.10 --port 8500 Motor.Speed 'Table[0..4]'\n"
    "  plc-host write --sim machine.csv 'Motor.Speed=120' 'Name=\"pump 3\"' --verify\n"
    "  plc-host watch --sim machine.csv --sim-arg=--animate --all\n"
    "\n"
    "plc-host help COMMAND shows the options of a command. Address, port and others\n"
    "can be set in plc-host.toml or the environment; plc-host info shows them.\n"
    "\n"
    "Exit codes:\n"
    "  0 done                              6 the simulator failed, or saw a violation\n"
    "  1 at least one variable failed      7 no connection to the controller\n"
    "  2 wrong command line or settings    8 the output cannot be written\n"
    "  3 the driver cannot be used         9 there is no memory left\n"
    "  4 the tag file cannot be used       130 interrupted\n"
    "  5 read back different               141 nobody reads the output any more\n";

void add_commands(CLI::App& app) {
  for (const Command& command : command_table()) {
    app.add_subcommand(command.name, command.summary)->footer(command.details);
  }
}

void add_options(CLI::App& sub, const Command& command, HostOptions& options) {
  CLI::Option* driver = add_setting(sub, "driver", options,
                                    "Load this driver: contract, guarded or a PATH; default: guarded if installed");
  add_library_option(sub, options)->excludes(driver);
  sub.add_flag("--json", options.json, "Write one JSON object per line");
  CLI::Option* quiet = sub.add_flag("-q,--quiet", options.quiet, "Show only errors on standard error, no remarks");
  sub.add_flag("-v,--verbose", options.verbosity, "Show the driver's messages; -vv: the frames too")->excludes(quiet);
  add_setting(sub, "color", options, "Colour errors, changed and bad values")->type_name("TEXT:{auto,always,never}");
  command.add_options(sub, options);
  plc_usage::keep_brackets(sub);
}

// Options take most of a start's time: those of the other commands are added when a hint or help speaks of them.
void add_options_of(const std::function<bool(const Command&)>& is_wanted, CLI::App& app, HostOptions& options) {
  for (const Command& command : command_table()) {
    if (is_wanted(command)) add_options(*app.get_subcommand(command.name), command, options);
  }
}

// "help" and "help COMMAND", which are no command of their own: whoever is asked has the answer.
bool asks_for_help(const std::vector<std::string>& words) { return !words.empty() && words.front() == "help"; }

int show_help(const CLI::App& app, std::vector<std::string> words) {
  words.erase(words.begin());
  if (words.size() > 1) throw HostError(kExitUsage, "help takes one command");
  const bool is_on_help = words.empty() || words[0] == "help" || words[0] == "--help" || words[0] == "-h";
  const CLI::App* part = is_on_help ? &app : plc_usage::command_of(app, words);
  if (part == nullptr) {
    const std::string problem = plc_usage::word_problem(app, words);
    throw HostError(kExitUsage, problem.empty() ? "help takes a command, not " + words[0] : problem);
  }
  ResultFile file(dup(STDOUT_FILENO));
  std::fputs(part->help(part == &app ? "" : app.get_name()).c_str(), file.stream());
  return file.finish(kExitOk);
}

const Command* find_command(const CLI::App& app) {
  for (const Command& command : command_table()) {
    if (app.got_subcommand(command.name)) return &command;
  }
  return nullptr;
}

// Help goes to standard output, faults of the command line to standard error with a code of our own.
int show_parse_result(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& words) {
  std::ostringstream out;
  std::ostringstream err;
  if (app.exit(error, out, err) != 0) {
    throw HostError(kExitUsage, plc_usage::with_hint(plc_usage::parse_problem(error), app, words));
  }
  ResultFile file(dup(STDOUT_FILENO));
  std::fputs(out.str().c_str(), file.stream());
  return file.finish(kExitOk);
}

int run_reporting(const std::function<int()>& run) {
  try {
    return run();
  } catch (const HostError& error) {
    show_error(error.what());
    return stop_requested() ? kExitInterrupted : error.code();
  } catch (const ClientError& error) {
    show_error(error.what());
    return stop_requested() ? kExitInterrupted : exit_code_of(error);
  } catch (const std::bad_alloc&) {
    throw;  // a message takes memory too
  } catch (const std::exception& error) {
    show_error(std::string("failed: ") + error.what());
    return kExitTagFailed;
  }
}

void take_names_from_file(const Command& command, HostOptions& options) {
  if (options.names_file.empty()) return;
  const std::vector<std::string> more = names_in(options.names_file, command.run == run_write);
  options.names.insert(options.names.end(), more.begin(), more.end());
  options.names_of_file = more.size();
}

int run_command(const Command& command, bool asks_controller, HostOptions& options) {
  use_settings(options, asks_controller);
  choose_colors(options.settings.at("color").value);
  take_names_from_file(command, options);
  if (command.check_options != nullptr) command.check_options(options);
  CommandOutput output;
  catch_stop_signals();
  // What was printed before a failure has to be there too.
  const int code = output.result_file().finish(run_reporting([&] { return command.run(options, output); }));
  // What was written to the controller counts, whoever has read of it.
  return output.result_file().has_lost_reader() && command.run != run_write ? kExitReaderGone : code;
}

int parse_and_run(int argc, char** argv) {
  HostOptions options;
  CLI::App app(kDescription, "plc-host");
  plc_usage::fit_help(app);
  app.footer(kExamples);
  app.require_subcommand(1);
  app.set_version_flag("-V,--version", "plc-host " PLC_HOST_VERSION);
  add_commands(app);
  const std::vector<std::string> words(argv + 1, argv + argc);
  const auto is_named = [&](const Command& command) { return !words.empty() && words.front() == command.name; };
  add_options_of(is_named, app, options);
  const auto add_others = [&] {
    add_options_of([&](const Command& command) { return !is_named(command); }, app, options);
  };
  if (asks_for_help(words)) {
    add_others();
    return show_help(app, words);
  }
  if (!plc_usage::word_problem(app, words).empty()) {
    add_others();
    throw HostError(kExitUsage, plc_usage::with_hint(plc_usage::word_problem(app, words), app, words));
  }
  try {
    plc_usage::parse_words(app, words);
  } catch (const CLI::ParseError& error) {
    add_others();
    return show_parse_result(app, error, words);
  }
  const Command* command = find_command(app);
  if (command == nullptr) throw HostError(kExitUsage, "which command?");
  // What check asks of a controller, it asks behind its own work.
  const bool has_target = app.get_subcommand(command->name)->get_option_no_throw("--sim") != nullptr;
  const bool asks_controller = has_target && command->run != run_check;
  return run_command(*command, asks_controller, options);
}

}  // namespace

int run_command_line(int argc, char** argv) {
  return run_reporting([&] { return parse_and_run(argc, argv); });
}

}  // namespace plc_host
