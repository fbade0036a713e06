// Makes names, references and values of tags.
#include "tools/plc_host/survey/declared.h"

#include <algorithm>
#include <set>

#include "client/plan/transfer_plan.h"
#include "client/tags/device_kinds.h"
#include "client/tags/tag_source.h"
#include "client/values/value_text.h"
#include "client/values/value_type.h"
#include "wire/big_endian.h"
#include "wire/names.h"

namespace plc_host::survey {
namespace {

constexpr uint32_t kMostUnits = 255;  // a size code is one byte

uint8_t units_of_value(const TagEntry& entry) {
  switch (value_kind(entry)) {
    case ValueKind::kBool:
      return 1;
    case ValueKind::kText: {
      const std::vector<StringPiece> pieces = plan_string_read(entry);
      return pieces.empty() ? uint8_t{0} : static_cast<uint8_t>(std::min(pieces.front().units, kMostUnits));
    }
    case ValueKind::kRaw:
      return 1;
    default:
      break;
  }
  return entry.bit_width < 16 ? uint8_t{0} : static_cast<uint8_t>(entry.bit_width / 16);
}

Declared declared_of(const Tag& tag, const std::string& file, uint32_t line) {
  Declared declared;
  declared.tag = &tag;
  declared.file = file;
  declared.line = line;
  declared.units = units_of_value(tag.entry);
  declared.wire_name = tag.entry.name;
  if (value_kind(tag.entry) == ValueKind::kText) {
    declared.wire_name += "[#0]";
    return declared;
  }
  Subscripts last;
  for (const SubscriptRange& range : declared_ranges(tag.entry)) last.push_back(range.high);
  declared.element = subscript_text(last);
  declared.wire_name += plc_sim::mark_subscripts(declared.element);
  return declared;
}

}  // namespace

std::vector<std::string> Declarations::names() const {
  std::vector<std::string> names;
  names.reserve(variables.size());
  for (const Declared& declared : variables) names.push_back(declared.tag->qualified_name);
  return names;
}

void add_declared(Declarations& declarations, TagList tags, const std::string& file, std::optional<uint16_t> area) {
  declarations.lists.push_back(std::move(tags));
  const TagList& list = declarations.lists.back();
  const std::vector<uint32_t> lines = TagSource(file).lines_of(list);
  std::set<std::string> known;
  for (const Declared& declared : declarations.variables) known.insert(declared.tag->qualified_name);
  for (size_t i = 0; i < list.tags.size(); ++i) {
    if (!known.insert(list.tags[i].qualified_name).second) continue;
    declarations.variables.push_back(declared_of(list.tags[i], file, i < lines.size() ? lines[i] : 0));
    declarations.variables.back().area = area;
  }
}

bool has_bit_position(const TagEntry& entry) {
  const bool is_member = entry.name_kind != 1;
  const uint8_t device = entry.device_kind;
  if (is_member && (device == kDmDevice || device == kEmDevice || device == kNoDevice)) return true;
  return entry.dim1_high != 0 && device == kEmDevice;
}

plc_sim::Reference reference_to(const Declared& declared) {
  constexpr uint32_t kBitBits = 0xF;
  plc_sim::Reference reference{declared.handle, declared.units};
  const TagEntry& entry = declared.tag->entry;
  if (value_kind(entry) == ValueKind::kBool && !has_bit_position(entry)) reference.handle.address &= ~kBitBits;
  return reference;
}

unsigned bit_of(const Declared& declared) {
  return (has_bit_position(declared.tag->entry) ? declared.bit_number : declared.handle.address) & 0xFU;
}

std::string value_text(const Declared& declared, const plc_sim::Bytes& value) {
  const TagEntry& entry = declared.tag->entry;
  TagValue shown;
  if (value_kind(entry) == ValueKind::kText) {
    shown.text.assign(value.begin(), std::find(value.begin(), value.end(), 0));
  } else if (value_kind(entry) == ValueKind::kRaw) {
    return hexadecimal_bytes(std::string(value.begin(), value.end()));
  } else if (value_kind(entry) == ValueKind::kBool) {
    shown.elements.push_back((unsigned{plc_sim::ByteView(value).u16(0)} >> bit_of(declared)) & 1U);
  } else {
    const plc_sim::Bytes bytes = wire_trace::in_host_order(value);
    uint64_t bits = 0;
    for (size_t i = 0; i < bytes.size() && i < sizeof bits; ++i) bits |= uint64_t{bytes[i]} << (8 * i);
    shown.elements.push_back(bits);
  }
  return format_value(entry, shown, {});
}

bool is_same_value(const Declared& declared, const plc_sim::Bytes& one, const plc_sim::Bytes& other) {
  if (value_kind(declared.tag->entry) != ValueKind::kBool) return one == other;
  return value_text(declared, one) == value_text(declared, other);
}

}  // namespace plc_host::survey
