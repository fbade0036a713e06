// A tag file's text as its writer sees it: lines and columns with their places, beside what the driver reads from them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "plc_driver.h"

namespace tag_check {

// A column's text and where it starts.
struct Column {
  std::string_view text;
  size_t offset = 0;    // within the file
  uint32_t column = 0;  // within the line, from 1
  bool present = false;
};

constexpr uint32_t kColumns = 13;

// What a line was written for; the driver takes each for a record.
enum class LineKind {
  kRecord,
  kEmpty,
  kHeading,
  kRest,     // of a line that is too long
  kShifted,  // a record whose columns are not where they belong
  kUnknown   // nobody can tell
};

// Why columns are not where they belong.
enum class Shift { kNone, kNameSplit, kRangesSplit, kColumnMissing, kColumnSurplus };

// A line that the driver takes as a record.
struct SourceLine {
  LineKind kind = LineKind::kRecord;
  Shift shift = Shift::kNone;
  uint32_t number = 0;
  size_t offset = 0;        // of the line within the file
  std::string_view text;    // without its line end
  uint32_t name_parts = 1;  // columns that the name takes
  bool name_closed = true;  // a joined name found its ']'
  uint32_t fields = 0;
  std::array<Column, kColumns + 1> columns;  // [1] to [13], counted as the driver counts after joining the name
  Column extra;                              // what stands behind column 13

  bool indexed = false;
  uint32_t class_id = 0;  // of an indexed line
  uint32_t record = 0;    // number among the plain records
  TagEntry entry = {};

  const Column& column(uint32_t number_from_1) const { return columns[number_from_1]; }
  // The text of a column without blanks and carriage returns at its ends.
  std::string_view trimmed(uint32_t number_from_1) const;
};

// A piece of the text that the driver drops.
struct DroppedPiece {
  enum class Reason { kTooLong, kNoLineEnd, kZeroByte };
  uint32_t number = 0;
  size_t offset = 0;
  size_t length = 0;
  Reason reason = Reason::kTooLong;
};

struct SourceFile {
  std::string_view text;
  std::vector<SourceLine> lines;
  std::vector<DroppedPiece> dropped;
};

// text outlives the result.
SourceFile read_source(std::string_view text);

// Text without blanks, tabs and carriage returns at its ends.
std::string_view trim(std::string_view text);

}  // namespace tag_check
