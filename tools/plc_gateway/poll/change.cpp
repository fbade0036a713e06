// Deadbands of integers, exact to 64 bits, and of reals.
#include "tools/plc_gateway/poll/change.h"

#include <cmath>

#include "tools/plc_gateway/model/data_types.h"

namespace plc_gateway {
namespace {

constexpr unsigned kBitsPerByte = 8;

bool is_number(const TypeFacts& facts) {
  return facts.kind == ElementKind::kSigned || facts.kind == ElementKind::kUnsigned || facts.kind == ElementKind::kReal;
}

bool beyond(const TypeFacts& facts, uint64_t a, uint64_t b, double deadband) {
  if (a == b) return false;
  if (facts.kind == ElementKind::kReal) {
    const double difference = std::fabs(real_of_bits(a, facts.bits) - real_of_bits(b, facts.bits));
    return deadband <= 0 || !(difference <= deadband);
  }
  uint64_t difference = 0;
  if (facts.kind == ElementKind::kSigned) {
    const int64_t x = sign_extended(a, facts.bits);
    const int64_t y = sign_extended(b, facts.bits);
    difference = x > y ? static_cast<uint64_t>(x) - static_cast<uint64_t>(y)
                       : static_cast<uint64_t>(y) - static_cast<uint64_t>(x);
  } else {
    difference = a > b ? a - b : b - a;
  }
  constexpr double kAboveAll = 18446744073709551616.0;  // 2^64
  return deadband < kAboveAll && difference > static_cast<uint64_t>(std::floor(deadband));
}

uint64_t element_at(const std::string& bytes, size_t index, unsigned width) {
  uint64_t bits = 0;
  for (unsigned i = 0; i < width; ++i) {
    bits |= static_cast<uint64_t>(static_cast<unsigned char>(bytes[index * width + i])) << (8 * i);
  }
  return bits;
}

}  // namespace

bool has_changed(const Variable& variable, const Sample& published, const Sample& now) {
  if (same_value(published, now)) return false;
  if (published.good != now.good) return true;
  const TypeFacts& facts = facts_of(variable.type);
  if (!is_number(facts) || variable.deadband <= 0) return true;
  if (variable.shape.empty()) return beyond(facts, published.bits, now.bits, variable.deadband);
  if (published.bytes.size() != now.bytes.size()) return true;
  const unsigned width = facts.bits / kBitsPerByte;
  for (size_t i = 0; i < now.bytes.size() / width; ++i) {
    const uint64_t before = element_at(published.bytes, i, width);
    if (beyond(facts, before, element_at(now.bytes, i, width), variable.deadband)) return true;
  }
  return false;
}

}  // namespace plc_gateway
