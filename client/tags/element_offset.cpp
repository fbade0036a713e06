// The driver's subscript rules as a host has to know them, and their inversion by search.
#include "client/tags/element_offset.h"

#include "client/tags/device_kinds.h"

namespace plc_client::core {
namespace {

constexpr uint32_t kOffsetsPerRequest = 0x10000;  // the offset is the low half of the request's address

int32_t as_signed(uint32_t value) { return static_cast<int32_t>(value); }
uint32_t as_unsigned(int32_t value) { return static_cast<uint32_t>(value); }

uint32_t extent(int32_t low, int32_t high) { return as_unsigned(high) + 1U - as_unsigned(low); }

// Reads, and writes of bits in one and two dimensions and in EM memory: the first subscript starts at the lower bound
// of the last range and the last one at that of the first.
std::optional<Subscripts> crosswise_unsigned(const TagEntry& entry, uint32_t element) {
  const uint32_t extent1 = extent(entry.dim1_low, entry.dim1_high);
  const uint32_t extent2 = extent(entry.dim2_low, entry.dim2_high);
  if (entry.shape == PLC_ARRAY1) return Subscripts{as_signed(element)};
  if (extent1 == 0) return std::nullopt;
  const uint32_t row = element / extent1;
  const uint32_t column = element % extent1;
  if (entry.shape == PLC_ARRAY2) {
    return Subscripts{as_signed(as_unsigned(entry.dim1_low) + row), as_signed(as_unsigned(entry.dim2_low) + column)};
  }
  if (extent2 == 0) return std::nullopt;
  return Subscripts{as_signed(as_unsigned(entry.dim1_low) + row / extent2),
                    as_signed(as_unsigned(entry.dim2_low) + row % extent2),
                    as_signed(as_unsigned(entry.dim3_low) + column)};
}

// Three-dimensional writes divide signed numbers, which differs once an extent is negative.
std::optional<Subscripts> crosswise_signed(const TagEntry& entry, uint32_t element) {
  const int64_t extent1 = as_signed(extent(entry.dim1_low, entry.dim1_high));
  const int64_t extent2 = as_signed(extent(entry.dim2_low, entry.dim2_high));
  if (extent1 == 0 || extent2 == 0) return std::nullopt;
  const int64_t row = int64_t{element} / extent1;
  const int64_t column = int64_t{element} % extent1;
  const auto add = [](int32_t low, int64_t part) {
    return as_signed(as_unsigned(low) + as_unsigned(static_cast<int32_t>(part)));
  };
  return Subscripts{add(entry.dim1_low, row / extent2), add(entry.dim2_low, row % extent2),
                    add(entry.dim3_low, column)};
}

// Two-dimensional word writes know no lower bound at all.
std::optional<Subscripts> without_lower_bounds(const TagEntry& entry, uint32_t element) {
  const uint32_t width = as_unsigned(entry.dim1_high) + 1U;
  if (width == 0) return std::nullopt;
  return Subscripts{as_signed(element / width), as_signed(element % width)};
}

std::optional<Subscripts> subscripts_written(const TagEntry& entry, uint32_t element) {
  const bool words = entry.bit_width == 16 || entry.bit_width == 32 || entry.bit_width == 64;
  if (words && entry.shape == PLC_ARRAY2) return without_lower_bounds(entry, element);
  if (entry.shape == PLC_ARRAY3 && !is_em_bit_array(entry)) return crosswise_signed(entry, element);
  return crosswise_unsigned(entry, element);
}

}  // namespace

std::optional<Subscripts> subscripts_at(const TagEntry& entry, Direction direction, uint32_t element) {
  if (declared_ranges(entry).empty()) return Subscripts{};
  return direction == Direction::kRead ? crosswise_unsigned(entry, element) : subscripts_written(entry, element);
}

std::optional<uint32_t> find_element_offset(const TagEntry& entry, Direction direction, const Subscripts& wanted,
                                            uint32_t hint) {
  const uint32_t limit = kOffsetsPerRequest / host_units_per_element(entry);
  for (uint32_t step = 0; step < limit; ++step) {
    const uint32_t element = (hint + step) % limit;
    const std::optional<Subscripts> named = subscripts_at(entry, direction, element);
    if (!named) return std::nullopt;
    if (*named == wanted) return element;
  }
  return std::nullopt;
}

uint32_t host_units_per_element(const TagEntry& entry) { return entry.bit_width == 64 ? 2 : 1; }

bool is_em_bit_array(const TagEntry& entry) {
  return entry.type_code == kTypeBool && entry.dim1_high != 0 && is_on_em(entry);
}

bool is_on_em(const TagEntry& entry) { return entry.device_kind == kEmDevice; }

std::string subscript_text(const Subscripts& subscripts) {
  if (subscripts.empty()) return {};
  std::string text = "[";
  for (size_t i = 0; i < subscripts.size(); ++i) {
    if (i > 0) text += ',';
    text += std::to_string(subscripts[i]);
  }
  return text + "]";
}

}  // namespace plc_client::core
