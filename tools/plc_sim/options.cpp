// The command line of plc-sim.
#include "tools/plc_sim/options.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include "base/network_address.h"
#include "base/text.h"
#include "tools/plc_sim/console/console.h"
#include "tools/plc_sim/messages.h"
#include "tools/usage/usage.h"

namespace plc_sim {
namespace {

constexpr int kUsageError = 2;
constexpr unsigned kDefaultAnimateMs = 250;
constexpr size_t kFaultColumn = 21;  // where the words for a fault begin in the help

constexpr const char* kDescription =
    "plc-sim - a simulated controller. Declares one variable for each record of the\n"
    "given tag files, and serves them on one TCP port. Judges every request, and\n"
    "exits with 1 when one was wrong. Ends when its standard input closes.";

constexpr const char* kFooter =
    "Examples:\n"
    "  plc-sim PLC7F000001_0.csv\n"
    "  plc-sim --listen 127.0.0.1:8501 --sentinel PLC7F000001_0.csv PLC7F000001_1.csv\n"
    "  plc-sim --web 127.0.0.1:8080 --pcap out.pcap --animate PLC7F000001_0.csv\n"
    "  plc-sim --report report.html PLC7F000001_0.csv\n"
    "  plc-sim --replay field.pcap\n"
    "  plc-sim --fault 'delay 200 times=3 on=read' PLC7F000001_0.csv\n"
    "Exit codes: 0 done, 1 the judge saw a violation, 2 wrong usage, bad tag file, no\n"
    "port, no file, or an output that cannot be written.";

// The faults and the commands of standard input, as they themselves are listed.
std::string footer() {
  std::string text = "Faults:\n";
  for (const FaultInfo& fault : known_faults()) {
    const std::string head = std::string(fault.name) + (*fault.arguments == '\0' ? "" : " ") + fault.arguments;
    text += plc_usage::listed(head, fault.help, kFaultColumn);
  }
  text += "\nCommands of standard input:\n";
  std::istringstream commands(Console::help());
  for (std::string line; std::getline(commands, line);) text += "  " + line + "\n";
  return text + "\n" + kFooter;
}

template <typename Number>
std::optional<Number> number_in(std::string_view text) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc{} && end == text.data() + text.size() ? std::optional<Number>(value) : std::nullopt;
}

[[noreturn]] void refuse_endpoint(const char* option, const std::string& text, const std::string& reason) {
  throw std::invalid_argument(option + (" " + text) + ": " + reason);
}

// A name of a host becomes its number.
Endpoint parse_endpoint(const char* option, const std::string& text) {
  const size_t scheme = text.find("://");
  if (scheme != std::string::npos) {
    const size_t start = scheme + 3;
    const std::string place = text.substr(start, text.find('/', start) - start);
    refuse_endpoint(option, text, "write it without " + text.substr(0, start) + ": " + place);
  }
  const auto parts = plc_base::split_address(text);
  if (parts && parts->is_bad_port) {
    refuse_endpoint(option, text, "a port is a number from 0 to 65535, 0 for a free one");
  }
  if (!parts || parts->has_brackets) {
    refuse_endpoint(option, text, "write an IPv4 address or a name, and a port: 127.0.0.1:8500, localhost:0");
  }
  if (!parts->at.port) {
    const bool is_port = number_in<uint16_t>(text).has_value();
    refuse_endpoint(option, text,
                    is_port ? "the address is missing, write 127.0.0.1:" + text
                            : "the port is missing, write " + text + ":8500, or " + text + ":0 for a free one");
  }
  const plc_base::FoundHost host = plc_base::find_host(parts->at.host);
  if (!host.problem.empty()) {
    refuse_endpoint(option, text, "no host is called " + parts->at.host + ": " + host.problem + ". Try: 127.0.0.1");
  }
  in_addr address{};
  address.s_addr = htonl(host.address);
  std::array<char, INET_ADDRSTRLEN> number{};
  inet_ntop(AF_INET, &address, number.data(), number.size());
  return {number.data(), *parts->at.port};
}

// Whoever gets to the port reads and sets every variable.
void require_consent(const char* option, const Endpoint& endpoint, bool allows_remote) {
  if (allows_remote || is_loopback(endpoint)) return;
  throw std::invalid_argument(std::string(option) + " " + endpoint_text(endpoint) +
                              " lets other machines in, and there is no password: add --allow-remote if that is meant");
}

// A report that its name promises in a form of office programs would be opened by none of them.
void refuse_other_forms(const std::string& report) {
  const size_t dot = report.rfind('.');
  if (dot == std::string::npos) return;
  std::string end = report.substr(dot);
  for (char& letter : end) letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  for (const char* other : {".pdf", ".doc", ".docx", ".odt", ".rtf", ".xls", ".xlsx", ".ods", ".xml", ".png", ".svg"}) {
    if (end != other) continue;
    throw std::invalid_argument("--report " + report +
                                ": a report is HTML, JSON, CSV or text, by its name's end. Try: " +
                                report.substr(0, dot) + (end.find("xl") == 1 || end == ".ods" ? ".csv" : ".html"));
  }
}

std::pair<std::string, uint8_t> parse_program(const std::string& text) {
  const size_t equals = text.rfind('=');
  const auto number = equals == std::string::npos ? std::nullopt : number_in<uint8_t>(text.substr(equals + 1));
  if (!number || equals == 0) {
    throw std::invalid_argument("--program " + plc_base::told_name(text) +
                                ": write NAME=NUMBER, with a number from 0 to 255");
  }
  return {text.substr(0, equals), *number};
}

Fault fault_of(const std::string& text) {
  try {
    return parse_fault(text);
  } catch (const std::invalid_argument& bad) {
    throw std::invalid_argument("--fault " + plc_base::quoted(text) + ": " + bad.what());
  }
}

struct RawOptions {
  std::string listen = "127.0.0.1:0";
  std::vector<std::string> faults;
  std::vector<std::string> programs;
  std::string web;
  bool allows_remote = false;
  bool animate = false;
  unsigned animate_ms = 0;  // 0: not given
};

void add_options(CLI::App& app, Options& options, RawOptions& raw) {
  app.add_option("TAGFILE", options.tag_files, "tag files, each with its variables");
  app.add_option("--listen", raw.listen, "listen at this address and port; port 0 means a free one")
      ->type_name("HOST:PORT");
  app.add_flag("--allow-remote", raw.allows_remote, "allow addresses in --listen and --web that other machines reach");
  app.add_flag("--sentinel", options.sentinel, "give every element a value of its own");
  app.add_flag("--animate", raw.animate, "change the values every 250 ms");
  plc_usage::add_number(app, "--animate-ms", raw.animate_ms, {1, 60000, "milliseconds"},
                        "change the values with this time between two changes")
      ->type_name("MS:INT in [1 - 60000]");
  app.add_option("--fault", raw.faults, "arm a fault, written as for the fault command; may be repeated")
      ->type_name("FAULT")
      ->allow_extra_args(false);
  app.add_option("--program", raw.programs, "set the number of a program in the directory; may be repeated")
      ->type_name("NAME=NUMBER")
      ->allow_extra_args(false);
  const auto take_order = [&options](const std::string& text) {
    if (text != "file" && text != "longest-first") {
      throw CLI::ValidationError("--directory-order " + plc_base::told_name(text) + ": give longest-first or file");
    }
    options.directory_order = text == "file" ? DirectoryOrder::kFile : DirectoryOrder::kLongestFirst;
  };
  app.add_option_function<std::string>("--directory-order", take_order,
                                       "set the order of the programs in the directory; default: longest-first")
      ->type_name("ORDER:{longest-first,file}");
  app.add_flag("--skip-bad-lines", options.skip_bad_lines, "continue without the tag lines that cannot be declared");
  app.add_flag("--no-stdin", options.ignore_stdin, "read no commands, and do not end with standard input");
  plc_usage::add_output_file(app, "--pcap", options.pcap, "write the traffic of all connections as a capture")
      ->type_name("FILE");
  app.add_option("--profile", options.profile, "imitate the controller that this profile describes")->type_name("FILE");
  app.add_option("--replay", options.replay, "answer like the controller in a capture; needs no tag files")
      ->type_name("FILE");
  app.add_option("--report", options.report,
                 "write a report at the end, as its name ends: .html for people, .json, .csv, else text; - is stdout")
      ->type_name("FILE");
  app.add_option("--web", raw.web, "serve a page that shows and sets the variables")->type_name("HOST:PORT");
  app.add_flag("--quiet", options.quiet, "print only violations, not refusals or notes");
}

void add_program(const std::string& text, std::map<std::string, uint8_t>& programs) {
  const std::pair<std::string, uint8_t> program = parse_program(text);
  for (const auto& [name, number] : programs) {
    if (number != program.second || name == program.first) continue;
    throw std::invalid_argument(std::string("--program ")
                                    .append(text)
                                    .append(": ")
                                    .append(name)
                                    .append(" has this number; give each another one"));
  }
  if (!programs.insert(program).second) {
    throw std::invalid_argument("--program " + text + ": the program has a number already");
  }
}

// What a replay would not heed.
void refuse_beside_replay(const RawOptions& raw, const Options& options) {
  if (options.replay.empty()) return;
  const std::pair<const char*, bool> kGiven[] = {
      {"--profile", !options.profile.empty()},
      {"--skip-bad-lines", options.skip_bad_lines},
      {"--sentinel", options.sentinel},
      {"--animate", raw.animate},
      {"--animate-ms", raw.animate_ms != 0},
      {"--program", !raw.programs.empty()},
      {"--directory-order", options.directory_order != DirectoryOrder::kLongestFirst},
  };
  for (const auto& [name, is_given] : kGiven) {
    if (!is_given) continue;
    throw std::invalid_argument(std::string(name) +
                                " and --replay exclude each other: a capture says by itself what is answered");
  }
}

void convert(const RawOptions& raw, Options& options) {
  options.listen = parse_endpoint("--listen", raw.listen);
  require_consent("--listen", options.listen, raw.allows_remote);
  if (!raw.web.empty()) {
    options.web = parse_endpoint("--web", raw.web);
    require_consent("--web", *options.web, raw.allows_remote);
  }
  if (options.tag_files.empty() && options.replay.empty()) {
    throw std::invalid_argument("no tag file is given. Try: plc-sim PLC7F000001_0.csv, or --replay with a capture");
  }
  if (!options.tag_files.empty() && !options.replay.empty()) {
    throw std::invalid_argument("--replay takes no tag files, the capture says what is answered. Try: without " +
                                options.tag_files.front());
  }
  refuse_beside_replay(raw, options);
  refuse_other_forms(options.report);
  options.animate_ms = raw.animate && raw.animate_ms == 0 ? kDefaultAnimateMs : raw.animate_ms;
  for (const std::string& text : raw.faults) options.faults.push_back(fault_of(text));
  for (const std::string& text : raw.programs) add_program(text, options.programs);
}

// What plc-host calls it.
bool is_endpoint(const std::string& word) {
  const std::string name = word.substr(0, word.find('='));
  return name == "--address" || name == "--host" || name == "--port";
}

// What is wrong with the words; "" where the parser is to say it.
std::string word_problem(const CLI::App& app, const std::vector<std::string>& words) {
  const auto endpoint = std::find_if(words.begin(), words.end(), is_endpoint);
  if (endpoint != words.end()) return "unknown option " + *endpoint + ", use --listen HOST:PORT";
  return plc_usage::word_problem(app, words);
}

// The exit code of a run that prints this alone.
int say(const std::string& text) {
  const int error = print_output(text);
  if (error != 0) print_error(std::string("plc-sim: cannot write to standard output: ") + std::strerror(error));
  return error == 0 ? 0 : kUsageError;
}

}  // namespace

