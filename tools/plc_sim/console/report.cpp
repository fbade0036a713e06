// The report of what hosts asked for.
#include "tools/plc_sim/console/report.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/json_text.h"
#include "base/shown_text.h"
#include "base/text.h"
#include "tools/plc_sim/console/report_rows.h"
#include "tools/plc_sim/variables/mistake.h"
#include "wire/names.h"

namespace plc_sim {
namespace {

std::string times(uint64_t count) { return plc_base::plural(count, "time"); }

// Quotes show where a name with blanks begins and ends.
std::string column_name(const std::string& name) {
  const std::string shown = shown_name(name);
  return name.find(' ') == std::string::npos ? shown : plc_base::quoted(shown);
}

std::string text_report(const VariableStore& store, const AskLog& log) {
  std::string text = "  asked for                                type      asked    read written  per s  outcome\n";
  for (const ReportRow& row : report_rows(log)) {
    std::array<char, 160> columns{};
    std::snprintf(columns.data(), columns.size(), " %-8s %7llu %7llu %7llu %6s  %s\n", row.type.c_str(),
                  static_cast<unsigned long long>(row.asked->asked()), static_cast<unsigned long long>(row.asked->read),
                  static_cast<unsigned long long>(row.asked->written), rate_text(*row.asked).c_str(),
                  row.outcome.c_str());
    constexpr size_t kNameWidth = 40;
    const std::string name = column_name(row.name);
    text += "  " + name + std::string(name.size() < kNameWidth ? kNameWidth - name.size() : 0, ' ');
    text += columns.data();
  }
  if (log.left_out() > 0) text += "  and names beyond the room for them, asked for " + times(log.left_out()) + "\n";
  text += "\nnever asked for:\n";
  for (const std::string& name : never_asked(store, log)) text += "  " + column_name(name) + "\n";
  text += "\nprograms:\n";
  for (const Program& program : store.directory()) {
    text += "  " + std::to_string(program.number) + " " + column_name(program.name) + "\n";
  }
  return text;
}

std::string json_report(const VariableStore& store, const AskLog& log) {
  nlohmann::ordered_json json;
  json["asked"] = nlohmann::ordered_json::array();
  for (const ReportRow& row : report_rows(log)) {
    nlohmann::ordered_json entry;
    entry["name"] = row.name;
    entry["tag"] = row.tag.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(row.tag);
    entry["type"] = row.type.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(row.type);
    entry["outcome"] = row.outcome;
    entry["asked"] = row.asked->asked();
    entry["read"] = row.asked->read;
    entry["written"] = row.asked->written;
    const std::optional<double> rate = row.asked->rate_per_second();
    entry["per_second"] = rate ? nlohmann::ordered_json(*rate) : nlohmann::ordered_json();
    json["asked"].push_back(std::move(entry));
  }
  json["left_out"] = log.left_out();
  json["never_asked"] = never_asked(store, log);
  json["programs"] = nlohmann::ordered_json::array();
  for (const Program& program : store.directory()) {
    json["programs"].push_back({{"number", program.number}, {"name", program.name}});
  }
  return plc_base::json_text(json, 2) + "\n";
}

std::string csv_report(const VariableStore& store, const AskLog& log) {
  std::string text = "name,tag,type,outcome,asked,read,written,per_second\n";
  for (const ReportRow& row : report_rows(log)) {
    text += plc_base::shown_csv_cell(row.name) + "," + plc_base::shown_csv_cell(row.tag) + "," + row.type + "," +
            row.outcome + "," + std::to_string(row.asked->asked()) + "," + std::to_string(row.asked->read) + "," +
            std::to_string(row.asked->written) + "," + rate_text(*row.asked) + "\n";
  }
  for (const std::string& name : never_asked(store, log)) {
    text += plc_base::shown_csv_cell(name) + "," + plc_base::shown_csv_cell(name) + ",,never,0,0,0,-\n";
  }
  return text;
}

bool ends_with(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

}  // namespace

std::string make_report(const VariableStore& store, const AskLog& log, const std::string& format) {
  if (format == "text") return text_report(store, log);
  if (format == "json") return json_report(store, log);
  if (format == "csv") return csv_report(store, log);
  if (format == "html") throw Mistake("the page is for a file: plc-sim --report report.html");
  throw Mistake("a report is text, json or csv, not '" + format + "'");
}

std::string report_format_for(const std::string& path) {
  std::string lower = path;
  for (char& letter : lower) letter = static_cast<char>(std::tolower(static_cast<unsigned char>(letter)));
  return ends_with(lower, ".json")                               ? "json"
         : ends_with(lower, ".csv")                              ? "csv"
         : ends_with(lower, ".html") || ends_with(lower, ".htm") ? "html"
                                                                 : "text";
}

}  // namespace plc_sim
