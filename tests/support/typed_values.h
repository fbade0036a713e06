// Spellings of values with what each stands for: plc-host write and plc-sim's console must agree on every line.
#pragma once

#include <cstdint>

namespace plc_test {

struct TypedValue {
  const char* type;
  const char* text;
  uint64_t bits;
  const char* problem;  // empty when the text is a value
};

inline constexpr TypedValue kTypedValues[] = {
    {"BOOL", "true", 1, ""},
    {"BOOL", "TRUE", 1, ""},
    {"BOOL", "on", 1, ""},
    {"BOOL", "1", 1, ""},
    {"BOOL", "false", 0, ""},
    {"BOOL", "FALSE", 0, ""},
    {"BOOL", "off", 0, ""},
    {"BOOL", "0", 0, ""},
    {"BOOL", "yes", 0, "'yes' is no BOOL value: use true, false, on, off, 1 or 0"},
    {"BOOL", "2", 0, "'2' is no BOOL value: use true, false, on, off, 1 or 0"},
    {"INT", "120", 120, ""},
    {"INT", "-5", 0xFFFB, ""},
    {"INT", "+5", 5, ""},
    {"INT", " 7 ", 7, ""},
    {"INT", "0xFFFF", 0xFFFF, ""},
    {"INT", "0Xff", 0xFF, ""},
    {"INT", "0b101", 5, ""},
    {"INT", "32767", 0x7FFF, ""},
    {"INT", "-32768", 0x8000, ""},
    {"INT", "32768", 0, "'32768' is no INT value: outside -32768 to 32767"},
    {"INT", "0x10000", 0, "'0x10000' is no INT value: more than 16 bits"},
    {"INT", "1.5", 0, "'1.5' is no INT value: write 120, -5, 0xFF or 0b101"},
    {"INT", "1,5", 0, "'1,5' is no INT value: write 120, -5, 0xFF or 0b101"},
    {"INT", "", 0, "'' is no INT value: write 120, -5, 0xFF or 0b101"},
    {"INT", "+-1", 0, "'+-1' is no INT value: write 120, -5, 0xFF or 0b101"},
    {"INT", "0x", 0, "'0x' is no INT value: write 120, -5, 0xFF or 0b101"},
    {"INT", "true", 0, "'true' is no INT value: write 120, -5, 0xFF or 0b101"},
    {"UINT", "65535", 0xFFFF, ""},
    {"UINT", "-0", 0, "'-0' is no UINT value: write 0, without a sign"},
    {"UINT", "-1", 0, "'-1' is no UINT value: outside 0 to 65535"},
    {"SINT", "-128", 0x80, ""},
    {"USINT", "256", 0, "'256' is no USINT value: outside 0 to 255"},
    {"DINT", "-2147483648", 0x80000000, ""},
    {"UDINT", "4294967295", 0xFFFFFFFF, ""},
    {"LINT", "-9223372036854775808", 0x8000000000000000, ""},
    {"ULINT", "18446744073709551615", 0xFFFFFFFFFFFFFFFF, ""},
    {"ULINT", "18446744073709551616", 0, "'18446744073709551616' is no ULINT value: outside 0 to 18446744073709551615"},
    {"WORD", "0b1010111111111110", 0xAFFE, ""},
    {"DWORD", "0xDEADBEEF", 0xDEADBEEF, ""},
    {"REAL", "1.5", 0x3FC00000, ""},
    {"REAL", "+1.5e0", 0x3FC00000, ""},
    {"REAL", "-2", 0xC0000000, ""},
    {"REAL", "inf", 0x7F800000, ""},
    {"REAL", "1e39", 0, "'1e39' is no REAL value: too large or too small for the type"},
    {"REAL", "1,5", 0, "'1,5' is no REAL value: write 2.5 or 1.5e3, with a point"},
    {"LREAL", "1e39", 0x48078287F49C4A1D, ""},
};

// Texts that a string of eight bytes takes, or does not.
struct TypedString {
  const char* text;
  const char* bytes;
  const char* problem;
};

inline constexpr TypedString kTypedStrings[] = {
    {"pump 3", "pump 3", ""},
    {"\"pump 3\"", "pump 3", ""},
    {"\" a\"", " a", ""},
    {"a\"b", "a\"b", ""},
    {"\"", "\"", ""},
    {R"("a\x41\n\"\\")", "aA\n\"\\", ""},
    {R"(a\n)", "a\\n", ""},
    {"\"\"", "", ""},
    {"123456789", "", "'123456789' has 9 bytes, the string holds 8"},
    {R"("\x00")", "", "a string ends at its first zero byte: none can be in it"},
    {"\"abc", "", "'\"abc' begins with a quote that its end does not have: write \"abc\", or \"\\\"abc\" with it"},
    {" \"abc\"", "",
     "' \"abc\"' begins with a quote that its end does not have: write \"abc\", or \"\\\"abc\" with it"},
    {R"("a" "b")", "", R"(a double quote inside '"a" "b"' is written \")"},
    {"abc\"", "abc\"", ""},
    {R"("\q")", "", R"(unknown escape in '"\q"': use \n, \r, \t, \", \\ or \xNN)"},
    {R"("\x4")", "", R"(\x in '"\x4"' needs two hexadecimal digits)"},
};

}  // namespace plc_test
