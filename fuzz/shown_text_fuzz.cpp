// Text from outside on its way to a terminal, a spreadsheet and JSON: nothing hidden is left in it, nothing shown is
// lost.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>

#include "base/json_text.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "base/utf8.h"
#include "fuzz_input.h"
#include "judge.h"
#include "spelling.h"

namespace {

using fuzz::demand;

constexpr const char* kWords[] = {"\x1B[2J",
                                  "\n",
                                  "\r",
                                  "\t",
                                  "\x7F",
                                  "\xC2\x85",
                                  "\xC2\x9B",
                                  "\xC2\xAD",
                                  "\xE2\x80\xA8",
                                  "\xE2\x80\xA9",
                                  "\xE2\x80\xAE",
                                  "\xE2\x81\xA6",
                                  "\xE2\x80\x8B",
                                  "\xEF\xBB\xBF",
                                  "\xD8\x9C",
                                  "\xF3\xA0\x80\x81",
                                  "\xC3\xA4",
                                  "\xE4\xB8\xAD",
                                  "\xF0\x9F\x98\x80",
                                  "\xED\xA0\x80",
                                  "\xC0\xAF",
                                  "\xF4\x90\x80\x80",
                                  "\xF0\x9F\xBF\xBF",
                                  "=",
                                  "+",
                                  "-",
                                  "@",
                                  ";",
                                  ",",
                                  "\"",
                                  "'",
                                  " ",
                                  "\xEF\xBC\x9D",
                                  "\xEF\xBC\x8B",
                                  "\xE3\x80\x80",
                                  "\xC2\xA0",
                                  "violation: ",
                                  "\\"};

// Bytes behind a text are none of it.
void judge_ends(std::string_view text) {
  constexpr size_t kLongest = 4;
  for (size_t end = 1; end <= std::min(text.size(), kLongest); ++end) {
    const auto first = plc_base::first_code_point(text.substr(0, end));
    demand(!first || first->bytes <= end, "a character ends in its text");
  }
}

void judge_line(const std::string& text) {
  judge_ends(text);
  const std::string line = plc_base::shown_line(text);
  demand(fuzz::is_shown(line) && line.find('\n') == std::string::npos, "a shown line is one line");
  demand(plc_base::shown_line(line) == line, "a shown line stays as it is");
  demand(line == text || !fuzz::is_shown(text) || text.find('\n') != std::string::npos, "what may be shown stays");
  const std::string first = plc_base::shown_first(text);
  demand(first == line || first == '"' + line + '"', "a first text is a shown line, between quotes where it speaks");
  demand(first != line || (line.find(": ") == std::string::npos && line.find_last_of(':') + 1 != line.size()) ||
             line.empty(),
         "no first text speaks");
  const std::string lines = plc_base::shown_lines(text);
  demand(fuzz::is_shown(lines), "shown lines are shown text");
  demand(std::count(lines.begin(), lines.end(), '\n') == std::count(text.begin(), text.end(), '\n'),
         "shown lines are as many as there were");
  demand(!plc_base::is_utf8(text) || plc_base::is_utf8(line), "shown text is UTF-8");
}

void judge_json(const std::string& text) {
  const std::string shown = plc_base::json_text(nlohmann::json(text));
  demand(fuzz::is_shown(shown), "JSON is shown text");
  const auto again = nlohmann::json::parse(shown, nullptr, false);
  demand(again.is_string(), "JSON stays JSON");
  demand(!plc_base::is_utf8(text) || again.get<std::string>() == text, "JSON keeps the text");
  demand(nlohmann::json::accept(plc_base::ascii_json_line(nlohmann::json(text))), "ASCII JSON is JSON");
}

// A cell as a spreadsheet reads it.
std::string unquoted(const std::string& cell) {
  if (cell.empty() || cell.front() != '"') return cell;
  demand(cell.size() >= 2 && cell.back() == '"', "a quoted cell ends in its quote");
  std::string text;
  for (size_t i = 1; i + 1 < cell.size(); ++i) {
    text += cell[i];
    if (cell[i] == '"') demand(cell[++i] == '"' && i + 1 < cell.size(), "quotes in a cell are doubled");
  }
  return text;
}

void judge_cell(const std::string& text) {
  const std::string cell = plc_base::shown_csv_cell(text);
  demand(fuzz::is_shown(cell) && cell.find('\n') == std::string::npos, "a cell is shown text of one line");
  const std::string read = unquoted(cell);
  demand(cell.empty() || cell.front() == '"' || cell.find_first_of(",\"") == std::string::npos, "a cell is one cell");
  for (size_t at = 0; at <= read.size();) {
    const size_t start = std::min(read.find_first_not_of(' ', at), read.size());
    demand(start == read.size() || std::string("=+-@").find(read[start]) == std::string::npos, "no cell is a formula");
    const size_t end = read.find(';', at);
    if (end == std::string::npos) break;
    at = end + 1;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length) {
  fuzz::Input input(bytes, length);
  const uint32_t number = input.word();
  const std::string text = fuzz::spelled(input.text(), kWords);
  switch (number % 3) {
    case 0:
      judge_line(text);
      break;
    case 1:
      judge_cell(text);
      break;
    default:
      judge_json(text);
      break;
  }
  demand(plc_base::quoted(text).size() >= text.size() + 2, "quoted text is between quotes");
  demand(plc_base::hexadecimal(number, 4).rfind("0x", 0) == 0, "a hexadecimal number says so");
  demand((plc_base::plural(number, "byte").back() == 's') == (number != 1), "the ending is the number's");
  demand(plc_base::milliseconds_text(number, 2).find(" ms") != std::string::npos, "milliseconds say so");
  return 0;
}
