// Collects what is to be said of a file of settings.
#include "base/toml/findings.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "base/shown_text.h"

namespace plc_toml {

void Findings::add(bool is_error, Place place, const std::string& text) {
  list_.push_back({is_error, file_, place.line, place.column, plc_base::shown_line(text)});
}

std::vector<Finding> Findings::take() {
  std::stable_sort(list_.begin(), list_.end(), [](const Finding& a, const Finding& b) {
    return std::tie(a.line, a.column) < std::tie(b.line, b.column);
  });
  return std::exchange(list_, {});
}

}  // namespace plc_toml
