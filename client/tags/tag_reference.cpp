// Looks names up in a tag list and checks their subscripts against the declaration.
#include "client/tags/tag_reference.h"

#include <algorithm>
#include <charconv>

#include "base/text.h"
#include "client/values/value_type.h"

namespace plc_client::core {
namespace {

// More than any request can carry; keeps a range of a mistyped tag file from filling the memory.
constexpr int64_t kMaxElements = 0x10000;

// A number that is too long stays 0, and is_beyond tells of it: it lies outside of every array.
bool parse_number(std::string_view text, int32_t& number, bool& is_beyond) {
  const std::from_chars_result end = std::from_chars(text.data(), text.data() + text.size(), number);
  is_beyond = is_beyond || end.ec == std::errc::result_out_of_range;
  return end.ec != std::errc::invalid_argument && end.ptr == text.data() + text.size();
}

// An ambiguous name means the one record that bears it exactly: a global variable beside local ones of its name.
const Tag* choose_tag(const TagList& list, std::string_view name) {
  const std::vector<uint32_t> positions = positions_of(list, name);
  if (positions.empty()) return nullptr;
  if (positions.size() == 1) return &list.tags[positions.front()];
  const Tag* exact = nullptr;
  std::string candidates;
  for (const uint32_t position : positions) {
    const Tag& tag = list.tags[position];
    if (tag.name != name && tag.qualified_name != name) continue;
    candidates += (candidates.empty() ? "" : ", ") + plc_base::told_name(tag.qualified_name);
    if (tag.qualified_name != name) continue;
    if (exact != nullptr) throw ReferenceError("the tag file has " + std::string(name) + " more than once");
    exact = &tag;
  }
  if (exact == nullptr) throw ReferenceError("which of them: " + candidates + "?");
  return exact;
}

void check_reachable(const Tag& tag) {
  if (!tag.register_id) throw UnreachableError(tag, tag.unreachable);
}

struct TypedSubscript {
  SubscriptRange range{};
  bool is_single = false;
  bool is_beyond = false;
};

TypedSubscript parse_subscript(std::string_view text) {
  TypedSubscript typed;
  const size_t dots = text.find("..");
  typed.is_single = dots == std::string_view::npos;
  bool is_number = parse_number(text.substr(0, dots), typed.range.low, typed.is_beyond);
  if (!typed.is_single) {
    is_number = is_number && parse_number(text.substr(dots + 2), typed.range.high, typed.is_beyond);
  }
  if (!is_number) throw ReferenceError("'" + std::string(text) + "' is not a subscript: write 3 or 0..4");
  if (typed.is_single) typed.range.high = typed.range.low;
  return typed;
}

void check_within(const TypedSubscript& typed, const SubscriptRange& declared, std::string_view text) {
  const SubscriptRange& range = typed.range;
  if (!typed.is_beyond && range.low > range.high) {
    throw SubscriptError("subscript " + std::string(text) + " runs backwards");
  }
  if (!typed.is_beyond && range.low >= declared.low && range.high <= declared.high) return;
  throw SubscriptError("subscript " + std::string(text) + " is outside " + std::to_string(declared.low) + ".." +
                       std::to_string(declared.high));
}

size_t length_of(const SubscriptRange& range) {
  return static_cast<size_t>(int64_t{range.high} - int64_t{range.low} + 1);
}

void check_element_count(const TagReference& reference) {
  int64_t count = 1;
  for (const SubscriptRange& range : reference.chosen) {
    if (range.high < range.low) throw ReferenceError("its declared range runs backwards");
    const int64_t length = int64_t{range.high} - int64_t{range.low} + 1;
    if (length > kMaxElements / count) throw ReferenceError("more than 65536 elements: choose some of them");
    count *= length;
  }
}

void choose_elements(TagReference& reference, std::string_view subscripts) {
  const std::vector<SubscriptRange> declared = declared_ranges(reference.tag->entry);
  if (declared.empty()) throw ShapeError("it is not an array: " + declared_type(reference.tag->entry));
  for (size_t start = 0; start <= subscripts.size();) {
    const size_t comma = std::min(subscripts.find(',', start), subscripts.size());
    const std::string_view text = subscripts.substr(start, comma - start);
    const TypedSubscript typed = parse_subscript(text);
    if (reference.chosen.size() < declared.size()) check_within(typed, declared[reference.chosen.size()], text);
    reference.chosen.push_back(typed.range);
    if (!typed.is_single) reference.extents.push_back(length_of(typed.range));
    start = comma + 1;
  }
  if (reference.chosen.size() != declared.size()) {
    throw ShapeError("it takes " + plc_base::plural(declared.size(), "subscript") + ", not " +
                     std::to_string(reference.chosen.size()) + ": " + declared_type(reference.tag->entry));
  }
}

}  // namespace

TagReference whole_tag(const Tag& tag) {
  check_reachable(tag);
  TagReference reference;
  reference.tag = &tag;
  reference.text = tag.qualified_name;
  reference.chosen = declared_ranges(tag.entry);
  check_element_count(reference);
  for (const SubscriptRange& range : reference.chosen) reference.extents.push_back(length_of(range));
  return reference;
}

TagReference find_reference(const TagList& list, std::string_view text) {
  // A record can itself be called Table[3]: the whole text is a name first.
  if (const Tag* tag = choose_tag(list, text)) return whole_tag(*tag);
  const size_t bracket = text.rfind('[');
  const bool subscripted = bracket != std::string_view::npos && text.back() == ']';
  const Tag* tag = subscripted ? choose_tag(list, text.substr(0, bracket)) : nullptr;
  if (tag == nullptr) throw NoSuchName("the tag file has no variable of this name");
  check_reachable(*tag);
  TagReference reference;
  reference.tag = tag;
  reference.text = tag->qualified_name + std::string(text.substr(bracket));
  choose_elements(reference, text.substr(bracket + 1, text.size() - bracket - 2));
  check_element_count(reference);
  return reference;
}

std::vector<Subscripts> chosen_elements(const TagReference& reference) {
  Subscripts current;
  for (const SubscriptRange& range : reference.chosen) current.push_back(range.low);
  std::vector<Subscripts> elements;
  while (true) {
    elements.push_back(current);
    size_t place = current.size();
    while (place > 0 && current[place - 1] == reference.chosen[place - 1].high) {
      current[place - 1] = reference.chosen[place - 1].low;
      --place;
    }
    if (place == 0) return elements;
    ++current[place - 1];
  }
}

TagReference last_element(const Tag& tag) {
  TagReference reference = whole_tag(tag);
  if (reference.chosen.empty()) return reference;
  Subscripts last;
  for (SubscriptRange& range : reference.chosen) {
    range.low = range.high;
    last.push_back(range.high);
  }
  reference.extents.clear();
  reference.text += subscript_text(last);
  return reference;
}

void split_assignment(std::string_view text, std::string_view& name, std::string_view& value) {
  int depth = 0;
  for (size_t at = 0; at < text.size(); ++at) {
    depth += text[at] == '[' ? 1 : text[at] == ']' ? -1 : 0;
    if (text[at] != '=' || depth > 0) continue;
    name = text.substr(0, at);
    value = text.substr(at + 1);
    return;
  }
  throw ReferenceError("'" + std::string(text) + "' is not an assignment: write NAME=VALUE");
}

}  // namespace plc_client::core
