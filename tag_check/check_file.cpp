// Checks of the file as a whole: its name, its ends, and the pieces that the driver drops.
#include <algorithm>
#include <cctype>
#include <cstdio>

#include "base/text.h"
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

std::string address_text(uint32_t address) {
  char text[9];
  std::snprintf(text, sizeof text, "%X", address);
  return text;
}

// The name as the driver writes it; empty where more than the case of letters differs.
std::string name_in_its_case(const std::string& name) {
  std::string meant = name;
  const size_t dot = name.find('.');
  for (size_t at = 0; at < name.size(); ++at) {
    const auto sign = static_cast<unsigned char>(name[at]);
    meant[at] = static_cast<char>(at < dot ? std::toupper(sign) : std::tolower(sign));
  }
  std::string address;
  return is_tag_file_name(meant, &address) ? meant : "";
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
      return "the last line has no trailing newline: the driver ignores it";
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
    std::string wanted =
        options.has_address ? "it asks for PLC" + address_text(options.address) + "_0.csv and the like" : "";
    const std::string meant = name_in_its_case(name);
    if (!meant.empty()) wanted = "the case of letters counts, as in " + meant;
    if (!wanted.empty()) wanted = ": " + wanted;
    findings->push_back(
        {"T010", 1, 1, "the driver does not find a file of the name " + plc_base::quoted(name) + wanted, {}});
    return;
  }
  const std::string wanted = address_text(options.address);
  if (options.has_address && address != wanted) {
    findings->push_back({"T011", 1, 1, "the name has address " + address + ", the controller has " + wanted, {}});
  }
}

void check_pieces(const SourceFile& file, Findings* findings) {
  for (const DroppedPiece& piece : file.dropped) {
    Finding finding = {reason_rule(piece.reason), piece.number, 1, reason_text(piece), {}};
    if (piece.reason == DroppedPiece::Reason::kNoLineEnd) finding.edits = {{file.text.size(), 0, "\n"}};
    findings->push_back(finding);
  }
  const bool has_variable = std::any_of(file.lines.begin(), file.lines.end(), [](const SourceLine& line) {
    return line.kind != LineKind::kEmpty && line.kind != LineKind::kHeading;
  });
  if (has_variable) return;
  findings->push_back(
      {"T006", 1, 1, file.lines.empty() ? "the file has no record" : "no line of the file declares a variable", {}});
}

void check_line_ends(const FileForm& form, const SourceFile& file, Findings* findings) {
  if (form.carriage_returns() == 0) return;
  Finding finding{"T013", form.first_carriage_return(), 1, "lines end in a carriage return and a line feed", {}};
  finding.last_line = form.last_carriage_return();
  if (form.carriage_returns() < form.lines()) {
    finding.message = plc_base::grouped_number(form.carriage_returns()) + " of " +
                      plc_base::grouped_number(form.lines()) + " lines end in a carriage return and a line feed";
  }
  size_t harmed = 0;
  for (const SourceLine& line : file.lines) {
    const bool is_harmed = line.kind == LineKind::kRecord && line.entry.is_global != 1 && !line.column(13).present &&
                           !line.trimmed(12).empty() && form.had_carriage_return(line.number);
    if (!is_harmed) continue;
    if (harmed++ == 0) {
      finding.rule = "T073";
      finding.line = line.number;
      finding.column = line.column(12).column;
      finding.message = "the program's name ends in a carriage return";
    }
    finding.last_line = line.number;
  }
  if (harmed > 1) finding.message += " (" + plc_base::grouped_number(harmed) + " lines)";
  finding.by_form = true;
  findings->push_back(std::move(finding));
}

}  // namespace tag_check
