// Values as programs take them.
#include <cstring>

#include "client/controller/value_access.h"
#include "client/plc_client.h"
#include "client/values/value_text.h"
#include "client/values/value_type.h"

namespace plc_client {
namespace {

constexpr unsigned kWidestBits = 64;
constexpr double kBeyondUint64 = 18446744073709551616.0;  // 2 to the power of 64

const char* kind_name(Kind kind) {
  switch (kind) {
    case Kind::kNone:
      return "no value";
    case Kind::kBool:
      return "a BOOL";
    case Kind::kSigned:
      return "a signed integer";
    case Kind::kUnsigned:
      return "an unsigned integer";
    case Kind::kWord:
      return "a word";
    case Kind::kReal:
      return "a REAL or LREAL";
    case Kind::kText:
      return "a text";
    case Kind::kBytes:
      return "bytes";
  }
  return "no value";
}

}  // namespace

Kind kind_of(const TagEntry& entry) {
  switch (core::value_kind(entry)) {
    case core::ValueKind::kBool:
      return Kind::kBool;
    case core::ValueKind::kSigned:
      return Kind::kSigned;
    case core::ValueKind::kUnsigned:
      return Kind::kUnsigned;
    case core::ValueKind::kBits:
      return Kind::kWord;
    case core::ValueKind::kReal:
      return Kind::kReal;
    case core::ValueKind::kText:
      return Kind::kText;
    case core::ValueKind::kRaw:
      return Kind::kBytes;
  }
  return Kind::kNone;
}

unsigned bits_of(const TagEntry& entry) {
  const Kind kind = kind_of(entry);
  return kind == Kind::kText || kind == Kind::kBytes ? 0 : entry.bit_width;
}

void ValueAccess::declare(Value& value, const TagEntry& entry, const std::vector<size_t>& extents) {
  value.type_code_ = entry.type_code;
  value.bits_ = static_cast<uint8_t>(bits_of(entry));
  const bool has_elements = value.bits_ != 0;
  value.shape_ = has_elements ? extents : std::vector<size_t>();
}

void ValueAccess::set(Value& value, Kind kind, const core::TagValue& from) {
  value.kind_ = kind;
  if (kind == Kind::kText || kind == Kind::kBytes) {
    value.text_.assign(from.text);
  } else {
    value.elements_.assign(from.elements.begin(), from.elements.end());
  }
}

void ValueAccess::clear(Value& value) {
  value.kind_ = Kind::kNone;
  value.elements_.clear();
  value.text_.clear();
}

void Value::refuse(const char* wanted) const {
  if (kind_ == Kind::kNone) throw Error("there is no value: look at ok() and error before it is used");
  throw TypeMismatch(std::string("the value is ") + kind_name(kind_) + " and cannot be taken as " + wanted);
}

void Value::refuse_range(const char* wanted, size_t element) const {
  const std::string number = kind_ == Kind::kSigned ? std::to_string(signed_at(element)) : std::to_string(raw(element));
  throw OutOfRange("the value " + number + " does not fit " + wanted);
}

uint64_t Value::raw(size_t element) const {
  if (kind_ == Kind::kNone) throw Error("there is no value: look at ok() and error before it is used");
  if (kind_ == Kind::kText || kind_ == Kind::kBytes) refuse("a number");
  if (element >= elements_.size()) {
    throw Error("the value has " + std::to_string(elements_.size()) + " elements and none with the number " +
                std::to_string(element));
  }
  return elements_[element];
}

int64_t Value::signed_at(size_t element) const {
  const uint64_t bits = raw(element);
  if (bits_ == 0 || bits_ >= kWidestBits) return static_cast<int64_t>(bits);
  const uint64_t sign = uint64_t{1} << (bits_ - 1U);
  return static_cast<int64_t>((bits ^ sign) - sign);
}

double Value::real_at(size_t element) const {
  const uint64_t bits = raw(element);
  if (bits_ == 32) {
    const auto word = static_cast<uint32_t>(bits);
    float number = 0;
    std::memcpy(&number, &word, sizeof number);
    return static_cast<double>(number);
  }
  double number = 0;
  std::memcpy(&number, &bits, sizeof number);
  return number;
}

double Value::number_at(size_t element) const {
  if (kind_ == Kind::kReal) return real_at(element);
  if (kind_ != Kind::kSigned && kind_ != Kind::kUnsigned && kind_ != Kind::kWord) refuse("double");
  const bool is_negative = kind_ == Kind::kSigned && signed_at(element) < 0;
  const uint64_t size = is_negative ? ~static_cast<uint64_t>(signed_at(element)) + 1 : raw(element);
  // What needs more digits than a double has ends in another one than it had.
  const auto number = static_cast<double>(size);
  if (number >= kBeyondUint64 || static_cast<uint64_t>(number) != size) refuse_range("double exactly", element);
  return is_negative ? -number : number;
}

const std::string& Value::text_or_bytes() const {
  if (kind_ != Kind::kText && kind_ != Kind::kBytes) refuse("std::string");
  return text_;
}

std::string Value::to_string() const {
  if (kind_ == Kind::kNone) return {};
  TagEntry entry{};
  entry.type_code = type_code_;
  entry.bit_width = bits_;
  if (kind_ == Kind::kText) entry.shape = PLC_STRING;
  return core::format_value(entry, {elements_, text_}, shape_);
}

bool Value::operator==(const Value& other) const {
  return kind_ == other.kind_ && bits_ == other.bits_ && shape_ == other.shape_ && elements_ == other.elements_ &&
         text_ == other.text_;
}

Input Input::bytes(std::string bytes) {
  Input input(std::move(bytes));
  input.form_ = Form::kBytes;
  return input;
}

Error::~Error() = default;
UnknownVariable::~UnknownVariable() = default;
TypeMismatch::~TypeMismatch() = default;
OutOfRange::~OutOfRange() = default;
ConnectionFailed::~ConnectionFailed() = default;

}  // namespace plc_client
