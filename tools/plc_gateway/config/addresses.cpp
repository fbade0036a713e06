// Takes urls, addresses and topics of a configuration apart.
#include "tools/plc_gateway/config/addresses.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <string_view>

#include "base/text.h"

namespace plc_gateway {
namespace {

constexpr std::string_view kPlainScheme = "mqtt://";
constexpr std::string_view kTlsScheme = "mqtts://";
constexpr std::string_view kName = "{name}";
constexpr size_t kMostHost = 253;  // of a name of a host

bool starts_with(std::string_view text, std::string_view start) { return text.substr(0, start.size()) == start; }

std::optional<uint16_t> port_of(std::string_view digits) {
  uint16_t port = 0;
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  const bool is_whole = !digits.empty() && end.ec == std::errc() && end.ptr == digits.data() + digits.size();
  return is_whole ? std::optional<uint16_t>(port) : std::nullopt;
}

bool is_address(int family, const std::string& host) {
  in6_addr parsed{};
  return inet_pton(family, host.c_str(), &parsed) == 1;
}

bool is_host_name(std::string_view host) {
  const auto fits = [](char sign) {
    const bool is_letter = (sign >= 'a' && sign <= 'z') || (sign >= 'A' && sign <= 'Z');
    return is_letter || (sign >= '0' && sign <= '9') || sign == '-' || sign == '.' || sign == '_';
  };
  return !host.empty() && host.size() <= kMostHost && std::all_of(host.begin(), host.end(), fits);
}

struct Split {
  HostPort at;
  bool has_brackets = false;
  bool is_bad_port = false;
};

// HOST, HOST:PORT, [IPv6] or [IPv6]:PORT; nothing for anything else.
std::optional<Split> split(std::string_view text) {
  Split parts;
  std::string_view rest;
  if (starts_with(text, "[")) {
    const size_t end = text.find(']');
    if (end == std::string_view::npos) return std::nullopt;
    parts.has_brackets = true;
    parts.at.host = text.substr(1, end - 1);
    rest = text.substr(end + 1);
    if (!is_address(AF_INET6, parts.at.host) || (!rest.empty() && rest.front() != ':')) return std::nullopt;
  } else {
    const size_t colon = std::min(text.find(':'), text.size());
    parts.at.host = text.substr(0, colon);
    rest = text.substr(colon);
    if (!is_host_name(parts.at.host)) return std::nullopt;
  }
  if (rest.empty()) return parts;
  parts.at.port = port_of(rest.substr(1));
  parts.is_bad_port = !parts.at.port.has_value();
  return parts;
}

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
  const std::optional<Split> parts = split(rest);
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
  const std::optional<Split> parts = split(text);
  const bool is_right = parts && (parts->has_brackets || is_address(AF_INET, parts->at.host));
  if (!is_right) {
    parsed.problem = "is " + plc_base::quoted(text) +
                     ": give an address and a port like 127.0.0.1:9600 or [::1]:9600; 0.0.0.0 is every network";
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
  if (topic.size() > kMostTopic) return "has more than 1024 bytes: make it shorter";
  return {};
}

}  // namespace plc_gateway
