// Values in the controller's memory and in a program.
#include "tests/client/endure/endure_values.h"

#include <algorithm>
#include <cstring>

namespace plc_endure {
namespace {

using plc_client::Input;
using plc_client::Kind;

constexpr unsigned kWordBits = 16;

struct Span {
  size_t first = 0;
  size_t count = 0;
  bool is_kept = false;  // a dimension of the value
};

std::string span_text(const Span& span) {
  const std::string first = std::to_string(span.first);
  return span.is_kept ? first + ".." + std::to_string(span.first + span.count - 1) : first;
}

void add_elements(const std::vector<Span>& spans, const std::vector<size_t>& lengths, size_t depth, size_t before,
                  std::vector<uint32_t>& elements) {
  if (depth == spans.size()) {
    elements.push_back(static_cast<uint32_t>(before));
    return;
  }
  for (size_t i = 0; i < spans[depth].count; ++i) {
    add_elements(spans, lengths, depth + 1, before * lengths[depth] + spans[depth].first + i, elements);
  }
}

Span draw_span(size_t length, Random& random, bool is_single) {
  Span span;
  span.first = random.below(static_cast<uint32_t>(length));
  span.is_kept = !is_single && random.once_in(2);
  const auto room = static_cast<uint32_t>(length - span.first);
  span.count = span.is_kept ? 1 + random.below(room) : 1;
  return span;
}

uint64_t bits_at(const Memory& memory, uint32_t moment, const Variable& variable, const Spot& spot) {
  const uint64_t word = memory.word_at(moment, spot.cell);
  if (variable.is_bit()) return word >> spot.bit & 1U;
  uint64_t bits = 0;
  for (uint32_t w = 0; w < variable.words(); ++w) {
    bits |= uint64_t{memory.word_at(moment, spot.cell + w)} << (kWordBits * w);
  }
  return bits;
}

// The bytes of the text's units from one on to the first zero byte.
std::string text_at(const Memory& memory, uint32_t moment, const Chosen& chosen) {
  std::string text;
  for (size_t at = 0; at < chosen.text_bytes; ++at) {
    const unsigned word = memory.word_at(moment, chosen.variable->spots[at / 2].cell);
    const auto byte = static_cast<char>(at % 2 == 0 ? word >> 8U : word);
    if (byte == 0) break;
    text += byte;
  }
  return text;
}

// Each unit of its own moment.
bool had_units(const Memory& memory, const Chosen& chosen, const std::string& text) {
  for (size_t at = 0; at < chosen.text_bytes; at += 2) {
    const char wanted[2] = {at < text.size() ? text[at] : char{0}, at + 1 < text.size() ? text[at + 1] : char{0}};
    bool was_there = false;
    for (uint32_t moment = 0; moment < memory.moments() && !was_there; ++moment) {
      const unsigned word = memory.word_at(moment, chosen.variable->spots[at / 2].cell);
      const auto first = static_cast<char>(word >> 8U);
      was_there = first == wanted[0] && (first == 0 || static_cast<char>(word) == wanted[1]);
    }
    if (!was_there) return false;
    if (wanted[0] == 0 || wanted[1] == 0) return true;
  }
  return text.size() <= chosen.text_bytes;
}

bool had_text(const Memory& memory, const Chosen& chosen, const std::string& text) {
  for (uint32_t moment = memory.moments(); moment > 0; --moment) {
    if (text_at(memory, moment - 1, chosen) == text) return true;
  }
  return memory.moments() > 1 && had_units(memory, chosen, text);
}

Input draw_text(const Chosen& chosen, Random& random, uint32_t part, std::vector<Target>& targets) {
  const auto longest = static_cast<uint32_t>(chosen.text_bytes);
  std::string text(random.once_in(4) ? longest : random.below(longest + 1), 'a');
  for (char& letter : text) letter = static_cast<char>('a' + random.below(26));
  // A zero byte ends a text that does not fill its variable.
  const size_t bytes = std::min(text.size() + 1, chosen.text_bytes);
  for (size_t at = 0; at < bytes; at += 2) {
    const unsigned first = at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    const unsigned second = at + 1 < text.size() ? static_cast<unsigned char>(text[at + 1]) : 0U;
    Target target;
    target.cell = chosen.variable->spots[at / 2].cell;
    target.value = static_cast<uint16_t>(first << 8U | second);
    target.part = part;
    targets.push_back(target);
  }
  return Input(text);
}

uint64_t draw_bits(const Chosen& chosen, Random& random, Input* input) {
  const unsigned width = chosen.variable->bits;
  const uint64_t drawn = uint64_t{random.next()} << 32U | random.next();
  const uint64_t bits = width == 64 ? drawn : drawn & ((uint64_t{1} << width) - 1);
  if (chosen.kind == Kind::kBool) {
    *input = Input(bits != 0);
  } else if (chosen.kind == Kind::kSigned) {
    const uint64_t sign = uint64_t{1} << (width - 1U);
    *input = Input(static_cast<int64_t>((bits ^ sign) - sign));
  } else if (chosen.kind == Kind::kReal) {
    const double number = static_cast<double>(static_cast<int32_t>(random.next()) >> 8U) / 4;
    *input = Input(number);
    uint64_t raw = 0;
    uint32_t narrow_raw = 0;
    const auto narrow = static_cast<float>(number);
    std::memcpy(&raw, &number, sizeof raw);
    std::memcpy(&narrow_raw, &narrow, sizeof narrow_raw);
    return width == 32 ? narrow_raw : raw;
  } else {
    *input = Input(bits);
  }
  return bits;
}

void add_targets(const Variable& variable, const Spot& spot, uint64_t bits, uint32_t part,
                 std::vector<Target>& targets) {
  Target target;
  target.part = part;
  target.cell = spot.cell;
  if (variable.is_bit()) {
    target.mask = static_cast<uint16_t>(1U << spot.bit);
    target.value = bits != 0 ? target.mask : uint16_t{0};
    targets.push_back(target);
    return;
  }
  for (uint32_t w = 0; w < variable.words(); ++w) {
    target.cell = spot.cell + w;
    target.value = static_cast<uint16_t>(bits >> (kWordBits * w));
    targets.push_back(target);
  }
}

// Lists in lists, as the value has dimensions.
Input nested(std::vector<Input>& flat, const std::vector<size_t>& shape, size_t depth, size_t& next) {
  if (depth == shape.size()) return flat[next++];
  std::vector<Input> items;
  for (size_t i = 0; i < shape[depth]; ++i) items.push_back(nested(flat, shape, depth + 1, next));
  return Input(std::move(items));
}

}  // namespace

Chosen choose(const Variable& variable, const plc_client::Declaration& declaration, Random& random, bool is_single) {
  Chosen chosen;
  chosen.variable = &variable;
  chosen.name = variable.name;
  chosen.kind = declaration.kind;
  chosen.text_bytes = declaration.length;
  std::vector<size_t> lengths;
  std::vector<Span> spans;
  const bool is_whole = !is_single && random.once_in(3);
  for (const plc_client::Declaration::Range& range : declaration.ranges) {
    lengths.push_back(static_cast<size_t>(range.high) + 1);  // all begin at 0
    spans.push_back(is_whole ? Span{0, lengths.back(), true} : draw_span(lengths.back(), random, is_single));
    if (spans.back().is_kept) chosen.shape.push_back(spans.back().count);
  }
  if (!is_whole && !spans.empty()) {
    chosen.name += "[";
    for (size_t i = 0; i < spans.size(); ++i) chosen.name += (i > 0 ? "," : "") + span_text(spans[i]);
    chosen.name += "]";
  }
  if (!variable.is_text()) add_elements(spans, lengths, 0, 0, chosen.elements);
  return chosen;
}

bool had_value(const Memory& memory, const Chosen& chosen, const plc_client::Value& value) {
  if (value.kind() != chosen.kind || value.shape() != chosen.shape) return false;
  if (chosen.variable->is_text()) return had_text(memory, chosen, value.as<std::string>());
  if (value.size() != chosen.elements.size()) return false;
  for (size_t i = 0; i < chosen.elements.size(); ++i) {
    const Spot& spot = chosen.variable->spots[chosen.elements[i]];
    uint32_t moment = memory.moments();
    while (moment > 0 && bits_at(memory, moment - 1, *chosen.variable, spot) != value.raw(i)) --moment;
    if (moment == 0) return false;
  }
  return true;
}

plc_client::Input draw_value(const Chosen& chosen, Random& random, uint32_t part, std::vector<Target>& targets) {
  if (chosen.variable->is_text()) return draw_text(chosen, random, part, targets);
  std::vector<Input> flat;
  for (const uint32_t element : chosen.elements) {
    flat.emplace_back(0);
    const uint64_t bits = draw_bits(chosen, random, &flat.back());
    add_targets(*chosen.variable, chosen.variable->spots[element], bits, part, targets);
  }
  size_t next = 0;
  return nested(flat, chosen.shape, 0, next);
}

void change(const Variable& variable, Memory& memory, Random& random) {
  if (variable.is_text()) {
    for (const Spot& spot : variable.spots) {
      const auto letter = [&random] { return random.once_in(24) ? 0U : 'A' + random.below(26); };
      const unsigned first = letter();
      memory.set(spot.cell, static_cast<uint16_t>(first << 8U | letter()));
    }
  } else {
    const Spot& spot = variable.spots[random.below(variable.elements)];
    if (variable.is_bit()) {
      memory.set(spot.cell, static_cast<uint16_t>(memory.word(spot.cell) ^ 1U << spot.bit));
    } else {
      for (uint32_t w = 0; w < variable.words(); ++w) {
        memory.set(spot.cell + w, static_cast<uint16_t>(random.next()));
      }
    }
  }
  memory.end_of_request();
}

}  // namespace plc_endure
