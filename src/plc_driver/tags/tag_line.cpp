// One line of a tag file -> one record. Fields end at commas; nothing is quoted.
#include "plc_driver/tags/tag_line.h"

#include <cstring>

#include "plc_driver/tags/data_types.h"
#include "plc_driver/tags/decimal.h"
#include "plc_driver/text/utf16.h"

namespace plc {
namespace {

constexpr uint32_t kTypeLimitBytes = 99;
constexpr uint32_t kRangeLimitBytes = 99;
constexpr uint32_t kStringLengthLimitBytes = 7;
constexpr uint32_t kDeviceLimitBytes = 23;
constexpr uint32_t kDeviceLeastBytes = 3;
constexpr uint8_t kNoDevice = 30;

struct Text {
  const char* bytes;
  uint32_t length;

  bool empty() const { return length == 0; }
  bool holds(char c) const { return memchr(bytes, c, length) != nullptr; }
  Text first(uint32_t limit) const { return {bytes, length < limit ? length : limit}; }
};

// The fields of a line, one after the other.
struct FieldReader {
  const TagLine* line;
  uint32_t field = 0;
  uint32_t start = 0;

  // The next field that a comma ends; false, and nothing is taken, when there is none.
  bool next_ended(Text* out) {
    if (field >= line->comma_count) return false;
    const uint32_t comma = line->commas[field++];
    *out = {line->text + start, comma - start};
    start = comma + 1;
    return true;
  }

  // The next field, also the line's last one, which no comma ends.
  bool next(Text* out) {
    if (next_ended(out)) return true;
    if (field > line->comma_count) return false;
    *out = {line->text + start, line->length - start};
    ++field;
    return true;
  }
};

// Builds the name field; stays within it.
struct NameWriter {
  char* out;
  uint32_t length = 0;
  bool cut = false;

  void put(char c) {
    if (length < PLC_NAME_BYTES - 1) {
      out[length++] = c;
    } else {
      cut = true;
    }
  }

  void put_marks(uint32_t count) {
    for (; count > 0; --count) put('#');
  }

  // Copies the text with a '#' after each '[' from this place on. Returns how many there were.
  uint32_t put_marked(Text text, uint32_t first_marked) {
    if (!text.holds('[') && text.length < PLC_NAME_BYTES - length) {
      memcpy(out + length, text.bytes, text.length);
      length += text.length;
      return 0;
    }
    uint32_t brackets = 0;
    for (uint32_t i = 0; i < text.length; ++i) {
      put(text.bytes[i]);
      if (text.bytes[i] == '[' && i >= first_marked) {
        put('#');
        ++brackets;
      }
    }
    return brackets;
  }

