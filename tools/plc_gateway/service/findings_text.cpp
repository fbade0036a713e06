// Lines about configurations.
#include "tools/plc_gateway/service/findings_text.h"

#include <algorithm>
#include <cstdio>

#include "base/shown_text.h"
#include "base/text.h"
#include "tools/plc_gateway/service/exit_codes.h"

namespace plc_gateway {
std::string finding_place(const Finding& finding) {
  std::string place = finding.file.empty() ? plc_base::quoted(finding.file) : finding.file;
  if (finding.line != 0) place += ":" + std::to_string(finding.line);
  if (finding.line != 0 && finding.column != 0) place += ":" + std::to_string(finding.column);
  return place;
}

std::string finding_line(const Finding& finding) {
  return plc_base::shown_first(finding_place(finding)) + (finding.is_error ? ": error: " : ": note: ") +
         plc_base::shown_line(finding.text);
}

void show_findings(const ConfigResult& result) {
  for (const Finding& finding : result.findings) std::fprintf(stderr, "%s\n", finding_line(finding).c_str());
}

void require_ok(const ConfigResult& result, const std::string& file) {
  show_findings(result);
  if (result.ok()) return;
  const auto errors = std::count_if(result.findings.begin(), result.findings.end(),
                                    [](const Finding& finding) { return finding.is_error; });
  throw GatewayError(kExitConfig, plc_base::shown_line(plc_base::told_name(file)) + ": cannot be used: " +
                                      plc_base::plural(static_cast<uint64_t>(errors), "mistake"));
}

}  // namespace plc_gateway
