// Reads tag files: splits lines into columns, checks them and turns them into declarations.
#include "tools/plc_sim/variables/tag_reader.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "base/text.h"
#include "tools/plc_sim/variables/mistake.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

constexpr size_t kMaxLineBytes = 255;  // line end included
constexpr size_t kRequiredColumns = 8;
constexpr int64_t kMaxElements = 1 << 20;
constexpr size_t kMaxDeviceChars = 23;
constexpr int32_t kMaxStringLength = 4096;

constexpr std::array<TypeInfo, 21> kTypes{{
    {"BOOL", 1, TypeKind::kBool},      {"SINT", 8, TypeKind::kSigned},        {"INT", 16, TypeKind::kSigned},
    {"DINT", 32, TypeKind::kSigned},   {"LINT", 64, TypeKind::kSigned},       {"USINT", 8, TypeKind::kUnsigned},
    {"UINT", 16, TypeKind::kUnsigned}, {"UDINT", 32, TypeKind::kUnsigned},    {"ULINT", 64, TypeKind::kUnsigned},
    {"REAL", 32, TypeKind::kReal},     {"LREAL", 64, TypeKind::kReal},        {"STIME", 0, TypeKind::kOpaque},
    {"DATE", 0, TypeKind::kOpaque},    {"TIME_OF_DAY", 0, TypeKind::kOpaque}, {"DATE_AND_TIME", 0, TypeKind::kOpaque},
    {"STRING", 0, TypeKind::kText},    {"STRING2", 0, TypeKind::kText},       {"BYTE", 8, TypeKind::kBits},
    {"WORD", 16, TypeKind::kBits},     {"DWORD", 32, TypeKind::kBits},        {"LWORD", 64, TypeKind::kBits},
}};

struct Device {
  const char* letters;
  uint8_t code;
};

// The order decides when a column holds more than one of them.
constexpr std::array<Device, 8> kDevices{
    {{"EM", 23}, {"MR", 17}, {"LR", 18}, {"DM", 6}, {"TM", 8}, {"FM", 25}, {"CM", 7}, {"ZF", 44}}};

std::vector<std::string> split_columns(std::string_view line) {
  std::vector<std::string> columns;
  for (;;) {
    const size_t comma = line.find(',');
    columns.emplace_back(line.substr(0, comma));
    if (comma == std::string_view::npos) return columns;
    line.remove_prefix(comma + 1);
  }
}

// A name whose subscripts were torn apart by the commas of the line is put together again.
void join_split_name(std::vector<std::string>& columns) {
  std::string& name = columns[0];
  if (name.find('[') == std::string::npos || name.find(']') != std::string::npos) return;
  const size_t extra = columns.size() > 1 && columns[1].find(']') != std::string::npos ? 1 : 2;
  if (columns.size() <= extra) throw Mistake("the subscripts of the name are not closed");
  for (size_t i = 1; i <= extra; ++i) name += "," + columns[i];
  columns.erase(columns.begin() + 1, columns.begin() + 1 + static_cast<std::ptrdiff_t>(extra));
  if (name.find(']') == std::string::npos) throw Mistake("the subscripts of the name are not closed");
}

int name_kind_of(const std::string& name) {
  if (name.find('.') == std::string::npos) return 1;
  return name.find(']') == std::string::npos ? 2 : 3;
}

template <typename Number>
Number parse_number(std::string_view text, const char* what) {
  Number value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc{} || end != text.data() + text.size()) {
    throw Mistake(std::string(what) + " '" + std::string(text) + "' is not a number in its range");
  }
  return value;
}

std::vector<Range> parse_ranges(std::string_view text) {
  std::vector<Range> ranges;
  if (text.size() < 2 || text.front() != '[' || text.back() != ']') {
    throw Mistake("ranges '" + std::string(text) + "' are not of the form [low..high_low..high]");
  }
  std::string_view rest = text.substr(1, text.size() - 2);
  int64_t elements = 1;
  for (;;) {
    const size_t bar = rest.find('_');
    const std::string_view one = rest.substr(0, bar);
    const size_t dots = one.find("..");
    if (dots == std::string_view::npos) throw Mistake("range '" + std::string(one) + "' has no '..'");
    const Range range{parse_number<int32_t>(one.substr(0, dots), "lower bound"),
                      parse_number<int32_t>(one.substr(dots + 2), "upper bound")};
    if (range.high < range.low) throw Mistake("range '" + std::string(one) + "' ends before it starts");
    elements = range.extent() > kMaxElements ? kMaxElements + 1 : elements * range.extent();
    if (elements > kMaxElements) throw Mistake("the array has more than " + std::to_string(kMaxElements) + " elements");
    ranges.push_back(range);
    if (bar == std::string_view::npos) break;
    rest.remove_prefix(bar + 1);
  }
  if (ranges.size() > 3) throw Mistake("more than three ranges");
  return ranges;
}

