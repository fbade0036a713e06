// Values that move: most by a little, some by leaps to the ends of their types, reals to what is no number.
#include "tests/tools/plc_gateway/simulation/world/plant.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "tests/tools/plc_gateway/simulation/world/wire.h"

namespace plc_gateway::simulation {
namespace {

uint64_t cut(uint64_t bits, unsigned width) { return width >= 8 ? bits : bits & ((uint64_t{1} << (8 * width)) - 1); }

template <typename Real, typename Bits>
uint64_t moved_real(uint64_t bits, Random& random) {
  Real value = 0;
  auto word = static_cast<Bits>(bits);
  std::memcpy(&value, &word, sizeof value);
  if (!(value > static_cast<Real>(-1e6) && value < static_cast<Real>(1e6)) || random.percent(10)) {
    value = static_cast<Real>(random.between(-1000, 1000)) / 4;
  } else if (random.percent(3)) {
    value = random.percent(50) ? std::numeric_limits<Real>::quiet_NaN() : std::numeric_limits<Real>::infinity();
  } else {
    value += static_cast<Real>(random.between(-6, 6)) / 4;
  }
  std::memcpy(&word, &value, sizeof word);
  return word;
}

uint64_t moved_number(DataType type, uint64_t bits, Random& random) {
  const DataType scalar = is_array(type) ? static_cast<DataType>(static_cast<int>(type) - 21) : type;
  if (scalar == DataType::kFloat) return moved_real<float, uint32_t>(bits, random);
  if (scalar == DataType::kDouble) return moved_real<double, uint64_t>(bits, random);
  const unsigned width = width_of(type);
  if (random.percent(5)) return cut(random.next(), width);
  if (random.percent(2)) return cut(random.percent(50) ? ~uint64_t{0} : uint64_t{1} << (8 * width - 1), width);
  return cut(bits + static_cast<uint64_t>(random.between(-3, 3)), width);
}

std::string random_text(Random& random, size_t most) {
  constexpr const char* kPieces[] = {"a", "Z", "7", " ", "\"", "\\", "\xC3\xA4", "\xE2\x82\xAC", "\n"};
  std::string text;
  for (uint64_t left = random.below(most); left > 0 && text.size() + 3 < most; --left) {
    text += kPieces[random.below(std::size(kPieces))];
  }
  return text;
}

std::string packed_bools(size_t count, Random& random) {
  std::string bytes;
  for (unsigned i = 0; i < 4; ++i) bytes += static_cast<char>(count >> (8 * i));
  for (size_t i = 0; i < count; i += 8) {
    const size_t in_use = std::min<size_t>(8, count - i);
    bytes += static_cast<char>(random.below(256) & (0xFFU << (8 - in_use)));
  }
  return bytes;
}

size_t length_of(const std::vector<size_t>& shape) {
  size_t length = 1;
  for (const size_t part : shape) length *= part;
  return length;
}

}  // namespace

Pace::Pace(Random& random) {
  constexpr Ms kHour = 3600000;
  has_big_texts = random.percent(10);
  if (random.percent(15)) {
    // Where much is written in little time, windows and journals fill up.
    has_big_texts = random.percent(50);
    shortest_period = 50;
    longest_period = 3000;
    length = random.spread(30000, 600000);
    calm_least = 20;
    calm_most = random.spread(500, 60000);
    trouble_most = 20000;
    return;
  }
  length = random.between(kHour / 2, 10 * kHour);
  calm_most = random.spread(60000, kHour);
  trouble_most = random.spread(10000, kHour);
}

Plant::Plant(Random& random, const Pace& pace) : pace_(pace) {
  add("Count", DataType::kInt16, {}, random);
  add("Motor.Speed", DataType::kInt32, {}, random);
  add("Motor.Speed", DataType::kDouble, {}, random);
  add("Motor.On", DataType::kBoolean, {}, random);
  add("Small", DataType::kInt8, {}, random);
  add("Level", DataType::kFloat, {}, random);
  add("Level", DataType::kUInt16, {}, random);
  add("Main/Step", DataType::kUInt32, {}, random);
  add("Total", DataType::kUInt64, {}, random);
  add("Balance", DataType::kInt64, {}, random);
  add("Precise", DataType::kDouble, {}, random);
  add("Recipe.Name", DataType::kString, {}, random);
  add("Notes", DataType::kString, {}, random);
  add("Table[0..9]", DataType::kInt16Array, {10}, random);
  add("Grid[0..1,0..2]", DataType::kFloatArray, {2, 3}, random);
  add("Flags[0..10]", DataType::kBooleanArray, {11}, random);
  add("Names[0..2]", DataType::kStringArray, {3}, random);
  add("Day", DataType::kBytes, {}, random);
  if (!pace.has_big_texts) return;
  for (Held& held : all_) {
    if (held.type != DataType::kString && held.type != DataType::kStringArray) continue;
    held.text_bytes = 8000;
    held.moves_percent = 80;
  }
}

void Plant::add(const char* name, DataType type, std::vector<size_t> shape, Random& random) {
  Held held;
  held.name = name;
  held.type = type;
  held.shape = std::move(shape);
  held.moves_percent = static_cast<unsigned>(random.percent(30) ? random.between(20, 100) : random.between(1, 15));
  if (width_of(type) != 0 && is_array(type)) held.bytes.assign(length_of(held.shape) * width_of(type), '\0');
  if (type == DataType::kBooleanArray) held.bytes = packed_bools(length_of(held.shape), random);
  if (type == DataType::kStringArray) held.bytes.assign(length_of(held.shape), '\0');
  if (type == DataType::kBytes) held.bytes = "17 bytes of dates";
  all_.push_back(std::move(held));
}

void Plant::move(Held& held, Random& random) {
  const unsigned width = width_of(held.type);
  if (width != 0 && is_array(held.type)) {
    const size_t at = random.below(held.bytes.size() / width) * width;
    uint64_t bits = 0;
    for (unsigned i = 0; i < width; ++i) bits |= uint64_t{static_cast<uint8_t>(held.bytes[at + i])} << (8 * i);
    bits = moved_number(held.type, bits, random);
    for (unsigned i = 0; i < width; ++i) held.bytes[at + i] = static_cast<char>(bits >> (8 * i));
  } else if (width != 0) {
    held.bits = moved_number(held.type, held.bits, random);
  } else if (held.type == DataType::kBoolean) {
    held.bits = 1 - held.bits;
  } else if (held.type == DataType::kString) {
    held.bytes = random_text(random, held.text_bytes);
  } else if (held.type == DataType::kBooleanArray) {
    held.bytes = packed_bools(length_of(held.shape), random);
  } else if (held.type == DataType::kStringArray) {
    held.bytes.clear();
    for (size_t i = 0; i < length_of(held.shape); ++i) held.bytes += random_text(random, held.text_bytes) + '\0';
  } else {
    held.bytes[random.below(held.bytes.size())] = static_cast<char>(random.below(256));
  }
}

const Held& Plant::look(size_t held, Random& random) {
  Held& found = all_[held];
  if (!frozen_ && random.percent(found.moves_percent)) move(found, random);
  return found;
}

void Plant::write(const std::string& name, const plc_client::Input& value) {
  for (Held& held : all_) {
    if (held.name != name) continue;
    switch (held.type) {
      case DataType::kString:
        held.bytes = value.text();
        break;
      case DataType::kDouble:
        std::memcpy(&held.bits, std::array<double, 1>{value.real()}.data(), sizeof held.bits);
        break;
      default:
        held.bits = cut(value.bits(), std::max(width_of(held.type), 1U));
    }
  }
}

Configuration Plant::configuration(Random& random) const {
  Configuration made;
  for (size_t i = 1 + random.below(3); i > 0; --i) {
    made.periods.push_back(random.spread(pace_.shortest_period, pace_.longest_period));
  }
  std::vector<std::vector<uint32_t>> groups(made.periods.size());
  const uint64_t share = static_cast<uint64_t>(random.between(20, 95));
  for (size_t i = 0; i < all_.size(); ++i) {
    const Held& held = all_[i];
    const bool named_before = !made.variables.empty() && made.variables.back().name == held.name;
    if (named_before || !(random.percent(share) || (i + 1 == all_.size() && made.variables.empty()))) continue;
    Variable variable;
    variable.name = held.name;
    variable.type = held.type;
    variable.shape = held.shape;
    variable.group = random.below(groups.size());
    if (random.percent(30)) variable.deadband = static_cast<double>(random.between(1, 8)) / 2;
    groups[variable.group].push_back(static_cast<uint32_t>(made.variables.size()));
    made.variables.push_back(variable);
    made.held.push_back(i);
  }
  for (size_t group = 0; group < groups.size(); ++group) {
    const std::vector<uint32_t>& members = groups[group];
    const size_t most = 1 + random.below(6);
    for (size_t first = 0; first < members.size(); first += most) {
      const size_t end = std::min(first + most, members.size());
      made.pieces.push_back(
          {group, {members.begin() + static_cast<ptrdiff_t>(first), members.begin() + static_cast<ptrdiff_t>(end)}});
    }
  }
  for (size_t i = 0; i < made.variables.size(); ++i) {
    const Variable& variable = made.variables[i];
    const bool is_writable = variable.type == DataType::kInt16 || variable.type == DataType::kInt32 ||
                             variable.type == DataType::kDouble || variable.type == DataType::kBoolean ||
                             variable.type == DataType::kString;
    if (!is_writable || random.percent(40)) continue;
    CommandRule rule;
    rule.name = variable.name;
    rule.type = variable.type;
    rule.declared_type = variable.type == DataType::kString ? "STRING(20)" : "INT";
    rule.every_ms = random.percent(50) ? 0 : random.between(10, 2000);
    rule.max_age_ms = random.between(500, 10000);
    if (width_of(rule.type) != 0 && random.percent(60)) {
      rule.min = static_cast<double>(random.between(-100, 0));
      rule.max = static_cast<double>(random.between(1, 3000));
    }
    made.rules.push_back(rule);
  }
  return made;
}

}  // namespace plc_gateway::simulation
