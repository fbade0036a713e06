// Undoes a file's form line by line: line ends, separators, quotes, blanks.
#include "form/file_form.h"

#include <algorithm>
#include <tuple>

#include "base/files.h"
#include "base/text.h"
#include "form/text_encoding.h"

namespace tag_check {
namespace {

constexpr size_t kLeastSeparators = 7;

// A text in which nothing of all this can be is as it should be.
bool may_be_malformed(std::string_view text) {
  if (text.find_first_of("\r\";\t|") != std::string_view::npos) return true;
  for (const std::string_view blank : {" ", "\xC2\xA0", "\xE3\x80\x80"}) {
    for (size_t at = text.find(blank); at != std::string_view::npos; at = text.find(blank, at + 1)) {
      const size_t behind = at + blank.size();
      const bool begins = at == 0 || text[at - 1] == ',';
      if (begins || behind == text.size() || text[behind] == ',' || text[behind] == '\n') return true;
    }
  }
  return false;
}

std::string_view without_returns(std::string_view line) {
  while (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

// Whether a line with carriage returns in it is several records.
bool are_records(std::string_view line) {
  for (;;) {
    const size_t end = line.find('\r');
    const std::string_view piece = line.substr(0, end);
    const auto separators = std::count(piece.begin(), piece.end(), separator_of(piece));
    if (!piece.empty() && separators < static_cast<std::ptrdiff_t>(kLeastSeparators)) return false;
    if (end == std::string_view::npos) return true;
    line.remove_prefix(end + 1);
  }
}

bool is_blank_ended(std::string_view text) { return without_blanks(text).size() != text.size(); }

// The first field up to this one whose blanks change what the driver reads; 0 when there is none.
size_t first_harmful_blank(const CsvLine& csv, size_t more, size_t last) {
  for (const size_t field : {size_t{1}, size_t{2}, size_t{8}, kProgramField}) {
    const size_t at = field + more;
    if (at > last || at >= csv.fields.size() || !is_blank_ended(csv.fields[at].text)) continue;
    const bool is_last_and_empty = at + 1 == csv.fields.size() && without_blanks(csv.fields[at].text).empty();
    if (!is_last_and_empty) return at;
  }
  return 0;
}

std::string lines_text(size_t lines) {
  return lines == 1 ? std::string() : " (" + plc_base::grouped_number(lines) + " lines)";
}

}  // namespace

FileForm::FileForm(std::string_view text) : original_(text) {
  if (plc_base::is_workbook(text)) {
    is_readable_ = false;
    findings_.push_back({"T016", 1, 1, "this is a spreadsheet's own file", {}});
    return;
  }
  const DecodedText decoded = decode_text(text);
  if (decoded.encoding != Encoding::kUtf8) {
    is_readable_ = decoded.is_whole;
    Finding finding{"T007", 1, 1, std::string("the file is ") + encoding_name(decoded.encoding) + ", not UTF-8", {}};
    if (!decoded.is_whole) finding.message += ", and its characters are not whole";
    finding.by_form = decoded.is_whole;
    finding.last_line = static_cast<uint32_t>(std::count(decoded.converted.begin(), decoded.converted.end(), '\n') + 1);
    findings_.push_back(finding);
    if (!is_readable_) return;
  } else if (decoded.has_mark) {
    findings_.push_back({"T004", 1, 1, "a byte order mark becomes part of the first name", {}});
    findings_.back().by_form = true;
  }
  is_changed_ = !findings_.empty();
  if (may_be_malformed(decoded.text())) {
    is_changed_ = true;
    programs_ = ProgramNames(decoded.text());
    undo_lines(decoded.text());
    tell_all();
  } else if (is_changed_) {
    changed_ = decoded.text();
  }
}

void FileForm::undo_lines(std::string_view text) {
  const bool has_line_feeds = text.find('\n') != std::string_view::npos;
  changed_.reserve(text.size() + 1);
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string_view whole = text.substr(at, end - at);
    const std::string_view line = without_returns(whole);
    const bool is_ended = end < text.size();
    at = end + 1;
    const bool is_split = line.find('\r') != std::string_view::npos && (!has_line_feeds || are_records(line));
    if (whole.size() > line.size() && is_ended) carriage_returns_.push_back(line_ + 1);
    const size_t from = is_split ? undo_split(line) : 0;
    ++line_;
    undo_line(line.substr(from));
    if (is_ended || (!has_line_feeds && whole.size() > line.size())) changed_ += '\n';
    if (!is_ended && !has_line_feeds && whole.size() > line.size()) meet(&returns_, 1, true);
  }
}

size_t FileForm::undo_split(std::string_view line) {
  size_t from = 0;
  for (size_t stop = line.find('\r'); stop != std::string_view::npos; stop = line.find('\r', from)) {
    ++line_;
    meet(&returns_, static_cast<uint32_t>(stop - from + 1), true);
    undo_line(line.substr(from, stop - from));
    changed_ += '\n';
    from = stop + 1;
  }
  return from;
}

void FileForm::undo_line(std::string_view line) {
  const char separator = separator_of(line);
  if (separator == ',' && !may_be_malformed(line)) {
    changed_ += line;
  } else {
    undo_fields(line, separator);
  }
}

void FileForm::undo_fields(std::string_view line, char separator) {
  const CsvLine csv = split_csv(line, separator);
  const size_t more = separator == ',' && !csv.has_quotes ? name_fields(csv) : 0;
  if (csv.is_broken) {
    meet(&broken_quotes_, static_cast<uint32_t>(line.find('"') + 1), false);
    return leave(line);
  }
  // Without quotes and other separators no field has a comma, but for those that belong to a name.
  const auto misfit = std::find_if(csv.fields.begin(), csv.fields.end(), [&](const CsvField& field) {
    return has_comma(field.text, &field == &csv.fields[0]);
  });
  if (misfit != csv.fields.end()) {
    meet(&commas_, static_cast<uint32_t>(misfit->at + 1), false);
    return leave(line);
  }
  // A device counts with its blanks. The name has a rule for those around it.
  const size_t last = kProgramField + more - (keeps_program(csv, kProgramField + more) ? 1 : 0);
  const size_t blank = first_harmful_blank(csv, more, last);
  if (separator != ',') {
    if (separators_.lines == 0) separator_ = separator;
    meet(&separators_, static_cast<uint32_t>(line.find(separator) + 1), true);
  }
  if (csv.has_quotes) meet(&quotes_, static_cast<uint32_t>(line.find('"') + 1), true);
  if (blank > 0) {
    meet(&blanks_, static_cast<uint32_t>(csv.fields[blank].at + 1), true);
    append_fields(csv, last);
  } else if (separator == ',' && !csv.has_quotes) {
    changed_ += line;
  } else {
    append_fields(csv, 0);
  }
}

// Without its blanks the program would be another one of the file.
bool FileForm::keeps_program(const CsvLine& csv, size_t program) {
  if (program >= csv.fields.size() || !is_blank_ended(csv.fields[program].text)) return false;
  const std::string other = programs_.other_than(csv.fields[program].text);
  if (other.empty()) return false;
  if (kept_programs_.lines == 0) {
    kept_text_ = "only blanks tell the program " + plc_base::quoted(csv.fields[program].text) + " from " +
                 plc_base::quoted(other) + ": remove them by hand if both are one program";
  }
  meet(&kept_programs_, static_cast<uint32_t>(csv.fields[program].at + 1), false);
  return true;
}

void FileForm::append_fields(const CsvLine& csv, size_t last_stripped) {
  const size_t start = changed_.size();
  for (const CsvField& field : csv.fields) {
    const auto number = static_cast<size_t>(&field - csv.fields.data());
    std::string_view text = field.text;
    if (number > 0 && number <= last_stripped) text = without_blanks(text);
    if (number > 0) changed_ += ',';
    const auto column = static_cast<uint32_t>(changed_.size() - start + 1);
    const auto original = static_cast<uint32_t>(field.at + static_cast<size_t>(text.data() - field.text.data()) + 1);
    if (column != original) shifts_.push_back({line_, column, original});
    changed_ += text;
  }
}

void FileForm::leave(std::string_view line) {
  left_.push_back(line_);
  changed_ += line;
}

void FileForm::meet(Cause* cause, uint32_t column, bool is_undone) {
  if (cause->lines++ == 0) {
    cause->first_line = line_;
    cause->column = column;
  }
  cause->last_line = line_;
  cause->is_undone = is_undone;
}

void FileForm::tell(const char* rule, std::string message, const Cause& cause) {
  if (cause.lines == 0) return;
  Finding finding{rule, cause.first_line, cause.column, std::move(message) + lines_text(cause.lines), {}};
  finding.last_line = cause.last_line;
  finding.by_form = cause.is_undone;
  findings_.push_back(std::move(finding));
}

void FileForm::tell_all() {
  tell("T008", std::string("the fields are separated by ") + separator_name(separator_) + ", not by commas",
       separators_);
  tell("T009", "fields are in quotes, which the driver takes for part of them", quotes_);
  tell("T009", "a quote has no end, or text stands behind it", broken_quotes_);
  tell("T012", "lines end in a carriage return only", returns_);
  tell("T014", "a field contains a comma, which begins the next column", commas_);
  tell("T015", "blanks around a field are part of it", blanks_);
  tell("T015", kept_text_, kept_programs_);
  if (kept_programs_.lines > 0) findings_.back().has_remedy = true;
}

bool FileForm::is_left(uint32_t line) const { return std::binary_search(left_.begin(), left_.end(), line); }

bool FileForm::had_carriage_return(uint32_t line) const {
  return std::binary_search(carriage_returns_.begin(), carriage_returns_.end(), line);
}

uint32_t FileForm::original_column(uint32_t line, uint32_t column) const {
  const auto behind = std::upper_bound(
      shifts_.begin(), shifts_.end(), std::tie(line, column),
      [](const auto& wanted, const Shift& shift) { return wanted < std::tie(shift.line, shift.column); });
  if (behind == shifts_.begin() || std::prev(behind)->line != line) return column;
  return std::prev(behind)->original + (column - std::prev(behind)->column);
}

}  // namespace tag_check
