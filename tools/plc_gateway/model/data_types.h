// What the standard's data types are made of.
#pragma once

#include <cstdint>
#include <string>

#include "tools/plc_gateway/model/variable.h"

namespace plc_gateway {

enum class ElementKind : uint8_t { kNone, kSigned, kUnsigned, kReal, kBool, kText, kBytes };

struct TypeFacts {
  const char* name;                       // as the standard has it
  unsigned bits = 0;                      // of an element; 0 for text and bytes
  ElementKind kind = ElementKind::kNone;  // of its elements
  bool is_array = false;
};

// A code that is no data type of variables has the kind kNone.
const TypeFacts& facts_of(DataType type);

// The number that the low bits of a signed element stand for.
int64_t sign_extended(uint64_t bits, unsigned width);

// The low bits of a number.
uint64_t low_bits(uint64_t bits, unsigned width);

// The number of a real element of 32 or 64 bits, and back. A REAL of a number that it cannot hold is not asked for.
double real_of_bits(uint64_t bits, unsigned width);
uint64_t bits_of_real(double number, unsigned width);

// The shortest text that means the same number: "-5", "1.5", "true", "nan".
std::string element_text(const TypeFacts& facts, uint64_t bits);

}  // namespace plc_gateway
