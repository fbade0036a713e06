// Checks of what a line declares: name, type, ranges, string length.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "base/shown_text.h"
#include "base/text.h"
#include "base/utf8.h"
#include "checker.h"
#include "form/csv_line.h"
#include "type_names.h"

namespace tag_check {
namespace {

using plc_base::quoted;

void check_encoding(const SourceLine& line, Findings* findings) {
  const Column& name = line.column(1);
  for (size_t at = 0; at < name.text.size();) {
    const auto character = plc_base::first_code_point(name.text.substr(at));
    if (!character) {
      add_finding("T023", line, name, "the name is not valid UTF-8", findings).column += static_cast<uint32_t>(at);
      return;
    }
    if (character->bytes == 4) {
      add_finding("T024", line, name, "the name has a character above U+FFFF, which is sent as another one", findings)
          .column += static_cast<uint32_t>(at);
    }
    at += character->bytes;
  }
}

std::string code_point_text(char32_t value) { return "U+" + plc_base::hexadecimal(value, 4).substr(2); }

// The first blank of this text that nobody tells from a space; empty where there is none.
std::string unusual_blank_in(std::string_view text) {
  while (!text.empty()) {
    const auto character = plc_base::first_code_point(text);
    if (!character) return {};
    if (plc_base::is_unusual_blank(text.substr(0, character->bytes))) return code_point_text(character->value);
    text.remove_prefix(character->bytes);
  }
  return {};
}

void check_blanks_around(const SourceLine& line, std::string_view inner, Findings* findings) {
  const Column& name = line.column(1);
  if (inner.size() == name.text.size() || !line.name_closed) return;
  const auto before = static_cast<size_t>(inner.data() - name.text.data());
  std::string unusual = unusual_blank_in(name.text.substr(0, before));
  if (unusual.empty()) unusual = unusual_blank_in(name.text.substr(before + inner.size()));
  std::string message = "blanks around the name are part of it";
  if (!unusual.empty()) message += ": " + unusual;
  Finding& finding = add_finding("T021", line, name, message, findings);
  finding.edits = {{name.offset, name.text.size(), std::string(inner)}};
}

bool is_edge(std::string_view text, size_t at) { return at < text.size() && text.find_first_of("[],", at) == at; }

// "Grid[1, 2]": a name is written without them.
std::vector<Edit> subscript_edits(const Column& name) {
  constexpr const char* kBlanks = " \t";
  std::vector<Edit> edits;
  for (size_t at = name.text.find('['); at < name.text.size();) {
    const size_t from = name.text.find_first_of(kBlanks, at);
    if (from == std::string_view::npos) break;
    at = std::min(name.text.find_first_not_of(kBlanks, from), name.text.size());
    const size_t close = name.text.find(']', from);
    const bool is_inside = close != std::string_view::npos && name.text.find('[', from) >= close;
    if (!is_inside || !(is_edge(name.text, from - 1) || is_edge(name.text, at))) continue;
    edits.push_back({name.offset + from, at - from, ""});
  }
  return edits;
}

void check_blanks_in_subscripts(const SourceLine& line, Findings* findings) {
  const std::vector<Edit> edits = subscript_edits(line.column(1));
  if (edits.empty()) return;
  add_finding("T021", line, line.column(1), "blanks within the subscripts are part of the name", findings).edits =
      edits;
}

// What nearly every name is made of.
bool is_plain(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char sign) { return sign >= ' ' && sign <= '~'; });
}

void check_unseen(const SourceLine& line, uint32_t number, const char* what, Findings* findings) {
  const Column& column = line.column(number);
  if (is_plain(column.text)) return;
  // A name has a rule for the blanks around it.
  const std::string_view text = number == 1 ? without_blanks(column.text) : line.trimmed(number);
  for (size_t at = 0; at < text.size();) {
    const auto character = plc_base::first_code_point(text.substr(at));
    const auto place = static_cast<size_t>(text.data() - column.text.data()) + at;
    const bool is_hidden = character && plc_base::is_hidden(character->value);
    if (is_hidden || (character && plc_base::is_unusual_blank(text.substr(at, character->bytes)))) {
      add_finding("T028", line, column,
                  std::string(what) + " holds " + code_point_text(character->value) +
                      (is_hidden ? ", which is not seen" : ", which looks like a space"),
                  findings)
          .column += static_cast<uint32_t>(place);
      return;
    }
    at += character ? character->bytes : 1;
  }
}

// One range's bounds, as the driver numbers them.
struct Range {
  int32_t low;
  int32_t high;
};

