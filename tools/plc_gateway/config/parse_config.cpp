// Takes the sections of a configuration one by one.
#include <algorithm>
#include <string_view>

#include "base/near_names.h"
#include "base/text.h"
#include "base/toml/toml_text.h"
#include "tools/plc_gateway/config/addresses.h"
#include "tools/plc_gateway/config/draft.h"
#include "tools/plc_gateway/config/section.h"
#include "tools/plc_gateway/sparkplug/topics.h"

namespace plc_gateway {
namespace {

constexpr int64_t kMostPort = 65535;
constexpr int64_t kMostReplySeconds = 60;  // a controller that is silent is known to be lost no sooner
constexpr int64_t kMostSeconds = 86400;
constexpr int64_t kMostMs = 1000 * kMostSeconds;
constexpr int64_t kLeastPollMs = 10;
constexpr int64_t kLeastMb = 4;         // the files take 3 before the first value: the fourth lets them grow
constexpr int64_t kMostMb = 1000000;    // a terabyte
constexpr int64_t kLeastKeepAlive = 5;  // the broker library takes no less
constexpr uint16_t kPlainPort = 1883;
constexpr uint16_t kTlsPort = 8883;

class ConfigParser {
 public:
  ConfigParser(const TomlText& toml, const std::string& file, Findings& findings) : toml_(toml), findings_(findings) {
    draft_.config.file = file;
  }

  Draft parse() {
    tell_unknown_sections();
    if (toml_.is_whole) tell_missing_sections(toml_.table, findings_);
    take_controller();
    take_broker();
    take_sparkplug();
    take_json();
    take_polls();
    take_commands();
    take_journal();
    take_metrics();
    return std::move(draft_);
  }

 private:
  void tell_unknown_sections();
  void tell_unknown_name(const std::string& name, bool is_table, Place place);
  Section section(const char* name) { return {name, toml_.table[name].as_table(), toml_.is_whole, findings_}; }
  std::vector<Section> sections(const char* name);
  void take_controller();
  void take_broker();
  void take_url(Section& broker);
  void take_login(Section& broker);
  void take_files(Section& broker);
  void take_sparkplug();
  void take_json();
  void take_polls();
  void take_commands();
  void take_command(Section& from);
  void take_journal();
  void take_metrics();
  void take_id(Section& from, const char* key, std::string& to);
  static void take_path(Section& from, const char* key, std::string& to, Place& place);

