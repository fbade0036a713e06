// Turns an argument of a command line into a whole number, and ends the program for every text that is not one.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <system_error>

inline int number_argument(const char* name, std::string_view text, int least, int most) {
  int number = 0;
  const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
  const bool is_number = problem == std::errc() && end == text.data() + text.size();
  if (is_number && number >= least && number <= most) return number;
  std::fprintf(stderr, "%s: '%.*s' is not a whole number from %d to %d\n", name, static_cast<int>(text.size()),
               text.data(), least, most);
  std::exit(2);
}

inline uint16_t port_argument(std::string_view text) {
  return static_cast<uint16_t>(number_argument("PORT", text, 1, 65535));
}
