// Checks of the columns behind the declaration: ids, scope, device, and what one transfer can take.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <iterator>

#include "base/text.h"
#include "checker.h"
#include "plc_driver/tags/tag_file.h"

namespace tag_check {
namespace {

constexpr const char* kDevices[] = {"EM", "MR", "LR", "DM", "TM", "FM", "CM", "ZF"};

using plc_base::quoted;

bool is_digit(char sign) { return sign >= '0' && sign <= '9'; }

bool are_optional_columns_empty(const SourceLine& line) {
  return line.column(12).present && line.column(9).text.empty() && line.column(10).text.empty() &&
         line.column(11).text.empty();
}

void check_id(const SourceLine& line, Findings* findings) {
  const Column& id = line.column(8);
  int64_t number = 0;
  if (line.trimmed(8).empty()) return;  // check_numbers has a rule for it
  if (!parse_number(line.trimmed(8), &number) || number < 0) {
    const bool is_formatted =
        line.trimmed(8).find_first_of(".eE'") != std::string_view::npos && is_digit(line.trimmed(8)[0]);
    add_finding("T061", line, id,
                quoted(line.trimmed(8)) + " is not an id" + (is_formatted ? ": a spreadsheet has formatted it" : ""),
                findings);
    return;
  }
  const bool meant_indexed = number >= plc::kFirstIndexedId;
  if (!meant_indexed || line.indexed) return;
  const bool has_device = line.column(13).present;
  Finding& finding = add_finding(has_device ? "T063" : "T062", line, id,
                                 has_device ? "column 13 makes this a plain record: an indexed line ends with column 12"
                                            : "the line is a plain record: an indexed line has exactly 12 columns",
                                 findings);
  // A spreadsheet gives every row as many columns as the longest one has.
  const Column& device = line.column(13);
  const std::string_view rest = has_device ? line.text.substr(device.offset - line.offset) : std::string_view();
  if (has_device && rest.find_first_not_of(", ") == std::string_view::npos) {
    finding.edits = {{device.offset - 1, rest.size() + 1, ""}};
  }
}

void check_extra(const SourceLine& line, Findings* findings) {
  Finding& finding = add_finding("T066", line, line.extra, "the driver knows no column 14", findings);
  const std::string_view rest = line.text.substr(line.extra.offset - line.offset);
  if (rest.find_first_not_of(", ") == std::string_view::npos) {
    finding.edits = {{line.extra.offset - 1, rest.size() + 1, ""}};
  }
}

// What a spreadsheet makes TRUE and FALSE of; empty for anything else.
std::string_view flag_meant(std::string_view text) {
  std::string upper(text);
  for (char& sign : upper) sign = static_cast<char>(std::toupper(static_cast<unsigned char>(sign)));
  if (upper == "TRUE") return "1";
  return upper == "FALSE" ? "0" : "";
}

void check_flag(const SourceLine& line, Findings* findings) {
  const std::string_view flag = line.trimmed(9);
  if (!line.column(9).present || flag == "0" || flag == "1" || are_optional_columns_empty(line)) return;
  Finding& finding = add_finding("T070", line, line.column(9), quoted(flag) + " is neither 0 nor 1", findings);
  if (flag_meant(flag).empty()) return;
  for (const uint32_t number : {9U, 10U}) {
    const std::string meant(flag_meant(line.trimmed(number)));
    const Column& column = line.column(number);
    if (!meant.empty()) finding.edits.push_back({column.offset, column.text.size(), meant});
  }
}

}  // namespace

void check_layout(const SourceLine& line, Findings* findings) {
  if (!line.column(8).present) {
    add_finding("T060", line, line.column(1), "the line has fewer than eight columns", findings);
    return;
  }
  check_id(line, findings);
  if (are_optional_columns_empty(line)) {
    Finding& finding = add_finding("T065", line, line.column(9),
                                   "columns 9 to 11 are empty: the line's id loses its last digit", findings);
    finding.edits = {
        {line.column(9).offset, 0, "0"}, {line.column(10).offset, 0, "0"}, {line.column(11).offset, 0, "0"}};
  }
  if (line.extra.present) check_extra(line, findings);
  constexpr uint32_t kLastAddressable = 0xFFFF;
  if (!line.indexed && line.record > kLastAddressable) {
    add_finding("T067", line, line.column(1), "record " + std::to_string(line.record) + " cannot be addressed",
                findings);
  }
}

void check_scope(const SourceLine& line, Findings* findings) {
  const std::string_view flag = line.trimmed(9);
  const Column& scope = line.column(12);
  check_flag(line, findings);
  const bool is_meant_global = flag_meant(flag) == "1";
  if (line.column(8).present && line.entry.is_global != 1 && !is_meant_global && line.trimmed(12).empty()) {
    add_finding("T071", line, scope, "a local variable without the name of its program", findings);
  }
  if (line.entry.is_global == 1 && !line.trimmed(12).empty()) {
    add_finding("T072", line, scope, "a global variable has no program", findings);
  }
  int64_t number = 0;
  const std::string_view program = line.trimmed(11);
  if (!program.empty() && (!parse_number(program, &number) || number < 0 || number > 255)) {
    add_finding("T074", line, line.column(11), quoted(program) + " is not a program number from 0 to 255", findings);
  }
}

void check_device(const SourceLine& line, Findings* findings) {
  const Column& device = line.column(13);
  const std::string_view text = line.trimmed(13);
  if (!device.present || text.empty()) return;
  bool known = false;
  for (const char* name : kDevices) known = known || text.find(name) != std::string_view::npos;
  constexpr uint8_t kNoDevice = 30;
  if (!known) {
    add_finding("T080", line, device, quoted(text) + " names no device memory", findings);
  } else if (line.entry.device_kind == kNoDevice) {
    add_finding("T081", line, device, "a device column of two characters counts only as the line's last", findings);
  }
}

void check_limits(const SourceLine& line, Findings* findings) {
  constexpr int64_t kBits = 64;
  constexpr int64_t kBytesForNames = 4096 - 24;
  constexpr uint16_t kWidthless[] = {0xCC, 0xCD, 0xCE, 0xCF, 0xD5};  // times, dates, STRING2
  constexpr size_t kSubscriptChars = 8;
  const int64_t elements = element_count(line.entry);
  if (line.entry.bit_width == 1 && elements > kBits) {
    add_finding("T090", line, line.column(3), "one read takes 64 BOOLs at most", findings);
  }
  if (line.entry.bit_width == 8) {
    add_finding("T091", line, line.column(2), "8-bit variables cannot be read, and are written as bits", findings);
  }
  if (std::find(std::begin(kWidthless), std::end(kWidthless), line.entry.type_code) != std::end(kWidthless)) {
    add_finding("T094", line, line.column(2), "a value of this type is read up to its first zero byte only", findings);
  }
  const auto name_bytes = static_cast<int64_t>(2 + 2 * (strlen(line.entry.name) + kSubscriptChars));
  if (line.entry.bit_width > 1 && elements > 1 && elements * name_bytes > kBytesForNames) {
    add_finding("T092", line, line.column(3), "the array is too long for one read", findings);
  }
  const bool batches = line.entry.bit_width > 1 && line.entry.shape == PLC_ARRAY1;
  if (batches && elements >= 35 && elements <= 100 && elements % (elements / 35 + 1) != 0) {
    add_finding("T093", line, line.column(3),
                "a batch of all " + std::to_string(elements) + " elements, if they do not merge, leaves some unread",
                findings);
  }
}

}  // namespace tag_check
