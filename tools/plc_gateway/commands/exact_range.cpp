// Compares integers with limits without making doubles of them: beyond 2^53 a double is a neighbour of what it stands
// for.
#include "tools/plc_gateway/commands/exact_range.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace plc_gateway {
namespace {

constexpr double kBeyondSigned = 9223372036854775808.0;     // 2^63, the first that is too much
constexpr double kBeyondUnsigned = 18446744073709551616.0;  // 2^64
constexpr unsigned kRealBits = 32;

// -1, 0 or 1: how the number stands to the limit, which is a number.
int compared(int64_t number, double limit) {
  if (limit >= kBeyondSigned) return -1;
  if (limit < -kBeyondSigned) return 1;
  const double whole = std::floor(limit);
  const auto below = static_cast<int64_t>(whole);
  if (number != below) return number < below ? -1 : 1;
  return whole < limit ? -1 : 0;
}

int compared(uint64_t number, double limit) {
  if (limit >= kBeyondUnsigned) return -1;
  if (limit < 0) return 1;
  const double whole = std::floor(limit);
  const auto below = static_cast<uint64_t>(whole);
  if (number != below) return number < below ? -1 : 1;
  return whole < limit ? -1 : 0;
}

int compared(double number, double limit) { return number < limit ? -1 : number > limit ? 1 : 0; }

double as_the_variable_holds(double limit, unsigned width) {
  if (width != kRealBits || std::fabs(limit) > static_cast<double>(std::numeric_limits<float>::max())) return limit;
  return static_cast<double>(static_cast<float>(limit));
}

int compared(const TypeFacts& facts, uint64_t bits, double limit) {
  switch (facts.kind) {
    case ElementKind::kSigned:
      return compared(sign_extended(bits, facts.bits), limit);
    case ElementKind::kReal:
      return compared(real_of_bits(bits, facts.bits), as_the_variable_holds(limit, facts.bits));
    default:
      return compared(bits, limit);
  }
}

}  // namespace

bool is_at_least(const TypeFacts& facts, uint64_t bits, double limit) {
  return !std::isnan(limit) && compared(facts, bits, limit) >= 0;
}

bool is_at_most(const TypeFacts& facts, uint64_t bits, double limit) {
  return !std::isnan(limit) && compared(facts, bits, limit) <= 0;
}

size_t text_bytes(const std::string& declared_type) {
  const size_t open = declared_type.find('(');
  if (open == std::string::npos) return 0;
  const char* const end = declared_type.data() + declared_type.size();
  size_t bytes = 0;
  const auto read = std::from_chars(declared_type.data() + open + 1, end, bytes);
  return read.ec == std::errc() && read.ptr != end && *read.ptr == ')' ? bytes : 0;
}

}  // namespace plc_gateway