std::vector<std::string> Options::inputs() const {
  std::vector<std::string> paths = tag_files;
  if (!replay.empty()) paths.push_back(replay);
  if (!profile.empty()) paths.push_back(profile);
  return paths;
}

std::string endpoint_text(const Endpoint& endpoint) { return endpoint.host + ":" + std::to_string(endpoint.port); }

bool is_loopback(const Endpoint& endpoint) {
  constexpr uint32_t kLoopbackNet = 127;
  in_addr address{};
  return inet_pton(AF_INET, endpoint.host.c_str(), &address) == 1 && ntohl(address.s_addr) >> 24U == kLoopbackNet;
}

ParsedOptions parse_options(int argc, const char* const* argv) {
  Options options;
  RawOptions raw;
  CLI::App app{kDescription, "plc-sim"};
  plc_usage::fit_help(app);
  app.footer(footer());
  app.set_version_flag("-V,--version", "plc-sim " PLC_SIM_VERSION);
  add_options(app, options, raw);
  const std::vector<std::string> words(argv + 1, argv + argc);
  try {
    const std::string problem = word_problem(app, words);
    if (!problem.empty()) throw std::invalid_argument(plc_usage::with_hint(problem, app, words));
    app.parse(argc, argv);
    convert(raw, options);
  } catch (const CLI::ParseError& error) {
    std::ostringstream help;
    std::ostringstream problem;
    if (app.exit(error, help, problem) == 0) return {std::nullopt, say(help.str())};
    print_error("plc-sim: " + plc_usage::with_hint(plc_usage::parse_problem(error), app, words));
    return {std::nullopt, kUsageError};
  } catch (const std::invalid_argument& error) {
    print_error(std::string("plc-sim: ") + error.what());
    return {std::nullopt, kUsageError};
  }
  return {options, 0};
}

}  // namespace plc_sim
