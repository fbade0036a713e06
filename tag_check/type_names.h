// Type names: those of the driver, and what other systems call the same types.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tag_check {

// Whether the driver knows this name, as it stands.
bool is_type(std::string_view text);

// "BOOL, SINT, ... and DATE_AND_TIME".
std::string all_types();

// What a text means that is no type.
struct MeantType {
  std::string type;         // the one type that it can mean; empty: nobody can tell
  bool is_spelled = false;  // in other letters than the type has
  bool is_known = false;    // so, or as a type of another system
  std::string hint;         // what to say: "the driver calls it DINT", "REAL has 32 bits, LREAL 64"; may be empty
};
MeantType meant_type(std::string_view text);

// A type with its ranges or its length in one text: ARRAY[0..9] OF INT, INT[0..9], STRING(20).
struct DeclaredType {
  std::string type;    // as it is written there
  std::string ranges;  // as column 3 has them, "[0..9_0..4]"; empty for none
  std::string length;  // as column 4 has it; empty for none
};
std::optional<DeclaredType> declared_type(std::string_view text);

// Whether the text is a type, means one, or is one with its ranges or length.
bool is_like_type(std::string_view text);

// Ranges as column 3 has them from "[0..9]", "0..9", "0..9,0..4"; the text as it is where it is nothing of the kind.
std::string ranges_of(std::string_view text);

}  // namespace tag_check
