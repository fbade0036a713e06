// Writes the report's page, what needs attention first.
#include "tools/plc_sim/console/report_page.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "base/shown_text.h"
#include "base/text.h"
#include "tools/plc_sim/console/report_chart.h"
#include "tools/plc_sim/console/report_rows.h"
#include "tools/plc_sim/console/report_style.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

// Longer lists are for programs, which have the other forms of the report.
constexpr size_t kMostRows = 1000;

std::string html_name(const std::string& name) { return plc_base::shown_html(shown_name(name)); }

std::string utc_text(std::time_t time) {
  std::tm parts{};
  gmtime_r(&time, &parts);
  std::array<char, 40> text{};
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &parts);
  return text.data();
}

std::string element(const char* name, const std::string& content) {
  return std::string("<") + name + ">" + content + "</" + name + ">";
}

// A table whose cells are HTML; numbers stand on the right from this column on.
class Table {
 public:
  Table(const char* title, const std::vector<const char*>& heads, size_t numbers_from)
      : numbers_from_(numbers_from),
        text_(std::string("<div class=\"wide\" tabindex=\"0\" role=\"region\" aria-label=\"") + title +
              "\"><table><thead><tr>") {
    for (size_t i = 0; i < heads.size(); ++i) {
      text_ += std::string(i >= numbers_from_ ? "<th scope=\"col\" class=\"number\">" : "<th scope=\"col\">") +
               heads[i] + "</th>";
    }
    text_ += "</tr></thead><tbody>\n";
  }

  void add(const std::vector<std::string>& cells) {
    if (++rows_ > kMostRows) return;
    text_ += "<tr>";
    for (size_t i = 0; i < cells.size(); ++i) {
      text_ += (i >= numbers_from_ ? "<td class=\"number\">" : "<td>") + cells[i] + "</td>";
    }
    text_ += "</tr>\n";
  }

  // `all` is how many there were; those that are not in the table are counted below it.
  std::string finish(uint64_t all) const {
    const uint64_t shown = std::min<uint64_t>(rows_, kMostRows);
    return text_ + "</tbody></table></div>\n" +
           (all > shown ? element("p", "and " + std::to_string(all - shown) + " more") : "");
  }
  std::string finish() const { return finish(rows_); }

 private:
  size_t numbers_from_;
  size_t rows_ = 0;
  std::string text_;
};

std::string section(const char* title, const std::string& content) {
  return std::string("<section><h2>") + title + "</h2>\n" + content + "</section>\n";
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
  Table table("Violations", {"at", "where", "what is wrong, and the request"}, 3);
  for (const Happening& one : run.violations()) {
    const std::string bytes = one.frame.empty() ? "" : "<br><code>" + hex_text(one) + "</code>";
    table.add({at_text(one.at_ms), plc_base::shown_html(one.where), plc_base::shown_html(one.text) + bytes});
  }
  return section("Violations", table.finish(run.all_violations()));
}

std::string faults(const RunLog& run) {
  if (run.all_faults() == 0) return {};
  Table table("Faults", {"at", "fault", "of the reply to"}, 3);
  for (const Happening& one : run.faults()) {
    table.add({at_text(one.at_ms), plc_base::shown_html(one.text), plc_base::shown_html(one.where)});
  }
  return section("Faults that happened", table.finish(run.all_faults()));
}

std::string kinds(const RunLog& run, uint64_t all) {
  Table table("Requests by kind", {"request", "times", "share"}, 1);
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
  if (all == 0) return section("Requests", "<p>No host asked for anything.</p>\n");
  return section("Requests", report_chart(run) + kinds(run, all));
}

// Of the names with one outcome; the first columns name them.
std::string names(const char* title, const std::vector<ReportRow>& rows, const std::string& outcome) {
  const bool is_refused = outcome == "refused";
  Table table(title,
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
  return count == 0 ? std::string() : section(title, table.finish());
}

std::string never(const VariableStore& store, const AskLog& asked) {
  const std::vector<std::string> variables = never_asked(store, asked);
  if (variables.empty()) return {};
  std::string items;
  for (size_t i = 0; i < std::min(variables.size(), kMostRows); ++i) items += element("li", html_name(variables[i]));
  if (variables.size() > kMostRows) {
    items += element("li", "and " + std::to_string(variables.size() - kMostRows) + " more");
  }
  return section("Never asked for", "<ul class=\"names\">" + items + "</ul>\n");
}

std::string programs(const VariableStore& store) {
  if (store.directory().empty()) return {};
  Table table("Programs", {"program", "number"}, 1);
  for (const Program& program : store.directory()) {
    table.add({html_name(program.name), std::to_string(program.number)});
  }
  return section("Programs", table.finish());
}

std::string fact(const char* name, const std::string& value) {
  return element("div", element("dt", name) + element("dd", value));
}

std::string head(const ReportedRun& reported) {
  const Tally::Counts& counts = reported.tally.counts;
  std::string files;
  for (const std::string& file : reported.files) files += (files.empty() ? "" : ", ") + plc_base::shown_html(file);
  const bool is_good = counts.violations == 0;
  return std::string("<header><h1>plc-sim: report</h1>\n<p class=\"verdict ") + (is_good ? "good" : "bad") + "\">" +
         (is_good ? "No violation" : plc_base::plural(counts.violations, "violation")) +
         (counts.refused == 0 ? "" : ", " + std::to_string(counts.refused) + " refused") + "</p>\n<dl>" +
         fact("began", utc_text(reported.run.began())) + fact("ran for", duration_text(reported.run.elapsed_ms())) +
         fact("listening on", plc_base::shown_html(reported.listening)) + fact("files", files) +
         fact("connections", std::to_string(counts.connections)) + fact("requests", std::to_string(counts.requests)) +
         fact("faults that happened", std::to_string(reported.run.all_faults())) +
         fact("outside bounds", std::to_string(counts.outside)) +
         fact("excused after faults", std::to_string(counts.excused)) + "</dl></header>\n";
}

}  // namespace

std::string report_page(const ReportedRun& reported) {
  const std::vector<ReportRow> rows = report_rows(reported.asked);
  std::string page =
      "<!doctype html>\n<html lang=\"en\">\n<meta charset=\"utf-8\">\n"
      "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src 'unsafe-inline'\">\n"
      "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
      "<meta name=\"color-scheme\" content=\"light dark\">\n<title>plc-sim: report of " +
      utc_text(reported.run.began()) + "</title>\n<style>\n" + std::string(kReportCss) + "</style>\n" + head(reported) +
      "<main>\n" + violations(reported.run) + times(reported.run) + faults(reported.run) +
      names("Refused names", rows, "refused") + names("Outside their bounds", rows, "outside") +
      names("Served", rows, "served") + never(reported.store, reported.asked) + programs(reported.store);
  if (reported.asked.left_out() > 0) {
    page += element("p", "Names beyond the room for them were asked for " +
                             plc_base::plural(reported.asked.left_out(), "time") + ".");
  }
  return page + "</main>\n<footer><p>Written by plc-sim " PLC_SIM_VERSION ".</p></footer>\n</html>\n";
}

}  // namespace plc_sim
