// Keeps what hosts ask for: which names, how often and how fast, which were refused, which never came up.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
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
  // Times asked per second between the first and the last; nothing when that cannot be said.
  std::optional<double> rate_per_second() const;
};

// A host that asks for arbitrary names must not fill the memory: further ones are counted only.
struct AskLimits {
  size_t names = 100000;
  size_t bytes = size_t{16} << 20U;  // of all names
};

class AskLog {
 public:
  // `now_ms` counts milliseconds from any start on.
  explicit AskLog(std::function<uint64_t()> now_ms, AskLimits limits = {})
      : now_ms_(std::move(now_ms)), limits_(limits) {}

  void add(const Asked& asked);
  // Names as hosts wrote them, each behind its program.
  const std::map<std::string, AskedName>& names() const { return names_; }
  // How often a name was asked for that is not among them, because there were too many.
  uint64_t left_out() const { return left_out_; }

 private:
  std::function<uint64_t()> now_ms_;
  AskLimits limits_;
  std::map<std::string, AskedName> names_;
  size_t name_bytes_ = 0;
  uint64_t left_out_ = 0;
};

}  // namespace plc_sim
