// Takes controllers' addresses apart, and asks the system for those that are names.
#include "tools/plc_host/target/controller_address.h"

#include "base/text.h"
#include "tools/plc_host/exit_codes.h"

namespace plc_host {
namespace {

constexpr char kForms[] = "give one like 192.168.0.10 or plc1.local, with :8500 behind it or without";

// The system takes shortened addresses too, "10.1" or "8500", which nobody means.
bool looks_like_number(const std::string& host) {
  const std::string last = host.substr(host.rfind('.') + 1);
  const bool is_hexadecimal = last.size() > 1 && last[0] == '0' && (last[1] == 'x' || last[1] == 'X');
  return is_hexadecimal || last.find_first_not_of("0123456789") == std::string::npos;
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

void refuse_number(const std::string& said, const std::string& host) {
  if (!plc_base::is_ipv4_address(host)) {
    const std::string meant = without_leading_zeros(host);
    const bool has_zeros = meant != host && plc_base::is_ipv4_address(meant);
    throw HostError(kExitUsage, has_zeros ? said + "write it without leading zeros: " + meant
                                          : said + "an IPv4 address has four numbers up to 255: " + kForms);
  }
  if (host == "0.0.0.0") throw HostError(kExitUsage, said + "no machine has this address: " + kForms);
}

}  // namespace

plc_base::HostPort split_controller_address(const std::string& text, const std::string& from) {
  const std::string said = from + " " + plc_base::told_name(text) + ": ";
  const auto parts = plc_base::split_address(text);
  if (plc_base::is_ipv6_address(text) || (parts && parts->has_brackets)) {
    throw HostError(kExitUsage, said + "the driver has no IPv6: " + kForms);
  }
  // Names of hosts begin with no dash: an option stands where the address belongs.
  const bool is_option = parts && parts->at.host.compare(0, 1, "-") == 0;
  if (!parts || is_option) throw HostError(kExitUsage, said + "this is not an address: " + kForms);
  if (text.find("://") != std::string::npos) {
    throw HostError(kExitUsage, said + "leave " + text.substr(0, text.find("://") + 3) + " away");
  }
  if (parts->is_bad_port || parts->at.port == 0) {
    throw HostError(kExitUsage, said + "behind the colon stands the port: give a number from 1 to 65535");
  }
  if (looks_like_number(parts->at.host)) refuse_number(said, parts->at.host);
  return parts->at;
}

uint32_t find_controller(const std::string& host) {
  const plc_base::FoundHost found = plc_base::find_host(host);
  if (found.problem.empty()) return found.address;
  throw HostError(kExitNoConnection, "the system knows no host called " + plc_base::quoted(host) + ": " +
                                         found.problem + ". Try: its address, like 192.168.0.10, or correct the name");
}

}  // namespace plc_host
