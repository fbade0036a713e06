// Reads registers by their numbers.
#include "client/plan/number_read.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>

#include "client/driver/failure.h"
#include "client/plan/program_check.h"
#include "client/tags/element_offset.h"
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

// count is that of the call as the driver left it.
TagValue stored_value(const Tag& tag, uint32_t count, GuardedBuffer& buffer) {
  TagValue value;
  const ValueKind kind = value_kind(tag.entry);
  if (kind == ValueKind::kText || kind == ValueKind::kRaw) {
    const auto* text = reinterpret_cast<const char*>(buffer.data());
    value.text.assign(text, strnlen(text, buffer.size()));
  } else {
    value.elements = decode_elements(tag.entry, buffer.data(), count);
  }
  return value;
}

// The offsets at which an array has elements, in the driver's units; nothing where they are not all in a row.
struct OffsetRange {
  int64_t low;
  int64_t high;
};

std::optional<OffsetRange> offsets_of(const TagEntry& entry) {
  const std::vector<SubscriptRange> ranges = declared_ranges(entry);
  const int64_t units = host_units_per_element(entry);
  int64_t elements = 1;
  for (const SubscriptRange& range : ranges) {
    if (range.low < 0 || range.high < range.low) return std::nullopt;
    if (ranges.size() > 1 && range.low != 0) return std::nullopt;
    elements *= int64_t{range.high} - range.low + 1;
    if (elements > UINT32_MAX) return std::nullopt;
  }
  // An array of one range counts from its lower bound.
  const int64_t low = ranges.size() == 1 ? ranges.front().low : 0;
  return OffsetRange{low * units, (low + elements) * units - 1};
}

std::string outside_text(const OffsetRange& asked, const OffsetRange& declared) {
  const bool is_below = asked.low < declared.low;
  const bool is_above = asked.high > declared.high;
  if (!is_below && !is_above) return {};
  const std::string bounds = std::to_string(declared.low) + ".." + std::to_string(declared.high);
  const int64_t first = is_below ? asked.low : std::max(asked.low, declared.high + 1);
  const int64_t last = is_above ? asked.high : std::min(asked.high, declared.low - 1);
  if (first == last) return "offset " + std::to_string(first) + " is outside " + bounds;
  const bool is_around = is_below && is_above && asked.high >= declared.low && asked.low <= declared.high;
  return "offsets " + std::to_string(first) + " to " + std::to_string(last) +
         (is_around ? " reach beyond " : " are outside ") + bounds;
}

}  // namespace

std::string odd_numbers(const Tag& tag, uint32_t offset, uint32_t count) {
  const ValueKind kind = value_kind(tag.entry);
  if (kind == ValueKind::kText || kind == ValueKind::kRaw) return {};
  if (!declared_ranges(tag.entry).empty()) {
    const std::optional<OffsetRange> declared = offsets_of(tag.entry);
    return declared ? outside_text({offset, int64_t{offset} + count - 1}, *declared) : "";
  }
  if (offset == 0 && count <= host_units_per_element(tag.entry)) return {};
  return std::string("a single ") + type_name(tag.entry.type_code) + " has no elements: offset " +
         std::to_string(offset) + ", count " + std::to_string(count) + " name the variable itself";
}

std::string too_many(const Tag& tag, uint32_t count) {
  constexpr uint64_t kBytesForNames = 4096 - 24;
  constexpr uint32_t kMostBits = 64;
  constexpr uint64_t kLeastSubscript = 4;  // "[#0]"
  if (value_kind(tag.entry) == ValueKind::kBool) {
    return count > kMostBits ? "one read takes " + std::to_string(kMostBits) + " BOOLs at most" : "";
  }
  const std::string_view name = tag.entry.name;
  const auto characters = static_cast<uint64_t>(std::count_if(
      name.begin(), name.end(), [](char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U; }));
  const uint64_t subscript = declared_ranges(tag.entry).empty() ? 0 : kLeastSubscript;
  const uint64_t most = kBytesForNames / (2 + 2 * (characters + subscript));
  const uint64_t elements = count / std::max<uint64_t>(host_units_per_element(tag.entry), 1);
  if (elements <= most) return {};
  return "one request has no room for the names of " + std::to_string(elements) + " elements, " + std::to_string(most) +
         " at most";
}

namespace {

std::vector<std::string> remarks_on_elements(const Tag& tag, uint32_t offset, size_t count) {
  const auto units = static_cast<uint32_t>(host_units_per_element(tag.entry));
  std::vector<std::string> remarks;
  remarks.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    remarks.push_back(odd_numbers(tag, offset + static_cast<uint32_t>(i) * units, units));
  }
  return remarks;
}

}  // namespace

TagResult read_number(DriverSession& session, const TagList& tags, uint32_t register_id, uint32_t offset,
                      uint32_t count) {
  const Tag* tag = find_tag_by_id(tags, register_id);
  GuardedBuffer buffer(read_buffer_bytes(count));
  const CallResult call = session.read(register_id, offset, count, buffer);
  TagResult result;
  result.name = (tag != nullptr ? tag->qualified_name + " #" : "#") + std::to_string(register_id);
  result.reference.tag = tag;
  if (!call.ok()) {
    Failure failure = explain_failure(call, session.target());
    const std::string reason = tag != nullptr && failure.quality == Quality::kFailed ? too_many(*tag, count) : "";
    if (!reason.empty()) {
      failure.reason = reason;
      failure.advice = "a smaller count, and the others with another offset.";
    }
    result.reading = {failure, call.time};
  } else if (tag == nullptr) {
    result.reading = {impossible("the driver read a value of a variable that its tag file does not have"), call.time};
  } else {
    const TagValue value = stored_value(*tag, call.count, buffer);
    const ValueKind kind = value_kind(tag->entry);
    const bool is_missing = kind == ValueKind::kRaw && value.text.empty();
    const bool is_list = kind != ValueKind::kText && kind != ValueKind::kRaw && value.elements.size() != 1;
    result.remark = odd_numbers(*tag, offset, count);
    result.element_remarks = remarks_on_elements(*tag, offset, value.elements.size());
    if (is_list) result.reference.extents = {value.elements.size()};
    const Reading reading =
        is_missing ? Reading(nothing_stored(), call.time) : Reading(value, session.quality_of_success(), call.time);
    result.reading = of_own_program(session, *tag, reading);
  }
  return result;
}

}  // namespace plc_client::core
