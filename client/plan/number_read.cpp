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

// The elements of an array by their subscripts: "Longs[0]", "Longs[0] to Longs[2]".
std::string elements_text(const Tag& tag, uint32_t first, uint32_t count) {
  const auto name_of = [&tag](uint32_t element) {
    const std::optional<Subscripts> subscripts = subscripts_at(tag.entry, Direction::kRead, element);
    return subscripts ? tag.qualified_name + subscript_text(*subscripts) : "element " + std::to_string(element);
  };
  return name_of(first) + (count > 1 ? " to " + name_of(first + count - 1) : "");
}

std::optional<OtherRequest> other_text_request(uint32_t count) {
  constexpr uint32_t kMostUnits = 255;
  if (count <= kMostUnits) return std::nullopt;
  const uint32_t sent = count & kMostUnits;
  OtherRequest other;
  other.what = "the driver takes the low 8 bits of a text's count: " + std::to_string(count) + " asked for " +
               std::to_string(sent) + (sent == 1 ? " unit" : " units");
  other.advice = "a count of 255 at most, and the others with another offset.";
  other.is_nothing = sent == 0;
  return other;
}

}  // namespace

std::optional<OtherRequest> other_request(const Tag& tag, uint32_t offset, uint32_t count) {
  if (value_kind(tag.entry) == ValueKind::kText) return other_text_request(count);
  const uint32_t units = host_units_per_element(tag.entry);
  const bool is_array = !declared_ranges(tag.entry).empty();
  const bool is_whole = count % units == 0 && (!is_array || offset % units == 0);
  // A single variable is read whole however many of its units are asked for, unless they are less than one of it.
  if (is_whole || (!is_array && count >= units)) return std::nullopt;
  OtherRequest other;
  other.is_nothing = count < units;
  other.what = "the driver halves offset and count of 64-bit types: offset " + std::to_string(offset) + ", count " +
               std::to_string(count) + " asked for " +
               (other.is_nothing ? "no element" : elements_text(tag, offset / units, count / units));
  other.advice = "an even offset and an even count, 2 for each element.";
  return other;
}

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
  // The driver sends a unit for each character, also for one beyond U+FFFF.
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

// What the driver stored, or why that is nothing.
Reading stored_reading(const DriverSession& session, const Tag& tag, const std::optional<OtherRequest>& other,
                       const CallResult& call, const TagValue& value) {
  if (other && other->is_nothing) {
    Failure failure;
    failure.quality = Quality::kIncomplete;
    failure.reason = other->what;
    failure.advice = other->advice;
    return {failure, call.time};
  }
  if (value_kind(tag.entry) == ValueKind::kRaw) return {cut_at_zero(value.text), call.time};
  return {value, other ? Quality::kIncomplete : session.quality_of_success(), call.time};
}

void remark_on_numbers(const Tag& tag, const std::optional<OtherRequest>& other, uint32_t offset, uint32_t count,
                       size_t elements, TagResult& result) {
  if (other && other->is_nothing) return;
  // The driver's own numbers: those of whole elements.
  const uint32_t units = other ? host_units_per_element(tag.entry) : 1;
  const uint32_t first = offset / units * units;
  const std::string odd = odd_numbers(tag, first, count / units * units);
  result.remark = other ? other->what + (odd.empty() ? "" : "; " + odd) : odd;
  result.element_remarks = remarks_on_elements(tag, first, elements);
  if (!other) return;
  if (elements == 0) result.element_remarks = {other->what};
  for (std::string& remark : result.element_remarks) {
    if (remark.empty()) remark = other->what;
  }
}

}  // namespace

namespace {

// What a failure of one name does not say: that several were asked for.
void tell_of_many(const Tag& tag, uint32_t count, Failure& failure) {
  constexpr std::string_view kOneRefused = "refused the name,";
  const std::string reason = failure.quality == Quality::kFailed ? too_many(tag, count) : "";
  if (!reason.empty()) {
    failure.reason = reason;
    failure.advice = "a smaller count, and the others with another offset.";
  }
  const size_t names = count / std::max<size_t>(host_units_per_element(tag.entry), 1);
  const size_t refused = failure.reason.find(kOneRefused);
  const bool is_of_several = names > 1 && value_kind(tag.entry) != ValueKind::kText;
  if (failure.quality != Quality::kRefused || refused == std::string::npos || !is_of_several) return;
  failure.reason.replace(refused, kOneRefused.size(),
                         "refused one or more of the " + std::to_string(names) + " names,");
  failure.advice =
      "a smaller count: one reply holds about 169 names. Else compare offset and count with the array's bounds, and "
      "name and scope with the controller's own list of variables.";
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
    if (tag != nullptr) tell_of_many(*tag, count, failure);
    result.reading = {failure, call.time};
    if (tag != nullptr) result.reading = of_own_program(session, *tag, result.reading);
  } else if (tag == nullptr) {
    result.reading = {impossible("the driver read a value of a variable that its tag file does not have"), call.time};
  } else {
    const TagValue value = stored_value(*tag, call.count, buffer);
    const ValueKind kind = value_kind(tag->entry);
    const bool is_list = kind != ValueKind::kText && kind != ValueKind::kRaw && value.elements.size() != 1;
    const std::optional<OtherRequest> other = other_request(*tag, offset, count);
    remark_on_numbers(*tag, other, offset, count, value.elements.size(), result);
    if (is_list) result.reference.extents = {value.elements.size()};
    if (is_list && !declared_ranges(tag->entry).empty()) {
      result.first_element = offset / host_units_per_element(tag->entry);
    }
    result.reading = of_own_program(session, *tag, stored_reading(session, *tag, other, call, value));
  }
  return result;
}

}  // namespace plc_client::core
