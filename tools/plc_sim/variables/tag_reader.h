// Reads tag files into declarations of variables, and says by file and line what is wrong with them.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace plc_sim {

constexpr uint8_t kNoDevice = 30;  // of a tag that stands in no device memory

// kBits: unsigned, shown in hexadecimal.
enum class TypeKind { kBool, kSigned, kUnsigned, kBits, kReal, kText, kOpaque };

// Opaque types are those without a fixed width: dates, times and the like.
struct TypeInfo {
  const char* name;
  unsigned bits;
  TypeKind kind;
};

struct Range {
  int32_t low;
  int32_t high;
  int64_t extent() const { return static_cast<int64_t>(high) - low + 1; }
};

struct TagDeclaration {
  std::string name;  // as it travels, with '#' before each subscript
  const TypeInfo* type = nullptr;
  std::vector<Range> ranges;  // leftmost first; empty for strings with a length
  int32_t string_length = 0;  // characters; 0 when it is no string with a length
  uint32_t id = 0;
  bool is_global = false;
  uint8_t program_number = 0;  // 0 when the file gives none
  std::string program;
  uint8_t device = 0;
  int name_kind = 1;  // 1 no '.', 2 '.' without ']', 3 both
  std::string file;
  unsigned line = 0;

  bool is_text_with_length() const { return string_length > 0; }
};

struct TagProblem {
  std::string file;
  unsigned line;
  bool is_warning;
  std::string text;
};

struct TagFile {
  std::vector<TagDeclaration> tags;
  std::vector<TagProblem> problems;
};

// Null when there is no such type.
const TypeInfo* find_type(std::string_view name);

// The letters of a device code ("DM"), "none" for variables without a device.
std::string device_name(uint8_t device);

// What the text of a tag file declares; its name is for messages.
TagFile read_tag_text(const std::string& file_name, std::string_view text);

}  // namespace plc_sim
