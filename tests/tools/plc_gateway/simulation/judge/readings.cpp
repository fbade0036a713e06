// Readings, and whether the journal has what it must have of them.
#include "tests/tools/plc_gateway/simulation/judge/readings.h"

#include <cmath>
#include <cstring>

#include "tests/tools/plc_gateway/simulation/world/wire.h"

namespace plc_gateway::simulation {
namespace {

bool elements_differ(DataType type, uint64_t a, uint64_t b, double deadband) {
  if (a == b) return false;
  const unsigned width = width_of(type);
  const int code = static_cast<int>(type) >= 22 ? static_cast<int>(type) - 21 : static_cast<int>(type);
  if (code == 9) {
    float x = 0;
    float y = 0;
    std::memcpy(&x, &a, sizeof x);
    std::memcpy(&y, &b, sizeof y);
    return !(std::abs(static_cast<double>(x) - static_cast<double>(y)) <= deadband);
  }
  if (code == 10) {
    double x = 0;
    double y = 0;
    std::memcpy(&x, &a, sizeof x);
    std::memcpy(&y, &b, sizeof y);
    return !(std::abs(x - y) <= deadband);
  }
  if (code <= 4) {  // signed ones: moved so that their order is that of unsigned ones
    const uint64_t sign = uint64_t{1} << (8 * width - 1);
    a ^= sign;
    b ^= sign;
  }
  return static_cast<long double>(a > b ? a - b : b - a) > static_cast<long double>(deadband);
}

}  // namespace

bool must_be_told(const Variable& variable, const Sample& before, const Sample& now) {
  if (before.good != now.good) return true;
  if (!now.good || (before.bits == now.bits && before.bytes == now.bytes)) return false;
  const unsigned width = width_of(variable.type);
  if (variable.deadband <= 0 || width == 0) return true;
  if (!is_array(variable.type)) return elements_differ(variable.type, before.bits, now.bits, variable.deadband);
  for (size_t at = 0; at + width <= now.bytes.size(); at += width) {
    uint64_t a = 0;
    uint64_t b = 0;
    std::memcpy(&a, before.bytes.data() + at, width);
    std::memcpy(&b, now.bytes.data() + at, width);
    if (elements_differ(variable.type, a, b, variable.deadband)) return true;
  }
  return false;
}

Readings::Readings(const Configuration& configuration)
    : configuration_(configuration), known_(configuration.variables.size()) {}

void Readings::delivered(const ReadResult& result, unsigned jumps_back) {
  if (result.link_lost) return;
  for (const Sample& sample : result.samples) {
    Known& known = known_[sample.variable];
    const Variable& variable = configuration_.variables[sample.variable];
    if (known.is_owed) throw Violation(variable.name + " was read again before its last change was in the journal");
    known.last = sample;
    known.jumps_back = jumps_back;
    if (!alive_ || !must_be_told(variable, known.told, sample)) continue;
    known.is_owed = true;
    ++owed_;
  }
}

void Readings::journaled(const JournalRow& row) {
  if (row.kind == JournalRow::Kind::kLost) {
    if (!alive_) throw Violation("the loss of a controller that was not there is in the journal");
    if (owed_ != 0) throw Violation("the loss of the controller is in the journal before changes that were read");
    alive_ = false;
    return;
  }
  if (!alive_ && row.changes.size() != known_.size()) {
    throw Violation("the first row behind the controller's return holds " + std::to_string(row.changes.size()) +
                    " of " + std::to_string(known_.size()) + " variables");
  }
  for (const Sample& sample : row.changes) {
    if (sample.variable >= known_.size()) throw Violation("a row holds a variable that is not polled");
    Known& known = known_[sample.variable];
    const std::string& name = configuration_.variables[sample.variable].name;
    if (!same_value(sample, known.last) || sample.time != known.last.time) {
      throw Violation("the journal has a sample of " + name + " that was not read");
    }
    if (alive_ && !known.is_owed) throw Violation("the journal has a change of " + name + ", which did not change");
    if (known.is_owed) --owed_;
    known.is_owed = false;
    known.told = sample;
  }
  alive_ = true;
}

void Readings::born() {
  for (Known& known : known_) known.told = known.last;
}

void Readings::check_after(const ReadResult& result) const {
  if (result.link_lost) {
    if (alive_) throw Violation("the controller was lost, and the journal does not have it");
    return;
  }
  const std::vector<Piece>& pieces = configuration_.pieces;
  const size_t group = pieces[result.piece].group;
  const bool is_last = result.piece + 1 == pieces.size() || pieces[result.piece + 1].group != group;
  if (!is_last || !alive_) return;
  for (size_t i = 0; i < known_.size(); ++i) {
    const Variable& variable = configuration_.variables[i];
    if (variable.group != group || !known_[i].is_owed) continue;
    throw Violation(variable.name + " changed, its poll has ended, and the journal does not have it");
  }
}

}  // namespace plc_gateway::simulation
