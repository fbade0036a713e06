// Parses the command line and turns exceptions into exit codes.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cstdio>
#include <new>
#include <sstream>

#include "base/shown_text.h"
#include "tools/plc_gateway/service/commands.h"
#include "tools/plc_gateway/service/exit_codes.h"

namespace plc_gateway {
namespace {

constexpr char kDescription[] =
    "Puts one controller on an MQTT broker, as a Sparkplug B 3.0 edge node with one device.";

constexpr char kExamples[] =
    "Examples:\n"
    "  plc-gateway check /etc/plc-gateway/press1.toml\n"
    "  plc-gateway run /etc/plc-gateway/press1.toml\n"
    "  systemctl enable --now plc-gateway@press1\n"
    "\n"
    "Exit codes:\n"
    "  0 done                                 4 the configuration or a tag file cannot be used\n"
    "  1 it could not start, or not go on     8 the journal or the output cannot be written\n"
    "  2 wrong command line                   9 there is no memory left\n"
    "  3 the driver library does not load\n";

constexpr char kRunDetails[] =
    "Polls the controller and publishes what changes, until SIGTERM or SIGINT. SIGHUP has FILE read again:\n"
    "when it has mistakes they are told, and the configuration before goes on.\n"
    "\n"
    "Example: plc-gateway run press1.toml\n";

constexpr char kCheckDetails[] =
    "Tells every mistake in FILE, in the tag files it names and in the names it polls, with line and column.\n"
    "Nothing is sent.\n"
    "\n"
    "Example: plc-gateway check press1.toml\n";

constexpr char kJournalDetails[] =
    "Shows what was read and is not known to be at the broker, while no gateway runs with FILE.\n"
    "\n"
    "Example: plc-gateway journal press1.toml --rows\n";

// As the library words it, fit for a terminal: it repeats what was typed.
std::string fault_text(const CLI::App*, const CLI::Error& error) {
  return plc_base::shown_line(error.what()) + "\nRun with --help for more information.\n";
}

int show_parse_result(const CLI::App& app, const CLI::ParseError& error) {
  std::ostringstream out;
  std::ostringstream err;
  const int code = app.exit(error, out, err);
  std::fputs(err.str().c_str(), stderr);
  if (code != 0) return kExitUsage;
  const bool is_written = std::fputs(out.str().c_str(), stdout) >= 0 && std::fflush(stdout) == 0;
  if (!is_written) throw GatewayError(kExitOutput, "the result cannot be written to standard output");
  return kExitOk;
}

int parse_and_run(int argc, char** argv) {
  CLI::App app(kDescription, "plc-gateway");
  app.footer(kExamples);
  app.failure_message(fault_text);
  app.require_subcommand(1);
  app.set_version_flag("--version", "plc-gateway " PLC_GATEWAY_VERSION);
  std::string file;
  bool with_rows = false;
  const auto add = [&](const char* name, const char* summary, const char* details) {
    CLI::App* sub = app.add_subcommand(name, summary);
    sub->footer(details);
    sub->add_option("FILE", file, "The configuration")->required();
    return sub;
  };
  const CLI::App* run = add("run", "Publish a controller's values until a signal comes", kRunDetails);
  const CLI::App* check = add("check", "Check a configuration and all that it names", kCheckDetails);
  CLI::App* journal = add("journal", "Show what is stored and not confirmed", kJournalDetails);
  journal->add_flag("--rows", with_rows, "A line for each stored row");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return show_parse_result(app, error);
  }
  if (run->parsed()) return run_gateway(file);
  if (check->parsed()) return check_config(file);
  return show_journal(file, with_rows);
}

}  // namespace

int run_command_line(int argc, char** argv) {
  try {
    return parse_and_run(argc, argv);
  } catch (const GatewayError& error) {
    std::fprintf(stderr, "plc-gateway: %s\n", plc_base::shown_line(error.what()).c_str());
    return error.code();
  } catch (const std::bad_alloc&) {
    throw;  // a message takes memory too
  } catch (const std::exception& error) {
    std::fprintf(stderr, "plc-gateway: failed: %s\n", plc_base::shown_line(error.what()).c_str());
    return kExitFailed;
  }
}

}  // namespace plc_gateway
