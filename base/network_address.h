// Addresses and ports as people write them, and the hosts that they name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace plc_base {

struct HostPort {
  std::string host;  // without the brackets of an IPv6 address
  std::optional<uint16_t> port;
};

struct SplitAddress {
  HostPort at;
  bool has_brackets = false;
  bool is_bad_port = false;  // what stands behind the colon is no number up to 65535
};

// HOST, HOST:PORT, [IPv6] or [IPv6]:PORT; nothing for anything else.
std::optional<SplitAddress> split_address(std::string_view text);

bool is_ipv4_address(const std::string& host);
bool is_ipv6_address(const std::string& host);

struct NumberProblem {
  std::string text;         // "an IPv4 address has four numbers up to 255"; empty when nothing is wrong
  bool has_remedy = false;  // the text has what to write
};

// What is wrong with a machine's address in numbers. The system takes shortened ones too, "10.1" or "8500", which
// nobody means. Nothing for names.
NumberProblem number_problem(const std::string& host);

struct FoundHost {
  uint32_t address = 0;
  std::string problem;  // the system's words; empty when there is an address
};

// The number of an IPv4 address, or of the host that the system knows by this name. None for a shortened address.
FoundHost find_host(const std::string& host);

}  // namespace plc_base
