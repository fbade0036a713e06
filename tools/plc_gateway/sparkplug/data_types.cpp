// The table of the data types, by their codes.
#include "tools/plc_gateway/sparkplug/data_types.h"

#include <cstddef>
#include <cstring>

namespace plc_gateway {
namespace {

constexpr TypeFacts kNoType = {"Unknown", ElementKind::kNone, 0, false};

constexpr TypeFacts kTypes[] = {
    kNoType,
    {"Int8", ElementKind::kSigned, 8, false},
    {"Int16", ElementKind::kSigned, 16, false},
    {"Int32", ElementKind::kSigned, 32, false},
    {"Int64", ElementKind::kSigned, 64, false},
    {"UInt8", ElementKind::kUnsigned, 8, false},
    {"UInt16", ElementKind::kUnsigned, 16, false},
    {"UInt32", ElementKind::kUnsigned, 32, false},
    {"UInt64", ElementKind::kUnsigned, 64, false},
    {"Float", ElementKind::kReal, 32, false},
    {"Double", ElementKind::kReal, 64, false},
    {"Boolean", ElementKind::kBool, 1, false},
    {"String", ElementKind::kText, 0, false},
    {"DateTime", ElementKind::kNone, 0, false},
    {"Text", ElementKind::kNone, 0, false},
    {"UUID", ElementKind::kNone, 0, false},
    {"DataSet", ElementKind::kNone, 0, false},
    {"Bytes", ElementKind::kBytes, 0, false},
    {"File", ElementKind::kNone, 0, false},
    {"Template", ElementKind::kNone, 0, false},
    {"PropertySet", ElementKind::kNone, 0, false},
    {"PropertySetList", ElementKind::kNone, 0, false},
    {"Int8Array", ElementKind::kSigned, 8, true},
    {"Int16Array", ElementKind::kSigned, 16, true},
    {"Int32Array", ElementKind::kSigned, 32, true},
    {"Int64Array", ElementKind::kSigned, 64, true},
    {"UInt8Array", ElementKind::kUnsigned, 8, true},
    {"UInt16Array", ElementKind::kUnsigned, 16, true},
    {"UInt32Array", ElementKind::kUnsigned, 32, true},
    {"UInt64Array", ElementKind::kUnsigned, 64, true},
    {"FloatArray", ElementKind::kReal, 32, true},
    {"DoubleArray", ElementKind::kReal, 64, true},
    {"BooleanArray", ElementKind::kBool, 1, true},
    {"StringArray", ElementKind::kText, 0, true},
};

constexpr unsigned kWidest = 64;

}  // namespace

const TypeFacts& facts_of(DataType type) {
  const auto code = static_cast<size_t>(type);
  return code < sizeof kTypes / sizeof kTypes[0] ? kTypes[code] : kNoType;
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

}  // namespace plc_gateway
