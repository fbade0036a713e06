// Keeps what hosts ask for: which names, how often and how fast, which were refused, which never came up.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "tools/plc_sim/controller/controller.h"

namespace plc_sim {

struct AskedName {
  const Variable* variable = nullptr;  // null for refused names
  bool is_outside = false;
  uint64_t resolved = 0;
  uint64_t refused = 0;
  uint64_t read = 0;
  uint64_t written = 0;
  uint64_t first_ms = 0;
  uint64_t last_ms = 0;

  uint64_t asked() const { return resolved + refused; }
  // Times asked per second between the first and the last; 0 when that cannot be said.
  double rate_per_second() const;
};

class AskLog {
 public:
  // `now_ms` counts milliseconds from any start on.
  explicit AskLog(std::function<uint64_t()> now_ms) : now_ms_(std::move(now_ms)) {}

  void add(const Asked& asked);
  // Names as hosts wrote them, each behind its program.
  const std::map<std::string, AskedName>& names() const { return names_; }

 private:
  std::function<uint64_t()> now_ms_;
  std::map<std::string, AskedName> names_;
};

}  // namespace plc_sim
