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

#include "base/shown_text.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/messages.h"
#include "tools/plc_host/result_file.h"
#include "tools/plc_host/stop_signal.h"

namespace plc_host {
namespace {

constexpr char kDescription[] = "A command-line host for the PLC driver: loads libplc_driver.so.1 as a panel does.";

constexpr char kExamples[] =
    "Examples:\n"
    "  plc-host read --address 192.168.0.10 --port 8500 Motor.Speed 'Table[0..4]'\n"
    "  plc-host write --sim machine.csv 'Motor.Speed=120' 'Name=\"pump 3\"' --verify\n"
    "  plc-host watch --sim machine.csv --sim-arg=--animate --all\n"
    "\n"
    "Exit codes:\n"
    "  0 done                                 5 written, but read back different\n"
    "  1 at least one variable failed         6 the simulator failed or counted violations\n"
    "  2 wrong command line                   7 no connection to the controller\n"
    "  3 the driver library does not load     8 the output cannot be written\n"
    "  4 the tag file cannot be used          9 there is no memory left\n"
    "                                         130 interrupted\n";

void add_command(CLI::App& app, const Command& command, HostOptions& options) {
  CLI::App* sub = app.add_subcommand(command.name, command.summary);
  sub->footer(command.details);
  CLI::Option* driver =
      sub->add_option("--driver", options.driver, "Driver library: contract, guarded or a PATH; else guarded if there");
  sub->add_option("--library", options.driver, "The same as --driver PATH")->excludes(driver);
  sub->add_flag("--json", options.json, "One JSON object per line");
  CLI::Option* quiet = sub->add_flag("-q,--quiet", options.quiet, "Show errors alone on standard error, no remarks");
  sub->add_flag("-v,--verbose", options.verbosity, "Show what the driver prints; -vv: the frames too")->excludes(quiet);
  command.add_options(*sub, options);
}

const Command& chosen_command(const CLI::App& app) {
  for (const Command& command : command_table()) {
    if (app.got_subcommand(command.name)) return command;
  }
  throw HostError(kExitUsage, "no command");
}

// As the library words it, fit for a terminal: it repeats what was typed.
std::string fault_text(const CLI::App*, const CLI::Error& error) {
  return plc_base::shown_line(error.what()) + "\nRun with --help for more information.\n";
}

// Help goes to standard output, faults of the command line to standard error with a code of our own.
int show_parse_result(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream out;
  std::ostringstream err;
  const int code = app.exit(error, out, err);
  std::fputs(err.str().c_str(), stderr);
  if (code != 0) return kExitUsage;
  ResultFile file(dup(STDOUT_FILENO));
  std::fputs(out.str().c_str(), file.stream());
  return file.finish(kExitOk);
}

int run_reporting(const std::function<int()>& run) {
  try {
    return run();
  } catch (const HostError& error) {
    show_message(error.what());
    return stop_requested() ? kExitInterrupted : error.code();
  } catch (const ClientError& error) {
    show_message(error.what());
    return stop_requested() ? kExitInterrupted : exit_code_of(error);
  } catch (const std::bad_alloc&) {
    throw;  // a message takes memory too
  } catch (const std::exception& error) {
    show_message(std::string("failed: ") + error.what());
    return kExitTagFailed;
  }
}

int run_command(const Command& command, const HostOptions& options) {
  return run_reporting([&] {
    if (command.check_options != nullptr) command.check_options(options);
    CommandOutput output;
    catch_stop_signals();
    // What was printed before a failure has to be there too.
    return output.result_file().finish(run_reporting([&] { return command.run(options, output); }));
  });
}

}  // namespace

int run_command_line(int argc, char** argv) {
  HostOptions options;
  CLI::App app(kDescription, "plc-host");
  app.footer(kExamples);
  app.failure_message(fault_text);
  app.require_subcommand(1);
  app.set_version_flag("--version", "plc-host " PLC_HOST_VERSION);
  for (const Command& command : command_table()) add_command(app, command, options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return run_reporting([&] { return show_parse_result(app, error); });
  }
  return run_command(chosen_command(app), options);
}

}  // namespace plc_host
