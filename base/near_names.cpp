// Finds near names by letter case and edit distance.
#include "base/near_names.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

#include "base/text.h"

namespace plc_base {
namespace {

constexpr size_t kMostNear = 5;

std::string lower_case(std::string_view text) {
  std::string lower(text);
  for (char& sign : lower) sign = static_cast<char>(std::tolower(static_cast<unsigned char>(sign)));
  return lower;
}

// Characters to insert, remove or replace until a is b; stops counting beyond most.
size_t edit_distance(const std::string& a, const std::string& b, size_t most) {
  if (std::max(a.size(), b.size()) - std::min(a.size(), b.size()) > most) return most + 1;
  std::vector<size_t> row(b.size() + 1);
  for (size_t i = 0; i <= b.size(); ++i) row[i] = i;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i);
    size_t least = row[0];
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({replaced, row[j] + 1, row[j - 1] + 1});
      least = std::min(least, row[j]);
    }
    if (least > most) return most + 1;
  }
  return row[b.size()];
}

}  // namespace

std::vector<std::string> near_names(std::string_view wanted, const std::vector<std::string>& candidates) {
  const std::string lower = lower_case(wanted);
  // Two characters are a swapped pair; in the shortest names they would be anything.
  const size_t most = wanted.size() < 4 ? 1 : std::max<size_t>(2, wanted.size() / 3);
  std::vector<std::pair<size_t, std::string>> near;
  for (const std::string& candidate : candidates) {
    if (candidate == wanted) continue;
    const size_t distance = edit_distance(lower, lower_case(candidate), most);
    if (distance <= most) near.emplace_back(distance, candidate);
  }
  std::sort(near.begin(), near.end());
  near.erase(std::unique(near.begin(), near.end()), near.end());
  std::vector<std::string> names;
  for (size_t i = 0; i < std::min(near.size(), kMostNear); ++i) names.push_back(near[i].second);
  return names;
}

std::string did_you_mean(std::string_view wanted, const std::vector<std::string>& candidates) {
  const std::vector<std::string> near = near_names(wanted, candidates);
  return near.empty() ? "" : "did you mean " + joined_with_or(near) + "?";
}

std::string words_with_or(const std::vector<std::string>& words) {
  std::string text;
  for (size_t i = 0; i < words.size(); ++i) {
    if (i > 0) text += i + 1 == words.size() ? " or " : ", ";
    text += words[i];
  }
  return text;
}

std::string joined_with_or(const std::vector<std::string>& names) {
  std::vector<std::string> told(names.size());
  std::transform(names.begin(), names.end(), told.begin(), told_name);
  return words_with_or(told);
}

}  // namespace plc_base