uint8_t parse_device(std::string_view column, bool followed_by_column) {
  // The line end counts as a character where the column is the last one.
  const size_t length = column.size() + (followed_by_column ? 0 : 1);
  if (length < 3) return kNoDevice;
  const std::string_view examined = column.substr(0, kMaxDeviceChars);
  for (const Device& device : kDevices) {
    if (examined.find(device.letters) != std::string_view::npos) return device.code;
  }
  return kNoDevice;
}

void parse_scope(const std::vector<std::string>& columns, TagDeclaration& tag) {
  const auto column = [&](size_t number) {
    return columns.size() >= number ? std::string_view(columns[number - 1]) : std::string_view{};
  };
  tag.is_global = !column(9).empty() && column(9).front() == '1';
  if (!column(11).empty()) {
    tag.program_number = static_cast<uint8_t>(parse_number<int32_t>(column(11), "program number"));
  }
  std::string_view program = column(12);
  if (!program.empty() && program.back() == '\r') program.remove_suffix(1);
  tag.program = program;
  tag.device = columns.size() >= 13 ? parse_device(columns[12], columns.size() > 13) : kNoDevice;
}

void parse_string_length(const std::string& column, TagDeclaration& tag) {
  if (column.empty() || std::string_view(tag.type->name) != "STRING") return;
  tag.string_length = parse_number<int32_t>(column, "string length");
  if (tag.string_length > kMaxStringLength) {
    throw Mistake("plc-sim serves strings of at most " + std::to_string(kMaxStringLength) + " bytes, not of " + column +
                  ". The line is no fault for a controller");
  }
  if (tag.string_length < 1) {
    throw Mistake("string length " + column + " is not between 1 and " + std::to_string(kMaxStringLength));
  }
  tag.ranges.clear();
}

// Spreadsheets separate columns by what the language of the machine asks for.
std::string why_few_columns(std::string_view line, size_t columns) {
  const auto count = [&](char sign) { return static_cast<size_t>(std::count(line.begin(), line.end(), sign)); };
  if (count(';') >= kRequiredColumns - 1) return "the columns are separated by semicolons, commas are required";
  if (count('\t') >= kRequiredColumns - 1) return "the columns are separated by tabs, commas are required";
  return "only " + plc_base::plural(columns, "column") + ", 8 are required";
}

TagDeclaration parse_line(std::string_view line) {
  if (line.size() + 1 > kMaxLineBytes) throw Mistake("line longer than 255 characters");
  std::vector<std::string> columns = split_columns(line);
  join_split_name(columns);
  if (columns.size() < kRequiredColumns) {
    throw Mistake(why_few_columns(line, columns.size()));
  }
  TagDeclaration tag;
  tag.name = mark_subscripts(columns[0]);
  if (tag.name.empty()) throw Mistake("the name is empty");
  if (!utf16_from_utf8(tag.name)) throw Mistake("the name is not valid UTF-8");
  tag.name_kind = name_kind_of(tag.name);
  tag.type = find_type(columns[1]);
  if (tag.type == nullptr) throw Mistake("unknown type '" + columns[1] + "'");
  if (!columns[2].empty()) tag.ranges = parse_ranges(columns[2]);
  parse_string_length(columns[3], tag);
  std::string_view id = columns[7];
  if (!id.empty() && id.back() == '\r') id.remove_suffix(1);
  tag.id = parse_number<uint32_t>(id, "id");
  parse_scope(columns, tag);
  if (!utf16_from_utf8(tag.program)) throw Mistake("the program's name is not valid UTF-8");
  return tag;
}

}  // namespace

const TypeInfo* find_type(std::string_view name) {
  for (const TypeInfo& type : kTypes) {
    if (name == type.name) return &type;
  }
  return nullptr;
}

std::string device_name(uint8_t device) {
  for (const Device& known : kDevices) {
    if (known.code == device) return known.letters;
  }
  return device == kNoDevice ? "none" : "code " + std::to_string(device);
}

TagFile read_tag_text(const std::string& file_name, std::string_view text) {
  TagFile file;
  for (unsigned number = 1; !text.empty(); ++number) {
    const size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    try {
      TagDeclaration tag = parse_line(line);
      tag.file = file_name;
      tag.line = number;
      file.tags.push_back(std::move(tag));
    } catch (const Mistake& bad) {
      file.problems.push_back({file_name, number, false, bad.what()});
    }
    if (end == std::string_view::npos) {
      file.problems.push_back({file_name, number, true, "the last line has no trailing newline; a panel ignores it"});
      break;
    }
    text.remove_prefix(end + 1);
  }
  return file;
}

}  // namespace plc_sim
