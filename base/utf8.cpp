// The strict decoder of UTF-8.
#include "base/utf8.h"

#include <cstdint>

namespace plc_base {
namespace {

// Bytes of the sequence that a byte begins; 0 when none begins with it.
size_t announced_bytes(uint8_t lead) {
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  return lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

bool is_well_formed(char32_t value, size_t bytes) {
  static constexpr char32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  return value >= kSmallest[bytes] && value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
}

}  // namespace

std::optional<CodePoint> first_code_point(std::string_view text) {
  if (text.empty()) return std::nullopt;
  const auto lead = static_cast<uint8_t>(text.front());
  const size_t bytes = announced_bytes(lead);
  if (bytes == 0 || text.size() < bytes) return std::nullopt;
  char32_t value = bytes == 1 ? lead : lead & (0x7FU >> bytes);
  for (size_t i = 1; i < bytes; ++i) {
    const auto next = static_cast<uint8_t>(text[i]);
    if ((next & 0xC0U) != 0x80U) return std::nullopt;
    value = (value << 6U) | (next & 0x3FU);
  }
  if (!is_well_formed(value, bytes)) return std::nullopt;
  return CodePoint{value, bytes};
}

bool is_utf8(std::string_view text) {
  while (!text.empty()) {
    const auto first = first_code_point(text);
    if (!first) return false;
    text.remove_prefix(first->bytes);
  }
  return true;
}

}  // namespace plc_base