  // Drops a last character that lost some of its bytes.
  void finish() {
    if (cut) {
      uint32_t whole = 0;
      uint32_t next = utf8_sequence_length(static_cast<uint8_t>(out[0]));
      while (next <= length) {
        whole = next;
        next += utf8_sequence_length(static_cast<uint8_t>(out[whole]));
      }
      memset(out + whole, 0, length - whole);
    }
  }
};

// Column 1, joined with the one or two columns after it when commas split its subscripts. False when the line ends
// before the name does; the name is then empty.
bool read_name(FieldReader* fields, TagEntry* entry) {
  Text parts[3] = {};
  if (!fields->next_ended(&parts[0])) return false;
  const bool joined = parts[0].holds('[') && !parts[0].holds(']');
  bool three = false;
  if (joined) {
    if (!fields->next_ended(&parts[1])) return false;
    three = !parts[1].holds(']');
    if (three && !fields->next_ended(&parts[2])) return false;
  }
  NameWriter name{entry->name};
  if (!joined) {
    name.put_marked(parts[0], 1);  // a '[' that opens the name is no subscript
  } else {
    // Every '[' marks itself and the commas that follow it, one of two subscripts, two of three.
    const uint32_t first = name.put_marked(parts[0], 0);
    name.put(',');
    name.put_marks(first);
    const uint32_t second = name.put_marked(parts[1], 0);
    if (three) {
      name.put(',');
      name.put_marks(first + second);
      name.put_marked(parts[2], 0);
    }
  }
  name.finish();
  entry->name_kind = static_cast<uint8_t>(varParse(entry->name));
  return true;
}

void set_type(Text type, TagEntry* entry) {
  if (type.empty()) return;
  const TypeEntry* row = find_type(type.bytes, type.first(kTypeLimitBytes).length);
  if (row == nullptr) return;
  entry->shape = PLC_SCALAR;
  entry->bit_width = static_cast<uint8_t>(row->bits);
  entry->type_code = row->code;
}

// Reads ranges as "[%d..%d_%d..%d]" would, storing bound by bound until the text stops matching.
void scan_ranges(Text text, int32_t* const* bounds, uint32_t bound_count) {
  uint32_t at = 0;
  for (uint32_t i = 0; i < bound_count; ++i) {
    const char* lead = i == 0 ? "[" : i % 2 == 1 ? ".." : "_";
    const uint32_t lead_length = static_cast<uint32_t>(strlen(lead));
    if (text.length - at < lead_length || memcmp(text.bytes + at, lead, lead_length) != 0) return;
    at += lead_length;
    const Decimal number = parse_decimal(text.bytes + at, text.length - at);
    if (number.used == 0) return;
    at += number.used;
    *bounds[i] = number.value;
  }
}

void set_ranges(Text ranges, TagEntry* entry) {
  if (ranges.empty()) return;
  const Text text = ranges.first(kRangeLimitBytes);
  uint32_t separators = 0;
  for (uint32_t i = 0; i < text.length; ++i) separators += text.bytes[i] == '_';
  // The rightmost range is always dim1.
  int32_t* const bounds[] = {&entry->dim3_low,  &entry->dim3_high, &entry->dim2_low,
                             &entry->dim2_high, &entry->dim1_low,  &entry->dim1_high};
  const uint32_t dimensions = separators == 2 ? 3 : separators == 1 ? 2 : 1;
  entry->shape = dimensions == 3 ? PLC_ARRAY3 : dimensions == 2 ? PLC_ARRAY2 : PLC_ARRAY1;
  scan_ranges(text, bounds + 6 - 2 * dimensions, 2 * dimensions);
}

void set_string_length(Text type, Text column, TagEntry* entry) {
  if (column.empty() || type.length != 6 || memcmp(type.bytes, "STRING", 6) != 0) return;
  const Decimal number = parse_decimal(column.bytes, column.first(kStringLengthLimitBytes).length);
  if (number.used != 0) entry->string_length = number.value;
  entry->shape = PLC_STRING;
}

void set_flag(Text column, uint8_t* flag) {
  if (column.empty()) return;
  if (column.bytes[0] == '1') *flag = 1;
  if (column.bytes[0] == '0') *flag = 0;
}

void set_scope_name(Text column, TagEntry* entry) {
  if (column.empty()) return;
  const auto* line_feed = static_cast<const char*>(memchr(column.bytes, '\n', column.length));
  if (line_feed != nullptr) column.length = static_cast<uint32_t>(line_feed - column.bytes);
  column = column.first(PLC_NAME_BYTES - 1);
  memcpy(entry->scope_name, column.bytes, column.length);
  entry->scope_name[column.length] = '\0';
}

uint8_t find_device(Text column) {
  struct Device {
    char name[3];
    uint8_t code;
  };
  static constexpr Device kDevices[] = {{"EM", 23}, {"MR", 17}, {"LR", 18}, {"DM", 6},
                                        {"TM", 8},  {"FM", 25}, {"CM", 7},  {"ZF", 44}};
  if (column.length < kDeviceLeastBytes) return kNoDevice;  // the line end counts
  const Text text = column.first(kDeviceLimitBytes);
  for (const Device& device : kDevices) {
    for (uint32_t i = 0; i + 1 < text.length; ++i) {
      if (text.bytes[i] == device.name[0] && text.bytes[i + 1] == device.name[1]) return device.code;
    }
  }
  return kNoDevice;
}

// Columns 9 to 13, each of which may be missing with all behind it.
void read_optional_columns(FieldReader* fields, TagEntry* entry) {
  Text column;
  if (!fields->next(&column)) return;
  set_flag(column, &entry->is_global);
  if (!fields->next(&column)) return;
  set_flag(column, &entry->aux_flag);
  if (!fields->next(&column)) return;
  if (!column.empty()) entry->local_index = static_cast<uint8_t>(parse_decimal(column.bytes, column.length).value);
  if (!fields->next(&column)) return;
  set_scope_name(column, entry);
  if (!fields->next(&column)) return;
  entry->device_kind = find_device(column);
}

// Columns 1 to 7, each of which a comma must end.
bool read_leading_columns(FieldReader* fields, TagEntry* entry) {
  Text type;
  Text column;
  if (!read_name(fields, entry)) return false;
  if (!fields->next_ended(&type)) return false;
  set_type(type, entry);
  if (!fields->next_ended(&column)) return false;
  set_ranges(column, entry);
  if (!fields->next_ended(&column)) return false;
  set_string_length(type, column, entry);
  for (int unused = 5; unused <= 7; ++unused) {
    if (!fields->next_ended(&column)) return false;
  }
  return true;
}

}  // namespace

void parse_tag_line(const TagLine& line, TagEntry* entry) {
  FieldReader fields{&line};
  entry->device_kind = kNoDevice;
  entry->tag_id = 0;
  Text id;
  if (!read_leading_columns(&fields, entry) || !fields.next(&id)) return;
  entry->tag_id = static_cast<uint32_t>(parse_decimal(id.bytes, id.length).value);
  read_optional_columns(&fields, entry);
}

bool classify_tag_line(const TagLine& line, uint32_t* id) {
  constexpr uint32_t kCommasFromEnd = 5;
  if (line.comma_count < kCommasFromEnd) return false;
  const uint32_t last = line.commas[line.comma_count - 1];
  const uint32_t comma = line.commas[line.comma_count - kCommasFromEnd];
  // Four commas lie between the id and the last comma: with the three columns between them empty, the id loses its last
  // digit, and without an id there is nothing to convert (D5).
  const uint32_t distance = last - comma;
  const uint32_t copied = distance > kCommasFromEnd ? distance - kCommasFromEnd : 0;
  *id = static_cast<uint32_t>(parse_decimal(line.text + comma + 1, copied).value);
  return true;
}

}  // namespace plc

extern "C" {

int pase_str(const char* line, TagEntry* entry) {
  plc::TagLine split;
  split.text = line;
  split.length = static_cast<uint32_t>(strlen(line));
  split.comma_count = 0;
  for (const char* at = strchr(line, ','); at != nullptr && split.comma_count < plc::kLineCommaLimit;
       at = strchr(at + 1, ',')) {
    split.commas[split.comma_count++] = static_cast<uint32_t>(at - line);
  }
  memset(entry->name, 0, PLC_NAME_BYTES);
  plc::parse_tag_line(split, entry);
  return 0;
}

int varParse(const char* name) {
  if (strchr(name, '.') == nullptr) return 1;
  return strchr(name, ']') == nullptr ? 2 : 3;
}

void insert(char* text, const char* ch, int pos) {
  char* at = text + pos;
  memmove(at + 1, at, strlen(at) + 1);
  *at = *ch;
}
}
