// What findings of a file in TOML are held to, whatever the file is for.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "base/toml/findings.h"
#include "judge.h"

namespace fuzz {

inline void judge_findings(const std::vector<plc_toml::Finding>& findings, const std::string& file,
                           const std::string& text) {
  const auto lines = static_cast<uint32_t>(std::count(text.begin(), text.end(), '\n')) + 1;
  uint32_t before = 0;
  for (const plc_toml::Finding& finding : findings) {
    demand(finding.file == file && !finding.text.empty(), "a finding speaks of its file");
    demand(is_shown(finding.text) && finding.text.find('\n') == std::string::npos, "a finding is one line");
    demand(finding.line <= lines, "a finding is in the file");
    demand((finding.line == 0) == (finding.column == 0), "a line goes with a column");
    demand(finding.line >= before, "findings are in their order");
    before = finding.line;
  }
}

}  // namespace fuzz
