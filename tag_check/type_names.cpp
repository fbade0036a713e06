// Names of types: a table of what other systems call them, and names that are near.
#include "type_names.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <vector>

#include "base/near_names.h"
#include "form/csv_line.h"
#include "plc_driver/tags/data_types.h"

namespace tag_check {
namespace {

constexpr size_t kLongestName = 99;

// What is called so elsewhere: one type, or a hint where it can be several.
struct ForeignType {
  const char* name;
  const char* type;
  const char* hint;
};

constexpr ForeignType kForeignTypes[] = {
    {"BIT", "BOOL", ""},
    {"BOOLEAN", "BOOL", ""},
    {"INT8", "SINT", ""},
    {"UINT8", "USINT", ""},
    {"INT16", "INT", ""},
    {"SHORT", "INT", ""},
    {"UINT16", "UINT", ""},
    {"USHORT", "UINT", ""},
    {"INT32", "DINT", ""},
    {"UINT32", "UDINT", ""},
    {"INT64", "LINT", ""},
    {"UINT64", "ULINT", ""},
    {"FLOAT32", "REAL", ""},
    {"SINGLE", "REAL", ""},
    {"FLOAT64", "LREAL", ""},
    {"DOUBLE", "LREAL", ""},
    {"DOUBLEWORD", "DWORD", ""},
    {"QWORD", "LWORD", ""},
    {"TOD", "TIME_OF_DAY", ""},
    {"DT", "DATE_AND_TIME", ""},
    {"DATETIME", "DATE_AND_TIME", ""},
    {"FLOAT", "", "REAL has 32 bits, LREAL 64"},
    {"INTEGER", "", "INT has 16 bits, DINT 32"},
    {"LONG", "", "DINT has 32 bits, LINT 64"},
    {"ULONG", "", "UDINT has 32 bits, ULINT 64"},
    {"UNSIGNED", "", "UINT has 16 bits, UDINT 32"},
    {"SIGNED", "", "INT has 16 bits, DINT 32"},
    {"NUMBER", "", "INT has 16 bits, DINT 32, REAL is a 32-bit floating point"},
    {"TIME", "", "there are STIME and TIME_OF_DAY"},
    {"CHAR", "", "a text is a STRING with its length in column 4"},
    {"TEXT", "", "a text is a STRING with its length in column 4"},
    {"WSTRING", "", "a text is a STRING with its length in column 4"},
    {"VARCHAR", "", "a text is a STRING with its length in column 4"},
};

std::vector<std::string> type_texts() {
  std::vector<std::string> names;
  for (const TypeEntry& row : type_list) {
    if (row.name[0] != '\0') names.emplace_back(row.name);
  }
  return names;
}

std::string upper_case(std::string_view text) {
  std::string upper(text);
  for (char& sign : upper) sign = static_cast<char>(std::toupper(static_cast<unsigned char>(sign)));
  return upper;
}

bool are_digits(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

// "[0..9_0..4]" for "10,5"; empty for anything else than lengths.
std::string ranges_from_lengths(std::string_view text) {
  std::string ranges = "[";
  for (size_t start = 0; start <= text.size();) {
    const size_t end = std::min(text.find_first_of(",;_", start), text.size());
    const std::string_view digits = without_blanks(text.substr(start, end - start));
    uint32_t length = 0;
    const std::from_chars_result read = std::from_chars(digits.data(), digits.data() + digits.size(), length);
    if (read.ec != std::errc() || read.ptr != digits.data() + digits.size() || length == 0) return {};
    ranges.append(start > 0 ? "_0.." : "0..").append(std::to_string(length - 1));
    start = end + 1;
  }
  return ranges + "]";
}

// The one type that a text in capitals names; empty when it names none, or several.
std::string type_of_capitals(const std::string& upper) {
  if (is_type(upper)) return upper;
  for (const ForeignType& foreign : kForeignTypes) {
    if (upper == foreign.name) return foreign.type;
  }
  return {};
}

std::string single_type(std::string_view text) { return type_of_capitals(upper_case(without_blanks(text))); }

// The type in "OF INT"; empty for none.
std::string_view type_of_elements(std::string_view text) {
  constexpr std::string_view kOf = "OF";
  text = without_blanks(text);
  return text.substr(0, kOf.size()) == kOf ? without_blanks(text.substr(kOf.size())) : text;
}

// What to say of an array without the bounds of its ranges: INT[10], ARRAY[10] OF INT, ARRAY OF INT, INT[].
std::string array_hint(std::string_view upper) {
  constexpr std::string_view kArray = "ARRAY";
  const bool is_array = upper.substr(0, kArray.size()) == kArray;
  const size_t open = upper.find('[');
  const size_t close = open == std::string_view::npos ? open : upper.find(']', open);
  const bool has_brackets = close != std::string_view::npos;
  if (!is_array && !has_brackets) return {};
  const std::string_view type =
      is_array ? type_of_elements(upper.substr(has_brackets ? close + 1 : kArray.size())) : upper.substr(0, open);
  const std::string element = is_array && type.empty() ? "INT" : single_type(type);
  if (element.empty()) return {};
  const std::string_view lengths = has_brackets ? upper.substr(open + 1, close - open - 1) : std::string_view();
  if (without_blanks(lengths).empty()) {
    return "an array has its bounds: write " + element + "[0..9] for 10 elements";
  }
  const std::string ranges = ranges_from_lengths(lengths);
  return ranges.empty() ? "" : "an array has both bounds: write " + element + ranges;
}

bool are_bounds(std::string_view text) {
  const size_t dots = text.find("..");
  if (dots == std::string_view::npos) return false;
  std::string_view low = text.substr(0, dots);
  if (low.substr(0, 1) == "-") low.remove_prefix(1);
  return are_digits(low) && are_digits(text.substr(dots + 2));
}

// A type with the same letters in another order, else the nearest ones.
std::vector<std::string> near_types(const std::string& text) {
  constexpr size_t kMost = 3;
  std::vector<std::string> near = plc_base::near_names(text, type_texts());
  for (const std::string& name : near) {
    if (std::is_permutation(name.begin(), name.end(), text.begin(), text.end())) return {name};
  }
  if (near.size() > kMost) near.resize(kMost);
  return near;
}

}  // namespace

bool is_type(std::string_view text) {
  // The driver's names of types end with a zero: a zero inside the text would lead it behind one.
  const bool has_zero = text.find('\0') != std::string_view::npos;
  return !text.empty() && text.size() <= kLongestName && !has_zero &&
         plc::find_type(text.data(), static_cast<uint32_t>(text.size())) != nullptr;
}

std::string all_types() {
  const std::vector<std::string> names = type_texts();
  std::string text;
  for (size_t i = 0; i < names.size(); ++i) {
    if (i > 0) text += i + 1 == names.size() ? " and " : ", ";
    text += names[i];
  }
  return text;
}

MeantType meant_type(std::string_view text) {
  if (text.size() > kLongestName) return {};
  const std::string upper = upper_case(without_blanks(text));
  if (is_type(upper)) return {upper, true, true, "types are written " + upper};
  for (const ForeignType& foreign : kForeignTypes) {
    if (upper != foreign.name) continue;
    if (foreign.type[0] == '\0') return {"", false, true, foreign.hint};
    return {foreign.type, false, true, std::string("the driver calls it ") + foreign.type};
  }
  std::string hint = declared_type(text) ? "" : array_hint(upper);
  if (!hint.empty()) return {"", false, true, hint};
  const std::vector<std::string> near = near_types(upper);
  if (near.empty()) return {};
  return {"", false, false, "did you mean " + plc_base::joined_with_or(near) + "?"};
}

std::string ranges_of(std::string_view text) {
  std::string_view inner = without_blanks(text);
  if (!inner.empty() && inner.front() == '[' && inner.back() == ']') inner = inner.substr(1, inner.size() - 2);
  std::string ranges = "[";
  while (true) {
    const size_t end = inner.find_first_of("_,;");
    const std::string_view bounds = without_blanks(inner.substr(0, end));
    if (!are_bounds(bounds)) return std::string(text);
    ranges += bounds;
    if (end == std::string_view::npos) return ranges + "]";
    ranges += '_';
    inner.remove_prefix(end + 1);
  }
}

std::optional<DeclaredType> declared_type(std::string_view text) {
  const std::string upper = upper_case(without_blanks(text));
  const size_t open = upper.find_first_of("[(");
  if (open == std::string::npos || open == 0) return std::nullopt;
  const size_t close = upper.find(upper[open] == '[' ? ']' : ')', open);
  if (close == std::string::npos) return std::nullopt;
  const std::string inner = upper.substr(open + 1, close - open - 1);
  const std::string before(without_blanks(std::string_view(upper).substr(0, open)));
  const std::string_view behind = without_blanks(std::string_view(upper).substr(close + 1));
  if (before == "STRING" && behind.empty() && are_digits(inner)) return DeclaredType{before, "", inner};
  const std::string ranges = ranges_of(inner);
  if (ranges.empty() || ranges.front() != '[') return std::nullopt;
  if (before == "ARRAY" && behind.substr(0, 3) == "OF ") {
    return DeclaredType{std::string(without_blanks(behind.substr(3))), ranges, ""};
  }
  if (behind.empty()) return DeclaredType{before, ranges, ""};
  return std::nullopt;
}

bool is_like_type(std::string_view text) {
  return is_type(text) || meant_type(text).is_known || declared_type(text).has_value();
}

}  // namespace tag_check
