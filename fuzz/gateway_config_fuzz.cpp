// Configurations of plc-gateway as people write them, and worse: each finding has its place and can be shown, and what
// is found to be right is.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>

#include "client/plc_client.h"
#include "fuzz_input.h"
#include "judge.h"
#include "spelling.h"
#include "toml_judge.h"
#include "tools/plc_gateway/config/addresses.h"
#include "tools/plc_gateway/config/check_files.h"
#include "tools/plc_gateway/config/data_types.h"
#include "tools/plc_gateway/config/draft.h"
#include "tools/plc_gateway/config/name_list.h"
#include "tools/plc_gateway/sparkplug/topics.h"

namespace {

using fuzz::demand;
using plc_gateway::Config;
using plc_gateway::Draft;
using plc_gateway::Finding;
using plc_gateway::Findings;

constexpr const char* kFile = "/etc/gateway.toml";
constexpr const char* kTags =
    "A,INT,,,,,,0,1,0,0,\nS.Speed,REAL,,,,,,0,1,0,0,\nT,DINT,[0..9],,,,,0,1,0,0,\n"
    "G[1].Run,BOOL,,,,,,0,1,0,0,\nText,STRING,,20,,,,0,1,0,0,\nSmall,SINT,,,,,,0,1,0,0,\n"
    "Day,DATE,,,,,,0,1,0,0,\nStep,INT,,,,,,0,0,0,1,Main\n";

constexpr const char* kWords[] = {
    "[controller]\nname=\"p\"\naddress=\"1.2.3.4\"\ntags=\"t\"\n",
    "[broker]\nurl=\"mqtt://b\"\n",
    "[sparkplug]\ngroup=\"g\"\nedge_node=\"e\"\n",
    "[journal]\nfolder=\"j\"\n",
    "[[poll]]\nevery_ms=500\nnames=[\"A\"]\n",
    "[[poll]]\n",
    "[[command]]\n",
    "[json]\n",
    "[metrics]\n",
    "[broker]\n",
    "[poll]\n",
    "[command]\n",
    "names=",
    "name=",
    "every_ms=",
    "deadband=",
    "min=",
    "max=",
    "max_age_s=",
    "verify=",
    "topic=",
    "listen=",
    "url=",
    "port=",
    "tags=",
    "driver=",
    "accept_unguarded=",
    "reply_timeout_s=",
    "mqtt_version=",
    "username=\"u\"\n",
    "password_file=\"f\"\n",
    "ca_file=\"f\"\n",
    "cert_file=\"f\"\n",
    "key_file=\"f\"\n",
    "keep_alive_s=",
    "primary_host=",
    "max_mb=",
    "evry_ms=",
    "\"\"\"",
    "'''",
    "\"",
    "'",
    "\n",
    "[",
    "]",
    "{",
    "}",
    ",",
    "#",
    "=",
    ".a.a.a.a.a.a.a.a",
    "\\",
    "\\u202E",
    "\"A\"\n",
    "\"A\"",
    "\"S.*\"",
    "\"*\"",
    "\"T[0..4]\"",
    "\"T[3]\"",
    "\"Main/Step\"",
    "\"Small\"",
    "\"Day\"",
    "\"mqtts://",
    "mqtt://",
    "[::1]:",
    "127.0.0.1:",
    "65535",
    "65536",
    "{name}",
    "true\n",
    "false\n",
    "nan\n",
    "inf\n",
    "-1\n",
    "0\n",
    "10\n",
    "3000\n",
    "0.5\n",
    "1e400\n",
    "9223372036854775807\n",
    "99999999999999999999\n",
    "1979-05-27T07:32:00Z\n",
    "0x1F\n",
    "\xC3\xA4",
    "\xE2\x80\xAE",
    "\xEF\xBB\xBF",
    "\xFF",
};

// The one folder of tag files that there is; gone as soon as it has been read.
plc_client::Controller& controller() {
  static plc_client::Controller* const made = [] {
    std::string file = "/tmp/gateway_config_fuzz.XXXXXX";
    const int descriptor = mkstemp(file.data());
    demand(descriptor >= 0, "there is a file for the tags");
    const std::string_view tags = kTags;
    demand(write(descriptor, tags.data(), tags.size()) == static_cast<ssize_t>(tags.size()), "the tags are written");
    close(descriptor);
    plc_client::Options options;
    options.address = "127.0.0.1";
    options.tags = {file};
    options.driver = PLC_FUZZ_GUARDED;
    auto* const controller = new plc_client::Controller(options);
    demand(controller->tags().size() == 8, "all tags are read");
    // The driver reads the file itself when it is first used; for this variable it sends nothing.
    demand(controller->read("Small").error.reason == plc_client::Reason::kImpossible, "the driver has read the tags");
    unlink(file.c_str());
    return controller;
  }();
  return *made;
}

bool fits_slowly(std::string_view pattern, std::string_view name) {
  if (pattern.empty()) return name.empty();
  if (pattern.front() == '*') {
    return fits_slowly(pattern.substr(1), name) || (!name.empty() && fits_slowly(pattern, name.substr(1)));
  }
  if (name.empty() || (pattern.front() != '?' && pattern.front() != name.front())) return false;
  return fits_slowly(pattern.substr(1), name.substr(1));
}

// Of texts that are short enough for the slow way.
void judge_glob(const std::string& text) {
  constexpr size_t kMost = 16;
  const size_t middle = std::min(text.size() / 2, kMost);
  const std::string_view pattern = std::string_view(text).substr(0, middle);
  const std::string_view name = std::string_view(text).substr(middle, kMost);
  demand(plc_gateway::fits_glob(pattern, name) == fits_slowly(pattern, name), "a pattern fits as it is written");
}

void judge_addresses(const std::string& text) {
  const plc_gateway::BrokerUrl url = plc_gateway::parse_broker_url(text);
  demand(url.problem.empty() == !url.at.host.empty(), "a url has a host or a problem");
  if (url.problem.empty()) {
    const bool is_ipv6 = url.at.host.find(':') != std::string::npos;
    demand(url.at.host.find_first_of("/@[] ") == std::string::npos, "a host is a name or an address");
    demand(url.at.port != 0, "a port is not 0");
    const std::string again = (url.tls ? "mqtts://" : "mqtt://") + (is_ipv6 ? "[" + url.at.host + "]" : url.at.host) +
                              (url.at.port ? ":" + std::to_string(*url.at.port) : "");
    demand(plc_gateway::parse_broker_url(again).at.host == url.at.host, "a url is what it was made of");
  }
  const plc_gateway::ListenAddress listen = plc_gateway::parse_listen(text);
  demand(listen.problem.empty() == !listen.host.empty(), "an address to listen on has a host or a problem");
  if (!text.empty() && plc_gateway::topic_problem(text).empty()) {
    demand(text.find("{name}") != std::string::npos && text.find_first_of("+#") == std::string::npos,
           "a topic has a name and nothing for subscribers");
  }
}

bool is_within(int64_t number, int64_t low, int64_t high) { return number >= low && number <= high; }

void judge_keys(const Config& config) {
  for (const std::string* id : {&config.device, &config.group, &config.edge_node}) {
    demand(plc_gateway::id_problem(*id).empty() && fuzz::is_shown(*id), "an id can be in a topic");
  }
  demand(config.primary_host.empty() || plc_gateway::id_problem(config.primary_host).empty(), "so can that of a host");
  demand(!config.controller.address.empty() && config.controller.port != 0, "a controller has an address");
  demand(is_within(config.controller.reply_timeout_s, 1, 60), "a reply is waited for, and not for ever");
  demand(!config.controller.tags.empty() && !config.journal_folder.empty(), "there are tags and a journal");
  demand(!config.broker_host.empty() && config.broker_port != 0, "a broker has an address");
  demand(is_within(config.keep_alive_s, 5, 65535), "the broker is asked now and then");
  demand(config.tls || (config.ca_file + config.cert_file + config.key_file).empty(), "certificates are for TLS");
  demand(config.cert_file.empty() == config.key_file.empty(), "a certificate has its key");
  demand(config.password_file.empty() || !config.username.empty(), "a password is somebody's");
  demand(config.json_topic.empty() || plc_gateway::topic_problem(config.json_topic).empty(), "a topic is one");
  demand(!config.polls.empty(), "something is polled");
  for (const plc_gateway::PollGroup& group : config.polls) {
    demand(is_within(group.every_ms, 10, 86400000) && !group.names.empty(), "a group has a period and names");
    demand(std::isfinite(group.deadband) && group.deadband >= 0, "a deadband is no less than nothing");
  }
  for (const plc_gateway::CommandRule& rule : config.commands) {
    demand(!rule.name.empty() && is_within(rule.every_ms, 0, 86400000), "a command has a name and a rate");
    demand(is_within(rule.max_age_ms, 1000, 86400000), "a command has an age");
    demand(!rule.min || !rule.max || *rule.min <= *rule.max, "some value is allowed");
  }
}

void judge_names(const Draft& draft, bool is_right) {
  const Config& config = draft.config;
  std::set<std::string> names;
  size_t group = 0;
  for (const plc_gateway::Variable& variable : config.variables) {
    demand(names.insert(variable.name).second, "a variable is polled once");
    demand(variable.group >= group && variable.group < config.polls.size(), "variables are in the order of the groups");
    group = variable.group;
    demand(plc_gateway::data_type_of(variable.declared_type, !variable.shape.empty()) == variable.type,
           "a variable has its type");
    demand(variable.name != "Small", "what cannot be read is not polled");
  }
  if (!is_right) return;
  demand(!config.variables.empty(), "something is read");
  for (const plc_gateway::CommandRule& rule : config.commands) {
    demand(!rule.declared_type.empty() && rule.type != plc_gateway::DataType::kBytes, "what is written can be");
    const plc_gateway::NumberRange range = plc_gateway::range_of(rule.type);
    demand(!rule.min || (plc_gateway::is_number(rule.type) && *rule.min >= range.low), "the least is of the type");
    demand(!rule.max || (plc_gateway::is_number(rule.type) && *rule.max <= range.high), "the most is of the type");
  }
}

bool has_error(const std::vector<Finding>& findings) {
  return std::any_of(findings.begin(), findings.end(), [](const Finding& finding) { return finding.is_error; });
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  controller();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  const std::string text = fuzz::spelled(input.text(), kWords);
  judge_glob(text);
  judge_addresses(text);
  Findings findings(kFile);
  Draft draft = plc_gateway::parse_config(text, kFile, findings);
  plc_gateway::set_paths(draft);
  const std::vector<Finding> of_keys = findings.take();
  fuzz::judge_findings(of_keys, kFile, text);
  if (!has_error(of_keys)) judge_keys(draft.config);
  if (plc_gateway::can_look_names_up(draft)) plc_gateway::look_names_up(draft, controller(), findings);
  const std::vector<Finding> of_names = findings.take();
  fuzz::judge_findings(of_names, kFile, text);
  judge_names(draft, !has_error(of_keys) && !has_error(of_names));
  return 0;
}
