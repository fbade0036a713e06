// Makes objects of results.
#include "tools/plc_host/results/result_json.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "base/utf8.h"
#include "client/driver/failure.h"
#include "client/values/time_text.h"
#include "client/values/value_type.h"

namespace plc_host {
namespace {

constexpr size_t kMostElements = 3;  // that one reason names

std::string unsaid_word(double number) {
  if (std::isnan(number)) return "not a number";
  return number < 0 ? "minus infinity" : "infinity";
}

// "[1], [4], [5] and 7 more"
std::string some_of(const std::vector<std::string>& names) {
  std::string text;
  for (size_t i = 0; i < std::min(names.size(), kMostElements); ++i) text += (i == 0 ? "" : ", ") + names[i];
  if (names.size() > kMostElements) text += " and " + std::to_string(names.size() - kMostElements) + " more";
  return text;
}

std::string unsaid_reals(const TagEntry& entry, const TagValue& value, const std::vector<Subscripts>& elements,
                         size_t first_element) {
  std::vector<std::pair<std::string, std::vector<std::string>>> kinds;
  for (size_t i = 0; i < value.elements.size(); ++i) {
    const double number = element_number(entry, value.elements[i]);
    if (std::isfinite(number)) continue;
    const std::string word = unsaid_word(number);
    auto kind = std::find_if(kinds.begin(), kinds.end(), [&word](const auto& known) { return known.first == word; });
    if (kind == kinds.end()) kind = kinds.insert(kinds.end(), {word, {}});
    kind->second.push_back(i < elements.size() ? subscript_text(elements[i])
                                               : "element " + std::to_string(first_element + i));
  }
  std::string text;
  for (const auto& [word, names] : kinds) {
    text += (text.empty() ? "" : "; ") + word + (value.elements.size() > 1 ? ": " + some_of(names) : "");
  }
  return text;
}

}  // namespace

std::string unsaid_in_json(const TagEntry& entry, const TagValue& value, const std::vector<Subscripts>& elements,
                           size_t first_element) {
  switch (value_kind(entry)) {
    case ValueKind::kReal:
      return unsaid_reals(entry, value, elements, first_element);
    case ValueKind::kText:
      return plc_base::is_utf8(value.text) ? "" : "the text is not UTF-8";
    default:
      return "";
  }
}

namespace {

void add_value(nlohmann::ordered_json& object, const TagResult& result, const TagValue& value, WideIntegers wide) {
  const TagEntry& entry = result.reference.tag->entry;
  object["value"] = value_json(entry, value, result.reference.extents, wide);
  const bool has_names = value_kind(entry) == ValueKind::kReal && !result.reference.chosen.empty();
  const std::string unsaid = unsaid_in_json(
      entry, value, has_names ? chosen_elements(result.reference) : std::vector<Subscripts>(), result.first_element);
  std::string reason = result.remark;
  if (!unsaid.empty()) reason.append(reason.empty() ? "" : "; ").append(unsaid);
  if (!reason.empty()) object["reason"] = reason;
  if (!unsaid.empty() && !value.text.empty()) object["bytes"] = hexadecimal_bytes(value.text);
}

}  // namespace

nlohmann::ordered_json result_json(const TagResult& result, WideIntegers wide) {
  nlohmann::ordered_json object;
  object["name"] = result.name;
  const Tag* tag = result.reference.tag;
  if (tag != nullptr) {
    object["id"] = *tag->register_id;
    object["type"] = declared_type(tag->entry);
  }
  object["state"] = quality_word(result.reading.quality());
  object["time"] = utc_time_text(result.reading.time());
  if (const TagValue* value = result.reading.value(); tag != nullptr && value != nullptr) {
    add_value(object, result, *value, wide);
    return object;
  }
  const Failure& failure = result.reading.failure();
  object["value"] = nullptr;
  object["reason"] = failure.reason;
  if (!failure.advice.empty()) object["try"] = failure.advice;
  if (failure.code != PLC_OK) object["code"] = failure.code;
  return object;
}

}  // namespace plc_host
