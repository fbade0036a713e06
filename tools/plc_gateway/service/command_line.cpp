// Parses the command line and turns exceptions into exit codes.
#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <csignal>
#include <cstdio>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "base/shown_text.h"
#include "tools/plc_gateway/service/commands.h"
#include "tools/plc_gateway/service/exit_codes.h"
#include "tools/usage/usage.h"

namespace plc_gateway {
namespace {

constexpr char kDescription[] =
    "Publishes one controller's variables on an MQTT broker, as a Sparkplug B 3.0\n"
    "edge node with one device.";

constexpr char kExamples[] =
    "Examples:\n"
    "  plc-gateway check /etc/plc-gateway/press1.toml\n"
    "  plc-gateway run /etc/plc-gateway/press1.toml\n"
    "  systemctl enable --now plc-gateway@press1\n"
    "\n"
    "Exit codes:\n"
    "  0 done                                4 configuration or tag file unusable\n"
    "  1 it could not start or continue      8 journal or output cannot be written\n"
    "  2 wrong command line                  9 there is no memory left\n"
    "  3 the driver library does not load\n";

constexpr char kRunDetails[] =
    "Polls the controller and publishes what changes, until SIGTERM or SIGINT.\n"
    "SIGHUP makes it read FILE again. When FILE has mistakes, it reports them and\n"
    "keeps the old configuration.\n"
    "\n"
    "Example: plc-gateway run press1.toml\n";

constexpr char kCheckDetails[] =
    "Reports every mistake in FILE, in the tag files it names and in the names it\n"
    "polls, with line and column. Sends nothing.\n"
    "\n"
    "Example: plc-gateway check press1.toml\n";

constexpr char kJournalDetails[] =
    "Shows the values that the broker has not confirmed, while no gateway runs with\n"
    "FILE. Changes nothing.\n"
    "\n"
    "Example: plc-gateway journal press1.toml --rows\n";

int show_parse_result(const CLI::App& app, const CLI::ParseError& error, const std::vector<std::string>& words) {
  std::ostringstream out;
  std::ostringstream err;
  if (app.exit(error, out, err) != 0) {
    throw GatewayError(kExitUsage, plc_usage::with_hint(plc_usage::parse_problem(error), app, words));
  }
  std::fputs(out.str().c_str(), stdout);
  demand_written();
  return kExitOk;
}

int parse_and_run(int argc, char** argv) {
  CLI::App app(kDescription, "plc-gateway");
  plc_usage::fit_help(app);
  app.footer(kExamples);
  app.require_subcommand(1);
  app.set_version_flag("-V,--version", "plc-gateway " PLC_GATEWAY_VERSION);
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
  journal->add_flag("--rows", with_rows, "Show a line for each stored row");
  const std::vector<std::string> words(argv + 1, argv + argc);
  const std::string problem = plc_usage::word_problem(app, words);
  if (!problem.empty()) throw GatewayError(kExitUsage, plc_usage::with_hint(problem, app, words));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return show_parse_result(app, error, words);
  }
  if (run->parsed()) return run_gateway(file);
  if (check->parsed()) return check_config(file);
  return show_journal(file, with_rows);
}

}  // namespace

int run_command_line(int argc, char** argv) {
  std::signal(SIGXFSZ, SIG_IGN);  // a file that may not grow fails, and is told
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
