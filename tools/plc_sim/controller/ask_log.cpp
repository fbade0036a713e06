// Keeps what hosts ask for.
#include "tools/plc_sim/controller/ask_log.h"

namespace plc_sim {
namespace {

// A host that asks for arbitrary names must not fill the memory.
constexpr size_t kMaxNames = 200000;

}  // namespace

double AskedName::rate_per_second() const {
  constexpr double kMsPerSecond = 1000;
  return asked() < 2 || last_ms == first_ms
             ? 0
             : static_cast<double>(asked() - 1) * kMsPerSecond / static_cast<double>(last_ms - first_ms);
}

void AskLog::add(const Asked& asked) {
  if (names_.size() >= kMaxNames && names_.count(asked.name) == 0) return;
  AskedName& name = names_[asked.name];
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
