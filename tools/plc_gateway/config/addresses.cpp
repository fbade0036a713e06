// Takes urls, addresses and topics of a configuration apart.
#include "tools/plc_gateway/config/addresses.h"

#include <string_view>

#include "base/shown_text.h"
#include "base/text.h"

namespace plc_gateway {
namespace {

constexpr std::string_view kPlainScheme = "mqtt://";
constexpr std::string_view kTlsScheme = "mqtts://";
constexpr std::string_view kName = "{name}";

bool starts_with(std::string_view text, std::string_view start) { return text.substr(0, start.size()) == start; }

}  // namespace

BrokerUrl parse_broker_url(const std::string& url) {
  BrokerUrl parsed;
  parsed.tls = starts_with(url, kTlsScheme);
  if (!parsed.tls && !starts_with(url, kPlainScheme)) {
    parsed.problem = "is " + plc_base::quoted(url) + ": it begins with mqtt:// or, with TLS, mqtts://";
    return parsed;
  }
  const std::string_view rest = std::string_view(url).substr((parsed.tls ? kTlsScheme : kPlainScheme).size());
  if (rest.find('@') != std::string_view::npos) {
    parsed.problem = "holds a user: name it with username, and its password with password_file";
    return parsed;
  }
  if (rest.find('/') != std::string_view::npos) {
    parsed.problem = "holds a path: end it behind the host and the port";
    return parsed;
  }
  const std::optional<plc_base::SplitAddress> parts = plc_base::split_address(rest);
  if (!parts) {
    parsed.problem = "is " + plc_base::quoted(url) +
                     ": behind the // stand a host's name or address and, after a "
                     "colon, a port; an IPv6 address stands in brackets";
  } else if (parts->is_bad_port || parts->at.port == 0) {
    parsed.problem = "has a port that is none: give one from 1 to 65535";
  } else {
    parsed.at = parts->at;
  }
  return parsed;
}

ListenAddress parse_listen(const std::string& text) {
  ListenAddress parsed;
  const std::optional<plc_base::SplitAddress> parts = plc_base::split_address(text);
  const bool is_right = parts && (parts->has_brackets || plc_base::is_ipv4_address(parts->at.host));
  if (!is_right) {
    parsed.problem = "is " + plc_base::quoted(text) +
                     ": give an address and a port like \"127.0.0.1:9600\" or \"[::1]:9600\"; 0.0.0.0 is every network";
  } else if (!parts->at.port) {
    parsed.problem =
        "is " + plc_base::quoted(text) + " without a port: give one from 0 to 65535, 0 for any that is free";
  } else {
    parsed.host = parts->at.host;
    parsed.port = *parts->at.port;
  }
  return parsed;
}

std::string topic_problem(const std::string& topic) {
  constexpr size_t kMostTopic = 1024;
  const size_t at = topic.find(kName);
  if (at == std::string::npos) return "has no {name}: all variables would share one topic";
  if (topic.find(kName, at + 1) != std::string::npos) return "has {name} twice: once is enough";
  if (topic.find_first_of("{}") != at || topic.find_first_of("{}", at + kName.size()) != std::string::npos ||
      topic.find_first_of("{}", at + 1) != at + kName.size() - 1) {
    return "holds braces beside {name}: nothing else is put in";
  }
  if (topic.find_first_of("+#") != std::string::npos) return "holds + or #, which are for subscribers";
  if (topic.front() == '$') return "begins with $, which is the broker's own: begin with another character";
  if (starts_with(topic, "spBv1.0/")) return "begins with spBv1.0/, where only the standard's messages are allowed";
  const std::string hidden = plc_base::first_hidden(topic);
  if (!hidden.empty()) return "holds the hidden character " + hidden + ": take it out";
  if (topic.size() > kMostTopic) return "has more than 1024 bytes: make it shorter";
  return {};
}

}  // namespace plc_gateway
