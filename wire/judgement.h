// What is wrong with an exchange, and what to try, in words for the person before the machine.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "wire/exchange.h"

namespace wire_trace {

struct Remark {
  std::string what;
  std::string advice;
  bool is_fault = true;  // false: odd, but not why a value is missing
};

// Who read what came; of captures nobody knows it.
struct Reader {
  bool is_guarded = false;
  bool has_refused_rest = false;  // it ended the last exchange over bytes behind the reply
};

// What is wrong with the reply to exchanges[index]; the others say whose reply it may be. Number is how the exchange is
// called in the words.
std::vector<Remark> judge_exchange(const std::vector<Exchange>& exchanges, size_t index, size_t number,
                                   const std::optional<Reader>& reader = std::nullopt);

// The names of a resolve request, in their order over all blocks.
struct SentName {
  std::string name;  // with the '#' before each subscript
  bool is_local = false;
  uint8_t program = 0;
};

std::vector<SentName> names_of(const plc_sim::Request& request);

// Positions of the names that the reply gives no handle for.
std::vector<size_t> refused_names(const Exchange& exchange);

}  // namespace wire_trace
