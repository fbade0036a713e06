// Writes the report's page, what needs attention first.
#include "tools/plc_sim/console/report_page.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "base/page/html.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "tools/plc_sim/console/report_chart.h"
#include "tools/plc_sim/console/report_rows.h"
#include "tools/plc_sim/console/report_style.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

using plc_base::html_element;
using plc_base::html_fact;
using plc_base::html_section;
using plc_base::HtmlTable;

constexpr size_t kMostRows = HtmlTable::kMostRows;

std::string html_name(const std::string& name) { return plc_base::shown_html(shown_name(name)); }

std::string utc_text(std::time_t time) {
  std::tm parts{};
  gmtime_r(&time, &parts);
  std::array<char, 40> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &parts);
  return text.data();
}

std::string hex_text(const Happening& happening) {
  std::string text;
  for (const uint8_t byte : happening.frame) {
    std::array<char, 4> digits{};
    std::snprintf(digits.data(), digits.size(), text.empty() ? "%02X" : " %02X", static_cast<unsigned>(byte));
    text += digits.data();
  }
  if (happening.frame_bytes > happening.frame.size()) {
    text += " ... (" + plc_base::plural(happening.frame_bytes, "byte") + ")";
  }
  return text;
}

std::string at_text(uint64_t ms) { return "<span class=\"at\">" + duration_text(ms) + "</span>"; }

std::string violations(const RunLog& run) {
  if (run.all_violations() == 0) return {};
  HtmlTable table("Violations", {"at", "where", "what is wrong, and the request"}, 3);
  for (const Happening& one : run.violations()) {
    const std::string bytes = one.frame.empty() ? "" : "<br><code>" + hex_text(one) + "</code>";
    table.add({at_text(one.at_ms), plc_base::shown_html(one.where), plc_base::shown_html(one.text) + bytes});
  }
  return html_section("Violations", table.finish(run.all_violations()));
}

std::string faults(const RunLog& run) {
  if (run.all_faults() == 0) return {};
  HtmlTable table("Faults", {"at", "fault", "of the reply to"}, 3);
  for (const Happening& one : run.faults()) {
    table.add({at_text(one.at_ms), plc_base::shown_html(one.text), plc_base::shown_html(one.where)});
  }
  return html_section("Faults that happened", table.finish(run.all_faults()));
}

std::string kinds(const RunLog& run, uint64_t all) {
  HtmlTable table("Requests by kind", {"request", "times", "share"}, 1);
  for (const RequestKind kind : kAllRequestKinds) {
    const uint64_t count = run.requests(kind);
    if (count == 0) continue;
    std::array<char, 16> share{};
    std::snprintf(share.data(), share.size(), "%.1f %%", 100.0 * static_cast<double>(count) / static_cast<double>(all));
    table.add({name_of(kind), std::to_string(count), share.data()});
  }
  return table.finish();
}

std::string times(const RunLog& run) {
  uint64_t all = 0;
  for (const RequestKind kind : kAllRequestKinds) all += run.requests(kind);
  if (all == 0) return html_section("Requests", "<p>No host asked for anything.</p>\n");
  return html_section("Requests", report_chart(run) + kinds(run, all));
}

// Of the names with one outcome; the first columns name them.
std::string names(const char* title, const std::vector<ReportRow>& rows, const std::string& outcome) {
  const bool is_refused = outcome == "refused";
  HtmlTable table(title,
                  is_refused ? std::vector<const char*>{"name", "times"}
                             : std::vector<const char*>{"name", "type", "asked", "read", "written", "per second"},
                  is_refused ? 1 : 2);
  size_t count = 0;
  for (const ReportRow& row : rows) {
    if (row.outcome != outcome) continue;
    ++count;
    const AskedName& asked = *row.asked;
    if (is_refused) {
      table.add({html_name(row.name), std::to_string(asked.asked())});
    } else {
      table.add({html_name(row.name), row.type, std::to_string(asked.asked()), std::to_string(asked.read),
                 std::to_string(asked.written), rate_text(asked)});
    }
  }
  return count == 0 ? std::string() : html_section(title, table.finish());
}

std::string never(const VariableStore& store, const AskLog& asked) {
  const std::vector<std::string> variables = never_asked(store, asked);
  if (variables.empty()) return {};
  std::string items;
  for (size_t i = 0; i < std::min(variables.size(), kMostRows); ++i) {
    items += html_element("li", html_name(variables[i]));
  }
  if (variables.size() > kMostRows) {
    items += html_element("li", "and " + std::to_string(variables.size() - kMostRows) + " more");
  }
  return html_section("Never asked for", "<ul class=\"names\">" + items + "</ul>\n");
}

std::string programs(const VariableStore& store) {
  if (store.directory().empty()) return {};
  HtmlTable table("Programs", {"program", "number"}, 1);
  for (const Program& program : store.directory()) {
    table.add({html_name(program.name), std::to_string(program.number)});
  }
  return html_section("Programs", table.finish());
}

std::string head(const ReportedRun& reported) {
  const Tally::Counts& counts = reported.tally.counts;
  std::string files;
  for (const std::string& file : reported.files) files += (files.empty() ? "" : ", ") + plc_base::shown_html(file);
  const bool is_good = counts.violations == 0;
  return std::string("<header><h1>plc-sim: report</h1>\n<p class=\"verdict ") + (is_good ? "good" : "bad") + "\">" +
         (is_good ? "No violation" : plc_base::plural(counts.violations, "violation")) +
         (counts.refused == 0 ? "" : ", " + std::to_string(counts.refused) + " refused") + "</p>\n<dl>" +
         html_fact("began", utc_text(reported.run.began())) +
         html_fact("ran for", duration_text(reported.run.elapsed_ms())) +
         html_fact("listening on", plc_base::shown_html(reported.listening)) + html_fact("files", files) +
         html_fact("connections", std::to_string(counts.connections)) +
         html_fact("requests", std::to_string(counts.requests)) +
         html_fact("faults that happened", std::to_string(reported.run.all_faults())) +
         html_fact("outside bounds", std::to_string(counts.outside)) +
         html_fact("excused after faults", std::to_string(counts.excused)) + "</dl></header>\n";
}

}  // namespace

std::string report_page(const ReportedRun& reported) {
  const std::vector<ReportRow> rows = report_rows(reported.asked);
  std::string page = head(reported) + "<main>\n" + violations(reported.run) + times(reported.run) +
                     faults(reported.run) + names("Refused names", rows, "refused") +
                     names("Outside their bounds", rows, "outside") + names("Served", rows, "served") +
                     never(reported.store, reported.asked) + programs(reported.store);
  if (reported.asked.left_out() > 0) {
    page += html_element("p", "Names beyond the room for them were asked for " +
                                  plc_base::plural(reported.asked.left_out(), "time") + ".");
  }
  page += "</main>\n<footer><p>Written by plc-sim " PLC_SIM_VERSION ".</p></footer>\n";
  return plc_base::html_page("plc-sim: report of " + utc_text(reported.run.began()), kReportCss, page);
}

}  // namespace plc_sim
