// How numbers and words stand in messages: the same in every program.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace plc_base {

// The text between the single quotes that messages put around what somebody typed.
std::string quoted(std::string_view text);

// Whether a name has blanks that nobody sees: at its ends, or at those of the program before its slash.
bool hides_blanks(std::string_view name);

// A name or a path before what is said of it: in quotes where nothing of it, or not its end, would be seen.
std::string told_name(std::string_view name);

// Whether the texts differ in the case of ASCII letters alone, or not at all.
bool is_same_but_case(std::string_view text, std::string_view other);

// The number with this many hexadecimal digits behind 0x, more where it has more.
std::string hexadecimal(uint32_t value, int digits);

// "1 byte", "2 bytes": the number and the thing, with the ending that the number asks for.
std::string plural(uint64_t count, std::string_view thing);

// "34,454": the number as people read it.
std::string grouped_number(uint64_t number);

// "2.10 ms": a time in milliseconds with so many decimals.
std::string milliseconds_text(int64_t nanoseconds, int decimals);

}  // namespace plc_base
