// Names of variables, and the road to a BOOL.
#include "tools/plc_sim/variables/variable.h"

#include "wire/names.h"

namespace plc_sim {
namespace {

constexpr uint8_t kDm = 6;
constexpr uint8_t kMr = 17;
constexpr uint8_t kLr = 18;
constexpr uint8_t kEm = 23;

bool on_em_with_bounds(const TagDeclaration& tag) {
  return tag.device == kEm && !tag.ranges.empty() && tag.ranges.back().high != 0;
}

bool single_read_takes_word(const TagDeclaration& tag) {
  const bool device_with_words = tag.device == kDm || tag.device == kEm || tag.device == kNoDevice;
  return (tag.name_kind != 1 && device_with_words) || on_em_with_bounds(tag);
}

bool batch_read_takes_word(const TagDeclaration& tag) { return tag.name_kind != 1; }

bool write_takes_word(const TagDeclaration& tag) {
  if (on_em_with_bounds(tag)) return true;
  if (tag.name_kind == 1 || tag.ranges.size() == 3) return false;
  if (!tag.ranges.empty() || !tag.is_global) return true;
  return tag.device != kMr && (tag.device != kLr || tag.name_kind == 3);
}

}  // namespace

BitRoad bit_road_for(const TagDeclaration& tag) {
  const int words =
      (single_read_takes_word(tag) ? 1 : 0) + (batch_read_takes_word(tag) ? 1 : 0) + (write_takes_word(tag) ? 1 : 0);
  return words == 0 ? BitRoad::kBit : words == 3 ? BitRoad::kWord : BitRoad::kBoth;
}

std::string Variable::wire_name_of(uint32_t element) const {
  std::vector<int64_t> subscripts(tag.ranges.size());
  for (size_t i = tag.ranges.size(); i-- > 0;) {
    const auto extent = static_cast<uint32_t>(tag.ranges[i].extent());
    subscripts[i] = tag.ranges[i].low + static_cast<int64_t>(element % extent);
    element /= extent;
  }
  return tag.name + subscript_text(subscripts);
}

std::string Variable::qualified_name() const {
  std::string name = strip_subscript_marks(tag.name);
  if (tag.is_global) return name;
  return owner() + "/" + name;
}

std::string Variable::owner() const {
  return tag.program.empty() ? "#" + std::to_string(tag.program_number) : tag.program;
}

}  // namespace plc_sim
