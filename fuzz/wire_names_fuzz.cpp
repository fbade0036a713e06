// Names as they travel: UTF-8 and UTF-16, subscripts and their marks.
#include <string>

#include "base/utf8.h"
#include "fuzz_input.h"
#include "judge.h"
#include "spelling.h"
#include "wire/names.h"

namespace {

using fuzz::demand;

constexpr const char* kLong =
    "a123456789b123456789c123456789d123456789e123456789f123456789g123456789h123456789i123456789j123456789"
    "\xC3\xA4"
    "123456789b123456789c123456789d123456789e123456789f123456789g123456789h123456789i123456789j123456789";
constexpr const char* kWords[] = {kLong,
                                  "[#1]",
                                  "[#1,#2]",
                                  "[#-3",
                                  "[",
                                  "]",
                                  ",",
                                  "#",
                                  ".Speed",
                                  "4294967295",
                                  "99999999",
                                  "\xC3\xA4",
                                  "\xED\xA0\x80",
                                  "\xED\xB0\x80",
                                  "\xE4\xB8\xAD",
                                  "\xF0\x9F\x98\x80",
                                  "\xF4\x90\x80\x80",
                                  "[1,2]",
                                  "-"};

// Bytes of a name that are shown at most, each of them written out, and how many it has.
constexpr size_t kMostShown = size_t{512} * 8 + 32;

void judge_units(const std::string& bytes) {
  std::u16string units;
  for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
    units += static_cast<char16_t>(static_cast<uint8_t>(bytes[i]) << 8U | static_cast<uint8_t>(bytes[i + 1]));
  }
  const std::string text = plc_sim::utf8_from_utf16(units);
  const auto again = plc_sim::utf16_from_utf8(text);
  demand(!again || *again == units, "UTF-16 comes back the same");
  demand(again.has_value() == plc_base::is_utf8(text), "what is no UTF-8 is refused");
}

void judge_text(const std::string& text) {
  const auto units = plc_sim::utf16_from_utf8(text);
  demand(units.has_value() == plc_base::is_utf8(text), "what is no UTF-8 is refused");
  demand(!units || plc_sim::utf8_from_utf16(*units) == text, "UTF-8 comes back the same");

  const plc_sim::ElementName name = plc_sim::split_element_name(text);
  if (name.subscripts.empty()) {
    demand(name.base == text, "a name without subscripts stays whole");
  } else {
    const plc_sim::ElementName again =
        plc_sim::split_element_name(name.base + plc_sim::subscript_text(name.subscripts));
    demand(again.base == name.base && again.subscripts == name.subscripts, "subscripts come back the same");
  }

  const std::string shown = plc_sim::shown_name(text);
  demand(fuzz::is_shown(shown) && shown.find('\n') == std::string::npos, "a shown name is one line");
  demand(shown.find(": ") == std::string::npos, "a shown name does not speak");
  demand(shown.size() <= kMostShown, "a shown name has an end");

  const std::string marked = plc_sim::mark_subscripts(text);
  demand(plc_sim::mark_subscripts(marked) == marked, "marks are set once");
  const std::string plain = plc_sim::strip_subscript_marks(marked);
  demand(text.find('#') != std::string::npos || plain == text, "marks are taken away again");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  const bool is_wire = (input.byte() & 1U) != 0;
  const std::string rest = input.text();
  if (is_wire) {
    judge_units(rest);
  } else {
    judge_text(fuzz::spelled(rest, kWords));
  }
  return 0;
}
