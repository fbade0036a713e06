// Checks of the file as a whole: its name, its ends, and the pieces that the driver drops.
#include <cstdio>

#include "checker.h"

namespace tag_check {
namespace {

std::string base_name(const std::string& path) { return path.substr(path.find_last_of('/') + 1); }

// "PLC", 1 to 8 upper-case hexadecimal digits without leading zeros, "_", a decimal below 65536, ".csv".
bool is_tag_file_name(const std::string& name, std::string* address) {
  const size_t separator = name.find('_');
  if (name.rfind("PLC", 0) != 0 || separator == std::string::npos) return false;
  *address = name.substr(3, separator - 3);
  if (address->empty() || address->size() > 8 || (address->size() > 1 && (*address)[0] == '0')) return false;
  if (address->find_first_not_of("0123456789ABCDEF") != std::string::npos) return false;
  const size_t dot = name.find('.', separator);
  if (dot == std::string::npos || name.substr(dot) != ".csv") return false;
  int64_t area = 0;
  const std::string digits = name.substr(separator + 1, dot - separator - 1);
  return parse_number(digits, &area) && area >= 0 && area <= 65535 && std::to_string(area) == digits;
}

const char* reason_rule(DroppedPiece::Reason reason) {
  switch (reason) {
    case DroppedPiece::Reason::kNoLineEnd:
      return "T001";
    case DroppedPiece::Reason::kTooLong:
      return "T002";
    default:
      return "T003";
  }
}

std::string reason_text(const DroppedPiece& piece) {
  switch (piece.reason) {
    case DroppedPiece::Reason::kNoLineEnd:
      return "the last line has no line end: the driver ignores it";
    case DroppedPiece::Reason::kTooLong:
      return "the line is longer than 255 bytes: the driver drops its first 255 and takes the rest for a line";
    default:
      return "the line holds a zero byte: the driver ignores it";
  }
}

}  // namespace

void check_file_name(const std::string& file_name, const CheckOptions& options, Findings* findings) {
  const std::string name = base_name(file_name);
  std::string address;
  if (!is_tag_file_name(name, &address)) {
    findings->push_back({"T010", 1, 1, "'" + name + "' is no name that the driver asks for", {}});
    return;
  }
  char wanted[9];
  std::snprintf(wanted, sizeof wanted, "%X", options.address);
  if (options.has_address && address != wanted) {
    findings->push_back({"T011", 1, 1, "the name has address " + address + ", the controller has " + wanted, {}});
  }
}

void check_pieces(const SourceFile& file, Findings* findings) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  size_t marks = 0;
  while (file.text.substr(marks, kByteOrderMark.size()) == kByteOrderMark) marks += kByteOrderMark.size();
  if (marks > 0) {
    findings->push_back({"T004", 1, 1, "a byte order mark becomes part of the first name", {{0, marks, ""}}});
  }
  for (const DroppedPiece& piece : file.dropped) {
    Finding finding = {reason_rule(piece.reason), piece.number, 1, reason_text(piece), {}};
    if (piece.reason == DroppedPiece::Reason::kNoLineEnd) finding.edits = {{file.text.size(), 0, "\n"}};
    findings->push_back(finding);
  }
  for (const SourceLine& line : file.lines) {
    if (!trim(line.text).empty()) continue;
    findings->push_back({"T005", line.number, 1, "an empty line is record " + std::to_string(line.record), {}});
  }
  if (file.lines.empty()) findings->push_back({"T006", 1, 1, "the file has no record", {}});
}

}  // namespace tag_check
