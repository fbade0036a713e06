// Chooses among the driver's ways to write, as docs/wire_protocol.md has them.
#include "tools/plc_host/survey_steps/scratch.h"

#include <algorithm>

#include "client/tags/device_kinds.h"
#include "client/values/value_type.h"
#include "wire/big_endian.h"
#include "wire/names.h"
#include "wire/request_writer.h"

namespace plc_host::survey {
namespace {

constexpr size_t kTextBytes = 8;  // of a text that are changed
constexpr size_t kNeighboursByPlace = 4;

WriteWay bit_way_of(const TagEntry& entry) {
  if (is_em_bit_array(entry)) return WriteWay::kWordAround;
  const bool is_array = entry.shape != PLC_SCALAR;
  if (entry.name_kind == 1 || entry.shape == PLC_ARRAY3) return WriteWay::kSetReset;
  // The driver writes these through half of an address: nothing to try at a machine.
  if (is_array) return WriteWay::kNone;
  if (entry.is_global != 1) return WriteWay::kWordAround;
  if (entry.device_kind == kMrDevice) return WriteWay::kSetReset;
  if (entry.name_kind == 2) return entry.device_kind == kLrDevice ? WriteWay::kSetReset : WriteWay::kWordAround;
  return entry.device_kind == kDmDevice ? WriteWay::kMasked : WriteWay::kWordAround;
}

// Members of structures are set by their device, others by the area that the controller says.
uint8_t area_of(const Scratch& scratch) {
  const TagEntry& entry = scratch.variable.tag->entry;
  return entry.name_kind != 1 && entry.shape == PLC_SCALAR ? entry.device_kind : scratch.variable.handle.area;
}

Declared element_of(const Declared& whole, const Subscripts& subscripts) {
  Declared element = whole;
  element.element = subscript_text(subscripts);
  element.wire_name = std::string(whole.tag->entry.name) + plc_sim::mark_subscripts(element.element);
  element.is_good = false;
  element.value.clear();
  return element;
}

// Of an array one element; those of a text stay what they are.
Subscripts subscripts_of(const TagReference& reference) {
  Subscripts subscripts;
  const bool is_one = reference.extents.empty();
  for (const SubscriptRange& range : reference.chosen) subscripts.push_back(is_one ? range.low : range.high);
  return subscripts;
}

const Declared* declared_as(const Declarations& declarations, const Tag* tag) {
  for (const Declared& declared : declarations.variables) {
    if (declared.tag == tag) return &declared;
  }
  return nullptr;
}

uint64_t distance(const plc_sim::Handle& one, const plc_sim::Handle& other) {
  return std::max(one.address, other.address) - std::min(one.address, other.address);
}

uint64_t pattern_of(const TagEntry& entry) {
  constexpr uint64_t kTwelveAndAHalf = 0x41480000;
  constexpr uint64_t kWideTwelveAndAHalf = 0x4029000000000000;
  if (value_kind(entry) == ValueKind::kReal) return entry.bit_width == 32 ? kTwelveAndAHalf : kWideTwelveAndAHalf;
  return 0x1122334455667788;
}

}  // namespace

WriteWay write_way_of(const TagEntry& entry) {
  switch (value_kind(entry)) {
    case ValueKind::kBool:
      return bit_way_of(entry);
    case ValueKind::kRaw:
      return WriteWay::kNone;
    default:
      break;
  }
  return entry.bit_width == 8 ? WriteWay::kNone : WriteWay::kValues;
}

const char* way_words(WriteWay way, bool bit) {
  switch (way) {
    case WriteWay::kValues:
      return "write";
    case WriteWay::kSetReset:
      return bit ? "set" : "reset";
    case WriteWay::kMasked:
      return "masked write";
    case WriteWay::kWordAround:
      return "read-modify-write";
    case WriteWay::kNone:
      break;
  }
  return "none";
}

Scratch scratch_of(const Declarations& declarations, const std::string& name) {
  for (const TagList& list : declarations.lists) {
    TagReference reference;
    try {
      reference = find_reference(list, name);
    } catch (const NoSuchName&) {
      if (&list == &declarations.lists.back()) throw;
      continue;
    }
    const Declared* whole = declared_as(declarations, reference.tag);
    if (whole == nullptr) continue;
    Scratch scratch;
    const Subscripts subscripts = subscripts_of(reference);
    scratch.variable = subscripts.empty() ? *whole : element_of(*whole, subscripts);
    scratch.name = whole->tag->qualified_name + scratch.variable.element;
    scratch.way = write_way_of(whole->tag->entry);
    return scratch;
  }
  throw NoSuchName("no tag file has a variable of this name");
}

size_t changed_bytes(const Scratch& scratch) {
  const size_t bytes = size_t{2} * scratch.variable.units;
  return value_kind(scratch.variable.tag->entry) == ValueKind::kText ? std::min(bytes, kTextBytes) : bytes;
}

plc_sim::Bytes other_value(const Scratch& scratch, const plc_sim::Bytes& old_value) {
  const TagEntry& entry = scratch.variable.tag->entry;
  plc_sim::Bytes value = old_value;
  value.resize(changed_bytes(scratch));
  if (value_kind(entry) == ValueKind::kBool) {
    const unsigned word = plc_sim::ByteView(old_value).u16(0) ^ (1U << bit_of(scratch.variable));
    plc_sim::put_u16(value, 0, word);
    return value;
  }
  if (value_kind(entry) == ValueKind::kText) {
    constexpr char kText[] = "survey";
    for (size_t i = 0; i < value.size(); ++i) value[i] = i < sizeof kText ? static_cast<uint8_t>(kText[i]) : 0;
    if (value == plc_sim::Bytes(old_value.begin(), old_value.begin() + static_cast<std::ptrdiff_t>(value.size()))) {
      value.front() = 'S';
    }
    return value;
  }
  for (size_t i = 0; i < value.size(); ++i) value[i] = static_cast<uint8_t>(pattern_of(entry) >> (8 * i));
  value = wire_trace::in_host_order(value);
  if (value == old_value) value.back() = static_cast<uint8_t>(value.back() ^ 1U);
  return value;
}

std::vector<Declared> neighbours_of(const Scratch& scratch, const Declarations& declarations) {
  std::vector<Declared> neighbours;
  const TagEntry& entry = scratch.variable.tag->entry;
  const std::vector<SubscriptRange> ranges = declared_ranges(entry);
  if (ranges.size() == 1 && !scratch.variable.element.empty()) {
    const int32_t at = std::stoi(scratch.variable.element.substr(1));
    if (at > ranges[0].low) neighbours.push_back(element_of(scratch.variable, {at - 1}));
    if (at < ranges[0].high) neighbours.push_back(element_of(scratch.variable, {at + 1}));
  }
  std::vector<const Declared*> others;
  for (const Declared& other : declarations.variables) {
    const bool is_beside =
        other.is_good && other.tag != scratch.variable.tag && other.handle.area == scratch.variable.handle.area;
    if (is_beside) others.push_back(&other);
  }
  std::stable_sort(others.begin(), others.end(), [&scratch](const Declared* one, const Declared* other) {
    return distance(one->handle, scratch.variable.handle) < distance(other->handle, scratch.variable.handle);
  });
  others.resize(std::min(others.size(), kNeighboursByPlace));
  for (const Declared* other : others) neighbours.push_back(*other);
  return neighbours;
}

plc_sim::Bytes write_request_for(const Scratch& scratch, uint16_t sequence, const plc_sim::Bytes& value,
                                 const plc_sim::Bytes& word) {
  const plc_sim::Handle& handle = scratch.variable.handle;
  const unsigned bit = bit_of(scratch.variable);
  const bool is_on = ((unsigned{plc_sim::ByteView(value).u16(0)} >> bit) & 1U) != 0;
  switch (scratch.way) {
    case WriteWay::kSetReset:
      return plc_sim::bit_request(sequence, area_of(scratch), handle.address, is_on);
    case WriteWay::kMasked:
      return plc_sim::masked_write_request(sequence, handle, bit, is_on);
    case WriteWay::kWordAround: {
      // All other bits as they are now.
      const unsigned now = plc_sim::ByteView(word).u16(0);
      plc_sim::Bytes changed(2);
      plc_sim::put_u16(changed, 0, is_on ? now | (1U << bit) : now & ~(1U << bit));
      return plc_sim::write_request(sequence, handle, changed);
    }
    default:
      break;
  }
  plc_sim::Bytes values = value;
  values.resize(std::min(values.size(), changed_bytes(scratch)));
  return plc_sim::write_request(sequence, handle, values);
}

}  // namespace plc_host::survey