  const TomlText& toml_;
  Findings& findings_;
  Draft draft_;
};

void ConfigParser::tell_unknown_name(const std::string& name, bool is_table, Place place) {
  const std::string shown = plc_base::quoted(name);
  if (!is_table) {
    findings_.error(place,
                    "unknown key " + shown + " before the first section: put it into the one that it belongs to");
    return;
  }
  const std::vector<std::string> near = plc_base::near_names(name, section_names());
  findings_.error(place, "unknown section " + shown +
                             (near.empty() ? "; there are " + joined_with_and(section_names())
                                           : "; did you mean " + plc_base::joined_with_or(near) + "?"));
}

void ConfigParser::tell_unknown_sections() {
  for (const auto& [key, value] : toml_.table) {
    const std::string name(key.str());
    const Place place = place_of(key.source());
    const bool is_repeated = is_repeated_section(name);
    if (!is_section(name)) {
      tell_unknown_name(name, value.is_table() || value.is_array(), place);
    } else if (is_repeated && !value.is_array_of_tables()) {
      findings_.error(place, plc_base::quoted(name) + " must stand in double brackets: [[" + name + "]]");
    } else if (!is_repeated && !value.is_table()) {
      findings_.error(place, plc_base::quoted(name) + " must be a section, once: [" + name + "]");
    }
  }
}

std::vector<Section> ConfigParser::sections(const char* name) {
  std::vector<Section> all;
  const toml::array* array = toml_.table[name].as_array();
  if (array == nullptr || !array->is_array_of_tables()) return all;
  for (const toml::node& table : *array) all.emplace_back(name, table.as_table(), toml_.is_whole, findings_);
  return all;
}

void ConfigParser::take_id(Section& from, const char* key, std::string& to) {
  const std::optional<std::string> id = from.text(key);
  if (!id) return;
  to = *id;
  const std::string problem = id_problem(*id);
  if (!problem.empty()) from.error(key, problem + ": give an id of letters and digits");
}

void ConfigParser::take_path(Section& from, const char* key, std::string& to, Place& place) {
  place = from.place(key);
  to = from.text(key).value_or("");
}

void ConfigParser::take_controller() {
  Section from = section("controller");
  plc_client::Options& options = draft_.config.controller;
  take_id(from, "name", draft_.config.device);
  draft_.address = from.place("address");
  options.address = from.text("address").value_or("");
  if (options.address.find_first_of(":/ ") != std::string::npos) {
    from.error("address", "is " + plc_base::quoted(options.address) +
                              ": give a host's name or IPv4 address alone, and its port as port = 8500");
    options.address.clear();
  }
  options.port = static_cast<uint16_t>(from.integer("port", 1, kMostPort).value_or(options.port));
  draft_.tags = from.texts("tags");
  options.reply_timeout_s =
      static_cast<uint32_t>(from.integer("reply_timeout_s", 1, kMostReplySeconds).value_or(options.reply_timeout_s));
  draft_.driver = from.place("driver");
  options.driver = from.text("driver").value_or(options.driver);
  draft_.config.accept_unguarded = from.flag("accept_unguarded").value_or(false);
  take_path(from, "profile", options.profile, draft_.profile);
}

void ConfigParser::take_url(Section& broker) {
  const std::optional<std::string> url = broker.text("url");
  if (!url) return;
  draft_.places.url = broker.place("url");
  const BrokerUrl parsed = parse_broker_url(*url);
  if (!parsed.problem.empty()) {
    broker.error("url", parsed.problem);
    return;
  }
  draft_.config.tls = parsed.tls;
  draft_.config.broker_host = parsed.at.host;
  draft_.config.broker_port = parsed.at.port.value_or(parsed.tls ? kTlsPort : kPlainPort);
  if (parsed.tls) return;
  for (const char* key : {"ca_file", "cert_file", "key_file"}) {
    if (broker.has(key)) broker.error(key, "is for TLS alone: make the url begin with mqtts://, or remove the key");
  }
}

void ConfigParser::take_login(Section& broker) {
  Config& config = draft_.config;
  config.username = broker.text("username").value_or("");
  take_path(broker, "password_file", config.password_file, draft_.places.password_file);
  if (!config.password_file.empty() && !broker.has("username")) {
    broker.error("password_file", "needs a username beside it: add username = \"...\"");
  }
  if (!config.password_file.empty() && !config.tls && !config.broker_host.empty()) {
    findings_.note(draft_.places.password_file,
                   "the password goes over the network as it is: mqtts:// keeps it secret");
  }
}

void ConfigParser::take_files(Section& broker) {
  Config& config = draft_.config;
  take_path(broker, "ca_file", config.ca_file, draft_.places.ca_file);
  take_path(broker, "cert_file", config.cert_file, draft_.places.cert_file);
  take_path(broker, "key_file", config.key_file, draft_.places.key_file);
  if (broker.has("cert_file") && !broker.has("key_file")) {
    broker.error("cert_file", "needs the certificate's key beside it: add key_file = \"...\"");
  }
  if (broker.has("key_file") && !broker.has("cert_file")) {
    broker.error("key_file", "needs the key's certificate beside it: add cert_file = \"...\"");
  }
}

void ConfigParser::take_broker() {
  Section from = section("broker");
  Config& config = draft_.config;
  take_url(from);
  take_login(from);
  take_files(from);
  config.keep_alive_s =
      static_cast<uint32_t>(from.integer("keep_alive_s", kLeastKeepAlive, kMostPort).value_or(config.keep_alive_s));
  const std::optional<std::string> version = from.text("mqtt_version");
  config.mqtt5 = version == "5";
  if (version && version != "5" && version != "3.1.1") {
    from.error("mqtt_version", "is " + plc_base::quoted(*version) + " and must be \"3.1.1\" or \"5\"");
  }
}

void ConfigParser::take_sparkplug() {
  Section from = section("sparkplug");
  take_id(from, "group", draft_.config.group);
  take_id(from, "edge_node", draft_.config.edge_node);
  take_id(from, "primary_host", draft_.config.primary_host);
}

void ConfigParser::take_json() {
  Section from = section("json");
  const std::optional<std::string> topic = from.text("topic");
  if (!topic) return;
  const std::string problem = topic_problem(*topic);
  if (!problem.empty()) from.error("topic", problem);
  draft_.config.json_topic = *topic;
}

void ConfigParser::take_polls() {
  std::vector<Section> all = sections("poll");
  for (Section& from : all) {
    PollGroup group;
    PollDraft draft;
    group.every_ms = from.integer("every_ms", kLeastPollMs, kMostMs).value_or(group.every_ms);
    draft.place = from.place("");
    draft.names = from.texts("names");
    for (const PlacedText& name : draft.names) group.names.push_back(name.text);
    group.deadband = from.number("deadband").value_or(0);
    if (group.deadband < 0) from.error("deadband", "must not be negative: 0 publishes every change");
    draft_.config.polls.push_back(std::move(group));
    draft_.polls.push_back(std::move(draft));
  }
}

void ConfigParser::take_command(Section& from) {
  CommandRule rule;
  const std::optional<std::string> name = from.text("name");
  rule.min = from.number("min");
  rule.max = from.number("max");
  if (rule.min && rule.max && *rule.min > *rule.max) from.error("min", "is above max: no value would be allowed");
  rule.every_ms = from.integer("every_ms", 0, kMostMs).value_or(0);
  constexpr int64_t kMsPerSecond = 1000;
  rule.max_age_ms = kMsPerSecond * from.integer("max_age_s", 1, kMostSeconds).value_or(rule.max_age_ms / kMsPerSecond);
  rule.verify = from.flag("verify").value_or(false);
  if (!name) return;
  if (name->find_first_of("*?") != std::string::npos) {
    from.error("name", plc_base::quoted(*name) + " is a pattern: each variable that may be written is named by itself");
    return;
  }
  rule.name = *name;
  draft_.config.commands.push_back(rule);
  draft_.commands.push_back({{*name, from.place("name")}, from.place("min"), from.place("max")});
}

void ConfigParser::take_commands() {
  std::vector<Section> all = sections("command");
  for (Section& from : all) take_command(from);
}

void ConfigParser::take_journal() {
  Section from = section("journal");
  take_path(from, "folder", draft_.config.journal_folder, draft_.journal_folder);
  const std::optional<int64_t> most = from.integer("max_mb", kLeastMb, kMostMb);
  if (most) draft_.config.journal_bytes = static_cast<uint64_t>(*most) << 20U;
}

void ConfigParser::take_metrics() {
  Section from = section("metrics");
  const std::optional<std::string> listen = from.text("listen");
  if (!listen) return;
  const ListenAddress parsed = parse_listen(*listen);
  if (!parsed.problem.empty()) from.error("listen", parsed.problem);
  if (parsed.problem.empty() && parsed.host.rfind("127.", 0) != 0 && parsed.host != "::1") {
    findings_.note(from.place("listen"), *listen + " is open to other machines: whoever reaches it reads the figures");
  }
  draft_.config.metrics_host = parsed.host;
  draft_.config.metrics_port = parsed.port;
}

}  // namespace

bool can_look_names_up(const Draft& draft) { return !draft.config.controller.address.empty() && !draft.tags.empty(); }

Draft parse_config(const std::string& text, const std::string& file, Findings& findings) {
  const TomlText toml = parse_toml(text, findings);
  return ConfigParser(toml, file, findings).parse();
}

}  // namespace plc_gateway
