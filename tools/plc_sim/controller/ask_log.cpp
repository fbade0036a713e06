// Keeps what hosts ask for.
#include "tools/plc_sim/controller/ask_log.h"

namespace plc_sim {
std::optional<double> AskedName::rate_per_second() const {
  constexpr double kMsPerSecond = 1000;
  if (asked() < 2 || last_ms == first_ms) return std::nullopt;
  return static_cast<double>(asked() - 1) * kMsPerSecond / static_cast<double>(last_ms - first_ms);
}

void AskLog::add(const Asked& asked) {
  auto known = names_.find(asked.name);
  if (known == names_.end()) {
    if (names_.size() >= limits_.names || name_bytes_ + asked.name.size() > limits_.bytes) {
      ++left_out_;
      return;
    }
    name_bytes_ += asked.name.size();
    known = names_.emplace(asked.name, AskedName()).first;
  }
  AskedName& name = known->second;
  const bool is_resolve = asked.what == Asked::What::kResolved || asked.what == Asked::What::kRefused;
  if (is_resolve) {
    const uint64_t now = now_ms_();
    name.first_ms = name.asked() == 0 ? now : name.first_ms;
    name.last_ms = now;
  }
  if (asked.element != nullptr) {
    name.variable = asked.element->variable;
    name.is_outside = !asked.element->index.has_value();
  }
  switch (asked.what) {
    case Asked::What::kResolved:
      ++name.resolved;
      break;
    case Asked::What::kRefused:
      ++name.refused;
      break;
    case Asked::What::kRead:
      ++name.read;
      break;
    case Asked::What::kWritten:
      ++name.written;
      break;
  }
}

}  // namespace plc_sim
