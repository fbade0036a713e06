// The table of commands: names, help and options. A new command is a row here and a function.
#include <CLI/App.hpp>
#include <CLI/Option.hpp>
#include <CLI/Validators.hpp>

#include <algorithm>
#include <cstring>

#include "base/shown_text.h"
#include "base/text.h"
#include "client/plan/number_read.h"
#include "client/tags/tag_reference.h"
#include "tag_check/rule_list.h"
#include "tools/plc_host/client_names.h"
#include "tools/plc_host/commands/commands.h"
#include "tools/plc_host/commands/form_options.h"
#include "tools/plc_host/commands/log_options.h"
#include "tools/plc_host/commands/setting_options.h"
#include "tools/plc_host/exit_codes.h"
#include "tools/plc_host/target/tag_files.h"
#include "tools/usage/usage.h"

namespace plc_host {
namespace {

constexpr uint32_t kLongestIntervalMs = 86400000;  // a day

constexpr char kNameRules[] =
    "A name is written as in the tag file, with subscripts in the order of its\n"
    "ranges:\n"
    "  Motor.Speed   'Table[3]'   'Grid[1,2]'   'Table[0..4]'   'Grid[1,0..2]'\n"
    "  MAIN/Count    a variable that is local to the program MAIN\n"
    "An array without subscripts means all of its elements.\n";

constexpr char kPatternRules[] =
    "'Motor.*' means every variable that matches: * any characters, ? one, [a-c] one\n"
    "of these, [!a-c] one other, [[] a bracket.\n";

constexpr char kInfoDetails[] =
    "The guarded build of the driver fails where the contract build may mistake\n"
    "another reply for the right one. plc-host uses it if it is installed.\n"
    "\nExamples:\n"
    "  plc-host info\n"
    "  plc-host info --driver contract\n";

constexpr char kTagsDetails[] =
    "Shows each record with the number, reg_type and address by which a host asks\n"
    "for it. With --new it writes lines instead, from a name and a type, or from a\n"
    "list that a spreadsheet saved.\n"
    "\nExamples:\n"
    "  plc-host tags PLCC0A8000A_0.csv\n"
    "  plc-host tags machine.csv 'Motor.*' --format csv\n"
    "  plc-host tags --new Motor.Torque INT --after machine.csv >> machine.csv\n"
    "  plc-host tags --new Recipe.Name 'STRING(20)' --scope MAIN\n"
    "  plc-host tags --new --from list.csv --output PLCC0A8000B_0.csv\n";

constexpr char kCheckDetails[] =
    "Reports what the driver will read, with the driver's own parser, and what the\n"
    "author probably meant. Ends with 1 when a file has an error or cannot be loaded,\n"
    "with --fix when the corrected copy has. With --live it asks a controller for\n"
    "each name, of an array for its last element. It lists the names that the\n"
    "controller refuses.\n"
    "\nExamples:\n"
    "  plc-host check PLCC0A8000A_0.csv --address 192.168.0.10\n"
    "  plc-host check PLCC0A8000A_0.csv --fix corrected.csv\n"
    "  plc-host check machine.csv --live --address 192.168.0.10\n"
    "  plc-host check PLCC0A8000A_0.csv --live --sim machine.csv\n"
    "  plc-host check --rules\n"
    "  plc-host check --rules T042\n";

constexpr char kReadExamples[] =
    "Each line has a state, good or the reason why there is no value, and a time.\n"
    "When the controller does not answer, the other variables are not read.\n"
    "\nExamples:\n"
    "  plc-host read --address 192.168.0.10 Motor.Speed 'Table[0..4]'\n"
    "  plc-host read --sim machine.csv 'Motor.*' --format csv > motor.csv\n"
    "  plc-host read --sim machine.csv Motor.Speed --strict --json\n"
    "  speed=$(plc-host read --address 192.168.0.10 --raw Motor.Speed)\n"
    "  plc-host read --sim machine.csv --id 0x40001 --offset 3 --count 2\n";

constexpr char kWriteExamples[] =
    "Numbers are 120, -5 or 1.5e3, or bit patterns, 0xFF or 0b101. A BOOL is true,\n"
    "false, on or off. A text is as typed, or \"with \\\"escapes\\\" \\x41\\n\". An\n"
    "array is a list, [1, 2, 3] or [[1, 2], [3, 4]]. Accepts no patterns, and checks\n"
    "everything before it sends anything. States: written when the controller\n"
    "acknowledged it, verified when it was read back, unguarded with the contract\n"
    "build, which cannot know, checked with --dry-run.\n"
    "\nExamples:\n"
    "  plc-host write --sim machine.csv Motor.Speed=120 'Table[0..2]=[1, 2, 3]'\n"
    "  plc-host write --address 192.168.0.10 'Name=pump 3' MAIN/Ready=true --verify\n"
    "  plc-host write --tags machine.csv --dry-run Motor.Speed=0xFF\n";

constexpr char kBatchExamples[] =
    "Reads through the driver's batch call: one scope per call, in sizes that leave\n"
    "no register unread. Reads variables that the batch call cannot return singly; -v\n"
    "lists them.\n"
    "\nExample:\n  plc-host batch --sim machine.csv --all\n";

constexpr char kWatchExamples[] =
    "In a terminal it redraws a table in place: * for a change within the last\n"
    "second, time since the change, state, value. Arrows and page keys scroll, /\n"
    "filters by name, Return shows the history of a row. Elsewhere it writes a line\n"
    "per change of value or state; with --csv a row per round, with empty cells where\n"
    "nothing was read. Ctrl-C ends it with a summary of calls, failures and times.\n"
    "--log writes changes and gaps to a file, with --rotate for weeks.\n"
    "\nExamples:\n"
    "  plc-host watch --address 192.168.0.10 Motor.Speed --chart Motor.Speed\n"
    "  plc-host watch --sim machine.csv --sim-arg=--animate --all --interval 200\n"
    "  plc-host watch --sim machine.csv Motor.Speed --csv --rounds 600 > speed.csv\n"
    "  plc-host watch --address 192.168.0.10 Motor.Speed --log s.csv --rotate daily\n";

constexpr char kWhyExamples[] =
    "Shows the whole path of one value: tag line, record, number, reg_type and\n"
    "address, scope, names sent, handles received, raw reply, value, time per\n"
    "exchange. Then it shows what went wrong and what to try. With --capture it looks\n"
    "for the name in captured traffic instead of reading it.\n"
    "\nExamples:\n"
    "  plc-host why --address 192.168.0.10 MAIN/Count\n"
    "  plc-host why --sim machine.csv --id 3 --pcap field.pcap\n"
    "  plc-host why --capture field.pcap --tags PLCC0A8000A_0.csv Motor.Speed\n";

constexpr char kSurveyExamples[] =
    "Asks a controller everything that reads and names can show: how it takes\n"
    "connections, its programs, each declared variable, the heads of replies, times,\n"
    "limits. Writes a report, its figures as JSON, the traffic and a profile,\n"
    "which plc-host, the client library and plc-gateway take, and plc-sim imitates.\n"
    "Nothing is written to a variable unless --write names it: a scratch variable,\n"
    "which gets another value, is read, and gets its own back. Ctrl-C ends it with\n"
    "everything found so far.\n"
    "\nExamples:\n"
    "  plc-host survey --address 192.168.0.10 --tags machine.csv --output found\n"
    "  plc-host survey --sim machine.csv --output trial --rate 200 --hours 0.001\n"
    "  plc-host survey --sim machine.csv --output trial --write Motor.Speed\n";

void add_info_options(CLI::App& command, HostOptions& options) {
  add_setting(command, "profile", options, "Show the settings that this profile of a controller gives");
}

void add_names_file(CLI::App& command, HostOptions& options) {
  command
      .add_option("--names-from", options.names_file, "Add the names in the lines of this file; - for standard input")
      ->type_name("FILE");
}

void add_tags_options(CLI::App& command, HostOptions& options) {
  command.add_option("FILE", options.listed,
                     "Tag file, and names or patterns of what to list; with --new the variable's name and its type");
  add_names_file(command, options);
  add_setting(command, "tags", options, "List this tag file; then all words are names");
  add_setting(command, "address", options, "List the file of this controller")->type_name("HOST");
  add_setting(command, "area", options, "Set the controller's area");
  command.add_flag("--names", options.names_only, "Show only the names of the variables that can be read");
  add_form_option(command, options);
  add_new_tag_options(command, options);
}

const char* live_help(const std::string& name) {
  if (name == "port") return "set the controller's TCP port";
  if (name == "area") return "set the area";
  if (name == "profile") return "take settings from this profile of the controller";
  return name == "timeout" ? "wait this many seconds for a reply" : "pause this many ms before each transfer";
}

// start begins the help of the first.
std::vector<CLI::Option*> add_simulator_options(CLI::App& command, HostOptions& options, const std::string& start) {
  CLI::Option* sim =
      command.add_option("--sim", options.sim_tag_file, start + " a simulated controller with this tag file");
  CLI::Option* simulator =
      command.add_option("--simulator", options.simulator, "Start this simulator instead of plc-sim")->needs(sim);
  CLI::Option* arguments =
      command.add_option("--sim-arg", options.sim_arguments, "Pass this argument to the simulator; may be repeated")
          ->needs(sim);
  arguments->allow_extra_args(false);
  return {sim, simulator, arguments};
}

void add_check_options(CLI::App& command, HostOptions& options) {
  command.add_option("FILE", options.checked_files, "Tag files");
  command.add_option("--address", options.address, "Check for this controller: IPv4 address or name");
  CLI::Option* sarif =
      command.add_flag("--sarif", options.sarif, "Write one SARIF document, for editors and code hosts");
  command.add_flag("--errors-only", options.errors_only, "Show errors only, no warnings or remarks");
  CLI::Option* fix =
      plc_usage::add_output_file(command, "--fix", options.fixed_file, "Write a copy with every safe correction");
  command.add_flag("--overwrite", options.overwrites, "Let --fix replace an existing file")->needs(fix);
  CLI::Option* rules = command.add_flag("--rules", options.list_rules, "List all rules, or those with these codes");
  CLI::Option* live =
      command.add_flag("--live", options.live, "Ask the controller for each name, once; writes nothing");
  for (CLI::Option* other : {sarif, fix, rules}) live->excludes(other);
  for (const char* name : {"port", "area", "timeout", "delay", "profile"}) {
    add_setting(command, name, options, std::string("With --live: ") + live_help(name))->needs(live);
  }
  for (CLI::Option* option : add_simulator_options(command, options, "With --live: start")) option->needs(live);
}

// What a shell would make two words of stands in one here.
void check_simulator_argument(const std::string& argument) {
  const size_t blank = argument.find(' ');
  if (argument.compare(0, 2, "--") != 0 || blank == std::string::npos || argument.find('=') < blank) return;
  const std::string together = argument.substr(0, blank) + "=" + argument.substr(blank + 1);
  const bool is_word = together.find_first_of(" '\"$`\\") == std::string::npos;
  throw HostError(kExitUsage, "--sim-arg " + plc_base::quoted(argument) +
                                  " is one word: write --sim-arg=" + (is_word ? together : plc_base::quoted(together)));
}

void check_rules(const HostOptions& options) {
  if (options.json || options.sarif) {
    throw HostError(kExitUsage, "--rules lists the rules as text: neither --json nor --sarif goes with it");
  }
  for (const std::string& word : options.checked_files) {
    const auto is_called = [&word](const tag_check::Rule& rule) { return word == rule.code; };
    const std::vector<tag_check::Rule>& rules = tag_check::rule_list();
    if (std::any_of(rules.begin(), rules.end(), is_called)) continue;
    const bool is_like_code = word.size() == std::strlen(rules.front().code) && (word[0] == 'T' || word[0] == 't') &&
                              word.find_first_not_of("0123456789", 1) == std::string::npos;
    if (is_like_code) {
      throw HostError(kExitUsage, "no rule is called " + plc_base::told_name(word) +
                                      ": they are called as T042; check --rules lists them");
    }
    throw HostError(kExitUsage,
                    "--rules lists the rules and checks no file: leave " + plc_base::told_name(word) + " away");
  }
}

void check_check(const HostOptions& options) {
  if (options.checked_files.empty() && !options.list_rules) {
    const std::string written = plc_base::shown_line(options.fixed_file);
    const std::string meant = "--fix " + written + " names the file to write; ";
    throw HostError(kExitUsage, (written.empty() ? "" : meant) + "which tag file? Give FILE");
  }
  if (options.list_rules) check_rules(options);
  if (options.json && options.sarif) throw HostError(kExitUsage, "--json or --sarif, not both");
  if (!options.fixed_file.empty() && options.checked_files.size() != 1) {
    throw HostError(kExitUsage, "--fix goes with one tag file");
  }
  if (options.live && options.checked_files.size() != 1) {
    throw HostError(kExitUsage, "--live goes with one tag file");
  }
  const bool has_controller = !options.sim_tag_file.empty() || !options.address.empty();
  if (options.live && !has_controller && !options.settings.at("address").is_said()) {
    throw HostError(kExitUsage, "which controller? --live needs --address HOST, or --sim TAGFILE for a simulated one");
  }
  for (const std::string& argument : options.sim_arguments) check_simulator_argument(argument);
}

void add_target_options(CLI::App& command, HostOptions& options) {
  const std::string group = "Controller";
  CLI::Option* address =
      add_setting(command, "address", options, "Connect to this IPv4 address or name, with :PORT if you like")
          ->type_name("HOST:PORT");
  CLI::Option* port = add_setting(command, "port", options, "Connect to this TCP port");
  CLI::Option* tags =
      add_setting(command, "tags", options,
                  "Use this tag file, or that of the controller in this folder; default: PLC<address>_<area>.csv "
                  "in the working directory");
  const std::vector<CLI::Option*> simulated = add_simulator_options(command, options, "Start");
  CLI::Option* area = add_setting(command, "area", options, "Set the area, the last number of the tag file's name");
  CLI::Option* timeout = add_setting(command, "timeout", options, "Wait this many seconds for a reply");
  CLI::Option* delay = add_setting(command, "delay", options, "Pause this many milliseconds before each transfer");
  CLI::Option* profile = add_setting(command, "profile", options, "Take settings from this profile of the controller");
  for (CLI::Option* option : {address, port, area, tags, timeout, delay, profile}) option->group(group);
  for (CLI::Option* option : simulated) option->group(group);
}

void add_name_options(CLI::App& command, HostOptions& options) {
  command.add_option("NAME", options.names, "Variables, with subscripts or without, or patterns");
  add_names_file(command, options);
  command.add_flag("--all", options.all, "Read every variable of the tag file");
}

void add_number_options(CLI::App& command, HostOptions& options) {
  CLI::Option* id =
      plc_usage::add_number(command, "--id", options.register_id, {0, UINT32_MAX}, "Read a register by its number");
  CLI::Option* offset = plc_usage::add_number(command, "--offset", options.offset, {0, 0xFFFF},
                                              "Start at this element offset, in the driver's units");
  CLI::Option* count = plc_usage::add_number(command, "--count", options.count, {1, kMostCounted},
                                             "Read this many elements, in the driver's units");
  id->each([&options](const std::string&) { options.by_id = true; });
  offset->needs(id)->default_str("0");
  count->needs(id)->default_str("1");
}

// Of the commands that read once.
void add_result_options(CLI::App& command, HostOptions& options) {
  add_form_options(command, options);
  add_raw_option(command, options);
  command.add_flag("--strict", options.strict, "Show all values if each of them is good, else none");
}

void add_read_options(CLI::App& command, HostOptions& options) {
  add_name_options(command, options);
  add_number_options(command, options);
  add_result_options(command, options);
  add_target_options(command, options);
}

void add_why_options(CLI::App& command, HostOptions& options) {
  command.add_option("NAME", options.names, "The variable, with subscripts or without");
  add_number_options(command, options);
  CLI::Option* capture =
      command.add_option("--capture", options.capture, "Look in a capture (pcapng or pcap) instead of reading");
  CLI::Option* port = plc_usage::add_number(command, "--capture-port", options.capture_port, {1, 65535},
                                            "Set the controller's port in the capture; default: found automatically");
  CLI::Option* pcap =
      plc_usage::add_output_file(command, "--pcap", options.pcap_file, "Write the traffic to a pcap file");
  port->needs(capture);
  pcap->excludes(capture);
  add_target_options(command, options);
  capture->excludes(command.get_option("--sim"));
}

void add_write_options(CLI::App& command, HostOptions& options) {
  command.add_option("NAME=VALUE", options.names, "Variables and their values");
  add_names_file(command, options);
  CLI::Option* verify = command.add_flag("--verify", options.verify, "Read back and compare");
  command.add_flag("--dry-run", options.dry_run, "Check and show what would be written; send nothing")
      ->excludes(verify);
  add_form_options(command, options);
  add_target_options(command, options);
}

void add_batch_options(CLI::App& command, HostOptions& options) {
  add_name_options(command, options);
  add_result_options(command, options);
  add_target_options(command, options);
}

void add_watch_options(CLI::App& command, HostOptions& options) {
  add_name_options(command, options);
  plc_usage::add_number(command, "--interval", options.interval_ms, {0, kLongestIntervalMs, "milliseconds"},
                        "Start a round every so many milliseconds")
      ->default_str("500");
  plc_usage::add_number(command, "--rounds", options.rounds, {1, UINT32_MAX},
                        "End after this many rounds; default: never");
  command.add_flag("--batch", options.batch, "Read with the batch call; default: singly");
  add_form_options(command, options);
  command.add_flag("--raw", options.raw, "Write only the value of one variable, a line for each change");
  command.add_option("--chart", options.chart, "Draw this variable's value over time");
  add_log_options(command, options);
  add_target_options(command, options);
}

void check_target(const HostOptions& options) {
  for (const std::string& argument : options.sim_arguments) check_simulator_argument(argument);
  if (options.address.empty() && options.sim_tag_file.empty()) {
    throw HostError(kExitUsage, "which controller? Give --address HOST, or --sim TAGFILE for a simulated one");
  }
}

// Before anything is said of what is missing: the file itself may be that.
void refuse_files(const HostOptions& options) {
  if (!options.tag_file.empty() || !options.sim_tag_file.empty()) return;
  for (const std::string& word : options.names) {
    if (const std::string hint = file_hint(word); !hint.empty()) throw HostError(kExitUsage, hint);
  }
}

void check_name(std::string_view name) {
  if (name.empty()) throw HostError(kExitUsage, "a name is empty: give the one of a variable");
}

// A list whose words the shell took apart, as it would have to be typed; "" where none begins before this word.
std::string list_in_words(const std::vector<std::string>& words, size_t at) {
  size_t first = at;
  while (first > 0 && words[first].find('=') == std::string::npos) --first;
  const size_t opened = words[first].find("=[");
  if (first == at || opened == std::string::npos || words[first].find(']', opened) != std::string::npos) return {};
  std::string list = words[first];
  for (size_t i = first + 1; i < words.size() && words[i].find('=') == std::string::npos; ++i) {
    list.append(" ").append(words[i]);
  }
  return list;
}

[[noreturn]] void refuse_word(const std::vector<std::string>& words, size_t at) {
  const std::string list = list_in_words(words, at);
  if (!list.empty()) {
    throw HostError(kExitUsage, "a list with blanks is several words: quote it, as in '" + list + "'");
  }
  const std::string& word = words[at];
  if (const std::string hint = file_hint(word); !hint.empty()) throw HostError(kExitUsage, hint);
  // "Speed: 5" has the colon of other languages.
  const std::string name = word.substr(0, word.size() > 1 && word.back() == ':' ? word.size() - 1 : word.size());
  throw HostError(kExitUsage, word + " gives no value: write it as " + name + "=VALUE, in one word");
}

// What is only checked needs no controller where the tag file is known without one.
void check_write(const HostOptions& options) {
  check_form(options);
  if (options.names.empty()) throw HostError(kExitUsage, "what to write? Give NAME=VALUE");
  refuse_files(options);
  if (options.dry_run && options.tag_file.empty() && options.address.empty() && options.sim_tag_file.empty()) {
    throw HostError(kExitUsage, "which variables are there? Give --tags FILE, --address HOST or --sim TAGFILE");
  }
  if (!options.dry_run) check_target(options);
  for (size_t i = 0; i < options.names.size(); ++i) {
    std::string_view name;
    std::string_view value;
    try {
      split_assignment(options.names[i], name, value);
      // A name may begin with a =; the tag file tells.
      if (value.find('=') == std::string_view::npos) check_name(name);
    } catch (const ReferenceError&) {
      refuse_word(options.names, i);
    }
  }
}

void check_names(const HostOptions& options) {
  check_form(options);
  refuse_files(options);
  check_target(options);
  if (options.names.empty() && !options.all) throw HostError(kExitUsage, "which variables? Give names or --all");
  for (const std::string& name : options.names) check_name(name);
}

void check_read(const HostOptions& options) {
  if (!options.by_id) return check_names(options);
  check_form(options);
  check_target(options);
  if (!options.names.empty() || options.all) throw HostError(kExitUsage, "--id reads one register: no names with it");
}

void check_why(const HostOptions& options) {
  refuse_files(options);
  if (options.capture.empty()) check_target(options);
  if (options.names.size() + (options.by_id ? 1 : 0) != 1) {
    throw HostError(kExitUsage, "which variable? One NAME or --id");
  }
  if (options.by_id && !options.capture.empty() && options.tag_file.empty()) {
    throw HostError(kExitUsage, "--id needs --tags: a capture holds names and no numbers");
  }
}

void check_watch(const HostOptions& options) {
  check_names(options);
  if (!options.chart.empty() && form_of(options).form != Form::kText) {
    throw HostError(kExitUsage, "--chart goes with neither --json, --csv nor --raw");
  }
}

}  // namespace

const std::vector<Command>& command_table() {
  static const std::vector<Command> kCommands = {
      {"info", "Show the driver library, its build and the settings", kInfoDetails, add_info_options, nullptr,
       run_info},
      {"tags", "List the records of a tag file as the driver reads it", kTagsDetails, add_tags_options, check_tags,
       run_tags},
      {"check", "Check tag files", kCheckDetails, add_check_options, check_check, run_check},
      {"read", "Read variables", std::string(kNameRules) + kPatternRules + kReadExamples, add_read_options, check_read,
       run_read},
      {"write", "Write variables", std::string(kNameRules) + kWriteExamples, add_write_options, check_write, run_write},
      {"batch", "Read many variables in few calls", std::string(kNameRules) + kPatternRules + kBatchExamples,
       add_batch_options, check_names, run_batch},
      {"watch", "Read repeatedly and show changes", std::string(kNameRules) + kPatternRules + kWatchExamples,
       add_watch_options, check_watch, run_watch},
      {"why", "Follow one value to the network and back, and show what went wrong",
       std::string(kNameRules) + kWhyExamples, add_why_options, check_why, run_why},
      {"survey", "Find out how a controller answers, and report it", kSurveyExamples, add_survey_options, check_survey,
       run_survey},
  };
  return kCommands;
}

}  // namespace plc_host
