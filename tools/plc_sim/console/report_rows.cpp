// The names of the report.
#include "tools/plc_sim/console/report_rows.h"

#include <array>
#include <cstdio>
#include <optional>
#include <set>

#include "wire/names.h"

namespace plc_sim {

std::vector<ReportRow> report_rows(const AskLog& log) {
  std::vector<ReportRow> rows;
  for (const auto& [name, asked] : log.names()) {
    const bool is_refused = asked.variable == nullptr;
    rows.push_back({is_refused ? "" : asked.variable->qualified_name(), strip_subscript_marks(name),
                    is_refused ? "" : asked.variable->tag.type->name,
                    is_refused         ? "refused"
                    : asked.is_outside ? "outside"
                                       : "served",
                    &asked});
  }
  return rows;
}

std::vector<std::string> never_asked(const VariableStore& store, const AskLog& log) {
  std::set<const Variable*> asked;
  for (const auto& [name, entry] : log.names()) asked.insert(entry.variable);
  std::vector<std::string> names;
  for (const auto& variable : store.variables()) {
    if (asked.count(variable.get()) == 0) names.push_back(variable->qualified_name());
  }
  return names;
}

std::string rate_text(const AskedName& asked) {
  const std::optional<double> rate = asked.rate_per_second();
  if (!rate) return "-";
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", *rate);
  return text.data();
}

}  // namespace plc_sim
