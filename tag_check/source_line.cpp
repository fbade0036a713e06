// A tag file's text as its writer sees it, split by the driver's own line reader and parsed by its own parser.
#include "source_line.h"

#include <algorithm>
#include <cstddef>

#include "plc_driver/tags/line_reader.h"
#include "plc_driver/tags/tag_file.h"

namespace tag_check {
namespace {

constexpr size_t kPieceBytes = 255;

Column field_of(const plc::TagLine& line, const SourceLine& source, uint32_t field) {
  const uint32_t start = field == 0 ? 0 : line.commas[field - 1] + 1;
  const size_t end = field < line.comma_count ? line.commas[field] : source.text.size();
  Column column;
  column.present = true;
  column.column = start + 1;
  column.offset = source.offset + start;
  if (end > start) column.text = source.text.substr(start, end - start);
  return column;
}

bool holds(std::string_view text, char c) { return text.find(c) != std::string_view::npos; }

// How many fields make up the name, as the driver joins them.
void count_name_parts(const plc::TagLine& line, SourceLine* source) {
  const std::string_view first = field_of(line, *source, 0).text;
  if (!holds(first, '[') || holds(first, ']') || source->fields < 2) return;
  const bool two = holds(field_of(line, *source, 1).text, ']');
  source->name_parts = two || source->fields < 3 ? 2 : 3;
  source->name_closed = two || (source->fields >= 3 && holds(field_of(line, *source, 2).text, ']'));
}

void split_columns(const plc::TagLine& line, SourceLine* source) {
  source->fields = line.comma_count + 1;
  count_name_parts(line, source);
  source->columns[1] = field_of(line, *source, 0);
  if (source->name_parts > 1) {
    const Column last = field_of(line, *source, source->name_parts - 1);
    source->columns[1].text = source->text.substr(0, last.offset + last.text.size() - source->offset);
  }
  for (uint32_t number = 2; number <= kColumns; ++number) {
    const uint32_t field = number + source->name_parts - 2;
    if (field < source->fields) source->columns[number] = field_of(line, *source, field);
  }
  const uint32_t behind = kColumns + source->name_parts - 1;
  if (behind < source->fields) source->extra = field_of(line, *source, behind);
}

SourceLine make_line(const plc::TagLine& line, std::string_view text, uint32_t number) {
  SourceLine source;
  source.number = number;
  source.offset = static_cast<size_t>(line.text - text.data());
  source.text = text.substr(source.offset, line.length - 1);
  split_columns(line, &source);
  uint32_t id = 0;
  source.indexed = plc::classify_tag_line(line, &id) && id >= plc::kFirstIndexedId;
  source.class_id = source.indexed ? id : 0;
  plc::parse_tag_line(line, &source.entry);
  return source;
}

// What lies between two accepted lines was dropped, for one reason or another.
void note_dropped(std::string_view text, size_t from, size_t to, SourceFile* file, uint32_t* number) {
  while (from < to) {
    const size_t limit = to - from < kPieceBytes ? to - from : kPieceBytes;
    const size_t line_feed = text.substr(from, limit).find('\n');
    const bool ended = line_feed != std::string_view::npos;
    const size_t length = ended ? line_feed + 1 : limit;
    DroppedPiece piece{*number, from, length, DroppedPiece::Reason::kTooLong};
    if (ended) {
      piece.reason = DroppedPiece::Reason::kZeroByte;
      ++*number;
    } else if (from + length == text.size()) {
      piece.reason = DroppedPiece::Reason::kNoLineEnd;
    }
    file->dropped.push_back(piece);
    from += length;
  }
}

}  // namespace

std::string_view trim(std::string_view text) {
  constexpr const char* kAroundFields = " \t\r";
  const size_t first = text.find_first_not_of(kAroundFields);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kAroundFields) - first + 1);
}

std::string_view SourceLine::trimmed(uint32_t number_from_1) const { return trim(columns[number_from_1].text); }

SourceFile read_source(std::string_view text) {
  SourceFile file;
  file.text = text;
  // A line takes a kilobyte, and moving many of them time; a wrong file may have any number.
  constexpr std::ptrdiff_t kMostReserved = 70000;
  file.lines.reserve(static_cast<size_t>(std::min(std::count(text.begin(), text.end(), '\n'), kMostReserved)));
  plc::LineReader reader(text.data(), text.size());
  plc::TagLine line;
  size_t end = 0;
  uint32_t number = 1;
  uint32_t records = 0;
  while (reader.next(&line)) {
    note_dropped(text, end, static_cast<size_t>(line.text - text.data()), &file, &number);
    file.lines.push_back(make_line(line, text, reader.number));
    if (!file.lines.back().indexed) file.lines.back().record = records++;
    number = reader.number + 1;
    end = static_cast<size_t>(reader.at - text.data());
  }
  note_dropped(text, end, text.size(), &file, &number);
  return file;
}

}  // namespace tag_check
