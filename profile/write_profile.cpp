// Writes a profile as people can read and correct it.
#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/shown_text.h"
#include "base/text.h"
#include "base/toml/toml_text.h"
#include "base/utf8.h"
#include "base/whole_file.h"
#include "profile/profile_file.h"
#include "profile/profile_keys.h"

namespace plc_profile {
namespace {

constexpr char kHead[] =
    "# What was learnt of a controller. plc-host, plc-gateway and the client library set themselves by it, and "
    "plc-sim\n"
    "# imitates it. What is left out is as in plc-sim without a profile.\n";

constexpr char kRefusedHead[] = "# A declared variable that the controller does not have.\n";
constexpr char kRefusedValueHead[] =
    "# A declared variable whose name the controller knows. It refuses the value, with this shape and status.\n";

void append_escaped(std::string& text, char32_t value) {
  std::array<char, 16> escape{};
  std::snprintf(escape.data(), escape.size(), value > 0xFFFF ? "\\U%08X" : "\\u%04X", static_cast<unsigned>(value));
  text += escape.data();
}

// Between double quotes; a byte of no UTF-8 is lost.
std::string toml_string(std::string_view bytes) {
  constexpr char32_t kReplacement = 0xFFFD;
  std::string text = "\"";
  while (!bytes.empty()) {
    const std::optional<plc_base::CodePoint> next = plc_base::first_code_point(bytes);
    const size_t length = next ? next->bytes : 1;
    if (!next || plc_base::is_hidden(next->value)) {
      append_escaped(text, next ? next->value : kReplacement);
    } else {
      if (bytes.front() == '"' || bytes.front() == '\\') text += '\\';
      text += bytes.substr(0, length);
    }
    bytes.remove_prefix(length);
  }
  return text + '"';
}

template <typename Word>
std::string word_text(Word word) {
  return '"' + words_of(Word{}).at(static_cast<size_t>(word)) + '"';
}

std::string status_text(uint16_t status) {
  constexpr int kStatusDigits = 4;
  return plc_base::hexadecimal(status, kStatusDigits);
}

// A value as it stands in the file; nothing for what is not known.
class SlotText {
 public:
  explicit SlotText(const Profile& profile) : profile_(profile) {}

  std::optional<std::string> operator()(std::string Profile::*slot) const {
    const std::string& text = profile_.*slot;
    return text.empty() ? std::nullopt : std::optional<std::string>(toml_string(text));
  }
  std::optional<std::string> operator()(std::optional<double> Profile::*slot) const {
    return decimal_text(profile_.*slot);
  }
  std::optional<std::string> operator()(PacePart slot) const { return decimal_text(profile_.*slot.pace.*slot.part); }
  std::optional<std::string> operator()(std::optional<uint16_t> Profile::*slot) const {
    const std::optional<uint16_t>& status = profile_.*slot;
    return status ? std::optional<std::string>(status_text(*status)) : std::nullopt;
  }
  std::optional<std::string> operator()(std::optional<uint32_t> Profile::*slot) const {
    const std::optional<uint32_t>& number = profile_.*slot;
    return number ? std::optional<std::string>(std::to_string(*number)) : std::nullopt;
  }
  std::optional<std::string> operator()(Profile::Guarded Profile::*slot) const { return word_text(profile_.*slot); }
  template <typename Word>
  std::optional<std::string> operator()(std::optional<Word> Profile::*slot) const {
    const std::optional<Word>& word = profile_.*slot;
    return word ? std::optional<std::string>(word_text(*word)) : std::nullopt;
  }

 private:
  static std::optional<std::string> decimal_text(const std::optional<double>& number) {
    return number ? std::optional<std::string>(plc_toml::number_text(*number)) : std::nullopt;
  }

  const Profile& profile_;
};

// "timeout_s = 3  # A host waits this long for a reply.", or "# timeout_s is not known. A host waits this long ...".
std::string line_of(const KeyRow& row, const std::optional<std::string>& value) {
  std::string line = value ? "" : "# ";
  line += row.name;
  line += value ? " = " + *value : " is not known";
  line += value ? "  # " : ". ";
  return line + row.meaning + "\n";
}

std::string refused_text(const Profile::Refused& refused) {
  const bool is_value = refused.what == Profile::Refused::What::kValue;
  std::string text = is_value ? kRefusedValueHead : kRefusedHead;
  text += "[[refused]]\nname = " + toml_string(refused.name) + "\n";
  if (!refused.program.empty()) text += "program = " + toml_string(refused.program) + "\n";
  if (is_value) text += "what = " + word_text(refused.what) + "\n";
  if (refused.shape) text += "shape = " + word_text(*refused.shape) + "\n";
  if (refused.status) text += "status = " + status_text(*refused.status) + "\n";
  return text;
}

}  // namespace

std::string profile_text(const Profile& profile) {
  std::string text = kHead;
  std::string section;
  for (const KeyRow& row : key_rows()) {
    const std::optional<std::string> value = std::visit(SlotText(profile), row.slot);
    const bool is_text = std::holds_alternative<std::string Profile::*>(row.slot);
    if (!value && is_text) continue;
    if (section != row.section) {
      section = row.section;
      text += "\n[" + section + "]\n";
    }
    text += line_of(row, value);
  }
  for (const Profile::Refused& refused : profile.refused) text += "\n" + refused_text(refused);
  return text;
}

std::string write_profile(const std::string& path, const Profile& profile, const std::vector<std::string>& inputs) {
  return plc_base::write_whole_file(path, profile_text(profile), inputs);
}

}  // namespace plc_profile
