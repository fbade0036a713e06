// What the rooms of the broker and of the journal say of a configuration, beside what stands in it.
#include "tools/plc_gateway/service/checked_config.h"

#include <uv.h>

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "tools/plc_gateway/broker/failure_text.h"
#include "tools/plc_gateway/broker/password.h"
#include "tools/plc_gateway/broker/tls_context.h"
#include "tools/plc_gateway/journal/journal_files.h"
#include "tools/plc_gateway/node/birth_bytes.h"
#include "tools/plc_gateway/sparkplug/topics.h"

namespace plc_gateway {
namespace {

using plc_toml::Findings;
using plc_toml::Place;

Place place_of(const std::string& key, const BrokerPlaces& places) {
  if (key == "ca_file") return places.ca_file;
  if (key == "cert_file") return places.cert_file;
  return key == "key_file" ? places.key_file : places.url;
}

bool is_told(const std::vector<Finding>& findings, Place place) {
  return std::any_of(findings.begin(), findings.end(), [&](const Finding& finding) {
    return finding.is_error && finding.line == place.line && finding.column == place.column;
  });
}

// Of a file that was told to be wrong, nothing is added.
void check_password_file(const ConfigResult& result, Findings& findings) {
  const std::string& path = result.config.password_file;
  if (path.empty() || is_told(result.findings, result.places.password_file)) return;
  std::string password;
  const std::string problem = read_password(path, &password);
  if (problem.empty()) return;
  findings.error(result.places.password_file,
                 problem + "; write the password alone (printf '%s\\n' PASSWORD > FILE), of at most 65535 bytes");
}

// Of a file that was told to be wrong, nothing is added.
void check_tls(const ConfigResult& result, Findings& findings) {
  if (!result.config.tls) return;
  const BrokerOptions options = broker_options(result.config);
  const TlsContext context(options);
  if (context.problem().empty()) return;
  const Place place = place_of(context.problem_key(), result.places);
  if (!is_told(result.findings, place)) findings.error(place, context.problem());
}

// Of a folder that was told to be wrong, nothing is added.
void check_journal_files(const ConfigResult& result, Findings& findings) {
  if (result.config.journal_folder.empty() || is_told(result.findings, result.journal_place)) return;
  const std::string problem = problem_with_journal_files(result.config.journal_folder);
  if (!problem.empty()) findings.error(result.journal_place, problem);
}

// What a broker drops for its length it drops without a word; and NBIRTH is always short.
void check_birth(const ConfigResult& result, Findings& findings) {
  const Config& config = result.config;
  const Topics topics(config.group, config.edge_node, config.device, {});
  const size_t bytes = most_device_birth_bytes(topics.device_birth, config.variables);
  if (bytes <= kLongBirthBytes) return;
  findings.note({}, "DBIRTH can have up to " + plc_base::plural(bytes, "byte") +
                        ", and a broker that takes less may drop it without a word: " + room_for_message(bytes));
}

// A name server that is out of reach says nothing of the file: it is no mistake.
void check_broker_name(const ConfigResult& result, Findings& findings) {
  if (result.config.broker_host.empty()) return;
  uv_loop_t loop;
  if (uv_loop_init(&loop) != 0) return;
  uv_getaddrinfo_t request{};
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  const int problem = uv_getaddrinfo(&loop, &request, nullptr, result.config.broker_host.c_str(), nullptr, &hints);
  uv_freeaddrinfo(request.addrinfo);
  uv_loop_close(&loop);
  if (problem == 0) return;
  findings.note(result.places.url, resolver_failure(broker_options(result.config), problem) +
                                       "; it is tried again while the gateway runs");
}

}  // namespace

BrokerOptions broker_options(const Config& config) {
  BrokerOptions options;
  options.host = config.broker_host;
  options.port = config.broker_port;
  options.tls = config.tls;
  options.client_id = "plc-gateway-" + config.group + "-" + config.edge_node;
  options.username = config.username;
  options.password_file = config.password_file;
  options.ca_file = config.ca_file;
  options.cert_file = config.cert_file;
  options.key_file = config.key_file;
  options.keep_alive_s = config.keep_alive_s;
  options.mqtt5 = config.mqtt5;
  return options;
}

ConfigResult load_checked_config(const std::string& file) {
  ConfigResult result = load_config(file);
  Findings findings(file);
  check_password_file(result, findings);
  check_tls(result, findings);
  check_journal_files(result, findings);
  check_broker_name(result, findings);
  check_birth(result, findings);
  for (Finding& finding : findings.take()) result.findings.push_back(std::move(finding));
  std::stable_sort(result.findings.begin(), result.findings.end(), [](const Finding& a, const Finding& b) {
    return std::pair(a.line, a.column) < std::pair(b.line, b.column);
  });
  return result;
}

}  // namespace plc_gateway
