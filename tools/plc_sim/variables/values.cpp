// Values of elements: conversions between memory words, text and JSON.
#include "tools/plc_sim/variables/values.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <charconv>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <nlohmann/json.hpp>

#include "base/utf8.h"
#include "base/values/typed_value.h"

namespace plc_sim {
namespace {

constexpr unsigned kBitsPerUnit = 16;
constexpr uint32_t kMaxNumberUnits = 4;

uint64_t number_at(const Memory& memory, const Element& element) {
  const Place& place = element.place;
  uint64_t value = 0;
  for (uint32_t i = std::min(place.units, kMaxNumberUnits); i-- > 0;) {
    value = (value << kBitsPerUnit) | memory.word(place.bank, place.part, place.word + i);
  }
  return element.variable->tag.type->bits == 8 ? value & 0xFFU : value;
}

void store_number(Memory& memory, const Element& element, uint64_t value) {
  const Place& place = element.place;
  for (uint32_t i = 0; i < std::min(place.units, kMaxNumberUnits); ++i) {
    memory.set_word(place.bank, place.part, place.word + i, static_cast<uint16_t>(value >> (i * kBitsPerUnit)));
  }
}

unsigned bits_of(const Element& element) {
  const unsigned bits = element.variable->tag.type->bits;
  return bits == 0 ? 64 : bits;
}

int64_t signed_value(uint64_t value, unsigned bits) {
  const unsigned shift = 64 - bits;
  return static_cast<int64_t>(value << shift) >> shift;
}

double real_value(uint64_t value, unsigned bits) {
  if (bits == 32) {
    const auto low = static_cast<uint32_t>(value);
    float real = 0;
    std::memcpy(&real, &low, sizeof real);
    return static_cast<double>(real);
  }
  double real = 0;
  std::memcpy(&real, &value, sizeof real);
  return real;
}

uint64_t real_bits(double real, unsigned bits) {
  if (bits == 32) {
    const auto narrow = static_cast<float>(real);
    uint32_t value = 0;
    std::memcpy(&value, &narrow, sizeof value);
    return value;
  }
  uint64_t value = 0;
  std::memcpy(&value, &real, sizeof value);
  return value;
}

// As hosts show bit patterns: 0x and two digits for each byte.
std::string bits_text(uint64_t value, unsigned bits) {
  std::array<char, 24> text{};
  std::snprintf(text.data(), text.size(), "0x%0*" PRIX64, static_cast<int>(bits / 4), value);
  return text.data();
}

// The shortest text that reads back as the same value; a REAL is shown with its own precision.
std::string real_text(double real, unsigned bits) {
  std::array<char, 64> buffer{};
  const auto result = bits == 32 ? std::to_chars(buffer.data(), buffer.data() + buffer.size(), static_cast<float>(real))
                                 : std::to_chars(buffer.data(), buffer.data() + buffer.size(), real);
  return std::string(buffer.data(), result.ptr);
}

std::string text_at(const Memory& memory, const Element& element) {
  const Place& place = element.place;
  std::string text;
  for (uint32_t i = 0; i < place.units; ++i) {
    const uint16_t word = memory.word(place.bank, place.part, place.word + i);
    for (const unsigned c : {static_cast<unsigned>(word) >> 8U, static_cast<unsigned>(word) & 0xFFU}) {
      if (c == 0) return text;
      text += static_cast<char>(c);
    }
  }
  return text;
}

void store_text(Memory& memory, const Element& element, std::string_view text) {
  const Place& place = element.place;
  const auto byte_at = [&](size_t i) { return i < text.size() ? static_cast<uint8_t>(text[i]) : uint8_t{0}; };
  for (uint32_t i = 0; i < place.units; ++i) {
    const auto word = static_cast<uint16_t>((static_cast<unsigned>(byte_at(2 * i)) << 8U) | byte_at(2 * i + 1));
    memory.set_word(place.bank, place.part, place.word + i, word);
  }
}

// As hosts' users name it in messages, with its bits where it has no width of its own.
plc_base::ValueType typed_as(const TypeInfo& type) {
  const unsigned bits = type.bits == 0 ? kBitsPerUnit * kMaxNumberUnits : type.bits;
  switch (type.kind) {
    case TypeKind::kBool:
      return {type.name, plc_base::ValueForm::kBool, bits};
    case TypeKind::kSigned:
      return {type.name, plc_base::ValueForm::kSigned, bits};
    case TypeKind::kReal:
      return {type.name, plc_base::ValueForm::kReal, bits};
    case TypeKind::kUnsigned:
    case TypeKind::kBits:
    case TypeKind::kText:
    case TypeKind::kOpaque:
      break;
  }
  return {type.name, plc_base::ValueForm::kUnsigned, bits};
}

std::string set_text(Memory& memory, const Element& element, std::string_view text) {
  const size_t room = element.variable->is_text() ? static_cast<size_t>(element.variable->tag.string_length)
                                                  : size_t{2} * element.place.units;
  const plc_base::TypedText typed = plc_base::typed_text(text, room);
  if (typed.problem.empty()) store_text(memory, element, typed.text);
  return typed.problem;
}

}  // namespace

std::string value_text(const Memory& memory, const Element& element) {
  const TypeInfo& type = *element.variable->tag.type;
  switch (type.kind) {
    case TypeKind::kBool:
      return memory.bit(element.place) ? "true" : "false";
    case TypeKind::kSigned:
      return std::to_string(signed_value(number_at(memory, element), type.bits));
    case TypeKind::kReal:
      return real_text(real_value(number_at(memory, element), type.bits), type.bits);
    case TypeKind::kText:
      return plc_base::quoted_with_escapes(text_at(memory, element));
    case TypeKind::kBits:
      return bits_text(number_at(memory, element), type.bits);
    case TypeKind::kUnsigned:
    case TypeKind::kOpaque:
      break;
  }
  return std::to_string(number_at(memory, element));
}

nlohmann::json value_json(const Memory& memory, const Element& element) {
  const TypeInfo& type = *element.variable->tag.type;
  const uint64_t number = number_at(memory, element);
  switch (type.kind) {
    case TypeKind::kBool:
      return memory.bit(element.place);
    case TypeKind::kSigned:
      return signed_value(number, type.bits);
    case TypeKind::kReal: {
      const double real = real_value(number, type.bits);
      return std::isfinite(real) ? nlohmann::json(real) : nlohmann::json(real_text(real, type.bits));
    }
    case TypeKind::kText: {
      const std::string text = text_at(memory, element);
      return plc_base::is_utf8(text) ? nlohmann::json(text) : nlohmann::json();
    }
    case TypeKind::kUnsigned:
    case TypeKind::kBits:
    case TypeKind::kOpaque:
      break;
  }
  return number;
}

std::string raw_text(const Memory& memory, const Element& element) {
  const Place& place = element.place;
  if (element.variable->is_flag()) return memory.bit(place) ? "1" : "0";
  std::string text;
  for (uint32_t i = 0; i < place.units; ++i) {
    std::array<char, 8> word{};
    std::snprintf(word.data(), word.size(), i == 0 ? "%04x" : " %04x",
                  static_cast<unsigned>(memory.word(place.bank, place.part, place.word + i)));
    text += word.data();
  }
  return text;
}

std::string set_value(Memory& memory, const Element& element, std::string_view text) {
  if (element.variable->tag.type->kind == TypeKind::kText) return set_text(memory, element, text);
  return set_values(memory, {element}, {text});
}

std::string set_values(Memory& memory, const std::vector<Element>& elements,
                       const std::vector<std::string_view>& texts) {
  const TypeInfo& type = *elements.front().variable->tag.type;
  if (type.kind == TypeKind::kText) return "texts are set one by one: name one element";
  std::vector<uint64_t> values;
  for (const std::string_view text : texts) {
    plc_base::TypedNumber typed = plc_base::typed_number(typed_as(type), text);
    if (!typed.problem.empty()) return typed.problem;
    values.push_back(typed.bits);
  }
  for (size_t i = 0; i < elements.size(); ++i) {
    if (type.kind == TypeKind::kBool) {
      memory.set_bit(elements[i].place, values[i] != 0);
    } else {
      store_number(memory, elements[i], values[i]);
    }
  }
  return {};
}

void set_sentinel(Memory& memory, const Element& element, uint32_t serial) {
  const TagDeclaration& tag = element.variable->tag;
  switch (tag.type->kind) {
    case TypeKind::kBool:
      memory.set_bit(element.place, std::bitset<32>(serial * 0x9E3779B1U >> 9U).count() % 2 != 0);
      return;
    case TypeKind::kReal:
      store_number(memory, element, real_bits(serial + 0.25, tag.type->bits));
      return;
    case TypeKind::kText: {
      std::string text;
      const size_t length = element.variable->is_text() ? static_cast<size_t>(tag.string_length) : 8;
      for (size_t i = 0; i < length; ++i) text += static_cast<char>('A' + (serial * 11 + i * 7 + i / 26 * 5) % 26);
      store_text(memory, element, text);
      return;
    }
    case TypeKind::kSigned:
    case TypeKind::kUnsigned:
    case TypeKind::kBits:
    case TypeKind::kOpaque:
      break;
  }
  const uint32_t bits = tag.type->bits;
  // An odd factor keeps neighbouring units apart until all 65536 words have been used.
  uint64_t value = 0;
  for (uint32_t i = kMaxNumberUnits; i-- > 0;) {
    value = (value << kBitsPerUnit) | (((serial * kMaxNumberUnits + i) * 0x9E35U + 0x1357U) & 0xFFFFU);
  }
  store_number(memory, element, bits == 8 ? (serial * 37U + 11U) & 0xFFU : value);
}

void animate_value(Memory& memory, const Element& element, uint64_t step) {
  const TypeInfo& type = *element.variable->tag.type;
  const uint32_t serial = element.variable->serial + element.index.value_or(0);
  constexpr double kStepsPerRadian = 10;
  switch (type.kind) {
    case TypeKind::kBool:
      memory.set_bit(element.place, ((step + serial) / (1 + serial % 5)) % 2 != 0);
      return;
    case TypeKind::kReal:
      store_number(memory, element,
                   real_bits(100 * std::sin((static_cast<double>(step) + serial) / kStepsPerRadian), type.bits));
      return;
    case TypeKind::kText:
      return;
    case TypeKind::kSigned:
    case TypeKind::kUnsigned:
    case TypeKind::kBits:
    case TypeKind::kOpaque:
      break;
  }
  const unsigned bits = bits_of(element);
  const uint64_t all = std::numeric_limits<uint64_t>::max() >> (64 - bits);
  store_number(memory, element, (number_at(memory, element) + 1 + serial % 7) & all);
}

}  // namespace plc_sim
