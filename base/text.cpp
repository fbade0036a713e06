// Numbers and words in messages.
#include "base/text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>

#include "base/utf8.h"

namespace plc_base {

namespace {

// At an end of a name they look like the text around it: colons, and a sign of Braille without dots.
constexpr std::string_view kUnclearEnds[] = {":", "\u02D0", "\u2236", "\u2800", "\uA789", "\uFE13", "\uFE55", "\uFF1A"};

bool has_unclear_end(std::string_view name) {
  return std::any_of(std::begin(kUnclearEnds), std::end(kUnclearEnds), [name](std::string_view sign) {
    return name.substr(0, sign.size()) == sign ||
           (name.size() >= sign.size() && name.substr(name.size() - sign.size()) == sign);
  });
}

}  // namespace

std::string quoted(std::string_view text) { return "'" + std::string(text) + "'"; }

bool hides_blanks(std::string_view name) {
  const auto has_blank_end = [](std::string_view part) { return without_blanks(part).size() != part.size(); };
  const size_t slash = name.find('/');
  const bool is_apart = slash != std::string_view::npos && slash > 0 && slash + 1 < name.size();
  if (has_blank_end(name) || !is_apart) return has_blank_end(name);
  return has_blank_end(name.substr(0, slash)) || has_blank_end(name.substr(slash + 1));
}

std::string told_name(std::string_view name) {
  const bool is_seen = !name.empty() && !has_unclear_end(name) && !hides_blanks(name);
  return is_seen ? std::string(name) : quoted(name);
}

bool is_same_but_case(std::string_view text, std::string_view other) {
  const auto lower = [](char sign) { return sign >= 'A' && sign <= 'Z' ? static_cast<char>(sign - 'A' + 'a') : sign; };
  return std::equal(text.begin(), text.end(), other.begin(), other.end(),
                    [&lower](char one, char two) { return lower(one) == lower(two); });
}

std::string hexadecimal(uint32_t value, int digits) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "0x%0*X", digits, value);
  return text.data();
}

std::string plural(uint64_t count, std::string_view thing) {
  return std::to_string(count) + " " + std::string(thing) + (count == 1 ? "" : "s");
}

std::string grouped_number(uint64_t number) {
  std::string text = std::to_string(number);
  for (size_t at = text.size(); at > 3;) text.insert(at -= 3, 1, ',');
  return text;
}

std::string milliseconds_text(int64_t nanoseconds, int decimals) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.*f ms", decimals, static_cast<double>(nanoseconds) / 1e6);
  return text.data();
}

}  // namespace plc_base
