// Compares lengths: a directory that cuts names cuts them all at one length.
#include "client/driver/program_names.h"

#include <algorithm>
#include <set>

#include "base/utf8.h"

namespace plc_client::core {
namespace {

// Each costs the driver memory for good; more programs than that have one of the longest names among these.
constexpr size_t kMostLongerNames = 64;

}  // namespace

size_t directory_units(std::string_view name) {
  constexpr unsigned kContinuation = 0x80;
  constexpr unsigned kContinuationMask = 0xC0;
  constexpr unsigned char kFirstOfFourBytes = 0xF0;  // two units
  size_t units = 0;
  for (const char byte : name) {
    const auto bits = static_cast<unsigned char>(byte);
    if ((bits & kContinuationMask) != kContinuation) units += bits >= kFirstOfFourBytes ? 2 : 1;
  }
  return units;
}

bool lacks_blanks_only(std::string_view name, size_t bytes) {
  return bytes < name.size() && plc_base::without_blanks(name.substr(bytes)).empty();
}

bool is_beginning_declared(const ProgramNames& names, std::string_view name, size_t bytes) {
  return std::find(names.declared.begin(), names.declared.end(), name.substr(0, bytes)) != names.declared.end();
}

bool is_likely_cut(const ProgramNames& names, std::string_view name, size_t bytes) {
  constexpr size_t kLikelyLimitUnits = 16;
  if (bytes == 0 || lacks_blanks_only(name, bytes) || is_beginning_declared(names, name, bytes)) return false;
  const size_t units = directory_units(name.substr(0, bytes));
  if (names.longest_units && *names.longest_units > units) return false;
  return names.cut_units ? *names.cut_units == units : units >= kLikelyLimitUnits;
}

std::vector<std::string> rivals(const ProgramNames& names, std::string_view name, size_t bytes) {
  const std::string_view beginning = name.substr(0, bytes);
  std::set<std::string> others;
  for (const std::string& other : names.declared) {
    if (other != name && other.compare(0, beginning.size(), beginning) == 0) others.insert(other);
  }
  return {others.begin(), others.end()};
}

std::vector<std::string> longer_names(const ProgramNames& names, size_t units) {
  std::vector<std::string> longer;
  for (const std::string& name : names.declared) {
    if (directory_units(name) > units) longer.push_back(name);
  }
  std::sort(longer.begin(), longer.end(), [](const std::string& one, const std::string& other) {
    const size_t length = directory_units(one);
    const size_t other_length = directory_units(other);
    return length != other_length ? length > other_length : one < other;
  });
  longer.erase(std::unique(longer.begin(), longer.end()), longer.end());
  if (longer.size() > kMostLongerNames) longer.resize(kMostLongerNames);
  return longer;
}

}  // namespace plc_client::core
