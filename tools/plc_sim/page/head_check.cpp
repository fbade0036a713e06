// Knows the lines of a head that have one meaning only when they come once.
#include "tools/plc_sim/page/head_check.h"

#include <algorithm>
#include <iterator>

#include "base/text.h"

namespace plc_sim {
namespace {

// What the page decides by, and what tells how long a body is.
constexpr const char* kOnce[] = {"Host",         "Origin",         "Sec-Fetch-Site",   "X-Plc-Sim",
                                 "Content-Type", "Content-Length", "Transfer-Encoding"};

bool has_blank_or_control(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c <= ' ' || c == '\x7F'; });
}

}  // namespace

HeadCheck::HeadCheck(std::string_view target) {
  const std::string_view path = target.substr(0, target.find('?'));
  // The library gives the path as far as its first zero byte.
  if (path.find("%00") != std::string_view::npos) refuse("write the path without %00");
  if (has_blank_or_control(target)) refuse("write %20 for a blank in the path");
}

void HeadCheck::add(std::string_view name) {
  if (has_blank_or_control(name)) refuse("write the names of its lines without blanks");
  const auto* const once = std::find_if(std::begin(kOnce), std::end(kOnce),
                                        [&](const char* known) { return plc_base::is_same_but_case(name, known); });
  if (once == std::end(kOnce)) return;
  if (!names_.insert(*once).second) refuse(std::string("send ") + *once + " once");
  if (names_.count("Content-Length") + names_.count("Transfer-Encoding") == 2) {
    refuse("send Content-Length or Transfer-Encoding");
  }
}

void HeadCheck::refuse(const std::string& advice) {
  if (problem_.empty()) problem_ = "plc-sim: the head of this request can be read in two ways: " + advice + "\n";
}

}  // namespace plc_sim