std::vector<Range> declared_ranges(const TagEntry& entry) {
  switch (entry.shape) {
    case PLC_ARRAY1:
      return {{entry.dim1_low, entry.dim1_high}};
    case PLC_ARRAY2:
      return {{entry.dim2_low, entry.dim2_high}, {entry.dim1_low, entry.dim1_high}};
    case PLC_ARRAY3:
      return {{entry.dim3_low, entry.dim3_high}, {entry.dim2_low, entry.dim2_high}, {entry.dim1_low, entry.dim1_high}};
    default:
      return {};
  }
}

// The ranges column written again from what the driver read; equal only when the driver read all of it.
std::string rewritten(const std::vector<Range>& ranges) {
  std::string text = "[";
  for (size_t i = 0; i < ranges.size(); ++i) {
    text += (i > 0 ? "_" : "") + std::to_string(ranges[i].low) + ".." + std::to_string(ranges[i].high);
  }
  return text + "]";
}

void check_bounds(const SourceLine& line, const std::vector<Range>& ranges, Findings* findings) {
  const Column& column = line.column(3);
  bool has_low = false;
  for (const Range& range : ranges) {
    if (range.low < 0) add_finding("T034", line, column, "a bound is negative", findings);
    if (int64_t{range.high} + 1 == range.low) {
      add_finding("T033", line, column, "a range has no element: every transfer of the variable fails", findings);
    } else if (range.high < range.low) {
      add_finding("T032", line, column, "a range ends before it begins", findings);
    }
    has_low = has_low || range.low != 0;
  }
  const bool uneven = ranges.size() > 1 && has_low;
  if (has_low && ranges.size() == 1) {
    add_finding("T035", line, column,
                "element offsets are subscripts: offset " + std::to_string(ranges[0].low) + " is the first element",
                findings);
  }
  if (uneven) {
    add_finding("T036", line, column, "with lower bounds other than 0, reads and writes name different elements",
                findings);
  }
}

// "#NAME?", "#DIV/0!", "Err:508", and what German spreadsheets show: a name that begins with a sign of formulas became
// one.
bool is_spreadsheet_error(std::string_view text) {
  for (const std::string_view error : {"#NAME?", "#REF!", "#VALUE!", "#DIV/0!", "#N/A", "#NUM!", "#NULL!", "#BEZUG!",
                                       "#WERT!", "#NV", "#ZAHL!", "#\u00DCBERLAUF!"}) {
    if (text == error) return true;
  }
  return text.substr(0, 4) == "Err:" && text.find_first_not_of("0123456789", 4) == std::string_view::npos;
}

// A type with its ranges or its length, which have columns of their own.
void correct_declared(const SourceLine& line, Finding* finding) {
  const auto declared = declared_type(line.column(2).text);
  if (!declared) return;
  const bool has_length = !declared->length.empty();
  const std::string& within = has_length ? declared->length : declared->ranges;
  const Column& own = line.column(has_length ? 4 : 3);
  const std::string beside = has_length ? std::string(trim(own.text)) : ranges_of(own.text);
  if (!beside.empty() && beside != within) {
    finding->rule = "T044";
    finding->message = has_length ? "two lengths: " : "two ranges: ";
    finding->message.append(within).append(" in the type and ").append(beside).append(" beside it");
    return;
  }
  finding->message = quoted(line.column(2).text) + " is not a type: " +
                     (has_length ? "the length of a STRING stands in column 4" : "ranges stand in column 3");
  if (!is_type(declared->type) || !own.present || !line.column(5).present) return;
  finding->edits = {{line.column(2).offset, line.column(2).text.size(), declared->type}};
  if (beside.empty()) finding->edits.push_back({own.offset, 0, within});
}

// SCOPE/NAME, as plc-host writes it.
bool names_program(std::string_view name) {
  const size_t slash = name.find('/');
  return slash != std::string_view::npos && slash > 0 && slash + 1 < name.size();
}

bool has_declared_length(const SourceLine& line) {
  const auto declared = declared_type(line.column(2).text);
  return declared && !declared->length.empty();
}

}  // namespace

std::string meant_name(const SourceLine& line) {
  const Column& name = line.column(1);
  std::string meant(name.text);
  const std::vector<Edit> edits = subscript_edits(name);
  for (auto edit = edits.rbegin(); edit != edits.rend(); ++edit) meant.erase(edit->offset - name.offset, edit->length);
  return std::string(without_blanks(meant));
}

