// Deadbands of integers, exact to 64 bits, and of reals.
#include "tools/plc_gateway/poll/change.h"

#include <cmath>
#include <cstring>

namespace plc_gateway {
namespace {

enum class Number : uint8_t { kNone, kSigned, kUnsigned, kReal };

struct Element {
  Number number = Number::kNone;
  unsigned bytes = 0;
};

Element element_of(DataType type) {
  switch (type) {
    case DataType::kInt8:
    case DataType::kInt8Array:
      return {Number::kSigned, 1};
    case DataType::kInt16:
    case DataType::kInt16Array:
      return {Number::kSigned, 2};
    case DataType::kInt32:
    case DataType::kInt32Array:
      return {Number::kSigned, 4};
    case DataType::kInt64:
    case DataType::kInt64Array:
      return {Number::kSigned, 8};
    case DataType::kUInt8:
    case DataType::kUInt8Array:
      return {Number::kUnsigned, 1};
    case DataType::kUInt16:
    case DataType::kUInt16Array:
      return {Number::kUnsigned, 2};
    case DataType::kUInt32:
    case DataType::kUInt32Array:
      return {Number::kUnsigned, 4};
    case DataType::kUInt64:
    case DataType::kUInt64Array:
      return {Number::kUnsigned, 8};
    case DataType::kFloat:
    case DataType::kFloatArray:
      return {Number::kReal, 4};
    case DataType::kDouble:
    case DataType::kDoubleArray:
      return {Number::kReal, 8};
    default:
      return {};
  }
}

double real_of(uint64_t bits, unsigned bytes) {
  if (bytes == 4) {
    const auto word = static_cast<uint32_t>(bits);
    float value = 0;
    std::memcpy(&value, &word, sizeof value);
    return static_cast<double>(value);
  }
  double value = 0;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// Sign bits above the element's width.
uint64_t extended(uint64_t bits, unsigned bytes) {
  const unsigned unused = 64 - 8 * bytes;
  return static_cast<uint64_t>(static_cast<int64_t>(bits << unused) >> unused);
}

bool beyond(Element element, uint64_t a, uint64_t b, double deadband) {
  if (a == b) return false;
  if (element.number == Number::kReal) {
    const double difference = std::fabs(real_of(a, element.bytes) - real_of(b, element.bytes));
    return deadband <= 0 || !(difference <= deadband);
  }
  uint64_t difference = 0;
  if (element.number == Number::kSigned) {
    const auto x = static_cast<int64_t>(extended(a, element.bytes));
    const auto y = static_cast<int64_t>(extended(b, element.bytes));
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
  const Element element = element_of(variable.type);
  if (element.number == Number::kNone || variable.deadband <= 0) return true;
  if (variable.shape.empty()) return beyond(element, published.bits, now.bits, variable.deadband);
  if (published.bytes.size() != now.bytes.size()) return true;
  for (size_t i = 0; i < now.bytes.size() / element.bytes; ++i) {
    const uint64_t before = element_at(published.bytes, i, element.bytes);
    if (beyond(element, before, element_at(now.bytes, i, element.bytes), variable.deadband)) return true;
  }
  return false;
}

}  // namespace plc_gateway
