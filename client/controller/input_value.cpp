// Checks a value against the variable's type, range and shape.
#include "client/controller/input_value.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "base/shown_text.h"
#include "client/controller/value_access.h"
#include "client/values/value_type.h"

namespace plc_client {
namespace {

using Form = Input::Form;
using core::TagReference;
using core::TagValue;

constexpr unsigned kWidest = 64;

std::string described(const TagReference& reference) {
  return plc_base::shown_line(reference.text) + " is declared " + core::declared_type(reference.tag->entry) + ": ";
}

const char* form_name(const Input& input) {
  switch (input.form()) {
    case Form::kBool:
      return "a bool";
    case Form::kSigned:
    case Form::kUnsigned:
      return "an integer";
    case Form::kReal:
      return "a real number";
    case Form::kText:
      return "a text";
    case Form::kBytes:
      return "bytes";
    case Form::kList:
      return "a list";
  }
  return "no value";
}

[[noreturn]] void mismatch(const TagReference& reference, const std::string& what) {
  throw TypeMismatch(described(reference) + what);
}

bool is_integer(const Input& input) { return input.form() == Form::kSigned || input.form() == Form::kUnsigned; }

std::string digits_of(const Input& input) {
  return input.form() == Form::kSigned ? std::to_string(static_cast<int64_t>(input.bits()))
                                       : std::to_string(input.bits());
}

uint64_t low_bits(uint64_t bits, unsigned width) {
  return width >= kWidest ? bits : bits & ((uint64_t{1} << width) - 1);
}

[[noreturn]] void outside(const TagReference& reference, const Input& input, const std::string& low,
                          const std::string& high) {
  throw OutOfRange(described(reference) + digits_of(input) + " is outside " + low + " to " + high);
}

uint64_t integer_bits(const TagReference& reference, const Input& input) {
  const unsigned width = reference.tag->entry.bit_width;
  const bool is_negative = input.form() == Form::kSigned && static_cast<int64_t>(input.bits()) < 0;
  if (kind_of(reference.tag->entry) == Kind::kSigned) {
    const auto high = static_cast<int64_t>(low_bits(std::numeric_limits<uint64_t>::max(), width) >> 1U);
    const int64_t low = -high - 1;
    const bool is_high = !is_negative && input.bits() > static_cast<uint64_t>(high);
    if (is_high || (is_negative && static_cast<int64_t>(input.bits()) < low)) {
      outside(reference, input, std::to_string(low), std::to_string(high));
    }
    return low_bits(input.bits(), width);
  }
  const uint64_t high = low_bits(std::numeric_limits<uint64_t>::max(), width);
  if (is_negative || input.bits() > high) outside(reference, input, "0", std::to_string(high));
  return input.bits();
}

double real_of(const TagReference& reference, const Input& input) {
  if (input.form() == Form::kReal) return input.real();
  const bool is_negative = input.form() == Form::kSigned && static_cast<int64_t>(input.bits()) < 0;
  const uint64_t size = is_negative ? ~input.bits() + 1 : input.bits();
  const uint64_t exact = uint64_t{1} << (reference.tag->entry.bit_width == 32 ? 24U : 53U);
  if (size > exact) {
    throw OutOfRange(described(reference) + digits_of(input) + " is beyond " + std::to_string(exact) +
                     ", up to which it holds every integer; write a real number to have it rounded");
  }
  const auto number = static_cast<double>(size);
  return is_negative ? -number : number;
}

uint64_t real_bits(const TagReference& reference, const Input& input) {
  const double number = real_of(reference, input);
  uint64_t bits = 0;
  if (reference.tag->entry.bit_width != 32) {
    std::memcpy(&bits, &number, sizeof number);
    return bits;
  }
  const auto refuse_number = [&](const char* reason) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.9g", number);
    throw OutOfRange(described(reference) + digits + reason);
  };
  if (std::isfinite(number) && std::fabs(number) > static_cast<double>(std::numeric_limits<float>::max())) {
    refuse_number(" is more than it can hold");
  }
  const auto narrow = static_cast<float>(number);
  if (narrow == 0 && number != 0) refuse_number(" is nearer to 0 than it can hold");
  uint32_t word = 0;
  std::memcpy(&word, &narrow, sizeof word);
  return word;
}

uint64_t element_bits(const TagReference& reference, const Input& input) {
  switch (kind_of(reference.tag->entry)) {
    case Kind::kBool:
      if (input.form() != Form::kBool) mismatch(reference, std::string(form_name(input)) + " is not a bool");
      return input.bits();
    case Kind::kSigned:
    case Kind::kUnsigned:
    case Kind::kWord:
      if (!is_integer(input)) mismatch(reference, std::string(form_name(input)) + " is not an integer");
      return integer_bits(reference, input);
    case Kind::kReal:
      if (!is_integer(input) && input.form() != Form::kReal) {
        mismatch(reference, std::string(form_name(input)) + " is not a number");
      }
      return real_bits(reference, input);
    default:
      mismatch(reference, "the driver writes no such type");
  }
}

void take_list(const TagReference& reference, const Input& input, size_t depth, TagValue& value) {
  if (depth == reference.extents.size()) {
    if (input.form() == Form::kList) {
      mismatch(reference, "the list has more dimensions than what it is to be written to");
    }
    value.elements.push_back(element_bits(reference, input));
    return;
  }
  const size_t wanted = reference.extents[depth];
  if (input.form() != Form::kList) {
    mismatch(reference,
             std::string(form_name(input)) + " where a list of " + std::to_string(wanted) + " values must stand");
  }
  if (input.items().size() != wanted) {
    mismatch(reference, "a list of " + std::to_string(input.items().size()) + " values where " +
                            std::to_string(wanted) + " must stand");
  }
  for (const Input& item : input.items()) take_list(reference, item, depth + 1, value);
}

TagValue text_value(const TagReference& reference, const Input& input) {
  if (input.form() != Form::kText && input.form() != Form::kBytes) {
    mismatch(reference, std::string(form_name(input)) + " is not a text");
  }
  const auto length = static_cast<size_t>(std::max(reference.tag->entry.string_length, 0));
  if (input.text().size() > length) {
    throw OutOfRange(described(reference) + "the text has " + std::to_string(input.text().size()) + " bytes, at most " +
                     std::to_string(length) + " fit");
  }
  if (input.text().find('\0') != std::string::npos) {
    throw OutOfRange(described(reference) + "a zero byte ends a text and cannot stand in it");
  }
  TagValue value;
  value.text = input.text();
  return value;
}

}  // namespace

TagValue value_of(const TagReference& reference, const Input& input) {
  if (kind_of(reference.tag->entry) == Kind::kText) return text_value(reference, input);
  TagValue value;
  take_list(reference, input, 0, value);
  return value;
}

}  // namespace plc_client
