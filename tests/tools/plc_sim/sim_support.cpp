// What the simulator's tests share.
#include "tests/tools/plc_sim/sim_support.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "tools/plc_sim/variables/values.h"

namespace plc_sim::test {

Bytes hex(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  Bytes bytes;
  unsigned high = 0;
  bool has_high = false;
  for (const char c : text) {
    if (c == ' ') continue;
    const size_t digit = kDigits.find(c >= 'a' ? static_cast<char>(c - 'a' + 'A') : c);
    if (digit == std::string_view::npos) throw std::invalid_argument("no hexadecimal text: " + std::string(text));
    if (has_high) bytes.push_back(static_cast<uint8_t>(high * 16 + digit));
    high = static_cast<unsigned>(digit);
    has_high = !has_high;
  }
  return bytes;
}

std::string hex_of(const Bytes& bytes) {
  std::string text;
  for (const uint8_t byte : bytes) {
    std::array<char, 4> digits{};
    std::snprintf(digits.data(), digits.size(), "%02X", static_cast<unsigned>(byte));
    text += (text.empty() ? "" : " ") + std::string(digits.data());
  }
  return text;
}

Bench::Bench(const std::string& tag_lines, const std::map<std::string, uint8_t>& programs) {
  const TagFile file = read_tag_text("tags.csv", tag_lines);
  for (const TagProblem& problem : file.problems) ADD_FAILURE() << "line " << problem.line << ": " << problem.text;
  for (const StoreProblem& problem : store.declare(file.tags, programs, DirectoryOrder::kLongestFirst)) {
    ADD_FAILURE() << "line " << problem.line << ": " << problem.text;
  }
  session.number = 1;
  ask("00 00 00 06 FF FF FF F9 00 00 0C 2C 00 00 00 00");
  const Answer directory = ask("00 00 00 06 FF FF FF F9 00 01 0C 25 00 00 00 00");
  if (!directory.findings.violations.empty()) {
    ADD_FAILURE() << directory.findings.violations[0];
  }
}

std::string Bench::value(const std::string& name) {
  const auto element = store.find_typed(name);
  return element ? value_text(store.memory(), *element) : "no such variable";
}

}  // namespace plc_sim::test