void check_name(const SourceLine& line, Findings* findings) {
  const Column& name = line.column(1);
  const std::string_view inner = without_blanks(name.text);
  if (inner.empty()) {
    add_finding("T020", line, name, "the line has no name", findings);
    return;
  }
  check_blanks_around(line, inner, findings);
  check_blanks_in_subscripts(line, findings);
  const auto brackets = [&](char c) { return std::count(name.text.begin(), name.text.end(), c); };
  if (!line.name_closed || brackets('[') != brackets(']')) {
    add_finding("T022", line, name, "the brackets of the name do not pair up", findings);
  }
  check_encoding(line, findings);
  check_unseen(line, 1, "the name", findings);
  check_unseen(line, 12, "the program's name", findings);
  if (is_spreadsheet_error(name.text)) {
    add_finding("T029", line, name, quoted(name.text) + " is what a spreadsheet shows for a formula that failed",
                findings);
  } else if (names_program(inner)) {
    add_finding("T075", line, name, quoted(inner) + " names a program", findings);
  }
  if (plc_base::is_formula(name.text)) {
    add_finding("T076", line, name, "a spreadsheet takes " + quoted(inner) + " for a formula", findings);
  }
  if (name.text.find('"') != std::string_view::npos) {
    add_finding("T025", line, name, "quotes are part of the name: fields cannot be quoted", findings);
  }
  if (name.text.find('%') != std::string_view::npos) {
    add_finding("T026", line, name, "the name holds a percent sign", findings);
  }
  const size_t marked = name.text.size() + static_cast<size_t>(brackets('[')) + line.name_parts - 1;
  if (marked > PLC_NAME_BYTES - 1) {
    add_finding("T027", line, name, "with its subscript marks the name is longer than 255 bytes and is cut", findings);
  }
}

void check_type(const SourceLine& line, Findings* findings) {
  const Column& type = line.column(2);
  if (!type.present || is_type(type.text)) return;
  if (trim(type.text).empty()) {
    add_finding("T040", line, type, "the line has no type", findings);
    return;
  }
  const MeantType meant = meant_type(type.text);
  std::string message = quoted(type.text) + " is not a type";
  if (!meant.hint.empty()) message += ": " + meant.hint;
  Finding& finding = add_finding(meant.is_spelled ? "T042" : "T041", line, type, message, findings);
  if (!meant.type.empty()) finding.edits = {{type.offset, type.text.size(), meant.type}};
  if (!meant.is_known) correct_declared(line, &finding);
}

void check_ranges(const SourceLine& line, Findings* findings) {
  const Column& column = line.column(3);
  if (column.text.empty()) return;
  if (std::count(column.text.begin(), column.text.end(), '_') > 2) {
    add_finding("T031", line, column, "more than three ranges: the driver takes the first for all", findings);
    return;
  }
  if (line.entry.shape == PLC_STRING) return;  // check_string_length has a rule for it
  const std::vector<Range> ranges = declared_ranges(line.entry);
  if (ranges.empty() || rewritten(ranges) != column.text) {
    Finding& finding =
        add_finding("T030", line, column,
                    quoted(column.text) + " is not of the form [0..9], [0..9_0..4] or [0..9_0..4_0..2]", findings);
    const std::string meant = ranges_of(column.text);
    if (meant != column.text) finding.edits = {{column.offset, column.text.size(), meant}};
    return;
  }
  check_bounds(line, ranges, findings);
}

void check_string_length(const SourceLine& line, Findings* findings) {
  constexpr int64_t kAddressable = 1024;
  const Column& length = line.column(4);
  if (line.column(2).text != "STRING") {
    // What is no type may be meant as a STRING, or as a type whose length is lost on the way.
    if (is_type(line.column(2).text) && !trim(length.text).empty() && !has_declared_length(line)) {
      Finding& finding = add_finding("T051", line, length, "only a STRING has a length", findings);
      finding.edits = {{length.offset, length.text.size(), ""}};
    }
    return;
  }
  if (trim(length.text).empty()) {
    add_finding("T050", line, line.column(2), "a STRING without a length is written as a bit", findings);
    return;
  }
  int64_t number = 0;
  if (!parse_number(trim(length.text), &number) || number <= 0 || length.text.size() > 7) {
    add_finding("T052", line, length, quoted(length.text) + " is not a length", findings);
  } else if (number > kAddressable + 2) {
    add_finding("T053", line, length, "reads cannot begin beyond character 1024", findings);
  }
  if (!line.column(3).text.empty()) {
    add_finding("T054", line, line.column(3), "a STRING has no ranges: the driver forgets them", findings);
  }
}

}  // namespace tag_check
