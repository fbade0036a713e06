// Takes controllers' addresses apart, and asks the system for those that are names.
#include "tools/plc_host/target/controller_address.h"

#include "base/text.h"
#include "tools/plc_host/exit_codes.h"

namespace plc_host {
namespace {

constexpr char kForms[] = "give one like 192.168.0.10 or plc1.local, with :8500 behind it or without";

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
  const plc_base::NumberProblem wrong = plc_base::number_problem(parts->at.host);
  if (!wrong.text.empty()) {
    throw HostError(kExitUsage, said + wrong.text + (wrong.has_remedy ? "" : std::string(": ") + kForms));
  }
  return parts->at;
}

uint32_t find_controller(const std::string& host) {
  const plc_base::FoundHost found = plc_base::find_host(host);
  if (found.problem.empty()) return found.address;
  throw HostError(kExitNoConnection, "the system knows no host called " + plc_base::quoted(host) + ": " +
                                         found.problem + ". Try: its address, like 192.168.0.10, or correct the name");
}

}  // namespace plc_host
