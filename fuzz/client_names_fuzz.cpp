// What programs hand to plc_client::Controller: names with subscripts, patterns of names, values to be written; and the
// values that they take from it.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "base/utf8.h"
#include "client/client_error.h"
#include "client/controller/input_value.h"
#include "client/controller/tag_areas.h"
#include "client/controller/value_access.h"
#include "client/tags/name_pattern.h"
#include "client/values/value_type.h"
#include "fuzz_input.h"
#include "judge.h"
#include "memory_files.h"
#include "plc_driver/tags/tag_file.h"
#include "spelling.h"

namespace {

using fuzz::demand;
using plc_client::FoundVariable;
using plc_client::Input;
using plc_client::Kind;
using plc_client::TagAreas;
using plc_client::Value;

// Two areas: their indexed ids lie in blocks of their own.
constexpr const char* kTags[] = {
    "D,INT,,,a,b,c,0,1,0,0,,DM1\nH,INT,,,a,b,c,0,1,0,0,,\nQ,LINT,[0..9],,a,b,c,1,1,0,0,,DM1\nG,UINT,[0..2_1..3],,a,b,c,"
    "1,1,0,0,,DM1\n"
    "L,DINT,[1..3],,a,b,c,4,0,0,5,MAIN,\nS,STRING,,40,a,b,c,5,1,0,0,,\nT,DATE,,,a,b,c,6,1,0,0,,\n"
    "Motor[1].v,BOOL,,,a,b,c,8,1,0,0,,DM9\nMotor[1].w,SINT,,,a,b,c,9,1,0,0,,\nI,INT,,,,,,262144,1,0,0,\n"
    "Y\xE2\x80\xAE,WORD,,,a,b,c,9,1,0,0,,DM1\n\x1B[2J,INT,,,a,b,c,9,0,0,5,M\x1B]0;\x07,\n",
    "D,REAL,,,a,b,c,0,0,0,5,MAIN,\nH,INT,,,a,b,c,0,1,0,0,,\nE,LREAL,[0..1],,a,b,c,0,1,0,0,,\nF,ULINT,,,a,b,c,0,1,0,0,,"
    "\n"
    "B,BOOL,[0..20],,a,b,c,2,1,0,0,,MR1\nR,STRING,,4,a,b,c,5,1,0,0,,\nJ,DWORD,,,,,,270336,1,0,0,\n"
    "\xC3\xA4-o,USINT,,,a,b,c,9,1,0,0,,\n"};

constexpr const char* kWords[] = {"D",
                                  "Q",
                                  "MAIN/D",
                                  "MAIN/L",
                                  "L",
                                  "Q[3]",
                                  "Q[2..4]",
                                  "G[1,2]",
                                  "G[0..2,3]",
                                  "S",
                                  "R",
                                  "H",
                                  "T",
                                  "Motor",
                                  "Motor[1].v",
                                  "Motor[1]",
                                  "Y\xE2\x80\xAE",
                                  "\x1B[2J",
                                  "B[1..3]",
                                  "E[0]",
                                  "F",
                                  "J",
                                  "I",
                                  "[",
                                  "]",
                                  "..",
                                  "][",
                                  ",",
                                  "-",
                                  "99999999999",
                                  "*",
                                  "?",
                                  "[a-z]",
                                  "[!",
                                  "[^",
                                  "[]",
                                  "*.?",
                                  "\xC3\xA4",
                                  "\xF0\x9F\x98\x80",
                                  "\xE2\x80\xA8",
                                  "\xFF",
                                  "/",
                                  "M\x1B]0;\x07/",
                                  "motor"};

std::vector<std::unique_ptr<plc_client::TagArea>> read_areas() {
  std::vector<std::unique_ptr<plc_client::TagArea>> areas;
  plc_client::core::DriverLibrary library;
  library.build_tagtable = build_tagtable;
  for (const char* text : kTags) {
    fuzz::set_tag_file(text);
    auto area = std::make_unique<plc_client::TagArea>();
    area->area = static_cast<uint16_t>(areas.size());
    area->path = "PLC1_" + std::to_string(areas.size()) + ".csv";
    area->list = plc_client::core::load_tag_list(library, area->path);
    areas.push_back(std::move(area));
  }
  return areas;
}

void judge_refusal(const plc_client::Error& error) {
  demand(*error.what() != '\0' && fuzz::is_shown(error.what()), "a mistake is told in shown text");
}

// What the pattern says, one road after the other.
bool fits(const std::u32string& pattern, size_t at, const std::u32string& name, size_t from) {
  if (at == pattern.size()) return from == name.size();
  if (pattern[at] == U'*') {
    for (size_t end = from; end <= name.size(); ++end) {
      if (fits(pattern, at + 1, name, end)) return true;
    }
    return false;
  }
  if (from == name.size()) return false;
  if (pattern[at] == U'[') {
    size_t next = at + 1;
    const bool is_negated = next < pattern.size() && (pattern[next] == U'!' || pattern[next] == U'^');
    if (is_negated) ++next;
    const size_t end = pattern.find(U']', next + 1);
    if (end != std::u32string::npos) {
      bool is_in = false;
      while (next < end) {
        const bool is_range = next + 2 < end && pattern[next + 1] == U'-';
        const char32_t high = pattern[is_range ? next + 2 : next];
        is_in = is_in || (pattern[next] <= name[from] && name[from] <= high);
        next += is_range ? 3 : 1;
      }
      return is_in != is_negated && fits(pattern, end + 1, name, from + 1);
    }
  }
  return (pattern[at] == U'?' || pattern[at] == name[from]) && fits(pattern, at + 1, name, from + 1);
}

std::u32string characters(std::string_view text) {
  std::u32string all;
  while (!text.empty()) {
    const auto first = plc_base::first_code_point(text);
    all += first ? first->value : 0x110000 + static_cast<unsigned char>(text.front());
    text.remove_prefix(first ? first->bytes : 1);
  }
  return all;
}

void judge_pattern(const std::string& pattern, const std::string& name) {
  constexpr size_t kMostStars = 4;
  demand(plc_client::core::fits_pattern("*", name), "a star is anything");
  demand(name.find_first_of("*?[") != std::string::npos || plc_client::core::fits_pattern(name, name),
         "a pattern without signs is a name");
  if (std::count(pattern.begin(), pattern.end(), '*') > static_cast<long>(kMostStars)) return;
  demand(plc_client::core::fits_pattern(pattern, name) == fits(characters(pattern), 0, characters(name), 0),
         "a pattern means what is written of it");
}

Input number_of(fuzz::Input& input) {
  using Limits = std::numeric_limits<double>;
  const uint8_t how = input.byte();
  const auto bits = static_cast<int64_t>(static_cast<uint64_t>(input.double_word()) << how % 33U);
  switch (how / 33) {
    case 0:
      return how % 2 == 0;
    case 1:
      return -bits;
    case 2:
      return static_cast<uint64_t>(bits);
    case 3:
      return static_cast<double>(bits) / 3;
    case 4:
      return how % 3 == 0 ? 1e300 : how % 2 == 0 ? Limits::infinity() : Limits::quiet_NaN();
    case 5:
      return std::string(how % 44, static_cast<char>(bits));
    default:
      return Input::bytes(std::string(how % 44, 'x'));
  }
}

Input value_of(fuzz::Input& input, size_t depth) {
  constexpr size_t kMostItems = 12;
  const uint8_t length = depth == 0 ? uint8_t{0} : input.byte();
  if (length % 16 == 0 || length % 16 > kMostItems) return number_of(input);
  std::vector<Input> items;
  for (size_t i = 0; i < length % 16; ++i) items.push_back(depth > 1 ? value_of(input, depth - 1) : number_of(input));
  return items;
}

// As every type that a program may want: what is given is what the value has.
void judge_taking(const Value& value, size_t element) {
  try {
    const auto number = value.as<int64_t>(element);
    demand(value.kind() == Kind::kSigned || number >= 0, "only signed numbers are negative");
    const auto small = value.as<int8_t>(element);
    demand(small == number, "a number is the same in every type that holds it");
    demand(value.as<double>(element) == static_cast<double>(small), "and as double");
  } catch (const plc_client::Error& error) {
    judge_refusal(error);
  }
  try {
    demand(value.as<uint16_t>(element) == value.raw(element) % 0x10000, "the bits are the number's");
  } catch (const plc_client::Error& error) {
    judge_refusal(error);
  }
  try {
    const auto real = value.as<double>(element);
    demand(value.kind() != Kind::kReal || value.bits() != 32 || std::isnan(real) ||
               static_cast<double>(value.as<float>(element)) == real,
           "a REAL is one as double");
  } catch (const plc_client::Error& error) {
    judge_refusal(error);
  }
  try {
    demand(value.as<bool>(element) == (value.raw(element) != 0), "a BOOL is its bit");
  } catch (const plc_client::Error& error) {
    judge_refusal(error);
  }
  try {
    demand(value.as<std::string>(element).find('\0') == std::string::npos, "a text ends before a zero byte");
  } catch (const plc_client::Error& error) {
    judge_refusal(error);
  }
}

void judge_value(const FoundVariable& found, const Input& wanted, size_t element) {
  const TagEntry& entry = found.reference.tag->entry;
  Value value;
  plc_client::ValueAccess::declare(value, entry, found.reference.extents);
  judge_taking(value, element);
  demand(!value.has_value() && value.to_string().empty(), "what was not read has no value");
  try {
    const plc_client::core::TagValue bits = plc_client::value_of(found.reference, wanted);
    size_t count = 1;
    for (const size_t extent : found.reference.extents) count *= extent;
    demand(plc_client::bits_of(entry) == 0 || bits.elements.size() == count, "a value for each element");
    for (const uint64_t each : bits.elements) {
      demand(entry.bit_width >= 64 || each >> entry.bit_width == 0, "no bits beyond the type's width");
    }
    plc_client::ValueAccess::set(value, plc_client::kind_of(entry), bits);
    demand(value.has_value() && !value.to_string().empty(), "a value is shown");
    demand(value == value && fuzz::is_shown(value.to_string()), "a value is shown text");
    judge_taking(value, element);
    Value other = value;
    plc_client::ValueAccess::clear(other);
    demand(other != value && !other.has_value(), "a cleared value is none");
  } catch (const plc_client::Error& error) {
    judge_refusal(error);
  }
}

void judge_found(const TagAreas& areas, const FoundVariable& found, const std::string& name) {
  const plc_client::core::Tag& tag = *found.reference.tag;
  demand(found.area < areas.areas().size(), "a variable is in an area");
  const auto& list = areas.areas()[found.area]->list.tags;
  demand(&tag >= list.data() && &tag < list.data() + list.size(), "a variable is one of its area");
  demand(found.impossible.empty() == tag.register_id.has_value(), "what no request can ask for says why");
  demand(tag.entry.is_global == 1 || name.rfind(tag.qualified_name, 0) == 0, "a local variable goes with its program");
}

void judge_declaration(const TagAreas& areas, const std::string& name) {
  try {
    const plc_client::Declaration& declaration = areas.declaration(name);
    demand(name.size() <= declaration.name.size() + 1, "a declaration has its name");
    // The files in memory are one, the last that was read.
    demand(declaration.area == 0 || declaration.line >= 1, "a declaration has its line");
  } catch (const plc_client::UnknownVariable& error) {
    judge_refusal(error);
    demand(error.near().size() <= 5, "five near names at most");
  }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  if (freopen("/dev/null", "w", stdout) == nullptr) abort();
  return 0;
}

// How much of it is the name, then the name, a pattern behind a zero byte, and the value.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  static const TagAreas areas(read_areas());
  fuzz::Input input(bytes, length);
  std::string texts[2];
  for (std::string& text : texts) {
    for (uint8_t byte = input.byte(); byte != 0; byte = input.byte()) text += static_cast<char>(byte);
    text = fuzz::spelled(text, kWords);
  }
  const auto& [name, pattern] = texts;
  judge_pattern(pattern, name);
  if (!name.empty()) judge_declaration(areas, name);
  try {
    const FoundVariable found = areas.find(name);
    judge_found(areas, found, name);
    const size_t element = input.byte() % 13;
    if (found.impossible.empty()) judge_value(found, value_of(input, 3), element);
  } catch (const plc_client::Error& error) {
    judge_refusal(error);
  }
  return 0;
}
