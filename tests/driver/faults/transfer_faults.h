// What each failing call costs a transfer that connects, loads its tag file and exchanges: the stated code and lines.
#pragma once

#include <string>
#include <vector>

#include "tests/driver/faults/fault_fixture.h"

namespace plc_test {

// What the contract says of one transfer with one fault.
struct Expected {
  uint32_t result;
  std::string lines;
  int left_open = 0;  // sockets that the next connect forgets
};

// Exchanges of the directory, before those of the transfer.
constexpr int kDirectoryExchanges = 2;

// The errnos that a call can give, and for some other outcomes.
std::vector<Outcome> outcomes_of(Call call);

// Kinds that cannot fail: what they give back was taken before.
bool can_fail(Call call);

// Kinds whose failure shows in what is printed alone.
bool prints(Call call);

// Of a transfer in a fresh driver. Fails the test for a call that has no expectation.
Expected expect_fresh(Transfer transfer, const Fault& fault);

// Whether this is the failure of a system that does not know the flags of a new socket: the next try goes without them.
bool is_socket_without_flags(const Fault& fault);

// "at line: 123" with an N in place of the number, which is the driver's own.
std::string without_source_lines(std::string text);

}  // namespace plc_test
