// Goes through pattern and name side by side, back to the last star where they part.
#include "client/tags/name_pattern.h"

#include <optional>

#include "base/utf8.h"

namespace plc_client::core {
namespace {

constexpr char32_t kFirstStrayByte = 0x110000;  // behind all characters

// Takes the first character away.
char32_t take(std::string_view& text) {
  const std::optional<plc_base::CodePoint> first = plc_base::first_code_point(text);
  const char32_t value = first ? first->value : kFirstStrayByte + static_cast<unsigned char>(text.front());
  text.remove_prefix(first ? first->bytes : 1);
  return value;
}

// Behind the opening bracket: whether the character is in the set, with the set taken away. Nothing for an open end.
std::optional<bool> take_set(std::string_view& pattern, char32_t wanted) {
  std::string_view rest = pattern;
  const bool is_negated = !rest.empty() && (rest.front() == '!' || rest.front() == '^');
  if (is_negated) rest.remove_prefix(1);
  bool is_in = false;
  for (bool is_first = true; !rest.empty(); is_first = false) {
    const char32_t low = take(rest);
    if (low == U']' && !is_first) {
      pattern = rest;
      return is_in != is_negated;
    }
    char32_t high = low;
    if (rest.size() >= 2 && rest[0] == '-' && rest[1] != ']') {
      rest.remove_prefix(1);
      high = take(rest);
    }
    is_in = is_in || (low <= wanted && wanted <= high);
  }
  return std::nullopt;
}

// Takes one character of the pattern, and one of the name; false when they do not fit.
bool take_both(std::string_view& pattern, std::string_view& name) {
  const char32_t wanted = take(pattern);
  const char32_t found = take(name);
  if (wanted == U'?') return true;
  if (wanted != U'[') return wanted == found;
  return take_set(pattern, found).value_or(found == U'[');
}

}  // namespace

bool fits_pattern(std::string_view pattern, std::string_view name) {
  // Where to go on when they part: behind the last star, with one character more for it.
  std::optional<std::string_view> behind_star;
  std::string_view retried;
  for (;;) {
    if (!pattern.empty() && pattern.front() == '*') {
      pattern.remove_prefix(1);
      behind_star = pattern;
      retried = name;
      continue;
    }
    if (pattern.empty() && name.empty()) return true;
    if (!pattern.empty() && !name.empty() && take_both(pattern, name)) continue;
    if (!behind_star || retried.empty()) return false;
    take(retried);
    pattern = *behind_star;
    name = retried;
  }
}

}  // namespace plc_client::core
