// Takes addresses apart, and asks the system for hosts by name.
#include "base/network_address.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>

namespace plc_base {
namespace {

constexpr size_t kMostHost = 253;  // of a name of a host

std::optional<uint16_t> port_of(std::string_view digits) {
  uint16_t port = 0;
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  const bool is_whole = !digits.empty() && end.ec == std::errc() && end.ptr == digits.data() + digits.size();
  return is_whole ? std::optional<uint16_t>(port) : std::nullopt;
}

// The system's functions read up to a zero byte, whatever stands behind it.
bool holds_zero(const std::string& host) { return host.find('\0') != std::string::npos; }

bool is_address(int family, const std::string& host) {
  in6_addr parsed{};
  return !holds_zero(host) && inet_pton(family, host.c_str(), &parsed) == 1;
}

bool is_host_name(std::string_view host) {
  const auto fits = [](char sign) {
    const bool is_letter = (sign >= 'a' && sign <= 'z') || (sign >= 'A' && sign <= 'Z');
    return is_letter || (sign >= '0' && sign <= '9') || sign == '-' || sign == '.' || sign == '_';
  };
  return !host.empty() && host.size() <= kMostHost && std::all_of(host.begin(), host.end(), fits);
}

// No name of a host ends in a label that is a number.
bool looks_like_number(const std::string& host) {
  const std::string last = host.substr(host.rfind('.') + 1);
  const bool is_hexadecimal = last.size() > 1 && last[0] == '0' && (last[1] == 'x' || last[1] == 'X');
  return is_hexadecimal || (!last.empty() && last.find_first_not_of("0123456789") == std::string::npos);
}

// The address without the zeros that spreadsheets and forms put before its numbers; the C library would not take them,
// others take them for octal.
std::string without_leading_zeros(const std::string& host) {
  std::string text;
  for (size_t i = 0; i < host.size(); ++i) {
    const bool begins_number = i == 0 || host[i - 1] == '.';
    if (!begins_number) {
      text += host[i];
      continue;
    }
    while (host[i] == '0' && i + 1 < host.size() && host[i + 1] != '.') ++i;
    text += host[i];
  }
  return text;
}

}  // namespace

std::optional<SplitAddress> split_address(std::string_view text) {
  SplitAddress parts;
  std::string_view rest;
  if (text.substr(0, 1) == "[") {
    const size_t end = text.find(']');
    if (end == std::string_view::npos) return std::nullopt;
    parts.has_brackets = true;
    parts.at.host = text.substr(1, end - 1);
    rest = text.substr(end + 1);
    if (!is_ipv6_address(parts.at.host) || (!rest.empty() && rest.front() != ':')) return std::nullopt;
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

bool is_ipv4_address(const std::string& host) { return is_address(AF_INET, host); }

bool is_ipv6_address(const std::string& host) { return is_address(AF_INET6, host); }

NumberProblem number_problem(const std::string& host) {
  if (!looks_like_number(host)) return {};
  if (host == "0.0.0.0") return {"no machine has this address", false};
  if (is_ipv4_address(host)) return {};
  const std::string meant = without_leading_zeros(host);
  if (meant != host && is_ipv4_address(meant)) return {"write it without leading zeros: " + meant, true};
  return {"an IPv4 address has four numbers up to 255", false};
}

FoundHost find_host(const std::string& host) {
  if (holds_zero(host)) return {0, gai_strerror(EAI_NONAME)};
  in_addr parsed{};
  if (inet_pton(AF_INET, host.c_str(), &parsed) == 1) return {ntohl(parsed.s_addr), {}};
  if (std::string wrong = number_problem(host).text; !wrong.empty()) return {0, std::move(wrong)};
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int problem = getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (problem != 0) return {0, problem == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(problem)};
  sockaddr_in first{};
  std::memcpy(&first, found->ai_addr, sizeof first);
  freeaddrinfo(found);
  return {ntohl(first.sin_addr.s_addr), {}};
}

}  // namespace plc_base
