// The table of the data types, by their codes.
#include "tools/plc_gateway/model/data_types.h"

#include <charconv>
#include <cstddef>
#include <cstring>

namespace plc_gateway {
namespace {

constexpr TypeFacts kNoType = {"Unknown", 0, ElementKind::kNone, false};

constexpr TypeFacts kCodes[] = {
    kNoType,
    {"Int8", 8, ElementKind::kSigned, false},
    {"Int16", 16, ElementKind::kSigned, false},
    {"Int32", 32, ElementKind::kSigned, false},
    {"Int64", 64, ElementKind::kSigned, false},
    {"UInt8", 8, ElementKind::kUnsigned, false},
    {"UInt16", 16, ElementKind::kUnsigned, false},
    {"UInt32", 32, ElementKind::kUnsigned, false},
    {"UInt64", 64, ElementKind::kUnsigned, false},
    {"Float", 32, ElementKind::kReal, false},
    {"Double", 64, ElementKind::kReal, false},
    {"Boolean", 1, ElementKind::kBool, false},
    {"String", 0, ElementKind::kText, false},
    {"DateTime", 64, ElementKind::kUnsigned, false},
    {"Text", 0, ElementKind::kNone, false},
    {"UUID", 0, ElementKind::kNone, false},
    {"DataSet", 0, ElementKind::kNone, false},
    {"Bytes", 0, ElementKind::kBytes, false},
    {"File", 0, ElementKind::kNone, false},
    {"Template", 0, ElementKind::kNone, false},
    {"PropertySet", 0, ElementKind::kNone, false},
    {"PropertySetList", 0, ElementKind::kNone, false},
    {"Int8Array", 8, ElementKind::kSigned, true},
    {"Int16Array", 16, ElementKind::kSigned, true},
    {"Int32Array", 32, ElementKind::kSigned, true},
    {"Int64Array", 64, ElementKind::kSigned, true},
    {"UInt8Array", 8, ElementKind::kUnsigned, true},
    {"UInt16Array", 16, ElementKind::kUnsigned, true},
    {"UInt32Array", 32, ElementKind::kUnsigned, true},
    {"UInt64Array", 64, ElementKind::kUnsigned, true},
    {"FloatArray", 32, ElementKind::kReal, true},
    {"DoubleArray", 64, ElementKind::kReal, true},
    {"BooleanArray", 1, ElementKind::kBool, true},
    {"StringArray", 0, ElementKind::kText, true},
};

constexpr unsigned kWidest = 64;
constexpr size_t kMostDigits = 64;  // no shortest number has as many

template <typename Number>
std::string shortest(Number number) {
  char digits[kMostDigits];
  return std::string(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

}  // namespace

const TypeFacts& facts_of(DataType type) {
  const auto code = static_cast<size_t>(type);
  return code < sizeof kCodes / sizeof kCodes[0] ? kCodes[code] : kNoType;
}

uint64_t low_bits(uint64_t bits, unsigned width) {
  return width >= kWidest ? bits : bits & ((uint64_t{1} << width) - 1);
}

int64_t sign_extended(uint64_t bits, unsigned width) {
  if (width == 0 || width >= kWidest) return static_cast<int64_t>(bits);
  const uint64_t sign = uint64_t{1} << (width - 1);
  return static_cast<int64_t>((low_bits(bits, width) ^ sign) - sign);
}

double real_of_bits(uint64_t bits, unsigned width) {
  if (width == 32) {
    const auto word = static_cast<uint32_t>(bits);
    float number = 0;
    std::memcpy(&number, &word, sizeof number);
    return static_cast<double>(number);
  }
  double number = 0;
  std::memcpy(&number, &bits, sizeof number);
  return number;
}

uint64_t bits_of_real(double number, unsigned width) {
  if (width == 32) {
    const auto narrow = static_cast<float>(number);
    uint32_t word = 0;
    std::memcpy(&word, &narrow, sizeof word);
    return word;
  }
  uint64_t bits = 0;
  std::memcpy(&bits, &number, sizeof bits);
  return bits;
}

std::string element_text(const TypeFacts& facts, uint64_t bits) {
  switch (facts.kind) {
    case ElementKind::kBool:
      return bits != 0 ? "true" : "false";
    case ElementKind::kSigned:
      return shortest(sign_extended(bits, facts.bits));
    case ElementKind::kReal: {
      const double number = real_of_bits(bits, facts.bits);
      return facts.bits == 32 ? shortest(static_cast<float>(number)) : shortest(number);
    }
    default:
      return shortest(bits);
  }
}

}  // namespace plc_gateway
