// Names of variables: conversions and subscripts.
#include "wire/names.h"

#include "base/shown_text.h"
#include "base/utf8.h"

namespace plc_sim {
namespace {

void append_utf8(std::string& out, char32_t value) {
  if (value < 0x80) {
    out += static_cast<char>(value);
    return;
  }
  if (value < 0x800) {
    out += static_cast<char>(0xC0U | (value >> 6U));
  } else {
    if (value < 0x10000) {
      out += static_cast<char>(0xE0U | (value >> 12U));
    } else {
      out += static_cast<char>(0xF0U | (value >> 18U));
      out += static_cast<char>(0x80U | ((value >> 12U) & 0x3FU));
    }
    out += static_cast<char>(0x80U | ((value >> 6U) & 0x3FU));
  }
  out += static_cast<char>(0x80U | (value & 0x3FU));
}

// One subscript with its mark; ten digits hold every 32-bit number.
std::optional<int64_t> parse_subscript(std::string_view text) {
  constexpr size_t kMaxDigits = 10;
  if (text.empty() || text.front() != '#') return std::nullopt;
  text.remove_prefix(1);
  const bool negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  if (text.empty() || text.size() > kMaxDigits) return std::nullopt;
  int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + (c - '0');
  }
  return negative ? -value : value;
}

bool may_follow_colon(std::string_view rest) {
  if (rest.empty()) return false;
  const char next = rest.front();
  return (next >= '0' && next <= '9') || (next >= 'A' && next <= 'Z') || (next >= 'a' && next <= 'z') || next == '_' ||
         next == '\\';
}

}  // namespace

std::optional<std::u16string> utf16_from_utf8(std::string_view text) {
  std::u16string units;
  while (!text.empty()) {
    const auto decoded = plc_base::first_code_point(text);
    if (!decoded) return std::nullopt;
    text.remove_prefix(decoded->bytes);
    if (decoded->value < 0x10000) {
      units += static_cast<char16_t>(decoded->value);
    } else {
      const char32_t rest = decoded->value - 0x10000;
      units += static_cast<char16_t>(0xD800U + (rest >> 10U));
      units += static_cast<char16_t>(0xDC00U + (rest & 0x3FFU));
    }
  }
  return units;
}

std::string utf8_from_utf16(std::u16string_view units) {
  std::string text;
  for (size_t i = 0; i < units.size(); ++i) {
    char32_t value = units[i];
    const bool pair =
        value >= 0xD800 && value < 0xDC00 && i + 1 < units.size() && units[i + 1] >= 0xDC00 && units[i + 1] <= 0xDFFF;
    if (pair) {
      value = 0x10000 + ((value - 0xD800) << 10U) + (static_cast<char32_t>(units[i + 1]) - 0xDC00);
      ++i;
    }
    append_utf8(text, value);
  }
  return text;
}

ElementName split_element_name(std::string_view wire_name) {
  ElementName whole{std::string(wire_name), {}};
  if (wire_name.empty() || wire_name.back() != ']') return whole;
  const size_t open = wire_name.rfind('[');
  if (open == std::string_view::npos || open == 0) return whole;
  ElementName name{std::string(wire_name.substr(0, open)), {}};
  std::string_view rest = wire_name.substr(open + 1, wire_name.size() - open - 2);
  for (;;) {
    const size_t comma = rest.find(',');
    const auto value = parse_subscript(rest.substr(0, comma));
    if (!value) return whole;
    name.subscripts.push_back(*value);
    if (comma == std::string_view::npos) return name;
    rest.remove_prefix(comma + 1);
  }
}

std::string mark_subscripts(std::string_view name) {
  std::string marked;
  bool inside = false;
  for (size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    marked += c;
    inside = c == '[' || (inside && c != ']');
    const bool starts_subscript = inside && (c == '[' || c == ',');
    if (starts_subscript && (i + 1 >= name.size() || name[i + 1] != '#')) marked += '#';
  }
  return marked;
}

std::string strip_subscript_marks(std::string_view name) {
  std::string plain;
  bool inside = false;
  for (size_t i = 0; i < name.size(); ++i) {
    inside = name[i] == '[' || (inside && name[i] != ']');
    const bool is_mark = inside && name[i] == '#' && i > 0 && (name[i - 1] == '[' || name[i - 1] == ',');
    if (!is_mark) plain += name[i];
  }
  return plain;
}

std::string shown_name(std::string_view name) {
  constexpr size_t kMostBytes = 512;  // a line of a tag file has 255: the names of program and variable
  const std::string_view kept = plc_base::whole_characters(name, kMostBytes);
  const std::string line = plc_base::shown_line(kept);
  std::string shown;
  for (size_t i = 0; i < line.size(); ++i) {
    const bool is_kept = line[i] != ':' || may_follow_colon(std::string_view(line).substr(i + 1));
    shown += is_kept ? std::string(1, line[i]) : "\\x3a";
  }
  if (kept.size() < name.size()) shown += "... (" + std::to_string(name.size()) + " bytes)";
  return shown;
}

std::string subscript_text(const std::vector<int64_t>& subscripts) {
  if (subscripts.empty()) return {};
  std::string text = "[";
  for (const int64_t value : subscripts) {
    text += text.size() == 1 ? "#" : ",#";
    text += std::to_string(value);
  }
  return text + "]";
}

}  // namespace plc_sim
